#include "tv_ctrl_api/item_types.h"

#include <algorithm>
#include <array>
#include <iterator>

static constexpr UINT32 kQueueBound = 1024;
static constexpr UINT32 kServerQueueBound = 10240;  // home networks announce many servers at once

static constexpr NotifyRule kBaseTypeNotify = {.form = NotifyForm::kSingleParameter,
                                               .log_name = "_json_print_base_type_notify"};

static constexpr NotifyRule queued(const char* log_name, UINT32 bound = kQueueBound) {
  return {.form = NotifyForm::kQueued, .bound = bound, .log_name = log_name, .traces_text = true};
}

// Sorted by type.
static const ItemType item_types[] = {
    {.type = TYPE_VALUE,
     .record_size = sizeof(T_VALUE),
     .allocated_size = sizeof(T_VALUE),
     .renderer = "_json_print_value_type",
     .fields = value_fields,
     .notify = kBaseTypeNotify},
    {.type = TYPE_TEXT,
     .record_size = sizeof(T_TEXT),
     .allocated_size = sizeof(T_TEXT),
     .renderer = "_json_print_text_type",
     .fields = text_fields,
     .notify = kBaseTypeNotify},
    {.type = TYPE_TINT,
     .record_size = sizeof(T_TINT),
     .allocated_size = sizeof(T_TINT),
     .renderer = "_json_print_tint_type",
     .fields = tint_fields,
     .notify = kBaseTypeNotify},
    {.type = TYPE_ACTION,
     .record_size = sizeof(T_ACTION),
     .allocated_size = sizeof(T_ACTION),
     .renderer = "_json_print_action_type",
     .fields = action_fields},
    {.type = TYPE_OPTION_LIST,
     .record_size = sizeof(T_OPTION_LIST),
     .allocated_size = sizeof(T_OPTION_LIST),
     .renderer = "_json_print_option_list_type",
     .fields = option_list_fields,
     .notify = kBaseTypeNotify},
    {.type = TYPE_CONFIG,
     .record_size = sizeof(T_CONFIG),
     .allocated_size = sizeof(T_CONFIG),
     .error_word = "config",
     .renderer = "_json_print_config_type",
     .fields = config_fields},
    {.type = TYPE_LANG_STRING,
     .record_size = sizeof(T_LANG_STRING),
     .error_word = "language",
     .renderer = "_json_print_language_type",
     .fields = lang_string_fields},
    {.type = TYPE_NW_NOTIFY,
     .record_size = sizeof(T_NW_NOTIFY),
     .fields = nw_notify_fields,
     .notify = {.form = NotifyForm::kSingleItems, .log_name = "_json_print_network_notify", .traces_text = true}},
    {.type = TYPE_WLAN_ASSOCIATE,
     .record_size = sizeof(T_WLAN_ASSOCIATE),
     .allocated_size = sizeof(T_WLAN_ASSOCIATE),
     .error_word = "wlan associate",
     .fields = wlan_associate_fields,
     .notify = {.form = NotifyForm::kSingleParameter, .log_name = "_json_print_nw_associate_notify"}},
    {.type = TYPE_TUNER_SCAN,
     .record_size = sizeof(T_TUNER_SCAN),
     .allocated_size = sizeof(T_TUNER_SCAN),
     .error_word = "tuner scan",
     .renderer = "_json_print_tuner_scan_type",
     .fields = tuner_scan_fields},
    {.type = TYPE_INTEGER,
     .record_size = sizeof(T_INTEGER),
     .allocated_size = sizeof(T_INTEGER),
     .renderer = "_json_print_integer_type",
     .fields = integer_fields},
    {.type = TYPE_TUNER_SCAN_NOTIFY,
     .record_size = sizeof(T_TUNER_SCAN_NOTIFY),
     .allocated_size = sizeof(T_TUNER_SCAN_NOTIFY),
     .fields = tuner_scan_notify_fields,
     .notify = {.form = NotifyForm::kSingleParameter, .log_name = "_json_print_tuner_scan_notify"}},
    {.type = TYPE_TEXT_16,
     .record_size = sizeof(T_TEXT_16),
     .renderer = "_json_print_text_16_type",
     .fields = text_16_fields,
     .notify = kBaseTypeNotify},
    {.type = TYPE_CI_DATA,
     .record_size = sizeof(T_CI_DATA),
     .allocated_size = sizeof(T_CI_DATA),
     .renderer = "_json_print_ci_data_type",
     .fields = ci_data_fields,
     .notify = {.form = NotifyForm::kSingleParameter, .log_name = "_json_print_ci_data_notify"}},
    {.type = TYPE_NET_IP_INFO,
     .record_size = sizeof(T_NW_IP_INFO_DATA),
     .allocated_size = sizeof(T_NW_IP_INFO_DATA),
     .renderer = "_json_print_net_ip_info_type",
     .fields = ip_info_fields},
    {.type = TYPE_NET_IPV6_INFO,
     .record_size = sizeof(T_NW_IPV6_INFO_DATA),
     .allocated_size = sizeof(T_NW_IPV6_INFO_DATA),
     .renderer = "_json_print_net_ipv6_info_type",
     .fields = ipv6_info_fields},
    {.type = TYPE_TIME,
     .record_size = sizeof(T_TIME),
     .allocated_size = sizeof(T_TIME),
     .error_word = "time",
     .renderer = "_json_print_time_type",
     .fields = time_fields},
    {.type = TYPE_BANNER_ITEM,
     .record_size = sizeof(T_BANNER_ITEM),
     .allocated_size = sizeof(T_BANNER_ITEM),
     .fields = banner_item_fields},
    {.type = TYPE_CBROWSER,
     .record_size = sizeof(T_CBROWSER),
     .allocated_size = sizeof(T_CBROWSER),
     .error_word = "cbrowser",
     .renderer = "_json_print_cbrowser_type",
     .fields = cbrowser_fields},
    {.type = TYPE_CBROWSER_PB_NOTIFY,
     .record_size = sizeof(T_CBROWSER_PB_NOTIFY),
     .allocated_size = sizeof(T_CBROWSER_PB_NOTIFY),
     .fields = cbrowser_pb_notify_fields,
     .notify = {.form = NotifyForm::kQueued,
                .bound = kQueueBound,
                .log_name = "_json_print_cbrowser_playback_notify",
                .traces_text = true,
                .restarts_unusable = true}},
    {.type = TYPE_DLNA_DMS_NOTIFY,
     .record_size = sizeof(T_DLNA_DMS_NOTIFY),
     .allocated_size = sizeof(T_DLNA_DMS_NOTIFY),
     .fields = dlna_dms_notify_fields,
     .notify = queued("_json_print_dlna_dms_notify", kServerQueueBound)},
    {.type = TYPE_DLNA_DMR_NOTIFY,
     .record_size = sizeof(T_DLNA_DMR_NOTIFY),
     .fields = dlna_dmr_notify_fields,
     .notify = queued("_json_print_dlna_dmr_notify")},
    {.type = TYPE_PUS_NOTIFY,
     .record_size = sizeof(T_PUS_NOTIFY),
     .fields = pus_notify_fields,
     .notify = queued("_json_print_cbrowser_pus_notify")},
    {.type = TYPE_USB_DETECT_NOTIFY,
     .record_size = sizeof(T_USB_DETECT_NOTIFY),
     .allocated_size = sizeof(T_USB_DETECT_NOTIFY),
     .fields = usb_detect_notify_fields,
     .notify = queued("_json_print_usb_detect_notify")},
    {.type = TYPE_INPUT_DEV_INFO, .allocated_size = sizeof(T_VALUE)},
    {.type = TYPE_MOUNT_INFO,
     .record_size = sizeof(T_MOUNT_POINT_LIST),
     .renderer = "_json_print_mount_info_type",
     .fields = mount_point_fields,
     .list = {.count_offset = offsetof(T_MOUNT_POINT_LIST, count),
              .entries_offset = offsetof(T_MOUNT_POINT_LIST, entries),
              .entry_size = sizeof(T_MOUNT_POINT_INFO),
              .most = std::size(T_MOUNT_POINT_LIST{}.entries)}},
    {.type = TYPE_HBBTV, .record_size = sizeof(T_HBBTV), .error_word = "hbbtv", .fields = hbbtv_fields},
    {.type = TYPE_PORTAL,
     .record_size = sizeof(T_PORTAL),
     .error_word = "portal",
     .renderer = "_json_print_portal_info",
     .fields = portal_fields},
    {.type = TYPE_CEC_DETECT_NOTIFY,
     .record_size = sizeof(T_CECM_NFY),
     .allocated_size = sizeof(T_CECM_NFY),
     .fields = cec_detect_notify_fields,
     .notify = {.form = NotifyForm::kSingleItems, .log_name = "_json_print_cec_detect_notify"}},
    {.type = TYPE_CHANNEL_INFO_NOTIFY,
     .record_size = sizeof(T_CHANNEL_LIST_NOTIFY),
     .fields = channel_info_notify_fields,
     .notify = queued("_json_print_channel_info_notify")},
    {.type = TYPE_ACTIVE_WINDOW_INFO_NOTIFY,
     .record_size = sizeof(T_ACTIVE_WINDOW_INFO_NOTIFY),
     .allocated_size = sizeof(T_CBROWSER_PB_NOTIFY),  // shared with the playback notification
     .fields = active_window_info_notify_fields,
     .notify = queued("_json_print_active_window_info_notify")},
    {.type = TYPE_ACTIVE_WINDOW_TIME_NOTIFY,
     .record_size = sizeof(T_ACTIVE_WINDOW_TIME_NOTIFY),
     .allocated_size = sizeof(T_ACTIVE_WINDOW_TIME_NOTIFY),
     .fields = active_window_time_notify_fields,
     .notify = queued("_json_print_active_window_time_notify")},
    {.type = TYPE_CHANNEL_SELECT,
     .allocated_size = sizeof(T_ACTIVE_WINDOW_TIME_NOTIFY)},  // shared with the active window's time
    {.type = TYPE_CECM_CFG,
     .record_size = sizeof(T_CECM_CFG),
     .allocated_size = sizeof(T_CECM_CFG),
     .error_word = "input source",
     .renderer = "_json_print_cecm_cfg_type",
     .fields = cecm_cfg_fields},
    {.type = TYPE_CONFIG_UPDATE_NOTIFY,
     .record_size = sizeof(T_CONFIG_NOTIFY),
     .fields = config_update_notify_fields,
     .notify = queued("_json_print_config_update_notify")},
    {.type = TYPE_VOL_CTRL_NOTIFY,
     .record_size = sizeof(T_VOL_CTRL_NOTIFY),
     .fields = vol_ctrl_notify_fields,
     .notify = {.form = NotifyForm::kSingleItems, .log_name = "_json_print_vol_ctrl_notify", .traces_text = true}},
};
static_assert(sizeof(T_ACTIVE_WINDOW_INFO_NOTIFY) <= sizeof(T_CBROWSER_PB_NOTIFY));

