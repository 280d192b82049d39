#include "rooms/library/rows.h"

#include <algorithm>

#include "core/text.h"
#include "rooms/library/names.h"
#include "rooms/library/statements.h"

namespace {

constexpr std::int32_t kApplication = 0x4C494200;

// Each order of lists has an index that begins with the stick and the kind. Lists of a folder use by_place. Only music
// has the last three orders.
constexpr const char* kSteps[] = {
    "CREATE TABLE stick (id INTEGER PRIMARY KEY, folder TEXT NOT NULL UNIQUE, device INTEGER NOT NULL,"
    " inode INTEGER NOT NULL, seen INTEGER NOT NULL, complete INTEGER NOT NULL);"
    "CREATE TABLE folder (id INTEGER PRIMARY KEY, stick INTEGER NOT NULL, parent INTEGER NOT NULL, path TEXT NOT NULL,"
    " name_key TEXT NOT NULL);"
    "CREATE UNIQUE INDEX folder_by_path ON folder (stick, path);"
    "CREATE INDEX folder_by_name ON folder (parent, name_key);"
    "CREATE TABLE entry (id INTEGER PRIMARY KEY, stick INTEGER NOT NULL, folder INTEGER NOT NULL, kind INTEGER NOT "
    "NULL,"
    " name TEXT NOT NULL, name_key TEXT NOT NULL, size INTEGER NOT NULL, mtime INTEGER NOT NULL,"
    " inode INTEGER NOT NULL, date INTEGER NOT NULL, title TEXT NOT NULL, title_key TEXT NOT NULL,"
    " artist TEXT NOT NULL, artist_key TEXT NOT NULL, album TEXT NOT NULL, album_key TEXT NOT NULL,"
    " genre TEXT NOT NULL, genre_key TEXT NOT NULL, track TEXT NOT NULL, track_key TEXT NOT NULL, year TEXT NOT NULL,"
    " duration INTEGER NOT NULL, width INTEGER NOT NULL, height INTEGER NOT NULL, favourite INTEGER NOT NULL,"
    " played INTEGER NOT NULL, problem TEXT NOT NULL);"
    "CREATE UNIQUE INDEX by_file ON entry (folder, name);"
    "CREATE INDEX by_place ON entry (folder, kind, name_key);"
    "CREATE INDEX by_name ON entry (stick, kind, name_key);"
    "CREATE INDEX by_date ON entry (stick, kind, date);"
    "CREATE INDEX by_size ON entry (stick, kind, size);"
    "CREATE INDEX by_title ON entry (stick, kind, title_key);"
    "CREATE INDEX by_duration ON entry (stick, kind, duration);"
    "CREATE INDEX by_artist ON entry (stick, kind, artist_key, album_key, track_key, name_key) WHERE kind = 2;"
    "CREATE INDEX by_album ON entry (stick, kind, album_key, track_key, name_key) WHERE kind = 2;"
    "CREATE INDEX by_genre ON entry (stick, kind, genre_key, artist_key, name_key) WHERE kind = 2;"
    "CREATE INDEX by_favourite ON entry (stick, kind, name_key) WHERE favourite = 1;"
    "CREATE INDEX by_played ON entry (stick, kind, played) WHERE played > 0;"
    "CREATE VIRTUAL TABLE found USING fts5(name, title, artist, album, content='entry', content_rowid='id',"
    " tokenize='unicode61 remove_diacritics 2');"
    "CREATE TRIGGER entry_added AFTER INSERT ON entry WHEN new.kind <> 0 BEGIN"
    " INSERT INTO found (rowid, name, title, artist, album) VALUES (new.id, new.name, new.title, new.artist,"
    " new.album); END;"
    "CREATE TRIGGER entry_erased AFTER DELETE ON entry WHEN old.kind <> 0 BEGIN"
    " INSERT INTO found (found, rowid, name, title, artist, album) VALUES ('delete', old.id, old.name, old.title,"
    " old.artist, old.album); END"};

#define MEDIA_ROW                                                                                                 \
  "SELECT e.id, e.stick, e.kind, f.path, e.name, e.size, e.mtime, e.inode, e.date, e.title, e.artist, e.album,"   \
  " e.genre, e.track, e.year, e.duration, e.width, e.height, e.favourite, e.played, e.problem FROM entry e JOIN " \
  "folder f ON f.id = e.folder "

MediaRow read_row(sqlite3_stmt* statement) {
  const auto number = [&](int column) { return sqlite3_column_int64(statement, column); };
  const auto text = [&](int column) { return column_text(statement, column); };
  return {.id = number(0),
          .stick = number(1),
          .kind = static_cast<E_MEDIA_TYPE>(number(2)),
          .folder = text(3),
          .name = text(4),
          .size = static_cast<std::uint64_t>(number(5)),
          .mtime = number(6),
          .inode = static_cast<std::uint64_t>(number(7)),
          .date = number(8),
          .title = text(9),
          .artist = text(10),
          .album = text(11),
          .genre = text(12),
          .track = text(13),
          .year = text(14),
          .duration_ms = static_cast<std::uint64_t>(number(15)),
          .width = static_cast<std::uint32_t>(number(16)),
          .height = static_cast<std::uint32_t>(number(17)),
          .favourite = number(18) != 0,
          .played = number(19),
          .problem = text(20)};
}

StickRow read_stick(sqlite3_stmt* statement) {
  return {.id = sqlite3_column_int64(statement, 0),
          .folder = column_text(statement, 1),
          .device = static_cast<std::uint64_t>(sqlite3_column_int64(statement, 2)),
          .inode = static_cast<std::uint64_t>(sqlite3_column_int64(statement, 3)),
          .seen = sqlite3_column_int64(statement, 4),
          .complete = sqlite3_column_int64(statement, 5) != 0};
}

FolderRow read_folder(sqlite3_stmt* statement) {
  return {.id = sqlite3_column_int64(statement, 0), .path = column_text(statement, 1)};
}

KnownFile read_known(sqlite3_stmt* statement) {
  return {.id = sqlite3_column_int64(statement, 0),
          .kind = static_cast<E_MEDIA_TYPE>(sqlite3_column_int64(statement, 1)),
          .name = column_text(statement, 2),
          .size = static_cast<std::uint64_t>(sqlite3_column_int64(statement, 3)),
          .mtime = sqlite3_column_int64(statement, 4),
          .inode = static_cast<std::uint64_t>(sqlite3_column_int64(statement, 5))};
}

std::string_view parent_of(std::string_view path) {
  const std::size_t slash = path.rfind('/');
  return slash == std::string_view::npos ? "" : path.substr(0, slash);
}

std::string_view last_name(std::string_view path) { return path.substr(path.rfind('/') + 1); }

// The folder's id. Adds the folder and those above it if they are new. 0: that failed.
std::int64_t folder_put(Database& database, std::int64_t stick, std::string_view path) {
  if (const auto known = folder_find(database, stick, path)) return *known;
  const std::int64_t parent = path.empty() ? 0 : folder_put(database, stick, parent_of(path));
  if (parent == 0 && !path.empty()) return 0;
  const bool put = run_bound(database, "INSERT INTO folder (stick, parent, path, name_key) VALUES (?, ?, ?, ?)", stick,
                             parent, path, media_key(last_name(path)));
  return put ? sqlite3_last_insert_rowid(database.handle) : 0;
}

// The key of a track, which sorts "2" before "10", and files without a track number last.
std::string track_key(const std::string& track) { return track.empty() ? "~" : media_key(track); }

}  // namespace

