// The applications that the set runs besides television: HbbTV, the portal, the set's own applications. They are only
// simulated: this room remembers which of them run, until the set is switched off. Standby ends them all. Whether HbbTV
// is enabled is a configuration value.
//
// Messages to HbbTV, by function type: 0 queries the state, 1 switches HbbTV on or off (value 1 or 0), 4 starts the
// application at the address. The message is overwritten with the resulting state. Value: for 0 and 1 whether HbbTV is
// on, for 4 the application's type. Address: that of the running application, empty if none runs.
//
// A USB path contains a shop demonstration if a file in it is named super_shop_demo, and an e-banner if one is named
// ebanner, each with any extension and in upper or lower case.
#include "vex_tv_ctrl/apps.h"

#include <algorithm>
#include <boost/json.hpp>
#include <cstring>
#include <filesystem>
#include <mutex>

#include "base/text.h"
#include "core/contract.h"
#include "core/reply.h"
#include "core/room.h"
#include "core/set.h"
#include "core/store.h"
#include "rooms/apps/apps.h"
#include "rooms/config/config.h"
#include "rooms/menus/menus.h"
#include "rooms/remote/remote.h"

namespace {

struct NamedNumber {
  const char* name;
  INT32 number;
};

constexpr NamedNumber kPortalModes[] = {
#define TVC_PORTAL_MODE(name, number) {#name, number},
#include "vex_tv_ctrl/apps.def"
};

constexpr NamedNumber kExitReasons[] = {
    {"OTHER", 0},
#define TVC_PORTAL_EXIT(name, number) {#name, number},
#include "vex_tv_ctrl/apps.def"
};

constexpr NamedNumber kNativeApps[] = {
#define TVC_NATIVE_APP(name, number) {#name, number},
#include "vex_tv_ctrl/apps.def"
};

constexpr const char* kHbbtvKey = "g_hbbtv__enable";
constexpr UINT32 kAsk = 0;                    // a query; the contract has no constant for it
constexpr UINT32 kHead = 2 * sizeof(UINT32);  // bytes that ui4_length does not count
static_assert(VEXTVAPI_HBBTV_LENGTH == sizeof(VEXTVAPI_HBBTV_DATA_T) - kHead);
static_assert(VEXTVAPI_HBBTV_LENGTH_APPLICATION == offsetof(VEXTVAPI_HBBTV_DATA_T, ui4_reserved) - kHead);
constexpr std::size_t kLongestAddress = 255;

struct State {
  std::mutex lock;  // guards all members below; taken before the configuration's, the remote control's and the menus'
  UINT32 hbbtv_type = 0;
  UINT32 hbbtv_switched = 0;                 // config_changes(kHbbtvKey) before the application was started
  std::string hbbtv_uri;                     // empty: no application runs
  std::string edfu_url;                      // the address that the portal opens in its EDFU mode
  const NamedNumber* portal_mode = nullptr;  // null: the portal is not running
  const NamedNumber* portal_exit = nullptr;  // why the portal was left last; null: it never was
  const NamedNumber* native_app = nullptr;   // null: none is running
};

// Never destroyed: other threads may still use it when the process exits.
State& state = *new State;

template <std::size_t N>
const NamedNumber* find_number(const NamedNumber (&table)[N], INT32 number) {
  const auto* const found = std::ranges::find(table, number, &NamedNumber::number);
  return found == std::end(table) ? nullptr : found;
}

const char* name_of(const NamedNumber* row) { return row == nullptr ? "" : row->name; }

INT32 refuse_standby(const char* function) { return refuse_call(function, "the set is in standby"); }

// The caller of this and the functions below holds the lock.
void end_hbbtv_application() {
  state.hbbtv_uri.clear();
  state.hbbtv_type = 0;
}

// Not only HbbTV's own message may change the configuration value. If it has changed since the application was started,
// the application has ended, even if HbbTV has been switched on again since.
bool hbbtv_is_on() {
  const bool on = config_number(kHbbtvKey) != 0;
  if (!on || config_changes(kHbbtvKey) != state.hbbtv_switched) end_hbbtv_application();
  return on;
}

// An application that is a menu has ended when its menu was closed.
const NamedNumber* native_app() {
  if (state.native_app != nullptr && !menus_keep_application(state.native_app->name)) state.native_app = nullptr;
  return state.native_app;
}

void end_all() {
  end_hbbtv_application();
  state.portal_mode = nullptr;
  state.native_app = nullptr;
}

INT32 start_hbbtv(const char* function, const VEXTVAPI_HBBTV_DATA_T& message) {
  const std::string uri(message.s_uri, strnlen(message.s_uri, sizeof message.s_uri));
  if (uri.empty() || uri.size() > kLongestAddress || !store_is_text(uri)) {
    return refuse_call(function, "an application's address has 1 to 255 bytes in UTF-8");
  }
  if (!remote_is_on()) return refuse_standby(function);
  const UINT32 switched = config_changes(kHbbtvKey);  // read first, so that a switch in between ends the application
  if (!hbbtv_is_on()) return refuse_call(function, "HbbTV is off");
  state.hbbtv_switched = switched;
  state.hbbtv_type = message.ui4_value;
  state.hbbtv_uri = uri;
  return 0;
}

INT32 switch_hbbtv(const char* function, UINT32 wanted) {
  if (wanted > 1) return refuse_call(function, std::to_string(wanted) + " is neither 0 (off) nor 1 (on)");
  return config_set(kHbbtvKey, static_cast<INT32>(wanted));
}

INT32 look_for(const char* function, const char* path, const char* name, UINT8* ret_flag) {
  if (path == nullptr || ret_flag == nullptr) return -1;
  std::error_code failed;
  std::filesystem::directory_iterator file(path, failed);
  bool found = false;
  for (; !failed && !found && file != std::filesystem::directory_iterator(); file.increment(failed)) {
    std::error_code none;
    found = equal_ignoring_case(file->path().stem().native(), name) && file->is_regular_file(none);
  }
  if (failed) return refuse_call(function, "this path cannot be read: " + failed.message());
  *ret_flag = found ? 1 : 0;
  return 0;
}

}  // namespace

