// The pieces of the floors; see "plugin_floor.h".
#pragma once

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>
#include <charconv>
#include <mutex>

#include "plugin_floor.h"

inline std::mutex floor_mutex;

// Reads a request: the texts and the nesting.
inline void floor_read(const char* request) {
  int depth = 0;
  int texts = 0;
  for (const char* at = request; *at; ++at) {
    if (*at == '"') {
      for (++at; *at && *at != '"'; ++at)
        if (*at == '\\' && at[1]) ++at;
      ++texts;
    } else if (*at == '{' || *at == '[') {
      ++depth;
    } else if (*at == '}' || *at == ']') {
      --depth;
    }
  }
  keep(&depth);
  keep(&texts);
}

// Pieces of a text, each put behind the one before: one that is known, a record's text, a number.
template <std::size_t size>
void put(char*& at, const char (&piece)[size]) {
  memcpy(at, piece, size - 1);
  at += size - 1;
}
inline void put_text(char*& at, const char* text) {
  for (; *text; ++text) {
    if (*text == '"' || *text == '\\' || static_cast<unsigned char>(*text) < ' ')
      at += sprintf(at, "\\u%04x", *text);
    else
      *at++ = *text;
  }
}
template <typename Number>
void put_number(char*& at, Number number) {
  at = std::to_chars(at, at + 20, number).ptr;
}

inline constexpr std::size_t kFloorText = 1024;  // the room for a text, unless given otherwise

// Clears the record, has it filled, writes its text into a new block, and copies that to the host.
template <typename Record, std::size_t longest = kFloorText>
void floor_get(void (*fill)(Record& record), char* (*put_record)(char* at, const Record& record)) {
  static Record record;
  const std::lock_guard guard(floor_mutex);
  memset(&record, 0, sizeof record);
  fill(record);
  keep(&record);
  char* const text = static_cast<char*>(malloc(longest));
  const char* const end = put_record(text, record);
  memcpy(host_buffer, text, std::min(static_cast<std::size_t>(end - text), std::size_t{DTV_JSP_RESPONSE_MAX}));
  keep(host_buffer);
  free(text);
}
