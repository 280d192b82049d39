// What the screen shows of a real broadcast: both pictures in their regions, their reasons, sound and subtitles.
#ifdef DTV_PICTURE
#include <turbojpeg.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <boost/json.hpp>
#include <cstdlib>
#include <thread>

#include "rooms/antenna/antenna_test.h"
#include "rooms/tuner/tuner_test.h"

namespace {

constexpr int kWidth = 640, kHeight = 360;

using Colour = std::array<int, 3>;  // red, green, blue

bool is_red(Colour colour) { return colour[0] > 200 && colour[1] < 60 && colour[2] < 60; }
bool is_blue(Colour colour) { return colour[0] < 60 && colour[1] < 60 && colour[2] > 200; }
bool is_black(Colour colour) { return colour[0] < 30 && colour[1] < 30 && colour[2] < 30; }

// Multiplex 10: service 101 is red and has two sounds, 102 is blue.
const Bytes& red_and_blue() {
  static const Bytes kBytes = [] {
    const std::string path =
        (std::filesystem::temp_directory_path() / ("show_" + std::to_string(getpid()) + ".ts")).string();
    const std::string command =
        "ffmpeg -v error -f lavfi -i color=red:size=320x180:rate=25 -f lavfi -i color=blue:size=320x180:rate=25"
        " -f lavfi -i sine=440 -t 6 -map 0 -map 2 -map 2 -map 1 -map 2 -c:v mpeg2video -b:v 400k -g 12 -c:a mp2 -b:a "
        "96k"
        " -metadata:s:1 language=deu -metadata:s:2 language=fra -metadata:s:4 language=eng"
        " -program title=One:program_num=101:st=0:st=1:st=2 -program title=Two:program_num=102:st=3:st=4"
        " -mpegts_transport_stream_id 10 -mpegts_original_network_id 1 -mpegts_flags +nit -muxrate 2000k -f mpegts " +
        path;
    EXPECT_EQ(std::system(command.c_str()), 0) << command;  // NOLINT(cert-env33-c,concurrency-mt-unsafe)
    std::ifstream file(path, std::ios::binary);
    std::filesystem::remove(path);  // it stays open
    return Bytes{std::istreambuf_iterator<char>(file), {}};
  }();
  return kBytes;
}

// The same with damage in each packet of the blue picture.
Bytes red_and_broken() {
  constexpr int kBluePid = 0x103;
  Bytes bytes = red_and_blue();
  for (std::size_t at = 0; at + 188 <= bytes.size(); at += 188)
    if (((bytes[at + 1] & 0x1F) << 8 | bytes[at + 2]) == kBluePid)
      for (std::size_t i = at + 40; i < at + 188; i += 7) bytes[i] ^= 0x5A;
  return bytes;
}

struct TvShow : TunerSet {
  explicit TvShow(const Bytes& multiplex = red_and_blue()) {
    const std::string air = home.path + "/air";
    std::filesystem::create_directory(air);
    write_bytes(air + "/10.ts", multiplex);
    expect_done(antenna(air));
    read_antenna();
    import_channels();
    expect_done(run({"tune", "1"}));
  }

  static boost::json::object screen() { return boost::json::parse(run({"screen"})).as_object(); }

  // The newest frame's pixels; empty: there is none.
  static Bytes pixels() {
    std::uint8_t* bytes = nullptr;
    std::uint32_t size = 0;
    if (dtv_tv_screen(0, &bytes, &size) == 0 || bytes == nullptr) return {};
    Bytes decoded(std::size_t{3} * kWidth * kHeight);
    auto* const decompressor = tjInitDecompress();
    const int result = tjDecompress2(decompressor, bytes, size, decoded.data(), kWidth, 0, kHeight, TJPF_RGB, 0);
    EXPECT_EQ(result, 0) << tjGetErrorStr2(decompressor);
    tjDestroy(decompressor);
    std::free(bytes);
    return decoded;
  }

  // Whether a frame comes in which each place of the panel has its colour.
  struct Spot {
    int x, y;
    bool (*is)(Colour colour);
  };
  static bool shows(const std::vector<Spot>& spots) {
    return reports([&](const auto&) {
      const Bytes frame = pixels();
      return std::ranges::all_of(spots, [&](const Spot& spot) {
        const int pixel = spot.y / 3 * kWidth + spot.x / 3;
        const std::size_t at = std::size_t{3} * static_cast<std::size_t>(pixel);
        return !frame.empty() && spot.is({frame[at], frame[at + 1], frame[at + 2]});
      });
    });
  }

