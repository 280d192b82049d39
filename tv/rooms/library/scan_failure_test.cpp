// Scans that do not come to their end: cancelled ones, sticks that disappear, files that crash the reader, a damaged
// database, a full disk, a set that is killed.
#include <sched.h>
#include <sys/mount.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>

#include "rooms/library/reader.h"
#include "rooms/library/scan_test.h"

namespace {

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

TEST_F(Scanning, AScanThatWaitsFailsWhenItsStickIsRemoved) {
  for (int i = 0; i < 3000; ++i) write_file("d/" + std::to_string(i) + ".bmp", bmp_bytes(2, 2));
  ASSERT_FALSE(run({"stick", "insert", stick}).contains("error"));
  fs::create_directories(world.path + "/Other");
  ASSERT_FALSE(run({"stick", "insert", world.path + "/Other"}).contains("error"));
  run({"stick", "remove", "/dev/sdb1"});
  scans_settle();
  events_settle();
  EXPECT_EQ(heard.back(), VEXTVAPI_CB_SCAN_DONE);
  EXPECT_EQ(std::ranges::count(heard, INT32{VEXTVAPI_CB_SCAN_FAILED}), 1);
  EXPECT_EQ(begun, 1);
}

TEST_F(Scanning, APlaylistHasItsNewLengthAfterAnInterruptedScan) {
  write_file("a.wav", wav_bytes({.seconds = 1}));
  write_file("list.m3u", "a.wav\n");
  insert();
  EXPECT_EQ(entries(MEDIA_TYPE_PLAYLIST, mount()).at(0).u.playlist_info.duration, 1u);
  write_file("a.wav", wav_bytes({.seconds = 3}));
  for (int i = 0; i < 3000; ++i) write_file("d/" + std::to_string(i) + ".bmp", bmp_bytes(2, 2));
  EXPECT_EQ(a_vextvapi_cb_startScan(mount().c_str()), 0);
  const auto limit = std::chrono::steady_clock::now() + std::chrono::seconds(60);
  while (report().read < kMostWrittenAtOnce && std::chrono::steady_clock::now() < limit)
    timer_pause(std::chrono::milliseconds(1));
  EXPECT_EQ(a_vextvapi_cb_stopScan(mount().c_str()), 0);
  scans_settle();
  ASSERT_EQ(report().state, "cancelled");
  ASSERT_EQ(entries(MEDIA_TYPE_MUSIC, mount()).at(0).u.music_info.duration, 3u) << "it was read before";
  scan();
  EXPECT_EQ(entries(MEDIA_TYPE_PLAYLIST, mount()).at(0).u.playlist_info.duration, 3u);
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

// Inserts the stick, which has many files, and returns while they are read.
void insert_and_read(const Scanning& set) {
  ASSERT_FALSE(LibrarySet::run({"stick", "insert", set.stick}).contains("error"));
  const auto limit = std::chrono::steady_clock::now() + std::chrono::seconds(60);
  while (set.report().read == 0 && std::chrono::steady_clock::now() < limit) timer_pause(std::chrono::milliseconds(1));
}

TEST_F(Scanning, AStickThatDisappearsWhileItsFilesAreReadFailsTheScan) {
  for (int i = 0; i < 3000; ++i) write_file("d/" + std::to_string(i) + ".bmp", bmp_bytes(2, 2));
  insert_and_read(*this);
  fs::rename(stick + "/d", stick + "/e");  // no file is where the walk has seen it
  fs::rename(stick, world.path + "/Away");
  scans_settle();
  events_settle();
  EXPECT_EQ(report().state, "failed");
  EXPECT_NE(report().reason.find("cannot be read any more"), std::string::npos) << report().reason;
  EXPECT_EQ(heard.back(), VEXTVAPI_CB_SCAN_FAILED);
  const std::uint64_t read = report().read;
  EXPECT_LT(read, 3000u);
  fs::rename(world.path + "/Away", stick);
  fs::rename(stick + "/e", stick + "/d");
  scan();
  EXPECT_EQ(report().state, "done");
  EXPECT_LE(report().read, 3000 - read);
  EXPECT_EQ(a_vextvapi_cb_get_db_count(MEDIA_TYPE_PHOTO, mount().c_str()), 3000);
}

TEST_F(Scanning, AnotherFolderThatTakesTheSticksPlaceFailsTheScan) {
  for (int i = 0; i < 3000; ++i) write_file("d/" + std::to_string(i) + ".bmp", bmp_bytes(2, 2));
  insert_and_read(*this);
  fs::rename(stick, world.path + "/Away");  // its files can still be read through the folder that is open
  fs::create_directories(stick);
  scans_settle();
  EXPECT_EQ(report().state, "failed");
  EXPECT_NE(report().reason.find("another folder is in its place"), std::string::npos) << report().reason;
}

TEST_F(Scanning, FilesThatChangeBetweenTheWalkAndTheReading) {
  for (int i = 0; i < 3000; ++i) write_file("d/" + std::to_string(i) + ".bmp", bmp_bytes(2, 2));
  write_file("e/gone.bmp", bmp_bytes(2, 2));
  write_file("e/other.bmp", bmp_bytes(2, 2));
  write_file("e/link.bmp", bmp_bytes(2, 2));
  insert_and_read(*this);
  fs::remove(stick + "/e/gone.bmp");
  write_file("e/other.bmp", bmp_bytes(7, 7));
  fs::remove(stick + "/e/link.bmp");
  fs::create_symlink("/etc/passwd", stick + "/e/link.bmp");
  scans_settle();
  EXPECT_EQ(report().state, "done");
  EXPECT_EQ(report().files, 3003u);
  EXPECT_EQ(problems(), (Words{"e/gone.bmp: No such file or directory",
                               "e/link.bmp: it is a symbolic link, or behind one; links on a stick are not followed"}));
  ASSERT_EQ(list(MEDIA_TYPE_PHOTO, at("e")), "e/other.bmp");
  EXPECT_EQ(entries(MEDIA_TYPE_PHOTO, at("e")).at(0).u.photo_info.width, 7u);
  scan();
  EXPECT_EQ(report().read, 0u) << "its row is of what was read";
}

#ifdef DTV_PICTURE
// The false reader behaves as a file's text says; of a good file it says that it is no media.
TEST_F(Scanning, AFileThatCrashesTheReaderIsTriedAgainByTheNextScan) {
  write_file("a.bmp", "good");
  write_file("b.bmp", "crash");
  write_file("c.bmp", "good");
  media_reader_set_program(fs::read_symlink("/proc/self/exe").parent_path() / "dtv-false-reader");
  insert();
  media_reader_set_program("");
  EXPECT_EQ(report().state, "done");
  ASSERT_EQ(problems().size(), 3u);
  EXPECT_TRUE(problems()[1].starts_with("b.bmp: it crashed the reader")) << problems()[1];
  EXPECT_TRUE(problems()[2].starts_with("c.bmp: it is neither")) << problems()[2];
  EXPECT_EQ(report().left_out, 3u);
  scan();
  EXPECT_EQ(report().read, 1u) << "only the file that has no facts";
  ASSERT_EQ(problems().size(), 3u);
  EXPECT_EQ(problems()[1].find("crashed"), std::string::npos) << problems()[1];
}
#endif

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

TEST_F(Scanning, ADatabaseThatIsDamagedWhileItIsOpenIsReplacedAndFilledAgain) {
  for (int i = 0; i < 300; ++i) write_file("d/" + std::to_string(i) + ".bmp", bmp_bytes(2, 2));
  insert();
  {
    // All is in the file, and nothing in memory.
    const LibraryWriting writing;
    const LibraryReading reading;
    ASSERT_EQ(database_execute(writing.database->handle, "PRAGMA wal_checkpoint(TRUNCATE); PRAGMA shrink_memory"),
              SQLITE_OK);
    ASSERT_EQ(database_execute(reading.database->handle, "PRAGMA shrink_memory"), SQLITE_OK);
    const std::string path = state.path + "/media.sqlite";
    std::fstream file(path, std::ios::in | std::ios::out | std::ios::binary);
    const auto size = static_cast<std::streamoff>(fs::file_size(path));
    for (std::streamoff at = 4096; at < size; at += 4096) {
      file.seekp(at);
      file << std::string(512, '\xA5');
    }
  }
  testing::internal::CaptureStderr();
  list(MEDIA_TYPE_PHOTO, mount());
  scans_settle();
  const std::string log = testing::internal::GetCapturedStderr();
  EXPECT_NE(log.find("media.sqlite is damaged"), std::string::npos) << log;
  EXPECT_EQ(report().state, "done");
  EXPECT_EQ(a_vextvapi_cb_get_db_count(MEDIA_TYPE_PHOTO, mount().c_str()), 300);
}

// A file system of this many megabytes in a mount namespace of this process.
bool mount_small(const std::string& folder, int megabytes) {
  const std::string size = "mode=700,size=" + std::to_string(megabytes) + "m";
  return unshare(CLONE_NEWNS) == 0 && mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
         mount("tmpfs", folder.c_str(), "tmpfs", 0, size.c_str()) == 0;
}

TEST(ScanningDisk, AFullDiskFailsTheScanAndTheNextOneGoesOn) {
  const TvFolder state, world;
  const std::string stick = world.path + "/Stick";
  fs::create_directories(stick);
  const pid_t child = fork();
  if (child == 0) {
    if (!mount_small(state.path, 8)) _exit(77);
    dtv_tv_stick_root(world.path.c_str());
    if (dtv_tv_start(state.path.c_str(), nullptr) != 0) _exit(1);
    LibrarySet::run({"stick", "insert", stick});
    scans_settle();
    const std::string filler = state.path + "/filler";
    {
      std::ofstream file(filler, std::ios::binary);
      while (file << std::string(4096, 'x') << std::flush) {
      }
    }
    for (int i = 0; i < 500; ++i)
      std::ofstream(stick + "/" + std::to_string(i) + ".bmp", std::ios::binary) << bmp_bytes(2, 2);
    const std::string mount_point = state.path + "/usb/sda1";
    const auto scan = [&] {
      a_vextvapi_cb_startScan(mount_point.c_str());
      scans_settle();
      return scan_report(usb_sticks().at(0));
    };
    const ScanReport full = scan();
    if (full.state != "failed" || full.reason.find("cannot be written") == std::string::npos) _exit(2);
    fs::remove(filler);
    if (scan().state != "done") _exit(3);
    if (a_vextvapi_cb_get_db_count(MEDIA_TYPE_PHOTO, mount_point.c_str()) != 500) _exit(4);
    dtv_tv_stop();
    _exit(0);
  }
  int status = 0;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  ASSERT_TRUE(WIFEXITED(status)) << status;
  if (WEXITSTATUS(status) == 77) GTEST_SKIP() << "no file system may be mounted here";
  EXPECT_EQ(WEXITSTATUS(status), 0) << "1: no start; 2: no failure; 3: no recovery; 4: files are missing";
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
