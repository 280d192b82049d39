// The players of applications: every operator with its effect in facts and events, wrong orders, and what ends a
// player.
#ifdef DTV_PICTURE
#include "rooms/media_player/media_player_test.h"

#include <absl/strings/escaping.h>
#include <turbojpeg.h>

#include <array>
#include <future>

#include "rooms/library/parts.h"

namespace {

using namespace media_test;

// Red, green and blue at a place of the screen, in parts of its size.
std::array<int, 3> colour_at(double x, double y) {
  std::uint8_t* jpeg = nullptr;
  std::uint32_t size = 0;
  std::array<int, 3> colour = {-1, -1, -1};
  if (dtv_tv_screen(0, &jpeg, &size) == 0 || jpeg == nullptr) return colour;
  const std::unique_ptr<std::uint8_t, decltype(&free)> owned(jpeg, free);
  const std::unique_ptr<void, decltype(&tjDestroy)> decoder(tjInitDecompress(), tjDestroy);
  std::vector<std::uint8_t> pixels(std::size_t{640} * 360 * 3);
  if (tjDecompress2(decoder.get(), jpeg, size, pixels.data(), 640, 0, 360, TJPF_RGB, 0) != 0) return colour;
  const std::size_t at = (static_cast<std::size_t>(y * 359) * 640 + static_cast<std::size_t>(x * 639)) * 3;
  return {pixels[at], pixels[at + 1], pixels[at + 2]};
}

enum Place : std::size_t { kRed, kGreen, kBlue };

bool shows(Place place, double x = 0.5, double y = 0.5) {
  return until([=] {
    const std::array<int, 3> seen = colour_at(x, y);
    return seen[place] > 180 && seen[(place + 1) % 3] < 90 && seen[(place + 2) % 3] < 90;
  });
}

bool is_black(double x, double y) {
  return until([=] {
    const std::array<int, 3> seen = colour_at(x, y);
    return seen[0] >= 0 && seen[0] < 40 && seen[1] < 40 && seen[2] < 40;
  });
}

std::size_t threads() {
  return static_cast<std::size_t>(std::distance(fs::directory_iterator("/proc/self/task"), fs::directory_iterator()));
}

TEST_F(MediaSet, OpensPausedAndSaysWhatIsInTheFile) {
  const UINT32 player = open("film.mp4");
  const Event opened = heard(PLAYER_EVENT_OPENED).at(0);
  EXPECT_EQ(opened.data, PLAYER_TYPE_VIDEO);
  EXPECT_EQ(opened.arg2, 12u);
  EXPECT_EQ(opened.arg3, 2u);
  EXPECT_EQ(opened.arg4, 0u);
  EXPECT_TRUE(hears(PLAYER_EVENT_VIDEO_SIZE));
  EXPECT_EQ(heard(PLAYER_EVENT_VIDEO_SIZE).at(0).data, 320);
  EXPECT_EQ(position(player), 0u);
  EXPECT_TRUE(heard(PLAYER_EVENT_PLAYING).empty());
  INT32 type = 0;
  EXPECT_EQ(a_vextvapi_cb_pb_getPlayerType(player, &type), 0);
  EXPECT_EQ(type, PLAYER_TYPE_VIDEO);
  const std::pair<INT32, const char*> texts[] = {
      {PLAYER_METADATA_TITLE, "A Film"}, {PLAYER_METADATA_ARTIST, "Some One"}, {PLAYER_METADATA_ALBUM, "Collected"},
      {PLAYER_METADATA_GENRE, "Drama"},  {PLAYER_METADATA_YEAR, "2019"},       {PLAYER_METADATA_COMPOSER, ""},
      {PLAYER_METADATA_CHAPTER, "Red"}};
  for (const auto& [kind, expected] : texts) {
    char room[128];
    EXPECT_EQ(a_vextvapi_cb_pb_getMetaData(player, kind, room), 0);
    EXPECT_STREQ(room, expected) << kind;
  }
  IVEX_PB_MEDIA_INFO_T info{};
  EXPECT_EQ(a_vextvapi_cb_pb_getMediaInfo(player, &info), 0);
  EXPECT_STREQ(info.eMediaType, "mp4");
  EXPECT_EQ(info.u4Duration, 12u);
  EXPECT_EQ(info.u8FileSize, fs::file_size(files().folder + "/film.mp4"));
  EXPECT_EQ(info.u2VidTrackNum, 1);
  EXPECT_EQ(info.u2AudTrackNum, 2);
  EXPECT_EQ(info.u1ChapterNum, 3);
  EXPECT_NEAR(info.u4AvgBitrate, static_cast<double>(info.u8FileSize) * 8 / 12, info.u4AvgBitrate / 20.0);
  IVEX_PB_AUD_INFO_T sound{};
  EXPECT_EQ(a_vextvapi_cb_pb_getAudInfo(player, 1, &sound), 0);
  EXPECT_STREQ(sound.encType, "aac");
  EXPECT_STREQ(sound.lang, "deu");
  EXPECT_STREQ(sound.sampleRate, "44100");
  EXPECT_STREQ(sound.chNum, "1");
  IVEX_PB_VID_INFO_T video{};
  EXPECT_EQ(a_vextvapi_cb_pb_getVidInfo(player, &video), 0);
  EXPECT_STREQ(video.encType, "mpeg4");
  EXPECT_EQ(video.u4Width, 320u);
  EXPECT_EQ(video.u4Height, 180u);
  IVEX_PB_SUB_INFO_T none{};
  EXPECT_EQ(a_vextvapi_cb_pb_getSubInfo(player, 0, &none), IVEX_PB_ERROR_CODE_INV_ARG);
}

TEST_F(MediaSet, PlaysToTheEndAndAgain) {
  const UINT32 player = open("film.mp4");
  EXPECT_EQ(a_vextvapi_cb_pb_setSpeed(player, 800), 0);
  EXPECT_TRUE(hears(PLAYER_EVENT_PLAYING));
  EXPECT_TRUE(hears(PLAYER_EVENT_END));
  EXPECT_GE(heard(PLAYER_EVENT_POSITION).size(), 2u);
  EXPECT_EQ(heard(PLAYER_EVENT_POSITION).at(0).arg2, 12u);
  EXPECT_EQ(position(player), 12u);
  EXPECT_EQ(a_vextvapi_cb_pb_timeSeek(player, 1), IVEX_PB_ERROR_CODE_NOT_READY);
  forget_events();
  EXPECT_EQ(a_vextvapi_cb_pb_play(player), 0);
  EXPECT_TRUE(hears(PLAYER_EVENT_PLAYING));
  EXPECT_TRUE(comes_to(player, 1, 11));
}

TEST_F(MediaSet, PausesStopsAndStartsAgain) {
  const UINT32 player = open("film.mp4");
  EXPECT_EQ(a_vextvapi_cb_pb_play(player), 0);
  EXPECT_TRUE(comes_to(player, 1, 11));
  EXPECT_EQ(a_vextvapi_cb_pb_pause(player), 0);
  EXPECT_TRUE(hears(PLAYER_EVENT_PAUSED));
  EXPECT_EQ(a_vextvapi_cb_pb_stop(player), 0);
  EXPECT_TRUE(hears(PLAYER_EVENT_STOPPED));
  EXPECT_GE(heard(PLAYER_EVENT_STOPPED).at(0).data, 1);
  EXPECT_EQ(a_vextvapi_cb_pb_pause(player), IVEX_PB_ERROR_CODE_NOT_READY);
  forget_events();
  EXPECT_EQ(a_vextvapi_cb_pb_play(player), 0);
  EXPECT_TRUE(hears(PLAYER_EVENT_PLAYING));
  EXPECT_EQ(heard(PLAYER_EVENT_PLAYING).at(0).data, 0);
}

TEST_F(MediaSet, SeeksByTimeAndByByteAndShowsThePictureThere) {
  const UINT32 player = open("film.mp4");
  EXPECT_TRUE(shows(kRed));
  EXPECT_EQ(a_vextvapi_cb_pb_timeSeek(player, 5), 0);
  EXPECT_TRUE(hears(PLAYER_EVENT_SOUGHT));
  EXPECT_EQ(heard(PLAYER_EVENT_SOUGHT).at(0).data, 5);
  EXPECT_TRUE(shows(kGreen));
  EXPECT_EQ(a_vextvapi_cb_pb_byteSeek(player, static_cast<double>(fs::file_size(path("film.mp4"))) * 0.8), 0);
  EXPECT_TRUE(shows(kBlue));
  EXPECT_NEAR(position(player), 9.6, 1);
  UINT32 time = 0;
  UINT64 byte = 0;
  EXPECT_EQ(a_vextvapi_cb_pb_getCurPos(player, &time, &byte), 0);
  EXPECT_NEAR(static_cast<double>(byte) / static_cast<double>(fs::file_size(path("film.mp4"))), 0.8, 0.05);
  EXPECT_EQ(a_vextvapi_cb_pb_timeSeek(player, 13), IVEX_PB_ERROR_CODE_INV_ARG);
  EXPECT_EQ(a_vextvapi_cb_pb_byteSeek(player, 1e12), IVEX_PB_ERROR_CODE_INV_ARG);
  EXPECT_EQ(a_vextvapi_cb_pb_byteSeek(player, -1), IVEX_PB_ERROR_CODE_INV_ARG);
  EXPECT_EQ(a_vextvapi_cb_pb_byteSeek(player, std::nan("")), IVEX_PB_ERROR_CODE_INV_ARG);
}

TEST_F(MediaSet, SpeedsStepAndGoBack) {
  const UINT32 player = open("film.mp4");
  const auto speed = [=] {
    char room[128];
    EXPECT_EQ(a_vextvapi_cb_pb_getSpeed(player, room), 0);
    return std::string(room);
  };
  EXPECT_EQ(speed(), "100");
  for (const char* const expected : {"50", "25", "13", "50"}) {
    EXPECT_EQ(a_vextvapi_cb_pb_SF(player), 0);
    EXPECT_EQ(speed(), expected);
  }
  for (const char* const expected : {"200", "400", "800", "200"}) {
    EXPECT_EQ(a_vextvapi_cb_pb_FF(player), 0);
    EXPECT_EQ(speed(), expected);
  }
  EXPECT_TRUE(hears(PLAYER_EVENT_SPEED));
  EXPECT_EQ(a_vextvapi_cb_pb_timeSeek(player, 10), 0);
  EXPECT_TRUE(shows(kBlue));
  EXPECT_EQ(a_vextvapi_cb_pb_FR(player), 0);
  EXPECT_EQ(speed(), "-200");
  EXPECT_TRUE(shows(kGreen));
  EXPECT_EQ(a_vextvapi_cb_pb_FR(player), 0);
  EXPECT_EQ(speed(), "-400");
  EXPECT_TRUE(shows(kRed));
  EXPECT_TRUE(until([=] { return speed() == "100"; })) << "from the beginning it plays on";
  EXPECT_EQ(a_vextvapi_cb_pb_SR(player), IVEX_PB_ERROR_CODE_NOT_SUPPORTED);
  EXPECT_EQ(a_vextvapi_cb_pb_setSpeed(player, -50), IVEX_PB_ERROR_CODE_NOT_SUPPORTED);
  for (const INT32 wrong : {0, 9, 801, -801, INT32_MAX, INT32_MIN})
    EXPECT_EQ(a_vextvapi_cb_pb_setSpeed(player, wrong), IVEX_PB_ERROR_CODE_INV_ARG) << wrong;
}

TEST_F(MediaSet, AStepShowsTheNextPicture) {
  const UINT32 player = open("film.mp4");
  EXPECT_EQ(a_vextvapi_cb_pb_timeSeek(player, 3), 0);
  EXPECT_TRUE(hears(PLAYER_EVENT_SOUGHT));
  EXPECT_TRUE(shows(kRed));
  for (int i = 0; i < 11; ++i) {
    EXPECT_EQ(a_vextvapi_cb_pb_step(player), 0);
    std::this_thread::sleep_for(std::chrono::milliseconds(150));  // steps that come at once are one
  }
  EXPECT_TRUE(shows(kGreen));
  EXPECT_LE(position(player), 5u);
}

TEST_F(MediaSet, ChoosesTracks) {
  std::ofstream(world.path + "/Films/film.srt") << "1\n00:00:00,000 --> 00:00:12,000\nWords\n";
  std::ofstream(world.path + "/Films/film.de.srt") << "1\n00:00:00,000 --> 00:00:12,000\nWorte\n";
  std::ofstream(world.path + "/Films/filmed.srt") << "1\n00:00:00,000 --> 00:00:12,000\nAnother film's\n";
  const UINT32 player = open("film.mp4");
  const auto tracks = [] {
    const std::vector<Event> told = heard(PLAYER_EVENT_TRACKS);
    return told.empty() ? Event{} : told.back();
  };
  EXPECT_TRUE(until([&] { return tracks().arg2 == 2; })) << "both subtitle files are offered";
  EXPECT_EQ(tracks().data, 2);
  EXPECT_EQ(tracks().arg3, 0u);
  EXPECT_EQ(static_cast<INT32>(tracks().arg4), -1) << "none is chosen by itself";
  EXPECT_EQ(a_vextvapi_cb_pb_selectAud(player, 1, 0), 0);
  EXPECT_TRUE(until([&] { return tracks().arg3 == 1; }));
  EXPECT_EQ(a_vextvapi_cb_pb_selectAud(player, 2, 0), IVEX_PB_ERROR_CODE_INV_ARG);
  EXPECT_EQ(a_vextvapi_cb_pb_selectAud(player, -1, 0), IVEX_PB_ERROR_CODE_INV_ARG);
  std::set<std::string> languages;
  for (const INT32 i : {0, 1}) {
    IVEX_PB_SUB_INFO_T info{};
    EXPECT_EQ(a_vextvapi_cb_pb_getSubInfo(player, i, &info), 0);
    EXPECT_EQ(info.b_external, 1);
    EXPECT_EQ(info.subType, 4) << "SRT";
    languages.insert(info.s_lang);
  }
  EXPECT_EQ(languages, (std::set<std::string>{"", "de"}));
  EXPECT_EQ(a_vextvapi_cb_pb_selectSub(player, 1), 0);
  EXPECT_TRUE(until([&] { return tracks().arg4 == 1; }));
  EXPECT_EQ(a_vextvapi_cb_pb_stopSub(player), 0);
  EXPECT_TRUE(until([&] { return static_cast<INT32>(tracks().arg4) == -1; }));
  EXPECT_EQ(a_vextvapi_cb_pb_selectSub(player, 2), IVEX_PB_ERROR_CODE_INV_ARG);
  EXPECT_EQ(a_vextvapi_cb_pb_selectCC(player, 0), IVEX_PB_ERROR_CODE_INV_ARG);
}

// A blue letter on the red picture, as the attributes want it.
TEST_F(MediaSet, SubtitlesLookAsWanted) {
  std::ofstream(world.path + "/Films/film.srt") << "1\n00:00:00,000 --> 00:00:12,000\n\u2588\u2588\u2588\u2588\n";
  const UINT32 player = open("film.mp4");
  IVEX_PB_CTRL_SBTL_ATTR_T attribute{};
  attribute.e_type = IVEX_PB_CTRL_SBTL_ATTR_TYPE_TXT_CLR;
  attribute.t_color = {.ui1_alpha = 255, .ui1_r = 0, .ui1_g = 0, .ui1_b = 255};
  EXPECT_EQ(a_vextvapi_cb_pb_setSubtitleAttr(player, &attribute), 0);
  attribute.e_type = IVEX_PB_CTRL_SBTL_ATTR_TYPE_FNT_INFO;
  attribute.t_font = {.s_font_name = "fnt_Default", .ui4_cmap_tag = 0, .e_size_type = 3, .ui1_custom_size = 200};
  EXPECT_EQ(a_vextvapi_cb_pb_setSubtitleAttr(player, &attribute), 0);
  EXPECT_TRUE(until([] { return !heard(PLAYER_EVENT_TRACKS).empty() && heard(PLAYER_EVENT_TRACKS).back().arg2 == 1; }));
  const auto blue_somewhere = [] {
    for (double y = 0.02; y < 1; y += 0.02)
      if (const auto seen = colour_at(0.5, y); seen[2] > 150 && seen[0] < 110) return true;
    return false;
  };
  // The film itself is blue after eight seconds, so each step begins where it is red.
  const auto rewind = [player] { EXPECT_EQ(a_vextvapi_cb_pb_timeSeek(player, 0), 0); };
  EXPECT_TRUE(shows(kRed));
  EXPECT_FALSE(blue_somewhere());
  rewind();
  EXPECT_EQ(a_vextvapi_cb_pb_selectSub(player, 0), 0);
  EXPECT_TRUE(until(blue_somewhere));
  rewind();
  EXPECT_EQ(a_vextvapi_cb_pb_setSubtitleShowHide(player, 0), 0);
  EXPECT_TRUE(until([&] { return !blue_somewhere(); }));
  rewind();
  EXPECT_EQ(a_vextvapi_cb_pb_setSubtitleShowHide(player, 1), 0);
  EXPECT_TRUE(until(blue_somewhere));
  attribute.e_type = IVEX_PB_CTRL_SBTL_ATTR_TYPE_TIME_OFST;
  attribute.t_time_offset = {.e_type = 2, .ui4_value = 20'000};
  EXPECT_EQ(a_vextvapi_cb_pb_setSubtitleAttr(player, &attribute), 0);
  EXPECT_EQ(a_vextvapi_cb_pb_timeSeek(player, 1), 0);  // an offset counts from the next picture on
  EXPECT_TRUE(until([&] { return !blue_somewhere(); })) << "they come 20 s later";
  attribute.t_time_offset = {.e_type = 0, .ui4_value = 0};
  EXPECT_EQ(a_vextvapi_cb_pb_setSubtitleAttr(player, &attribute), 0);
  EXPECT_EQ(a_vextvapi_cb_pb_timeSeek(player, 2), 0);
  EXPECT_TRUE(until(blue_somewhere));
}

TEST_F(MediaSet, SubtitleAttributesAreChecked) {
  const UINT32 player = open("film.mp4");
  const auto set = [=](auto change) {
    IVEX_PB_CTRL_SBTL_ATTR_T attribute{};
    change(attribute);
    return a_vextvapi_cb_pb_setSubtitleAttr(player, &attribute);
  };
  using Attribute = IVEX_PB_CTRL_SBTL_ATTR_T;
  for (INT32 encoding = 0; encoding <= 21; ++encoding) {
    EXPECT_EQ(set([=](Attribute& each) {
                each.e_type = IVEX_PB_CTRL_SBTL_ATTR_TYPE_FONT_ENC;
                each.e_font_enc = encoding;
              }),
              0);
  }
  EXPECT_EQ(set([](Attribute& each) {
              each.e_type = IVEX_PB_CTRL_SBTL_ATTR_TYPE_FONT_ENC;
              each.e_font_enc = 22;
            }),
            IVEX_PB_ERROR_CODE_INV_ARG);
  for (const INT32 type : {IVEX_PB_CTRL_SBTL_ATTR_TYPE_BKG_CLR, IVEX_PB_CTRL_SBTL_ATTR_TYPE_EDG_CLR})
    EXPECT_EQ(set([=](Attribute& each) { each.e_type = type; }), 0);
  EXPECT_EQ(set([](Attribute& each) {
              each.e_type = IVEX_PB_CTRL_SBTL_ATTR_TYPE_EDG_WIDTH;
              each.ui4_edge_width = 21;
            }),
            IVEX_PB_ERROR_CODE_INV_ARG);
  EXPECT_EQ(set([](Attribute& each) {
              each.e_type = IVEX_PB_CTRL_SBTL_ATTR_TYPE_DISP_RECT;
              each.t_rect = {.x = UINT32_MAX, .y = 0, .w = 2, .h = 2};
            }),
            IVEX_PB_ERROR_CODE_INV_ARG);
  EXPECT_EQ(set([](Attribute& each) { each.e_type = 99; }), IVEX_PB_ERROR_CODE_NOT_SUPPORTED);
  EXPECT_EQ(a_vextvapi_cb_pb_setSubtitleAttr(player, nullptr), IVEX_PB_ERROR_CODE_INV_ARG);
}

TEST_F(MediaSet, ThePictureIsPlacedAndZoomedAsWanted) {
  const UINT32 player = open("film.mp4");
  EXPECT_TRUE(shows(kRed, 0.9, 0.9));
  EXPECT_EQ(a_vextvapi_cb_pb_display(player, 0, 0, 960, 540), 0);
  EXPECT_TRUE(is_black(0.9, 0.9));
  EXPECT_TRUE(shows(kRed, 0.2, 0.2));
  EXPECT_EQ(a_vextvapi_cb_pb_display(player, 0, 0, 0, 0), 0);
  EXPECT_TRUE(shows(kRed, 0.9, 0.9));
  EXPECT_EQ(a_vextvapi_cb_pb_display(player, 1900, 0, 100, 100), IVEX_PB_ERROR_CODE_INV_ARG);
  EXPECT_EQ(a_vextvapi_cb_pb_zoom(player, PLAYER_ZOOM_RECT, 480, 270, 960, 540), 0);
  char zoom[128];
  EXPECT_EQ(a_vextvapi_cb_pb_getZoomStatus(player, zoom), 0);
  EXPECT_STREQ(zoom, "2 480 270 960 540");
  EXPECT_EQ(a_vextvapi_cb_pb_zoom(player, PLAYER_ZOOM_FILL, 0, 0, 0, 0), 0);
  EXPECT_EQ(a_vextvapi_cb_pb_zoom(player, 4, 0, 0, 0, 0), IVEX_PB_ERROR_CODE_INV_ARG);
  EXPECT_EQ(a_vextvapi_cb_pb_zoom(player, PLAYER_ZOOM_RECT, 0, 0, 10, 10), IVEX_PB_ERROR_CODE_INV_ARG);
  EXPECT_EQ(a_vextvapi_cb_pb_getZoomStatus(player, zoom), 0);
  EXPECT_STREQ(zoom, "1 0 0 0 0");
}

TEST_F(MediaSet, RepeatsTheFile) {
  const UINT32 player = open("film.mp4");
  EXPECT_EQ(a_vextvapi_cb_pb_setRepeat(player, PLAYER_REPEAT_ONE), 0);
  EXPECT_EQ(a_vextvapi_cb_pb_timeSeek(player, 11), 0);
  EXPECT_EQ(a_vextvapi_cb_pb_play(player), 0);
  EXPECT_TRUE(comes_to(player, 11, 12));
  EXPECT_TRUE(comes_to(player, 0, 3));
  EXPECT_TRUE(heard(PLAYER_EVENT_END).empty());
  EXPECT_EQ(a_vextvapi_cb_pb_setRepeat(player, PLAYER_REPEAT_FOLDER), IVEX_PB_ERROR_CODE_NOT_SUPPORTED);
  EXPECT_EQ(a_vextvapi_cb_pb_setRepeat(player, 3), IVEX_PB_ERROR_CODE_INV_ARG);
}

TEST_F(MediaSet, ResumesWhereItWasLeftAlsoAfterARestart) {
  UINT32 player = open("film.mp4");
  UINT8 has = 9;
  EXPECT_EQ(a_vextvapi_cb_pb_getStopInfo(player, &has), 0);
  EXPECT_EQ(has, 0);
  EXPECT_EQ(a_vextvapi_cb_pb_timeSeek(player, 7), 0);
  EXPECT_TRUE(hears(PLAYER_EVENT_SOUGHT));
  EXPECT_EQ(a_vextvapi_cb_pb_saveStopInfo(player), 0);
  restart();
  forget_events();
  EXPECT_EQ(a_vextvapi_cb_pb_getStopInfo(player, &has), IVEX_PB_ERROR_CODE_INV_HANDLE);
  player = open("film.mp4");
  EXPECT_EQ(a_vextvapi_cb_pb_getStopInfo(player, &has), 0);
  EXPECT_EQ(has, 1);
  EXPECT_EQ(a_vextvapi_cb_pb_setStopInfo(player, 1), 0);
  EXPECT_EQ(a_vextvapi_cb_pb_play(player), 0);
  EXPECT_TRUE(comes_to(player, 7, 11));
  EXPECT_EQ(a_vextvapi_cb_pb_deinit(player), 0);
  // Another file with the same name is another file.
  fs::remove(world.path + "/Films/film.mp4");
  fs::copy(files().folder + "/film.mkv", world.path + "/Films/film.mp4");
  forget_events();
  player = open("film.mp4");
  EXPECT_EQ(a_vextvapi_cb_pb_getStopInfo(player, &has), 0);
  EXPECT_EQ(has, 0);
}

TEST_F(MediaSet, ARatedFileWaitsForThePin) {
  UINT32 player = open("film.mkv");
  INT32 age = 0;
  EXPECT_EQ(a_vextvapi_cb_pb_hasRating(player, &age), 1);
  EXPECT_EQ(age, 16);
  EXPECT_EQ(a_vextvapi_cb_pb_deinit(player), 0);
  EXPECT_EQ(command({"config", "g_misc__parental_age", "12"}).if_contains("error"), nullptr);
  forget_events();
  player = open("film.mkv");
  EXPECT_TRUE(hears(PLAYER_EVENT_RATING_BLOCKED));
  EXPECT_EQ(heard(PLAYER_EVENT_RATING_BLOCKED).at(0).data, 16);
  EXPECT_EQ(a_vextvapi_cb_pb_play(player), IVEX_PB_ERROR_CODE_BLOCKED);
  EXPECT_TRUE(is_black(0.5, 0.5));
  EXPECT_EQ(a_vextvapi_cb_pb_unblockRating(player), 0);
  EXPECT_TRUE(hears(PLAYER_EVENT_PLAYING));
  EXPECT_TRUE(shows(kRed));
}

TEST_F(MediaSet, PlaysMusicAndTransportStreams) {
  UINT32 player = open("song.mp3");
  EXPECT_EQ(heard(PLAYER_EVENT_OPENED).at(0).data, PLAYER_TYPE_MUSIC);
  EXPECT_EQ(a_vextvapi_cb_pb_step(player), IVEX_PB_ERROR_CODE_NOT_SUPPORTED);
  EXPECT_EQ(a_vextvapi_cb_pb_FR(player), IVEX_PB_ERROR_CODE_NOT_SUPPORTED);
  EXPECT_EQ(a_vextvapi_cb_pb_play(player), 0);
  EXPECT_TRUE(comes_to(player, 1, 7));
  EXPECT_EQ(a_vextvapi_cb_pb_timeSeek(player, 7), 0);
  EXPECT_TRUE(hears(PLAYER_EVENT_END)) << "its cover does not stay";
  EXPECT_EQ(a_vextvapi_cb_pb_deinit(player), 0);
  forget_events();
  player = open("film.ts");
  EXPECT_EQ(heard(PLAYER_EVENT_OPENED).at(0).data, PLAYER_TYPE_VIDEO);
  EXPECT_EQ(a_vextvapi_cb_pb_timeSeek(player, 6), 0);
  EXPECT_TRUE(shows(kGreen));
}

// ---- Wrong orders, wrong handles, and what ends a player ----

TEST_F(MediaSet, AnInvalidHandleIsRefused) {
  const UINT32 player = create(path("film.mp4"));
  char room[PLAYER_THUMBNAIL_SIZE];
  UINT32 time = 0;
  UINT64 byte = 0;
  INT32 number = 0;
  UINT8 flag = 0;
  IVEX_PB_CTRL_SBTL_ATTR_T attribute{};
  IVEX_PB_AUD_INFO_T sound{};
  IVEX_PB_VID_INFO_T video{};
  IVEX_PB_SUB_INFO_T subtitle{};
  IVEX_PB_MEDIA_INFO_T media{};
  const std::function<INT32(UINT32)> calls[] = {
      a_vextvapi_cb_pb_play,
      a_vextvapi_cb_pb_pause,
      a_vextvapi_cb_pb_stop,
      a_vextvapi_cb_pb_FF,
      a_vextvapi_cb_pb_FR,
      a_vextvapi_cb_pb_SF,
      a_vextvapi_cb_pb_SR,
      a_vextvapi_cb_pb_step,
      a_vextvapi_cb_pb_unblockRating,
      a_vextvapi_cb_pb_saveStopInfo,
      a_vextvapi_cb_pb_stopSub,
      [](UINT32 each) { return a_vextvapi_cb_pb_setSpeed(each, 100); },
      [](UINT32 each) { return a_vextvapi_cb_pb_timeSeek(each, 1); },
      [](UINT32 each) { return a_vextvapi_cb_pb_byteSeek(each, 1); },
      [](UINT32 each) { return a_vextvapi_cb_pb_selectAud(each, 0, 0); },
      [](UINT32 each) { return a_vextvapi_cb_pb_selectSub(each, 0); },
      [](UINT32 each) { return a_vextvapi_cb_pb_selectCC(each, 0); },
      [&](UINT32 each) { return a_vextvapi_cb_pb_getCurPos(each, &time, &byte); },
      [&](UINT32 each) { return a_vextvapi_cb_pb_getSpeed(each, room); },
      [&](UINT32 each) { return a_vextvapi_cb_pb_getMetaData(each, 1, room); },
      [&](UINT32 each) { return a_vextvapi_cb_pb_getPlayerType(each, &number); },
      [&](UINT32 each) { return a_vextvapi_cb_pb_getAudInfo(each, 0, &sound); },
      [&](UINT32 each) { return a_vextvapi_cb_pb_getVidInfo(each, &video); },
      [&](UINT32 each) { return a_vextvapi_cb_pb_getSubInfo(each, 0, &subtitle); },
      [&](UINT32 each) { return a_vextvapi_cb_pb_getMediaInfo(each, &media); },
      [&](UINT32 each) { return a_vextvapi_cb_pb_getStopInfo(each, &flag); },
      [](UINT32 each) { return a_vextvapi_cb_pb_thumbnailAsync(each, 100, 100); },
      [](UINT32 each) { return a_vextvapi_cb_pb_mp3CoverAsync(each, 100, 100); },
      [&](UINT32 each) { return a_vextvapi_cb_pb_get_thumbnail(each, room); }};
  const std::function<INT32(UINT32)> always[] = {
      [](UINT32 each) { return a_vextvapi_cb_pb_setRepeat(each, 0); },
      [](UINT32 each) { return a_vextvapi_cb_pb_setSubtitleShowHide(each, 1); },
      [&](UINT32 each) { return a_vextvapi_cb_pb_setSubtitleAttr(each, &attribute); },
      [](UINT32 each) { return a_vextvapi_cb_pb_display(each, 0, 0, 0, 0); },
      [](UINT32 each) { return a_vextvapi_cb_pb_zoom(each, 0, 0, 0, 0, 0); },
      [](UINT32 each) { return a_vextvapi_cb_pb_setStopInfo(each, 0); },
      [&](UINT32 each) { return a_vextvapi_cb_pb_getZoomStatus(each, room); },
      a_vextvapi_cb_pb_open};
  const auto all_give = [&](UINT32 handle, INT32 result) {
    for (std::size_t i = 0; i < std::size(calls); ++i) EXPECT_EQ(calls[i](handle), result) << "call " << i;
  };
  for (const UINT32 wild : {0u, 1u, player + 1, player - 1, UINT32_MAX}) {
    all_give(wild, IVEX_PB_ERROR_CODE_INV_HANDLE);
    for (const auto& call : always) EXPECT_EQ(call(wild), IVEX_PB_ERROR_CODE_INV_HANDLE);
    EXPECT_EQ(a_vextvapi_cb_pb_deinit(wild), IVEX_PB_ERROR_CODE_INV_HANDLE);
    EXPECT_EQ(a_vextvapi_cb_pb_hasRating(wild, &number), 0);
  }
  all_give(player, IVEX_PB_ERROR_CODE_NOT_READY);  // before open
  EXPECT_EQ(a_vextvapi_cb_pb_deinit(player), 0);
  all_give(player, IVEX_PB_ERROR_CODE_INV_HANDLE);  // after its end
}

TEST_F(MediaSet, AFileThatCannotBeOpenedIsReportedWithTheReason) {
  fs::create_symlink("/etc/passwd", world.path + "/Films/link.mp4");
  std::ofstream(world.path + "/Films/text.mp4") << std::string(100'000, 'x');
  const std::pair<std::string, INT32> cases[] = {{path("missing.mp4"), IVEX_PB_ERROR_CODE_FILE},
                                                 {path("link.mp4"), IVEX_PB_ERROR_CODE_FILE},
                                                 {path("../../tv.sqlite"), IVEX_PB_ERROR_CODE_FILE},
                                                 {"/etc/passwd", IVEX_PB_ERROR_CODE_FILE},
                                                 {mounted(), IVEX_PB_ERROR_CODE_FILE},
                                                 {"recordings/../tv.sqlite", IVEX_PB_ERROR_CODE_FILE},
                                                 {"downloads/", IVEX_PB_ERROR_CODE_FILE},
                                                 {"http://203.0.113.9/film.mp4", IVEX_PB_ERROR_CODE_NETWORK},
                                                 {"http://example.com/f", IVEX_PB_ERROR_CODE_NETWORK},
                                                 {"https://127.0.0.1/f", IVEX_PB_ERROR_CODE_FILE},
                                                 {"file:///etc/passwd", IVEX_PB_ERROR_CODE_FILE},
                                                 {std::string(5000, 'x'), IVEX_PB_ERROR_CODE_FILE}};
  for (const auto& [file, code] : cases) {
    const UINT32 player = create(file);
    EXPECT_EQ(a_vextvapi_cb_pb_open(player), code) << file;
    EXPECT_EQ(a_vextvapi_cb_pb_play(player), IVEX_PB_ERROR_CODE_NOT_READY);
    EXPECT_EQ(a_vextvapi_cb_pb_deinit(player), 0);
  }
  const UINT32 player = create(path("text.mp4"));
  EXPECT_EQ(a_vextvapi_cb_pb_open(player), 0);
  EXPECT_TRUE(hears(PLAYER_EVENT_ERROR));
  EXPECT_EQ(heard(PLAYER_EVENT_ERROR).at(0).data, IVEX_PB_ERROR_CODE_FORMAT);
  EXPECT_EQ(a_vextvapi_cb_pb_play(player), IVEX_PB_ERROR_CODE_NOT_READY);
}

TEST_F(MediaSet, ARemovedStickEndsItsPlayer) {
  const UINT32 player = open("film.mp4");
  EXPECT_EQ(a_vextvapi_cb_pb_play(player), 0);
  EXPECT_TRUE(hears(PLAYER_EVENT_PLAYING));
  stick({"remove", world.path + "/Films"});
  EXPECT_TRUE(hears(PLAYER_EVENT_ERROR));
  EXPECT_EQ(heard(PLAYER_EVENT_ERROR).at(0).data, IVEX_PB_ERROR_CODE_REMOVED);
  EXPECT_EQ(a_vextvapi_cb_pb_pause(player), IVEX_PB_ERROR_CODE_NOT_READY);
}

TEST_F(MediaSet, AnotherSourceAndStandbyStopThePlayer) {
  const UINT32 player = open("film.mp4");
  EXPECT_EQ(a_vextvapi_cb_pb_play(player), 0);
  EXPECT_TRUE(hears(PLAYER_EVENT_PLAYING));
  EXPECT_EQ(text(command({"screen"}), "picture"), "media");
  EXPECT_EQ(text(command({"screen"}), "title"), "A Film");
  command({"source", "HDMI 1"});
  EXPECT_TRUE(hears(PLAYER_EVENT_STOPPED));
  EXPECT_NE(text(command({"screen"}), "picture"), "media");
  forget_events();
  EXPECT_EQ(a_vextvapi_cb_pb_play(player), 0);
  EXPECT_TRUE(hears(PLAYER_EVENT_PLAYING));
  command({"power", "standby"});
  EXPECT_TRUE(hears(PLAYER_EVENT_STOPPED));
  EXPECT_EQ(a_vextvapi_cb_pb_play(player), IVEX_PB_ERROR_CODE_FAILED);
}

TEST_F(MediaSet, ManyQuickOpensLeaveNothingBehind) {
  EXPECT_EQ(a_vextvapi_cb_pb_deinit(open("film.mp4")), 0);
  dtv_tv_stop();
  EXPECT_EQ(tv_start(folder.path), "");
  const auto open_files = [] {
    std::multiset<std::string> targets;
    for (const auto& each : fs::directory_iterator("/proc/self/fd")) {
      std::error_code gone;
      const std::string target = fs::read_symlink(each.path(), gone).string();
      if (!gone) targets.insert(target.starts_with("pipe:") || target.starts_with("socket:") ? "pipe" : target);
    }
    return targets;
  };
  scans_settle();
  const std::size_t threads_before = threads();
  const auto files_before = open_files();
  for (int i = 0; i < 50; ++i) {
    const UINT32 player = create(path(i % 2 == 0 ? "film.mp4" : "song.mp3"));
    EXPECT_EQ(a_vextvapi_cb_pb_open(player), 0);
    a_vextvapi_cb_pb_play(player);
    EXPECT_EQ(a_vextvapi_cb_pb_deinit(player), 0);
  }
  EXPECT_TRUE(until([=] { return threads() <= threads_before; })) << threads() << ", before " << threads_before;
  EXPECT_TRUE(until([&] { return open_files() == files_before; }))
      << testing::PrintToString(open_files()) << ", before " << testing::PrintToString(files_before);
}

}  // namespace
#endif
