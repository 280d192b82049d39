// Names of files: which files the library reads, and the keys by which it sorts lists and finds groups. Pure functions,
// for any thread.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "tvapi/cbrowser.h"

// Guesses the kind of media from the file name's extension: photo, music, video or playlist; MEDIA_TYPE_NULL: none of
// them. The reader decides by the file's contents (reader.h).
E_MEDIA_TYPE media_kind_of_name(std::string_view name);

// Whether the extension belongs to a photo format that the reader cannot decode.
bool media_is_unsupported(std::string_view name);

// Whether a scan skips files and folders of this name without reporting them: names that begin with a dot, and folders
// of operating systems (recycle bins, indexes).
bool media_is_hidden(std::string_view name);

// Why a name cannot be shown, for people: it is not UTF-8, or contains control characters. Null: it can be shown.
const char* media_name_problem(std::string_view name);

// The name without its extension.
std::string_view media_stem(std::string_view name);

// The key by which a text is sorted and compared: it ignores case and accents, and sorts "2" before "10". At most
// kLongestKey bytes.
inline constexpr std::size_t kLongestKey = 160;
std::string media_key(std::string_view text);
