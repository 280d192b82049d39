#include "rooms/home_network/upnp/library.h"

__attribute__((visibility("default"))) const UpnpLibrary* dtv_upnp_library() {
  static constexpr UpnpLibrary kLibrary = {
#define ROW(name) .name = ::name,
      UPNP_FUNCTIONS(ROW)
#undef ROW
  };
  return &kLibrary;
}
