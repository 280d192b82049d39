// The recorder: reminders, timers, series and recordings.
#include "rooms/recorder/recorder.h"

#include <absl/time/time.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <boost/json.hpp>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <system_error>
#include <utility>

#include "core/set.h"
#include "rooms/clock/clock.h"
#include "rooms/playback/playback.h"
#include "rooms/recorder/parts.h"

// Never destroyed: other threads may still use it when the process exits.
RecorderState& recorder = *new RecorderState;

Plan* find_plan(int id) {
  const auto found = std::ranges::find(recorder.plans, id, &Plan::id);
  return found == recorder.plans.end() ? nullptr : &*found;
}

Recording* find_recording(int id) {
  const auto found = std::ranges::find(recorder.recordings, id, &Recording::id);
  return found == recorder.recordings.end() ? nullptr : &*found;
}

Job* find_job(int recording) {
  const auto found = std::ranges::find(recorder.jobs, recording, &Job::recording);
  return found == recorder.jobs.end() ? nullptr : &*found;
}

std::string file_name(const Recording& recording) {
  const std::string time =
      absl::FormatTime("%Y%m%d-%H%M%S", absl::FromUnixSeconds(recording.start), absl::UTCTimeZone());
  return std::to_string(recording.id) + "-" + time + ".ts";
}

std::string file_url(const Recording& recording) { return std::string(kRecordingsFolder) + "/" + file_name(recording); }

std::string file_path(const Recording& recording) { return recorder.folder + "/" + file_name(recording); }

const char* reason_text(INT32 reason) {
  constexpr const char* kTexts[] = {"",
                                    "stopped by the viewer",
                                    "the set was switched off",
                                    "the disk is full",
                                    "the disk cannot be written",
                                    "the file was deleted or moved",
                                    "the signal was lost",
                                    "there is no signal",
                                    "no tuner is free",
                                    "the channel is scrambled",
                                    "the disk was too slow for parts of it",
                                    "the list of recordings is full",
                                    "the set was off"};
  static_assert(std::size(kTexts) == RECLIST_REASON_MISSED + 1);
  return kTexts[reason];
}

Outcome failed(INT32 result, std::string why) { return {.result = result, .why = std::move(why)}; }

Outcome not_saved() { return failed(RMDR_RESULT_NOT_SAVED, "the change could not be saved; see the set's log"); }

std::vector<const Plan*> plans_in_order() {
  std::vector<const Plan*> plans;
  for (const Plan& plan : recorder.plans) plans.push_back(&plan);
  std::ranges::stable_sort(plans, {},
                           [](const Plan* plan) { return std::pair(plan->mode == RMDR_MODE_SERIES, plan->start); });
  return plans;
}

std::vector<const Recording*> recordings_in_order(INT32 sort) {
  std::vector<const Recording*> order;
  for (const Recording& recording : recorder.recordings) order.push_back(&recording);
  std::ranges::sort(order, [sort](const Recording* left, const Recording* right) {
    if (sort == RECLIST_SORT_NAME && left->title != right->title) return left->title < right->title;
    const auto left_age = std::pair(left->start, left->id), right_age = std::pair(right->start, right->id);
    return sort == RECLIST_SORT_OLDEST ? left_age < right_age : left_age > right_age;
  });
  return order;
}

Recording recording_now(const Recording& recording) {
  Recording now = recording;
  if (const Job* const job = find_job(recording.id)) {
    const WriterStatus status = writer_status(*job->writer);
    now.bytes = status.written;
    now.lost = status.lost;
    now.scrambled = status.scrambled;
    now.duration = static_cast<std::uint32_t>(std::clamp<std::int64_t>(clock_utc() - now.start, 0, UINT32_MAX));
  } else if (now.status != RECLIST_STATUS_FAILED && access(file_path(now).c_str(), F_OK) != 0) {
    now.bytes = 0;
    now.status = RECLIST_STATUS_FAILED;
    now.reason = RECLIST_REASON_FILE_GONE;
  }
  return now;
}

Outcome recording_change(int id, const std::function<void(Recording&)>& change) {
  const Recording* const found = find_recording(id);
  if (found == nullptr) return failed(RMDR_RESULT_NOT_FOUND, "there is no recording " + std::to_string(id));
  Recording changed = *found;
  change(changed);
  ++changed.version;
  if (!database_change([&changed] { return recording_store(changed); })) return not_saved();
  const std::lock_guard guard(recorder.lock);
  *find_recording(id) = std::move(changed);
  return {};
}

// The row goes first: a row without a file would look like a file that somebody else has deleted.
Outcome recording_delete(int id) {
  const Recording* const found = find_recording(id);
  if (found == nullptr) return failed(RMDR_RESULT_NOT_FOUND, "there is no recording " + std::to_string(id));
  if (found->status == RECLIST_STATUS_RECORDING) {
    return failed(RMDR_RESULT_CONFLICT, "recording " + std::to_string(id) + " still runs; stop it first");
  }
  if (found->kept) {
    return failed(RMDR_RESULT_CONFLICT, "recording " + std::to_string(id) + " is kept; \"recording " +
                                            std::to_string(id) + " keep\" releases it");
  }
  const std::string path = file_path(*found);
  if (!database_change([id] { return recording_erase(id); })) return not_saved();
  {
    const std::lock_guard guard(recorder.lock);
    std::erase_if(recorder.recordings, [id](const Recording& each) { return each.id == id; });
    if (recorder.last_played == id) recorder.last_played = 0;
  }
  playback_leave_recording(id);
  if (unlink(path.c_str()) != 0 && errno != ENOENT) {
    std::fprintf(stderr, "dtv_tv: cannot delete %s: %s\n", path.c_str(),
                 std::generic_category().message(errno).c_str());
  }
  return {};
}

