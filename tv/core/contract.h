// The TV API as this library defines it. Its functions are exports, whatever the build's default visibility is.
#pragma once

#pragma GCC visibility push(default)
#include "tvapi/all.h"
#pragma GCC visibility pop
