// Recordings that run, and what is due.
//
// A recording runs for a plan of its own. The plan stays until the recording has ended, so that a set that is switched
// off, or ends, and comes back before the plan's end goes on with a second recording.
//
// Standby does not matter to recordings: one that begins in standby leaves the set there, and one that runs goes on
// when the set goes to standby. Only a plan to watch a channel wakes the set.
#include <algorithm>
#include <cstdio>
#include <limits>
#include <utility>

#include "core/events.h"
#include "core/timers.h"
#include "rooms/channels/channels.h"
#include "rooms/clock/clock.h"
#include "rooms/config/config.h"
#include "rooms/guide/guide.h"
#include "rooms/multiview/multiview.h"
#include "rooms/recorder/parts.h"
#include "rooms/recorder/recorder.h"
#include "rooms/remote/remote.h"
#include "rooms/sources/sources.h"
#include "rooms/tuner/tuner.h"

namespace {

constexpr std::int64_t kRetryEvery = 10;                        // s between attempts to begin a recording
constexpr std::int64_t kMessageTime = 60;                       // s for which a reminder is on the screen
constexpr std::int64_t kLongestPause = 60;                      // s after which a change of the set's clock is noticed
constexpr const char* kDefaultKey = "g_rec__default_duration";  // minutes

Timer work_timer;
Timer guide_timer;

Job* job_of_plan(int plan) {
  const auto found = std::ranges::find(recorder.jobs, plan, &Job::plan);
  return found == recorder.jobs.end() ? nullptr : &*found;
}

int free_recording() {
  int id = recorder.recordings.empty() ? 1 : recorder.recordings.back().id + 1;
  if (id > kLastId)
    for (id = 1; find_recording(id) != nullptr;) ++id;
  return id;
}

void add_recording(Recording recording) {
  const std::lock_guard guard(recorder.lock);
  const auto place = std::ranges::upper_bound(recorder.recordings, recording.id, {}, &Recording::id);
  recorder.recordings.insert(place, std::move(recording));
}

Recording recording_of(const Plan& plan, std::int64_t now) {
  return {.id = free_recording(),
          .key = plan.key,
          .channel_id = plan.channel_id,
          .channel = plan.channel,
          .event = plan.event >= 0 ? plan.event : plan.present_event,
          .start = now,
          .duration = static_cast<std::uint32_t>(std::max<std::int64_t>(plan_end(plan) - now, 0)),
          .title = plan.title};
}

INT32 reason_of(ReceptionRefusal refusal) {
  return refusal == ReceptionRefusal::kNoTuner ? RECLIST_REASON_NO_TUNER : RECLIST_REASON_NO_SIGNAL;
}

// A sub picture gives up its tuner for a recording.
WriterHandle receive(const ServiceKey& key, ReceptionRefusal& ret_refusal) {
  WriterHandle writer = writer_receive(key, ret_refusal);
  if (writer == nullptr && ret_refusal == ReceptionRefusal::kNoTuner && multiview_give_up_tuner()) {
    writer = writer_receive(key, ret_refusal);
  }
  return writer;
}

// Writes the row, then creates the file. Returns why not.
INT32 begin(const Plan& plan, std::int64_t now) {
  if (recorder.recordings.size() >= kMostRecordings) return RECLIST_REASON_LIST_FULL;
  if (const INT32 problem = disk_problem(recorder.folder); problem != RECLIST_REASON_NONE) return problem;
  ReceptionRefusal refusal = ReceptionRefusal::kNone;
  WriterHandle writer = receive(plan.key, refusal);
  if (writer == nullptr) return reason_of(refusal);
  const Recording recording = recording_of(plan, now);
  if (!database_change([&recording] { return recording_store(recording); })) return RECLIST_REASON_DISK_ERROR;
  INT32 reason = RECLIST_REASON_NONE;
  if (!writer_write(
          *writer, file_path(recording), [] { events_post(recorder_work); }, reason)) {
    database_change([&recording] { return recording_erase(recording.id); });  // else it ends at the next start
    return reason;
  }
  add_recording(recording);
  const std::lock_guard guard(recorder.lock);
  recorder.jobs.push_back({.recording = recording.id, .plan = plan.id, .writer = std::move(writer)});
  return RECLIST_REASON_NONE;
}

INT32 status_of(std::uint64_t bytes, INT32 reason) {
  if (bytes == 0) return RECLIST_STATUS_FAILED;
  return reason == RECLIST_REASON_NONE || reason == RECLIST_REASON_DAMAGED ? RECLIST_STATUS_COMPLETE
                                                                           : RECLIST_STATUS_PARTIAL;
}

// Ends the job. reason: why, unless the writer has stopped by itself.
void end(const Job& ending, INT32 reason) {
  Job job;
  {
    const std::lock_guard guard(recorder.lock);
    const auto found = std::ranges::find(recorder.jobs, ending.recording, &Job::recording);
    job = std::move(*found);
    recorder.jobs.erase(found);
  }
  if (const INT32 own = writer_status(*job.writer).reason; own != RECLIST_REASON_NONE) reason = own;
  // The writer's file is closed first, so that the size includes its last bytes.
  const WriterStatus status = writer_close(std::move(job.writer));
  Recording recording = *find_recording(job.recording);
  recording.bytes = status.written;
  recording.lost = status.lost;
  recording.scrambled = status.scrambled;
  recording.duration = file_length(file_path(recording));
  if (reason == RECLIST_REASON_NONE) reason = status.reason;
  if (reason == RECLIST_REASON_NONE && status.written == 0) {
    reason = status.scrambled ? RECLIST_REASON_SCRAMBLED : RECLIST_REASON_NO_SIGNAL;
  }
  if (reason == RECLIST_REASON_NONE && status.lost > 0) reason = RECLIST_REASON_DAMAGED;
  recording.reason = reason;
  recording.status = status_of(status.written, reason);
  ++recording.version;
  // The recording has ended whether or not that can be saved; the next start finds an unfinished row.
  database_change([&recording] { return recording_store(recording); });
  const std::lock_guard guard(recorder.lock);
  *find_recording(recording.id) = recording;
}

// Deletes a plan that is over. Without the database it stays until the set is switched off, and is over again then.
void drop(int id) {
  database_change([id] { return plan_erase(id); });
  const std::lock_guard guard(recorder.lock);
  std::erase_if(recorder.plans, [id](const Plan& plan) { return plan.id == id; });
}

// Lists a recording that never began.
void note_failure(const Plan& plan, INT32 reason) {
  if (recorder.recordings.size() >= kMostRecordings) {
    std::fprintf(stderr, "dtv_tv: the recording of %s did not begin, and the list is full\n", plan.title.c_str());
    return;
  }
  Recording recording = recording_of(plan, plan_begin(plan));
  recording.duration = 0;
  recording.status = RECLIST_STATUS_FAILED;
  recording.reason = reason;
  if (database_change([&recording] { return recording_store(recording); })) add_recording(recording);
}

void show_message(const Plan& plan, std::int64_t now) {
  const std::lock_guard guard(recorder.lock);
  recorder.message = plan.title == plan.channel ? plan.channel : plan.title + " on " + plan.channel;
  recorder.message_end = now + kMessageTime;
}

// Does what is due of the plan. Returns the channel to show, or 0.
std::uint32_t work_on(Plan& plan, std::int64_t now) {
  std::uint32_t shown = 0;
  if (plan.mode == RMDR_MODE_SERIES || now < plan_begin(plan)) return shown;
  const bool over = now >= plan_end(plan);
  const int id = plan.id;
  if (plan.mode != RMDR_MODE_RECORD) {
    if (!over && plan.mode == RMDR_MODE_REMIND) show_message(plan, now);
    if (!over && plan.mode == RMDR_MODE_WATCH) shown = channel_id_now(plan.key, plan.channel_id);
    drop(id);
  } else if (over) {
    if (const Job* const job = job_of_plan(id)) {
      end(*job, RECLIST_REASON_NONE);
    } else {
      note_failure(plan, plan.failure == RECLIST_REASON_NONE ? RECLIST_REASON_MISSED : plan.failure);
    }
    drop(id);
  } else if (job_of_plan(id) == nullptr && now >= plan.retry) {
    recording_begin(plan, now);
  }
  return shown;
}

void reap() {
  std::vector<std::pair<int, int>> ended;  // recording and plan
  for (const Job& job : recorder.jobs)
    if (writer_status(*job.writer).reason != RECLIST_REASON_NONE) ended.emplace_back(job.recording, job.plan);
  for (const auto& [recording, plan] : ended) {
    end(*find_job(recording), RECLIST_REASON_NONE);
    drop(plan);
  }
}

// The plan of a recording that begins now: of the present event, or for the duration. 0: the event's, else the default.
Outcome plan_now(std::uint32_t channel_id, std::uint32_t duration, std::int64_t now, Plan& ret_plan) {
  const auto unknown = static_cast<std::uint32_t>(config_number(kDefaultKey)) * 60;
  Outcome outcome = plan_for_time(channel_id, now, duration == 0 ? unknown : duration, RMDR_MODE_RECORD, ret_plan);
  if (outcome.result != RMDR_RESULT_OK) return outcome;
  const auto event = guide_event_at(ret_plan.key, now);
  if (event && duration == 0) {
    outcome = plan_for_event(channel_id, event->id, RMDR_MODE_RECORD, ret_plan);
    plan_pad(ret_plan);
  } else if (event) {
    ret_plan.title = event->title;
    ret_plan.present_event = event->id;
  }
  return outcome;
}

// The timer's action after the guide has changed.
void look_at_guide() {
  {
    const std::scoped_lock guard(recorder.changing, recorder.lock);
    recorder.guide_look = timer_now();
    recorder.next_look = 0;
  }
  recorder_work();
}

INT32 result_of(INT32 reason) {
  switch (reason) {
    case RECLIST_REASON_NO_TUNER:
      return RMDR_RESULT_CONFLICT;
    case RECLIST_REASON_NO_SIGNAL:
      return RMDR_RESULT_NOT_FOUND;
    case RECLIST_REASON_LIST_FULL:
      return RMDR_RESULT_FULL;
    default:
      return RMDR_RESULT_NOT_SAVED;
  }
}

std::int64_t next_work(std::int64_t now) {
  std::int64_t next = std::min(now + kLongestPause, std::max(recorder.next_look, now));
  if (!recorder.message.empty()) next = std::min(next, recorder.message_end);
  for (const Plan& plan : recorder.plans) {
    if (plan.mode == RMDR_MODE_SERIES) continue;
    const bool runs = job_of_plan(plan.id) != nullptr;
    next = std::min(next, runs ? plan_end(plan) : std::max(plan_begin(plan), plan.retry));
    if (now >= plan_begin(plan)) next = std::min(next, plan_end(plan));
  }
  return std::max(next, now);
}

}  // namespace

