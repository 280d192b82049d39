// The home network's thread, which runs a GLib main loop. All code that uses GUPnP and GLib is in rooms/*/upnp/. It is
// linked into a separate library, libdtv_upnp.so, which takes 5 MB of memory and is loaded when the home network is
// first used. The rooms call it through upnp_library() (upnp/library.h), on the thread unless a function says
// otherwise.
#pragma once

#include <functional>
#include <string>
#include <vector>

// Starts the thread unless it runs. False with ret_error: none of the network interfaces can be used, the library is
// missing, or the thread cannot start. Any thread; the caller holds no lock.
bool home_loop_start(std::string& ret_error);
void home_loop_stop();  // called by the room's stop; runs the actions that are still posted

// Runs the action on the thread, after those posted before. Any thread. Does nothing if the thread does not run.
void home_loop_post(std::function<void()> action);

// Whether the set may exchange data with the host of an http address: the host is a number, on a network to which one
// of home_interfaces() is directly connected. Any thread.
bool home_is_near(const std::string& address);

// The network interfaces that a start option names (default: the loopback only). Any thread.
std::vector<std::string> home_interfaces();
