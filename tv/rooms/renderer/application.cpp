// The TV API's functions of the renderer: instances, their callbacks and reports, and the facts of the present item.
// All instances together are one renderer: each gets every request, and each may report. If there are more than
// kMostInstances, the oldest one ends, so that an application that did not destroy its instances keeps nobody out.
#include <algorithm>
#include <charconv>
#include <cmath>

#include "base/text.h"
#include "core/contract.h"
#include "core/reply.h"
#include "core/text.h"
#include "rooms/home_network/home_network.h"
#include "rooms/home_network/loop.h"
#include "rooms/renderer/parts.h"

namespace {

UINT32 last_handle = 0;  // guarded by the model's lock

// The caller holds the model's lock.
std::vector<Instance>::iterator find_instance(UINT32 handle) {
  return std::ranges::find(model.instances, handle, &Instance::handle);
}

std::string unknown(UINT32 handle) {
  return "there is no renderer instance " + std::to_string(handle) + "; a_vextvapi_dmr_file_create makes one";
}

// Removes the present and the next item. The caller holds the model's lock.
void forget_items() {
  model.transport = Transport::kNoMedia;
  model.current = model.next = {};
  model.position = model.duration = model.begin_at = 0;
  model.reason.clear();
  player_answered();
}

// Reads a fact of the present item. Refuses an unknown instance, and fails without an item.
template <typename Take>
INT32 with_item(const char* function, UINT32 instance, const void* place, Take take) {
  if (place == nullptr) return refuse_call(function, "there is no place for the result");
  const std::lock_guard guard(model_lock);
  if (find_instance(instance) == model.instances.end()) return refuse_call(function, unknown(instance));
  if (model.current.address.empty()) return refuse_call(function, "no controller has sent anything");
  take(model.current);
  return 0;
}

INT32 tell_text(const char* function, UINT32 instance, char* ret_text, INT32 size, std::string Item::*fact) {
  if (size <= 0) return refuse_call(function, "a text of " + std::to_string(size) + " characters has no room");
  return with_item(function, instance, ret_text, [&](const Item& item) {
    const std::string_view cut = cut_text(item.*fact, static_cast<std::size_t>(size) - 1);
    fill_text(ret_text, static_cast<std::size_t>(size), cut);
  });
}

// "2026-03-29T10:30:00", or only its beginning.
T_DATE_TIME read_date(std::string_view text) {
  const auto part = [text](std::size_t at, std::size_t length, int most) {
    return at < text.size() ? parse_number_within<int>(text.substr(at, length), 0, most).value_or(0) : 0;
  };
  const auto byte = [&](std::size_t at, int most) { return static_cast<UINT8>(part(at, 2, most)); };
  return {.iyear = static_cast<UINT16>(part(0, 4, 9999)),
          .imonth = byte(5, 12),
          .iday = byte(8, 31),
          .ihour = byte(11, 23),
          .iminute = byte(14, 59),
          .isecond = byte(17, 59)};
}

struct State {
  INT32 number;
  Transport transport;
};

constexpr State kStates[] = {
    {DMR_STATE_NO_MEDIA, Transport::kNoMedia}, {DMR_STATE_STOPPED, Transport::kStopped},
    {DMR_STATE_OPENING, Transport::kOpening},  {DMR_STATE_PLAYING, Transport::kPlaying},
    {DMR_STATE_PAUSED, Transport::kPaused},    {DMR_STATE_FAILED, Transport::kStopped},
    {DMR_STATE_ENDED, Transport::kStopped},
};

}  // namespace

UINT32 a_vextvapi_dmr_file_create() {
  UINT32 handle = 0;
  bool ours = false;
  {
    const std::lock_guard guard(model_lock);
    ours = model.instances.empty() && model.transport != Transport::kNoMedia;
  }
  if (ours) player_stop();  // ends what the viewer's player plays for a controller
  {
    const std::lock_guard guard(model_lock);
    if (model.instances.empty()) forget_items();
    if (model.instances.size() >= kMostInstances) model.instances.erase(model.instances.begin());
    handle = ++last_handle == 0 ? ++last_handle : last_handle;
    model.instances.push_back({.handle = handle});
  }
  const std::string error = renderer_update();
  if (!error.empty()) {
    const std::lock_guard guard(model_lock);
    std::erase_if(model.instances, [handle](const Instance& each) { return each.handle == handle; });
    refuse_call(__func__, error);
    return 0;
  }
  subscribers_look();
  return handle;
}

INT32 a_vextvapi_dmr_file_destroy(UINT32 instance) {
  {
    const std::lock_guard guard(model_lock);
    const auto found = find_instance(instance);
    if (found == model.instances.end()) return refuse_call(__func__, unknown(instance));
    model.instances.erase(found);
    if (model.instances.empty()) forget_items();
  }
  renderer_update();
  subscribers_look();
  return 0;
}

INT32 a_vextvapi_cb_dmr_nfy_register_callback(UINT32 instance, a_vextvapi_cb_dmr_nfy_fct callback, void* tag) {
  const std::lock_guard guard(model_lock);
  const auto found = find_instance(instance);
  if (found == model.instances.end()) return refuse_call(__func__, unknown(instance));
  found->callback = callback;
  found->tag = tag;
  return 0;
}

