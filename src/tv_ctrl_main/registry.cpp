#include "tv_ctrl_main/registry.h"

#include <string.h>

#include <algorithm>
#include <array>
#include <string_view>

#include "tv_ctrl_util/text.h"

static constexpr TV_CTRL_URI_ID_MAP_T at_uri_mapping_id_table[] = {
#define TVC_GROUP(group, number, enumeration)
#define TVC_URI(group, record, name, uri, type) {uri, tvc_id(TV_CTRL_GRPID_##group, record), TYPE_##type},
#define TVC_GROUP_END(group)
#include "vex_tv_ctrl/uris.def"
#undef TVC_GROUP
#undef TVC_URI
#undef TVC_GROUP_END
};

static constexpr std::size_t kRows = std::size(at_uri_mapping_id_table);
static constexpr std::size_t kLengths = sizeof(TV_CTRL_URI_ID_MAP_T::s_uri);

using RowIndex = UINT16;
static_assert(kRows <= UINT16_MAX);

// Row numbers sorted by a key of the row; rows of equal key stay in table order.
template <typename Key>
static consteval std::array<RowIndex, kRows> sorted_rows(Key key) {
  std::array<RowIndex, kRows> rows{};
  for (std::size_t i = 0; i < kRows; ++i) rows[i] = static_cast<RowIndex>(i);
  // std::stable_sort is not constexpr; the row number as the last key gives the same order.
  std::sort(rows.begin(), rows.end(), [key](RowIndex a, RowIndex b) {
    const auto key_a = key(at_uri_mapping_id_table[a]), key_b = key(at_uri_mapping_id_table[b]);
    return key_a != key_b ? key_a < key_b : a < b;
  });
  return rows;
}

static constexpr auto row_length = [](const TV_CTRL_URI_ID_MAP_T& row) { return std::string_view(row.s_uri).size(); };
static constexpr auto row_id = [](const TV_CTRL_URI_ID_MAP_T& row) { return row.ui2_id; };

// Rows of equal length stand together, in table order; by_length[length_start[n]] is the first of length n.
static constexpr auto by_length = sorted_rows(row_length);
static constexpr auto length_start = [] {
  std::array<RowIndex, kLengths + 1> start{};
  for (const TV_CTRL_URI_ID_MAP_T& row : at_uri_mapping_id_table)
    for (std::size_t length = row_length(row) + 1; length <= kLengths; ++length) ++start[length];
  return start;
}();
static constexpr auto by_id = sorted_rows(row_id);

std::span<const TV_CTRL_URI_ID_MAP_T> tvc_registry() { return at_uri_mapping_id_table; }

const char* tvc_group_name(int group) {
  switch (group) {
#define TVC_GROUP(name, number, enumeration) \
  case number:                               \
    return #name;
#define TVC_URI(group, record, name, uri, type)
#define TVC_GROUP_END(group)
#include "vex_tv_ctrl/uris.def"
#undef TVC_GROUP
#undef TVC_URI
#undef TVC_GROUP_END
    default:
      return nullptr;
  }
}

INT32 tv_ctrl_get_info_with_uri(const char* uri, UINT16* ret_id, UINT8* ret_type) {
  if (!uri || !ret_id || !ret_type) return VEXTVCTRLR_INV_ARG;
  const std::size_t length = strnlen(uri, kLengths);
  if (length < kLengths) {
    for (RowIndex i = length_start[length]; i < length_start[length + 1]; ++i) {
      const TV_CTRL_URI_ID_MAP_T& row = at_uri_mapping_id_table[by_length[i]];
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

static const TV_CTRL_URI_ID_MAP_T* row_by_id(UINT16 ui2_id) {
  const auto found = std::lower_bound(by_id.begin(), by_id.end(), ui2_id,
                                      [](RowIndex row, UINT16 id) { return at_uri_mapping_id_table[row].ui2_id < id; });
  if (found == by_id.end() || at_uri_mapping_id_table[*found].ui2_id != ui2_id) return nullptr;
  return &at_uri_mapping_id_table[*found];
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
