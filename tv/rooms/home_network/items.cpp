// Items: instances of objects for applications. Each is a copy of what the server has listed.
#include <algorithm>
#include <array>
#include <cstdio>
#include <mutex>
#include <utility>

#include "base/text.h"
#include "core/reply.h"
#include "core/text.h"
#include "rooms/home_network/parts.h"

namespace {

struct Item {
  bool used = false;
  UINT32 generation = 0;   // of the slot; makes handles of destroyed items invalid
  std::uint64_t made = 0;  // grows with each item, so that the oldest one is known
  INT32 server = 0;
  INT32 number = 0;
  UpnpObject object = {};
};

struct State {
  std::mutex lock;  // guards the items
  std::array<Item, kMostItems> items;
  std::uint64_t made = 0;
};

// Never destroyed: other threads may still use it when the process exits.
State& state = *new State;

// A handle is its slot's number from 1 on, and above that the slot's generation.
constexpr UINT32 kSlotBits = 8;
constexpr UINT32 kSlotMask = (1U << kSlotBits) - 1;
static_assert(kMostItems <= kSlotMask);

// The caller holds the lock. Null: no item has the handle.
Item* find(UINT32 instance) {
  const UINT32 slot = instance & kSlotMask;
  if (slot == 0 || slot > kMostItems) return nullptr;
  Item& item = state.items[slot - 1];
  return item.used && item.generation == instance >> kSlotBits ? &item : nullptr;
}

std::string no_item(UINT32 instance) { return "there is no item " + std::to_string(instance); }

std::optional<Item> copy_of(UINT32 instance) {
  const std::lock_guard guard(state.lock);
  const Item* const item = find(instance);
  if (item == nullptr) return std::nullopt;
  return *item;
}

// Calls `read` with the item, and copies its result into the caller's text.
template <typename Read>
INT32 give_text(const char* function, UINT32 instance, char* text, INT32 size, Read read) {
  if (text == nullptr || size <= 0) return refuse_call(function, "there is no room for the text");
  const auto item = copy_of(instance);
  if (!item) return refuse_call(function, no_item(instance));
  fill_text(text, static_cast<std::size_t>(size), read(*item));
  return 0;
}

struct ByType {
  std::string_view type;
  std::string_view extension;
};

constexpr ByType kExtensions[] = {
    {"image/jpeg", "jpg"},       {"image/png", "png"},
    {"image/gif", "gif"},        {"image/bmp", "bmp"},
    {"image/webp", "webp"},      {"audio/mpeg", "mp3"},
    {"audio/mp4", "m4a"},        {"audio/x-m4a", "m4a"},
    {"audio/flac", "flac"},      {"audio/x-flac", "flac"},
    {"audio/ogg", "ogg"},        {"application/ogg", "ogg"},
    {"audio/x-vorbis", "ogg"},   {"audio/wav", "wav"},
    {"audio/x-wav", "wav"},      {"audio/x-ms-wma", "wma"},
    {"video/mp4", "mp4"},        {"video/mpeg", "mpg"},
    {"video/x-msvideo", "avi"},  {"video/avi", "avi"},
    {"video/x-matroska", "mkv"}, {"video/webm", "webm"},
    {"video/x-ms-wmv", "wmv"},   {"video/quicktime", "mov"},
    {"video/x-flv", "flv"},      {"video/3gpp", "3gp"},
    {"video/ogg", "ogv"},        {"video/vnd.dlna.mpeg-tts", "ts"},
};

constexpr std::size_t kLongestExtension = 7;

std::string duration_text(std::uint32_t seconds) {
  char text[32];
  std::snprintf(text, sizeof text, "%02u:%02u:%02u", seconds / 3600, seconds / 60 % 60, seconds % 60);
  return seconds == 0 ? "" : text;
}

std::string resolution_text(const UpnpObject& object) {
  if (object.width == 0 || object.height == 0) return "";
  return std::to_string(object.width) + "x" + std::to_string(object.height);
}

// Reads "2024-05-31" or "2024-05-31T18:00:00", without a time zone. All 0: the text is neither.
T_DATE_TIME date_of(std::string_view text) {
  const auto part = [&](std::size_t first, std::size_t length, unsigned most) -> std::uint8_t {
    if (text.size() < first + length) return 0;
    return static_cast<std::uint8_t>(parse_number_within<unsigned>(text.substr(first, length), 0, most).value_or(0));
  };
  if (text.size() < 10 || text[4] != '-' || text[7] != '-') return {};
  const auto year = parse_number_within<unsigned>(text.substr(0, 4), 1, 9999);
  T_DATE_TIME date{};
  date.imonth = part(5, 2, 12);
  date.iday = part(8, 2, 31);
  if (!year || date.imonth == 0 || date.iday == 0) return {};
  date.iyear = static_cast<std::uint16_t>(*year);
  if (text.size() < 19 || text[10] != 'T' || text[13] != ':' || text[16] != ':') return date;
  date.ihour = part(11, 2, 23);
  date.iminute = part(14, 2, 59);
  date.isecond = part(17, 2, 60);
  return date;
}

}  // namespace

