// Expands contract headers into functions that answer from the fuzzer's input. Include order:
//
//     #include "tvapi/all.h"        // types
//     #include "platform_expand.h"
//     #include "tvapi/all.h"        // records and definitions
//
// What a platform may do with each form of parameter is described below, under "What a function does with its
// parameters" and "What a callback's arguments are". A form that has no rule there, and a record that is not described,
// do not compile.
#pragma once

#include <cstring>
#include <type_traits>
#include <utility>

#include "bytes.h"
#include "platform.h"
#include "tap/record.h"
#include "tvapi/contract.h"

// --- Values ---

// A terminated text in memory of its own length, or null. `allocate` takes a size.
const char* answer_text(Answers& answers, const auto& allocate) {
  static constexpr std::size_t kLengths[] = {0, 1, 7, 15, 31, 32, 63, 64, 127, 128, 255, 256, 1000};
  const std::size_t choice = take_below(answers, 2 * std::size(kLengths));
  if (choice == std::size(kLengths)) return nullptr;
  const std::size_t length = choice < std::size(kLengths) ? kLengths[choice] : take_below(answers, 20);
  char* const text = static_cast<char*>(allocate(length + 1));
  for (std::size_t i = 0; i < length; ++i) {
    const auto character = static_cast<char>(take_byte(answers));
    text[i] = character == '\0' ? 'x' : character;
  }
  return text;
}

// Any number, often one of those that codes and kinds have.
template <std::integral T>
T answer_number(Answers& answers) {
  return take_chance(answers, 4) ? static_cast<T>(take_below(answers, 32)) : take_integer<T>(answers);
}

inline void answer_integer(Answers& answers, const tap::Type& type, void* value) {
  const auto store = [&]<typename T>(T number) { std::memcpy(value, &number, sizeof number); };
  switch (type.size) {
    case 1:
      return type.is_signed ? store(answer_number<std::int8_t>(answers)) : store(answer_number<std::uint8_t>(answers));
    case 2:
      return type.is_signed ? store(answer_number<std::int16_t>(answers))
                            : store(answer_number<std::uint16_t>(answers));
    case 4:
      return type.is_signed ? store(answer_number<std::int32_t>(answers))
                            : store(answer_number<std::uint32_t>(answers));
    default:
      return type.is_signed ? store(answer_number<std::int64_t>(answers))
                            : store(answer_number<std::uint64_t>(answers));
  }
}

// Fills a value of any type of the contract. Counts, codes and handles become any number, texts of records any
// characters; only a char* is as it must be.
inline void answer_value(Answers& answers, const tap::Type& type, void* value, const auto& allocate) {
  switch (type.shape) {
    case tap::Shape::kNone:
      return;
    case tap::Shape::kInteger:
    case tap::Shape::kWord:
    case tap::Shape::kReal:  // any bits: NaN, infinity, and numbers that no integer holds
      return answer_integer(answers, type, value);
    case tap::Shape::kString: {
      const char* const text = answer_text(answers, allocate);
      std::memcpy(value, &text, sizeof text);
      return;
    }
    case tap::Shape::kText:
      return take_characters(answers, static_cast<char*>(value), type.count);
    case tap::Shape::kArray:
      for (std::size_t i = 0; i < type.count; ++i)
        answer_value(answers, *type.element, static_cast<char*>(value) + i * type.element->size, allocate);
      return;
    case tap::Shape::kRecord:
      for (const tap::Field& field : type.fields)
        answer_value(answers, *field.type, static_cast<char*>(value) + field.offset, allocate);
      return;
  }
}

template <typename T>
T answer(const auto& allocate) {
  if constexpr (!std::is_void_v<T>) {
    Answers answers;
    T value{};
    answer_value(answers, tap::type_of<T>, &value, allocate);
    return value;
  }
}

// A function's result: often 0 or 1, with which most say that they succeed.
template <typename T>
T answer_result() {
  if constexpr (std::is_integral_v<T>) {
    Answers answers;
    if (const std::size_t choice = take_below(answers, 4); choice < 2) return static_cast<T>(choice);
  }
  return answer<T>(take_call_memory);
}

// Some of a long array's elements differ, the others repeat them.
template <typename T>
void answer_values(T* values, std::size_t count, const auto& allocate) {
  static_assert(std::is_trivially_copyable_v<T>);
  static constexpr std::size_t kDifferent = 16;
  Answers answers;
  for (std::size_t i = 0; i < count && i < kDifferent; ++i)
    answer_value(answers, tap::type_of<T>, values + i, allocate);
  for (std::size_t i = kDifferent; i < count; ++i) std::memcpy(values + i, values + i % kDifferent, sizeof(T));
}

// --- What a function does with its parameters ---

// The elements that a size gives room for: by value, or by address.
template <typename T>
std::size_t room_of(T count) {
  if constexpr (std::is_pointer_v<T>)
    return count ? room_of(*count) : 0;
  else
    return std::cmp_greater(count, 0) ? static_cast<std::size_t>(count) : 0;
}

