// The TV API of one service list: its channels by identifier, index, neighbourhood and name, and their changes.
#include <algorithm>
#include <atomic>

#include "base/text.h"
#include "core/reply.h"
#include "core/text.h"
#include "rooms/channels/calls.h"
#include "rooms/channels/logos.h"

namespace {

// How often each list is held. A client may hold a list for long, or for ever, and nobody waits for it: each reader has
// the lists of one moment, and each change is complete in itself. So this only tells whether a release has its hold.
std::atomic<std::uint32_t> holds[kLastList + 1];

std::string unknown_handles(UINT32 h_svl, UINT32 h_tsl) {
  return std::to_string(h_svl) + " and " + std::to_string(h_tsl) + " are not the handles of one service list";
}

// The list of both handles; 0: they are not those of one list.
std::uint16_t list_of_handles(UINT32 h_svl, UINT32 h_tsl) {
  const std::uint16_t list = list_of_handle(h_svl, kServiceHandles);
  return list == list_of_handle(h_tsl, kStreamHandles) ? list : std::uint16_t{0};
}

// Reports on stderr when a handle is unknown. The list; 0: none.
std::uint16_t checked_list(const char* function, UINT32 h_svl) {
  const std::uint16_t list = list_of_handle(h_svl, kServiceHandles);
  if (list == 0) refuse_call(function, std::to_string(h_svl) + " is not the handle of a service list");
  return list;
}

// Narrows the fit to a satellite. False: there is none with this record.
bool fit_satellite(const Lists& lists, UINT32 satl_id, UINT32 satl_rec_id, Fit& ret_fit) {
  if (satl_id > kSatelliteTable) return false;
  ret_fit.of_satellite = satl_id != 0;
  if (satl_rec_id == 0) return true;
  const auto found = std::ranges::find(lists.satellites, satl_rec_id, &Satellite::record);
  if (found == lists.satellites.end()) return false;
  ret_fit.of_satellite = true;
  ret_fit.orbit = found->orbit;
  return true;
}

std::string unknown_satellite(UINT32 satl_id, UINT32 satl_rec_id) {
  return "there is no satellite " + std::to_string(satl_rec_id) + " in satellite list " + std::to_string(satl_id) +
         "; 0 and 0 are any";
}

bool fits(const Entry& entry, const Fit& fit) {
  return count_fitting({.order = {&entry}, .masks = {entry.mask}}, fit) == 1;
}

const Entry* walk(const View& view, const Fit& fit, const Entry* from, INT32 direction) {
  switch (direction) {
    case VEXTVAPI_CHANNEL_ITERATE_SELF:
      return from != nullptr && fits(*from, fit) ? from : nullptr;
    case VEXTVAPI_CHANNEL_ITERATE_FIRST:
      return neighbour(view, fit, nullptr, 1);
    case VEXTVAPI_CHANNEL_ITERATE_NEXT:
      return neighbour(view, fit, from, 1);
    case VEXTVAPI_CHANNEL_ITERATE_PREV:
      return neighbour(view, fit, from, -1);
    default:
      return neighbour(view, fit, nullptr, -1);
  }
}

// Counts at most `wanted` neighbours on one side; the nearest is returned.
const Entry* nearest(const View& view, const Fit& fit, const Entry& from, int by, UINT32 wanted, UINT32& ret_found) {
  const Entry* const first = wanted > 0 ? neighbour(view, fit, &from, by) : nullptr;
  if (first == nullptr) {
    ret_found = 0;
    return nullptr;
  }
  const auto index = static_cast<UINT32>(index_of(view, fit, *first));
  const UINT32 there = by < 0 ? index + 1 : static_cast<UINT32>(count_fitting(view, fit)) - index;
  ret_found = std::min(wanted, there);
  return first;
}

// What a client may change of a channel; why not, or an empty text.
std::string apply(Entry& entry, const SVL_REC_T& svl, const TSL_REC_T& tsl) {
  const SVL_REC_HDR_T& header = svl.t_rec_hdr;
  const auto* const end = std::ranges::find(header.ac_name, '\0');
  const std::string name(std::begin(header.ac_name), end);
  if (end == std::end(header.ac_name) || name.empty() || clean_text(name, kLongestName) != name) {
    return "a channel's name is a text of 1 to " + std::to_string(kLongestName) + " bytes in UTF-8, not " +
           quoted(name);
  }
  if (!is_id(header.ui4_channel_id, entry.channel.list)) {
    return "identifier " + std::to_string(header.ui4_channel_id) + " has no number, or belongs to another list than " +
           std::to_string(entry.channel.list);
  }
  if (tsl.brdcst_medium != 0) {
    if (tsl.brdcst_medium != static_cast<UINT8>(entry.channel.medium))
      return "medium " + std::to_string(tsl.brdcst_medium) + " is not that of the service list";
    if (tsl.frequency != 0) entry.channel.frequency = tsl.frequency;
  }
  set_id(entry, header.ui4_channel_id);
  set_mask(entry, header.ui4_nw_mask);
  entry.options = header.ui4_option_mask;
  entry.channel.name = name;
  return "";
}

// Why the channel cannot have its number, or an empty text. For half of a swap, sets `former` of the channel.
std::string check_number(const Lists& lists, Entry& entry, std::uint32_t id_before) {
  entry.former = 0;
  for (const auto& other : lists.entries) {
    if (other->channel.list != entry.channel.list || reference_of(*other) == reference_of(entry)) continue;
    if (place_of(other->channel.id) != place_of(entry.channel.id)) continue;
    if (other->channel.id != entry.channel.id)
      return "number " + std::to_string(entry.channel.number) + " is taken by " + quoted(other->channel.name);
    entry.former = id_before;
  }
  return "";
}

std::shared_ptr<const Entry>* place_in(Lists& lists, std::uint32_t reference) {
  const auto found = std::ranges::find(lists.entries, reference, [](const auto& each) { return reference_of(*each); });
  return found == lists.entries.end() ? nullptr : &*found;
}

// Whether the channel, written with this identifier, completes a swap that another channel has begun.
bool ends_swap(const Lists& lists, const Entry& entry, std::uint32_t id) {
  return std::ranges::any_of(lists.entries, [&](const auto& other) {
    return other->former == id && other->channel.id == entry.channel.id && reference_of(*other) != reference_of(entry);
  });
}

std::string write_service(Lists& lists, std::uint32_t reference, const SVL_REC_T& svl, const TSL_REC_T& tsl) {
  std::shared_ptr<const Entry>* const place = place_in(lists, reference);
  if (place == nullptr) return "there is no record " + std::to_string(svl.ui2_svl_rec_id);
  const bool ends = ends_swap(lists, **place, svl.t_rec_hdr.ui4_channel_id);
  if (!ends) undo_half_swap(lists);
  Entry entry = **place;
  const std::uint32_t id_before = entry.channel.id;
  if (std::string why = apply(entry, svl, tsl); !why.empty()) return why;
  if (std::string why = check_number(lists, entry, id_before); !why.empty()) return why;
  *place = std::make_shared<const Entry>(std::move(entry));
  if (ends) undo_half_swap(lists);  // nobody shares an identifier any more, so this only forgets the former one
  return "";
}

}  // namespace

