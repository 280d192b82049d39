// Lists walk indexes: what SQLite plans for every statement that the lists prepare, and what lists of a large stick
// take.
#include <algorithm>
#include <chrono>
#include <map>

#include "rooms/library/library_test.h"
#include "rooms/library/names.h"
#include "rooms/library/statements.h"

namespace {

constexpr E_MEDIA_TYPE kKinds[] = {MEDIA_TYPE_PHOTO, MEDIA_TYPE_MUSIC, MEDIA_TYPE_VIDEO, MEDIA_TYPE_PLAYLIST};

// A database without a set: two sticks with so many files in 20 folders, one of which has most of them.
struct Rows {
  TvFolder folder;
  Database database;
  std::vector<StickRow> sticks;
  explicit Rows(int files) {
    std::string error;
    EXPECT_TRUE(database_open(folder.path + "/media.sqlite", kLibraryLayouts, database, error)) << error;
    database_execute(database.handle, "BEGIN");
    for (const char* const name : {"/one", "/two"}) {
      StickRow stick{.folder = name};
      EXPECT_TRUE(stick_put(database, stick));
      sticks.push_back(stick);
      for (int i = 0; i < files; ++i) {
        const std::string number = std::to_string(i);
        MediaRow row{.stick = stick.id, .kind = kKinds[i % 4], .name = "file" + number + ".x"};
        row.folder = i % 3 == 0 ? "big" : "d" + std::to_string(i % 20) + "/sub";
        row.size = static_cast<std::uint64_t>(i * 7919 % 1000);
        row.date = 20260101000000 + i * 31 % 997;
        row.artist = "Artist " + std::to_string(i % 50);
        row.album = "Album " + std::to_string(i % 90);
        row.genre = "Genre " + std::to_string(i % 5);
        row.duration_ms = static_cast<std::uint64_t>(i % 313);
        EXPECT_TRUE(row_put(database, row));
      }
    }
    database_execute(database.handle, "COMMIT");
    database.statements.clear();
  }
  ~Rows() { database_close(database); }
  Rows(const Rows&) = delete;
  Rows& operator=(const Rows&) = delete;

