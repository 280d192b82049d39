#include "rooms/screen/player/library.h"

#include <dlfcn.h>

#include <clocale>
#include <cstring>

namespace {

constexpr const char* kName = "libmpv.so.2";

// The library refuses to work with another decimal sign than the point, and looks at the process's locale, not at the
// thread's.
std::string locale_trouble() {
  const char* const numbers = std::setlocale(LC_NUMERIC, nullptr);  // NOLINT(concurrency-mt-unsafe): it only reads
  if (numbers == nullptr || std::strcmp(numbers, "C") == 0 || std::strcmp(numbers, "C.UTF-8") == 0) return {};
  return "the picture needs a process whose LC_NUMERIC is \"C\"; here it is \"" + std::string(numbers) + "\"";
}

MpvLibrary load() {
  MpvLibrary library;
  library.trouble = locale_trouble();
  if (!library.trouble.empty()) return library;
  void* const handle = dlopen(kName, RTLD_NOW | RTLD_LOCAL);
  if (handle == nullptr) {
    library.trouble = std::string("the picture needs the package libmpv2: ") + dlerror();
    return library;
  }
#define ROW(name)                                                           \
  library.name = reinterpret_cast<decltype(&::name)>(dlsym(handle, #name)); \
  if (library.name == nullptr) library.trouble = std::string(kName) + " has no " #name;
  MPV_FUNCTIONS(ROW)
#undef ROW
  return library;
}

}  // namespace

const MpvLibrary& mpv_library() {
  static const MpvLibrary& library = *new MpvLibrary(load());  // never destroyed: the player's threads may outlive main
  return library;
}
