// Item types of requests to HbbTV and to the internet portal.
#include "tv_ctrl_api/item_types.h"

static constexpr Field kHbbtvFields[] = {
    {.key = "enableHbbtv",
     TVC_MEMBER(T_HBBTV, is_enable),
     .use = kSet,
     .values = "0=off\0"
               "1=on\0",
     .help = "state to switch HbbTV to"},
    {.key = "funcType",
     TVC_MEMBER(T_HBBTV, func_type),
     .use = kSet,
     .values = "1=switches HbbTV on or off, as enableHbbtv says\0"
               "4=passes the application of appType and appUri to HbbTV\0",
     .help = "function of HbbTV; other numbers are the platform's"},
    {.key = "appType", TVC_MEMBER(T_HBBTV, app_type), .use = kSet, .help = "kind of application"},
    {.key = "appUri", TVC_MEMBER(T_HBBTV, uri), .use = kSet, .help = "address of the application"},
};

constexpr ItemType item_HBBTV = {
    .type = TYPE_HBBTV, .record_size = sizeof(T_HBBTV), .error_word = "hbbtv", .fields = kHbbtvFields};

static constexpr char kModes[] =
#define TVC_PORTAL_MODE(name, number) #name "\0"
#include "vex_tv_ctrl/apps.def"
    ;
static constexpr char kReasons[] =
#define TVC_PORTAL_EXIT(name, number) #name "\0"
#include "vex_tv_ctrl/apps.def"
    ;

static constexpr Field kPortalFields[] = {
    {.key = "appMode", TVC_MEMBER(T_PORTAL, app_mode), .use = kSet, .values = kModes, .help = "mode to start in"},
    {.key = "appMode",
     TVC_MEMBER(T_PORTAL, app_mode),
     .use = kResponse,
     .help = "current mode: one of those to start in, YOUTUBE while the video application runs, or UNKNOWN"},
    {.key = "edfuUrl", TVC_MEMBER(T_PORTAL, edfu_url), .use = kSet, .help = "address that the mode EDFU opens"},
    {.key = "exitReason",
     TVC_MEMBER(T_PORTAL, exit_reason),
     .use = kSet,
     .values = kReasons,
     .help = "reason for leaving the portal; any other text means another reason"},
};

constexpr ItemType item_PORTAL = {.type = TYPE_PORTAL,
                                  .record_size = sizeof(T_PORTAL),
                                  .error_word = "portal",
                                  .renderer = "_json_print_portal_info",
                                  .fields = kPortalFields};
