// Item types of network events, Wi-Fi association and addresses.
#include "tv_ctrl_api/item_types.h"

static constexpr Field kNwNotifyFields[] = {
    {.key = "TAG", TVC_WORD(T_NW_NOTIFY, tag), .use = kNotify, .help = "tag given at registration"},
    {.key = "ID",
     TVC_MEMBER(T_NW_NOTIFY, id),
     .use = kNotify,
     .values = "2=the network cable was unplugged\0"
               "3=an address changed\0"
               "15=Wi-Fi was switched off\0",
     .help = "network event"},
    {.key = "PARAM", TVC_WORD(T_NW_NOTIFY, param), .use = kNotify, .help = "parameter of the event"},
};

constexpr ItemType item_NW_NOTIFY = {
    .type = TYPE_NW_NOTIFY,
    .record_size = sizeof(T_NW_NOTIFY),
    .fields = kNwNotifyFields,
    .notify = {.form = NotifyForm::kSingleItems, .log_name = "_json_print_network_notify", .traces_text = true}};

static constexpr Field kWlanAssociateFields[] = {
    {.key = "BSSID", TVC_MEMBER(T_WLAN_ASSOCIATE, bssid), .use = kAssociate, .help = "address of the access point"},
    {.key = "SSID", TVC_MEMBER(T_WLAN_ASSOCIATE, ssid), .use = kAssociate | kNotify, .help = "name of the network"},
    {.key = "CAPABILITIES",
     TVC_MEMBER(T_WLAN_ASSOCIATE, capabilities),
     .use = kAssociate,
     .help = "capabilities of the access point, as a scan reported them"},
    {.key = "PASSWORD", TVC_MEMBER(T_WLAN_ASSOCIATE, password), .use = kAssociate, .help = "password of the network"},
};

constexpr ItemType item_WLAN_ASSOCIATE = {
    .type = TYPE_WLAN_ASSOCIATE,
    .record_size = sizeof(T_WLAN_ASSOCIATE),
    .allocated_size = sizeof(T_WLAN_ASSOCIATE),
    .error_word = "wlan associate",
    .fields = kWlanAssociateFields,
    .notify = {.form = NotifyForm::kSingleParameter, .log_name = "_json_print_nw_associate_notify"}};

#define IP(json_key, member, text) \
  { .key = json_key, TVC_MEMBER(T_NW_IP_INFO_DATA, t_ip_info.member), .use = kResponse, .help = text }

static constexpr Field kIpInfoFields[] = {
    TVC_HEADER_FIELDS(T_NW_IP_INFO_DATA, "TYPE_NET_IP_INFO"), IP("IP_ADDRESS", ui4_address, "address, as 32 bits"),
    IP("IP_MASK", ui4_netmask, "mask of the network"),        IP("IP_GATEWAY", ui4_gw, "gateway"),
    IP("IP_DNS1", ui4_1st_dns, "first name server"),          IP("IP_DNS2", ui4_2nd_dns, "second name server"),
};

constexpr ItemType item_NET_IP_INFO = {.type = TYPE_NET_IP_INFO,
                                       .record_size = sizeof(T_NW_IP_INFO_DATA),
                                       .allocated_size = sizeof(T_NW_IP_INFO_DATA),
                                       .renderer = "_json_print_net_ip_info_type",
                                       .fields = kIpInfoFields};

#define IPV6(json_key, member, text) \
  { .key = json_key, TVC_MEMBER(T_NW_IPV6_INFO_DATA, t_ipv6_info.member), .use = kResponse, .help = text }

static constexpr Field kIpv6InfoFields[] = {
    TVC_HEADER_FIELDS(T_NW_IPV6_INFO_DATA, "TYPE_NET_IPV6_INFO"),
    IPV6("IP_TYPE", ip_type, "how the address is set"),
    IPV6("DNS_TYPE", dns_type, "how the name servers are set"),
    IPV6("IPV6_PREFIX", ui4_prefix, "length of the address's prefix"),
    IPV6("IPV6_PREFIX_LL", ui4_prefix_ll, "length of the link-local address's prefix"),
    IPV6("IPV6_ADDRESS", ac_v6ip, "address"),
    IPV6("IPV6_ADDRESS_LL", ac_v6ip_ll, "link-local address"),
    IPV6("IPV6_GATEWAY", ac_v6gw, "gateway"),
    IPV6("IP_DNS1", ac_dns1, "first name server"),
    IPV6("IP_DNS2", ac_dns2, "second name server"),
};

constexpr ItemType item_NET_IPV6_INFO = {.type = TYPE_NET_IPV6_INFO,
                                         .record_size = sizeof(T_NW_IPV6_INFO_DATA),
                                         .allocated_size = sizeof(T_NW_IPV6_INFO_DATA),
                                         .renderer = "_json_print_net_ipv6_info_type",
                                         .fields = kIpv6InfoFields};