  // Lets the set work until `screen` answers so.
  static bool reports(const std::function<bool(const boost::json::object&)>& condition) {
    return comes_true([&] {
      dtv_tv_advance(100);
      std::this_thread::sleep_for(std::chrono::milliseconds(10));  // for the set's threads
      return condition(screen());
    });
  }

  static std::string word(const boost::json::object& object, const char* member) {
    const auto* const found = object.if_contains(member);
    return found == nullptr || !found->is_string() ? "" : std::string(found->as_string());
  }
  static std::string second(const boost::json::object& shown, const char* member) {
    return shown.contains("second") ? word(shown.at("second").as_object(), member) : "";
  }
  static std::string sound(const boost::json::object& shown) {
    return shown.contains("sound") ? word(shown.at("sound").as_object(), "language") : "";
  }
};

TEST_F(TvShow, BothPicturesAreInTheirRegions) {
  ASSERT_TRUE(shows({{960, 540, is_red}, {1620, 195, is_red}})) << run({"screen"});
  EXPECT_FALSE(screen().contains("second"));
  expect_done(run({"multiview", "channel", "2"}));
  EXPECT_TRUE(shows({{960, 540, is_red},
                     {1390, 70, is_blue},
                     {1620, 195, is_blue},
                     {1850, 320, is_blue},
                     {1365, 195, is_red},
                     {1620, 345, is_red}}))
      << run({"screen"});
  expect_done(run({"key", "PIPPOS"}));
  EXPECT_TRUE(shows({{1620, 195, is_red}, {1620, 885, is_blue}})) << run({"screen"});
  expect_done(run({"multiview", "pop"}));
  EXPECT_TRUE(shows({{480, 540, is_red}, {1440, 540, is_blue}, {960, 100, is_black}, {960, 1000, is_black}}))
      << run({"screen"});
  expect_done(run({"multiview", "swap"}));
  EXPECT_TRUE(shows({{480, 540, is_blue}, {1440, 540, is_red}})) << run({"screen"});
  // The smallest region, where the second picture covers the main one, and a region of an odd size.
  ASSERT_EQ(a_vextvapi_highlevel_set_displayregion(0, 0, 0, 1920, 1080), 0);
  ASSERT_EQ(a_vextvapi_highlevel_set_displayregion(1, 1904, 1064, 16, 16), 0);
  EXPECT_TRUE(shows({{960, 540, is_blue}, {1440, 540, is_blue}, {1890, 1070, is_blue}})) << run({"screen"});
  ASSERT_EQ(a_vextvapi_highlevel_set_displayregion(1, 101, 53, 611, 347), 0);
  EXPECT_TRUE(shows({{960, 540, is_blue}, {400, 220, is_red}, {80, 220, is_blue}, {740, 220, is_blue}}))
      << run({"screen"});
  expect_done(run({"multiview", "stop"}));
  EXPECT_TRUE(shows({{480, 540, is_blue}, {1440, 540, is_blue}, {960, 100, is_blue}})) << run({"screen"});
}

TEST_F(TvShow, TheSecondPictureHasAReasonOfItsOwn) {
  expect_done(run({"multiview", "channel", "2"}));
  ASSERT_TRUE(shows({{960, 540, is_red}, {1620, 195, is_blue}})) << run({"screen"});
  const boost::json::object seen = screen();
  EXPECT_EQ(seen.at("second").at("channel"), 2);
  EXPECT_EQ(seen.at("second").at("shown"), true);
  EXPECT_EQ(boost::json::serialize(seen.at("second").at("region")), R"({"x":1380,"y":60,"width":480,"height":270})");
  EXPECT_EQ(second(seen, "reason"), "");
  expect_done(run({"channel", "2", "block"}));
  EXPECT_TRUE(reports([](const auto& now) { return second(now, "reason") == "blocked_channel"; })) << run({"screen"});
  EXPECT_TRUE(shows({{960, 540, is_red}, {1620, 195, is_black}})) << run({"screen"});
  expect_done(run({"multiview", "channel", "42"}));
  EXPECT_TRUE(reports([](const auto& now) { return second(now, "reason") == "no_signal"; })) << run({"screen"});
  expect_done(run({"channel", "1", "block"}));
  expect_done(run({"channel", "2", "unblock"}));
  expect_done(run({"multiview", "channel", "2"}));
  EXPECT_TRUE(shows({{960, 540, is_black}, {1620, 195, is_blue}})) << run({"screen"});
  EXPECT_EQ(word(screen(), "reason"), "blocked_channel");
  expect_done(run({"power", "standby"}));
  EXPECT_TRUE(shows({{960, 540, is_black}, {1620, 195, is_black}})) << run({"screen"});
  EXPECT_FALSE(screen().contains("second"));
}

struct TvBrokenShow : TvShow {
  TvBrokenShow() : TvShow(red_and_broken()) {}
};

TEST_F(TvBrokenShow, ABrokenSecondPictureDoesNotDisturbTheMainOne) {
  ASSERT_TRUE(shows({{960, 540, is_red}})) << run({"screen"});
  testing::internal::CaptureStderr();
  expect_done(run({"multiview", "channel", "2"}));
  EXPECT_TRUE(reports([](const auto& now) { return now.contains("second") && second(now, "reason").empty(); }));
  const std::uint64_t first = dtv_tv_screen(0, nullptr, nullptr);
  bool always = true;
  EXPECT_TRUE(reports([&](const auto& now) {
    const Bytes frame = pixels();
    const std::size_t at = std::size_t{3} * (kHeight / 2 * kWidth + kWidth / 2);
    always = always && now.at("shown").as_bool() && is_red({frame.at(at), frame.at(at + 1), frame.at(at + 2)});
    return dtv_tv_screen(0, nullptr, nullptr) >= first + 20;
  }));
  EXPECT_TRUE(always);
  const std::string log = testing::internal::GetCapturedStderr();
  EXPECT_LE(std::ranges::count(log, '\n'), 32) << log;
}

TEST_F(TvShow, ThePictureThatIsHeardPlaysTheChosenSound) {
  EXPECT_TRUE(reports([](const auto& now) { return sound(now) == "deu"; })) << run({"screen"});
  expect_done(run({"tuner", "audio", "2"}));
  EXPECT_TRUE(reports([](const auto& now) { return sound(now) == "fra"; })) << run({"screen"});
  expect_done(run({"key", "MTS/AUDIO"}));
  EXPECT_TRUE(reports([](const auto& now) { return sound(now) == "deu"; })) << run({"screen"});
  expect_done(run({"multiview", "channel", "2"}));
  expect_done(run({"multiview", "focus", "sub"}));
  EXPECT_TRUE(reports([](const auto& now) { return sound(now) == "eng" && now.at("focus") == "sub"; }))
      << run({"screen"});
  expect_done(run({"multiview", "focus", "main"}));
  EXPECT_TRUE(reports([](const auto& now) { return sound(now) == "deu"; })) << run({"screen"});
  expect_done(run({"config", "g_aud_lang__aud_language", "fra"}));
  expect_done(run({"tune", "2"}));
  expect_done(run({"multiview", "stop"}));
  expect_done(run({"tune", "1"}));
  EXPECT_TRUE(reports([](const auto& now) { return sound(now) == "fra"; })) << run({"screen"});
}

TEST_F(TvShow, APictureThatEndsGoesAwayAtOnce) {
  ASSERT_TRUE(shows({{960, 540, is_red}}));
  expect_done(run({"channel", "1", "block"}));
  EXPECT_TRUE(reports([](const auto& now) { return word(now, "reason") == "blocked_channel"; }));
  EXPECT_TRUE(shows({{960, 540, is_black}}));
  expect_done(run({"tuner", "pin", "0000"}));
  EXPECT_TRUE(shows({{960, 540, is_red}})) << run({"screen"});
  expect_done(run({"channels", "clear"}));
  EXPECT_TRUE(reports([](const auto& now) { return word(now, "reason") == "no_channel"; }));
  EXPECT_TRUE(shows({{960, 540, is_black}}));
}

}  // namespace
#endif
