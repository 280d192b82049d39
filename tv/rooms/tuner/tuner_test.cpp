// Channel changes: their results and times, blocking, standby, tracks, and the sub picture's own reception.
#include "rooms/tuner/tuner_test.h"

#include <atomic>
#include <ctime>
#include <deque>
#include <mutex>
#include <optional>

#include "rooms/antenna/antenna_test.h"
#include "rooms/tuner/tuner.h"

namespace {

namespace fs = std::filesystem;

struct Result {
  UINT32 list;
  ChangeResult result;
  UINT32 id;
  bool operator==(const Result&) const = default;
};

std::ostream& operator<<(std::ostream& out, const Result& result) {
  return out << "list " << result.list << ", result " << static_cast<int>(result.result) << ", channel "
             << (result.id >> 18);
}

std::mutex lock;
std::deque<Result> results;

INT32 hear(INT32 type, void* tag, void* list, void* result, void* id, void* none) {
  const auto number = [](void* word) { return static_cast<UINT32>(reinterpret_cast<std::uintptr_t>(word)); };
  EXPECT_EQ(type, VEXTVAPI_BROADCAST_CHANNEL_CHANGED);
  EXPECT_EQ(number(tag), 77u);
  EXPECT_EQ(none, nullptr);
  const std::lock_guard guard(lock);
  results.push_back({number(list), static_cast<ChangeResult>(number(result)), number(id)});
  return 0;
}

std::size_t heard() {
  const std::lock_guard guard(lock);
  return results.size();
}

// ---- Streams ----

struct Elementary {
  std::uint8_t type;
  std::uint16_t pid;
  Bytes descriptors = {};
};

Bytes language(const char* letters, std::uint8_t type = 0) {
  Bytes body;
  append(body, std::string(letters));
  body.push_back(type);
  return descriptor(0x0A, body);
}

Bytes subtitles(const char* letters, std::uint8_t type = 0x10) {
  Bytes body;
  append(body, std::string(letters));
  append(body, Bytes{type, 0, 1, 0, 1});
  return descriptor(0x59, body);
}

Bytes map_of(std::uint16_t service, std::uint16_t pcr_pid, const std::vector<Elementary>& streams) {
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
Bytes multiplex(std::uint16_t stream, const std::vector<Program>& programs) {
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
std::vector<Bytes> events_of(std::uint16_t stream, std::uint16_t service, const std::vector<Show>& shows) {
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
    sections.push_back(section_of(0x4E, service, body,
                                  {.version = 0, .number = static_cast<std::uint8_t>(sections.size()), .last = 1}));
  }
  return sections;
}

Bytes multiplex_10() {
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

Bytes multiplex_20() {
  return multiplex(20, {{201, 0x40, {{{0x1B, 0x201}, {0x03, 0x202}}}},
                        {202, 0x41, {{{0x03, 0x212}}}},
                        {203, 0x42, std::vector<Elementary>{}},
                        {204, 0x43, std::nullopt}});
}

struct TvTuner : TunerSet {
  std::string air = home.path + "/air";
  TvTuner() {
    results.clear();
    fs::create_directory(air);
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
bool settles(const std::function<bool()>& condition) {
  return comes_true([&] {
    dtv_tv_advance(0);
    return condition();
  });
}

// Waits for the next result.
Result next_result() {
  EXPECT_TRUE(settles([] { return heard() > 0; })) << run({"tuner"});
  const std::lock_guard guard(lock);
  if (results.empty()) return {};
  const Result result = results.front();
  results.pop_front();
  return result;
}

Result of(int number, ChangeResult result) { return {1, result, channel_id(number)}; }

bool shows(const std::string& part) { return run({"tuner"}).find(part) != std::string::npos; }

// Chooses a channel that has sound, and returns the result of the change. The PMT comes in the machine's time: without
// it, a clock that the test advances would leave the patience behind.
Result change_to(int number) {
  expect_words(run({"tune", std::to_string(number)}), {R"("result":null)", R"("audio":[])"});  // not the one before
  dtv_tv_advance(900);
  EXPECT_TRUE(settles([] { return shows("\"audio\":[{"); })) << run({"tuner"});
  return next_result();
}

std::size_t tuners_in_use() {
  std::size_t count = 0;
  for (const auto& task : fs::directory_iterator("/proc/self/task")) {
    std::string name;
    std::getline(std::ifstream(task.path() / "comm"), name);
    count += name.starts_with("dtv_tv-tuner") ? 1 : 0;
  }
  return count;
}

TEST_F(TvTuner, WithoutChannelsNothingIsReceived) {
  dtv_tv_advance(20'000);
  EXPECT_EQ(run({"tuner"}), R"({"channel":null})");
  EXPECT_EQ(tuners_in_use(), 0u);
  expect_words(run({"tune", "1"}), {"error", "the channel list is empty"});
  UINT16 list = 9;
  SVL_REC_T service{};
  TSL_REC_T stream{};
  expect_words(refusal([&] { return a_vextvapi_channellist_get_current_channel(&list, &service, &stream); }),
               {"the channel list is empty"});
  EXPECT_EQ(list, 9);
  EXPECT_EQ(heard(), 0u);
}

TEST_F(TvTuner, TheFirstChannelOfANewListIsShown) {
  dtv_tv_advance(0);  // the tuner has found none
  import_channels();
  ASSERT_TRUE(settles([] { return shows("\"audio\":[{"); }));  // its PMT is there
  dtv_tv_advance(900);
  EXPECT_EQ(next_result(), of(1, ChangeResult::kPicture));
}

TEST_F(TvTuner, AChangeTakesLongerToAnotherMultiplex) {
  import_channels();
  EXPECT_EQ(change_to(1), of(1, ChangeResult::kPicture));
  expect_done(run({"tune", "3"}));
  dtv_tv_advance(0);
  ASSERT_TRUE(settles([] { return shows("\"audio\":[{"); }));  // its PMT is there
  dtv_tv_advance(899);
  EXPECT_EQ(heard(), 0u);
  EXPECT_TRUE(shows(R"("changing":true,"result":null)"));
  dtv_tv_advance(1);
  EXPECT_EQ(next_result(), of(3, ChangeResult::kPicture));
  EXPECT_TRUE(shows(R"("changing":false,"result":"picture")"));
  expect_done(run({"tune", "4"}));
  dtv_tv_advance(0);
  ASSERT_TRUE(settles([] { return shows("\"audio\":[{"); }));
  dtv_tv_advance(299);
  EXPECT_EQ(heard(), 0u);
  dtv_tv_advance(1);
  EXPECT_EQ(next_result(), of(4, ChangeResult::kAudioOnly));
}

TEST_F(TvTuner, ANewerChoiceOfTheSameMultiplexWaitsUntilTheTunerHasLocked) {
  import_channels();
  EXPECT_EQ(change_to(1), of(1, ChangeResult::kPicture));
  expect_done(run({"tune", "3"}));
  dtv_tv_advance(200);
  expect_done(run({"tune", "4"}));
  dtv_tv_advance(0);
  ASSERT_TRUE(settles([] { return shows("\"audio\":[{"); }));
  dtv_tv_advance(699);
  EXPECT_EQ(heard(), 0u);
  dtv_tv_advance(1);
  EXPECT_EQ(next_result(), of(4, ChangeResult::kAudioOnly));
}

TEST_F(TvTuner, ResultsOfAllKinds) {
  import_channels();
  EXPECT_EQ(change_to(2), of(2, ChangeResult::kScrambled));
  EXPECT_EQ(change_to(4), of(4, ChangeResult::kAudioOnly));
  expect_done(run({"tune", "42"}));  // no multiplex carries it
  dtv_tv_advance(900);
  EXPECT_EQ(next_result(), of(42, ChangeResult::kNoSignal));
  expect_done(run({"tune", "1234"}));  // a PMT without streams
  dtv_tv_advance(900);
  dtv_tv_advance(1'500);
  EXPECT_EQ(next_result(), of(1234, ChangeResult::kNoSignal));
}

TEST_F(TvTuner, AServiceWithoutAPmtIsWaitedFor) {
  import("late.conf", channel_lines({"Late", 9, 20, 204}, "DVBT"));
  expect_done(run({"tune", "9"}));
  dtv_tv_advance(900);
  dtv_tv_advance(1'499);
  EXPECT_EQ(heard(), 0u) << run({"tuner"}) << antenna();
  dtv_tv_advance(1);
  EXPECT_EQ(next_result(), of(9, ChangeResult::kNoSignal));
}

TEST_F(TvTuner, ANewerChoiceReplacesAnUnfinishedOne) {
  import_channels();
  EXPECT_EQ(change_to(1), of(1, ChangeResult::kPicture));
  expect_done(run({"tune", "2"}));
  dtv_tv_advance(200);
  expect_done(run({"tune", "42"}));
  dtv_tv_advance(200);
  expect_done(run({"tune", "4"}));
  dtv_tv_advance(899);
  EXPECT_EQ(heard(), 0u);
  dtv_tv_advance(1);
  EXPECT_EQ(next_result(), of(4, ChangeResult::kAudioOnly));
  dtv_tv_advance(20'000);
  EXPECT_EQ(heard(), 0u);
  press("PRE-CH");
  EXPECT_EQ(place(), "42 TV");  // a choice counts, finished or not
}

TEST_F(TvTuner, TheSameChannelChosenAgainHasAResultAgain) {
  import_channels();
  EXPECT_EQ(change_to(1), of(1, ChangeResult::kPicture));
  EXPECT_EQ(a_vextvapi_broadcast_select_channel_by_chan_id(channel_id(1), 0), 0);
  dtv_tv_advance(300);
  EXPECT_EQ(next_result(), of(1, ChangeResult::kPicture));
}

TEST_F(TvTuner, SelectsByIdentifierAndByRecord) {
  import_channels();
  EXPECT_EQ(a_vextvapi_broadcast_select_channel_by_chan_id(channel_id(3), 0), 0);
  UINT16 list = 0;
  SVL_REC_T service{};
  TSL_REC_T stream{};
  ASSERT_EQ(a_vextvapi_channellist_get_current_channel(&list, &service, &stream), 0);
  EXPECT_EQ(list, 1);
  EXPECT_EQ(service.t_rec_hdr.ui4_channel_id, channel_id(3));
  EXPECT_STREQ(service.t_rec_hdr.ac_name, "Three");
  EXPECT_EQ(service.t_rec_hdr.e_brdcst_type, SVL_BRDCST_TYPE_DVB);
  EXPECT_EQ(stream.brdcst_medium, TSL_BRDCST_MEDIUM_DIG_TERRESTRIAL);
  EXPECT_EQ(stream.frequency, 506'000'000u);
  const UINT16 record = service.ui2_svl_rec_id;

  EXPECT_EQ(a_vextvapi_broadcast_select_channel(1, 0, channel_id(1), 0), 0);
  EXPECT_EQ(place(), "1 TV");
  EXPECT_EQ(a_vextvapi_broadcast_select_channel(1, record, channel_id(999), 1), 0);  // it had this identifier once
  EXPECT_EQ(place(), "3 TV");

  expect_words(refusal([] { return a_vextvapi_broadcast_select_channel_by_chan_id(0, 0); }), {"identifier 0"});
  expect_words(refusal([] { return a_vextvapi_broadcast_select_channel_by_chan_id(UINT32_MAX, 0); }), {"4294967295"});
  expect_words(refusal([] { return a_vextvapi_broadcast_select_channel_by_chan_id(channel_id(1), 1); }), {"flags"});
  expect_words(refusal([] { return a_vextvapi_broadcast_select_channel(2, 65535, channel_id(1), 0); }),
               {"list 2", "65535"});
  refusal([&] { return a_vextvapi_channellist_get_current_channel(nullptr, &service, &stream); });
  refusal([&] { return a_vextvapi_channellist_get_current_channel(&list, nullptr, &stream); });
  refusal([&] { return a_vextvapi_channellist_get_current_channel(&list, &service, nullptr); });
  refusal([] { return a_vextvapi_broadcast_register_callback(nullptr, nullptr); });
  EXPECT_EQ(place(), "3 TV");
}

TEST_F(TvTuner, FineTuningIsForAnalogueChannels) {
  expect_words(refusal([] { return a_vextvapi_broadcast_ana_channel_fine_tune("main", 1, 0); }), {"list is empty"});
  import_channels();
  expect_words(refusal([] { return a_vextvapi_broadcast_ana_channel_fine_tune("main", 506'000'000, 1); }),
               {"channel 1 is digital"});
  expect_words(refusal([] { return a_vextvapi_broadcast_ana_channel_fine_tune("sub", 1, 0); }), {"\"sub\""});
  expect_words(refusal([] { return a_vextvapi_broadcast_ana_channel_fine_tune(nullptr, 1, 0); }), {"null"});
}

TEST_F(TvTuner, ABlockedChannelNeedsThePin) {
  import_channels();
  expect_done(run({"channel", "1", "block"}));
  EXPECT_EQ(change_to(1), of(1, ChangeResult::kBlockedChannel));
  EXPECT_EQ(run({"tuner", "pin", "1111"}), R"({"error":"the PIN is wrong"})");
  EXPECT_EQ(run({"tuner", "pin", ""}), R"({"error":"the PIN is wrong"})");
  dtv_tv_advance(10'000);
  EXPECT_EQ(heard(), 0u);
  expect_done(run({"tuner", "pin", "0000"}));
  EXPECT_EQ(next_result(), of(1, ChangeResult::kPicture));
  expect_words(run({"tuner", "pin", "0000"}), {"error", "nothing is blocked"});
  expect_done(run({"tune", "1"}));  // the same channel stays unlocked
  dtv_tv_advance(300);
  EXPECT_EQ(next_result(), of(1, ChangeResult::kPicture));
  EXPECT_EQ(change_to(4), of(4, ChangeResult::kAudioOnly));
  EXPECT_EQ(change_to(1), of(1, ChangeResult::kBlockedChannel));
  ASSERT_EQ(a_vextvapi_config_set_str_value("g_password__password", "8642"), 0);
  expect_words(run({"tuner", "pin", "0000"}), {"error", "the PIN is wrong"});
  expect_done(run({"tuner", "pin", "8642"}));
  EXPECT_EQ(next_result(), of(1, ChangeResult::kPicture));
  expect_done(run({"channel", "1", "unblock"}));
}

TEST_F(TvTuner, AnEventIsBlockedByItsAgeFromItsBegin) {
  const std::int64_t now = std::time(nullptr) / 60 * 60;
  TestStream events;
  for (const Bytes& each : events_of(10, 101, {{1, now - 600, 15, 12}, {2, now + 300, 60, 18}}))
    add_section(events, 0x12, each);
  Bytes stream = multiplex_10();
  append(stream, events.bytes);
  write_bytes(air + "/10.ts", stream);
  expect_done(antenna("rescan"));
  read_antenna();
  import_channels();
  ASSERT_EQ(a_vextvapi_config_set_value(-1, "g_misc__parental_age", 16, 0), 0);
  EXPECT_EQ(change_to(1), of(1, ChangeResult::kPicture));
  ASSERT_TRUE(settles([] { return run({"guide"}).find("\"events\":2") != std::string::npos; })) << run({"guide"});
  const auto left = static_cast<std::uint32_t>(now + 300 - a_vextvapi_time_get_utc_time()) * 1000;
  dtv_tv_advance(left - 2'000);
  EXPECT_EQ(heard(), 0u) << run({"tuner"});
  dtv_tv_advance(3'000);
  EXPECT_EQ(next_result(), of(1, ChangeResult::kBlockedEvent));
  expect_done(run({"tuner", "pin", "0000"}));
  EXPECT_EQ(next_result(), of(1, ChangeResult::kPicture));
  EXPECT_EQ(change_to(4), of(4, ChangeResult::kAudioOnly));
  EXPECT_EQ(change_to(1), of(1, ChangeResult::kBlockedEvent));
  ASSERT_EQ(a_vextvapi_config_set_value(-1, "g_misc__parental_age", 0, 0), 0);
  EXPECT_EQ(next_result(), of(1, ChangeResult::kPicture));
  ASSERT_EQ(a_vextvapi_config_set_value(-1, "g_misc__parental_age", 18, 0), 0);
  EXPECT_EQ(next_result(), of(1, ChangeResult::kBlockedEvent));
  dtv_tv_advance(60 * 60'000);
  EXPECT_EQ(next_result(), of(1, ChangeResult::kPicture));
}

TEST_F(TvTuner, ReceivesOnlyWhileTheSetShowsTheTuner) {
  import_channels();
  EXPECT_EQ(change_to(1), of(1, ChangeResult::kPicture));
  EXPECT_EQ(tuners_in_use(), 1u);
  press("POWER");
  EXPECT_TRUE(settles([] { return tuners_in_use() == 0; }));
  dtv_tv_advance(20'000);
  EXPECT_EQ(tuners_in_use(), 0u);
  EXPECT_EQ(heard(), 0u);
  press("POWER");
  dtv_tv_advance(899);
  EXPECT_EQ(heard(), 0u);
  dtv_tv_advance(1);
  EXPECT_EQ(next_result(), of(1, ChangeResult::kPicture));
  press("SOURCE");
  EXPECT_TRUE(settles([] { return tuners_in_use() == 0; }));
  EXPECT_EQ(place(), "1 HDMI 1");
  EXPECT_EQ(a_vextvapi_inputsource_changesource_bysourceid(0), 0);
  dtv_tv_advance(900);
  EXPECT_EQ(next_result(), of(1, ChangeResult::kPicture));
  EXPECT_EQ(a_vextvapi_inputsource_sync_stop("main", 1), 0);
  EXPECT_TRUE(comes_true([] { return tuners_in_use() == 0; }));  // the clock has not moved
  EXPECT_EQ(a_vextvapi_inputsource_changesource_bysourceid(0), 0);
  dtv_tv_advance(900);
  EXPECT_EQ(next_result(), of(1, ChangeResult::kPicture));
}

TEST_F(TvTuner, ReceivesAgainAfterARestart) {
  import_channels();
  EXPECT_EQ(change_to(4), of(4, ChangeResult::kAudioOnly));
  restart();
  EXPECT_EQ(tuners_in_use(), 0u);
  listen();
  read_antenna();
  dtv_tv_advance(0);
  dtv_tv_advance(900);
  // The antenna may not have been read when the tuner asked for the first time.
  EXPECT_TRUE(settles([] {
    dtv_tv_advance(1'000);
    const std::lock_guard guard(lock);
    return !results.empty() && results.back() == of(4, ChangeResult::kAudioOnly);
  }));
}

TEST_F(TvTuner, ALostSignalIsReportedAndComesBack) {
  import_channels();
  EXPECT_EQ(change_to(1), of(1, ChangeResult::kPicture));
  fs::resize_file(air + "/10.ts", 0);
  EXPECT_EQ(next_result(), of(1, ChangeResult::kNoSignal));
  write_bytes(air + "/10.ts", multiplex_10());
  expect_done(run({"antenna", "rescan"}));
  read_antenna();
  EXPECT_TRUE(settles([] {
    dtv_tv_advance(1'000);
    return heard() > 0;
  }));
  EXPECT_EQ(next_result(), of(1, ChangeResult::kPicture));
}

TEST_F(TvTuner, AChannelThatIsDeletedGivesWayToTheFirst) {
  import_channels();
  EXPECT_EQ(change_to(4), of(4, ChangeResult::kAudioOnly));
  expect_done(run({"channel", "4", "delete"}));
  EXPECT_EQ(place(), "1 TV");
  dtv_tv_advance(0);
  dtv_tv_advance(900);
  EXPECT_EQ(next_result(), of(1, ChangeResult::kPicture));
  expect_done(run({"channels", "clear"}));
  EXPECT_EQ(next_result(), of(1, ChangeResult::kNotFound));
  EXPECT_TRUE(settles([] { return tuners_in_use() == 0; }));
}

TEST_F(TvTuner, TracksFollowTheConfigurationAndTheViewer) {
  import_channels();
  EXPECT_EQ(change_to(1), of(1, ChangeResult::kPicture));
  const std::string english = R"({"number":2,"language":"eng","codec":"mp2","impaired":false,"chosen":true})";
  const std::string german = R"({"number":1,"language":"deu","codec":"mp2","impaired":false,"chosen":true})";
  const std::string described = R"({"number":3,"language":"eng","codec":"mp2","impaired":true,"chosen":true})";
  expect_words(run({"tuner"}), {english, R"("teletext":true)", R"("language":"deu","codec":"dvb_subtitle")"});
  ASSERT_EQ(a_vextvapi_config_set_value(-1, "g_audio__type", 2, 0), 0);
  expect_words(run({"tuner"}), {described});
  expect_done(run({"config", "g_aud_lang__aud_language", "deu"}));
  expect_words(run({"tuner"}), {german});
  expect_words(run({"tuner", "audio", "2"}), {english});
  press("MTS/AUDIO");
  expect_words(run({"tuner"}), {described});
  press("MTS/AUDIO");
  expect_words(run({"tuner"}), {german});

  const std::string french = R"({"number":2,"language":"fra","codec":"dvb_subtitle","impaired":false,"chosen":true})";
  expect_words(run({"tuner", "subtitle", "2"}), {french});
  const std::string none = run({"tuner", "subtitle", "off"});
  EXPECT_EQ(none.find("\"chosen\":true", none.find("\"subtitles\"")), std::string::npos) << none;
  EXPECT_EQ(change_to(4), of(4, ChangeResult::kAudioOnly));
  EXPECT_EQ(change_to(1), of(1, ChangeResult::kPicture));  // the choice was for the channel that was left
  const std::string again = run({"tuner"});
  EXPECT_NE(again.find("\"chosen\":true", again.find("\"subtitles\"")), std::string::npos) << again;
  expect_done(run({"config", "g_misc__dvb_subtitle_enabled", "off"}));
  const std::string off = run({"tuner"});
  EXPECT_EQ(off.find("\"chosen\":true", off.find("\"subtitles\"")), std::string::npos) << off;

  for (const char* wrong : {"0", "4", "x", "off"})
    expect_words(run({"tuner", "audio", wrong}), {"error", "1 to 3", wrong});
  expect_words(run({"tuner", "subtitle", "3"}), {"error", "1 to 2"});
  expect_words(run({"tuner", "audio"}), {"error", "takes a number"});
  expect_words(run({"tuner", "dance"}), {"error", "pin PIN", "dance"});
  expect_words(run({"tune", "dance"}), {"error", "next, previous or back", "dance"});
  expect_words(run({"tune", "98"}), {"error", "no channel", "98"});
}

TEST_F(TvTuner, TuneCommand) {
  import_channels();
  expect_done(run({"tune", "next"}));
  EXPECT_EQ(place(), "2 TV");
  expect_done(run({"tune", "previous"}));
  expect_done(run({"tune", "previous"}));
  EXPECT_EQ(place(), "1234 TV");
  expect_done(run({"tune", "back"}));
  EXPECT_EQ(place(), "1 TV");
  expect_words(run({"tune"}), {"error", "takes"});
  press("SOURCE");
  expect_done(run({"source", "TV", "block"}));
  EXPECT_EQ(run({"tune", "2"}), R"({"error":"TV is blocked"})");
}

TEST_F(TvTuner, TheSubPictureHasATunerOfItsOwn) {
  import_channels();
  EXPECT_EQ(change_to(1), of(1, ChangeResult::kPicture));
  const auto sub = [](const std::string& part) {
    const std::string shown = run({"multiview"});
    const std::size_t at = shown.find("\"sub\"");
    return at != std::string::npos && shown.find(part, at) != std::string::npos;
  };
  expect_done(run({"multiview", "channel", "3"}));
  dtv_tv_advance(0);
  dtv_tv_advance(900);
  EXPECT_TRUE(settles([&] { return sub(R"("channel":3,"result":"picture")"); })) << run({"multiview"});
  EXPECT_EQ(tuners_in_use(), 2u);
  expect_done(run({"channel", "3", "block"}));
  dtv_tv_advance(0);
  EXPECT_TRUE(sub(R"("result":"blocked channel")")) << run({"multiview"});
  expect_done(run({"multiview", "stop"}));
  EXPECT_TRUE(settles([] { return tuners_in_use() == 1; }));
  EXPECT_EQ(heard(), 0u);  // the callback is about the main picture
}

TEST_F(TvTuner, ManyThreadsChangeTheChannel) {
  import_channels();
  std::vector<std::thread> threads;
  std::atomic<bool> done = false;
  for (int t = 0; t < 3; ++t) {
    threads.emplace_back([t] {
      const std::vector<std::vector<std::string>> commands = {
          {"tune", "1"}, {"tune", "3"},         {"key", "CH+"},    {"multiview", "pip"}, {"key", "POWER"},
          {"tuner"},     {"multiview", "swap"}, {"key", "SOURCE"}, {"key", "PRE-CH"}};
      for (int i = 0; i < 60; ++i) run(commands[static_cast<std::size_t>(i + 2 * t) % commands.size()]);
    });
  }
  std::thread clock([&done] {
    while (!done) dtv_tv_advance(50);
  });
  for (std::thread& thread : threads) thread.join();
  done = true;
  clock.join();
  run({"power", "on"});
  {
    const std::lock_guard guard(lock);
    results.clear();
  }
  EXPECT_EQ(change_to(1).id, channel_id(1));
}

}  // namespace
