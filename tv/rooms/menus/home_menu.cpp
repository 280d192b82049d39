// The home network: first its servers, then their folders and files. In the list of servers an item is a server's
// number, in a folder an object's place plus 1, since 0 is none. A server's answers come later than the keys that need
// them: until then the list is empty, and the reply says that it is loading.
#include <algorithm>
#include <boost/json.hpp>
#include <numeric>
#include <utility>

#include "core/text.h"
#include "rooms/home_network/home_network.h"
#include "rooms/media_player/media_player.h"
#include "rooms/menus/menus.h"
#include "rooms/menus/parts.h"

namespace {

const std::string& folder_of(const MenuView& view) { return view.path.back().id; }

// The viewer opens the folder: it is as the server has it now.
void show_folder(MenuView& view, OpenFolder folder) {
  home_refresh(view.server, folder.id);
  view.path.push_back(std::move(folder));
  view.item = 0;
  view.row = 0;
}

Acted open_object(MenuView& view, const HomeObject& object) {
  if (object.kind == "folder") {
    if (view.path.size() >= kDeepestPath) return refuse("the folders are too deep");
    view.path.back().item = view.item;
    show_folder(view, {.id = object.id, .name = object.name});
    return Acted::kStays;
  }
  if (object.url.empty()) return refuse("the server has no file of it that the set can fetch");
  const std::string why = media_player_play(object.url, {});
  return why.empty() ? Acted::kCloses : refuse(why);
}

Acted open_entry(MenuView& view) {
  if (view.item == 0) return refuse("the list is empty");
  if (!view.path.empty()) {
    const auto object = home_object(view.server, folder_of(view), static_cast<std::size_t>(view.item - 1));
    return object ? open_object(view, *object) : refuse("the server has not sent it yet");
  }
  const auto server = home_server(static_cast<INT32>(view.item));
  if (!server) return refuse("the server is no longer known");
  if (!server->online) return refuse("the server is off");
  view.server = server->id;
  show_folder(view, {.id = kHomeRoot, .name = server->name});
  return Acted::kStays;
}

Acted leave_folder(MenuView& view) {
  if (view.path.empty()) return Acted::kCloses;
  view.path.pop_back();
  view.item = view.path.empty() ? view.server : view.path.back().item;
  view.row = 0;
  if (view.path.empty()) view.server = 0;
  return Acted::kStays;
}

boost::json::object row_of(const std::string& name, const std::string& note, std::string_view mark) {
  boost::json::object row{{"name", cut_text(name, kLongestShown)}};
  if (!note.empty()) row["note"] = cut_text(note, kLongestShown);
  if (!mark.empty()) row["marks"].emplace_array().emplace_back(mark);
  return row;
}

constexpr MenuAction kOfHome[] = {
    {"ENTER", "open", open_entry}, {"RIGHT", "", open_entry}, {"LEFT", "back", leave_folder}};

}  // namespace

constinit const std::span<const MenuAction> kHomeActions = kOfHome;

void begin_home(MenuView&) {
  if (const std::string why = home_search(); !why.empty()) refuse(why);
}

std::vector<std::int64_t> home_items(const MenuView& view) {
  std::vector<std::int64_t> items;
  if (view.path.empty()) {
    for (const HomeServer& each : home_servers()) items.push_back(each.id);
    return items;
  }
  items.resize(home_folder(view.server, folder_of(view)).count);
  std::iota(items.begin(), items.end(), 1);
  return items;
}

boost::json::object home_row(std::int64_t item, const MenuView& view) {
  if (!view.path.empty()) {
    const auto object = home_object(view.server, folder_of(view), static_cast<std::size_t>(item - 1));
    return object ? row_of(object->name, object->artist, object->kind == "other" ? "" : object->kind) : gone_row();
  }
  const auto server = home_server(static_cast<INT32>(item));
  return server ? row_of(server->name, "", server->online ? "" : "empty") : gone_row();
}

void add_home(const MenuView& view, boost::json::object& reply) {
  if (view.path.empty()) return;
  reply["folder"] = cut_text(view.path.back().name, kLongestShown);
  const HomeFolder folder = home_folder(view.server, folder_of(view));
  reply["loading"] = folder.loading;
  if (!folder.why.empty()) reply["problem"] = folder.why;
}