// ---- Handles ----

UINT32 a_vextvapi_channellist_get_svl_handle_by_svl_id(UINT16 svl_id) {
  return is_list(svl_id) ? kServiceHandles + svl_id : 0;
}

UINT32 a_vextvapi_channellist_get_tsl_handle_by_svl_id(UINT16 svl_id) {
  return is_list(svl_id) ? kStreamHandles + svl_id : 0;
}

INT32 a_vextvapi_channellist_lock_database(UINT32 h_svl, UINT32 h_tsl) {
  const std::uint16_t list = list_of_handles(h_svl, h_tsl);
  if (list == 0) return refuse_call(__func__, unknown_handles(h_svl, h_tsl));
  ++holds[list];
  return 0;
}

INT32 a_vextvapi_channellist_unlock_database(UINT32 h_svl, UINT32 h_tsl) {
  const std::uint16_t list = list_of_handles(h_svl, h_tsl);
  if (list == 0) return refuse_call(__func__, unknown_handles(h_svl, h_tsl));
  std::uint32_t held = holds[list];
  while (held > 0 && !holds[list].compare_exchange_weak(held, held - 1)) continue;
  return held > 0 ? 0 : refuse_call(__func__, "service list " + std::to_string(list) + " is not held");
}

// ---- One channel ----

INT32 a_vextvapi_channellist_get_svl_rec_by_channel_id(UINT16 svl_id, UINT32 channel_id, SVL_REC_T* svl_rec) {
  if (svl_rec == nullptr) return refuse_call(__func__, kNullOutput);
  const auto lists = lists_now();
  const Entry* const entry = channel_of(__func__, *lists, svl_id, channel_id);
  return entry != nullptr ? give(*entry, svl_rec) : -1;
}

