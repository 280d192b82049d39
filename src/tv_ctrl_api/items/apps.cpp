// Field tables of requests to HbbTV and to the internet portal.
#include "tv_ctrl_api/item_types.h"

static constexpr Field hbbtv_table[] = {
    {.key = "enableHbbtv", TVC_MEMBER(T_HBBTV, is_enable), .use = kSet, .help = "1: switch HbbTV on, 0: off"},
    {.key = "funcType",
     TVC_MEMBER(T_HBBTV, func_type),
     .use = kSet,
     .help = "1: enableHbbtv, 4: the application; others are the platform's"},
    {.key = "appType", TVC_MEMBER(T_HBBTV, app_type), .use = kSet, .help = "kind of application"},
    {.key = "appUri", TVC_MEMBER(T_HBBTV, uri), .use = kSet, .help = "address of the application"},
};
constinit const std::span<const Field> hbbtv_fields = hbbtv_table;

static constexpr char kModes[] = "one of:"
#define TVC_PORTAL_MODE(name, number) " " #name
#include "vex_tv_ctrl/apps.def"
    ;
static constexpr char kReasons[] =
    "one of:"
#define TVC_PORTAL_EXIT(name, number) " " #name
#include "vex_tv_ctrl/apps.def"
    "; any other text is another reason";

static constexpr Field portal_table[] = {
    {.key = "appMode", TVC_MEMBER(T_PORTAL, app_mode), .use = kSet | kResponse, .help = kModes},
    {.key = "edfuUrl", TVC_MEMBER(T_PORTAL, edfu_url), .use = kSet, .help = "address that the mode EDFU opens"},
    {.key = "exitReason", TVC_MEMBER(T_PORTAL, exit_reason), .use = kSet, .help = kReasons},
};
constinit const std::span<const Field> portal_fields = portal_table;
