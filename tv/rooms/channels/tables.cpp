// The TV API of two tables: the satellites, and the categories of channels that a broadcaster names. The locks of both
// are accepted and have no effect: a reader has the tables of one moment.
#include <algorithm>

#include "core/reply.h"
#include "core/text.h"
#include "rooms/channels/calls.h"

namespace {

constexpr const char* kLnb = "Universal LNB 9750/10600/11700";

INT32 check_satellites(const char* function, UINT32 h_satl) {
  if (h_satl == kSatelliteHandle) return 0;
  return refuse_call(function, std::to_string(h_satl) + " is not the handle of a satellite list");
}

INT32 check_categories(const char* function, UINT32 h_lol) {
  if (h_lol == kCategoryHandle) return 0;
  return refuse_call(function, std::to_string(h_lol) + " is not the handle of a list of a broadcaster's data");
}

}  // namespace

// ---- Satellites ----

UINT32 a_vextvapi_channellist_get_satl_handle_by_satl_id(UINT16 satl_id) {
  return satl_id == kSatelliteTable ? kSatelliteHandle : 0;
}

INT32 c_satl_read_lock(UINT32 h_satl) { return check_satellites(__func__, h_satl); }

INT32 c_satl_read_unlock(UINT32 h_satl) { return check_satellites(__func__, h_satl); }

INT32 c_satl_get_num_recs(UINT32 h_satl, INT32* number, UINT32* version) {
  if (check_satellites(__func__, h_satl) != 0) return -1;
  if (number == nullptr || version == nullptr) return refuse_call(__func__, kNullOutput);
  const auto lists = lists_now();
  *number = static_cast<INT32>(lists->satellites.size());
  *version = lists->satellites_version;
  return 0;
}

INT32 c_satl_get_rec_by_rec_idx(UINT32 h_satl, INT32 index, SATL_REC_T* satl_rec, UINT32* version) {
  if (check_satellites(__func__, h_satl) != 0) return -1;
  if (satl_rec == nullptr || version == nullptr) return refuse_call(__func__, kNullOutput);
  const auto lists = lists_now();
  if (index < 0 || static_cast<std::size_t>(index) >= lists->satellites.size()) {
    return refuse_call(__func__, "index " + std::to_string(index) + " is not one of the " +
                                     std::to_string(lists->satellites.size()) + " satellites");
  }
  const Satellite& satellite = lists->satellites[static_cast<std::size_t>(index)];
  SATL_REC_T record = {};
  record.ui2_satl_rec_id = satellite.record;
  record.i2_orb_pos = satellite.orbit;
  put_text(record.ac_sat_name, satellite.name);
  put_text(record.ac_lnb_config, kLnb);
  *satl_rec = record;
  *version = lists->satellites_version;
  return 0;
}

// ---- Categories ----

UINT32 a_vextvapi_channellist_get_lol_handle_by_lol_id(UINT16 lol_id) {
  return lol_id == kCategoryTable ? kCategoryHandle : 0;
}

INT32 c_lol_lock(UINT32 h_lol) { return check_categories(__func__, h_lol); }

INT32 c_lol_unlock(UINT32 h_lol) { return check_categories(__func__, h_lol); }

INT32 c_lol_get_rec_by_data_tag(UINT32 h_lol, UINT32 data_tag, UINT16 index, LOL_REC_T* lol_rec, UINT32* version) {
  if (check_categories(__func__, h_lol) != 0) return -1;
  if (lol_rec == nullptr || version == nullptr) return refuse_call(__func__, kNullOutput);
  const auto lists = lists_now();
  const std::vector<Category>& categories = lists->categories;
  if (data_tag != LOL_DATA_TAG_TKGS_CATEGORIES || index != 0) {
    return refuse_call(__func__,
                       "there is no record " + std::to_string(index) + " of the tag " + std::to_string(data_tag));
  }
  LOL_REC_T record = {};
  record.ui4_data_tag = data_tag;
  record.ui2_lol_rec_id = 1;
  record.ui2_data_len = sizeof(LOL_CATEGORY_LIST_T);
  LOL_CATEGORY_LIST_T& list = record.t_category_list;
  static_assert(kMostCategories == std::size(LOL_CATEGORY_LIST_T{}.at_category_arr));
  list.ui2_category_num = static_cast<UINT16>(categories.size());
  for (std::size_t i = 0; i < categories.size(); ++i) {
    list.at_category_arr[i].ui2_category_no = categories[i].number;
    put_text(list.at_category_arr[i].ac_category_name, categories[i].name);
  }
  *lol_rec = record;
  *version = lists->categories_version;
  return 0;
}
