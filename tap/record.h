// One line per record that crosses the TV API:
//
//     DTV_RECORD(T_TIME_DTG, ui2_yr, ui1_mo, ui1_day, ui1_dow, ui1_hr, ui1_min, ui1_sec, b_gmt, b_dst)
//
// It gives every field's name, place and type to whoever writes or reads the record as JSON. A field that is forgotten,
// repeated or out of order does not compile. Records inside come first. DTV_UNION is the same for a union, or for a
// record with fields in one place, where the compiler cannot count. At most 64 fields. At namespace scope.
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

// Whether the fields reach to the end, but for padding.
consteval bool covers(std::span<const Field> fields, std::size_t size, std::size_t alignment) {
  std::size_t end = 0;
  for (const Field& field : fields) {
    if (field.offset + field.type->size > end) end = field.offset + field.type->size;
  }
  return size - end < alignment;
}

}  // namespace tap

#define DTV_RECORD_FIELD(field) \
  ::tap::Field { #field, offsetof(Self, field), &::tap::type_of < decltype(Self::field)> }
#define DTV_RECORD_JOIN(a, b) DTV_RECORD_JOIN_(a, b)
#define DTV_RECORD_JOIN_(a, b) a##b

#define DTV_RECORD_FIELDS(type, ...)                                                    \
  using Self = type;                                                                    \
  static constexpr const char* name = #type;                                            \
  static constexpr ::tap::Field fields[] = {TVAPI_EACH(DTV_RECORD_FIELD, __VA_ARGS__)}; \
  static_assert(::tap::covers(fields, sizeof(Self), alignof(Self)), "a field is missing");

#define DTV_RECORD_KNOWN(type)                                                  \
  [[maybe_unused]] static const int DTV_RECORD_JOIN(dtv_record_, __COUNTER__) = \
      ::tap::know_record(::tap::type_of<type>);

#define DTV_RECORD(type, ...)                                                                         \
  template <>                                                                                         \
  struct tap::RecordOf<type> {                                                                        \
    DTV_RECORD_FIELDS(type, __VA_ARGS__)                                                              \
    static_assert(::tap::ascending(fields), "fields are not in the record's order");                  \
    static void count_fields(Self& dtv_record) { [[maybe_unused]] auto& [__VA_ARGS__] = dtv_record; } \
  };                                                                                                  \
  DTV_RECORD_KNOWN(type)

#define DTV_UNION(type, ...)             \
  template <>                            \
  struct tap::RecordOf<type> {           \
    DTV_RECORD_FIELDS(type, __VA_ARGS__) \
  };                                     \
  DTV_RECORD_KNOWN(type)
