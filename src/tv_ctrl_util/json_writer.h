// Writes JSON texts from front to back into a buffer that grows: without whitespace, byte for byte as cJSON prints the
// same values.
//
// Commas come by themselves. Memory that runs out is reported once, by tvc_finish_text(); until then the functions go
// on and write what there is room for.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "tvapi/types.h"

// A text that is being written, or that is finished.
struct JsonText {
  char* text = nullptr;      // from malloc(); null before the first write. free()d by whoever has the JsonText
  std::size_t length = 0;    // characters written
  std::size_t capacity = 0;  // bytes at `text`; there is always one left for the terminator
  bool needs_comma = false;  // before the next key or value
  bool failed = false;       // memory ran out, so that something is missing
};

void tvc_open_object(JsonText& json);
void tvc_close_object(JsonText& json);
void tvc_open_array(JsonText& json);
void tvc_close_array(JsonText& json);

// The key of a member, whose value is written next. Nothing in a key is escaped: it must have no quote, backslash or
// control character.
void tvc_write_key(JsonText& json, std::string_view key);

// A text up to its terminator, or of `size` characters when it has none before. Quotes, backslashes and control
// characters are escaped; every other byte is written as it is, even where it is not valid UTF-8.
void tvc_write_text(JsonText& json, const char* text, std::size_t size = SIZE_MAX);

// An integer. From 10^15 on, of either sign, it is written as the double that is nearest to it: with 15 significant
// digits where these read as that double again, else with 17, and with an exponent where the digits end before the
// decimal point.
void tvc_write_integer(JsonText& json, INT64 value);
void tvc_write_unsigned(JsonText& json, UINT64 value);

// A number, with digits as above; null for what is no number or infinite.
void tvc_write_double(JsonText& json, double value);

void tvc_write_boolean(JsonText& json, bool value);
void tvc_write_null(JsonText& json);

// Terminates the text. False when memory ran out: `text` then holds a part of it, and still has to be freed.
bool tvc_finish_text(JsonText& json);
