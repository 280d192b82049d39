// The language library of a case. The runner appends the texts to the library's file: id, 0, text, 0 for each, then
// their length in 8 bytes (least significant first), then kLanguageMark.
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

  constexpr std::size_t kMark = sizeof runner::kLanguageMark - 1;
  if (bytes.size() < kMark + 8 || bytes.compare(bytes.size() - kMark, kMark, runner::kLanguageMark) != 0) return texts;
  std::uint64_t length = 0;
  for (std::size_t i = 8; i-- > 0;)
    length = length << 8 | static_cast<unsigned char>(bytes[bytes.size() - kMark - 8 + i]);
  const char* at = bytes.c_str() + bytes.size() - kMark - 8 - length;
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
  static const std::map<std::string, std::string> kTexts = read_texts();
  const auto found = id == nullptr ? kTexts.end() : kTexts.find(id);
  return found == kTexts.end() ? nullptr : found->second.c_str();
}