inline void read_memory(const void* memory, std::size_t size) {
  for (std::size_t i = 0; memory && i < size; ++i) (void)static_cast<const volatile char*>(memory)[i];
}

inline void read_text(const char* text) { read_memory(text, text ? std::strlen(text) + 1 : 0); }

// A call may leave its outputs as they are, whatever it returns.
template <typename T>
void write_values(T* values, std::size_t count) {
  Answers answers;
  if (values && !take_chance(answers, 8)) answer_values(values, count, take_call_memory);
}

inline const tap::Type& item_type(std::size_t item_id) {
  static constexpr tap::Type kNone;
  const tap::Type* const type = tap::find_item(item_id);
  return type ? *type : kNone;
}

inline void write_item(void* record, const tap::Type& type) {
  Answers answers;
  if (record && !take_chance(answers, 8)) answer_value(answers, type, record, take_call_memory);
}

inline void write_text(char* text, std::size_t size) {
  Answers answers;
  if (text) take_characters(answers, text, size);
}

template <typename T>
std::uintptr_t tag_word(T tag) {
  if constexpr (std::is_pointer_v<T>)
    return reinterpret_cast<std::uintptr_t>(tag);
  else
    return static_cast<std::uintptr_t>(tag);
}

template <tap::Form form>
inline constexpr bool kNoRule = false;

// Reads the function's inputs. room: of what the argument points at, in elements.
template <tap::Form form, tap::Direction direction, typename Argument>
void read_argument(Argument argument, [[maybe_unused]] std::size_t room, [[maybe_unused]] std::uintptr_t& ret_word) {
  using enum tap::Form;
  if constexpr (direction == tap::Direction::out || form == value || form == callback)
    (void)argument;
  else if constexpr (form == tag)
    ret_word = tag_word(argument);
  else if constexpr (form == string)
    read_text(argument);
  else if constexpr (form == text)
    read_memory(argument, argument ? strnlen(argument, room) : 0);
  else if constexpr (form == one || form == array)
    read_memory(argument, room * sizeof *argument);
  else if constexpr (form == item)
    read_memory(argument, item_type(room).size);
  else
    static_assert(kNoRule<form>);
}

// Writes the function's outputs.
template <tap::Form form, tap::Direction direction, typename Argument>
void write_argument(Argument argument, [[maybe_unused]] std::size_t room) {
  using enum tap::Form;
  if constexpr (direction == tap::Direction::in)
    (void)argument;
  else if constexpr (form == text)
    write_text(argument, room);
  else if constexpr (form == one || form == array)
    write_values(argument, room);
  else if constexpr (form == item)
    write_item(argument, item_type(room));
  else
    static_assert(kNoRule<form>);
}

template <typename T>
T word_tag(std::uintptr_t word) {
  if constexpr (std::is_pointer_v<T>)
    return reinterpret_cast<T>(word);
  else
    return static_cast<T>(word);
}

// --- What a callback's arguments are ---

// Count values, or null when there are few. A count by value may be anything up to what a platform has memory for,
// a negative one counts as 0; a size that is given by address is not exceeded.
template <typename T>
T* answer_array(auto&& count, const auto& allocate) {
  using Count = std::remove_reference_t<decltype(count)>;
  static constexpr std::size_t kMost = 600;
  Answers answers;
  if constexpr (std::is_lvalue_reference_v<decltype(count)>) {
    if (room_of(count) > kMost) {
      const std::size_t fewer = take_below(answers, kMost);
      if constexpr (std::is_pointer_v<Count>)
        *count = static_cast<std::remove_pointer_t<Count>>(fewer);
      else
        count = static_cast<Count>(fewer);
    }
  }
  const std::size_t size = room_of(count);
  if (size == 0 && take_chance(answers, 2)) return nullptr;
  T* const values = static_cast<T*>(allocate(size * sizeof(T)));
  answer_values(values, size, allocate);
  return values;
}

template <typename T>
T* answer_one(const auto& allocate) {
  Answers answers;
  if (take_chance(answers, 16)) return nullptr;
  T* const value = static_cast<T*>(allocate(sizeof(T)));
  answer_value(answers, tap::type_of<T>, value, allocate);
  return value;
}

// An argument by itself. Passed: its C type; T: the type that it points at. A callback with a callback among its
// parameters has no rule yet, and does not compile.
template <tap::Form form, typename Passed, typename T>
Passed make_argument([[maybe_unused]] const auto& allocate, [[maybe_unused]] std::uintptr_t tag_to_pass) {
  using enum tap::Form;
  if constexpr (form == value || form == string || form == address)
    return answer<Passed>(allocate);
  else if constexpr (form == one)
    return answer_one<T>(allocate);
  else if constexpr (form == tag)
    return word_tag<Passed>(tag_to_pass);
  else if constexpr (form == text || form == array)
    return nullptr;  // which complete_argument replaces
  else
    static_assert(kNoRule<form>);
}

