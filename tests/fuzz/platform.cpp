#include "platform.h"

#include <map>
#include <mutex>
#include <thread>
#include <type_traits>

#include "tvapi/all.h"

namespace {

std::mutex platform_mutex;  // guards what follows; not held while a callback runs
std::string answers;
std::size_t answers_position;
MidCall mid_call = MidCall::kNothing;

using RawCallback = void (*)();

struct Registration {
  RawCallback callback = nullptr;
  std::uintptr_t tag = 0;
  void (*raise)(RawCallback callback, std::uintptr_t tag) = nullptr;
};
std::map<std::string, Registration> registrations;  // by the function that registers

// A callback may call the platform again: it does not raise another one then.
thread_local bool raising;

// The next bytes of the answers, as many as one value or text needs; the caller owns the copy.
std::string next_answers(std::size_t count) {
  const std::lock_guard guard(platform_mutex);
  std::string bytes(count, '\0');
  if (!answers.empty())
    for (char& byte : bytes) byte = answers[answers_position++ % answers.size()];
  return bytes;
}

Bytes bytes_of(const std::string& text) {
  return {.next = reinterpret_cast<const std::uint8_t*>(text.data()), .left = text.size()};
}

template <typename T>
T answer() {
  const std::string raw = next_answers(sizeof(std::uintmax_t) + 1);
  Bytes bytes = bytes_of(raw);
  if constexpr (std::is_pointer_v<T>)
    return reinterpret_cast<T>(take_integer<std::uintptr_t>(bytes));
  else if constexpr (std::is_enum_v<T>)
    return static_cast<T>(take_integer<std::underlying_type_t<T>>(bytes));
  else if constexpr (!std::is_void_v<T>)
    return take_integer<T>(bytes);
}

// What the contract has no parameter for yet is marked as unused.

// Arguments of a callback; texts and records live until the thread's next one.
[[maybe_unused]] const char* answer_text() {
  thread_local std::string text;
  text = next_answers(static_cast<std::uint8_t>(next_answers(1)[0]));
  return text.c_str();
}

template <typename T>
const T* answer_record() {
  thread_local T record;
  const std::string raw = next_answers(sizeof record);
  std::memcpy(&record, raw.data(), sizeof record);
  return &record;
}

template <typename T>
std::size_t count_of(T count) {
  if constexpr (std::is_pointer_v<T>)
    return count ? count_of(*count) : 0;
  else
    return static_cast<std::size_t>(count);
}

// What a platform function does with one parameter.
void read_memory(const void* memory, std::size_t size) {
  for (std::size_t i = 0; memory && i < size; ++i) (void)static_cast<const volatile char*>(memory)[i];
}

[[maybe_unused]] void read_text(const char* text) { read_memory(text, text ? std::strlen(text) + 1 : 0); }

template <typename T>
void write_values(T* values, std::size_t count) {
  static_assert(std::is_trivially_copyable_v<T>);
  if (!values) return;
  const std::string raw = next_answers(count * sizeof(T));
  std::memcpy(values, raw.data(), raw.size());
}

// A platform terminates its texts, and they may be empty.
[[maybe_unused]] void write_text(char* text, std::size_t size) {
  write_values(text, size);
  if (text && size > 0) text[size - 1] = '\0';
}

template <typename T>
std::uintptr_t tag_word(T tag) {
  if constexpr (std::is_pointer_v<T>)
    return reinterpret_cast<std::uintptr_t>(tag);
  else
    return static_cast<std::uintptr_t>(tag);
}

template <typename T>
T word_tag(std::uintptr_t word) {
  if constexpr (std::is_pointer_v<T>)
    return reinterpret_cast<T>(word);
  else
    return static_cast<T>(word);
}

void register_callback(const char* function, const Registration& registration) {
  if (!registration.callback) return;
  const std::lock_guard guard(platform_mutex);
  registrations[function] = registration;
}

void act_mid_call() {
  MidCall action;
  {
    const std::lock_guard guard(platform_mutex);
    action = mid_call;
  }
  if (raising) return;
  if (action == MidCall::kRaiseHere) platform_raise();
  if (action == MidCall::kRaiseOnOtherThread) std::thread(platform_raise).join();
}

}  // namespace

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
  const auto choice = static_cast<std::uint8_t>(next_answers(1)[0]);
  Registration registration;
  {
    const std::lock_guard guard(platform_mutex);
    if (registrations.empty()) return;
    registration = std::next(registrations.begin(), static_cast<int>(choice % registrations.size()))->second;
  }
  raising = true;
  registration.raise(registration.callback, registration.tag);
  raising = false;
}

// --- The contract's functions, expanded from their statements ---

#define FUZZ_ARGUMENT(p) FUZZ_ARGUMENT_##p
#define FUZZ_ARGUMENT_IN(type, name) answer<type>()
#define FUZZ_ARGUMENT_IN_TEXT(name) answer_text()
#define FUZZ_ARGUMENT_IN_RECORD(type, name) answer_record<type>()
#define FUZZ_ARGUMENT_TAG(type, name) word_tag<type>(fuzz_tag)

#define FUZZ_PARAM(p) FUZZ_PARAM_##p
#define FUZZ_PARAM_IN(type, name) (void)name
#define FUZZ_PARAM_IN_TEXT(name) read_text(name)
#define FUZZ_PARAM_IN_RECORD(type, name) read_memory(name, sizeof *name)
#define FUZZ_PARAM_IN_ARRAY(type, name, count) read_memory(name, count_of(count) * sizeof *name)
#define FUZZ_PARAM_OUT(type, name) write_values(name, 1)
#define FUZZ_PARAM_INOUT(type, name) read_memory(name, sizeof *name), write_values(name, 1)
#define FUZZ_PARAM_OUT_TEXT(name, size) write_text(name, count_of(size))
#define FUZZ_PARAM_OUT_ARRAY(type, name, count) write_values(name, count_of(count))
#define FUZZ_PARAM_CALLBACK(type, name) \
  fuzz_registration.callback = reinterpret_cast<RawCallback>(name), fuzz_registration.raise = raise_##type
#define FUZZ_PARAM_TAG(type, name) fuzz_registration.tag = tag_word(name)

#define TVAPI_CALLBACK(ret, type, ...)                                                       \
  static void raise_##type(RawCallback callback, [[maybe_unused]] std::uintptr_t fuzz_tag) { \
    (void)reinterpret_cast<type>(callback)(TVAPI_EACH(FUZZ_ARGUMENT, __VA_ARGS__));          \
  }

#define TVAPI_FN(ret, fct, ...)                      \
  ret fct(TVAPI_EACH(TVAPI_DECLARE, __VA_ARGS__)) {  \
    Registration fuzz_registration;                  \
    __VA_OPT__(TVAPI_EACH(FUZZ_PARAM, __VA_ARGS__);) \
    register_callback(#fct, fuzz_registration);      \
    act_mid_call();                                  \
    return answer<ret>();                            \
  }

#include "tvapi/all.h"
