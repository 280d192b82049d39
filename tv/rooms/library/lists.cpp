// The library's lists, counts, groups and searches: SQL that walks one index.
#include <algorithm>
#include <array>

#include "base/text.h"
#include "core/text.h"
#include "rooms/library/names.h"
#include "rooms/library/rows.h"
#include "rooms/library/statements.h"

namespace {

constexpr unsigned bit(E_MEDIA_TYPE kind) { return 1U << kind; }
constexpr unsigned kAllKinds =
    bit(MEDIA_TYPE_PHOTO) | bit(MEDIA_TYPE_MUSIC) | bit(MEDIA_TYPE_VIDEO) | bit(MEDIA_TYPE_PLAYLIST);
constexpr unsigned kMusic = bit(MEDIA_TYPE_MUSIC), kNoPhotos = kAllKinds & ~bit(MEDIA_TYPE_PHOTO);

// The first row is the order by name.
constexpr ListSort kSorts[] = {
    {VEXTVAPI_CB_SORT_NAME, "name", "by_name", "name_key", "", kAllKinds, false},
    {VEXTVAPI_CB_SORT_DATE, "date", "by_date", "date", "", kAllKinds, false},
    {VEXTVAPI_CB_SORT_SIZE, "size", "by_size", "size", "", kAllKinds, false},
    {VEXTVAPI_CB_SORT_TITLE, "title", "by_title", "title_key", "", kNoPhotos, false},
    {VEXTVAPI_CB_SORT_ARTIST, "artist", "by_artist", "artist_key, album_key, track_key, name_key", "", kMusic, false,
     "artist_key"},
    {VEXTVAPI_CB_SORT_ALBUM, "album", "by_album", "album_key, track_key, name_key", "", kMusic, false, "album_key"},
    {VEXTVAPI_CB_SORT_GENRE, "genre", "by_genre", "genre_key, artist_key, name_key", "", kMusic, false, "genre_key"},
    {VEXTVAPI_CB_SORT_DURATION, "duration", "by_duration", "duration", "", kNoPhotos, false},
    {VEXTVAPI_CB_SORT_FAVOURITES, "favourites", "by_favourite", "name_key", " AND favourite = 1", kAllKinds, false},
    {VEXTVAPI_CB_SORT_PLAYED, "played", "by_played", "played", " AND played > 0", kAllKinds, true},
};

constexpr std::size_t kMostWords = 8;  // of a search

// If a folder has at most 1/kLargeFolderPart of its stick's files of a kind, its files are read and then sorted.
// Otherwise the index in the list's order is read, and files of other folders are skipped.
constexpr std::int64_t kLargeFolderPart = 8;

// Numbers of the parameters of the statements that this file builds. From kSticks on, there is one for each stick.
constexpr int kFirst = 1, kCount = 2, kFolder = 3, kFolderFrom = 4, kFolderTo = 5, kGroup = 6, kSticks = 7;

std::string place(int parameter) { return '?' + std::to_string(parameter); }

// How a statement finds the files of a folder: it needs no folder, skips other folders' files, or reads the folder's
// files.
enum class Way { kWhole, kWalk, kFolder };

const ListSort& sort_of(const ListQuery& query) {
  const bool fits = query.sort != nullptr && std::ranges::all_of(query.kinds, [&](E_MEDIA_TYPE kind) {
                      return (query.sort->kinds & bit(kind)) != 0;
                    });
  return fits ? *query.sort : kSorts[0];
}

bool is_whole(const ListQuery& query) { return query.folder.empty() && !query.direct; }

std::string in_folder(const ListQuery& query, std::size_t stick) {
  const std::string of_stick = "SELECT id FROM folder WHERE stick = " + place(kSticks + static_cast<int>(stick));
  std::string text = "folder IN (" + of_stick + " AND path = " + place(kFolder);
  if (!query.direct) {
    text += " UNION ALL " + of_stick + " AND path > " + place(kFolderFrom) + " AND path < " + place(kFolderTo);
  }
  return text + ")";
}

// FROM and WHERE for the files of one stick and one kind. The kind is a literal, so that SQLite can use partial
// indexes.
std::string arm(const ListQuery& query, std::size_t stick, E_MEDIA_TYPE kind, Way way) {
  const ListSort& sort = sort_of(query);
  const std::string own = "stick = " + place(kSticks + static_cast<int>(stick));
  std::string text = std::string(" FROM entry INDEXED BY ") + (way == Way::kFolder ? "by_place" : sort.index) +
                     " WHERE " + (way == Way::kFolder ? "+" : "") + own + " AND kind = " + std::to_string(kind) +
                     sort.condition;
  if (query.group) text += " AND " + std::string(sort.group) + " = " + place(kGroup);
  if (way != Way::kWhole) text += std::string(" AND ") + (way == Way::kWalk ? "+" : "") + in_folder(query, stick);
  return text;
}

// Calls add(stick, kind) for each pair of the query.
template <typename Add>
void each_arm(const ListQuery& query, const Add& add) {
  for (std::size_t stick = 0; stick < query.sticks.size(); ++stick)
    for (const E_MEDIA_TYPE kind : query.kinds) add(stick, kind);
}

sqlite3_stmt* bind_query(sqlite3_stmt* statement, const ListQuery& query, std::int64_t first, std::int64_t count) {
  if (statement == nullptr) return nullptr;
  bind_value(statement, kFirst, first);
  bind_value(statement, kCount, count);
  bind_value(statement, kFolder, query.folder);
  // '0' follows '/' in ASCII, so the paths of all subfolders are between these two. Every path is below the root.
  bind_value(statement, kFolderFrom, query.folder.empty() ? "" : query.folder + "/");
  bind_value(statement, kFolderTo, query.folder.empty() ? "\xFF" : query.folder + "0");
  bind_value(statement, kGroup, query.group.value_or(""));
  for (std::size_t i = 0; i < query.sticks.size(); ++i)
    bind_value(statement, kSticks + static_cast<int>(i), query.sticks[i]);
  return statement;
}

std::int64_t read_id(sqlite3_stmt* statement) { return sqlite3_column_int64(statement, 0); }

std::int64_t count_by(Database& database, const ListQuery& query, Way way) {
  std::string sql;
  each_arm(query, [&](std::size_t stick, E_MEDIA_TYPE kind) {
    sql += (sql.empty() ? "SELECT (SELECT count(*)" : ") + (SELECT count(*)") + arm(query, stick, kind, way);
  });
  if (sql.empty()) return 0;
  return read_number(bind_query(database_statement(database, sql + ")"), query, 0, 0));
}

// Whether the list has few files anyway: a group, favourites, or played files. Such a list is always read in its order.
bool is_narrow(const ListQuery& query) {
  const INT32 sort = sort_of(query).number;
  return query.group || sort == VEXTVAPI_CB_SORT_FAVOURITES || sort == VEXTVAPI_CB_SORT_PLAYED;
}

Way way_of(Database& database, const ListQuery& query) {
  if (is_whole(query)) return Way::kWhole;
  if (is_narrow(query)) return Way::kWalk;
  ListQuery whole = query;
  whole.folder.clear();
  whole.direct = false;
  const std::int64_t all = count_by(database, whole, Way::kWhole), own = count_by(database, query, Way::kFolder);
  return own * kLargeFolderPart > all ? Way::kWalk : Way::kFolder;
}

// The terms of ORDER BY, each with its direction. numbered: they name the columns 2, 3, ... of the result.
std::string ordered(std::string_view columns, bool descending, bool numbered) {
  const char* const direction = descending ? " DESC" : "";
  std::string text;
  int number = 1;
  while (!columns.empty()) {
    const std::size_t comma = columns.find(", ");
    text += (numbered ? std::to_string(++number) : std::string(columns.substr(0, comma))) + direction + ", ";
    columns = comma == std::string_view::npos ? "" : columns.substr(comma + 2);
  }
  return text + (numbered ? "1" : "id") + direction;
}

}  // namespace

