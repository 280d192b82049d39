// Expands contract headers into functions that answer from the fuzzer's input. Include order:
//
//     #include "tvapi/all.h"        // types
//     #include "tap/records.h"      // and how the records are made up
//     #include "platform_expand.h"
//     #include "tvapi/all.h"        // definitions
//
// Every kind of parameter has its macro below, and every record its line in "tap/records.h": without them a statement
// does not compile. What a platform may do with each kind is told at the macro.
#pragma once

#include <cstring>
#include <type_traits>
#include <utility>

#include "bytes.h"
#include "platform.h"
#include "tap/value.h"
#include "tvapi/contract.h"

// --- Values ---

// A terminated text in memory of its own length, or null. `allocate` takes a size.
const char* answer_text(Answers& answers, const auto& allocate) {
  static constexpr std::size_t lengths[] = {0, 1, 7, 15, 31, 32, 63, 64, 127, 128, 255, 256, 1000};
  const std::size_t choice = take_below(answers, 2 * std::size(lengths));
  if (choice == std::size(lengths)) return nullptr;
  const std::size_t length = choice < std::size(lengths) ? lengths[choice] : take_below(answers, 20);
  char* const text = static_cast<char*>(allocate(length + 1));
  for (std::size_t i = 0; i < length; ++i) {
    const auto character = static_cast<char>(take_byte(answers));
    text[i] = character == '\0' ? 'x' : character;
  }
  return text;
}

inline void answer_integer(Answers& answers, const tap::Type& type, void* value) {
  const auto store = [&]<typename T>(T number) { std::memcpy(value, &number, sizeof number); };
  switch (type.size) {
    case 1:
      return type.is_signed ? store(take_integer<std::int8_t>(answers)) : store(take_integer<std::uint8_t>(answers));
    case 2:
      return type.is_signed ? store(take_integer<std::int16_t>(answers)) : store(take_integer<std::uint16_t>(answers));
    case 4:
      return type.is_signed ? store(take_integer<std::int32_t>(answers)) : store(take_integer<std::uint32_t>(answers));
    default:
      return type.is_signed ? store(take_integer<std::int64_t>(answers)) : store(take_integer<std::uint64_t>(answers));
  }
}