const DatabaseLayouts kLibraryLayouts = {.application = kApplication, .steps = kSteps};

// ---- Sticks ----

std::optional<StickRow> stick_find(Database& database, const std::string& folder) {
  return read_first(
      bound(database, "SELECT id, folder, device, inode, seen, complete FROM stick WHERE folder = ?", folder),
      read_stick);
}

bool stick_put(Database& database, StickRow& stick) {
  const auto device = static_cast<std::int64_t>(stick.device), inode = static_cast<std::int64_t>(stick.inode);
  const std::int64_t complete = stick.complete ? 1 : 0;
  if (stick.id != 0) {
    return run_bound(database, "UPDATE stick SET device = ?, inode = ?, seen = ?, complete = ? WHERE id = ?", device,
                     inode, stick.seen, complete, stick.id);
  }
  if (!run_bound(database, "INSERT INTO stick (folder, device, inode, seen, complete) VALUES (?, ?, ?, ?, ?)",
                 stick.folder, device, inode, stick.seen, complete)) {
    return false;
  }
  stick.id = sqlite3_last_insert_rowid(database.handle);
  return true;
}

bool stick_complete(Database& database, std::int64_t stick) {
  return run_bound(database, "UPDATE stick SET complete = 1 WHERE id = ?", stick);
}

