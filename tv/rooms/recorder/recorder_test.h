// A set with channels, a guide and an antenna, for the recorder's tests. Only `advance` moves its clock; the antenna's
// streams run in real time.
#pragma once

#include <unistd.h>

#include <boost/json.hpp>
#include <cstring>
#include <ctime>

#include "rooms/antenna/antenna_test.h"
#include "rooms/tuner/tuner_test.h"

// The reply, parsed.
inline boost::json::value reply_to(std::initializer_list<std::string> words) { return boost::json::parse(run(words)); }

inline std::string error_of(const boost::json::value& reply) {
  const boost::json::value* const error = reply.as_object().if_contains("error");
  return error == nullptr ? "" : std::string(error->as_string());
}

inline std::int64_t number_in(const boost::json::value& reply, const char* key) {
  const boost::json::value* const number = reply.as_object().if_contains(key);
  return number == nullptr ? -1 : number->to_number<std::int64_t>();
}

inline std::string text_in(const boost::json::value& reply, const char* key) {
  const boost::json::value* const text = reply.as_object().if_contains(key);
  return text == nullptr || !text->is_string() ? "" : std::string(text->as_string());
}

inline std::size_t listed_recordings() { return reply_to({"recordings"}).at("recordings").as_array().size(); }
inline boost::json::value newest_recording() { return reply_to({"recordings"}).at("recordings").at(0); }
inline boost::json::array listed_timers() { return reply_to({"timers"}).at("timers").as_array(); }

// The set's time.
inline std::int64_t now() { return a_vextvapi_time_get_utc_time(); }

template <typename Record>
INT32 read_item(UINT32 id, Record& record) {
  UINT32 length = sizeof record;
  return getConfigValueStruct(id, &length, &record);
}
inline INT32 read_item(_RmdrEventInfo_T& record) { return read_item(VEXTVAPI_CONFIG_ITEM_PVR_REMINDER, record); }
inline INT32 read_item(_Qt_RECLIST_INFO_T& record) { return read_item(VEXTVAPI_CONFIG_ITEM_PVR_RECORD_LIST, record); }
inline INT32 write_item(const _Qt_RECLIST_INFO_T& record) {
  return setConfigValueStruct(VEXTVAPI_CONFIG_ITEM_PVR_RECORD_LIST, sizeof record, &record);
}

inline std::string xmltv_time(std::int64_t time) {
  char text[32];
  const std::time_t seconds = time;
  std::tm utc{};
  gmtime_r(&seconds, &utc);
  std::strftime(text, sizeof text, "%Y%m%d%H%M%S +0000", &utc);
  return text;
}

struct TestEvent {
  const char* channel;
  std::int64_t start;
  std::int64_t end;
  const char* title;
};

struct RecorderSet : TunerSet {
  RecorderSet() { import_channels(); }

  void import_guide(const std::vector<TestEvent>& events) {
    std::string file = "<tv>\n";
    for (const char* const name : {"One", "Two", "Three"})
      file += "<channel id=\"" + std::string(name) + "\"><display-name>" + name + "</display-name></channel>\n";
    for (const TestEvent& each : events) {
      file += "<programme start=\"" + xmltv_time(each.start) + "\" stop=\"" + xmltv_time(each.end) + "\" channel=\"" +
              each.channel + "\"><title>" + each.title + "</title></programme>\n";
    }
    std::ofstream(home.path + "/guide.xml") << file << "</tv>\n";
    expect_done(run({"guide", "import", home.path + "/guide.xml"}));
    EXPECT_TRUE(comes_true([] { return run({"guide"}).find("\"running\"") == std::string::npos; })) << run({"guide"});
  }

  // The identifier of the channel's event that runs at that time.
  static std::string event_at(UINT32 channel, std::int64_t time) {
    UINT16 ids[4] = {};
    UINT16 count = 4;
    EXPECT_EQ(a_vextvapi_event_query_event_id_by_range(channel, static_cast<UINT32>(time), 1, &count, ids), 0);
    EXPECT_EQ(count, 1);
    return std::to_string(ids[0]);
  }

  void standby() { expect_done(run({"power", "standby"})); }
  static std::string power() { return text_in(reply_to({"power"}), "power"); }
};

// Whether the descriptor is of a file whose name has this in it.
inline bool is_named(int descriptor, const std::string& part) {
  char name[4096] = {};
  const std::string link = "/proc/self/fd/" + std::to_string(descriptor);
  return readlink(link.c_str(), name, sizeof name - 1) > 0 && std::string(name).find(part) != std::string::npos;
}

// ---- Multiplexes ----

// A multiplex with these television services. In each millisecond of its second are a PCR and `packets` packets of
// their common stream.
inline Bytes multiplex(int stream, const std::vector<int>& services, int packets) {
  TestStream made;
  std::vector<TestProgram> programs;
  std::vector<TestService> named;
  for (const int service : services) {
    programs.push_back({static_cast<std::uint16_t>(service), static_cast<std::uint16_t>(0x40 + service % 100)});
    named.push_back({static_cast<std::uint16_t>(service), 0x01, "Service " + std::to_string(service), "Test"});
  }
  const auto id = static_cast<std::uint16_t>(stream);
  for (int milli = 0; milli < 1000; ++milli) {
    if (milli % 100 == 0) {
      add_section(made, 0x00, pat(id, programs));
      for (const TestProgram& each : programs) add_section(made, each.pid, pmt(each.service, {0x02, 0x03}));
      add_section(made, 0x11, sdt(1, id, named));
    }
    add_time(made, 1);
    for (int i = 0; i < packets; ++i) add_packet(made, 0x100, false, {});
  }
  return made.bytes;
}

// With an antenna that receives the test channels' multiplexes 10, 20 and 30.
struct ReceivingSet : RecorderSet {
  std::string air = home.path + "/air";
  ReceivingSet() {
    std::filesystem::create_directory(air);
    write_bytes(air + "/10.ts", multiplex(10, {101, 102}, 4));
    write_bytes(air + "/20.ts", multiplex(20, {201, 202, 203}, 4));
    write_bytes(air + "/30.ts", multiplex(30, {301}, 4));
    connect();
  }
  void connect() {
    expect_done(antenna(air));
    EXPECT_NE(read_antenna().find("30.ts"), std::string::npos);
  }
  std::string path_of(const boost::json::value& recording) const {
    return folder.path + "/" + text_in(recording, "file");
  }

  // Waits until the newest recording has this many bytes.
  static void grows_to(std::int64_t bytes) {
    EXPECT_TRUE(comes_true([bytes] { return number_in(newest_recording(), "bytes") >= bytes; }));
  }
};