// Fills a value of any type of the contract. Counts, codes and handles become any number, texts of records any
// characters; only a char* is as it must be.
inline void answer_value(Answers& answers, const tap::Type& type, void* value, const auto& allocate) {
  switch (type.shape) {
    case tap::Shape::none:
      return;
    case tap::Shape::integer:
    case tap::Shape::word:
      return answer_integer(answers, type, value);
    case tap::Shape::string: {
      const char* const text = answer_text(answers, allocate);
      std::memcpy(value, &text, sizeof text);
      return;
    }
    case tap::Shape::text:
      return take_characters(answers, static_cast<char*>(value), type.count);
    case tap::Shape::array:
      for (std::size_t i = 0; i < type.count; ++i)
        answer_value(answers, *type.element, static_cast<char*>(value) + i * type.element->size, allocate);
      return;
    case tap::Shape::record:
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

template <typename T>
T word_tag(std::uintptr_t word) {
  if constexpr (std::is_pointer_v<T>)
    return reinterpret_cast<T>(word);
  else
    return static_cast<T>(word);
}

// --- What a callback's arguments are ---

// Count values, or null when there are few. A count by value may be anything up to what a platform has memory for,
// a negative one stands for none; room that is given by address is kept to.
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

// --- Expansion ---

// Sizes are taken before anything is written, which may overwrite them.
#define FUZZ_SIZE(p) FUZZ_SIZE_##p
#define FUZZ_SIZE_IN(type, name) fuzz_size_##name = 0
#define FUZZ_SIZE_IN_TEXT(name) fuzz_size_##name = 0
#define FUZZ_SIZE_IN_RECORD(type, name) fuzz_size_##name = 0
#define FUZZ_SIZE_IN_ADDRESS(type, name) fuzz_size_##name = 0
#define FUZZ_SIZE_IN_ARRAY(type, name, count) fuzz_size_##name = room_of(count)
#define FUZZ_SIZE_OUT(type, name) fuzz_size_##name = 1
#define FUZZ_SIZE_INOUT(type, name) fuzz_size_##name = 1
#define FUZZ_SIZE_OUT_TEXT(name, size) fuzz_size_##name = room_of(size)
#define FUZZ_SIZE_INOUT_TEXT(name, size) fuzz_size_##name = room_of(size)
#define FUZZ_SIZE_OUT_ARRAY(type, name, count) fuzz_size_##name = room_of(count)
#define FUZZ_SIZE_CALLBACK(type, name) fuzz_size_##name = 0
#define FUZZ_SIZE_TAG(type, name) fuzz_size_##name = 0

#define FUZZ_READ(p) FUZZ_READ_##p
#define FUZZ_READ_IN(type, name) (void)name
#define FUZZ_READ_IN_TEXT(name) read_text(name)
#define FUZZ_READ_IN_RECORD(type, name) read_memory(name, sizeof *name)
#define FUZZ_READ_IN_ADDRESS(type, name) (void)name
#define FUZZ_READ_IN_ARRAY(type, name, count) read_memory(name, fuzz_size_##name * sizeof *name)
#define FUZZ_READ_OUT(type, name) (void)name
#define FUZZ_READ_INOUT(type, name) read_memory(name, sizeof *name)
#define FUZZ_READ_OUT_TEXT(name, size) (void)name
#define FUZZ_READ_INOUT_TEXT(name, size) read_memory(name, name ? strnlen(name, fuzz_size_##name) : 0)
#define FUZZ_READ_OUT_ARRAY(type, name, count) (void)name
#define FUZZ_READ_CALLBACK(type, name) \
  fuzz_registrations.push_back({#name, reinterpret_cast<RawCallback>(name), raise_##type})
#define FUZZ_READ_TAG(type, name) fuzz_tag = tag_word(name)

#define FUZZ_WRITE(p) FUZZ_WRITE_##p
#define FUZZ_WRITE_IN(type, name) (void)0
#define FUZZ_WRITE_IN_TEXT(name) (void)0
#define FUZZ_WRITE_IN_RECORD(type, name) (void)0
#define FUZZ_WRITE_IN_ADDRESS(type, name) (void)0
#define FUZZ_WRITE_IN_ARRAY(type, name, count) (void)0
#define FUZZ_WRITE_OUT(type, name) write_values(name, fuzz_size_##name)
#define FUZZ_WRITE_INOUT(type, name) write_values(name, fuzz_size_##name)
#define FUZZ_WRITE_OUT_TEXT(name, size) write_text(name, fuzz_size_##name)
#define FUZZ_WRITE_INOUT_TEXT(name, size) write_text(name, fuzz_size_##name)
#define FUZZ_WRITE_OUT_ARRAY(type, name, count) write_values(name, fuzz_size_##name)
#define FUZZ_WRITE_CALLBACK(type, name) (void)0
#define FUZZ_WRITE_TAG(type, name) (void)0

// A callback's arguments: first each by itself, then those that depend on another. Nothing is known yet of a callback
// that is handed a callback, and it does not compile.
#define FUZZ_ARGUMENT(p) FUZZ_ARGUMENT_##p
#define FUZZ_ARGUMENT_IN(type, name) answer<type>(fuzz_allocate)
#define FUZZ_ARGUMENT_IN_TEXT(name) answer<const char*>(fuzz_allocate)
#define FUZZ_ARGUMENT_IN_RECORD(type, name) answer_one<type>(fuzz_allocate)
#define FUZZ_ARGUMENT_IN_ADDRESS(type, name) answer_one<type>(fuzz_allocate)
#define FUZZ_ARGUMENT_IN_ARRAY(type, name, count) nullptr
#define FUZZ_ARGUMENT_OUT(type, name) answer_one<type>(fuzz_allocate)
#define FUZZ_ARGUMENT_INOUT(type, name) answer_one<type>(fuzz_allocate)
#define FUZZ_ARGUMENT_OUT_TEXT(name, size) nullptr
#define FUZZ_ARGUMENT_INOUT_TEXT(name, size) nullptr
#define FUZZ_ARGUMENT_OUT_ARRAY(type, name, count) nullptr
#define FUZZ_ARGUMENT_TAG(type, name) word_tag<type>(fuzz_tag)

#define FUZZ_DEPENDENT(p) FUZZ_DEPENDENT_##p
#define FUZZ_DEPENDENT_IN(type, name) (void)0
#define FUZZ_DEPENDENT_IN_TEXT(name) (void)0
#define FUZZ_DEPENDENT_IN_RECORD(type, name) (void)0
#define FUZZ_DEPENDENT_IN_ADDRESS(type, name) (void)0
#define FUZZ_DEPENDENT_IN_ARRAY(type, name, count) name = answer_array<type>(count, fuzz_allocate)
#define FUZZ_DEPENDENT_OUT(type, name) (void)0
#define FUZZ_DEPENDENT_INOUT(type, name) (void)0
#define FUZZ_DEPENDENT_OUT_TEXT(name, size) name = answer_array<char>(size, fuzz_allocate)
#define FUZZ_DEPENDENT_INOUT_TEXT(name, size) name = answer_array<char>(size, fuzz_allocate)
#define FUZZ_DEPENDENT_OUT_ARRAY(type, name, count) name = answer_array<type>(count, fuzz_allocate)
#define FUZZ_DEPENDENT_TAG(type, name) (void)0

#define TVAPI_CALLBACK(ret, type, ...)                                                                             \
  [[maybe_unused]] static void raise_##type(RawCallback fuzz_callback, [[maybe_unused]] std::uintptr_t fuzz_tag) { \
    Memory fuzz_memory;                                                                                            \
    [[maybe_unused]] const auto fuzz_allocate = [&](std::size_t size) { return take_memory(fuzz_memory, size); };  \
    const auto fuzz_raise = [&](TVAPI_EACH(TVAPI_DECLARE, __VA_ARGS__)) {                                          \
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
    return answer<ret>(take_call_memory);                                              \
  }
