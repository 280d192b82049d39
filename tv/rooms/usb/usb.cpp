// USB sticks. A stick is a folder of the machine inside the stick root (root.h). Its mount point is a symbolic link to
// that folder, so that an application finds the folder's files there. Device name and mount point follow from the port:
// the stick in port 1 is /dev/sda1, mounted at usb/sda1 of the state folder; the stick in port 27 is /dev/sdaa1. The
// store contains the inserted sticks; the links are created again each time the set is switched on.
//
// There is one detection: starting another ends the first. When a detection has ended, none of its callbacks is running
// or will run, except the callback that ended it.
#include "rooms/usb/usb.h"

#include <algorithm>
#include <array>
#include <boost/json.hpp>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <iterator>
#include <mutex>
#include <vector>

#include "core/contract.h"
#include "core/events.h"
#include "core/reply.h"
#include "core/room.h"
#include "core/set.h"
#include "core/store.h"
#include "core/text.h"
#include "folders.h"
#include "rooms/library/library.h"
#include "rooms/media_player/media_player.h"
#include "rooms/menus/menus.h"
#include "rooms/photos/photos.h"
#include "root.h"

namespace fs = std::filesystem;

namespace {

constexpr std::size_t kPorts = 32;
constexpr std::size_t kLongestPath = sizeof VEXTVAPI_USB_MOUNT_INFO_T{}.path - 1;
constexpr std::size_t kLongestLabel = sizeof VEXTVAPI_USB_MOUNT_INFO_T{}.label - 1;
constexpr std::size_t kLongestFolder = 4096;  // a path of the machine
constexpr int kMostEntries = 1000;            // of a folder that a description counts

struct Stick {
  std::string folder;  // empty: the port is free
  std::string label;
};

using Callback = a_vextvapi_cb_usb_detect_nfy_fct;

struct State {
  std::mutex changing;               // serializes inserts and removals, with disk, links and root; taken first
  std::recursive_mutex notifying;    // held during a callback, which may end the detection; taken before the lock
  std::mutex lock;                   // guards all members below; not held during a callback
  std::string mounts;                // the folder of the links; changed only by load
  std::array<Stick, kPorts> sticks;  // from port 1 on; changed under both changing and lock
  UINT32 detection = 0;              // handle of the running detection, 0: none
  UINT32 last_detection = 0;
  Callback callback = nullptr;
  void* callback_tag = nullptr;
};

// Never destroyed: other threads may still use it when the process exits.
State& state = *new State;

// "sda1" for the first port, "sdaa1" for the 27th.
std::string name_of(std::size_t index) {
  std::string letters(1, static_cast<char>('a' + index % 26));
  if (index >= 26) letters.insert(letters.begin(), static_cast<char>('a' + index / 26 - 1));
  return "sd" + letters + "1";
}

std::string device_of(std::size_t index) { return "/dev/" + name_of(index); }

std::string mount_point_of(std::size_t index) { return state.mounts + "/" + name_of(index); }

UINT32 port_of(std::size_t index) { return static_cast<UINT32>(index + 1); }

bool is_free(const Stick& stick) { return stick.folder.empty(); }

// ---- The store and the links; the caller of these functions holds state.changing ----

struct StickKeys {
  std::string folder;
  std::string label;
};

StickKeys keys_of(std::size_t index) {
  const std::string port = std::to_string(port_of(index));
  return {.folder = "usb_folder_" + port, .label = "usb_label_" + port};
}

// Stores that this stick is in each of these ports: in all or in none.
bool keep(const std::vector<std::size_t>& ports, const Stick& stick) {
  std::vector<StickKeys> keys;
  std::ranges::transform(ports, std::back_inserter(keys), keys_of);
  std::vector<SettingValue> values;
  for (const StickKeys& each : keys) {
    values.push_back({each.folder.c_str(), stick.folder});
    values.push_back({each.label.c_str(), stick.label});
  }
  return store_write(values);
}

Stick kept(std::size_t index) {
  const StickKeys keys = keys_of(index);
  return {.folder = store_read(TextSetting{keys.folder.c_str(), "", kLongestFolder}),
          .label = store_read(TextSetting{keys.label.c_str(), "", kLongestLabel})};
}

bool mount(std::size_t index, const std::string& folder, std::string& ret_error) {
  const std::string place = mount_point_of(index);
  if (place.size() > kLongestPath) {
    ret_error = "the mount point " + place + " has " + std::to_string(place.size()) +
                " bytes; an application accepts " + std::to_string(kLongestPath) +
                ", so the state folder needs a shorter path";
    return false;
  }
  std::error_code failed;
  fs::create_directories(state.mounts, failed);
  fs::create_directory_symlink(folder, place, failed);
  if (failed) ret_error = "cannot make the mount point " + place + ": " + failed.message();
  return !failed;
}

void unmount(std::size_t index) {
  std::error_code gone;
  fs::remove(mount_point_of(index), gone);
}

// Removes the links of the last run.
void unmount_all() {
  std::vector<fs::path> links;
  std::error_code failed;
  for (fs::directory_iterator entry(state.mounts, failed); !failed && entry != fs::directory_iterator();
       entry.increment(failed)) {
    std::error_code none;
    if (entry->is_symlink(none)) links.push_back(entry->path());
  }
  for (const fs::path& link : links) fs::remove(link, failed);
}

// ---- Notifications ----

// Posts the callback. The caller holds the lock. The event checks again whether the same detection is still running.
void notify(INT32 type, std::size_t index, const std::string& label) {
  if (state.callback == nullptr) return;
  events_post([type, port = port_of(index), device = device_of(index), path = mount_point_of(index), label,
               detection = state.detection] {
    const std::lock_guard notifying(state.notifying);
    std::unique_lock guard(state.lock);
    const Callback callback = state.detection == detection ? state.callback : nullptr;
    void* const tag = state.callback_tag;
    guard.unlock();
    if (callback != nullptr) callback(type, tag, device.c_str(), path.c_str(), label.c_str(), port);
  });
}

void put(std::size_t index, Stick stick) {
  const std::lock_guard guard(state.lock);
  Stick& place = state.sticks[index];
  notify(is_free(stick) ? VEXTVAPI_USB_DETECT_UNMOUNTED : VEXTVAPI_USB_DETECT_MOUNTED, index,
         is_free(stick) ? place.label : stick.label);
  place = std::move(stick);
}

// The caller holds only state.changing, so the rooms are notified of the changes in their order.
void tell_rooms() {
  library_sticks_changed();
  media_player_sticks_changed();
  photos_sticks_changed();
  menus_sticks_changed();
}

// ---- The control command ----

boost::json::object shown(std::size_t index, const Stick& stick) {
  return {{"device", device_of(index)},
          {"port", port_of(index)},
          {"label", stick.label},
          {"path", mount_point_of(index)},
          {"folder", stick.folder}};
}

// Why a folder in the root cannot be found. The host sees / as it was when the host started.
std::string not_found(std::string_view given, const std::error_code& why) {
  std::string text = "the folder " + quoted(given) + " cannot be found: " + why.message();
  std::error_code none;
  const fs::path first = "/" / *fs::path(given).relative_path().begin();
  if (usb_root() == "/" && why == std::errc::no_such_file_or_directory && !fs::exists(first, none))
    text += "; the host does not see folders created in / after its start";
  return text;
}

// The refusal of a path that is not in the root: the same text whether it exists or not.
std::string outside() {
  if (usb_root().empty()) return "no folder can become a USB stick: the set was started without a folder for them";
  return "only a folder in " + usb_root() + " can become a USB stick";
}

// The caller holds the lock.
UsbStick described(std::size_t index) {
  const Stick& stick = state.sticks[index];
  return {.port = port_of(index),
          .device = device_of(index),
          .label = stick.label,
          .mount_point = mount_point_of(index),
          .folder = stick.folder};
}

boost::json::object insert_stick(std::string_view given, Arguments label) {
  const std::lock_guard guard(state.changing);
  if (!given.starts_with('/')) return reply_error("the folder " + quoted(given) + " is not an absolute path");
  const UsbPlace found = usb_place(given);
  if (!found.inside) return reply_error(outside());
  if (found.failed) return reply_error(not_found(given, found.failed));
  const fs::path folder = found.folder;
  std::error_code failed;
  if (!fs::is_directory(folder, failed)) return reply_error(quoted(given) + " is not a folder");
  Stick stick{.folder = folder.string(), .label = std::string(cut_text(folder.filename().string(), kLongestLabel))};
  if (!store_is_text(stick.folder)) return reply_error("the name of the folder " + quoted(given) + " is not in UTF-8");
  if (!label.empty()) {
    stick.label = label[0];
    if (label[0].empty() || label[0].size() > kLongestLabel || !store_is_text(label[0])) {
      return reply_error("a label is a text of 1 to " + std::to_string(kLongestLabel) + " bytes in UTF-8, not " +
                         quoted(label[0]));
    }
  }

  const auto same = std::ranges::find(state.sticks, stick.folder, &Stick::folder);
  if (same != state.sticks.end()) {
    const auto index = static_cast<std::size_t>(same - state.sticks.begin());
    return reply_error("the folder " + stick.folder + " is inserted already, as " + device_of(index));
  }
  const auto place = std::ranges::find_if(state.sticks, is_free);
  if (place == state.sticks.end()) {
    return reply_error("the set has " + std::to_string(kPorts) + " ports for sticks, and all are taken");
  }
  const auto index = static_cast<std::size_t>(place - state.sticks.begin());
  std::string problem;
  if (!mount(index, stick.folder, problem)) return reply_error(problem);
  if (!keep({index}, stick)) {
    unmount(index);
    return reply_not_kept();
  }
  boost::json::object answer = shown(index, stick);
  put(index, std::move(stick));
  tell_rooms();
  const std::string device = device_of(index);
  reply_watch(answer, {.words = {"media", "stick", device},
                       .member = "scan",
                       .cancel = {"media", "scan", device, "cancel"},
                       .shows = {"files", "of"}});
  return answer;
}

// The ports of the sticks that a viewer names by device, label, folder or mount point, or all of them for "all".
std::vector<std::size_t> named(std::string_view name) {
  const std::string folder = name.starts_with('/') ? usb_place(name).folder : "";
  std::vector<std::size_t> found;
  for (std::size_t index = 0; index < kPorts; ++index) {
    const Stick& stick = state.sticks[index];
    if (is_free(stick)) continue;
    if (name == "all" || name == device_of(index) || name == name_of(index) || name == stick.label ||
        name == mount_point_of(index) || folder == stick.folder) {
      found.push_back(index);
    }
  }
  return found;
}

boost::json::object remove_sticks(std::string_view name) {
  const std::lock_guard guard(state.changing);
  const std::vector<std::size_t> found = named(name);
  if (name != "all" && found.size() != 1) {
    std::string which;
    for (const std::size_t index : found) which += (which.empty() ? "" : ", ") + device_of(index);
    return reply_error(found.empty() ? "there is no stick " + quoted(name) + "; stick list shows them"
                                     : quoted(name) + " means more than one stick: " + which);
  }
  if (!keep(found, {})) return reply_not_kept();
  boost::json::array removed;
  for (const std::size_t index : found) {
    unmount(index);
    removed.push_back(shown(index, state.sticks[index]));
    put(index, {});
  }
  if (!found.empty()) tell_rooms();
  return {{"removed", std::move(removed)}};
}

boost::json::object list_sticks() {
  boost::json::array sticks;
  for (const UsbStick& each : usb_sticks()) {
    boost::json::object stick = shown(each.port - 1, {.folder = each.folder, .label = each.label});
    stick["scan"] = library_scan_state(each);
    sticks.push_back(std::move(stick));
  }
  return {{"sticks", std::move(sticks)}};
}

// The folders in a folder, by default in the root, so that a viewer can choose one.
boost::json::object list_folders(Arguments names) {
  const std::string root = usb_root();
  const std::string_view given = names.empty() ? root : names[0];
  if (root.empty()) return reply_error(outside());
  if (!given.starts_with('/')) return reply_error("the folder " + quoted(given) + " is not an absolute path");
  const UsbPlace place = usb_place(given);
  const bool is_root = given == root;  // the root / is not inside itself
  if (!place.inside && !is_root) return reply_error(outside());
  if (place.inside && place.failed) return reply_error(not_found(given, place.failed));
  UsbFolders found;
  if (!usb_folders_in(is_root ? root : place.folder, found)) {
    return reply_error("the folder " + quoted(given) + " cannot be read");
  }
  boost::json::object answer{{"root", root}, {"folders", boost::json::array(found.paths.begin(), found.paths.end())}};
  if (found.more) answer["more"] = true;
  return answer;
}

// ---- Descriptions ----

// In decimal units: 1 kB is 1000 bytes.
std::string size_text(std::uintmax_t bytes) {
  if (bytes < 1000) return std::to_string(bytes) + (bytes == 1 ? " byte" : " bytes");
  auto amount = static_cast<double>(bytes);
  const char* unit = "";
  for (const char* const next : {"kB", "MB", "GB", "TB"}) {
    if (amount < 999.95) break;
    amount /= 1000;
    unit = next;
  }
  char text[32];
  std::snprintf(text, sizeof text, "%.1f %s", amount, unit);
  return text;
}

// Describes the folder's own files, not those of its subfolders.
bool describe(const std::string& folder, std::string& ret_text) {
  std::error_code failed;
  std::uintmax_t files = 0, bytes = 0;
  int left = kMostEntries;
  fs::directory_iterator entry(folder, failed);
  for (; !failed && entry != fs::directory_iterator() && left > 0; entry.increment(failed), --left) {
    std::error_code unreadable;
    if (!entry->is_regular_file(unreadable)) continue;
    const std::uintmax_t size = entry->file_size(unreadable);
    ++files;
    if (!unreadable) bytes += size;
  }
  if (failed) return false;
  const std::string bound = entry == fs::directory_iterator() ? "" : "at least ";
  ret_text = "USB storage, " + bound + std::to_string(files) + (files == 1 ? " file, " : " files, ") + bound +
             size_text(bytes);
  return true;
}

// The caller holds the lock.
bool runs(const char* function, UINT32 handle) {
  if (handle != 0 && handle == state.detection) return true;
  refuse_call(function, "there is no detection " + std::to_string(handle));
  return false;
}

}  // namespace

