// Item types of channels and inputs whose records are not defined yet.
#include "tv_ctrl_api/item_types.h"

constexpr ItemType item_INPUT_DEV_INFO = {.type = TYPE_INPUT_DEV_INFO, .allocated_size = sizeof(T_VALUE)};

constexpr ItemType item_CHANNEL_SELECT = {
    .type = TYPE_CHANNEL_SELECT,
    .allocated_size = sizeof(T_ACTIVE_WINDOW_TIME_NOTIFY)};  // shared with the active window's time
