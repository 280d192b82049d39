// Hand-made transport streams, and folders of them, for the antenna's tests.
#pragma once

#include <array>
#include <cstdint>
#include <fstream>
#include <functional>
#include <map>
#include <string>
#include <thread>
#include <vector>

#include "rooms/antenna/antenna.h"
#include "tests/unit/tv/support.h"

using Bytes = std::vector<std::uint8_t>;

inline void append(Bytes& bytes, std::uint64_t number, int size) {
  for (int i = size - 1; i >= 0; --i) bytes.push_back(static_cast<std::uint8_t>(number >> (8 * i)));
}

inline void append(Bytes& bytes, const Bytes& more) { bytes.insert(bytes.end(), more.begin(), more.end()); }

inline void append(Bytes& bytes, const std::string& text) { bytes.insert(bytes.end(), text.begin(), text.end()); }

inline std::uint64_t bcd(std::uint64_t number) { return number < 10 ? number : bcd(number / 10) << 4 | number % 10; }

inline std::uint32_t crc_of(const Bytes& bytes) {
  std::uint32_t crc = 0xFFFFFFFF;
  for (const std::uint8_t byte : bytes) {
    crc ^= std::uint32_t{byte} << 24;
    for (int bit = 0; bit < 8; ++bit) crc = (crc & 0x80000000) != 0 ? crc << 1 ^ 0x04C11DB7 : crc << 1;
  }
  return crc;
}

struct SectionPlace {
  std::uint8_t version = 0;
  std::uint8_t number = 0;
  std::uint8_t last = 0;
};

inline Bytes section_of(std::uint8_t table, std::uint16_t extension, const Bytes& body, SectionPlace place = {}) {
  Bytes section{table};
  append(section, 0xB000 | (body.size() + 9), 2);
  append(section, extension, 2);
  section.push_back(static_cast<std::uint8_t>(0xC1 | place.version << 1));
  section.push_back(place.number);
  section.push_back(place.last);
  append(section, body);
  append(section, crc_of(section), 4);
  return section;
}

inline Bytes descriptor(std::uint8_t tag, const Bytes& body) {
  Bytes bytes{tag, static_cast<std::uint8_t>(body.size())};
  append(bytes, body);
  return bytes;
}

// ---- Tables ----

struct TestProgram {
  std::uint16_t service;
  std::uint16_t pid;
};

inline Bytes pat(std::uint16_t stream, const std::vector<TestProgram>& programs, SectionPlace place = {}) {
  Bytes body;
  for (const TestProgram& each : programs) {
    append(body, each.service, 2);
    append(body, 0xE000 | each.pid, 2);
  }
  return section_of(0x00, stream, body, place);
}

// types: stream_type of each elementary stream; 0x02 is MPEG-2 video, 0x03 MPEG audio, 0x05 private sections.
inline Bytes pmt(std::uint16_t service, const Bytes& types, bool scrambled = false) {
  Bytes body{0xE1, 0x00};
  const Bytes access = scrambled ? descriptor(0x09, {0x01, 0x00, 0xE1, 0x23}) : Bytes{};
  append(body, 0xF000 | access.size(), 2);
  append(body, access);
  std::uint16_t pid = 0x100;
  for (const std::uint8_t type : types) {
    body.push_back(type);
    append(body, 0xE000 | pid++, 2);
    append(body, 0xF000, 2);
  }
  return section_of(0x02, service, body);
}

struct TestService {
  std::uint16_t service;
  std::uint8_t type;
  std::string name;
  std::string provider;
  bool scrambled = false;
};

inline Bytes sdt(std::uint16_t network, std::uint16_t stream, const std::vector<TestService>& services,
                 SectionPlace place = {}, bool actual = true) {
  Bytes body;
  append(body, network, 2);
  body.push_back(0xFF);
  for (const TestService& each : services) {
    Bytes text{each.type, static_cast<std::uint8_t>(each.provider.size())};
    append(text, each.provider);
    text.push_back(static_cast<std::uint8_t>(each.name.size()));
    append(text, each.name);
    const Bytes named = descriptor(0x48, text);
    append(body, each.service, 2);
    body.push_back(0xFC);
    append(body, 0x8000 | (each.scrambled ? 0x1000u : 0u) | named.size(), 2);
    append(body, named);
  }
  return section_of(actual ? 0x42 : 0x46, stream, body, place);
}

