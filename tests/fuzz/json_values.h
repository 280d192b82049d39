// JSON texts made from the fuzzer's input, whole or damaged.
#pragma once

#include <string>
#include <string_view>

#include "bytes.h"

// A JSON string of any bytes; what would end it early is written as an escape.
void add_string(std::string& text, std::string_view content);

// A string: any, a number, an escape, or about as long as `limit`.
void add_text_value(Bytes& bytes, std::size_t limit, std::string& text);

// A number or the text of one, at the edges of every integer width, of doubles, and of the grammar.
void add_number_value(Bytes& bytes, std::string& text);

// An array of numbers, some of them no numbers: a few, or about `limit`.
void add_numbers_value(Bytes& bytes, std::size_t limit, std::string& text);

// A value of any kind: some are nested deeply, some are not JSON.
void add_any_value(Bytes& bytes, std::string& text);

// Breaks a text somewhere, or not.
void damage(Bytes& bytes, std::string& text);
