// Item types of channels: their lists, favourites, satellites, and the choice of a channel.
#include "tv_ctrl_api/item_types.h"
#include "tv_ctrl_util/json_scalar.h"

// --- A channel ---

template <int... BroadcastTypes>
static bool broadcast_is(const void* record) {
  const int type = static_cast<const T_CHANNEL_INFO*>(record)->t_base_ch_info.brdcst_type;
  return ((type == BroadcastTypes) || ...);
}
static constexpr auto kAnalog = broadcast_is<SVL_BRDCST_TYPE_ANALOG>;
static constexpr auto kDvb = broadcast_is<SVL_BRDCST_TYPE_DVB>;
static constexpr auto kIsdb = broadcast_is<SVL_BRDCST_TYPE_ISDB>;
static constexpr auto kAtsc = broadcast_is<SVL_BRDCST_TYPE_UNKNOWN, SVL_BRDCST_TYPE_ATSC>;

#define CHANNEL(json_key, member, uses, ...) \
  { .key = json_key, TVC_MEMBER(T_CHANNEL_INFO, member), .use = uses, __VA_ARGS__ }

static constexpr FieldUse kRequest = kQuery | kSet;

static constexpr Field kChannelInfoFields[] = {
    CHANNEL("SVL_ID", t_ch_param.svl_id, kRequest, .help = "service list of the channel"),
    CHANNEL("CH_ID", t_ch_param.ch_id, kRequest, .help = "identifier of the channel"),
    CHANNEL("CATEGORY_MASK", t_ch_param.category_mask, kRequest, .help = "categories searched, bit mask"),
    CHANNEL("NW_MASK", t_ch_param.nw_mask, kRequest, .help = "network bits that count, bit mask"),
    CHANNEL("SATL_ID", t_ch_param.satl_id, kRequest, .help = "satellite list searched"),
    CHANNEL("SATL_REC_ID", t_ch_param.satl_rec_id, kRequest, .help = "satellite searched"),
    CHANNEL(
        "NW_VALUE", t_ch_param.nw_value, kRequest, .missing = TVC_PLACE(T_CHANNEL_INFO, t_ch_param.is_nw_value_empty),
        .help = "what the network bits of NW_MASK are to be; without it a search ignores satellites and categories"),
    CHANNEL(
        "DIRECTION", t_ch_param.direction, kRequest,
        .help =
            "0: the current channel, positive: the next one, negative: the one before; with NW_VALUE a direction in "
            "the platform's numbers"),
    CHANNEL("CH_SEARCH_IDX", t_ch_param.index, kRequest, .help = "index in the list, from 0"),
    CHANNEL("IDX_FROM", t_ch_param.index_from, kRequest, .help = "index of what is moved"),
    CHANNEL("IDX_TO", t_ch_param.index_to, kRequest, .help = "index where it is put"),
    CHANNEL("FAV_IDX", t_ch_param.fav_index, kRequest, .values = "0..255\0", .help = "number of the favourite list"),
    CHANNEL("CH_FROM", t_ch_param.ch_id_from, kRequest, .help = "first channel of a swap"),
    CHANNEL("CH_TO", t_ch_param.ch_id_to, kRequest, .help = "second channel of a swap"),
    CHANNEL("CH_FREQ", t_ch_param.ch_freq, kRequest, .help = "frequency of an analogue channel"),
    CHANNEL("MAJOR", t_ch_param.major, kRequest, .help = "major channel number searched"),
    CHANNEL("CH_EDIT_NUMBER", t_ch_param.ch_edit_number, kRequest,
            .found = TVC_PLACE(T_CHANNEL_INFO, t_ch_param.is_edit_ch_number), .help = "new number of the channel"),
    CHANNEL("CH_EDIT_NAME", t_ch_param.ch_edit_name, kRequest,
            .found = TVC_PLACE(T_CHANNEL_INFO, t_ch_param.is_edit_ch_name), .help = "new name of the channel"),
    CHANNEL("SEARCH_NAME", t_ch_param.ch_edit_name, kRequest,
            .found = TVC_PLACE(T_CHANNEL_INFO, t_ch_param.is_edit_ch_name), .unless = "CH_EDIT_NAME",
            .help = "name searched, where CH_EDIT_NAME does not give one"),
    TVC_HEADER_FIELDS(T_CHANNEL_INFO, "CHANNEL_INFO"),
    CHANNEL("BRDCST_TYPE", t_base_ch_info.brdcst_type, kResponse,
            .values = "0=unknown\0"
                      "1=analogue\0"
                      "2=DVB\0"
                      "3=ATSC\0"
                      "5=ISDB\0",
            .help = "broadcast system"),
    CHANNEL("SERVICE_TYPE", t_base_ch_info.service_type, kResponse, .help = "kind of service"),
    CHANNEL("BRDCST_MEDIUM", t_base_ch_info.brdcst_medium, kResponse,
            .values = "0=not known\0"
                      "1=digital terrestrial\0"
                      "2=digital cable\0"
                      "3=digital satellite\0"
                      "4=analogue terrestrial\0"
                      "5=analogue cable\0"
                      "6=analogue satellite\0",
            .help = "what carries the channel"),
    CHANNEL("SVL_ID", t_base_ch_info.svl_id, kResponse, .help = "service list of the channel"),
    CHANNEL("SVL_REC_ID", t_base_ch_info.svl_rec_id, kResponse, .help = "record of the channel in its list"),
    CHANNEL("CHANNEL_ID", t_base_ch_info.channel_id, kResponse, .help = "identifier of the channel"),
    CHANNEL("NW_MASK", t_base_ch_info.nw_mask, kResponse, .help = "network bits, bit mask"),
    CHANNEL("INDEX", t_ch_param.index, kResponse, .help = "index in the list, from 0"),
    CHANNEL("CH_TOTAL_NUM", t_ch_param.ch_num, kResponse, .help = "channels counted"),
    CHANNEL("FREQUENCY", t_base_ch_info.frequency, kResponse, .help = "frequency; 0: not told"),
    CHANNEL("SERVICE_NAME", t_base_ch_info.service_name, kResponse, .help = "name of the channel"),
    CHANNEL("CH_LOGO_ID", t_base_ch_info.ch_logo_id, kResponse, .help = "logo of the channel; 0: none"),
    CHANNEL("BARKER_MASK", t_dvb_ch_info.barker_mask, kResponse, .when = kDvb, .help = "1: a barker channel"),
    CHANNEL("CI_TUNE_SERVICE", t_dvb_ch_info.ci_tune_service, kResponse, .when = kDvb,
            .help = "1: tuned by a common interface module"),
    CHANNEL("CATEGORY_MASK", t_dvb_ch_info.category_mask, kResponse, .when = kDvb, .help = "categories, bit mask"),
    CHANNEL("MAJOR_NUM", t_dvb_ch_info.major_num, kResponse, .when = kDvb, .help = "channel number"),
    CHANNEL("MINOR_NUM", t_dvb_ch_info.minor_num, kResponse, .when = kDvb, .help = "minor channel number"),
    CHANNEL("SHORT_NAME", t_dvb_ch_info.short_name, kResponse, .when = kDvb, .help = "short name of the channel"),
    CHANNEL("HBBTV_OFF", t_dvb_ch_info.b_hbbtv_off, kResponse, .when = kDvb, .help = "1: HbbTV is off here"),
    CHANNEL("MAJOR_NUM", t_analog_ch_info.major_num, kResponse, .when = kAnalog, .help = "channel number"),
    CHANNEL("MAJOR_NUM", t_isdb_ch_info.major_num, kResponse, .when = kIsdb, .help = "channel number"),
    CHANNEL("MINOR_NUM", t_isdb_ch_info.minor_num, kResponse, .when = kIsdb, .help = "minor channel number"),
    CHANNEL("MAJOR_NUM", t_atsc_ch_info.major_num, kResponse, .when = kAtsc, .help = "channel number"),
    CHANNEL("MINOR_NUM", t_atsc_ch_info.minor_num, kResponse, .when = kAtsc, .help = "minor channel number"),
};

