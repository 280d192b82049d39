#include "rooms/library/names.h"

#include <utf8proc.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdlib>
#include <memory>

#include "base/text.h"
#include "core/text.h"

namespace {

struct Extension {
  std::string_view name;
  E_MEDIA_TYPE kind;
};

constexpr Extension kExtensions[] = {
    {"jpg", MEDIA_TYPE_PHOTO},     {"jpeg", MEDIA_TYPE_PHOTO},   {"jpe", MEDIA_TYPE_PHOTO},
    {"png", MEDIA_TYPE_PHOTO},     {"gif", MEDIA_TYPE_PHOTO},    {"bmp", MEDIA_TYPE_PHOTO},
    {"webp", MEDIA_TYPE_PHOTO},    {"tif", MEDIA_TYPE_PHOTO},    {"tiff", MEDIA_TYPE_PHOTO},
    {"heic", MEDIA_TYPE_PHOTO},    {"heif", MEDIA_TYPE_PHOTO},   {"avif", MEDIA_TYPE_PHOTO},
    {"mp3", MEDIA_TYPE_MUSIC},     {"mp2", MEDIA_TYPE_MUSIC},    {"flac", MEDIA_TYPE_MUSIC},
    {"ogg", MEDIA_TYPE_MUSIC},     {"oga", MEDIA_TYPE_MUSIC},    {"opus", MEDIA_TYPE_MUSIC},
    {"m4a", MEDIA_TYPE_MUSIC},     {"aac", MEDIA_TYPE_MUSIC},    {"ac3", MEDIA_TYPE_MUSIC},
    {"wav", MEDIA_TYPE_MUSIC},     {"wma", MEDIA_TYPE_MUSIC},    {"aif", MEDIA_TYPE_MUSIC},
    {"aiff", MEDIA_TYPE_MUSIC},    {"ape", MEDIA_TYPE_MUSIC},    {"mka", MEDIA_TYPE_MUSIC},
    {"mpc", MEDIA_TYPE_MUSIC},     {"wv", MEDIA_TYPE_MUSIC},     {"mp4", MEDIA_TYPE_VIDEO},
    {"m4v", MEDIA_TYPE_VIDEO},     {"mkv", MEDIA_TYPE_VIDEO},    {"webm", MEDIA_TYPE_VIDEO},
    {"avi", MEDIA_TYPE_VIDEO},     {"divx", MEDIA_TYPE_VIDEO},   {"mov", MEDIA_TYPE_VIDEO},
    {"mpg", MEDIA_TYPE_VIDEO},     {"mpeg", MEDIA_TYPE_VIDEO},   {"ts", MEDIA_TYPE_VIDEO},
    {"m2ts", MEDIA_TYPE_VIDEO},    {"mts", MEDIA_TYPE_VIDEO},    {"vob", MEDIA_TYPE_VIDEO},
    {"wmv", MEDIA_TYPE_VIDEO},     {"asf", MEDIA_TYPE_VIDEO},    {"flv", MEDIA_TYPE_VIDEO},
    {"ogv", MEDIA_TYPE_VIDEO},     {"3gp", MEDIA_TYPE_VIDEO},    {"m3u", MEDIA_TYPE_PLAYLIST},
    {"m3u8", MEDIA_TYPE_PLAYLIST}, {"pls", MEDIA_TYPE_PLAYLIST},
};

// Folders of operating systems whose names do not begin with a dot.
constexpr std::string_view kSystemFolders[] = {"$RECYCLE.BIN", "RECYCLER",  "System Volume Information",
                                               "lost+found",   "FOUND.000", "Recycled"};

std::string_view extension_of(std::string_view name) {
  const std::size_t dot = name.rfind('.');
  return dot == std::string_view::npos ? "" : name.substr(dot + 1);
}

bool is_digit(char c) { return c >= '0' && c <= '9'; }

// The text without case, accents and compatibility differences (Unicode's NFKD with case folding).
std::string folded(std::string_view text) {
  constexpr auto kOptions = static_cast<utf8proc_option_t>(UTF8PROC_STABLE | UTF8PROC_COMPAT | UTF8PROC_DECOMPOSE |
                                                           UTF8PROC_CASEFOLD | UTF8PROC_STRIPMARK | UTF8PROC_IGNORE);
  utf8proc_uint8_t* mapped = nullptr;
  const utf8proc_ssize_t length = utf8proc_map(reinterpret_cast<const utf8proc_uint8_t*>(text.data()),
                                               static_cast<utf8proc_ssize_t>(text.size()), &mapped, kOptions);
  const std::unique_ptr<utf8proc_uint8_t, decltype(&free)> owner(mapped, free);
  if (length < 0) return std::string(text);
  return {reinterpret_cast<const char*>(mapped), static_cast<std::size_t>(length)};
}

}  // namespace

E_MEDIA_TYPE media_kind_of_name(std::string_view name) {
  const std::string_view extension = extension_of(name);
  const auto* const found = std::ranges::find_if(
      kExtensions, [&](const Extension& each) { return equal_ignoring_case(each.name, extension); });
  return found == std::end(kExtensions) ? MEDIA_TYPE_NULL : found->kind;
}

bool media_is_hidden(std::string_view name) {
  return name.starts_with('.') ||
         std::ranges::any_of(kSystemFolders, [&](std::string_view each) { return equal_ignoring_case(each, name); });
}

const char* media_name_problem(std::string_view name) {
  if (!is_utf8(name)) return "its name is not in UTF-8";
  if (clean_text(name, name.size()) != name) return "its name contains control characters";
  return nullptr;
}

std::string_view media_stem(std::string_view name) {
  const std::size_t dot = name.rfind('.');
  return dot == std::string_view::npos || dot == 0 ? name : name.substr(0, dot);
}

std::string media_key(std::string_view text) {
  const std::string plain = folded(cut_text(text, kLongestKey));
  std::string key;
  for (std::size_t i = 0; i < plain.size();) {
    if (!is_digit(plain[i])) {
      key += plain[i++];
      continue;
    }
    std::size_t end = i;
    while (end < plain.size() && is_digit(plain[end])) ++end;
    while (i + 1 < end && plain[i] == '0') ++i;
    // The number's length goes before it as a digit, since a longer number is larger. So numbers also stay before
    // letters.
    key += static_cast<char>('0' + std::min<std::size_t>(end - i, 9));
    key.append(plain, i, end - i);
    i = end;
  }
  return std::string(cut_text(key, kLongestKey));
}
