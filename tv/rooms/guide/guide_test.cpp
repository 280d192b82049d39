// The guide through the TV API: events, queries, imports, resets.
#include "rooms/guide/guide_test.h"

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <set>

namespace {

constexpr UINT32 kOne = guide_channel(1), kTwo = guide_channel(2);

struct GuideApi : GuideSet {
  GuideApi() {
    import_channels({"One", "Two HD", "Three"});
    import_guide(xmltv_channel("one.tv", "One") + xmltv_channel("two.tv", "two hd") +
                 programme("one.tv", -30, 30,
                           "<title>News</title><sub-title>Kurz \xC3\xA4</sub-title><desc>Long text</desc>"
                           "<category>news</category><rating><value>16</value></rating><subtitles/>") +
                 titled("one.tv", 30, 90, "Film") + titled("one.tv", 100, 110, "Short") +
                 programme("two.tv", -10, 50, "<title>Match</title><category>football</category>"));
  }
};

TEST_F(GuideApi, TellsWhatAnEventIs) {
  const UINT16 id = near(kOne, VEXTVAPI_EVENT_PRESENT);
  VEXTVAPI_EVENT_GENERAL_INFO_T info{};
  ASSERT_EQ(a_vextvapi_event_get_general_info(kOne, id, &info), 0);
  EXPECT_EQ(info.svl_id, 1);
  EXPECT_EQ(info.event_id, id);
  EXPECT_EQ(info.channel_id, kOne);
  EXPECT_EQ(info.start_time, kGuideNow - 1800);
  EXPECT_EQ(info.duration_time, 3600u);
  EXPECT_EQ(info.caption, 1);
  EXPECT_EQ(info.free_ca_mode, 0);
  ASSERT_EQ(info.event_category_num, 1);
  EXPECT_EQ(info.event_category[0], 0x20);
  EXPECT_STREQ(info.event_title, "News");
  EXPECT_STREQ(info.event_rating, "16");
  EXPECT_EQ(info.event_detail_len, 7u);
  EXPECT_EQ(info.event_detail_extend_len, 9u);
  EXPECT_EQ(info.guidanceMode, 0);
  EXPECT_EQ(info.guidance_len, 0u);
}

TEST_F(GuideApi, TextsFillTheBufferAndCutNoCharacter) {
  const UINT16 id = near(kOne, VEXTVAPI_EVENT_PRESENT);
  char text[16];
  const auto summary = [&](UINT32 size) {
    std::memset(text, '#', sizeof text);
    EXPECT_EQ(a_vextvapi_event_get_details_info(id, kOne, text, size), 0);
    return std::string(text, sizeof text);
  };
  EXPECT_EQ(summary(7), "Kurz \xC3\xA4#########") << "exactly as long as announced, and nothing behind it";
  EXPECT_EQ(summary(8), std::string("Kurz \xC3\xA4\0########", 16));
  EXPECT_EQ(summary(6), std::string("Kurz \0##########", 16)) << "half of the last character is not written";
  EXPECT_EQ(summary(0), std::string(16, '#'));
  std::memset(text, '#', sizeof text);
  EXPECT_EQ(a_vextvapi_event_get_details_extend_info(id, kOne, text, 9), 0);
  EXPECT_EQ(std::string(text, sizeof text), "Long text#######");
  EXPECT_EQ(a_vextvapi_event_get_guidance_info(id, kOne, text, sizeof text), 0);
  EXPECT_STREQ(text, "");
}

TEST_F(GuideApi, PresentAndFollowingFollowTheClock) {
  EXPECT_EQ(shown(kOne, near(kOne, VEXTVAPI_EVENT_PRESENT)), "News -30-30");
  EXPECT_EQ(shown(kOne, near(kOne, VEXTVAPI_EVENT_FOLLOWING)), "Film 30-90");
  dtv_tv_advance(30 * 60 * 1000);
  EXPECT_EQ(shown(kOne, near(kOne, VEXTVAPI_EVENT_PRESENT)), "Film 30-90");
  EXPECT_EQ(shown(kOne, near(kOne, VEXTVAPI_EVENT_FOLLOWING)), "Short 100-110");
  dtv_tv_advance(60 * 60 * 1000);
  EXPECT_EQ(near(kOne, VEXTVAPI_EVENT_PRESENT), 0) << "nothing runs between 90 and 100";
  EXPECT_EQ(shown(kOne, near(kOne, VEXTVAPI_EVENT_FOLLOWING)), "Short 100-110");
  EXPECT_EQ(near(guide_channel(3), VEXTVAPI_EVENT_PRESENT), 0);
}

TEST_F(GuideApi, RangeFindsWhatOverlapsIt) {
  EXPECT_EQ(range(kOne, 0, 600), "News -30-30, Film 30-90, Short 100-110");
  EXPECT_EQ(range(kOne, 30, 60), "Film 30-90") << "an event that ends when the range begins is not in it";
  EXPECT_EQ(range(kOne, 29, 2), "News -30-30, Film 30-90");
  EXPECT_EQ(range(kOne, 90, 10), "");
  EXPECT_EQ(range(kOne, 0, 0), "");
  UINT16 count = 1, ids[2] = {7, 7};
  EXPECT_EQ(a_vextvapi_event_query_event_id_by_range(kOne, 0, UINT32_MAX, &count, ids), 0);
  EXPECT_EQ(count, 1) << "not more than there is room for";
  EXPECT_EQ(ids[1], 7);
}

TEST_F(GuideApi, ParametersSayWhatARangeShows) {
  VEXTVAPI_EVENT_QUERY_PARAM_T how{};
  how.b_allow_conflict_event_when_query = 1;
  how.b_allow_partial_overlap_event = 1;
  how.ui4_at_least_secs = 601;
  EXPECT_EQ(a_vextvapi_event_set_query_parameter(&how), 0);
  EXPECT_EQ(range(kOne, 0, 600), "News -30-30, Film 30-90");
  how.ui4_at_least_secs = 0;
  how.b_allow_partial_overlap_event = 0;
  EXPECT_EQ(a_vextvapi_event_set_query_parameter(&how), 0);
  EXPECT_EQ(range(kOne, 0, 105), "Film 30-90");
  how.b_allow_partial_overlap_event = 1;
  how.b_auto_fillin_fake_empty_event = 1;
  EXPECT_EQ(a_vextvapi_event_set_query_parameter(&how), 0);
  EXPECT_EQ(range(kOne, 0, 120), "News -30-30, Film 30-90, gap 90-100, Short 100-110, gap 110-120");
  EXPECT_EQ(range(guide_channel(3), 0, 120), "gap 0-120");
  how.ui4_fake_empty_event_at_least_secs = 601;
  EXPECT_EQ(a_vextvapi_event_set_query_parameter(&how), 0);
  EXPECT_EQ(range(kOne, -60, 180), "gap -60--30, News -30-30, Film 30-90, Short 100-110");
}

std::vector<UINT16> range_ids(UINT32 channel, INT64 start, UINT32 duration, UINT16 room = 100) {
  std::vector<UINT16> ids(room);
  EXPECT_EQ(a_vextvapi_event_query_event_id_by_range(channel, static_cast<UINT32>(start), duration, &room, ids.data()),
            0);
  ids.resize(room);
  return ids;
}

TEST_F(GuideApi, GapsHaveIdentifiersOfTheirOwn) {
  VEXTVAPI_EVENT_QUERY_PARAM_T how{};
  how.b_allow_partial_overlap_event = 1;
  how.b_auto_fillin_fake_empty_event = 1;
  EXPECT_EQ(a_vextvapi_event_set_query_parameter(&how), 0);
  const std::vector<UINT16> ids = range_ids(kOne, kGuideNow, 7200);
  ASSERT_EQ(ids.size(), 5u);
  EXPECT_EQ(std::set<UINT16>(ids.begin(), ids.end()).size(), 5u);
  EXPECT_EQ(std::ranges::count(ids, 0), 0) << "0 names no event";
  EXPECT_EQ(range_ids(kOne, kGuideNow, 7200), ids) << "they stay";
  const std::vector<UINT16> shorter = range_ids(kOne, kGuideNow + 95 * 60, 300);
  EXPECT_EQ(shown(kOne, shorter.at(0)), "gap 95-100");
  EXPECT_EQ(shown(kOne, ids[2]), "gap 90-100") << "that of another query is another one";
  EXPECT_EQ(a_vextvapi_event_check_block(kOne, ids[2]), VEXTVAPI_EVENT_FREE);
  VEXTVAPI_EVENT_GENERAL_INFO_T info{};
  refusal([&] { return a_vextvapi_event_get_general_info(kOne, 0, &info); });
  import_guide(xmltv_channel("1", "One") + titled("1", 90, 100, "New"));
  EXPECT_EQ(range(kOne, 30, 90), "Film 30-90, New 90-100, Short 100-110, gap 110-120");
}

TEST_F(GuideApi, GapsOfEarlierQueriesAreForgottenWhenThereAreTooMany) {
  VEXTVAPI_EVENT_QUERY_PARAM_T how{};
  how.b_allow_partial_overlap_event = 1;
  how.b_auto_fillin_fake_empty_event = 1;
  EXPECT_EQ(a_vextvapi_event_set_query_parameter(&how), 0);
  const UINT32 empty = guide_channel(3);
  const UINT16 first = range_ids(empty, kGuideNow, 60).at(0);
  EXPECT_EQ(shown(empty, first), "gap 0-1");
  UINT16 last = 0;
  for (int i = 1; i <= 4096; ++i) last = range_ids(empty, kGuideNow + i * INT64{60}, 60).at(0);
  EXPECT_EQ(shown(empty, last), "gap 4096-4097");
  VEXTVAPI_EVENT_GENERAL_INFO_T info{};
  expect_words(refusal([&] { return a_vextvapi_event_get_general_info(empty, first, &info); }), {"no event"});
}

TEST_F(GuideApi, ConflictingEventsAreLeftOutWhenNotAllowed) {
  import_guide(xmltv_channel("c", "Three") + titled("c", 0, 60, "First") + titled("c", 50, 70, "Second") +
               titled("c", 60, 90, "Third"));
  EXPECT_EQ(range(guide_channel(3), 0, 120), "First 0-60, Second 50-70, Third 60-90");
  VEXTVAPI_EVENT_QUERY_PARAM_T how{};
  how.b_allow_partial_overlap_event = 1;
  EXPECT_EQ(a_vextvapi_event_set_query_parameter(&how), 0);
  EXPECT_EQ(range(guide_channel(3), 0, 120), "First 0-60, Third 60-90");
}

// "One News -30-30, ..."
std::string filtered(UINT32 channel, const VEXTVAPI_EVENT_FILTER_T& filter) {
  UINT16 count = 50, ids[50] = {};
  UINT32 channels[50] = {};
  EXPECT_EQ(a_vextvapi_event_query_event_id_by_filter(channel, &filter, &count, ids, channels), 0);
  std::string text;
  for (UINT16 i = 0; i < count; ++i)
    text += (i == 0 ? "" : ", ") + std::to_string(channels[i] >> 18) + " " + GuideSet::shown(channels[i], ids[i]);
  return text;
}

TEST_F(GuideApi, FilterChoosesByChannelTimeAndKind) {
  VEXTVAPI_EVENT_FILTER_T filter{};
  EXPECT_EQ(filtered(0, filter), "1 News -30-30, 2 Match -10-50, 1 Film 30-90, 1 Short 100-110");
  EXPECT_EQ(filtered(kTwo, filter), "2 Match -10-50");
  filter.ui4_channel_id = kTwo;
  EXPECT_EQ(filtered(0, filter), "2 Match -10-50");
  EXPECT_EQ(filtered(kOne, filter), "1 News -30-30, 1 Film 30-90, 1 Short 100-110") << "the parameter wins";
  filter = {};
  filter.ui2_svl_id = 2;
  EXPECT_EQ(filtered(0, filter), "") << "no cable channel has events";
  filter = {};
  filter.start_time = kGuideNow + 3600;
  filter.end_time = kGuideNow + 6000;
  EXPECT_EQ(filtered(0, filter), "1 Film 30-90");
  filter.end_time = 0;
  filter.duration_time = 2400;
  EXPECT_EQ(filtered(0, filter), "1 Film 30-90") << "40 minutes from the beginning; Short begins when they are over";
  filter.duration_time = 2460;
  EXPECT_EQ(filtered(0, filter), "1 Film 30-90, 1 Short 100-110");
  filter.end_time = kGuideNow + 7200;
  EXPECT_EQ(filtered(0, filter), "1 Film 30-90") << "with an end, events of 41 minutes at least";
  filter = {};
  filter.duration_time = 3600;
  EXPECT_EQ(filtered(0, filter), "1 News -30-30, 2 Match -10-50, 1 Film 30-90");
  filter = {};
  filter.b_caption = 1;
  EXPECT_EQ(filtered(0, filter), "1 News -30-30");
  filter = {};
  filter.eventCategoryNum = 2;
  filter.eventCategory[0] = 0x43;
  filter.eventCategory[1] = 0x11;
  EXPECT_EQ(filtered(0, filter), "2 Match -10-50");
  filter.eventCategory[0] = 0x20;
  EXPECT_EQ(filtered(0, filter), "1 News -30-30");
  filter.eventCategoryNum = 255;  // more than the array has
  EXPECT_EQ(filtered(kTwo, filter), "");
  filter = {};
  filter.ui1_rating_type = 12;
  EXPECT_EQ(filtered(kOne, filter), "1 Film 30-90, 1 Short 100-110");
  filter.ui1_rating_type = 16;
  EXPECT_EQ(filtered(kOne, filter), "1 News -30-30, 1 Film 30-90, 1 Short 100-110");
}

TEST_F(GuideApi, FilterTellsTheListsOfAServiceApart) {
  // The service of Two HD is in the cable's list as well.
  const std::string path = write_file("cable.conf",
                                      "[Two HD]\n\tSERVICE_ID = 102\n\tNETWORK_ID = 1\n\tTRANSPORT_ID = 1\n"
                                      "\tVCHANNEL = 8\n\tVIDEO_PID = 1\n\tAUDIO_PID = 2\n\tFREQUENCY = 474000000\n"
                                      "\tSYMBOL_RATE = 6900000\n\tDELIVERY_SYSTEM = DVBC/ANNEX_A\n");
  const std::string imported = tv_control(R"(["channels","import",")" + path + "\"]");
  ASSERT_EQ(imported.find("error"), std::string::npos) << imported;
  const UINT32 cable = 8 << 18 | 2;
  VEXTVAPI_EVENT_FILTER_T filter{};
  EXPECT_EQ(filtered(0, filter), "1 News -30-30, 2 Match -10-50, 8 Match -10-50, 1 Film 30-90, 1 Short 100-110");
  filter.ui2_svl_id = 2;
  EXPECT_EQ(filtered(0, filter), "8 Match -10-50");
  EXPECT_EQ(filtered(cable, filter), "8 Match -10-50");
  EXPECT_EQ(filtered(kTwo, filter), "") << "Two HD over the air is not in the cable's list";
  filter.ui2_svl_id = 1;
  EXPECT_EQ(filtered(0, filter), "1 News -30-30, 2 Match -10-50, 1 Film 30-90, 1 Short 100-110");
  EXPECT_EQ(filtered(kTwo, filter), "2 Match -10-50");
  UINT16 count = 1, id = 0;
  UINT32 channel = 0;
  filter.ui2_svl_id = 0;
  filter.start_time = kGuideNow + 2400;
  filter.end_time = kGuideNow + 2460;
  EXPECT_EQ(a_vextvapi_event_query_event_id_by_filter(0, &filter, &count, &id, &channel), 0);
  EXPECT_EQ(count, 1) << "not more than there is room for";
}

