// Item types of the home network: servers and their items, the renderer, and the events of both.
#include "tv_ctrl_api/item_types.h"

static constexpr FieldUse kRequest = kQuery | kSet;

static constexpr Field kDateFields[] = {
    {.key = "year", TVC_MEMBER(T_DATE_TIME, iyear), .help = "year"},
    {.key = "month", TVC_MEMBER(T_DATE_TIME, imonth), .help = "month, from 1"},
    {.key = "day", TVC_MEMBER(T_DATE_TIME, iday), .help = "day, from 1"},
    {.key = "hour", TVC_MEMBER(T_DATE_TIME, ihour), .help = "hour"},
    {.key = "minute", TVC_MEMBER(T_DATE_TIME, iminute), .help = "minute"},
    {.key = "second", TVC_MEMBER(T_DATE_TIME, isecond), .help = "second"},
};

// --- Servers and their items ---

#define PLAYER(json_key, member, ...) \
  { .key = json_key, TVC_MEMBER(T_DLNA_DMP, member), __VA_ARGS__ }
#define METADATA(json_key, member, ...) PLAYER(json_key, mediaInfo.u.mediaMetaData.member, __VA_ARGS__)

static constexpr Field kPlayerFields[] = {
    PLAYER("instance", mediaInfo.obj_inst, .use = kRequest, .help = "handle of the item"),
    PLAYER("devId", dev_id, .use = kRequest, .help = "device of the server"),
    PLAYER("objId", mediaInfo.obj_id, .use = kRequest, .help = "object of the server"),
    PLAYER("startIdx", startIdx, .use = kRequest, .help = "first child to list, from 0"),
    PLAYER("requestNum", requestNum, .use = kRequest, .help = "children to list, at most 20"),
};

#define ITEM_FIELDS                                                                                  \
  PLAYER("devId", dev_id, .help = "device of the server"),                                           \
      PLAYER("realDevId", real_dev_id, .help = "device behind it"),                                  \
      PLAYER("dmsType", dmsType, .help = "kind of server, in the platform's numbers"),               \
      PLAYER("isWakable", isWakable, .help = "1: can be woken while it is off"),                     \
      PLAYER("objId", mediaInfo.obj_id, .help = "object of the server"),                             \
      PLAYER("instance", mediaInfo.obj_inst, .help = "handle of the item"),                          \
      PLAYER("fileObjId", mediaInfo.file_obj_id, .help = "object, as the server names it"),          \
      PLAYER("parentDevId", mediaInfo.parent_dev_id, .help = "device of the item's parent"),         \
      PLAYER("parentId", mediaInfo.parent_id, .help = "parent, as the server names it"),             \
      PLAYER("thumbnailLocalPath", mediaInfo.thumbnail_local_path, .help = "path of its thumbnail"), \
      PLAYER("localPath", mediaInfo.local_path, .help = "path of its file"),                         \
      PLAYER("mediaType", mediaInfo.media_type,                                                      \
             .values =                                                                               \
                 "1=photo\0"                                                                         \
                 "2=music\0"                                                                         \
                 "3=video\0"                                                                         \
                 "6=container\0",                                                                    \
             .help = "kind of item; other numbers are the platform's")

static constexpr Field kContainerFields[] = {
    ITEM_FIELDS,
    PLAYER("subItemNum", mediaInfo.u.subItem.subItemNum, .help = "number of children"),
    METADATA("mediaName", mediaName, .help = "name"),
    METADATA("mediaDate", mediaDate, .fields = kDateFields, .help = "date"),
};

static constexpr Field kItemFields[] = {
    ITEM_FIELDS,
    METADATA("mediaName", mediaName, .help = "name"),
    METADATA("mediaExtension", mediaExtension, .help = "extension of the file's name"),
    METADATA("mediaArtist", mediaArtist, .help = "artist"),
    METADATA("mediaAlbum", mediaAlbum, .help = "album"),
    METADATA("mediaSize", mediaSize, .help = "size of the file"),
    METADATA("mediaResolution", mediaResolution, .help = "resolution, as a text"),
    METADATA("mediaDuration", mediaDuration, .help = "duration, as a text"),
    METADATA("mediaDate", mediaDate, .fields = kDateFields, .help = "date"),
};

