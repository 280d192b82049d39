// The command "media", which people and the page use. Every list in a reply has a limit.
#include <absl/strings/escaping.h>

#include <algorithm>
#include <boost/json.hpp>
#include <fstream>
#include <iterator>
#include <map>

#include "base/text.h"
#include "core/reply.h"
#include "core/room.h"
#include "rooms/library/parts.h"

namespace {

constexpr std::int64_t kMostListed = 200;  // entries of a reply
constexpr std::int64_t kUsuallyListed = 50;
constexpr std::size_t kMostThumbnailsAsked = 24;
constexpr std::uint32_t kThumbnailWidth = 320, kThumbnailHeight = 180;
constexpr std::size_t kLongestSearch = 200;  // bytes
constexpr std::int64_t kFarthestIndex = 1'000'000;

struct Kind {
  std::string_view name;
  E_MEDIA_TYPE kind;
};
constexpr Kind kKinds[] = {{"photo", MEDIA_TYPE_PHOTO},   {"music", MEDIA_TYPE_MUSIC},
                           {"video", MEDIA_TYPE_VIDEO},   {"playlist", MEDIA_TYPE_PLAYLIST},
                           {"folder", MEDIA_TYPE_FOLDER}, {"all", MEDIA_TYPE_NULL}};

std::string_view name_of(E_MEDIA_TYPE kind) {
  const auto* const found = std::ranges::find(kKinds, kind, &Kind::kind);
  return found == std::end(kKinds) ? "other" : found->name;
}

// ---- Counts of a stick, which are kept until the library changes, since counting reads a whole index ----

struct Counted {
  std::uint64_t changes = 0;
  KindCounts counts = {};
};
struct Counts {
  std::mutex lock;
  std::map<std::string, Counted> by_folder;  // of inserted sticks
};
Counts& counts = *new Counts;

KindCounts counts_of(const UsbStick& stick) {
  const std::uint64_t changes = library_changes();
  {
    const std::lock_guard guard(counts.lock);
    const auto known = counts.by_folder.find(stick.folder);
    if (known != counts.by_folder.end() && known->second.changes == changes) return known->second.counts;
    if (counts.by_folder.size() > kMostSticks) counts.by_folder.clear();
  }
  KindCounts found;
  {
    const LibraryReading reading;
    const auto row = reading.database == nullptr ? std::nullopt : stick_find(*reading.database, stick.folder);
    if (row) found = kind_counts(*reading.database, row->id);
  }
  const std::lock_guard guard(counts.lock);
  counts.by_folder[stick.folder] = {.changes = changes, .counts = found};
  return found;
}

// ---- Replies ----

// 20260323141500 as "2026-03-23T14:15:00": a camera's local time, without a zone.
std::string date_shown(std::int64_t packed) {
  std::string digits = std::to_string(packed);
  if (digits.size() != 14) return "";
  return digits.substr(0, 4) + "-" + digits.substr(4, 2) + "-" + digits.substr(6, 2) + "T" + digits.substr(8, 2) + ":" +
         digits.substr(10, 2) + ":" + digits.substr(12, 2);
}

boost::json::object item_shown(const MediaItem& item) {
  const MediaRow& row = item.row;
  boost::json::object shown{{"path", item.path}, {"name", row.name}, {"kind", name_of(row.kind)}};
  if (row.kind == MEDIA_TYPE_FOLDER) return shown;
  shown["title"] = row.title.empty() ? row.name : row.title;
  for (const auto& [key, text] :
       {std::pair("artist", &row.artist), std::pair("album", &row.album), std::pair("genre", &row.genre),
        std::pair("track", &row.track), std::pair("year", &row.year)})
    if (!text->empty()) shown[key] = *text;
  if (row.duration_ms != 0) shown["duration"] = static_cast<double>(row.duration_ms) / 1000;
  if (row.width != 0) shown["width"] = row.width;
  if (row.height != 0) shown["height"] = row.height;
  shown["size"] = row.size;
  shown["date"] = date_shown(row.date);
  shown["favourite"] = row.favourite;
  return shown;
}

boost::json::object list_shown(const std::vector<MediaItem>& items, std::int64_t total, std::int64_t index) {
  boost::json::array entries;
  for (const MediaItem& each : items) entries.push_back(item_shown(each));
  return {{"total", total}, {"index", index}, {"entries", std::move(entries)}};
}

std::int64_t scan_seconds(const ScanReport& report) {
  const auto end = report.state == "running" ? std::chrono::steady_clock::now() : report.end;
  return std::max<std::int64_t>(std::chrono::duration_cast<std::chrono::seconds>(end - report.begin).count(), 0);
}

boost::json::object scan_shown(const ScanReport& report) {
  const bool over = report.state == "done";
  const double progress = over ? 1.0
                          : report.of == 0
                              ? 0.0
                              : std::min(1.0, static_cast<double>(report.files) / static_cast<double>(report.of));
  boost::json::object shown{{"state", report.state},
                            {"files", report.files},
                            {"of", report.of},
                            {"progress", progress},
                            {"read", report.read},
                            {"left_out", report.left_out},
                            {"percent", static_cast<std::int64_t>(progress * 100)},
                            {"seconds", scan_seconds(report)}};
  if (!report.reason.empty()) shown["reason"] = report.reason;
  return shown;
}

boost::json::object stick_shown(const UsbStick& stick) {
  const KindCounts found = counts_of(stick);
  return {{"device", stick.device},
          {"label", stick.label},
          {"path", stick.mount_point},
          {"photos", found.files[MEDIA_TYPE_PHOTO]},
          {"music", found.files[MEDIA_TYPE_MUSIC]},
          {"videos", found.files[MEDIA_TYPE_VIDEO]},
          {"playlists", found.files[MEDIA_TYPE_PLAYLIST]},
          {"folders", found.files[MEDIA_TYPE_FOLDER]},
          {"bytes", found.bytes},
          {"scan", scan_shown(scan_report(stick))}};
}

boost::json::object all_sticks() {
  boost::json::array sticks;
  for (const UsbStick& each : usb_sticks()) sticks.push_back(stick_shown(each));
  return {{"sticks", std::move(sticks)}};
}

// ---- Arguments ----

// Finds an inserted stick by its device, the last part of that, its label, its mount point or its folder.
std::optional<UsbStick> stick_named(std::string_view word, std::string& ret_why) {
  std::vector<UsbStick> found = usb_sticks();
  std::erase_if(found, [&](const UsbStick& each) {
    return word != each.device && "/dev/" + std::string(word) != each.device && word != each.label &&
           word != each.mount_point && word != each.folder;
  });
  if (found.size() == 1) return std::move(found[0]);
  ret_why = found.empty() ? "there is no stick " + quoted(word) + "; media shows them"
                          : quoted(word) + " means more than one stick; use its device, as in /dev/sda1";
  return std::nullopt;
}

const Kind* kind_named(std::string_view word) {
  const auto* const found = std::ranges::find(kKinds, word, &Kind::name);
  return found == std::end(kKinds) ? nullptr : found;
}

std::string all_kinds() {
  std::string text;
  for (const Kind& each : kKinds) text += (text.empty() ? "" : ", ") + std::string(each.name);
  return text;
}

std::string all_sorts() {
  std::string text;
  for (const ListSort& each : list_sorts()) text += (text.empty() ? "" : ", ") + std::string(each.name);
  return text + "; with a - in front backwards";
}

// The number of the order with this name; nothing: there is none.
std::optional<INT32> sort_named(std::string_view word) {
  if (word == "set") return VEXTVAPI_CB_SORT_SET;
  const bool down = word.starts_with('-');
  if (down) word.remove_prefix(1);
  const auto sorts = list_sorts();
  const auto found = std::ranges::find(sorts, word, &ListSort::name);
  if (found == sorts.end()) return std::nullopt;
  return found->number + (down ? VEXTVAPI_CB_SORT_DESCENDING : 0);
}

struct Range {
  std::int64_t index = 0;
  std::int64_t count = kUsuallyListed;
};

// Reads an index and a number of entries; both words are optional.
bool read_range(std::string_view command, Arguments words, Range& ret_range, boost::json::object& ret_error) {
  Range range;
  if (!words.empty()) {
    const auto index = parse_number_within<std::int64_t>(words[0], 0, kFarthestIndex);
    if (!index) {
      ret_error = reply_takes(command, "an index from 0", words[0]);
      return false;
    }
    range.index = *index;
  }
  if (words.size() > 1) {
    const auto count = parse_number_within<std::int64_t>(words[1], 1, kMostListed);
    if (!count) {
      ret_error = reply_takes(command, "1 to " + std::to_string(kMostListed) + " entries", words[1]);
      return false;
    }
    range.count = *count;
  }
  ret_range = range;
  return true;
}

// ---- The parts of the command ----

boost::json::object list(Arguments words) {
  if (words.size() < 2 || words.size() > 5)
    return reply_error("media list takes a kind, a path, and then an order, an index and a number of entries");
  const Kind* const kind = kind_named(words[0]);
  if (kind == nullptr) return reply_takes("media list", all_kinds(), words[0]);
  const auto sort = words.size() > 2 ? sort_named(words[2]) : std::optional<INT32>(VEXTVAPI_CB_SORT_NAME);
  if (!sort) return reply_takes("media list KIND PATH", all_sorts(), words[2]);
  Range range;
  boost::json::object error;
  if (!read_range("media list", words.subspan(std::min<std::size_t>(3, words.size())), range, error)) return error;
  const MediaList wanted{.path = words[1], .kind = kind->kind, .all = kind->kind == MEDIA_TYPE_NULL, .sort = *sort};
  std::vector<MediaItem> items;
  std::int64_t total = 0;
  std::string why;
  if (!media_list(wanted, range.index, range.count, items, &total, why)) return reply_error(why);
  return list_shown(items, total, range.index);
}

boost::json::object search(Arguments words) {
  if (words.empty() || words.size() > 4 || words[0].empty() || words[0].size() > kLongestSearch || !is_utf8(words[0]))
    return reply_error("media search takes a text of 1 to " + std::to_string(kLongestSearch) +
                       " bytes, and then a kind, an index and a number of entries");
  std::optional<E_MEDIA_TYPE> wanted;
  if (words.size() > 1) {
    const Kind* const kind = kind_named(words[1]);
    if (kind == nullptr || kind->kind == MEDIA_TYPE_FOLDER)
      return reply_takes("media search TEXT", "photo, music, video, playlist or all", words[1]);
    if (kind->kind != MEDIA_TYPE_NULL) wanted = kind->kind;
  }
  Range range;
  boost::json::object error;
  if (!read_range("media search", words.subspan(std::min<std::size_t>(2, words.size())), range, error)) return error;
  std::vector<MediaItem> items;
  std::int64_t total = 0;
  std::string why;
  if (!media_search(words[0], wanted, range.index, range.count, items, total, why)) return reply_error(why);
  return list_shown(items, total, range.index);
}

boost::json::object scan(Arguments words) {
  if (words.empty() || words.size() > 2 || (words.size() == 2 && words[1] != "cancel"))
    return reply_error("media scan takes a stick, and cancel to end its scan");
  std::string why;
  const auto stick = stick_named(words[0], why);
  if (!stick) return reply_error(why);
  why = words.size() == 2 ? scan_cancel(*stick) : scan_begin(*stick);
  if (!why.empty()) return reply_error(why);
  boost::json::object answer = stick_shown(*stick);
  if (words.size() == 1) {
    reply_watch(answer, {.words = {"media", "stick", stick->device},
                         .member = "scan",
                         .cancel = {"media", "scan", stick->device, "cancel"},
                         .shows = {"files", "of"}});
  }
  return answer;
}

boost::json::object one_stick(Arguments words) {
  if (words.size() != 1) return reply_error("media stick takes a stick");
  std::string why;
  const auto stick = stick_named(words[0], why);
  return stick ? stick_shown(*stick) : reply_error(why);
}

void add_problems(const UsbStick& stick, boost::json::array& ret_problems) {
  const ScanReport report = scan_report(stick);
  for (const MediaProblem& each : report.problems) ret_problems.push_back({{"path", each.path}, {"why", each.why}});
  const LibraryReading reading;
  const auto row = reading.database == nullptr ? std::nullopt : stick_find(*reading.database, stick.folder);
  if (!row) return;
  for (const MediaRow& each : refused_rows(*reading.database, row->id, kMostProblems))
    ret_problems.push_back({{"path", media_path(stick, each.folder, each.name)}, {"why", each.problem}});
}

boost::json::object problems(Arguments words) {
  if (words.size() > 1) return reply_error("media problems takes a stick or no other word");
  std::vector<UsbStick> sticks = usb_sticks();
  if (!words.empty()) {
    std::string why;
    const auto stick = stick_named(words[0], why);
    if (!stick) return reply_error(why);
    sticks = {*stick};
  }
  boost::json::array found;
  for (const UsbStick& each : sticks) add_problems(each, found);
  const std::size_t all = found.size();
  if (found.size() > kMostProblems) found.resize(kMostProblems);
  return {{"problems", std::move(found)}, {"more", all > kMostProblems}};
}

boost::json::object thumbnails(Arguments words) {
  if (words.empty() || words.size() > kMostThumbnailsAsked)
    return reply_error("media thumbnails takes 1 to " + std::to_string(kMostThumbnailsAsked) + " paths");
  boost::json::array shown;
  for (const std::string_view path : words) {
    const ThumbnailAnswer answer = thumbnail_ask(path, kThumbnailWidth, kThumbnailHeight);
    boost::json::object each{{"path", path}};
    if (answer.state == ThumbnailAnswer::State::kMade) {
      std::ifstream file(answer.path, std::ios::binary);
      const std::string jpeg{std::istreambuf_iterator<char>(file), {}};
      each["jpeg"] = absl::Base64Escape(jpeg);
    } else if (answer.state == ThumbnailAnswer::State::kPending) {
      each["pending"] = true;
    } else {
      each["none"] = answer.why;
    }
    shown.push_back(std::move(each));
  }
  return {{"thumbnails", std::move(shown)}};
}

boost::json::object favourite(Arguments words) {
  if (words.size() != 2 || (words[1] != "on" && words[1] != "off"))
    return reply_error("media favourite takes the path of a file, and on or off");
  const auto place = media_place(words[0]);
  if (!place) return reply_error(quoted(words[0]) + " is not on an inserted stick");
  const bool on = words[1] == "on";
  std::optional<MediaRow> row;
  const bool kept = library_write([&](Database& database) {
    row = media_row(database, *place);
    return !row || row_set_favourite(database, row->id, on);
  });
  if (!kept) return reply_not_kept();
  if (!row) return reply_error(quoted(words[0]) + " is not in the library; a scan may still find it");
  row->favourite = on;
  std::string path = media_path(place->stick, row->folder, row->name);
  return item_shown({.row = std::move(*row), .path = std::move(path)});
}

boost::json::object jump(Arguments words) {
  if (words.size() > 1 || (words.size() == 1 && words[0] != "on" && words[0] != "off"))
    return reply_takes("media jump", "on or off", words.back());
  if (!words.empty() && !set_may_jump(words[0] == "on")) return reply_not_kept();
  return {{"jump", may_jump()}};
}

}  // namespace

boost::json::object library_scan_state(const UsbStick& stick) { return scan_shown(scan_report(stick)); }

boost::json::object media_command(std::span<const std::string_view> arguments) {
  struct Part {
    std::string_view name;
    boost::json::object (*run)(Arguments words);
  };
  constexpr Part kParts[] = {{"list", list},           {"search", search},     {"scan", scan},
                             {"stick", one_stick},     {"problems", problems}, {"thumbnails", thumbnails},
                             {"favourite", favourite}, {"jump", jump}};
  if (arguments.empty()) return all_sticks();
  const auto* const part = std::ranges::find(kParts, arguments[0], &Part::name);
  if (part != std::end(kParts)) return part->run(arguments.subspan(1));
  return reply_takes("media", "list, search, scan, stick, problems, thumbnails, favourite, jump or no other word",
                     arguments[0]);
}
