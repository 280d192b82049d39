// The made-up contract, expanded by the tap's own macros. The order matters: types, records, definitions.
// clang-format off
#include "tap_contract.h"

#include "tap/record.h"

DTV_RECORD(DEMO_POINT, x, y)
DTV_RECORD(DEMO_BOX, corner, name, wide_name, bytes, size, colour, marks, comment, link)
DTV_UNION(DEMO_CODE, opcode, reason)
DTV_RECORD(DEMO_EVENT, type, u_code, u_data)

#include "tap/expand.h"

#include "tap_contract.h"
