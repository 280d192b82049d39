// The event thread, which runs the platform callbacks one after the other.
#pragma once

#include <functional>

void events_start();

// Stops accepting events, runs those still queued, and ends the thread. Not from a callback.
void events_stop();

// Queues an event for the event thread; drops it if the set is off. The caller may hold its room's lock, so that
// callbacks run in the order of the changes.
void events_post(std::function<void()> event);

// Waits until all events have run, including those posted meanwhile. Not from a callback.
void events_settle();
