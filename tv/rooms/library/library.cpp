// The media library's room: finds entries by their paths, makes lists, answers other rooms, and has the room's row.
#include "rooms/library/library.h"

#include <unistd.h>

#include <algorithm>
#include <boost/json.hpp>
#include <cstdio>

#include "core/reply.h"
#include "core/room.h"
#include "core/set.h"
#include "rooms/library/parts.h"

namespace {

constexpr E_MEDIA_TYPE kFileKinds[] = {MEDIA_TYPE_PHOTO, MEDIA_TYPE_MUSIC, MEDIA_TYPE_VIDEO, MEDIA_TYPE_PLAYLIST};

std::vector<E_MEDIA_TYPE> kinds_of(const MediaList& list) {
  if (list.all) return {std::begin(kFileKinds), std::end(kFileKinds)};
  if (list.kind == MEDIA_TYPE_SUPPER_SHOP_MODE) return {MEDIA_TYPE_PHOTO, MEDIA_TYPE_VIDEO};
  return {list.kind};
}

// A stick whose files a list contains, with the id of its row.
struct ListedStick {
  UsbStick stick;
  std::int64_t id;
};

std::vector<ListedStick> listed(Database& database, const std::vector<UsbStick>& sticks) {
  std::vector<ListedStick> found;
  for (const UsbStick& each : sticks)
    if (const auto row = stick_find(database, each.folder)) found.push_back({.stick = each, .id = row->id});
  return found;
}

MediaItem file_item(const UsbStick& stick, MediaRow row) {
  std::string path = media_path(stick, row.folder, row.name);
  return {.row = std::move(row), .path = std::move(path)};
}

std::vector<MediaItem> items_of(Database& database, const std::vector<ListedStick>& sticks,
                                const std::vector<std::int64_t>& ids) {
  std::vector<MediaItem> items;
  for (const std::int64_t id : ids) {
    auto row = row_by_id(database, id);
    if (!row) continue;
    const auto stick = std::ranges::find(sticks, row->stick, &ListedStick::id);
    if (stick != sticks.end()) items.push_back(file_item(stick->stick, std::move(*row)));
  }
  return items;
}

// Lists the subfolders of a folder, on one stick after the other.
void list_folders(Database& database, const std::vector<ListedStick>& sticks, const std::string& folder,
                  bool descending, std::int64_t first, std::int64_t count, std::vector<MediaItem>& ret_items,
                  std::int64_t& ret_total) {
  std::int64_t total = 0;
  for (const ListedStick& each : sticks) {
    const auto parent = folder_find(database, each.id, folder);
    if (!parent) continue;
    const std::int64_t own = folders_count(database, *parent);
    const std::int64_t from = std::max<std::int64_t>(first - total, 0);
    const std::int64_t room = count - static_cast<std::int64_t>(ret_items.size());
    if (from < own && room > 0) {
      for (FolderRow& found : folders_in(database, *parent, descending, from, room)) {
        const std::size_t slash = found.path.rfind('/');
        MediaRow row{.id = found.id, .stick = each.id, .kind = MEDIA_TYPE_FOLDER};
        row.folder = slash == std::string::npos ? "" : found.path.substr(0, slash);
        row.name = found.path.substr(slash + 1);
        ret_items.push_back(file_item(each.stick, std::move(row)));
      }
    }
    total += own;
  }
  ret_total = total;
}

// Lists the files that a playlist names, as far as they are of the list's kinds.
void list_playlist(const MediaPlace& place, const MediaList& list, std::int64_t first, std::int64_t count,
                   std::vector<MediaItem>& ret_items, std::int64_t* ret_total) {
  std::vector<LibraryEntry> entries = library_playlist(media_path(place.stick, "", place.path));
  const std::vector<E_MEDIA_TYPE> kinds = kinds_of(list);
  std::erase_if(entries, [&](const LibraryEntry& each) { return std::ranges::find(kinds, each.kind) == kinds.end(); });
  if (ret_total != nullptr) *ret_total = static_cast<std::int64_t>(entries.size());
  std::vector<MediaItem> items;
  for (std::size_t i = static_cast<std::size_t>(first); i < entries.size() && std::ssize(items) < count; ++i) {
    const auto at = media_place(entries[i].path);
    const LibraryReading reading;
    if (!at || reading.database == nullptr) continue;
    if (auto row = media_row(*reading.database, *at)) items.push_back(file_item(at->stick, std::move(*row)));
  }
  ret_items = std::move(items);
}

bool is_playlist(const MediaPlace& place) {
  const LibraryReading reading;
  const auto row = reading.database == nullptr ? std::nullopt : media_row(*reading.database, place);
  return row && row->kind == MEDIA_TYPE_PLAYLIST;
}

LibraryEntry entry_of(const MediaItem& item) {
  return {.kind = item.row.kind,
          .path = item.path,
          .title = item.row.title.empty() ? item.row.name : item.row.title,
          .artist = item.row.artist,
          .album = item.row.album,
          .duration_ms = item.row.duration_ms,
          .width = item.row.width,
          .height = item.row.height};
}

MediaList list_of_folder(std::string_view folder, E_MEDIA_TYPE kind) {
  return {.path = folder, .kind = kind, .all = kind == MEDIA_TYPE_NULL, .direct = true, .sort = VEXTVAPI_CB_SORT_NAME};
}

}  // namespace

