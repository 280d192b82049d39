#include "rooms/photos/photos.h"

#include <sys/types.h>

#include <algorithm>
#include <boost/json.hpp>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <future>
#include <memory>
#include <thread>

#include "core/timers.h"
#include "rooms/library/parts.h"
#include "rooms/library/reader_support.h"
#include "rooms/photos/view.h"
#include "rooms/usb/usb.h"
#include "tests/unit/tv/support.h"

namespace json = boost::json;

namespace {

// ---- How a picture lies ----

// Red, green / blue, white.
MediaPicture quadrants(std::uint32_t width, std::uint32_t height) {
  MediaPicture picture{.width = width, .height = height};
  for (std::uint32_t y = 0; y < height; ++y)
    for (std::uint32_t x = 0; x < width; ++x) {
      const bool right = x >= width / 2, below = y >= height / 2;
      const auto on = [](bool value) { return static_cast<std::uint8_t>(value ? 255 : 0); };
      picture.pixels.insert(picture.pixels.end(), {on(below), on(right), on(right == below), 0});
    }
  return picture;
}

char colour_at(const Canvas& canvas, int x, int y) {
  const std::uint8_t* const pixel =
      &canvas.pixels[static_cast<std::size_t>(y) * kScreenStride + static_cast<std::size_t>(x) * 4];
  const int bits = (pixel[2] > 150 ? 4 : 0) | (pixel[1] > 150 ? 2 : 0) | (pixel[0] > 150 ? 1 : 0);
  constexpr char kNames[] = {'.', 'B', 'G', '?', 'R', '?', '?', 'W'};
  return kNames[bits];
}

// The corners of the picture's place in the middle of the canvas, which is so many percent of it wide and high.
std::string corners(const Canvas& canvas, int wide = 100, int high = 100) {
  const auto x = [&](int share) { return canvas.width / 2 + canvas.width * wide * share / 20000; };
  const auto y = [&](int share) { return canvas.height / 2 + canvas.height * high * share / 20000; };
  return {colour_at(canvas, x(-90), y(-90)), colour_at(canvas, x(90), y(-90)), colour_at(canvas, x(-90), y(90)),
          colour_at(canvas, x(90), y(90))};
}

std::string drawn(const MediaPicture& picture, const PhotoView& view, int wide = 100, int high = 100) {
  const auto canvas = std::make_unique<Canvas>();
  std::ranges::fill(canvas->pixels, 0x55);
  view_draw(picture, view, *canvas);
  return corners(*canvas, wide, high);
}

struct Lies {
  PhotoView view;
  const char* corners;
};

TEST(PhotoView, turns_zooms_and_pans) {
  // As wide as the canvas, and twice as fine.
  const MediaPicture picture = quadrants(1280, 720);
  constexpr Lies kLies[] = {
      {{}, "RGBW"},
      {{.rotation = 180}, "WBGR"},
      {{.zoom = 200}, "RGBW"},
      {{.zoom = 200, .pan_x = -100, .pan_y = -100}, "RRRR"},
      {{.zoom = 200, .pan_x = 100, .pan_y = -100}, "GGGG"},
      {{.zoom = 200, .pan_x = -100, .pan_y = 100}, "BBBB"},
      {{.zoom = 200, .pan_x = 100, .pan_y = 100}, "WWWW"},
      {{.zoom = 200, .pan_y = 100}, "BWBW"},
      {{.rotation = 180, .zoom = 200, .pan_x = -100, .pan_y = -100}, "WWWW"},
      {{.zoom = 50}, "...."},
      {{.zoom = 50, .pan_x = 100, .pan_y = 100}, "...."},
      {{.zoom = 800, .pan_x = 100, .pan_y = -100}, "GGGG"},
  };
  for (const Lies& each : kLies)
    EXPECT_EQ(drawn(picture, each.view), each.corners) << each.view.rotation << each.view.zoom;
  EXPECT_EQ(drawn(picture, {.zoom = 50}, 50, 50), "RGBW") << "in the middle";
}

TEST(PhotoView, has_bars_where_the_shapes_differ) {
  const MediaPicture wide = quadrants(1280, 720);
  // Standing, it is 202 pixels wide of 640.
  EXPECT_EQ(drawn(wide, {.rotation = 90}, 31, 100), "BRWG");
  EXPECT_EQ(drawn(wide, {.rotation = 270}, 31, 100), "GWRB");
  EXPECT_EQ(drawn(wide, {.rotation = 90}), "....");
  EXPECT_EQ(drawn(quadrants(10, 10), {}, 56, 100), "RGBW") << "a small one is made larger";
  EXPECT_EQ(drawn(quadrants(2000, 2), {}), "....") << "a line in the middle";
}

// ---- The viewer ----

#ifdef DTV_PICTURE

json::object photo(std::vector<std::string> words) {
  json::array command{"photo"};
  for (std::string& word : words) command.emplace_back(std::move(word));
  return json::parse(tv_control(json::serialize(command))).as_object();
}

struct PhotosTest : testing::Test {
  ManualClock clock;
  TvFolder state;
  TvFolder world;
  std::string stick;  // its folder
  std::string mount;

