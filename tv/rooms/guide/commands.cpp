// The command "guide": for people, and for the page. Every list has a bound, and says what it left out.
#include <algorithm>
#include <boost/json.hpp>
#include <chrono>
#include <filesystem>
#include <map>

#include "base/text.h"
#include "core/reply.h"
#include "core/room.h"
#include "rooms/antenna/antenna.h"
#include "rooms/clock/clock.h"
#include "rooms/guide/parts.h"
#include "rooms/usb/root.h"

namespace {

constexpr std::size_t kChannelsOfPage = 20;      // of "guide now"
constexpr std::size_t kMostRangeChannels = 100;  // of "guide range"
constexpr std::size_t kMostRangeEvents = 1000;   // of "guide range" and of a day
constexpr int kMostRangeHours = 24;              // END - BEGIN
constexpr int kFarthestHour = 24 * 62;           // from the present one
constexpr int kFarthestDay = 62;                 // from today
constexpr std::size_t kMostFound = 50;           // of "guide search"
constexpr std::size_t kLongestSearch = 100;      // bytes

// ---- Replies ----

boost::json::object brief_event(const GuideEvent& event) {
  return {{"id", event.id}, {"start", reply_time(event.start)}, {"seconds", event.duration}, {"title", event.title}};
}

boost::json::object list_event(const GuideEvent& event) {
  boost::json::object shown = brief_event(event);
  if (!event.categories.empty()) shown["category"] = event.categories.front();
  if (event.age != 0) shown["age"] = event.age;
  if (guide_blocks(event)) shown["blocked"] = true;
  return shown;
}

boost::json::object whole_event(const GuideEvent& event) {
  boost::json::object shown = brief_event(event);
  shown["summary"] = event.summary;
  shown["details"] = event.details;
  boost::json::array categories;
  for (const std::uint8_t category : event.categories) categories.emplace_back(category);
  shown["categories"] = std::move(categories);
  shown["age"] = event.age;
  shown["series"] = event.series;
  shown["blocked"] = guide_blocks(event);
  return shown;
}

boost::json::object channel_head(const Channel& channel) {
  return {{"number", channel.number}, {"id", channel.id}, {"name", channel.name}};
}

boost::json::value or_null(const std::optional<GuideEvent>& event) {
  return event ? boost::json::value(list_event(*event)) : boost::json::value();
}

boost::json::array texts(const std::vector<std::string>& all) {
  boost::json::array list;
  for (const std::string& each : all) list.emplace_back(each);
  return list;
}

// Of the file. 100 only at the end: behind the file's last line there is more to write.
std::uint64_t percent_of(const ImportReport& report) {
  if (report.state == "done") return 100;
  return report.size == 0 ? 0 : std::min<std::uint64_t>(report.bytes * 100 / report.size, 99);
}

boost::json::object import_shown(const ImportReport& report) {
  const auto end = report.state == "running" ? std::chrono::steady_clock::now() : report.end;
  boost::json::object shown{{"file", report.path},
                            {"state", report.state},
                            {"percent", percent_of(report)},
                            {"bytes", report.bytes},
                            {"size", report.size},
                            {"events", report.events},
                            {"seconds", std::chrono::duration_cast<std::chrono::seconds>(end - report.begin).count()}};
  if (report.past != 0) shown["past"] = report.past;
  if (report.kept != 0) shown["kept"] = report.kept;
  shown["matched"] = report.matched;
  shown["unmatched"] = report.unmatched;
  if (report.unmatched != 0) shown["unmatched_channels"] = texts(report.unmatched_names);
  if (report.troubles != 0) {
    shown["unusable"] = report.troubles;
    shown["problems"] = texts(report.problems);
  }
  if (!report.error.empty()) shown["error_text"] = report.error;
  return shown;
}

boost::json::object update_shown(const VisitsReport& report) {
  boost::json::object shown{{"state", report.state},
                            {"percent", report.multiplexes == 0 ? 0 : report.multiplex * 100 / report.multiplexes},
                            {"multiplex", report.multiplex},
                            {"multiplexes", report.multiplexes},
                            {"events", report.events},
                            {"seconds", report.seconds}};
  if (report.skipped != 0) shown["skipped"] = report.skipped;
  if (!report.error.empty()) shown["error_text"] = report.error;
  return shown;
}

boost::json::object status() {
  const ImportReport report = import_report();  // read first, so that a finished import's events are counted
  const KeeperState state = keeper_state();
  boost::json::object shown{{"events", state.events}, {"channels", channels_count()}, {"waiting", state.waiting}};
  if (state.dropped != 0) shown["dropped"] = state.dropped;
  if (report.state != "none") shown["import"] = import_shown(report);
  if (const VisitsReport visits = visits_report(); visits.state != "none") shown["update"] = update_shown(visits);
  return shown;
}

// ---- Arguments ----

std::optional<Channel> channel_or_error(std::string_view word, boost::json::object& ret_error) {
  std::string why;
  auto channel = channels_named(word, why);
  if (!channel) ret_error = reply_error(std::move(why));
  return channel;
}

// ---- The parts of the command ----

boost::json::object now_and_next(const Channel& channel) {
  const std::int64_t now = clock_utc();
  boost::json::object shown = channel_head(channel);
  shown["now"] = or_null(guide_event_at(channel.key, now));
  shown["next"] = or_null(guide_event_after(channel.key, now));
  return shown;
}

boost::json::object of_channel(Arguments words) {
  boost::json::object error;
  const auto channel = channel_or_error(words[0], error);
  if (!channel) return error;
  if (words.size() == 1) return now_and_next(*channel);
  const auto day = parse_number_within<int>(words[1], -1, kFarthestDay);
  if (!day)
    return reply_takes("guide NUMBER", "a day from -1 (yesterday) to " + std::to_string(kFarthestDay), words[1]);
  const std::int64_t from = clock_local_day(*day), to = clock_local_day(*day + 1);
  boost::json::object shown = channel_head(*channel);
  shown["from"] = reply_time(from);
  shown["to"] = reply_time(to);
  boost::json::array events;
  for (const GuideEvent& event : guide_events(channel->key, from, to, kMostRangeEvents))
    events.push_back(list_event(event));
  shown["events"] = std::move(events);
  return shown;
}

boost::json::object of_all_now(Arguments words) {
  const std::vector<Channel> channels = channels_all();
  const std::size_t pages = std::max<std::size_t>((channels.size() + kChannelsOfPage - 1) / kChannelsOfPage, 1);
  const auto page =
      words.empty() ? std::optional<std::size_t>(1) : parse_number_within<std::size_t>(words[0], 1, pages);
  if (!page) return reply_takes("guide now", "a page from 1 to " + std::to_string(pages), words[0]);
  boost::json::array shown;
  const std::size_t first = (*page - 1) * kChannelsOfPage;
  for (std::size_t i = first; i < std::min(first + kChannelsOfPage, channels.size()); ++i)
    shown.push_back(now_and_next(channels[i]));
  return {{"time", reply_time(clock_utc())}, {"page", *page}, {"pages", pages}, {"channels", std::move(shown)}};
}

boost::json::object of_range(Arguments words) {
  constexpr std::string_view kTakes =
      "guide range takes the first and the last channel's number, and the first and the last hour, counted from the "
      "present hour, as in \"guide range 1 20 0 3\"";
  if (words.size() != 4) return reply_error(std::string(kTakes));
  const auto first = parse_number<std::uint32_t>(words[0]), last = parse_number<std::uint32_t>(words[1]);
  const auto begin = parse_number_within<int>(words[2], -24, kFarthestHour);
  const auto end = parse_number_within<int>(words[3], -24, kFarthestHour);
  if (!first || !last || !begin || !end || *last < *first || *end <= *begin || *end - *begin > kMostRangeHours)
    return reply_error(std::string(kTakes) + ": at most " + std::to_string(kMostRangeHours) + " hours");
  const std::int64_t now = clock_utc(), hour = now - now % 3600;
  const std::int64_t from = hour + *begin * 3600, to = hour + *end * 3600;
  boost::json::array channels;
  std::size_t room = kMostRangeEvents, left_out = 0;
  for (const Channel& channel : channels_all()) {
    if (channel.number < *first || channel.number > *last) continue;
    if (channels.size() >= kMostRangeChannels || room == 0) {
      ++left_out;
      continue;
    }
    boost::json::object shown = channel_head(channel);
    boost::json::array events;
    for (const GuideEvent& event : guide_events(channel.key, from, to, room)) events.push_back(list_event(event));
    room -= events.size();
    shown["events"] = std::move(events);
    channels.push_back(std::move(shown));
  }
  boost::json::object shown{
      {"time", reply_time(now)}, {"from", reply_time(from)}, {"to", reply_time(to)}, {"channels", std::move(channels)}};
  if (left_out != 0) shown["left_out"] = left_out;
  return shown;
}

boost::json::object one_event(Arguments words) {
  if (words.size() != 2) return reply_error("guide event takes a channel and an event's id");
  boost::json::object error;
  const auto channel = channel_or_error(words[0], error);
  if (!channel) return error;
  const auto id = parse_number<std::uint16_t>(words[1]);
  const auto event = id ? guide_event(channel->key, *id) : std::nullopt;
  if (!event) return reply_error("channel " + std::string(words[0]) + " has no event " + quoted(words[1]));
  boost::json::object shown = channel_head(*channel);
  shown["event"] = whole_event(*event);
  return shown;
}

// Looks through one channel after the other, so that other readers get their turns.
boost::json::object search(Arguments words) {
  const std::string text = joined(words);
  if (text.empty() || text.size() > kLongestSearch)
    return reply_error("guide search takes a text of 1 to " + std::to_string(kLongestSearch) + " bytes");
  const std::int64_t now = clock_utc();
  std::multimap<std::int64_t, boost::json::object> found;  // by their beginnings
  bool more = false;
  for (const Channel& channel : channels_all()) {
    for (const GuideEvent& event : guide_titles_with(channel.key, text, now, kMostFound + 1 - found.size())) {
      boost::json::object shown = channel_head(channel);
      shown["event"] = list_event(event);
      found.emplace(event.start, std::move(shown));
    }
    more = found.size() > kMostFound;
    if (more) break;
  }
  boost::json::array events;
  for (auto& [start, shown] : found)
    if (events.size() < kMostFound) events.push_back(std::move(shown));
  return {{"events", std::move(events)}, {"more", more}};
}

// Only files in the folder that may become a stick, as everything that a viewer names by a path of the machine.
boost::json::object import_file(Arguments words) {
  const std::string path = joined(words);
  if (path == "cancel") {
    keeper_cancel_import();
    return status();
  }
  if (!path.starts_with('/')) return reply_error("guide import takes the absolute path of an XMLTV file, or cancel");
  const UsbPlace place = usb_place(path);
  if (!place.inside) {
    return reply_error(usb_root().empty()
                           ? "no file can be imported: the set was started without a folder for sticks"
                           : ::quoted(path) + " cannot be imported: only files in " + usb_root() + " can");
  }
  std::error_code failed = place.failed;
  if (failed || !std::filesystem::is_regular_file(place.folder, failed))
    return reply_error(::quoted(path) + (failed ? ": " + failed.message() : " is not a regular file"));
  std::string error;
  if (!keeper_import(place.folder, error)) return reply_error(error);
  boost::json::object answer = status();
  reply_watch(answer,
              {.words = {"guide"}, .member = "import", .cancel = {"guide", "import", "cancel"}, .shows = {"events"}});
  return answer;
}

// Visits all multiplexes that a tuner is idle for.
boost::json::object update(Arguments words) {
  if (words.size() > 1 || (words.size() == 1 && words[0] != "cancel"))
    return reply_takes("guide update", "cancel or no other word", words.back());
  if (!words.empty()) return visits_cancel() ? status() : reply_error("no update of the guide runs");
  if (std::string why = visits_start(); !why.empty()) return reply_error(std::move(why));
  boost::json::object answer = status();
  reply_watch(answer, {.words = {"guide"},
                       .member = "update",
                       .cancel = {"guide", "update", "cancel"},
                       .shows = {"multiplex", "events"}});
  return answer;
}

std::vector<GuideMapping> mappings() {
  const GuideReading reading;
  return reading.database == nullptr ? std::vector<GuideMapping>{} : mappings_read(*reading.database);
}

boost::json::object show_mappings() {
  std::map<std::int64_t, std::uint32_t> numbers;  // by channel
  for (const Channel& channel : channels_all()) numbers.try_emplace(packed(channel.key), channel.number);
  boost::json::object shown;
  for (const GuideMapping& mapping : mappings()) {
    const auto number = numbers.find(mapping.channel);
    shown[mapping.xmltv] = number == numbers.end() ? boost::json::value() : boost::json::value(number->second);
  }
  return {{"map", std::move(shown)}};
}

boost::json::object map_channel(Arguments words) {
  if (words.empty()) return show_mappings();
  constexpr std::size_t kLongestId = 255;  // bytes, as of an XMLTV channel
  if (words.size() != 2 || words[0].size() > kLongestId || !is_utf8(words[0]))
    return reply_error("guide map takes the id of an XMLTV channel, and a channel or none");
  GuideMapping mapping{.xmltv = std::string(words[0])};
  const bool none = words[1] == "none";
  if (!none) {
    boost::json::object no_channel;
    const auto channel = channel_or_error(words[1], no_channel);
    if (!channel) return no_channel;
    mapping.channel = packed(channel->key);
    if (mappings().size() >= kMostMappings)
      return reply_error("there are " + std::to_string(kMostMappings) + " mappings; remove one with guide map ID none");
  }
  std::string error;
  const bool kept = keeper_run(
      [&](Database& database, GuideChanges&) {
        return none ? mapping_erase(database, mapping.xmltv) : mapping_put(database, mapping);
      },
      error);
  return kept ? show_mappings() : reply_error(error);
}

boost::json::object clear(Arguments words) {
  if (!words.empty()) return reply_error("guide clear takes no other word");
  std::string error;
  return keeper_erase_all(false, error) ? status() : reply_error(error);
}

}  // namespace

boost::json::object guide_command(std::span<const std::string_view> arguments) {
  struct Part {
    std::string_view name;
    boost::json::object (*run)(Arguments words);
  };
  constexpr Part kParts[] = {{"now", of_all_now},     {"range", of_range}, {"event", one_event}, {"search", search},
                             {"import", import_file}, {"update", update},  {"map", map_channel}, {"clear", clear}};
  if (arguments.empty()) return status();
  const auto* const part = std::ranges::find(kParts, arguments[0], &Part::name);
  if (part != std::end(kParts)) return part->run(arguments.subspan(1));
  if (arguments[0].find_first_of("0123456789") == std::string_view::npos)
    return reply_takes("guide", "a channel, now, range, event, search, import, map or clear", arguments[0]);
  if (arguments.size() > 2) return reply_error("guide NUMBER takes a day and no other word");
  return of_channel(arguments);
}
