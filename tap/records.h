// The records of the TV API, one line each: see "tap/record.h".
#pragma once

#include "tap/record.h"
#include "tvapi/all.h"
