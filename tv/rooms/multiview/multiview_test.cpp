// Two pictures: modes, regions, what is heard, the sub picture's source and channel.
#include "rooms/sources/sources.h"
#include "rooms/tuner/tuner_test.h"

namespace {

struct TvMultiview : TunerSet {};

std::string shown() { return run({"multiview"}); }

constexpr VEXTVAPI_REGION_T kSome{.x = 100, .y = 50, .width = 640, .height = 360};

TEST_F(TvMultiview, NewSetHasOnePicture) {
  EXPECT_EQ(shown(), R"({"mode":"normal","main":{"shown":true,"source":"TV",)"
                     R"("region":{"x":0,"y":0,"width":1920,"height":1080}},"focus":"main"})");
}

TEST_F(TvMultiview, ModesLayOutThePictures) {
  import_channels();
  EXPECT_EQ(a_vextvapi_multiview_setNewTvMode(VEXTVAPI_MULTIVIEW_PIP), 0);
  expect_words(shown(), {R"("mode":"pip")", R"("main":{"shown":true,"source":"TV","channel":1,)",
                         R"("region":{"x":0,"y":0,"width":1920,"height":1080}})",
                         R"("sub":{"shown":true,"source":"TV","channel":2,"region":{"x":1380,"y":60,"width":480,)"
                         R"("height":270}})"});
  EXPECT_EQ(a_vextvapi_multiview_setNewTvMode(VEXTVAPI_MULTIVIEW_POP), 0);
  expect_words(shown(), {R"("mode":"pop")", R"("region":{"x":0,"y":270,"width":960,"height":540}})",
                         R"("region":{"x":960,"y":270,"width":960,"height":540}})"});
  EXPECT_EQ(a_vextvapi_multiview_setNewTvMode(VEXTVAPI_MULTIVIEW_NORMAL), 0);
  EXPECT_EQ(shown().find("\"sub\""), std::string::npos);
  for (const UINT8 mode : {UINT8{3}, UINT8{255}}) {
    expect_words(refusal([&] { return a_vextvapi_multiview_setNewTvMode(mode); }), {"0 to 2", std::to_string(mode)});
  }
}

TEST_F(TvMultiview, SubPictureFollowsAChannelThatGetsAnotherNumber) {
  import_channels();
  ASSERT_EQ(a_vextvapi_multiview_setNewTvMode(VEXTVAPI_MULTIVIEW_PIP), 0);
  expect_words(shown(), {R"("sub":{"shown":true,"source":"TV","channel":2,)"});
  expect_done(run({"channel", "2", "number", "77"}));
  expect_words(shown(), {R"("sub":{"shown":true,"source":"TV","channel":77,)"});
  expect_done(run({"channel", "1", "number", "2"}));
  expect_words(shown(), {R"("sub":{"shown":true,"source":"TV","channel":77,)"});
}

TEST_F(TvMultiview, SubPictureOfTheOtherTunerShowsItsFirstChannel) {
  import_channels();
  import_satellite();
  ASSERT_EQ(a_vextvapi_multiview_startSubVideo(kSourceSatellite, &kSome), 0);
  expect_words(shown(), {R"("sub":{"shown":true,"source":"Satellite","channel":)"});
}

TEST_F(TvMultiview, SubPictureKeepsItsChannelWhenItMoves) {
  import_channels();
  ASSERT_EQ(a_vextvapi_multiview_startSubVideo(kSourceTv, &kSome), 0);
  expect_done(run({"multiview", "channel", "3"}));
  expect_words(shown(), {R"("sub":{"shown":true,"source":"TV","channel":3,)"});
  ASSERT_EQ(a_vextvapi_multiview_startSubVideo(kSourceTv, &kSome), 0);
  expect_words(shown(), {R"("sub":{"shown":true,"source":"TV","channel":3,"region":{"x":100,)"});
}

TEST_F(TvMultiview, RegionsAreWithinTheScreen) {
  ASSERT_EQ(a_vextvapi_multiview_startSubVideo(2, &kSome), 0);
  const std::string before = shown();
  constexpr UINT32 kHuge = UINT32_MAX;
  for (const VEXTVAPI_REGION_T& wrong : std::initializer_list<VEXTVAPI_REGION_T>{{0, 0, 0, 1080},
                                                                                 {0, 0, 1920, 15},
                                                                                 {0, 0, 1921, 1080},
                                                                                 {0, 0, 1920, 1081},
                                                                                 {1, 0, 1920, 1080},
                                                                                 {0, 1, 1920, 1080},
                                                                                 {1920, 0, 16, 16},
                                                                                 {0, 1080, 16, 16},
                                                                                 {kHuge, 0, 16, 16},
                                                                                 {16, 0, kHuge, 16},
                                                                                 {0, kHuge - 8, 16, 16},
                                                                                 {0, 16, 16, kHuge - 8}}) {
    const std::vector<std::string> words{"1920x1080", std::to_string(wrong.width) + "x" + std::to_string(wrong.height)};
    expect_words(refusal([&] { return a_vextvapi_multiview_startMainVideo(0, &wrong); }), words);
    expect_words(refusal([&] { return a_vextvapi_multiview_startSubVideo(0, &wrong); }), words);
    for (const INT32 picture : {0, 1}) {
      expect_words(refusal([&] {
                     return a_vextvapi_highlevel_set_displayregion(picture, wrong.x, wrong.y, wrong.width,
                                                                   wrong.height);
                   }),
                   words);
    }
  }
  expect_words(refusal([] { return a_vextvapi_multiview_startMainVideo(0, nullptr); }), {"null"});
  expect_words(refusal([] { return a_vextvapi_multiview_startSubVideo(0, nullptr); }), {"null"});
  EXPECT_EQ(shown(), before);
  for (const VEXTVAPI_REGION_T& right :
       std::initializer_list<VEXTVAPI_REGION_T>{{0, 0, 1920, 1080}, {1904, 1064, 16, 16}, {0, 0, 16, 16}}) {
    EXPECT_EQ(a_vextvapi_highlevel_set_displayregion(1, right.x, right.y, right.width, right.height), 0);
    expect_words(shown(), {R"("region":{"x":)" + std::to_string(right.x) + R"(,"y":)" + std::to_string(right.y) +
                           R"(,"width":)" + std::to_string(right.width) + R"(,"height":)" +
                           std::to_string(right.height) + "}},\"focus\""});
  }
}

TEST_F(TvMultiview, StartsAndStopsBothPictures) {
  import_channels();
  EXPECT_EQ(a_vextvapi_multiview_startMainVideo(3, &kSome), 0);
  EXPECT_EQ(place(), "1 HDMI 2");
  expect_words(shown(),
               {R"("main":{"shown":true,"source":"HDMI 2","region":{"x":100,"y":50,"width":640,"height":360}})"});
  EXPECT_EQ(a_vextvapi_multiview_startSubVideo(0, &kSome), 0);
  expect_words(shown(), {R"("sub":{"shown":true,"source":"TV","channel":2,)", R"("mode":"pip")"});
  EXPECT_EQ(a_vextvapi_multiview_stopMainVideo(), 0);
  expect_words(shown(), {R"("main":{"shown":false)"});
  EXPECT_EQ(a_vextvapi_multiview_stopSubVideo(), 0);
  EXPECT_EQ(shown().find("\"sub\""), std::string::npos);
  EXPECT_EQ(a_vextvapi_inputsource_changesource_bysourceid(3), 0);
  expect_words(shown(), {R"("main":{"shown":true)"});
  expect_words(refusal([] { return a_vextvapi_multiview_startSubVideo(8, &kSome); }), {"no source 8"});
  expect_words(refusal([] { return a_vextvapi_multiview_startMainVideo(255, &kSome); }), {"no source 255"});
  expect_words(refusal([] { return a_vextvapi_highlevel_set_displayregion(1, 0, 0, 16, 16); }), {"no sub picture"});
  expect_words(refusal([] { return a_vextvapi_highlevel_set_displayregion(2, 0, 0, 16, 16); }),
               {"0 (main) or 1 (sub)"});
  expect_words(refusal([] { return a_vextvapi_highlevel_set_displayregion(-1, 0, 0, 16, 16); }), {"-1"});
}

TEST_F(TvMultiview, OnePictureIsHeard) {
  expect_words(refusal([] { return a_vextvapi_multiview_setAudioFocus("sub"); }), {"no sub picture"});
  ASSERT_EQ(a_vextvapi_multiview_startSubVideo(4, &kSome), 0);
  EXPECT_EQ(a_vextvapi_multiview_setAudioFocus("sub"), 0);
  expect_words(shown(), {R"("focus":"sub")"});
  EXPECT_EQ(a_vextvapi_multiview_setAudioFocus("MAIN"), 0);
  expect_words(shown(), {R"("focus":"main")"});
  for (const char* wrong : {"", "both", "mainx"})
    expect_words(refusal([&] { return a_vextvapi_multiview_setAudioFocus(wrong); }), {"main", "sub"});
  expect_words(refusal([] { return a_vextvapi_multiview_setAudioFocus(nullptr); }), {"null"});
  EXPECT_EQ(a_vextvapi_multiview_setAudioFocus("sub"), 0);
  EXPECT_EQ(a_vextvapi_multiview_stopSubVideo(), 0);
  expect_words(shown(), {R"("focus":"main")"});
}

TEST_F(TvMultiview, TheSourceOfThePictureThatIsHeardChanges) {
  EXPECT_EQ(a_vextvapi_multiview_setChgSource(2), 0);
  EXPECT_EQ(place(), "null HDMI 1");
  ASSERT_EQ(a_vextvapi_multiview_startSubVideo(4, &kSome), 0);
  EXPECT_EQ(a_vextvapi_multiview_setAudioFocus("sub"), 0);
  EXPECT_EQ(a_vextvapi_multiview_setChgSource(7), 0);
  EXPECT_EQ(place(), "null HDMI 1");
  expect_words(shown(), {R"("sub":{"shown":true,"source":"Media")", R"("width":640)"});
  expect_words(refusal([] { return a_vextvapi_multiview_setChgSource(8); }), {"no source 8"});
}

TEST_F(TvMultiview, SwapExchangesSourcesAndChannels) {
  import_channels();
  expect_done(run({"tune", "3"}));
  ASSERT_EQ(a_vextvapi_multiview_startSubVideo(3, &kSome), 0);
  expect_done(run({"multiview", "swap"}));
  EXPECT_EQ(place(), "3 HDMI 2");
  expect_words(shown(), {R"("sub":{"shown":true,"source":"TV","channel":3)"});
  expect_done(run({"multiview", "channel", "4"}));
  expect_done(run({"multiview", "swap"}));
  EXPECT_EQ(place(), "4 TV");
  expect_words(shown(), {R"("sub":{"shown":true,"source":"HDMI 2","region")"});
  expect_done(run({"multiview", "stop"}));
  expect_words(run({"multiview", "swap"}), {"error", "no sub picture"});
}

TEST_F(TvMultiview, StandbyAndARestartLeaveOnePicture) {
  ASSERT_EQ(a_vextvapi_multiview_startSubVideo(4, &kSome), 0);
  expect_words(tv_control(R"(["state"])"), {R"("multiview":{"mode":"pip")"});
  press("POWER");
  press("POWER");
  EXPECT_EQ(tv_control(R"(["state"])").find("multiview"), std::string::npos);
  ASSERT_EQ(a_vextvapi_multiview_startSubVideo(4, &kSome), 0);
  restart();
  EXPECT_EQ(tv_control(R"(["state"])").find("multiview"), std::string::npos);
  ASSERT_EQ(a_vextvapi_multiview_startSubVideo(4, &kSome), 0);
  run({"reset"});
  EXPECT_EQ(shown().find("\"sub\""), std::string::npos);
}

TEST_F(TvMultiview, MultiviewCommand) {
  import_channels();
  expect_done(run({"multiview", "pop"}));
  expect_done(run({"multiview", "focus", "sub"}));
  expect_done(run({"multiview", "channel", "42"}));
  expect_words(shown(), {R"("mode":"pop")", R"("channel":42)", R"("focus":"sub")"});
  expect_done(run({"multiview", "normal"}));
  expect_words(run({"multiview", "focus", "sub"}), {"error", "no sub picture"});
  expect_words(run({"multiview", "focus", "both"}), {"error", "main or sub", "both"});
  expect_words(run({"multiview", "focus"}), {"error", "a word is missing", "focus main|sub"});
  expect_words(run({"multiview", "channel", "99"}), {"error", "no channel", "99"});
  expect_words(run({"multiview", "channel", "x"}), {"error", "no channel", "x"});
  expect_words(run({"multiview", "pip", "now"}), {"error", "no further word"});
  expect_words(run({"multiview", "dance"}), {"error", "swap", "dance"});
}

}  // namespace
