#include "defaults.h"

#include "tvapi/all.h"