std::vector<UsbStick> usb_sticks() {
  std::vector<UsbStick> sticks;
  const std::lock_guard guard(state.lock);
  for (std::size_t index = 0; index < kPorts; ++index)
    if (!is_free(state.sticks[index])) sticks.push_back(described(index));
  return sticks;
}

std::optional<UsbStick> usb_stick_of(std::string_view path) {
  const std::lock_guard guard(state.lock);
  for (std::size_t index = 0; index < kPorts; ++index) {
    const std::string place = mount_point_of(index);
    const bool within = path.starts_with(place) && (path.size() == place.size() || path[place.size()] == '/');
    if (within && !is_free(state.sticks[index])) return described(index);
  }
  return std::nullopt;
}

UINT32 a_vextvapi_cb_usb_detect_init() {
  const std::lock_guard notifying(state.notifying);
  const std::lock_guard guard(state.lock);
  if (++state.last_detection == 0) ++state.last_detection;
  state.callback = nullptr;
  return state.detection = state.last_detection;
}

INT32 a_vextvapi_cb_usb_detect_register_callback(UINT32 handle, Callback callback, void* tag) {
  const std::lock_guard guard(state.lock);
  if (!runs(__func__, handle)) return -1;
  state.callback = callback;
  state.callback_tag = tag;
  return 0;
}

