// Channels that are blocked while they are watched, and the lock of channels.
#include "rooms/antenna/antenna_test.h"
#include "rooms/tuner/tuner_test.h"

namespace {

struct TvBlocking : TunerSet {
  TvBlocking() {
    const std::string air = home.path + "/air";
    std::filesystem::create_directory(air);
    write_bytes(air + "/10.ts", small_multiplex(1, 10, 506'000'000).bytes);
    expect_done(antenna(air));
    read_antenna();
    import("one.conf", channel_lines({"One", 1, 10, 1}, "DVBT"));
    expect_done(run({"tune", "1"}));
    dtv_tv_advance(900);
    EXPECT_TRUE(becomes("picture")) << run({"tuner"});
  }

  // Whether this becomes the channel's result without the set's clock moving.
  static bool becomes(const std::string& result) {
    return comes_true([&] {
      dtv_tv_advance(0);
      return run({"tuner"}).find("\"result\":\"" + result + '"') != std::string::npos;
    });
  }
};

TEST_F(TvBlocking, BlockingTheWatchedChannelEndsItsPictureAtOnce) {
  expect_done(run({"channel", "1", "block"}));
  EXPECT_TRUE(becomes("blocked channel")) << run({"tuner"});
  expect_done(run({"channel", "1", "unblock"}));
  EXPECT_TRUE(becomes("picture")) << run({"tuner"});

  SVL_REC_T record{};
  TSL_REC_T stream{};
  ASSERT_EQ(a_vextvapi_channellist_get_svl_rec_by_channel_id(1, channel_id(1), &record), 0);
  record.t_rec_hdr.ui4_nw_mask |= SVL_NW_MASK_BLOCKED;
  ASSERT_EQ(a_vextvapi_channellist_set_svl_tsl_rec_info(a_vextvapi_channellist_get_svl_handle_by_svl_id(1),
                                                        a_vextvapi_channellist_get_tsl_handle_by_svl_id(1), 1, 1,
                                                        &record, &stream),
            0);
  EXPECT_TRUE(becomes("blocked channel")) << run({"tuner"});
}

TEST_F(TvBlocking, APinCountsForBlocksThatCameBeforeIt) {
  expect_done(run({"channel", "1", "block"}));
  EXPECT_TRUE(becomes("blocked channel")) << run({"tuner"});
  expect_done(run({"tuner", "pin", "0000"}));
  EXPECT_TRUE(becomes("picture")) << run({"tuner"});
  expect_done(run({"channel", "1", "unblock"}));
  dtv_tv_advance(0);
  expect_done(run({"channel", "1", "block"}));
  EXPECT_TRUE(becomes("blocked channel")) << run({"tuner"});
}

TEST_F(TvBlocking, DigitsOfTheRemoteControlAreThePin) {
  const auto press = [](const std::string& digits) {
    for (const char digit : digits) expect_done(run({"key", std::string(1, digit)}));
  };
  expect_done(run({"channel", "1", "block"}));
  EXPECT_TRUE(becomes("blocked channel")) << run({"tuner"});
  press("123");
  expect_words(run({"screen"}), {"\"typed\":\"\u2022\u2022\u2022\""});
  press("4");
  expect_words(run({"screen"}), {R"("word":"wrong_pin")"});
  EXPECT_EQ(run({"screen"}).find("typed"), std::string::npos);
  press("00");
  dtv_tv_advance(10'000);  // these are forgotten
  press("00");
  expect_words(run({"tuner"}), {R"("result":"blocked channel")"});
  press("00");
  EXPECT_TRUE(becomes("picture")) << run({"tuner"});
  press("1");
  expect_words(run({"screen"}), {R"("typed":"1")"});
}

TEST_F(TvBlocking, BlockedChannelsAreShownWhileTheirLockIsOff) {
  expect_done(run({"channel", "1", "block"}));
  EXPECT_TRUE(becomes("blocked channel")) << run({"tuner"});
  expect_done(run({"config", "g_rating__channel_lock", "off"}));
  EXPECT_TRUE(becomes("picture")) << run({"tuner"});
  expect_done(run({"config", "g_rating__channel_lock", "on"}));
  EXPECT_TRUE(becomes("blocked channel")) << run({"tuner"});
}

}  // namespace