INT32 a_vextvapi_hbbtv_exchange_data(VEXTVAPI_HBBTV_DATA_T* block, UINT32 words) {
  if (block == nullptr || words < sizeof *block / sizeof(UINT32))
    return refuse_call(__func__, "the block must have at least 100 words");
  const UINT32 type = block->ui4_func_type;
  const bool starts = type == VEXTVAPI_HBBTV_FUNC_APPLICATION;
  const bool switches = type == VEXTVAPI_HBBTV_FUNC_ENABLE;
  if (type != kAsk && !switches && !starts) {
    return refuse_call(__func__, "there is no function " + std::to_string(type));
  }
  const UINT32 length = starts ? VEXTVAPI_HBBTV_LENGTH_APPLICATION : VEXTVAPI_HBBTV_LENGTH;
  if (block->ui4_length != length) {
    return refuse_call(__func__, "function " + std::to_string(type) + " has " + std::to_string(length) +
                                     " bytes, not " + std::to_string(block->ui4_length));
  }
  const std::lock_guard guard(state.lock);
  if (starts && start_hbbtv(__func__, *block) != 0) return -1;
  if (switches && switch_hbbtv(__func__, block->ui4_value) != 0) return -1;
  const bool on = hbbtv_is_on();
  block->ui4_value = starts ? state.hbbtv_type : static_cast<UINT32>(on);
  std::ranges::fill(block->s_uri, '\0');
  state.hbbtv_uri.copy(block->s_uri, kLongestAddress);
  return 0;
}

INT32 a_portal_start_ex(UINT8 mode) {
  const NamedNumber* const wanted = find_number(kPortalModes, mode);
  if (wanted == nullptr) return refuse_call(__func__, "there is no mode " + std::to_string(mode));
  const std::lock_guard guard(state.lock);
  if (!remote_is_on()) return refuse_standby(__func__);
  if (mode == PORTAL_MODE_EDFU && state.edfu_url.empty()) return refuse_call(__func__, "there is no address to open");
  state.portal_mode = wanted;
  return 0;
}