  void SetUp() override {
    stick = world.path + "/stick";
    std::filesystem::create_directory(stick);
    dtv_tv_stick_root(world.path.c_str());
    ASSERT_EQ(tv_start(state.path), "");
    tv_control(json::serialize(json::array{"stick", "insert", stick}));
    ASSERT_EQ(usb_sticks().size(), 1U);
    mount = usb_sticks()[0].mount_point;
    write("a.png", "color=red:s=320x180");
    write("b.png", "color=0x00ff00:s=320x180");
    if (!std::filesystem::exists(stick + "/b.png")) GTEST_SKIP() << "ffmpeg is not installed";
  }
  void TearDown() override { a_vextvapi_img_playback_deinitRes(); }

  void write(const std::string& name, const std::string& source) const {
    const std::string command =
        "ffmpeg -v error -nostdin -y -f lavfi -i " + source + " -frames:v 1 '" + stick + "/" + name + "'";
    // NOLINTNEXTLINE(cert-env33-c,concurrency-mt-unsafe)
    if (std::system(command.c_str()) != 0) std::filesystem::remove(stick + "/" + name);
  }
  std::string at(const std::string& name) const { return mount + "/" + name; }
  // The library learns which photos were written.
  void scan() const {
    for (const char* const word : {"remove", "insert"}) tv_control(json::serialize(json::array{"stick", word, stick}));
    scans_settle();
  }
};

// What the screen would draw; "none": no photo is displayed.
std::string on_screen() {
  const Drawer* const drawer = photos_drawer();
  if (drawer == nullptr) return "none";
  EXPECT_NE(drawer->newest(kScreenWidth, kScreenHeight), 0U);
  const auto canvas = std::make_unique<Canvas>();
  return drawer->draw(*canvas) ? corners(*canvas) : "not drawn";
}

TEST_F(PhotosTest, an_application_opens_decodes_displays_and_closes) {
  EXPECT_EQ(a_vextvapi_img_playback_initRes(), 0);
  EXPECT_EQ(a_vextvapi_img_playback_open(at("a.png").c_str(), 0, 0), 0);
  EXPECT_EQ(a_vextvapi_img_playback_decode(), 0);
  EXPECT_EQ(on_screen(), "none") << "it is not displayed yet";
  EXPECT_EQ(a_vextvapi_img_playback_display(), 0);
  EXPECT_EQ(on_screen(), "RRRR");
  EXPECT_TRUE(photos_shown()->application);
  EXPECT_EQ(a_vextvapi_img_playback_rotate(VEXTVAPI_IMAGE_ROTATION_RIGHT), 0);
  EXPECT_EQ(on_screen(), "....") << "it stands, with bars beside it";
  EXPECT_EQ(a_vextvapi_img_playback_zoom(400), 0);
  EXPECT_EQ(on_screen(), "RRRR");
  const json::object shown = photo({});
  EXPECT_EQ(shown.at("rotation"), 90);
  EXPECT_EQ(shown.at("zoom"), 400);
  EXPECT_EQ(shown.at("width"), 320);
  EXPECT_EQ(shown.at("application"), true);
  EXPECT_EQ(a_vextvapi_img_playback_close(), 0);
  EXPECT_EQ(on_screen(), "none");
  EXPECT_EQ(photo({}).at("state"), "none");
}

TEST_F(PhotosTest, calls_in_the_wrong_order_are_refused) {
  const std::string path = at("a.png");
  const auto open = [&path] { return a_vextvapi_img_playback_open(path.c_str(), 0, 0); };
  expect_words(refusal(open), {"prepared"});
  ASSERT_EQ(a_vextvapi_img_playback_initRes(), 0);
  expect_words(refusal(a_vextvapi_img_playback_decode), {"no picture is open"});
  expect_words(refusal(a_vextvapi_img_playback_display), {"no picture is open"});
  expect_words(refusal(a_vextvapi_img_playback_close), {"no picture is open"});
  expect_words(refusal(a_vextvapi_img_playback_tfxStop), {"no effect"});
  ASSERT_EQ(open(), 0);
  expect_words(refusal(a_vextvapi_img_playback_display), {"not been decoded"});
  expect_words(refusal([] { return a_vextvapi_img_playback_rotate(90); }), {"not been decoded"});
  ASSERT_EQ(a_vextvapi_img_playback_deinitRes(), 0);
  expect_words(refusal(a_vextvapi_img_playback_decode), {"no picture is open"});
}

TEST_F(PhotosTest, arguments_out_of_range_are_refused) {
  ASSERT_EQ(a_vextvapi_img_playback_initRes(), 0);
  const auto open = [](const std::string& path, INT32 mode = 0, INT32 flags = 0) {
    return [=] { return a_vextvapi_img_playback_open(path.c_str(), mode, flags); };
  };
  expect_words(refusal([] { return a_vextvapi_img_playback_open(nullptr, 0, 0); }), {"no path"});
  expect_words(refusal(open("")), {"1 to 255 bytes"});
  expect_words(refusal(open("/" + std::string(255, 'a'))), {"1 to 255 bytes"});
  expect_words(refusal(open(at("a.png"), 3)), {"mode"});
  expect_words(refusal(open(at("a.png"), 0, 1)), {"flags"});
  expect_words(refusal(open("/etc/passwd")), {"not on an inserted stick"});
  expect_words(refusal(open(at("../../tv.sqlite"))), {"cannot be opened"});
  expect_words(refusal(open(at("none.png"))), {"cannot be opened"});
  expect_words(refusal([] { return a_vextvapi_img_playback_rotate(45); }), {"0, 90, 180 or 270", "45"});
  expect_words(refusal([] { return a_vextvapi_img_playback_zoom(24); }), {"25 to 800"});
  expect_words(refusal([] { return a_vextvapi_img_playback_zoom(801); }), {"25 to 800"});
  expect_words(refusal([] { return a_vextvapi_img_playback_tfxPlay(2); }), {"a fade"});
  char place[256];
  expect_words(refusal([] { return a_vextvapi_img_playback_getThumbnail_path("/a", 1, 1, nullptr); }), {"missing"});
  expect_words(refusal([&] { return a_vextvapi_img_playback_getThumbnail_path(nullptr, 1, 1, place); }), {"missing"});
  expect_words(refusal([&] { return a_vextvapi_img_playback_getThumbnail_path("/a", 0, 1, place); }), {"1 to 1280"});
  expect_words(refusal([&] { return a_vextvapi_img_playback_getThumbnail_path("/a", 1, 1 << 30, place); }),
               {"1 to 1280"});
}

TEST_F(PhotosTest, a_file_that_is_no_photo_is_not_decoded) {
  std::ofstream(stick + "/text.jpg") << "This is a text.";
  ASSERT_EQ(a_vextvapi_img_playback_initRes(), 0);
  ASSERT_EQ(a_vextvapi_img_playback_open(at("text.jpg").c_str(), 0, 0), 0);
  expect_words(refusal(a_vextvapi_img_playback_decode), {"text.jpg", "not a photo"});
  EXPECT_EQ(a_vextvapi_img_playback_close(), 0);
  EXPECT_TRUE(photo({"show", at("text.jpg")}).contains("error"));
  EXPECT_EQ(on_screen(), "none");
}

TEST_F(PhotosTest, a_viewer_shows_turns_zooms_and_closes) {
  const json::object shown = photo({"show", at("b.png")});
  ASSERT_FALSE(shown.contains("error")) << json::serialize(shown);
  EXPECT_EQ(shown.at("path"), json::value(at("b.png")));
  EXPECT_EQ(shown.at("application"), false);
  EXPECT_EQ(on_screen(), "GGGG");
  EXPECT_EQ(photo({"rotate"}).at("rotation"), 90);
  EXPECT_EQ(photo({"rotate"}).at("rotation"), 180);
  EXPECT_EQ(photo({"zoom", "200"}).at("zoom"), 200);
  EXPECT_EQ(photo({"pan", "-100", "50"}).at("pan"), json::value({{"x", -100}, {"y", 50}}));
  for (const std::vector<std::string>& wrong : {std::vector<std::string>{"zoom", "5"},
                                                {"pan", "101", "0"},
                                                {"pan", "x", "0"},
                                                {"slideshow", "maybe"},
                                                {"slideshow", "on", "1"}})
    EXPECT_TRUE(photo(wrong).contains("error")) << wrong[0];
  EXPECT_EQ(photo({"close"}).at("state"), "none");
  EXPECT_EQ(on_screen(), "none");
  for (const std::vector<std::string>& none : {std::vector<std::string>{"rotate"}, {"next"}, {"slideshow", "on"}})
    EXPECT_TRUE(photo(none).contains("error")) << none[0];
}

TEST_F(PhotosTest, a_viewers_photo_takes_the_place_of_an_applications) {
  ASSERT_EQ(a_vextvapi_img_playback_initRes(), 0);
  ASSERT_EQ(a_vextvapi_img_playback_open(at("a.png").c_str(), 0, 0), 0);
  ASSERT_EQ(a_vextvapi_img_playback_decode(), 0);
  ASSERT_EQ(a_vextvapi_img_playback_display(), 0);
  EXPECT_EQ(photos_show(at("b.png")), "");
  EXPECT_EQ(on_screen(), "GGGG");
  expect_words(refusal([] { return a_vextvapi_img_playback_rotate(90); }), {"no picture is open"});
  expect_words(refusal(a_vextvapi_img_playback_close), {"no picture is open"});
  EXPECT_EQ(on_screen(), "GGGG");
}

TEST_F(PhotosTest, keys_act_only_while_a_photo_is_displayed) {
  EXPECT_FALSE(photos_press_turn());
  EXPECT_FALSE(photos_press_zoom());
  EXPECT_FALSE(photos_press_next(1));
  EXPECT_FALSE(photos_press_pause());
  EXPECT_FALSE(photos_press_stop());
  ASSERT_EQ(photos_show(at("a.png")), "");
  EXPECT_TRUE(photos_press_turn());
  EXPECT_EQ(photo({}).at("rotation"), 90);
  for (const int zoom : {150, 200, 400, 100}) {
    EXPECT_TRUE(photos_press_zoom());
    EXPECT_EQ(photo({}).at("zoom"), zoom);
  }
  EXPECT_TRUE(photos_press_pause());
  EXPECT_TRUE(photos_shown()->slide_show);
  EXPECT_TRUE(photos_press_pause());
  EXPECT_FALSE(photos_shown()->slide_show);
  EXPECT_TRUE(photos_press_stop());
  EXPECT_EQ(on_screen(), "none");
}

TEST_F(PhotosTest, fades_from_one_picture_to_the_next) {
  ASSERT_EQ(a_vextvapi_img_playback_initRes(), 0);
  ASSERT_EQ(a_vextvapi_img_playback_tfxPlay(VEXTVAPI_IMAGE_EFFECT_FADE), 0);
  for (const char* const name : {"a.png", "b.png"}) {
    ASSERT_EQ(a_vextvapi_img_playback_open(at(name).c_str(), 0, 0), 0);
    ASSERT_EQ(a_vextvapi_img_playback_decode(), 0);
    ASSERT_EQ(a_vextvapi_img_playback_display(), 0);
  }
  EXPECT_EQ(on_screen(), "RRRR") << "the time stands still";
  dtv_tv_advance(300);
  const auto canvas = std::make_unique<Canvas>();
  ASSERT_TRUE(photos_drawer()->draw(*canvas));
  EXPECT_NEAR(canvas->pixels[2], 127, 12) << "half red";
  EXPECT_NEAR(canvas->pixels[1], 127, 12) << "half green";
  dtv_tv_advance(400);
  EXPECT_EQ(on_screen(), "GGGG");
}

TEST_F(PhotosTest, a_photo_that_is_decoded_after_a_channel_was_chosen_is_not_displayed) {
  scan();
  ASSERT_EQ(photos_show(at("a.png")), "");
  // The timers' thread is busy, so that the photo could come before it ends the display.
  static std::promise<void> go_on;
  static std::shared_future<void> goes_on;
  go_on = {};
  goes_on = go_on.get_future().share();
  static Timer busy;
  timer_set(busy, timer_now(), [] { goes_on.wait_for(std::chrono::seconds(10)); });
  EXPECT_TRUE(photos_press_next(1));
  photos_leave();
  std::this_thread::sleep_for(std::chrono::seconds(1));
  EXPECT_NE(on_screen(), "GGGG");
  go_on.set_value();
  dtv_tv_advance(1);
  EXPECT_EQ(on_screen(), "none");
}

TEST_F(PhotosTest, a_key_shows_the_next_photo_and_passes_over_a_broken_one_in_a_slide_show) {
  std::ofstream(stick + "/aa.jpg") << "This is a text.";
  scan();
  ASSERT_EQ(photos_show(at("a.png")), "");
  const auto comes = [](const char* corners) {
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (on_screen() != corners && std::chrono::steady_clock::now() < end)
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
    return on_screen();
  };
  ASSERT_EQ(photos_slide_show(true), "");
  dtv_tv_advance(5000);
  EXPECT_EQ(comes("GGGG"), "GGGG");
  EXPECT_TRUE(photos_press_next(1)) << "from the last one to the first";
  EXPECT_EQ(comes("RRRR"), "RRRR");
}

TEST_F(PhotosTest, nothing_is_displayed_in_standby) {
  ASSERT_EQ(a_vextvapi_img_playback_initRes(), 0);
  ASSERT_EQ(a_vextvapi_img_playback_open(at("a.png").c_str(), 0, 0), 0);
  ASSERT_EQ(a_vextvapi_img_playback_decode(), 0);
  tv_control(R"(["power","standby"])");
  expect_words(refusal(a_vextvapi_img_playback_display), {"standby"});
  EXPECT_EQ(photos_show(at("a.png")), "the set is in standby");
  EXPECT_EQ(on_screen(), "none");
  tv_control(R"(["power","on"])");
  EXPECT_EQ(a_vextvapi_img_playback_display(), 0);
  EXPECT_EQ(on_screen(), "RRRR");
}

TEST_F(PhotosTest, shows_a_download_by_its_whole_path) {
  const std::string downloads = state.path + "/downloads";
  std::filesystem::create_directory(downloads);
  std::filesystem::copy(stick + "/a.png", downloads + "/a.png");
  std::filesystem::create_symlink(stick + "/b.png", downloads + "/link.png");
  EXPECT_EQ(photos_show(downloads + "/a.png"), "");
  EXPECT_EQ(on_screen(), "RRRR");
  ASSERT_EQ(a_vextvapi_img_playback_initRes(), 0);
  ASSERT_EQ(a_vextvapi_img_playback_open((downloads + "/a.png").c_str(), 0, 0), 0);
  ASSERT_EQ(a_vextvapi_img_playback_decode(), 0);
  ASSERT_EQ(a_vextvapi_img_playback_display(), 0);
  tv_control(R"(["stick","remove","all"])");
  photos_sticks_changed();
  dtv_tv_advance(1);
  EXPECT_EQ(on_screen(), "RRRR") << "no stick has it";
  EXPECT_NE(a_vextvapi_img_playback_open((downloads + "/link.png").c_str(), 0, 0), 0);
  EXPECT_NE(a_vextvapi_img_playback_open((downloads + "/../tv.sqlite").c_str(), 0, 0), 0);
}

// The processes that this one has started and that read media files.
std::vector<pid_t> readers() {
  std::vector<pid_t> found;
  for (const auto& thread : std::filesystem::directory_iterator("/proc/self/task")) {
    std::ifstream children(thread.path() / "children");
    for (pid_t child = 0; children >> child;) {
      std::string name;
      std::getline(std::ifstream("/proc/" + std::to_string(child) + "/comm"), name);
      if (name.starts_with("dtv-media-read")) found.push_back(child);
    }
  }
  return found;
}

TEST_F(PhotosTest, a_thumbnail_that_cannot_be_made_in_time_is_refused) {
  char place[256];
  ASSERT_EQ(a_vextvapi_img_playback_getThumbnail_path(at("a.png").c_str(), 100, 100, place), 0);
  ASSERT_FALSE(readers().empty());
  for (const pid_t reader : readers()) kill(reader, SIGSTOP);
  const auto begin = std::chrono::steady_clock::now();
  expect_words(refusal([&] { return a_vextvapi_img_playback_getThumbnail_path(at("b.png").c_str(), 100, 100, place); }),
               {"takes more than 5 s"});
  EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(8));
  for (const pid_t reader : readers()) kill(reader, SIGCONT);
}

TEST_F(PhotosTest, leaves_when_a_channel_is_chosen_and_when_the_stick_is_removed) {
  ASSERT_EQ(photos_show(at("a.png")), "");
  photos_leave();
  dtv_tv_advance(1);
  EXPECT_EQ(on_screen(), "none");
  ASSERT_EQ(photos_show(at("a.png")), "");
  tv_control(R"(["stick","remove","all"])");
  photos_sticks_changed();
  dtv_tv_advance(1);
  EXPECT_EQ(on_screen(), "none");
}

#endif

}  // namespace
