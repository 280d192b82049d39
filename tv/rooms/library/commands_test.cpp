// The command "media": counts, lists, searches, favourites, what was played, thumbnails.
#include <chrono>

#include "rooms/library/library_test.h"
#include "rooms/library/thumbnails.h"

namespace {

struct MediaCommand : LibrarySet {
  MediaCommand() {
    write_file("beach.bmp", bmp_bytes(64, 48));
    write_file("Photos/tree house.bmp", bmp_bytes(48, 64));
    write_file("Music/a.wav", wav_bytes({.title = "Élan vital", .artist = "Anna", .album = "One", .seconds = 2}));
    write_file("Music/b.wav", wav_bytes({.title = "Apple", .artist = "Bert", .album = "Elan"}));
    write_file("Music/all.m3u", "a.wav\n");
    write_file("film.mp4", film_bytes());
    write_file("broken.jpg", "no picture");
    insert();
  }
  // The names in a reply's list.
  static std::string names(const json::object& answer) {
    if (!answer.contains("entries")) return json::serialize(answer);
    std::string text;
    for (const json::value& each : answer.at("entries").as_array())
      text += (text.empty() ? "" : ", ") + std::string(each.at("name").as_string());
    return text;
  }
  static std::string error(const json::object& answer) {
    return answer.contains("error") ? std::string(answer.at("error").as_string()) : "no error";
  }
  // One thumbnail's answer, when it is no longer pending.
  static json::object thumbnail(const std::string& path) {
    const auto limit = std::chrono::steady_clock::now() + std::chrono::seconds(60);
    json::object answer;
    do {
      answer = media({"thumbnails", path}).at("thumbnails").at(0).as_object();
      timer_pause(std::chrono::milliseconds(2));
    } while (answer.contains("pending") && std::chrono::steady_clock::now() < limit);
    return answer;
  }
};

TEST_F(MediaCommand, ShowsSticksAndScans) {
  const json::object shown = media({}).at("sticks").at(0).as_object();
  EXPECT_EQ(shown.at("device"), "/dev/sda1");
  EXPECT_EQ(shown.at("label"), "Holiday");
  EXPECT_EQ(shown.at("path").as_string(), mount());
  EXPECT_EQ(shown.at("photos"), 2);
  EXPECT_EQ(shown.at("music"), 2);
  EXPECT_EQ(shown.at("videos"), 1);
  EXPECT_EQ(shown.at("playlists"), 1);
  EXPECT_EQ(shown.at("folders"), 2);
  std::uintmax_t bytes = 0;
  for (const auto& each : fs::recursive_directory_iterator(stick))
    if (each.is_regular_file() && each.path().filename() != "broken.jpg") bytes += each.file_size();
  EXPECT_EQ(shown.at("bytes"), bytes);
  const json::object& scan = shown.at("scan").as_object();
  EXPECT_EQ(scan.at("state"), "done");
  EXPECT_EQ(scan.at("files"), 7);
  EXPECT_EQ(scan.at("of"), 7);
  EXPECT_EQ(scan.at("progress"), 1.0);
  EXPECT_EQ(scan.at("left_out"), 1);
  EXPECT_EQ(media({"stick", "sda1"}), shown);
  EXPECT_EQ(media({"stick", "Holiday"}), shown);
  EXPECT_NE(error(media({"stick", "sdb1"})).find("no stick"), std::string::npos);
  const json::object sticks = run({"stick"});
  EXPECT_EQ(sticks.at("sticks").at(0).at("scan").at("state"), "done");
}

TEST_F(MediaCommand, Lists) {
  EXPECT_EQ(names(media({"list", "all", mount()})), "Music, Photos, beach.bmp, film.mp4");
  EXPECT_EQ(names(media({"list", "all", mount(), "name", "1", "2"})), "Photos, beach.bmp");
  EXPECT_EQ(names(media({"list", "all", mount(), "name", "2", "5"})), "beach.bmp, film.mp4");
  EXPECT_EQ(names(media({"list", "folder", mount(), "-name"})), "Photos, Music");
  EXPECT_EQ(names(media({"list", "photo", mount(), "-name"})), "tree house.bmp, beach.bmp");
  EXPECT_EQ(names(media({"list", "music", mount(), "artist"})), "a.wav, b.wav");
  const json::object all = media({"list", "all", mount(), "name", "0", "1"});
  EXPECT_EQ(all.at("total"), 4);
  EXPECT_EQ(all.at("index"), 0);
  const json::object song = media({"list", "music", mount()}).at("entries").at(0).as_object();
  EXPECT_EQ(song.at("path").as_string(), at("Music/a.wav"));
  EXPECT_EQ(song.at("kind"), "music");
  EXPECT_EQ(song.at("title"), "Élan vital");
  EXPECT_EQ(song.at("artist"), "Anna");
  EXPECT_EQ(song.at("duration"), 2.0);
  EXPECT_EQ(song.at("favourite"), false);
  EXPECT_NE(error(media({"list", "books", mount()})).find("photo, music"), std::string::npos);
  EXPECT_NE(error(media({"list", "photo", mount(), "colour"})).find("artist"), std::string::npos);
  EXPECT_NE(error(media({"list", "photo", mount(), "name", "-1"})).find("index"), std::string::npos);
  EXPECT_NE(error(media({"list", "photo", mount(), "name", "0", "201"})).find("1 to 200"), std::string::npos);
  EXPECT_NE(error(media({"list", "photo", "/etc"})).find("not on an inserted stick"), std::string::npos);
}

TEST_F(MediaCommand, SearchesWithoutCaseAndAccents) {
  EXPECT_EQ(names(media({"search", "ELAN"})), "a.wav, b.wav") << "a title, an album";
  EXPECT_EQ(names(media({"search", "élan vit"})), "a.wav") << "every word";
  EXPECT_EQ(names(media({"search", "hou tree"})), "tree house.bmp");
  EXPECT_EQ(names(media({"search", "bert"})), "b.wav");
  EXPECT_EQ(names(media({"search", "e", "video"})), "") << "no word of the film begins so";
  EXPECT_EQ(names(media({"search", "test", "video"})), "film.mp4");
  EXPECT_EQ(names(media({"search", "test", "photo"})), "");
  EXPECT_EQ(media({"search", "elan", "all", "1", "1"}).at("total"), 2);
  EXPECT_EQ(names(media({"search", "elan", "all", "1", "1"})), "b.wav");
  for (const char* const text : {"\"", "* OR", "title:x", "NEAR(", "-", "elan NOT", "a\" OR \"b"})
    EXPECT_TRUE(media({"search", text}).contains("entries")) << text << ": no word has a meaning of its own";
  EXPECT_NE(error(media({"search", ""})), "no error");
  EXPECT_NE(error(media({"search", std::string(201, 'x')})), "no error");
  EXPECT_EQ(names(media({"search", "broken"})), "") << "what was left out is not found";
}

TEST_F(MediaCommand, FavouritesAreKept) {
  EXPECT_EQ(top(MEDIA_TYPE_PHOTO, VEXTVAPI_CB_SORT_FAVOURITES, mount()), "");
  EXPECT_EQ(media({"favourite", at("beach.bmp"), "on"}).at("favourite"), true);
  EXPECT_EQ(entries(MEDIA_TYPE_PHOTO, mount()).at(0).favourite, 1);
  EXPECT_EQ(top(MEDIA_TYPE_PHOTO, VEXTVAPI_CB_SORT_FAVOURITES, mount()), "beach.bmp");
  write_file("beach.bmp", bmp_bytes(10, 10));
  scan();
  EXPECT_EQ(top(MEDIA_TYPE_PHOTO, VEXTVAPI_CB_SORT_FAVOURITES, mount()), "beach.bmp") << "also of a changed file";
  restart();
  EXPECT_EQ(a_vextvapi_cb_get_top_list_db_count(MEDIA_TYPE_PHOTO, VEXTVAPI_CB_SORT_FAVOURITES, ""), 1);
  EXPECT_EQ(media({"favourite", at("beach.bmp"), "off"}).at("favourite"), false);
  EXPECT_EQ(top(MEDIA_TYPE_PHOTO, VEXTVAPI_CB_SORT_FAVOURITES, mount()), "");
  EXPECT_NE(error(media({"favourite", at("missing.bmp"), "on"})).find("not in the library"), std::string::npos);
  EXPECT_NE(error(media({"favourite", "/etc/passwd", "on"})).find("not on an inserted stick"), std::string::npos);
  EXPECT_NE(error(media({"favourite", at("beach.bmp"), "yes"})).find("on or off"), std::string::npos);
}

TEST_F(MediaCommand, TheFilePlayedLastComesFirst) {
  library_note_played(at("Music/b.wav"));
  scans_settle();
  timer_pause(std::chrono::milliseconds(3));
  library_note_played(at("Music/a.wav"));
  library_note_played(at("missing.wav"));
  library_note_played("/nowhere");
  scans_settle();
  EXPECT_EQ(top(MEDIA_TYPE_MUSIC, VEXTVAPI_CB_SORT_PLAYED, mount()), "Music/a.wav Music/b.wav");
  EXPECT_EQ(top(MEDIA_TYPE_MUSIC, VEXTVAPI_CB_SORT_PLAYED + VEXTVAPI_CB_SORT_DESCENDING, mount()),
            "Music/b.wav Music/a.wav");
  EXPECT_EQ(a_vextvapi_cb_get_top_list_db_count(MEDIA_TYPE_MUSIC, VEXTVAPI_CB_SORT_PLAYED, mount().c_str()), 2);
  EXPECT_EQ(top(MEDIA_TYPE_PHOTO, VEXTVAPI_CB_SORT_PLAYED, mount()), "");
}

TEST_F(MediaCommand, ScansAndCancels) {
  const json::object answer = media({"scan", "/dev/sda1"});
  EXPECT_EQ(answer.at("device"), "/dev/sda1");
  EXPECT_EQ(answer.at("watch").at("member"), "scan");
  scans_settle();
  EXPECT_FALSE(media({"scan", "Holiday", "cancel"}).contains("watch"));
  EXPECT_EQ(report().state, "done");
  EXPECT_NE(error(media({"scan", "sdz1"})).find("no stick"), std::string::npos);
  EXPECT_NE(error(media({"scan", "sda1", "now"})), "no error");
  EXPECT_NE(error(media({"nonsense"})).find("thumbnails"), std::string::npos);
}

TEST_F(MediaCommand, ThumbnailsAreMadeOnce) {
  const json::object made = thumbnail(at("beach.bmp"));
  ASSERT_TRUE(made.contains("jpeg")) << made;
  EXPECT_TRUE(made.at("jpeg").as_string().starts_with("/9j/")) << "FF D8 FF, where a JPEG begins";
  const std::string folder = state.path + "/thumbnails";
  const auto count = [&] { return std::distance(fs::directory_iterator(folder), fs::directory_iterator()); };
  EXPECT_EQ(count(), 1);
  EXPECT_EQ(media({"thumbnails", at("beach.bmp")}).at("thumbnails").at(0), made);
  restart();
  EXPECT_EQ(media({"thumbnails", at("beach.bmp")}).at("thumbnails").at(0), made) << "without waiting";
  write_file("beach.bmp", bmp_bytes(30, 40));
  EXPECT_TRUE(thumbnail(at("beach.bmp")).contains("jpeg"));
  EXPECT_EQ(count(), 2) << "a changed file has another one";
  std::string why;
  const std::string path = library_thumbnail(at("film.mp4"), 32, 32, why);
  EXPECT_TRUE(path.starts_with(folder + "/")) << why;
  EXPECT_TRUE(fs::exists(path));
  fs::remove(path);
  EXPECT_EQ(library_thumbnail(at("film.mp4"), 32, 32, why), path) << "made again";
  EXPECT_TRUE(fs::exists(path));
}

TEST_F(MediaCommand, SaysWhyAFileHasNoThumbnail) {
  EXPECT_TRUE(thumbnail(at("broken.jpg")).contains("none"));
  EXPECT_TRUE(thumbnail(at("Music/a.wav")).contains("none")) << "it has no cover";
  EXPECT_TRUE(thumbnail(at("Photos")).contains("none"));
  EXPECT_TRUE(thumbnail("/etc/passwd").contains("none"));
  EXPECT_TRUE(thumbnail(at("../../tv.sqlite")).contains("none"));
  std::string why;
  EXPECT_EQ(library_thumbnail(at("beach.bmp"), 0, 10, why), "");
  EXPECT_EQ(library_thumbnail(at("beach.bmp"), kWidestThumbnail + 1, 10, why), "");
  EXPECT_NE(why.find("at most"), std::string::npos);
  EXPECT_NE(error(media({"thumbnails"})), "no error");
}

TEST_F(MediaCommand, TheThumbnailCacheHasALimit) {
  dtv_tv_stop();
  const std::string folder = state.path + "/thumbnails";
  for (std::size_t i = 0; i < kMostThumbnails + 10; ++i)
    std::ofstream(folder + "/k" + std::to_string(i) + ".jpg") << "x";
  std::ofstream(folder + "/half.jpg.part") << "x";
  fs::last_write_time(folder + "/k7.jpg", fs::file_time_type::clock::now() - std::chrono::hours(1));
  start();
  EXPECT_EQ(static_cast<std::size_t>(std::distance(fs::directory_iterator(folder), fs::directory_iterator())),
            kMostThumbnails);
  EXPECT_FALSE(fs::exists(folder + "/k7.jpg")) << "the least recently used one goes";
  EXPECT_FALSE(fs::exists(folder + "/half.jpg.part"));
}

TEST_F(MediaCommand, TheReplyDoesNotWaitForThumbnails) {
  std::vector<std::string> words = {"media", "thumbnails"};
  for (int i = 0; i < 24; ++i) words.push_back(at("missing" + std::to_string(i) + ".bmp"));
  EXPECT_EQ(run(words).at("thumbnails").as_array().size(), 24u);
  words.push_back(at("one more.bmp"));
  EXPECT_TRUE(run(words).contains("error"));
}

}  // namespace
