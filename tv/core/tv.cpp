// The whole set: switching it on and off, and the table of its rooms.
#include "core/tv.h"

#include <cstring>
#include <filesystem>
#include <mutex>

namespace {

constexpr Room kRooms[] = {
    {.name = "volume", .load = volume_load, .reset = volume_reset, .report = volume_report},
    {.name = "config", .load = config_load, .reset = config_reset, .report = config_report},
    {.name = "clock", .load = clock_load, .reset = clock_reset, .report = clock_report},
    {.name = "apps", .load = apps_load, .reset = apps_reset, .report = apps_report},
    {.name = "remote", .load = remote_load, .reset = remote_reset, .report = remote_report},
    {.name = "network",
     .load = network_load,
     .reset = network_reset,
     .report = network_report,
     .start = network_start,
     .stop = network_stop},
    {.name = "cec", .load = cec_load, .reset = cec_reset, .report = cec_report},
    {.name = "usb", .load = usb_load, .reset = usb_reset, .report = usb_report},
};

std::mutex power_lock;  // one switches the set on or off at a time; taken before every other lock
std::string folder;     // guarded by it

}  // namespace

std::span<const Room> rooms() { return kRooms; }

bool tv_reset() {
  // In one write. The rooms then find kept what they want to keep, so that none of them can fail on its own.
  if (!store_reset()) return false;
  bool reset = true;
  for (const Room& room : kRooms) reset = room.reset() && reset;
  return reset;
}

const std::string& tv_folder() { return folder; }

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
    for (const Room& room : kRooms) room.load();
    events_start();
    timers_start();
    for (const Room& room : kRooms)
      if (room.start != nullptr) room.start();
    return 0;
  }
  if (ret_error != nullptr) *ret_error = strdup(error.c_str());
  return -1;
}

void dtv_tv_stop() {
  const std::lock_guard guard(power_lock);
  timers_stop();
  for (const Room& room : kRooms)
    if (room.stop != nullptr) room.stop();
  events_stop();
  store_close();
}
