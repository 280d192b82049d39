// Multiplexes with everything that a tuner looks for, and a set that is tuned to them.
#pragma once

#include <deque>
#include <mutex>
#include <optional>

#include "rooms/antenna/antenna_test.h"
#include "rooms/tuner/tuner.h"
#include "rooms/tuner/tuner_test.h"

// Other rooms' tests in the same program have functions with the same names.
namespace tuner_test {

struct Result {
  UINT32 list;
  ChangeResult result;
  UINT32 id;
  bool operator==(const Result&) const = default;
};

inline std::ostream& operator<<(std::ostream& out, const Result& result) {
  return out << "list " << result.list << ", result " << static_cast<int>(result.result) << ", channel "
             << (result.id >> 18);
}

inline std::mutex lock;
inline std::deque<Result> results;

inline INT32 hear(INT32 type, void* tag, void* list, void* result, void* id, void* none) {
  const auto number = [](void* word) { return static_cast<UINT32>(reinterpret_cast<std::uintptr_t>(word)); };
  EXPECT_EQ(type, VEXTVAPI_BROADCAST_CHANNEL_CHANGED);
  EXPECT_EQ(number(tag), 77u);
  EXPECT_EQ(none, nullptr);
  const std::lock_guard guard(lock);
  results.push_back({number(list), static_cast<ChangeResult>(number(result)), number(id)});
  return 0;
}

inline std::size_t heard() {
  const std::lock_guard guard(lock);
  return results.size();
}

// ---- Streams ----

struct Elementary {
  std::uint8_t type;
  std::uint16_t pid;
  Bytes descriptors = {};
};

inline Bytes language(const char* letters, std::uint8_t type = 0) {
  Bytes body;
  append(body, std::string(letters));
  body.push_back(type);
  return descriptor(0x0A, body);
}

inline Bytes subtitles(const char* letters, std::uint8_t type = 0x10) {
  Bytes body;
  append(body, std::string(letters));
  append(body, Bytes{type, 0, 1, 0, 1});
  return descriptor(0x59, body);
}

inline Bytes map_of(std::uint16_t service, std::uint16_t pcr_pid, const std::vector<Elementary>& streams) {
  Bytes body;
  append(body, 0xE000u | pcr_pid, 2);
  append(body, 0xF000u, 2);
  for (const Elementary& each : streams) {
    body.push_back(each.type);
    append(body, 0xE000u | each.pid, 2);
    append(body, 0xF000u | each.descriptors.size(), 2);
    append(body, each.descriptors);
  }
  return section_of(0x02, service, body);
}

struct Program {
  std::uint16_t service;
  std::uint16_t pmt_pid;
  std::optional<std::vector<Elementary>> streams;  // nothing: the PAT has the service, but no PMT comes
  bool scrambled = false;
};

// A second of a multiplex of network 1, with its tables every 100 ms and one packet of each stream every 20 ms.
inline Bytes multiplex(std::uint16_t stream, const std::vector<Program>& programs) {
  TestStream made;
  std::vector<TestProgram> listed;
  for (const Program& each : programs) listed.push_back({each.service, each.pmt_pid});
  for (int step = 0; step < 50; ++step, made.pcr += 20 * 27000) {
    const std::size_t begin = made.bytes.size();
    append(made.bytes, Bytes{0x47, 0x01, 0x00, 0x20, 183, 0x10});
    append(made.bytes, (made.pcr / 300) << 15 | 0x7E00 | made.pcr % 300, 6);
    made.bytes.resize(begin + 188, 0xFF);
    if (step % 5 == 0) {
      add_section(made, 0x00, pat(stream, listed));
      add_section(made, 0x10, nit(7, {{1, stream, by_air(506'000'000u + 8'000'000u * stream)}}));
      for (const Program& each : programs)
        if (each.streams) add_section(made, each.pmt_pid, map_of(each.service, 0x100, *each.streams));
    }
    for (const Program& program : programs) {
      if (!program.streams) continue;
      for (const Elementary& each : *program.streams) {
        add_packet(made, each.pid, true, {0x00, 0x00, 0x01, 0xE0, 0x00, 0x00, 0x80, 0x00, 0x00});
        if (program.scrambled) made.bytes[made.bytes.size() - 188 + 3] |= 0x80;
      }
    }
  }
  return made.bytes;
}

struct Show {
  std::uint16_t id;
  std::int64_t start;
  int minutes;
  int age;  // 0: none
};

// A service's present and following event, each in a section of its own.
inline std::vector<Bytes> events_of(std::uint16_t stream, std::uint16_t service, const std::vector<Show>& shows,
                                    std::uint8_t version = 0) {
  std::vector<Bytes> sections;
  for (const Show& each : shows) {
    Bytes text = {'e', 'n', 'g', 4, 'S', 'h', 'o', 'w', 0};
    Bytes described = descriptor(0x4D, text);
    if (each.age != 0) append(described, descriptor(0x55, {'G', 'B', 'R', static_cast<std::uint8_t>(each.age - 3)}));
    Bytes body;
    append(body, stream, 2);
    append(body, 1, 2);
    append(body, Bytes{1, 0x4E});
    append(body, each.id, 2);
    append(body, date_of(each.start));
    append(body, bcd(static_cast<std::uint64_t>(each.minutes / 60)), 1);
    append(body, bcd(static_cast<std::uint64_t>(each.minutes % 60)), 1);
    append(body, 0, 1);
    append(body, 0x8000u | described.size(), 2);
    append(body, described);
    sections.push_back(section_of(
        0x4E, service, body, {.version = version, .number = static_cast<std::uint8_t>(sections.size()), .last = 1}));
  }
  return sections;
}

inline Bytes multiplex_10() {
  return multiplex(10, {{101,
                         0x40,
                         {{{0x02, 0x101},
                           {0x03, 0x102, language("deu")},
                           {0x03, 0x103, language("eng")},
                           {0x03, 0x104, language("eng", 3)},
                           {0x06, 0x105, subtitles("deu")},
                           {0x06, 0x106, subtitles("fra")},
                           {0x06, 0x107, descriptor(0x56, {'d', 'e', 'u', 0x09, 0x00})}}}},
                        {102, 0x41, {{{0x02, 0x111}, {0x03, 0x112}}}, true}});
}

inline Bytes multiplex_20() {
  return multiplex(20, {{201, 0x40, {{{0x1B, 0x201}, {0x03, 0x202}}}},
                        {202, 0x41, {{{0x03, 0x212}}}},
                        {203, 0x42, std::vector<Elementary>{}},
                        {204, 0x43, std::nullopt}});
}

struct TvTuner : TunerSet {
  std::string air = home.path + "/air";
  TvTuner() {
    results.clear();
    std::filesystem::create_directory(air);
    write_bytes(air + "/10.ts", multiplex_10());
    write_bytes(air + "/20.ts", multiplex_20());
    listen();
    expect_done(antenna(air));
    read_antenna();
  }
  static void listen() {
    ASSERT_EQ(a_vextvapi_broadcast_register_callback(hear, reinterpret_cast<void*>(std::uintptr_t{77})), 0);
  }
};

// Lets the set work without moving its clock until the condition holds.
inline bool settles(const std::function<bool()>& condition) {
  return comes_true([&] {
    dtv_tv_advance(0);
    return condition();
  });
}

// Waits for the next result.
inline Result next_result() {
  EXPECT_TRUE(settles([] { return heard() > 0; })) << run({"tuner"});
  const std::lock_guard guard(lock);
  if (results.empty()) return {};
  const Result result = results.front();
  results.pop_front();
  return result;
}

inline Result of(int number, ChangeResult result) { return {1, result, channel_id(number)}; }

inline bool shows(const std::string& part) { return run({"tuner"}).find(part) != std::string::npos; }

// Chooses a channel that has sound, and returns the result of the change. The PMT comes in the machine's time: without
// it, a clock that the test advances would leave the patience behind.
inline Result change_to(int number) {
  expect_done(run({"tune", std::to_string(number)}));
  dtv_tv_advance(900);
  EXPECT_TRUE(settles([] { return shows("\"audio\":[{"); })) << run({"tuner"});
  return next_result();
}

}  // namespace tuner_test
