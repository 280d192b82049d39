// Item types of the programme guide.
#include "tv_ctrl_api/item_types.h"
#include "tv_ctrl_util/log.h"

// --- Events ---

static constexpr UINT16 event_uri(int record) { return tvc_id(TV_CTRL_GRPID_EVENT, record); }
static constexpr UINT16 kQueryParameterUri = event_uri(TV_CTRL_RECID_SET_QUERY_PARAMETER);
static constexpr UINT16 kFilterUri = event_uri(TV_CTRL_RECID_CHANNEL_EVENT_NUM_BY_FILTER);
static constexpr UINT16 kRangeUri = event_uri(TV_CTRL_RECID_CHANNEL_WITH_EVENT_IDS);

static const T_CHANNEL_EVENTS& events_of(const void* record) { return *static_cast<const T_CHANNEL_EVENTS*>(record); }

static constexpr FieldUse kRequest = kQuery | kSet;

#define EVENTS(json_key, member, ...) \
  { .key = json_key, TVC_MEMBER(T_CHANNEL_EVENTS, member), __VA_ARGS__ }

static constexpr Field kEventInfoFields[] = {
    EVENTS("CH_ID", channel_id, .use = kRequest, .help = "identifier of the channel"),
    EVENTS("EVENT_ID", event_info[0].event_id, .use = kRequest, .found = TVC_PLACE(T_CHANNEL_EVENTS, event_num),
           .help = "identifier of the event"),
    EVENTS("WINDOW_ID", query_param.e_tv_win_id, .use = kRequest, .uri = kQueryParameterUri,
           .help = "main or sub picture, in the platform's numbers"),
    EVENTS("AT_LEAST_SECS", query_param.ui4_at_least_secs, .use = kRequest, .uri = kQueryParameterUri, .unit = "s",
           .help = "shorter events are left out"),
    EVENTS("FAKE_EMPTY_EVENT_AT_LEAST_SECS", query_param.ui4_fake_empty_event_at_least_secs, .use = kRequest,
           .uri = kQueryParameterUri, .unit = "s", .help = "shorter gaps become no events"),
    EVENTS("AUTO_FILLIN_FAKE_EMPTY_EVENT", query_param.b_auto_fillin_fake_empty_event, .use = kRequest,
           .uri = kQueryParameterUri, .values = "0..255\0", .help = "1: gaps become events without a title"),
    EVENTS("SKIP_SIGNAL_CHECK_WHEN_RETRIEVING_DATA", query_param.b_skip_signal_check_when_retrieving_data,
           .use = kRequest, .uri = kQueryParameterUri, .values = "0..255\0", .help = "1: also without a signal"),
    EVENTS("ALLOW_CONFLICT_EVENT_WHEN_QUERY", query_param.b_allow_conflict_event_when_query, .use = kRequest,
           .uri = kQueryParameterUri, .values = "0..255\0", .help = "1: with events that overlap others"),
    EVENTS("ALLOW_PARTIAL_OVERLAP_EVENT", query_param.b_allow_partial_overlap_event, .use = kRequest,
           .uri = kQueryParameterUri, .values = "0..255\0", .help = "1: with events that lie partly in the range"),
    EVENTS("FILTER_TYPE", filter_type, .use = kRequest, .uri = kFilterUri,
           .help = "not 0: the response is lists of identifiers"),
    EVENTS("SVL_ID", filter_info.ui2_svl_id, .use = kRequest, .uri = kFilterUri, .help = "service list searched"),
    EVENTS("CH_ID", filter_info.ui4_channel_id, .use = kRequest, .uri = kFilterUri, .help = "channel searched"),
    EVENTS("START_TIME", filter_info.start_time, .use = kRequest, .uri = kFilterUri, .unit = "s since 1970",
           .help = "earliest beginning"),
    EVENTS("END_TIME", filter_info.end_time, .use = kRequest, .uri = kFilterUri, .unit = "s since 1970",
           .help = "latest end"),
    EVENTS("DURATION", filter_info.duration_time, .use = kRequest, .uri = kFilterUri, .unit = "s",
           .help = "length of the events"),
    EVENTS("CAPTION", filter_info.b_caption, .use = kRequest, .uri = kFilterUri, .help = "1: with captions"),
    EVENTS("CATEGORY_NUM", filter_info.eventCategoryNum, .use = kRequest, .uri = kFilterUri,
           .help = "how many categories CATEGORY gives"),
    EVENTS("CATEGORY", filter_info.eventCategory, .use = kRequest, .sets_count = true, .uri = kFilterUri,
           .count = TVC_PLACE(T_CHANNEL_EVENTS, filter_info.eventCategoryNum), .help = "categories searched"),
    EVENTS("RATING_TYPE", filter_info.ui1_rating_type, .use = kRequest, .uri = kFilterUri,
           .help = "rating searched, in the platform's numbers"),
    EVENTS("START_TIME", filter_info.start_time, .use = kRequest, .uri = kRangeUri, .unit = "s since 1970",
           .help = "beginning of the range"),
    EVENTS("DURATION", filter_info.duration_time, .use = kRequest, .uri = kRangeUri, .unit = "s",
           .help = "length of the range"),
};

