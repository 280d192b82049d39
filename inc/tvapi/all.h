/* Every area of the TV API that the plugin calls, in one include; it can be included more than once. */
#include "tvapi/config.h"
#include "tvapi/playback.h"
#include "tvapi/volctrl.h"
