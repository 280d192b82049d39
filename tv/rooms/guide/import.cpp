// Imports an XMLTV file. Everything happens in one transaction, so an import that fails or is cancelled changes
// nothing.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <limits>
#include <optional>
#include <system_error>
#include <unordered_map>
#include <utility>

#include "base/text.h"
#include "rooms/clock/clock.h"
#include "rooms/guide/parts.h"
#include "rooms/guide/words.h"
#include "rooms/guide/xmltv.h"

namespace {

struct Progress {
  std::mutex lock;  // guards the report; no other lock is taken under it
  ImportReport report;
};
Progress& progress = *new Progress;

template <typename Change>
void report_change(Change change) {
  const std::lock_guard guard(progress.lock);
  change(progress.report);
}

// A channel of the set that the file has events for.
struct Target {
  std::int64_t channel = 0;
  bool has_broadcast = false;
  std::optional<GuideSpan> covered = {};  // the time from the first to the last of the file's events
  std::optional<GuideRow> open = {};      // an event whose end is the next one's beginning
};

struct Import {
  Database& database;
  std::int64_t number = 0;
  std::int64_t now = 0;
  std::int64_t room = 0;
  GuideChanges changes = {};
  bool refused = false;  // by the database
  std::string error = {};
  std::vector<Target> targets = {};
  std::unordered_map<std::string, std::vector<std::size_t>> channels = {};       // by XMLTV id: places in targets
  std::unordered_map<std::string, std::vector<std::int64_t>> by_name = {};       // channels of the set
  std::unordered_map<std::string, std::int64_t> by_number = {}, by_viewer = {};  // by_viewer: by XMLTV id
  ImportReport count = {};
};

struct FileEnd {
  int file;
  ~FileEnd() {
    if (file >= 0) close(file);
  }
};

// The name without spaces and in lower case.
std::string plain_name(std::string_view name) {
  std::string plain;
  for (const char c : name)
    if (c != ' ') plain += ascii_lower(c);
  return plain;
}

void read_channels(Import& import) {
  for (const Channel& channel : channels_all()) {
    std::vector<std::int64_t>& named = import.by_name[plain_name(channel.name)];
    if (const std::int64_t key = packed(channel.key); std::ranges::find(named, key) == named.end())
      named.push_back(key);
    import.by_number.try_emplace(std::to_string(channel.number), packed(channel.key));
  }
  for (const GuideMapping& mapping : mappings_read(import.database)) import.by_viewer[mapping.xmltv] = mapping.channel;
}

// The set's channels that an XMLTV channel is: as the viewer said, else by its names, else by a number among them.
std::vector<std::int64_t> matches(const Import& import, const XmltvChannel& channel) {
  if (const auto said = import.by_viewer.find(channel.id); said != import.by_viewer.end()) return {said->second};
  for (const std::string& name : channel.names)
    if (const auto named = import.by_name.find(plain_name(name)); named != import.by_name.end()) return named->second;
  for (const std::string& name : channel.names)
    if (const auto numbered = import.by_number.find(name); numbered != import.by_number.end())
      return {numbered->second};
  return {};
}

// Makes the XMLTV channel known, once. A channel of the set takes its events from the first XMLTV channel that fits.
const std::vector<std::size_t>& add_channel(Import& import, const XmltvChannel& channel) {
  const auto [place, is_new] = import.channels.try_emplace(channel.id);
  if (!is_new) return place->second;
  for (const std::int64_t key : matches(import, channel)) {
    if (std::ranges::find(import.targets, key, &Target::channel) != import.targets.end()) continue;
    place->second.push_back(import.targets.size());
    import.targets.push_back({.channel = key, .has_broadcast = rows_have_broadcast(import.database, key)});
  }
  if (!place->second.empty()) {
    ++import.count.matched;
  } else {
    ++import.count.unmatched;
    const std::string& name = channel.names.empty() ? channel.id : channel.names.front();
    if (import.count.unmatched_names.size() < kMostListed)
      import.count.unmatched_names.push_back(name == channel.id ? name : channel.id + " (" + name + ")");
  }
  return place->second;
}

void note_problem(Import& import, const XmltvProgramme& programme, const std::string& why) {
  ++import.count.troubles;
  if (import.count.problems.size() < kMostListed)
    import.count.problems.push_back("line " + std::to_string(programme.line) + ": " + why);
}

bool has_broadcast_at(Database& database, const GuideRow& row) {
  bool found = false;
  briefs_of_channel(database, row.channel, row.start, row.stop, [&](const GuideBrief& brief) {
    found = brief.rank != GuideRank::kImported;
    return !found;
  });
  return found;
}

// Stores the event, unless a broadcast has one for its time. An event that was imported before keeps its identifier.
bool store(Import& import, Target& target, GuideRow row) {
  GuideSpan& covered = target.covered ? *target.covered : target.covered.emplace(GuideSpan{row.start, row.stop});
  covered = {std::min(covered.from, row.start), std::max(covered.to, row.stop)};
  if (row.stop <= import.now - kKeptAfterEnd || row.start >= import.now + kFarthestStart) {
    ++import.count.past;
    return true;
  }
  if (target.has_broadcast && has_broadcast_at(import.database, row)) {
    ++import.count.kept;
    return true;
  }
  const auto before = brief_starting(import.database, row.channel, row.start);
  if (!before && import.changes.added >= import.room) {
    import.error = "the guide would have more than " + std::to_string(kMostEvents) + " events";
    return false;
  }
  const auto id = before ? before->id : free_identifier(import.database, row.channel, row.start);
  if (!id) return true;
  row.id = *id;
  row.import = import.number;
  if (!row_put(import.database, row)) {
    import.refused = true;
    return false;
  }
  if (!before) ++import.changes.added;
  note_change(import.changes, row.channel, row.start, row.stop);
  ++import.count.events;
  return true;
}

// Stores the event whose end was not given: it ends at `end`, if that is possible.
bool close_open(Import& import, Target& target, std::optional<std::int64_t> end) {
  if (!target.open) return true;
  GuideRow row = std::move(*target.open);
  target.open.reset();
  const bool fits = end && *end > row.start && *end - row.start <= kLongestEventTime;
  row.stop = fits ? *end : row.start + kUnknownDuration;
  return store(import, target, std::move(row));
}

bool take_programme(Import& import, const XmltvProgramme& programme) {
  const auto known = import.channels.find(programme.channel);
  if (known == import.channels.end() && import.channels.size() >= kMostXmltvChannels) {
    note_problem(import, programme, "the file has more than " + std::to_string(kMostXmltvChannels) + " channels");
    return true;
  }
  const std::vector<std::size_t>& places =
      known != import.channels.end() ? known->second : add_channel(import, {.id = programme.channel});
  if (places.empty()) return true;

  const auto start = xmltv_time(programme.start);
  const std::int64_t stop = programme.stop.empty() ? 0 : xmltv_time(programme.stop).value_or(-1);  // 0: not given
  constexpr std::int64_t kFarthest = std::numeric_limits<std::uint32_t>::max();                    // the TV API's times
  if (!start || *start <= 0 || *start > kFarthest - kLongestEventTime) {
    note_problem(import, programme, "the start " + std::string(programme.start) + " is not a time");
    return true;
  }
  if (stop != 0 && (stop <= *start || stop - *start > kLongestEventTime)) {
    note_problem(import, programme,
                 stop > 0 ? "the event does not end within 24 hours after its start"
                          : "the stop " + std::string(programme.stop) + " is not a time");
    return true;
  }
  for (const std::size_t place : places) {
    Target& target = import.targets[place];
    if (!close_open(import, target, start)) return false;
    GuideRow row = {.channel = target.channel,
                    .start = *start,
                    .stop = stop,
                    .captions = programme.captions,
                    .age = programme.age,
                    .categories = pack_categories(programme.categories),
                    .title = programme.title,
                    .summary = programme.summary,
                    .details = programme.details,
                    .series = programme.series};
    if (stop == 0) {
      target.open = std::move(row);
    } else if (!store(import, target, std::move(row))) {
      return false;
    }
  }
  return true;
}

// Removes what earlier imports had for the time that this one covers.
bool finish(Import& import) {
  for (Target& target : import.targets) {
    if (!close_open(import, target, std::nullopt)) return false;
    if (target.covered &&
        !rows_erase_imported(import.database, target.channel, *target.covered, import.number, import.changes)) {
      import.refused = true;
      return false;
    }
  }
  return true;
}

// A regular file that can be read; -1 with ret_error.
int open_file(const std::string& path, std::uint64_t& ret_size, std::string& ret_error) {
  const int file = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);  // a FIFO must not block the thread
  struct stat info {};
  if (file >= 0 && fstat(file, &info) == 0 && S_ISREG(info.st_mode) && info.st_size <= kLongestFile) {
    ret_size = static_cast<std::uint64_t>(info.st_size);
    return file;
  }
  if (file < 0) {
    ret_error = path + ": " + std::generic_category().message(errno);
  } else {
    ret_error = path + (S_ISREG(info.st_mode) ? " is longer than 4 GiB" : " is not a regular file");
    close(file);
  }
  return -1;
}

