// Scans: what is read again, what is left out, progress and callbacks, cancelling, hostile sticks, failures.
#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>

#include "rooms/library/library_test.h"
#include "rooms/library/walk.h"

namespace {

std::vector<INT32> heard;  // on the event thread; read after events_settle
std::atomic<int> begun = 0;

INT32 listen(INT32 type, void* tag) {
  EXPECT_EQ(tag, &heard);
  heard.push_back(type);
  if (type == VEXTVAPI_CB_SCAN_BEGUN) ++begun;
  return 0;
}

struct Scanning : LibrarySet {
  Scanning() {
    heard.clear();
    begun = 0;
    EXPECT_EQ(a_vextvapi_cb_usb_scan_status_register_callback(listen, &heard), 0);
  }
  // "name: why" of all that was left out, sorted.
  std::vector<std::string> problems() const {
    std::vector<std::string> found;
    const json::object answer = media({"problems"});
    for (const json::value& each : answer.at("problems").as_array()) {
      const std::string path(each.at("path").as_string());
      found.push_back(path.substr(std::min(path.size(), mount().size() + 1)) + ": " +
                      std::string(each.at("why").as_string()));
    }
    std::ranges::sort(found);
    return found;
  }
};

using Words = std::vector<std::string>;

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

TEST_F(Scanning, StoppingEndsAScanWithinASecond) {
  for (int i = 0; i < 3000; ++i) write_file("d/" + std::to_string(i) + ".bmp", bmp_bytes(2, 2));
  ASSERT_FALSE(run({"stick", "insert", stick}).contains("error"));
  const auto limit = std::chrono::steady_clock::now() + std::chrono::seconds(60);
  while (report().read == 0 && std::chrono::steady_clock::now() < limit) timer_pause(std::chrono::milliseconds(1));
  EXPECT_EQ(a_vextvapi_cb_scanDone(), 0);
  const auto begin = std::chrono::steady_clock::now();
  EXPECT_EQ(a_vextvapi_cb_stopScan(mount().c_str()), 0);
  scans_settle();
  EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(10));
  events_settle();
  EXPECT_EQ(report().state, "cancelled");
  EXPECT_EQ(heard.back(), VEXTVAPI_CB_SCAN_CANCELLED);
  EXPECT_LT(report().read, 3000u);
  const std::uint64_t read = report().read;
  scan();
  EXPECT_EQ(report().state, "done");
  EXPECT_LE(report().read, 3000 - read + kMostWrittenAtOnce) << "what was read before stays";
  EXPECT_EQ(a_vextvapi_cb_stopScan(mount().c_str()), 0) << "none runs";
}

TEST_F(Scanning, ARemovedSticksScanEnds) {
  for (int i = 0; i < 1000; ++i) write_file("d/" + std::to_string(i) + ".bmp", bmp_bytes(2, 2));
  ASSERT_FALSE(run({"stick", "insert", stick}).contains("error"));
  const auto limit = std::chrono::steady_clock::now() + std::chrono::seconds(60);
  while (report().read == 0 && std::chrono::steady_clock::now() < limit) timer_pause(std::chrono::milliseconds(1));
  run({"stick", "remove", "all"});
  scans_settle();
  events_settle();
  EXPECT_EQ(heard.back(), VEXTVAPI_CB_SCAN_FAILED);
  insert();
  EXPECT_EQ(a_vextvapi_cb_get_db_count(MEDIA_TYPE_PHOTO, mount().c_str()), 1000);
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

TEST_F(Scanning, ADamagedDatabaseIsReplacedAndFilledAgain) {
  for (int i = 0; i < 300; ++i) write_file("d/" + std::to_string(i) + ".bmp", bmp_bytes(2, 2));
  insert();
  dtv_tv_stop();
  const std::string path = state.path + "/media.sqlite";
  {
    std::fstream file(path, std::ios::in | std::ios::out | std::ios::binary);
    const auto size = static_cast<std::streamoff>(fs::file_size(path));
    for (std::streamoff at = 4096 * 4; at + 512 < size; at += 4096) {
      file.seekp(at);
      file << std::string(512, '\xA5');
    }
  }
  testing::internal::CaptureStderr();
  start();
  scans_settle();
  const std::string log = testing::internal::GetCapturedStderr();
  EXPECT_NE(log.find("media.sqlite is damaged"), std::string::npos) << log;
  EXPECT_EQ(a_vextvapi_cb_get_db_count(MEDIA_TYPE_PHOTO, mount().c_str()), 300);
}

TEST_F(Scanning, AfterAKillTheScanGoesOn) {
  for (int i = 0; i < 600; ++i) write_file("d/" + std::to_string(i) + ".bmp", bmp_bytes(2, 2));
  dtv_tv_stop();
  const std::string program = fs::read_symlink("/proc/self/exe").string();
  const pid_t child = fork();
  if (child == 0) {
    // exec, so that no thread of this process is missing: the program is this one, with one test of its own.
    for (const char* const shard : {"GTEST_TOTAL_SHARDS", "GTEST_SHARD_INDEX"}) unsetenv(shard);
    setenv("LIBRARY_KILL_STATE", state.path.c_str(), 1);
    setenv("LIBRARY_KILL_STICK", stick.c_str(), 1);
    execl(program.c_str(), program.c_str(), "--gtest_filter=ScanningChild.DISABLED_Scans",
          "--gtest_also_run_disabled_tests", static_cast<char*>(nullptr));
    _exit(127);
  }
  int status = 0;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  ASSERT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL) << status;
  start();
  scans_settle();
  EXPECT_EQ(report().state, "done");
  EXPECT_EQ(a_vextvapi_cb_get_db_count(MEDIA_TYPE_PHOTO, mount().c_str()), 600);
  EXPECT_LT(report().read, 600u) << "what was written before is not read again";
}

// The process that AfterAKillTheScanGoesOn kills.
TEST(ScanningChild, DISABLED_Scans) {
  const char* const state = getenv("LIBRARY_KILL_STATE");
  const char* const stick = getenv("LIBRARY_KILL_STICK");
  ASSERT_TRUE(state != nullptr && stick != nullptr);
  dtv_tv_stick_root(fs::path(stick).parent_path().c_str());
  ASSERT_EQ(tv_start(state), "");
  LibrarySet::run({"stick", "insert", stick});
  const auto limit = std::chrono::steady_clock::now() + std::chrono::seconds(120);
  while (scan_report(usb_sticks().at(0)).files < 200) {
    ASSERT_LT(std::chrono::steady_clock::now(), limit) << scan_report(usb_sticks().at(0)).reason;
    timer_pause(std::chrono::milliseconds(1));
  }
  kill(getpid(), SIGKILL);
}

}  // namespace