std::string extension_of(const UpnpObject& object) {
  const auto* const by_type = std::ranges::find(kExtensions, object.type, &ByType::type);
  if (by_type != std::end(kExtensions)) return std::string(by_type->extension);
  std::string_view path = object.url;
  path = path.substr(0, path.find_first_of("?#"));
  path = path.substr(path.find_last_of('/') + 1);
  const std::size_t dot = path.find_last_of('.');
  if (dot == std::string_view::npos) return "";
  const std::string_view extension = path.substr(dot + 1);
  const bool fits = extension.size() <= kLongestExtension && std::ranges::all_of(extension, [](char c) {
                      return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9');
                    });
  return fits ? std::string(extension) : "";
}

void items_load() {
  const std::lock_guard guard(state.lock);
  for (Item& each : state.items) each = {.generation = each.generation};
}

UINT32 a_vextvapi_dmp_file_create(INT32 dev_id, INT32 obj_id) {
  UpnpObject object;
  const std::string why = object_read(dev_id, obj_id, object);
  if (!why.empty()) return refuse_call(__func__, why), 0;
  const std::lock_guard guard(state.lock);
  auto slot = std::ranges::find(state.items, false, &Item::used);
  // An application that was reloaded has forgotten its items, and nobody else can destroy them.
  if (slot == state.items.end()) slot = std::ranges::min_element(state.items, {}, &Item::made);
  const UINT32 generation = (slot->generation + 1) & (~0U >> kSlotBits);
  *slot = {.used = true,
           .generation = generation,
           .made = ++state.made,
           .server = dev_id,
           .number = obj_id,
           .object = std::move(object)};
  return generation << kSlotBits | static_cast<UINT32>(slot - state.items.begin() + 1);
}

INT32 a_vextvapi_dmp_file_destroy(UINT32 instance) {
  const std::lock_guard guard(state.lock);
  Item* const item = find(instance);
  if (item == nullptr) return refuse_call(__func__, no_item(instance));
  *item = {.generation = item->generation};
  return 0;
}

INT32 a_vextvapi_dmp_file_downloadFileAsync(UINT32 instance) {
  const auto item = copy_of(instance);
  if (!item) return refuse_call(__func__, no_item(instance));
  const std::string why = download_start(item->server, item->number, item->object);
  return why.empty() ? 0 : refuse_call(__func__, why);
}

INT32 a_vextvapi_dmp_file_getDirectoryListingAsync(UINT32 instance, T_DMP_INST_CONTAINER* list, INT32 start_idx,
                                                   INT32 request_num) {
  if (start_idx < 0 || request_num < 0 || request_num > DMP_LIST_MAX || (list == nullptr && request_num != 0))
    return refuse_call(__func__, "it lists up to " + std::to_string(DMP_LIST_MAX) + " children from an index on, not " +
                                     std::to_string(request_num) + " from " + std::to_string(start_idx));
  const auto item = copy_of(instance);
  if (!item) return refuse_call(__func__, no_item(instance));
  if (item->object.kind != DLNA_MEDIA_CONTAINER) return refuse_call(__func__, "the item is no container");
  const auto server = servers_find(item->server);
  if (!server) return refuse_call(__func__, "the server is no longer known");
  if (request_num == 0) return 0;
  UpnpPage page;
  const std::string why = ask(*server,
                              {.object = item->object.id,
                               .first = static_cast<std::uint32_t>(start_idx),
                               .count = static_cast<std::uint32_t>(request_num)},
                              page);
  if (!why.empty()) return refuse_call(__func__, why);
  const std::vector<INT32> numbers = objects_add(item->server, page.objects);
  for (std::size_t i = 0; i < static_cast<std::size_t>(request_num); ++i)
    list[i] = i < numbers.size() ? T_DMP_INST_CONTAINER{.devId = item->server, .objectId = numbers[i]}
                                 : T_DMP_INST_CONTAINER{};
  return 0;
}

