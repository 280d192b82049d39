#include "rooms/tuner/tuner.h"

#include "core/room.h"

std::optional<Channel> tuner_channel() { return std::nullopt; }
bool tuner_choose(std::uint32_t) { return false; }
bool tuner_step(int) { return true; }
bool tuner_previous() { return true; }
bool tuner_number(std::uint32_t) { return true; }
void tuner_set_player(const TunerPlayer*) {}

const Room room_tuner = {};
