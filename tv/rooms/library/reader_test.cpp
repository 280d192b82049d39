// What dtv-media-reader says of files, compared with what ffprobe and exif say of them, and with what they were made
// of.
#include "rooms/library/reader.h"

#include <turbojpeg.h>

#include <algorithm>
#include <boost/json.hpp>
#include <chrono>
#include <cmath>
#include <map>
#include <set>
#include <sstream>

#include "core/text.h"
#include "rooms/library/reader_support.h"

namespace json = boost::json;

namespace {

#ifdef DTV_PICTURE

// ---- ffprobe ----

// A member of the text's objects, by its name without case; empty: there is none.
std::string tag(const json::value& ffprobe, const std::string& name) {
  const auto of = [&](const json::value& object) -> std::string {
    const json::value* const tags = object.as_object().if_contains("tags");
    if (tags == nullptr) return {};
    for (const auto& [key, value] : tags->as_object())
      if (equal_ignoring_case(key, name)) return std::string(value.as_string());
    return {};
  };
  std::string text = of(ffprobe.at("format"));
  for (const json::value& stream : ffprobe.at("streams").as_array())
    if (text.empty() && stream.at("disposition").at("attached_pic") == 0) text = of(stream);
  return text;
}

constexpr std::uint64_t kMostPhotoPixels = std::uint64_t{64} << 20;  // docs/limits.md

struct Expected {
  bool readable = false;
  MediaFacts facts = {};
};

Expected by_ffprobe(const std::string& path) {
  const std::string text = printed("ffprobe -v quiet -of json -show_format -show_streams " + in_shell(path));
  const json::value parsed = json::parse(text);
  const json::object& found = parsed.as_object();
  if (!found.contains("format") || !found.contains("streams")) return {};
  Expected expected{.readable = true};
  MediaFacts& facts = expected.facts;
  const std::string format(found.at("format").at("format_name").as_string());
  bool audio = false;
  for (const json::value& stream : found.at("streams").as_array()) {
    const std::string type(stream.at("codec_type").as_string());
    audio |= type == "audio";
    if (type != "video") continue;
    if (stream.at("disposition").at("attached_pic") != 0) {
      facts.has_cover = true;
    } else if (facts.kind == MEDIA_TYPE_NULL) {
      const bool still = format.ends_with("_pipe") || format == "image2" || format == "gif" || format == "apng";
      facts.kind = still ? MEDIA_TYPE_PHOTO : MEDIA_TYPE_VIDEO;
      facts.width = static_cast<std::uint32_t>(stream.at("width").as_int64());
      facts.height = static_cast<std::uint32_t>(stream.at("height").as_int64());
    }
  }
  if (facts.kind == MEDIA_TYPE_NULL && audio) facts.kind = MEDIA_TYPE_MUSIC;
  if (const json::value* const duration = found.at("format").as_object().if_contains("duration");
      duration != nullptr && facts.kind != MEDIA_TYPE_PHOTO)
    facts.duration_ms =
        static_cast<std::uint64_t>(std::floor(std::stod(std::string(duration->as_string())) * 1000 + 1e-6));
  facts.title = clean_text(tag(found, "title"), 127);
  facts.artist = clean_text(tag(found, "artist"), 127);
  facts.album = clean_text(tag(found, "album"), 127);
  facts.genre = clean_text(tag(found, "genre"), 127);
  return expected;
}

// ---- exif ----

struct ByExif {
  bool corrupt = false;  // exif gives up; the library that both use reads what is before the damage
  std::uint32_t orientation = 1;
  std::string date = {};  // as EXIF writes it
};

ByExif by_exif(const std::string& path) {
  const std::vector<std::string> turns = {"Top-left", "Top-right", "Bottom-right", "Bottom-left",
                                          "Left-top", "Right-top", "Right-bottom", "Left-bottom"};
  const std::string file = " " + in_shell(path) + " 2>/dev/null";
  const auto line = [](std::string text) { return text.substr(0, text.find('\n')); };
  ByExif result;
  result.corrupt = printed("exif -m " + in_shell(path) + " 2>&1").find("Corrupt data") != std::string::npos;
  const auto turn = std::ranges::find(turns, line(printed("exif -m --ifd=0 -t 0x0112" + file)));
  if (turn != turns.end()) result.orientation = static_cast<std::uint32_t>(turn - turns.begin() + 1);
  for (const char* const which : {"--ifd=EXIF -t 0x9003", "--ifd=EXIF -t 0x9004", "--ifd=0 -t 0x0132"}) {
    result.date = line(printed("exif -m " + std::string(which) + file));
    unsigned year = 0;
    if (std::sscanf(result.date.c_str(), "%u", &year) == 1 && year >= 1800) break;
    result.date.clear();
  }
  return result;
}

std::string date_text(const T_DATE_TIME& date) {
  if (date.iyear == 0) return {};
  char text[32];
  std::snprintf(text, sizeof text, "%04d:%02d:%02d %02d:%02d:%02d", date.iyear, date.imonth, date.iday, date.ihour,
                date.iminute, date.isecond);
  return text;
}

void expect_as_ffprobe(MediaReader& reader, const std::string& path) {
  SCOPED_TRACE(path);
  const Expected expected = by_ffprobe(path);
  const auto [result, facts, why] = facts_of(reader, path);
  const bool refused = result == ReadResult::kRefused ? !why.empty() : facts.kind == MEDIA_TYPE_NULL;
  // Files that were broken on purpose: ffprobe takes some for pictures by their names alone, and a JPEG's header has a
  // size where its picture has none.
  const bool broken = path.find("/fail/") != std::string::npos || path.find("/randomly-modified/") != std::string::npos;
  if (broken && (refused || expected.facts.width == 0)) return;
  const std::uint64_t pixels = std::uint64_t{expected.facts.width} * expected.facts.height;
  const bool has_picture = pixels > 0 || expected.facts.kind == MEDIA_TYPE_MUSIC;
  if (!expected.readable || !has_picture || pixels > kMostPhotoPixels) {
    EXPECT_TRUE(refused) << facts.width << "x" << facts.height;
    return;
  }
  ASSERT_EQ(result, ReadResult::kRead) << why;
  EXPECT_EQ(facts.kind, expected.facts.kind);
  EXPECT_EQ(facts.width, expected.facts.width);
  EXPECT_EQ(facts.height, expected.facts.height);
  EXPECT_EQ(facts.duration_ms, expected.facts.duration_ms);
  EXPECT_EQ(facts.has_cover, expected.facts.has_cover);
  EXPECT_EQ(facts.title, expected.facts.title);
  EXPECT_EQ(facts.artist, expected.facts.artist);
  EXPECT_EQ(facts.album, expected.facts.album);
  EXPECT_EQ(facts.genre, expected.facts.genre);
}

void expect_as_exif(MediaReader& reader, const std::string& path) {
  SCOPED_TRACE(path);
  const ByExif expected = by_exif(path);
  const auto [result, facts, why] = facts_of(reader, path);
  ASSERT_EQ(result, ReadResult::kRead) << why;
  if (expected.corrupt) return;
  EXPECT_EQ(facts.orientation, expected.orientation);
  EXPECT_EQ(date_text(facts.date), expected.date);
}

bool is_jpeg(const std::string& path) { return bytes_of(path).starts_with("\xFF\xD8\xFF"); }

struct Package {
  const char* name;
  std::vector<std::string> ends;
};

class ReaderPackage : public testing::TestWithParam<Package> {};

TEST_P(ReaderPackage, says_what_ffprobe_and_exif_say) {
  const std::vector<std::string> files = package_files(GetParam().name, GetParam().ends);
  if (files.empty()) GTEST_SKIP() << "the package " << GetParam().name << " is not installed";
  const MediaReaderHandle reader = media_reader_create();
  std::set<std::string> seen;  // the package has some files many times
  for (const std::string& path : files) {
    if (!seen.insert(bytes_of(path)).second) continue;
    expect_as_ffprobe(*reader, path);
    if (is_jpeg(path) && facts_of(*reader, path).result == ReadResult::kRead) expect_as_exif(*reader, path);
  }
}

const std::vector<std::string> kNames = {".jpg", ".jpeg", ".png", ".gif", ".bmp", ".tif",  ".tiff", ".ppm",
                                         ".mp3", ".ogg",  ".wav", ".mp4", ".avi", ".mpeg", ".webm"};

INSTANTIATE_TEST_SUITE_P(
    Debian, ReaderPackage,
    testing::Values(Package{"forensics-samples-files", kNames}, Package{"asc-music", kNames},
                    Package{"libtest-corpus-audio-mpd-perl", kNames},
                    Package{"gnome-user-docs", {"/c/gnome-help/figures/gnome-classic.png", ".webm"}},
                    Package{"gdk-pixbuf-tests", {".jpg", ".jpeg", ".png", ".bmp", ".tif", ".tiff"}}),
    [](const auto& info) {
      std::string name = info.param.name;
      std::ranges::replace(name, '-', '_');
      return name;
    });

// The package has the headers of cameras' files. With a picture behind them they are photos.
TEST(Reader, says_of_cameras_headers_what_exif_says) {
  const auto headers = package_files("golang-github-rwcarlsen-goexif-dev", {".jpg"});
  if (headers.empty()) GTEST_SKIP() << "the package golang-github-rwcarlsen-goexif-dev is not installed";
  const MediaFolder folder;
  if (!folder.make("-f lavfi -i testsrc=s=64x48 -frames:v 1", "plain.jpg")) GTEST_SKIP() << "ffmpeg is not installed";
  const std::string plain = bytes_of(folder.path + "/plain.jpg");
  const MediaReaderHandle reader = media_reader_create();
  int dated = 0;
  for (const std::string& path : headers) {
    const std::string bytes = bytes_of(path);
    const std::size_t exif = bytes.find(std::string("Exif\0\0", 6));
    if (exif == std::string::npos || exif < 4 || exif > 100) continue;
    const auto high = static_cast<unsigned char>(bytes[exif - 2]), low = static_cast<unsigned char>(bytes[exif - 1]);
    const std::string segment = bytes.substr(exif - 4, 2U + high * 256U + low);
    if (segment.size() != 2U + high * 256U + low) continue;
    const std::string photo = folder.write("photo.jpg", "\xFF\xD8" + segment + plain.substr(2));
    SCOPED_TRACE(path);
    expect_as_exif(*reader, photo);
    EXPECT_EQ(facts_of(*reader, photo).facts.width, 64U);
    dated += facts_of(*reader, photo).facts.date.iyear != 0 ? 1 : 0;
  }
  EXPECT_GE(dated, 40);
}

// ---- Files that are made here ----

struct Made {
  const char* name;
  const char* arguments;
  E_MEDIA_TYPE kind;
  std::uint32_t width, height;
  std::uint64_t duration_ms;  // as passed to ffmpeg; the containers round it
  const char* title;
  bool has_cover = false;
};

#define TONE "-f lavfi -i sine=d=3 "
#define BARS "-f lavfi -i smptebars=s=320x240:r=25:d=3 "
#define COVER "-f lavfi -i color=red:s=96x96:d=0.04 "
#define TEXTS "-metadata title='Wetter über Wien' -metadata artist='Wir' -metadata album='Das' -metadata genre='Pop' "

constexpr Made kMade[] = {
    {"a.mp3", TONE COVER "-map 0 -map 1 -frames:v 1 -c:v mjpeg -disposition:v attached_pic " TEXTS, MEDIA_TYPE_MUSIC, 0,
     0, 3000, "Wetter über Wien", true},
    {"a.flac", TONE COVER "-map 0 -map 1 -frames:v 1 -c:v png -disposition:v attached_pic " TEXTS, MEDIA_TYPE_MUSIC, 0,
     0, 3000, "Wetter über Wien", true},
    {"a.m4a", TONE COVER "-map 0 -map 1 -frames:v 1 -c:v mjpeg -disposition:v attached_pic " TEXTS, MEDIA_TYPE_MUSIC, 0,
     0, 3000, "Wetter über Wien", true},
    {"a.ogg", TONE TEXTS, MEDIA_TYPE_MUSIC, 0, 0, 3000, "Wetter über Wien"},
    {"a.opus", TONE TEXTS, MEDIA_TYPE_MUSIC, 0, 0, 3000, "Wetter über Wien"},
    {"a.wav", TONE, MEDIA_TYPE_MUSIC, 0, 0, 3000, ""},
    {"a.mp4", BARS TONE TEXTS, MEDIA_TYPE_VIDEO, 320, 240, 3000, "Wetter über Wien"},
    {"a.mkv", BARS TONE TEXTS, MEDIA_TYPE_VIDEO, 320, 240, 3000, "Wetter über Wien"},
    {"a.webm", BARS "-c:v libvpx -deadline realtime -cpu-used 8", MEDIA_TYPE_VIDEO, 320, 240, 3000, ""},
    {"a.ts", BARS TONE "-c:v mpeg2video", MEDIA_TYPE_VIDEO, 320, 240, 3000, ""},
    {"a.avi", BARS TONE "-c:v mpeg4", MEDIA_TYPE_VIDEO, 320, 240, 3000, ""},
    {"a.png", BARS "-frames:v 1", MEDIA_TYPE_PHOTO, 320, 240, 0, ""},
    {"a.webp", BARS "-frames:v 1", MEDIA_TYPE_PHOTO, 320, 240, 0, ""},
    {"a.bmp", BARS "-frames:v 1", MEDIA_TYPE_PHOTO, 320, 240, 0, ""},
    {"a.tiff", BARS "-frames:v 1", MEDIA_TYPE_PHOTO, 320, 240, 0, ""},
    {"a.gif", BARS "-frames:v 5", MEDIA_TYPE_PHOTO, 320, 240, 0, ""},
    {"50%03d.jpg", BARS "-frames:v 1 -update 1", MEDIA_TYPE_PHOTO, 320, 240, 0, ""},
};

class ReaderMade : public testing::TestWithParam<Made> {};

TEST_P(ReaderMade, is_read) {
  const Made& made = GetParam();
  const MediaFolder folder;
  // The name is given at the end; ffmpeg takes a percent sign in it for a number.
  if (!folder.make(made.arguments, std::string("made") + std::filesystem::path(made.name).extension().string()))
    GTEST_SKIP() << "ffmpeg is not installed, or cannot make " << made.name;
  const std::string path = folder.path + "/" + made.name;
  std::filesystem::rename(folder.path + "/made" + std::filesystem::path(made.name).extension().string(), path);
  const MediaReaderHandle reader = media_reader_create();
  const auto [result, facts, why] = facts_of(*reader, path);
  ASSERT_EQ(result, ReadResult::kRead) << why;
  EXPECT_EQ(facts.kind, made.kind);
  EXPECT_EQ(facts.width, made.width);
  EXPECT_EQ(facts.height, made.height);
  EXPECT_NEAR(static_cast<double>(facts.duration_ms), static_cast<double>(made.duration_ms), 120);
  EXPECT_EQ(facts.title, made.title);
  EXPECT_EQ(facts.has_cover, made.has_cover);
  EXPECT_EQ(facts.orientation, 1U);
  if (*made.title != '\0') {
    EXPECT_EQ(facts.artist, "Wir");
    EXPECT_EQ(facts.album, "Das");
    EXPECT_EQ(facts.genre, "Pop");
  }

  const OpenFile file(path);
  std::vector<std::uint8_t> jpeg;
  std::string none;
  const bool has_picture = made.width > 0 || made.has_cover;
  EXPECT_EQ(media_reader_thumbnail(*reader, file.number, path, 80, 80, jpeg, none),
            has_picture ? ReadResult::kRead : ReadResult::kRefused);
  EXPECT_EQ(none.empty(), has_picture) << none;
}

INSTANTIATE_TEST_SUITE_P(Files, ReaderMade, testing::ValuesIn(kMade), [](const auto& info) {
  std::string name = info.param.name;
  std::ranges::replace_if(
      name, [](char c) { return std::isalnum(static_cast<unsigned char>(c)) == 0; }, '_');
  return name;
});

// ---- Thumbnails ----

struct Pixels {
  int width = 0, height = 0;
  std::vector<std::uint8_t> bgrx = {};
  // "R", "G", "B", "W" or "?": the colour at hundredths of the width and height.
  std::string at(int x, int y) const {
    const std::size_t i = 4 * (static_cast<std::size_t>(height * y / 100) * static_cast<std::size_t>(width) +
                               static_cast<std::size_t>(width * x / 100));
    const auto is = [&](std::size_t colour) { return bgrx[i + colour] > 150; };
    const std::string colours = {is(2) ? 'r' : '-', is(1) ? 'g' : '-', is(0) ? 'b' : '-'};
    const std::map<std::string, std::string> names = {{"r--", "R"}, {"-g-", "G"}, {"--b", "B"}, {"rgb", "W"}};
    const auto found = names.find(colours);
    return found == names.end() ? "?" : found->second;
  }
  std::string corners() const { return at(15, 15) + at(85, 15) + at(15, 85) + at(85, 85); }
};

Pixels pixels_of(const std::vector<std::uint8_t>& jpeg) {
  Pixels pixels;
  const tjhandle turbo = tjInitDecompress();
  int subsampling = 0, colours = 0;
  EXPECT_EQ(tjDecompressHeader3(turbo, jpeg.data(), jpeg.size(), &pixels.width, &pixels.height, &subsampling, &colours),
            0);
  pixels.bgrx.resize(std::size_t{4} * static_cast<std::size_t>(pixels.width) * static_cast<std::size_t>(pixels.height));
  EXPECT_EQ(
      tjDecompress2(turbo, jpeg.data(), jpeg.size(), pixels.bgrx.data(), pixels.width, 0, pixels.height, TJPF_BGRX, 0),
      0);
  tjDestroy(turbo);
  return pixels;
}

// Red, green / blue, white.
constexpr const char* kQuadrants =
    "-f lavfi -i color=red:s=320x180,drawbox=160:0:160:90:0x00ff00:fill,drawbox=0:90:160:90:blue:fill,"
    "drawbox=160:90:160:90:white:fill -frames:v 1 ";

// A segment with nothing but the orientation.
std::string orientation_segment(char orientation) {
  using namespace std::string_literals;
  return "\xFF\xE1\0\x22"s + "Exif\0\0"s + "II*\0\x08\0\0\0"s + "\x01\0"s + "\x12\x01\x03\0\x01\0\0\0"s +
         std::string(1, orientation) + "\0\0\0"s + "\0\0\0\0"s;
}

TEST(Reader, turns_photos_as_the_camera_was_held) {
  const MediaFolder folder;
  if (!folder.make(std::string(kQuadrants) + "-q:v 2", "plain.jpg")) GTEST_SKIP() << "ffmpeg is not installed";
  const std::string plain = bytes_of(folder.path + "/plain.jpg");
  // What a viewer sees in the corners, by row, of a picture that is stored as red, green / blue, white.
  const char* const seen[] = {"RGBW", "GRWB", "WBGR", "BWRG", "RBGW", "BRWG", "WGBR", "GWRB"};
  const MediaReaderHandle reader = media_reader_create();
  for (int orientation = 1; orientation <= 8; ++orientation) {
    SCOPED_TRACE(orientation);
    const std::string path =
        folder.write("photo.jpg", "\xFF\xD8" + orientation_segment(static_cast<char>(orientation)) + plain.substr(2));
    const auto [result, facts, why] = facts_of(*reader, path);
    ASSERT_EQ(result, ReadResult::kRead) << why;
    EXPECT_EQ(facts.orientation, static_cast<std::uint32_t>(orientation));
    EXPECT_EQ(facts.width, 320U);
    const OpenFile file(path);
    std::vector<std::uint8_t> jpeg;
    std::string refused;
    ASSERT_EQ(media_reader_thumbnail(*reader, file.number, path, 100, 100, jpeg, refused), ReadResult::kRead)
        << refused;
    const Pixels thumbnail = pixels_of(jpeg);
    EXPECT_EQ(thumbnail.corners(), seen[orientation - 1]);
    const bool lies = orientation >= 5;
    EXPECT_EQ(thumbnail.width, lies ? 56 : 100);
    EXPECT_EQ(thumbnail.height, lies ? 100 : 56);
    MediaPicture picture;
    ASSERT_EQ(media_reader_picture(*reader, file.number, path, 2000, 2000, picture, refused), ReadResult::kRead);
    EXPECT_EQ(picture.width, lies ? 180U : 320U);
    EXPECT_EQ(picture.height, lies ? 320U : 180U);
    const Pixels whole{static_cast<int>(picture.width), static_cast<int>(picture.height), picture.pixels};
    EXPECT_EQ(whole.corners(), seen[orientation - 1]);
  }
}

TEST(Reader, takes_a_videos_thumbnail_where_it_is_not_dark) {
  const MediaFolder folder;
  // Twelve seconds of black, then red: the frame a few seconds in is no use.
  if (!folder.make("-f lavfi -i color=black:s=160x90:r=5:d=12 -f lavfi -i color=red:s=160x90:r=5:d=12 "
                   "-filter_complex concat -c:v mpeg4 -g 10",
                   "film.mp4"))
    GTEST_SKIP() << "ffmpeg is not installed";
  const std::string path = folder.path + "/film.mp4";
  const MediaReaderHandle reader = media_reader_create();
  const OpenFile file(path);
  std::vector<std::uint8_t> jpeg;
  std::string why;
  ASSERT_EQ(media_reader_thumbnail(*reader, file.number, path, 80, 80, jpeg, why), ReadResult::kRead) << why;
  EXPECT_EQ(pixels_of(jpeg).corners(), "RRRR");
}

TEST(Reader, turns_videos_as_the_telephone_was_held) {
  const MediaFolder folder;
  if (!folder.make(std::string(kQuadrants) + "-c:v mpeg4 -q:v 2", "plain.mp4") ||
      !folder.make("-i plain.mp4 -c copy -metadata:s:v rotate=90", "turned.mp4") ||
      !folder.make("-i turned.mp4 -frames:v 1 -q:v 2", "seen.jpg"))
    GTEST_SKIP() << "ffmpeg is not installed";
  const std::string path = folder.path + "/turned.mp4";
  const MediaReaderHandle reader = media_reader_create();
  EXPECT_EQ(facts_of(*reader, path).facts.orientation, 8U);  // this ffmpeg counts anticlockwise
  const OpenFile file(path);
  std::vector<std::uint8_t> jpeg;
  std::string why;
  ASSERT_EQ(media_reader_thumbnail(*reader, file.number, path, 100, 100, jpeg, why), ReadResult::kRead) << why;
  EXPECT_EQ(pixels_of(jpeg).corners(), "GWRB");
  const std::string seen = bytes_of(folder.path + "/seen.jpg");  // as ffmpeg turns it
  EXPECT_EQ(pixels_of({seen.begin(), seen.end()}).corners(), "GWRB");
}

TEST(Reader, shows_musics_cover) {
  const MediaFolder folder;
  if (!folder.make(
          TONE
          "-f lavfi -i color=blue:s=500x500:d=0.04 -map 0 -map 1 -frames:v 1 -c:v mjpeg -disposition:v attached_pic",
          "song.mp3"))
    GTEST_SKIP() << "ffmpeg is not installed";
  const std::string path = folder.path + "/song.mp3";
  const MediaReaderHandle reader = media_reader_create();
  const OpenFile file(path);
  std::vector<std::uint8_t> jpeg;
  std::string why;
  ASSERT_EQ(media_reader_thumbnail(*reader, file.number, path, 120, 80, jpeg, why), ReadResult::kRead) << why;
  EXPECT_EQ(pixels_of(jpeg).corners(), "BBBB");
  EXPECT_EQ(pixels_of(jpeg).width, 80);
  MediaPicture picture;
  EXPECT_EQ(media_reader_picture(*reader, file.number, path, 120, 80, picture, why), ReadResult::kRefused);
  EXPECT_EQ(why, "it is not a photo");
}

TEST(Reader, shows_transparent_parts_black) {
  const MediaFolder folder;
  if (!folder.make("-f lavfi -i color=red:s=64x64,format=rgba,colorchannelmixer=aa=0 -frames:v 1", "clear.png"))
    GTEST_SKIP() << "ffmpeg is not installed";
  const std::string path = folder.path + "/clear.png";
  const MediaReaderHandle reader = media_reader_create();
  const OpenFile file(path);
  MediaPicture picture;
  std::string why;
  ASSERT_EQ(media_reader_picture(*reader, file.number, path, 64, 64, picture, why), ReadResult::kRead) << why;
  EXPECT_EQ(picture.pixels[2], 0);
}

// Loose on purpose: 200 a second is what a stick of photos needs, and this machine may be busy.
TEST(Reader, reads_a_stick_of_photos_fast) {
  const MediaFolder folder;
  if (!folder.make(BARS "-frames:v 1", "a.jpg")) GTEST_SKIP() << "ffmpeg is not installed";
  const MediaReaderHandle reader = media_reader_create();
  ASSERT_EQ(facts_of(*reader, folder.path + "/a.jpg").result, ReadResult::kRead);
  constexpr int kFiles = 1500;  // so that the process is exchanged meanwhile
  const auto start = std::chrono::steady_clock::now();
  for (int i = 0; i < kFiles; ++i) ASSERT_EQ(facts_of(*reader, folder.path + "/a.jpg").result, ReadResult::kRead);
  const std::chrono::duration<double> took = std::chrono::steady_clock::now() - start;
  RecordProperty("files_per_second", static_cast<int>(kFiles / took.count()));
  EXPECT_LT(took.count(), kFiles / 200.0);
}

#else

TEST(Reader, says_that_this_build_has_no_program_for_it) {
  const MediaReaderHandle reader = media_reader_create();
  MediaFacts facts;
  std::string why;
  EXPECT_EQ(media_reader_facts(*reader, 0, "a.jpg", facts, why), ReadResult::kNoReader);
  EXPECT_NE(why.find("dtv-media-reader"), std::string::npos) << why;
}

#endif

}  // namespace
