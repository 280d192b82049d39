// The store: values after a restart and after a killed process, and databases that cannot be used.
#include <cstring>

#include "store_support.h"

namespace {

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
  const ManualClock manual;
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

TEST(TvStore, ChangesAreRefusedWhileTheSetIsOff) {
  TvFolder folder;
  ASSERT_EQ(tv_start(folder.path), "");
  dtv_tv_stop();
  dtv_tv_stop();
  testing::internal::CaptureStderr();
  EXPECT_LT(a_vextvapi_volctrl_setVolume(33), 0);
  EXPECT_NE(testing::internal::GetCapturedStderr().find("off"), std::string::npos);
  EXPECT_NE(a_vextvapi_volctrl_getVolume(), 33);
  EXPECT_EQ(tv_control(R"(["volume","33"])"), R"({"error":"the set is off"})");
  EXPECT_NE(tv_control(R"(["help","key"])").find(R"("names":["POWER")"), std::string::npos) << "help needs no set";
}

TEST(TvStore, StartNeedsAFolder) {
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
  const std::vector<std::string> aside = damaged_files(folder.path);
  ASSERT_EQ(aside.size(), 1u);
  EXPECT_NE(error.find(aside[0]), std::string::npos) << error;
  EXPECT_TRUE(content_of(folder.path + "/" + aside[0]) == damaged);
  ASSERT_EQ(tv_start(folder.path), "");
  EXPECT_EQ(a_vextvapi_volctrl_getVolume(), 20);
  dtv_tv_stop();
}

TEST(TvStore, FileThatIsNotADatabaseIsRenamed) {
  TvFolder folder;
  const std::string text(5000, 'x');
  write_file(folder.database(), text);
  expect_kept_aside(folder, text);
  write_file(folder.database(), text);  // a second damaged one within the same second
  const std::string error = tv_start(folder.path);
  EXPECT_NE(error.find("damaged"), std::string::npos) << error;
  EXPECT_EQ(damaged_files(folder.path).size(), 2u);
}

TEST(TvStore, DatabaseWithADamagedPageIsRenamed) {
  TvFolder folder;
  ASSERT_EQ(tv_start(folder.path), "");
  a_vextvapi_volctrl_setVolume(64);
  dtv_tv_stop();
  std::string damaged = content_of(folder.database());
  ASSERT_GE(damaged.size(), 8192u);
  damaged.replace(4096, 100, std::string(100, '\xff'));  // the header of the page that contains the settings
  write_file(folder.database(), damaged);
  expect_kept_aside(folder, damaged);
}

TEST(TvStore, DatabaseWithADamagedSchemaIsRenamed) {
  const std::pair<const char*, const char*> changes[] = {
      {"value, sum", "vakue, sum"},  // another column name
      {"CREATE", "CRATES"},          // not SQL
      {"INTEGER NOT NULL", "INTEGER NOT LULL"},
      {"WITHOUT ROWID", "WITHOUT-ROWID"},
      {"tablesettings", "tablesettinks"},
  };
  for (const auto& [good, bad] : changes) {
    TvFolder folder;
    ASSERT_EQ(tv_start(folder.path), "");
    a_vextvapi_volctrl_setVolume(64);
    dtv_tv_stop();
    std::string damaged = content_of(folder.database());
    const std::size_t at = damaged.find(good);
    ASSERT_NE(at, std::string::npos) << good;
    damaged.replace(at, std::strlen(good), bad);
    write_file(folder.database(), damaged);
    expect_kept_aside(folder, damaged);
  }
}

TEST(TvStore, DatabaseThatTheSetHasNotCreatedIsRenamed) {
  for (const std::string& sql : {
           layout_1_sql() + "CREATE TABLE other (x)",
           layout_1_sql() + "PRAGMA application_id=7",
           layout_1_sql() + "PRAGMA user_version=0",
           "CREATE TABLE settings (key TEXT, value);" + layout_sql(1),
           std::string("CREATE TABLE pictures (name TEXT)"),
           layout_sql(2),
           std::string("PRAGMA user_version=99"),
       }) {
    TvFolder folder;
    write_sql(folder.database(), sql);
    expect_kept_aside(folder, content_of(folder.database()));
  }
}

// Permissions do not apply to root, so root changes the files' owner and runs the set as that user.
constexpr uid_t kNobody = 65534;

void give_away(const std::string& path) {
  if (geteuid() == 0 && chown(path.c_str(), kNobody, kNobody) != 0) ADD_FAILURE() << path;
}

bool give_up_root() { return geteuid() != 0 || setuid(kNobody) == 0; }

TEST(TvStore, ReadOnlyDatabaseIsReportedAndNotChanged) {
  using std::filesystem::perms;
  TvFolder folder;
  ASSERT_EQ(tv_start(folder.path), "");
  a_vextvapi_volctrl_setVolume(64);
  dtv_tv_stop();
  const auto before = contents_of(folder.path);
  ASSERT_TRUE(before.contains(folder.database()));
  give_away(folder.path);
  give_away(folder.database());
  std::filesystem::permissions(folder.database(), perms{0400});
  std::string error = start_apart(folder.path, give_up_root);
  EXPECT_NE(error.find(folder.database()), std::string::npos) << error;
  EXPECT_NE(error.find("cannot be written"), std::string::npos) << error;
  std::filesystem::permissions(folder.database(), perms{0600});
  std::filesystem::permissions(folder.path, perms{0500});
  error = start_apart(folder.path, give_up_root);
  EXPECT_NE(error.find(folder.path), std::string::npos) << error;
  EXPECT_NE(error.find("cannot be written"), std::string::npos) << error;
  std::filesystem::permissions(folder.path, perms{0700});
  EXPECT_TRUE(contents_of(folder.path) == before) << testing::PrintToString(files_of(folder.path));
}

TEST(TvStore, NewerLayoutIsRefusedAndNotChanged) {
  TvFolder folder;
  write_sql(folder.database(), layout_sql(99));
  EXPECT_NE(tv_start(folder.path).find("layout is 99"), std::string::npos);
  EXPECT_EQ(store_files_of(folder.path).size(), 1u);
}

TEST(TvStore, ValueOutsideItsLimitsIsNotUsed) {
  const std::pair<const char*, const char*> cases[] = {
      {"101", "using 20"}, {"-1", "using 20"}, {"'loud'", "using 20"}, {"NULL", "is damaged"}, {"12.5", "is damaged"}};
  for (const auto& [value, word] : cases) {
    TvFolder folder;
    write_sql(folder.database(), layout_1_sql() + "INSERT INTO settings VALUES ('volume', " + value + ")");
    testing::internal::CaptureStderr();
    ASSERT_EQ(tv_start(folder.path), "");
    expect_words(testing::internal::GetCapturedStderr(), {"the stored volume ", word});
    EXPECT_EQ(a_vextvapi_volctrl_getVolume(), 20) << value;
  }
}

TEST(TvStore, DamagedValueIsReportedOnceAndReset) {
  for (const char* damage :
       {"UPDATE settings SET value=65 WHERE key='volume'", "UPDATE settings SET sum=sum+1",
        "UPDATE settings SET value='64' WHERE key='volume'", "UPDATE settings SET value=64.0 WHERE key='volume'",
        "UPDATE settings SET key='volumf' WHERE key='volume'"}) {
    TvFolder folder;
    ASSERT_EQ(tv_start(folder.path), "");
    a_vextvapi_volctrl_setVolume(64);
    dtv_tv_stop();
    write_sql(folder.database(), damage);
    testing::internal::CaptureStderr();
    ASSERT_EQ(tv_start(folder.path), "");
    expect_words(testing::internal::GetCapturedStderr(), {"the stored volum", "is damaged", "factory"});
    EXPECT_EQ(a_vextvapi_volctrl_getVolume(), 20) << damage;
    dtv_tv_stop();
    testing::internal::CaptureStderr();
    ASSERT_EQ(tv_start(folder.path), "");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "") << damage;
    EXPECT_EQ(a_vextvapi_volctrl_getVolume(), 20) << damage;
  }
}

