// The plugin's records by their names and members, as their headers describe them.
#pragma once

#include "tap/record.h"

#define TVC_RECORD TVAPI_RECORD
#define TVC_UNION TVAPI_UNION

#include "tv_ctrl_main.h"
