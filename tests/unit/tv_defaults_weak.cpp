// The test contract as a platform without any room expands it.
#include "../../tv/defaults.h"
#include "tv_defaults_contract.h"