// Then the number that makes another argument an address, half of the time.
template <tap::Form form>
void decide_argument([[maybe_unused]] auto&& count, [[maybe_unused]] std::int64_t number = 0) {
  if constexpr (form == tap::Form::address) {
    Answers answers;
    if (take_chance(answers, 2)) count = static_cast<std::remove_reference_t<decltype(count)>>(number);
  }
}

// Then those that depend on another argument: on their count, or on the number that makes them an address. Any other
// number stays, so that a plugin that follows it crashes.
template <tap::Form form, typename T>
void complete_argument([[maybe_unused]] auto& argument, [[maybe_unused]] auto&& count,
                       [[maybe_unused]] const auto& allocate, [[maybe_unused]] std::int64_t number = 0) {
  if constexpr (form == tap::Form::text || form == tap::Form::array) {
    argument = answer_array<T>(std::forward<decltype(count)>(count), allocate);
  } else if constexpr (form == tap::Form::address) {
    if (count != number) return;
    if constexpr (std::is_same_v<T, char>)
      argument = const_cast<char*>(answer<const char*>(allocate));
    else
      argument = answer_one<T>(allocate);
  }
}

// --- Expansion ---

// Sizes are taken before anything is written, which may overwrite them.
#define FUZZ_SIZE(p) TVAPI_ROW(FUZZ_ROW_SIZE, p)
#define FUZZ_ROW_SIZE(form, direction, ctype, name, type, count, ...) fuzz_size_##name = room_of(count)

#define FUZZ_READ(p) TVAPI_ROW(FUZZ_ROW_READ, p)
#define FUZZ_ROW_READ(form, direction, ctype, name, type, count, ...)                                        \
  read_argument<tap::Form::form, tap::Direction::direction>(name, fuzz_size_##name, fuzz_tag) __VA_OPT__(, ) \
      __VA_OPT__(fuzz_registrations.push_back({#name, reinterpret_cast<RawCallback>(name), raise_##__VA_ARGS__}))

#define FUZZ_WRITE(p) TVAPI_ROW(FUZZ_ROW_WRITE, p)
#define FUZZ_ROW_WRITE(form, direction, ctype, name, type, count, ...) \
  write_argument<tap::Form::form, tap::Direction::direction>(name, fuzz_size_##name)

#define FUZZ_ARGUMENT(p) TVAPI_ROW(FUZZ_ROW_ARGUMENT, p)
#define FUZZ_ROW_ARGUMENT(form, direction, ctype, name, type, count, ...) \
  make_argument<tap::Form::form, ctype, type>(fuzz_allocate, fuzz_tag)

#define FUZZ_DECIDE(p) TVAPI_ROW(FUZZ_ROW_DECIDE, p)
#define FUZZ_ROW_DECIDE(form, direction, ctype, name, type, count, ...) \
  decide_argument<tap::Form::form>(count __VA_OPT__(, ) __VA_ARGS__)

#define FUZZ_DEPENDENT(p) TVAPI_ROW(FUZZ_ROW_DEPENDENT, p)
#define FUZZ_ROW_DEPENDENT(form, direction, ctype, name, type, count, ...) \
  complete_argument<tap::Form::form, type>(name, count, fuzz_allocate __VA_OPT__(, ) __VA_ARGS__)

#define TVAPI_CALLBACK(ret, type, ...)                                                                             \
  [[maybe_unused]] static void raise_##type(RawCallback fuzz_callback, [[maybe_unused]] std::uintptr_t fuzz_tag) { \
    Memory fuzz_memory;                                                                                            \
    [[maybe_unused]] const auto fuzz_allocate = [&](std::size_t size) { return take_memory(fuzz_memory, size); };  \
    const auto fuzz_raise = [&](TVAPI_EACH(TVAPI_DECLARE, __VA_ARGS__)) {                                          \
      __VA_OPT__(TVAPI_EACH(FUZZ_DECIDE, __VA_ARGS__);)                                                            \
      __VA_OPT__(TVAPI_EACH(FUZZ_DEPENDENT, __VA_ARGS__);)                                                         \
      (void)reinterpret_cast<type>(fuzz_callback)(TVAPI_EACH(TVAPI_NAME, __VA_ARGS__));                            \
    };                                                                                                             \
    fuzz_raise(TVAPI_EACH(FUZZ_ARGUMENT, __VA_ARGS__));                                                            \
  }

#define TVAPI_FN(ret, fct, ...)                                                        \
  ret fct(TVAPI_EACH(TVAPI_DECLARE, __VA_ARGS__)) {                                    \
    __VA_OPT__([[maybe_unused]] const std::size_t TVAPI_EACH(FUZZ_SIZE, __VA_ARGS__);) \
    std::vector<Registration> fuzz_registrations;                                      \
    [[maybe_unused]] std::uintptr_t fuzz_tag = 0;                                      \
    __VA_OPT__(TVAPI_EACH(FUZZ_READ, __VA_ARGS__);)                                    \
    platform_register(#fct, fuzz_registrations, fuzz_tag);                             \
    platform_act();                                                                    \
    __VA_OPT__(TVAPI_EACH(FUZZ_WRITE, __VA_ARGS__);)                                   \
    return answer_result<ret>();                                                       \
  }
