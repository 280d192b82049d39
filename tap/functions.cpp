// The tap's definition of every function of the contract. The order matters: types and prototypes first, then the
// definitions.
// clang-format off
#include "tvapi/all.h"

#include "tap/expand.h"

#include "tvapi/all.h"
