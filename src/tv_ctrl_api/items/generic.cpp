// Field tables of the generic records.
#include "tv_ctrl_api/item_types.h"

static constexpr Field value_table[] = {
    TVC_HEADER_FIELDS(T_VALUE, "TYPE_VALUE"),
    {.key = "MINIMUM", TVC_MEMBER(T_VALUE, min_value), .use = kResponse, .help = "smallest value"},
    {.key = "MAXIMUM", TVC_MEMBER(T_VALUE, max_value), .use = kResponse, .help = "largest value; 0 and 0: not told"},
    {.key = "INCREMENT", TVC_MEMBER(T_VALUE, increment), .use = kResponse, .help = "step"},
    {.key = "VALUE", TVC_MEMBER(T_VALUE, value), .use = kModify | kResponse | kNotify, .help = "value"},
};
constinit const std::span<const Field> value_fields = value_table;

static constexpr Field integer_table[] = {
    TVC_HEADER_FIELDS(T_INTEGER, "TYPE_INTEGER"),
    {.key = "INDEX",
     TVC_MEMBER(T_INTEGER, value),
     .use = kQuery,
     .text = "value",
     .decode = tvc_decode_library_integer,
     .help = "index of what is asked for"},
    {.key = "VALUE", TVC_MEMBER(T_INTEGER, value), .use = kModify | kResponse, .help = "value"},
};
constinit const std::span<const Field> integer_fields = integer_table;

static constexpr Field tint_table[] = {
    TVC_HEADER_FIELDS(T_TINT, "TYPE_TINT"),
    {.key = "MINIMUM", TVC_MEMBER(T_TINT, min_value), .use = kResponse, .help = "smallest value"},
    {.key = "MAXIMUM", TVC_MEMBER(T_TINT, max_value), .use = kResponse, .help = "largest value"},
    {.key = "INCREMENT", TVC_MEMBER(T_TINT, increment), .use = kResponse, .help = "step"},
    {.key = "CENTER", TVC_MEMBER(T_TINT, center), .use = kResponse, .help = "neutral value"},
    {.key = "VALUE", TVC_MEMBER(T_TINT, value), .use = kModify | kResponse | kNotify, .help = "value"},
};
constinit const std::span<const Field> tint_fields = tint_table;

static constexpr Field text_table[] = {
    TVC_HEADER_FIELDS(T_TEXT, "TYPE_TEXT"),
    {.key = "TEXT", TVC_MEMBER(T_TEXT, value), .use = kResponse, .help = "text"},
    {.key = "VALUE", TVC_MEMBER(T_TEXT, value), .use = kQuery | kModify | kNotify, .help = "text"},
};
constinit const std::span<const Field> text_fields = text_table;

// Rendered as bytes up to the first zero byte, and under the type of plain text; receivers rely on both.
static constexpr Field text_16_table[] = {
    TVC_HEADER_FIELDS(T_TEXT_16, "TYPE_TEXT"),
    {.key = "TEXT", TVC_MEMBER(T_TEXT_16, value), .use = kResponse, .help = "text, its first character"},
    {.key = "VALUE", TVC_MEMBER(T_TEXT_16, value), .use = kNotify, .help = "text, its first character"},
};
constinit const std::span<const Field> text_16_fields = text_16_table;

static constexpr Field option_list_table[] = {
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
constinit const std::span<const Field> option_list_fields = option_list_table;

static constexpr Field action_table[] = {TVC_HEADER_FIELDS(T_ACTION, "TYPE_ACTION")};
constinit const std::span<const Field> action_fields = action_table;

static constexpr Field time_dtg_table[] = {
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

static constexpr Field time_table[] = {
    TVC_HEADER_FIELDS(T_TIME, "TYPE_TIME"),
    {.key = "VALUE",
     TVC_MEMBER(T_TIME, value),
     .use = kQuery | kModify | kResponse,
     .help = "time, in seconds, or in milliseconds where the item's name says so"},
    {.key = "DTG",
     TVC_MEMBER(T_TIME, dtg),
     .use = kQuery | kResponse,
     .fields = time_dtg_table,
     .help = "the same as date and time"},
};
constinit const std::span<const Field> time_fields = time_table;

static constexpr Field banner_item_table[] = {
    {.key = "VALUE",
     TVC_MEMBER(T_BANNER_ITEM, item_id),
     .use = kQuery,
     .text = "item_id",
     .decode = tvc_decode_library_integer,
     .help = "banner item"},
};
constinit const std::span<const Field> banner_item_fields = banner_item_table;
