#include "rooms/antenna/folder.h"

#include <algorithm>
#include <boost/json.hpp>
#include <condition_variable>
#include <cstdio>
#include <filesystem>
#include <mutex>
#include <optional>
#include <utility>

#include "core/background.h"
#include "core/reply.h"
#include "core/store.h"
#include "dtv_tv.h"
#include "rooms/antenna/index.h"
#include "rooms/antenna/receptions.h"
#include "rooms/antenna/worker.h"
#include "rooms/channels/channels.h"
#include "rooms/clock/clock.h"
#include "rooms/usb/root.h"

namespace fs = std::filesystem;

namespace {

constexpr TextSetting kFolder{.key = "antenna_folder", .factory = "", .longest = 4096};

struct Progress {
  std::size_t number = 0;  // of the file that is read, from 1
  std::size_t of = 0;
  std::string name;
};

struct State {
  std::mutex changing;  // serializes changes of the setting, with disk and store; taken first
  std::mutex lock;      // guards all members below
  std::condition_variable settled;
  bool open = false;
  std::string given;   // of dtv_tv_antenna; canonical if it exists
  std::string folder;  // empty: none; changed only under both changing and lock
  Index index;
  std::uint64_t wanted = 0;  // number of the latest reading requested; it replaces the earlier ones
  std::uint64_t done = 0;    // the latest that was carried out
  bool afresh = false;       // the next reading reads all files
  Progress progress;
  std::vector<void (*)()> listeners;
  Worker worker;
  std::atomic<bool> cancelled = false;  // ends the reading that runs
};

// Never destroyed: other threads may still use it when the process exits.
State& state = *new State;

using Guard = std::unique_lock<std::mutex>;

// ---- The thread ----

// The caller holds the lock.
void publish(Index index) {
  state.index = std::move(index);
  state.progress = {};
}

// Carries out one reading. The caller holds the lock, which is released meanwhile.
void read_once(Guard& guard) {
  const std::uint64_t job = state.wanted;
  const std::string folder = state.folder;
  const Index before = std::exchange(state.afresh, false) ? Index{} : state.index;
  state.cancelled = false;
  guard.unlock();
  Index index;
  const IndexReader reader{.now = clock_utc,
                           .cancelled = state.cancelled,
                           .begins = [](std::size_t number, std::size_t of, const std::string& name) {
                             const std::lock_guard progress(state.lock);
                             state.progress = {.number = number, .of = of, .name = name};
                           }};
  if (!folder.empty()) index_read(folder, before, reader, index);
  guard.lock();
  if (state.wanted != job || !state.open) return;
  publish(std::move(index));
  state.done = job;
  state.settled.notify_all();
  std::vector<std::string> paths;
  for (const IndexEntry& each : state.index.entries) paths.push_back(each.multiplex.path);
  const std::vector<void (*)()> listeners = state.listeners;
  guard.unlock();
  receptions_drop([&paths](const std::string& path) { return std::ranges::count(paths, path) == 0; },
                  "the antenna does not receive the stream any more");
  for (void (*const listener)() : listeners) listener();
  guard.lock();
}

void run_reader() {
  background_begin("dtv_tv-antenna");
  Guard guard(state.lock);
  while (state.open && state.done != state.wanted) read_once(guard);
  state.worker.runs = false;
}

// The caller holds the lock.
void want_reading() {
  if (!state.open) return;
  ++state.wanted;
  state.cancelled = true;
  if (worker_start(state.worker, run_reader)) return;
  publish({.problem = "the machine has no thread left to read the folder",
           .folder = {},
           .entries = {},
           .refused = {},
           .files = {}});
  state.done = state.wanted;
}

// ---- The setting; the caller of these functions holds state.changing ----

void use(const std::string& folder) {
  {
    const std::lock_guard guard(state.lock);
    if (folder == state.folder) return;
    state.folder = folder;
    publish({});
    want_reading();
  }
  receptions_drop([](const std::string&) { return true; },
                  folder.empty() ? "the antenna is disconnected" : "the antenna is connected to another folder");
}

// Why the path cannot be the antenna's folder; empty: it can, and ret_folder is its canonical path.
std::string refusal_of(std::string_view path, std::string& ret_folder) {
  if (!path.starts_with('/')) return "the folder " + quoted(path) + " is not an absolute path";
  std::string folder(path);
  if (path != state.given) {
    const UsbPlace place = usb_place(path);
    if (!place.inside) {
      const std::string root = usb_root();
      return root.empty() ? "no folder can become the antenna: the set was started without a folder for sticks"
                          : "only a folder in " + root + " can become the antenna";
    }
    if (place.failed) return "the folder " + quoted(path) + " cannot be found: " + place.failed.message();
    std::error_code failed;
    if (!fs::is_directory(place.folder, failed)) return quoted(path) + " is not a folder";
    folder = place.folder;
  }
  if (!store_is_text(folder)) return "the name of the folder " + quoted(path) + " is not in UTF-8";
  ret_folder = folder;
  return {};
}

const IndexEntry* find_stream(std::uint16_t network, std::uint16_t stream) {
  const auto found = std::ranges::find_if(state.index.entries, [=](const IndexEntry& each) {
    return each.multiplex.network == network && each.multiplex.stream == stream;
  });
  return found == state.index.entries.end() ? nullptr : &*found;
}

std::string file_name(const std::string& path) { return fs::path(path).filename().string(); }

}  // namespace

