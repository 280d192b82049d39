// The parts of the menus: what a menu consists of, and what is open.
//
// A menu is a row of kMenus (table.cpp). All menus but texts are lists: a menu names its items' identifiers, and what
// it shows of one. Moving, paging and closing are the same for all of them (menus.cpp). Nothing of a list is kept: each
// reply reads it again, so that it is as the other rooms have it now.
#pragma once

#include <boost/json/object.hpp>
#include <chrono>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "core/timers.h"

inline constexpr std::size_t kShownRows = 7;           // of a list
inline constexpr std::size_t kShownEvents = 8;         // of a channel in the guide
inline constexpr std::size_t kLongestShown = 100;      // bytes of a title
inline constexpr std::size_t kLongestDetails = 2'000;  // bytes of an event's details

inline constexpr std::size_t kDeepestPath = 12;  // of a server; what home_network keeps for the way back

struct Menu;

// A folder of a server that was opened: the last one's entries are shown.
struct OpenFolder {
  std::string id = {};
  std::string name = {};
  std::int64_t item = 0;  // that was chosen when the next folder was opened
};

// The open menu, and what is chosen in it. Copied; an action changes its copy.
struct MenuView {
  const Menu* menu = nullptr;
  std::uint64_t version = 0;          // changes with each change of the view
  TimerTime until{};                  // it closes then
  int source = 0;                     // the set's, when the menu was opened
  std::string_view application = {};  // whose menu this is; empty: a key opened it
  std::int64_t item = 0;              // the identifier of what is chosen
  std::size_t row = 0;                // its place in the list; if it has gone, the item at this place is chosen
  std::int64_t time = 0;              // in the guide: a time within the chosen event
  std::int64_t from = 0;              // in the guide: when the shown hours begin
  std::string folder = {};            // of media: whose entries are shown; empty: the sticks
  std::int32_t server = 0;            // of the home network: whose folders are open; 0: the servers are shown
  std::vector<OpenFolder> path = {};  // the first one is the server's root
  std::int64_t asked = 0;             // the recording that RED deletes; 0: none
  TimerTime asked_until{};            // if it is pressed before this time
};

enum class Acted {
  kStays,
  kCloses,
  kNotSaved,  // and stays
};

struct MenuAction {
  std::string_view key;
  std::string_view word;  // for the page; empty: not shown
  Acted (*run)(MenuView& view);
};

struct Menu {
  std::string_view name;
  std::string_view key;  // that opens it; empty: the main menu does, or another one
  const char* title;
  const char* help;              // of the key
  std::string_view application;  // of the set's own applications; empty: none
  std::string_view parent;       // that EXIT returns to; empty: EXIT closes it
  std::chrono::seconds time;     // without a key, after which it closes
  bool in_main = false;          // the main menu lists it
  bool pages = true;             // by CH+ and CH-; else they change the channel
  std::span<const MenuAction> actions = {};
  std::vector<std::int64_t> (*items)(const MenuView& view) = nullptr;  // null: a text
  boost::json::object (*row)(std::int64_t item, const MenuView& view) = nullptr;
  void (*begin)(MenuView& view) = nullptr;                                  // chooses; null: the first item
  void (*tidy)(MenuView& view) = nullptr;                                   // before it is shown and before an action
  void (*add)(const MenuView& view, boost::json::object& reply) = nullptr;  // more members of the reply
};

std::span<const Menu> menus_table();
const Menu* find_menu(std::string_view name);

// Shows that menu in place of the view's. The chosen item stays with `keep`.
void show_menu(MenuView& view, const Menu& menu, bool keep);

// Of an item that has gone while the list was made.
boost::json::object gone_row();

Acted refuse(std::string_view why);  // tells the viewer

// ---- What the rows of the table consist of ----

// lists.cpp
std::vector<std::int64_t> main_items(const MenuView& view);
boost::json::object main_row(std::int64_t item, const MenuView& view);
std::vector<std::int64_t> channel_items(const MenuView& view);
std::vector<std::int64_t> favourite_items(const MenuView& view);
boost::json::object channel_row(std::int64_t item, const MenuView& view);
void choose_channel(MenuView& view);
std::vector<std::int64_t> source_items(const MenuView& view);
boost::json::object source_row(std::int64_t item, const MenuView& view);
void choose_source(MenuView& view);
extern const std::span<const MenuAction> kMainActions;
extern const std::span<const MenuAction> kChannelActions;
extern const std::span<const MenuAction> kSourceActions;
Acted watch_channel(MenuView& view);

// guide_menu.cpp
boost::json::object guide_row(std::int64_t item, const MenuView& view);
void begin_guide(MenuView& view);
void show_in_guide(MenuView& view, std::uint32_t channel_id, std::int64_t time);  // in place of the view's menu
void tidy_guide(MenuView& view);
void add_guide(const MenuView& view, boost::json::object& reply);
void add_details(const MenuView& view, boost::json::object& reply);
extern const std::span<const MenuAction> kGuideActions;
extern const std::span<const MenuAction> kDetailsActions;

// recorder_menus.cpp
std::vector<std::int64_t> recording_items(const MenuView& view);
boost::json::object recording_row(std::int64_t item, const MenuView& view);
std::vector<std::int64_t> timer_items(const MenuView& view);
boost::json::object timer_row(std::int64_t item, const MenuView& view);
extern const std::span<const MenuAction> kRecordingActions;
extern const std::span<const MenuAction> kTimerActions;

// media_menu.cpp
std::vector<std::int64_t> media_items(const MenuView& view);
boost::json::object media_row(std::int64_t item, const MenuView& view);
void tidy_media(MenuView& view);
void add_media(const MenuView& view, boost::json::object& reply);
extern const std::span<const MenuAction> kMediaActions;

// home_menu.cpp
std::vector<std::int64_t> home_items(const MenuView& view);
boost::json::object home_row(std::int64_t item, const MenuView& view);
void begin_home(MenuView& view);
void add_home(const MenuView& view, boost::json::object& reply);
extern const std::span<const MenuAction> kHomeActions;