// ---- For the library's files ----

std::optional<MediaPlace> media_place(std::string_view path) {
  auto stick = usb_stick_of(path);
  if (!stick) return std::nullopt;
  std::string within(path.substr(stick->mount_point.size()));
  const bool slash = within.ends_with('/');
  const auto is_doubled = [](char one, char next) { return one == '/' && next == '/'; };
  within.erase(std::unique(within.begin(), within.end(), is_doubled), within.end());
  if (within.starts_with('/')) within.erase(0, 1);
  if (within.ends_with('/')) within.pop_back();
  return MediaPlace{.stick = std::move(*stick), .path = std::move(within), .ends_with_slash = slash};
}

std::optional<MediaRow> media_row(Database& database, const MediaPlace& place) {
  const auto stick = stick_find(database, place.stick.folder);
  if (!stick) return std::nullopt;
  const std::size_t slash = place.path.rfind('/');
  const std::string_view path = place.path;
  return row_by_path(database, stick->id, slash == std::string::npos ? "" : path.substr(0, slash),
                     path.substr(slash + 1));
}

std::string media_path(const UsbStick& stick, std::string_view folder, std::string_view name) {
  std::string path = stick.mount_point + "/";
  if (!folder.empty()) path.append(folder).append("/");
  return path.append(name);
}

bool media_list(const MediaList& list, std::int64_t first, std::int64_t count, std::vector<MediaItem>& ret_items,
                std::int64_t* ret_total, std::string& ret_why) {
  const INT32 number = list.sort == VEXTVAPI_CB_SORT_SET ? set_sort(list.kind) : list.sort;
  const bool descending = number > VEXTVAPI_CB_SORT_DESCENDING;
  const auto sorts = list_sorts();
  const auto sort =
      std::ranges::find(sorts, descending ? number - VEXTVAPI_CB_SORT_DESCENDING : number, &ListSort::number);
  if (sort == sorts.end()) {
    ret_why = "there is no order " + std::to_string(number) + " of lists";
    return false;
  }
  std::vector<UsbStick> sticks;
  ListQuery query{.kinds = kinds_of(list), .sort = &*sort, .descending = descending, .group = list.group};
  if (list.path.empty()) {
    sticks = usb_sticks();
  } else {
    auto place = media_place(list.path);
    if (!place) {
      ret_why = quoted(list.path) + " is not on an inserted stick";
      return false;
    }
    if (!place->path.empty() && is_playlist(*place)) {
      list_playlist(*place, list, first, count, ret_items, ret_total);
      return true;
    }
    query.folder = place->path;
    query.direct = place->ends_with_slash || list.direct || list.all;
    sticks.push_back(std::move(place->stick));
  }
  const LibraryReading reading;
  if (reading.database == nullptr) {
    ret_why = "the media library is not open; see the set's log";
    return false;
  }
  const std::vector<ListedStick> known = listed(*reading.database, sticks);
  std::vector<MediaItem> items;
  std::int64_t total = 0;
  if (list.all || list.kind == MEDIA_TYPE_FOLDER)
    list_folders(*reading.database, known, query.folder, descending, first, count, items, total);
  if (list.kind != MEDIA_TYPE_FOLDER) {
    for (const ListedStick& each : known) query.sticks.push_back(each.id);
    const std::int64_t from = std::max<std::int64_t>(first - total, 0);
    const std::int64_t room = count - std::ssize(items);
    const bool groups = list.groups && *sort->group != '\0' && query.kinds == std::vector{MEDIA_TYPE_MUSIC};
    if (room > 0) {
      const auto ids =
          groups ? groups_ids(*reading.database, query, from, room) : list_ids(*reading.database, query, from, room);
      for (MediaItem& each : items_of(*reading.database, known, ids)) items.push_back(std::move(each));
    }
    if (ret_total != nullptr)
      total += groups ? groups_count(*reading.database, query) : list_count(*reading.database, query);
  }
  ret_items = std::move(items);
  if (ret_total != nullptr) *ret_total = total;
  return true;
}

