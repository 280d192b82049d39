// Reminders, timers and series: what is planned, what it conflicts with, and what the guide adds to it.
#include <algorithm>
#include <cstdlib>
#include <utility>

#include "base/text.h"
#include "rooms/channels/channels.h"
#include "rooms/clock/clock.h"
#include "rooms/config/config.h"
#include "rooms/guide/guide.h"
#include "rooms/recorder/parts.h"
#include "rooms/remote/remote.h"
#include "rooms/sources/sources.h"
#include "rooms/tuner/tuner.h"

namespace {

constexpr const char* kBeforeKey = "g_rec__start_padding";  // minutes
constexpr const char* kAfterKey = "g_rec__end_padding";
constexpr std::int64_t kSameEvent = 12 * 60 * 60;  // s by which the broadcaster can move an event

Window window_of(const Plan& plan) {
  return {.id = plan.id, .from = plan_begin(plan), .to = plan_end(plan), .key = plan.key};
}

// The lowest id above all others, or where that is none, the lowest free one.
int free_id() {
  int id = recorder.plans.empty() ? 1 : recorder.plans.back().id + 1;
  if (id > kLastId)
    for (id = 1; find_plan(id) != nullptr;) ++id;
  return id;
}

Plan event_plan(const Channel& channel, const GuideEvent& event, INT32 mode) {
  const bool series = mode == RMDR_MODE_SERIES;
  return {.mode = mode,
          .key = channel.key,
          .channel_id = channel.id,
          .channel = channel.name,
          .event = event.id,
          .start = event.start,
          .duration = event.duration,
          .title = series ? event.series : event.title,
          .genre = event.categories.empty() ? 0 : event.categories.front()};
}

bool same_subject(const Plan& left, const Plan& right) {
  if (left.mode != right.mode || left.key != right.key) return false;
  if (left.mode == RMDR_MODE_SERIES) return left.title == right.title;
  return left.start == right.start && left.event == right.event;
}

// Checks what a request can have wrong.
Outcome check(const Plan& plan, std::int64_t now) {
  if (plan.title.size() > kLongestTitle || !is_utf8(plan.title)) {
    return failed(RMDR_RESULT_ARGUMENT, "a title is UTF-8 of at most " + std::to_string(kLongestTitle) + " bytes");
  }
  if (plan.mode == RMDR_MODE_SERIES) {
    if (plan.title.empty()) return failed(RMDR_RESULT_ARGUMENT, "the guide does not name the event's series");
  } else {
    if (plan.duration == 0 || plan.duration > kLongestEvent || plan_begin(plan) >= plan_end(plan) ||
        plan_end(plan) - plan_begin(plan) > 2 * std::int64_t{kLongestEvent}) {
      return failed(RMDR_RESULT_ARGUMENT, "it takes between a second and 24 hours");
    }
    if (plan.start > now + kFarthestEvent) return failed(RMDR_RESULT_ARGUMENT, "it begins in more than a year");
    if (plan_end(plan) <= now) return failed(RMDR_RESULT_PAST, "it has ended already");
  }
  const auto same = std::ranges::find_if(
      recorder.plans, [&plan](const Plan& other) { return other.id != plan.id && same_subject(other, plan); });
  if (same != recorder.plans.end()) {
    return failed(RMDR_RESULT_DUPLICATE, "timer " + std::to_string(same->id) + " is for that already");
  }
  if (find_plan(plan.id) == nullptr && recorder.plans.size() >= kMostPlans) {
    return failed(RMDR_RESULT_FULL, "there are " + std::to_string(kMostPlans) + " timers; delete one");
  }
  return {};
}

std::string conflict_text(const std::vector<Window>& conflicts) {
  std::string text = "there are " + std::to_string(kTuners) + " tuners; it overlaps with";
  for (const Window& each : conflicts) {
    const Plan* const plan = find_plan(each.id);
    text += &each == conflicts.data() ? " " : ", ";
    text += plan == nullptr ? "the channel on the screen" : "timer " + std::to_string(each.id) + " " + plan->title;
  }
  return text;
}

void take_plan(const Plan& plan) {
  const std::lock_guard guard(recorder.lock);
  if (Plan* const old = find_plan(plan.id)) {
    *old = plan;
    return;
  }
  recorder.plans.insert(std::ranges::upper_bound(recorder.plans, plan.id, {}, &Plan::id), plan);
}

// Moves the plan with its event, as far as the guide has it.
void follow(const Plan& plan) {
  const auto event = guide_event(plan.key, static_cast<std::uint16_t>(plan.event));
  if (!event || std::abs(event->start - plan.start) > kSameEvent) return;
  if (event->duration == 0 || event->duration > kLongestEvent) return;
  if (event->start == plan.start && event->duration == plan.duration) return;
  Plan moved = plan;
  moved.start = event->start;
  moved.duration = event->duration;
  if (database_change([&moved] { return plan_store(moved); })) take_plan(moved);
}

// Plans the event, once. An event with a conflict is not taken, so that the next search finds it again.
void plan_episode(const Plan& series, const GuideEvent& event, std::int64_t now) {
  if (taken_find(series.id, event.key, event.id, event.start)) return;
  Channel channel;
  channel.id = series.channel_id;
  channel.key = series.key;
  channel.name = series.channel;
  Plan plan = event_plan(channel, event, RMDR_MODE_RECORD);
  plan.series = series.id;
  plan_pad(plan);
  const Outcome checked = check(plan, now);
  const bool planned_already = checked.result == RMDR_RESULT_DUPLICATE;
  if (checked.result != RMDR_RESULT_OK && !planned_already) return;
  if (!planned_already && !plan_conflicts(plan, 0).empty()) return;
  plan.id = free_id();
  const auto store = [&] { return (planned_already || plan_store(plan)) && taken_store(series.id, plan); };
  if (database_change(store) && !planned_already) take_plan(plan);
}

}  // namespace

