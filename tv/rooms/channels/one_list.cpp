// The TV API of the one channel list: the channels of all service lists, by number and then by list.
#include <algorithm>
#include <cstring>

#include "base/text.h"
#include "core/reply.h"
#include "rooms/channels/calls.h"

namespace {

constexpr std::string_view kName = "all_channel";

bool is_one_list(const char* function, const char* list) {
  if (list != nullptr && strnlen(list, kName.size() + 1) == kName.size() && list == kName) return true;
  refuse_call(function, "the one channel list has the name \"" + std::string(kName) + "\", and there is no other");
  return false;
}

UINT32 reference_or_0(const Entry* entry) { return entry != nullptr ? reference_of(*entry) : 0; }

const Entry* referred(const char* function, const Lists& lists, UINT32 reference) {
  const Entry* const entry = find_reference(lists, reference);
  if (entry == nullptr) refuse_call(function, "no channel has the reference " + std::to_string(reference));
  return entry;
}

const Entry* identified(const char* function, const Lists& lists, UINT32 channel_id) {
  const Entry* const entry = find_id(lists, channel_id);
  if (entry == nullptr) refuse_call(function, "no channel has the identifier " + std::to_string(channel_id));
  return entry;
}

UINT32 neighbour_of(const char* function, UINT32 reference, const Fit& fit, int by) {
  const auto lists = lists_now();
  const Entry* const from = referred(function, *lists, reference);
  return from != nullptr ? reference_or_0(neighbour(lists->views[0], fit, from, by)) : 0;
}

}  // namespace

UINT32 vextvapi_getRefChannelByID(const char* list, UINT32 channel_id) {
  if (!is_one_list(__func__, list)) return 0;
  const auto lists = lists_now();
  return reference_or_0(identified(__func__, *lists, channel_id));
}

UINT32 vextvapi_GetFirstVirtualChannelByMask(const char* list, UINT32 nw_value, UINT32 nw_mask) {
  if (!is_one_list(__func__, list)) return 0;
  const auto lists = lists_now();
  return reference_or_0(neighbour(lists->views[0], fit_of(nw_mask, nw_value), nullptr, 1));
}

UINT32 vextvapi_GetPrevVirtualChannelByMask(UINT32 reference, UINT32 nw_value, UINT32 nw_mask) {
  return neighbour_of(__func__, reference, fit_of(nw_mask, nw_value), -1);
}

UINT32 vextvapi_GetNextVirtualChannelByMask(UINT32 reference, UINT32 nw_value, UINT32 nw_mask) {
  return neighbour_of(__func__, reference, fit_of(nw_mask, nw_value), 1);
}

INT32 vextvapi_getChannelSvlRec(UINT32 reference, SVL_REC_T* svl_rec) {
  if (svl_rec == nullptr) return refuse_call(__func__, kNullOutput);
  const auto lists = lists_now();
  const Entry* const entry = referred(__func__, *lists, reference);
  return entry != nullptr ? give(*entry, svl_rec) : -1;
}

INT32 vextvapi_getChannelSvlID(UINT32 reference, UINT16* svl_id) {
  if (svl_id == nullptr) return refuse_call(__func__, kNullOutput);
  const auto lists = lists_now();
  const Entry* const entry =
      is_reference(reference) ? referred(__func__, *lists, reference) : identified(__func__, *lists, reference);
  if (entry == nullptr) return -1;
  *svl_id = entry->channel.list;
  return 0;
}

INT32 vextvapi_getChannelSvlRecByIdxAndMask(const char* list, UINT32 nw_value, UINT32 nw_mask, INT32 index,
                                            SVL_REC_T* svl_rec) {
  if (!is_one_list(__func__, list)) return -1;
  const auto lists = lists_now();
  return give_at(__func__, lists->views[0], fit_of(nw_mask, nw_value), index, svl_rec);
}

INT32 vextvapi_1CL_getChannelByNameAndIdx(const char* list, UINT32 nw_value, UINT32 nw_mask, const char* name,
                                          INT32 index, SVL_REC_T* svl_rec) {
  if (!is_one_list(__func__, list)) return -1;
  if (!is_search(name)) return refuse_call(__func__, kNoSearch);
  const auto lists = lists_now();
  return give_at(__func__, lists->views[0], fit_of(nw_mask, nw_value, name), index, svl_rec);
}

INT32 vextvapi_getIdxByChannelIdAndMask(const char* list, UINT32 nw_value, UINT32 nw_mask, UINT32 channel_id,
                                        INT32* index) {
  if (!is_one_list(__func__, list)) return -1;
  const auto lists = lists_now();
  const Entry* const entry = identified(__func__, *lists, channel_id);
  if (entry == nullptr) return -1;
  return give_index(__func__, index_of(lists->views[0], fit_of(nw_mask, nw_value), *entry), index);
}

INT32 vextvapi_getNearestIdxByMajorAndMask(const char* list, UINT32 nw_value, UINT32 nw_mask, UINT32 major,
                                           INT32* index) {
  if (!is_one_list(__func__, list)) return -1;
  const auto lists = lists_now();
  return give_index(__func__, nearest_index(lists->views[0], fit_of(nw_mask, nw_value), major), index);
}

INT32 vextvapi_1CL_getNumofChannelByName(const char* list, UINT32 nw_value, UINT32 nw_mask, const char* name) {
  if (!is_one_list(__func__, list)) return -1;
  if (!is_search(name)) return refuse_call(__func__, kNoSearch);
  return count_fitting(lists_now()->views[0], fit_of(nw_mask, nw_value, name));
}

INT32 vextvapi_GetNumofChListByMask(const char* list, UINT32 nw_value, UINT32 nw_mask) {
  if (!is_one_list(__func__, list)) return -1;
  return count_fitting(lists_now()->views[0], fit_of(nw_mask, nw_value));
}
