#include "tv_ctrl_main/registry.h"

#include <string.h>

#include <array>
#include <iterator>

static constexpr TV_CTRL_URI_ID_MAP_T at_uri_mapping_id_table[] = {
#define TVC_URI(group, record, name, uri, type) {uri, tvc_id(TV_CTRL_GRPID_##group, record), TYPE_##type},
#include "vex_tv_ctrl/uris.def"
};

static constexpr std::size_t kRowLength[] = {
#define TVC_URI(group, record, name, uri, type) sizeof(uri) - 1,
#include "vex_tv_ctrl/uris.def"
};

static constexpr std::size_t kRows = std::size(at_uri_mapping_id_table);
static constexpr std::size_t kLengths = sizeof(TV_CTRL_URI_ID_MAP_T::s_uri);

using RowIndex = UINT16;
static constexpr RowIndex kNoRow = UINT16_MAX;
static_assert(kRows < kNoRow);

// An index of the rows by the length of their URIs. The rows of length n, in table order, are rows[start[n]] up to, but
// not including, rows[start[n + 1]].
struct LengthIndex {
  std::array<RowIndex, kLengths + 1> start;
  std::array<RowIndex, kRows> rows;
};
static constexpr LengthIndex kByLength = [] {
  LengthIndex index{};
  for (const std::size_t length : kRowLength) ++index.start[length + 1];
  for (std::size_t length = 0; length < kLengths; ++length)
    index.start[length + 1] = static_cast<RowIndex>(index.start[length + 1] + index.start[length]);
  std::array<RowIndex, kLengths + 1> next = index.start;
  for (std::size_t row = 0; row < kRows; ++row) index.rows[next[kRowLength[row]]++] = static_cast<RowIndex>(row);
  return index;
}();

// An index of the rows by identifier, which is unique; kNoRow for an identifier that is not in the table.
static constexpr auto kById = [] {
  std::array<RowIndex, (kLastGroup + 1) << 8> index{};
  index.fill(kNoRow);
  for (std::size_t row = 0; row < kRows; ++row) index[at_uri_mapping_id_table[row].ui2_id] = static_cast<RowIndex>(row);
  return index;
}();

std::span<const TV_CTRL_URI_ID_MAP_T> tvc_registry() { return at_uri_mapping_id_table; }

const char* tvc_group_name(int group) {
  switch (group) {
#define TVC_GROUP(name, number, enumeration) \
  case number:                               \
    return #name;
#include "vex_tv_ctrl/uris.def"
    default:
      return nullptr;
  }
}

INT32 tv_ctrl_get_info_with_uri(const char* uri, UINT16* ret_id, UINT8* ret_type) {
  if (!uri || !ret_id || !ret_type) return VEXTVCTRLR_INV_ARG;
  const std::size_t length = strnlen(uri, kLengths);
  if (length < kLengths) {
    for (RowIndex i = kByLength.start[length]; i < kByLength.start[length + 1]; ++i) {
      const TV_CTRL_URI_ID_MAP_T& row = at_uri_mapping_id_table[kByLength.rows[i]];
      if (memcmp(row.s_uri, uri, length) != 0) continue;
      *ret_id = row.ui2_id;
      *ret_type = row.ui1_type;
      return VEXTVCTRLR_OK;
    }
  }
  *ret_id = 0;
  *ret_type = TYPE_INVALID;
  return VEXTVCTRLR_INV_URI;
}

// Returns the row of an identifier, or null for an unknown one.
static const TV_CTRL_URI_ID_MAP_T* row_by_id(UINT16 ui2_id) {
  if (ui2_id >= kById.size() || kById[ui2_id] == kNoRow) return nullptr;
  return &at_uri_mapping_id_table[kById[ui2_id]];
}

UINT8 tv_ctrl_get_type_by_id(UINT16 ui2_id) {
  const TV_CTRL_URI_ID_MAP_T* const row = row_by_id(ui2_id);
  return row ? row->ui1_type : static_cast<UINT8>(TYPE_INVALID);
}

INT32 tv_ctrl_get_uri_by_id(UINT16 ui2_id, char* ret_uri) {
  if (!ret_uri) return VEXTVCTRLR_INV_ARG;
  const TV_CTRL_URI_ID_MAP_T* const row = row_by_id(ui2_id);
  if (!row) return VEXTVCTRLR_FAIL;
  strcpy(ret_uri, row->s_uri);
  return VEXTVCTRLR_OK;
}