static constexpr Field kExtendedFields[] = {
    EVENTS("CHANNEL_ID", channel_id, .help = "identifier of the channel"),
    EVENTS("EVENT_ID", event_info[0].event_id, .help = "identifier of the event"),
    EVENTS("DETAIL_EXTEND", event_info[0].event_detail_extend, .text = "", .help = "extended description"),
};

static constexpr Field kIdentifierFields[] = {
    EVENTS("EVENT_NUM", event_num, .help = "events found"),
    {.key = "EVENT_ID",
     TVC_NUMBERS_16(T_CHANNEL_EVENTS, event_id_list),
     .count = TVC_PLACE(T_CHANNEL_EVENTS, event_num),
     .help = "their identifiers"},
    EVENTS("CH_ID", channel_id_list, .count = TVC_PLACE(T_CHANNEL_EVENTS, event_num), .help = "their channels"),
};

static constexpr Field kEventFields[] = {
    EVENTS("CHANNEL_ID", event_info[0].channel_id, .help = "identifier of the channel"),
    EVENTS("EVENT_ID", event_info[0].event_id, .help = "identifier of the event"),
    EVENTS("EVENT_NAME", event_info[0].event_title, .help = "title"),
    EVENTS("FREE_CA_MODE", event_info[0].free_ca_mode, .help = "1: scrambled"),
    EVENTS("CATEGORY_NUM", event_info[0].event_category_num, .help = "how many categories there are"),
    EVENTS(
        "CATEGORY", event_info[0].event_category,
        .count = TVC_PLACE(T_CHANNEL_EVENTS, event_info[0].event_category_num),
        .when = [](const void* record) { return events_of(record).event_info[0].event_category_num > 0; },
        .help = "categories"),
    EVENTS("DETAILS", event_info[0].event_detail, .text = "", .help = "description"),
    EVENTS("RATING", event_info[0].event_rating, .help = "rating"),
    EVENTS("START_TIME", event_info[0].start_time, .unit = "s since 1970", .help = "beginning"),
    EVENTS("DURATION", event_info[0].duration_time, .unit = "s", .help = "length"),
    EVENTS("GUIDANCE_MODE", event_info[0].guidanceMode, .help = "kind of guidance"),
    EVENTS("GUIDANCE_TEXT", event_info[0].guidanceText, .text = "", .help = "guidance for parents"),
};

static constexpr Field kListedEventFields[] = {
    {.key = "EVENT_ID", TVC_MEMBER(T_EVENT_ITEM, event_id), .help = "identifier of the event"},
    {.key = "EVENT_NAME", TVC_MEMBER(T_EVENT_ITEM, event_title), .help = "title"},
    {.key = "START_TIME", TVC_MEMBER(T_EVENT_ITEM, start_time), .unit = "s since 1970", .help = "beginning"},
    {.key = "DURATION", TVC_MEMBER(T_EVENT_ITEM, duration_time), .unit = "s", .help = "length"},
};

