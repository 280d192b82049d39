// The fuzz targets' platform: its results, outputs and callbacks come from the fuzzer's input. "platform_expand.h"
// makes its functions from the contract's statements; nothing knows a function by name.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

// What happens during a platform call, in addition to its answer.
enum class MidCall : std::uint8_t {
  kNothing,
  kRaiseHere,           // a callback on the calling thread
  kRaiseOnOtherThread,  // a callback on another thread, before the call returns
  kRaiseBeside,         // a callback on another thread, which may outlast the call
  kWait,                // the call takes half a millisecond
};
inline constexpr std::size_t kMidCalls = 5;

// Begins an input: from now on all answers are read from these bytes, from the start again at their end, and calls do
// nothing else. The registered callbacks are those that platform_keep kept. No other thread uses the platform
// meanwhile.
void platform_begin(std::string bytes);

// Keeps the callbacks that are registered now for all inputs that follow.
void platform_keep();

// Reads the answers from other bytes from now on.
void platform_answers(std::string bytes);

// Sets what each platform call does in addition.
void platform_mid_call(MidCall action);

// Raises one of the registered callbacks, with arguments read from the answers, on the calling thread.
void platform_raise();

// Ends an input: waits for callbacks that outlast their calls.
void platform_end();

// --- For the functions that are expanded from the contract ---

// The answers as a source of decisions (see "bytes.h").
struct Answers {};
std::uint8_t take_byte(Answers& answers);

// Memory that the platform hands out, each piece exactly as large as what is in it, so that the address sanitizer sees
// a read beyond it. Freed at the end of a callback, or with the next input: a pointer that was kept longer is found.
struct Memory {
  std::vector<void*> pieces;
  Memory() = default;
  Memory(const Memory&) = delete;
  Memory& operator=(const Memory&) = delete;
  ~Memory();
};
void* take_memory(Memory& memory, std::size_t size);

// Memory for the outputs of a call, on any thread.
void* take_call_memory(std::size_t size);

using RawCallback = void (*)();

struct Registration {
  const char* parameter;  // which of the function's callbacks it is
  RawCallback callback;   // null: none from now on
  void (*raise)(RawCallback callback, std::uintptr_t tag);
};

// Keeps what a call registers; a platform may have several subscribers of one kind.
void platform_register(const char* function, const std::vector<Registration>& registrations, std::uintptr_t tag);

// Does what platform_mid_call said.
void platform_act();
