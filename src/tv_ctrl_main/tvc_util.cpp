// Fills generic records for items that the configuration store backs.
#include "tv_ctrl_main.h"
#include "tv_ctrl_util/text.h"

template <typename Record>
static INT32 fill_header(UINT16 ui2_id, const char* ps_name, Record* pt_record) {
  if (!pt_record) return VEXTVCTRLR_INV_ARG;
  pt_record->id = ui2_id;
  tvc_copy_text(pt_record->name, ps_name ? ps_name : "");
  pt_record->group = 0;
  pt_record->state = 1;
  pt_record->value = 0;
  return VEXTVCTRLR_OK;
}

INT32 tvc_util_fill_t_value_content_by_config_type(UINT16 ui2_id, const char*, const char* ps_name, T_VALUE* pt_value) {
  if (const INT32 ret = fill_header(ui2_id, ps_name, pt_value); ret != VEXTVCTRLR_OK) return ret;
  pt_value->min_value = 0;
  pt_value->max_value = 0;
  pt_value->increment = 1;
  return VEXTVCTRLR_OK;
}

INT32 tvc_util_fill_t_option_list_content_by_config_type(UINT16 ui2_id, const char*, const char* ps_name,
                                                         T_OPTION_LIST* pt_list) {
  return fill_header(ui2_id, ps_name, pt_list);
}

INT32 tv_util_init(void) { return VEXTVCTRLR_OK; }