INT32 a_vextvapi_channellist_get_svl_rec_by_index(UINT32 h_svl, UINT32 nw_mask, UINT32 nw_value, INT32 index,
                                                  SVL_REC_T* svl_rec) {
  const std::uint16_t list = checked_list(__func__, h_svl);
  if (list == 0) return -1;
  const auto lists = lists_now();
  return give_at(__func__, lists->views[list], fit_of(nw_mask, nw_value), index, svl_rec);
}

INT32 a_vextvapi_channellist_get_svl_rec_by_index_and_name(UINT32 h_svl, UINT32 nw_mask, UINT32 nw_value,
                                                           const char* name, INT32 index, SVL_REC_T* svl_rec) {
  const std::uint16_t list = checked_list(__func__, h_svl);
  if (list == 0) return -1;
  if (!is_search(name)) return refuse_call(__func__, kNoSearch);
  const auto lists = lists_now();
  return give_at(__func__, lists->views[list], fit_of(nw_mask, nw_value, name), index, svl_rec);
}

INT32 a_vextvapi_channellist_get_index_by_channel(UINT32 h_svl, UINT32 nw_mask, UINT32 nw_value, UINT32 channel_id,
                                                  INT32* index) {
  const std::uint16_t list = checked_list(__func__, h_svl);
  if (list == 0) return -1;
  const auto lists = lists_now();
  const Entry* const entry = channel_of(__func__, *lists, list, channel_id);
  if (entry == nullptr) return -1;
  return give_index(__func__, index_of(lists->views[list], fit_of(nw_mask, nw_value), *entry), index);
}

// ---- Neighbours ----

INT32 a_vextvapi_channellist_get_svl_tsl_recs_by_mask(UINT32 h_svl, UINT32 h_tsl, UINT32 nw_mask, UINT32 nw_value,
                                                      UINT32 satl_id, UINT32 satl_rec_id, UINT32 category_mask,
                                                      INT32 direction, UINT32 channel_id, UINT32 count,
                                                      SVL_REC_T* svl_rec, TSL_REC_T* tsl_rec) {
  const std::uint16_t list = list_of_handles(h_svl, h_tsl);
  if (list == 0) return refuse_call(__func__, unknown_handles(h_svl, h_tsl));
  if (svl_rec == nullptr || tsl_rec == nullptr) return refuse_call(__func__, kNullOutput);
  if (direction < VEXTVAPI_CHANNEL_ITERATE_SELF || direction > VEXTVAPI_CHANNEL_ITERATE_LAST)
    return refuse_call(__func__, std::to_string(direction) + " is not a direction, which is 0 to 4");
  if (count == 0) return 0;
  const auto lists = lists_now();
  Fit fit{.mask = nw_mask, .value = nw_value, .categories = category_mask};
  if (!fit_satellite(*lists, satl_id, satl_rec_id, fit))
    return refuse_call(__func__, unknown_satellite(satl_id, satl_rec_id));
  const bool from_an_end = direction == VEXTVAPI_CHANNEL_ITERATE_FIRST || direction == VEXTVAPI_CHANNEL_ITERATE_LAST;
  const Entry* const from = from_an_end ? nullptr : channel_of(__func__, *lists, list, channel_id);
  if (from == nullptr && !from_an_end) return -1;
  const Entry* const found = walk(lists->views[list], fit, from, direction);
  if (found == nullptr) return 0;
  *tsl_rec = stream_record(*found);
  give(*found, svl_rec);
  return 1;  // there is room for one record, whatever the count is
}

INT32 a_vextvapi_channellist_get_svl_tsl_recs_by_filter(UINT32 h_svl, UINT32 h_tsl, UINT32 nw_mask, UINT32 nw_value,
                                                        UINT32 channel_id, UINT32 before, UINT32 after,
                                                        SVL_REC_T* svl_rec, TSL_REC_T* tsl_rec, UINT32* before_found,
                                                        UINT32* after_found) {
  const std::uint16_t list = list_of_handles(h_svl, h_tsl);
  if (list == 0) return refuse_call(__func__, unknown_handles(h_svl, h_tsl));
  if (svl_rec == nullptr || tsl_rec == nullptr || before_found == nullptr || after_found == nullptr)
    return refuse_call(__func__, kNullOutput);
  const auto lists = lists_now();
  const Entry* const from = channel_of(__func__, *lists, list, channel_id);
  if (from == nullptr) return -1;
  const View& view = lists->views[list];
  const Fit fit{.mask = nw_mask, .value = nw_value == 0 ? nw_mask : nw_value};
  UINT32 found_before = 0, found_after = 0;
  const Entry* const previous = nearest(view, fit, *from, -1, before, found_before);
  const Entry* const next = nearest(view, fit, *from, 1, after, found_after);
  const Entry* const found = previous != nullptr ? previous : next;
  if (found == nullptr) return -1;  // an end of the list, which is no error
  *before_found = found_before;
  *after_found = found_after;
  *tsl_rec = stream_record(*found);
  return give(*found, svl_rec);
}

