// Key group: presses keys of the remote control by typing the infrared receiver's command into the command device.
#include <fcntl.h>
#include <stdio.h>
#include <string.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <iterator>

#include "tvctl_common/handler.h"
#include "tvctl_common/record.h"

static constexpr const char* kDevice = "/dev/cli";
static constexpr const char* kCommand = "ir.rx.send ";
static constexpr const char* kEndOfTable = "CUSTOMKEY";  // name of the last row, which no request can press

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

// Returns the row of a key, or null for an unknown name.
static const CLI_KEY_MAP* find_key(const char* name) {
  for (const CLI_KEY_MAP& row : t_cli_key_map) {
    if (strcmp(row.key_name, kEndOfTable) == 0) break;
    if (strcmp(row.key_name, name) == 0) return &row;
  }
  return nullptr;
}

// Types a text into the device, which takes one character per call.
static void type_text(int device, const char* text) {
  for (; *text; ++text) {
    char character = *text;
    ioctl(device, 0, &character);
  }
}

static INT32 press_key(const RecordRequest& request) {
  const int device = open(kDevice, O_RDWR | O_CLOEXEC);
  if (device < 0) {
    printf("Can not open the cli device \n");
    fflush(stdout);
    return VEXTVCTRLR_FAIL;
  }
  T_TEXT& name = tvc_content<T_TEXT>(request);
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

static constexpr char kKeyNames[] =
#define TVC_KEY(name, code) name "\0"
#include "vex_tv_ctrl/keys.def"
    ;

static constexpr RecordRow kRows[] = {
    {.record = TV_CTRL_RECID_IRRC,
     .type = TYPE_TEXT,
     .set = press_key,
     .help = "Presses the named key of the remote control.",
     .values = kKeyNames},
    {.record = TV_CTRL_RECID_KEYBOARD,
     .type = TYPE_TEXT,
     .set_answer = VEXTVCTRLR_NOT_IMPLEMENT,
     .help = "Presses a key of a keyboard; not implemented."},
};

constinit const Handler handler_KEY = {.group = TV_CTRL_GRPID_KEY,
                                       .records = tvc_records<kRows>(),
                                       .get_default = VEXTVCTRLR_NOT_SUPPORT,
                                       .set_default = VEXTVCTRLR_FAIL,
                                       .set_without_record = WithoutRecord::kRefused,
                                       .set_needs_record = true};

INT32 tv_ctrl_key_get(UINT16, void*) { return handler_KEY.get_default; }

INT32 tv_ctrl_key_set(UINT16 ui2_id, void* pv_content) { return tvc_handle_set(handler_KEY, ui2_id, pv_content); }