INT32 a_vextvapi_cb_usb_detect_deinit(UINT32 handle) {
  const std::lock_guard notifying(state.notifying);
  const std::lock_guard guard(state.lock);
  if (!runs(__func__, handle)) return -1;
  state.detection = 0;
  state.callback = nullptr;
  return 0;
}

INT32 a_vextvapi_cb_usb_detect_getUsbMountedCount(UINT32 handle, INT32* count) {
  const std::lock_guard guard(state.lock);
  if (!runs(__func__, handle) || count == nullptr) return -1;
  *count = static_cast<INT32>(kPorts - static_cast<std::size_t>(std::ranges::count_if(state.sticks, is_free)));
  return 0;
}

INT32 a_vextvapi_cb_usb_detect_getUsbMountedInfo(UINT32 handle, VEXTVAPI_USB_MOUNT_INFO_T* list, INT32 first,
                                                 INT32* count) {
  const std::lock_guard guard(state.lock);
  if (!runs(__func__, handle) || list == nullptr || count == nullptr || first < 0 || *count < 0) return -1;
  INT32 met = 0, given = 0;
  for (std::size_t index = 0; index < kPorts && given < *count; ++index) {
    const Stick& stick = state.sticks[index];
    if (is_free(stick) || met++ < first) continue;
    VEXTVAPI_USB_MOUNT_INFO_T& entry = list[given++] = {};
    std::strncpy(entry.dev, device_of(index).c_str(), sizeof entry.dev - 1);
    std::strncpy(entry.path, mount_point_of(index).c_str(), sizeof entry.path - 1);
    std::strncpy(entry.label, stick.label.c_str(), sizeof entry.label - 1);
    entry.port = port_of(index);
  }
  *count = given;
  return 0;
}

