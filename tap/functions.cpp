// Defines every function of the contract for the tap. The contract is included twice: first for types and prototypes,
// then for the definitions.
// clang-format off
#include "tvapi/all.h"

#include "tap/expand.h"

#include "tvapi/all.h"