std::span<const ListSort> list_sorts() { return kSorts; }

std::int64_t list_count(Database& database, const ListQuery& query) {
  const Way way = is_whole(query) ? Way::kWhole : is_narrow(query) ? Way::kWalk : Way::kFolder;
  return count_by(database, query, way);
}

std::vector<std::int64_t> list_ids(Database& database, const ListQuery& query, std::int64_t first, std::int64_t count) {
  const ListSort& sort = sort_of(query);
  const Way way = way_of(database, query);
  std::string sql;
  int arms = 0;
  each_arm(query, [&](std::size_t stick, E_MEDIA_TYPE kind) {
    ++arms;
    sql += (sql.empty() ? "SELECT id, " : " UNION ALL SELECT id, ") + std::string(sort.order) +
           arm(query, stick, kind, way);
  });
  if (arms == 0) return {};
  sql += " ORDER BY " + ordered(sort.order, query.descending != sort.newest_first, arms > 1) + " LIMIT " +
         place(kCount) + " OFFSET " + place(kFirst);
  return read_all(bind_query(database_statement(database, sql), query, first, count), read_id);
}

std::int64_t groups_count(Database& database, const ListQuery& query) {
  const ListSort& sort = sort_of(query);
  const Way way = is_whole(query) ? Way::kWhole : Way::kWalk;
  std::string sql;
  each_arm(query, [&](std::size_t stick, E_MEDIA_TYPE kind) {
    sql += (sql.empty() ? "SELECT " : " UNION SELECT ") + std::string(sort.group) + arm(query, stick, kind, way);
  });
  if (sql.empty() || *sort.group == '\0') return 0;
  return read_number(bind_query(
      database_statement(database, "SELECT count(DISTINCT " + std::string(sort.group) + ") FROM (" + sql + ")"), query,
      0, 0));
}