// Delivery descriptors.
inline Bytes by_air(std::uint32_t hertz) {
  Bytes body;
  append(body, hertz / 10, 4);
  append(body, Bytes{0x1F, 0x00, 0x00, 0xFF, 0xFF, 0xFF, 0xFF});
  return descriptor(0x5A, body);
}
inline Bytes by_cable(std::uint32_t hertz, std::uint32_t symbols) {
  Bytes body;
  append(body, bcd(hertz / 100), 4);
  append(body, Bytes{0xFF, 0xF2, 0x05});
  append(body, bcd(symbols / 100) << 4 | 0x0F, 4);
  return descriptor(0x44, body);
}
inline Bytes by_satellite(std::uint32_t megahertz, std::uint16_t east, bool horizontal, std::uint32_t symbols) {
  Bytes body;
  append(body, bcd(std::uint64_t{megahertz} * 100), 4);
  append(body, bcd(east), 2);
  body.push_back(horizontal ? 0x81 : 0xA1);
  append(body, bcd(symbols / 100) << 4 | 0x03, 4);
  return descriptor(0x43, body);
}

struct TestNumber {
  std::uint16_t service;
  std::uint16_t number;
  bool visible = true;
};

inline Bytes numbers(const std::vector<TestNumber>& all) {
  Bytes bytes = descriptor(0x5F, {0x00, 0x00, 0x00, 0x28});
  Bytes body;
  for (const TestNumber& each : all) {
    append(body, each.service, 2);
    append(body, (each.visible ? 0xFC00u : 0x7C00u) | each.number, 2);
  }
  append(bytes, descriptor(0x83, body));
  return bytes;
}

struct TestEntry {
  std::uint16_t network;
  std::uint16_t stream;
  Bytes descriptors;
};

inline Bytes nit(std::uint16_t network_id, const std::vector<TestEntry>& entries, SectionPlace place = {}) {
  Bytes loop;
  for (const TestEntry& each : entries) {
    append(loop, each.stream, 2);
    append(loop, each.network, 2);
    append(loop, 0xF000 | each.descriptors.size(), 2);
    append(loop, each.descriptors);
  }
  Bytes body{0xF0, 0x00};
  append(body, 0xF000 | loop.size(), 2);
  append(body, loop);
  return section_of(0x40, network_id, body, place);
}

// Five bytes: the modified Julian day and the time in BCD.
inline Bytes date_of(std::int64_t utc) {
  Bytes date;
  const auto seconds = static_cast<std::uint64_t>(utc % 86400);
  append(date, static_cast<std::uint64_t>(utc / 86400 + 40587), 2);
  for (const std::uint64_t part : {seconds / 3600, seconds / 60 % 60, seconds % 60}) append(date, bcd(part), 1);
  return date;
}

inline Bytes tdt(std::int64_t utc) {
  Bytes section{0x70, 0x70, 0x05};
  append(section, date_of(utc));
  return section;
}

// Present/following of a service: one event.
inline Bytes eit(const ServiceKey& key, std::uint16_t event, std::int64_t start, const std::string& title,
                 SectionPlace place = {}) {
  Bytes text{'e', 'n', 'g', static_cast<std::uint8_t>(title.size())};
  append(text, title);
  text.push_back(0);
  const Bytes described = descriptor(0x4D, text);
  Bytes body;
  append(body, key.stream, 2);
  append(body, key.network, 2);
  append(body, Bytes{place.last, 0x4E});
  append(body, event, 2);
  append(body, date_of(start));
  append(body, Bytes{0x01, 0x00, 0x00});
  append(body, 0x8000 | described.size(), 2);
  append(body, described);
  return section_of(0x4E, key.service, body, place);
}

