// The made-up contract, expanded by the tap's own macros. The order matters: types, then records and definitions.
// clang-format off
#include "contract.h"

#include "tap/expand.h"

#include "contract.h"
