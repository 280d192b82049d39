// Logos of channels.
#include <stdio.h>
#include <unistd.h>

#include "tvapi/channel.h"
#include "tvctl_common/channel_rows.h"
#include "tvctl_common/record.h"

// False also for a name that makes the path too long.
static bool find_logo(const char* folder, const char* name, char (&ret_path)[256]) {
  const int length = snprintf(ret_path, sizeof ret_path, "/3rd_rw/ChLogo/%s/%s.png", folder, name);
  return length < static_cast<int>(sizeof ret_path) && access(ret_path, F_OK) == 0;
}

INT32 tvc_logo_path(const RecordRequest& request) {
  constexpr int kSizeOnTheSet = 1076;
  T_TEXT& text = tvc_fill_header<T_TEXT>(request, TV_CTRL_GRPID_CHANNEL_INFO);
  text.size = kSizeOnTheSet;
  tvc_end_text(text.value);
  if (text.value[0] == '\0') return VEXTVCTRLR_INV_ARG;
  char path[256];
  const bool found = find_logo("PreDef", text.value, path) || find_logo("UserDef", text.value, path);
  tvc_copy_text(text.value, found ? path : "");
  return found ? VEXTVCTRLR_OK : VEXTVCTRLR_FAIL;
}

INT32 tvc_logo_update(const RecordRequest& request) {
  const T_CHANNEL_PARAM& wanted = tvc_content<T_CHANNEL_INFO>(request).t_ch_param;
  return a_channel_logo_custom_update_logo_id_by_channel(wanted.svl_id, wanted.ch_id);
}
