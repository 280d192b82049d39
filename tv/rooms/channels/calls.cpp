#include "rooms/channels/calls.h"

#include <cstring>

#include "base/text.h"
#include "core/reply.h"

std::string unknown_list(UINT32 svl_id) {
  return "there is no service list " + std::to_string(svl_id) + "; 1 is air, 2 cable, 3 satellite";
}

bool is_search(const char* name) {
  if (name == nullptr) return false;
  const std::size_t length = strnlen(name, kLongestSearch + 1);
  return length <= kLongestSearch && is_utf8({name, length});
}

const Entry* channel_of(const char* function, const Lists& lists, UINT16 svl_id, UINT32 channel_id) {
  const Entry* const entry = find_id(lists, channel_id);
  if (!is_list(svl_id)) {
    refuse_call(function, unknown_list(svl_id));
  } else if (entry == nullptr || entry->channel.list != svl_id) {
    refuse_call(function, "service list " + std::to_string(svl_id) + " has no channel with identifier " +
                              std::to_string(channel_id));
  } else {
    return entry;
  }
  return nullptr;
}

INT32 give(const Entry& entry, SVL_REC_T* ret_record) {
  *ret_record = service_record(entry);
  return 0;
}

INT32 give_at(const char* function, const View& view, const Fit& fit, INT32 index, SVL_REC_T* ret_record) {
  if (ret_record == nullptr) return refuse_call(function, kNullOutput);
  const Entry* const entry = index < 0 ? nullptr : at_index(view, fit, index);
  if (entry != nullptr) return give(*entry, ret_record);
  return refuse_call(function, "index " + std::to_string(index) + " is not one of the " +
                                   std::to_string(count_fitting(view, fit)) + " channels that fit");
}

INT32 give_index(const char* function, INT32 found, INT32* ret_index) {
  if (ret_index == nullptr) return refuse_call(function, kNullOutput);
  if (found < 0) return refuse_call(function, "no channel fits");
  *ret_index = found;
  return 0;
}

INT32 change(const char* function, const std::function<std::string(Lists& lists)>& edit, ChangeKind kind) {
  const std::string why = change_lists(edit, kind);
  return why.empty() ? 0 : refuse_call(function, why);
}
