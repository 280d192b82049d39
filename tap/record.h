// Turns the descriptions of records (TVAPI_RECORD in "tvapi/contract.h", TVC_RECORD in "vex_tv_ctrl/record.h") into
// tables of each member's name, place and type, by which records are written and read as JSON:
//
//     TVAPI_RECORD(VEXTVAPI_USB_MOUNT_INFO_T, dev, path, label, port)
//
// A member that is forgotten, repeated or out of order is a compile error. TVAPI_UNION also describes a record of which
// only some members are named, since it does not count them. At most 64 members. The macros are used at namespace
// scope, also inside extern "C".
#pragma once

#include <cstddef>

#include "tap/value.h"
#include "tvapi/contract.h"

namespace tap {

consteval bool ascending(std::span<const Field> fields) {
  for (std::size_t i = 1; i < fields.size(); ++i) {
    if (fields[i].offset <= fields[i - 1].offset) return false;
  }
  return true;
}

// Whether nothing but padding follows the fields.
consteval bool covers(std::span<const Field> fields, std::size_t size, std::size_t alignment) {
  std::size_t end = 0;
  for (const Field& field : fields) {
    if (field.offset + field.type->size > end) end = field.offset + field.type->size;
  }
  return size - end < alignment;
}

}  // namespace tap

#define TAP_RECORD_FIELD(field) \
  ::tap::Field { #field, offsetof(Self, field), &::tap::type_of < decltype(Self::field)> }
#define TAP_RECORD_JOIN(a, b) TAP_RECORD_JOIN_(a, b)
#define TAP_RECORD_JOIN_(a, b) a##b

#define TAP_RECORD_FIELDS(type, ...)                                                    \
  using Self = type;                                                                    \
  static constexpr const char* name = #type;                                            \
  static constexpr ::tap::Field fields[] = {TVAPI_EACH(TAP_RECORD_FIELD, __VA_ARGS__)}; \
  static_assert(::tap::covers(fields, sizeof(Self), alignof(Self)), "a field is missing");

#define TAP_RECORD_KNOWN(type)                                                  \
  [[maybe_unused]] static const int TAP_RECORD_JOIN(tap_record_, __COUNTER__) = \
      ::tap::know_record(::tap::type_of<type>);

#define TVAPI_RECORD(type, ...)                                                                       \
  extern "C++" {                                                                                      \
  template <>                                                                                         \
  struct tap::RecordOf<type> {                                                                        \
    TAP_RECORD_FIELDS(type, __VA_ARGS__)                                                              \
    static_assert(::tap::ascending(fields), "fields are not in the record's order");                  \
    static void count_fields(Self& tap_record) { [[maybe_unused]] auto& [__VA_ARGS__] = tap_record; } \
  };                                                                                                  \
  TAP_RECORD_KNOWN(type)                                                                              \
  }

#define TVAPI_ITEM(item_id, type)                                                                                      \
  extern "C++" {                                                                                                       \
  [[maybe_unused]] static const int TAP_RECORD_JOIN(tap_item_,                                                         \
                                                    __COUNTER__) = ::tap::know_item(static_cast<std::size_t>(item_id), \
                                                                                    ::tap::type_of<type>);             \
  }

#define TVAPI_UNION(type, ...)           \
  extern "C++" {                         \
  template <>                            \
  struct tap::RecordOf<type> {           \
    TAP_RECORD_FIELDS(type, __VA_ARGS__) \
  };                                     \
  TAP_RECORD_KNOWN(type)                 \
  }
