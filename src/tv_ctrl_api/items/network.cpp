// Field tables of network events and Wi-Fi association.
#include "tv_ctrl_api/item_types.h"

static constexpr Field nw_notify_table[] = {
    {.key = "TAG", TVC_WORD(T_NW_NOTIFY, tag), .use = kNotify, .help = "given at registration"},
    {.key = "ID", TVC_MEMBER(T_NW_NOTIFY, id), .use = kNotify, .help = "network event"},
    {.key = "PARAM", TVC_WORD(T_NW_NOTIFY, param), .use = kNotify, .help = "parameter of the event"},
};
constinit const std::span<const Field> nw_notify_fields = nw_notify_table;

static constexpr Field wlan_associate_table[] = {
    {.key = "BSSID", TVC_MEMBER(T_WLAN_ASSOCIATE, bssid), .use = kAssociate, .help = "address of the access point"},
    {.key = "SSID", TVC_MEMBER(T_WLAN_ASSOCIATE, ssid), .use = kAssociate | kNotify, .help = "name of the network"},
    {.key = "CAPABILITIES", TVC_MEMBER(T_WLAN_ASSOCIATE, capabilities), .use = kAssociate},
    {.key = "PASSWORD", TVC_MEMBER(T_WLAN_ASSOCIATE, password), .use = kAssociate},
};
constinit const std::span<const Field> wlan_associate_fields = wlan_associate_table;
