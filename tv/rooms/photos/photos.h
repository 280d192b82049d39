// The image viewer, for the other rooms: one picture at a time in place of the main one, and the viewer's slide show.
#pragma once

#include <optional>
#include <string>

#include "rooms/screen/drawn.h"

// Draws the displayed picture, in place of the main picture and of a media player's; null: no picture is displayed. The
// caller may hold the screen's lock.
const Drawer* photos_drawer();

struct PhotoShown {
  std::string path = {};
  bool application = false;  // an application shows it
  bool slide_show = false;
};
std::optional<PhotoShown> photos_shown();

// What a viewer does. Each returns why it failed; empty: done. The caller holds no lock.
std::string photos_show(const std::string& path);  // a file of a stick
std::string photos_slide_show(bool runs);          // starts or ends the one of the displayed photo's folder

// What keys do. False: no picture is displayed, so that the key has its other meaning.
bool photos_press_next(int step);  // 1: the next photo of the folder; -1: the previous one
bool photos_press_stop();
bool photos_press_pause();  // starts or ends the slide show
bool photos_press_zoom();
bool photos_press_turn();  // by 90 degrees clockwise

// Called when a channel or a source was chosen or the set goes to standby, and when a stick was removed: both end the
// display on the timer thread. The caller may hold any lock that comes before the timers'.
void photos_leave();
void photos_sticks_changed();
