// GET /screen.jpg: the newest frame of the virtual television's screen. The leader answers it without a call of a lane:
// the television only copies a frame that it has rendered on a thread of its own.
#pragma once

#include "http.h"
#include "stack.h"

// The entity tag is the frame's number, so that a client that has the newest frame gets 304.
HttpAnswer screen_answer(const HttpRequest& request, const Stack& stack);
