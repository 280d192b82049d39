// Key group: presses keys of the remote control by typing the infrared receiver's command into the command device.
#include <fcntl.h>
#include <stdio.h>
#include <string.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <iterator>

#include "tv_ctrl_main.h"
#include "tv_ctrl_util/text.h"

static constexpr const char* kDevice = "/dev/cli";
static constexpr const char* kCommand = "ir.rx.send ";
static constexpr const char* kEndOfTable = "CUSTOMKEY";  // its row is never pressed

struct CLI_KEY_MAP {
  char key_name[15];
  char key_value[8];  // code of the infrared receiver
};

static constexpr CLI_KEY_MAP t_cli_key_map[] = {
#define TVC_KEY(name, code) {name, code},
#include "vex_tv_ctrl/keys.def"
    {"CUSTOMKEY", "CUSTOM"},
};
static_assert(std::size(t_cli_key_map) == 59);

// The row of a key's name, or null.
static const CLI_KEY_MAP* find_key(const char* name) {
  for (const CLI_KEY_MAP& row : t_cli_key_map) {
    if (strcmp(row.key_name, kEndOfTable) == 0) break;
    if (strcmp(row.key_name, name) == 0) return &row;
  }
  return nullptr;
}

// The device takes one character at a time.
static void type_text(int device, const char* text) {
  for (; *text; ++text) {
    char character = *text;
    ioctl(device, 0, &character);
  }
}

INT32 tv_ctrl_key_get(UINT16, void*) { return VEXTVCTRLR_NOT_SUPPORT; }

INT32 tv_ctrl_key_set(UINT16 ui2_id, void* pv_content) {
  if (!pv_content || tvc_group(ui2_id) != TV_CTRL_GRPID_KEY) return VEXTVCTRLR_INV_ARG;
  const int record = tvc_record(ui2_id);
  if (record == TV_CTRL_RECID_KEYBOARD) return VEXTVCTRLR_NOT_IMPLEMENT;
  if (record != TV_CTRL_RECID_IRRC) return VEXTVCTRLR_FAIL;
  const int device = open(kDevice, O_RDWR | O_CLOEXEC);
  if (device < 0) {
    printf("Can not open the cli device \n");
    fflush(stdout);
    return VEXTVCTRLR_FAIL;
  }
  T_TEXT& name = *static_cast<T_TEXT*>(pv_content);
  tvc_end_text(name.value);
  const CLI_KEY_MAP* const key = find_key(name.value);
  if (key) {
    type_text(device, kCommand);
    type_text(device, key->key_value);
    type_text(device, "\r\n");
  }
  close(device);
  return key ? VEXTVCTRLR_OK : VEXTVCTRLR_INV_ARG;
}
