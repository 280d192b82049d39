// The event thread, on which the platform callbacks run, one after the other.
#pragma once

#include <functional>

void events_start();

// Runs the events that are still queued, accepts no more, and ends the thread. Not from a callback.
void events_stop();

// Queues an event for the event thread. The caller may hold its room's lock: the order of the callbacks is then the
// order of the changes. Dropped when the set is off.
void events_post(std::function<void()> event);

// Waits until all events have run, including those posted meanwhile. Not from a callback.
void events_settle();
