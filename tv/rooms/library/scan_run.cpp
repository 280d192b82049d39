// Carries out a scan, in three parts. First the walk finds all files, and compares them with the database by size, time
// of change and, where the file system keeps it, inode; unchanged files are not opened. Then the reader reads the
// others, and their facts are written in short transactions. Last come the playlists, since a playlist's duration is
// that of the files that it names.
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <sys/vfs.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <ctime>
#include <map>
#include <set>
#include <span>
#include <system_error>

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
  bool known;  // it has a row
};

struct Run {
  const ScanTask& task;
  ScanControl& control;
  const ScanTell& tell;
  int stick = -1;                         // its folder, opened with O_PATH
  bool inodes = true;                     // the stick's file system keeps inode numbers
  std::vector<std::string> folders = {};  // of the queued files
  std::vector<Queued> queue = {};
  std::vector<Queued> playlists = {};      // those that have changed
  std::vector<Queued> old_playlists = {};  // the others
  std::set<std::string> walked = {};       // folders with media
  std::set<std::string> unread = {};       // folders that could not be read to their end
  std::vector<std::int64_t> gone = {};     // rows of files that are no longer on the stick
  std::int64_t room = 0;                   // how many rows may still be added
  std::vector<MediaRow> batch = {};
  SteadyTime batch_begin = {};
  SteadyTime told = {};
  std::uint64_t done = 0;
  std::uint64_t read = 0;
  bool changed = false;     // files were read, or are gone; also by an earlier scan that did not come to its end
  bool incomplete = false;  // the stick's row says that this one has not
  MediaReaderHandle reader = nullptr;
};

bool ends(const Run& run) { return scan_is_stopped(run.control); }

// The time as 20260323141500.
std::int64_t packed_date(std::tm time) {
  return ((((time.tm_year + 1900LL) * 100 + time.tm_mon + 1) * 100 + time.tm_mday) * 100 + time.tm_hour) * 10000 +
         time.tm_min * 100 + time.tm_sec;
}