TEST_F(GuideApi, BlocksByTheViewersAge) {
  const UINT16 news = near(kOne, VEXTVAPI_EVENT_PRESENT), film = near(kOne, VEXTVAPI_EVENT_FOLLOWING);
  EXPECT_EQ(a_vextvapi_event_check_block(kOne, news), 0u);
  a_vextvapi_config_set_value(-1, "g_misc__parental_age", 16, 0);
  EXPECT_EQ(a_vextvapi_event_check_block(kOne, news), 1u) << "from this rating on";
  a_vextvapi_config_set_value(-1, "g_misc__parental_age", 17, 0);
  EXPECT_EQ(a_vextvapi_event_check_block(kOne, news), 0u);
  EXPECT_EQ(a_vextvapi_event_check_block(kOne, film), 0u);
  a_vextvapi_config_set_value(-1, "g_rating__block_unrated", 1, 0);
  EXPECT_EQ(a_vextvapi_event_check_block(kOne, film), 1u);
  EXPECT_EQ(a_vextvapi_event_check_block(kOne, 4711), 0u) << "there is no such event";
}

TEST_F(GuideApi, RefusesWhatDoesNotExistAndNullPointers) {
  VEXTVAPI_EVENT_GENERAL_INFO_T info{};
  VEXTVAPI_EVENT_FILTER_T filter{};
  UINT16 id = 5, count = 3, ids[3] = {};
  UINT32 channels[3] = {};
  char text[4] = "abc";
  const UINT32 none = guide_channel(99);
  const UINT16 news = near(kOne, VEXTVAPI_EVENT_PRESENT);
  expect_words(refusal([&] { return a_vextvapi_event_get_general_info(none, news, &info); }), {"channel"});
  expect_words(refusal([&] { return a_vextvapi_event_get_general_info(kOne, 4711, &info); }), {"4711"});
  refusal([&] { return a_vextvapi_event_get_general_info(kOne, news, nullptr); });
  refusal([&] { return a_vextvapi_event_get_details_info(news, kOne, nullptr, 4); });
  refusal([&] { return a_vextvapi_event_get_details_info(4711, kOne, text, 4); });
  refusal([&] { return a_vextvapi_event_get_details_extend_info(news, none, text, 4); });
  refusal([&] { return a_vextvapi_event_get_guidance_info(4711, kOne, text, 4); });
  refusal([&] { return a_vextvapi_event_get_guidance_info(news, kOne, nullptr, 4); });
  EXPECT_STREQ(text, "abc");
  refusal([&] { return a_vextvapi_event_get_pf_event_id(kOne, nullptr, 1); });
  expect_words(refusal([&] { return a_vextvapi_event_get_pf_event_id(kOne, &id, 2); }), {"present", "following"});
  refusal([&] { return a_vextvapi_event_get_pf_event_id(none, &id, 1); });
  EXPECT_EQ(id, 5);
  refusal([&] { return a_vextvapi_event_query_event_id_by_range(kOne, 0, 1, nullptr, ids); });
  refusal([&] { return a_vextvapi_event_query_event_id_by_range(kOne, 0, 1, &count, nullptr); });
  refusal([&] { return a_vextvapi_event_query_event_id_by_range(none, 0, 1, &count, ids); });
  refusal([&] { return a_vextvapi_event_query_event_id_by_filter(0, nullptr, &count, ids, channels); });
  refusal([&] { return a_vextvapi_event_query_event_id_by_filter(0, &filter, nullptr, ids, channels); });
  refusal([&] { return a_vextvapi_event_query_event_id_by_filter(0, &filter, &count, nullptr, channels); });
  refusal([&] { return a_vextvapi_event_query_event_id_by_filter(none, &filter, &count, ids, channels); });
  refusal([&] { return a_vextvapi_event_set_query_parameter(nullptr); });
  EXPECT_EQ(count, 3);
  count = 0;
  EXPECT_EQ(a_vextvapi_event_query_event_id_by_filter(0, &filter, &count, nullptr, nullptr), 0);
  count = 3;
  EXPECT_EQ(a_vextvapi_event_query_event_id_by_filter(0, &filter, &count, ids, nullptr), 0) << "no channels are wanted";
  EXPECT_EQ(count, 3);
}

