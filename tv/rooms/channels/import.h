// Reads tables of frequencies and channel lists: sections "[NAME]" with lines "KEY = VALUE".
#pragma once

#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "rooms/channels/lists.h"

inline constexpr std::size_t kLongestImport = 16u << 20;  // bytes of a file
inline constexpr std::size_t kMostBadLines = 20;          // that a reply quotes; the others are counted

struct BadLine {
  std::size_t line;
  std::string why;
};

struct Imported {
  std::vector<Service> services;            // sections with a SERVICE_ID
  std::vector<KnownMultiplex> multiplexes;  // sections without one
  std::optional<std::int16_t> orbit;        // of the file's name: "Astra-19.2E"
  std::string satellite;                    // "Astra 19.2E"
  std::vector<BadLine> bad;                 // at most kMostBadLines
  std::size_t bad_lines = 0;
};

// Reads a file's content. A bad line is left out, and so is a section that lacks something. name: the file's name.
Imported import_text(std::string_view content, std::string_view name);

// Reads a regular file of at most `longest` bytes; does not follow a link. Returns why not, or an empty text.
std::string import_read(const std::string& path, std::string& ret_content, std::size_t longest = kLongestImport);
