// Prints the replies of the set's commands about media for people: sticks and lists of files as tables, the player as
// lines.
#include <algorithm>
#include <boost/json.hpp>
#include <filesystem>

#include "dtvctl.h"

namespace json = boost::json;

namespace {

std::string text(const json::object& object, std::string_view key) {
  const json::value* const value = member(object, key);
  return value != nullptr && value->is_string() ? printable(std::string(value->get_string())) : "";
}

// A number of the object; 0 if there is none.
double number(const json::object& object, std::string_view key) {
  const json::value* const value = member(object, key);
  boost::system::error_code no_number;
  const double found = value == nullptr ? 0 : value->to_number<double>(no_number);
  return no_number ? 0 : found;
}

std::int64_t whole(const json::object& object, std::string_view key) {
  return static_cast<std::int64_t>(std::clamp(number(object, key), 0.0, 9e15));
}

std::string count(const json::object& object, std::string_view key) {
  return member(object, key) == nullptr ? "" : std::to_string(whole(object, key));
}

// The elements of an array that are objects.
std::vector<const json::object*> objects(const json::object& object, std::string_view key) {
  std::vector<const json::object*> found;
  const json::value* const value = member(object, key);
  if (value == nullptr || !value->is_array()) return found;
  for (const json::value& each : value->get_array())
    if (each.is_object()) found.push_back(&each.get_object());
  return found;
}

const json::object* object_of(const json::object& object, std::string_view key) {
  const json::value* const value = member(object, key);
  return value == nullptr ? nullptr : value->if_object();
}

// "1:02:03" or "2:03"
std::string length_text(double length) {
  const auto seconds = static_cast<std::int64_t>(std::clamp(length, 0.0, 9e9));
  char shown[48];
  if (seconds >= 3600)
    std::snprintf(shown, sizeof shown, "%lld:%02lld:%02lld", static_cast<long long>(seconds / 3600),
                  static_cast<long long>(seconds % 3600 / 60), static_cast<long long>(seconds % 60));
  else
    std::snprintf(shown, sizeof shown, "%lld:%02lld", static_cast<long long>(seconds / 60),
                  static_cast<long long>(seconds % 60));
  return shown;
}

std::string size_text(double bytes) {
  constexpr const char* kUnits[] = {"kB", "MB", "GB", "TB"};
  double amount = bytes / 1000;
  std::size_t unit = 0;
  for (; amount >= 999.95 && unit + 1 < std::size(kUnits); ++unit) amount /= 1000;
  char shown[48];
  std::snprintf(shown, sizeof shown, unit == 0 ? "%.0f %s" : "%.1f %s", amount, kUnits[unit]);
  return shown;
}

std::string length_cell(const json::object& row) {
  const double length = number(row, "duration");
  return length > 0 ? length_text(length) : "";
}

std::string size_cell(const json::object& row, std::string_view key) {
  const double bytes = number(row, key);
  return bytes > 0 ? size_text(bytes) : "";
}

std::string pixels_cell(const json::object& row) {
  const std::int64_t width = whole(row, "width"), height = whole(row, "height");
  return width > 0 && height > 0 ? std::to_string(width) + "x" + std::to_string(height) : "";
}

// "running, 42 %, 4200 of 10000 files"
std::string scan_text(const json::object& scan) {
  std::string shown = text(scan, "state");
  const std::int64_t files = whole(scan, "files"), of = whole(scan, "of");
  if (shown == "running") shown += ", " + std::to_string(std::clamp<std::int64_t>(percent_of(scan), 0, 100)) + " %";
  if (files > 0 || of > 0)
    shown += ", " + std::to_string(files) + (of > files ? " of " + std::to_string(of) : "") + " files";
  if (const std::int64_t left_out = whole(scan, "left_out"); left_out > 0)
    shown += ", " + std::to_string(left_out) + " left out";
  const std::string why = text(scan, "reason");
  return why.empty() ? shown : shown + ": " + why;
}

std::string scan_cell(const json::object& row) {
  const json::object* const scan = object_of(row, "scan");
  return scan == nullptr ? "" : scan_text(*scan);
}

// ---- Tables ----

struct Column {
  std::string_view title;
  std::string (*cell)(const json::object& row);
};

constexpr Column kStickColumns[] = {
    {"LABEL", [](const json::object& row) { return text(row, "label"); }},
    {"DEVICE", [](const json::object& row) { return text(row, "device"); }},
    {"PORT", [](const json::object& row) { return count(row, "port"); }},
    {"PHOTOS", [](const json::object& row) { return count(row, "photos"); }},
    {"MUSIC", [](const json::object& row) { return count(row, "music"); }},
    {"VIDEOS", [](const json::object& row) { return count(row, "videos"); }},
    {"SIZE", [](const json::object& row) { return size_cell(row, "bytes"); }},
    {"SCAN", scan_cell},
    {"PATH", [](const json::object& row) { return text(row, "path"); }},
    {"FOLDER", [](const json::object& row) { return text(row, "folder"); }},
};

constexpr Column kEntryColumns[] = {
    {"OBJECT", [](const json::object& row) { return count(row, "object"); }},
    {"KIND", [](const json::object& row) { return text(row, "kind"); }},
    {"TITLE",
     [](const json::object& row) {
       const std::string title = text(row, "title");
       return title.empty() ? text(row, "name") : title;
     }},
    {"ARTIST", [](const json::object& row) { return text(row, "artist"); }},
    {"ALBUM", [](const json::object& row) { return text(row, "album"); }},
    {"LENGTH", length_cell},
    {"PIXELS", pixels_cell},
    {"SIZE", [](const json::object& row) { return size_cell(row, "size"); }},
    {"DATE", [](const json::object& row) { return text(row, "date").substr(0, 10); }},
    {"FAVOURITE",
     [](const json::object& row) {
       const json::value* const favourite = member(row, "favourite");
       return std::string(favourite != nullptr && *favourite == json::value(true) ? "yes" : "");
     }},
    {"PATH", [](const json::object& row) { return text(row, "path"); }},
};

// A column whose cells are all empty is left out.
void print_columns(std::span<const Column> columns, std::span<const json::object* const> rows) {
  Row titles;
  std::vector<Row> cells(rows.size());
  for (const Column& column : columns) {
    std::vector<std::string> texts;
    for (const json::object* row : rows) texts.push_back(column.cell(*row));
    if (std::ranges::all_of(texts, &std::string::empty)) continue;
    titles.emplace_back(column.title);
    for (std::size_t i = 0; i < rows.size(); ++i) cells[i].push_back(std::move(texts[i]));
  }
  if (!titles.empty()) print_table(titles, cells);
}

void print_entries(const json::object& reply) {
  const std::vector<const json::object*> rows = objects(reply, "entries");
  print_columns(kEntryColumns, rows);
  const std::int64_t total = whole(reply, "total"), first = whole(reply, "index");
  const auto shown = static_cast<std::int64_t>(rows.size());
  if (rows.empty())
    print_line("nothing");
  else if (shown < total)
    print_line(std::to_string(first + 1) + " to " + std::to_string(first + shown) + " of " + std::to_string(total));
}

void print_sticks(const json::object& reply) {
  const std::vector<const json::object*> rows = objects(reply, "sticks");
  if (rows.empty()) print_line("no stick is inserted");
  print_columns(kStickColumns, rows);
}

// ---- The player ----

std::string track_text(const json::object& track) {
  std::string shown = text(track, "language");
  for (const std::string& more : {text(track, "title"), text(track, "codec")})
    if (!more.empty()) shown += (shown.empty() ? "" : ", ") + more;
  const json::value* const chosen = member(track, "chosen");
  return shown + (chosen != nullptr && *chosen == json::value(true) ? " (chosen)" : "");
}

std::string chapter_text(const json::object& reply, const json::object& chapter) {
  const std::string title = text(chapter, "title");
  const bool present = member(reply, "chapter") != nullptr && whole(reply, "chapter") == whole(chapter, "number");
  return length_text(number(chapter, "start")) + (title.empty() ? "" : ", " + title) + (present ? " (present)" : "");
}

void print_player(const json::object& reply) {
  std::vector<Row> lines{{"state", text(reply, "state")}};
  const auto add = [&](const char* name, const std::string& shown) {
    if (!shown.empty()) lines.push_back({name, shown});
  };
  for (const char* const key : {"reason", "title", "artist", "album", "path"}) add(key, text(reply, key));
  if (text(reply, "state") != "none") {
    const std::string length = length_cell(reply);
    add("position", length_text(number(reply, "position")) + (length.empty() ? "" : " of " + length));
    char speed[32];
    std::snprintf(speed, sizeof speed, "%g", number(reply, "speed"));
    if (member(reply, "speed") != nullptr) add("speed", speed);
    add("repeat", text(reply, "repeat"));
    if (const json::value* const application = member(reply, "application");
        application != nullptr && *application == json::value(true))
      add("application", "yes");
    if (const json::object* const video = object_of(reply, "video"); video != nullptr)
      add("video", pixels_cell(*video) + " " + text(*video, "codec"));
    for (const json::object* track : objects(reply, "tracks"))
      add((text(*track, "kind") + " " + count(*track, "number")).c_str(), track_text(*track));
    for (const json::object* chapter : objects(reply, "chapters"))
      add(("chapter " + count(*chapter, "number")).c_str(), chapter_text(reply, *chapter));
  }
  print_table({}, lines);
}

}  // namespace

