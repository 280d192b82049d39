// Helpers for the tests of the player: a set with a stick, files that ffmpeg makes once per process, and the events
// that an application gets.
#pragma once

#include <unistd.h>

#include <boost/json.hpp>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <mutex>
#include <set>
#include <thread>

#include "rooms/usb/usb_test.h"
#include "tests/unit/tv/support.h"

namespace media_test {

namespace fs = std::filesystem;
using std::chrono::steady_clock;

constexpr std::chrono::seconds kLongest{30};  // an upper limit; the tests wait for less than 2 s

// Calls `done` until it returns true. False: it did not within the time.
inline bool until(const std::function<bool()>& done, steady_clock::duration longest = kLongest) {
  const auto end = steady_clock::now() + longest;
  while (!done()) {
    if (steady_clock::now() > end) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  return true;
}

// A folder with the files, which is removed when the process ends.
struct Files {
  std::string folder = (fs::temp_directory_path() / ("media_files_" + std::to_string(getpid()))).string();
  Files() {
    fs::create_directories(folder);
    std::ofstream(folder + "/chapters.txt")
        << ";FFMETADATA1\ntitle=A Film\nartist=Some One\nalbum=Collected\ngenre=Drama\n"
           "date=2019-05-01\nLAW_RATING=16\n"
           "[CHAPTER]\nTIMEBASE=1/1\nSTART=0\nEND=4\ntitle=Red\n"
           "[CHAPTER]\nTIMEBASE=1/1\nSTART=4\nEND=8\ntitle=Green\n"
           "[CHAPTER]\nTIMEBASE=1/1\nSTART=8\nEND=12\ntitle=Blue\n";
    const std::string colours =
        "-f lavfi -i color=red:s=320x180:r=10:d=4 -f lavfi -i color=lime:s=320x180:r=10:d=4 -f lavfi -i "
        "color=blue:s=320x180:r=10:d=4 -f lavfi -i sine=440:d=12 -f lavfi -i sine=880:d=12 -i " +
        folder +
        "/chapters.txt -filter_complex '[0][1][2]concat=n=3:v=1:a=0,format=yuv420p[v]' -map '[v]' -map 3 -map 4 ";
    const std::string sounds = "-metadata:s:a:0 language=eng -metadata:s:a:1 language=deu -c:a aac -b:a 48k ";
    make(colours + "-map_metadata 5 -map_chapters 5 " + sounds + "-c:v mpeg4 -g 10 " + folder + "/film.mp4");
    make("-i " + folder + "/film.mp4 -i " + folder + "/chapters.txt -map 0:v -map 0:a -map_metadata 1 -c copy " +
         folder + "/film.mkv");
    make("-i " + folder + "/film.mp4 -map 0:v -map 0:a:0 -c:v libx264 -preset ultrafast -g 10 -c:a mp2 " + folder +
         "/film.ts");
    make(
        "-f lavfi -i sine=330:d=8 -f lavfi -i color=yellow:s=64x64:r=1:d=1 -map 0 -map 1 -c:a libmp3lame -b:a 64k -c:v "
        "mjpeg -disposition:v attached_pic -metadata title=Song -metadata artist=Band " +
        folder + "/song.mp3");
  }
  ~Files() { fs::remove_all(folder); }
  Files(const Files&) = delete;
  Files& operator=(const Files&) = delete;
  static void make(const std::string& arguments) {
    const std::string command = "ffmpeg -v error -nostdin -y " + arguments;
    EXPECT_EQ(std::system(command.c_str()), 0) << command;  // NOLINT(cert-env33-c,concurrency-mt-unsafe)
  }
};

inline const Files& files() {
  static const Files kFiles;
  return kFiles;
}

struct Event {
  INT32 type = 0;
  std::intptr_t data = 0;
  UINT32 arg2 = 0, arg3 = 0, arg4 = 0;
  std::string text = {};
};

inline std::mutex events_lock;
inline std::vector<Event> events;  // guarded by events_lock

inline INT32 hear(INT32 type, void* tag, void* data, UINT32 arg2, UINT32 arg3, UINT32 arg4) {
  EXPECT_EQ(tag, reinterpret_cast<void*>(0x7A6));
  Event event{.type = type, .data = reinterpret_cast<std::intptr_t>(data), .arg2 = arg2, .arg3 = arg3, .arg4 = arg4};
  if (type == PLAYER_EVENT_THUMBNAIL) event.text = static_cast<const char*>(data);
  const std::lock_guard guard(events_lock);
  events.push_back(event);
  return 0;
}

inline std::vector<Event> heard(INT32 type) {
  const std::lock_guard guard(events_lock);
  std::vector<Event> found;
  std::copy_if(events.begin(), events.end(), std::back_inserter(found),
               [&](const Event& each) { return each.type == type; });
  return found;
}

inline void forget_events() {
  const std::lock_guard guard(events_lock);
  events.clear();
}

inline bool hears(INT32 type) {
  return until([=] { return !heard(type).empty(); });
}

inline boost::json::object command(const std::vector<std::string>& words) {
  boost::json::array array(words.begin(), words.end());
  return boost::json::parse(tv_control(boost::json::serialize(array))).as_object();
}

inline std::string text(const boost::json::object& reply, const char* key) {
  const boost::json::value* const found = reply.if_contains(key);
  return found != nullptr && found->is_string() ? std::string(found->as_string()) : "";
}

inline double number(const boost::json::object& reply, const char* key) {
  const boost::json::value* const found = reply.if_contains(key);
  return found != nullptr && found->is_number() ? found->to_number<double>() : -1;
}

// A set with a stick that has the files.
struct MediaSet : testing::Test {
  TvFolder folder;
  TvFolder world;  // the root, where the stick's folder is
  MediaSet() {
    forget_events();
    dtv_tv_stick_root(world.path.c_str());
    fs::copy(files().folder, world.path + "/Films");
    EXPECT_EQ(tv_start(folder.path), "");
    insert();
  }
  void insert() const { EXPECT_NE(stick({"insert", world.path + "/Films"}).find("sda1"), std::string::npos); }
  std::string mounted() const { return folder.path + "/usb/sda1"; }
  std::string path(const std::string& name) const { return mounted() + "/" + name; }
  void restart() const {
    dtv_tv_stop();
    EXPECT_EQ(tv_start(folder.path), "");
  }

  static UINT32 create(const std::string& path) {
    const UINT32 player = a_vextvapi_cb_pb_init(0, 0, nullptr, 0, nullptr, path.c_str());
    EXPECT_NE(player, 0u);
    EXPECT_EQ(a_vextvapi_cb_pb_register_callback(player, hear, reinterpret_cast<void*>(0x7A6)), 0);
    return player;
  }
  // Creates a player and opens its file.
  UINT32 open(const std::string& name) const {
    const UINT32 player = create(path(name));
    EXPECT_EQ(a_vextvapi_cb_pb_open(player), 0);
    EXPECT_TRUE(hears(PLAYER_EVENT_OPENED));
    return player;
  }
  static UINT32 position(UINT32 player) {
    UINT32 time = 0;
    UINT64 byte = 0;
    EXPECT_EQ(a_vextvapi_cb_pb_getCurPos(player, &time, &byte), 0);
    return time;
  }
  static bool comes_to(UINT32 player, UINT32 from, UINT32 to) {
    return until([=] { return position(player) >= from && position(player) <= to; });
  }
};

}  // namespace media_test
