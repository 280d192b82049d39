// Carries out a scan, in three parts. First the walk finds all files, and compares them with the database by size, time
// of change and inode; unchanged files are not opened. Then the reader reads the others, and their facts are written in
// short transactions. Last come the playlists, since a playlist's duration is that of the files that it names.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <ctime>
#include <map>
#include <set>

#include "core/text.h"
#include "rooms/clock/clock.h"
#include "rooms/library/names.h"
#include "rooms/library/reader.h"
#include "rooms/library/scan.h"
#include "rooms/library/walk.h"

namespace {

using SteadyTime = std::chrono::steady_clock::time_point;
constexpr std::chrono::milliseconds kTellAfter{500};  // between two callbacks about new entries

struct FileEnd {
  int file;
  explicit FileEnd(int opened) : file(opened) {}
  ~FileEnd() {
    if (file >= 0) close(file);
  }
  FileEnd(const FileEnd&) = delete;
  FileEnd& operator=(const FileEnd&) = delete;
};

struct Queued {
  std::size_t folder;  // in Run::folders
  WalkedFile file;
};

// Rows of files and folders that are no longer on the stick.
struct Gone {
  std::vector<std::int64_t> rows = {};
  std::vector<std::int64_t> folders = {};
};

struct Run {
  const ScanTask& task;
  ScanControl& control;
  const ScanTell& tell;
  int stick = -1;                         // its folder, opened with O_PATH
  std::vector<std::string> folders = {};  // of the queued files
  std::vector<Queued> queue = {};
  std::vector<Queued> playlists = {};      // those that have changed
  std::vector<Queued> old_playlists = {};  // the others
  std::set<std::string> walked = {};       // folders with media
  std::vector<std::string> unread = {};    // folders that could not be read to their end
  Gone gone = {};
  std::int64_t room = 0;  // how many rows may still be added
  std::vector<MediaRow> batch = {};
  SteadyTime batch_begin = {};
  SteadyTime told = {};
  std::uint64_t done = 0;
  std::uint64_t read = 0;
  bool changed = false;  // files were read, or are gone
  MediaReaderHandle reader = nullptr;
};

bool ends(const Run& run) { return scan_is_stopped(run.control); }

// The time as 20260323141500.
std::int64_t packed_date(std::tm time) {
  return ((((time.tm_year + 1900LL) * 100 + time.tm_mon + 1) * 100 + time.tm_mday) * 100 + time.tm_hour) * 10000 +
         time.tm_min * 100 + time.tm_sec;
}

std::int64_t date_of_change(std::int64_t mtime) { return media_local_date(mtime / 1'000'000'000); }

std::int64_t date_of(const T_DATE_TIME& date, std::int64_t mtime) {
  if (date.iyear == 0) return date_of_change(mtime);
  std::tm time{};
  time.tm_year = date.iyear - 1900;
  time.tm_mon = date.imonth - 1;
  time.tm_mday = date.iday;
  time.tm_hour = date.ihour;
  time.tm_min = date.iminute;
  time.tm_sec = date.isecond;
  return packed_date(time);
}

void leave_out(Run& run, const std::string& path, const std::string& why) {
  run.tell([&](ScanReport& report) {
    ++report.left_out;
    if (report.problems.size() >= kMostProblems) return;
    const std::string shown = run.task.stick.mount_point + "/" + clean_text(path, kLongestMediaPath);
    report.problems.push_back({.path = shown, .why = why});
  });
}

void tell_counts(Run& run) {
  run.tell([&](ScanReport& report) {
    report.files = run.done;
    report.read = run.read;
  });
}

// ---- The walk ----

// Compares a folder with the database.
void compare(Run& run, WalkedFolder folder) {
  run.walked.insert(folder.path);
  if (!folder.whole) run.unread.push_back(folder.path);
  std::map<std::string, KnownFile> known;
  {
    const LibraryWriting writing;
    if (writing.database == nullptr) return;
    const auto id = folder_find(*writing.database, run.task.id, folder.path);
    if (id)
      for (KnownFile& each : rows_known(*writing.database, *id)) known.emplace(each.name, std::move(each));
  }
  const std::size_t number = run.folders.size();
  run.folders.push_back(folder.path);
  for (WalkedFile& file : folder.files) {
    const auto found = known.find(file.name);
    const bool same = found != known.end() && found->second.size == file.size && found->second.mtime == file.mtime &&
                      found->second.inode == file.inode;
    if (same && found->second.kind == MEDIA_TYPE_NULL) run.tell([](ScanReport& report) { ++report.left_out; });
    if (found != known.end()) known.erase(found);
    if (file.kind == MEDIA_TYPE_PLAYLIST) {
      (same ? run.old_playlists : run.playlists).push_back({.folder = number, .file = std::move(file)});
    } else if (same) {
      ++run.done;
    } else {
      run.queue.push_back({.folder = number, .file = std::move(file)});
    }
  }
  if (folder.whole)
    for (const auto& [name, file] : known) run.gone.rows.push_back(file.id);
  tell_counts(run);
}

bool is_below(const std::string& path, const std::string& folder) {
  return folder.empty() || path == folder || path.starts_with(folder + "/");
}

// Erases the rows of files and folders that the walk has not found.
bool erase_gone(Run& run) {
  std::vector<FolderRow> folders;
  {
    const LibraryWriting writing;
    if (writing.database == nullptr) return false;
    folders = folders_all(*writing.database, run.task.id);
  }
  for (const FolderRow& each : folders) {
    const bool unread = std::ranges::any_of(run.unread, [&](const std::string& f) { return is_below(each.path, f); });
    if (!run.walked.contains(each.path) && !unread) run.gone.folders.push_back(each.id);
  }
  for (std::size_t i = 0; i < run.gone.rows.size() && !ends(run); i += kMostErasedAtOnce) {
    const std::size_t end = std::min(i + kMostErasedAtOnce, run.gone.rows.size());
    if (!library_write([&](Database& database) {
          return std::all_of(run.gone.rows.begin() + static_cast<std::ptrdiff_t>(i),
                             run.gone.rows.begin() + static_cast<std::ptrdiff_t>(end),
                             [&](std::int64_t id) { return row_erase(database, id); });
        })) {
      return false;
    }
  }
  // Folders without media of their own have a row only because of the folders below them. They have no files to erase,
  // so they are left to folders_erase_empty.
  std::erase_if(run.gone.folders, [&](std::int64_t id) {
    const LibraryWriting writing;
    return writing.database == nullptr || rows_known(*writing.database, id).empty();
  });
  run.changed = run.changed || !run.gone.rows.empty() || !run.gone.folders.empty();
  for (const std::int64_t folder : run.gone.folders) {
    if (ends(run)) return true;
    if (!library_write([&](Database& database) { return folder_erase(database, folder); })) return false;
  }
  if (!run.changed) return true;
  return library_write([&](Database& database) { return folders_erase_empty(database, run.task.id); });
}

bool walk(Run& run, std::string& ret_why) {
  struct stat state {};
  const bool has_state = stat(run.task.state_folder.c_str(), &state) == 0;
  const Walk how = {
      .stick = run.stick,
      // One byte is reserved, since at a later port the mount point's name can be longer by one.
      .longest_path = kLongestMediaPath - std::min(kLongestMediaPath, run.task.stick.mount_point.size() + 2),
      .avoided_device = has_state ? state.st_dev : 0,
      .avoided_inode = has_state ? state.st_ino : 0,
      .folder = [&](WalkedFolder folder) { compare(run, std::move(folder)); },
      .problem = [&](const std::string& path, const char* why) { leave_out(run, path, why); },
      .ends = [&] { return ends(run); }};
  return walk_stick(how, ret_why);
}

// ---- Reading ----

bool flush(Run& run) {
  if (run.batch.empty()) return true;
  const bool kept = library_write([&](Database& database) {
    return std::ranges::all_of(run.batch, [&](const MediaRow& row) { return row_put(database, row); });
  });
  run.batch.clear();
  tell_counts(run);
  const SteadyTime now = std::chrono::steady_clock::now();
  if (kept && now - run.told >= kTellAfter) {
    run.told = now;
    calls_scan_status(VEXTVAPI_CB_SCAN_PROGRESS);
  }
  return kept;
}

bool keep(Run& run, MediaRow row) {
  const SteadyTime now = std::chrono::steady_clock::now();
  if (run.batch.empty()) run.batch_begin = now;
  run.batch.push_back(std::move(row));
  return (run.batch.size() < kMostWrittenAtOnce && now - run.batch_begin < kWriteAfter) || flush(run);
}

// Opens the file, and reads its size, time and inode again, since they may have changed since the walk. False with
// ret_why: it cannot be read.
bool open_queued(const Run& run, const Queued& queued, FileEnd& ret_file, MediaRow& ret_row, std::string& ret_why) {
  MediaRow row{.stick = run.task.id, .folder = run.folders[queued.folder], .name = queued.file.name};
  const std::string path = row.folder.empty() ? row.name : row.folder + "/" + row.name;
  ret_file.file = usb_open_in(run.stick, path.c_str(), UsbFile::kFile, ret_why);
  struct stat info {};
  if (ret_file.file < 0) return false;
  if (fstat(ret_file.file, &info) != 0) {
    ret_why = std::strerror(errno);
    return false;
  }
  row.size = static_cast<std::uint64_t>(info.st_size);
  row.mtime = std::int64_t{info.st_mtim.tv_sec} * 1'000'000'000 + info.st_mtim.tv_nsec;
  row.inode = info.st_ino;
  ret_row = std::move(row);
  return true;
}

void take_facts(const MediaFacts& facts, MediaRow& ret_row) {
  ret_row.kind = facts.kind;
  ret_row.title = facts.title;
  ret_row.artist = facts.artist;
  ret_row.album = facts.album;
  ret_row.genre = facts.genre;
  ret_row.track = facts.track;
  ret_row.year = facts.year;
  ret_row.duration_ms = facts.duration_ms;
  const bool turned = facts.orientation >= 5;  // by a quarter
  ret_row.width = turned ? facts.height : facts.width;
  ret_row.height = turned ? facts.width : facts.height;
  ret_row.date = date_of(facts.date, ret_row.mtime);
  if (facts.kind == MEDIA_TYPE_NULL) ret_row.problem = "it is neither a photo nor music nor a video";
}

bool ensure_reader(Run& run) {
  if (run.reader != nullptr) return true;
  run.reader = media_reader_create();
  const std::lock_guard guard(run.control.lock);
  run.control.reader = run.reader.get();
  return run.reader != nullptr && !ends(run);
}

void release_reader(Run& run) {
  {
    const std::lock_guard guard(run.control.lock);
    run.control.reader = nullptr;
  }
  run.reader.reset();
}

constexpr const char* kNotWritten = "the library's database cannot be written; see the set's log";

// Reads one file. False with ret_why: the scan fails.
bool read_file(Run& run, const Queued& queued, std::string& ret_why) {
  FileEnd file(-1);
  MediaRow row;
  std::string why;
  const std::string path =
      run.folders[queued.folder].empty() ? queued.file.name : run.folders[queued.folder] + "/" + queued.file.name;
  if (!open_queued(run, queued, file, row, why)) {
    leave_out(run, path, why);
    return true;
  }
  if (run.room <= 0) {
    leave_out(run, path, "the library is full");
    return true;
  }
  if (!ensure_reader(run)) {
    ret_why = "the reader of media files cannot be started";
    return ends(run);
  }
  MediaFacts facts;
  switch (media_reader_facts(*run.reader, file.file, row.name, facts, why)) {
    case ReadResult::kRead:
      take_facts(facts, row);
      break;
    case ReadResult::kRefused:
      row.problem = why;
      row.date = date_of_change(row.mtime);
      break;
    case ReadResult::kCancelled:
      return true;
    case ReadResult::kNoReader:
      ret_why = "the reader of media files cannot be started" + (why.empty() ? "" : ": " + why);
      return ends(run);
  }
  ++run.read;
  ++run.done;
  --run.room;
  if (row.kind == MEDIA_TYPE_NULL) run.tell([](ScanReport& report) { ++report.left_out; });
  if (keep(run, std::move(row))) return true;
  ret_why = kNotWritten;
  return false;
}

// ---- Playlists ----

// The value that all rows have; empty if they differ.
std::string common(const std::vector<MediaRow>& rows, std::string MediaRow::*text) {
  if (rows.empty()) return "";
  const std::string& first = rows.front().*text;
  return std::ranges::all_of(rows, [&](const MediaRow& each) { return each.*text == first; }) ? first : "";
}

bool read_playlist(Run& run, const Queued& queued) {
  FileEnd file(-1);
  MediaRow row;
  std::string why;
  if (!open_queued(run, queued, file, row, why)) {
    leave_out(run, queued.file.name, why);
    return true;
  }
  if (run.room <= 0) {
    leave_out(run, queued.file.name, "the library is full");
    return true;
  }
  const Playlist playlist = playlist_read(file.file, row.folder, run.task.stick.mount_point);
  std::vector<MediaRow> rows;
  {
    const LibraryWriting writing;
    if (writing.database == nullptr) return false;
    rows = playlist_rows(*writing.database, run.task.id, playlist);
  }
  row.kind = MEDIA_TYPE_PLAYLIST;
  row.title = playlist.title;
  row.artist = common(rows, &MediaRow::artist);
  row.date = date_of_change(row.mtime);
  for (const MediaRow& each : rows) row.duration_ms += each.duration_ms;
  ++run.read;
  ++run.done;
  --run.room;
  return keep(run, std::move(row));
}

bool read_playlists(Run& run) {
  // The files that an unchanged playlist names may have changed.
  if (run.changed) {
    std::ranges::move(run.old_playlists, std::back_inserter(run.playlists));
  } else {
    run.done += run.old_playlists.size();
  }
  return std::ranges::all_of(run.playlists, [&](const Queued& each) { return ends(run) || read_playlist(run, each); });
}

ScanEnd run_parts(Run& run) {
  std::string why;
  if (!walk(run, why)) {
    if (!ends(run)) return {.state = ScanState::kFailed, .reason = why};
  } else if (!erase_gone(run)) {
    return {.state = ScanState::kFailed, .reason = kNotWritten};
  }
  if (ends(run)) return {.state = ScanState::kCancelled};
  run.tell([&](ScanReport& report) {
    report.of = run.done + run.queue.size() + run.playlists.size() + run.old_playlists.size();
  });
  run.changed = run.changed || !run.queue.empty();
  for (const Queued& each : run.queue) {
    if (ends(run)) break;
    if (!read_file(run, each, why)) {
      flush(run);
      return {.state = ScanState::kFailed, .reason = why};
    }
  }
  release_reader(run);
  if (!flush(run) || !read_playlists(run) || !flush(run)) return {.state = ScanState::kFailed, .reason = kNotWritten};
  if (ends(run)) return {.state = ScanState::kCancelled};
  const bool kept = library_write([&](Database& database) { return stick_complete(database, run.task.id); });
  tell_counts(run);
  if (!kept) return {.state = ScanState::kFailed, .reason = kNotWritten};
  return {.state = ScanState::kDone};
}

}  // namespace

std::int64_t media_local_date(std::int64_t utc) {
  constexpr std::int64_t kDay = 86400, kFarthestEast = 14 * 3600;
  std::int64_t east = (kDay - clock_local_day(0) % kDay) % kDay;
  if (east > kFarthestEast) east -= kDay;
  const auto local = static_cast<std::time_t>(utc + east);
  std::tm time{};
  gmtime_r(&local, &time);
  return packed_date(time);
}

void scan_stop(ScanControl& control) {
  control.stopped = true;
  const std::lock_guard guard(control.lock);
  if (control.reader != nullptr) media_reader_cancel(*control.reader);
}

bool scan_is_stopped(const ScanControl& control) { return control.stopped; }

ScanEnd scan_run(const ScanTask& task, ScanControl& control, const ScanTell& tell) {
  const FileEnd stick(open(task.stick.folder.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
  if (stick.file < 0) {
    return {.state = ScanState::kFailed, .reason = std::string("it cannot be read: ") + std::strerror(errno)};
  }
  Run run{.task = task, .control = control, .tell = tell, .stick = stick.file};
  {
    const LibraryWriting writing;
    if (writing.database != nullptr) run.room = kMostRows - media_count(*writing.database);
  }
  ScanEnd end = run_parts(run);
  release_reader(run);
  return end;
}
