// A thread whose stack is this program's own, so that it can be painted beforehand and looked at afterwards.
#pragma once

#include <cstddef>
#include <functional>

// Runs the work on a thread of its own and waits for it. Returns how many bytes of stack the work used, calls into
// the C library included. Of two threads at once only one may do so.
std::size_t run_on_painted_stack(const std::function<void()>& work);
