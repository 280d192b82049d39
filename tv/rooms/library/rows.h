// The library's database: its layout, its rows, and how they are read and written. These functions know no thread and
// no lock; parts.h has the connections and says who may use them.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "core/database.h"
#include "tvapi/cbrowser.h"

extern const DatabaseLayouts kLibraryLayouts;

// ---- Sticks ----

struct StickRow {
  std::int64_t id = 0;
  std::string folder = {};   // canonical; with the inode it is the stick's identity
  std::uint64_t device = 0;  // of its latest scan; it may change with the port
  std::uint64_t inode = 0;   // 0: its file system does not keep them
  std::int64_t seen = 0;     // s since 1970
  bool complete = false;     // a scan has come to its end
};
std::optional<StickRow> stick_find(Database& database, const std::string& folder);
bool stick_put(Database& database, StickRow& stick);  // of id 0: a new one, which gets its id
bool stick_complete(Database& database, std::int64_t stick, bool complete);
std::vector<StickRow> sticks_by_age(Database& database);  // the least recently seen first

// Takes the stick's folder from it, so that nobody finds it any more; its entries can be erased in steps.
inline constexpr std::string_view kDroppedStick = "//";  // what its folder begins with then; no other one's does
bool stick_drop(Database& database, std::int64_t stick);

// Erases at most `most` of the stick's entries, and when none is left the stick and its folders.
bool stick_erase_some(Database& database, std::int64_t stick, std::size_t most);

// ---- Entries ----

// A file. Of kind null: one that the reader refused, which is not read again while it stays the same.
struct MediaRow {
  std::int64_t id = 0;
  std::int64_t stick = 0;
  E_MEDIA_TYPE kind = MEDIA_TYPE_NULL;
  std::string folder = {};  // within the stick, without a slash at either end; empty: the stick's root
  std::string name = {};
  std::uint64_t size = 0;
  std::int64_t mtime = 0;  // ns since 1970
  std::uint64_t inode = 0;
  std::int64_t date = 0;  // local time as 20260323141500
  std::string title = {};
  std::string artist = {};
  std::string album = {};
  std::string genre = {};
  std::string track = {};
  std::string year = {};
  std::uint64_t duration_ms = 0;
  std::uint32_t width = 0;  // as it is seen
  std::uint32_t height = 0;
  bool favourite = false;
  std::int64_t played = 0;   // ms since 1970; 0: never
  std::string problem = {};  // of kind null
};

// What the scan compares with the files.
struct KnownFile {
  std::int64_t id = 0;
  E_MEDIA_TYPE kind = MEDIA_TYPE_NULL;
  std::string name = {};
  std::uint64_t size = 0;
  std::int64_t mtime = 0;
  std::uint64_t inode = 0;
};

struct FolderRow {
  std::int64_t id = 0;
  std::string path = {};  // as MediaRow::folder
};

// Writes the file's row, and its folders' if they are new. A row of the same name keeps its id, favourite and played.
bool row_put(Database& database, const MediaRow& row);
bool row_erase(Database& database, std::int64_t id);
bool row_set_favourite(Database& database, std::int64_t id, bool favourite);
bool row_set_played(Database& database, std::int64_t id, std::int64_t played);
std::optional<MediaRow> row_by_id(Database& database, std::int64_t id);
std::optional<MediaRow> row_by_path(Database& database, std::int64_t stick, std::string_view folder,
                                    std::string_view name);
std::vector<KnownFile> rows_known(Database& database, std::int64_t folder);
std::int64_t media_count(Database& database);  // of all sticks, refused ones too

std::optional<std::int64_t> folder_find(Database& database, std::int64_t stick, std::string_view path);
std::vector<FolderRow> folders_all(Database& database, std::int64_t stick);
// Erases the folder if it is empty, and takes it from the lists if nothing in it is listed. For those below it first.
bool folder_tidy(Database& database, std::int64_t folder);

struct KindCounts {
  std::int64_t files[MEDIA_TYPE_SUPPER_SHOP_MODE] = {};  // by E_MEDIA_TYPE; of kind null: refused ones
  std::int64_t bytes = 0;                                // of all that are listed
};
KindCounts kind_counts(Database& database, std::int64_t stick);

std::vector<MediaRow> refused_rows(Database& database, std::int64_t stick, std::size_t most);

// ---- Lists ----

struct ListSort {
  INT32 number;           // VEXTVAPI_CB_SORT_...
  std::string_view name;  // in commands
  const char* index;
  const char* order;       // the columns, separated by commas
  const char* condition;   // rows that the list has, or empty
  unsigned kinds;          // bits of the kinds that it can sort; the others are sorted by name
  bool newest_first;       // its ascending order begins with the largest value
  const char* group = "";  // the column of equal values
};
std::span<const ListSort> list_sorts();

// What a list is about. One stick with a folder, or the whole of several sticks.
struct ListQuery {
  std::vector<std::int64_t> sticks = {};
  std::string folder = {};
  bool direct = false;  // only files directly in the folder
  std::vector<E_MEDIA_TYPE> kinds = {};
  const ListSort* sort = nullptr;
  bool descending = false;
  std::optional<std::string> group = {};  // only files whose value, by which `sort` groups, has this key
};

std::int64_t list_count(Database& database, const ListQuery& query);
std::vector<std::int64_t> list_ids(Database& database, const ListQuery& query, std::int64_t first, std::int64_t count);

// The groups of the query's sort, each by one of its files.
std::int64_t groups_count(Database& database, const ListQuery& query);
std::vector<std::int64_t> groups_ids(Database& database, const ListQuery& query, std::int64_t first,
                                     std::int64_t count);

// Folders with media directly in a folder, by name.
std::int64_t folders_count(Database& database, std::int64_t parent);
std::vector<FolderRow> folders_in(Database& database, std::int64_t parent, bool descending, std::int64_t first,
                                  std::int64_t count);

// The row next to this one in its folder's list of its kind by name.
std::optional<MediaRow> row_beside(Database& database, const MediaRow& row, int step);

// Files whose names, titles, artists or albums have a word that begins with each of the text's words.
std::vector<std::int64_t> search_ids(Database& database, const std::vector<std::int64_t>& sticks, std::string_view text,
                                     std::optional<E_MEDIA_TYPE> kind, std::int64_t first, std::int64_t count,
                                     std::int64_t& ret_total);
