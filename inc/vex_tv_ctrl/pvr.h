// Recordings, reminders and updates of the guide. The requests carry the platform's own records.
#ifndef VEX_TV_CTRL_PVR_H
#define VEX_TV_CTRL_PVR_H

#include "tvapi/pvr.h"

static_assert(sizeof(_Qt_RECLIST_INFO_T) == 2724);
static_assert(sizeof(_RmdrEventInfo_T) == 96);
static_assert(sizeof(_Qt_PAIRED_DISK_INFO) == 176);
static_assert(sizeof(_PvrFileInfo) == 12);
static_assert(sizeof(_PvrUiStatus) == 8);
static_assert(sizeof(PpgUpdateGuide_T) == 8);

#endif
