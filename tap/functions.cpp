// The tap's definition of every function of the contract: types and prototypes first, then the definitions.
#include "tap/records.h"
#include "tap/expand.h"

#include "tvapi/all.h"
