#include "runner/device.h"

#include <mutex>
#include <utility>

#include "sandbox/device.h"

namespace runner {
namespace {

std::mutex received_lock;
std::string received;

void receive(char character) {
  const std::lock_guard guard(received_lock);
  received.push_back(character);
}

}  // namespace

void device_record() { device_listen(receive); }

std::string device_take() {
  const std::lock_guard guard(received_lock);
  return std::exchange(received, {});
}

}  // namespace runner
