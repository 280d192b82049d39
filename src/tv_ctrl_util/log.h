// The diagnostics log: every message of the plugin, on the host's standard output.
#pragma once

#include "tv_ctrl_log.h"

// Prints "[TVC_API][<function>][<line>] --> " and the message, as one piece even when several threads print, and
// flushes. The caller has asked for the level.
[[gnu::format(printf, 3, 4)]] void tvc_log(const char* function, int line, const char* format, ...);

// Prints "[TVC_MAIN]:Return fail:<function>:<line>:<code>" whatever the level.
void tvc_log_fail(const char* function, int line, INT32 code);

// Whether a result is a failure, which is then logged, under the caller's name where no other operation is given.
inline bool tvc_failed(INT32 ret, const char* operation = __builtin_FUNCTION(), int line = __builtin_LINE()) {
  if (ret >= 0) return false;
  tvc_log_fail(operation, line, ret);
  return true;
}

// Prints a handler's progress, on standard error, as one piece, whatever the level.
[[gnu::format(printf, 1, 2)]] void tvc_log_progress(const char* format, ...);

// A message of the plugin interface, printed when the log level is `level` or above.
#define TVC_LOG(level, ...) TVC_LOG_AS(level, __func__, __VA_ARGS__)

// The same under the name of the operation that the message belongs to.
#define TVC_LOG_AS(level, function, ...)                                            \
  do {                                                                              \
    if (vex_tvc_debug_level() >= (level)) tvc_log(function, __LINE__, __VA_ARGS__); \
  } while (0)

// Levels from which on a message is printed.
enum : INT32 {
  kLogError = 0,    // errors; a negative level silences even these
  kLogTrace = 1,    // requests and responses
  kLogValue = 2,    // identifiers and decoded values
  kLogMissing = 5,  // optional members that are not there
  kLogCall = 10,    // calls and empty fetches
};
