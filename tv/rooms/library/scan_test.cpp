// Tests of scans: changed files, files that are left out, limits, callbacks, hostile sticks.
#include "rooms/library/scan_test.h"

#include <fcntl.h>
#include <unistd.h>

#include "rooms/library/walk.h"

namespace {

TEST_F(Scanning, AnInsertedStickIsScannedByItself) {
  write_file("a.bmp", bmp_bytes(2, 2));
  insert();
  EXPECT_EQ(list(MEDIA_TYPE_PHOTO, mount()), "a.bmp");
  EXPECT_EQ(report().state, "done");
  EXPECT_EQ(report().files, 1u);
  EXPECT_EQ(report().of, 1u);
  ASSERT_GE(heard.size(), 2u);
  EXPECT_EQ(heard.front(), VEXTVAPI_CB_SCAN_BEGUN);
  EXPECT_EQ(heard.back(), VEXTVAPI_CB_SCAN_DONE);
  EXPECT_EQ(a_vextvapi_cb_scanDone(), 1);
}

TEST_F(Scanning, NoCallbackAfterItsRegistrationHasEnded) {
  write_file("a.bmp", bmp_bytes(2, 2));
  EXPECT_EQ(a_vextvapi_cb_usb_scan_status_register_callback(nullptr, nullptr), 0);
  insert();
  EXPECT_TRUE(heard.empty());
}

TEST_F(Scanning, ASecondScanReadsOnlyWhatHasChanged) {
  for (int i = 0; i < 20; ++i) write_file("d/" + std::to_string(i) + ".bmp", bmp_bytes(2, 2));
  write_file("list.m3u", "d/1.bmp\n");
  write_file("broken.bmp", "no picture");
  insert();
  EXPECT_EQ(report().read, 22u);
  const UINT32 recid = entries(MEDIA_TYPE_PHOTO, mount()).at(3).recid;
  scan();
  EXPECT_EQ(report().read, 0u);
  EXPECT_EQ(report().files, 22u);
  EXPECT_EQ(report().left_out, 1u) << "the broken one is remembered";
  restart();
  EXPECT_EQ(report().read, 0u) << "also after the set was off";
  write_file("d/3.bmp", bmp_bytes(5, 5));
  write_file("d/20.bmp", bmp_bytes(2, 2));
  fs::remove(stick + "/d/7.bmp");
  scan();
  EXPECT_EQ(report().read, 3u) << "the changed one, the new one and the playlist, whose files may have changed";
  const auto photos = entries(MEDIA_TYPE_PHOTO, mount());
  ASSERT_EQ(photos.size(), 20u);
  EXPECT_EQ(photos[3].u.photo_info.width, 5u);
  EXPECT_EQ(photos[3].recid, recid);
  EXPECT_EQ(photos[7].media_path, at("d/8.bmp"));
}

TEST_F(Scanning, AFileOfTheSameSizeAndTimeButAnotherInodeIsReadAgain) {
  write_file("a.bmp", bmp_bytes(4, 2));
  set_time("a.bmp", 1'700'000'000);
  insert();
  write_file("b.bmp", bmp_bytes(2, 4));
  std::string other = bmp_bytes(4, 2);
  other.replace(18, 8, std::string("\x02\0\0\0\x02\0\0\0", 8));
  write_file("b.bmp", other);
  fs::rename(stick + "/b.bmp", stick + "/a.bmp");
  set_time("a.bmp", 1'700'000'000);
  scan();
  EXPECT_EQ(entries(MEDIA_TYPE_PHOTO, mount()).at(0).u.photo_info.width, 2u);
}

TEST_F(Scanning, FoldersWithoutMediaAreNotListed) {
  write_file("a/b/c/x.bmp", bmp_bytes(2, 2));
  write_file("empty/notes.txt", "x");
  insert();
  EXPECT_EQ(list(MEDIA_TYPE_FOLDER, mount()), "a");
  EXPECT_EQ(list(MEDIA_TYPE_FOLDER, at("a/b")), "a/b/c");
  fs::remove_all(stick + "/a/b/c");
  scan();
  EXPECT_EQ(list(MEDIA_TYPE_FOLDER, mount()), "");
  EXPECT_EQ(list(MEDIA_TYPE_PHOTO, mount()), "");
}

TEST_F(Scanning, HiddenFilesAndThoseOfSystemsAreSkippedAndNotReported) {
  for (const char* const path : {".hidden.bmp", "._a.bmp", ".Trash-1000/a.bmp", "$RECYCLE.BIN/a.bmp",
                                 "System Volume Information/a.bmp", "lost+found/a.bmp", "shown.bmp"})
    write_file(path, bmp_bytes(2, 2));
  insert();
  EXPECT_EQ(list(MEDIA_TYPE_PHOTO, mount()), "shown.bmp");
  EXPECT_EQ(problems(), Words{});
}

TEST_F(Scanning, TheSetsOwnFolderIsSkipped) {
  write_file("a.bmp", bmp_bytes(2, 2));
  write_file("own/recordings/b.bmp", bmp_bytes(2, 2));
  dtv_tv_stop();
  dtv_tv_stick_root(world.path.c_str());
  fs::permissions(stick + "/own", fs::perms::owner_all);
  EXPECT_EQ(tv_start(stick + "/own"), "");
  insert();
  EXPECT_EQ(media({"list", "photo", ""}).at("total"), 1);
  EXPECT_EQ(media({"list", "folder", ""}).at("total"), 0);
  dtv_tv_stop();
}

TEST_F(Scanning, HostileFilesAreLeftOut) {
  write_file("good.bmp", bmp_bytes(2, 2));
  write_file("empty.bmp", "");
  write_file("text.mp3", "this is no music");
  write_file("playlist.avi", "#EXTM3U\n/etc/passwd\n");
  ASSERT_EQ(mkfifo((stick + "/pipe.bmp").c_str(), 0600), 0);
  fs::create_symlink("/etc/passwd", stick + "/link.bmp");
  fs::create_directory_symlink(stick, stick + "/loop");
  fs::create_directory_symlink("/", stick + "/out");
  insert();
  EXPECT_EQ(report().state, "done");
  EXPECT_EQ(list(MEDIA_TYPE_PHOTO, mount()), "good.bmp");
  EXPECT_EQ(a_vextvapi_cb_get_db_count(MEDIA_TYPE_MUSIC, mount().c_str()), 0);
  EXPECT_EQ(a_vextvapi_cb_get_db_count(MEDIA_TYPE_VIDEO, mount().c_str()), 0);
  const auto found = problems();
  const auto has = [&](const std::string& begin) {
    return std::ranges::any_of(found, [&](const std::string& each) { return each.starts_with(begin); });
  };
  for (const char* const begin :
       {"empty.bmp: it is empty", "link.bmp: it is a symbolic link", "loop: it is a symbolic link",
        "out: it is a symbolic link", "pipe.bmp: it is not a regular file", "playlist.avi: ", "text.mp3: "})
    EXPECT_TRUE(has(begin)) << begin << " in " << json::serialize(media({"problems"}));
  EXPECT_EQ(found.size(), 7u);
  EXPECT_EQ(report().left_out, 7u);
}

TEST_F(Scanning, NamesWithEveryByteAreListedOrReported) {
  int made = 0;
  for (int byte = 1; byte < 256; ++byte) {
    if (byte == '/') continue;
    const std::string name = std::string("x") + static_cast<char>(byte) + ".bmp";
    std::ofstream(stick + "/" + name, std::ios::binary) << bmp_bytes(2, 2);
    ++made;
  }
  write_file("caf\xC3\xA9.bmp", bmp_bytes(2, 2));
  insert();
  EXPECT_EQ(report().state, "done");
  // Of one byte, those of ASCII without control characters can be shown; "/" is none, and 0x7F is a control character.
  EXPECT_EQ(a_vextvapi_cb_get_db_count(MEDIA_TYPE_PHOTO, mount().c_str()), (0x7F - 0x20 - 1) + 1);
  EXPECT_EQ(report().left_out, static_cast<std::uint64_t>(made - (0x7F - 0x20 - 1)));
  for (const T_MEDIA_INFO& each : entries(MEDIA_TYPE_PHOTO, mount()))
    EXPECT_TRUE(fs::exists(each.media_path)) << each.media_path;
  scan();
  EXPECT_EQ(report().read, 0u);
}

TEST_F(Scanning, PathsThatAnApplicationCannotTakeAreLeftOut) {
  std::string deep;
  for (std::size_t i = 0; i <= kDeepestFolder + 2; ++i) {
    deep += "d/";
    write_file(deep + "x.bmp", bmp_bytes(2, 2));
  }
  write_file(std::string(200, 'n') + ".bmp", bmp_bytes(2, 2));
  write_file(std::string(200, 'f') + "/" + std::string(100, 'g') + ".bmp", bmp_bytes(2, 2));
  insert();
  EXPECT_EQ(report().state, "done");
  const INT32 count = a_vextvapi_cb_get_db_count(MEDIA_TYPE_PHOTO, mount().c_str());
  const std::size_t room = kLongestMediaPath - mount().size() - 2;
  EXPECT_EQ(count, static_cast<INT32>(kDeepestFolder) + (room >= 204 ? 1 : 0)) << "those within the deepest folder";
  bool deepest = false, longest = false;
  for (const std::string& each : problems()) {
    deepest = deepest || each.ends_with("it is inside too many folders");
    longest = longest || each.ends_with("longer than an application can take");
  }
  EXPECT_TRUE(deepest);
  EXPECT_TRUE(longest);
}

TEST_F(Scanning, AnUnreadableFolderKeepsWhatIsKnown) {
  if (geteuid() == 0) GTEST_SKIP() << "the superuser reads every folder";
  write_file("a/x.bmp", bmp_bytes(2, 2));
  write_file("b/y.bmp", bmp_bytes(2, 2));
  insert();
  fs::permissions(stick + "/a", fs::perms::none);
  scan();
  fs::permissions(stick + "/a", fs::perms::owner_all);
  EXPECT_EQ(list(MEDIA_TYPE_PHOTO, mount()), "a/x.bmp b/y.bmp");
  EXPECT_EQ(problems().size(), 1u);
}

TEST_F(Scanning, ListsAHundredThousandFiles) {
  fs::create_directories(stick + "/many");
  const int folder = open((stick + "/many").c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  for (int i = 0; i < 100'000; ++i) {
    const int file = openat(folder, ("n" + std::to_string(i) + ".jpg").c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
    ASSERT_GE(file, 0);
    close(file);
  }
  close(folder);
  write_file("many/real.bmp", bmp_bytes(2, 2));
  insert();
  EXPECT_EQ(report().state, "done");
  EXPECT_EQ(report().left_out, 100'000u);
  EXPECT_EQ(problems().size(), kMostProblems);
  EXPECT_EQ(list(MEDIA_TYPE_PHOTO, mount()), "many/real.bmp");
}

TEST_F(Scanning, AStickThatComesBackAsAnotherDeviceKeepsItsRows) {
  write_file("a.bmp", bmp_bytes(2, 2));
  insert();
  media({"favourite", at("a.bmp"), "on"});
  EXPECT_TRUE(library_write([&](Database& database) {
    auto row = stick_find(database, stick);
    row->device += 1;
    return stick_put(database, *row);
  }));
  scan();
  EXPECT_EQ(report().read, 0u);
  EXPECT_EQ(entries(MEDIA_TYPE_PHOTO, mount()).at(0).favourite, 1);
}

TEST_F(Scanning, PhotosThatTheReaderCannotDecodeAreNoVideos) {
  const std::string path = stick + "/b.avif";
  const std::string make = "ffmpeg -v error -f lavfi -i testsrc=size=64x48 -frames:v 1 " + path + " 2>&1";
  // NOLINTNEXTLINE(cert-env33-c,concurrency-mt-unsafe)
  if (std::system(make.c_str()) != 0) std::ofstream(path) << "x";  // this ffmpeg writes none
  write_file("a.heic", "ftypheic");
  write_file("c.heif", bmp_bytes(2, 2));
  insert();
  EXPECT_EQ(list(MEDIA_TYPE_PHOTO, mount()), "c.heif") << "it is none";
  EXPECT_EQ(list(MEDIA_TYPE_VIDEO, mount()), "");
  EXPECT_EQ(problems(), (Words{"a.heic: photos of this format are not supported",
                               "b.avif: photos of this format are not supported"}));
}

TEST_F(Scanning, AFolderOfRefusedFilesIsNotListed) {
  write_file("bad/deep/x.jpg", "no picture");
  write_file("good/x.bmp", bmp_bytes(2, 2));
  const auto folders = [&] { return media({"stick", "sda1"}).at("folders").as_int64(); };
  insert();
  EXPECT_EQ(list(MEDIA_TYPE_FOLDER, mount()), "good");
  EXPECT_EQ(a_vextvapi_cb_get_db_count(MEDIA_TYPE_FOLDER, mount().c_str()), 1);
  EXPECT_EQ(folders(), 1);
  write_file("bad/deep/x.jpg", bmp_bytes(2, 2));
  scan();
  EXPECT_EQ(list(MEDIA_TYPE_FOLDER, mount()), "bad good");
  EXPECT_EQ(list(MEDIA_TYPE_FOLDER, at("bad")), "bad/deep");
  EXPECT_EQ(folders(), 3);
  write_file("good/x.bmp", "no picture");
  scan();
  EXPECT_EQ(list(MEDIA_TYPE_FOLDER, mount()), "bad");
  EXPECT_EQ(folders(), 2);
}

TEST_F(Scanning, ManyFilesThatAreGoneAreErasedInSteps) {
  fs::create_directories(stick + "/d");
  for (std::size_t i = 0; i < 2 * kMostErasedAtOnce + 1; ++i)
    std::ofstream(stick + "/d/" + std::to_string(i) + ".jpg") << "x";
  insert();
  EXPECT_EQ(media_count(*LibraryWriting().database), 2 * kMostErasedAtOnce + 1);
  fs::remove_all(stick + "/d");
  const std::uint64_t before = library_changes();
  scan();
  EXPECT_EQ(media_count(*LibraryWriting().database), 0);
  EXPECT_GE(library_changes() - before, 3u);
}

TEST_F(Scanning, WhatIsPlayedDuringAScanIsNotedAtOnce) {
  write_file("a.wav", wav_bytes({}));
  insert();
  for (int i = 0; i < 3000; ++i) write_file("d/" + std::to_string(i) + ".bmp", bmp_bytes(2, 2));
  EXPECT_EQ(a_vextvapi_cb_startScan(mount().c_str()), 0);
  const auto limit = std::chrono::steady_clock::now() + std::chrono::seconds(60);
  while (report().read == 0 && std::chrono::steady_clock::now() < limit) timer_pause(std::chrono::milliseconds(1));
  for (std::size_t i = 0; i < 2 * kMostNoted; ++i) library_note_played(at("d/none" + std::to_string(i)));
  library_note_played(at("a.wav"));
  while (top(MEDIA_TYPE_MUSIC, VEXTVAPI_CB_SORT_PLAYED, mount()).empty() && a_vextvapi_cb_scanDone() == 0)
    timer_pause(std::chrono::milliseconds(1));
  EXPECT_EQ(a_vextvapi_cb_scanDone(), 0) << "the scan goes on";
  scans_settle();
  EXPECT_EQ(top(MEDIA_TYPE_MUSIC, VEXTVAPI_CB_SORT_PLAYED, mount()), "a.wav");
}

TEST_F(Scanning, AResetForgetsAllSticksAndThumbnails) {
  write_file("a.bmp", bmp_bytes(20, 20));
  insert();
  media({"favourite", at("a.bmp"), "on"});
  std::string why;
  ASSERT_NE(library_thumbnail(at("a.bmp"), 16, 16, why), "") << why;
  run({"stick", "remove", "all"});
  events_settle();
  heard.clear();
  tv_control(R"(["reset"])");
  scans_settle();
  EXPECT_EQ(media_count(*LibraryWriting().database), 0) << "also of a stick that is not inserted";
  EXPECT_TRUE(fs::is_empty(state.path + "/thumbnails"));
  insert();
  EXPECT_EQ(entries(MEDIA_TYPE_PHOTO, mount()).at(0).favourite, 0);
  ASSERT_FALSE(heard.empty()) << "the application is still registered";
  EXPECT_EQ(heard.back(), VEXTVAPI_CB_SCAN_DONE);
}

TEST_F(Scanning, AnotherFolderInTheSamePlaceIsAnotherStick) {
  write_file("a.bmp", bmp_bytes(2, 2));
  insert();
  run({"stick", "remove", "all"});
  fs::rename(stick, world.path + "/Away");
  fs::create_directories(stick);
  write_file("b.bmp", bmp_bytes(2, 2));
  insert();
  EXPECT_EQ(list(MEDIA_TYPE_PHOTO, mount()), "b.bmp");
  EXPECT_EQ(media_count(*LibraryWriting().database), 1) << "the earlier one's entries are erased";
}

struct FewRows {
  explicit FewRows(LibraryLimits limits) { library_limits = limits; }
  ~FewRows() { library_limits = {}; }
  FewRows(const FewRows&) = delete;
  FewRows& operator=(const FewRows&) = delete;
};

// Three photos in a folder of the world, inserted and scanned.
void insert_three(const Scanning& set, const std::string& name) {
  const std::string folder = set.world.path + "/" + name;
  fs::create_directories(folder);
  for (const char* const file : {"1.bmp", "2.bmp", "3.bmp"})
    std::ofstream(folder + "/" + file, std::ios::binary) << bmp_bytes(2, 2);
  ASSERT_FALSE(LibrarySet::run({"stick", "insert", folder}).contains("error"));
  scans_settle();
}

TEST_F(Scanning, AFullLibraryForgetsTheSticksThatWereInsertedLeastRecently) {
  const FewRows limits({.rows = 7});
  for (const char* const name : {"A", "B"}) {
    insert_three(*this, name);
    run({"stick", "remove", "all"});
  }
  insert_three(*this, "C");
  EXPECT_EQ(list(MEDIA_TYPE_PHOTO, mount()), "1.bmp 2.bmp 3.bmp");
  EXPECT_EQ(report().left_out, 0u);
  EXPECT_EQ(media_count(*LibraryWriting().database), 6);
  EXPECT_FALSE(stick_find(*LibraryWriting().database, world.path + "/A"));
  EXPECT_TRUE(stick_find(*LibraryWriting().database, world.path + "/B"));
  // B's return takes the rest of the room; A, which is new again, finds one row besides those of inserted sticks.
  for (const char* const name : {"B", "A"}) insert_three(*this, name);
  EXPECT_EQ(media_count(*LibraryWriting().database), 7);
  EXPECT_EQ(a_vextvapi_cb_get_db_count(MEDIA_TYPE_PHOTO, (state.path + "/usb/sdc1").c_str()), 1);
  const auto left_out = problems();
  EXPECT_EQ(std::ranges::count_if(left_out, [](const auto& each) { return each.ends_with("the library is full"); }), 2);
}

TEST_F(Scanning, AChangedFileNeedsNoRoom) {
  const FewRows limits({.rows = 3});
  for (const char* const file : {"1.bmp", "2.bmp", "3.bmp"}) write_file(file, bmp_bytes(2, 2));
  insert();
  write_file("2.bmp", bmp_bytes(5, 5));
  scan();
  EXPECT_EQ(report().left_out, 0u);
  EXPECT_EQ(entries(MEDIA_TYPE_PHOTO, mount()).at(1).u.photo_info.width, 5u);
}

TEST_F(Scanning, OfManySticksThoseInsertedLeastRecentlyAreForgotten) {
  const FewRows limits({.sticks = 2});
  for (const char* const name : {"A", "B", "C"}) {
    insert_three(*this, name);
    run({"stick", "remove", "all"});
  }
  scans_settle();
  EXPECT_EQ(media_count(*LibraryWriting().database), 6);
  EXPECT_FALSE(stick_find(*LibraryWriting().database, world.path + "/A"));
}

}  // namespace
