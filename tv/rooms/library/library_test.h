// A set with a stick whose files are made here: photos (BMP), music (WAV with tags), and films that ffmpeg makes.
#pragma once

#include <fcntl.h>
#include <sys/stat.h>

#include <boost/json.hpp>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fstream>
#include <utility>

#include "core/events.h"
#include "core/timers.h"
#include "rooms/library/parts.h"
#include "tests/unit/tv/support.h"

namespace fs = std::filesystem;
namespace json = boost::json;

template <typename Number>
void append_number(std::string& ret_bytes, Number number) {
  char bytes[sizeof number];
  std::memcpy(bytes, &number, sizeof number);
  ret_bytes.append(bytes, sizeof number);
}

inline std::string bmp_bytes(std::int32_t width, std::int32_t height) {
  const std::uint32_t row = (static_cast<std::uint32_t>(width) * 3 + 3) / 4 * 4;
  const std::uint32_t pixels = row * static_cast<std::uint32_t>(height);
  std::string bytes = "BM";
  for (const std::uint32_t number : {54 + pixels, 0U, 54U, 40U}) append_number(bytes, number);
  append_number(bytes, width);
  append_number(bytes, height);
  for (const std::uint16_t number : {std::uint16_t{1}, std::uint16_t{24}}) append_number(bytes, number);
  for (const std::uint32_t number : {0U, pixels, 2835U, 2835U, 0U, 0U}) append_number(bytes, number);
  for (std::uint32_t i = 0; i < pixels; ++i) bytes += static_cast<char>(i * 7);
  return bytes;
}

struct Song {
  std::string title = {};
  std::string artist = {};
  std::string album = {};
  std::string genre = {};
  std::string track = {};
  std::uint32_t seconds = 1;
};

// 8000 samples a second of one byte.
inline std::string wav_bytes(const Song& song) {
  std::string info = "INFO";
  for (const auto& [id, text] :
       {std::pair("INAM", &song.title), std::pair("IART", &song.artist), std::pair("IPRD", &song.album),
        std::pair("IGNR", &song.genre), std::pair("IPRT", &song.track)}) {
    if (text->empty()) continue;
    std::string padded = *text + '\0';
    info += id;
    append_number(info, static_cast<std::uint32_t>(padded.size()));
    if (padded.size() % 2 != 0) padded += '\0';
    info += padded;
  }
  const std::string samples(std::size_t{song.seconds} * 8000, '\x80');
  std::string body = "WAVEfmt ";
  append_number(body, std::uint32_t{16});
  for (const std::uint16_t number : {std::uint16_t{1}, std::uint16_t{1}}) append_number(body, number);
  for (const std::uint32_t number : {8000U, 8000U}) append_number(body, number);
  for (const std::uint16_t number : {std::uint16_t{1}, std::uint16_t{8}}) append_number(body, number);
  body += "LIST";
  append_number(body, static_cast<std::uint32_t>(info.size()));
  body += info + "data";
  append_number(body, static_cast<std::uint32_t>(samples.size()));
  body += samples;
  std::string bytes = "RIFF";
  append_number(bytes, static_cast<std::uint32_t>(body.size()));
  return bytes + body;
}

// A film of 2 s, 64x48 pixels, with the title "Test film" and the year 2001.
inline const std::string& film_bytes() {
  static const std::string kBytes = [] {
    std::string folder = (fs::temp_directory_path() / "tv_film_XXXXXX").string();
    EXPECT_NE(mkdtemp(folder.data()), nullptr);
    const std::string path = folder + "/film.mp4";
    const std::string command =
        "ffmpeg -v error -y -f lavfi -i testsrc=size=64x48:rate=5 -t 2 -c:v mpeg4 -metadata title='Test film' "
        "-metadata date=2001 " +
        path;
    EXPECT_EQ(std::system(command.c_str()), 0) << command;  // NOLINT(cert-env33-c,concurrency-mt-unsafe)
    std::ifstream file(path, std::ios::binary);
    std::string made(std::istreambuf_iterator<char>(file), {});
    fs::remove_all(folder);
    return made;
  }();
  return kBytes;
}

