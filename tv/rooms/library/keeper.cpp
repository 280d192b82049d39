#include <atomic>
#include <cstdio>

#include "rooms/library/parts.h"

namespace {

struct Keeper {
  std::mutex writing;  // guards the writer; taken before `reading` where both are needed
  Database writer;
  std::mutex reading;  // guards the reader
  Database reader;
  std::string path;  // changed only by library_open
  std::atomic<std::uint64_t> changes = 0;
};

// Never destroyed: other threads may still use it when the process exits.
Keeper& keeper = *new Keeper;

constexpr const char* kWriter = "PRAGMA synchronous=FULL; PRAGMA cache_size=-8000; PRAGMA temp_store=MEMORY";

// The caller holds both locks.
bool open_both(DatabaseCheck check, std::string& ret_error) {
  if (!database_open(keeper.path, kLibraryLayouts, keeper.writer, ret_error, check)) return false;
  if (database_share(keeper.path, keeper.writer, keeper.reader, ret_error)) {
    if (database_execute(keeper.writer.handle, kWriter) == SQLITE_OK) return true;
    ret_error = sqlite3_errmsg(keeper.writer.handle);
    database_close(keeper.reader);
  }
  database_close(keeper.writer);
  return false;
}

}  // namespace

LibraryReading::LibraryReading()
    : guard(keeper.reading), database(keeper.reader.handle == nullptr ? nullptr : &keeper.reader) {}

LibraryWriting::LibraryWriting()
    : guard(keeper.writing), database(keeper.writer.handle == nullptr ? nullptr : &keeper.writer) {}

bool library_open(const std::string& folder, std::string& ret_error) {
  const std::scoped_lock guard(keeper.writing, keeper.reading);
  keeper.path = folder + "/media.sqlite";
  return open_both(DatabaseCheck::kHead, ret_error);
}

void library_close() {
  const std::scoped_lock guard(keeper.writing, keeper.reading);
  if (keeper.reader.handle != nullptr) database_close(keeper.reader);
  if (keeper.writer.handle != nullptr) database_close(keeper.writer);
}

void library_check(bool (*ends)()) {
  const std::lock_guard writing(keeper.writing);
  std::string why, error;
  if (keeper.writer.handle == nullptr || database_is_whole(keeper.writer, ends, why)) return;
  const std::lock_guard reading(keeper.reading);
  database_close(keeper.reader);
  if (!database_discard(keeper.path, keeper.writer, why))
    error = "cannot use " + keeper.path + ": it is damaged (" + why + "), and it cannot be renamed";
  if (error.empty()) open_both(DatabaseCheck::kWhole, error);
  if (!error.empty()) std::fprintf(stderr, "dtv_tv: the media library stays empty: %s\n", error.c_str());
  ++keeper.changes;
}

bool library_write(const std::function<bool(Database& database)>& work) {
  const LibraryWriting writing;
  if (writing.database == nullptr) return false;
  sqlite3* const handle = writing.database->handle;
  if (database_execute(handle, "BEGIN IMMEDIATE") == SQLITE_OK) {
    if (work(*writing.database) && database_execute(handle, "COMMIT") == SQLITE_OK) {
      ++keeper.changes;
      return true;
    }
    const std::string why = sqlite3_errmsg(handle);
    database_execute(handle, "ROLLBACK");
    std::fprintf(stderr, "dtv_tv: the media library was not written: %s\n", why.c_str());
    return false;
  }
  std::fprintf(stderr, "dtv_tv: the media library cannot be written: %s\n", sqlite3_errmsg(handle));
  return false;
}

std::uint64_t library_changes() { return keeper.changes; }
