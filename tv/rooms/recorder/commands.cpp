// The recorder's commands.
#include <absl/strings/string_view.h>
#include <absl/time/time.h>

#include <algorithm>
#include <boost/json.hpp>
#include <utility>

#include "base/text.h"
#include "core/reply.h"
#include "core/store.h"
#include "rooms/channels/channels.h"
#include "rooms/clock/clock.h"
#include "rooms/playback/playback.h"
#include "rooms/recorder/parts.h"

namespace {

constexpr std::size_t kListed = 50;  // recordings of one reply
constexpr std::uint32_t kMostMinutes = kLongestEvent / 60;
constexpr const char* kModes[] = {"reminder", "record", "watch", "series"};                // RMDR_MODE_*
constexpr const char* kStates[] = {"none", "recording", "complete", "partial", "failed"};  // RECLIST_STATUS_*

std::string time_text(std::int64_t time) {
  return absl::FormatTime("%Y-%m-%dT%H:%M:%SZ", absl::FromUnixSeconds(time), absl::UTCTimeZone());
}

boost::json::object shown(const Recording& recording) {
  boost::json::object answer = {{"id", recording.id},
                                {"title", recording.title},
                                {"channel", recording.channel},
                                {"start", time_text(recording.start)},
                                {"seconds", recording.duration},
                                {"bytes", recording.bytes},
                                {"status", kStates[recording.status]},
                                {"file", file_url(recording)}};
  if (recording.reason != RECLIST_REASON_NONE) answer["reason"] = reason_text(recording.reason);
  if (recording.resume != 0) answer["resume"] = recording.resume;
  if (recording.lost != 0) answer["lost"] = recording.lost;
  if (recording.kept) answer["kept"] = true;
  if (recording.playing != PVR_FILE_READY) {
    answer["playing"] = recording.playing == PVR_FILE_PAUSED ? "paused" : "playing";
  }
  return answer;
}

boost::json::object shown(const Plan& plan) {
  boost::json::object answer = {
      {"id", plan.id}, {"kind", kModes[plan.mode]}, {"title", plan.title}, {"channel", plan.channel}};
  if (plan.mode != RMDR_MODE_SERIES) {
    answer["from"] = time_text(plan_begin(plan));
    answer["to"] = time_text(plan_end(plan));
  }
  if (plan.event >= 0) answer["event"] = plan.event;
  if (plan.series != 0) answer["series"] = plan.series;
  if (plan.failure != RECLIST_REASON_NONE) answer["waits"] = reason_text(plan.failure);
  const auto job = std::ranges::find(recorder.jobs, plan.id, &Job::plan);
  if (job != recorder.jobs.end()) answer["recording"] = job->recording;
  return answer;
}

boost::json::object reply(const Outcome& outcome, boost::json::object answer) {
  return outcome.result == RMDR_RESULT_OK ? std::move(answer) : reply_error(outcome.why);
}

// The plan that was added, or why it was not.
boost::json::object reply_plan(const Outcome& outcome) {
  return outcome.result == RMDR_RESULT_OK ? shown(*find_plan(outcome.id)) : reply_error(outcome.why);
}

std::optional<int> parse_id(std::string_view word) { return parse_number_within<int>(word, 1, kLastId); }

std::optional<Channel> channel_of(std::string_view word) {
  const auto number = parse_number<std::uint32_t>(word);
  return number ? channels_by_number(*number) : std::nullopt;
}

boost::json::object no_channel(std::string_view word) { return reply_error("there is no channel " + quoted(word)); }

boost::json::object recordings_command(Arguments arguments) {
  std::size_t from = 0;
  if (!arguments.empty()) {
    const auto number = parse_number_within<std::size_t>(arguments[0], 0, kMostRecordings);
    if (!number) return reply_takes("recordings", "the first one to list, counted from 0", arguments[0]);
    from = *number;
  }
  const std::lock_guard guard(recorder.lock);
  const std::vector<const Recording*> order = recordings_in_order(RECLIST_SORT_NEWEST);
  boost::json::array listed;
  for (std::size_t i = from; i < std::min(order.size(), from + kListed); ++i)
    listed.push_back(shown(recording_now(*order[i])));
  return {{"total", order.size()}, {"recordings", std::move(listed)}};
}

// ---- record ----

boost::json::object record_for(Arguments words) {
  std::uint32_t minutes = 0;
  if (words.size() > 1) {
    const auto number = parse_number_within<std::uint32_t>(words[1], 1, kMostMinutes);
    if (!number) return reply_takes("record now", "1 to " + std::to_string(kMostMinutes) + " minutes", words[1]);
    minutes = *number;
  }
  const std::lock_guard guard(recorder.changing);
  int recording = 0;
  const Outcome outcome = record_now(0, minutes * 60, "", recording);
  return outcome.result == RMDR_RESULT_OK ? shown(*find_recording(recording)) : reply_error(outcome.why);
}

boost::json::object stop_recording(Arguments words) {
  int id = 0;
  if (words.size() > 1) {
    const auto number = parse_id(words[1]);
    if (!number) return reply_takes("record stop", "a recording's id", words[1]);
    id = *number;
  }
  const std::lock_guard guard(recorder.changing);
  const auto runs = [](const Recording& recording) { return recording.status == RECLIST_STATUS_RECORDING; };
  if (id == 0 && !recorder.jobs.empty()) {
    id = std::ranges::find_if(recorder.recordings, runs)->id;
    if (recorder.jobs.size() > 1) id = 0;
  }
  const Outcome outcome = record_stop(id);
  return outcome.result == RMDR_RESULT_OK ? shown(*find_recording(id)) : reply_error(outcome.why);
}

boost::json::object record_event(Arguments words) {
  if (words.size() < 3 || (words.size() == 4 && words[3] != "series")) {
    return reply_error("record event takes a channel's number, an event's id, and perhaps series");
  }
  const auto channel = channel_of(words[1]);
  if (!channel) return no_channel(words[1]);
  const auto event = parse_number_within<int>(words[2], 0, UINT16_MAX);
  if (!event) return reply_takes("record event", "an event's id from the guide", words[2]);
  const std::lock_guard guard(recorder.changing);
  Plan plan;
  Outcome outcome = plan_for_event(channel->id, *event, words.size() == 4 ? RMDR_MODE_SERIES : RMDR_MODE_RECORD, plan);
  if (outcome.result == RMDR_RESULT_OK) outcome = plan_add(plan, true);
  return reply_plan(outcome);
}

// "2026-03-29T10:30:00Z", with any offset, or "+20" for in 20 minutes.
std::optional<std::int64_t> parse_time(std::string_view word) {
  if (word.starts_with('+')) {
    const auto minutes = parse_number_within<std::int64_t>(word.substr(1), 0, kFarthestEvent / 60);
    return minutes ? std::optional(clock_utc() + *minutes * 60) : std::nullopt;
  }
  absl::Time time;
  if (!absl::ParseTime(absl::RFC3339_full, absl::string_view(word.data(), word.size()), &time, nullptr)) return {};
  return absl::ToUnixSeconds(time);
}

boost::json::object record_timer(Arguments words) {
  if (words.size() != 3)
    return reply_error("record takes a channel's number, a time and minutes, as in \"record 7 +20 60\"");
  const auto channel = channel_of(words[0]);
  if (!channel) return no_channel(words[0]);
  const auto from = parse_time(words[1]);
  if (!from) return reply_takes("record", "a time such as 2026-03-29T10:30:00Z, or +20 for in 20 minutes", words[1]);
  const auto minutes = parse_number_within<std::uint32_t>(words[2], 1, kMostMinutes);
  if (!minutes) return reply_takes("record", "1 to " + std::to_string(kMostMinutes) + " minutes", words[2]);
  const std::lock_guard guard(recorder.changing);
  Plan plan;
  Outcome outcome = plan_for_time(channel->id, *from, *minutes * 60, RMDR_MODE_RECORD, plan);
  if (outcome.result == RMDR_RESULT_OK) outcome = plan_add(plan, false);
  return reply_plan(outcome);
}

boost::json::object record_command(Arguments arguments) {
  struct Part {
    std::string_view name;
    std::size_t most_words;
    boost::json::object (*run)(Arguments words);
  };
  constexpr Part kParts[] = {{"now", 2, record_for}, {"stop", 2, stop_recording}, {"event", 4, record_event}};
  if (arguments.empty())
    return reply_error("record takes now, stop, event, or a channel's number with a time and minutes");
  const auto* const part = std::ranges::find(kParts, arguments[0], &Part::name);
  if (part == std::end(kParts)) return record_timer(arguments);
  if (arguments.size() > part->most_words) {
    return reply_error(quoted(arguments[part->most_words]) + " is one word too many for record " +
                       std::string(part->name));
  }
  return part->run(arguments);
}

// ---- timers, recordings, reminders ----

boost::json::object timers_command(Arguments) {
  const std::lock_guard guard(recorder.lock);
  boost::json::array listed;
  for (const Plan* const plan : plans_in_order()) listed.push_back(shown(*plan));
  return {{"timers", std::move(listed)}};
}

boost::json::object timer_command(Arguments arguments) {
  const auto id = arguments.empty() ? std::nullopt : parse_id(arguments[0]);
  if (!id) return reply_error("timer takes a timer's id; \"timers\" lists them");
  const std::lock_guard guard(recorder.changing);
  const Plan* const plan = find_plan(*id);
  if (plan == nullptr) return reply_error("there is no timer " + std::to_string(*id));
  boost::json::object answer = shown(*plan);
  if (arguments.size() == 1) return answer;
  if (arguments[1] != "delete") return reply_takes("timer ID", "delete", arguments[1]);
  answer["deleted"] = true;
  return reply(plan_delete(*id), std::move(answer));
}

boost::json::object change_recording(int id, Arguments words) {
  if (words[0] == "delete" && words.size() == 1) {
    return reply(recording_delete(id), {{"id", id}, {"deleted", true}});
  }
  Outcome outcome;
  if (words[0] == "keep" && words.size() == 1) {
    outcome = recording_change(id, [](Recording& recording) { recording.kept = !recording.kept; });
  } else if (words[0] == "name" && words.size() == 2) {
    const std::string_view title = words[1];
    if (title.empty() || title.size() > kLongestTitle || !store_is_text(title)) {
      return reply_takes("recording", "a name of 1 to " + std::to_string(kLongestTitle) + " bytes", title);
    }
    outcome = recording_change(id, [title](Recording& recording) { recording.title = title; });
  } else {
    return reply_takes("recording ID", "delete, keep, name TEXT or play", words[0]);
  }
  return outcome.result == RMDR_RESULT_OK ? shown(recording_now(*find_recording(id))) : reply_error(outcome.why);
}

boost::json::object play_recording(int id, Arguments words) {
  std::optional<double> from;
  if (!words.empty()) {
    const auto seconds = parse_number_within<std::uint32_t>(words[0], 0, kLongestEvent);
    if (!seconds) return reply_takes("recording ID play", "seconds from the beginning", words[0]);
    from = *seconds;
  }
  if (const std::string why = playback_start(id, from); !why.empty()) return reply_error(why);
  const std::lock_guard guard(recorder.lock);
  const Recording* const found = find_recording(id);
  return found == nullptr ? boost::json::object{} : shown(recording_now(*found));
}

boost::json::object recording_command(Arguments arguments) {
  const auto id = arguments.empty() ? std::nullopt : parse_id(arguments[0]);
  if (!id) return reply_error("recording takes a recording's id; \"recordings\" lists them");
  if (arguments.size() > 1 && arguments[1] == "play") return play_recording(*id, arguments.subspan(2));
  const std::lock_guard guard(recorder.changing);
  const Recording* const found = find_recording(*id);
  if (found == nullptr) return reply_error("there is no recording " + std::to_string(*id));
  return arguments.size() == 1 ? shown(recording_now(*found)) : change_recording(*id, arguments.subspan(1));
}

boost::json::object reminder_command(Arguments arguments) {
  if (arguments.size() < 2 || (arguments.size() == 3 && arguments[2] != "watch")) {
    return reply_error("reminder takes a channel's number, an event's id, and perhaps watch");
  }
  const auto channel = channel_of(arguments[0]);
  if (!channel) return no_channel(arguments[0]);
  const auto event = parse_number_within<int>(arguments[1], 0, UINT16_MAX);
  if (!event) return reply_takes("reminder", "an event's id from the guide", arguments[1]);
  const std::lock_guard guard(recorder.changing);
  Plan plan;
  Outcome outcome =
      plan_for_event(channel->id, *event, arguments.size() == 3 ? RMDR_MODE_WATCH : RMDR_MODE_REMIND, plan);
  if (outcome.result == RMDR_RESULT_OK) outcome = plan_add(plan, false);
  return reply_plan(outcome);
}

constexpr Command kCommands[] = {
    {"recordings", "[FROM]", 1, "Lists the recordings, the newest first, 50 at a time", recordings_command},
    {"recording", "ID [delete|keep] | ID name TEXT | ID play [SECONDS]", 3,
     "Shows a recording; delete: with its file; keep: protects it from deletion, or no longer; name: renames it; play: "
     "from where it was left, or from a time (\"playback\" controls it)",
     recording_command},
    {"record", "now [MINUTES] | stop [ID] | event NUMBER EVENTID [series] | NUMBER FROM MINUTES", 4,
     "now: records the current channel; stop: ends a recording; event: records an event of the guide, or its series; "
     "NUMBER: sets a timer, FROM a time such as 2026-03-29T10:30:00Z or in +20 minutes",
     record_command},
    {"timers", "", 0, "Lists timers, reminders and series", timers_command},
    {"timer", "ID [delete]", 2, "Shows or deletes a timer, a reminder or a series; ends its recording", timer_command},
    {"reminder", "NUMBER EVENTID [watch]", 3,
     "Sets a reminder, which \"state\" shows when the event begins; watch: wakes the set and shows the channel then",
     reminder_command},
};

}  // namespace

constinit const std::span<const Command> kRecorderCommands = kCommands;