std::vector<std::int64_t> groups_ids(Database& database, const ListQuery& query, std::int64_t first,
                                     std::int64_t count) {
  const ListSort& sort = sort_of(query);
  const Way way = is_whole(query) ? Way::kWhole : Way::kWalk;
  if (*sort.group == '\0') return {};
  const std::string group = sort.group;
  std::string sql;
  each_arm(query, [&](std::size_t stick, E_MEDIA_TYPE kind) {
    sql += (sql.empty() ? "SELECT min(id) AS id, " : " UNION ALL SELECT min(id), ") + group +
           arm(query, stick, kind, way) + " GROUP BY " + group;
  });
  if (sql.empty()) return {};
  sql = "SELECT min(id) FROM (" + sql + ") GROUP BY " + group + " ORDER BY " + group +
        (query.descending ? " DESC" : "") + " LIMIT " + place(kCount) + " OFFSET " + place(kFirst);
  return read_all(bind_query(database_statement(database, sql), query, first, count), read_id);
}

std::int64_t folders_count(Database& database, std::int64_t parent) {
  return read_number(bound(database, "SELECT count(*) FROM folder INDEXED BY folder_by_name WHERE parent = ?", parent));
}

std::vector<FolderRow> folders_in(Database& database, std::int64_t parent, bool descending, std::int64_t first,
                                  std::int64_t count) {
  const std::string_view sql =
      descending ? "SELECT id, path FROM folder INDEXED BY folder_by_name WHERE parent = ? ORDER BY name_key DESC, id "
                   "DESC LIMIT ? OFFSET ?"
                 : "SELECT id, path FROM folder INDEXED BY folder_by_name WHERE parent = ? ORDER BY name_key, id LIMIT "
                   "? OFFSET ?";
  return read_all(
      bound(database, sql, parent, count, first), +[](sqlite3_stmt* row) -> FolderRow {
        return {.id = sqlite3_column_int64(row, 0), .path = column_text(row, 1)};
      });
}

std::optional<MediaRow> row_beside(Database& database, const MediaRow& row, int step) {
  const auto folder = folder_find(database, row.stick, row.folder);
  if (!folder) return std::nullopt;
  const std::string_view sql =
      step > 0 ? "SELECT id FROM entry INDEXED BY by_place WHERE folder = ? AND kind = ? AND (name_key, id) > (?, ?)"
                 " ORDER BY name_key, id LIMIT 1"
               : "SELECT id FROM entry INDEXED BY by_place WHERE folder = ? AND kind = ? AND (name_key, id) < (?, ?)"
                 " ORDER BY name_key DESC, id DESC LIMIT 1";
  const auto id =
      read_first(bound(database, sql, *folder, std::int64_t{row.kind}, media_key(row.name), row.id), read_id);
  return id ? row_by_id(database, *id) : std::nullopt;
}

std::vector<std::int64_t> search_ids(Database& database, const std::vector<std::int64_t>& sticks, std::string_view text,
                                     std::optional<E_MEDIA_TYPE> kind, std::int64_t first, std::int64_t count,
                                     std::int64_t& ret_total) {
  // Each word is quoted, so that FTS5 does not take it for an operator.
  std::string match;
  std::size_t words = 0;
  while (!text.empty() && words < kMostWords) {
    const std::size_t space = std::min(text.find(' '), text.size());
    std::string word(text.substr(0, space));
    std::erase(word, '"');
    // A word without a letter or a digit would match nothing, and so would the whole search.
    const std::string key = media_key(word);
    const bool has_letter = std::ranges::any_of(key, [](char c) {
      return static_cast<unsigned char>(c) >= 0x80 || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9');
    });
    if (has_letter) {
      match += (match.empty() ? "\"" : " \"") + word + "\"*";
      ++words;
    }
    text.remove_prefix(std::min(space + 1, text.size()));
  }
  ret_total = 0;
  if (match.empty() || sticks.empty()) return {};
  std::string of_sticks;
  for (std::size_t i = 0; i < sticks.size(); ++i)
    of_sticks += (i == 0 ? "" : ", ") + place(kSticks + static_cast<int>(i));
  const std::string from = " FROM found CROSS JOIN entry AS e ON e.id = found.rowid WHERE found MATCH " +
                           place(kFolder) + " AND +e.stick IN (" + of_sticks + ")" +
                           (kind ? " AND +e.kind = " + std::to_string(*kind) : "");
  const auto prepare = [&](const std::string& sql) {
    sqlite3_stmt* const statement = database_statement(database, sql);
    if (statement == nullptr) return statement;
    bind_value(statement, kFolder, match);
    for (std::size_t i = 0; i < sticks.size(); ++i) bind_value(statement, kSticks + static_cast<int>(i), sticks[i]);
    return statement;
  };
  ret_total = read_number(prepare("SELECT count(*)" + from));
  sqlite3_stmt* const statement = prepare("SELECT e.id" + from + " ORDER BY e.kind, e.name_key, e.id LIMIT " +
                                          place(kCount) + " OFFSET " + place(kFirst));
  if (statement == nullptr) return {};
  bind_value(statement, kFirst, first);
  bind_value(statement, kCount, count);
  return read_all(statement, read_id);
}
