// The fuzz targets' functions of the TV API. The contract is included first for its types, then for records and
// definitions.
// clang-format off
#include "tvapi/all.h"

#include "platform_expand.h"

#include "tvapi/all.h"