constexpr ItemType item_CHANNEL_INFO = {.type = TYPE_CHANNEL_INFO,
                                        .record_size = sizeof(T_CHANNEL_INFO),
                                        .allocated_size = sizeof(T_CHANNEL_INFO),
                                        .error_word = "channel",
                                        .renderer = "_json_print_ch_info_type",
                                        .fields = kChannelInfoFields};

// --- The choice of a channel ---

static bool decode_flag(const cJSON* parameter, const Field& field, void* record, const char*) {
  UINT16 number = 0;
  if (_unpackage_json_ushort(parameter, field.key.data(), &number) != VEXTVCTRLR_OK) return false;
  field_at<UINT8>(record, field) = number != 0;
  return true;
}

static constexpr Field kChannelSelectFields[] = {
    {.key = "SVL_ID", TVC_MEMBER(T_CHANNEL_SELECT, ui2_svl_id), .use = kSet, .help = "service list of the channel"},
    {.key = "SVL_REC_ID",
     TVC_MEMBER(T_CHANNEL_SELECT, ui2_svl_rec_id),
     .use = kSet,
     .help = "record of the channel in its list"},
    {.key = "CHANNEL_ID",
     TVC_MEMBER(T_CHANNEL_SELECT, ui4_channel_id),
     .use = kSet,
     .help = "identifier of the channel"},
    {.key = "CHECK_BARKER",
     TVC_MEMBER(T_CHANNEL_SELECT, b_check_barker_channel),
     .use = kSet,
     .decode = decode_flag,
     .help = "not 0: look for a barker channel first"},
};

