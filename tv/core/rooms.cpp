// The table of rooms, in the order of their names, from the folders that the build has found.
#include "core/room.h"

namespace {

#define TV_ROOM(area) &room_##area,
constexpr const Room* kRooms[] = {
#include <rooms.inc>
};
#undef TV_ROOM

}  // namespace

std::span<const Room* const> rooms() { return kRooms; }