TEST_F(GuideApi, UpdateWaitsForSchedules) {
  PpgUpdateGuide_T update{};
  UINT32 length = sizeof update;
  const auto ask = [&](INT32 operation) {
    update = {};
    update.e_op = operation;
    EXPECT_EQ(getConfigValueStruct(VEXTVAPI_CONFIG_ITEM_GUIDE_UPDATE, &length, &update), 0);
    return update.u_retval.ui2_ch_num;
  };
  const auto tell = [&](INT32 operation) {
    update = {};
    update.e_op = operation;
    return setConfigValueStruct(VEXTVAPI_CONFIG_ITEM_GUIDE_UPDATE, sizeof update, &update);
  };
  EXPECT_EQ(ask(PpgOp_UpdateGetState), 0);
  EXPECT_EQ(tell(PpgOp_UpdateStart), 0);
  EXPECT_EQ(ask(PpgOp_UpdateGetState), 1);
  EXPECT_EQ(ask(PpgOp_UpdateGetChNum), 2) << "Two HD and Three have nothing later";
  EXPECT_EQ(tell(PpgOp_UpdateStop), 0);
  EXPECT_EQ(ask(PpgOp_UpdateGetState), 0);
  EXPECT_EQ(tell(PpgOp_UpdateStart), 0);
  dtv_tv_advance(10 * 60 * 1000);
  EXPECT_EQ(ask(PpgOp_UpdateGetState), 0) << "an update ends after ten minutes";
  refusal([&] { return tell(7); });
  refusal([&] { return tell(PpgOp_UpdateGetState); });
}