INT32 a_vextvapi_cb_usb_detect_devDesc(UINT32 handle, const char* mount_point, char* description, INT32 size) {
  std::unique_lock guard(state.lock);
  if (!runs(__func__, handle) || mount_point == nullptr || description == nullptr) return -1;
  std::string folder;
  for (std::size_t index = 0; index < kPorts; ++index)
    if (!is_free(state.sticks[index]) && mount_point_of(index) == mount_point) folder = state.sticks[index].folder;
  guard.unlock();
  if (folder.empty()) return refuse_call(__func__, "no stick is mounted at " + quoted(mount_point));
  std::string text;
  if (!describe(folder, text)) return refuse_call(__func__, "the folder " + folder + " cannot be read");
  if (size < 0 || text.size() >= static_cast<std::size_t>(size)) {
    return refuse_call(__func__, "the description has " + std::to_string(text.size()) +
                                     " bytes and a terminator; there is room for " + std::to_string(size));
  }
  std::memcpy(description, text.c_str(), text.size() + 1);
  return 0;
}

namespace {

void load() {
  const std::scoped_lock guard(state.changing, state.lock);
  state.mounts = set_folder() + "/usb";
  usb_root_load();
  // Applications start a detection again each time the set is switched on.
  state.detection = 0;
  state.callback = nullptr;
  unmount_all();
  for (std::size_t index = 0; index < kPorts; ++index) {
    Stick& stick = state.sticks[index] = kept(index);
    if (is_free(stick)) continue;
    const UsbPlace found = usb_place(stick.folder);
    std::error_code none;
    std::string problem = found.inside ? "there is no folder " + stick.folder : outside();
    if (found.inside && fs::is_directory(found.folder, none) && mount(index, stick.folder, problem)) continue;
    std::fprintf(stderr, "dtv_tv: the stick \"%s\" is no longer inserted: %s\n", stick.label.c_str(), problem.c_str());
    stick = {};
    keep({index}, stick);
  }
}

bool reset() { return !remove_sticks("all").contains("error"); }

// Reports the inserted sticks, if there are any.
void report(boost::json::object& answer) {
  boost::json::object sticks;
  const std::lock_guard guard(state.lock);
  for (std::size_t index = 0; index < kPorts; ++index)
    if (!is_free(state.sticks[index])) sticks[device_of(index)] = state.sticks[index].folder;
  if (!sticks.empty()) answer["sticks"] = std::move(sticks);
}

boost::json::object stick_command(Arguments arguments) {
  const std::string_view action = arguments.empty() ? "list" : arguments[0];
  if (action == "list" && arguments.size() <= 1) return list_sticks();
  if (action == "insert" && arguments.size() >= 2) return insert_stick(arguments[1], arguments.subspan(2));
  if (action == "remove" && arguments.size() == 2) return remove_sticks(arguments[1]);
  if (action == "folders" && arguments.size() <= 2) return list_folders(arguments.subspan(1));
  return reply_error("stick takes insert DIR [LABEL], remove DEV|LABEL|DIR|all, list, or folders [DIR]");
}

constexpr Command kCommands[] = {
    {"stick", "[insert DIR [LABEL] | remove DEV|LABEL|DIR|all | list | folders [DIR]]", 3,
     "Inserts a folder as a USB stick, removes sticks, lists them and the folders that can become one; sticks stay "
     "inserted when the set is switched off",
     stick_command},
};

}  // namespace

const Room room_usb = {.commands = kCommands, .load = load, .reset = reset, .report = report};