std::int64_t percent_of(const json::object& state) {
  if (member(state, "percent") != nullptr) return whole(state, "percent");
  return static_cast<std::int64_t>(std::clamp(number(state, "progress"), 0.0, 1.0) * 100);
}

bool print_media(ShellWords words, const json::object& reply) {
  if (words.empty()) return false;
  const std::string& command = words[0];
  const bool sticks = command == "stick" || command == "media";
  if (sticks && reply.contains("sticks")) {
    print_sticks(reply);
  } else if ((command == "media" || command == "servers") && reply.contains("entries")) {
    print_entries(reply);
  } else if (command == "player" && reply.contains("state")) {
    print_player(reply);
  } else if (sticks && reply.contains("scan")) {
    json::object shown = reply;
    shown["scan"] = scan_cell(reply);
    print_object(shown);
  } else {
    return false;
  }
  return true;
}

std::string path_on_stick(Session& session, const std::string& word) {
  namespace fs = std::filesystem;
  std::error_code failed;
  const fs::path whole = fs::weakly_canonical(fs::absolute(word, failed), failed);
  std::string answer;
  Failure none;
  json::value sticks;
  if (failed || !session.call("tv", R"({"words":["stick","list"]})", answer, none) || !json_parse(answer, sticks) ||
      !sticks.is_object())
    return word;
  for (const json::object* stick : objects(sticks.get_object(), "sticks")) {
    const fs::path folder = std::string(text(*stick, "folder"));
    const std::string place = text(*stick, "path");
    const auto [rest, end] = std::ranges::mismatch(whole, folder);
    if (folder.empty() || place.empty() || end != folder.end()) continue;
    fs::path inside = place;
    for (auto each = rest; each != whole.end(); ++each) inside /= *each;
    std::string found = inside.string();
    while (found.size() > 1 && found.ends_with('/')) found.pop_back();
    return found;
  }
  return word.starts_with('/') ? word : whole.string();
}
