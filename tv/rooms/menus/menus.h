// The set's menus, for the other rooms. Keys alone operate them; at most one is open. The room's lock is held only to
// copy or exchange its state, never while another room is called; callers may hold the lock of any room that comes
// before the remote control's.
#pragma once

#include <boost/json/fwd.hpp>
#include <string>
#include <string_view>

enum class MenuAnswer {
  kNotTaken,  // no menu is open, or the open one has no use for the key
  kDone,
  kNotSaved,  // the reason is on stderr
};

// The open menu takes the key.
MenuAnswer menus_press(std::string_view key);

// Opens the menu of that key in place of the open one. False: there is none.
bool menus_open_with(std::string_view key);

// What the key does when it opens a menu; empty: it opens none.
const char* menus_help(std::string_view key);

void menus_close();

// The USB room has inserted or removed a stick: a removed one's folders are left.
void menus_sticks_changed();

// An application of the set's own was started: opens its menu, or closes the open one if it has none.
void menus_open_application(std::string_view application);

// Whether the application still runs: its menu is open, or it has none.
bool menus_keep_application(std::string_view application);

// Shows the viewer a message for 3 s, in place of the one before. word: see kMessages in messages.cpp. about: what it
// is about, such as a key or a title; empty: nothing.
void menus_say(std::string_view word, std::string_view about);
void menus_forget_message();

// Adds the message to a reply, as {"word", "about", "text"}, while it is shown.
void menus_report_message(boost::json::object& reply);

// Adds what lies over the picture: "menu" and "message".
void menus_report_screen(boost::json::object& reply);
