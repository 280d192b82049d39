// Input sources, for the other rooms. The room's lock comes after the remote control's and before the tuner's.
#pragma once

#include <string>

// Switches the main picture's source, by its number from 0. False: there is none, it is blocked, or it was not saved.
bool sources_choose(int source);
bool sources_step();                  // what the SOURCE key does
bool sources_choose_tv();             // to the tuner of the current channel's list
bool sources_choose_hdmi(int input);  // by input number from 1

int sources_current();
std::string sources_name(int source);  // the viewer's name, else the source's own
bool sources_is_tv();                  // the main picture shows a tuner
