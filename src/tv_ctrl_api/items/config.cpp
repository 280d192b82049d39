// Item types of configuration values, language strings and configuration changes.
#include "tv_ctrl_api/item_types.h"

static bool has_key(const void* record) { return static_cast<const T_CONFIG*>(record)->cfg_id[0] != '\0'; }

static bool has_item_only(const void* record) {
  return !has_key(record) && static_cast<const T_CONFIG*>(record)->cfg_item != 0;
}

// Some members have two rows, since requests are decoded in a different order from that of the response.
static constexpr Field kConfigFields[] = {
    {.key = "cfgId",
     TVC_MEMBER(T_CONFIG, cfg_id),
     .use = kQuery | kSet | kResponse,
     .when = has_key,
     .help = "key of the value; without a key, cfgItem names the value"},
    {.key = "cfgItem",
     TVC_MEMBER(T_CONFIG, cfg_item),
     .use = kQuery | kSet | kResponse,
     .when = has_item_only,
     .help = "numeric item id"},
    {.key = "valueInt", TVC_MEMBER(T_CONFIG, valueint), .use = kQuery | kSet, .help = "number, or 0 and 1"},
    {.key = "valueString", TVC_MEMBER(T_CONFIG, valuestring), .use = kQuery | kSet | kResponse, .help = "text"},
    {.key = "valueInt", TVC_MEMBER(T_CONFIG, valueint), .use = kResponse, .help = "number, or 0 and 1"},
    {.key = "valueMin", TVC_MEMBER(T_CONFIG, valuemin), .use = kResponse, .help = "smallest number"},
    {.key = "valueMax",
     TVC_MEMBER(T_CONFIG, valuemax),
     .use = kResponse,
     .help = "largest number; both limits 0: unknown"},
};

constexpr ItemType item_CONFIG = {.type = TYPE_CONFIG,
                                  .record_size = sizeof(T_CONFIG),
                                  .allocated_size = sizeof(T_CONFIG),
                                  .error_word = "config",
                                  .renderer = "_json_print_config_type",
                                  .fields = kConfigFields};

static constexpr Field kLangStringFields[] = {
    {.key = "langId", TVC_MEMBER(T_LANG_STRING, lang_id), .use = kQuery | kResponse, .help = "identifier of the text"},
    {.key = "langString",
     TVC_MEMBER(T_LANG_STRING, lang_string),
     .use = kResponse,
     .help = "text in the menu language"},
};

constexpr ItemType item_LANG_STRING = {.type = TYPE_LANG_STRING,
                                       .record_size = sizeof(T_LANG_STRING),
                                       .error_word = "language",
                                       .renderer = "_json_print_language_type",
                                       .fields = kLangStringFields};

static constexpr Field kConfigUpdateNotifyFields[] = {
    {.key = "ID",
     TVC_MEMBER(T_CONFIG_NOTIFY, id),
     .use = kNotify,
     .values = "-1=a value changed\0",
     .help = "kind of event; other numbers are the platform's"},
    {.key = "TAG", TVC_MEMBER(T_CONFIG_NOTIFY, tag), .use = kNotify, .help = "tag given at registration"},
    {.key = "ARG1",
     TVC_MEMBER(T_CONFIG_NOTIFY, arg1),
     .use = kNotify,
     .help = "argument of the event; 0 for a changed value"},
    {.key = "ARG2", TVC_MEMBER(T_CONFIG_NOTIFY, arg2), .use = kNotify, .help = "key of the changed value"},
};

constexpr ItemType item_CONFIG_UPDATE_NOTIFY = {.type = TYPE_CONFIG_UPDATE_NOTIFY,
                                                .record_size = sizeof(T_CONFIG_NOTIFY),
                                                .fields = kConfigUpdateNotifyFields,
                                                .notify = queued("_json_print_config_update_notify")};
