// The state folder: deleted, renamed or replaced while the set is on; its permissions; its lock.
#include <atomic>
#include <chrono>
#include <thread>

#include "store_support.h"

namespace fs = std::filesystem;

namespace {

// A folder for two state folders.
struct Places {
  TvFolder home;
  std::string state = home.path + "/state";
  std::string other = home.path + "/other";
  Places() { fs::create_directory(state); }
};

void expect_refused(const std::string& gone) {
  EXPECT_EQ(a_vextvapi_volctrl_getVolume(), 64);
  expect_words(
      refusal([] { return a_vextvapi_volctrl_setVolume(33); }),
      {"the change was not saved", gone, "deleted, renamed or replaced", "put it back, or start the set again"});
  EXPECT_EQ(a_vextvapi_volctrl_getVolume(), 64);
  const std::string error = R"({"error":"the change could not be saved; see the set's log"})";
  EXPECT_EQ(tv_control(R"(["volume","up"])"), error);
  EXPECT_EQ(tv_control(R"(["key","SOURCE"])"), error);
  EXPECT_EQ(tv_control(R"(["reset"])"), error);
  EXPECT_EQ(a_vextvapi_volctrl_getVolume(), 64);
}

void start_with_64(const std::string& folder) {
  ASSERT_EQ(tv_start(folder), "");
  EXPECT_EQ(a_vextvapi_volctrl_setVolume(64), 0);
}

// ---- Moved while the set is on ----

TEST(TvStorePlace, DeletedFolder) {
  Places places;
  start_with_64(places.state);
  fs::remove_all(places.state);
  expect_refused(places.state);
  fs::create_directory(places.state);  // a new folder
  expect_refused(places.state);
  dtv_tv_stop();
  ASSERT_EQ(tv_start(places.state), "");
  EXPECT_EQ(a_vextvapi_volctrl_getVolume(), 20);
}

TEST(TvStorePlace, RenamedFolder) {
  Places places;
  start_with_64(places.state);
  fs::rename(places.state, places.other);
  expect_refused(places.state);
  fs::rename(places.other, places.state);
  EXPECT_EQ(a_vextvapi_volctrl_setVolume(65), 0);
  EXPECT_EQ(a_vextvapi_volctrl_setVolume(64), 0);
  fs::rename(places.state, places.other);
  expect_refused(places.state);
}

TEST(TvStorePlace, RenamedFolderHasAllValues) {
  Places places;
  start_with_64(places.state);
  fs::rename(places.state, places.other);
  dtv_tv_stop();
  ASSERT_EQ(tv_start(places.other), "");
  EXPECT_EQ(a_vextvapi_volctrl_getVolume(), 64);
}

TEST(TvStorePlace, ChangedLink) {
  Places places;
  fs::create_directory(places.other);
  const std::string link = places.home.path + "/link";
  fs::create_directory_symlink(places.state, link);
  start_with_64(link);
  fs::remove(link);
  fs::create_directory_symlink(places.other, link);
  expect_refused(link);
}

TEST(TvStorePlace, DeletedDatabase) {
  Places places;
  start_with_64(places.state);
  fs::remove(places.state + "/tv.sqlite");
  expect_refused(places.state + "/tv.sqlite");
}

TEST(TvStorePlace, RenamedDatabase) {
  Places places;
  const std::string database = places.state + "/tv.sqlite", renamed = places.state + "/tv.old";
  start_with_64(places.state);
  fs::rename(database, renamed);
  expect_refused(database);
  fs::rename(renamed, database);
  EXPECT_EQ(a_vextvapi_volctrl_setVolume(63), 0);
  EXPECT_EQ(a_vextvapi_volctrl_setVolume(64), 0);
  fs::rename(database, renamed);
  dtv_tv_stop();
  fs::create_directory(places.other);
  fs::rename(renamed, places.other + "/tv.sqlite");  // it is complete without the log
  ASSERT_EQ(tv_start(places.other), "");
  EXPECT_EQ(a_vextvapi_volctrl_getVolume(), 64);
}

TEST(TvStorePlace, ReplacedDatabase) {
  Places places;
  const std::string database = places.state + "/tv.sqlite";
  start_with_64(places.state);
  fs::copy_file(database, places.state + "/copy");
  fs::rename(places.state + "/copy", database);
  expect_refused(database);
}

TEST(TvStorePlace, DeletedLog) {
  Places places;
  start_with_64(places.state);
  fs::remove(places.state + "/tv.sqlite-wal");
  expect_refused(places.state + "/tv.sqlite-wal");
}

TEST(TvStorePlace, RenamedFolderWithAKeptFunction) {
  static std::atomic<int> failure;
  static std::atomic<std::uint64_t> reported;
  failure = 0;
  Places places;
  dtv_tv_on_kept(
      [](void*, std::uint64_t change, std::int32_t why) {
        failure = why;
        reported = change;
      },
      nullptr);
  start_with_64(places.state);
  while (reported < dtv_tv_last_change()) std::this_thread::yield();
  EXPECT_EQ(failure, 0);
  fs::rename(places.state, places.other);
  expect_refused(places.state);
  dtv_tv_on_kept(nullptr, nullptr);
}

// ---- One process at a time ----

// A child process that runs a set with volume 64 in the folder, until it is ended.
struct OtherSet {
  pid_t process = -1;
  int control = -1;
  explicit OtherSet(const std::string& folder) {
    int ready[2], stop[2];
    EXPECT_EQ(pipe(ready) + pipe(stop), 0);
    process = fork();
    if (process == 0) {
      close(stop[1]);
      const bool runs = dtv_tv_start(folder.c_str(), nullptr) == 0 && a_vextvapi_volctrl_setVolume(64) == 0;
      char c = runs ? 1 : 0;
      if (write(ready[1], &c, 1) == 1 && read(stop[0], &c, 1) == 1) dtv_tv_stop();
      _exit(0);
    }
    char runs = 0;
    EXPECT_EQ(read(ready[0], &runs, 1), 1);
    EXPECT_EQ(runs, 1);
    close(ready[0]);
    close(ready[1]);
    close(stop[0]);
    control = stop[1];
  }
  void stop() {
    EXPECT_EQ(write(control, "s", 1), 1);
    end(0);
  }
  void end(int signal = SIGKILL) {
    if (process < 0) return;
    if (signal != 0) kill(process, signal);
    int status = 0;
    EXPECT_EQ(waitpid(process, &status, 0), process);
    close(control);
    process = -1;
  }
  ~OtherSet() { end(); }
  OtherSet(const OtherSet&) = delete;
  OtherSet& operator=(const OtherSet&) = delete;
};

constexpr const char* kOtherProcess = "another process runs the set in this folder";

TEST(TvStorePlace, SecondSetIsRefusedInTheRenamedFolder) {
  const ManualClock manual;
  Places places;
  OtherSet first(places.state);
  fs::rename(places.state, places.other);
  EXPECT_NE(tv_start(places.other).find(kOtherProcess), std::string::npos);
  first.end();
  ASSERT_EQ(tv_start(places.other), "");
  EXPECT_EQ(a_vextvapi_volctrl_getVolume(), 64);
}

TEST(TvStorePlace, SecondSetIsRefusedBesideTheRenamedDatabase) {
  const ManualClock manual;
  Places places;
  OtherSet first(places.state);
  fs::rename(places.state + "/tv.sqlite", places.state + "/tv.old");
  EXPECT_NE(tv_start(places.state).find(kOtherProcess), std::string::npos);
  EXPECT_FALSE(fs::exists(places.state + "/tv.sqlite"));
}

TEST(TvStorePlace, SecondSetIsRefusedOnTheDatabaseMovedElsewhere) {
  Places places;
  OtherSet first(places.state);
  fs::create_directory(places.other);
  fs::rename(places.state + "/tv.sqlite", places.other + "/tv.sqlite");
  EXPECT_NE(tv_start(places.other).find(kOtherProcess), std::string::npos);
}

TEST(TvStorePlace, SecondSetAtTheFirstOnesPathIsNotHarmed) {
  Places places;
  OtherSet first(places.state);
  fs::rename(places.state, places.other);
  fs::create_directory(places.state);
  ASSERT_EQ(tv_start(places.state), "");
  EXPECT_EQ(a_vextvapi_volctrl_setVolume(30), 0);
  first.stop();
  EXPECT_EQ(a_vextvapi_volctrl_setVolume(31), 0);
  EXPECT_TRUE(fs::exists(places.state + "/tv.sqlite-wal"));
  dtv_tv_stop();
  ASSERT_EQ(tv_start(places.state), "");
  EXPECT_EQ(a_vextvapi_volctrl_getVolume(), 31);
  dtv_tv_stop();
  ASSERT_EQ(tv_start(places.other), "");
  EXPECT_EQ(a_vextvapi_volctrl_getVolume(), 64);
}

TEST(TvStorePlace, StartWaitsForASetThatIsStopping) {
  Places places;
  OtherSet first(places.state);
  std::thread ends([&first] {
    std::this_thread::sleep_for(std::chrono::milliseconds(500));
    kill(first.process, SIGKILL);
  });
  EXPECT_EQ(tv_start(places.state), "");
  EXPECT_EQ(a_vextvapi_volctrl_getVolume(), 64);
  ends.join();
}

// ---- Permissions ----

TEST(TvStorePlace, OnlyTheOwnerHasAccess) {
  Places places;
  fs::permissions(places.state, fs::perms{0777});
  const mode_t before = umask(0);
  start_with_64(places.state);
  umask(before);
  EXPECT_EQ(mode_of(places.state), 0700u);
  EXPECT_EQ(mode_of(places.state + "/tv.sqlite"), 0600u);
  EXPECT_EQ(mode_of(places.state + "/tv.sqlite-wal"), 0600u);
}

TEST(TvStorePlace, WiderPermissionsAreRemoved) {
  Places places;
  ASSERT_TRUE(run_and_kill(
      [&] { return dtv_tv_start(places.state.c_str(), nullptr) == 0 && a_vextvapi_volctrl_setVolume(64) == 0; }));
  fs::permissions(places.state, fs::perms{0755});
  for (const char* name : {"/tv.sqlite", "/tv.sqlite-wal"}) fs::permissions(places.state + name, fs::perms{0644});
  ASSERT_EQ(tv_start(places.state), "");
  EXPECT_EQ(a_vextvapi_volctrl_getVolume(), 64);
  EXPECT_EQ(mode_of(places.state), 0700u);
  EXPECT_EQ(mode_of(places.state + "/tv.sqlite"), 0600u);
  EXPECT_EQ(mode_of(places.state + "/tv.sqlite-wal"), 0600u);
}

TEST(TvStorePlace, NewFolderWithTheFolderOfLogosIsTheSets) {
  Places places;
  fs::create_directory(places.state + "/ChLogo");
  fs::permissions(places.state, fs::perms{0755});
  ASSERT_EQ(tv_start(places.state), "");
  EXPECT_EQ(mode_of(places.state), 0700u);
}

TEST(TvStorePlace, FolderOfAnotherUserIsRefused) {
  if (geteuid() != 0) GTEST_SKIP() << "only root can change a folder's owner";
  Places places;
  ASSERT_EQ(chown(places.state.c_str(), 65534, 65534), 0);
  fs::permissions(places.state, fs::perms{0777});
  const std::string error = tv_start(places.state);
  expect_words(error, {places.state, "belongs to user 65534"});
  EXPECT_EQ(mode_of(places.state), 0777u);
  EXPECT_TRUE(fs::is_empty(places.state));
}

TEST(TvStorePlace, WorldWritableFolderIsRefused) {
  Places places;
  fs::permissions(places.state, fs::perms{01777});
  expect_words(tv_start(places.state), {places.state, "open to other users"});
  EXPECT_EQ(mode_of(places.state), 01777u);
  EXPECT_TRUE(fs::is_empty(places.state));
}

TEST(TvStorePlace, FolderWithOtherFilesIsRefusedAndKeepsItsPermissions) {
  Places places;
  write_file(places.state + "/letter", "Dear");
  fs::permissions(places.state, fs::perms{0755});
  expect_words(tv_start(places.state), {places.state, "open to other users"});
  EXPECT_EQ(mode_of(places.state), 0755u);
  EXPECT_EQ(files_of(places.state).size(), 1u);
  fs::permissions(places.state, fs::perms{0700});
  EXPECT_EQ(tv_start(places.state), "");
}

TEST(TvStorePlace, DatabaseThatIsNotARegularFileIsRefused) {
  const std::function<void(const std::string&)> makers[] = {
      [](const std::string& path) { fs::create_directory(path); },
      [](const std::string& path) { EXPECT_EQ(mkfifo(path.c_str(), 0600), 0); },
      [](const std::string& path) { fs::create_symlink("elsewhere", path); },
  };
  for (const auto& make : makers) {
    Places places;
    make(places.state + "/tv.sqlite");
    expect_words(tv_start(places.state), {"cannot use the set's database " + places.state + "/tv.sqlite"});
    EXPECT_EQ(store_files_of(places.state).size(), 1u);
  }
}

}  // namespace
