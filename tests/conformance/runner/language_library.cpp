// The language library of a case. Its texts stand behind the library's own bytes in its file, as the runner wrote them:
// id, 0, text, 0 for each, then the length of all that in 8 bytes (least significant first) and LANGUAGE_MARK.
#include <dlfcn.h>

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <map>
#include <string>

#include "runner/language.h"

static std::map<std::string, std::string> read_texts() {
  std::map<std::string, std::string> texts;
  Dl_info info;
  if (dladdr(reinterpret_cast<void*>(&read_texts), &info) == 0) return texts;
  std::FILE* file = std::fopen(info.dli_fname, "rb");
  if (file == nullptr) return texts;
  std::string bytes;
  char part[4096];
  for (std::size_t got = 0; (got = std::fread(part, 1, sizeof part, file)) > 0;) bytes.append(part, got);
  std::fclose(file);

  constexpr std::size_t MARK = sizeof runner::LANGUAGE_MARK - 1;
  if (bytes.size() < MARK + 8 || bytes.compare(bytes.size() - MARK, MARK, runner::LANGUAGE_MARK) != 0) return texts;
  std::uint64_t length = 0;
  for (std::size_t i = 8; i-- > 0;)
    length = length << 8 | static_cast<unsigned char>(bytes[bytes.size() - MARK - 8 + i]);
  const char* at = bytes.c_str() + bytes.size() - MARK - 8 - length;
  for (const char* end = at + length; at < end;) {
    const std::string id = at;
    at += id.size() + 1;
    texts[id] = at;
    at += texts[id].size() + 1;
  }
  return texts;
}

// The text of an id in the library's language; null for an unknown id.
extern "C" __attribute__((visibility("default"))) const char* vexuiGetLangStr(const char* id) {
  static const std::map<std::string, std::string> texts = read_texts();
  const auto found = id == nullptr ? texts.end() : texts.find(id);
  return found == texts.end() ? nullptr : found->second.c_str();
}