std::int64_t date_of_change(std::int64_t mtime) { return media_local_date(mtime / 1'000'000'000); }

std::int64_t date_of(const MediaFacts& facts, std::int64_t mtime) {
  const T_DATE_TIME& date = facts.date;
  if (date.iyear == 0) return date_of_change(mtime);
  std::tm time{};
  time.tm_year = date.iyear - 1900;
  time.tm_mon = date.imonth - 1;
  time.tm_mday = date.iday;
  time.tm_hour = date.ihour;
  time.tm_min = date.iminute;
  time.tm_sec = date.isecond;
  return facts.date_is_utc ? media_local_date(timegm(&time)) : packed_date(time);
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

// Changes the stick's entries in a transaction. From the first one on the stick is incomplete, until the scan's end.
bool change(Run& run, const std::function<bool(Database& database)>& work) {
  const bool kept = library_write([&](Database& database) {
    return (run.incomplete || stick_complete(database, run.task.id, false)) && work(database);
  });
  run.incomplete = run.incomplete || kept;
  return kept;
}

// The same change of each of these, in several short transactions, until the scan is cancelled.
bool change_each(Run& run, const std::vector<std::int64_t>& ids, bool (*work)(Database& database, std::int64_t id)) {
  for (std::size_t i = 0; i < ids.size() && !ends(run); i += kMostErasedAtOnce) {
    const std::span part = std::span(ids).subspan(i, std::min(kMostErasedAtOnce, ids.size() - i));
    const auto all = [&](Database& database) {
      return std::ranges::all_of(part, [&](std::int64_t id) { return work(database, id); });
    };
    if (!change(run, all)) return false;
  }
  return true;
}

// ---- The walk ----

// Compares a folder with the database.
void compare(Run& run, WalkedFolder folder) {
  scan_write_noted();
  run.walked.insert(folder.path);
  if (!folder.whole) run.unread.insert(folder.path);
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
    const bool is_known = found != known.end();
    const bool same = is_known && found->second.size == file.size && found->second.mtime == file.mtime &&
                      found->second.inode == file.inode;
    if (same && found->second.kind == MEDIA_TYPE_NULL) run.tell([](ScanReport& report) { ++report.left_out; });
    if (is_known) known.erase(found);
    if (file.kind == MEDIA_TYPE_PLAYLIST) {
      (same ? run.old_playlists : run.playlists)
          .push_back({.folder = number, .file = std::move(file), .known = is_known});
    } else if (same) {
      ++run.done;
    } else {
      run.queue.push_back({.folder = number, .file = std::move(file), .known = is_known});
    }
  }
  if (folder.whole)
    for (const auto& [name, file] : known) run.gone.push_back(file.id);
  tell_counts(run);
}

// Whether the stick's folder is still the one that was opened, and can be read. A stick that is pulled out may look
// empty: its file system answers from memory, or the mount point below it comes to light.
bool is_there(const Run& run, std::string& ret_why) {
  struct stat opened {};
  struct stat now {};
  if (fstat(run.stick, &opened) != 0 || stat(run.task.stick.folder.c_str(), &now) != 0) {
    ret_why = "it cannot be read any more: " + std::generic_category().message(errno);
    return false;
  }
  if (opened.st_dev != now.st_dev || opened.st_ino != now.st_ino) {
    ret_why = "it cannot be read any more: another folder is in its place";
    return false;
  }
  constexpr const char* kDevices = "/sys/dev/block/";
  const std::string device = kDevices + std::to_string(major(now.st_dev)) + ":" + std::to_string(minor(now.st_dev));
  if (major(now.st_dev) != 0 && access(kDevices, F_OK) == 0 && access(device.c_str(), F_OK) != 0) {
    ret_why = "it cannot be read any more: its device is gone";
    return false;
  }
  return true;
}

// Whether the walk could not say what is in the folder.
bool is_unread(const Run& run, std::string path) {
  while (!run.unread.contains(path)) {
    if (path.empty()) return false;
    const std::size_t slash = path.rfind('/');
    path.resize(slash == std::string::npos ? 0 : slash);
  }
  return true;
}

// Erases folders that are empty, and takes those without media from the lists.
bool tidy_folders(Run& run) {
  std::vector<FolderRow> folders;
  {
    const LibraryWriting writing;
    if (writing.database == nullptr) return false;
    folders = folders_all(*writing.database, run.task.id);
  }
  // From the deepest up, since a folder is empty when its last subfolder is gone.
  std::ranges::sort(folders, std::greater(), [](const FolderRow& each) { return each.path.size(); });
  std::vector<std::int64_t> ids;
  for (const FolderRow& each : folders) ids.push_back(each.id);
  return change_each(run, ids, folder_tidy);
}

// Erases the rows of files and folders that the walk has not found.
bool erase_gone(Run& run) {
  std::vector<FolderRow> folders;
  {
    const LibraryWriting writing;
    if (writing.database == nullptr) return false;
    folders = folders_all(*writing.database, run.task.id);
  }
  for (const FolderRow& folder : folders) {
    if (ends(run)) return true;
    if (run.walked.contains(folder.path) || is_unread(run, folder.path)) continue;
    const LibraryWriting writing;  // for each folder, so that a viewer's favourites are written in between
    if (writing.database == nullptr) return false;
    for (const KnownFile& file : rows_known(*writing.database, folder.id)) run.gone.push_back(file.id);
  }
  if (run.gone.empty()) return true;
  run.changed = true;
  return change_each(run, run.gone, row_erase) && tidy_folders(run);
}

// Has the sticks that were inserted least recently forgotten, until the new files have room; those that are inserted
// now stay. False: the database cannot be written.
bool make_room(Run& run) {
  const auto is_new = [](const Queued& each) { return !each.known; };
  const std::int64_t files = std::ranges::count_if(run.queue, is_new) + std::ranges::count_if(run.playlists, is_new);
  while (!ends(run)) {
    const std::vector<std::string> inserted = scan_inserted();
    std::int64_t goes = 0;
    {
      const LibraryWriting writing;
      if (writing.database == nullptr) return false;
      run.room = library_limits.rows - media_count(*writing.database);
      if (run.room >= files) return true;
      for (const StickRow& each : sticks_by_age(*writing.database)) {
        const bool dropped = each.folder.starts_with(kDroppedStick);
        if (dropped || (goes == 0 && std::ranges::find(inserted, each.folder) == inserted.end())) goes = each.id;
        if (dropped) break;  // nobody sees its rows any more, so they go first
      }
    }
    if (goes == 0) return true;
    const bool kept = library_write([&](Database& database) {
      return stick_drop(database, goes) && stick_erase_some(database, goes, kMostErasedAtOnce);
    });
    if (!kept) return false;
  }
  return true;
}

bool walk(Run& run, std::string& ret_why) {
  struct stat state {};
  const bool has_state = stat(run.task.state_folder.c_str(), &state) == 0;
  const Walk how = {
      .stick = run.stick,
      // One byte is reserved, since at a later port the mount point's name can be longer by one.
      .longest_path = kLongestMediaPath - std::min(kLongestMediaPath, run.task.stick.mount_point.size() + 2),
      .inodes = run.inodes,
      .avoided_device = has_state ? state.st_dev : 0,
      .avoided_inode = has_state ? state.st_ino : 0,
      .folder = [&](WalkedFolder folder) { compare(run, std::move(folder)); },
      .problem = [&](const std::string& path, const std::string& why) { leave_out(run, path, why); },
      .ends = [&] { return ends(run); }};
  return walk_stick(how, ret_why);
}

// ---- Reading ----

bool flush(Run& run) {
  scan_write_noted();
  if (run.batch.empty()) return true;
  const bool kept = change(run, [&](Database& database) {
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

std::string path_of(const Run& run, const Queued& queued) {
  const std::string& folder = run.folders[queued.folder];
  return folder.empty() ? queued.file.name : folder + "/" + queued.file.name;
}

// Opens the file, and reads its size, time and inode again, since they may have changed since the walk. False with
// ret_why: it cannot be read, or the database has no room for it.
bool open_queued(const Run& run, const Queued& queued, FileEnd& ret_file, MediaRow& ret_row, std::string& ret_why) {
  if (!queued.known && run.room <= 0) {
    ret_why = "the library is full";
    return false;
  }
  MediaRow row{.stick = run.task.id, .folder = run.folders[queued.folder], .name = queued.file.name};
  ret_file.file = usb_open_in(run.stick, path_of(run, queued).c_str(), UsbFile::kFile, ret_why);
  struct stat info {};
  if (ret_file.file < 0) return false;
  if (fstat(ret_file.file, &info) != 0) {
    ret_why = std::generic_category().message(errno);
    return false;
  }
  row.size = static_cast<std::uint64_t>(info.st_size);
  row.mtime = media_time(info.st_mtim);
  row.inode = run.inodes ? info.st_ino : 0;
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
  ret_row.date = date_of(facts, ret_row.mtime);
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

// Leaves the file out, unless the whole stick is gone: then the scan fails. False with ret_why.
bool miss(Run& run, const std::string& path, const std::string& why, std::string& ret_why) {
  if (!is_there(run, ret_why)) return ends(run);
  leave_out(run, path, why);
  ++run.done;
  return true;
}

constexpr const char* kNotWritten = "the library's database cannot be written; see the set's log";

// Reads one file. False with ret_why: the scan fails.
bool read_file(Run& run, const Queued& queued, std::string& ret_why) {
  FileEnd file(-1);
  MediaRow row;
  std::string why;
  const std::string path = path_of(run, queued);
  if (!open_queued(run, queued, file, row, why)) return miss(run, path, why, ret_why);
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
    case ReadResult::kFailed:
      return miss(run, path, why, ret_why);  // it gets no row, so the next scan tries again
    case ReadResult::kCancelled:
      return true;
    case ReadResult::kNoReader:
      ret_why = "the reader of media files cannot be started" + (why.empty() ? "" : ": " + why);
      return ends(run);
  }
  if (row.kind != MEDIA_TYPE_PHOTO && media_is_unsupported(row.name)) {
    row.kind = MEDIA_TYPE_NULL;  // FFmpeg may take it for a video of one picture
    row.problem = "photos of this format are not supported";
  }
  ++run.read;
  ++run.done;
  if (!queued.known) --run.room;
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

// As read_file.
bool read_playlist(Run& run, const Queued& queued, std::string& ret_why) {
  FileEnd file(-1);
  MediaRow row;
  std::string why;
  const std::string path = path_of(run, queued);
  if (!open_queued(run, queued, file, row, why)) return miss(run, path, why, ret_why);
  const Playlist playlist = playlist_read(file.file, row.folder, run.task.stick.mount_point);
  if (!playlist.whole) return miss(run, path, "it cannot be read", ret_why);
  std::vector<MediaRow> rows;
  {
    const LibraryWriting writing;
    if (writing.database == nullptr) {
      ret_why = kNotWritten;
      return false;
    }
    rows = playlist_rows(*writing.database, run.task.id, playlist);
  }
  row.kind = MEDIA_TYPE_PLAYLIST;
  row.title = playlist.title;
  row.artist = common(rows, &MediaRow::artist);
  row.date = date_of_change(row.mtime);
  for (const MediaRow& each : rows) row.duration_ms += each.duration_ms;
  ++run.read;
  ++run.done;
  if (!queued.known) --run.room;
  if (keep(run, std::move(row))) return true;
  ret_why = kNotWritten;
  return false;
}

bool read_playlists(Run& run, std::string& ret_why) {
  // The files that an unchanged playlist names may have changed.
  if (run.changed) {
    std::ranges::move(run.old_playlists, std::back_inserter(run.playlists));
  } else {
    run.done += run.old_playlists.size();
  }
  return std::ranges::all_of(run.playlists,
                             [&](const Queued& each) { return ends(run) || read_playlist(run, each, ret_why); });
}

ScanEnd run_parts(Run& run) {
  std::string why;
  if (!walk(run, why) || !is_there(run, why)) {
    if (!ends(run)) return {.state = ScanState::kFailed, .reason = why};
  } else if (!erase_gone(run) || !make_room(run)) {
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
  if (!flush(run)) return {.state = ScanState::kFailed, .reason = kNotWritten};
  if (!read_playlists(run, why)) {
    flush(run);
    return {.state = ScanState::kFailed, .reason = why};
  }
  if (!flush(run) || (run.changed && !tidy_folders(run))) return {.state = ScanState::kFailed, .reason = kNotWritten};
  if (ends(run)) return {.state = ScanState::kCancelled};
  if (!is_there(run, why)) return {.state = ScanState::kFailed, .reason = why};
  const bool kept = library_write([&](Database& database) { return stick_complete(database, run.task.id, true); });
  tell_counts(run);
  if (!kept) return {.state = ScanState::kFailed, .reason = kNotWritten};
  return {.state = ScanState::kDone};
}

}  // namespace

std::int64_t media_local_date(std::int64_t utc) {
  const auto local = static_cast<std::time_t>(utc + clock_offset_at(utc));
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
    return {.state = ScanState::kFailed, .reason = "it cannot be read: " + std::generic_category().message(errno)};
  }
  struct statfs system {};
  const bool inodes = fstatfs(stick.file, &system) == 0 && keeps_inodes(system.f_type);
  Run run{
      .task = task, .control = control, .tell = tell, .stick = stick.file, .inodes = inodes, .changed = !task.complete};
  ScanEnd end = run_parts(run);
  release_reader(run);
  return end;
}
