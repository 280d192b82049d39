// The scanning thread, its queue, and the reports of scans. scan_run.cpp carries out a scan.
#include "rooms/library/scan.h"

#include <sys/stat.h>
#include <sys/vfs.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <condition_variable>
#include <cstring>
#include <system_error>
#include <thread>

#include "core/background.h"
#include "core/reply.h"
#include "core/timers.h"
#include "rooms/clock/clock.h"
#include "rooms/library/parts.h"
#include "rooms/library/walk.h"

namespace {

// An inserted stick.
struct Scanned {
  UsbStick stick;
  ScanReport report = {};
  bool wanted = false;  // a scan waits
};

struct Noted {
  std::string path;
  std::int64_t when;  // ms since 1970
};

struct Scans {
  std::mutex lock;  // guards all below
  std::condition_variable changed;
  std::vector<Scanned> sticks;
  std::vector<Noted> noted;
  std::string running;         // the mount point of the stick that is being scanned; empty: none
  std::string running_folder;  // its folder
  ScanControl* control = nullptr;
  bool erase = false;    // rows of dropped sticks may wait to be erased
  bool damaged = false;  // a statement has found the database damaged
  bool runs = false;     // the thread is to run
  bool busy = false;     // the thread is at work, or about to be
  std::string state_folder;
  std::thread thread;  // used by scans_start and scans_stop only
};
Scans& scans = *new Scans;

std::atomic<bool> stopping = false;

bool same(const UsbStick& left, const UsbStick& right) {
  return left.port == right.port && left.folder == right.folder && left.mount_point == right.mount_point;
}

// The caller of the next functions holds the lock.
Scanned* find(const UsbStick& stick) {
  const auto found = std::ranges::find_if(scans.sticks, [&](const Scanned& each) { return same(each.stick, stick); });
  return found == scans.sticks.end() ? nullptr : &*found;
}

bool is_running(const UsbStick& stick) {
  return scans.running == stick.mount_point && scans.running_folder == stick.folder;
}

// ---- On the thread ----

// Adds or updates the stick's row. If the folder has another inode than before, it is another stick: it gets a new row,
// and the old one is dropped. If there are too many sticks, those that were scanned least recently are dropped too.
// False with ret_why.
bool adopt(const UsbStick& stick, StickRow& ret_row, std::string& ret_why) {
  struct stat info {};
  if (stat(stick.folder.c_str(), &info) != 0) {
    ret_why = "it cannot be read: " + std::generic_category().message(errno);
    return false;
  }
  struct statfs system {};
  const bool inodes = statfs(stick.folder.c_str(), &system) == 0 && keeps_inodes(system.f_type);
  StickRow row{.folder = stick.folder, .device = info.st_dev, .inode = inodes ? info.st_ino : 0, .seen = clock_utc()};
  const std::vector<std::string> inserted = scan_inserted();
  const bool put = library_write([&](Database& database) {
    if (const auto known = stick_find(database, stick.folder)) {
      if (known->inode == row.inode) {
        row.id = known->id;
        row.complete = known->complete;
      } else if (!stick_drop(database, known->id)) {
        return false;
      }
    }
    if (!stick_put(database, row)) return false;
    std::vector<StickRow> all = sticks_by_age(database);
    std::erase_if(all, [](const StickRow& each) { return each.folder.starts_with(kDroppedStick); });
    std::size_t count = all.size();
    for (const StickRow& each : all) {
      if (count <= library_limits.sticks) break;
      if (std::ranges::find(inserted, each.folder) != inserted.end()) continue;
      --count;
      if (!stick_drop(database, each.id)) return false;
    }
    return true;
  });
  if (!put) ret_why = "the library's database cannot be written; see the set's log";
  ret_row = std::move(row);
  return put;
}

// Erases some of the rows of a dropped stick. True: there may be more.
bool erase_dropped() {
  std::int64_t dropped = 0;
  {
    const LibraryWriting writing;
    if (writing.database == nullptr) return false;
    for (const StickRow& each : sticks_by_age(*writing.database))
      if (each.folder.starts_with(kDroppedStick)) dropped = each.id;
  }
  if (dropped == 0) return false;
  return library_write([&](Database& database) { return stick_erase_some(database, dropped, kMostErasedAtOnce); });
}

void end_scan(const UsbStick& stick, const ScanEnd& end) {
  INT32 status = VEXTVAPI_CB_SCAN_FAILED;
  if (end.state == ScanState::kDone) status = VEXTVAPI_CB_SCAN_DONE;
  if (end.state == ScanState::kCancelled) status = VEXTVAPI_CB_SCAN_CANCELLED;
  {
    const std::lock_guard guard(scans.lock);
    scans.running.clear();
    scans.running_folder.clear();
    scans.control = nullptr;
    if (Scanned* const scanned = find(stick)) {
      scanned->report.state = status == VEXTVAPI_CB_SCAN_DONE        ? "done"
                              : status == VEXTVAPI_CB_SCAN_CANCELLED ? "cancelled"
                                                                     : "failed";
      scanned->report.reason = end.reason;
      scanned->report.end = std::chrono::steady_clock::now();
    } else {
      status = VEXTVAPI_CB_SCAN_FAILED;  // the stick was removed
    }
  }
  calls_scan_status(status);
}

void scan(const UsbStick& stick, ScanControl& control) {
  calls_scan_status(VEXTVAPI_CB_SCAN_BEGUN);
  ScanEnd end;
  if (StickRow row; adopt(stick, row, end.reason)) {
    const auto tell = [&stick](const std::function<void(ScanReport&)>& change) {
      const std::lock_guard guard(scans.lock);
      if (Scanned* const scanned = find(stick)) change(scanned->report);
    };
    const ScanTask task{.stick = stick, .id = row.id, .complete = row.complete, .state_folder = scans.state_folder};
    end = scan_run(task, control, tell);
  }
  end_scan(stick, end);
}

void run_scans() {
  background_begin("dtv_tv-media");
  library_check([] { return stopping.load(); });
  std::unique_lock guard(scans.lock);
  while (scans.runs) {
    const auto waiting = std::ranges::find_if(scans.sticks, &Scanned::wanted);
    scans.busy = scans.damaged || !scans.noted.empty() || waiting != scans.sticks.end() || scans.erase;
    if (scans.damaged) {
      scans.damaged = false;
      guard.unlock();
      const bool replaced = library_replace_damaged();
      guard.lock();
      for (Scanned& each : scans.sticks) each.wanted = each.wanted || replaced;
    } else if (!scans.noted.empty()) {
      guard.unlock();
      scan_write_noted();
      guard.lock();
    } else if (waiting != scans.sticks.end()) {
      const UsbStick stick = waiting->stick;
      waiting->wanted = false;
      waiting->report = {.state = "running", .begin = std::chrono::steady_clock::now()};
      ScanControl control;
      scans.control = &control;
      scans.running = stick.mount_point;
      scans.running_folder = stick.folder;
      scans.erase = true;  // adopt may drop others
      guard.unlock();
      scan(stick, control);
      guard.lock();
    } else if (scans.erase) {
      scans.erase = false;
      guard.unlock();
      const bool more = erase_dropped();
      guard.lock();
      scans.erase = scans.erase || more;
    } else {
      scans.changed.notify_all();
      scans.changed.wait(guard);
    }
  }
  scans.busy = false;
  scans.changed.notify_all();
}

// The caller holds the lock.
void cancel_running() {
  if (scans.control != nullptr) scan_stop(*scans.control);
}

std::string not_running() { return "the media library is not open; see the set's log"; }

}  // namespace

