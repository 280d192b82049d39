// The functions of the TV API, made of their statements. The order matters: types, records, definitions.
// clang-format off
#include "tvapi/all.h"

#include "tap/records.h"

#include "platform_expand.h"

#include "tvapi/all.h"
