// The library's database: its layout, and functions that read and write its rows. They take no lock; parts.h has the
// connections and their locks.
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
  std::string folder = {};  // canonical; with device and inode it is the stick's identity
  std::uint64_t device = 0;
  std::uint64_t inode = 0;
  std::int64_t seen = 0;  // s since 1970, when a scan of it began last
  bool complete = false;  // a scan has finished
};
std::optional<StickRow> stick_find(Database& database, const std::string& folder);
bool stick_put(Database& database, StickRow& stick);  // id 0: adds the stick and fills in its id
bool stick_complete(Database& database, std::int64_t stick);
std::vector<StickRow> sticks_by_age(Database& database);  // the least recently seen first

// How the folder of a dropped stick's row begins; no other folder does.
inline constexpr std::string_view kDroppedStick = "//";

// Renames the folder of the stick's row, so that stick_find does not find it any more; stick_erase_some then erases its
// entries in steps.
bool stick_drop(Database& database, std::int64_t stick);
std::int64_t stick_rows(Database& database, std::int64_t stick);  // its entries, refused ones too

// Erases at most `most` of the stick's entries. Once none is left, it erases the stick's row and folders.
bool stick_erase_some(Database& database, std::int64_t stick, std::size_t most);

// ---- Entries ----

// A file. Kind MEDIA_TYPE_NULL: the reader refused the file; a scan does not read it again until it changes.
struct MediaRow {
  std::int64_t id = 0;
  std::int64_t stick = 0;
  E_MEDIA_TYPE kind = MEDIA_TYPE_NULL;
  std::string folder = {};  // within the stick, without a slash at either end; empty: the stick's root
  std::string name = {};
  std::uint64_t size = 0;
  std::int64_t mtime = 0;  // ns since 1970
  std::uint64_t inode = 0;
  std::int64_t date = 0;  // local time, as the number 20260323141500
  std::string title = {};
  std::string artist = {};
  std::string album = {};
  std::string genre = {};
  std::string track = {};
  std::string year = {};
  std::uint64_t duration_ms = 0;
  std::uint32_t width = 0;  // as displayed, after turning
  std::uint32_t height = 0;
  bool favourite = false;
  std::int64_t played = 0;   // ms since 1970; 0: never
  std::string problem = {};  // why the reader refused it; for kind MEDIA_TYPE_NULL
};

// The members of a row that a scan compares with the file.
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

// Writes the file's row, and the rows of its folders if they are new. If the folder has a row of this name, its id,
// favourite and played stay.
bool row_put(Database& database, const MediaRow& row);
bool row_erase(Database& database, std::int64_t id);
bool row_set_favourite(Database& database, std::int64_t id, bool favourite);
bool row_set_played(Database& database, std::int64_t id, std::int64_t played);
std::optional<MediaRow> row_by_id(Database& database, std::int64_t id);
std::optional<MediaRow> row_by_path(Database& database, std::int64_t stick, std::string_view folder,
                                    std::string_view name);
std::vector<KnownFile> rows_known(Database& database, std::int64_t folder);
std::int64_t media_count(Database& database);  // files of all sticks, refused ones too

std::optional<std::int64_t> folder_find(Database& database, std::int64_t stick, std::string_view path);
std::vector<FolderRow> folders_all(Database& database, std::int64_t stick);
bool folder_erase(Database& database, std::int64_t folder);  // with its files, without its subfolders
bool folders_erase_empty(Database& database, std::int64_t stick);

struct KindCounts {
  std::int64_t files[MEDIA_TYPE_SUPPER_SHOP_MODE] = {};  // by E_MEDIA_TYPE; [MEDIA_TYPE_NULL]: refused files
  std::int64_t bytes = 0;                                // of all files that are listed
};
KindCounts kind_counts(Database& database, std::int64_t stick);

std::vector<MediaRow> refused_rows(Database& database, std::int64_t stick, std::size_t most);

// ---- Lists ----

// An order of lists.
struct ListSort {
  INT32 number;            // VEXTVAPI_CB_SORT_...
  std::string_view name;   // in commands
  const char* index;       // the SQL index that has this order
  const char* order;       // the columns, separated by commas
  const char* condition;   // SQL that selects the rows of the list, or empty
  unsigned kinds;          // bits (1 << E_MEDIA_TYPE) of the kinds with this order; the others are sorted by name
  bool newest_first;       // without "descending" the list begins with the largest value
  const char* group = "";  // the column by which the list can be grouped, or empty
};
std::span<const ListSort> list_sorts();

// Selects the files of a list: those of one folder of one stick, or of several whole sticks.
struct ListQuery {
  std::vector<std::int64_t> sticks = {};
  std::string folder = {};
  bool direct = false;  // only files directly in the folder
  std::vector<E_MEDIA_TYPE> kinds = {};
  const ListSort* sort = nullptr;
  bool descending = false;
  std::optional<std::string> group = {};  // only files with this key in the column sort->group
};

std::int64_t list_count(Database& database, const ListQuery& query);
std::vector<std::int64_t> list_ids(Database& database, const ListQuery& query, std::int64_t first, std::int64_t count);

// The groups of the query's order. groups_ids gives the id of one file of each group.
std::int64_t groups_count(Database& database, const ListQuery& query);
std::vector<std::int64_t> groups_ids(Database& database, const ListQuery& query, std::int64_t first,
                                     std::int64_t count);

// Subfolders of a folder, sorted by name.
std::int64_t folders_count(Database& database, std::int64_t parent);
std::vector<FolderRow> folders_in(Database& database, std::int64_t parent, bool descending, std::int64_t first,
                                  std::int64_t count);

// The row after (step 1) or before (step -1) this one by name, among its folder's files of the same kind.
std::optional<MediaRow> row_beside(Database& database, const MediaRow& row, int step);

// Files in whose name, title, artist or album each word of the text begins a word. ret_total: how many there are in
// all.
std::vector<std::int64_t> search_ids(Database& database, const std::vector<std::int64_t>& sticks, std::string_view text,
                                     std::optional<E_MEDIA_TYPE> kind, std::int64_t first, std::int64_t count,
                                     std::int64_t& ret_total);
