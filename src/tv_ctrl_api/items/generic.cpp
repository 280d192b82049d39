// Item types of the generic records.
#include "tv_ctrl_api/item_types.h"

static constexpr Field kValueFields[] = {
    TVC_HEADER_FIELDS(T_VALUE, "TYPE_VALUE"),
    {.key = "MINIMUM", TVC_MEMBER(T_VALUE, min_value), .use = kResponse, .help = "smallest value"},
    {.key = "MAXIMUM",
     TVC_MEMBER(T_VALUE, max_value),
     .use = kResponse,
     .help = "largest value; both limits 0: unknown"},
    {.key = "INCREMENT", TVC_MEMBER(T_VALUE, increment), .use = kResponse, .help = "step"},
    {.key = "VALUE", TVC_MEMBER(T_VALUE, value), .use = kModify | kResponse | kNotify, .help = "value"},
};

constexpr ItemType item_VALUE = {.type = TYPE_VALUE,
                                 .record_size = sizeof(T_VALUE),
                                 .allocated_size = sizeof(T_VALUE),
                                 .renderer = "_json_print_value_type",
                                 .fields = kValueFields,
                                 .notify = kBaseTypeNotify};

static constexpr Field kIntegerFields[] = {
    TVC_HEADER_FIELDS(T_INTEGER, "TYPE_INTEGER"),
    {.key = "INDEX",
     TVC_MEMBER(T_INTEGER, value),
     .use = kQuery,
     .text = "value",
     .decode = tvc_decode_library_integer,
     .help = "index of the requested item"},
    {.key = "VALUE", TVC_MEMBER(T_INTEGER, value), .use = kModify | kResponse, .help = "value"},
};

constexpr ItemType item_INTEGER = {.type = TYPE_INTEGER,
                                   .record_size = sizeof(T_INTEGER),
                                   .allocated_size = sizeof(T_INTEGER),
                                   .renderer = "_json_print_integer_type",
                                   .fields = kIntegerFields};

static constexpr Field kTintFields[] = {
    TVC_HEADER_FIELDS(T_TINT, "TYPE_TINT"),
    {.key = "MINIMUM", TVC_MEMBER(T_TINT, min_value), .use = kResponse, .help = "smallest value"},
    {.key = "MAXIMUM", TVC_MEMBER(T_TINT, max_value), .use = kResponse, .help = "largest value"},
    {.key = "INCREMENT", TVC_MEMBER(T_TINT, increment), .use = kResponse, .help = "step"},
    {.key = "CENTER", TVC_MEMBER(T_TINT, center), .use = kResponse, .help = "neutral value"},
    {.key = "VALUE", TVC_MEMBER(T_TINT, value), .use = kModify | kResponse | kNotify, .help = "value"},
};

constexpr ItemType item_TINT = {.type = TYPE_TINT,
                                .record_size = sizeof(T_TINT),
                                .allocated_size = sizeof(T_TINT),
                                .renderer = "_json_print_tint_type",
                                .fields = kTintFields,
                                .notify = kBaseTypeNotify};

static constexpr Field kTextFields[] = {
    TVC_HEADER_FIELDS(T_TEXT, "TYPE_TEXT"),
    {.key = "TEXT", TVC_MEMBER(T_TEXT, value), .use = kResponse, .help = "text"},
    {.key = "VALUE", TVC_MEMBER(T_TEXT, value), .use = kQuery | kModify | kNotify, .help = "text"},
};

constexpr ItemType item_TEXT = {.type = TYPE_TEXT,
                                .record_size = sizeof(T_TEXT),
                                .allocated_size = sizeof(T_TEXT),
                                .renderer = "_json_print_text_type",
                                .fields = kTextFields,
                                .notify = kBaseTypeNotify};

// Rendered as bytes, up to the first zero byte, and with "TYPE_TEXT" as its type. Receivers rely on both.
static constexpr Field kText16Fields[] = {
    TVC_HEADER_FIELDS(T_TEXT_16, "TYPE_TEXT"),
    {.key = "TEXT", TVC_MEMBER(T_TEXT_16, value), .use = kResponse, .help = "first character of the text"},
    {.key = "VALUE", TVC_MEMBER(T_TEXT_16, value), .use = kNotify, .help = "first character of the text"},
};