bool media_search(std::string_view text, std::optional<E_MEDIA_TYPE> kind, std::int64_t first, std::int64_t count,
                  std::vector<MediaItem>& ret_items, std::int64_t& ret_total, std::string& ret_why) {
  const std::vector<UsbStick> sticks = usb_sticks();
  const LibraryReading reading;
  if (reading.database == nullptr) {
    ret_why = "the media library is not open; see the set's log";
    return false;
  }
  const std::vector<ListedStick> known = listed(*reading.database, sticks);
  std::vector<std::int64_t> ids;
  for (const ListedStick& each : known) ids.push_back(each.id);
  ret_items =
      items_of(*reading.database, known, search_ids(*reading.database, ids, text, kind, first, count, ret_total));
  return true;
}

// ---- For other rooms ----

void library_sticks_changed() { scans_sticks_changed(); }

void library_note_played(std::string_view path) { scans_note_played(path); }

std::size_t library_folder_count(std::string_view folder, E_MEDIA_TYPE kind) {
  std::vector<MediaItem> none;
  std::int64_t total = 0;
  std::string why;
  const bool listed = !folder.empty() && media_list(list_of_folder(folder, kind), 0, 0, none, &total, why);
  return listed ? static_cast<std::size_t>(total) : 0;
}

std::vector<LibraryEntry> library_folder(std::string_view folder, E_MEDIA_TYPE kind, std::size_t first,
                                         std::size_t count) {
  std::vector<MediaItem> items;
  std::string why;
  if (folder.empty() || !media_list(list_of_folder(folder, kind), static_cast<std::int64_t>(first),
                                    static_cast<std::int64_t>(count), items, nullptr, why)) {
    return {};
  }
  std::vector<LibraryEntry> entries;
  std::ranges::transform(items, std::back_inserter(entries), entry_of);
  return entries;
}

std::optional<LibraryEntry> library_neighbour(std::string_view path, int step) {
  const auto place = media_place(path);
  const LibraryReading reading;
  if (!place || reading.database == nullptr) return std::nullopt;
  const auto row = media_row(*reading.database, *place);
  auto beside = row ? row_beside(*reading.database, *row, step) : std::nullopt;
  return beside ? std::optional(entry_of(file_item(place->stick, std::move(*beside)))) : std::nullopt;
}

std::optional<LibraryEntry> library_entry(std::string_view path) {
  const auto place = media_place(path);
  const LibraryReading reading;
  if (!place || reading.database == nullptr) return std::nullopt;
  auto row = media_row(*reading.database, *place);
  return row ? std::optional(entry_of(file_item(place->stick, std::move(*row)))) : std::nullopt;
}

std::vector<LibraryEntry> library_playlist(std::string_view path) {
  const auto place = media_place(path);
  std::string why;
  const int file = place ? usb_open(path, UsbFile::kFile, why) : -1;
  if (file < 0) return {};
  const std::size_t slash = place->path.rfind('/');
  const Playlist playlist =
      playlist_read(file, slash == std::string::npos ? "" : place->path.substr(0, slash), place->stick.mount_point);
  close(file);
  const LibraryReading reading;
  const auto stick = reading.database == nullptr ? std::nullopt : stick_find(*reading.database, place->stick.folder);
  if (!stick) return {};
  std::vector<LibraryEntry> entries;
  for (MediaRow& row : playlist_rows(*reading.database, stick->id, playlist))
    entries.push_back(entry_of(file_item(place->stick, std::move(row))));
  return entries;
}

std::string library_thumbnail(std::string_view path, std::uint32_t width, std::uint32_t height, std::string& ret_why) {
  return thumbnail_wait(path, width, height, ret_why);
}

// ---- The room ----

namespace {

void load() {
  std::string error;
  if (!library_open(set_folder(), error))
    std::fprintf(stderr, "dtv_tv: the media library stays empty: %s\n", error.c_str());
  scans_load(set_folder());
  calls_load();
  thumbnails_load(set_folder());
}

void start() {
  scans_start();
  thumbnails_start();
}

void stop() {
  thumbnails_stop();
  scans_stop();
  library_close();
}

// The orders of lists and the jump to a stick are settings, which the store has reset already. This erases all rows of
// sticks, with their favourites and what was played, and all thumbnails.
bool reset() {
  calls_reset();
  thumbnails_forget();
  return scans_forget();
}

constexpr Command kCommands[] = {
    {"media",
     "[list KIND PATH [SORT [INDEX [COUNT]]] | search TEXT [KIND [INDEX [COUNT]]] | scan STICK [cancel] | problems "
     "[STICK] | thumbnails PATH... | favourite PATH on|off | jump on|off]",
     kMostMediaWords,
     "Shows what the inserted sticks have, and how far their scans are; list: photo, music, video, playlist or folder "
     "below a path, or all directly in it; search: by name, title, artist and album; scan: looks for changed files; "
     "problems: what was left out, and why; thumbnails: small pictures; favourite: marks a file; jump: whether the set "
     "may show a stick by itself when it is inserted",
     media_command},
};

}  // namespace

const Room room_library = {.commands = kCommands, .load = load, .reset = reset, .start = start, .stop = stop};
