// Favourites, and the one channel list.
#include "channels_test.h"

using namespace channels_test;

namespace {

using References = std::vector<UINT32>;

// The identifiers in a favourite list, read by index.
References favourites(UINT16 list, UINT8 which, UINT32 mask = 0, UINT32 value = 0) {
  References found;
  const INT32 count = a_vextvapi_favorite_list_number_by_mask(list, which, mask, value);
  for (INT32 index = 0; index < count; ++index) {
    SVL_REC_T svl = {};
    EXPECT_EQ(a_vextvapi_favorite_list_get_svl_rec_by_index(list, which, mask, value, index, &svl), 0);
    found.push_back(svl.t_rec_hdr.ui4_channel_id);
  }
  return found;
}

References favourites_of_all(UINT32 mask = 0, UINT32 value = 0) {
  References found;
  const INT32 count = vextvapi_1CL_getFavNumByMask(value, mask);
  for (INT32 index = 0; index < count; ++index) {
    SVL_REC_T svl = {};
    EXPECT_EQ(vextvapi_1CL_getFavByIdxAndMask(value, mask, index, &svl), 0);
    found.push_back(svl.t_rec_hdr.ui4_channel_id);
  }
  return found;
}

void block(UINT32 channel_id) {
  SVL_REC_T svl = TvChannels::record(channel_id);
  svl.t_rec_hdr.ui4_nw_mask |= kBlocked;
  EXPECT_EQ(TvChannels::write(svl), 0);
}

TEST_F(TvChannelList, AServiceListHasFourFavouriteLists) {
  EXPECT_EQ(a_vextvapi_favorite_list_add_tail(kAir, 3, id(10)), 0);
  EXPECT_EQ(a_vextvapi_favorite_list_add_tail(kAir, 3, id(1)), 0);
  EXPECT_EQ(a_vextvapi_favorite_list_add_tail(kAir, 0, id(2)), 0);
  EXPECT_EQ(a_vextvapi_favorite_list_add_tail(kCable, 3, id(2, kCable)), 0);
  EXPECT_EQ(a_vextvapi_favorite_list_add_tail(kAir, 3, id(10)), 0) << "it is one already";
  EXPECT_EQ(favourites(kAir, 3), (References{id(10), id(1)}));
  EXPECT_EQ(favourites(kAir, 0), (References{id(2)}));
  EXPECT_EQ(favourites(kCable, 3), (References{id(2, kCable)}));
  EXPECT_EQ(favourites(kSatellite, 0), References{});
  EXPECT_EQ(favourites_of_all(), References{});
  constexpr UINT32 kReason = VEXTVAPI_CHANNEL_REASON_FAVOURITES;
  const UINT32 cable = a_vextvapi_channellist_get_svl_handle_by_svl_id(kCable);
  expect_heard({{air, 2, kReason, id(10)},
                {air, 2, kReason, id(1)},
                {air, 2, kReason, id(2)},
                {cable, 2, kReason, id(2, kCable)}});
  restart();
  EXPECT_EQ(favourites(kAir, 3), (References{id(10), id(1)}));
  EXPECT_EQ(a_vextvapi_favorite_list_delete(kAir, 3, id(10)), 0);
  EXPECT_EQ(favourites(kAir, 3), (References{id(1)}));
  refusal([&] { return a_vextvapi_favorite_list_delete(kAir, 3, id(10)); });
}

TEST_F(TvChannelList, FavouritesRefuseWhatIsNotThere) {
  SVL_REC_T svl = {};
  INT32 index = 5;
  struct Wrong {
    UINT16 list;
    UINT8 which;
    UINT32 channel;
  };
  for (const Wrong& wrong : {Wrong{0, 0, id(1)}, {4, 0, id(1)}, {kAir, 4, id(1)}, {kAir, 255, id(1)}}) {
    refusal([&] { return a_vextvapi_favorite_list_add_tail(wrong.list, wrong.which, wrong.channel); });
    refusal([&] { return a_vextvapi_favorite_list_delete(wrong.list, wrong.which, wrong.channel); });
    refusal([&] { return a_vextvapi_favorite_list_add_all(wrong.list, wrong.which, 0, 0); });
    refusal([&] { return a_vextvapi_favorite_list_del_all(wrong.list, wrong.which, 0, 0); });
    refusal([&] { return a_vextvapi_favorite_list_insert_move(wrong.list, wrong.which, 0, 0, 0, 0); });
    refusal([&] { return a_vextvapi_favorite_list_swap_by_channel_id(wrong.list, wrong.which, id(1), id(2)); });
    refusal([&] { return a_vextvapi_favorite_list_number_by_mask(wrong.list, wrong.which, 0, 0); });
    refusal([&] { return a_vextvapi_favorite_list_get_svl_rec_by_index(wrong.list, wrong.which, 0, 0, 0, &svl); });
    refusal(
        [&] { return a_vextvapi_favorite_list_get_index_by_channel(wrong.list, wrong.which, 0, 0, id(1), &index); });
  }
  refusal([&] { return a_vextvapi_favorite_list_add_tail(kAir, 0, id(4)); });
  refusal([&] { return a_vextvapi_favorite_list_add_tail(kAir, 0, id(2, kCable)); });
  refusal([&] { return a_vextvapi_favorite_list_get_svl_rec_by_index(kAir, 0, 0, 0, 0, &svl); });
  refusal([&] { return a_vextvapi_favorite_list_get_index_by_channel(kAir, 0, 0, 0, id(1), &index); });
  ASSERT_EQ(a_vextvapi_favorite_list_add_tail(kAir, 0, id(1)), 0);
  refusal([&] { return a_vextvapi_favorite_list_get_svl_rec_by_index(kAir, 0, 0, 0, 0, nullptr); });
  refusal([&] { return a_vextvapi_favorite_list_get_index_by_channel(kAir, 0, 0, 0, id(1), nullptr); });
  for (const INT32 bad : {-1, 1, INT32_MIN, INT32_MAX}) {
    refusal([&] { return a_vextvapi_favorite_list_get_svl_rec_by_index(kAir, 0, 0, 0, bad, &svl); });
    refusal([&] { return a_vextvapi_favorite_list_insert_move(kAir, 0, 0, 0, bad, 0); });
    refusal([&] { return a_vextvapi_favorite_list_insert_move(kAir, 0, 0, 0, 0, bad); });
  }
  EXPECT_EQ(index, 5);
}

TEST_F(TvChannelList, AllThatFitAreAddedAndDeletedAtOnce) {
  block(id(2));
  ASSERT_EQ(a_vextvapi_favorite_list_add_tail(kAir, 1, id(10)), 0);
  EXPECT_EQ(a_vextvapi_favorite_list_add_all(kAir, 1, kBlocked, 0), 0);
  EXPECT_EQ(favourites(kAir, 1), (References{id(10), id(1), id(3)}));
  EXPECT_EQ(a_vextvapi_favorite_list_add_all(kAir, 1, 0, 0), 0);
  EXPECT_EQ(favourites(kAir, 1), (References{id(10), id(1), id(3), id(2)}));
  EXPECT_EQ(favourites(kAir, 1, kBlocked, kBlocked), (References{id(2)}));
  INT32 index = -1;
  EXPECT_EQ(a_vextvapi_favorite_list_get_index_by_channel(kAir, 1, 0, 0, id(2), &index), 0);
  EXPECT_EQ(index, 3);
  EXPECT_EQ(a_vextvapi_favorite_list_get_index_by_channel(kAir, 1, kBlocked, kBlocked, id(2), &index), 0);
  EXPECT_EQ(index, 0);
  EXPECT_EQ(a_vextvapi_favorite_list_del_all(kAir, 1, kBlocked, kBlocked), 0);
  EXPECT_EQ(favourites(kAir, 1), (References{id(10), id(1), id(3)}));
  EXPECT_EQ(a_vextvapi_favorite_list_del_all(kAir, 1, 0, 0), 0);
  EXPECT_EQ(favourites(kAir, 1), References{});
}

TEST_F(TvChannelList, FavouritesMoveAndSwap) {
  ASSERT_EQ(a_vextvapi_favorite_list_add_all(kAir, 0, 0, 0), 0);
  EXPECT_EQ(a_vextvapi_favorite_list_insert_move(kAir, 0, 0, 0, 0, 2), 0);
  EXPECT_EQ(favourites(kAir, 0), (References{id(2), id(3), id(1), id(10)}));
  EXPECT_EQ(a_vextvapi_favorite_list_insert_move(kAir, 0, 0, 0, 3, 0), 0);
  EXPECT_EQ(favourites(kAir, 0), (References{id(10), id(2), id(3), id(1)}));
  EXPECT_EQ(a_vextvapi_favorite_list_insert_move(kAir, 0, 0, 0, 1, 1), 0);
  EXPECT_EQ(a_vextvapi_favorite_list_swap_by_channel_id(kAir, 0, id(10), id(1)), 0);
  EXPECT_EQ(favourites(kAir, 0), (References{id(1), id(2), id(3), id(10)}));
  refusal([&] { return a_vextvapi_favorite_list_swap_by_channel_id(kAir, 0, id(1), id(4)); });
  refusal([&] { return a_vextvapi_favorite_list_swap_by_channel_id(kAir, 1, id(1), id(2)); });
  // Those that do not fit keep their places.
  block(id(2));
  EXPECT_EQ(a_vextvapi_favorite_list_insert_move(kAir, 0, kBlocked, 0, 0, 2), 0);
  EXPECT_EQ(favourites(kAir, 0), (References{id(3), id(2), id(10), id(1)}));
  restart();
  EXPECT_EQ(favourites(kAir, 0), (References{id(3), id(2), id(10), id(1)}));
}

TEST_F(TvChannelList, AFavouriteFollowsItsChannelToAnotherNumber) {
  ASSERT_EQ(a_vextvapi_favorite_list_add_tail(kAir, 0, id(1)), 0);
  ASSERT_EQ(vextvapi_1CL_addFavToTailByChannel(id(1)), 0);
  command({"channel", "1", "number", "77"});
  EXPECT_EQ(favourites(kAir, 0), (References{viewers_id(77)}));
  EXPECT_EQ(favourites_of_all(), (References{viewers_id(77)}));
  command({"channel", "77", "delete"});
  EXPECT_EQ(favourites(kAir, 0), References{});
  EXPECT_EQ(favourites_of_all(), References{});
}

// ---- The one channel list ----

TEST_F(TvChannelList, TheOneChannelListHasAllListsByNumber) {
  References walked;
  for (UINT32 at = vextvapi_GetFirstVirtualChannelByMask(kOneList, 0, 0); at != 0;
       at = vextvapi_GetNextVirtualChannelByMask(at, 0, 0)) {
    SVL_REC_T svl = {};
    UINT16 list = 0, same = 0;
    ASSERT_EQ(vextvapi_getChannelSvlRec(at, &svl), 0);
    walked.push_back(svl.t_rec_hdr.ui4_channel_id);
    EXPECT_EQ(vextvapi_getRefChannelByID(kOneList, walked.back()), at);
    EXPECT_EQ(vextvapi_getChannelSvlID(at, &list), 0);
    EXPECT_EQ(vextvapi_getChannelSvlID(walked.back(), &same), 0) << "by its identifier";
    EXPECT_EQ(list, walked.back() & 0xF);
    EXPECT_EQ(same, list);
  }
  const References all{id(1), id(2), id(2, kCable), id(3), id(5, kSatellite), id(10)};
  EXPECT_EQ(walked, all);
  EXPECT_EQ(vextvapi_GetNumofChListByMask(kOneList, 0, 0), 6);
  for (std::size_t i = 0; i < all.size(); ++i) {
    INT32 index = -1;
    SVL_REC_T svl = {};
    EXPECT_EQ(vextvapi_getIdxByChannelIdAndMask(kOneList, 0, 0, all[i], &index), 0);
    EXPECT_EQ(index, static_cast<INT32>(i));
    EXPECT_EQ(vextvapi_getChannelSvlRecByIdxAndMask(kOneList, 0, 0, index, &svl), 0);
    EXPECT_EQ(svl.t_rec_hdr.ui4_channel_id, all[i]);
  }
}

TEST_F(TvChannelList, AReferenceStaysWhenTheNumberChanges) {
  const UINT32 reference = vextvapi_getRefChannelByID(kOneList, id(1));
  command({"channel", "1", "number", "77"});
  EXPECT_EQ(vextvapi_getRefChannelByID(kOneList, viewers_id(77)), reference);
  EXPECT_EQ(vextvapi_GetPrevVirtualChannelByMask(reference, 0, 0), vextvapi_getRefChannelByID(kOneList, id(10)));
  EXPECT_EQ(vextvapi_GetNextVirtualChannelByMask(reference, 0, 0), 0u);
  restart();
  EXPECT_EQ(vextvapi_getRefChannelByID(kOneList, viewers_id(77)), reference);
}

TEST_F(TvChannelList, AnActiveMaskWithoutAValueMeansActiveChannels) {
  SVL_REC_T hidden = TvChannels::record(id(2));
  hidden.t_rec_hdr.ui4_nw_mask &= ~kActive;
  ASSERT_EQ(TvChannels::write(hidden), 0);
  EXPECT_EQ(vextvapi_GetNumofChListByMask(kOneList, 0, kActive), 5);
  EXPECT_EQ(vextvapi_1CL_getNumofChannelByName(kOneList, 0, kActive, "one"), 2);
  EXPECT_EQ(vextvapi_GetFirstVirtualChannelByMask(kOneList, 0, kActive), vextvapi_getRefChannelByID(kOneList, id(1)));
  INT32 index = -1;
  EXPECT_EQ(a_vextvapi_channellist_get_index_by_channel(air, kActive, 0, id(3), &index), 0);
  EXPECT_EQ(index, 1) << "after 1; 2 does not count";
  EXPECT_LT(a_vextvapi_channellist_get_index_by_channel(air, kActive, 0, id(2), &index), 0);
  // Where a request always has a value, 0 means 0; so do other masks.
  EXPECT_EQ(a_vextvapi_channellist_get_number_by_mask(air, kActive, 0, 0, 0, 0), 1);
  EXPECT_EQ(vextvapi_GetNumofChListByMask(kOneList, 0, kBlocked), 6);
}

TEST_F(TvChannelList, MasksNarrowTheOneChannelList) {
  block(id(2));
  block(id(10));
  const UINT32 two = vextvapi_getRefChannelByID(kOneList, id(2)), ten = vextvapi_getRefChannelByID(kOneList, id(10));
  EXPECT_EQ(vextvapi_GetFirstVirtualChannelByMask(kOneList, kBlocked, kBlocked), two);
  EXPECT_EQ(vextvapi_GetNextVirtualChannelByMask(two, kBlocked, kBlocked), ten);
  EXPECT_EQ(vextvapi_GetNextVirtualChannelByMask(ten, kBlocked, kBlocked), 0u);
  EXPECT_EQ(vextvapi_GetPrevVirtualChannelByMask(ten, kBlocked, kBlocked), two);
  EXPECT_EQ(vextvapi_GetPrevVirtualChannelByMask(two, kBlocked, kBlocked), 0u);
  EXPECT_EQ(vextvapi_GetNumofChListByMask(kOneList, kBlocked, kBlocked), 2);
  INT32 index = -1;
  EXPECT_EQ(vextvapi_getNearestIdxByMajorAndMask(kOneList, kBlocked, kBlocked, 6, &index), 0);
  EXPECT_EQ(index, 0) << "2 and 10 are as near; the lower one";
  EXPECT_EQ(vextvapi_getNearestIdxByMajorAndMask(kOneList, kBlocked, kBlocked, 7, &index), 0);
  EXPECT_EQ(index, 1);
  EXPECT_EQ(vextvapi_getNearestIdxByMajorAndMask(kOneList, 0, 0, 0xFFFFFFFF, &index), 0);
  EXPECT_EQ(index, 5);
  refusal([&] { return vextvapi_getNearestIdxByMajorAndMask(kOneList, 0, kActive | kBlocked, 1, &index); });
  EXPECT_EQ(vextvapi_1CL_getNumofChannelByName(kOneList, 0, 0, "ONE"), 2);
  EXPECT_EQ(vextvapi_1CL_getNumofChannelByName(kOneList, kBlocked, kBlocked, "ONE"), 1);
  SVL_REC_T svl = {};
  EXPECT_EQ(vextvapi_1CL_getChannelByNameAndIdx(kOneList, kBlocked, kBlocked, "one", 0, &svl), 0);
  EXPECT_EQ(svl.t_rec_hdr.ui4_channel_id, id(10));
}

TEST_F(TvChannelList, TheOneChannelListRefusesWhatIsNotThere) {
  SVL_REC_T svl = {};
  UINT16 list = 0;
  INT32 index = 0;
  testing::internal::CaptureStderr();
  for (const char* const none : {static_cast<const char*>(nullptr), "", "all_channe", "all_channels", "air"}) {
    EXPECT_EQ(vextvapi_getRefChannelByID(none, id(1)), 0u);
    EXPECT_EQ(vextvapi_GetFirstVirtualChannelByMask(none, 0, 0), 0u);
    EXPECT_LT(vextvapi_getChannelSvlRecByIdxAndMask(none, 0, 0, 0, &svl), 0);
    EXPECT_LT(vextvapi_1CL_getChannelByNameAndIdx(none, 0, 0, "", 0, &svl), 0);
    EXPECT_LT(vextvapi_getIdxByChannelIdAndMask(none, 0, 0, id(1), &index), 0);
    EXPECT_LT(vextvapi_getNearestIdxByMajorAndMask(none, 0, 0, 1, &index), 0);
    EXPECT_LT(vextvapi_1CL_getNumofChannelByName(none, 0, 0, ""), 0);
    EXPECT_LT(vextvapi_GetNumofChListByMask(none, 0, 0), 0);
  }
  for (const UINT32 none : {0u, 1u, id(1), 0x10000u, 0x1FFFFu, 0xFFFFFFFFu}) {
    EXPECT_EQ(vextvapi_GetNextVirtualChannelByMask(none, 0, 0), 0u) << none;
    EXPECT_EQ(vextvapi_GetPrevVirtualChannelByMask(none, 0, 0), 0u) << none;
    EXPECT_LT(vextvapi_getChannelSvlRec(none, &svl), 0) << none;
    if (none == id(1)) continue;  // an identifier is accepted here
    EXPECT_LT(vextvapi_getChannelSvlID(none, &list), 0) << none;
  }
  const UINT32 one = vextvapi_getRefChannelByID(kOneList, id(1));
  EXPECT_EQ(vextvapi_getRefChannelByID(kOneList, id(4)), 0u);
  EXPECT_EQ(vextvapi_getRefChannelByID(kOneList, one), 0u) << "a reference is no identifier";
  EXPECT_LT(vextvapi_getChannelSvlRec(one, nullptr), 0);
  EXPECT_LT(vextvapi_getChannelSvlID(one, nullptr), 0);
  EXPECT_LT(vextvapi_getChannelSvlRecByIdxAndMask(kOneList, 0, 0, 0, nullptr), 0);
  EXPECT_LT(vextvapi_getIdxByChannelIdAndMask(kOneList, 0, 0, id(1), nullptr), 0);
  EXPECT_LT(vextvapi_getIdxByChannelIdAndMask(kOneList, 0, 0, id(4), &index), 0);
  EXPECT_LT(vextvapi_getNearestIdxByMajorAndMask(kOneList, 0, 0, 1, nullptr), 0);
  EXPECT_LT(vextvapi_1CL_getChannelByNameAndIdx(kOneList, 0, 0, nullptr, 0, &svl), 0);
  EXPECT_LT(vextvapi_1CL_getChannelByNameAndIdx(kOneList, 0, 0, "", 0, nullptr), 0);
  EXPECT_LT(vextvapi_1CL_getNumofChannelByName(kOneList, 0, 0, nullptr), 0);
  for (const INT32 bad : {-1, 6, INT32_MIN, INT32_MAX}) {
    EXPECT_LT(vextvapi_getChannelSvlRecByIdxAndMask(kOneList, 0, 0, bad, &svl), 0);
    EXPECT_LT(vextvapi_1CL_getChannelByNameAndIdx(kOneList, 0, 0, "", bad, &svl), 0);
  }
  EXPECT_NE(testing::internal::GetCapturedStderr(), "");
}

TEST_F(TvChannelList, TheOneChannelListHasFavouritesOfAllLists) {
  for (const UINT32 each : {id(5, kSatellite), id(1), id(2, kCable)})
    EXPECT_EQ(vextvapi_1CL_addFavToTailByChannel(each), 0);
  EXPECT_EQ(favourites_of_all(), (References{id(5, kSatellite), id(1), id(2, kCable)}));
  EXPECT_EQ(vextvapi_1CL_getFavIdxByChannelAndMask(0, 0, id(2, kCable)), 2);
  EXPECT_EQ(vextvapi_1CL_moveFavByIdx(2, 0, 0, 0), 0);
  EXPECT_EQ(favourites_of_all(), (References{id(2, kCable), id(5, kSatellite), id(1)}));
  EXPECT_EQ(vextvapi_1CL_removeFavByChannel(id(5, kSatellite)), 0);
  block(id(10));
  EXPECT_EQ(vextvapi_1CL_addAllToFavByMask(0, kBlocked), 0);
  EXPECT_EQ(favourites_of_all(), (References{id(2, kCable), id(1), id(2), id(3), id(5, kSatellite)}));
  EXPECT_EQ(vextvapi_1CL_addAllToFavByMask(0, 0), 0);
  EXPECT_EQ(vextvapi_1CL_delAllFavByMask(0, kBlocked), 0);
  EXPECT_EQ(favourites_of_all(), (References{id(10)}));
  EXPECT_EQ(vextvapi_1CL_getFavNumByMask(0, kBlocked), 0);
  restart();
  EXPECT_EQ(favourites_of_all(), (References{id(10)}));
  SVL_REC_T svl = {};
  refusal([&] { return vextvapi_1CL_addFavToTailByChannel(id(4)); });
  refusal([&] { return vextvapi_1CL_removeFavByChannel(id(4)); });
  refusal([&] { return vextvapi_1CL_removeFavByChannel(id(1)); });
  refusal([&] { return vextvapi_1CL_moveFavByIdx(0, 1, 0, 0); });
  refusal([&] { return vextvapi_1CL_moveFavByIdx(-1, 0, 0, 0); });
  refusal([&] { return vextvapi_1CL_getFavByIdxAndMask(0, 0, 1, &svl); });
  refusal([&] { return vextvapi_1CL_getFavByIdxAndMask(0, 0, -1, &svl); });
  refusal([&] { return vextvapi_1CL_getFavByIdxAndMask(0, 0, 0, nullptr); });
  refusal([&] { return vextvapi_1CL_getFavIdxByChannelAndMask(0, 0, id(1)); });
  refusal([&] { return vextvapi_1CL_getFavIdxByChannelAndMask(0, 0, id(4)); });
  EXPECT_EQ(vextvapi_1CL_getFavIdxByChannelAndMask(0, 0, id(10)), 0);
}

}  // namespace
