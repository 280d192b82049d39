// What the menus ask of the recorder.
#include <algorithm>

#include "rooms/clock/clock.h"
#include "rooms/config/config.h"
#include "rooms/recorder/parts.h"
#include "rooms/recorder/recorder.h"
#include "rooms/tuner/tuner.h"

namespace {

bool is_for(const Plan& plan, RecorderPlan kind) {
  if (kind == RecorderPlan::kRecord) return plan.mode == RMDR_MODE_RECORD;
  return plan.mode == RMDR_MODE_REMIND || plan.mode == RMDR_MODE_WATCH;
}

bool is_of(const Plan& plan, const GuideEvent& event) {
  return plan.mode != RMDR_MODE_SERIES && plan.event == event.id && plan.key == event.key && plan.start == event.start;
}

bool is_running(const GuideEvent& event, std::int64_t now) {
  return event.start <= now && now < event.start + std::int64_t{event.duration};
}

// The caller of the functions below holds one of the recorder's locks.

bool runs(const ServiceKey& key) {
  return std::ranges::any_of(recorder.jobs,
                             [&key](const Job& job) { return find_recording(job.recording)->key == key; });
}

std::string_view mark_of(const Recording& recording) {
  if (recording.status == RECLIST_STATUS_RECORDING) return "recording";
  if (recording.status == RECLIST_STATUS_FAILED) return "failed";
  return recording.kept ? "kept" : "";
}

std::string_view mark_of(const Plan& plan) {
  if (std::ranges::find(recorder.jobs, plan.id, &Job::plan) != recorder.jobs.end()) return "recording";
  if (plan.mode == RMDR_MODE_SERIES) return "series";
  return plan.mode == RMDR_MODE_RECORD ? "record" : "remind";
}

}  // namespace

std::string recorder_toggle(std::uint32_t channel_id, const GuideEvent& event, RecorderPlan kind,
                            bool& ret_is_planned) {
  const std::lock_guard guard(recorder.changing);
  const auto planned =
      std::ranges::find_if(recorder.plans, [&](const Plan& plan) { return is_of(plan, event) && is_for(plan, kind); });
  if (planned != recorder.plans.end()) {
    Outcome outcome = plan_delete(planned->id);
    if (outcome.result == RMDR_RESULT_OK) ret_is_planned = false;
    return std::move(outcome.why);
  }
  const std::int64_t now = clock_utc();
  if (kind == RecorderPlan::kRemind && event.start <= now) return "it has begun already";
  if (kind == RecorderPlan::kRecord && is_running(event, now) && runs(event.key)) {
    return "the channel is being recorded already";
  }
  const INT32 mode = kind == RecorderPlan::kRecord ? RMDR_MODE_RECORD : RMDR_MODE_REMIND;
  Plan plan;
  Outcome outcome = plan_for_event(channel_id, event.id, mode, plan);
  if (outcome.result == RMDR_RESULT_OK) outcome = plan_add(plan, true);
  if (outcome.result == RMDR_RESULT_OK) ret_is_planned = true;
  return std::move(outcome.why);
}

std::string recorder_record(std::string& ret_title) {
  const auto channel = tuner_channel();
  if (!channel) return "there is no channel";
  const std::lock_guard guard(recorder.changing);
  int recording = 0;
  Outcome outcome = record_now(channel->id, 0, "", recording);
  if (outcome.result == RMDR_RESULT_OK) ret_title = find_recording(recording)->title;
  return std::move(outcome.why);
}

std::string_view recorder_mark(const GuideEvent& event) {
  const std::int64_t now = clock_utc();
  const std::lock_guard guard(recorder.lock);
  if (is_running(event, now) && runs(event.key)) return "recording";
  const auto plan = std::ranges::find_if(recorder.plans, [&event](const Plan& each) { return is_of(each, event); });
  return plan == recorder.plans.end() ? "" : mark_of(*plan);
}

bool recorder_records(const ServiceKey& key) {
  const std::lock_guard guard(recorder.lock);
  return runs(key);
}

std::vector<std::int64_t> recorder_recordings() {
  const std::lock_guard guard(recorder.lock);
  std::vector<std::int64_t> ids;
  for (const Recording* const each : recordings_in_order(RECLIST_SORT_NEWEST)) ids.push_back(each->id);
  return ids;
}

std::vector<std::int64_t> recorder_timers() {
  const std::lock_guard guard(recorder.lock);
  std::vector<std::int64_t> ids;
  for (const Plan* const each : plans_in_order()) ids.push_back(each->id);
  return ids;
}

std::optional<RecorderLine> recorder_recording(int id) {
  const std::lock_guard guard(recorder.lock);
  const Recording* const found = find_recording(id);
  if (found == nullptr) return std::nullopt;
  Recording now = recording_now(*found);
  const std::string_view mark = mark_of(now);
  return RecorderLine{.key = now.key,
                      .title = std::move(now.title),
                      .channel = std::move(now.channel),
                      .start = now.start,
                      .duration = now.duration,
                      .mark = mark};
}

std::optional<RecorderLine> recorder_timer(int id) {
  const std::lock_guard guard(recorder.lock);
  const Plan* const found = find_plan(id);
  if (found == nullptr) return std::nullopt;
  return RecorderLine{.key = found->key,
                      .title = found->title,
                      .channel = found->channel,
                      .start = found->start,
                      .duration = found->duration,
                      .mark = mark_of(*found)};
}

std::string recorder_stop(int recording) {
  const std::lock_guard guard(recorder.changing);
  return record_stop(recording).why;
}

std::string recorder_delete(int recording) {
  const std::lock_guard guard(recorder.changing);
  return recording_delete(recording).why;
}

std::string recorder_delete_timer(int id) {
  const std::lock_guard guard(recorder.changing);
  return plan_delete(id).why;
}