std::vector<StickRow> sticks_by_age(Database& database) {
  return read_all(bound(database, "SELECT id, folder, device, inode, seen, complete FROM stick ORDER BY seen, id"),
                  read_stick);
}

bool stick_drop(Database& database, std::int64_t stick) {
  return run_bound(database, "UPDATE stick SET folder = ? WHERE id = ?",
                   std::string(kDroppedStick) + std::to_string(stick), stick);
}

std::int64_t stick_rows(Database& database, std::int64_t stick) {
  return read_number(bound(database, "SELECT count(*) FROM entry INDEXED BY by_name WHERE stick = ?", stick));
}

bool stick_erase_some(Database& database, std::int64_t stick, std::size_t most) {
  if (!run_bound(database,
                 "DELETE FROM entry WHERE id IN (SELECT id FROM entry INDEXED BY by_name WHERE stick = ? LIMIT ?)",
                 stick, static_cast<std::int64_t>(most))) {
    return false;
  }
  if (static_cast<std::size_t>(sqlite3_changes(database.handle)) == most) return true;
  return run_bound(database, "DELETE FROM folder WHERE stick = ?", stick) &&
         run_bound(database, "DELETE FROM stick WHERE id = ?", stick);
}

// ---- Entries ----

bool row_put(Database& database, const MediaRow& row) {
  const std::int64_t folder = folder_put(database, row.stick, row.folder);
  if (folder == 0) return false;
  std::int64_t id = 0, favourite = 0, played = 0;
  sqlite3_stmt* const known =
      bound(database, "SELECT id, favourite, played FROM entry WHERE folder = ? AND name = ?", folder, row.name);
  if (known == nullptr) return false;
  const bool is_known = sqlite3_step(known) == SQLITE_ROW;
  if (is_known) {
    id = sqlite3_column_int64(known, 0);
    favourite = sqlite3_column_int64(known, 1);
    played = sqlite3_column_int64(known, 2);
  }
  sqlite3_reset(known);
  // The row is erased and added again, since the triggers that keep the search index up to date run on both.
  if (is_known && !row_erase(database, id)) return false;
  const std::string title = row.title.empty() ? std::string(media_stem(row.name)) : row.title;
  return run_bound(
      database,
      "INSERT INTO entry (id, stick, folder, kind, name, name_key, size, mtime, inode, date, title, title_key, artist,"
      " artist_key, album, album_key, genre, genre_key, track, track_key, year, duration, width, height, favourite,"
      " played, problem) VALUES (nullif(?, 0), ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, "
      "?, ?)",
      id, row.stick, folder, std::int64_t{row.kind}, row.name, media_key(row.name), static_cast<std::int64_t>(row.size),
      row.mtime, static_cast<std::int64_t>(row.inode), row.date, row.title, media_key(title), row.artist,
      media_key(row.artist), row.album, media_key(row.album), row.genre, media_key(row.genre), row.track,
      track_key(row.track), row.year, static_cast<std::int64_t>(row.duration_ms), std::int64_t{row.width},
      std::int64_t{row.height}, favourite, played, row.problem);
}

bool row_erase(Database& database, std::int64_t id) {
  return run_bound(database, "DELETE FROM entry WHERE id = ?", id);
}

