// Network events and Wi-Fi association.
#ifndef VEX_TV_CTRL_NETWORK_H
#define VEX_TV_CTRL_NETWORK_H

#include "tvapi/types.h"

struct T_NW_NOTIFY {
  uintptr_t tag;    // given at registration
  INT32 id;         // the platform's network event
  uintptr_t param;  // parameter of the event
};

// Passed through to the platform; the password is not kept beyond the request.
struct T_WLAN_ASSOCIATE {
  char bssid[18];
  char ssid[33];
  char capabilities[128];
  char password[65];
};

#endif
