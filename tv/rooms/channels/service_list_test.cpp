// The TV API of one service list.
#include <array>
#include <tuple>

#include "channels_test.h"

using namespace channels_test;

namespace {

// What a record has in it before a call that must not touch it.
SVL_REC_T untouched() {
  SVL_REC_T svl = {};
  svl.ui2_svl_rec_id = 0xABCD;
  return svl;
}

TEST_F(TvChannelList, HandlesAreOfThreeListsAndOfTwoKinds) {
  std::vector<UINT32> handles;
  for (const UINT16 list : {kAir, kCable, kSatellite}) {
    handles.push_back(a_vextvapi_channellist_get_svl_handle_by_svl_id(list));
    handles.push_back(a_vextvapi_channellist_get_tsl_handle_by_svl_id(list));
  }
  std::sort(handles.begin(), handles.end());
  EXPECT_NE(handles.front(), 0u);
  EXPECT_EQ(std::unique(handles.begin(), handles.end()), handles.end());
  for (const UINT16 none : {UINT16{0}, UINT16{4}, UINT16{0xFFFF}}) {
    EXPECT_EQ(a_vextvapi_channellist_get_svl_handle_by_svl_id(none), 0u);
    EXPECT_EQ(a_vextvapi_channellist_get_tsl_handle_by_svl_id(none), 0u);
  }
}

TEST_F(TvChannelList, AListThatIsNeverReleasedHangsNobody) {
  for (int i = 0; i < 3; ++i) EXPECT_EQ(a_vextvapi_channellist_lock_database(air, air_streams), 0);
  EXPECT_EQ(a_vextvapi_channellist_unlock_database(air, air_streams), 0);
  SVL_REC_T svl = record(id(1));
  svl.t_rec_hdr.ui4_nw_mask |= kBlocked;
  EXPECT_EQ(write(svl), 0);
  EXPECT_EQ(a_vextvapi_channellist_unlock_database(air, air_streams), 0);
  EXPECT_EQ(a_vextvapi_channellist_unlock_database(air, air_streams), 0);
  expect_words(refusal([&] { return a_vextvapi_channellist_unlock_database(air, air_streams); }), {"not held"});
  refusal([&] { return a_vextvapi_channellist_lock_database(air, air); });
  refusal([&] { return a_vextvapi_channellist_lock_database(air, air_streams + 1); });
  refusal([&] { return a_vextvapi_channellist_lock_database(0, 0); });
  refusal([&] { return a_vextvapi_channellist_unlock_database(air_streams, air); });
}

TEST_F(TvChannelList, ARecordHasTheFactsOfTheService) {
  const SVL_REC_T svl = record(id(1));
  EXPECT_NE(svl.ui2_svl_rec_id, 0);
  EXPECT_EQ(svl.t_rec_hdr.ui4_channel_id, id(1));
  EXPECT_EQ(svl.t_rec_hdr.ui4_nw_mask, kActive | kVisible);
  EXPECT_EQ(svl.t_rec_hdr.ui4_option_mask, 0u);
  EXPECT_EQ(svl.t_rec_hdr.e_brdcst_type, SVL_BRDCST_TYPE_DVB);
  EXPECT_EQ(svl.t_rec_hdr.e_serv_type, SVL_SERV_TYPE_TV);
  EXPECT_STREQ(svl.t_rec_hdr.ac_name, "One");
  EXPECT_EQ(record(id(3)).t_rec_hdr.e_serv_type, SVL_SERV_TYPE_RADIO);
  EXPECT_EQ(name(id(2)), "Two");
  EXPECT_EQ(name(id(2, kCable)), "Second");
  EXPECT_EQ(name(id(5, kSatellite)), "Five");
}

TEST_F(TvChannelList, AnUnknownChannelIsRefused) {
  SVL_REC_T svl = untouched();
  for (const UINT32 unknown : {0u, 1u, id(4), id(2, kCable), viewers_id(1), 0xFFFFFFFFu})
    refusal([&] { return a_vextvapi_channellist_get_svl_rec_by_channel_id(kAir, unknown, &svl); });
  for (const UINT16 list : {UINT16{0}, UINT16{4}, kCable})
    refusal([&] { return a_vextvapi_channellist_get_svl_rec_by_channel_id(list, id(1), &svl); });
  refusal([&] { return a_vextvapi_channellist_get_svl_rec_by_channel_id(kAir, id(1), nullptr); });
  EXPECT_EQ(svl.ui2_svl_rec_id, untouched().ui2_svl_rec_id);
}

TEST_F(TvChannelList, AnIndexCountsTheChannelsWhoseBitsFit) {
  SVL_REC_T blocked = record(id(2));
  blocked.t_rec_hdr.ui4_nw_mask |= kBlocked;
  ASSERT_EQ(write(blocked), 0);
  const auto at = [&](UINT32 mask, UINT32 value, INT32 index) {
    SVL_REC_T svl = {};
    EXPECT_EQ(a_vextvapi_channellist_get_svl_rec_by_index(air, mask, value, index, &svl), 0);
    return svl.t_rec_hdr.ui4_channel_id;
  };
  EXPECT_EQ(at(0, 0, 0), id(1));
  EXPECT_EQ(at(0, 0xFFFFFFFF, 3), id(10));
  EXPECT_EQ(at(kBlocked, kBlocked, 0), id(2));
  EXPECT_EQ(at(kBlocked, 0, 1), id(3));
  EXPECT_EQ(at(kActive | kBlocked, kActive, 2), id(10));
  SVL_REC_T svl = untouched();
  for (const INT32 index : {-1, 4, INT32_MIN, INT32_MAX})
    refusal([&] { return a_vextvapi_channellist_get_svl_rec_by_index(air, 0, 0, index, &svl); });
  refusal([&] { return a_vextvapi_channellist_get_svl_rec_by_index(air, kBlocked, kBlocked, 1, &svl); });
  refusal([&] { return a_vextvapi_channellist_get_svl_rec_by_index(0, 0, 0, 0, &svl); });
  refusal([&] { return a_vextvapi_channellist_get_svl_rec_by_index(air_streams, 0, 0, 0, &svl); });
  refusal([&] { return a_vextvapi_channellist_get_svl_rec_by_index(air, 0, 0, 0, nullptr); });
  EXPECT_EQ(svl.ui2_svl_rec_id, untouched().ui2_svl_rec_id);
}

TEST_F(TvChannelList, TheIndexOfAChannelIsTheOneAtWhichItIsFound) {
  INT32 index = -7;
  EXPECT_EQ(a_vextvapi_channellist_get_index_by_channel(air, 0, 0, id(10), &index), 0);
  EXPECT_EQ(index, 3);
  EXPECT_EQ(a_vextvapi_channellist_get_index_by_channel(air, kActive, kActive, id(1), &index), 0);
  EXPECT_EQ(index, 0);
  refusal([&] { return a_vextvapi_channellist_get_index_by_channel(air, kBlocked, kBlocked, id(1), &index); });
  refusal([&] { return a_vextvapi_channellist_get_index_by_channel(air, 0, 0, id(2, kCable), &index); });
  refusal([&] { return a_vextvapi_channellist_get_index_by_channel(air, 0, 0, 0, &index); });
  refusal([&] { return a_vextvapi_channellist_get_index_by_channel(0, 0, 0, id(1), &index); });
  refusal([&] { return a_vextvapi_channellist_get_index_by_channel(air, 0, 0, id(1), nullptr); });
  EXPECT_EQ(index, 0);
}

TEST_F(TvChannelList, NamesAreFoundByAPartWhateverItsCase) {
  SVL_REC_T svl = {};
  EXPECT_EQ(a_vextvapi_channellist_get_number_by_name(air, 0, 0, "oNe"), 2);
  EXPECT_EQ(a_vextvapi_channellist_get_svl_rec_by_index_and_name(air, 0, 0, "oNe", 1, &svl), 0);
  EXPECT_STREQ(svl.t_rec_hdr.ac_name, "Tenth one");
  EXPECT_EQ(a_vextvapi_channellist_get_number_by_name(air, 0, 0, ""), 4);
  EXPECT_EQ(a_vextvapi_channellist_get_number_by_name(air, 0, 0, "four"), 0);
  EXPECT_EQ(a_vextvapi_channellist_get_number_by_name(air, kBlocked, kBlocked, "one"), 0);
  refusal([&] { return a_vextvapi_channellist_get_svl_rec_by_index_and_name(air, 0, 0, "oNe", 2, &svl); });
  refusal([&] { return a_vextvapi_channellist_get_svl_rec_by_index_and_name(air, 0, 0, "one", -1, &svl); });
  refusal([&] { return a_vextvapi_channellist_get_svl_rec_by_index_and_name(air, 0, 0, nullptr, 0, &svl); });
  refusal([&] { return a_vextvapi_channellist_get_svl_rec_by_index_and_name(air, 0, 0, "one", 0, nullptr); });
  refusal([&] { return a_vextvapi_channellist_get_svl_rec_by_index_and_name(9, 0, 0, "one", 0, &svl); });
  refusal([&] { return a_vextvapi_channellist_get_number_by_name(air, 0, 0, nullptr); });
  refusal([&] { return a_vextvapi_channellist_get_number_by_name(9, 0, 0, "one"); });
  refusal([&] { return a_vextvapi_channellist_get_number_by_name(air, 0, 0, std::string(257, 'o').c_str()); });
}

TEST_F(TvChannelList, APartOfACharacterIsNotFound) {
  EXPECT_EQ(command({"channel", "1", "name",
                     "Die \xC3\xA4"
                     "ltere"})
                .find("error"),
            std::string::npos);
  EXPECT_EQ(a_vextvapi_channellist_get_number_by_name(air, 0, 0, "\xC3\xA4LT"), 1);
  refusal([&] { return a_vextvapi_channellist_get_number_by_name(air, 0, 0, "\xA4"); });
  refusal([&] { return a_vextvapi_channellist_get_number_by_name(air, 0, 0, "\xC3"); });
}

TEST_F(TvChannelList, AWalkByMaskEndsAtTheEndsOfTheList) {
  const auto walk = [&](INT32 direction, UINT32 from, UINT32 mask = 0, UINT32 value = 0) {
    SVL_REC_T svl = {};
    TSL_REC_T tsl = {};
    const INT32 found = a_vextvapi_channellist_get_svl_tsl_recs_by_mask(air, air_streams, mask, value, 0, 0, 0,
                                                                        direction, from, 1, &svl, &tsl);
    if (found == 1) {
      EXPECT_EQ(tsl.brdcst_medium, TSL_BRDCST_MEDIUM_DIG_TERRESTRIAL);
      EXPECT_EQ(tsl.frequency, 498000000u);
    }
    return found == 1 ? svl.t_rec_hdr.ui4_channel_id : static_cast<UINT32>(found);
  };
  EXPECT_EQ(walk(0, id(2)), id(2));
  EXPECT_EQ(walk(0, id(2), kBlocked, kBlocked), 0u);
  EXPECT_EQ(walk(1, 0), id(1));
  EXPECT_EQ(walk(2, id(2)), id(3));
  EXPECT_EQ(walk(2, id(3)), id(10));
  EXPECT_EQ(walk(2, id(10)), 0u);
  EXPECT_EQ(walk(3, id(3)), id(2));
  EXPECT_EQ(walk(3, id(1)), 0u);
  EXPECT_EQ(walk(4, 0), id(10));
  EXPECT_EQ(walk(2, id(1), kBlocked, kBlocked), 0u);
  SVL_REC_T blocked = record(id(10));
  blocked.t_rec_hdr.ui4_nw_mask |= kBlocked;
  ASSERT_EQ(write(blocked), 0);
  EXPECT_EQ(walk(2, id(1), kBlocked, kBlocked), id(10));
  EXPECT_EQ(walk(3, id(10), kBlocked, 0), id(3));
  EXPECT_EQ(walk(4, id(1), kBlocked, 0), id(3));
}

TEST_F(TvChannelList, AWalkByMaskRefusesWhatMakesNoSense) {
  SVL_REC_T svl = untouched();
  TSL_REC_T tsl = {};
  const auto walk = [&](UINT32 list, UINT32 streams, INT32 direction, UINT32 from, SVL_REC_T* s, TSL_REC_T* t) {
    return a_vextvapi_channellist_get_svl_tsl_recs_by_mask(list, streams, 0, 0, 0, 0, 0, direction, from, 1, s, t);
  };
  for (const INT32 direction : {-1, 5, INT32_MIN, INT32_MAX})
    refusal([&] { return walk(air, air_streams, direction, id(1), &svl, &tsl); });
  for (const INT32 direction : {0, 2, 3}) refusal([&] { return walk(air, air_streams, direction, id(4), &svl, &tsl); });
  refusal([&] { return walk(air, air, 2, id(1), &svl, &tsl); });
  refusal([&] { return walk(air, air_streams, 2, id(1), nullptr, &tsl); });
  refusal([&] { return walk(air, air_streams, 2, id(1), &svl, nullptr); });
  EXPECT_EQ(a_vextvapi_channellist_get_svl_tsl_recs_by_mask(air, air_streams, 0, 0, 0, 0, 0, 2, id(1), 0, &svl, &tsl),
            0);
  EXPECT_EQ(svl.ui2_svl_rec_id, untouched().ui2_svl_rec_id);
  // There is room for one record, whatever the count is.
  EXPECT_EQ(a_vextvapi_channellist_get_svl_tsl_recs_by_mask(air, air_streams, 0, 0, 0, 0, 0, 2, id(1), 0xFFFFFFFF, &svl,
                                                            &tsl),
            1);
}

TEST_F(TvChannelList, SatelliteAndCategoryNarrowAWalk) {
  ASSERT_EQ(command({"channel", "satellite:5", "categories", "0", "31"}).find("error"), std::string::npos);
  const UINT32 list = a_vextvapi_channellist_get_svl_handle_by_svl_id(kSatellite);
  const UINT32 streams = a_vextvapi_channellist_get_tsl_handle_by_svl_id(kSatellite);
  const auto count = [](UINT32 h_svl, UINT32 satl_id, UINT32 satl_rec_id, UINT32 categories) {
    return a_vextvapi_channellist_get_number_by_mask(h_svl, 0, 0, satl_id, satl_rec_id, categories);
  };
  EXPECT_EQ(count(list, 0, 0, 0), 1);
  EXPECT_EQ(count(list, 1, 1, 0x80000000), 1);
  EXPECT_EQ(count(list, 1, 1, 2), 0);
  EXPECT_EQ(count(air, 1, 0, 0), 0);
  EXPECT_EQ(count(air, 0, 0, 0), 4);
  refusal([&] { return count(list, 1, 2, 0); });
  refusal([&] { return count(list, 2, 0, 0); });
  refusal([&] { return count(0, 0, 0, 0); });
  SVL_REC_T svl = {};
  TSL_REC_T tsl = {};
  EXPECT_EQ(a_vextvapi_channellist_get_svl_tsl_recs_by_mask(list, streams, 0, 0, 1, 1, 1, 1, 0, 1, &svl, &tsl), 1);
  EXPECT_EQ(svl.t_dvb.ui4_category_mask, 0x80000001u);
  EXPECT_EQ(tsl.brdcst_medium, TSL_BRDCST_MEDIUM_DIG_SATELLITE);
  EXPECT_EQ(tsl.frequency, 11836u) << "in MHz";
  EXPECT_EQ(a_vextvapi_channellist_get_svl_tsl_recs_by_mask(list, streams, 0, 0, 1, 1, 2, 1, 0, 1, &svl, &tsl), 0);
}

TEST_F(TvChannelList, NeighboursByFilterHaveAllBitsOfTheMaskOrTheValue) {
  SVL_REC_T blocked = record(id(2));
  blocked.t_rec_hdr.ui4_nw_mask |= kBlocked;
  ASSERT_EQ(write(blocked), 0);
  SVL_REC_T svl = {};
  TSL_REC_T tsl = {};
  UINT32 before = 9, after = 9;
  const auto find = [&](UINT32 mask, UINT32 value, UINT32 from, UINT32 wanted_before, UINT32 wanted_after) {
    return a_vextvapi_channellist_get_svl_tsl_recs_by_filter(air, air_streams, mask, value, from, wanted_before,
                                                             wanted_after, &svl, &tsl, &before, &after);
  };
  EXPECT_EQ(find(0, 0, id(3), 0, 1), 0);
  EXPECT_EQ(svl.t_rec_hdr.ui4_channel_id, id(10));
  EXPECT_EQ(find(0, 0, id(3), 1, 0), 0);
  EXPECT_EQ(svl.t_rec_hdr.ui4_channel_id, id(2));
  EXPECT_EQ(before, 1u);
  EXPECT_EQ(after, 0u);
  EXPECT_EQ(find(0, 0, id(3), 0xFFFFFFFF, 0xFFFFFFFF), 0);
  EXPECT_EQ(before, 2u);
  EXPECT_EQ(after, 1u);
  EXPECT_EQ(find(kBlocked, 0, id(1), 0, 1), 0);
  EXPECT_EQ(svl.t_rec_hdr.ui4_channel_id, id(2));
  EXPECT_EQ(find(kActive | kBlocked, kActive, id(1), 0, 1), 0);
  EXPECT_EQ(svl.t_rec_hdr.ui4_channel_id, id(3));
  before = after = 9;
  EXPECT_LT(find(0, 0, id(1), 1, 0), 0);
  EXPECT_LT(find(0, 0, id(10), 0, 1), 0);
  EXPECT_LT(find(0, 0, id(2), 0, 0), 0);
  EXPECT_EQ(before, 9u);
  refusal([&] { return find(0, 0, id(4), 1, 1); });
  const auto with = [&](SVL_REC_T* s, TSL_REC_T* t, UINT32* b, UINT32* a) {
    return a_vextvapi_channellist_get_svl_tsl_recs_by_filter(air, air_streams, 0, 0, id(2), 1, 0, s, t, b, a);
  };
  refusal([&] { return with(nullptr, &tsl, &before, &after); });
  refusal([&] { return with(&svl, nullptr, &before, &after); });
  refusal([&] { return with(&svl, &tsl, nullptr, &after); });
  refusal([&] { return with(&svl, &tsl, &before, nullptr); });
  EXPECT_EQ(a_vextvapi_channellist_get_number_by_filter(air, kBlocked), 1);
  EXPECT_EQ(a_vextvapi_channellist_get_number_by_filter(air, kActive), 4);
  EXPECT_EQ(a_vextvapi_channellist_get_number_by_filter(air, 0), 4);
  refusal([&] { return a_vextvapi_channellist_get_number_by_filter(1, 0); });
}

TEST_F(TvChannelList, ANumberIsTakenInItsListOnly) {
  const auto taken = a_vextvapi_channellist_is_exist_by_channel_number;
  EXPECT_EQ(taken(kAir, 10), 1);
  EXPECT_EQ(taken(kAir, 5), 0);
  EXPECT_EQ(taken(kSatellite, 5), 1);
  EXPECT_EQ(taken(kAir, 16383), 0);
  for (const UINT32 number : {0u, 16384u, 0xFFFFFFFFu}) refusal([&] { return taken(kAir, number); });
  refusal([&] { return taken(0, 1); });
}

// ---- Changes ----

TEST_F(TvChannelList, AWriteTakesIdentifierBitsAndName) {
  SVL_REC_T svl = record(id(1));
  const UINT16 kept = svl.ui2_svl_rec_id;
  svl.t_rec_hdr.ui4_channel_id = viewers_id(20);
  svl.t_rec_hdr.ui4_nw_mask = kActive | kBlocked;
  svl.t_rec_hdr.ui4_option_mask = SVL_OPT_MASK_NAME_EDITED | SVL_OPT_MASK_NUMBER_EDITED;
  strcpy(svl.t_rec_hdr.ac_name, "Mine");
  svl.t_rec_hdr.e_serv_type = SVL_SERV_TYPE_RADIO;  // not the client's to change
  ASSERT_EQ(write(svl), 0);
  const SVL_REC_T written = record(viewers_id(20));
  EXPECT_EQ(written.ui2_svl_rec_id, kept);
  EXPECT_EQ(written.t_rec_hdr.ui4_nw_mask, kActive | kBlocked);
  EXPECT_EQ(written.t_rec_hdr.ui4_option_mask, 0x408u);
  EXPECT_STREQ(written.t_rec_hdr.ac_name, "Mine");
  EXPECT_EQ(written.t_rec_hdr.e_serv_type, SVL_SERV_TYPE_TV);
  SVL_REC_T gone = {};
  refusal([&] { return a_vextvapi_channellist_get_svl_rec_by_channel_id(kAir, id(1), &gone); });
  expect_heard({{air, VEXTVAPI_CHANNEL_LIST_CHANGED, VEXTVAPI_CHANNEL_REASON_CHANGED | VEXTVAPI_CHANNEL_REASON_ORDER,
                 viewers_id(20)}});
  ASSERT_EQ(write(svl), 0) << "nothing changes";
  restart();
  EXPECT_EQ(name(viewers_id(20)), "Mine");
  expect_heard({});
}

TEST_F(TvChannelList, AWriteRefusesNonsenseAndChangesNothing) {
  const SVL_REC_T good = record(id(1));
  const auto refused = [&](auto change) {
    SVL_REC_T svl = good;
    change(svl);
    refusal([&] { return write(svl); });
  };
  refused([](SVL_REC_T& svl) { svl.t_rec_hdr.ac_name[0] = '\0'; });
  refused([](SVL_REC_T& svl) { memset(svl.t_rec_hdr.ac_name, 'x', sizeof svl.t_rec_hdr.ac_name); });
  refused([](SVL_REC_T& svl) { strcpy(svl.t_rec_hdr.ac_name, "\xFF"); });
  refused([](SVL_REC_T& svl) { strcpy(svl.t_rec_hdr.ac_name, "two\nlines"); });
  refused([](SVL_REC_T& svl) { svl.t_rec_hdr.ui4_channel_id = 0; });
  refused([](SVL_REC_T& svl) { svl.t_rec_hdr.ui4_channel_id = kAir; });
  refused([](SVL_REC_T& svl) { svl.t_rec_hdr.ui4_channel_id = id(1, kCable); });
  refused(
      [](SVL_REC_T& svl) { svl.t_rec_hdr.ui4_channel_id = viewers_id(2); });  // another identifier of a taken number
  refused([](SVL_REC_T& svl) { svl.ui2_svl_rec_id = 0; });
  refused([](SVL_REC_T& svl) { svl.ui2_svl_rec_id = 0xFFFF; });
  const TSL_REC_T unchanged = {}, cable = {.brdcst_medium = TSL_BRDCST_MEDIUM_DIG_CABLE, .frequency = 1};
  const auto set = [&](UINT32 streams, UINT16 list, UINT32 number, const SVL_REC_T* svl, const TSL_REC_T* tsl) {
    refusal([&] { return a_vextvapi_channellist_set_svl_tsl_rec_info(air, streams, list, number, svl, tsl); });
  };
  set(air_streams, kCable, 1, &good, &unchanged);
  set(air, kAir, 1, &good, &unchanged);
  set(air_streams, kAir, 0, &good, &unchanged);
  set(air_streams, kAir, 2, &good, &unchanged);
  set(air_streams, kAir, 1, nullptr, &unchanged);
  set(air_streams, kAir, 1, &good, nullptr);
  set(air_streams, kAir, 1, &good, &cable);
  const auto members = [](const SVL_REC_T& svl) {
    const SVL_REC_HDR_T& header = svl.t_rec_hdr;
    const SVL_DVB_T& dvb = svl.t_dvb;
    return std::tuple(svl.ui2_svl_rec_id, header.ui4_channel_id, header.ui4_nw_mask, header.ui4_option_mask,
                      header.e_brdcst_type, header.e_serv_type, std::to_array(header.ac_name),
                      std::to_array(header.aui1_custom_data), std::to_array(dvb.s_svc_name), dvb.ui4_linkage_descr_mask,
                      dvb.b_ci_tune_service, dvb.b_hbbtv_off, dvb.ui4_category_mask);
  };
  EXPECT_TRUE(members(record(id(1))) == members(good));
  dtv_tv_stop();
  expect_heard({});
}

TEST_F(TvChannelList, AWriteCanMoveAServiceToAnotherFrequency) {
  const SVL_REC_T svl = record(id(1));
  const TSL_REC_T wanted = {.brdcst_medium = TSL_BRDCST_MEDIUM_DIG_TERRESTRIAL, .frequency = 506000000};
  EXPECT_EQ(a_vextvapi_channellist_set_svl_tsl_rec_info(air, air_streams, kAir, 1, &svl, &wanted), 0);
  SVL_REC_T found = {};
  TSL_REC_T tsl = {};
  EXPECT_EQ(a_vextvapi_channellist_get_svl_tsl_recs_by_mask(air, air_streams, 0, 0, 0, 0, 0, 0, id(1), 1, &found, &tsl),
            1);
  EXPECT_EQ(tsl.frequency, 506000000u);
}

TEST_F(TvChannelList, TwoWritesSwapTwoChannels) {
  SVL_REC_T one = record(id(1)), two = record(id(2));
  one.t_rec_hdr.ui4_channel_id = id(2);
  two.t_rec_hdr.ui4_channel_id = id(1);
  ASSERT_EQ(write(one), 0);
  EXPECT_EQ(a_vextvapi_channellist_get_number_by_filter(air, 0), 4);
  SVL_REC_T first = {}, second = {};  // both have one identifier now
  EXPECT_EQ(a_vextvapi_channellist_get_svl_rec_by_index(air, 0, 0, 0, &first), 0);
  EXPECT_EQ(a_vextvapi_channellist_get_svl_rec_by_index(air, 0, 0, 1, &second), 0);
  EXPECT_EQ(first.t_rec_hdr.ui4_channel_id, id(2));
  EXPECT_EQ(second.t_rec_hdr.ui4_channel_id, id(2));
  ASSERT_EQ(write(two), 0);
  EXPECT_EQ(name(id(1)), "Two");
  EXPECT_EQ(name(id(2)), "One");
  expect_heard({{air, 2, VEXTVAPI_CHANNEL_REASON_ORDER, id(2)}, {air, 2, VEXTVAPI_CHANNEL_REASON_ORDER, id(1)}});
  restart();
  EXPECT_EQ(name(id(1)), "Two");
  EXPECT_EQ(name(id(2)), "One");
}

TEST_F(TvChannelList, AnUnfinishedSwapIsUndoneByTheNextChange) {
  SVL_REC_T one = record(id(1));
  one.t_rec_hdr.ui4_channel_id = id(2);
  ASSERT_EQ(write(one), 0);
  SVL_REC_T ten = record(id(10));
  ten.t_rec_hdr.ui4_nw_mask |= kBlocked;
  ASSERT_EQ(write(ten), 0);
  EXPECT_EQ(name(id(1)), "One");
  EXPECT_EQ(name(id(2)), "Two");
  // The other channel of the swap is written, but keeps its number.
  ASSERT_EQ(write(one), 0);
  SVL_REC_T two = {};
  ASSERT_EQ(a_vextvapi_channellist_get_svl_rec_by_index_and_name(air, 0, 0, "Two", 0, &two), 0);
  two.t_rec_hdr.ui4_nw_mask |= kBlocked;
  ASSERT_EQ(write(two), 0);
  EXPECT_EQ(name(id(1)), "One");
  EXPECT_EQ(name(id(2)), "Two");
}

TEST_F(TvChannelList, AnUnfinishedSwapIsUndoneAtTheNextStart) {
  SVL_REC_T one = record(id(1));
  one.t_rec_hdr.ui4_channel_id = id(2);
  ASSERT_EQ(write(one), 0);
  restart();
  EXPECT_EQ(name(id(1)), "One");
  EXPECT_EQ(name(id(2)), "Two");
}

// ---- Satellites, categories, logos ----

TEST_F(TvChannelList, SatellitesComeFromImports) {
  const UINT32 table = a_vextvapi_channellist_get_satl_handle_by_satl_id(1);
  ASSERT_NE(table, 0u);
  for (const UINT16 none : {UINT16{0}, UINT16{2}, UINT16{0xFFFF}})
    EXPECT_EQ(a_vextvapi_channellist_get_satl_handle_by_satl_id(none), 0u);
  INT32 number = 0;
  UINT32 version = 0, later = 0;
  EXPECT_EQ(c_satl_read_lock(table), 0);
  EXPECT_EQ(c_satl_get_num_recs(table, &number, &version), 0);
  EXPECT_EQ(number, 1);
  SATL_REC_T satellite = {};
  EXPECT_EQ(c_satl_get_rec_by_rec_idx(table, 0, &satellite, &later), 0);
  EXPECT_EQ(later, version);
  EXPECT_EQ(satellite.ui2_satl_rec_id, 1);
  EXPECT_EQ(satellite.i2_orb_pos, 192);
  EXPECT_STREQ(satellite.ac_sat_name, "list 19.2E");
  EXPECT_STREQ(satellite.ac_lnb_config, "Universal LNB 9750/10600/11700");
  EXPECT_EQ(c_satl_read_unlock(table), 0);
  import("Bird_5.0W", service("West", 1, "DVBS", 900));
  EXPECT_EQ(c_satl_get_rec_by_rec_idx(table, 1, &satellite, &later), 0);
  EXPECT_NE(later, version);
  EXPECT_EQ(satellite.i2_orb_pos, -50);
  EXPECT_STREQ(satellite.ac_sat_name, "Bird 5.0W");
  for (const INT32 index : {-1, 2, INT32_MAX})
    refusal([&] { return c_satl_get_rec_by_rec_idx(table, index, &satellite, &later); });
  refusal([&] { return c_satl_get_rec_by_rec_idx(table, 0, nullptr, &later); });
  refusal([&] { return c_satl_get_rec_by_rec_idx(table, 0, &satellite, nullptr); });
  refusal([&] { return c_satl_get_num_recs(table, nullptr, &version); });
  refusal([&] { return c_satl_get_num_recs(table, &number, nullptr); });
  for (const UINT32 wrong : {0u, air, table + 1}) {
    refusal([&] { return c_satl_read_lock(wrong); });
    refusal([&] { return c_satl_read_unlock(wrong); });
    refusal([&] { return c_satl_get_num_recs(wrong, &number, &version); });
    refusal([&] { return c_satl_get_rec_by_rec_idx(wrong, 0, &satellite, &version); });
  }
}

TEST_F(TvChannelList, CategoriesComeFromTheCommand) {
  const UINT32 table = a_vextvapi_channellist_get_lol_handle_by_lol_id(1);
  ASSERT_NE(table, 0u);
  EXPECT_EQ(a_vextvapi_channellist_get_lol_handle_by_lol_id(0), 0u);
  EXPECT_EQ(a_vextvapi_channellist_get_lol_handle_by_lol_id(2), 0u);
  constexpr UINT32 kTag = LOL_DATA_TAG_TKGS_CATEGORIES;
  LOL_REC_T record = {};
  UINT32 version = 0, later = 0;
  EXPECT_EQ(c_lol_get_rec_by_data_tag(table, kTag, 0, &record, &version), 0);
  EXPECT_EQ(record.t_category_list.ui2_category_num, 0);
  for (int i = 0; i < 20; ++i)
    EXPECT_NE(command({"channels", "categories", std::to_string(19 - i), "Kind", std::to_string(i)}).find("Kind"),
              std::string::npos);
  expect_words(command({"channels", "categories", "20", "More"}), {"error", "20 categories already"});
  EXPECT_EQ(c_lol_lock(table), 0);
  EXPECT_EQ(c_lol_get_rec_by_data_tag(table, kTag, 0, &record, &version), 0);
  EXPECT_EQ(c_lol_unlock(table), 0);
  EXPECT_EQ(record.ui4_data_tag, kTag);
  EXPECT_EQ(record.t_category_list.ui2_category_num, 20);
  EXPECT_EQ(record.t_category_list.at_category_arr[0].ui2_category_no, 0);
  EXPECT_STREQ(record.t_category_list.at_category_arr[0].ac_category_name, "Kind 19");
  EXPECT_STREQ(record.t_category_list.at_category_arr[19].ac_category_name, "Kind 0");
  restart();
  command({"channels", "categories", "0"});
  EXPECT_EQ(c_lol_get_rec_by_data_tag(table, kTag, 0, &record, &later), 0);
  EXPECT_EQ(record.t_category_list.ui2_category_num, 19);
  refusal([&] { return c_lol_get_rec_by_data_tag(table, kTag, 1, &record, &version); });
  refusal([&] { return c_lol_get_rec_by_data_tag(table, kTag + 1, 0, &record, &version); });
  refusal([&] { return c_lol_get_rec_by_data_tag(table, kTag, 0, nullptr, &version); });
  refusal([&] { return c_lol_get_rec_by_data_tag(table, kTag, 0, &record, nullptr); });
  for (const UINT32 wrong : {0u, air, table + 1}) {
    refusal([&] { return c_lol_lock(wrong); });
    refusal([&] { return c_lol_unlock(wrong); });
    refusal([&] { return c_lol_get_rec_by_data_tag(wrong, kTag, 0, &record, &version); });
  }
}

TEST_F(TvChannelList, AChannelWithoutALogoFileHasNoLogo) {
  EXPECT_EQ(a_channel_logo_custom_update_logo_id_by_channel(kAir, id(1)), 0);
  EXPECT_EQ(record(id(1)).t_rec_hdr.aui1_custom_data[0], 0);
  refusal([&] { return a_channel_logo_custom_update_logo_id_by_channel(kAir, id(4)); });
  refusal([&] { return a_channel_logo_custom_update_logo_id_by_channel(0, id(1)); });
}

}  // namespace
