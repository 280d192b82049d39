// The TV API of favourites: four lists of each service list, and one of the one channel list. A favourite is kept by
// the channel's reference, so that it stays one when the channel's number changes.
#include "rooms/channels/favourites.h"

#include <algorithm>

#include "core/reply.h"
#include "rooms/channels/calls.h"

namespace {

constexpr std::size_t kOfOneList = 0;

// Whether the favourite list exists; reports on stderr when not.
bool is_favourite_list(const char* function, UINT16 svl_id, UINT8 fav_index) {
  if (!is_list(svl_id)) {
    refuse_call(function, unknown_list(svl_id));
  } else if (fav_index >= kFavouriteLists) {
    refuse_call(function, "a service list has the favourite lists 0 to " + std::to_string(kFavouriteLists - 1) +
                              ", not " + std::to_string(fav_index));
  } else {
    return true;
  }
  return false;
}

std::string no_channel(UINT32 channel_id) { return "no such channel: identifier " + std::to_string(channel_id); }

// The reference of the channel in this list, 0: in any; 0: there is no such channel.
std::uint32_t reference_by_id(const Lists& lists, UINT16 svl_id, UINT32 channel_id) {
  const Entry* const entry = find_id(lists, channel_id);
  return entry != nullptr && (svl_id == 0 || entry->channel.list == svl_id) ? reference_of(*entry) : 0;
}

void add_fitting(Lists& lists, std::size_t which, const View& view, const Fit& fit) {
  std::vector<std::uint32_t>& favourites = lists.favourites[which];
  std::vector<std::uint32_t> known = favourites;
  std::ranges::sort(known);
  for (const std::uint32_t reference : fitting_references(view, fit))
    if (!std::ranges::binary_search(known, reference)) favourites.push_back(reference);
}

void remove_fitting(Lists& lists, std::size_t which, const Fit& fit) {
  std::vector<std::uint32_t> gone = fitting_references(lists.favourite_views[which], fit);
  std::ranges::sort(gone);
  std::erase_if(lists.favourites[which],
                [&](std::uint32_t reference) { return std::ranges::binary_search(gone, reference); });
}

std::string swap_favourites(Lists& lists, std::size_t which, std::uint32_t from, std::uint32_t to) {
  std::vector<std::uint32_t>& favourites = lists.favourites[which];
  const auto one = std::ranges::find(favourites, from), other = std::ranges::find(favourites, to);
  if (one == favourites.end() || other == favourites.end()) return "a channel is not in the favourite list";
  std::iter_swap(one, other);
  return "";
}

}  // namespace

std::string add_favourite(Lists& lists, std::size_t which, std::uint32_t reference) {
  std::vector<std::uint32_t>& favourites = lists.favourites[which];
  if (std::ranges::find(favourites, reference) == favourites.end()) favourites.push_back(reference);
  return "";
}

std::string remove_favourite(Lists& lists, std::size_t which, std::uint32_t reference) {
  return std::erase(lists.favourites[which], reference) > 0 ? "" : "the channel is not in the favourite list";
}

// The favourites that do not fit keep their places.
std::string move_favourite(Lists& lists, std::size_t which, const Fit& fit, std::int32_t from, std::int32_t to) {
  const std::vector<std::uint32_t> fitting = fitting_references(lists.favourite_views[which], fit);
  const auto count = static_cast<std::int64_t>(fitting.size());
  if (from < 0 || to < 0 || from >= count || to >= count) {
    return "an index is 0 to one less than the " + std::to_string(count) + " favourites that fit, not " +
           std::to_string(from) + " or " + std::to_string(to);
  }
  std::vector<std::uint32_t> moved = fitting;
  const std::uint32_t reference = moved[static_cast<std::size_t>(from)];
  moved.erase(moved.begin() + from);
  moved.insert(moved.begin() + to, reference);
  std::size_t next = 0;
  for (std::uint32_t& each : lists.favourites[which])
    if (next < fitting.size() && each == fitting[next]) each = moved[next++];
  return "";
}

// ---- Of a service list ----

INT32 a_vextvapi_favorite_list_add_tail(UINT16 svl_id, UINT8 fav_index, UINT32 channel_id) {
  if (!is_favourite_list(__func__, svl_id, fav_index)) return -1;
  return change(__func__, [&](Lists& lists) {
    const std::uint32_t reference = reference_by_id(lists, svl_id, channel_id);
    return reference == 0 ? no_channel(channel_id) : add_favourite(lists, favourites_of(svl_id, fav_index), reference);
  });
}

INT32 a_vextvapi_favorite_list_delete(UINT16 svl_id, UINT8 fav_index, UINT32 channel_id) {
  if (!is_favourite_list(__func__, svl_id, fav_index)) return -1;
  return change(__func__, [&](Lists& lists) {
    const std::uint32_t reference = reference_by_id(lists, svl_id, channel_id);
    return reference == 0 ? no_channel(channel_id)
                          : remove_favourite(lists, favourites_of(svl_id, fav_index), reference);
  });
}

INT32 a_vextvapi_favorite_list_add_all(UINT16 svl_id, UINT8 fav_index, UINT32 nw_mask, UINT32 nw_value) {
  if (!is_favourite_list(__func__, svl_id, fav_index)) return -1;
  return change(__func__, [&](Lists& lists) {
    add_fitting(lists, favourites_of(svl_id, fav_index), lists.views[svl_id], fit_of(nw_mask, nw_value));
    return std::string();
  });
}

