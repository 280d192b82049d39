// The objects that servers have listed. Servers identify them by texts, applications by numbers.
#include <map>
#include <mutex>
#include <utility>

#include "rooms/home_network/home_network.h"
#include "rooms/home_network/parts.h"

namespace {

struct Listed {
  INT32 server = 0;
  UpnpObject object = {};
};

struct State {
  std::mutex lock;  // guards all members below
  std::map<INT32, Listed> by_number;
  std::map<std::pair<INT32, std::string>, INT32> by_name;  // server and identifier
  INT32 last = 0;
};

// Never destroyed: other threads may still use it when the process exits.
State& state = *new State;

// The caller holds the lock.
INT32 add(INT32 server, const UpnpObject& object) {
  if (object.id == kHomeRoot) return DMP_ROOT_OBJECT;
  const auto known = state.by_name.find({server, object.id});
  if (known != state.by_name.end()) {
    state.by_number[known->second].object = object;
    return known->second;
  }
  if (state.by_number.size() >= kMostObjects) {
    const auto oldest = state.by_number.begin();
    state.by_name.erase({oldest->second.server, oldest->second.object.id});
    state.by_number.erase(oldest);
  }
  if (state.last == INT32_MAX) {  // after years of listing
    state.by_number.clear();
    state.by_name.clear();
    state.last = 0;
  }
  const INT32 number = ++state.last;
  state.by_number[number] = {.server = server, .object = object};
  state.by_name[{server, object.id}] = number;
  return number;
}

}  // namespace

void objects_load() {
  const std::lock_guard guard(state.lock);
  state.by_number.clear();
  state.by_name.clear();
  state.last = 0;
}

std::vector<INT32> objects_add(INT32 server, const std::vector<UpnpObject>& objects) {
  std::vector<INT32> numbers;
  const std::lock_guard guard(state.lock);
  for (const UpnpObject& each : objects) numbers.push_back(add(server, each));
  return numbers;
}

std::optional<UpnpObject> objects_find(INT32 server, INT32 number) {
  const std::lock_guard guard(state.lock);
  const auto found = state.by_number.find(number);
  if (found == state.by_number.end() || found->second.server != server) return std::nullopt;
  return found->second.object;
}

std::string object_read(INT32 server, INT32 number, UpnpObject& ret_object) {
  const auto known = servers_find(server);
  if (!known) return "there is no server " + std::to_string(server);
  if (number != DMP_ROOT_OBJECT) {
    auto object = objects_find(server, number);
    if (!object) return "the server has no object " + std::to_string(number) + "; list its folder (again)";
    ret_object = std::move(*object);
    return {};
  }
  UpnpPage page;
  std::string why = ask(*known, {.object = kHomeRoot, .itself = true, .count = 1}, page);
  if (!why.empty()) return why;
  UpnpObject root;
  if (!page.objects.empty()) root = std::move(page.objects[0]);
  root.id = kHomeRoot;
  root.kind = DLNA_MEDIA_CONTAINER;
  if (root.name.empty()) root.name = known->upnp.name;
  ret_object = std::move(root);
  return {};
}

std::string_view kind_name(INT32 kind) {
  switch (kind) {
    case DLNA_MEDIA_CONTAINER:
      return "folder";
    case DLNA_MEDIA_PHOTO:
      return "photo";
    case DLNA_MEDIA_MUSIC:
      return "music";
    case DLNA_MEDIA_VIDEO:
      return "video";
    default:
      return "other";
  }
}