void dtv_tv_antenna(const char* folder) {
  std::error_code failed;
  std::string given;
  if (folder != nullptr && *folder != '\0') given = fs::weakly_canonical(fs::absolute(folder, failed), failed).string();
  if (failed) given = folder;
  const std::scoped_lock guard(state.changing, state.lock);
  state.given = given;
}

std::vector<Multiplex> antenna_multiplexes() {
  std::vector<Multiplex> multiplexes;
  const std::lock_guard guard(state.lock);
  for (const IndexEntry& each : state.index.entries) multiplexes.push_back(each.multiplex);
  return multiplexes;
}

void antenna_listen(void (*listener)()) {
  const std::lock_guard guard(state.lock);
  const bool known = std::ranges::count(state.listeners, listener) > 0;
  if (!known && state.listeners.size() < kMostAntennaListeners) state.listeners.push_back(listener);
}

ReceptionHandle reception_start(const ServiceKey& key, const ReceptionUser& user, ReceptionRefusal& ret_refusal) {
  const std::lock_guard guard(state.lock);
  const IndexEntry* const entry = find_stream(key.network, key.stream);
  if (entry == nullptr || !std::ranges::binary_search(entry->services, key.service)) {
    ret_refusal = ReceptionRefusal::kNoSignal;
    return nullptr;
  }
  return receptions_add({.path = entry->multiplex.path, .shift = entry->shift}, user, ret_refusal);
}

std::int64_t antenna_time_shift(std::uint16_t network, std::uint16_t stream) {
  const std::lock_guard guard(state.lock);
  const IndexEntry* const entry = find_stream(network, stream);
  return entry == nullptr ? 0 : entry->shift;
}

void folder_load() {
  const std::scoped_lock guard(state.changing, state.lock);
  state.folder = store_read(kFolder);
  if (!state.given.empty()) state.folder = state.given;
  publish({});
  state.done = state.wanted;
}

void folder_start() {
  // Not in folder_load: the stick root is loaded with another room.
  const std::lock_guard changing(state.changing);
  std::string folder;
  if (const std::string why = state.folder.empty() ? "" : refusal_of(state.folder, folder); !why.empty()) {
    std::fprintf(stderr, "dtv_tv: the antenna is disconnected: %s\n", why.c_str());
    const SettingValue value[] = {{kFolder.key, std::string_view()}};
    if (state.folder != state.given) store_write(value);
  }
  const std::lock_guard guard(state.lock);
  state.open = true;
  state.folder = folder;
  if (!folder.empty()) want_reading();
}

void folder_stop() {
  {
    const std::lock_guard guard(state.lock);
    state.open = false;
    state.cancelled = true;
  }
  state.settled.notify_all();
  worker_join(state.worker);
}

