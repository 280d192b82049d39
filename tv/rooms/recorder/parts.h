// The recorder's parts: its records, its state, and what its files call of each other.
//
// Two locks. `changing` serializes everything that changes the recorder: commands, requests, due timers, ends of
// recordings. It is held over writes to the database, the begin of a reception and the end of a writer, so it can be
// held for some milliseconds. `lock` guards the data that readers see, and is held only to copy or exchange
// them. A thread that holds `changing` may read them without `lock`, and changes them under both. `changing` is taken
// first.
#pragma once

#include <chrono>
#include <functional>
#include <mutex>
#include <optional>
#include <span>
#include <string>
#include <variant>
#include <vector>

#include "core/contract.h"
#include "core/database.h"
#include "core/room.h"
#include "core/timers.h"
#include "rooms/antenna/antenna.h"
#include "rooms/recorder/conflicts.h"
#include "rooms/recorder/writer.h"

inline constexpr std::size_t kMostRecordings = 1000;
inline constexpr std::size_t kMostPlans = 500;                        // reminders, timers and series together
inline constexpr int kLastId = 65535;                                 // what a request's UINT16 can name
inline constexpr std::uint32_t kLongestEvent = 24 * 60 * 60;          // s
inline constexpr std::int64_t kFarthestEvent = 366LL * 24 * 60 * 60;  // s from now
inline constexpr std::int64_t kLookEvery = 10 * 60;                   // s between searches of the guide
inline constexpr std::chrono::seconds kGuidePause{10};                // between searches because the guide has changed
inline constexpr std::size_t kLongestTitle = 255;                     // bytes
inline constexpr const char* kRecordingsFolder = "recordings";        // in the state folder

// What is due at a time: a reminder, the timer of a recording, or a series. Its id is the request's slot.
struct Plan {
  int id = 0;
  INT32 mode = RMDR_MODE_REMIND;
  ServiceKey key = {};
  std::uint32_t channel_id = 0;
  std::string channel = {};  // its name
  int event = -1;            // -1: none, the times are the viewer's
  std::int64_t start = 0;    // of the event
  std::uint32_t duration = 0;
  std::int32_t before = 0;  // s by which a recording begins before the event, and ends after it; negative: within it
  std::int32_t after = 0;
  std::string title = {};  // of a series: its name, as GuideEvent has it
  int series = 0;          // the series that added it; 0: the viewer did
  int genre = 0;           // the event's first category, else the application's

  // In memory only.
  std::int64_t retry = 0;               // a recording that could not begin is tried again then
  INT32 failure = RECLIST_REASON_NONE;  // why it could not
  int present_event = -1;               // without an event: the one that ran when the viewer began to record
};

inline std::int64_t plan_begin(const Plan& plan) { return plan.start - plan.before; }
inline std::int64_t plan_end(const Plan& plan) { return plan.start + plan.duration + plan.after; }

struct Recording {
  int id = 0;
  ServiceKey key = {};
  std::uint32_t channel_id = 0;
  std::string channel = {};
  int event = -1;
  std::int64_t start = 0;      // when it began
  std::uint32_t duration = 0;  // s, as planned while it runs, then what the file has
  std::string title = {};
  INT32 status = RECLIST_STATUS_RECORDING;
  INT32 reason = RECLIST_REASON_NONE;
  std::uint32_t resume = 0;  // s from the beginning
  std::uint64_t bytes = 0;
  std::uint64_t lost = 0;  // bytes that the disk was too slow for
  bool kept = false;       // protected from deletion
  bool scrambled = false;
  std::uint32_t version = 0;  // incremented with each change

  INT32 playing = PVR_FILE_READY;  // in memory only: PVR_FILE_*
};

// A recording that runs.
struct Job {
  int recording = 0;
  int plan = 0;
  WriterHandle writer;
};

struct RecorderState {
  std::mutex changing;
  Database database;  // guarded by changing, like the next ones; not open: the set is off, or the file cannot be used
  std::int64_t next_look = 0;  // when the guide is searched for series again
  std::int64_t message_end = 0;

  std::mutex lock;          // guards all members below
  std::string folder;       // of the recordings
  std::vector<Plan> plans;  // in the order of their ids
  std::vector<Recording> recordings;
  std::vector<Job> jobs;
  std::string message;
  TimerTime guide_look = {};  // when the guide was last searched because it had changed
  int last_played = 0;        // recording
  _PvrUiStatus form = {};
};

extern RecorderState& recorder;

// ---- database.cpp: the caller holds `changing` ----

