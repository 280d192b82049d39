// The TV API, declared so that this library exports its functions whatever the build's default visibility is.
#pragma once

#pragma GCC visibility push(default)
#include "tvapi/all.h"
#pragma GCC visibility pop
