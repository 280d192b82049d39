// The test contract as a platform without any room expands it.
// First: it says what the contract below expands to.
#include "tv/core/defaults.h"

#include "defaults_contract.h"
