// The set's screen without a channel: the empty frame, and what is drawn over it.
#include <boost/json.hpp>
#include <cstdlib>

#include "tests/unit/tv/support.h"

namespace {

boost::json::object screen(const std::string& command = R"(["screen"])") {
  return boost::json::parse(tv_control(command)).as_object();
}

struct Frame {
  std::uint64_t number = 0;
  std::string jpeg;
};

Frame frame(std::uint64_t after = 0) {
  std::uint8_t* bytes = nullptr;
  std::uint32_t size = 0;
  Frame got{.number = dtv_tv_screen(after, &bytes, &size), .jpeg = {}};
  if (bytes != nullptr) got.jpeg.assign(reinterpret_cast<const char*>(bytes), size);
  std::free(bytes);
  return got;
}

struct TvScreen : testing::Test {
  ManualClock clock;
  TvFolder folder;
  TvScreen() { EXPECT_EQ(tv_start(folder.path), ""); }
};

TEST_F(TvScreen, ReportsWhyThereIsNoPicture) {
  boost::json::object shown = screen();
  EXPECT_EQ(shown.at("picture"), "none");
  EXPECT_EQ(shown.at("shown"), false);
#ifdef DTV_PICTURE
  EXPECT_EQ(shown.at("reason"), "no_channel");
  tv_control(R"(["power","standby"])");
  EXPECT_EQ(screen().at("reason"), "standby");
#else
  EXPECT_EQ(shown.at("reason"), "unavailable");
  EXPECT_EQ(shown.at("problem"), "this television was built without a picture");
#endif
}

TEST_F(TvScreen, TheVolumeIsShownForThreeSecondsAfterItsChange) {
  EXPECT_FALSE(screen().contains("volume"));
  tv_control(R"(["volume","33"])");
  boost::json::object shown = screen();
  EXPECT_EQ(shown.at("volume"), 33);
  EXPECT_EQ(shown.at("mute"), false);
  dtv_tv_advance(2900);
  EXPECT_EQ(screen().at("volume"), 33);
  tv_control(R"(["mute","on"])");
  EXPECT_EQ(screen().at("mute"), true);
  dtv_tv_advance(2900);
  EXPECT_EQ(screen().at("mute"), true);
  dtv_tv_advance(200);
  EXPECT_FALSE(screen().contains("volume"));
  EXPECT_FALSE(screen().contains("mute"));
}

TEST_F(TvScreen, TheVolumeIsNotShownAtTheFirstLookAfterAStart) {
  tv_control(R"(["volume","33"])");
  EXPECT_EQ(screen().at("volume"), 33);  // nobody has looked before
  dtv_tv_stop();
  ASSERT_EQ(tv_start(folder.path), "");
  EXPECT_FALSE(screen().contains("volume"));
}

TEST_F(TvScreen, TakesOneWord) { EXPECT_TRUE(screen(R"(["screen","a.jpg","b.jpg"])").contains("error")); }

#ifdef DTV_PICTURE
TEST_F(TvScreen, GivesAnEmptyFrameOnce) {
  const Frame first = frame();
  EXPECT_GT(first.number, 0U);
  EXPECT_EQ(first.jpeg.substr(0, 2), "\xFF\xD8");
  EXPECT_EQ(first.jpeg.substr(first.jpeg.size() - 2), "\xFF\xD9");
  EXPECT_LT(first.jpeg.size(), 10'000U);
  const Frame again = frame(first.number);
  EXPECT_EQ(again.number, first.number);
  EXPECT_EQ(again.jpeg, "");
  EXPECT_EQ(frame(first.number - 1).jpeg, first.jpeg);
}

TEST_F(TvScreen, NullPointersAreHarmless) {
  const std::uint64_t number = dtv_tv_screen(0, nullptr, nullptr);
  EXPECT_EQ(number, frame().number);
  std::uint32_t size = 7;
  EXPECT_EQ(dtv_tv_screen(0, nullptr, &size), number);
  EXPECT_EQ(size, 7U);
}

TEST_F(TvScreen, NumbersGrowFromOneStartToTheNext) {
  const Frame first = frame();
  dtv_tv_stop();
  EXPECT_EQ(frame().number, 0U);
  EXPECT_EQ(frame().jpeg, "");
  ASSERT_EQ(tv_start(folder.path), "");
  EXPECT_GT(frame().number, first.number);
}

TEST_F(TvScreen, TheCommandGivesTheFrameInBase64) {
  EXPECT_FALSE(screen().contains("jpeg"));
  const std::string text(screen(R"(["screen","a.jpg"])").at("jpeg").as_string());
  EXPECT_EQ(text.substr(0, 4), "/9j/");  // FF D8 FF
  EXPECT_EQ(text.size(), (frame().jpeg.size() + 2) / 3 * 4);
}
#else
TEST_F(TvScreen, ThereAreNoFrames) {
  EXPECT_EQ(frame().number, 0U);
  EXPECT_EQ(frame().jpeg, "");
}
#endif

}  // namespace
