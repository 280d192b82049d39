// Logos of channels.
#include <stdio.h>
#include <string.h>
#include <unistd.h>

#include "tvapi/channel.h"
#include "tvctl_common/channel_rows.h"
#include "tvctl_common/record.h"

// Whether one of the name's parts is "..": it would lead out of the folder of logos.
static bool leads_out(const char* name) {
  for (const char* part = name;; ++part) {
    if (strncmp(part, "..", 2) == 0 && (part[2] == '/' || part[2] == '\0')) return true;
    part = strchr(part, '/');
    if (!part) return false;
  }
}

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
  const bool found =
      !leads_out(text.value) && (find_logo("PreDef", text.value, path) || find_logo("UserDef", text.value, path));
  tvc_copy_text(text.value, found ? path : "");
  return found ? VEXTVCTRLR_OK : VEXTVCTRLR_FAIL;
}

INT32 tvc_logo_update(const RecordRequest& request) {
  const T_CHANNEL_PARAM& wanted = tvc_content<T_CHANNEL_INFO>(request).t_ch_param;
  return a_channel_logo_custom_update_logo_id_by_channel(wanted.svl_id, wanted.ch_id);
}