bool folder_reset() {
  const std::lock_guard changing(state.changing);
  use(state.given);
  return true;
}

boost::json::object folder_choose(std::string_view path) {
  {
    const std::lock_guard changing(state.changing);
    std::string folder;
    if (!path.empty())
      if (std::string why = refusal_of(path, folder); !why.empty()) return reply_error(std::move(why));
    const SettingValue value[] = {{kFolder.key, folder}};
    if (!store_write(value)) return reply_not_kept();
    use(folder);
  }
  return folder_shown();
}

boost::json::object folder_read_again() {
  {
    const std::lock_guard guard(state.lock);
    if (state.folder.empty()) return reply_error("the antenna is not connected; antenna DIR connects it to a folder");
    state.afresh = true;
    want_reading();
  }
  return folder_shown();
}

void folder_look() {
  Guard guard(state.lock);
  if (state.folder.empty() || state.done != state.wanted) return;
  const std::uint64_t looked_at = state.done;
  const std::string folder = state.folder;
  const Index seen = state.index;
  guard.unlock();
  const bool outdated = index_is_outdated(folder, seen);
  guard.lock();
  if (outdated && state.done == looked_at && state.wanted == looked_at) want_reading();
}

bool folder_settle(const std::atomic<bool>& cancelled) {
  constexpr std::chrono::milliseconds kLook{100};  // at the flag
  Guard guard(state.lock);
  while (state.open && !cancelled && state.done != state.wanted) state.settled.wait_for(guard, kLook);
  return state.open && !cancelled;
}

std::string folder_problem() {
  const std::lock_guard guard(state.lock);
  return state.index.problem;
}

std::vector<std::string> folder_refusals() {
  std::vector<std::string> lines;
  const std::lock_guard guard(state.lock);
  for (const IndexRefusal& each : state.index.refused) lines.push_back(each.name + ": " + each.why);
  return lines;
}

std::string folder_logos() {
  const std::lock_guard guard(state.lock);
  return state.folder + kLogosBeside;
}

bool folder_is_chosen() {
  const std::lock_guard guard(state.lock);
  return !state.folder.empty();
}

void folder_report(boost::json::object& answer) {
  const std::lock_guard guard(state.lock);
  if (!state.folder.empty()) answer["antenna"] = state.folder;
}

boost::json::object folder_shown() {
  boost::json::array multiplexes, refused, tuners;
  Guard guard(state.lock);
  for (const IndexEntry& each : state.index.entries) {
    const Multiplex& multiplex = each.multiplex;
    multiplexes.push_back({{"file", file_name(multiplex.path)},
                           {"medium", medium_name(multiplex.medium)},
                           {"mhz", megahertz(multiplex.medium, multiplex.frequency)},
                           {"network", multiplex.network},
                           {"stream", multiplex.stream},
                           {"services", each.services.size()},
                           {"strength", multiplex.strength},
                           {"quality", multiplex.quality},
                           {"shift_seconds", each.shift}});
  }
  for (const IndexRefusal& each : state.index.refused) refused.push_back({{"file", each.name}, {"why", each.why}});
  boost::json::object answer{{"folder", nullptr}};
  if (!state.folder.empty()) answer["folder"] = state.folder;
  if (!state.folder.empty() && state.done != state.wanted)
    answer["reading"] = {{"file", state.progress.name}, {"number", state.progress.number}, {"of", state.progress.of}};
  if (!state.index.problem.empty()) answer["problem"] = state.index.problem;
  guard.unlock();
  for (const TunerUse& use : receptions_use()) {
    boost::json::object tuner;
    if (use.users > 0) tuner = {{"file", file_name(use.path)}, {"users", use.users}};
    if (!use.visited.empty()) tuner["guide_of"] = file_name(use.visited);
    tuners.push_back(std::move(tuner));
  }
  answer["multiplexes"] = std::move(multiplexes);
  answer["refused"] = std::move(refused);
  answer["tuners"] = std::move(tuners);
  return answer;
}