constexpr ItemType item_TEXT_16 = {.type = TYPE_TEXT_16,
                                   .record_size = sizeof(T_TEXT_16),
                                   .renderer = "_json_print_text_16_type",
                                   .fields = kText16Fields,
                                   .notify = kBaseTypeNotify};

static constexpr Field kOptionListFields[] = {
    TVC_HEADER_FIELDS(T_OPTION_LIST, "TYPE_OPTION_LIST"),
    {.key = "OPTION", TVC_MEMBER(T_OPTION_LIST, element), .use = kResponse, .help = "option texts"},
    {.key = "INDEX",
     TVC_MEMBER(T_OPTION_LIST, value),
     .use = kSet,
     .text = "INDEX",
     .decode = tvc_decode_library_integer,
     .help = "index of the option, 0 or above"},
    {.key = "VALUE",
     TVC_MEMBER(T_OPTION_LIST, value),
     .use = kModify | kResponse | kNotify,
     .help = "index of the selected option"},
};

constexpr ItemType item_OPTION_LIST = {.type = TYPE_OPTION_LIST,
                                       .record_size = sizeof(T_OPTION_LIST),
                                       .allocated_size = sizeof(T_OPTION_LIST),
                                       .renderer = "_json_print_option_list_type",
                                       .fields = kOptionListFields,
                                       .notify = kBaseTypeNotify};

static constexpr Field kActionFields[] = {TVC_HEADER_FIELDS(T_ACTION, "TYPE_ACTION")};

constexpr ItemType item_ACTION = {.type = TYPE_ACTION,
                                  .record_size = sizeof(T_ACTION),
                                  .allocated_size = sizeof(T_ACTION),
                                  .renderer = "_json_print_action_type",
                                  .fields = kActionFields};

static constexpr Field kTimeDtgFields[] = {
    {.key = "YEAR", TVC_MEMBER(T_TIME_DTG, ui2_yr), .help = "year"},
    {.key = "MONTH", TVC_MEMBER(T_TIME_DTG, ui1_mo), .help = "month, 1 to 12"},
    {.key = "DAY", TVC_MEMBER(T_TIME_DTG, ui1_day), .help = "day of the month"},
    {.key = "WEEK", TVC_MEMBER(T_TIME_DTG, ui1_dow), .help = "day of the week"},
    {.key = "HOUR", TVC_MEMBER(T_TIME_DTG, ui1_hr), .help = "hour"},
    {.key = "MINUTE", TVC_MEMBER(T_TIME_DTG, ui1_min), .help = "minute"},
    {.key = "SECOND", TVC_MEMBER(T_TIME_DTG, ui1_sec), .help = "second"},
    {.key = "GMT", TVC_MEMBER(T_TIME_DTG, b_gmt), .help = "1: the time is UTC"},
    {.key = "DST", TVC_MEMBER(T_TIME_DTG, b_dst), .help = "1: daylight saving time"},
};

static constexpr Field kTimeFields[] = {
    TVC_HEADER_FIELDS(T_TIME, "TYPE_TIME"),
    {.key = "VALUE",
     TVC_MEMBER(T_TIME, value),
     .use = kQuery | kModify | kResponse,
     .help = "time, in seconds, or in milliseconds where the item's name says so"},
    {.key = "DTG",
     TVC_MEMBER(T_TIME, dtg),
     .use = kQuery | kResponse,
     .fields = kTimeDtgFields,
     .help = "the same as date and time"},
};

constexpr ItemType item_TIME = {.type = TYPE_TIME,
                                .record_size = sizeof(T_TIME),
                                .allocated_size = sizeof(T_TIME),
                                .error_word = "time",
                                .renderer = "_json_print_time_type",
                                .fields = kTimeFields};

static constexpr Field kBannerItemFields[] = {
    {.key = "VALUE",
     TVC_MEMBER(T_BANNER_ITEM, item_id),
     .use = kQuery,
     .text = "item_id",
     .decode = tvc_decode_library_integer,
     .help = "banner item"},
};

constexpr ItemType item_BANNER_ITEM = {.type = TYPE_BANNER_ITEM,
                                       .record_size = sizeof(T_BANNER_ITEM),
                                       .allocated_size = sizeof(T_BANNER_ITEM),
                                       .fields = kBannerItemFields};