std::optional<PlayableRecording> recorder_playable(int id, std::string& ret_why) {
  const std::lock_guard guard(recorder.lock);
  const Recording* const found = find_recording(id);
  if (found == nullptr) {
    ret_why = "there is no recording " + std::to_string(id);
    return std::nullopt;
  }
  Recording shown = recording_now(*found);
  if (shown.status == RECLIST_STATUS_FAILED) {
    ret_why = "there is nothing to play of recording " + std::to_string(id) + ": " + reason_text(shown.reason);
    return std::nullopt;
  }
  return PlayableRecording{.id = id,
                           .path = file_path(shown),
                           .url = file_url(shown),
                           .title = std::move(shown.title),
                           .channel = std::move(shown.channel),
                           .event = shown.event,
                           .start = shown.start,
                           .duration = shown.duration,
                           .bytes = shown.bytes,
                           .resume = shown.resume,
                           .runs = shown.status == RECLIST_STATUS_RECORDING};
}

void recorder_note_playing(int id, std::int32_t status, std::uint32_t resume) {
  const std::lock_guard guard(recorder.changing);
  const Recording* const found = find_recording(id);
  if (found == nullptr) return;
  if (found->resume != resume && recorder.database.handle != nullptr) {
    recording_change(id, [resume](Recording& recording) { recording.resume = resume; });
  }
  const std::lock_guard list_guard(recorder.lock);
  find_recording(id)->playing = status;
  recorder.last_played = id;
}

namespace {

// Finishes what the end of an earlier process has interrupted.
void finish_interrupted() {
  for (Recording& recording : recorder.recordings) {
    if (recording.status != RECLIST_STATUS_RECORDING) continue;
    struct stat info {};
    const std::string path = file_path(recording);
    recording.bytes = lstat(path.c_str(), &info) == 0 ? static_cast<std::uint64_t>(info.st_size) : 0;
    recording.duration = file_length(path);
    recording.status = recording.bytes == 0 ? RECLIST_STATUS_FAILED : RECLIST_STATUS_PARTIAL;
    recording.reason = RECLIST_REASON_INTERRUPTED;
    ++recording.version;
    database_change([&recording] { return recording_store(recording); });
  }
}

// The antenna has read its folder: a recording that found no signal may have one now.
void try_again() {
  {
    const std::scoped_lock guard(recorder.changing, recorder.lock);
    for (Plan& plan : recorder.plans) plan.retry = 0;
  }
  recorder_work();
}

void load() {
  antenna_listen(try_again);
  const std::lock_guard guard(recorder.changing);
  {
    const std::lock_guard list_guard(recorder.lock);
    recorder.plans.clear();
    recorder.recordings.clear();
    recorder.message.clear();
    recorder.last_played = 0;
    recorder.form = {};
  }
  recorder.next_look = 0;
  std::string error;
  if (!recorder_open(set_folder(), error)) {
    std::fprintf(stderr, "dtv_tv: there is no recorder: %s\n", error.c_str());
    return;
  }
  const std::lock_guard list_guard(recorder.lock);
  finish_interrupted();
}

void start() {
  const std::lock_guard guard(recorder.changing);
  recorder_schedule();
}

void stop() {
  playback_end();  // while its position can be saved
  const std::lock_guard guard(recorder.changing);
  recordings_end(RECLIST_REASON_INTERRUPTED);
  database_close(recorder.database);
}

// A new set has no timers and reminders; its disk keeps the recordings.
bool reset() {
  const std::lock_guard guard(recorder.changing);
  std::vector<int> ids;
  for (const Plan& plan : recorder.plans) ids.push_back(plan.id);
  const bool erased = ids.empty() || database_change([&ids] {
                        return std::ranges::all_of(ids, [](int id) { return plan_erase(id); });
                      });
  if (!erased) return false;
  recordings_end(RECLIST_REASON_STOPPED);
  const std::lock_guard list_guard(recorder.lock);
  recorder.plans.clear();
  recorder.message.clear();
  recorder.form = {};
  return true;
}

void report(boost::json::object& answer) {
  const std::lock_guard guard(recorder.lock);
  boost::json::array running;
  for (const Job& job : recorder.jobs) {
    const Recording& recording = *find_recording(job.recording);
    running.push_back({{"id", recording.id}, {"title", recording.title}, {"channel", recording.channel}});
  }
  if (!running.empty()) answer["recording"] = std::move(running);
  if (!recorder.message.empty()) answer["reminder"] = recorder.message;
  if (recorder.form.formId != 0) {
    answer["recorder_form"] = {{"id", recorder.form.formId}, {"state", recorder.form.formState}};
  }
}

}  // namespace

const Room room_recorder = {.commands = kRecorderCommands,
                            .items = kRecorderItems,
                            .load = load,
                            .reset = reset,
                            .report = report,
                            .start = start,
                            .stop = stop};