constexpr ItemType item_CHANNEL_SELECT = {
    .type = TYPE_CHANNEL_SELECT,
    .record_size = sizeof(T_CHANNEL_SELECT),
    .allocated_size = sizeof(T_ACTIVE_WINDOW_TIME_NOTIFY),  // shared with the active window's time
    .error_word = "channel",
    .fields = kChannelSelectFields};
static_assert(sizeof(T_CHANNEL_SELECT) <= sizeof(T_ACTIVE_WINDOW_TIME_NOTIFY));

// --- Favourites ---

#define FAVOURITE(json_key, member, uses, ...) \
  { .key = json_key, TVC_MEMBER(T_FAV_CHANNEL_INFO, member), .use = uses, __VA_ARGS__ }

static constexpr Field kFavChannelInfoFields[] = {
    FAVOURITE("FAV_CH_SEARCH_IDX", t_fav_param.index, kRequest, .help = "index in the list, from 0"),
    FAVOURITE("CH_FROM", t_fav_param.fav_index_from, kRequest, .help = "index of what is moved"),
    FAVOURITE("CH_TO", t_fav_param.fav_index_to, kRequest, .help = "index where it is put"),
    TVC_HEADER_FIELDS(T_FAV_CHANNEL_INFO, "TYPE_FAV_CHANNEL_INFO"),
    FAVOURITE("INDEX", t_fav_param.index, kResponse, .help = "index in the list, from 0"),
    FAVOURITE("BRDCST_TYPE", brdcst_type, kResponse, .help = "broadcast system"),
    FAVOURITE("SERVICE_TYPE", service_type, kResponse, .help = "kind of service"),
    FAVOURITE("SVL_ID", svl_id, kResponse, .help = "service list of the channel"),
    FAVOURITE("SVL_REC_ID", svl_rec_id, kResponse, .help = "record of the channel in its list"),
    FAVOURITE("NW_MASK", nw_mask, kResponse, .help = "network bits, bit mask"),
    FAVOURITE("CHANNEL_ID", channel_id, kResponse, .help = "identifier of the channel"),
    FAVOURITE("CHANNEL_NUM", channel_num, kResponse, .help = "channel number"),
    FAVOURITE("CHANNEL_NAME", channel_name, kResponse, .help = "name of the channel"),
    FAVOURITE("SHORT_NAME", short_name, kResponse, .help = "short name of the channel"),
};

