// The scanning thread, its queue, and the reports of scans. scan_run.cpp carries out a scan.
#include "rooms/library/scan.h"

#include <sys/stat.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <condition_variable>
#include <cstring>
#include <thread>

#include "core/background.h"
#include "core/reply.h"
#include "core/timers.h"
#include "rooms/clock/clock.h"
#include "rooms/library/parts.h"

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
  bool erase = false;  // rows of dropped sticks may wait to be erased
  bool runs = false;   // the thread is to run
  bool busy = false;   // the thread is at work, or about to be
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

// Adds or updates the stick's row, and returns its id. If the folder has another device or inode than before, it is
// another stick: it gets a new row, and the old one is dropped. Beyond the limits of the database, the sticks that were
// scanned least recently are dropped too. 0: that failed.
std::int64_t adopt(const UsbStick& stick, std::string& ret_why) {
  struct stat info {};
  if (stat(stick.folder.c_str(), &info) != 0) {
    ret_why = std::string("it cannot be read: ") + std::strerror(errno);
    return 0;
  }
  StickRow row{.folder = stick.folder, .device = info.st_dev, .inode = info.st_ino, .seen = clock_utc()};
  std::vector<std::string> inserted;
  for (const UsbStick& each : usb_sticks()) inserted.push_back(each.folder);
  const bool put = library_write([&](Database& database) {
    if (const auto known = stick_find(database, stick.folder)) {
      if (known->device == row.device && known->inode == row.inode) {
        row.id = known->id;
        row.complete = known->complete;
      } else if (!stick_drop(database, known->id)) {
        return false;
      }
    }
    if (!stick_put(database, row)) return false;
    std::vector<StickRow> all = sticks_by_age(database);
    std::size_t count = all.size();
    std::int64_t rows = media_count(database);
    for (const StickRow& each : all) {
      if (count <= kMostSticks && rows <= kMostRows) break;
      if (each.folder.starts_with(kDroppedStick) || std::ranges::find(inserted, each.folder) != inserted.end())
        continue;
      rows -= stick_rows(database, each.id);
      --count;
      if (!stick_drop(database, each.id)) return false;
    }
    return true;
  });
  if (!put) ret_why = "the library's database cannot be written; see the set's log";
  return put ? row.id : 0;
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

void write_noted(const std::vector<Noted>& noted) {
  for (const Noted& each : noted) {
    const auto place = media_place(each.path);
    if (!place) continue;
    library_write([&](Database& database) {
      const auto row = media_row(database, *place);
      return !row || row_set_played(database, row->id, each.when);
    });
  }
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
  if (const std::int64_t id = adopt(stick, end.reason); id != 0) {
    const auto tell = [&stick](const std::function<void(ScanReport&)>& change) {
      const std::lock_guard guard(scans.lock);
      if (Scanned* const scanned = find(stick)) change(scanned->report);
    };
    end = scan_run({.stick = stick, .id = id, .state_folder = scans.state_folder}, control, tell);
  }
  end_scan(stick, end);
}

void run_scans() {
  background_begin("dtv_tv-media");
  library_check([] { return stopping.load(); });
  std::unique_lock guard(scans.lock);
  while (scans.runs) {
    const auto waiting = std::ranges::find_if(scans.sticks, &Scanned::wanted);
    scans.busy = !scans.noted.empty() || waiting != scans.sticks.end() || scans.erase;
    if (!scans.noted.empty()) {
      const std::vector<Noted> noted = std::move(scans.noted);
      scans.noted.clear();
      guard.unlock();
      write_noted(noted);
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

void scans_load(const std::string& state_folder) {
  const std::lock_guard guard(scans.lock);
  scans.sticks.clear();
  scans.noted.clear();
  scans.state_folder = state_folder;
  scans.erase = true;
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
  {
    const std::lock_guard guard(scans.lock);
    if (!scans.runs) return;
    const auto is_present = [&](const UsbStick& stick) {
      return std::ranges::any_of(present, [&](const UsbStick& each) { return same(each, stick); });
    };
    for (const Scanned& each : scans.sticks)
      if (is_running(each.stick) && !is_present(each.stick)) cancel_running();
    std::erase_if(scans.sticks, [&](const Scanned& each) { return !is_present(each.stick); });
    for (const UsbStick& each : present)
      if (find(each) == nullptr) scans.sticks.push_back({.stick = each, .wanted = true});
    scans.busy = true;
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

bool scans_are_done() {
  const std::lock_guard guard(scans.lock);
  return scans.running.empty() && std::ranges::none_of(scans.sticks, &Scanned::wanted);
}

void scans_note_played(std::string_view path) {
  {
    const std::lock_guard guard(scans.lock);
    if (!scans.runs || scans.noted.size() >= kMostNoted) return;
    scans.noted.push_back({.path = std::string(path), .when = timer_utc_millis()});
    scans.busy = true;
  }
  scans.changed.notify_all();
}

void scans_settle() {
  std::unique_lock guard(scans.lock);
  scans.changed.wait(guard, [] { return !scans.runs || !scans.busy; });
}
