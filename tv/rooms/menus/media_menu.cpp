// The media of the sticks: first the sticks, then their folders and files. In the list of sticks an item is a port, in
// a folder an entry's place plus 1, since 0 is none.
#include <algorithm>
#include <boost/json.hpp>
#include <filesystem>
#include <numeric>
#include <utility>

#include "core/text.h"
#include "rooms/library/library.h"
#include "rooms/media_player/media_player.h"
#include "rooms/menus/menus.h"
#include "rooms/menus/parts.h"
#include "rooms/photos/photos.h"
#include "rooms/usb/usb.h"

namespace {

constexpr std::size_t kMostItems = 100'000;  // of a folder

// The shown folder; empty: the sticks are shown, also when the folder's stick was removed.
const std::string& folder_of(const MenuView& view) {
  static const std::string kNone;
  return usb_stick_of(view.folder) ? view.folder : kNone;
}

std::string name_of(const std::string& path) { return std::filesystem::path(path).filename(); }

std::optional<UsbStick> stick_at(std::int64_t port) {
  for (UsbStick& each : usb_sticks())
    if (each.port == static_cast<std::uint32_t>(port)) return std::move(each);
  return std::nullopt;
}

std::optional<LibraryEntry> entry_at(const std::string& folder, std::int64_t item) {
  if (item <= 0) return std::nullopt;
  std::vector<LibraryEntry> found = library_folder(folder, MEDIA_TYPE_NULL, static_cast<std::size_t>(item - 1), 1);
  return found.empty() ? std::nullopt : std::optional(std::move(found[0]));
}

std::string_view mark_of(E_MEDIA_TYPE kind) {
  switch (kind) {
    case MEDIA_TYPE_PHOTO:
      return "photo";
    case MEDIA_TYPE_MUSIC:
      return "music";
    case MEDIA_TYPE_VIDEO:
      return "video";
    case MEDIA_TYPE_FOLDER:
      return "folder";
    case MEDIA_TYPE_PLAYLIST:
      return "playlist";
    default:
      return "";
  }
}

void open_folder(MenuView& view, std::string folder) {
  view.folder = std::move(folder);
  view.item = 0;
  view.row = 0;
}

Acted open_entry(MenuView& view) {
  if (view.folder.empty()) {
    const auto stick = stick_at(view.item);
    if (!stick) return refuse("there is no stick");
    open_folder(view, stick->mount_point);
    return Acted::kStays;
  }
  const auto entry = entry_at(view.folder, view.item);
  if (!entry) return refuse("the list is empty");
  if (entry->kind == MEDIA_TYPE_FOLDER) {
    open_folder(view, entry->path);
    return Acted::kStays;
  }
  const std::string why =
      entry->kind == MEDIA_TYPE_PHOTO ? photos_show(entry->path) : media_player_play(entry->path, {});
  return why.empty() ? Acted::kCloses : refuse(why);
}

// The place of the folder among its parent's entries; 0: it is not there.
std::int64_t item_of(const std::string& parent, const std::string& folder) {
  constexpr std::size_t kPage = 1000;  // entries that are read at a time
  for (std::size_t first = 0;; first += kPage) {
    const std::vector<LibraryEntry> page = library_folder(parent, MEDIA_TYPE_FOLDER, first, kPage);
    for (std::size_t i = 0; i < page.size(); ++i)
      if (page[i].path == folder) return static_cast<std::int64_t>(first + i + 1);
    if (page.size() < kPage) return 0;
  }
}

Acted leave_folder(MenuView& view) {
  if (view.folder.empty()) return Acted::kCloses;
  const std::string folder = std::exchange(view.folder, {});
  const auto stick = usb_stick_of(folder);
  view.row = 0;
  view.item = 0;
  if (stick && stick->mount_point == folder) view.item = stick->port;
  if (!stick || stick->mount_point == folder) return Acted::kStays;
  view.folder = std::filesystem::path(folder).parent_path();
  view.item = item_of(view.folder, folder);
  return Acted::kStays;
}

constexpr MenuAction kOfMedia[] = {
    {"ENTER", "open", open_entry}, {"RIGHT", "", open_entry}, {"LEFT", "back", leave_folder}};

boost::json::object entry_row(const LibraryEntry& entry) {
  boost::json::object row{{"name", cut_text(entry.title.empty() ? name_of(entry.path) : entry.title, kLongestShown)}};
  if (!entry.artist.empty()) row["note"] = cut_text(entry.artist, kLongestShown);
  if (const std::string_view mark = mark_of(entry.kind); !mark.empty()) row["marks"].emplace_array().emplace_back(mark);
  return row;
}

}  // namespace

constinit const std::span<const MenuAction> kMediaActions = kOfMedia;

std::vector<std::int64_t> media_items(const MenuView& view) {
  std::vector<std::int64_t> items;
  const std::string& folder = folder_of(view);
  if (folder.empty()) {
    for (const UsbStick& each : usb_sticks()) items.push_back(each.port);
  } else {
    const std::size_t count = std::min(library_folder_count(folder, MEDIA_TYPE_NULL), kMostItems);
    items.resize(count);
    std::iota(items.begin(), items.end(), 1);
  }
  return items;
}

boost::json::object media_row(std::int64_t item, const MenuView& view) {
  if (const std::string& folder = folder_of(view); !folder.empty()) {
    const auto entry = entry_at(folder, item);
    return entry ? entry_row(*entry) : gone_row();
  }
  const auto stick = stick_at(item);
  if (!stick) return gone_row();
  return {{"name", cut_text(stick->label, kLongestShown)}, {"note", stick->device}};
}

// A stick that was removed takes its folders with it.
void tidy_media(MenuView& view) {
  if (folder_of(view).empty()) view.folder.clear();
}

void add_media(const MenuView& view, boost::json::object& reply) {
  const auto stick = usb_stick_of(view.folder);
  if (!stick) return;
  reply["folder"] = cut_text(stick->mount_point == view.folder ? stick->label : name_of(view.folder), kLongestShown);
}