INT32 a_portal_pause_ex(UINT8 reason) {
  const NamedNumber* const why = find_number(kExitReasons, reason);
  if (why == nullptr) return refuse_call(__func__, "there is no reason " + std::to_string(reason));
  const std::lock_guard guard(state.lock);
  if (state.portal_mode == nullptr) return refuse_call(__func__, "the portal is not running");
  state.portal_mode = nullptr;
  state.portal_exit = why;
  return 0;
}

INT32 a_set_edfu_url(const char* url) {
  if (url == nullptr || std::strlen(url) > kLongestAddress || !store_is_text(url)) {
    return refuse_call(__func__, "an address has at most 255 bytes in UTF-8");
  }
  const std::lock_guard guard(state.lock);
  state.edfu_url = url;
  return 0;
}

INT32 a_net_get_app_mode() {
  const std::lock_guard guard(state.lock);
  return state.portal_mode == nullptr ? 0 : state.portal_mode->number;
}

INT32 a_vextvapi_util_start_native_app(INT32 index) {
  const NamedNumber* const wanted = find_number(kNativeApps, index);
  if (wanted == nullptr) return refuse_call(__func__, "there is no application " + std::to_string(index));
  const std::lock_guard guard(state.lock);
  if (!remote_is_on()) return refuse_standby(__func__);
  menus_open_application(wanted->name);
  state.native_app = wanted;
  return 0;
}

INT32 a_vextvapi_util_set(INT32 type, INT32 id, INT32 value, INT32 flag) {
  const bool cleans_all = type == VEXTVAPI_UTIL_CLEAN_ALL_TYPE && id == VEXTVAPI_UTIL_CLEAN_ALL_ID &&
                          value == VEXTVAPI_UTIL_CLEAN_ALL_VALUE && flag == VEXTVAPI_UTIL_CLEAN_ALL_FLAG;
  if (!cleans_all) {
    return refuse_call(__func__, "there is no job " + std::to_string(type) + ", " + std::to_string(id) + ", " +
                                     std::to_string(value) + ", " + std::to_string(flag));
  }
  if (!store_is_open()) return refuse_call(__func__, "the set is off");
  return set_reset() ? 0 : -1;
}

INT32 a_vextvapi_util_is_jump_super_shop_demo(const char* path, UINT8* flag) {
  return look_for(__func__, path, "super_shop_demo", flag);
}

INT32 a_vextvapi_util_is_jump_ebanner(const char* path, UINT8* flag) {
  return look_for(__func__, path, "ebanner", flag);
}

void apps_end() {
  const std::lock_guard guard(state.lock);
  end_all();
}

bool apps_leave_menu() {
  const std::lock_guard guard(state.lock);
  const bool left = native_app() != nullptr;
  state.native_app = nullptr;
  return left;
}

bool apps_have_keys() {
  const std::lock_guard guard(state.lock);
  return (hbbtv_is_on() && !state.hbbtv_uri.empty()) || state.portal_mode != nullptr || native_app() != nullptr;
}

namespace {

void load() {
  const std::lock_guard guard(state.lock);
  end_all();
  state.edfu_url.clear();
  state.portal_exit = nullptr;
}

bool reset() {
  load();
  return true;
}

// Reports only what is running; "app" shows the rest.
void report(boost::json::object& answer) {
  const std::lock_guard guard(state.lock);
  if (hbbtv_is_on() && !state.hbbtv_uri.empty()) answer["hbbtv"] = state.hbbtv_uri;
  if (state.portal_mode != nullptr) answer["portal"] = state.portal_mode->name;
  if (const NamedNumber* const own = native_app()) answer["native_app"] = own->name;
}

boost::json::object app_command(Arguments) {
  const std::lock_guard guard(state.lock);
  const bool on = hbbtv_is_on();
  return {
      {"hbbtv", {{"enabled", on}, {"type", state.hbbtv_type}, {"uri", state.hbbtv_uri}}},
      {"portal",
       {{"mode", name_of(state.portal_mode)}, {"last_exit", name_of(state.portal_exit)}, {"edfu_url", state.edfu_url}}},
      {"native_app", name_of(native_app())}};
}

constexpr Command kCommands[] = {
    {"app", "", 0, "Shows the state of HbbTV, the portal and the set's own applications", app_command},
};

}  // namespace

const Room room_apps = {.commands = kCommands, .load = load, .reset = reset, .report = report};
