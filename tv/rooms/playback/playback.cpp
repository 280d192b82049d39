#include "core/tv.h"

// The players start when they are first used; nothing has to be made ready beforehand.
INT32 IVexPb_Ctrl_Init() { return 0; }
