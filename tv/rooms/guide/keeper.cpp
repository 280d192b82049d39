#include <condition_variable>
#include <cstdio>
#include <deque>
#include <memory>
#include <optional>
#include <thread>
#include <utility>

#include "core/background.h"
#include "core/reply.h"
#include "rooms/clock/clock.h"
#include "rooms/config/config.h"
#include "rooms/guide/parts.h"
#include "tvapi/guide.h"

namespace {

struct Section {
  Eit eit;
  std::int64_t shift = 0;
};

// The caller of keeper_run waits until its job is done.
struct Waiting {
  GuideJob run;
  bool done = false;
  bool kept = false;
};

struct Keeper {
  std::mutex reading;  // guards the connection for reading
  Database reader;

  Database writer;  // of the guide's thread; of load and stop while that thread does not run
  bool usable = false;
  std::string path;
  std::thread thread;
  std::atomic<bool> stopping = false;   // keeper_stop ends the check of the file
  std::atomic<bool> cancelled = false;  // the import is to end

  std::mutex lock;  // guards the rest; only the lock of the import's report is taken under it
  std::condition_variable changed;
  std::condition_variable finished;  // a job or an import
  std::deque<Section> sections;
  std::size_t writing = 0;  // sections that have left the queue and are not in the database yet
  std::deque<Waiting*> jobs;
  std::optional<std::string> import;  // the path of one that waits or runs
  bool running = false;
  bool look_for_old = true;
  std::int64_t looked_for_old = 0;  // when
  std::int64_t events = 0;
  std::uint64_t dropped = 0;
};

// Never destroyed: the process may exit without switching the set off, while the thread still waits here.
Keeper& keeper = *new Keeper;

// ---- The file ----

// What a broadcast repeats anyway need not survive a power cut. An import fills large indexes.
constexpr const char* kWriter = "PRAGMA synchronous=NORMAL; PRAGMA cache_size=-20000; PRAGMA temp_store=MEMORY";

// The caller holds the reading lock.
bool open_both(DatabaseCheck check, std::string& ret_error) {
  if (!database_open(keeper.path, kGuideLayouts, keeper.writer, ret_error, check)) return false;
  if (database_share(keeper.path, keeper.writer, keeper.reader, ret_error) &&
      database_execute(keeper.writer.handle, kWriter) == SQLITE_OK) {
    return true;
  }
  database_close(keeper.reader);
  database_close(keeper.writer);
  return false;
}

// ---- On the guide's thread ----

// Runs the work in a transaction. After a failure nothing has changed.
bool transact(const GuideJob& work, GuideChanges& ret_changes) {
  sqlite3* const handle = keeper.writer.handle;
  if (database_execute(handle, "BEGIN IMMEDIATE") != SQLITE_OK) {
    std::fprintf(stderr, "dtv_tv: the guide cannot be written: %s\n", sqlite3_errmsg(handle));
    return false;
  }
  GuideChanges changes;
  if (work(keeper.writer, changes) && database_execute(handle, "COMMIT") == SQLITE_OK) {
    {
      const std::lock_guard guard(keeper.lock);
      keeper.events += changes.added;
    }
    ret_changes = std::move(changes);
    return true;
  }
  // An import that was cancelled or refused its file is not an error of the database.
  const int code = sqlite3_errcode(handle);
  if (code != SQLITE_OK && code != SQLITE_ROW && code != SQLITE_DONE)
    std::fprintf(stderr, "dtv_tv: the guide was not written: %s\n", sqlite3_errmsg(handle));
  database_execute(handle, "ROLLBACK");
  return false;
}

std::int64_t room_for_more() {
  const std::lock_guard guard(keeper.lock);
  return kMostEvents - keeper.events;
}

void write_sections(const std::vector<Section>& sections) {
  const GuideTaste taste = guide_taste();
  const std::int64_t now = clock_utc();
  const std::int64_t room = room_for_more();
  GuideChanges changes;
  const bool kept = transact(
      [&](Database& database, GuideChanges& ret_changes) {
        for (const Section& section : sections) {
          const auto rows = eit_rows(section.eit, section.shift, taste, now);
          if (!eit_write(database, rows, room - ret_changes.added, ret_changes)) return false;
        }
        return true;
      },
      changes);
  if (kept && !changes.spans.empty()) window_changes(changes, VEXTVAPI_EVENT_REASON_BROADCAST);
}

struct ImportEnd {
  const char* state;
  std::string error = {};
};

ImportEnd run_import(const std::string& path) {
  std::string error;
  GuideChanges changes;
  const std::int64_t room = room_for_more();
  const bool kept = transact(
      [&](Database& database, GuideChanges& ret_changes) {
        return import_run(database, path, room, keeper.cancelled, ret_changes, error);
      },
      changes);
  sqlite3_db_release_memory(keeper.writer.handle);  // the cache of an import: its indexes are filled in no order
  if (kept) {
    window_changes(changes, VEXTVAPI_EVENT_REASON_IMPORT);
    return {"done"};
  }
  if (keeper.cancelled) return {"cancelled"};
  return {"failed", error.empty() ? "the database could not be written; see the set's log" : error};
}

void erase_old() {
  const std::int64_t before = clock_utc() - kKeptAfterEnd;
  std::size_t erased = kMostEventsErased;
  while (erased == kMostEventsErased) {
    GuideChanges changes;
    const bool kept = transact(
        [&](Database& database, GuideChanges& ret_changes) {
          if (!rows_erase_old(database, before, kMostEventsErased, erased)) return false;
          ret_changes.added = -static_cast<std::int64_t>(erased);
          return true;
        },
        changes);
    if (!kept) return;
  }
}

void run_job(Waiting& job) {
  GuideChanges changes;
  const bool kept = transact(job.run, changes);
  const std::lock_guard guard(keeper.lock);
  job.kept = kept;
  job.done = true;
  keeper.finished.notify_all();
}

// Reads the whole file, which takes a second for 300,000 events, and puts an empty one in the place of a damaged one.
// Until then a damaged part reads as if it were empty.
void check_file() {
  std::string why, error;
  if (database_is_whole(
          keeper.writer, [] { return keeper.stopping.load(); }, why)) {
    return;
  }
  {
    const std::lock_guard guard(keeper.reading);
    database_close(keeper.reader);
    if (!database_discard(keeper.path, keeper.writer, why))
      error = "cannot use " + keeper.path + ": it is damaged (" + why + "), and it cannot be renamed";
    if (error.empty()) open_both(DatabaseCheck::kWhole, error);
  }
  if (!error.empty()) std::fprintf(stderr, "dtv_tv: the guide stays empty: %s\n", error.c_str());
  const std::int64_t count = rows_count(keeper.writer);
  {
    const std::lock_guard guard(keeper.lock);
    keeper.events = count;
  }
  window_everything_changed(VEXTVAPI_EVENT_REASON_REQUEST);
}

void run_keeper() {
  background_begin("dtv_tv-guide");
  const std::int64_t count = rows_count(keeper.writer);
  std::unique_lock guard(keeper.lock);
  keeper.events = count;
  guard.unlock();
  check_file();
  guard.lock();
  while (true) {
    const auto has_work = [] {
      return !keeper.sections.empty() || !keeper.jobs.empty() || keeper.import || keeper.look_for_old;
    };
    keeper.changed.wait(guard, [&] { return !keeper.running || has_work(); });
    if (!keeper.jobs.empty()) {  // also when the set is being switched off: somebody waits for it
      Waiting& job = *keeper.jobs.front();
      keeper.jobs.pop_front();
      guard.unlock();
      run_job(job);
      guard.lock();
      continue;
    }
    if (!keeper.running) break;
    if (keeper.import) {
      const std::string path = *keeper.import;
      guard.unlock();
      const ImportEnd end = run_import(path);
      guard.lock();
      keeper.import.reset();
      import_end(end.state, end.error);
      keeper.finished.notify_all();
    } else if (!keeper.sections.empty()) {
      std::vector<Section> batch;
      while (!keeper.sections.empty() && batch.size() < kMostSectionsAtOnce) {
        batch.push_back(std::move(keeper.sections.front()));
        keeper.sections.pop_front();
      }
      keeper.writing = batch.size();
      guard.unlock();
      write_sections(batch);
      guard.lock();
      keeper.writing = 0;
    } else if (keeper.look_for_old) {
      keeper.look_for_old = false;
      guard.unlock();
      erase_old();
      guard.lock();
    }
  }
  keeper.sections.clear();
  keeper.import.reset();
  keeper.finished.notify_all();
}

}  // namespace

