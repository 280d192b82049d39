// What the set knows of a device on the CEC bus, for the input sources' menu.
#include "bus.h"
#include "core/reply.h"

INT32 a_vextvapi_cec_get_dev_info_by_la_async(INT32 la, CECM_DEV_INFO_T* ret_info) {
  if (ret_info == nullptr) return refuse_call(__func__, "there is no room for the answer");
  const CecDevice* const device = cec_found(la);
  if (device == nullptr) {
    return refuse_call(__func__, "CEC is off, or no device has the logical address " + std::to_string(la));
  }
  const std::string input = "HDMI " + std::to_string(device->port);
  CECM_DEV_INFO_T info{};
  device->name.copy(info.s_dev_name, sizeof info.s_dev_name - 1);
  input.copy(info.s_hdmi_port, sizeof info.s_hdmi_port - 1);
  device->osd_name.copy(info.s_osd_name, sizeof info.s_osd_name - 1);
  info.b_amp_connected = device->type == 5 ? 1 : 0;
  info.e_la = device->la;
  info.ui2_pa = device->address();
  info.dev_type = device->type;
  for (int i = 0; i < 3; ++i) info.ui1_dev_vndr_id[i] = static_cast<UINT8>(device->vendor >> (16 - 8 * i) & 0xFF);
  *ret_info = info;
  return 0;
}
