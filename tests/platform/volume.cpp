#include "tests/platform/volume.h"

std::atomic<a_vextvapi_volctrl_nfy_fct> volume_callback;
std::atomic<void*> volume_tag;

INT32 a_vextvapi_volctrl_reg_callback(a_vextvapi_volctrl_nfy_fct callback, void* tag) {
  volume_tag = tag;
  volume_callback = callback;
  return 0;
}
