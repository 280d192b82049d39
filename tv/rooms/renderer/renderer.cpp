// The set as a renderer of the home network. Controllers find it while a viewer has switched it on, or an application
// has an instance. An application gets the controllers' requests as events; without one the viewer's player carries
// them out.
#include <atomic>
#include <boost/json.hpp>
#include <cstdio>

#include "core/reply.h"
#include "core/room.h"
#include "core/store.h"
#include "core/text.h"
#include "rooms/config/config.h"
#include "rooms/home_network/loop.h"
#include "rooms/home_network/upnp/library.h"
#include "rooms/media_player/media_player.h"
#include "rooms/renderer/identifier.h"
#include "rooms/renderer/rows.h"
#include "rooms/renderer/server.h"
#include "rooms/renderer/subscribers.h"
#include "rooms/volume/volume.h"

// Never destroyed, like the model: threads may still use them when the process exits.
std::mutex& model_lock = *new std::mutex;
Model& model = *new Model;

namespace {

constexpr Setting kOn{.key = "renderer_on", .factory = 0, .minimum = 0, .maximum = 1};
constexpr TextSetting kUdn{.key = "renderer_udn", .factory = "", .longest = 64};
constexpr const char* kNameKey = "g_misc__tv_network_name";
constexpr const char* kDefaultName = "Virtual television";
constexpr std::size_t kLongestName = 64;

constexpr const char* kStateNames[] = {"no media", "stopped", "opening", "playing", "paused"};  // by Transport

std::mutex& life_lock = *new std::mutex;  // serializes begin and end; taken before all other locks of the room
bool running = false;                     // guarded by life_lock

std::atomic<bool> follow_waits = false;  // a call of player_follow waits for the server's thread

Model copy_of_model() {
  const std::lock_guard guard(model_lock);
  return model;
}

void player_changed() {
  if (follow_waits.exchange(true)) return;
  server_post([] {
    follow_waits = false;
    player_follow();
  });
}

// Sets the renderer's name, and makes and stores its identifier the first time. False: that was not saved.
bool take_names() {
  std::string name = clean_text(config_text(kNameKey), kLongestName);
  const std::lock_guard guard(model_lock);
  model.name = name.empty() ? kDefaultName : std::move(name);
  if (!model.udn.empty()) return true;
  const std::string udn = new_identifier();
  const SettingValue value[] = {{kUdn.key, std::string_view(udn)}};
  if (!store_write(value)) return false;
  model.udn = udn;
  return true;
}

// On the server's thread.
void announce(const UpnpLibrary* library, const std::vector<std::string>& hosts) {
  Announcement announcement{.locations = {}, .udn = {}, .types = {std::string(kDeviceType)}};
  subscribers_begin();
  for (const RendererService& service : services()) announcement.types.push_back(service_type(service));
  for (const std::string& place : server_listen(hosts))
    announcement.locations.push_back("http://" + place + std::string(kDescriptionPath));
  {
    const std::lock_guard guard(model_lock);
    announcement.udn = model.udn;
    if (!announcement.locations.empty()) model.where = announcement.locations.front();
  }
  home_loop_post([library, announcement] { library->renderer_announce(announcement); });
}

// The caller of this and of end holds life_lock.
std::string begin() {
  if (!take_names()) return kNotSaved;
  std::string error;
  const UpnpLibrary* const library = upnp_library(error);
  if (library == nullptr || !home_loop_start(error) || !server_start(error)) return error;
  running = true;
  follow_waits = false;
  media_player_on_change(player_changed);
  volume_on_change(subscribers_look);
  home_loop_post(
      [library] { server_post([library, hosts = library->renderer_hosts()] { announce(library, hosts); }); });
  return "";
}

void end() {
  media_player_on_change(nullptr);
  volume_on_change(nullptr);
  server_stop();
  std::string error;
  if (const UpnpLibrary* const library = upnp_library(error))
    home_loop_post([library] { library->renderer_withdraw(); });
  running = false;
  const std::lock_guard guard(model_lock);
  model.where.clear();
  model.controller.clear();
}

}  // namespace

std::string renderer_update() {
  const std::lock_guard life(life_lock);
  bool wanted = false;
  {
    const std::lock_guard guard(model_lock);
    wanted = model.on || !model.instances.empty();
  }
  if (wanted && !running) return begin();
  if (!wanted && running) end();
  return "";
}

namespace {

void load() {
  const std::lock_guard guard(model_lock);
  model = Model{.on = store_read(kOn) != 0, .udn = store_read(kUdn)};
}

void start() {
  const std::string error = renderer_update();
  if (!error.empty()) std::fprintf(stderr, "dtv_tv: the set is no renderer: %s\n", error.c_str());
}

void stop() {
  const std::lock_guard life(life_lock);
  if (running) end();
}

bool reset() {
  player_stop();
  stop();  // an application's renderer begins again, with another identifier
  {
    const std::lock_guard guard(model_lock);
    model.on = false;
    model.udn.clear();
    model.mode = PlayMode::kNormal;
  }
  return renderer_update().empty();
}

void report(boost::json::object& answer) {
  const std::lock_guard guard(model_lock);
  if (model.on || !model.instances.empty()) answer["renderer"] = kStateNames[static_cast<int>(model.transport)];
}

boost::json::object reply() {
  player_follow();
  const Model shown = copy_of_model();
  boost::json::object answer = {{"on", shown.on},
                                {"name", shown.name},
                                {"application", !shown.instances.empty()},
                                {"state", kStateNames[static_cast<int>(shown.transport)]},
                                {"subscriptions", subscribers_count()}};
  if (!shown.where.empty()) answer["description"] = shown.where;
  if (!shown.controller.empty()) answer["controller"] = shown.controller;
  if (!shown.reason.empty()) answer["reason"] = shown.reason;
  if (shown.transport == Transport::kNoMedia) return answer;
  answer["url"] = shown.current.address;
  answer["title"] = shown.current.title;
  answer["position"] = shown.position;
  answer["duration"] = shown.duration > 0 ? shown.duration : shown.current.duration;
  return answer;
}

boost::json::object renderer_command(Arguments arguments) {
  if (arguments.empty()) return reply();
  if (arguments[0] != "on" && arguments[0] != "off") return reply_takes("renderer", "on or off", arguments[0]);
  const bool on = arguments[0] == "on";
  const SettingValue value[] = {{kOn.key, std::int64_t{on}}};
  if (!store_write(value)) return reply_not_kept();
  bool ends = false;
  {
    const std::lock_guard guard(model_lock);
    ends = model.on && !on && model.instances.empty();
    model.on = on;
  }
  if (ends) player_stop();
  const std::string error = renderer_update();
  return error.empty() ? reply() : reply_error("the set cannot be a renderer: " + error);
}

constexpr Command kCommands[] = {
    {"renderer", "[on|off]", 1, "Lets controllers of the home network play on the set, and shows what they play",
     renderer_command},
};

}  // namespace

const Room room_renderer = {
    .commands = kCommands, .load = load, .reset = reset, .report = report, .start = start, .stop = stop};