bool recording_begin(Plan& plan, std::int64_t now) {
  const INT32 failure = begin(plan, now);
  const std::lock_guard guard(recorder.lock);
  plan.failure = failure;
  plan.retry = now + kRetryEvery;
  return failure == RECLIST_REASON_NONE;
}

void recording_end(int plan, INT32 reason) {
  if (const Job* const job = job_of_plan(plan)) end(*job, reason);
}

void recordings_end(INT32 reason) {
  while (!recorder.jobs.empty()) end(recorder.jobs.back(), reason);
}

Outcome record_now(std::uint32_t channel_id, std::uint32_t duration, std::string title, int& ret_recording) {
  if (channel_id == 0) {
    const auto current = tuner_channel();
    if (!current) return failed(RMDR_RESULT_NOT_FOUND, "there is no current channel");
    channel_id = current->id;
  }
  const std::int64_t now = clock_utc();
  Plan plan;
  Outcome outcome = plan_now(channel_id, duration, now, plan);
  if (outcome.result != RMDR_RESULT_OK) return outcome;
  const auto runs = [&plan](const Job& job) { return find_recording(job.recording)->key == plan.key; };
  if (std::ranges::any_of(recorder.jobs, runs)) {
    return failed(RMDR_RESULT_DUPLICATE, plan.channel + " is being recorded already");
  }
  if (!title.empty()) plan.title = std::move(title);
  outcome = plan_add(plan, false);
  if (outcome.result != RMDR_RESULT_OK) return outcome;
  Plan& added = *find_plan(outcome.id);
  if (!recording_begin(added, now)) {
    const INT32 reason = added.failure;
    drop(added.id);
    return failed(result_of(reason), "the recording did not begin: " + std::string(reason_text(reason)));
  }
  ret_recording = job_of_plan(added.id)->recording;
  recorder_schedule();
  return outcome;
}