// ---- Packets ----

struct TestStream {
  Bytes bytes;
  std::map<std::uint16_t, std::uint8_t> counters;
  std::uint64_t pcr = 0;  // in units of 27 MHz
};

inline void add_packet(TestStream& stream, std::uint16_t pid, bool begins, const Bytes& payload) {
  const std::size_t begin = stream.bytes.size();
  stream.bytes.push_back(0x47);
  append(stream.bytes, (begins ? 0x4000u : 0u) | pid, 2);
  stream.bytes.push_back(static_cast<std::uint8_t>(0x10 | (stream.counters[pid]++ & 0x0F)));
  append(stream.bytes, payload);
  stream.bytes.resize(begin + 188, 0xFF);
}

inline void add_section(TestStream& stream, std::uint16_t pid, const Bytes& section) {
  Bytes payload{0x00};
  append(payload, section);
  for (std::size_t at = 0; at < payload.size(); at += 184) {
    const auto from = payload.begin() + static_cast<std::ptrdiff_t>(at);
    add_packet(stream, pid, at == 0, Bytes(from, from + std::min<std::ptrdiff_t>(184, payload.end() - from)));
  }
}

// A packet with the clock, and then packets of null bytes until `millis` later, at 10 packets a millisecond (15
// Mbit/s).
inline void add_time(TestStream& stream, int millis) {
  for (int i = 0; i < millis; ++i, stream.pcr += 27000) {
    const std::size_t begin = stream.bytes.size();
    append(stream.bytes, Bytes{0x47, 0x01, 0x00, 0x20, 183, 0x10});
    append(stream.bytes, (stream.pcr / 300) << 15 | 0x7E00 | stream.pcr % 300, 6);
    stream.bytes.resize(begin + 188, 0xFF);
    for (int packet = 0; packet < 9; ++packet) add_packet(stream, 0x1FFF, false, {});
  }
}

// A multiplex of one television service, number 1, over the air; 40 ms long.
inline TestStream small_multiplex(std::uint16_t network, std::uint16_t stream, std::uint32_t hertz) {
  TestStream made;
  add_section(made, 0x00, pat(stream, {{1, 0x40}}));
  add_section(made, 0x40, pmt(1, {0x02, 0x03}));
  add_section(made, 0x11, sdt(network, stream, {{1, 0x01, "Stream " + std::to_string(stream), "Test"}}));
  if (hertz != 0) add_section(made, 0x10, nit(7, {{network, stream, by_air(hertz)}}));
  add_time(made, 40);
  return made;
}

inline std::string write_bytes(const std::string& path, const Bytes& bytes) {
  std::ofstream(path, std::ios::binary | std::ios::trunc)
      .write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
  return path;
}

// ---- The set ----

// How many tuners receive something: each has a thread while it does. A thread counts from the moment at which it has
// given itself its name, so wait for it with comes_true.
inline std::size_t tuners_in_use() {
  std::size_t count = 0;
  for (const auto& task : std::filesystem::directory_iterator("/proc/self/task")) {
    std::string name;
    std::getline(std::ifstream(task.path() / "comm"), name);
    count += name.starts_with("dtv_tv-tuner") ? 1 : 0;
  }
  return count;
}

inline std::string antenna(const std::string& word = "") {
  return tv_control(word.empty() ? R"(["antenna"])" : R"(["antenna",")" + word + "\"]");
}

// Waits, at most 30 s, until the condition holds.
inline bool comes_true(const std::function<bool()>& condition) {
  const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(30);
  while (!condition() && std::chrono::steady_clock::now() < end) std::this_thread::yield();
  return condition();
}

// The antenna's report when its folder has been read.
inline std::string read_antenna() {
  std::string shown;
  EXPECT_TRUE(comes_true([&] { return (shown = antenna()).find("\"reading\"") == std::string::npos; })) << shown;
  return shown;
}
