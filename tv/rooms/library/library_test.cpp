// The library through the TV API: what lists, counts, orders, groups and look-ups return.
#include "rooms/library/library_test.h"

namespace {

constexpr std::time_t kNoon = 1'774'267'200;  // 2026-03-23 12:00 UTC

struct Library : LibrarySet {
  Library() {
    write_file("beach.bmp", bmp_bytes(8, 6));
    write_file("Photos/2.bmp", bmp_bytes(4, 4));
    write_file("Photos/10.bmp", bmp_bytes(2, 2));
    write_file("Photos/Old/1.bmp", bmp_bytes(3, 3));
    write_file("Music/b.wav",
               wav_bytes({.title = "Zebra", .artist = "Anna", .album = "One", .genre = "Jazz", .track = "2"}));
    write_file("Music/a.wav",
               wav_bytes({.title = "Apple", .artist = "Bert", .album = "Two", .genre = "Rock", .seconds = 3}));
    write_file(
        "Music/c.wav",
        wav_bytes({.title = "Élan", .artist = "anna", .album = "One", .genre = "Jazz", .track = "1", .seconds = 2}));
    write_file("Films/film.mp4", film_bytes());
    write_file("Music/all.m3u", "#EXTM3U\n#PLAYLIST:Best of\nb.wav\nc.wav\n../Films/film.mp4\nmissing.wav\n");
    write_file("notes.txt", "not a medium");
    set_time("beach.bmp", kNoon);
    set_time("Photos/2.bmp", kNoon + 60);
    set_time("Photos/10.bmp", kNoon - 60);
    set_time("Photos/Old/1.bmp", kNoon - 120);
    insert();
  }
};

TEST_F(Library, CountsByKind) {
  const INT32 expected[] = {4, 3, 1, 3, 1, 5};
  for (INT32 type = MEDIA_TYPE_PHOTO; type <= MEDIA_TYPE_SUPPER_SHOP_MODE; ++type)
    EXPECT_EQ(a_vextvapi_cb_get_db_count(type, mount().c_str()), expected[type - 1]) << type;
  EXPECT_EQ(a_vextvapi_cb_get_db_count(MEDIA_TYPE_PHOTO, at("Photos").c_str()), 3);
  EXPECT_EQ(a_vextvapi_cb_get_db_count(MEDIA_TYPE_PHOTO, at("Photos/").c_str()), 2) << "directly in it";
  EXPECT_EQ(a_vextvapi_cb_get_db_count(MEDIA_TYPE_PHOTO, at("Nothing").c_str()), 0);
  EXPECT_EQ(a_vextvapi_cb_get_db_count(MEDIA_TYPE_PHOTO, ""), 4) << "of all sticks";
  expect_words(refusal([&] { return a_vextvapi_cb_get_db_count(7, mount().c_str()); }), {"no kind of media 7"});
  expect_words(refusal([&] { return a_vextvapi_cb_get_db_count(0, mount().c_str()); }), {"no kind of media 0"});
  expect_words(refusal([] { return a_vextvapi_cb_get_db_count(1, "/tmp"); }), {"not on an inserted stick"});
  expect_words(refusal([] { return a_vextvapi_cb_get_db_count(1, nullptr); }), {"no path"});
}

TEST_F(Library, ListsByNameWithNumbersInTheirOrder) {
  EXPECT_EQ(list(MEDIA_TYPE_PHOTO, mount()), "Photos/Old/1.bmp Photos/2.bmp Photos/10.bmp beach.bmp");
  EXPECT_EQ(list(MEDIA_TYPE_PHOTO, at("Photos")), "Photos/Old/1.bmp Photos/2.bmp Photos/10.bmp");
  EXPECT_EQ(list(MEDIA_TYPE_PHOTO, at("Photos/")), "Photos/2.bmp Photos/10.bmp");
  EXPECT_EQ(list(MEDIA_TYPE_PHOTO, mount() + "/"), "beach.bmp");
  EXPECT_EQ(list(MEDIA_TYPE_PHOTO, ""), "Photos/Old/1.bmp Photos/2.bmp Photos/10.bmp beach.bmp");
  EXPECT_EQ(list(MEDIA_TYPE_FOLDER, mount()), "Films Music Photos");
  EXPECT_EQ(list(MEDIA_TYPE_FOLDER, at("Photos")), "Photos/Old");
  EXPECT_EQ(list(MEDIA_TYPE_PLAYLIST, mount()), "Music/all.m3u");
  EXPECT_EQ(list(MEDIA_TYPE_SUPPER_SHOP_MODE, mount()),
            "Photos/Old/1.bmp Photos/2.bmp Photos/10.bmp beach.bmp Films/film.mp4");
}

TEST_F(Library, ListsStopAtTheirEndAndRefuseBadArguments) {
  EXPECT_EQ(list(MEDIA_TYPE_PHOTO, mount(), 1, 2), "Photos/2.bmp Photos/10.bmp");
  EXPECT_EQ(list(MEDIA_TYPE_PHOTO, mount(), 3, 24), "beach.bmp");
  EXPECT_EQ(list(MEDIA_TYPE_PHOTO, mount(), 4), "");
  EXPECT_EQ(list(MEDIA_TYPE_PHOTO, mount(), INT32_MAX, INT32_MAX), "");
  EXPECT_EQ(list(MEDIA_TYPE_PHOTO, mount(), 0, 0), "");
  EXPECT_EQ(list(MEDIA_TYPE_FOLDER, mount(), 1, 1), "Music");
  std::vector<T_MEDIA_INFO> list(24);
  INT32 count = -1;
  refusal([&] { return a_vextvapi_get_list_by_count(list.data(), 1, mount().c_str(), 0, &count); });
  count = 5;
  refusal([&] { return a_vextvapi_get_list_by_count(list.data(), 1, mount().c_str(), -1, &count); });
  refusal([&] { return a_vextvapi_get_list_by_count(nullptr, 1, mount().c_str(), 0, &count); });
  refusal([&] { return a_vextvapi_get_list_by_count(list.data(), 1, mount().c_str(), 0, nullptr); });
  refusal([&] { return a_vextvapi_get_list_by_count(list.data(), 1, nullptr, 0, &count); });
  EXPECT_EQ(count, 5) << "a call that fails leaves it as it was";
}

TEST_F(Library, AnEntryHasTheDetailsOfItsKind) {
  const auto photo = entries(MEDIA_TYPE_PHOTO, at("Photos/")).at(0);
  EXPECT_EQ(photo.media_type, MEDIA_TYPE_PHOTO);
  EXPECT_EQ(photo.media_path, at("Photos/2.bmp"));
  EXPECT_NE(photo.recid, 0u);
  EXPECT_EQ(photo.u.photo_info.width, 4u);
  EXPECT_EQ(photo.u.photo_info.height, 4u);
  EXPECT_EQ(photo.u.photo_info.size, 54u + 48u);
  EXPECT_EQ(photo.date.iyear, 2026);
  EXPECT_EQ(photo.date.imonth, 3);
  EXPECT_EQ(photo.date.iday, 23);
  EXPECT_EQ(photo.date.iminute, 1);
  const auto song = entries(MEDIA_TYPE_MUSIC, mount()).at(1);
  EXPECT_STREQ(song.u.music_info.title, "Zebra");
  EXPECT_STREQ(song.u.music_info.artist, "Anna");
  EXPECT_STREQ(song.u.music_info.album, "One");
  EXPECT_STREQ(song.u.music_info.genre, "Jazz");
  EXPECT_STREQ(song.u.music_info.track, "2");
  EXPECT_EQ(song.u.music_info.duration, 1u);
  const auto film = entries(MEDIA_TYPE_VIDEO, mount()).at(0);
  EXPECT_STREQ(film.u.video_info.title, "Test film");
  EXPECT_STREQ(film.u.video_info.year, "2001");
  EXPECT_EQ(film.u.video_info.duration, 2u);
  EXPECT_EQ(film.u.video_info.size, static_cast<double>(film_bytes().size()));
  const auto folder = entries(MEDIA_TYPE_FOLDER, mount()).at(0);
  EXPECT_EQ(folder.media_type, MEDIA_TYPE_FOLDER);
  EXPECT_EQ(folder.media_path, at("Films"));
}

TEST_F(Library, APlaylistLastsAsLongAsTheFilesThatItNames) {
  const auto playlist = entries(MEDIA_TYPE_PLAYLIST, mount()).at(0);
  EXPECT_STREQ(playlist.u.playlist_info.title, "Best of");
  EXPECT_STREQ(playlist.u.playlist_info.artist, "") << "its files have several";
  EXPECT_EQ(playlist.u.playlist_info.duration, 5u) << "1 s, 2 s and a film of 2 s";
  EXPECT_EQ(list(MEDIA_TYPE_MUSIC, at("Music/all.m3u")), "Music/b.wav Music/c.wav");
  EXPECT_EQ(list(MEDIA_TYPE_VIDEO, at("Music/all.m3u")), "Films/film.mp4");
  const auto entries = library_playlist(at("Music/all.m3u"));
  ASSERT_EQ(entries.size(), 3u);
  EXPECT_EQ(entries[2].path, at("Films/film.mp4"));
}

TEST_F(Library, TopListsAreInTheirOrder) {
  constexpr INT32 kDown = VEXTVAPI_CB_SORT_DESCENDING;
  EXPECT_EQ(top(MEDIA_TYPE_PHOTO, VEXTVAPI_CB_SORT_NAME + kDown, mount()),
            "beach.bmp Photos/10.bmp Photos/2.bmp Photos/Old/1.bmp");
  EXPECT_EQ(top(MEDIA_TYPE_PHOTO, VEXTVAPI_CB_SORT_DATE, mount()),
            "Photos/Old/1.bmp Photos/10.bmp beach.bmp Photos/2.bmp");
  EXPECT_EQ(top(MEDIA_TYPE_PHOTO, VEXTVAPI_CB_SORT_DATE + kDown, at("Photos")),
            "Photos/2.bmp Photos/10.bmp Photos/Old/1.bmp");
  EXPECT_EQ(top(MEDIA_TYPE_PHOTO, VEXTVAPI_CB_SORT_SIZE, mount()),
            "Photos/10.bmp Photos/Old/1.bmp Photos/2.bmp beach.bmp");
  EXPECT_EQ(top(MEDIA_TYPE_PHOTO, VEXTVAPI_CB_SORT_ARTIST, at("Photos/")), "Photos/2.bmp Photos/10.bmp")
      << "photos have no artist: by name";
  EXPECT_EQ(top(MEDIA_TYPE_MUSIC, VEXTVAPI_CB_SORT_TITLE, mount()), "Music/a.wav Music/c.wav Music/b.wav")
      << "accents do not count";
  EXPECT_EQ(top(MEDIA_TYPE_MUSIC, VEXTVAPI_CB_SORT_DURATION + kDown, mount()), "Music/a.wav Music/c.wav Music/b.wav");
  EXPECT_EQ(top(MEDIA_TYPE_SUPPER_SHOP_MODE, VEXTVAPI_CB_SORT_SIZE + kDown, mount(), 0, 2), "Films/film.mp4 beach.bmp");
  std::vector<T_MEDIA_INFO> list(24);
  INT32 count = 24;
  for (const INT32 sort : {-1, 11, 100, 111, INT32_MAX}) {
    expect_words(
        refusal([&] { return a_vextvapi_get_top_list_by_sort_type(list.data(), 1, sort, mount().c_str(), 0, &count); }),
        {"no order", std::to_string(sort)});
  }
}

TEST_F(Library, ListsGroupsAndTheirFiles) {
  EXPECT_EQ(top(MEDIA_TYPE_MUSIC, VEXTVAPI_CB_SORT_ARTIST, mount()).size(),
            std::string("Music/b.wav Music/a.wav").size())
      << "one for Anna, one for Bert";
  EXPECT_EQ(a_vextvapi_cb_get_top_list_db_count(MEDIA_TYPE_MUSIC, VEXTVAPI_CB_SORT_ARTIST, mount().c_str()), 2);
  EXPECT_EQ(a_vextvapi_cb_get_top_list_db_count(MEDIA_TYPE_MUSIC, VEXTVAPI_CB_SORT_GENRE, ""), 2);
  EXPECT_EQ(a_vextvapi_cb_get_top_list_db_count(MEDIA_TYPE_MUSIC, VEXTVAPI_CB_SORT_ARTIST, "ANNA"), 2);
  EXPECT_EQ(a_vextvapi_cb_get_top_list_db_count(MEDIA_TYPE_MUSIC, VEXTVAPI_CB_SORT_NAME, ""), 3);
  EXPECT_EQ(a_vextvapi_cb_get_top_list_db_count(MEDIA_TYPE_PHOTO, VEXTVAPI_CB_SORT_DATE, at("Photos").c_str()), 3);
  EXPECT_EQ(rec(MEDIA_TYPE_MUSIC, VEXTVAPI_CB_SORT_ARTIST, "Anna", mount()), "Music/c.wav Music/b.wav")
      << "by album and track";
  EXPECT_EQ(rec(MEDIA_TYPE_MUSIC, VEXTVAPI_CB_SORT_ALBUM, "two", mount()), "Music/a.wav");
  EXPECT_EQ(rec(MEDIA_TYPE_MUSIC, VEXTVAPI_CB_SORT_GENRE, "Polka", mount()), "");
  EXPECT_EQ(rec(MEDIA_TYPE_VIDEO, VEXTVAPI_CB_SORT_DATE, "", mount()), "") << "nothing has been recorded";
  EXPECT_EQ(rec(MEDIA_TYPE_PHOTO, VEXTVAPI_CB_SORT_DATE, "", mount()), "");
  refusal([] { return a_vextvapi_cb_get_top_list_db_count(MEDIA_TYPE_PHOTO, VEXTVAPI_CB_SORT_DATE, "Anna"); });
  refusal([] { return a_vextvapi_cb_get_top_list_db_count(MEDIA_TYPE_FOLDER, VEXTVAPI_CB_SORT_DATE, ""); });
}

TEST_F(Library, TheSetOrderIsKept) {
  EXPECT_EQ(a_vextvapi_set_sort_type(MEDIA_TYPE_PHOTO, VEXTVAPI_CB_SORT_SIZE), 0);
  EXPECT_EQ(list(MEDIA_TYPE_PHOTO, mount()), "Photos/10.bmp Photos/Old/1.bmp Photos/2.bmp beach.bmp");
  EXPECT_EQ(list(MEDIA_TYPE_MUSIC, mount()), "Music/a.wav Music/b.wav Music/c.wav") << "of another kind";
  EXPECT_EQ(top(MEDIA_TYPE_PHOTO, VEXTVAPI_CB_SORT_SET, mount()),
            "Photos/10.bmp Photos/Old/1.bmp Photos/2.bmp beach.bmp");
  restart();
  EXPECT_EQ(list(MEDIA_TYPE_PHOTO, mount()), "Photos/10.bmp Photos/Old/1.bmp Photos/2.bmp beach.bmp");
  tv_control(R"(["reset"])");
  EXPECT_EQ(run({"stick", "insert", stick}).contains("error"), false);
  scans_settle();
  EXPECT_EQ(list(MEDIA_TYPE_PHOTO, mount()), "Photos/Old/1.bmp Photos/2.bmp Photos/10.bmp beach.bmp");
  for (const INT32 sort : {-1, 11, 100, 0, 111})
    refusal([&] { return a_vextvapi_set_sort_type(MEDIA_TYPE_PHOTO, sort); });
  for (const INT32 type : {-1, 0, 7}) refusal([&] { return a_vextvapi_set_sort_type(type, VEXTVAPI_CB_SORT_NAME); });
}

TEST_F(Library, TheSetOrderHasGroups) {
  EXPECT_EQ(a_vextvapi_set_sort_type(MEDIA_TYPE_MUSIC, VEXTVAPI_CB_SORT_ARTIST), 0);
  EXPECT_EQ(rec(MEDIA_TYPE_MUSIC, VEXTVAPI_CB_SORT_SET, "Anna", mount()), "Music/c.wav Music/b.wav");
  EXPECT_EQ(a_vextvapi_cb_get_top_list_db_count(MEDIA_TYPE_MUSIC, VEXTVAPI_CB_SORT_SET, "Anna"), 2);
}

TEST_F(Library, DatesAreOfTheSetsZone) {
  const auto date_of = [&](const std::string& path) {
    std::string why;
    std::vector<MediaItem> items;
    EXPECT_TRUE(media_list({.path = at(path), .all = true, .sort = VEXTVAPI_CB_SORT_NAME}, 0, 1, items, nullptr, why));
    return items.empty() ? 0 : items[0].row.date;
  };
  write_file("summer/a.bmp", bmp_bytes(2, 2));
  set_time("summer/a.bmp", 1'690'000'000);  // 2023-07-22T04:26:40Z
  write_file("winter/a.bmp", bmp_bytes(2, 2));
  set_time("winter/a.bmp", 1'700'000'000);  // 2023-11-14T22:13:20Z
  write_file("film/a.mp4", film_bytes());
  write_file("later/a.bmp", bmp_bytes(2, 2));
  set_time("later/a.bmp", 100'000'000'000);  // in the year 5138
  const std::string film = stick + "/film/b.mp4";
  // NOLINTNEXTLINE(cert-env33-c,concurrency-mt-unsafe)
  ASSERT_EQ(std::system(("ffmpeg -v error -i " + stick + "/film/a.mp4 -c copy -metadata date= -metadata " +
                         "creation_time=2026-03-23T14:15:00Z " + film)
                            .c_str()),
            0);
  fs::remove(stick + "/film/a.mp4");
  EXPECT_EQ(a_vextvapi_config_set_str_value("g_time__tz_name", "Pacific/Honolulu"), 0);
  scan();
  EXPECT_EQ(date_of("winter"), 20231114121320);
  EXPECT_EQ(date_of("film"), 20260323041500) << "the time of a film is UTC";
  EXPECT_EQ(date_of("later") / 10'000'000'000, 2262);
  for (const char* const path : {"summer/a.bmp", "winter/a.bmp", "film/b.mp4"}) fs::remove(stick + "/" + path);
  scan();
  EXPECT_EQ(report().read, 1u) << "the playlist";
  write_file("summer/a.bmp", bmp_bytes(2, 2));
  set_time("summer/a.bmp", 1'690'000'000);
  write_file("winter/a.bmp", bmp_bytes(2, 2));
  set_time("winter/a.bmp", 1'700'000'000);
  EXPECT_EQ(a_vextvapi_config_set_str_value("g_time__tz_name", "Europe/Berlin"), 0);
  scan();
  EXPECT_EQ(date_of("summer"), 20230722062640);
  EXPECT_EQ(date_of("winter"), 20231114231320);
}

TEST_F(Library, FindsAFileByItsIndex) {
  VEXTVAPI_CB_MUSIC_T music{};
  VEXTVAPI_CB_VIDEO_T video{};
  VEXTVAPI_CB_PHOTO_T photo{};
  T_CBROWSER query{};
  std::strcpy(query.path, mount().c_str());
  query.index = 1;
  ASSERT_EQ(a_vextvapi_get_list_by_idx(&music, &video, &photo, MEDIA_TYPE_MUSIC, &query), 0);
  EXPECT_EQ(music.media_type, MEDIA_TYPE_MUSIC);
  EXPECT_EQ(music.media_path, at("Music/b.wav"));
  EXPECT_STREQ(music.title, "Zebra");
  query.index = 0;
  query.sort = VEXTVAPI_CB_SORT_SIZE;
  ASSERT_EQ(a_vextvapi_get_list_by_idx(&music, &video, &photo, MEDIA_TYPE_PHOTO, &query), 0);
  EXPECT_EQ(photo.media_path, at("Photos/10.bmp"));
  EXPECT_EQ(photo.width, 2u);
  ASSERT_EQ(a_vextvapi_get_list_by_idx(&music, &video, &photo, MEDIA_TYPE_VIDEO, &query), 0);
  EXPECT_EQ(video.media_path, at("Films/film.mp4"));
  EXPECT_EQ(video.duration, 2u);
  query.index = 4;
  expect_words(refusal([&] { return a_vextvapi_get_list_by_idx(&music, &video, &photo, MEDIA_TYPE_PHOTO, &query); }),
               {"ends before index 4"});
  refusal([&] { return a_vextvapi_get_list_by_idx(&music, &video, &photo, MEDIA_TYPE_FOLDER, &query); });
  refusal([&] { return a_vextvapi_get_list_by_idx(nullptr, &video, &photo, MEDIA_TYPE_PHOTO, &query); });
  refusal([&] { return a_vextvapi_get_list_by_idx(&music, &video, &photo, MEDIA_TYPE_PHOTO, nullptr); });
  std::memset(query.path, 'x', sizeof query.path);  // not terminated
  refusal([&] { return a_vextvapi_get_list_by_idx(&music, &video, &photo, MEDIA_TYPE_PHOTO, &query); });
}

TEST_F(Library, GivesTheFactsOfAFileByItsPathOrName) {
  T_MEDIA_DETAILS details{};
  ASSERT_EQ(a_vextvapi_get_metaData(&details, MEDIA_TYPE_MUSIC, "c.wav", at("Music").c_str()), 0);
  EXPECT_STREQ(details.music_info.title, "Élan");
  ASSERT_EQ(a_vextvapi_get_metaData(&details, MEDIA_TYPE_PHOTO, at("beach.bmp").c_str(), ""), 0);
  EXPECT_EQ(details.photo_info.width, 8u);
  ASSERT_EQ(a_vextvapi_get_metaData(&details, MEDIA_TYPE_PHOTO, at("beach.bmp").c_str(), nullptr), 0);
  ASSERT_EQ(a_vextvapi_get_metaData(&details, MEDIA_TYPE_PLAYLIST, "Music/all.m3u", mount().c_str()), 0);
  EXPECT_STREQ(details.playlist_info.title, "Best of");
  for (const char* const folder : {"Music/", "Music//", "/Music"})
    EXPECT_EQ(a_vextvapi_get_metaData(&details, MEDIA_TYPE_MUSIC, "c.wav", at(folder).c_str()), 0) << folder;
  const auto fails = [&](INT32 type, const std::string& file) {
    return refusal([&] { return a_vextvapi_get_metaData(&details, type, file.c_str(), mount().c_str()); });
  };
  expect_words(fails(MEDIA_TYPE_PHOTO, "Music/c.wav"), {"is of kind 2, not 1"});
  expect_words(fails(MEDIA_TYPE_PHOTO, "nothing.bmp"), {"not in the library"});
  expect_words(fails(MEDIA_TYPE_PHOTO, "/etc/passwd"), {"not on an inserted stick"});
  expect_words(fails(MEDIA_TYPE_PHOTO, "../../../etc/passwd"), {"not in the library"});
  expect_words(fails(MEDIA_TYPE_FOLDER, "Music"), {"no kind of media 4"});
  refusal([&] { return a_vextvapi_get_metaData(nullptr, MEDIA_TYPE_PHOTO, "beach.bmp", mount().c_str()); });
  refusal([&] { return a_vextvapi_get_metaData(&details, MEDIA_TYPE_PHOTO, nullptr, mount().c_str()); });
}

TEST_F(Library, TellsWhetherTheSetMayJumpAndWhetherTheFileSystemIsExt4) {
  T_CBROWSER query{};
  std::strcpy(query.path, mount().c_str());
  UINT8 may = 1;
  EXPECT_EQ(a_vextvapi_cb_checkJumpStatus(&query, &may), 0);
  EXPECT_EQ(may, 1);
  EXPECT_EQ(media({"jump", "off"}), (json::object{{"jump", false}}));
  EXPECT_EQ(a_vextvapi_cb_checkJumpStatus(&query, &may), 0);
  EXPECT_EQ(may, 0);
  media({"jump", "on"});
  may = 1;
  fs::create_directories(world.path + "/Empty");
  run({"stick", "insert", world.path + "/Empty"});
  scans_settle();
  std::strcpy(query.path, (state.path + "/usb/sdb1").c_str());
  EXPECT_EQ(a_vextvapi_cb_checkJumpStatus(&query, &may), 0);
  EXPECT_EQ(may, 0) << "it has nothing to show";
  std::strcpy(query.path, "/elsewhere");
  refusal([&] { return a_vextvapi_cb_checkJumpStatus(&query, &may); });
  refusal([&] { return a_vextvapi_cb_checkJumpStatus(nullptr, &may); });
  EXPECT_EQ(a_vextvapi_cb_checkDevExt4Status(&query), 0);
  EXPECT_EQ(a_vextvapi_cb_checkDevExt4Status(nullptr), 0);
  std::strcpy(query.path, mount().c_str());
  // NOLINTNEXTLINE(cert-env33-c,concurrency-mt-unsafe)
  const bool is_ext4 = std::system(("test \"$(stat -f -c %T " + stick + ")\" = ext2/ext3").c_str()) == 0;
  EXPECT_EQ(a_vextvapi_cb_checkDevExt4Status(&query) != 0, is_ext4);
}

TEST_F(Library, LoadsAndDropsAStick) {
  EXPECT_EQ(a_vextvapi_cb_init(mount().c_str()), 0);
  EXPECT_EQ(a_vextvapi_cb_scanDone(), 1) << "nothing was to be scanned";
  EXPECT_EQ(a_vextvapi_cb_deinit(mount().c_str()), 0);
  EXPECT_EQ(a_vextvapi_cb_get_db_count(MEDIA_TYPE_PHOTO, mount().c_str()), 0);
  EXPECT_EQ(list(MEDIA_TYPE_PHOTO, mount()), "");
  scans_settle();
  EXPECT_EQ(media_count(*LibraryWriting().database), 0);
  EXPECT_EQ(a_vextvapi_cb_init(mount().c_str()), 0);
  scans_settle();
  EXPECT_EQ(a_vextvapi_cb_get_db_count(MEDIA_TYPE_PHOTO, mount().c_str()), 4);
  for (const char* const path : {"/", "", "/elsewhere"}) {
    refusal([&] { return a_vextvapi_cb_init(path); });
    refusal([&] { return a_vextvapi_cb_deinit(path); });
    refusal([&] { return a_vextvapi_cb_startScan(path); });
    refusal([&] { return a_vextvapi_cb_stopScan(path); });
    refusal([&] { return a_vextvapi_usb_stopinfo_delete(path); });
  }
  refusal([] { return a_vextvapi_cb_init(nullptr); });
}

TEST_F(Library, ARemovedSticksListsAreGoneAndComeBack) {
  run({"stick", "remove", "all"});
  refusal([&] { return a_vextvapi_cb_get_db_count(MEDIA_TYPE_PHOTO, mount().c_str()); });
  EXPECT_EQ(list(MEDIA_TYPE_PHOTO, ""), "");
  EXPECT_EQ(a_vextvapi_cb_scanDone(), 1);
  insert();
  EXPECT_EQ(list(MEDIA_TYPE_PHOTO, mount()), "Photos/Old/1.bmp Photos/2.bmp Photos/10.bmp beach.bmp");
  EXPECT_EQ(report().read, 0u) << "no file has changed";
}

TEST_F(Library, OtherRoomsFindNeighbours) {
  EXPECT_EQ(library_neighbour(at("Photos/2.bmp"), 1)->path, at("Photos/10.bmp"));
  EXPECT_EQ(library_neighbour(at("Photos/10.bmp"), -1)->path, at("Photos/2.bmp"));
  EXPECT_FALSE(library_neighbour(at("Photos/10.bmp"), 1));
  EXPECT_FALSE(library_neighbour(at("Photos/2.bmp"), -1));
  EXPECT_FALSE(library_neighbour("/nowhere", 1));
  EXPECT_EQ(library_entry(at("Films/film.mp4"))->title, "Test film");
  EXPECT_FALSE(library_entry(at("Films")));
  const auto all = library_folder(mount(), MEDIA_TYPE_NULL, 0, 10);
  ASSERT_EQ(all.size(), 4u);
  EXPECT_EQ(all[0].path, at("Films"));
  EXPECT_EQ(all[3].path, at("beach.bmp"));
  EXPECT_EQ(library_folder(mount(), MEDIA_TYPE_PHOTO, 0, 10).size(), 1u);
  EXPECT_TRUE(library_folder("", MEDIA_TYPE_PHOTO, 0, 10).empty());
}

}  // namespace