static constexpr ItemForm kEventForms[] = {
    {.when = [](const void* record) -> bool { return events_of(record).event_info[0].event_detail_extend; },
     .fields = kExtendedFields},
    {.when = [](const void* record) { return events_of(record).filter_type != 0; }, .fields = kIdentifierFields},
    {.when = [](const void* record) { return events_of(record).event_num == 1; }, .fields = kEventFields},
    {.fields = kListedEventFields,
     .list = {.count = TVC_PLACE(T_CHANNEL_EVENTS, event_num), TVC_ENTRIES(T_CHANNEL_EVENTS, event_info)}},
};

static bool has_events(const void* record) {
  if (events_of(record).event_num != 0) return true;
  TVC_LOG_AS(kLogTrace, "_json_print_event_info_type", "[WARNING] channel event num is 0!!!\n");
  return false;
}

constexpr ItemType item_EVENT_INFO = {.type = TYPE_EVENT_INFO,
                                      .record_size = sizeof(T_CHANNEL_EVENTS),
                                      .allocated_size = sizeof(T_CHANNEL_EVENTS),
                                      .decoder = "_unpack_json_event_info",
                                      .error_word = "event",
                                      .renderer = "_json_print_event_info_type",
                                      .fields = kEventInfoFields,
                                      .forms = kEventForms,
                                      .has_response = has_events};

// --- The active window ---

static constexpr Field kActiveWindowFields[] = {
    {.key = "START_TIME",
     TVC_MEMBER(T_ACTIVE_WINDOW_INFO, start_time),
     .use = kSet,
     .unit = "s since 1970",
     .help = "beginning of the window"},
    {.key = "CHANNEL_NUM",
     TVC_MEMBER(T_ACTIVE_WINDOW_INFO, channel_num),
     .use = kSet,
     .help = "channels given in CHANNEL_ID, of which the first 7 count"},
    {.key = "CHANNEL_ID",
     TVC_MEMBER(T_ACTIVE_WINDOW_INFO, channel_id),
     .use = kSet,
     .count = TVC_PLACE(T_ACTIVE_WINDOW_INFO, channel_num),
     .text = "channel_id",
     .help = "channels of the window"},
};

constexpr ItemType item_ACTIVE_WINDOW_INFO = {.type = TYPE_ACTIVE_WINDOW_INFO,
                                              .record_size = sizeof(T_ACTIVE_WINDOW_INFO),
                                              .allocated_size = sizeof(T_ACTIVE_WINDOW_INFO),
                                              .decoder = "_unpack_json_active_window_info",
                                              .error_word = "window info",
                                              .fields = kActiveWindowFields};

// --- Updates of the guide ---

template <PpgUpdateOp_T Operation>
static bool operation_is(const void* record) {
  return static_cast<const PpgUpdateGuide_T*>(record)->e_op == Operation;
}

static constexpr Field kUpdateEpgFields[] = {
    {.key = "operation",
     TVC_MEMBER(PpgUpdateGuide_T, e_op),
     .use = kQuery | kSet | kResponse,
     .values = "0=nothing\0"
               "1=start the update\0"
               "2=stop the update\0"
               "3=ask for its state\0"
               "4=ask for the number of channels\0",
     .help = "what is done, or asked for"},
    {.key = "updateState",
     TVC_MEMBER(PpgUpdateGuide_T, u_retval.ui2_update_state),
     .use = kResponse,
     .when = operation_is<PpgOp_UpdateGetState>,
     .help = "state of the update, in the platform's numbers"},
    {.key = "channelNum",
     TVC_MEMBER(PpgUpdateGuide_T, u_retval.ui2_ch_num),
     .use = kResponse,
     .when = operation_is<PpgOp_UpdateGetChNum>,
     .help = "channels of the update"},
};

constexpr ItemType item_UPDATE_EPG = {.type = TYPE_UPDATE_EPG,
                                      .also_set_as = TYPE_EVENT_INFO,
                                      .record_size = sizeof(PpgUpdateGuide_T),
                                      .allocated_size = sizeof(PpgUpdateGuide_T),
                                      .error_word = "update epg",
                                      .renderer = "_json_print_update_epg",
                                      .fields = kUpdateEpgFields};
