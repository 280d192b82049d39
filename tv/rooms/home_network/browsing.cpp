// The folders that a viewer browses by keys. Nobody waits for a server here: its answers come on the home network's
// thread. What was browsed last is kept, so that the way back shows it at once.
#include <algorithm>
#include <list>
#include <map>
#include <mutex>
#include <utility>

#include "rooms/home_network/home_network.h"
#include "rooms/home_network/loop.h"
#include "rooms/home_network/parts.h"

namespace {

constexpr std::size_t kPage = 50;         // objects requested at a time
constexpr std::size_t kMostPages = 8;     // kept of a folder
constexpr std::size_t kMostFolders = 16;  // kept

struct Page {
  std::uint64_t call = 0;  // that has requested it; 0: it has come
  std::vector<UpnpObject> objects = {};
};

struct Folder {
  INT32 server = 0;
  std::string id = {};
  bool known = false;  // the server has answered once
  std::size_t count = 0;
  std::string why = {};                    // why it cannot be listed
  std::map<std::size_t, Page> pages = {};  // by number
};

struct State {
  std::mutex lock;            // guards the list
  std::list<Folder> folders;  // the one that was used last comes first
};

// Never destroyed: the home network's thread may still use it when the process exits.
State& state = *new State;

using Calls = std::vector<std::uint64_t>;

void cancel(const Calls& calls) {
  std::string why;
  const UpnpLibrary* const library = calls.empty() ? nullptr : upnp_library(why);
  if (library == nullptr) return;
  home_loop_post([library, calls] {
    for (const std::uint64_t each : calls) library->upnp_cancel(each);
  });
}

void add_calls(const Folder& folder, Calls& ret_calls) {
  for (const auto& [number, page] : folder.pages)
    if (page.call != 0) ret_calls.push_back(page.call);
}

// The caller holds the lock.
auto find_folder(INT32 server, const std::string& id) {
  return std::ranges::find_if(state.folders,
                              [&](const Folder& each) { return each.server == server && each.id == id; });
}

// Finds the folder or adds it, in place of the one that was used longest ago. ret_dropped: calls that nobody waits for
// any more. The caller holds the lock.
Folder& use_folder(INT32 server, const std::string& id, Calls& ret_dropped) {
  const auto found = find_folder(server, id);
  if (found != state.folders.end()) {
    state.folders.splice(state.folders.begin(), state.folders, found);
    return state.folders.front();
  }
  state.folders.push_front({.server = server, .id = id});
  if (state.folders.size() > kMostFolders) {
    add_calls(state.folders.back(), ret_dropped);
    state.folders.pop_back();
  }
  return state.folders.front();
}

// Makes room for a page: the one that is farthest away goes. The caller holds the lock.
void make_room(Folder& folder, std::size_t number, Calls& ret_dropped) {
  if (folder.pages.size() < kMostPages) return;
  const auto distance = [&](const auto& each) { return std::max(each.first, number) - std::min(each.first, number); };
  const auto farthest = std::ranges::max_element(folder.pages, {}, distance);
  if (farthest->second.call != 0) ret_dropped.push_back(farthest->second.call);
  folder.pages.erase(farthest);
}

// Notes that a page is requested, or why it cannot be. Returns the number of the call; 0: there is nothing to request.
std::uint64_t note_request(INT32 server, const std::string& id, std::size_t number, const std::string& why) {
  Calls dropped;
  std::uint64_t call = 0;
  {
    const std::lock_guard guard(state.lock);
    Folder& folder = use_folder(server, id, dropped);
    if (!folder.why.empty() || folder.pages.contains(number)) return 0;
    folder.why = why;
    if (why.empty()) {
      make_room(folder, number, dropped);
      call = next_call();
      folder.pages[number].call = call;
    }
  }
  cancel(dropped);
  return call;
}

// On the home network's thread. The answer to a call that was dropped is ignored.
void take(std::uint64_t call, UpnpPage page, const std::string& why) {
  const std::lock_guard guard(state.lock);
  for (Folder& folder : state.folders) {
    const auto asked = std::ranges::find_if(folder.pages, [&](const auto& each) { return each.second.call == call; });
    if (asked == folder.pages.end()) continue;
    folder.why = why;
    if (!why.empty()) {
      folder.pages.erase(asked);
      return;
    }
    asked->second = {.objects = std::move(page.objects)};
    folder.known = true;
    folder.count = static_cast<std::size_t>(std::min<std::uint64_t>(page.total, kMostBrowsed));
    return;
  }
}

void request(INT32 server, const std::string& id, std::size_t number) {
  std::string why;
  const UpnpLibrary* const library = upnp_library(why);
  const auto known = servers_find(server);
  if (!known || !known->online) why = "the server is off";
  const std::uint64_t call = note_request(server, id, number, why);
  if (call == 0) return;
  const UpnpListing listing{.control = known->upnp.control,
                            .service = known->upnp.service,
                            .object = id,
                            .first = static_cast<std::uint32_t>(number * kPage),
                            .count = kPage,
                            .millis = DMP_WAIT_SECONDS * 1000};
  home_loop_post([=] {
    library->upnp_list(call, listing,
                       [call](UpnpPage page, const std::string& trouble) { take(call, std::move(page), trouble); });
  });
}

std::optional<HomeFolder> known_folder(INT32 server, const std::string& id) {
  const std::lock_guard guard(state.lock);
  const auto found = find_folder(server, id);
  if (found == state.folders.end() || (!found->known && found->why.empty())) return std::nullopt;
  return HomeFolder{.why = found->why, .count = found->count};
}

}  // namespace

void browsing_load() {
  const std::lock_guard guard(state.lock);
  state.folders.clear();
}

HomeFolder home_folder(INT32 server, const std::string& id) {
  if (const auto known = known_folder(server, id)) return *known;
  request(server, id, 0);
  return known_folder(server, id).value_or(HomeFolder{.loading = true});
}

void home_refresh(INT32 server, const std::string& id) {
  Calls dropped;
  {
    const std::lock_guard guard(state.lock);
    const auto found = find_folder(server, id);
    if (found == state.folders.end()) return;
    add_calls(*found, dropped);
    state.folders.erase(found);
  }
  cancel(dropped);
}

std::optional<HomeObject> home_object(INT32 server, const std::string& folder, std::size_t index) {
  request(server, folder, index / kPage);
  const std::lock_guard guard(state.lock);
  const auto known = find_folder(server, folder);
  if (known == state.folders.end()) return std::nullopt;
  const auto page = known->pages.find(index / kPage);
  if (page == known->pages.end() || index % kPage >= page->second.objects.size()) return std::nullopt;
  const UpnpObject& object = page->second.objects[index % kPage];
  return HomeObject{
      .id = object.id, .name = object.name, .artist = object.artist, .url = object.url, .kind = kind_name(object.kind)};
}