TEST_F(GuideApi, EventsSurviveARestart) {
  const UINT16 id = near(kOne, VEXTVAPI_EVENT_PRESENT);
  dtv_tv_stop();
  VEXTVAPI_EVENT_GENERAL_INFO_T info{};
  refusal([&] { return a_vextvapi_event_get_general_info(kOne, id, &info); });
  ASSERT_EQ(tv_start(folder.path), "");
  EXPECT_EQ(near(kOne, VEXTVAPI_EVENT_PRESENT), id);
  EXPECT_EQ(range(kOne, 0, 600), "News -30-30, Film 30-90, Short 100-110");
}

TEST_F(GuideApi, DamagedDatabaseIsSetAsideAndTheSetStarts) {
  dtv_tv_stop();
  std::ofstream(folder.path + "/guide.sqlite", std::ios::binary) << std::string(4096, 'x');
  testing::internal::CaptureStderr();
  ASSERT_EQ(tv_start(folder.path), "");
  expect_words(testing::internal::GetCapturedStderr(), {"guide.sqlite", "damaged"});
  EXPECT_EQ(near(kOne, VEXTVAPI_EVENT_PRESENT), 0);
}

// The head of the file is whole, so the set starts with it; the guide's thread then reads the rest.
TEST_F(GuideApi, DamageInsideTheDatabaseIsFoundAfterTheStart) {
  std::string many = xmltv_channel("one.tv", "One");
  for (int i = 0; i < 2000; ++i) many += titled("one.tv", i * 10, i * 10 + 10, "Event " + std::to_string(i));
  import_guide(many);
  dtv_tv_stop();
  const std::string path = folder.path + "/guide.sqlite";
  const auto size = std::filesystem::file_size(path);
  {
    std::fstream file(path, std::ios::in | std::ios::out | std::ios::binary);
    file.seekp(static_cast<std::streamoff>(size / 2));
    file << std::string(16384, 'x');
  }
  const auto kept = [this] {
    std::size_t count = 0;
    for (const auto& entry : std::filesystem::directory_iterator(folder.path)) {
      const std::string name = entry.path().filename().string();
      if (name.starts_with("guide.sqlite.damaged-") && !name.ends_with("-wal") && !name.ends_with("-shm")) ++count;
    }
    return count;
  };
  testing::internal::CaptureStderr();
  ASSERT_EQ(tv_start(folder.path), "");
  const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(60);
  while (kept() == 0 && std::chrono::steady_clock::now() < end) std::this_thread::yield();
  const std::string answer = import_guide(xmltv_channel("c", "Three") + titled("c", 0, 60, "Again"));
  expect_words(testing::internal::GetCapturedStderr(), {"guide.sqlite", "damaged", "a new one is made"});
  EXPECT_EQ(kept(), 1u);
  expect_words(answer, {R"({"events":1,)", R"("state":"done")"});
  EXPECT_EQ(range(guide_channel(3), 0, 600), "Again 0-60");
  EXPECT_EQ(range(kOne, 0, 600), "");
  dtv_tv_stop();
  ASSERT_EQ(tv_start(folder.path), "");
  EXPECT_EQ(range(guide_channel(3), 0, 600), "Again 0-60") << "the new file is whole";
}