struct LibrarySet : testing::Test {
  TvFolder state;
  TvFolder world;  // the root, where the sticks' folders are
  std::string stick = world.path + "/Holiday";
  LibrarySet() {
    fs::create_directories(stick);
    start();
  }
  void start() const {
    dtv_tv_stick_root(world.path.c_str());
    EXPECT_EQ(tv_start(state.path), "");
  }
  void restart() const {
    dtv_tv_stop();
    start();
    scans_settle();
  }

  void write_file(const std::string& path, const std::string& bytes) const {
    fs::create_directories(fs::path(stick + "/" + path).parent_path());
    std::ofstream(stick + "/" + path, std::ios::binary) << bytes;
  }
  // Seconds since 1970, UTC, as the file's latest change.
  void set_time(const std::string& path, std::time_t time) const {
    const timespec times[2] = {{.tv_sec = time, .tv_nsec = 0}, {.tv_sec = time, .tv_nsec = 0}};
    ASSERT_EQ(utimensat(AT_FDCWD, (stick + "/" + path).c_str(), times, 0), 0);
  }
  std::string mount() const { return state.path + "/usb/sda1"; }
  std::string at(const std::string& path) const { return mount() + "/" + path; }

  static json::object run(const std::vector<std::string>& words) {
    json::array command;
    for (const std::string& word : words) command.emplace_back(word);
    return json::parse(tv_control(json::serialize(command))).as_object();
  }
  static json::object media(std::vector<std::string> words) {
    words.insert(words.begin(), "media");
    return run(words);
  }
  // Inserts the stick, and waits until it has been scanned.
  void insert() const {
    const json::object answer = run({"stick", "insert", stick});
    ASSERT_FALSE(answer.contains("error")) << answer;
    scans_settle();
    events_settle();
  }
  // Scans it again, and waits.
  void scan() const {
    EXPECT_EQ(a_vextvapi_cb_startScan(mount().c_str()), 0);
    scans_settle();
    events_settle();
  }
  ScanReport report() const {
    const auto found = usb_stick_of(mount());
    EXPECT_TRUE(found.has_value());
    return found ? scan_report(*found) : ScanReport{};
  }

  // What a list of the TV API has: paths within the stick, "a.wav b.wav".
  std::string shown(const std::vector<T_MEDIA_INFO>& list) const {
    std::string text;
    for (const T_MEDIA_INFO& each : list) {
      std::string path = each.media_path;
      if (path.starts_with(mount() + "/")) path = path.substr(mount().size() + 1);
      text += (text.empty() ? "" : " ") + path;
    }
    return text;
  }
  std::vector<T_MEDIA_INFO> entries(INT32 type, const std::string& path, INT32 index = 0, INT32 count = 24) const {
    std::vector<T_MEDIA_INFO> list(24);
    EXPECT_EQ(a_vextvapi_get_list_by_count(list.data(), type, path.c_str(), index, &count), 0);
    list.resize(static_cast<std::size_t>(count));
    return list;
  }
  std::string list(INT32 type, const std::string& path, INT32 index = 0, INT32 count = 24) const {
    return shown(entries(type, path, index, count));
  }
  std::string top(INT32 type, INT32 sort, const std::string& path, INT32 index = 0, INT32 count = 24) const {
    std::vector<T_MEDIA_INFO> list(24);
    EXPECT_EQ(a_vextvapi_get_top_list_by_sort_type(list.data(), type, sort, path.c_str(), index, &count), 0);
    list.resize(static_cast<std::size_t>(count));
    return shown(list);
  }
  std::string rec(INT32 type, INT32 sort, const std::string& name, const std::string& path) const {
    std::vector<T_MEDIA_INFO> list(24);
    INT32 count = 24;
    EXPECT_EQ(a_vextvapi_get_rec(list.data(), type, sort, name.c_str(), path.c_str(), 0, &count), 0);
    list.resize(static_cast<std::size_t>(count));
    return shown(list);
  }
};
