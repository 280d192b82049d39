// The scan for services. A thread, which exists only during a scan, surveys each multiplex of the antenna and hands the
// services to the channel lists. Its lock is not held while a file is read or the channel lists take the result.
#pragma once

#include <boost/json/object.hpp>

#include "core/room.h"

inline constexpr std::size_t kMostFound = 8192;    // services of one scan
inline constexpr std::size_t kMostMessages = 300;  // of one scan: a line per file that cannot be read, and a few others

void scan_open();
void scan_close();  // cancels a scan, and returns when its thread has ended

void scan_cancel();

boost::json::object scan_command(Arguments arguments);

// Adds the scan to the answer of "state" while it runs.
void scan_report(boost::json::object& answer);