GuideReading::GuideReading()
    : guard(keeper.reading), database(keeper.reader.handle == nullptr ? nullptr : &keeper.reader) {}

GuideTaste guide_taste() { return {.language = config_text(kLanguageKey), .country = config_text(kCountryKey)}; }

bool keeper_open(const std::string& folder, std::string& ret_error) {
  const std::lock_guard guard(keeper.reading);
  keeper.path = folder + "/guide.sqlite";
  keeper.usable = open_both(DatabaseCheck::kHead, ret_error);
  return keeper.usable;
}

void keeper_start() {
  if (!keeper.usable) return;
  {
    const std::lock_guard guard(keeper.lock);
    keeper.running = true;
    keeper.look_for_old = true;
    keeper.looked_for_old = clock_utc();
    keeper.events = 0;
    keeper.dropped = 0;
    keeper.cancelled = false;
    keeper.stopping = false;
  }
  keeper.thread = std::thread(run_keeper);
}

void keeper_stop() {
  {
    const std::lock_guard guard(keeper.lock);
    keeper.running = false;
    keeper.cancelled = true;
    keeper.stopping = true;
  }
  keeper.changed.notify_all();
  if (keeper.thread.joinable()) keeper.thread.join();
  const std::lock_guard guard(keeper.reading);
  if (keeper.reader.handle != nullptr) database_close(keeper.reader);
  if (keeper.writer.handle != nullptr) database_close(keeper.writer);
  keeper.usable = false;
}