void plan_pad(Plan& plan) {
  if (plan.mode != RMDR_MODE_RECORD) return;
  plan.before = config_number(kBeforeKey) * 60;
  plan.after = config_number(kAfterKey) * 60;
}

std::vector<Window> plan_conflicts(const Plan& plan, int ignored) {
  if (plan.mode != RMDR_MODE_RECORD) return {};
  std::vector<Window> others;
  for (const Plan& other : recorder.plans)
    if (other.mode == RMDR_MODE_RECORD && other.id != plan.id && other.id != ignored)
      others.push_back(window_of(other));
  const auto watched = remote_is_on() && sources_is_tv() ? tuner_channel() : std::nullopt;
  const std::int64_t now = clock_utc();
  if (watched) others.push_back({.id = 0, .from = now, .to = now + 1, .key = watched->key});
  Window wanted = window_of(plan);
  wanted.from = std::max(wanted.from, now);
  return find_conflicts(others, wanted, kTuners);
}

Outcome plan_add(Plan plan, bool padded) {
  if (padded) plan_pad(plan);
  if (Outcome checked = check(plan, clock_utc()); checked.result != RMDR_RESULT_OK) return checked;
  if (std::vector<Window> conflicts = plan_conflicts(plan, 0); !conflicts.empty()) {
    std::string why = conflict_text(conflicts);
    return {.result = RMDR_RESULT_CONFLICT, .why = std::move(why), .conflicts = std::move(conflicts)};
  }
  if (plan.id == 0) plan.id = free_id();
  if (!database_change([&plan] { return plan_store(plan); })) return not_saved();
  take_plan(plan);
  if (plan.mode == RMDR_MODE_SERIES) recorder.next_look = 0;
  recorder_schedule();
  return {.id = plan.id};
}

std::uint32_t channel_id_now(const ServiceKey& key, std::uint32_t former_id) {
  const auto channel = channels_by_key(key, list_of_id(former_id));
  return channel ? channel->id : former_id;
}

Outcome plan_for_event(std::uint32_t channel_id, int event, INT32 mode, Plan& ret_plan) {
  const auto channel = channels_by_id(channel_id);
  if (!channel) return failed(RMDR_RESULT_NOT_FOUND, "there is no channel " + std::to_string(channel_id));
  const auto found =
      event < 0 || event > UINT16_MAX ? std::nullopt : guide_event(channel->key, static_cast<std::uint16_t>(event));
  if (!found) {
    return failed(RMDR_RESULT_NOT_FOUND, "the guide has no event " + std::to_string(event) + " of " + channel->name);
  }
  ret_plan = event_plan(*channel, *found, mode);
  return {};
}

Outcome plan_for_time(std::uint32_t channel_id, std::int64_t start, std::uint32_t duration, INT32 mode,
                      Plan& ret_plan) {
  const auto channel = channels_by_id(channel_id);
  if (!channel) return failed(RMDR_RESULT_NOT_FOUND, "there is no channel " + std::to_string(channel_id));
  if (mode == RMDR_MODE_SERIES) return failed(RMDR_RESULT_ARGUMENT, "a series needs an event of the guide");
  ret_plan = {.mode = mode,
              .key = channel->key,
              .channel_id = channel->id,
              .channel = channel->name,
              .start = start,
              .duration = duration,
              .title = channel->name};
  return {};
}

Outcome plan_delete(int id) {
  if (find_plan(id) == nullptr) return failed(RMDR_RESULT_NOT_FOUND, "there is no timer " + std::to_string(id));
  if (!database_change([id] { return plan_erase(id); })) return not_saved();
  std::vector<int> gone;
  for (const Plan& plan : recorder.plans)
    if (plan.id == id || plan.series == id) gone.push_back(plan.id);
  for (const int each : gone) recording_end(each, RECLIST_REASON_STOPPED);
  {
    const std::lock_guard guard(recorder.lock);
    std::erase_if(recorder.plans, [id](const Plan& plan) { return plan.id == id || plan.series == id; });
  }
  recorder_schedule();
  return {.id = id};
}

void follow_due(std::int64_t now) {
  const std::vector<Plan> plans = recorder.plans;
  for (const Plan& plan : plans) {
    if (plan.mode == RMDR_MODE_SERIES || plan.event < 0 || now < plan_begin(plan)) continue;
    const bool runs = std::ranges::find(recorder.jobs, plan.id, &Job::plan) != recorder.jobs.end();
    if (!runs || now >= plan_end(plan)) follow(plan);
  }
}

void series_look(std::int64_t now) {
  recorder.next_look = now + kLookEvery;
  const std::vector<Plan> plans = recorder.plans;
  for (const Plan& plan : plans)
    if (plan.mode != RMDR_MODE_SERIES && plan.event >= 0) follow(plan);
  for (const Plan& series : plans) {
    if (series.mode != RMDR_MODE_SERIES) continue;
    for (const GuideEvent& event : guide_series(series.title, now))
      if (event.key == series.key) plan_episode(series, event, now);
  }
}
