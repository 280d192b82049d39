// Switching the set on and off, and resetting it.
#include "core/set.h"

#include <cstring>
#include <filesystem>
#include <mutex>

#include "core/events.h"
#include "core/room.h"
#include "core/store.h"
#include "core/timers.h"
#include "dtv_tv.h"

namespace {

std::mutex power_lock;  // one thread at a time switches the set on or off; taken before every other lock
std::string folder;     // guarded by it

}  // namespace

bool set_reset() {
  // One write deletes all stored values. A room that then stores its factory values finds nothing to write, so no room
  // can fail on its own.
  if (!store_reset()) return false;
  bool reset = true;
  for (const Room* const room : rooms())
    if (room->reset != nullptr) reset = room->reset() && reset;
  return reset;
}

const std::string& set_folder() { return folder; }

std::int32_t dtv_tv_start(const char* state_folder, char** ret_error) {
  const std::lock_guard guard(power_lock);
  std::string error;
  if (state_folder == nullptr || *state_folder == '\0') {
    error = "the virtual television needs a state folder";
  } else if (store_is_open()) {
    error = "the virtual television is on already";
  } else if (store_open(state_folder, error)) {
    std::error_code none;  // it exists
    folder = std::filesystem::canonical(state_folder, none).string();
    for (const Room* const room : rooms())
      if (room->load != nullptr) room->load();
    events_start();
    timers_start();
    for (const Room* const room : rooms())
      if (room->start != nullptr) room->start();
    return 0;
  }
  if (ret_error != nullptr) *ret_error = strdup(error.c_str());
  return -1;
}

void dtv_tv_stop() {
  const std::lock_guard guard(power_lock);
  timers_stop();
  for (const Room* const room : rooms())
    if (room->stop != nullptr) room->stop();
  events_stop();
  store_close();
}
