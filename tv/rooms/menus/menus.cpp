// Which menu is open, what moves in it, and what is reported of it.
#include "rooms/menus/menus.h"

#include <algorithm>
#include <boost/json.hpp>
#include <iterator>
#include <mutex>
#include <optional>
#include <utility>

#include "core/reply.h"
#include "core/room.h"
#include "core/text.h"
#include "rooms/menus/parts.h"
#include "rooms/remote/remote.h"
#include "rooms/sources/sources.h"
#include "rooms/usb/usb.h"

namespace {

struct State {
  std::mutex lock;  // guards all members below; no other room is called under it
  MenuView view;    // menu null: none is open
  std::uint64_t versions = 0;
};

// Never destroyed: other threads may still use it when the process exits.
State& state = *new State;

// Replaces the view, unless another thread has changed it since it was copied.
void keep(const MenuView& view) {
  const std::lock_guard guard(state.lock);
  if (view.version != state.view.version) return;
  state.view = view;
  state.view.version = ++state.versions;
}

// The open menu; nothing: none is open. Closes one whose time is over, and one that was opened over another source.
std::optional<MenuView> open_view() {
  MenuView view;
  {
    const std::lock_guard guard(state.lock);
    view = state.view;
  }
  if (view.menu == nullptr) return std::nullopt;
  if (timer_now() < view.until && sources_current() == view.source) return view;
  keep({.version = view.version});
  return std::nullopt;
}

void show(const Menu& menu, std::string_view application) {
  MenuView view;
  {
    const std::lock_guard guard(state.lock);
    view.version = state.view.version;
  }
  view.source = sources_current();
  view.application = application;
  show_menu(view, menu, false);
  view.until = timer_now() + menu.time;
  keep(view);
}

// ---- The chosen item ----

// Finds the chosen item in the list. An item that has gone is replaced by the one at its place.
void place(MenuView& view, const std::vector<std::int64_t>& items) {
  const auto found = std::ranges::find(items, view.item);
  if (found != items.end()) {
    view.row = static_cast<std::size_t>(found - items.begin());
  } else if (items.empty()) {
    view.row = 0;
    view.item = 0;
  } else {
    view.row = std::min(view.row, items.size() - 1);
    view.item = items[view.row];
  }
}

std::vector<std::int64_t> tidy(MenuView& view) {
  std::vector<std::int64_t> items;
  if (view.menu->items != nullptr) {
    items = view.menu->items(view);
    place(view, items);
  }
  if (view.menu->tidy != nullptr) view.menu->tidy(view);
  return items;
}

struct Move {
  std::string_view key;
  int by;
  bool wraps;
};

constexpr int kPage = kShownRows;
constexpr Move kMoves[] = {{"UP", -1, true}, {"DOWN", 1, true}, {"CH+", -kPage, false}, {"CH-", kPage, false}};

// A row wraps around at the ends; a page stops at them.
void move(MenuView& view, const std::vector<std::int64_t>& items, const Move& by) {
  const auto count = static_cast<std::int64_t>(items.size());
  if (count == 0) return;
  const std::int64_t row = static_cast<std::int64_t>(view.row) + by.by;
  view.row = static_cast<std::size_t>(by.wraps ? (row + count) % count : std::clamp<std::int64_t>(row, 0, count - 1));
  view.item = items[view.row];
}

// ---- Keys ----

Acted exit_menu(MenuView& view) {
  const Menu* const parent = find_menu(view.menu->parent);
  if (parent == nullptr) return Acted::kCloses;
  show_menu(view, *parent, true);
  return Acted::kStays;
}

std::optional<Acted> act(MenuView& view, std::string_view key) {
  const std::vector<std::int64_t> items = tidy(view);
  if (key == "EXIT") return exit_menu(view);
  const auto action = std::ranges::find(view.menu->actions, key, &MenuAction::key);
  if (action != view.menu->actions.end()) {
    const std::int64_t asked = view.asked;
    const Acted acted = action->run(view);
    if (view.asked == asked) view.asked = 0;  // any key but the next one to confirm takes the question back
    return acted;
  }
  const auto* const moved = std::ranges::find(kMoves, key, &Move::key);
  if (moved != std::end(kMoves) && view.menu->items != nullptr && (moved->wraps || view.menu->pages)) {
    view.asked = 0;
    move(view, items, *moved);
    return Acted::kStays;
  }
  // The key that opened the menu closes it. SOURCE steps on.
  if (!view.menu->key.empty() && key == view.menu->key && key != "SOURCE") return Acted::kCloses;
  return std::nullopt;
}

// ---- Replies ----

boost::json::object shown_rows(const MenuView& view, const std::vector<std::int64_t>& items) {
  const std::size_t most = items.size() > kShownRows ? items.size() - kShownRows : 0;
  const std::size_t first = std::min(most, view.row > kShownRows / 2 ? view.row - kShownRows / 2 : 0);
  boost::json::array rows;
  for (std::size_t i = first; i < std::min(items.size(), first + kShownRows); ++i)
    rows.push_back(view.menu->row(items[i], view));
  boost::json::object reply{{"total", items.size()}, {"first", first}, {"rows", std::move(rows)}};
  if (!items.empty()) reply["selected"] = {{"row", view.row - first}};
  return reply;
}

boost::json::object described(MenuView view) {
  boost::json::object reply{{"menu", view.menu->name}, {"title", view.menu->title}};
  const std::vector<std::int64_t> items = tidy(view);
  if (view.menu->items != nullptr) {
    for (auto& [name, value] : shown_rows(view, items)) reply[name] = std::move(value);
  }
  if (view.menu->add != nullptr) view.menu->add(view, reply);
  boost::json::object actions;
  for (const MenuAction& each : view.menu->actions)
    if (!each.word.empty()) actions[each.key] = each.word;
  actions["EXIT"] = view.menu->parent.empty() ? "close" : "back";
  reply["actions"] = std::move(actions);
  return reply;
}

}  // namespace

