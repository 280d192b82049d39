// Item types of the recording file playback service: requests and commands.
#include "tv_ctrl_api/item_types.h"
#include "tv_ctrl_api/items/text_address.h"

static constexpr FieldUse kRequest = kQuery | kSet;

#define FILE(json_key, member, ...) \
  { .key = json_key, TVC_MEMBER(T_PUS_FILE_INFO_T, member), __VA_ARGS__ }

static constexpr Field kFileFields[] = {
    FILE("URL", url, .help = "address of the file"),
    FILE("channelName", channelName, .help = "name of the channel"),
    FILE("eventId", eventId, .help = "identifier of the event"),
    FILE("eventName", eventName, .help = "title of the event"),
    FILE("startDateTime", startDateTime, .unit = "s since 1970", .help = "beginning"),
    FILE("endDateTime", endDateTime, .unit = "s since 1970", .help = "end"),
    FILE("duration", duration, .unit = "s", .help = "length"),
    FILE("sizeInMB", sizeInMB, .unit = "MB", .help = "size of the file"),
    FILE("fileType", fileType, .help = "kind of file, in the platform's numbers"),
};

static constexpr Field kPusFields[] = {
    {.key = "instance", TVC_MEMBER(T_PUS, instance), .use = kRequest | kResponse, .help = "the playback"},
    {.key = "state", TVC_MEMBER(T_PUS, state), .use = kRequest, .help = "state of the playback"},
    {.key = "value", TVC_MEMBER(T_PUS, value), .use = kRequest, .help = "argument of the state"},
    {.key = "fileInfo",
     TVC_MEMBER(T_PUS, file_info),
     .use = kResponse,
     .fields = kFileFields,
     .help = "the recording that plays"},
};

constexpr ItemType item_PUS = {.type = TYPE_PUS,
                               .record_size = sizeof(T_PUS),
                               .decoder = "_unpack_json_cbrowser_pus",
                               .error_word = "cbrowser pus",
                               .renderer = "_json_print_cbrowser_pus_type",
                               .fields = kPusFields};

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
