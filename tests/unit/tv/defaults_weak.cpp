// The test contract as a platform without any room expands it.
#include "tv/core/defaults.h"
#include "defaults_contract.h"
