// A made-up contract with every kind of parameter, expanded as the TV API is. The order matters: types, records,
// definitions.
// clang-format off
#include "tests/unit/tap_contract.h"

#include "tests/unit/tap_records.h"

#include "platform_expand.h"

#include "tests/unit/tap_contract.h"