TEST(TvStore, DatabaseWithoutChecksumsIsMigrated) {
  TvFolder folder;
  write_sql(folder.database(), "PRAGMA journal_mode=WAL;" + layout_1_sql() +
                                   "INSERT INTO settings VALUES ('volume', 64), ('mute', 1), ('input_source', 3),"
                                   "('g_misc__tv_network_name', 'Büro \"2\"'), ('g_misc__air_channel_id', 2147483647),"
                                   "('clock_moved_ms', -86400000), ('g_of_another_version', 'x')");
  testing::internal::CaptureStderr();
  for (int start = 0; start < 2; ++start) {  // from the old layout, then from the migrated database
    ASSERT_EQ(tv_start(folder.path), "");
    EXPECT_EQ(a_vextvapi_volctrl_getVolume(), 64);
    EXPECT_EQ(a_vextvapi_volctrl_getMute(), 1);
    const std::string state = tv_control(R"(["state"])");
    expect_words(state, {R"("source":"HDMI 2")", R"("g_misc__tv_network_name":"Büro \"2\"")",
                         R"("g_misc__air_channel_id":2147483647)"});
    dtv_tv_stop();
  }
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
  const std::string expected = "CREATE TABLE settings (key TEXT PRIMARY KEY, value, sum";
  EXPECT_NE(content_of(folder.database()).find(expected), std::string::npos);
}

}  // namespace
