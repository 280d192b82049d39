// A picture that a tuner supplies: the main one (tuner.cpp) and the sub one (rooms/multiview). A picture changes its
// channel, finds the change's result, and watches the channel afterwards.
#pragma once

#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "core/timers.h"
#include "rooms/tuner/receiver.h"
#include "rooms/tuner/tuner.h"

// What a set takes for a change: the picture begins with the next complete one, which within a multiplex is half of a
// group of pictures away on average; for another multiplex the tuner has to lock first.
inline constexpr std::chrono::milliseconds kChangeWithin(300);
inline constexpr std::chrono::milliseconds kChangeOther(900);

// How long after that a change waits for the service's PMT, which is sent at least twice a second.
inline constexpr std::chrono::milliseconds kChangePatience(1500);

// How often a picture looks for what nothing announces: a tuner or a signal that has become available, an event that
// has arrived. Events that begin and end are found at their time, changes of the lists and of the locks at once
// (tuner_look).
inline constexpr std::chrono::milliseconds kPictureCheck(5000);

struct PictureFacts {
  std::optional<Channel> channel;      // that it receives or tries to; nothing: the picture is off
  std::optional<ChangeResult> result;  // nothing: the change is under way
  ReceiverFacts facts;
};

struct Picture {
  // The functions run without a lock but `working`.
  std::optional<Channel> (*wanted)();  // the channel that it is to show; nothing: none
  void (*work)();                      // runs picture_work with this picture, for the timer
  // A change has ended, or its result is another one now. Null: nobody wants to know.
  void (*ended)(const Channel& channel, ChangeResult result);

  Timer timer = {};  // when there is something to do

  // One thread at a time works on the picture. Taken before the locks of the rooms.
  std::mutex working = {};
  ReceiverHandle receiver = {};  // this and the next three are guarded by working
  TimerTime locked = {};         // when the tuner has locked to the receiver's multiplex
  TimerTime due = {};            // when the change's result is known at the earliest
  TimerTime retry = {};          // when a receiver that receives nothing is started again at the earliest

  std::mutex lock = {};   // guards the members up to shown; comes before the timers'
  bool pending = false;   // something has changed since picture_work began
  bool restart = false;   // a choice has been made, perhaps of the same channel
  bool unlocked = false;  // the PIN was given for the channel
  PictureFacts shown = {};

  std::mutex player_lock = {};  // guards the player; held while its functions run
  TunerPlayer player = {};
};

// Ends what is not wanted any more, starts what is, and finds the result. The caller holds no lock.
void picture_work(Picture& picture);

// Lets the timer thread work on the picture. restart: a change begins, although the channel may be the same.
void picture_update(Picture& picture, bool restart);

void picture_set_player(Picture& picture, const TunerPlayer* player);

// Lifts the block of the channel until another one, or none, is shown.
void picture_unlock(Picture& picture);

PictureFacts picture_facts(Picture& picture);

// Forgets everything, when the set is switched on or off. The timer thread does not run.
void picture_clear(Picture& picture);

const char* result_word(ChangeResult result);