// ---- Counting ----

INT32 a_vextvapi_channellist_get_number_by_name(UINT32 h_svl, UINT32 nw_mask, UINT32 nw_value, const char* name) {
  const std::uint16_t list = checked_list(__func__, h_svl);
  if (list == 0) return -1;
  if (!is_search(name)) return refuse_call(__func__, kNoSearch);
  return count_fitting(lists_now()->views[list], fit_of(nw_mask, nw_value, name));
}

INT32 a_vextvapi_channellist_get_number_by_mask(UINT32 h_svl, UINT32 nw_mask, UINT32 nw_value, UINT32 satl_id,
                                                UINT32 satl_rec_id, UINT32 category_mask) {
  const std::uint16_t list = checked_list(__func__, h_svl);
  if (list == 0) return -1;
  const auto lists = lists_now();
  Fit fit{.mask = nw_mask, .value = nw_value, .categories = category_mask};
  if (!fit_satellite(*lists, satl_id, satl_rec_id, fit))
    return refuse_call(__func__, unknown_satellite(satl_id, satl_rec_id));
  return count_fitting(lists->views[list], fit);
}

INT32 a_vextvapi_channellist_get_number_by_filter(UINT32 h_svl, UINT32 nw_mask) {
  const std::uint16_t list = checked_list(__func__, h_svl);
  if (list == 0) return -1;
  return count_fitting(lists_now()->views[list], {.mask = nw_mask, .value = nw_mask});
}

INT32 a_vextvapi_channellist_is_exist_by_channel_number(UINT16 svl_id, UINT32 channel_number) {
  if (!is_list(svl_id)) return refuse_call(__func__, unknown_list(svl_id));
  if (channel_number == 0 || channel_number > kLastNumber) {
    return refuse_call(__func__, "a channel's number is 1 to " + std::to_string(kLastNumber) + ", not " +
                                     std::to_string(channel_number));
  }
  const auto lists = lists_now();
  const auto& order = lists->views[svl_id].order;
  return std::ranges::binary_search(order, channel_number, {}, [](const Entry* each) { return each->channel.number; })
             ? 1
             : 0;
}

// ---- Changes ----

INT32 a_vextvapi_channellist_set_svl_tsl_rec_info(UINT32 h_svl, UINT32 h_tsl, UINT16 svl_id, UINT32 number,
                                                  const SVL_REC_T* svl_rec, const TSL_REC_T* tsl_rec) {
  const std::uint16_t list = list_of_handles(h_svl, h_tsl);
  if (list == 0 || list != svl_id) return refuse_call(__func__, unknown_handles(h_svl, h_tsl));
  if (svl_rec == nullptr || tsl_rec == nullptr) return refuse_call(__func__, "a record is null");
  if (number != 1) return refuse_call(__func__, "it writes 1 record, not " + std::to_string(number));
  const std::uint32_t reference = reference_of(list, svl_rec->ui2_svl_rec_id);
  return change(
      __func__, [&](Lists& lists) { return write_service(lists, reference, *svl_rec, *tsl_rec); }, ChangeKind::kWrite);
}

INT32 a_channel_logo_custom_update_logo_id_by_channel(UINT16 svl_id, UINT32 channel_id) {
  const auto before = lists_now();
  const Entry* const found = channel_of(__func__, *before, svl_id, channel_id);
  if (found == nullptr) return -1;
  const std::uint16_t logo = find_logo(logo_folder(), *found);
  return change(__func__, [&](Lists& lists) {
    const Entry* const present = find_reference(lists, reference_of(*found));
    if (present == nullptr) return std::string("the channel was removed meanwhile");
    Entry entry = *present;
    entry.logo = logo;
    replace_entry(lists, std::move(entry));
    return std::string();
  });
}
