// The weak definitions of the test contract. defaults.h must come first, since it defines how the contract's statements
// expand.
// clang-format off
#include "tv/core/defaults.h"
#include "defaults_contract.h"
// clang-format on