void show_menu(MenuView& view, const Menu& menu, bool keep) {
  view.menu = &menu;
  view.asked = 0;
  if (keep) return;
  view.item = 0;
  view.row = 0;
  view.time = 0;
  view.from = 0;
  view.folder.clear();
  view.server = 0;
  view.path.clear();
  if (menu.begin != nullptr) menu.begin(view);
}

boost::json::object gone_row() {
  boost::json::object row;
  row["name"] = "";
  return row;
}

Acted refuse(std::string_view why) {
  menus_say("refused", why);
  return Acted::kStays;
}

MenuAnswer menus_press(std::string_view key) {
  auto view = open_view();
  if (!view) return MenuAnswer::kNotTaken;
  const auto acted = act(*view, key);
  if (!acted) return MenuAnswer::kNotTaken;
  if (*acted == Acted::kCloses) {
    keep({.version = view->version});
  } else {
    view->until = timer_now() + view->menu->time;
    keep(*view);
  }
  return *acted == Acted::kNotSaved ? MenuAnswer::kNotSaved : MenuAnswer::kDone;
}

bool menus_open_with(std::string_view key) {
  const auto menu = std::ranges::find(menus_table(), key, &Menu::key);
  if (key.empty() || menu == menus_table().end()) return false;
  show(*menu, "");
  return true;
}

const char* menus_help(std::string_view key) {
  const auto menu = std::ranges::find(menus_table(), key, &Menu::key);
  return key.empty() || menu == menus_table().end() ? "" : menu->help;
}

void menus_close() {
  const std::lock_guard guard(state.lock);
  state.view = {.version = ++state.versions};
}

void menus_sticks_changed() {
  MenuView view;
  {
    const std::lock_guard guard(state.lock);
    view = state.view;
  }
  if (view.menu == nullptr || view.folder.empty() || usb_stick_of(view.folder)) return;
  view.folder.clear();
  view.item = 0;
  view.row = 0;
  keep(view);
}

void menus_open_application(std::string_view application) {
  const auto menu = std::ranges::find(menus_table(), application, &Menu::application);
  if (application.empty() || menu == menus_table().end()) return menus_close();
  show(*menu, menu->application);
}

bool menus_keep_application(std::string_view application) {
  const auto menu = std::ranges::find(menus_table(), application, &Menu::application);
  if (application.empty() || menu == menus_table().end()) return true;
  const auto view = open_view();
  return view && view->application == application;
}

void menus_report_screen(boost::json::object& reply) {
  if (const auto view = open_view()) reply["menu"] = described(*view);
  menus_report_message(reply);
}

namespace {

void load() {
  menus_close();
  menus_forget_message();
}

bool reset() {
  load();
  return true;
}

void report(boost::json::object& answer) {
  if (const auto view = open_view()) answer["menu"] = view->menu->name;
  menus_report_message(answer);
}

std::string names() {
  std::string all;
  for (const Menu& each : menus_table())
    if (each.parent.empty()) all += std::string(each.name) + ", ";
  return all;
}

boost::json::object menu_command(Arguments arguments) {
  if (!arguments.empty()) {
    const Menu* const menu = find_menu(arguments[0]);
    if (arguments[0] == "close") {
      menus_close();
    } else if (menu == nullptr || !menu->parent.empty()) {
      return reply_takes("menu", names() + "or close", arguments[0]);
    } else if (!remote_is_on()) {
      return reply_error("the set is in standby; \"power on\" wakes it");
    } else {
      show(*menu, "");
    }
  }
  const auto view = open_view();
  return view ? described(*view) : boost::json::object{{"menu", nullptr}};
}

constexpr Command kCommands[] = {
    {"menu", "[main|guide|channels|favourites|sources|recordings|timers|media|home_network|close]", 1,
     "Shows the open menu; opens one, or closes it; keys operate it (\"key DOWN\")", menu_command},
};

}  // namespace

const Room room_menus = {.commands = kCommands, .load = load, .reset = reset, .report = report};