static constexpr Field kChildFields[] = {
    {.key = "devId", TVC_MEMBER(T_DMP_INST_CONTAINER, devId), .help = "device of the server"},
    {.key = "objectId", TVC_MEMBER(T_DMP_INST_CONTAINER, objectId), .help = "object of the server"},
};

static constexpr ItemForm kPlayerForms[] = {
    {.uri = tvc_id(TV_CTRL_GRPID_DLNA, TV_CTRL_RECID_DMP_GET_DIR_LIST),
     .fields = kChildFields,
     .list = {TVC_ENTRIES(T_DLNA_DMP, mediaInfo.u.subItem.container),
              .shows =
                  [](const void* entry) {
                    const auto& child = *static_cast<const T_DMP_INST_CONTAINER*>(entry);
                    return child.devId != 0 && child.objectId != 0;
                  }}},
    {.when =
         [](const void* record) {
           return static_cast<const T_DLNA_DMP*>(record)->mediaInfo.media_type == DLNA_MEDIA_CONTAINER;
         },
     .fields = kContainerFields},
    {.fields = kItemFields},
};

constexpr ItemType item_DLNA_DMP = {.type = TYPE_DLNA_DMP,
                                    .record_size = sizeof(T_DLNA_DMP),
                                    .allocated_size = sizeof(T_DLNA_DMP),
                                    .decoder = "_unpack_json_dlna_dmp",
                                    .error_word = "dlna dmp",
                                    .renderer = "_json_print_dlna_dmp_type",
                                    .fields = kPlayerFields,
                                    .forms = kPlayerForms};

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

// --- The renderer ---

#define RENDERER(json_key, member, ...) \
  { .key = json_key, TVC_MEMBER(T_DLNA_DMR, member), __VA_ARGS__ }

static constexpr Field kRendererFields[] = {
    RENDERER("instance", dmr_inst, .use = kRequest | kResponse, .help = "handle of the renderer"),
    RENDERER("url", uri, .use = kRequest, .help = "address of the media"),
    RENDERER("protocol", protocolinfo, .use = kRequest, .help = "transport and format, in DLNA's notation"),
    RENDERER("position", position, .use = kRequest, .help = "position of the playback"),
    RENDERER("duration", duration, .use = kRequest, .help = "duration of the media"),
    RENDERER("playState", playState, .use = kRequest, .help = "state of the playback, in the platform's numbers"),
    RENDERER("value", value, .use = kRequest, .help = "argument of the state"),
    RENDERER("path", path, .use = kResponse, .help = "path of the downloaded file"),
    RENDERER("mediaType", mediaMetaData.mediaType, .use = kResponse, .help = "kind, in the platform's numbers"),
    RENDERER("mediaName", mediaMetaData.mediaName, .use = kResponse, .help = "name"),
    RENDERER("mediaExtension", mediaMetaData.mediaExtension, .use = kResponse, .help = "extension of the file's name"),
    RENDERER("mediaArtist", mediaMetaData.mediaArtist, .use = kResponse, .help = "artist"),
    RENDERER("mediaAuthor", mediaMetaData.mediaAuthor, .use = kResponse, .help = "author"),
    RENDERER("mediaAlbum", mediaMetaData.mediaAlbum, .use = kResponse, .help = "album"),
    RENDERER("mediaSize", mediaMetaData.mediaSize, .use = kResponse, .help = "size of the file"),
    RENDERER("mediaResolution", mediaMetaData.mediaResolution, .use = kResponse, .help = "resolution, as a text"),
    RENDERER("mediaDuration", mediaMetaData.mediaDuration, .use = kResponse, .help = "duration, as a text"),
    RENDERER("mediaDate", mediaMetaData.mediaDate, .use = kResponse, .fields = kDateFields, .help = "date"),
};

constexpr ItemType item_DLNA_DMR = {.type = TYPE_DLNA_DMR,
                                    .record_size = sizeof(T_DLNA_DMR),
                                    .allocated_size = sizeof(T_DLNA_DMR),
                                    .decoder = "_unpack_json_dlna_dmr",
                                    .error_word = "dlna dmr",
                                    .renderer = "_json_print_dlna_dmr_type",
                                    .fields = kRendererFields};

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