void scan_write_noted() {
  std::vector<Noted> noted;
  {
    const std::lock_guard guard(scans.lock);
    noted.swap(scans.noted);
  }
  for (const Noted& each : noted) {
    const auto place = media_place(each.path);
    if (!place) continue;
    library_write([&](Database& database) {
      const auto row = media_row(database, *place);
      return !row || row_set_played(database, row->id, each.when);
    });
  }
}

std::vector<std::string> scan_inserted() {
  std::vector<std::string> folders;
  for (const UsbStick& each : usb_sticks()) folders.push_back(each.folder);
  return folders;
}

void scans_load(const std::string& state_folder) {
  const std::lock_guard guard(scans.lock);
  scans.sticks.clear();
  scans.noted.clear();
  scans.state_folder = state_folder;
  scans.erase = true;
  scans.damaged = false;
}

void scans_start() {
  if (LibraryReading().database == nullptr) return;
  stopping = false;
  {
    const std::lock_guard guard(scans.lock);
    scans.runs = true;
    scans.busy = true;
  }
  scans_sticks_changed();
  scans.thread = std::thread(run_scans);
}

void scans_stop() {
  stopping = true;
  {
    const std::lock_guard guard(scans.lock);
    scans.runs = false;
    cancel_running();
  }
  scans.changed.notify_all();
  if (scans.thread.joinable()) scans.thread.join();
}