INT32 a_vextvapi_favorite_list_del_all(UINT16 svl_id, UINT8 fav_index, UINT32 nw_mask, UINT32 nw_value) {
  if (!is_favourite_list(__func__, svl_id, fav_index)) return -1;
  return change(__func__, [&](Lists& lists) {
    remove_fitting(lists, favourites_of(svl_id, fav_index), fit_of(nw_mask, nw_value));
    return std::string();
  });
}

INT32 a_vextvapi_favorite_list_insert_move(UINT16 svl_id, UINT8 fav_index, UINT32 nw_mask, UINT32 nw_value,
                                           INT32 index_from, INT32 index_to) {
  if (!is_favourite_list(__func__, svl_id, fav_index)) return -1;
  return change(__func__, [&](Lists& lists) {
    return move_favourite(lists, favourites_of(svl_id, fav_index), fit_of(nw_mask, nw_value), index_from, index_to);
  });
}

INT32 a_vextvapi_favorite_list_swap_by_channel_id(UINT16 svl_id, UINT8 fav_index, UINT32 channel_id_from,
                                                  UINT32 channel_id_to) {
  if (!is_favourite_list(__func__, svl_id, fav_index)) return -1;
  return change(__func__, [&](Lists& lists) {
    return swap_favourites(lists, favourites_of(svl_id, fav_index), reference_by_id(lists, svl_id, channel_id_from),
                           reference_by_id(lists, svl_id, channel_id_to));
  });
}

INT32 a_vextvapi_favorite_list_number_by_mask(UINT16 svl_id, UINT8 fav_index, UINT32 nw_mask, UINT32 nw_value) {
  if (!is_favourite_list(__func__, svl_id, fav_index)) return -1;
  return count_fitting(lists_now()->favourite_views[favourites_of(svl_id, fav_index)], fit_of(nw_mask, nw_value));
}

INT32 a_vextvapi_favorite_list_get_svl_rec_by_index(UINT16 svl_id, UINT8 fav_index, UINT32 nw_mask, UINT32 nw_value,
                                                    INT32 index, SVL_REC_T* svl_rec) {
  if (!is_favourite_list(__func__, svl_id, fav_index)) return -1;
  const auto lists = lists_now();
  return give_at(__func__, lists->favourite_views[favourites_of(svl_id, fav_index)], fit_of(nw_mask, nw_value), index,
                 svl_rec);
}

INT32 a_vextvapi_favorite_list_get_index_by_channel(UINT16 svl_id, UINT8 fav_index, UINT32 nw_mask, UINT32 nw_value,
                                                    UINT32 channel_id, INT32* index) {
  if (!is_favourite_list(__func__, svl_id, fav_index)) return -1;
  const auto lists = lists_now();
  const Entry* const entry = channel_of(__func__, *lists, svl_id, channel_id);
  if (entry == nullptr) return -1;
  const View& view = lists->favourite_views[favourites_of(svl_id, fav_index)];
  return give_index(__func__, index_of(view, fit_of(nw_mask, nw_value), *entry), index);
}

// ---- Of the one channel list ----

INT32 vextvapi_1CL_addFavToTailByChannel(UINT32 channel_id) {
  return change(__func__, [&](Lists& lists) {
    const std::uint32_t reference = reference_by_id(lists, 0, channel_id);
    return reference == 0 ? no_channel(channel_id) : add_favourite(lists, kOfOneList, reference);
  });
}

INT32 vextvapi_1CL_removeFavByChannel(UINT32 channel_id) {
  return change(__func__, [&](Lists& lists) {
    const std::uint32_t reference = reference_by_id(lists, 0, channel_id);
    return reference == 0 ? no_channel(channel_id) : remove_favourite(lists, kOfOneList, reference);
  });
}

INT32 vextvapi_1CL_addAllToFavByMask(UINT32 nw_value, UINT32 nw_mask) {
  return change(__func__, [&](Lists& lists) {
    add_fitting(lists, kOfOneList, lists.views[0], fit_of(nw_mask, nw_value));
    return std::string();
  });
}

INT32 vextvapi_1CL_delAllFavByMask(UINT32 nw_value, UINT32 nw_mask) {
  return change(__func__, [&](Lists& lists) {
    remove_fitting(lists, kOfOneList, fit_of(nw_mask, nw_value));
    return std::string();
  });
}

INT32 vextvapi_1CL_moveFavByIdx(INT32 index_from, INT32 index_to, UINT32 nw_value, UINT32 nw_mask) {
  return change(__func__, [&](Lists& lists) {
    return move_favourite(lists, kOfOneList, fit_of(nw_mask, nw_value), index_from, index_to);
  });
}

INT32 vextvapi_1CL_getFavNumByMask(UINT32 nw_value, UINT32 nw_mask) {
  return count_fitting(lists_now()->favourite_views[kOfOneList], fit_of(nw_mask, nw_value));
}

INT32 vextvapi_1CL_getFavByIdxAndMask(UINT32 nw_value, UINT32 nw_mask, INT32 index, SVL_REC_T* svl_rec) {
  const auto lists = lists_now();
  return give_at(__func__, lists->favourite_views[kOfOneList], fit_of(nw_mask, nw_value), index, svl_rec);
}

INT32 vextvapi_1CL_getFavIdxByChannelAndMask(UINT32 nw_value, UINT32 nw_mask, UINT32 channel_id) {
  const auto lists = lists_now();
  const Entry* const entry = find_id(*lists, channel_id);
  if (entry == nullptr) return refuse_call(__func__, no_channel(channel_id));
  INT32 index = 0;
  const View& view = lists->favourite_views[kOfOneList];
  const INT32 found = index_of(view, fit_of(nw_mask, nw_value), *entry);
  return give_index(__func__, found, &index) == 0 ? index : -1;
}