INT32 a_vextvapi_dmp_file_getMediaType(UINT32 instance, INT32* type) {
  if (type == nullptr) return refuse_call(__func__, "type is null");
  const auto item = copy_of(instance);
  if (!item) return refuse_call(__func__, no_item(instance));
  *type = item->object.kind;
  return 0;
}

INT32 a_vextvapi_dmp_file_getObjectId(UINT32 instance, char* id, INT32 size) {
  return give_text(__func__, instance, id, size, [](const Item& item) { return item.object.id; });
}

INT32 a_vextvapi_dmp_file_getParent(UINT32 instance, INT32* dev_id, char* id, INT32 size) {
  if (dev_id == nullptr) return refuse_call(__func__, "dev_id is null");
  INT32 server = 0;
  const INT32 result = give_text(__func__, instance, id, size, [&](const Item& item) {
    server = item.server;
    return item.object.parent;
  });
  if (result == 0) *dev_id = server;
  return result;
}

INT32 a_vextvapi_dmp_file_getChildCount(UINT32 instance, INT32* count) {
  if (count == nullptr) return refuse_call(__func__, "count is null");
  const auto item = copy_of(instance);
  if (!item) return refuse_call(__func__, no_item(instance));
  if (item->object.kind != DLNA_MEDIA_CONTAINER) return refuse_call(__func__, "the item is no container");
  std::int64_t children = item->object.children;
  if (children < 0) {
    const auto server = servers_find(item->server);
    if (!server) return refuse_call(__func__, "the server is no longer known");
    UpnpPage page;
    const std::string why = ask(*server, {.object = item->object.id, .count = 1}, page);
    if (!why.empty()) return refuse_call(__func__, why);
    children = static_cast<std::int64_t>(page.total);
  }
  *count = static_cast<INT32>(std::min<std::int64_t>(children, INT32_MAX));
  return 0;
}

INT32 a_vextvapi_dmp_file_getLocalPath(UINT32 instance, char* path, INT32 size) {
  return give_text(__func__, instance, path, size, [](const Item& item) {
    const auto download = download_find(item.server, item.number);
    return download && download->state == Download::State::kDone ? download->path : std::string();
  });
}

INT32 a_vextvapi_dmp_file_getThumbnailLocalPath(UINT32 instance, char* path, INT32 size) {
  return give_text(__func__, instance, path, size,
                   [](const Item& item) { return thumbnail_of(item.server, item.number, item.object); });
}

INT32 a_vextvapi_dmp_file_getMediaName(UINT32 instance, char* name, INT32 size) {
  return give_text(__func__, instance, name, size, [](const Item& item) { return item.object.name; });
}

INT32 a_vextvapi_dmp_file_getMediaExtension(UINT32 instance, char* extension, INT32 size) {
  return give_text(__func__, instance, extension, size, [](const Item& item) { return extension_of(item.object); });
}

INT32 a_vextvapi_dmp_file_getMediaSize(UINT32 instance, INT32* bytes) {
  if (bytes == nullptr) return refuse_call(__func__, "bytes is null");
  const auto item = copy_of(instance);
  if (!item) return refuse_call(__func__, no_item(instance));
  *bytes = static_cast<INT32>(std::min<std::uint64_t>(item->object.size, INT32_MAX));
  return 0;
}

INT32 a_vextvapi_dmp_file_getMediaArtist(UINT32 instance, char* artist, INT32 size) {
  return give_text(__func__, instance, artist, size, [](const Item& item) { return item.object.artist; });
}

INT32 a_vextvapi_dmp_file_getMediaAlbum(UINT32 instance, char* album, INT32 size) {
  return give_text(__func__, instance, album, size, [](const Item& item) { return item.object.album; });
}

INT32 a_vextvapi_dmp_file_getMediaDuration(UINT32 instance, char* duration, INT32 size) {
  return give_text(__func__, instance, duration, size,
                   [](const Item& item) { return duration_text(item.object.seconds); });
}

INT32 a_vextvapi_dmp_file_getMediaResolution(UINT32 instance, char* resolution, INT32 size) {
  return give_text(__func__, instance, resolution, size, [](const Item& item) { return resolution_text(item.object); });
}

INT32 a_vextvapi_dmp_file_getMediaDate(UINT32 instance, T_DATE_TIME* date) {
  if (date == nullptr) return refuse_call(__func__, "date is null");
  const auto item = copy_of(instance);
  if (!item) return refuse_call(__func__, no_item(instance));
  *date = date_of(item->object.date);
  return 0;
}