INT32 a_vextvapi_dmr_file_downloadFileAsync(UINT32 instance, const char* url, const char* protocol_info,
                                            char* ret_path) {
  if (ret_path == nullptr) return refuse_call(__func__, "there is no place for the path");
  Item item;
  {
    const std::lock_guard guard(model_lock);
    if (find_instance(instance) == model.instances.end()) return refuse_call(__func__, unknown(instance));
    item = model.current;
  }
  if (url != nullptr && *url != '\0' && item.address != url) {
    item = item_read(url, "");
    if (protocol_info != nullptr) item.protocol_info = protocol_info;
  }
  if (!home_is_near(item.address))
    return refuse_call(__func__, quoted(item.address) + " is no http address of the home network");
  std::string path;
  const std::string why = home_download(item.address, item.title, item_media_type(item.protocol_info), path);
  if (!why.empty()) return refuse_call(__func__, why);
  constexpr std::size_t kPathSize = 256;
  if (path.size() >= kPathSize) return refuse_call(__func__, "the path of the downloads is too long");
  fill_text(ret_path, kPathSize, path);
  return 0;
}

INT32 a_vextvapi_dmr_file_sync_pos(UINT32 instance, INT32 position, INT32 duration) {
  const auto within = [](INT32 seconds) { return seconds >= 0 && seconds <= kLongestSeconds; };
  if (!within(position) || !within(duration))
    return refuse_call(__func__, "position and duration are seconds from 0 to 999 hours");
  const std::lock_guard guard(model_lock);
  if (find_instance(instance) == model.instances.end()) return refuse_call(__func__, unknown(instance));
  if (model.transport == Transport::kNoMedia) return refuse_call(__func__, "no controller has sent anything");
  model.position = position;
  if (model.duration != duration) subscribers_look();
  model.duration = duration;
  return 0;
}

INT32 a_vextvapi_dmr_file_sync_stat(UINT32 instance, INT32 state, const char* url, INT32 value) {
  const auto* const row = std::ranges::find(kStates, state, &State::number);
  if (row == std::end(kStates)) {
    return refuse_call(__func__, std::to_string(state) + " is no state; they are " +
                                     std::to_string(DMR_STATE_NO_MEDIA) + " to " + std::to_string(DMR_STATE_ENDED));
  }
  {
    const std::lock_guard guard(model_lock);
    if (find_instance(instance) == model.instances.end()) return refuse_call(__func__, unknown(instance));
    if (model.transport == Transport::kNoMedia) return refuse_call(__func__, "no controller has sent anything");
    if (url != nullptr && *url != '\0' && model.current.address != url)
      return refuse_call(__func__, quoted(url) + " is not what the controller has sent last");
    player_answered();
    model.transport = row->transport;
    model.reason.clear();
    if (state == DMR_STATE_FAILED) model.reason = "the application reports error " + std::to_string(value);
    if (state == DMR_STATE_NO_MEDIA) forget_items();
    if (row->transport == Transport::kStopped && state != DMR_STATE_ENDED) model.position = 0;
  }
  if (state == DMR_STATE_ENDED) player_ended();
  subscribers_look();
  return 0;
}

INT32 a_vextvapi_dmr_file_getMediaType(UINT32 instance, INT32* ret_type) {
  return with_item(__func__, instance, ret_type, [&](const Item& item) { *ret_type = item.kind; });
}

INT32 a_vextvapi_dmr_file_getMediaName(UINT32 instance, char* ret_name, INT32 size) {
  return tell_text(__func__, instance, ret_name, size, &Item::title);
}

INT32 a_vextvapi_dmr_file_getMediaExtension(UINT32 instance, char* ret_extension, INT32 size) {
  return tell_text(__func__, instance, ret_extension, size, &Item::extension);
}

INT32 a_vextvapi_dmr_file_getMediaSize(UINT32 instance, INT32* ret_bytes) {
  return with_item(__func__, instance, ret_bytes, [&](const Item& item) {
    *ret_bytes = static_cast<INT32>(std::min<std::int64_t>(item.bytes, INT32_MAX));
  });
}

INT32 a_vextvapi_dmr_file_getMediaArtist(UINT32 instance, char* ret_artist, INT32 size) {
  return tell_text(__func__, instance, ret_artist, size, &Item::artist);
}

INT32 a_vextvapi_dmr_file_getMediaAuthor(UINT32 instance, char* ret_author, INT32 size) {
  return tell_text(__func__, instance, ret_author, size, &Item::author);
}

INT32 a_vextvapi_dmr_file_getMediaAlbum(UINT32 instance, char* ret_album, INT32 size) {
  return tell_text(__func__, instance, ret_album, size, &Item::album);
}

INT32 a_vextvapi_dmr_file_getMediaDuration(UINT32 instance, char* ret_duration, INT32 size) {
  if (size <= 0) return refuse_call(__func__, "a text of " + std::to_string(size) + " characters has no room");
  return with_item(__func__, instance, ret_duration, [&](const Item& item) {
    const double seconds = model.duration > 0 ? model.duration : item.duration;
    const std::string text = seconds > 0 ? write_clock(seconds) : "";
    fill_text(ret_duration, static_cast<std::size_t>(size), cut_text(text, static_cast<std::size_t>(size) - 1));
  });
}

INT32 a_vextvapi_dmr_file_getMediaResolution(UINT32 instance, char* ret_resolution, INT32 size) {
  return tell_text(__func__, instance, ret_resolution, size, &Item::resolution);
}

INT32 a_vextvapi_dmr_file_getMediaDate(UINT32 instance, T_DATE_TIME* ret_date) {
  return with_item(__func__, instance, ret_date, [&](const Item& item) { *ret_date = read_date(item.date); });
}
