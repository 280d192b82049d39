// Expands contract headers into the tap's functions and trampolines. Include order:
//
//     #include "tvapi/all.h"     // types and prototypes
//     #include "tap/expand.h"
//     #include "tvapi/all.h"     // records and definitions
//
// Contract headers stand inside extern "C", so that each type is put back into C++.
#pragma once

#include "tap/engine.h"
#include "tap/record.h"
#include "tvapi/contract.h"

// TVAPI_EACH over one description, address or size per parameter; each ends with an entry of its own, so that no array
// is empty.
#define TAP_PARAM(p) TVAPI_ROW(TAP_ROW_PARAM, p)
#define TAP_ROW_PARAM(f, d, c, n, t, k, ...)                                               \
  ::tap::Param {                                                                           \
    .form = ::tap::Form::f, .direction = ::tap::Direction::d, .name = #n, .type_name = #t, \
    .type = &::tap::type_of<::tap::ShownType<::tap::Form::f, c, t>>,                       \
    .count = #k __VA_OPT__(, TAP_EXTRA_##f(n, t, __VA_ARGS__))                             \
  }
#define TAP_EXTRA_address(n, t, value) .pointed = &::tap::type_of<t>, .number = value
#define TAP_EXTRA_callback(n, c, t)                                                                    \
  .callback = &t##_tap::signature, .registration = &::tap::registration<Self, ::tap::name_number(#n)>, \
  .trampoline = &t##_tap::trampoline<Self, ::tap::name_number(#n)>

#define TAP_ADDRESS(p) const_cast<void*>(static_cast<const void*>(&TVAPI_NAME(p)))

#define TAP_SIZE(p) TVAPI_ROW(TAP_ROW_SIZE, p)
#define TAP_ROW_SIZE(f, d, c, n, t, k, ...) ::tap::count_of(k)

#define TAP_ARGUMENTS(...)                                                                \
  void* const tap_args[] = {TVAPI_EACH(TAP_ADDRESS, __VA_ARGS__) __VA_OPT__(, ) nullptr}; \
  const std::size_t tap_sizes[] = {TVAPI_EACH(TAP_SIZE, __VA_ARGS__) __VA_OPT__(, ) std::size_t{0}};

#define TAP_PARAMS(...) \
  static constexpr ::tap::Param params[] = {TVAPI_EACH(TAP_PARAM, __VA_ARGS__) __VA_OPT__(, )::tap::Param{}};

#define TAP_SIGNATURE(ret, fct, text)                                                                     \
  ::tap::Signature {                                                                                      \
    .name = text, .result = &::tap::type_of<ret>,                                                         \
    .params = std::span<const ::tap::Param>(params, std::size(params) - 1), .invoke = &::tap::invoke<fct> \
  }

namespace tap {

template <class Owner, unsigned Name>
inline constinit Registration registration{};

// The type that JSON shows of an argument.
template <Form form, class Passed, class Pointed>
using ShownType = std::conditional_t<is_pointer(form), Pointed, Passed>;

// Tells the callback parameters of one function apart.
consteval unsigned name_number(std::string_view name) {
  unsigned number = 5381;
  for (const char c : name) number = number * 33 + static_cast<unsigned char>(c);
  return number;
}

}  // namespace tap

#define TVAPI_CALLBACK(ret, type, ...)                                                                            \
  extern "C++" {                                                                                                  \
  struct type##_tap {                                                                                             \
    TAP_PARAMS(__VA_ARGS__)                                                                                       \
    static constexpr ::tap::Signature signature = TAP_SIGNATURE(ret, type, #type);                                \
    template <class Owner, unsigned Name, std::size_t Slot>                                                       \
    static ret arrive(TVAPI_EACH(TVAPI_DECLARE, __VA_ARGS__)) {                                                   \
      TAP_ARGUMENTS(__VA_ARGS__)                                                                                  \
      return ::tap::deliver<ret>(::tap::registration<Owner, Name>, Slot, tap_args, tap_sizes);                    \
    }                                                                                                             \
    template <class Owner, unsigned Name>                                                                         \
    static void* trampoline(std::size_t slot) {                                                                   \
      static_assert(::tap::kSlots == 4);                                                                          \
      static constexpr type slots[] = {&arrive<Owner, Name, 0>, &arrive<Owner, Name, 1>, &arrive<Owner, Name, 2>, \
                                       &arrive<Owner, Name, 3>};                                                  \
      return reinterpret_cast<void*>(slots[slot]);                                                                \
    }                                                                                                             \
  };                                                                                                              \
  }

#define TVAPI_FN(ret, fct, ...)                                                                                \
  extern "C++" {                                                                                               \
  struct fct##_tap {                                                                                           \
    using Self = fct##_tap;                                                                                    \
    using Fct = decltype(&::fct);                                                                              \
    TAP_PARAMS(__VA_ARGS__)                                                                                    \
    static void* own() { return reinterpret_cast<void*>(&::fct); }                                             \
    static constexpr bool registers = ::tap::has_form(params, ::tap::Form::callback);                          \
    static_assert(!::tap::has_form(params, ::tap::Form::address), "only a callback may have it");              \
    static inline constinit ::tap::Function function{.signature = TAP_SIGNATURE(ret, Fct, #fct), .own = &own}; \
  };                                                                                                           \
  }                                                                                                            \
  __attribute__((visibility("default"))) ret fct(TVAPI_EACH(TVAPI_DECLARE, __VA_ARGS__)) {                     \
    if (!fct##_tap::registers && ::tap::passive()) {                                                           \
      if (void* tap_next = fct##_tap::function.next.load(std::memory_order_acquire); tap_next != nullptr) {    \
        return ::tap::pass(fct##_tap::function, reinterpret_cast<fct##_tap::Fct>(tap_next) __VA_OPT__(, )      \
                                                    TVAPI_EACH(TVAPI_NAME, __VA_ARGS__));                      \
      }                                                                                                        \
    }                                                                                                          \
    TAP_ARGUMENTS(__VA_ARGS__)                                                                                 \
    return ::tap::call<ret>(fct##_tap::function, tap_args, tap_sizes);                                         \
  }                                                                                                            \
  [[maybe_unused]] static const int fct##_known = ::tap::know_function(fct##_tap::function);

namespace tap {
consteval bool has_form(std::span<const Param> params, Form form) {
  for (const Param& param : params) {
    if (param.form == form) return true;
  }
  return false;
}
}  // namespace tap
