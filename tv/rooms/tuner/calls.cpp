// Functions of the TV API about the channel that the main picture shows.
#include "base/text.h"
#include "core/reply.h"
#include "rooms/tuner/tuner.h"

INT32 a_vextvapi_channellist_get_current_channel(UINT16* ret_list, SVL_REC_T* ret_service, TSL_REC_T* ret_stream) {
  if (ret_list == nullptr || ret_service == nullptr || ret_stream == nullptr) {
    return refuse_call(__func__, "there is no room for the answer");
  }
  const auto channel = tuner_channel();
  if (!channel || !channels_records(channel->id, *ret_service, *ret_stream))
    return refuse_call(__func__, "the channel list is empty");
  *ret_list = channel->list;
  return 0;
}

// The lists have no analogue channels: neither a scan nor an imported list brings one.
INT32 a_vextvapi_broadcast_ana_channel_fine_tune(const char* path, UINT32, UINT8) {
  if (path == nullptr || !equal_ignoring_case(path, "main")) {
    return refuse_call(__func__, "the picture is \"main\", not " +
                                     (path == nullptr ? "null" : quoted(std::string_view(path).substr(0, 16))));
  }
  const auto channel = tuner_channel();
  if (!channel) return refuse_call(__func__, "the channel list is empty");
  return refuse_call(__func__, "channel " + std::to_string(channel->number) +
                                   " is digital; only the frequency of an analogue channel can be shifted");
}
