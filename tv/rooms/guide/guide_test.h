// A set with three channels whose guide is imported, on the manual clock at a known time.
#pragma once

#include <chrono>
#include <condition_variable>
#include <ctime>
#include <fstream>
#include <mutex>
#include <thread>

#include "tests/unit/tv/support.h"

inline constexpr INT64 kGuideNow = 1'800'000'000;  // 2027-01-15 08:00 UTC

// "20270115080000 +0000", so many minutes after kGuideNow
inline std::string guide_time(int minutes) {
  const std::time_t time = kGuideNow + INT64{minutes} * 60;
  std::tm utc{};
  gmtime_r(&time, &utc);
  char text[sizeof "20270115080000 +0000"];
  std::strftime(text, sizeof text, "%Y%m%d%H%M%S +0000", &utc);
  return text;
}

// An event from minute to minute. rest: the elements in it; a stop before the start is left out.
inline std::string programme(const std::string& channel, int from, int to, const std::string& rest) {
  const std::string stop = to > from ? " stop=\"" + guide_time(to) + "\"" : "";
  return "<programme channel=\"" + channel + "\" start=\"" + guide_time(from) + "\"" + stop + ">" + rest +
         "</programme>\n";
}

inline std::string titled(const std::string& channel, int from, int to, const std::string& title) {
  return programme(channel, from, to, "<title>" + title + "</title>");
}

inline std::string xmltv_channel(const std::string& id, const std::string& name) {
  return "<channel id=\"" + id + "\"><display-name>" + name + "</display-name></channel>\n";
}

// ui4_channel_id of a channel over the air
constexpr UINT32 guide_channel(UINT32 number) { return number << 18 | 1; }

struct GuideSet : testing::Test {
  ManualClock manual;
  TvFolder folder;
  GuideSet() {
    dtv_tv_stick_root(folder.path.c_str());
    EXPECT_EQ(tv_start(folder.path), "");
    EXPECT_EQ(a_vextvapi_time_set_utc_time(kGuideNow), 0);
  }
  ~GuideSet() override { dtv_tv_stick_root(nullptr); }
  GuideSet(const GuideSet&) = delete;
  GuideSet& operator=(const GuideSet&) = delete;

  std::string write_file(const std::string& name, const std::string& content) const {
    std::ofstream(folder.path + "/" + name, std::ios::binary) << content;
    return folder.path + "/" + name;
  }

  // Channels with the numbers from 1, the services from 101.
  void import_channels(const std::vector<std::string>& names) const {
    std::string list;
    int number = 0;
    for (const std::string& name : names) {
      ++number;
      list += "[" + name + "]\n\tSERVICE_ID = " + std::to_string(100 + number) +
              "\n\tNETWORK_ID = 1\n\tTRANSPORT_ID = 1\n\tVCHANNEL = " + std::to_string(number) +
              "\n\tVIDEO_PID = 1\n\tAUDIO_PID = 2\n\tFREQUENCY = 474000000\n\tDELIVERY_SYSTEM = DVBT\n";
    }
    const std::string path = write_file("channels.conf", list);
    const std::string answer = tv_control(R"(["channels","import",")" + path + "\"]");
    EXPECT_EQ(answer.find("error"), std::string::npos) << answer;
  }

  // Imports the channels and programmes, and waits for the end. Returns what "guide" answers then.
  std::string import_guide(const std::string& content) const {
    const std::string path = write_file("guide.xml", "<?xml version=\"1.0\"?>\n<tv>\n" + content + "</tv>\n");
    const std::string begun = tv_control(R"(["guide","import",")" + path + "\"]");
    EXPECT_EQ(begun.find(R"({"error")"), std::string::npos) << begun;
    return after_import();
  }

  static std::string after_import() {
    std::string answer = tv_control(R"(["guide"])");
    const auto begin = std::chrono::steady_clock::now();
    while (answer.find(R"("state":"running")") != std::string::npos &&
           std::chrono::steady_clock::now() - begin < std::chrono::seconds(120)) {
      std::this_thread::sleep_for(std::chrono::milliseconds(2));
      answer = tv_control(R"(["guide"])");
    }
    return answer;
  }

  // "News 0-30, Film 30-120": titles and minutes after kGuideNow of the events that a range finds; of a gap the title
  // is "gap"
  static std::string range(UINT32 channel, int from, int minutes) {
    UINT16 count = 100, ids[100] = {};
    EXPECT_EQ(a_vextvapi_event_query_event_id_by_range(channel, static_cast<UINT32>(kGuideNow + from * 60),
                                                       static_cast<UINT32>(minutes * 60), &count, ids),
              0);
    std::string text;
    for (UINT16 i = 0; i < count; ++i) text += (i == 0 ? "" : ", ") + shown(channel, ids[i]);
    return text;
  }

  static std::string shown(UINT32 channel, UINT16 id) {
    VEXTVAPI_EVENT_GENERAL_INFO_T info{};
    EXPECT_EQ(a_vextvapi_event_get_general_info(channel, id, &info), 0) << id;
    EXPECT_EQ(info.event_id, id);
    EXPECT_EQ(info.channel_id, channel);
    const INT64 from = (info.start_time - kGuideNow) / 60;
    const std::string title = info.event_title;
    return (title.empty() ? "gap" : title) + " " + std::to_string(from) + "-" +
           std::to_string(from + info.duration_time / 60);
  }

  static UINT16 near(UINT32 channel, UINT8 which) {
    UINT16 id = 0;
    return a_vextvapi_event_get_pf_event_id(channel, &id, which) == 0 ? id : 0;
  }
};
