// A room implements one area of the TV API and keeps its state under a lock of its own.
//
// To add one, create a folder rooms/<name>/; the name must be a C++ identifier. The build finds the folder, so there is
// no list to edit. In the folder write
//   <name>.cpp       the area's functions, as tvapi/<area>.h declares them (include core/contract.h), and the room's
//                    row, `const Room room_<name> = {...}` (see struct Room); rooms/ci is the smallest example
//   <name>.h         what other rooms may call, if anything. Rooms never call each other through the TV API: in a host,
//                    those names lead to the tap.
//   <name>_test.cpp  its unit tests, which become part of tv_test
// The name is yours to choose; it need not be the header's. A function of the area that the room does not define fails
// with a message (defaults.h).
//
// Settings go to the store (store.h), callbacks of the plugin to the event thread (events.h), delayed actions to the
// timers (timers.h), refusals through reply.h.
//
// Locks are taken in this order:
//   1. the USB room's for callbacks
//   2. the power lock (set.cpp)
//   3. the playback's and the media player's for changes
//   4. the CEC bus's; the applications'; the recorder's for changes
//   5. Picture::working, under which a picture's channel is changed (rooms/tuner/picture.h)
//   6. the remote control's; the configuration's
//   7. the input sources'
//   8. the tuner's; the antenna's: for changes, then the index's, then the tuners'; the guide's for reading
//   9. the channel lists': for changes, then the other
//  10. Picture::lock; Picture::player_lock; the recorder's for what its lists show
//  11. the screen's; all that this list does not name
//  12. the store's, then the sync thread's; the event queue's
//  13. the timers'
// Of two rooms in one line, neither takes its lock under the other's. A room that calls another one with its lock held
// belongs in an earlier line than that one.
// Callbacks run on the event thread without a lock, so they may call any function of the TV API; only the USB room
// holds a lock of its own during its callbacks.
#pragma once

#include <boost/json/fwd.hpp>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

// The words after a command's name.
using Arguments = std::span<const std::string_view>;

// A control command: an action of a viewer, or of the world around the set.
struct Command {
  std::string_view name;
  // For people, for the shell's completion, and for the refusal of too few words (core/usage.h). " | " separates the
  // command's forms, "|" the choices for one word. The user types words in lower case literally, a value in place of
  // words in capitals, and a folder in place of DIR. Brackets enclose optional parts. "..." after a value means that it
  // may be repeated.
  std::string_view arguments;
  std::size_t most_arguments;
  std::string_view help;
  // Returns the reply, or an error from reply.h. Called on any thread, without a lock, while the set is on, with at
  // most most_arguments words, and not with words that only begin a form of the command.
  boost::json::object (*run)(Arguments arguments);
  // The values that may come next, behind the arguments given so far, in place of a word in capitals. Null, or an empty
  // list: they are not known without the set. Called on any thread, without a lock, also while the set is off.
  std::vector<std::string> (*names)(Arguments given) = nullptr;
};

// A structured item of the configuration that the room answers (getConfigValueStruct, setConfigValueStruct). The caller
// has compared the length. The functions are called on any thread, without a lock, and return 0 or -1.
struct StructItem {
  std::uint32_t id;
  std::uint32_t length;
  std::int32_t (*read)(void* record);         // the record holds the request's
  std::int32_t (*write)(const void* record);  // null: the item cannot be written
};

// A null function is not called. Rooms are called in the order of their names, but a room must not rely on another one
// having been loaded or reset before it.
struct Room {
  std::span<const Command> commands = {};
  std::span<const StructItem> items = {};
  // Reads the state from the store, and forgets everything else, callbacks included. Events and timers do not run yet.
  void (*load)() = nullptr;
  // Restores the factory state, with callbacks as for any change. False if that was not saved.
  bool (*reset)() = nullptr;
  // Adds the room's members to the answer of the command "state": what a viewer sees at once, and else only what
  // differs from a new set.
  void (*report)(boost::json::object& answer) = nullptr;
  void (*start)() = nullptr;  // starts the room's thread; events can be posted
  void (*stop)() = nullptr;   // ends that thread, before the event thread ends; also called if none runs
};

#define TV_ROOM(area) extern const Room room_##area;
#include <rooms.inc>
#undef TV_ROOM

std::span<const Room* const> rooms();
