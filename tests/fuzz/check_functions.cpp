// A made-up contract with every kind of parameter, expanded as the TV API is. The order matters: types, then records
// and definitions.
// clang-format off
#include "tests/unit/tap/contract.h"

#include "platform_expand.h"

#include "tests/unit/tap/contract.h"
