/* The tap: a library between the plugin and any platform. It defines every function of the TV API.
 *
 * It forwards each call to the platform behind it (a library given by dtv_tap_platform, else the next definition in
 * the process, so that it can be preloaded on a set), or answers it from a script or from a recording. A watcher
 * receives every call and every platform callback as one JSON line:
 *
 *   {"t":10423,"thread":2,"call":"a_vextvapi_volctrl_setVolume","in":{"volume":23},"ret":0}
 *   {"t":10977,"thread":3,"event":"a_vextvapi_volctrl_reg_callback","in":{"callback_type":0,"pv_tag":1219752,...}}
 *
 * "seq": the order in which calls and events of the process started; an event also has "ret", or "dropped": true if a
 * fault kept it from the plugin. {"error": text} lines report errors of the tap itself.
 * "t": microseconds since the tap was loaded; "thread": a small number per thread; "out" (in a call): what the
 * function wrote; "duration": microseconds, if the call took 1 ms or more. Names are the contract's.
 * With DTV_TAP_RECORD=PATH in the environment, the tap appends every line to that file from the start.
 *
 * All functions may be called from any thread. Texts returned through ret_error or as a result are freed with free().
 * Without a watcher, a fault and a script, a call costs a few nanoseconds more than without the tap. */
#ifndef DTV_TAP_H
#define DTV_TAP_H

#include <stdint.h>

#define DTV_TAP_EXPORT __attribute__((visibility("default")))

#ifdef __cplusplus
extern "C" {
#endif

/* Forwards to the functions of this library (a handle of dlopen); null: to the next definition in the process.
 * Returns 0, or -1 when a contract function is missing there, named in ret_error (which may be null). */
DTV_TAP_EXPORT int32_t dtv_tap_platform(void* library, char** ret_error);

/* Calls fct with each line, without a line feed, when the call that it describes returns, on that call's thread. Lines
 * of one thread come in order. null removes the watcher; fct is no longer running when that returns. */
typedef void (*dtv_tap_line_fct)(void* context, const char* line);
DTV_TAP_EXPORT void dtv_tap_watch(dtv_tap_line_fct fct, void* context);

/* Calls fct after each platform callback has returned from the plugin, on the platform's thread; null removes it. */
typedef void (*dtv_tap_event_fct)(void* context);
DTV_TAP_EXPORT void dtv_tap_on_event(dtv_tap_event_fct fct, void* context);

/* A place in the order of calls and events, for a host that writes lines of its own between the tap's. */
typedef struct {
  uint64_t seq;      /* a new number, greater than those of all calls and events that have begun */
  int64_t t;         /* the time, as in lines */
  int32_t thread;    /* this thread's number, as in lines */
  int32_t callbacks; /* platform callbacks that began with a watcher and whose line is not yet written */
} dtv_tap_stamp_t;
DTV_TAP_EXPORT void dtv_tap_stamp(dtv_tap_stamp_t* ret_stamp);

/* Between hold 1 and hold 0, no callback that a watcher would see begins, so that what a host does meanwhile has one
 * place among them. Callbacks on other threads wait, each for 100 ms at most, since the platform may need them to go
 * on; those on this thread do not wait. Callbacks that are under way already are counted by the stamp. Several threads
 * may hold at once; each releases what it holds. */
DTV_TAP_EXPORT void dtv_tap_hold_callbacks(int32_t hold);

/* A fault set on one contract function. */
typedef struct {
  int32_t delay_ms;        /* milliseconds to wait before the call continues */
  int32_t fails;           /* 1: the platform is not called, outputs are cleared, result is returned */
  int32_t result;          /* what a failing call returns */
  int32_t drop_callback;   /* 1: callbacks registered through this function do not reach the plugin */
  int32_t repeat_callback; /* how often each of these callbacks reaches the plugin; 0 is once */
} dtv_tap_fault_t;

/* Sets the fault of one function, replacing an earlier one, or clears it if fault is null. A null function clears all
 * faults. Returns 0, or -1 for a name that is not in the contract. */
DTV_TAP_EXPORT int32_t dtv_tap_fault(const char* function, const dtv_tap_fault_t* fault);

/* Lists the contract: a JSON array of {"name", "params", "kinds", "types": [...] in the function's order, "callback":
 * the callback's parameter names | null, "fault": {...} | null}. */
DTV_TAP_EXPORT char* dtv_tap_list(void);

/* The last call on this thread whose result was negative, or that a fault made fail. */
typedef struct {
  const char* function; /* its name, valid for ever */
  int64_t result;       /* what it returned */
  int32_t by_fault;     /* 1: a fault that is set on the function made it fail */
} dtv_tap_failure_t;

/* Takes this thread's last failed call, so that whoever made a request of the plugin can say which function of the
 * platform failed. Returns 1 with ret_failure (which may be null), or 0 if no call failed since the thread last asked.
 * Costs nothing while no call fails. */
DTV_TAP_EXPORT int32_t dtv_tap_take_failure(dtv_tap_failure_t* ret_failure);

/* Answers every call from a script, a JSON array in the form of the conformance cases' "platform", instead of
 * forwarding. Returns 0, or -1 with ret_error naming the wrong entry and the reason. */
DTV_TAP_EXPORT int32_t dtv_tap_script(const char* answers, char** ret_error);

/* Answers every call from a recording (JSON lines), in its order; null ends the replay. dtv_tap_replay_report returns
 * null while every call has matched the recording, else a text that names the call that differed and the recorded one.
 * dtv_tap_replay_report, and a call that replaces or ends the recording, first wait until the recording has raised its
 * events, for one second at most. */
DTV_TAP_EXPORT int32_t dtv_tap_replay(const char* lines, char** ret_error);
DTV_TAP_EXPORT char* dtv_tap_replay_report(void);

/* Calls, on another thread, the callback that was registered through a platform function, and waits for it.
 * args: JSON array of the callback's arguments in order; null in the tag's place passes the registered tag.
 * Returns 0 with the callback's result in ret_result, else -1 with ret_error. */
DTV_TAP_EXPORT int32_t dtv_tap_raise(const char* function, const char* args, int64_t* ret_result, char** ret_error);

#ifdef __cplusplus
}
#endif

#endif
