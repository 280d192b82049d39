#include "platform.h"

#include <stdlib.h>

#include <chrono>
#include <map>
#include <mutex>
#include <optional>
#include <thread>
#include <utility>

namespace {

std::mutex platform_mutex;  // guards what follows; not held while a callback runs
std::string answers;
std::size_t answers_position;
MidCall mid_call = MidCall::kNothing;
Memory call_memory;
std::vector<std::thread> beside;

struct Subscriber {
  Registration registration;
  std::uintptr_t tag;
};
constexpr std::size_t kMostSubscribers = 4;
// By function and parameter; the latest at the end.
using Subscribers = std::map<std::pair<std::string, std::string>, std::vector<Subscriber>>;
Subscribers subscribers;
std::optional<Subscribers> kept;

constexpr std::size_t kMostBeside = 4;

// A callback may call the platform again: it does not raise another one then.
thread_local bool raising;

}  // namespace

std::uint8_t take_byte(Answers&) {
  const std::lock_guard guard(platform_mutex);
  if (answers.empty()) return 0;
  return static_cast<std::uint8_t>(answers[answers_position++ % answers.size()]);
}

Memory::~Memory() {
  for (void* piece : pieces) free(piece);
}

void* take_memory(Memory& memory, std::size_t size) {
  memory.pieces.push_back(calloc(1, size));
  return memory.pieces.back();
}

void* take_call_memory(std::size_t size) {
  const std::lock_guard guard(platform_mutex);
  return take_memory(call_memory, size);
}

void platform_begin(std::string bytes) {
  platform_answers(std::move(bytes));
  platform_mid_call(MidCall::kNothing);
  const std::lock_guard guard(platform_mutex);
  for (void* piece : std::exchange(call_memory.pieces, {})) free(piece);
  if (kept) subscribers = *kept;
}

void platform_keep() {
  const std::lock_guard guard(platform_mutex);
  kept = subscribers;
}

void platform_answers(std::string bytes) {
  const std::lock_guard guard(platform_mutex);
  answers = std::move(bytes);
  answers_position = 0;
}

void platform_mid_call(MidCall action) {
  const std::lock_guard guard(platform_mutex);
  mid_call = action;
}

void platform_raise() {
  Answers source;
  const std::size_t choice = take_byte(source);
  Subscriber chosen{};
  {
    const std::lock_guard guard(platform_mutex);
    std::size_t count = 0;
    for (const auto& [key, list] : subscribers) count += list.size();
    if (count == 0) return;
    std::size_t left = choice % count;
    for (const auto& [key, list] : subscribers) {
      if (left < list.size()) {
        chosen = list[left];
        break;
      }
      left -= list.size();
    }
  }
  const bool outer = std::exchange(raising, true);
  chosen.registration.raise(chosen.registration.callback, chosen.tag);
  raising = outer;
}

void platform_end() {
  std::vector<std::thread> threads;
  {
    const std::lock_guard guard(platform_mutex);
    threads.swap(beside);
  }
  for (std::thread& thread : threads) thread.join();
}

void platform_register(const char* function, const std::vector<Registration>& registrations, std::uintptr_t tag) {
  const std::lock_guard guard(platform_mutex);
  for (const Registration& registration : registrations) {
    std::vector<Subscriber>& list = subscribers[{function, registration.parameter}];
    if (!registration.callback) {
      list.clear();
      continue;
    }
    std::erase_if(list, [&](const Subscriber& known) {
      return known.registration.callback == registration.callback && known.tag == tag;
    });
    if (list.size() == kMostSubscribers) list.erase(list.begin());
    list.push_back({.registration = registration, .tag = tag});
  }
}

void platform_act() {
  MidCall action;
  {
    const std::lock_guard guard(platform_mutex);
    action = mid_call;
    if (action == MidCall::kRaiseBeside && !raising && beside.size() < kMostBeside) beside.emplace_back(platform_raise);
  }
  if (raising) return;
  if (action == MidCall::kRaiseHere) platform_raise();
  if (action == MidCall::kRaiseOnOtherThread) std::thread(platform_raise).join();
  if (action == MidCall::kWait) std::this_thread::sleep_for(std::chrono::microseconds(500));
}