  // Calls use(query) for each kind of list: orders, directions, folders, one stick and both.
  template <typename Use>
  void each_query(const Use& use) const {
    for (const ListSort& sort : list_sorts()) {
      for (const bool descending : {false, true}) {
        for (const E_MEDIA_TYPE kind : kKinds)
          for (const auto& [path, direct] :
               {std::pair("", false), std::pair("", true), std::pair("big", false), std::pair("d1", false)})
            use({.sticks = {sticks[0].id},
                 .folder = path,
                 .direct = direct,
                 .kinds = {kind},
                 .sort = &sort,
                 .descending = descending});
        use({.sticks = {sticks[0].id, sticks[1].id},
             .kinds = {MEDIA_TYPE_PHOTO, MEDIA_TYPE_VIDEO},
             .sort = &sort,
             .descending = descending});
      }
    }
  }
};

std::vector<std::string> plan_of(Database& database, const std::string& sql) {
  const Statement plan = database_prepare(database.handle, "EXPLAIN QUERY PLAN " + sql);
  std::vector<std::string> lines;
  while (plan != nullptr && sqlite3_step(plan.get()) == SQLITE_ROW) lines.push_back(column_text(plan.get(), 3));
  return lines;
}

TEST(LibraryIndex, NoListCountOrSearchReadsAWholeTable) {
  Rows rows(400);
  rows.each_query([&](const ListQuery& query) {
    list_count(rows.database, query);
    list_ids(rows.database, query, 0, 10);
    if (*query.sort->group != '\0' && query.kinds == std::vector{MEDIA_TYPE_MUSIC}) {
      groups_count(rows.database, query);
      groups_ids(rows.database, query, 0, 10);
      ListQuery group = query;
      group.group = media_key("Artist 1");
      list_count(rows.database, group);
      list_ids(rows.database, group, 0, 10);
    }
  });
  std::int64_t total = 0;
  search_ids(rows.database, {rows.sticks[0].id}, "file1", MEDIA_TYPE_PHOTO, 0, 10, total);
  kind_counts(rows.database, rows.sticks[0].id);
  refused_rows(rows.database, rows.sticks[0].id, 10);
  const auto row = row_by_path(rows.database, rows.sticks[0].id, "big", "file0.x");
  ASSERT_TRUE(row);
  row_beside(rows.database, *row, 1);
  row_beside(rows.database, *row, -1);
  const auto parent = folder_find(rows.database, rows.sticks[0].id, "");
  ASSERT_TRUE(parent);
  folders_count(rows.database, *parent);
  folders_in(rows.database, *parent, false, 0, 10);
  folders_in(rows.database, *parent, true, 0, 10);
  std::vector<std::string> statements;
  for (const auto& [sql, statement] : rows.database.statements) statements.push_back(sql);
  ASSERT_GT(statements.size(), 60u);
  for (const std::string& sql : statements) {
    for (const std::string& line : plan_of(rows.database, sql)) {
      const bool scans = line.starts_with("SCAN ") && !line.starts_with("SCAN found VIRTUAL TABLE") &&
                         !line.starts_with("SCAN (subquery") && !line.starts_with("SCAN CONSTANT");
      EXPECT_FALSE(scans) << line << "\n  in " << sql;
    }
  }
}

TEST(LibraryIndex, AnEarlierLayoutListsItsFoldersAfterwards) {
  const TvFolder folder;
  const std::string path = folder.path + "/media.sqlite";
  Database database;
  std::string error;
  const DatabaseLayouts earlier = {.application = kLibraryLayouts.application, .steps = kLibraryLayouts.steps.first(1)};
  ASSERT_TRUE(database_open(path, earlier, database, error)) << error;
  ASSERT_EQ(database_execute(database.handle,
                             "INSERT INTO folder VALUES (1, 1, 0, '', ''), (2, 1, 1, 'a', 'a'), (3, 1, 2, 'a/b', 'b'),"
                             " (4, 1, 1, 'c', 'c');"
                             "INSERT INTO entry SELECT column1, 1, column2, column3, 'x', 'x', 1, 1, 1, 1, '', '', '',"
                             " '', '', '', '', '', '', '', '', 1, 1, 1, 0, 0, '' FROM (VALUES (1, 3, 1), (2, 4, 0))"),
            SQLITE_OK)
      << sqlite3_errmsg(database.handle);
  database_close(database);
  ASSERT_TRUE(database_open(path, kLibraryLayouts, database, error)) << error;
  EXPECT_EQ(folders_count(database, 1), 1);
  ASSERT_EQ(folders_in(database, 1, false, 0, 10).size(), 1u);
  EXPECT_EQ(folders_in(database, 1, false, 0, 10)[0].path, "a");
  EXPECT_EQ(folders_count(database, 2), 1);
  database_close(database);
}

TEST(LibraryIndex, ListsOfWholeSticksAreNotSorted) {
  Rows rows(100);
  rows.each_query([&](const ListQuery& query) {
    if (query.folder.empty() && !query.direct) list_ids(rows.database, query, 0, 10);
  });
  std::vector<std::string> statements;
  for (const auto& [sql, statement] : rows.database.statements) statements.push_back(sql);
  ASSERT_GT(statements.size(), 30u);
  for (const std::string& sql : statements)
    for (const std::string& line : plan_of(rows.database, sql))
      EXPECT_EQ(line.find("TEMP B-TREE"), std::string::npos) << line << "\n  in " << sql;
}

TEST(LibraryIndex, EveryWayToAListFindsTheSameFiles) {
  Rows rows(300);
  rows.each_query([&](const ListQuery& query) {
    const std::int64_t count = list_count(rows.database, query);
    const auto all = list_ids(rows.database, query, 0, 10'000);
    EXPECT_EQ(std::ssize(all), count);
    std::vector<std::int64_t> pages;
    for (std::int64_t first = 0; first < count; first += 7) {
      const auto page = list_ids(rows.database, query, first, 7);
      pages.insert(pages.end(), page.begin(), page.end());
    }
    EXPECT_EQ(pages, all);
    for (const std::int64_t id : all) {
      const auto row = row_by_id(rows.database, id);
      ASSERT_TRUE(row);
      const bool inside = query.direct ? row->folder == query.folder
                                       : query.folder.empty() || row->folder == query.folder ||
                                             row->folder.starts_with(query.folder + "/");
      EXPECT_TRUE(inside) << row->folder << " is not in " << query.folder;
      EXPECT_NE(std::ranges::find(query.kinds, row->kind), query.kinds.end());
    }
  });
}

}  // namespace