void scans_sticks_changed() {
  const std::vector<UsbStick> present = usb_sticks();
  std::size_t waited = 0;  // scans of removed sticks
  {
    const std::lock_guard guard(scans.lock);
    if (!scans.runs) return;
    const auto is_present = [&](const UsbStick& stick) {
      return std::ranges::any_of(present, [&](const UsbStick& each) { return same(each, stick); });
    };
    for (const Scanned& each : scans.sticks)
      if (is_running(each.stick) && !is_present(each.stick)) cancel_running();
    waited = std::erase_if(scans.sticks, [&](const Scanned& each) {
      return each.wanted && !is_running(each.stick) && !is_present(each.stick);
    });
    std::erase_if(scans.sticks, [&](const Scanned& each) { return !is_present(each.stick); });
    for (const UsbStick& each : present)
      if (find(each) == nullptr) scans.sticks.push_back({.stick = each, .wanted = true});
    scans.busy = true;
  }
  for (; waited > 0; --waited) calls_scan_status(VEXTVAPI_CB_SCAN_FAILED);
  scans.changed.notify_all();
}

void scans_damaged() {
  {
    const std::lock_guard guard(scans.lock);
    if (!scans.runs) return;
    scans.damaged = true;
    scans.busy = true;
    cancel_running();
  }
  scans.changed.notify_all();
}

ScanReport scan_report(const UsbStick& stick) {
  const std::lock_guard guard(scans.lock);
  const Scanned* const scanned = find(stick);
  return scanned == nullptr ? ScanReport{.state = "failed", .reason = "the media library is not open"}
                            : scanned->report;
}

std::string scan_begin(const UsbStick& stick) {
  {
    const std::lock_guard guard(scans.lock);
    Scanned* const scanned = find(stick);
    if (!scans.runs || scanned == nullptr) return not_running();
    // If the running scan is being cancelled, another one follows it.
    const bool cancelled = scans.control != nullptr && scan_is_stopped(*scans.control);
    if (is_running(stick) && !cancelled) return "";
    if (!is_running(stick)) scanned->report = {};
    scanned->wanted = true;
    scans.busy = true;
  }
  scans.changed.notify_all();
  return "";
}

std::string scan_cancel(const UsbStick& stick) {
  bool waited = false;
  {
    const std::lock_guard guard(scans.lock);
    Scanned* const scanned = find(stick);
    if (!scans.runs || scanned == nullptr) return not_running();
    waited = scanned->wanted && !is_running(stick);
    scanned->wanted = false;
    if (waited) scanned->report = {.state = "cancelled"};
    if (is_running(stick)) cancel_running();
  }
  if (waited) calls_scan_status(VEXTVAPI_CB_SCAN_CANCELLED);
  return "";
}

std::string scan_forget(const UsbStick& stick) {
  if (std::string why = scan_cancel(stick); !why.empty()) return why;
  const bool kept = library_write([&](Database& database) {
    const auto known = stick_find(database, stick.folder);
    return !known || stick_drop(database, known->id);
  });
  if (!kept) return kNotSaved;
  {
    const std::lock_guard guard(scans.lock);
    scans.erase = true;
    scans.busy = true;
    if (Scanned* const scanned = find(stick); scanned != nullptr && !is_running(stick)) {
      scanned->report = {.state = "cancelled"};
    }
  }
  scans.changed.notify_all();
  return "";
}

bool scans_forget() {
  for (const UsbStick& each : usb_sticks()) scan_cancel(each);
  const bool kept = library_write([](Database& database) {
    return std::ranges::all_of(sticks_by_age(database),
                               [&](const StickRow& each) { return stick_drop(database, each.id); });
  });
  {
    const std::lock_guard guard(scans.lock);
    scans.erase = true;
    scans.busy = scans.runs;
    scans.noted.clear();
    for (Scanned& each : scans.sticks)
      if (!is_running(each.stick)) each.report = {.state = "cancelled"};
  }
  scans.changed.notify_all();
  return kept;
}

bool scans_are_done() {
  const std::lock_guard guard(scans.lock);
  return scans.running.empty() && std::ranges::none_of(scans.sticks, &Scanned::wanted);
}

void scans_note_played(std::string_view path) {
  {
    const std::lock_guard guard(scans.lock);
    if (!scans.runs) return;
    std::erase_if(scans.noted, [&](const Noted& each) { return each.path == path; });
    if (scans.noted.size() >= kMostNoted) scans.noted.erase(scans.noted.begin());
    scans.noted.push_back({.path = std::string(path), .when = timer_utc_millis()});
    scans.busy = true;
  }
  scans.changed.notify_all();
}

void scans_settle() {
  std::unique_lock guard(scans.lock);
  scans.changed.wait(guard, [] { return !scans.runs || !scans.busy; });
}
