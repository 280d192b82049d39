// The thread with the GLib main loop, and the GUPnP contexts, one for each network interface. GUPnP's objects are
// created, used and released on the thread.
#pragma once

#include <functional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

struct _GUPnPContext;

// For loop.cpp; see loop.h. One thread at a time starts and stops.
bool upnp_thread_start(const std::vector<std::string>& interfaces, std::string& ret_error);
void upnp_thread_stop();
void upnp_thread_post(std::function<void()> action);  // any thread

// The rest is for libdtv_upnp.so's own files, on the thread.

// The contexts of the interfaces that a start option names (default: the loopback only).
std::span<_GUPnPContext* const> upnp_contexts();
const std::vector<std::string>& upnp_interfaces();  // their names, in the same order

// Calls the action when the thread ends, before the contexts are released. The action must release every object that
// uses a context.
void upnp_at_end(std::function<void()> action);

// Whether the set may exchange data with the address's host (see home_is_near).
bool upnp_is_near(std::string_view address);
