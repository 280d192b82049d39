// Item types of the content browser, and of media playback, home network and recording file events.
#include <string.h>

#include "tv_ctrl_api/item_types.h"
#include "tv_ctrl_util/log.h"

struct AddressLog {
  const char* operation;
  const char* label;    // logged before the text
  const char* missing;  // logged for a null address
};

// Writes the text at an address, or 0 for a null address. Whoever raised the event owns the text.
static void render_text_at(JsonText& json, intptr_t address, const AddressLog& log) {
  const char* const text = reinterpret_cast<const char*>(address);
  if (!text) {
    TVC_LOG_AS(kLogTrace, log.operation, "%s\n", log.missing);
    return tvc_write_integer(json, 0);
  }
  TVC_LOG_AS(kLogTrace, log.operation, "%s%s\n", log.label, text);
  tvc_write_text(json, text);
}

// Writes the argument as a number, except for a finished thumbnail: there it is the address of the picture's path.
static void render_pb_arg1(JsonText& json, const Field&, const void* record) {
  const T_CBROWSER_PB_NOTIFY& notify = *static_cast<const T_CBROWSER_PB_NOTIFY*>(record);
  if (notify.type != PLAYER_EVENT_THUMBNAIL) return tvc_write_integer(json, static_cast<INT32>(notify.arg1));
  render_text_at(json, notify.arg1,
                 {.operation = "_json_print_cbrowser_playback_notify",
                  .label = "thumbnail path:",
                  .missing = "pt_content->arg1 == NULL"});
}

static constexpr Field kCbrowserPbNotifyFields[] = {
    {.key = "TYPE",
     TVC_MEMBER(T_CBROWSER_PB_NOTIFY, type),
     .use = kNotify,
     .values = "19=a thumbnail was made\0",
     .help = "kind of player event; other numbers are the platform's"},
    {.key = "TAG", TVC_MEMBER(T_CBROWSER_PB_NOTIFY, tag), .use = kNotify, .help = "tag given at initialisation"},
    {.key = "ARG1",
     TVC_WORD(T_CBROWSER_PB_NOTIFY, arg1),
     .use = kNotify,
     .render = render_pb_arg1,
     .help = "argument of the event; for a thumbnail, the path of the picture"},
    {.key = "ARG2", TVC_MEMBER(T_CBROWSER_PB_NOTIFY, arg2), .use = kNotify, .help = "second argument of the event"},
    {.key = "ARG3", TVC_MEMBER(T_CBROWSER_PB_NOTIFY, arg3), .use = kNotify, .help = "third argument of the event"},
    {.key = "ARG4", TVC_MEMBER(T_CBROWSER_PB_NOTIFY, arg4), .use = kNotify, .help = "fourth argument of the event"},
};

constexpr ItemType item_CBROWSER_PB_NOTIFY = {.type = TYPE_CBROWSER_PB_NOTIFY,
                                              .record_size = sizeof(T_CBROWSER_PB_NOTIFY),
                                              .allocated_size = sizeof(T_CBROWSER_PB_NOTIFY),
                                              .fields = kCbrowserPbNotifyFields,
                                              .notify = {.form = NotifyForm::kQueued,
                                                         .bound = kQueueBound,
                                                         .log_name = "_json_print_cbrowser_playback_notify",
                                                         .traces_text = true,
                                                         .restarts_unusable = true}};

// The response does not show the record's entries: no handler fills them. Some members have two rows, since requests
// are decoded in a different order from that of the response.
static constexpr char kMediaTypes[] =
    "0=none\0"
    "1=photo\0"
    "2=music\0"
    "3=video\0"
    "4=folder\0"
    "5=playlist\0"
    "6=shop mode\0";
static constexpr const char* kFirstEntry = "first entry, from 0";
static constexpr Field kCbrowserFields[] = {
    {.key = "NAME", .use = kResponse, .text = "Content Browser", .help = "display name"},
    {.key = "PATH",
     TVC_MEMBER(T_CBROWSER, path),
     .use = kQuery | kSet | kResponse,
     .help = "path of a folder or a file"},
    {.key = "TYPE", TVC_MEMBER(T_CBROWSER, type), .use = kQuery | kSet, .values = kMediaTypes, .help = "kind of media"},
    {.key = "SORT", TVC_MEMBER(T_CBROWSER, sort), .use = kQuery | kSet, .help = "order, in the platform's numbers"},
    {.key = "INDEX", TVC_MEMBER(T_CBROWSER, index), .use = kQuery | kSet, .help = kFirstEntry},
    {.key = "COUNT", TVC_MEMBER(T_CBROWSER, count), .use = kQuery | kSet | kResponse, .help = "number of entries"},
    {.key = "INDEX", TVC_MEMBER(T_CBROWSER, index), .use = kResponse, .help = kFirstEntry},
    {.key = "TYPE", TVC_MEMBER(T_CBROWSER, type), .use = kResponse, .values = kMediaTypes, .help = "kind of media"},
    {.key = "RESERVED", TVC_MEMBER(T_CBROWSER, reserved), .use = kQuery | kSet, .help = "second path"},
};

