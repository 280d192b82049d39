// The diagnostics log: messages of the plugin on the host's standard output, and progress of the handlers on standard
// error.
#pragma once

#include "tv_ctrl_log.h"

// Prints "[TVC_API][<function>][<line>] --> " and the message, not mixed with other threads' output, and flushes. It
// does not check the level; TVC_LOG does.
[[gnu::format(printf, 3, 4)]] void tvc_log(const char* function, int line, const char* format, ...);

// Prints "[TVC_MAIN]:Return fail:<function>:<line>:<code>" whatever the level.
void tvc_log_fail(const char* function, int line, INT32 code);

// Returns whether a result is a failure (negative), after logging it. operation: name in the log, by default the
// calling function's.
inline bool tvc_failed(INT32 ret, const char* operation = __builtin_FUNCTION(), int line = __builtin_LINE()) {
  if (ret >= 0) return false;
  tvc_log_fail(operation, line, ret);
  return true;
}

// Print a handler's progress on standard error, and other messages on standard output, whatever the level, not mixed
// with other threads' output.
[[gnu::format(printf, 1, 2)]] void tvc_log_progress(const char* format, ...);
[[gnu::format(printf, 1, 2)]] void tvc_log_message(const char* format, ...);

// Logs a message under the calling function's name, if the log level is `level` or above.
#define TVC_LOG(level, ...) TVC_LOG_AS(level, __func__, __VA_ARGS__)

// The same under another name.
#define TVC_LOG_AS(level, function, ...)                                            \
  do {                                                                              \
    if (vex_tvc_debug_level() >= (level)) tvc_log(function, __LINE__, __VA_ARGS__); \
  } while (0)

// The levels of messages: each is printed when the log level is this or above.
enum : INT32 {
  kLogError = 0,    // errors; a negative log level silences even these
  kLogTrace = 1,    // requests and responses
  kLogValue = 2,    // identifiers and decoded values
  kLogMissing = 5,  // optional members that are not there
  kLogCall = 10,    // calls and empty fetches
};
