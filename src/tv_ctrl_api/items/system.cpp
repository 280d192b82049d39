// Item types of events of the set itself: USB, channel list, guide, volume.
#include "tv_ctrl_api/item_types.h"

static constexpr Field kUsbDetectNotifyFields[] = {
    {.key = "TYPE",
     TVC_MEMBER(T_USB_DETECT_NOTIFY, type),
     .use = kNotify,
     .values = "1=mounted\0"
               "2=unmounted\0",
     .help = "kind of event"},
    {.key = "TAG", TVC_MEMBER(T_USB_DETECT_NOTIFY, tag), .use = kNotify, .help = "tag given at registration"},
    {.key = "DEV", TVC_MEMBER(T_USB_DETECT_NOTIFY, mount_point.dev), .use = kNotify, .help = "device"},
    {.key = "PATH", TVC_MEMBER(T_USB_DETECT_NOTIFY, mount_point.path), .use = kNotify, .help = "mount point"},
    {.key = "LABEL", TVC_MEMBER(T_USB_DETECT_NOTIFY, mount_point.label), .use = kNotify, .help = "volume label"},
    {.key = "PORT", TVC_MEMBER(T_USB_DETECT_NOTIFY, mount_point.port), .use = kNotify, .help = "USB port"},
};

constexpr ItemType item_USB_DETECT_NOTIFY = {.type = TYPE_USB_DETECT_NOTIFY,
                                             .record_size = sizeof(T_USB_DETECT_NOTIFY),
                                             .allocated_size = sizeof(T_USB_DETECT_NOTIFY),
                                             .fields = kUsbDetectNotifyFields,
                                             .notify = queued("_json_print_usb_detect_notify")};

// The fields of one entry of the list.
static constexpr Field kMountPointFields[] = {
    {.key = "DEV", TVC_MEMBER(T_MOUNT_POINT_INFO, dev), .help = "device"},
    {.key = "PATH", TVC_MEMBER(T_MOUNT_POINT_INFO, path), .help = "mount point"},
    {.key = "LABEL", TVC_MEMBER(T_MOUNT_POINT_INFO, label), .help = "volume label"},
    {.key = "PORT", TVC_MEMBER(T_MOUNT_POINT_INFO, port), .help = "USB port"},
};

static constexpr ItemForm kMountForms[] = {
    {.fields = kMountPointFields,
     .list = {.count = TVC_PLACE(T_MOUNT_POINT_LIST, count), TVC_ENTRIES(T_MOUNT_POINT_LIST, entries)}}};

constexpr ItemType item_MOUNT_INFO = {.type = TYPE_MOUNT_INFO,
                                      .record_size = sizeof(T_MOUNT_POINT_LIST),
                                      .renderer = "_json_print_mount_info_type",
                                      .forms = kMountForms};

// The events of the channel list and of the guide begin with the same members.
#define SERVICE_LIST_EVENT_FIELDS(record)                                                             \
  {.key = "TYPE", TVC_MEMBER(record, type), .use = kNotify, .help = "kind of event"},                 \
      {.key = "TAG", TVC_MEMBER(record, tag), .use = kNotify, .help = "tag given at registration"}, { \
    .key = "SVL_HANDLE", TVC_MEMBER(record, h_svl), .use = kNotify, .help = "service list"            \
  }

#define SERVICE_LIST_CHANGE_FIELDS(record)                                                                          \
  SERVICE_LIST_EVENT_FIELDS(record),                                                                                \
      {.key = "CONDITIONS",                                                                                         \
       TVC_MEMBER(record, conditions),                                                                              \
       .use = kNotify,                                                                                              \
       .help = "condition, in the platform's numbers"},                                                             \
      {.key = "REASON", TVC_MEMBER(record, reason), .use = kNotify, .help = "reason, in the platform's numbers"}, { \
    .key = "DATA", TVC_MEMBER(record, data), .use = kNotify, .help = "argument of the event"                        \
  }

static constexpr Field kChannelInfoNotifyFields[] = {SERVICE_LIST_CHANGE_FIELDS(T_CHANNEL_LIST_NOTIFY)};

constexpr ItemType item_CHANNEL_INFO_NOTIFY = {.type = TYPE_CHANNEL_INFO_NOTIFY,
                                               .record_size = sizeof(T_CHANNEL_LIST_NOTIFY),
                                               .fields = kChannelInfoNotifyFields,
                                               .notify = queued("_json_print_channel_info_notify")};

static constexpr Field kActiveWindowInfoNotifyFields[] = {SERVICE_LIST_CHANGE_FIELDS(T_ACTIVE_WINDOW_INFO_NOTIFY)};
static_assert(sizeof(T_ACTIVE_WINDOW_INFO_NOTIFY) <= sizeof(T_CBROWSER_PB_NOTIFY));

constexpr ItemType item_ACTIVE_WINDOW_INFO_NOTIFY = {
    .type = TYPE_ACTIVE_WINDOW_INFO_NOTIFY,
    .record_size = sizeof(T_ACTIVE_WINDOW_INFO_NOTIFY),
    .allocated_size = sizeof(T_CBROWSER_PB_NOTIFY),  // shared with the playback notification
    .fields = kActiveWindowInfoNotifyFields,
    .notify = queued("_json_print_active_window_info_notify")};

static constexpr Field kActiveWindowTimeNotifyFields[] = {SERVICE_LIST_EVENT_FIELDS(T_ACTIVE_WINDOW_TIME_NOTIFY)};

constexpr ItemType item_ACTIVE_WINDOW_TIME_NOTIFY = {.type = TYPE_ACTIVE_WINDOW_TIME_NOTIFY,
                                                     .record_size = sizeof(T_ACTIVE_WINDOW_TIME_NOTIFY),
                                                     .allocated_size = sizeof(T_ACTIVE_WINDOW_TIME_NOTIFY),
                                                     .fields = kActiveWindowTimeNotifyFields,
                                                     .notify = queued("_json_print_active_window_time_notify")};

static constexpr Field kVolCtrlNotifyFields[] = {
    {.key = "volValue",
     TVC_MEMBER(T_VOL_CTRL_NOTIFY, vol_value),
     .use = kNotify,
     .help = "volume level, on the platform's scale"},
    {.key = "muteStatus",
     TVC_MEMBER(T_VOL_CTRL_NOTIFY, mute_status),
     .use = kNotify,
     .values = "0=not muted\0"
               "1=muted\0",
     .help = "mute state"},
};

constexpr ItemType item_VOL_CTRL_NOTIFY = {
    .type = TYPE_VOL_CTRL_NOTIFY,
    .record_size = sizeof(T_VOL_CTRL_NOTIFY),
    .fields = kVolCtrlNotifyFields,
    .notify = {.form = NotifyForm::kSingleItems, .log_name = "_json_print_vol_ctrl_notify", .traces_text = true}};
