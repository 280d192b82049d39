// Item types of channel scan.
#include "tv_ctrl_api/item_types.h"

// Only the block of the record's own broadcast system is rendered.
template <int... Types>
static bool scan_is(const void* record) {
  const int type = static_cast<const T_TUNER_SCAN*>(record)->scan_type;
  return ((type == Types) || ...);
}
static constexpr auto kPal = scan_is<0>;
static constexpr auto kDvbt = scan_is<1>;
static constexpr auto kDvbc = scan_is<2>;
static constexpr auto kNtsc = scan_is<3>;
static constexpr auto kAtsc = scan_is<4, 6, 10>;
static constexpr auto kIsdb = scan_is<5, 11>;

#define SCAN(json_key, member, uses, ...) \
  { .key = json_key, TVC_MEMBER(T_TUNER_SCAN, member), .use = uses, __VA_ARGS__ }

static constexpr Field kTunerScanFields[] = {
    {.key = "NAME", .use = kResponse, .text = "Tuner Scan", .help = "display name"},
    {.key = "TYPE", .use = kResponse, .text = "TYPE_TUNER_SCAN", .help = "item type"},
    SCAN("GROUP", group, kResponse, .help = "group number"),
    SCAN("STATE", state, kResponse, .help = "1: available"),
    SCAN("SCAN_TYPE", scan_type, kSet | kResponse,
         .values = "0=PAL/SECAM\0"
                   "1=DVB-T\0"
                   "2=DVB-C\0"
                   "3=NTSC\0"
                   "4=ATSC\0"
                   "5=ISDB\0"
                   "6=ATSC\0"
                   "10=ATSC\0"
                   "11=ISDB\0",
         .help = "broadcast system that is scanned"),
    SCAN("SCAN_MODE", scan_mode, kSet | kResponse, .help = "mode of scanning, in the platform's numbers"),
    SCAN("SCAN_DEFAULT_SETTING", scan_default_setting, kSet | kResponse, .help = "1: with default settings"),
    SCAN("SCAN_SKIP_FAKE", skip_fake, kSet | kResponse, .help = "1: skip fake channels"),
    SCAN("ATSC_FIRST_SCAN_IDX", atsc_scan_data.first_scan_index, kSet | kResponse, .when = kAtsc,
         .help = "ATSC: first index scanned"),
    SCAN("ATSC_LAST_SCAN_IDX", atsc_scan_data.last_scan_index, kSet | kResponse, .when = kAtsc,
         .help = "ATSC: last index scanned"),
    SCAN("ATSC_MOD_MASK", atsc_scan_data.mod_mask, kSet | kResponse, .when = kAtsc,
         .help = "ATSC: modulations, bit mask"),
    SCAN("ATSC_FREQ_PLAN", atsc_scan_data.freq_plan, kSet | kResponse, .when = kAtsc,
         .help = "ATSC: plan of frequencies, in the platform's numbers"),
    SCAN("ISDB_FIRST_SCAN_IDX", isdb_scan_data.first_scan_index, kSet | kResponse, .when = kIsdb,
         .help = "ISDB: first index scanned"),
    SCAN("ISDB_LAST_SCAN_IDX", isdb_scan_data.last_scan_index, kSet | kResponse, .when = kIsdb,
         .help = "ISDB: last index scanned"),
    SCAN("ISDB_CFG_FLAG", isdb_scan_data.config_flag, kSet | kResponse, .when = kIsdb,
         .help = "ISDB: options of the scan, bit mask"),
    SCAN("NTSC_FIRST_SCAN_IDX", ntsc_scan_data.first_scan_index, kSet | kResponse, .when = kNtsc,
         .help = "NTSC: first index scanned"),
    SCAN("NTSC_LAST_SCAN_IDX", ntsc_scan_data.last_scan_index, kSet | kResponse, .when = kNtsc,
         .help = "NTSC: last index scanned"),
    SCAN("DVBT_FIRST_SCAN_IDX", dvbt_scan_data.first_scan_index, kSet, .help = "DVB-T: first index scanned"),
    SCAN("DVBT_LAST_SCAN_IDX", dvbt_scan_data.last_scan_index, kSet, .help = "DVB-T: last index scanned"),
    SCAN("DVBT_MANUAL_FREQ", dvbt_scan_data.freq, kSet, .help = "DVB-T: frequency of a manual scan"),
    SCAN("DVBT_SCAN_IDX", dvbt_scan_data.scan_index, kResponse, .when = kDvbt, .help = "DVB-T: index of the channel"),
    SCAN("DVBT_FREQ", dvbt_scan_data.freq, kResponse, .when = kDvbt, .help = "DVB-T: frequency of the channel"),
    SCAN("DVBT_BANDWIDTH", dvbt_scan_data.bandwidth, kResponse, .when = kDvbt,
         .help = "DVB-T: bandwidth of the channel"),
    SCAN("DVBT_CHANNEL_NAME", dvbt_scan_data.channel_name, kResponse, .when = kDvbt,
         .help = "DVB-T: name of the channel"),
    SCAN("DVBC_NW_ID", dvbc_scan_data.network_id, kSet | kResponse, .when = kDvbc,
         .help = "DVB-C: identifier of the network"),
    SCAN("DVBC_START_FREQ", dvbc_scan_data.start_freq, kSet | kResponse, .when = kDvbc,
         .help = "DVB-C: lowest frequency scanned"),
    SCAN("DVBC_END_FREQ", dvbc_scan_data.end_freq, kSet | kResponse, .when = kDvbc,
         .help = "DVB-C: highest frequency scanned"),
    SCAN("DVBC_CFG_FLAG", dvbc_scan_data.config_flag, kSet | kResponse, .when = kDvbc,
         .help = "DVB-C: options of the scan, bit mask"),
    SCAN("PAL_START_FREQ", pal_scan_data.start_freq, kSet | kResponse, .when = kPal,
         .help = "PAL/SECAM: lowest frequency scanned"),
    SCAN("PAL_END_FREQ", pal_scan_data.end_freq, kSet | kResponse, .when = kPal,
         .help = "PAL/SECAM: highest frequency scanned"),
};

