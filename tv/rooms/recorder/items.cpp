// The recorder's structured items of the configuration.
#include <sys/statvfs.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <utility>

#include "base/text.h"
#include "core/reply.h"
#include "rooms/clock/clock.h"
#include "rooms/guide/guide.h"
#include "rooms/recorder/parts.h"

namespace {

template <std::size_t Size>
std::string text_of(const char (&text)[Size]) {
  return {text, strnlen(text, Size)};
}

// Cuts between characters, and fills the rest with zeros.
template <std::size_t Size>
void put_text(char (&ret_text)[Size], std::string_view text) {
  std::size_t size = 0;
  while (size < text.size()) {
    const std::size_t length = std::max<std::size_t>(utf8_length(text.substr(size)), 1);
    if (size + length >= Size) break;
    size += length;
  }
  std::memset(ret_text, 0, Size);
  std::memcpy(ret_text, text.data(), size);
}

std::uint32_t seconds(std::int64_t time) {
  return static_cast<std::uint32_t>(std::clamp<std::int64_t>(time, 0, UINT32_MAX));
}

bool is_on(const char* function) {
  const bool on = recorder.database.handle != nullptr;
  if (!on) refuse_call(function, "the recorder is off, or has no database");
  return on;
}

// ---- The list of recordings ----

constexpr std::size_t kPage = std::size(_Qt_RECLIST_INFO_T{}.at_page);
constexpr std::uint64_t kMegabyte = 1U << 20;

RECLIST_ENTRY_T entry_of(const Recording& recording, std::size_t place) {
  RECLIST_ENTRY_T entry{};
  entry.channel_id = channel_id_now(recording.key, recording.channel_id);
  entry.start_time = seconds(recording.start);
  entry.duration = recording.duration;
  entry.playback_resume_time = recording.resume;
  entry.recording_status = recording.status;
  entry.failure_reason = recording.reason;
  entry.ver = recording.version;
  entry.sizeinMB = static_cast<UINT32>(std::min<std::uint64_t>(recording.bytes / kMegabyte, UINT32_MAX));
  entry.slot = static_cast<UINT16>(place);
  entry.list_id = static_cast<UINT16>(recording.id);
  entry.event_id = static_cast<UINT16>(std::max(recording.event, 0));
  entry.b_recording_complete = recording.status == RECLIST_STATUS_COMPLETE ? 1 : 0;
  entry.b_scrambled = recording.scrambled ? 1 : 0;
  put_text(entry.program_name, recording.title);
  put_text(entry.channel_name, recording.channel);
  put_text(entry.file_name_id, file_name(recording));
  put_text(entry.file_url_id, file_url(recording));
  return entry;
}

void read_page(_Qt_RECLIST_INFO_T& list) {
  const std::size_t first = list.start_slot + kPage * list.page_index;
  std::vector<Recording> page;
  {
    const std::lock_guard guard(recorder.lock);
    const std::vector<const Recording*> order = recordings_in_order(list.e_sort_type);
    for (std::size_t place = first; place < std::min(first + kPage, order.size()); ++place)
      page.push_back(recording_now(*order[place]));
  }
  for (std::size_t i = 0; i < kPage; ++i)
    list.at_page[i] = i < page.size() ? entry_of(page[i], first + i) : RECLIST_ENTRY_T{};
}

// The recording that list_id names, or without one the place in the list. The caller holds `lock`.
void read_file(_Qt_RECLIST_INFO_T& list) {
  const Recording* found = find_recording(list.t_reclist_info.list_id);
  if (list.t_reclist_info.list_id == 0) {
    const std::vector<const Recording*> order = recordings_in_order(list.e_sort_type);
    if (list.t_reclist_info.slot < order.size()) found = order[list.t_reclist_info.slot];
  }
  const Recording shown = found == nullptr ? Recording{} : recording_now(*found);
  list.recording_status = found == nullptr ? RECLIST_STATUS_NONE : shown.status;
  const bool playable = found != nullptr && shown.status != RECLIST_STATUS_FAILED;
  put_text(list.file_name_id, playable ? file_name(shown) : "");
  put_text(list.file_url_id, playable ? file_url(shown) : "");
}

INT32 read_list(void* record) {
  auto& list = *static_cast<_Qt_RECLIST_INFO_T*>(record);
  {
    const std::lock_guard guard(recorder.lock);
    list.reclist_num = static_cast<INT32>(recorder.recordings.size());
    if (list.e_op == RECLIST_OP_FILE) read_file(list);
  }
  if (list.e_op != RECLIST_OP_NUMBER && list.e_op != RECLIST_OP_FILE) read_page(list);
  return 0;
}

Outcome change_list(const _Qt_RECLIST_INFO_T& list) {
  const RECLIST_REQUEST_T& request = list.t_reclist_info;
  std::string title = text_of(request.program_name);
  if (!is_utf8(title)) return failed(RMDR_RESULT_ARGUMENT, "the title is not UTF-8");
  switch (list.e_op) {
    case RECLIST_OP_DELETE:
      return recording_delete(request.list_id);
    case RECLIST_OP_RENAME:
      if (title.empty()) return failed(RMDR_RESULT_ARGUMENT, "the new title is empty");
      return recording_change(request.list_id, [&title](Recording& recording) { recording.title = title; });
    case RECLIST_OP_RECORD_NOW: {
      int recording = 0;
      return record_now(request.channel_id, request.duration, std::move(title), recording);
    }
    case RECLIST_OP_STOP:
      return record_stop(request.list_id);
    default:
      return failed(RMDR_RESULT_ARGUMENT,
                    "a write deletes (4), renames (5), records (6) or stops (7), not " + std::to_string(list.e_op));
  }
}

INT32 write_list(const void* record) {
  const std::lock_guard guard(recorder.changing);
  if (!is_on(__func__)) return -1;
  const Outcome outcome = change_list(*static_cast<const _Qt_RECLIST_INFO_T*>(record));
  return outcome.result == RMDR_RESULT_OK ? 0 : refuse_call("recording list", outcome.why);
}

// ---- Reminders and timers ----

// The plan that a request describes.
Outcome requested(const _RmdrEventInfo_T& request, Plan& ret_plan) {
  if (request.e_rmdr_mode < RMDR_MODE_REMIND || request.e_rmdr_mode > RMDR_MODE_SERIES) {
    return failed(RMDR_RESULT_ARGUMENT, "the mode is 0 to 3, not " + std::to_string(request.e_rmdr_mode));
  }
  const std::string title = text_of(request.s_event_title);
  if (!is_utf8(title)) return failed(RMDR_RESULT_ARGUMENT, "the title is not UTF-8");
  Plan plan;
  Outcome outcome =
      request.event_id != 0
          ? plan_for_event(request.ui4_ref_channel_id, request.event_id, request.e_rmdr_mode, plan)
          : plan_for_time(request.ui4_ref_channel_id, request.start_time, request.duration, request.e_rmdr_mode, plan);
  if (outcome.result != RMDR_RESULT_OK) return outcome;
  if (request.event_id == 0 && !title.empty()) plan.title = title;
  if (request.ui4_rec_start_time != 0 && request.e_rmdr_mode == RMDR_MODE_RECORD) {
    const std::int64_t before = plan.start - request.ui4_rec_start_time;
    const std::int64_t after =
        request.ui4_rec_start_time + std::int64_t{request.ui4_rec_duration} - plan.start - std::int64_t{plan.duration};
    constexpr std::int64_t kLongest = kLongestEvent;
    if (before < -kLongest || before > kLongest || after < -kLongest || after > kLongest) {
      return failed(RMDR_RESULT_ARGUMENT, "the recording is more than 24 hours off its event");
    }
    plan.before = static_cast<std::int32_t>(before);
    plan.after = static_cast<std::int32_t>(after);
  }
  ret_plan = std::move(plan);
  return outcome;
}

bool is_padded(const _RmdrEventInfo_T& request) { return request.ui4_rec_start_time == 0; }

Outcome modified(const _RmdrEventInfo_T& request) {
  const Plan* const old = find_plan(request.ui2_slot);
  if (old == nullptr) {
    return failed(RMDR_RESULT_NOT_FOUND, "there is no timer " + std::to_string(request.ui2_slot));
  }
  if (old->mode == RMDR_MODE_SERIES || old->mode != request.e_rmdr_mode) {
    return failed(RMDR_RESULT_ARGUMENT, "a timer keeps its mode, and a series cannot be modified");
  }
  Plan plan;
  if (Outcome outcome = requested(request, plan); outcome.result != RMDR_RESULT_OK) return outcome;
  plan.id = old->id;
  plan.series = old->series;
  const bool runs = std::ranges::find(recorder.jobs, plan.id, &Job::plan) != recorder.jobs.end();
  if (runs && plan.key != old->key) {
    return failed(RMDR_RESULT_ARGUMENT, "timer " + std::to_string(plan.id) + " is being recorded on its channel");
  }
  return plan_add(plan, is_padded(request));
}

void describe(const Plan& plan, _RmdrEventInfo_T& ret_record) {
  ret_record.e_rmdr_mode = plan.mode;
  ret_record.ui4_ref_channel_id = channel_id_now(plan.key, plan.channel_id);
  ret_record.start_time = seconds(plan.start);
  ret_record.duration = plan.duration;
  const bool records = plan.mode == RMDR_MODE_RECORD;
  ret_record.ui4_rec_start_time = records ? seconds(plan_begin(plan)) : 0;
  ret_record.ui4_rec_duration = records ? seconds(plan_end(plan) - plan_begin(plan)) : 0;
  ret_record.event_id = static_cast<UINT16>(std::max(plan.event, 0));
  ret_record.ui2_slot = static_cast<UINT16>(plan.id);
  put_text(ret_record.s_event_title, plan.title);
}

Outcome get(_RmdrEventInfo_T& record, const Plan* plan) {
  if (plan == nullptr) return failed(RMDR_RESULT_NOT_FOUND, "there is no such timer");
  describe(*plan, record);
  return {.id = plan->id};
}

Outcome get_by_slot(_RmdrEventInfo_T& record) { return get(record, find_plan(record.ui2_slot)); }

Outcome get_by_index(_RmdrEventInfo_T& record) {
  const std::vector<const Plan*> order = plans_in_order();
  return get(record, record.info_data < order.size() ? order[record.info_data] : nullptr);
}

Outcome add(_RmdrEventInfo_T& record) {
  Plan plan;
  Outcome outcome = requested(record, plan);
  if (outcome.result != RMDR_RESULT_OK) return outcome;
  outcome = plan_add(plan, is_padded(record));
  if (outcome.result == RMDR_RESULT_OK) describe(*find_plan(outcome.id), record);
  return outcome;
}

void put_conflicts(const std::vector<Window>& conflicts, _RmdrEventInfo_T& ret_record) {
  const auto timer = std::ranges::find_if(conflicts, [](const Window& window) { return window.id != 0; });
  ret_record.conflict_state = conflicts.empty() ? 0 : 1;
  ret_record.conflict_slot = timer == conflicts.end() ? UINT16{0} : static_cast<UINT16>(timer->id);
  ret_record.conflict_type = conflicts.empty()          ? RMDR_CONFLICT_NONE
                             : timer != conflicts.end() ? RMDR_CONFLICT_REMINDERS
                                                        : RMDR_CONFLICT_PICTURE;
}

Outcome ask_conflict(_RmdrEventInfo_T& record) {
  Plan plan;
  Outcome outcome = requested(record, plan);
  if (outcome.result != RMDR_RESULT_OK) return outcome;
  if (is_padded(record)) plan_pad(plan);
  const int ignored = record.is_ignore_special_slot != 0 ? record.conflict_slot : 0;
  put_conflicts(plan_conflicts(plan, ignored), record);
  return {};
}

Outcome ask_slot(_RmdrEventInfo_T& record) {
  const std::vector<const Plan*> order = plans_in_order();
  const auto found = std::ranges::find(order, int{record.ui2_slot}, [](const Plan* plan) { return plan->id; });
  const bool runs = std::ranges::find(recorder.jobs, int{record.ui2_slot}, &Job::plan) != recorder.jobs.end();
  record.is_rmdr = found != order.end() ? 1 : 0;
  record.is_on_going_pvr = runs ? 1 : 0;
  record.slot_idx = found == order.end() ? UINT16{0} : static_cast<UINT16>(found - order.begin());
  return {};
}

Outcome ask_recording(_RmdrEventInfo_T& record) {
  record.is_recording = std::ranges::any_of(recorder.jobs, [&record](const Job& job) {
    const Recording& recording = *find_recording(job.recording);
    return record.ui4_ref_channel_id == 0 ||
           channel_id_now(recording.key, recording.channel_id) == record.ui4_ref_channel_id;
  });
  return {};
}

Outcome ask_disk(_RmdrEventInfo_T& record) {
  record.is_usb_ready = disk_problem(recorder.folder) == RECLIST_REASON_NONE ? 1 : 0;
  return {};
}

Outcome ask_time_shift(_RmdrEventInfo_T& record) {
  record.is_usb_ready = 0;
  return {};
}

Outcome ask_number(_RmdrEventInfo_T& record) {
  record.total_rmdr_num = static_cast<UINT16>(recorder.plans.size());
  return {};
}

struct Operation {
  INT32 number;
  Outcome (*run)(_RmdrEventInfo_T& record);  // the caller holds `changing`
};

constexpr Operation kOperations[] = {
    {RMDR_OP_NONE, [](_RmdrEventInfo_T&) { return Outcome{}; }},
    {RMDR_OP_RECORDING_ON_SLOT, ask_slot},
    {RMDR_OP_USB_READY, ask_disk},
    {RMDR_OP_ADD, add},
    {RMDR_OP_IS_RECORDING, ask_recording},
    {RMDR_OP_DELETE, [](_RmdrEventInfo_T& record) { return plan_delete(record.ui2_slot); }},
    {RMDR_OP_MODIFY, [](_RmdrEventInfo_T& record) { return modified(record); }},
    {RMDR_OP_GET, get_by_slot},
    {RMDR_OP_GET_BY_INDEX, get_by_index},
    {RMDR_OP_CONFLICT, ask_conflict},
    {RMDR_OP_NUMBER, ask_number},
    {RMDR_OP_USB_READY_TO_SHIFT, ask_time_shift},
};

INT32 read_reminder(void* pointer) {
  auto& record = *static_cast<_RmdrEventInfo_T*>(pointer);
  const auto* const operation = std::ranges::find(kOperations, record.e_operation, &Operation::number);
  if (operation == std::end(kOperations)) {
    return refuse_call("reminder", "there is no operation " + std::to_string(record.e_operation));
  }
  const std::lock_guard guard(recorder.changing);
  if (!is_on("reminder")) return -1;
  const Outcome outcome = operation->run(record);
  record.op_result = outcome.result;
  if (outcome.result == RMDR_RESULT_CONFLICT) put_conflicts(outcome.conflicts, record);
  return outcome.result == RMDR_RESULT_OK ? 0 : refuse_call("reminder", outcome.why);
}

// ---- The disk, the file that plays, and the forms on the screen ----

INT32 read_disk(void* record) {
  auto& disk = *static_cast<_Qt_PAIRED_DISK_INFO*>(record);
  std::string folder;
  {
    const std::lock_guard guard(recorder.lock);
    folder = recorder.folder;
  }
  struct statvfs info {};
  if (statvfs(folder.c_str(), &info) != 0) return refuse_call("recorder's disk", "cannot read " + folder);
  disk.ui8_free_size = static_cast<UINT64>(info.f_bavail) * info.f_frsize;
  disk.ui8_total_size = static_cast<UINT64>(info.f_blocks) * info.f_frsize;
  put_text(disk.ca_mnt_path, folder);
  return 0;
}

INT32 file_status(const Recording& shown) {
  if (shown.status == RECLIST_STATUS_FAILED) return PVR_FILE_NONE;
  if (shown.playing != PVR_FILE_READY) return shown.playing;
  return shown.status == RECLIST_STATUS_RECORDING ? PVR_FILE_RECORDING : PVR_FILE_READY;
}

INT32 read_playing(void* record) {
  auto& info = *static_cast<_PvrFileInfo*>(record);
  const std::lock_guard guard(recorder.lock);
  if (info.ui2_list_id == 0) info.ui2_list_id = static_cast<UINT16>(recorder.last_played);
  const Recording* const found = find_recording(info.ui2_list_id);
  info.e_file_status = found == nullptr ? PVR_FILE_NONE : file_status(recording_now(*found));
  info.ui4_resume_time = found == nullptr ? 0 : found->resume;
  return 0;
}

INT32 write_playing(const void* record) {
  const auto& info = *static_cast<const _PvrFileInfo*>(record);
  if (info.e_file_status < PVR_FILE_READY || info.e_file_status > PVR_FILE_PAUSED) {
    return refuse_call("file info",
                       "the status is 2 (ready), 3 (playing) or 4 (paused), not " + std::to_string(info.e_file_status));
  }
  const std::lock_guard guard(recorder.changing);
  if (!is_on("file info")) return -1;
  const Outcome outcome = recording_change(info.ui2_list_id, [&info](Recording& recording) {
    recording.resume = info.ui4_resume_time;
    recording.playing = info.e_file_status;
  });
  if (outcome.result != RMDR_RESULT_OK) return refuse_call("file info", outcome.why);
  const std::lock_guard list_guard(recorder.lock);
  recorder.last_played = info.ui2_list_id;
  return 0;
}

INT32 read_form(void*) { return refuse_call("recorder's form", "it is only written"); }

INT32 write_form(const void* record) {
  const std::lock_guard guard(recorder.lock);
  recorder.form = *static_cast<const _PvrUiStatus*>(record);
  return 0;
}

constexpr StructItem kItems[] = {
    {VEXTVAPI_CONFIG_ITEM_PVR_RECORD_LIST, sizeof(_Qt_RECLIST_INFO_T), read_list, write_list},
    {VEXTVAPI_CONFIG_ITEM_PVR_REMINDER, sizeof(_RmdrEventInfo_T), read_reminder, nullptr},
    {VEXTVAPI_CONFIG_ITEM_PVR_PAIRED_DISK, sizeof(_Qt_PAIRED_DISK_INFO), read_disk, nullptr},
    {VEXTVAPI_CONFIG_ITEM_PVR_FILE_INFO, sizeof(_PvrFileInfo), read_playing, write_playing},
    {VEXTVAPI_CONFIG_ITEM_PVR_UI_STATUS, sizeof(_PvrUiStatus), read_form, write_form},
};

}  // namespace

constinit const std::span<const StructItem> kRecorderItems = kItems;
