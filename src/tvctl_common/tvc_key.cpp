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
    {"POWER", "0x8f000"},     {"ROOTMENU", "0xaf002"}, {"SOURCE", "0x5f01f"},    {"TIMER", "0x5f01d"},
    {"SLEEP", "0x5f01c"},     {"ZOOM", "0x5f012"},     {"P.EFFECT", "0x5f016"},  {"S.EFFECT", "0x6f007"},
    {"ASPECT", "0x5f015"},    {"PIP/POP", "0x5f00f"},  {"PIPPOS", "0x5f00c"},    {"PIPSIZE", "0x5f00b"},
    {"MTS/AUDIO", "0x6f003"}, {"CC", "0x5f01a"},       {"SWAP", "0x5f010"},      {"0", "0x10030"},
    {"1", "0x10031"},         {"2", "0x10032"},        {"3", "0x10033"},         {"4", "0x10034"},
    {"5", "0x10035"},         {"6", "0x10036"},        {"7", "0x10037"},         {"8", "0x10038"},
    {"9", "0x10039"},         {".", "0x1f004"},        {"FREEZE", "0x5f011"},    {"CH+", "0x5f000"},
    {"CH-", "0x5f001"},       {"PRE-CH", "0x5f002"},   {"MUTE", "0x6f002"},      {"VOL+", "0x6f000"},
    {"VOL-", "0x6f001"},      {"VOL_UI", "0x6f00a"},   {"MENU", "0x8f001"},      {"INFO", "0x5f017"},
    {"LEFT", "0x3f000"},      {"RIGHT", "0x3f001"},    {"UP", "0x3f002"},        {"DOWN", "0x3f003"},
    {"GUIDE", "0x8f002"},     {"ENTER", "0x4f000"},    {"EXIT", "0x4f001"},      {"ADD/ERASE", "0x5f01b"},
    {"FAVORITE", "0x5f007"},  {"FAVCH+/-", "0x5f004"}, {"FF", "0x9f007"},        {"FR", "0x9f008"},
    {"NEXT", "0x9f005"},      {"PREV", "0x9f006"},     {"TITLE/PBC", "0xaf01f"}, {"SUBTITLE", "0xaf00d"},
    {"REPEAT", "0xaf009"},    {"ANGLE", "0x8f003"},    {"RED", "0xbf000"},       {"GREEN", "0xbf001"},
    {"YELLOW", "0xbf002"},    {"BLUE", "0xbf003"},     {"CUSTOMKEY", "CUSTOM"},
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
