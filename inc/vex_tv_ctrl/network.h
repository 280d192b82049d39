// Network events, Wi-Fi association and addresses.
#ifndef VEX_TV_CTRL_NETWORK_H
#define VEX_TV_CTRL_NETWORK_H

#include "vex_tv_ctrl/generic.h"

struct T_NW_NOTIFY {
  uintptr_t tag;    // given at registration
  INT32 id;         // the platform's network event
  uintptr_t param;  // parameter of the event
};
TVC_RECORD(T_NW_NOTIFY, tag, id, param)

// The parameters of a Wi-Fi association. The plugin clears them, with the password, at the end of the request.
struct T_WLAN_ASSOCIATE {
  char bssid[18];
  char ssid[33];
  char capabilities[128];
  char password[65];
};
TVC_RECORD(T_WLAN_ASSOCIATE, bssid, ssid, capabilities, password)

struct T_NW_IP_INFO_T {
  UINT32 ui4_address;
  UINT32 ui4_netmask;
  UINT32 ui4_gw;
  UINT32 ui4_1st_dns;
  UINT32 ui4_2nd_dns;
};
TVC_RECORD(T_NW_IP_INFO_T, ui4_address, ui4_netmask, ui4_gw, ui4_1st_dns, ui4_2nd_dns)

struct T_NW_IP_INFO_DATA {
  TVC_HEADER
  T_NW_IP_INFO_T t_ip_info;
};
TVC_RECORD(T_NW_IP_INFO_DATA, TVC_HEADER_MEMBERS, t_ip_info)

struct T_NW_IPV6_INFO_T {
  INT32 ip_type;
  INT32 dns_type;
  char ac_v6ip[46];
  char ac_v6gw[46];
  char ac_dns1[46];
  char ac_dns2[46];
  char ac_v6ip_ll[46];  // link-local
  UINT32 ui4_prefix;
  UINT32 ui4_prefix_ll;
};
TVC_RECORD(T_NW_IPV6_INFO_T, ip_type, dns_type, ac_v6ip, ac_v6gw, ac_dns1, ac_dns2, ac_v6ip_ll, ui4_prefix,
           ui4_prefix_ll)

struct T_NW_IPV6_INFO_DATA {
  TVC_HEADER
  T_NW_IPV6_INFO_T t_ipv6_info;
};
TVC_RECORD(T_NW_IPV6_INFO_DATA, TVC_HEADER_MEMBERS, t_ipv6_info)

#endif
