// The TV API's functions for the library.
#include <linux/magic.h>
#include <sys/vfs.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cmath>

#include "core/contract.h"
#include "core/events.h"
#include "core/reply.h"
#include "core/store.h"
#include "core/text.h"
#include "rooms/library/names.h"
#include "rooms/library/parts.h"
#include "rooms/media_player/media_player.h"

namespace {

constexpr std::int64_t kHighestSort = VEXTVAPI_CB_SORT_DESCENDING + VEXTVAPI_CB_SORT_PLAYED;
constexpr Setting kSorts[] = {{"media_sort_photo", VEXTVAPI_CB_SORT_NAME, VEXTVAPI_CB_SORT_NAME, kHighestSort},
                              {"media_sort_music", VEXTVAPI_CB_SORT_NAME, VEXTVAPI_CB_SORT_NAME, kHighestSort},
                              {"media_sort_video", VEXTVAPI_CB_SORT_NAME, VEXTVAPI_CB_SORT_NAME, kHighestSort},
                              {"media_sort_folder", VEXTVAPI_CB_SORT_NAME, VEXTVAPI_CB_SORT_NAME, kHighestSort},
                              {"media_sort_playlist", VEXTVAPI_CB_SORT_NAME, VEXTVAPI_CB_SORT_NAME, kHighestSort},
                              {"media_sort_shop", VEXTVAPI_CB_SORT_NAME, VEXTVAPI_CB_SORT_NAME, kHighestSort}};
constexpr Setting kJump = {"media_jump", 1, 0, 1};

struct Calls {
  std::mutex lock;  // guards all below; the store's is taken under it
  a_vextvapi_cb_usb_scan_status_nfy_fct callback = nullptr;
  void* tag = nullptr;
  std::array<INT32, std::size(kSorts)> sorts = {};  // by kind, from MEDIA_TYPE_PHOTO on
  bool jump = true;
};
Calls& calls = *new Calls;

bool is_sort(INT32 sort) {
  const INT32 number = sort > VEXTVAPI_CB_SORT_DESCENDING ? sort - VEXTVAPI_CB_SORT_DESCENDING : sort;
  return std::ranges::any_of(list_sorts(), [&](const ListSort& each) { return each.number == number; });
}

bool is_kind(INT32 type, INT32 last) { return type >= MEDIA_TYPE_PHOTO && type <= last; }

std::string no_kind(INT32 type) { return "there is no kind of media " + std::to_string(type); }

// A request's text, which a caller may not have terminated.
template <std::size_t Size>
std::string_view text_in(const char (&text)[Size]) {
  return {text, static_cast<std::size_t>(std::ranges::find(text, '\0') - text)};
}

// Calls the action for the stick of the path. Returns 0, or prints why it failed and returns a negative number.
INT32 for_stick(const char* function, const char* path, std::string (*action)(const UsbStick& stick)) {
  if (path == nullptr) return refuse_call(function, "there is no path");
  const auto stick = usb_stick_of(path);
  if (!stick) return refuse_call(function, quoted(path) + " is not on an inserted stick");
  const std::string why = action(*stick);
  return why.empty() ? 0 : refuse_call(function, why);
}

UINT32 seconds_of(std::uint64_t milliseconds) {
  return static_cast<UINT32>(std::min<std::uint64_t>((milliseconds + 500) / 1000, UINT32_MAX));
}

T_DATE_TIME date_of(std::int64_t packed) {
  const auto part = [&](std::int64_t divisor, std::int64_t size) {
    return static_cast<UINT8>(packed / divisor % size);
  };
  return {.iyear = static_cast<UINT16>(std::clamp<std::int64_t>(packed / 10'000'000'000, 0, UINT16_MAX)),
          .imonth = part(100'000'000, 100),
          .iday = part(1'000'000, 100),
          .ihour = part(10'000, 100),
          .iminute = part(100, 100),
          .isecond = part(1, 100)};
}

std::string_view title_of(const MediaRow& row) { return row.title.empty() ? row.name : row.title; }

void put_details(const MediaRow& row, T_MEDIA_DETAILS& ret_details) {
  ret_details = {};
  if (row.kind == MEDIA_TYPE_MUSIC) {
    T_MUSIC_INFO& music = ret_details.music_info;
    put_text(music.track, row.track);
    put_text(music.title, title_of(row));
    put_text(music.artist, row.artist);
    put_text(music.album, row.album);
    put_text(music.genre, row.genre);
    music.duration = seconds_of(row.duration_ms);
  } else if (row.kind == MEDIA_TYPE_VIDEO) {
    T_VIDEO_INFO& video = ret_details.video_info;
    put_text(video.title, title_of(row));
    put_text(video.year, row.year);
    video.duration = seconds_of(row.duration_ms);
    video.size = static_cast<double>(row.size);
  } else if (row.kind == MEDIA_TYPE_PHOTO) {
    ret_details.photo_info = {.width = row.width,
                              .height = row.height,
                              .size = static_cast<UINT32>(std::min<std::uint64_t>(row.size, UINT32_MAX))};
  } else if (row.kind == MEDIA_TYPE_PLAYLIST) {
    T_PLAYLIST_INFO& playlist = ret_details.playlist_info;
    playlist.duration = seconds_of(row.duration_ms);
    put_text(playlist.title, title_of(row));
    put_text(playlist.artist, row.artist);
  }
}

void put_entry(const MediaItem& item, T_MEDIA_INFO& ret_entry) {
  ret_entry = {};
  ret_entry.media_type = item.row.kind;
  put_text(ret_entry.media_path, item.path);
  ret_entry.recid = static_cast<UINT32>(item.row.id);
  ret_entry.favourite = item.row.favourite ? 1 : 0;
  ret_entry.date = date_of(item.row.date);
  put_details(item.row, ret_entry.u);
}

// Checks the arguments of a function that lists entries, and fills in its list and count.
INT32 give_list(const char* function, const MediaList& asked, INT32 type, const char* path, INT32 index, INT32* count,
                T_MEDIA_INFO* list) {
  if (list == nullptr || count == nullptr || path == nullptr)
    return refuse_call(function, "there is no place for the list, or no path");
  if (!is_kind(type, MEDIA_TYPE_SUPPER_SHOP_MODE)) return refuse_call(function, no_kind(type));
  if (index < 0 || *count < 0) return refuse_call(function, "an index or a number of entries is negative");
  MediaList wanted = asked;
  wanted.kind = static_cast<E_MEDIA_TYPE>(type);
  wanted.path = path;
  std::vector<MediaItem> items;
  std::string why;
  if (!media_list(wanted, index, std::min<INT32>(*count, CBROWSER_LIST_MAX), items, nullptr, why))
    return refuse_call(function, why);
  for (std::size_t i = 0; i < items.size(); ++i) put_entry(items[i], list[i]);
  *count = static_cast<INT32>(items.size());
  return 0;
}

// The length of the list; negative on failure.
INT32 give_count(const char* function, const MediaList& list) {
  std::vector<MediaItem> none;
  std::int64_t total = 0;
  std::string why;
  if (!media_list(list, 0, 0, none, &total, why)) return refuse_call(function, why);
  return static_cast<INT32>(std::min<std::int64_t>(total, INT32_MAX));
}

bool groups(INT32 sort) {
  const INT32 number = sort > VEXTVAPI_CB_SORT_DESCENDING ? sort - VEXTVAPI_CB_SORT_DESCENDING : sort;
  return number >= VEXTVAPI_CB_SORT_ARTIST && number <= VEXTVAPI_CB_SORT_GENRE;
}

template <std::size_t Size>
void copy_text(char (&ret_text)[Size], const char (&text)[Size]) {
  std::ranges::copy(text, ret_text);
}

}  // namespace

void calls_load() {
  const std::lock_guard guard(calls.lock);
  calls.callback = nullptr;
  calls.tag = nullptr;
  std::ranges::transform(kSorts, calls.sorts.begin(), [](const Setting& setting) {
    const auto sort = static_cast<INT32>(store_read(setting));
    return is_sort(sort) ? sort : VEXTVAPI_CB_SORT_NAME;
  });
  calls.jump = store_read(kJump) != 0;
}

INT32 set_sort(E_MEDIA_TYPE kind) {
  const std::lock_guard guard(calls.lock);
  return is_kind(kind, MEDIA_TYPE_SUPPER_SHOP_MODE) ? calls.sorts[static_cast<std::size_t>(kind) - 1]
                                                    : INT32{VEXTVAPI_CB_SORT_NAME};
}

void calls_scan_status(INT32 type) {
  events_post([type] {
    std::unique_lock guard(calls.lock);
    const auto callback = calls.callback;
    void* const tag = calls.tag;
    guard.unlock();
    if (callback != nullptr) callback(type, tag);
  });
}

bool may_jump() {
  const std::lock_guard guard(calls.lock);
  return calls.jump;
}

bool set_may_jump(bool may) {
  const std::lock_guard guard(calls.lock);
  const SettingValue value[] = {{kJump.key, std::int64_t{may}}};
  if (!store_write(value)) return false;
  calls.jump = may;
  return true;
}

// ---- Scanning ----

INT32 a_vextvapi_cb_usb_scan_status_register_callback(a_vextvapi_cb_usb_scan_status_nfy_fct callback, void* tag) {
  const std::lock_guard guard(calls.lock);
  calls.callback = callback;
  calls.tag = tag;
  return 0;
}

INT32 a_vextvapi_cb_startScan(const char* mount_path) { return for_stick(__func__, mount_path, scan_begin); }

INT32 a_vextvapi_cb_stopScan(const char* mount_path) { return for_stick(__func__, mount_path, scan_cancel); }

UINT8 a_vextvapi_cb_scanDone() { return scans_are_done() ? 1 : 0; }

// ---- The database ----

INT32 a_vextvapi_cb_init(const char* mount_path) {
  return for_stick(__func__, mount_path, [](const UsbStick& stick) -> std::string {
    {
      const LibraryReading reading;
      if (reading.database == nullptr) return "the media library is not open; see the set's log";
      const auto row = stick_find(*reading.database, stick.folder);
      if (row && row->complete) return "";
    }
    return scan_begin(stick);
  });
}

INT32 a_vextvapi_cb_deinit(const char* mount_path) { return for_stick(__func__, mount_path, scan_forget); }

INT32 a_vextvapi_usb_stopinfo_delete(const char* mount_path) {
  return for_stick(__func__, mount_path, [](const UsbStick& stick) -> std::string {
    return media_player_forget_positions(stick.mount_point) ? "" : kNotSaved;
  });
}

INT32 a_vextvapi_cb_checkJumpStatus(const T_CBROWSER* query, UINT8* may_jump_there) {
  if (query == nullptr || may_jump_there == nullptr) return refuse_call(__func__, "there is no query");
  const std::string path(text_in(query->path));
  const auto stick = usb_stick_of(path);
  if (!stick) return refuse_call(__func__, quoted(path) + " is not on an inserted stick");
  bool has_media = false;
  {
    const LibraryReading reading;
    const auto row = reading.database == nullptr ? std::nullopt : stick_find(*reading.database, stick->folder);
    const KindCounts counts = row ? kind_counts(*reading.database, row->id) : KindCounts{};
    has_media = counts.files[MEDIA_TYPE_PHOTO] + counts.files[MEDIA_TYPE_MUSIC] + counts.files[MEDIA_TYPE_VIDEO] > 0;
  }
  if (!has_media || !may_jump()) *may_jump_there = 0;
  return 0;
}

INT32 a_vextvapi_cb_checkDevExt4Status(const T_CBROWSER* query) {
  if (query == nullptr) return 0;
  const auto stick = usb_stick_of(text_in(query->path));
  struct statfs info {};
  return stick && statfs(stick->folder.c_str(), &info) == 0 && info.f_type == EXT4_SUPER_MAGIC ? 1 : 0;
}

// ---- Lists ----

INT32 a_vextvapi_set_sort_type(INT32 type, INT32 sort) {
  if (!is_kind(type, MEDIA_TYPE_SUPPER_SHOP_MODE)) return refuse_call(__func__, no_kind(type));
  if (!is_sort(sort)) return refuse_call(__func__, "there is no order " + std::to_string(sort) + " of lists");
  const auto index = static_cast<std::size_t>(type) - 1;
  const std::lock_guard guard(calls.lock);
  const SettingValue value[] = {{kSorts[index].key, std::int64_t{sort}}};
  if (!store_write(value)) return -1;
  calls.sorts[index] = sort;
  return 0;
}

INT32 a_vextvapi_cb_get_db_count(INT32 type, const char* path) {
  if (path == nullptr) return refuse_call(__func__, "there is no path");
  if (!is_kind(type, MEDIA_TYPE_SUPPER_SHOP_MODE)) return refuse_call(__func__, no_kind(type));
  return give_count(__func__, {.path = path, .kind = static_cast<E_MEDIA_TYPE>(type), .sort = VEXTVAPI_CB_SORT_NAME});
}

INT32 a_vextvapi_cb_get_top_list_db_count(INT32 type, INT32 sort, const char* name) {
  if (!is_kind(type, MEDIA_TYPE_VIDEO)) return refuse_call(__func__, no_kind(type));
  const std::string_view text = name == nullptr ? "" : name;
  MediaList list{.kind = static_cast<E_MEDIA_TYPE>(type), .sort = sort, .groups = true};
  if (text.empty() || text.starts_with('/')) {
    list.path = text;
  } else if (type == MEDIA_TYPE_MUSIC && groups(sort)) {
    list.groups = false;
    list.group = media_key(text);
  } else {
    return refuse_call(__func__, quoted(text) + " is no path, and this order has no groups that it could name");
  }
  return give_count(__func__, list);
}

INT32 a_vextvapi_get_list_by_idx(VEXTVAPI_CB_MUSIC_T* music, VEXTVAPI_CB_VIDEO_T* video, VEXTVAPI_CB_PHOTO_T* photo,
                                 INT32 type, const T_CBROWSER* query) {
  if (music == nullptr || video == nullptr || photo == nullptr || query == nullptr)
    return refuse_call(__func__, "there is no query, or no place for the file");
  if (!is_kind(type, MEDIA_TYPE_VIDEO)) return refuse_call(__func__, no_kind(type));
  const std::string path(text_in(query->path));
  T_MEDIA_INFO found{};
  INT32 count = 1;
  if (give_list(__func__, {.sort = query->sort}, type, path.c_str(), query->index, &count, &found) != 0) return -1;
  if (count == 0) return refuse_call(__func__, "the list ends before index " + std::to_string(query->index));
  if (type == MEDIA_TYPE_MUSIC) {
    const T_MUSIC_INFO& info = found.u.music_info;
    *music = {};
    music->media_type = found.media_type;
    music->duration = info.duration;
    copy_text(music->media_path, found.media_path);
    copy_text(music->track, info.track);
    copy_text(music->title, info.title);
    copy_text(music->artist, info.artist);
    copy_text(music->album, info.album);
    copy_text(music->genre, info.genre);
  } else if (type == MEDIA_TYPE_VIDEO) {
    const T_VIDEO_INFO& info = found.u.video_info;
    *video = {};
    video->media_type = found.media_type;
    video->duration = info.duration;
    video->size = info.size;
    copy_text(video->media_path, found.media_path);
    copy_text(video->title, info.title);
    copy_text(video->year, info.year);
  } else {
    const T_PHOTO_INFO& info = found.u.photo_info;
    *photo = {};
    photo->media_type = found.media_type;
    photo->width = info.width;
    photo->height = info.height;
    photo->size = info.size;
    copy_text(photo->media_path, found.media_path);
  }
  return 0;
}

INT32 a_vextvapi_get_metaData(T_MEDIA_DETAILS* details, INT32 type, const char* file, const char* path) {
  if (details == nullptr || file == nullptr)
    return refuse_call(__func__, "there is no file, or no place for the facts");
  if (!is_kind(type, MEDIA_TYPE_PLAYLIST) || type == MEDIA_TYPE_FOLDER) return refuse_call(__func__, no_kind(type));
  std::string whole = file;
  if (!whole.starts_with('/')) whole = std::string(path == nullptr ? "" : path) + "/" + whole;
  const auto place = media_place(whole);
  if (!place) return refuse_call(__func__, quoted(whole) + " is not on an inserted stick");
  const LibraryReading reading;
  const auto row = reading.database == nullptr ? std::nullopt : media_row(*reading.database, *place);
  if (!row) return refuse_call(__func__, quoted(whole) + " is not in the library; a scan may still find it");
  if (row->kind != type)
    return refuse_call(__func__,
                       quoted(whole) + " is of kind " + std::to_string(row->kind) + ", not " + std::to_string(type));
  put_details(*row, *details);
  return 0;
}

INT32 a_vextvapi_get_list_by_count(T_MEDIA_INFO* list, INT32 type, const char* path, INT32 index, INT32* count) {
  return give_list(__func__, {}, type, path, index, count, list);
}

INT32 a_vextvapi_get_top_list_by_sort_type(T_MEDIA_INFO* list, INT32 type, INT32 sort, const char* path, INT32 index,
                                           INT32* count) {
  return give_list(__func__, {.sort = sort, .groups = true}, type, path, index, count, list);
}

INT32 a_vextvapi_get_rec(T_MEDIA_INFO* list, INT32 type, INT32 sort, const char* name, const char* path, INT32 index,
                         INT32* count) {
  if (name == nullptr) return refuse_call(__func__, "there is no name");
  if (type == MEDIA_TYPE_MUSIC && groups(sort))
    return give_list(__func__, {.sort = sort, .group = media_key(name)}, type, path, index, count, list);
  if (list == nullptr || count == nullptr) return refuse_call(__func__, "there is no place for the list");
  if (!is_kind(type, MEDIA_TYPE_SUPPER_SHOP_MODE)) return refuse_call(__func__, no_kind(type));
  if (index < 0 || *count < 0) return refuse_call(__func__, "an index or a number of entries is negative");
  std::vector<MediaItem> found;
  if (type == MEDIA_TYPE_VIDEO) {
    if (sort != VEXTVAPI_CB_SORT_SET && !is_sort(sort))
      return refuse_call(__func__, "there is no order " + std::to_string(sort) + " of lists");
    found = media_recordings(sort == VEXTVAPI_CB_SORT_SET ? set_sort(MEDIA_TYPE_VIDEO) : sort, name);
  }
  const std::size_t room = static_cast<std::size_t>(std::min<INT32>(*count, CBROWSER_LIST_MAX));
  std::size_t given = 0;
  for (auto i = static_cast<std::size_t>(index); i < found.size() && given < room; ++i)
    put_entry(found[i], list[given++]);
  *count = static_cast<INT32>(given);
  return 0;
}
