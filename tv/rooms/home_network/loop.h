// The home network's thread, which runs a GLib main loop. All that uses GUPnP and GLib is in a library of its own,
// libdtv_upnp.so, made of the files in rooms/*/upnp/ and loaded when the home network is first used: it takes 5 MB. The
// rooms reach it by upnp_library() (upnp/library.h), and its functions run on the thread unless they say otherwise.
#pragma once

#include <functional>
#include <string>
#include <vector>

// Starts the thread when it is first needed; false with ret_error if the set has no network interface for it, the
// library is missing, or the thread cannot start. Any thread; the caller holds no lock.
bool home_loop_start(std::string& ret_error);
void home_loop_stop();  // from the room's stop; runs what is still posted

// Runs the action on the thread, after those posted before. Any thread. Does nothing if the thread does not run.
void home_loop_post(std::function<void()> action);

// Whether the host of an http address is a number on a network that one of these interfaces is directly connected to:
// the set exchanges data with no other host. Any thread.
bool home_is_near(const std::string& address);

// The network interfaces that a start option names (default: the loopback only). Any thread.
std::vector<std::string> home_interfaces();
