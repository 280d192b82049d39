// The functions of the TV API, made of their statements. The order matters: types, then records and definitions.
// clang-format off
#include "tvapi/all.h"

#include "platform_expand.h"

#include "tvapi/all.h"
