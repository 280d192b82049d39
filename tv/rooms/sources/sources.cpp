#include "rooms/sources/sources.h"

#include "core/room.h"

bool sources_choose(int) { return false; }
bool sources_step() { return false; }
bool sources_choose_tv() { return false; }
bool sources_choose_hdmi(int) { return false; }
int sources_current() { return 0; }
std::string sources_name(int) { return ""; }
bool sources_is_tv() { return true; }

const Room room_sources = {};
