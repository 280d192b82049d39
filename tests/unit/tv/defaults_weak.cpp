// The test contract as a platform without any room expands it.
#include "defaults_contract.h"
#include "tv/core/defaults.h"
