// The whole set: switching it on and off, and the table of its rooms.
#include "tv.h"

#include <cstring>
#include <mutex>

namespace {

constexpr Room kRooms[] = {
    {.name = "volume", .load = volume_load, .reset = volume_reset, .report = volume_report},
    {.name = "config", .load = config_load, .reset = config_reset, .report = config_report},
};

std::mutex power_lock;  // one switches the set on or off at a time; taken before every other lock

}  // namespace

std::span<const Room> rooms() { return kRooms; }

std::int32_t dtv_tv_start(const char* state_folder, char** ret_error) {
  const std::lock_guard guard(power_lock);
  std::string error;
  if (state_folder == nullptr || *state_folder == '\0') {
    error = "the virtual television needs a state folder";
  } else if (store_is_open()) {
    error = "the virtual television is on already";
  } else if (store_open(state_folder, error)) {
    for (const Room& room : kRooms) room.load();
    events_start();
    return 0;
  }
  if (ret_error != nullptr) *ret_error = strdup(error.c_str());
  return -1;
}

void dtv_tv_stop() {
  const std::lock_guard guard(power_lock);
  events_stop();
  store_close();
}
