// The functions of the made-up contract, expanded as those of the TV API are.
// clang-format off
#include "tests/unit/tap/contract.h"

#include "platform_expand.h"

#include "tests/unit/tap/contract.h"