using Cell = std::variant<std::int64_t, std::string_view>;

// Carries out the changes in one transaction. False, with the reason on stderr: none of them is saved.
bool database_change(const std::function<bool()>& changes);
bool plan_store(const Plan& plan);
bool plan_erase(int id);  // of a series also the plans that it has added
bool recording_store(const Recording& recording);
bool recording_erase(int id);
bool played_store(int recording);  // it was played last

// Which events of a series have been planned: once is enough, even if the viewer deletes the plan. An event that begins
// within 12 hours of another one with its id is the same.
bool taken_store(int series, const Plan& plan);
bool taken_find(int series, const ServiceKey& key, int event, std::int64_t start);

// Opens the database, reads both lists, and leaves out rows that cannot be right. False with ret_error.
bool recorder_open(const std::string& folder, std::string& ret_error);

// ---- planning.cpp: the caller holds `changing` ----

struct Outcome {
  INT32 result = RMDR_RESULT_OK;  // RMDR_RESULT_*
  int id = 0;                     // of the plan
  std::string why = {};           // for people, of a failure
  std::vector<Window> conflicts = {};
};

// Checks the plan, gives it an id unless it has one, stores it, and takes it into the list in place of the one with its
// id. padded: a recording gets the configured padding. A conflict is refused.
Outcome plan_add(Plan plan, bool padded);

// A plan for an event of the guide, or for a time; fails if there is no such channel or event.
Outcome plan_for_event(std::uint32_t channel_id, int event, INT32 mode, Plan& ret_plan);
Outcome plan_for_time(std::uint32_t channel_id, std::int64_t start, std::uint32_t duration, INT32 mode, Plan& ret_plan);

// Gives a recording the configured padding.
void plan_pad(Plan& plan);

// The identifier that the channel of a plan or of a recording has now, or had when it was deleted. Takes the channels'
// lock: the caller does not hold `lock`.
std::uint32_t channel_id_now(const ServiceKey& key, std::uint32_t former_id);

// What the plan would conflict with; ignored: a plan that does not count, besides the plan itself.
std::vector<Window> plan_conflicts(const Plan& plan, int ignored);

// Deletes the plan; what it records ends.
Outcome plan_delete(int id);

// Follows events that the broadcaster has moved, and plans new events of the series.
void series_look(std::int64_t now);

// Follows the events of the plans that are to begin or to end now.
void follow_due(std::int64_t now);

// ---- running.cpp: the caller holds `changing` ----

// Begins the plan's recording. False: it did not begin, plan.failure says why.
bool recording_begin(Plan& plan, std::int64_t now);

// Ends the plan's recording, if it has one. The plan stays.
void recording_end(int plan, INT32 reason);

// Ends all recordings.
void recordings_end(INT32 reason);

// Records now. duration: s; 0: to the end of the present event, which the recording then follows, or if the guide has
// none for g_rec__default_duration.
Outcome record_now(std::uint32_t channel_id, std::uint32_t duration, std::string title, int& ret_recording);

// Stops a recording for the viewer; 0: the only one.
Outcome record_stop(int recording);

// Sets the timer for what is due next.
void recorder_schedule();

// The guide's listener: searches the guide soon, at most once in kGuidePause. Takes `lock` only.
void recorder_guide_changed();

// What the timer and the end of a writer call, without a lock: does everything that is due.
void recorder_work();

// ---- recorder.cpp ----

Plan* find_plan(int id);
Recording* find_recording(int id);
Job* find_job(int recording);
std::string file_name(const Recording& recording);
std::string file_url(const Recording& recording);  // in the state folder
const char* reason_text(INT32 reason);             // RECLIST_REASON_*
Outcome failed(INT32 result, std::string why);
Outcome not_saved();

// For the viewer's wishes about a recording; the caller holds `changing`.
Outcome recording_delete(int id);
Outcome recording_change(int id, const std::function<void(Recording&)>& change);
Outcome recording_play(int id, INT32 playing, std::uint32_t resume);  // PVR_FILE_*; it is the one that was played last

// What a list shows of a recording now: of one that runs or whose file has vanished, that differs from the record. The
// caller holds `lock`.
Recording recording_now(const Recording& recording);

std::string file_path(const Recording& recording);

// The caller of both holds one of the locks.
std::vector<const Plan*> plans_in_order();                      // of their times, series last
std::vector<const Recording*> recordings_in_order(INT32 sort);  // RECLIST_SORT_*

extern const std::span<const StructItem> kRecorderItems;  // items.cpp
extern const std::span<const Command> kRecorderCommands;  // commands.cpp