void keeper_queue(const Eit& eit, std::int64_t shift) {
  {
    const std::lock_guard guard(keeper.lock);
    if (!keeper.running) return;
    if (keeper.sections.size() >= kMostQueuedSections) {
      keeper.sections.pop_front();
      ++keeper.dropped;
    }
    keeper.sections.push_back({eit, shift});
  }
  keeper.changed.notify_all();
}

bool keeper_run(GuideJob job, std::string& ret_error) {
  Waiting waiting{.run = std::move(job)};
  std::unique_lock guard(keeper.lock);
  if (!keeper.running || keeper.import) {
    ret_error =
        keeper.running ? "an import is running; guide import cancel ends it" : "the guide's database is not open";
    return false;
  }
  keeper.jobs.push_back(&waiting);
  keeper.changed.notify_all();
  keeper.finished.wait(guard, [&] { return waiting.done; });
  if (!waiting.kept) ret_error = kNotSaved;
  return waiting.kept;
}

bool keeper_erase_all(bool mappings, std::string& ret_error) {
  const bool kept = keeper_run(
      [mappings](Database& database, GuideChanges& ret_changes) {
        ret_changes.added = -rows_count(database);
        return rows_erase_all(database) && (!mappings || mappings_erase_all(database));
      },
      ret_error);
  if (kept) window_everything_changed(VEXTVAPI_EVENT_REASON_REQUEST);
  return kept;
}

bool keeper_import(std::string path, std::string& ret_error) {
  {
    const std::lock_guard guard(keeper.lock);
    if (!keeper.running || keeper.import) {
      ret_error =
          keeper.running ? "an import is running; guide import cancel ends it" : "the guide's database is not open";
      return false;
    }
    keeper.cancelled = false;
    import_begin(path);
    keeper.import = std::move(path);
  }
  keeper.changed.notify_all();
  return true;
}

void keeper_cancel_import() {
  std::unique_lock guard(keeper.lock);
  if (!keeper.import) return;
  keeper.cancelled = true;
  keeper.finished.wait(guard, [] { return !keeper.import || !keeper.running; });
}

void keeper_look_for_old() {
  const std::int64_t now = clock_utc();
  {
    const std::lock_guard guard(keeper.lock);
    const bool due = now >= keeper.looked_for_old + kErasePause || now < keeper.looked_for_old;
    if (!keeper.running || !due) return;
    keeper.looked_for_old = now;
    keeper.look_for_old = true;
  }
  keeper.changed.notify_all();
}

KeeperState keeper_state() {
  const std::lock_guard guard(keeper.lock);
  return {.events = keeper.events, .dropped = keeper.dropped, .waiting = keeper.sections.size() + keeper.writing};
}
