// Input source group: the sources and their names, the current one, blocked ones, and the devices behind them.
#include <stdio.h>
#include <string.h>

#include <algorithm>

#include "tv_ctrl_util/log.h"
#include "tvapi/input.h"
#include "tvctl_common/handler.h"
#include "tvctl_common/record.h"

static constexpr const char* kMainPicture = "main";
static constexpr INT32 kMostSources = 99;

// Both are read and written under the request lock.
static UINT8 g_ui1_current_src_idx;  // number of the current source, from 1, as the latest list found it; 0: not known
static INT32 i4_g_input_block;       // bit n: source n is blocked, of sources 0 to 31

// --- The list ---

// A source's name as the platform writes it: terminated, unless it fills the array.
struct SourceName {
  char text[32] = {};
};

static bool same_name(const SourceName& one, const SourceName& other) {
  return strncmp(one.text, other.text, sizeof one.text) == 0;
}

// Adds "<number>:<name>" and a comma. False: it does not fit, and the text stays as it was.
static bool add_source(T_OPTION_LIST& list, std::size_t& length, INT32 number, const SourceName& name, bool is_last) {
  constexpr std::size_t kMostText = 1022;
  char entry[36];
  const int size = snprintf(entry, sizeof entry, is_last ? "%d:%.32s" : "%d:%.32s,", number, name.text);
  const std::size_t entry_length = std::min(static_cast<std::size_t>(size), sizeof entry - 1);
  if (length + entry_length > kMostText) return false;
  memcpy(list.element + length, entry, entry_length + 1);
  length += entry_length;
  return true;
}

static INT32 list_sources(const RecordRequest& request) {
  T_OPTION_LIST& list = tvc_content<T_OPTION_LIST>(request);
  memset(list.element, 0, sizeof list.element);
  std::size_t length = 0;
  const INT32 total = a_vextvapi_inputsource_get_sourcetotalnum();
  SourceName current;
  a_vextvapi_inputsource_get_currentsourcename_bypath(current.text, sizeof current.text, kMainPicture);
  for (INT32 id = 0; id < total; ++id) {
    SourceName name;
    a_vextvapi_inputsource_get_sourcename_bysourceid(id, name.text, sizeof name.text);
    if (same_name(name, current)) {
      list.value = id + 1;
      g_ui1_current_src_idx = static_cast<UINT8>(id + 1);
    }
    if (id == kMostSources || !add_source(list, length, id + 1, name, id == total - 1)) break;
  }
  return VEXTVCTRLR_OK;
}

// --- The current source ---

static INT32 get_current_source(const RecordRequest& request) {
  tvc_content<T_OPTION_LIST>(request).value = g_ui1_current_src_idx;
  return VEXTVCTRLR_OK;
}

static INT32 change_source(const RecordRequest& request) {
  const INT32 number = tvc_content<T_OPTION_LIST>(request).value;
  if (number < 1) return VEXTVCTRLR_FAIL;
  return tvc_ignored(request, a_vextvapi_inputsource_changesource_bysourceid(number - 1));
}

static INT32 change_source_to(INT32 source_id) {
  const INT32 ret = a_vextvapi_inputsource_changesource_bysourceidandpath(source_id, "MAIN");
  tvc_log_progress("[TVC_MAIN] i4_ret: [%d]\n", ret);
  return VEXTVCTRLR_OK;
}

static INT32 change_source_to_tv(const RecordRequest& request) {
  tvc_log_progress("[TVC_MAIN][%s][%d] -- start _tvc_set_change_input_source_to_tv.\n", request.operation, __LINE__);
  return change_source_to(VEXTVAPI_INPUT_SOURCE_TV);
}

static INT32 change_source_to_satellite(const RecordRequest& request) {
  tvc_log_progress("[TVC_MAIN][%s][%d] -- start _tvc_set_change_input_source_to_satellite.\n", request.operation,
                   __LINE__);
  return change_source_to(VEXTVAPI_INPUT_SOURCE_SATELLITE);
}

static INT32 count_sources(const RecordRequest& request) {
  tvc_content<T_INTEGER>(request).value = a_vextvapi_inputsource_get_sourcetotalnum();
  return VEXTVCTRLR_OK;
}

static INT32 stop_main(const RecordRequest& request) {
  return tvc_ignored(request, a_vextvapi_inputsource_sync_stop(kMainPicture, 1));
}

