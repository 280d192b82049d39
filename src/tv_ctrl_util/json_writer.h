// Writes JSON texts from front to back into a buffer that grows: without whitespace, byte for byte as cJSON prints the
// same values.
//
// The functions write commas by themselves. When memory runs out, they skip what there is no room for; only
// tvc_finish_text() reports it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "tvapi/types.h"

// A text that is being written, or that is finished.
struct JsonText {
  char* text = nullptr;      // from malloc(), null before the first write; the owner of the JsonText frees it
  std::size_t length = 0;    // bytes written
  std::size_t capacity = 0;  // bytes allocated at `text`; one is always left for the terminator
  bool needs_comma = false;  // true: the next key or value is written after a comma
  bool failed = false;       // true: memory ran out, and the text is not complete
};

void tvc_open_object(JsonText& json);
void tvc_close_object(JsonText& json);
void tvc_open_array(JsonText& json);
void tvc_close_array(JsonText& json);

// Writes the key of a member; the caller writes its value next. Nothing in a key is escaped: it must have no quote,
// backslash or control character.
void tvc_write_key(JsonText& json, std::string_view key);

// Writes a text up to its terminator, at most `size` bytes. Quotes, backslashes and control characters are escaped;
// every other byte is written as it is, even where it is not valid UTF-8.
void tvc_write_text(JsonText& json, const char* text, std::size_t size = SIZE_MAX);

// Write an integer. An absolute value of 10^15 or more is written as the nearest double: as printf's "%.15g" writes it
// or, where that would not read back as the same double, as "%.17g".
void tvc_write_integer(JsonText& json, INT64 value);
void tvc_write_unsigned(JsonText& json, UINT64 value);

// Writes a double in the same way; NaN and infinity as null.
void tvc_write_double(JsonText& json, double value);

void tvc_write_boolean(JsonText& json, bool value);
void tvc_write_null(JsonText& json);

// Terminates the text. Returns false when memory ran out: `text` is then incomplete, and the owner must still free it.
bool tvc_finish_text(JsonText& json);
