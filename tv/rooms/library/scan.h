// One scan of a stick, on the scanning thread.
#pragma once

#include <atomic>
#include <functional>
#include <mutex>
#include <string>

#include "rooms/library/parts.h"

struct MediaReader;

// Lets other threads end a scan.
struct ScanControl {
  std::atomic<bool> stopped = false;
  std::mutex lock;                // guards the reader's address
  MediaReader* reader = nullptr;  // the reader that the scan uses now; null: none
};
void scan_stop(ScanControl& control);
bool scan_is_stopped(const ScanControl& control);

struct ScanTask {
  UsbStick stick;
  std::int64_t id = 0;  // of the stick's row
  std::string state_folder;
};

enum class ScanState { kDone, kCancelled, kFailed };
struct ScanEnd {
  ScanState state = ScanState::kFailed;
  std::string reason = {};
};

// Calls `change` with the stick's report, under the lock that guards it.
using ScanTell = std::function<void(const std::function<void(ScanReport& report)>& change)>;

// Scans the stick. Returns when the scan is done, has been stopped, or has failed.
ScanEnd scan_run(const ScanTask& task, ScanControl& control, const ScanTell& tell);