static INT32 stop_sub(const RecordRequest& request) {
  return tvc_ignored(request, a_vextvapi_inputsource_sync_stop("sub", 1));
}

// --- Blocking ---

// The number is passed on as it is, although the list counts from 1 and the platform from 0.
static INT32 block(const RecordRequest& request, UINT8 blocked) {
  return tvc_ignored(request, a_vextvapi_inputsource_set_source_blockstatus_bysourceid(
                                  tvc_content<T_OPTION_LIST>(request).value, blocked));
}

static INT32 block_source(const RecordRequest& request) { return block(request, 1); }

static INT32 unblock_source(const RecordRequest& request) { return block(request, 0); }

// Sources that are not scanned keep their bit.
static INT32 get_blocked(const RecordRequest& request) {
  const INT32 total = std::min(a_vextvapi_inputsource_get_sourcetotalnum(), kMostSources);
  UINT32 mask = static_cast<UINT32>(i4_g_input_block);
  for (INT32 id = 0; id < total; ++id) {
    UINT8 blocked = 0;
    if (a_vextvapi_inputsource_is_block_bysourceid(id, &blocked) != 0) break;
    if (id >= 32) continue;
    const UINT32 bit = 1U << id;
    mask = blocked ? mask | bit : mask & ~bit;
  }
  i4_g_input_block = static_cast<INT32>(mask);
  T_INTEGER& content = tvc_content<T_INTEGER>(request);
  content = {};  // identifier and size stay 0, unlike those of other records
  tvc_copy_text(content.name, request.name);
  content.group = TV_CTRL_GRPID_INPUT_SOURCE;
  content.state = 1;
  content.value = i4_g_input_block;
  return VEXTVCTRLR_OK;
}

// --- Names, labels and devices ---

static INT32 get_alias(const RecordRequest& request) {
  T_INPUT_SRC& source = tvc_content<T_INPUT_SRC>(request);
  const INT32 ret =
      a_vextvapi_inputsource_get_userdefname_bysourceid(source.idx, source.alias_name, sizeof source.alias_name - 1);
  tvc_end_text(source.alias_name);
  return tvc_ignored(request, ret);
}

static INT32 set_alias(const RecordRequest& request) {
  T_INPUT_SRC& source = tvc_content<T_INPUT_SRC>(request);
  tvc_end_text(source.alias_name);
  return tvc_ignored(request, a_vextvapi_inputsource_set_userdefname_bysourceid(source.idx, source.alias_name));
}

static INT32 get_label(const RecordRequest& request) {
  T_INPUT_SRC& source = tvc_content<T_INPUT_SRC>(request);
  return tvc_ignored(request, a_vextvapi_inputsource_get_source_inputlabelidx_bysourceid(source.idx, &source.dev_type));
}

static INT32 set_label(const RecordRequest& request) {
  const T_INPUT_SRC& source = tvc_content<T_INPUT_SRC>(request);
  return tvc_ignored(request, a_vextvapi_inputsource_set_source_inputlabelidx_bysourceid(
                                  source.idx, static_cast<UINT8>(source.dev_type)));
}

// A device that is not known is shown as a cleared record.
static INT32 get_device(const RecordRequest& request) {
  T_INPUT_DEV_INFO& content = tvc_content<T_INPUT_DEV_INFO>(request);
  CECM_DEV_INFO_T info = {};
  if (tvc_failed(a_vextvapi_cec_get_dev_info_by_la_async(content.e_la, &info), request.operation)) return VEXTVCTRLR_OK;
  T_CECM_DEV& device = content.dev_info;
  tvc_copy_text(device.s_dev_name, info.s_dev_name);
  tvc_copy_text(device.s_hdmi_port, info.s_hdmi_port);
  tvc_copy_text(device.s_osd_name, info.s_osd_name);
  device.b_amp_connected = info.b_amp_connected;
  device.e_la = info.e_la;
  device.ui2_pa = info.ui2_pa;
  device.dev_type = info.dev_type;
  std::ranges::copy(info.ui1_dev_vndr_id, device.ui1_dev_vndr_id);
  return VEXTVCTRLR_OK;
}