Outcome record_stop(int recording) {
  if (recording == 0 && recorder.jobs.size() == 1) recording = recorder.jobs.front().recording;
  const Job* const job = find_job(recording);
  if (job == nullptr) {
    return failed(RMDR_RESULT_NOT_FOUND, recorder.jobs.empty() ? "nothing is being recorded"
                                         : recording == 0      ? "several recordings run; say which"
                                                          : "recording " + std::to_string(recording) + " does not run");
  }
  const int plan = job->plan;
  if (!database_change([plan] { return plan_erase(plan); })) return not_saved();
  end(*job, RECLIST_REASON_STOPPED);
  {
    const std::lock_guard guard(recorder.lock);
    std::erase_if(recorder.plans, [plan](const Plan& each) { return each.id == plan; });
  }
  recorder_schedule();
  return {};
}

void recorder_schedule() {
  const std::int64_t now = clock_utc();
  timer_set(work_timer, timer_now() + std::chrono::seconds(next_work(now) - now), recorder_work);
}

void recorder_guide_changed() {
  const std::lock_guard guard(recorder.lock);
  timer_set(guide_timer, std::max(timer_now(), recorder.guide_look + kGuidePause), look_at_guide);
}

void recorder_work() {
  std::uint32_t shown = 0;
  {
    const std::lock_guard guard(recorder.changing);
    if (recorder.database.handle == nullptr) return;
    const std::int64_t now = clock_utc();
    reap();
    if (now >= recorder.next_look || now + kLookEvery < recorder.next_look) series_look(now);
    follow_due(now);
    std::vector<int> ids;
    for (const Plan& plan : recorder.plans) ids.push_back(plan.id);
    for (const bool ending : {true, false})  // what ends gives its tuner to what begins
      for (const int id : ids)
        if (Plan* const plan = find_plan(id); plan != nullptr && (now >= plan_end(*plan)) == ending)
          shown = std::max(shown, work_on(*plan, now));
    if (!recorder.message.empty() && now >= recorder.message_end) {
      const std::lock_guard shown_guard(recorder.lock);
      recorder.message.clear();
    }
    recorder_schedule();
  }
  if (shown == 0) return;
  remote_wake();
  sources_choose_tv();
  tuner_choose(shown);
}

std::string recorder_message() {
  const std::lock_guard guard(recorder.lock);
  return recorder.message;
}