std::span<const ItemType> tvc_item_types() { return item_types; }

const ItemType* tvc_item_type(UINT8 type) {
  // One look into an index by type instead of a search; made at the first use, the same by every thread.
  static const auto index = [] {
    std::array<const ItemType*, TYPE_INVALID + 1> rows{};
    for (const ItemType& item : item_types) rows[item.type] = &item;
    return rows;
  }();
  return index[type];
}

const char* tvc_item_type_name(UINT8 type) {
  switch (type) {
#define TVC_ITEM_TYPE(name, number) \
  case number:                      \
    return "TYPE_" #name;
#include "vex_tv_ctrl/item_types.def"
#undef TVC_ITEM_TYPE
    default:
      return "";
  }
}

bool tvc_item_has(const ItemType& item, FieldUse use) {
  for (const Field& field : item.fields)
    if (field.use & use) return true;
  return false;
}

void tvc_write_items(JsonText& json, const ItemType& item, const void* record) {
  const EntryList& list = item.list;
  if (list.entry_size == 0) return tvc_write_object(json, item.fields, kResponse, record);
  const char* const base = static_cast<const char*>(record);
  const INT32 count = *reinterpret_cast<const INT32*>(base + list.count_offset);
  const char* entry = base + list.entries_offset;
  for (INT32 i = 0; i < std::min(count, static_cast<INT32>(list.most)); ++i, entry += list.entry_size)
    tvc_write_object(json, item.fields, kResponse, entry);
}