TEST_F(GuideApi, ResetAndClearEmptyTheGuide) {
  EXPECT_NE(tv_control(R"(["guide","clear"])").find(R"("events":0,)"), std::string::npos);
  EXPECT_EQ(range(kOne, 0, 600), "");
  import_guide(xmltv_channel("c", "Three") + titled("c", 0, 60, "Again"));
  EXPECT_EQ(range(guide_channel(3), 0, 600), "Again 0-60");
  expect_words(tv_control(R"(["guide","map","x","1"])"), {R"("x":1)"});
  tv_control(R"(["reset"])");
  EXPECT_NE(tv_control(R"(["guide"])").find(R"("events":0,)"), std::string::npos);
  EXPECT_EQ(tv_control(R"(["guide","map"])"), R"({"map":{}})");
}

TEST_F(GuideApi, EventsAreErasedADayAfterTheirEnd) {
  const UINT16 news = near(kOne, VEXTVAPI_EVENT_PRESENT);
  dtv_tv_advance(24 * 3600 * 1000);
  VEXTVAPI_EVENT_GENERAL_INFO_T info{};
  EXPECT_EQ(a_vextvapi_event_get_general_info(kOne, news, &info), 0) << "it ended less than a day ago";
  dtv_tv_advance(2 * 3600 * 1000);
  const auto begin = std::chrono::steady_clock::now();
  std::string answer;
  do answer = tv_control(R"(["guide"])");
  while (answer.find(R"("events":0,)") == std::string::npos &&
         std::chrono::steady_clock::now() - begin < std::chrono::seconds(20));
  EXPECT_NE(answer.find(R"("events":0,)"), std::string::npos) << "all of them ended more than a day ago, by " << answer;
}

}  // namespace