bool row_set_favourite(Database& database, std::int64_t id, bool favourite) {
  return run_bound(database, "UPDATE entry SET favourite = ? WHERE id = ?", std::int64_t{favourite}, id);
}

bool row_set_played(Database& database, std::int64_t id, std::int64_t played) {
  return run_bound(database, "UPDATE entry SET played = ? WHERE id = ?", played, id);
}

std::optional<MediaRow> row_by_id(Database& database, std::int64_t id) {
  return read_first(bound(database, MEDIA_ROW "WHERE e.id = ?", id), read_row);
}

std::optional<MediaRow> row_by_path(Database& database, std::int64_t stick, std::string_view folder,
                                    std::string_view name) {
  const auto place = folder_find(database, stick, folder);
  if (!place) return std::nullopt;
  return read_first(bound(database, MEDIA_ROW "WHERE e.folder = ? AND e.name = ? AND e.kind <> 0", *place, name),
                    read_row);
}

std::vector<KnownFile> rows_known(Database& database, std::int64_t folder) {
  return read_all(
      bound(database, "SELECT id, kind, name, size, mtime, inode FROM entry INDEXED BY by_file WHERE folder = ?",
            folder),
      read_known);
}

std::int64_t media_count(Database& database) {
  return read_number(bound(database, "SELECT count(*) FROM entry INDEXED BY by_file"));
}

std::optional<std::int64_t> folder_find(Database& database, std::int64_t stick, std::string_view path) {
  return read_first(
      bound(database, "SELECT id FROM folder WHERE stick = ? AND path = ?", stick, path),
      +[](sqlite3_stmt* statement) -> std::int64_t { return sqlite3_column_int64(statement, 0); });
}

std::vector<FolderRow> folders_all(Database& database, std::int64_t stick) {
  return read_all(bound(database, "SELECT id, path FROM folder WHERE stick = ?", stick), read_folder);
}

bool folder_erase(Database& database, std::int64_t folder) {
  return run_bound(database, "DELETE FROM entry WHERE folder = ?", folder);
}

// From the deepest folder up, since a folder is empty when its last subfolder is gone.
bool folders_erase_empty(Database& database, std::int64_t stick) {
  std::vector<FolderRow> folders = folders_all(database, stick);
  std::ranges::sort(folders, std::greater(), [](const FolderRow& each) { return each.path.size(); });
  return std::ranges::all_of(folders, [&](const FolderRow& each) {
    return run_bound(database,
                     "DELETE FROM folder WHERE id = ?1 AND NOT EXISTS (SELECT 1 FROM entry WHERE folder = ?1)"
                     " AND NOT EXISTS (SELECT 1 FROM folder AS below WHERE below.parent = ?1)",
                     each.id);
  });
}

KindCounts kind_counts(Database& database, std::int64_t stick) {
  KindCounts counts;
  sqlite3_stmt* const statement = bound(
      database, "SELECT kind, count(*), sum(size) FROM entry INDEXED BY by_size WHERE stick = ? GROUP BY kind", stick);
  while (statement != nullptr && sqlite3_step(statement) == SQLITE_ROW) {
    const std::int64_t kind = sqlite3_column_int64(statement, 0);
    if (kind < 0 || kind >= MEDIA_TYPE_SUPPER_SHOP_MODE) continue;
    counts.files[kind] = sqlite3_column_int64(statement, 1);
    if (kind != MEDIA_TYPE_NULL) counts.bytes += sqlite3_column_int64(statement, 2);
  }
  if (statement != nullptr) sqlite3_reset(statement);
  counts.files[MEDIA_TYPE_FOLDER] =
      read_number(bound(database, "SELECT count(*) FROM folder WHERE stick = ? AND path > ''", stick));
  return counts;
}

std::vector<MediaRow> refused_rows(Database& database, std::int64_t stick, std::size_t most) {
  return read_all(bound(database, MEDIA_ROW "WHERE e.stick = ? AND e.kind = 0 ORDER BY e.name_key LIMIT ?", stick,
                        static_cast<std::int64_t>(most)),
                  read_row);
}
