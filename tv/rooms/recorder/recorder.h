// The recorder, for the other rooms.
//
// Its lock for changes comes before the remote control's and those of all rooms after it, and before the lock under
// which the sub picture works (rooms/tuner/picture.h). Its lock for readers comes after all of these; only the
// locks of the writers and the timers' come after it.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "rooms/guide/guide.h"

// The message of the latest reminder; empty: its time on the screen is over. Takes only the lock for readers, so the
// caller may hold its own room's lock.
std::string recorder_message();

// ---- For the menus; the caller holds no lock. Functions that return a text return why not; empty: done ----

enum class RecorderPlan { kRecord, kRemind };

// Plans the event, or deletes its plan.
std::string recorder_toggle(std::uint32_t channel_id, const GuideEvent& event, RecorderPlan kind, bool& ret_is_planned);

// Records the current channel until the end of its present event, or without one for the configured time.
std::string recorder_record(std::string& ret_title);

// "recording", "record" or "remind"; empty: nothing is planned for the event.
std::string_view recorder_mark(const GuideEvent& event);

bool recorder_records(const ServiceKey& key);  // the service is being recorded

struct RecorderLine {
  ServiceKey key;
  std::string title;
  std::string channel;
  std::int64_t start = 0;
  std::uint32_t duration = 0;
  std::string_view mark;  // "recording", "failed", "remind", "record", "series", "kept" or empty
};

std::vector<std::int64_t> recorder_recordings();  // the newest first
std::vector<std::int64_t> recorder_timers();      // in the order of their times
std::optional<RecorderLine> recorder_recording(int id);
std::optional<RecorderLine> recorder_timer(int id);

std::string recorder_stop(int recording);
std::string recorder_delete(int recording);
std::string recorder_delete_timer(int id);