constexpr ItemType item_FAV_CHANNEL_INFO = {.type = TYPE_FAV_CHANNEL_INFO,
                                            .record_size = sizeof(T_FAV_CHANNEL_INFO),
                                            .allocated_size = sizeof(T_FAV_CHANNEL_INFO),
                                            .error_word = "fav channel",
                                            .renderer = "_json_print_fav_ch_info_type",
                                            .fields = kFavChannelInfoFields};

// --- Satellites ---

#define SATELLITE(json_key, member, uses, ...) \
  { .key = json_key, TVC_MEMBER(T_SATL_INFO, member), .use = uses, __VA_ARGS__ }

static constexpr Field kSatlInfoFields[] = {
    SATELLITE("CH_TOTAL_NUM", t_satl_param.num, kResponse, .help = "satellites counted"),
    SATELLITE("INDEX", t_satl_param.index, kQuery | kResponse, .help = "index in the list, from 0"),
    SATELLITE("SATL_ID", t_satl_param.satl_id, kQuery | kResponse, .help = "satellite list"),
    SATELLITE("SATL_REC_ID", t_satl_rec.ui2_satl_rec_id, kResponse, .help = "record of the satellite in its list"),
    SATELLITE("MASK", t_satl_rec.ui4_mask, kResponse, .help = "mask of the satellite, in the platform's bits"),
    SATELLITE("ORB_POS", t_satl_rec.i2_orb_pos, kResponse, .unit = "0.1 degree",
              .help = "orbital position, east is positive"),
    SATELLITE("SATL_NAME", t_satl_rec.ac_sat_name, kResponse, .help = "name of the satellite"),
    SATELLITE("LNB_CFG", t_satl_rec.ac_lnb_config, kResponse, .help = "configuration of the LNB"),
};

constexpr ItemType item_SATL_INFO = {.type = TYPE_SATL_INFO,
                                     .record_size = sizeof(T_SATL_INFO),
                                     .allocated_size = sizeof(T_SATL_INFO),
                                     .error_word = "satellite",
                                     .renderer = "_json_print_satl_info_type",
                                     .fields = kSatlInfoFields};

// --- What a broadcaster sends about its lists ---

static constexpr Field kLolInfoFields[] = {
    {.key = "LOL_ID", TVC_MEMBER(T_LOL_INFO, ui2_lol_id), .use = kQuery | kRoot, .help = "the list; 0 means 1"},
    {.key = "LOL_REC_ID", TVC_MEMBER(T_LOL_INFO, ui2_lol_rec_id), .use = kRoot, .help = "record in the list"},
    {.key = "LOL_DATA_TAG",
     TVC_MEMBER(T_LOL_INFO, ui4_lol_data_tag),
     .use = kQuery | kRoot,
     .values = "11=categories\0",
     .help = "what the record holds"},
    {.key = "LOL_IDX", TVC_MEMBER(T_LOL_INFO, ui2_lol_idx), .use = kQuery, .help = "which record of its tag, from 0"},
};

static constexpr Field kCategoryFields[] = {
    {.key = "CATEGORY_NO", TVC_MEMBER(T_DVBS_TKGS_ONE_CATEGORY, ui2_category_no), .help = "number of the category"},
    {.key = "CATEGORY_NAME", TVC_MEMBER(T_DVBS_TKGS_ONE_CATEGORY, ac_category_name), .help = "name of the category"},
};

static constexpr ItemForm kLolForms[] = {
    {.when =
         [](const void* record) {
           return static_cast<const T_LOL_INFO*>(record)->ui4_lol_data_tag == LOL_DATA_TAG_TKGS_CATEGORIES;
         },
     .fields = kCategoryFields,
     .list = {.count = TVC_PLACE(T_LOL_INFO, t_category_list.ui2_category_num),
              TVC_ENTRIES(T_LOL_INFO, t_category_list.at_category_arr)}},
};

constexpr ItemType item_LOL_INFO = {.type = TYPE_LOL_INFO,
                                    .record_size = sizeof(T_LOL_INFO),
                                    .allocated_size = sizeof(T_LOL_INFO),
                                    .error_word = "lol",
                                    .renderer = "_json_print_lol_info_type",
                                    .fields = kLolInfoFields,
                                    .forms = kLolForms};
