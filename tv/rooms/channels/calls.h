// What the functions of the TV API about channels share: checks of their arguments, and their answers.
#pragma once

#include <functional>
#include <string>

#include "rooms/channels/state.h"

inline constexpr const char* kNullOutput = "an output is null";
inline constexpr const char* kNoSearch = "the name to look for is null, too long or not in UTF-8";

inline constexpr std::size_t kLongestSearch = 256;  // bytes of a name to look for
inline constexpr UINT16 kSatelliteTable = 1;        // satl_id
inline constexpr UINT16 kCategoryTable = 1;         // lol_id

std::string unknown_list(UINT32 svl_id);

// The part of a name that a client looks for. In UTF-8, so that it never fits a part of a character.
bool is_search(const char* name);

// The channels that a request by mask and value asks for. A request that names no value has 0; with the mask ACTIVE
// alone it means the channels in the list, not those that are hidden.
inline Fit fit_of(UINT32 nw_mask, UINT32 nw_value, std::string_view name = {}) {
  const bool default_value = nw_mask == SVL_NW_MASK_ACTIVE && nw_value == 0;
  return {.mask = nw_mask, .value = default_value ? nw_mask : nw_value, .name = name};
}

// The channel with this identifier. Null, and a message, if there is no such list or channel.
const Entry* channel_of(const char* function, const Lists& lists, UINT16 svl_id, UINT32 channel_id);

// Returns 0.
INT32 give(const Entry& entry, SVL_REC_T* ret_record);

// The channel at an index among those that fit. -1, and a message, if there is none or the output is null.
INT32 give_at(const char* function, const View& view, const Fit& fit, INT32 index, SVL_REC_T* ret_record);

// The index; -1, and a message, if it is negative or the output is null.
INT32 give_index(const char* function, INT32 found, INT32* ret_index);

// change_lists for a function of the TV API: 0, or -1 with a message.
INT32 change(const char* function, const std::function<std::string(Lists& lists)>& edit,
             ChangeKind kind = ChangeKind::kEdit);
