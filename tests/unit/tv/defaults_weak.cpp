// The test contract as a platform without any room expands it. defaults.h comes first: it says what a statement
// becomes.
// clang-format off
#include "tv/core/defaults.h"
#include "defaults_contract.h"
// clang-format on
