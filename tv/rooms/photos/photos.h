// The image viewer, for the other rooms: one picture at a time in place of the main one, and the viewer's slide show.
#pragma once

#include <optional>
#include <string>

#include "rooms/screen/drawn.h"

// What the screen draws in place of the main picture, in front of a media player's; null: no picture is displayed. The
// caller may hold the screen's lock.
const Drawer* photos_drawer();

struct PhotoShown {
  std::string path = {};
  bool application = false;  // an application shows it
  bool slide_show = false;
};
std::optional<PhotoShown> photos_shown();

// What a viewer does. Each returns why not; empty: done. The caller holds no lock.
std::string photos_show(const std::string& path);  // from a stick
std::string photos_slide_show(bool runs);          // of the folder of the displayed photo

// What keys do. False: no picture is displayed, so that the key has another meaning.
bool photos_press_next(int step);
bool photos_press_stop();
bool photos_press_pause();  // starts and stops the slide show
bool photos_press_zoom();
bool photos_press_turn();  // by 90 degrees clockwise

// As in media_player.h.
void photos_leave();
void photos_sticks_changed();
