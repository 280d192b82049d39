// What the rooms of the virtual television share. A room is one area of the TV API: one file that defines the area's
// functions, keeps its state under a lock of its own and has a row in kRooms (tv.cpp) and in the command table
// (control.cpp).
//
// Lock order: the CEC bus's or the applications' lock, then the remote control's or the configuration's, then the
// store's or the event queue's; the other rooms' locks come before the last two only. Callbacks run on the event thread
// with no lock held but the USB room's for its own, so they may call any function of the TV API.
#pragma once

#include <boost/json/fwd.hpp>
#include <chrono>
#include <cstdint>
#include <functional>
#include <span>
#include <string>
#include <string_view>
#include <variant>

#include "dtv_tv.h"

// The contract's functions are exports of this library, whatever the build's default visibility is.
#pragma GCC visibility push(default)
#include "tvapi/all.h"
#pragma GCC visibility pop

// ---- store.cpp, store_open.cpp, store_sync.cpp: the set's memory, a SQLite database in the state folder ----

struct Setting {
  const char* key;
  std::int64_t factory;  // the value of a new set
  std::int64_t minimum;
  std::int64_t maximum;
};

struct TextSetting {
  const char* key;
  const char* factory;
  std::size_t longest;  // in bytes
};

struct SettingValue {
  using Value = std::variant<std::int64_t, std::string_view>;
  const char* key;
  Value value;
};

// Opens or creates the database and holds its folder alone until store_close. A damaged file is moved aside, and the
// call fails; a damaged value is reported on stderr and is the factory's again.
bool store_open(const std::string& folder, std::string& ret_error);
void store_close();
bool store_is_open();

// Whether the store keeps it as it is: UTF-8 without a NUL.
bool store_is_text(std::string_view text);

// The kept value; the factory's where none is kept or where it is of another kind or out of its limits, which is
// reported on stderr. A room reads each of its keys when it loads.
std::int64_t store_read(const Setting& setting);
std::string store_read(const TextSetting& setting);

// Keeps all values or none; they are on the disk when it returns true, or with dtv_tv_on_kept in the operating system's
// hands. Also true without any writing where all are kept already. A failure is reported on stderr.
bool store_write(std::span<const SettingValue> values);

// Forgets all values at once, so that each is the factory's; returns as store_write does.
bool store_reset();

// ---- events.cpp: the thread that calls the platform callbacks ----

void events_start();

// Runs what is still queued, takes nothing more, and ends the thread. Not from a callback.
void events_stop();

// Calls event on the event thread, after all that were posted before. The caller may hold its room's lock: that makes
// the order of the callbacks the order of the changes. Dropped when the set is off.
void events_post(std::function<void()> event);

// Waits until all events have been called, those too that were posted meanwhile. Not from a callback.
void events_settle();

// ---- timers.cpp: the thread on which things happen later ----

// Their time is the machine's monotonic clock, or with dtv_tv_manual_clock what the tests have advanced it to. Their
// lock is taken after every other lock.

enum class Timer { kSleep, kDigits, kCecFrame, kCount };
using TimerTime = std::chrono::steady_clock::time_point;
constexpr TimerTime kTimerNever = TimerTime::max();

void timers_start();

// Drops what still waits and ends the thread; no action runs when it returns.
void timers_stop();

TimerTime timer_now();

// Calls action, with no lock held, when the time has come, in place of what the timer waited for. An action may have
// begun already when its timer is set anew, so it looks at its room whether it is still due. The caller may hold its
// room's lock. False when the set is off.
bool timer_set(Timer timer, TimerTime due, void (*action)());

// Sleeps for that long, on or off; a manual clock is advanced in place of it, and no action runs.
void timer_pause(std::chrono::milliseconds pause);

// ---- the rooms; they use each other by these functions, not by the TV API's, which in a host are the tap's ----

struct Room {
  const char* name;
  void (*load)();   // takes the state from the store
  bool (*reset)();  // back to the factory's state; callbacks as for any other change; false: all stays, see tv_reset
  void (*report)(boost::json::object& answer);  // adds the members of the control command "state"
  void (*start)() = nullptr;                    // a thread of its own, once events can be posted
  void (*stop)() = nullptr;                     // ends it, before events end; also when there is none
};

std::span<const Room> rooms();

// All rooms back to the factory's state. Where the store cannot forget what it keeps, nothing is changed and it returns
// false; so it does where somebody's change that came between could not be undone.
bool tv_reset();

// The state folder's absolute path. Only while a room loads.
const std::string& tv_folder();

void volume_load();
bool volume_reset();
void volume_report(boost::json::object& answer);
bool volume_press(int by);  // what the volume keys do; false, here and below: the change could not be kept
bool mute_press();

void config_load();
bool config_reset();
void config_report(boost::json::object& answer);

// A value of the catalogue, for other rooms. config_set returns 0, or -1, which is said on stderr.
INT32 config_number(const char* key);
std::string config_text(const char* key);
INT32 config_set(const char* key, INT32 value);
INT32 config_set(const char* key, std::string_view value);
UINT32 config_changes(const char* key);  // how often the value has changed, to compare

void clock_load();
bool clock_reset();
void clock_report(boost::json::object& answer);
void clock_stop_sleep();
bool clock_step_sleep();  // what the SLEEP key does

void apps_load();
bool apps_reset();
void apps_report(boost::json::object& answer);
void apps_end();         // all that runs
void apps_leave_menu();  // the set's own application

void remote_load();
bool remote_reset();
void remote_report(boost::json::object& answer);
bool remote_is_on();  // and not in standby
void remote_wake();
void remote_standby();             // puts the set there; no lock held
void remote_show_hdmi(int input);  // a source's wish; nothing for an input that is none, nor in standby

void cec_load();
bool cec_reset();
void cec_report(boost::json::object& answer);
void cec_standby();  // the set has gone there

void network_load();
void network_start();
void network_stop();
bool network_reset();
void network_report(boost::json::object& answer);

void usb_load();
bool usb_reset();
void usb_report(boost::json::object& answer);

// ---- control.cpp: what a viewer does ----

using Words = std::span<const std::string_view>;

boost::json::object control_error(std::string text);
boost::json::object control_not_kept();  // the error of a command whose change the store has refused

// The arguments after the command's name. The answer is what the command reports, or control_error.
boost::json::object volume_command(Words arguments);
boost::json::object mute_command(Words arguments);
boost::json::object config_command(Words arguments);
boost::json::object clock_command(Words arguments);
boost::json::object app_command(Words arguments);
boost::json::object power_command(Words arguments);
boost::json::object key_command(Words arguments);
boost::json::object network_command(Words arguments);
boost::json::object cec_command(Words arguments);
boost::json::object stick_command(Words arguments);
