// Item types of media players: requests and events.
#include <algorithm>

#include "tv_ctrl_api/item_types.h"
#include "tv_ctrl_api/items/text_address.h"
#include "tv_ctrl_util/log.h"

// --- Requests ---

static constexpr FieldUse kRequest = kQuery | kSet;

static constexpr char kOperatorWords[] =
#define TVC_OPERATOR(symbol, number, word, call) #number "=" word "\0"
#include "vex_tv_ctrl/playback.def"
    ;

#define INIT(json_key, member, ...) \
  { .key = json_key, TVC_MEMBER(T_CBROWSER_PB, u.t_cbrowser_pb_init_info.member), .use = kRequest, __VA_ARGS__ }

static constexpr Field kInitFields[] = {
    INIT("bMode", bMode, .help = "first mode, in the player's numbers"),
    INIT("oMode", oMode, .help = "second mode, in the player's numbers"),
    INIT("pvTag", pvTag, .help = "comes with the player's events; without it the plugin chooses one"),
    INIT("info", sInfo, .help = "information for the player, in its numbers"),
    INIT("profile", sprofile, .help = "profile of the stream"),
    INIT("protocal", sprotocal, .help = "protocol of the stream"),
    INIT("mediaPath", smediaPath, .help = "path or address to play"),
};

// The members of each operator, and of none.
static constexpr Field kOperatorFields[] = {
    {.key = "pvTag",
     TVC_MEMBER(T_CBROWSER_PB, u.t_cbrowser_pb_init_info.pvTag),
     .use = kResponse,
     .help = "tag of the player's events"},
#define INFO(kind, member) kind(T_CBROWSER_PB, u.t_cbrowser_pb_oper_info.member)
#define TVC_READS(symbol, json_key, member, ...) \
  {.key = json_key, INFO(TVC_MEMBER, member), .use = kRequest, __VA_ARGS__},
#define TVC_READS_NAME(symbol, json_key, member, ...) \
  {.key = json_key, INFO(TVC_NAMED, member), .use = kRequest, __VA_ARGS__},
#define TVC_ANSWERS(symbol, json_key, member, ...) \
  {.key = json_key, INFO(TVC_MEMBER, member), .use = kResponse, __VA_ARGS__},
#include "vex_tv_ctrl/playback.def"
#undef INFO
};

// The operator of each row above.
static constexpr UINT16 kOperatorOfRow[] = {
    0,
#define TVC_READS(symbol, key, member, ...) CBROWSER_PB_OPERATOR_##symbol,
#define TVC_READS_NAME(symbol, key, member, ...) CBROWSER_PB_OPERATOR_##symbol,
#define TVC_ANSWERS(symbol, key, member, ...) CBROWSER_PB_OPERATOR_##symbol,
#include "vex_tv_ctrl/playback.def"
};

static constexpr auto kOperatorCases = tvc_field_cases<kOperatorOfRow>();

static constexpr FieldChoice kOperatorChoice = {.selector = TVC_PLACE(T_CBROWSER_PB, pb_operator),
                                                .key = "operator",
                                                .values = kOperatorWords,
                                                .cases = kOperatorCases};

static constexpr Field kPlaybackFields[] = {
    {.key = "NAME", .use = kResponse, .text = "Content Browser Playback", .help = "display name"},
    {.key = "handle", TVC_MEMBER(T_CBROWSER_PB, pb_handle), .use = kRequest | kResponse, .help = "the player"},
    {.key = "operator",
     TVC_NAMED(T_CBROWSER_PB, pb_operator),
     .use = kRequest,
     .values = kOperatorWords,
     .help = "what the player does, or is asked for; without it a player is created"},
    {.kind = FieldKind::kMembers, .use = kRequest, .fields = kInitFields, .unless = "operator"},
    {.kind = FieldKind::kMembers, .use = kRequest | kResponse, .fields = kOperatorFields, .choice = &kOperatorChoice},
};

static bool has_answer(INT32 number) {
  const auto row =
      std::ranges::find_if(kOperatorCases, [number](const FieldCase& row) { return row.number == number; });
  return row != kOperatorCases.end() && (kOperatorFields[row->first + row->count - 1].use & kResponse);
}

// Logs an operator that has nothing to answer. There is a response all the same.
static bool log_without_answer(const void* record) {
  const INT32 number = static_cast<const T_CBROWSER_PB*>(record)->pb_operator;
  if (vex_tvc_debug_level() >= kLogValue && !has_answer(number))
    TVC_LOG_AS(kLogValue, "_json_print_cbrowser_playback_type", "pt_content->pb_operator = %d not handle!\n", number);
  return true;
}

constexpr ItemType item_CBROWSER_PB = {.type = TYPE_CBROWSER_PB,
                                       .record_size = sizeof(T_CBROWSER_PB),
                                       .allocated_size = sizeof(T_CBROWSER_PB),
                                       .decoder = "_unpack_json_cbrowser_playback",
                                       .error_word = "cbrowser playback",
                                       .renderer = "_json_print_cbrowser_playback_type",
                                       .fields = kPlaybackFields,
                                       .has_response = log_without_answer};

// --- Events ---

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
