#include "tv_ctrl_util/log.h"

#include <stdarg.h>
#include <stdio.h>
#include <string.h>

#include "tv_ctrl_util/number.h"

// Written once, by a_dtv_jsp_init_res before any request; afterwards every thread reads it without a lock.
static INT32 vex_tvc_log_lvl;

static constexpr const char* kLevelFile = "/3rd_rw/tvc_debug";
static constexpr int kPieceSize = 31;  // bytes; a longer line is read in pieces of 30 characters

void vex_tvc_read_log_lvl(void) {
  FILE* const file = fopen(kLevelFile, "re");
  if (!file) {
    vex_tvc_log_lvl = 0;
    return;
  }
  char piece[kPieceSize];
  while (fgets(piece, sizeof piece, file)) {
    if (strncmp(piece, "log=", 4) != 0) continue;
    vex_tvc_log_lvl = tvc_text_to_int32(piece + 4);
    tvc_log_progress("[TVC_MAIN][%s][%d] -- tvc log level: %d.\n", __func__, __LINE__, vex_tvc_log_lvl);
  }
  fclose(file);
}

INT32 vex_tvc_debug_level(void) { return vex_tvc_log_lvl; }

void tvc_log(const char* function, int line, const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  flockfile(stdout);
  printf("[TVC_API][%s][%d] --> ", function, line);
  vprintf(format, arguments);
  fflush(stdout);
  funlockfile(stdout);
  va_end(arguments);
}

[[gnu::format(printf, 2, 0)]] static void print(FILE* stream, const char* format, va_list arguments) {
  flockfile(stream);
  vfprintf(stream, format, arguments);
  fflush(stream);
  funlockfile(stream);
}

void tvc_log_progress(const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  print(stderr, format, arguments);
  va_end(arguments);
}

void tvc_log_message(const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  print(stdout, format, arguments);
  va_end(arguments);
}

void tvc_log_fail(const char* function, int line, INT32 code) {
  printf("[TVC_MAIN]:Return fail:%s:%d:%d\r\n", function, line, code);
  fflush(stdout);
}
