// The players. Each starts when it is first used, so there is nothing to initialise when the plugin starts.
#include "core/contract.h"
#include "core/room.h"

INT32 IVexPb_Ctrl_Init() { return 0; }

const Room room_playback = {};
