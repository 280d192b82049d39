// Databases of rooms: migration between layouts, damage, prepared statements.
#include "core/database.h"

#include "store_support.h"

namespace {

constexpr std::int32_t kApplication = 0x74657300;
constexpr const char* kSteps[] = {
    "CREATE TABLE services (id INTEGER PRIMARY KEY, name TEXT NOT NULL)",
    "ALTER TABLE services ADD COLUMN blocked INTEGER NOT NULL DEFAULT 0",
    "CREATE TABLE favourites (service INTEGER PRIMARY KEY); CREATE INDEX by_name ON services (name)",
};

constexpr DatabaseLayouts layouts(std::size_t steps) {
  return {.application = kApplication, .steps = std::span(kSteps).first(steps)};
}

class TvDatabase : public testing::Test {
 protected:
  ~TvDatabase() override { database_close(database_); }

  // Opens the database. Returns the error, empty on success.
  std::string open(std::size_t steps) {
    database_close(database_);
    std::string error;
    const bool opened = database_open(path_, layouts(steps), database_, error);
    EXPECT_EQ(opened, error.empty());
    return error;
  }

  std::string open_reporting(std::size_t steps, std::string& ret_said) {
    testing::internal::CaptureStderr();
    std::string error = open(steps);
    ret_said = testing::internal::GetCapturedStderr();
    return error;
  }

  std::string value(const char* sql) {
    sqlite3_stmt* const statement = database_statement(database_, sql);
    if (statement == nullptr) return "no statement";
    return sqlite3_step(statement) == SQLITE_ROW ? column_text(statement, 0) : "no row";
  }

  void add(int id, const char* name) {
    sqlite3_stmt* const insert = database_statement(database_, "INSERT INTO services (id, name) VALUES (?, ?)");
    ASSERT_NE(insert, nullptr);
    sqlite3_bind_int(insert, 1, id);
    sqlite3_bind_text(insert, 2, name, -1, SQLITE_STATIC);
    EXPECT_TRUE(database_run(insert));
  }

  std::vector<std::string> aside() const {
    std::vector<std::string> names = files_of(folder_.path);
    std::erase_if(names, [](const std::string& name) {
      return name.rfind("channels.sqlite.damaged-", 0) != 0 || name.ends_with("-wal");
    });
    return names;
  }

  TvFolder folder_;
  std::string path_ = folder_.path + "/channels.sqlite";
  Database database_;
};

TEST_F(TvDatabase, ANewDatabaseHasTheNewestLayout) {
  ASSERT_EQ(open(3), "");
  EXPECT_EQ(value("PRAGMA user_version"), "3");
  EXPECT_EQ(value("PRAGMA application_id"), std::to_string(kApplication + 3));
  EXPECT_EQ(value("SELECT count(*) FROM favourites"), "0");
}

TEST_F(TvDatabase, AnOlderDatabaseIsMigratedToTheNewestLayout) {
  ASSERT_EQ(open(1), "");
  add(7, "One");
  for (const std::size_t steps : {2u, 3u, 3u}) {
    ASSERT_EQ(open(steps), "");
    EXPECT_EQ(value("SELECT name || blocked FROM services WHERE id = 7"), "One0");
    EXPECT_EQ(value("PRAGMA user_version"), std::to_string(steps));
  }
}

TEST_F(TvDatabase, AFailedStepChangesNothing) {
  ASSERT_EQ(open(1), "");
  add(7, "One");
  const char* const bad[] = {kSteps[0], "CREATE TABLE logos (id INTEGER); CREATE TABLE services (id INTEGER)"};
  std::string error;
  database_close(database_);
  testing::internal::CaptureStderr();
  const bool opened = database_open(path_, {.application = kApplication, .steps = bad}, database_, error);
  testing::internal::GetCapturedStderr();
  EXPECT_FALSE(opened);
  ASSERT_EQ(open(1), "");
  EXPECT_EQ(value("SELECT name FROM services"), "One");
}

TEST_F(TvDatabase, ANewerDatabaseIsNotChanged) {
  ASSERT_EQ(open(3), "");
  add(7, "One");
  database_close(database_);
  const std::string before = content_of(path_);
  expect_words(open(2), {path_, "its layout is 3, but this version knows layout 2"});
  EXPECT_EQ(content_of(path_), before);
  EXPECT_TRUE(aside().empty());
  ASSERT_EQ(open(3), "");
  EXPECT_EQ(value("SELECT name FROM services"), "One");
}

TEST_F(TvDatabase, ADamagedDatabaseIsRenamed) {
  ASSERT_EQ(open(3), "");
  database_close(database_);
  const std::string whole = content_of(path_);
  const std::string damaged[] = {"no database at all" + std::string(2000, 'x'), whole.substr(0, 100),
                                 whole.substr(0, whole.size() / 2)};
  std::size_t moved = 0;
  for (const std::string& content : damaged) {
    database_close(database_);
    write_file(path_, content);
    std::string log;
    ASSERT_EQ(open_reporting(3, log), "");
    expect_words(log, {path_, "damaged", "kept as"});
    EXPECT_EQ(aside().size(), ++moved);
    EXPECT_EQ(value("SELECT count(*) FROM services"), "0");
  }
  const std::vector<std::string> names = aside();
  EXPECT_TRUE(std::any_of(names.begin(), names.end(), [&](const std::string& name) {
    return content_of(folder_.path + "/" + name) == damaged[0];
  }));
}

TEST_F(TvDatabase, ADatabaseWithOtherTablesIsDamaged) {
  ASSERT_EQ(open(3), "");
  database_close(database_);
  write_sql(path_, "ALTER TABLE services ADD COLUMN other");
  std::string log;
  ASSERT_EQ(open_reporting(3, log), "");
  expect_words(log, {"its tables are not those that the set creates"});
}

TEST_F(TvDatabase, AWrongUserVersionOrApplicationIdIsDamage) {
  for (const char* const sql : {"PRAGMA user_version=9", "PRAGMA user_version=-1", "PRAGMA application_id=1"}) {
    ASSERT_EQ(open(3), "");
    database_close(database_);
    write_sql(path_, sql);
    std::string log;
    ASSERT_EQ(open_reporting(3, log), "") << sql;
    expect_words(log, {"damaged"});
  }
}

TEST_F(TvDatabase, AFolderAtThePathIsAnError) {
  std::filesystem::create_directory(path_);
  expect_words(open(3), {path_});
  EXPECT_TRUE(aside().empty());
}

TEST_F(TvDatabase, StatementsArePreparedOnce) {
  ASSERT_EQ(open(3), "");
  sqlite3_stmt* const first = database_statement(database_, "SELECT ?");
  sqlite3_bind_int(first, 1, 5);
  EXPECT_EQ(sqlite3_step(first), SQLITE_ROW);
  EXPECT_EQ(sqlite3_column_int(first, 0), 5);
  sqlite3_stmt* const again = database_statement(database_, "SELECT ?");
  EXPECT_EQ(again, first);
  EXPECT_EQ(sqlite3_step(again), SQLITE_ROW);
  EXPECT_EQ(sqlite3_column_type(again, 0), SQLITE_NULL) << "the binding is still there";
  EXPECT_EQ(database_statement(database_, "SELECT nothing FROM nowhere"), nullptr);
  EXPECT_FALSE(database_run(nullptr));
}

}  // namespace