constexpr ItemType item_TUNER_SCAN = {.type = TYPE_TUNER_SCAN,
                                      .record_size = sizeof(T_TUNER_SCAN),
                                      .allocated_size = sizeof(T_TUNER_SCAN),
                                      .error_word = "tuner scan",
                                      .renderer = "_json_print_tuner_scan_type",
                                      .fields = kTunerScanFields};

static constexpr Field kTunerScanNotifyFields[] = {
    {.key = "MSG_ID",
     TVC_MEMBER(T_TUNER_SCAN_NOTIFY, msg_id),
     .use = kNotify,
     .help = "kind of message, in the platform's numbers"},
    {.key = "PROGRESS",
     TVC_MEMBER(T_TUNER_SCAN_NOTIFY, progress),
     .use = kNotify,
     .unit = "%",
     .help = "part of the scan that is done"},
    {.key = "CHAN_NUM", TVC_MEMBER(T_TUNER_SCAN_NOTIFY, chan_num), .use = kNotify, .help = "channels found"},
    {.key = "RESERVED", TVC_MEMBER(T_TUNER_SCAN_NOTIFY, reserved), .use = kNotify, .help = "not used"},
};

constexpr ItemType item_TUNER_SCAN_NOTIFY = {
    .type = TYPE_TUNER_SCAN_NOTIFY,
    .record_size = sizeof(T_TUNER_SCAN_NOTIFY),
    .allocated_size = sizeof(T_TUNER_SCAN_NOTIFY),
    .fields = kTunerScanNotifyFields,
    .notify = {.form = NotifyForm::kSingleParameter, .log_name = "_json_print_tuner_scan_notify"}};
