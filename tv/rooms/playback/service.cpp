// The recording file playback service: tells the application what is played, and takes its reports.
#include <algorithm>
#include <boost/json.hpp>
#include <mutex>
#include <utility>

#include "core/events.h"
#include "core/reply.h"
#include "core/text.h"
#include "rooms/playback/parts.h"

namespace {

constexpr UINT32 kTransportStream = 1;  // fileType of every recording
constexpr std::uint64_t kMegabyte = 1U << 20;

struct Submitted {
  UINT32 instance = 0;
  INT32 state = 0;
  INT32 value = 0;
};

struct Service {
  std::mutex lock;  // guards all members below; no other lock is taken under it
  bool started = false;
  a_vextvapi_pus_play_nfy_fct callback = nullptr;
  Submitted submitted;
};

// Never destroyed: the event thread may still use it when the process exits.
Service& service = *new Service;

a_vextvapi_pus_play_nfy_fct callback_now() {
  const std::lock_guard guard(service.lock);
  return service.callback;
}

INT32 bounded(std::int64_t number) { return static_cast<INT32>(std::clamp<std::int64_t>(number, 0, INT32_MAX)); }

}  // namespace

void service_send(std::uint32_t instance, INT32 command, INT32 value) {
  events_post([=] {
    if (const auto callback = callback_now())
      callback(instance, command, reinterpret_cast<void*>(static_cast<std::intptr_t>(value)), 0);
  });
}

// The event keeps the path until the callback has returned.
void service_send_start(std::uint32_t instance, std::string path) {
  events_post([instance, path = std::move(path)]() mutable {
    if (const auto callback = callback_now()) callback(instance, TVAPI_PUS_PLAY_CMD_START, path.data(), 0);
  });
}

void service_load() {
  const std::lock_guard guard(service.lock);
  service.started = false;
  service.callback = nullptr;
  service.submitted = {};
}

void service_report(boost::json::object& answer) {
  const std::lock_guard guard(service.lock);
  const Submitted& submitted = service.submitted;
  if (submitted.instance == 0) return;
  answer["application_playback"] = {
      {"instance", submitted.instance}, {"state", submitted.state}, {"value", submitted.value}};
}

INT32 a_vextvapi_pus_init() {
  const std::lock_guard guard(service.lock);
  service.started = true;
  return 0;
}

INT32 a_vextvapi_pus_deinit() {
  const std::lock_guard guard(service.lock);
  service.started = false;
  service.callback = nullptr;
  return 0;
}

INT32 a_vextvapi_pus_reg_callback(a_vextvapi_pus_play_nfy_fct callback) {
  if (callback == nullptr) return refuse_call(__func__, "the callback is null");
  const std::lock_guard guard(service.lock);
  if (!service.started) return refuse_call(__func__, "the service has not been started");
  service.callback = callback;
  return 0;
}

INT32 a_vextvapi_pus_get_file_info(UINT32 instance, T_PUS_FILE_INFO_T* ret_info) {
  if (ret_info == nullptr) return refuse_call(__func__, "there is no room for the answer");
  const auto recording = playback_recording(instance);
  if (!recording) return refuse_call(__func__, "playback " + std::to_string(instance) + " is not going on");
  T_PUS_FILE_INFO_T info{};
  put_text(info.url, recording->url);
  put_text(info.channelName, recording->channel);
  put_text(info.eventName, recording->title);
  info.eventId = std::max(recording->event, 0);
  info.startDateTime = bounded(recording->start);
  info.endDateTime = bounded(recording->start + recording->duration);
  info.duration = bounded(recording->duration);
  info.sizeInMB = bounded(static_cast<std::int64_t>(recording->bytes / kMegabyte));
  info.fileType = kTransportStream;
  *ret_info = info;
  return 0;
}

// The application may report the end of a playback after the set has ended it.
INT32 a_vextvapi_pus_submit_status(UINT32 instance, INT32 state, INT32 value, INT32) {
  const std::uint32_t latest = playback_latest_instance();
  if (instance == 0 || instance != latest) {
    return refuse_call(__func__, "there is no playback " + std::to_string(instance) +
                                     (latest == 0 ? "" : "; the latest is " + std::to_string(latest)));
  }
  const std::lock_guard guard(service.lock);
  service.submitted = {.instance = instance, .state = state, .value = value};
  return 0;
}
