// The tap's functions for the made-up contract. It is included first for its types, then for records and definitions.
// clang-format off
#include "contract.h"

#include "tap/expand.h"

#include "contract.h"
