// The records of the made-up contract.
#pragma once

#include "tap/record.h"
#include "tap_contract.h"

DTV_RECORD(DEMO_POINT, x, y)
DTV_RECORD(DEMO_BOX, corner, name, wide_name, bytes, size, colour, marks, comment, link)
DTV_UNION(DEMO_CODE, opcode, reason)
DTV_RECORD(DEMO_EVENT, type, u_code, u_data)
