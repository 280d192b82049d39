// There are no players yet; only the plugin's start call succeeds.
#include "core/contract.h"
#include "core/room.h"

INT32 IVexPb_Ctrl_Init() { return 0; }

const Room room_playback = {};
