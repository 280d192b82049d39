// What a room is. A room implements one area of the TV API: it is a folder of rooms/ that defines the area's functions,
// keeps its state under a lock of its own, and has a row, `const Room room_<folder>`. The build lists the folders, so a
// new room edits no other file. Rooms call each other through the headers of their folders, not through the TV API:
// in a host, those names lead to the tap.
//
// Locks are taken in this order: the power lock (set.cpp); the CEC bus's or the applications'; the remote control's or
// the configuration's; the store's or the event queue's; the timers'. The other rooms' locks come directly before the
// store's. Callbacks run on the event thread without a lock, except the USB room's own for its callbacks, so they may
// call any function of the TV API.
#pragma once

#include <boost/json/fwd.hpp>
#include <cstddef>
#include <span>
#include <string_view>

// The words after a command's name.
using Arguments = std::span<const std::string_view>;

// A command of a viewer, or of the world around the set.
struct Command {
  std::string_view name;
  // For people and for the shell's completion: " | " separates the command's forms, "|" the choices for one word. Words
  // in small letters are typed as they stand; DIR is a folder; capital letters stand for a value; brackets mean that
  // it may be left out.
  std::string_view arguments;
  std::size_t most_arguments;
  std::string_view help;
  boost::json::object (*run)(Arguments arguments);  // returns what the command reports, or an error of reply.h
};

// A function that is null has nothing to do. Rooms are called in the order of their names, so none may rely on another
// room having been loaded or reset before it.
struct Room {
  std::span<const Command> commands = {};
  void (*load)() = nullptr;   // takes the state from the store
  bool (*reset)() = nullptr;  // restores the factory's state, with callbacks as for any change; false: see set_reset
  void (*report)(boost::json::object& answer) = nullptr;  // adds its members to the answer of the command "state"
  void (*start)() = nullptr;                              // starts a thread of its own; events can be posted
  void (*stop)() = nullptr;  // ends that thread, before the event thread ends; also called where none runs
};

#define TV_ROOM(area) extern const Room room_##area;
#include <rooms.inc>
#undef TV_ROOM

std::span<const Room* const> rooms();