static constexpr RecordRow kRows[] = {
    {.record = TV_CTRL_RECID_INPUT_SOURCE_LIST,
     .type = TYPE_OPTION_LIST,
     .get = list_sources,
     .help = "The input sources as \"1:TV,2:HDMI 1\", and the number of the current one."},
    {.record = TV_CTRL_RECID_BLOCK_INPUT_SOURCE,
     .type = TYPE_OPTION_LIST,
     .get = get_current_source,
     .set = block_source,
     .set_operation = "_tvc_set_block_input_source",
     .help = "Blocks the source with this number, counted from 0. A get shows the current source, counted from 1, as "
             "the latest "
             "list found it."},
    {.record = TV_CTRL_RECID_UNBLOCK_INPUT_SOURCE,
     .type = TYPE_OPTION_LIST,
     .get = get_current_source,
     .set = unblock_source,
     .set_operation = "_tvc_set_unblock_input_source",
     .help =
         "Unblocks the source with this number, counted from 0. A get shows the current source, counted from 1, as the "
         "latest list found it."},
    {.record = TV_CTRL_RECID_INPUT_SOURCE_BLOCK_STATUS,
     .type = TYPE_INTEGER,
     .get = get_blocked,
     .name = "input_source_block_status",
     .help = "The blocked sources: bit n for source n, counted from 0."},
    {.record = TV_CTRL_RECID_CHANGE_INPUT_SOURCE,
     .type = TYPE_OPTION_LIST,
     .get = get_current_source,
     .set = change_source,
     .set_operation = "_tvc_set_change_input_source",
     .help = "Changes to the source with this number, counted from 1. A get shows the current source as the latest "
             "list found "
             "it; 0: there was none yet."},
    {.record = TV_CTRL_RECID_INPUT_SOURCE_NUM,
     .type = TYPE_INTEGER,
     .get = count_sources,
     .help = "How many sources there are."},
    {.record = TV_CTRL_RECID_SYNC_STOP_MAIN,
     .type = TYPE_OPTION_LIST,
     .set = stop_main,
     .set_operation = "_tvc_set_sync_stop_main",
     .help = "Stops the main picture, and waits for it."},
    {.record = TV_CTRL_RECID_SYNC_STOP_SUB,
     .type = TYPE_OPTION_LIST,
     .set = stop_sub,
     .set_operation = "_tvc_set_sync_stop_sub",
     .help = "Stops the sub picture, and waits for it."},
    {.record = TV_CTRL_RECID_ALIAS_NAME,
     .type = TYPE_INPUT_SRC,
     .get = get_alias,
     .set = set_alias,
     .get_operation = "_tvc_get_alias_name",
     .set_operation = "_tvc_set_alias_name",
     .set_needs = "INDEX ALIAS_NAME",
     .help = "The name that the viewer gave a source."},
    {.record = TV_CTRL_RECID_DEVICE_TYPE,
     .type = TYPE_INPUT_SRC,
     .get = get_label,
     .set = set_label,
     .get_operation = "_tvc_get_device_type",
     .set_operation = "_tvc_set_device_type",
     .set_needs = "INDEX DEVICE_TYPE",
     .help = "What the viewer says is connected to a source, as the index of a label."},
    {.record = TV_CTRL_RECID_DEVICE_INFO,
     .type = TYPE_INPUT_DEV_INFO,
     .get = get_device,
     .get_operation = "_tvc_get_device_info",
     .help = "The HDMI-CEC device with a logical address."},
    {.record = TV_CTRL_RECID_CHANGE_SOURCE_TO_TV,
     .type = TYPE_ACTION,
     .set = change_source_to_tv,
     .set_operation = "_tvc_set_change_input_source_to_tv",
     .help = "Changes the main picture to the tuner."},
    {.record = TV_CTRL_RECID_CHANGE_SOURCE_TO_SATELLITE,
     .type = TYPE_ACTION,
     .set = change_source_to_satellite,
     .set_operation = "_tvc_set_change_input_source_to_satellite",
     .help = "Changes the main picture to the satellite tuner."},
};

constinit const Handler handler_INPUT_SOURCE = {.group = TV_CTRL_GRPID_INPUT_SOURCE,
                                                .records = tvc_records<kRows>(),
                                                .set_without_record = WithoutRecord::kRefusedUnlessAction};

INT32 tv_ctrl_get_input_source(UINT16 ui2_id, void* pv_content) {
  return tvc_handle_get(handler_INPUT_SOURCE, ui2_id, pv_content);
}

INT32 tv_ctrl_set_input_source(UINT16 ui2_id, void* pv_content) {
  return tvc_handle_set(handler_INPUT_SOURCE, ui2_id, pv_content);
}
