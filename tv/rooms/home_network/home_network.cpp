// The home network: media servers, their items and files.
#include "rooms/home_network/home_network.h"

#include <mutex>

#include "base/text.h"
#include "core/contract.h"
#include "core/events.h"
#include "core/room.h"
#include "rooms/home_network/loop.h"
#include "rooms/home_network/parts.h"

namespace {

struct Keys {
  std::mutex lock;  // guards all members below
  a_vextvapi_html5_agent_nfy_fct callback = nullptr;
};

// Never destroyed: the event thread may still use it when the process exits.
Keys& keys = *new Keys;

a_vextvapi_html5_agent_nfy_fct key_callback() {
  const std::lock_guard guard(keys.lock);
  return keys.callback;
}

}  // namespace

INT32 a_vextvapi_html5_agent_register_cb_for_usb(a_vextvapi_html5_agent_nfy_fct callback, void*) {
  const std::lock_guard guard(keys.lock);
  keys.callback = callback;
  return 0;
}

void home_network_key(std::string_view code, bool leaves) {
  std::string_view digits = code;
  if (digits.starts_with("0x")) digits.remove_prefix(2);
  const UINT32 number = parse_number<UINT32>(digits, 16).value_or(0);
  if (key_callback() == nullptr) return;
  events_post([number, leaves] {
    if (const auto callback = key_callback())
      callback(DMP_KEY_PRESSED, number, 0, leaves ? DMP_KEY_LEAVES : DMP_KEY_STAYS);
  });
}

namespace {

void load() {
  {
    const std::lock_guard guard(keys.lock);
    keys.callback = nullptr;
  }
  servers_load();
  browsing_load();
  objects_load();
  items_load();
  files_load();
}

// Cancels what runs. The callbacks of that run on the thread before it ends.
void stop() {
  home_loop_stop();
  servers_stop();
}

}  // namespace

const Room room_home_network = {
    .commands = servers_commands(), .load = load, .reset = servers_reset, .report = servers_report, .stop = stop};
