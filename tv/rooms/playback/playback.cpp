// The players. They start when they are first used, so that the plugin's start has nothing to prepare.
#include "core/contract.h"
#include "core/room.h"

INT32 IVexPb_Ctrl_Init() { return 0; }

const Room room_playback = {};
