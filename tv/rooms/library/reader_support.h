// Helpers for the tests of the reader.
#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <stdio.h>
#include <unistd.h>

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "rooms/library/reader.h"

struct MediaFolder {
  std::string path;
  MediaFolder() {
    std::string name = (std::filesystem::temp_directory_path() / "tv_media_XXXXXX").string();
    path = mkdtemp(name.data());
  }
  ~MediaFolder() { std::filesystem::remove_all(path); }
  MediaFolder(const MediaFolder&) = delete;
  MediaFolder& operator=(const MediaFolder&) = delete;

  std::string write(const std::string& name, const std::string& bytes) const {
    std::ofstream(path + "/" + name, std::ios::binary) << bytes;
    return path + "/" + name;
  }
  // Makes the file with ffmpeg. False: ffmpeg failed or is missing.
  bool make(const std::string& arguments, const std::string& name) const {
    const std::string command =
        "cd '" + path + "' && timeout 60 ffmpeg -v error -nostdin -y " + arguments + " " + name + " 2>&1";
    return std::system(command.c_str()) == 0;  // NOLINT(cert-env33-c,concurrency-mt-unsafe)
  }
};

struct OpenFile {
  int number;
  explicit OpenFile(const std::string& path) : number(open(path.c_str(), O_RDONLY | O_CLOEXEC)) {}
  ~OpenFile() { close(number); }
  OpenFile(const OpenFile&) = delete;
  OpenFile& operator=(const OpenFile&) = delete;
};

struct ReadFacts {
  ReadResult result = ReadResult::kNoReader;
  MediaFacts facts = {};
  std::string why = {};
};

inline ReadFacts facts_of(MediaReader& reader, const std::string& path) {
  const OpenFile file(path);
  ReadFacts read;
  read.result = media_reader_facts(reader, file.number, path, read.facts, read.why);
  return read;
}

// What a command prints.
inline std::string printed(const std::string& command) {
  std::string text;
  FILE* const pipe = popen(command.c_str(), "r");  // NOLINT(cert-env33-c)
  char bytes[4096];
  for (std::size_t got = 0; (got = fread(bytes, 1, sizeof bytes, pipe)) > 0;) text.append(bytes, got);
  pclose(pipe);
  return text;
}

inline std::string in_shell(const std::string& word) {
  std::string text = "'";
  for (const char c : word) text += c == '\'' ? std::string("'\\''") : std::string(1, c);
  return text + "'";
}

// The regular files of a Debian package whose names have one of these endings; none if the package is not installed.
inline std::vector<std::string> package_files(const std::string& package, const std::vector<std::string>& ends) {
  std::vector<std::string> files;
  std::istringstream lines(printed("dpkg -L " + package + " 2>/dev/null"));
  for (std::string line; std::getline(lines, line);) {
    std::string lower = line;
    for (char& c : lower) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    const bool ends_so = std::any_of(ends.begin(), ends.end(), [&](const auto& end) { return lower.ends_with(end); });
    if (ends_so && std::filesystem::is_regular_file(line)) files.push_back(line);
  }
  return files;
}

inline std::string bytes_of(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}
