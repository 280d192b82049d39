// Channel lists for tests: a set whose lists come from an imported file.
#pragma once

#include <condition_variable>
#include <mutex>
#include <string>
#include <vector>

#include "tests/unit/tv/store_support.h"

inline constexpr UINT16 kAir = 1, kCable = 2, kSatellite = 3;
inline constexpr UINT32 kActive = SVL_NW_MASK_ACTIVE, kVisible = SVL_NW_MASK_VISIBLE, kBlocked = SVL_NW_MASK_BLOCKED;
inline constexpr const char* kOneList = "all_channel";

// The identifier that a scan gives, and the one after the viewer has changed the number.
inline UINT32 id(UINT32 number, UINT16 list = kAir) { return number << 18 | list; }
inline UINT32 viewers_id(UINT32 number, UINT16 list = kAir) { return number << 18 | 0x80 | list; }

inline std::string command(const std::vector<std::string>& words) {
  std::string text;
  for (const std::string& word : words) {
    text += text.empty() ? "[\"" : ",\"";
    for (const char each : word) text += each == '"' || each == '\\' ? std::string{'\\', each} : std::string{each};
    text += '"';
  }
  return tv_control(text + "]");
}

inline std::string service(const std::string& name, int number, const std::string& delivery, int service_id,
                           const std::string& more = "") {
  return "[" + name + "]\n\tSERVICE_ID = " + std::to_string(service_id) +
         "\n\tNETWORK_ID = 1\n\tTRANSPORT_ID = 1101\n\tVCHANNEL = " + std::to_string(number) +
         "\n\tFREQUENCY = " + (delivery[3] == 'S' ? "11836000" : "498000000") + "\n\tDELIVERY_SYSTEM = " + delivery +
         "\n" + more + "\n";
}

// Air: 1 One, 2 Two, 3 Three FM (radio), 10 Tenth one. Cable: 2 Second. Satellite, 19.2 east: 5 Five.
inline std::string seed_text() {
  const std::string video = "\tVIDEO_PID = 101\n\tAUDIO_PID = 102\n", audio = "\tAUDIO_PID = 202\n";
  return service("One", 1, "DVBT", 101, video) + service("Two", 2, "DVBT2", 102, video) +
         service("Three FM", 3, "DVBT", 103, audio) + service("Tenth one", 10, "DVBT", 110, video) +
         service("Second", 2, "DVBC/ANNEX_A", 202, video) + service("Five", 5, "DVBS2", 305, video);
}

struct Heard {
  UINT32 list;       // the handle
  UINT32 condition;  // 2 changed, 3 reset
  UINT32 reason;
  UINT32 channel;
  bool operator==(const Heard&) const = default;
};

inline std::ostream& operator<<(std::ostream& out, const Heard& heard) {
  return out << std::hex << heard.list << ' ' << heard.condition << ' ' << heard.reason << ' ' << heard.channel;
}

struct Ear {
  std::mutex lock;
  std::condition_variable arrived;
  std::vector<Heard> heard;
  bool odd = false;  // a callback with another type or tag
};
inline Ear ear;
inline void* const kTag = &ear;

inline INT32 listen(INT32 type, void* tag, void* list, void* condition, void* reason, void* channel) {
  const auto number = [](void* word) { return static_cast<UINT32>(reinterpret_cast<std::uintptr_t>(word)); };
  const std::lock_guard guard(ear.lock);
  ear.heard.push_back({number(list), number(condition), number(reason), number(channel)});
  ear.odd = ear.odd || type != 0 || tag != kTag;
  ear.arrived.notify_all();
  return 0;
}

struct TvChannels : testing::Test {
  TvFolder folder;
  TvFolder world;  // the stick root

  TvChannels() {
    dtv_tv_stick_root(world.path.c_str());
    start();
  }
  void start() const {
    EXPECT_EQ(tv_start(folder.path), "");
    const std::lock_guard guard(ear.lock);
    ear.heard.clear();
    ear.odd = false;
  }
  void restart() const {
    dtv_tv_stop();
    start();
  }
  std::string import(const std::string& name, const std::string& content) const {
    write_file(world.path + "/" + name, content);
    return command({"channels", "import", world.path + "/" + name});
  }
  void seed() const {
    EXPECT_EQ(import("list-19.2E", seed_text()), R"({"added":6,"changed":0,"multiplexes":0,"satellite":"list 19.2E"})");
  }
  // Waits for as many callbacks as are expected, and compares them.
  static void expect_heard(const std::vector<Heard>& expected) {
    std::unique_lock guard(ear.lock);
    EXPECT_TRUE(
        ear.arrived.wait_for(guard, std::chrono::seconds(20), [&] { return ear.heard.size() >= expected.size(); }));
    EXPECT_EQ(ear.heard, expected);
    EXPECT_FALSE(ear.odd);
    ear.heard.clear();
  }
  static SVL_REC_T record(UINT32 channel_id) {
    SVL_REC_T svl = {};
    EXPECT_EQ(a_vextvapi_channellist_get_svl_rec_by_channel_id(channel_id & 0xF, channel_id, &svl), 0) << channel_id;
    return svl;
  }
  static std::string name(UINT32 channel_id) { return record(channel_id).t_rec_hdr.ac_name; }
  static INT32 write(const SVL_REC_T& svl, UINT16 list = kAir) {
    const TSL_REC_T unchanged = {};
    return a_vextvapi_channellist_set_svl_tsl_rec_info(a_vextvapi_channellist_get_svl_handle_by_svl_id(list),
                                                       a_vextvapi_channellist_get_tsl_handle_by_svl_id(list), list, 1,
                                                       &svl, &unchanged);
  }
};

struct TvChannelList : TvChannels {
  UINT32 air = 0, air_streams = 0;
  TvChannelList() {
    seed();
    air = a_vextvapi_channellist_get_svl_handle_by_svl_id(kAir);
    air_streams = a_vextvapi_channellist_get_tsl_handle_by_svl_id(kAir);
    EXPECT_EQ(a_vextvapi_channellist_register_callback(listen, kTag), 0);
  }
};
