// Miscellaneous group. So far it answers only what the router sends it for groups that cannot be read.
#include "tv_ctrl_main.h"

INT32 tv_ctrl_get_misc(UINT16 ui2_id, void* pv_content) {
  if (!pv_content || tvc_group(ui2_id) != TV_CTRL_GRPID_MISC) return VEXTVCTRLR_INV_ARG;
  return VEXTVCTRLR_FAIL;
}
