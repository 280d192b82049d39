// The texts of one language, as a library that the plugin opens by its name. CMake compiles this file once per
// language; DTV_LANGUAGE is the language's column in the catalogue.
#include <algorithm>
#include <iterator>
#include <string_view>

namespace {

struct Texts {
  const char *en, *de, *fr, *es, *tr;
};

struct Message {
  std::string_view id;
  const char* text;
};

#define DTV_TEXT(id, en, de, fr, es, tr)                                                                \
  static_assert(sizeof(en) > 1 && sizeof(de) > 1 && sizeof(fr) > 1 && sizeof(es) > 1 && sizeof(tr) > 1, \
                #id " has an empty text");
#include "catalogue.def"
#undef DTV_TEXT

#define DTV_TEXT(id, en, de, fr, es, tr) {#id, Texts{en, de, fr, es, tr}.DTV_LANGUAGE},
constexpr Message messages[] = {
#include "catalogue.def"
};
#undef DTV_TEXT

static_assert(std::ranges::adjacent_find(messages, std::ranges::greater_equal(), &Message::id) == std::end(messages),
              "the catalogue is not in the order of its ids, or has an id twice");

}  // namespace

// Returns the text of an id, valid while the library is loaded; null for an unknown id. From any thread.
extern "C" [[gnu::visibility("default")]] const char* vexuiGetLangStr(const char* id) {
  if (id == nullptr) return nullptr;
  const Message* const found = std::ranges::lower_bound(messages, std::string_view(id), {}, &Message::id);
  return found != std::end(messages) && found->id == id ? found->text : nullptr;
}