void publish(const Import& import, std::uint64_t bytes) {
  report_change([&](ImportReport& report) {
    report.bytes = bytes;
    report.events = import.count.events;
    report.matched = import.count.matched;
    report.unmatched = import.count.unmatched;
    report.past = import.count.past;
    report.kept = import.count.kept;
    report.troubles = import.count.troubles;
    report.unmatched_names = import.count.unmatched_names;
    report.problems = import.count.problems;
  });
}

}  // namespace

ImportReport import_report() {
  const std::lock_guard guard(progress.lock);
  return progress.report;
}

void import_forget() {
  report_change([](ImportReport& report) { report = {}; });
}

void import_begin(const std::string& path) {
  report_change([&](ImportReport& report) {
    report = {.path = path, .state = "running", .begin = std::chrono::steady_clock::now()};
  });
}

void import_end(const std::string& state, const std::string& error) {
  report_change([&](ImportReport& report) {
    report.state = state;
    report.error = error;
    report.end = std::chrono::steady_clock::now();
  });
}

bool import_run(Database& database, const std::string& path, std::int64_t room, const std::atomic<bool>& cancelled,
                GuideChanges& ret_changes, std::string& ret_error) {
  std::uint64_t size = 0;
  const FileEnd opened{open_file(path, size, ret_error)};
  if (opened.file < 0) return false;
  report_change([&](ImportReport& report) { report.size = size; });

  Import import{.database = database, .number = rows_latest_import(database) + 1, .now = clock_utc(), .room = room};
  read_channels(import);
  std::uint64_t read = 0;
  const XmltvUser user = {
      .channel =
          [&](const XmltvChannel& channel) {
            if (import.channels.size() < kMostXmltvChannels) add_channel(import, channel);
          },
      .programme = [&](const XmltvProgramme& programme) { return !cancelled && take_programme(import, programme); },
      .read =
          [&](std::uint64_t bytes) {
            constexpr std::uint64_t kStep = 1 << 20;
            if (bytes / kStep != read / kStep) publish(import, bytes);
            read = bytes;
            return !cancelled && bytes <= static_cast<std::uint64_t>(kLongestFile);
          }};
  const XmltvEnd end = xmltv_read(opened.file, guide_taste().language, user, ret_error);
  const bool done = end == XmltvEnd::kWhole && finish(import);
  publish(import, read);
  if (!done) {
    if (end != XmltvEnd::kFailed) ret_error = import.error;
    return false;
  }
  ret_changes = std::move(import.changes);
  return true;
}