constexpr ItemType item_CBROWSER = {.type = TYPE_CBROWSER,
                                    .record_size = sizeof(T_CBROWSER),
                                    .allocated_size = sizeof(T_CBROWSER),
                                    .error_word = "cbrowser",
                                    .renderer = "_json_print_cbrowser_type",
                                    .fields = kCbrowserFields};

static constexpr Field kDlnaDmsNotifyFields[] = {
    {.key = "TYPE", TVC_MEMBER(T_DLNA_DMS_NOTIFY, type), .use = kNotify, .help = "kind of server event"},
    {.key = "TAG", TVC_MEMBER(T_DLNA_DMS_NOTIFY, tag), .use = kNotify, .help = "tag given at registration"},
    {.key = "SERVER_NAME", TVC_MEMBER(T_DLNA_DMS_NOTIFY, server_name), .use = kNotify, .help = "name of the server"},
    {.key = "DEV_ID", TVC_MEMBER(T_DLNA_DMS_NOTIFY, dev_id), .use = kNotify, .help = "number of the server's device"},
    {.key = "ARG1", TVC_MEMBER(T_DLNA_DMS_NOTIFY, arg1), .use = kNotify, .help = "first argument of the event"},
    {.key = "ARG2", TVC_MEMBER(T_DLNA_DMS_NOTIFY, arg2), .use = kNotify, .help = "second argument of the event"},
};
static constexpr UINT32 kServerQueueBound = 10240;  // home networks announce many servers at once

constexpr ItemType item_DLNA_DMS_NOTIFY = {.type = TYPE_DLNA_DMS_NOTIFY,
                                           .record_size = sizeof(T_DLNA_DMS_NOTIFY),
                                           .allocated_size = sizeof(T_DLNA_DMS_NOTIFY),
                                           .fields = kDlnaDmsNotifyFields,
                                           .notify = queued("_json_print_dlna_dms_notify", kServerQueueBound)};

static constexpr Field kDlnaDmrNotifyFields[] = {
    {.key = "TYPE", TVC_MEMBER(T_DLNA_DMR_NOTIFY, type), .use = kNotify, .help = "kind of renderer event"},
    {.key = "TAG", TVC_MEMBER(T_DLNA_DMR_NOTIFY, tag), .use = kNotify, .help = "tag given at registration"},
    {.key = "URL", TVC_MEMBER(T_DLNA_DMR_NOTIFY, uri), .use = kNotify, .help = "address of the media to play"},
    {.key = "PROTOCOL_INFO",
     TVC_MEMBER(T_DLNA_DMR_NOTIFY, protocolinfo),
     .use = kNotify,
     .help = "transport and format of the media, in DLNA's notation"},
    {.key = "ARG1", TVC_MEMBER(T_DLNA_DMR_NOTIFY, arg1), .use = kNotify, .help = "first argument of the event"},
    {.key = "ARG2", TVC_MEMBER(T_DLNA_DMR_NOTIFY, arg2), .use = kNotify, .help = "second argument of the event"},
};

constexpr ItemType item_DLNA_DMR_NOTIFY = {.type = TYPE_DLNA_DMR_NOTIFY,
                                           .record_size = sizeof(T_DLNA_DMR_NOTIFY),
                                           .fields = kDlnaDmrNotifyFields,
                                           .notify = queued("_json_print_dlna_dmr_notify")};

// Writes the value as a number, except for the start command: there it is the address of the file's path.
static void render_pus_value(JsonText& json, const Field&, const void* record) {
  const T_PUS_NOTIFY& notify = *static_cast<const T_PUS_NOTIFY*>(record);
  if (notify.play_cmd != TVAPI_PUS_PLAY_CMD_START) return tvc_write_integer(json, static_cast<INT32>(notify.value));
  render_text_at(
      json, notify.value,
      {.operation = "_json_print_cbrowser_pus_notify", .label = "FilePath: ", .missing = "pt_content->value is NULL"});
}

static constexpr Field kPusNotifyFields[] = {
    {.key = "instance",
     TVC_MEMBER(T_PUS_NOTIFY, instance),
     .use = kNotify,
     .help = "playback that the command controls"},
    {.key = "playCmd",
     TVC_MEMBER(T_PUS_NOTIFY, play_cmd),
     .use = kNotify,
     .values = "0=none\0"
               "1=start\0"
               "2=stop\0"
               "3=pause\0"
               "4=resume\0"
               "5=prepare\0"
               "6=seek\0",
     .help = "command"},
    {.key = "value",
     TVC_WORD(T_PUS_NOTIFY, value),
     .use = kNotify,
     .render = render_pus_value,
     .help = "argument of the command; for start, the path of the file"},
};

constexpr ItemType item_PUS_NOTIFY = {.type = TYPE_PUS_NOTIFY,
                                      .record_size = sizeof(T_PUS_NOTIFY),
                                      .fields = kPusNotifyFields,
                                      .notify = queued("_json_print_cbrowser_pus_notify")};
