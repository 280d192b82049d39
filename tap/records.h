// The records of the TV API, one line each: see "tap/record.h".
#pragma once

#include "tap/record.h"
#include "tvapi/all.h"

DTV_RECORD(VEXTVAPI_CFG_VAL_CHG_NFY_DATA_T, s_cfg)
