// The lines that the plugin and the platform print while a call runs: the reply to the call quotes them. They are
// printed as before, too.
#pragma once

#include <string>

// The most bytes of a call's lines that are kept; the rest is left out.
inline constexpr std::size_t kLogCaptureBytes = 16 * 1024;

// Replaces stdout and stderr of stdio by streams that pass everything on to the streams of before. Call it once, before
// other threads print. Returns false if memory runs out: then calls have no lines.
bool log_capture_start();

// Keeps what this thread prints in ret_lines, until it is called with null.
void log_capture(std::string* ret_lines);
