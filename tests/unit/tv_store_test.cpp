// What the set keeps: through a restart, a killed process, and what becomes of a database that cannot be used.
#include <signal.h>
#include <sqlite3.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>
#include <functional>
#include <vector>

#include "tv_support.h"

namespace {

// Runs act in a process of its own that kills itself right after; returns whether act was content.
bool run_and_kill(const std::function<bool()>& act) {
  const pid_t child = fork();
  if (child == 0) {
    if (act()) kill(getpid(), SIGKILL);
    _exit(1);
  }
  int status = 0;
  EXPECT_EQ(waitpid(child, &status, 0), child);
  return WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL;
}

std::vector<std::string> files_of(const std::string& folder) {
  std::vector<std::string> names;
  for (const auto& entry : std::filesystem::directory_iterator(folder)) names.push_back(entry.path().filename());
  return names;
}

std::string content_of(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

void write_sql(const std::string& path, const char* sql) {
  sqlite3* db = nullptr;
  ASSERT_EQ(sqlite3_open(path.c_str(), &db), SQLITE_OK);
  EXPECT_EQ(sqlite3_exec(db, sql, nullptr, nullptr, nullptr), SQLITE_OK) << sqlite3_errmsg(db);
  sqlite3_close(db);
}

TEST(TvStore, SurvivesSwitchingOff) {
  TvFolder folder;
  ASSERT_EQ(tv_start(folder.path), "");
  a_vextvapi_volctrl_setVolume(64);
  a_vextvapi_volctrl_setMute(1);
  dtv_tv_stop();
  ASSERT_EQ(tv_start(folder.path), "");
  EXPECT_EQ(a_vextvapi_volctrl_getVolume(), 64);
  EXPECT_EQ(a_vextvapi_volctrl_getMute(), 1);
}

TEST(TvStore, SurvivesAKilledProcessAtAnyPoint) {
  TvFolder folder;
  for (INT16 volume : {INT16{37}, INT16{0}, INT16{100}}) {
    ASSERT_TRUE(run_and_kill([&] {
      return dtv_tv_start(folder.path.c_str(), nullptr) == 0 && a_vextvapi_volctrl_setMute(1) == 0 &&
             a_vextvapi_volctrl_setVolume(volume) == 0;
    }));
    ASSERT_EQ(tv_start(folder.path), "");
    EXPECT_EQ(a_vextvapi_volctrl_getVolume(), volume);
    EXPECT_EQ(a_vextvapi_volctrl_getMute(), 1);
    dtv_tv_stop();
  }
}

TEST(TvStore, OneProcessAtATime) {
  TvFolder folder;
  int started[2];
  ASSERT_EQ(pipe(started), 0);
  const pid_t child = fork();
  if (child == 0) {
    const char failed = dtv_tv_start(folder.path.c_str(), nullptr) == 0 ? 0 : 1;
    if (write(started[1], &failed, 1) == 1) pause();
    _exit(1);
  }
  char failed = 1;
  EXPECT_EQ(read(started[0], &failed, 1), 1);
  EXPECT_EQ(failed, 0);
  EXPECT_NE(tv_start(folder.path).find("another process"), std::string::npos);
  kill(child, SIGKILL);
  int status = 0;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  EXPECT_EQ(tv_start(folder.path), "");
  close(started[0]);
  close(started[1]);
}

TEST(TvStore, SecondStartIsRefused) {
  TvFolder folder;
  ASSERT_EQ(tv_start(folder.path), "");
  EXPECT_NE(tv_start(folder.path).find("on already"), std::string::npos);
  EXPECT_EQ(a_vextvapi_volctrl_setVolume(30), 0);
}

TEST(TvStore, OffMeansRefused) {
  TvFolder folder;
  ASSERT_EQ(tv_start(folder.path), "");
  dtv_tv_stop();
  dtv_tv_stop();
  testing::internal::CaptureStderr();
  EXPECT_LT(a_vextvapi_volctrl_setVolume(33), 0);
  EXPECT_NE(testing::internal::GetCapturedStderr().find("off"), std::string::npos);
  EXPECT_NE(a_vextvapi_volctrl_getVolume(), 33);
  EXPECT_EQ(tv_control(R"(["volume","33"])"), R"({"error":"the set is off"})");
}

TEST(TvStore, NoFolder) {
  const std::string missing = "/nonexistent/tv_test";
  EXPECT_NE(tv_start(missing).find(missing), std::string::npos);
  EXPECT_NE(tv_start("").find("state folder"), std::string::npos);
  char* error = nullptr;
  EXPECT_EQ(dtv_tv_start(nullptr, &error), -1);
  ASSERT_NE(error, nullptr);
  free(error);
  EXPECT_EQ(dtv_tv_start(missing.c_str(), nullptr), -1);
}

void expect_kept_aside(const TvFolder& folder, const std::string& damaged) {
  const std::string error = tv_start(folder.path);
  EXPECT_NE(error.find(folder.database()), std::string::npos) << error;
  EXPECT_NE(error.find("damaged"), std::string::npos) << error;
  std::string aside;
  for (const std::string& name : files_of(folder.path)) {
    if (name.rfind("tv.sqlite.damaged-", 0) == 0) aside = name;
  }
  ASSERT_NE(aside, "");
  EXPECT_NE(error.find(aside), std::string::npos) << error;
  EXPECT_EQ(content_of(folder.path + "/" + aside), damaged);
  ASSERT_EQ(tv_start(folder.path), "");
  EXPECT_EQ(a_vextvapi_volctrl_getVolume(), 20);
  dtv_tv_stop();
}

TEST(TvStore, FileThatIsNoDatabaseIsKeptAside) {
  TvFolder folder;
  const std::string text(5000, 'x');
  std::ofstream(folder.database()) << text;
  expect_kept_aside(folder, text);
  std::ofstream(folder.database(), std::ios::trunc) << text;  // a second one, within the same second
  const std::string error = tv_start(folder.path);
  EXPECT_NE(error.find("damaged"), std::string::npos) << error;
  std::size_t aside = 0;
  for (const std::string& name : files_of(folder.path)) aside += name.rfind("tv.sqlite.damaged-", 0) == 0 ? 1u : 0u;
  EXPECT_EQ(aside, 2u);
}

TEST(TvStore, BrokenPageIsKeptAside) {
  TvFolder folder;
  ASSERT_EQ(tv_start(folder.path), "");
  a_vextvapi_volctrl_setVolume(64);
  dtv_tv_stop();
  std::string damaged = content_of(folder.database());
  ASSERT_GE(damaged.size(), 8192u);
  damaged.replace(4096, 100, std::string(100, '\xff'));  // the head of the page that holds the settings
  std::ofstream(folder.database(), std::ios::binary | std::ios::trunc) << damaged;
  expect_kept_aside(folder, damaged);
}

// What a user who may not write there is told by the start.
std::string start_without_rights(const std::string& folder) {
  int told[2];
  EXPECT_EQ(pipe(told), 0);
  const pid_t child = fork();
  if (child == 0) {  // permissions do not bind root
    if (geteuid() == 0 && setuid(65534) != 0) _exit(3);
    char* error = nullptr;
    const int32_t result = dtv_tv_start(folder.c_str(), &error);
    const std::string text = error == nullptr ? "no error" : error;
    _exit(result == -1 && write(told[1], text.data(), text.size()) == static_cast<ssize_t>(text.size()) ? 0 : 1);
  }
  close(told[1]);
  char text[1000];
  const ssize_t length = read(told[0], text, sizeof text);
  close(told[0]);
  int status = 0;
  EXPECT_EQ(waitpid(child, &status, 0), child);
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
  return std::string(text, length < 0 ? 0u : static_cast<std::size_t>(length));
}

TEST(TvStore, ReadOnlyIsSaidAndLeftAlone) {
  using std::filesystem::perms;
  TvFolder folder;
  ASSERT_EQ(tv_start(folder.path), "");
  a_vextvapi_volctrl_setVolume(64);
  dtv_tv_stop();
  const std::string before = content_of(folder.database());
  std::filesystem::permissions(folder.database(), perms{0444});
  std::filesystem::permissions(folder.path, perms{0777});
  std::string error = start_without_rights(folder.path);
  EXPECT_NE(error.find(folder.database()), std::string::npos) << error;
  EXPECT_NE(error.find("cannot be written"), std::string::npos) << error;
  std::filesystem::permissions(folder.database(), perms{0666});
  std::filesystem::permissions(folder.path, perms{0555});
  error = start_without_rights(folder.path);
  EXPECT_NE(error.find(folder.path), std::string::npos) << error;
  EXPECT_NE(error.find("cannot be written"), std::string::npos) << error;
  std::filesystem::permissions(folder.path, perms{0755});
  EXPECT_EQ(content_of(folder.database()), before);
  EXPECT_EQ(files_of(folder.path).size(), 1u);
}

TEST(TvStore, NewerLayoutIsRefusedAndLeftAlone) {
  TvFolder folder;
  write_sql(folder.database(), "PRAGMA user_version=99");
  EXPECT_NE(tv_start(folder.path).find("layout is 99"), std::string::npos);
  EXPECT_EQ(files_of(folder.path).size(), 1u);
}

TEST(TvStore, ValueOutsideItsLimitsIsTheFactorysAgain) {
  for (const char* value : {"101", "-1", "'loud'", "NULL", "12.5"}) {
    TvFolder folder;
    ASSERT_EQ(tv_start(folder.path), "");
    a_vextvapi_volctrl_setVolume(64);
    dtv_tv_stop();
    write_sql(folder.database(), ("UPDATE settings SET value=" + std::string(value) + " WHERE key='volume'").c_str());
    testing::internal::CaptureStderr();
    ASSERT_EQ(tv_start(folder.path), "");
    EXPECT_NE(testing::internal::GetCapturedStderr().find("volume"), std::string::npos) << value;
    EXPECT_EQ(a_vextvapi_volctrl_getVolume(), 20) << value;
  }
}

}  // namespace
