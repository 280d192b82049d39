#include "tv_ctrl_util/json_writer.h"

#include <stdlib.h>
#include <string.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <limits>

static constexpr std::size_t kFirstCapacity = 1024;  // bytes; most responses and notifications are shorter
static constexpr std::size_t kNumberSize = 24;       // bytes of the longest number, "-1.2345678901234567e+308"

// Makes room for `size` more bytes and a terminator. Returns false when memory runs out; the text then stays as it was.
[[gnu::noinline]] static bool grow(JsonText& json, std::size_t size) {
  if (json.failed) return false;
  const std::size_t capacity = std::max({kFirstCapacity, 2 * json.capacity, json.length + size + 1});
  char* const text = static_cast<char*>(realloc(json.text, capacity));
  if (!text) {
    json.failed = true;
    return false;
  }
  json.text = text;
  json.capacity = capacity;
  return true;
}

static inline bool has_room(JsonText& json, std::size_t size) {
  return json.capacity - json.length > size || grow(json, size);
}

// Begins a key or value of at most `size` bytes: makes room for it, and writes the comma that it may need. Returns
// where the caller writes it before it calls end_at(); null when memory runs out.
static inline char* begin(JsonText& json, std::size_t size) {
  if (!has_room(json, size + 1)) return nullptr;
  char* const at = json.text + json.length;
  *at = ',';
  return at + json.needs_comma;
}

// Ends the text at `end`.
static inline void end_at(JsonText& json, const char* end, bool needs_comma = true) {
  json.length = static_cast<std::size_t>(end - json.text);
  json.needs_comma = needs_comma;
}

static void open(JsonText& json, char bracket) {
  char* const at = begin(json, 1);
  if (!at) return;
  *at = bracket;
  end_at(json, at + 1, false);
}

static void close(JsonText& json, char bracket) {
  if (!has_room(json, 1)) return;
  json.text[json.length++] = bracket;
  json.needs_comma = true;
}

void tvc_open_object(JsonText& json) { open(json, '{'); }
void tvc_close_object(JsonText& json) { close(json, '}'); }
void tvc_open_array(JsonText& json) { open(json, '['); }
void tvc_close_array(JsonText& json) { close(json, ']'); }

void tvc_write_key(JsonText& json, std::string_view key) {
  char* at = begin(json, key.size() + 3);
  if (!at) return;
  *at++ = '"';
  memcpy(at, key.data(), key.size());
  at += key.size();
  *at++ = '"';
  *at++ = ':';
  end_at(json, at, false);
}

// For each byte the letter of its escape sequence; 'u' for one that is escaped by its code; 0 for one that is not
// escaped.
static constexpr auto kEscapes = [] {
  std::array<char, 256> escapes{};
  std::fill_n(escapes.begin(), 0x20, 'u');
  escapes['\b'] = 'b';
  escapes['\f'] = 'f';
  escapes['\n'] = 'n';
  escapes['\r'] = 'r';
  escapes['\t'] = 't';
  escapes['"'] = '"';
  escapes['\\'] = '\\';
  return escapes;
}();

static char escape_of(char character) { return kEscapes[static_cast<unsigned char>(character)]; }

// Writes the escape sequence of a character. Makes room for it, for the `left` characters behind it and for the closing
// quote. Returns where the next character goes; null when memory runs out.
static char* write_escape(JsonText& json, char* at, char character, std::size_t left) {
  static constexpr std::size_t kLongest = 6;  // "\u001f"
  static constexpr char kDigits[] = "0123456789abcdef";
  end_at(json, at);
  if (!has_room(json, kLongest + left + 1)) return nullptr;
  at = json.text + json.length;
  *at++ = '\\';
  *at++ = escape_of(character);
  if (escape_of(character) != 'u') return at;
  *at++ = '0';
  *at++ = '0';
  *at++ = kDigits[character >> 4];
  *at++ = kDigits[character & 15];
  return at;
}

void tvc_write_text(JsonText& json, const char* text, std::size_t size) {
  const std::size_t length = strnlen(text, size);
  char* at = begin(json, length + 2);
  if (!at) return;
  *at++ = '"';
  for (std::size_t i = 0; i < length; ++i) {
    if (!escape_of(text[i]))
      *at++ = text[i];
    else if (at = write_escape(json, at, text[i], length - i - 1); !at)
      return;
  }
  *at++ = '"';
  end_at(json, at);
}

// Uses the C++ library's conversions, which unlike the C library's do not depend on the process's locale.
static void write_double(JsonText& json, double value) {
  char* const at = begin(json, kNumberSize);
  if (!at) return;
  char* end = std::to_chars(at, at + kNumberSize, value, std::chars_format::general, 15).ptr;
  double read = 0;
  std::from_chars(at, end, read);
  if (std::fabs(read - value) > std::max(std::fabs(read), std::fabs(value)) * std::numeric_limits<double>::epsilon())
    end = std::to_chars(at, at + kNumberSize, value, std::chars_format::general, 17).ptr;
  end_at(json, end);
}

static constexpr INT64 kDigitsEnd = 1'000'000'000'000'000;  // integers from here on are written as doubles

void tvc_write_integer(JsonText& json, INT64 value) {
  if (value <= -kDigitsEnd || value >= kDigitsEnd) return write_double(json, static_cast<double>(value));
  char* const at = begin(json, kNumberSize);
  if (!at) return;
  // Nearly all values fit in 32 bits, and a 32-bit processor divides 64-bit numbers slowly.
  const auto narrow = static_cast<INT32>(value);
  end_at(json, narrow == value ? std::to_chars(at, at + kNumberSize, narrow).ptr
                               : std::to_chars(at, at + kNumberSize, value).ptr);
}

void tvc_write_unsigned(JsonText& json, UINT64 value) {
  if (value < UINT64{kDigitsEnd}) return tvc_write_integer(json, static_cast<INT64>(value));
  write_double(json, static_cast<double>(value));
}

static void write_word(JsonText& json, std::string_view word) {
  if (char* const at = begin(json, word.size())) end_at(json, std::copy(word.begin(), word.end(), at));
}

void tvc_write_double(JsonText& json, double value) {
  if (std::isfinite(value)) return write_double(json, value);
  tvc_write_null(json);
}

void tvc_write_boolean(JsonText& json, bool value) { write_word(json, value ? "true" : "false"); }
void tvc_write_null(JsonText& json) { write_word(json, "null"); }

bool tvc_finish_text(JsonText& json) {
  if (!has_room(json, 0) || json.failed) return false;
  json.text[json.length] = '\0';
  return true;
}
