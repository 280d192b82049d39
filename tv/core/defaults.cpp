#include "core/defaults.h"

#include "tvapi/all.h"
