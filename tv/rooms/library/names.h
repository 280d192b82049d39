// Names of files: which ones the library looks at, and the keys by which lists are sorted and groups are found. Pure
// functions of any thread.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "tvapi/cbrowser.h"

// The kind that the name's extension promises: photo, music, video, playlist; null: not a medium. The reader says
// whether the promise holds.
E_MEDIA_TYPE media_kind_of_name(std::string_view name);

// Whether files and folders of this name are skipped and not reported: hidden ones, and those in which systems keep
// their own things (recycle bins, indexes).
bool media_is_unsupported(std::string_view name);  // a photo that the reader cannot decode
bool media_is_hidden(std::string_view name);

// Why a name cannot be shown: not UTF-8, or control characters; null: it can.
const char* media_name_problem(std::string_view name);

// The name without its extension.
std::string_view media_stem(std::string_view name);

// The text as it is sorted and compared: without case and accents, and with its numbers in their order ("2" before
// "10"). At most kLongestKey bytes.
inline constexpr std::size_t kLongestKey = 160;
std::string media_key(std::string_view text);
