// The recorder, for the other rooms. Its locks come before the sources', the tuner's, the antenna's, the guide's and
// the channels'.
#pragma once

#include <string>

#include "broadcast/tables.h"

// The message of the latest reminder, for the screen; empty: there is none any more.
std::string recorder_message();

// Registers what gives up a tuner that shows a sub picture, because a recording on this service has none: it ends that
// reception and returns true, or returns false if there is no sub picture. Null: nobody does. Called on any thread,
// with the recorder's lock held, so it must not call the recorder.
void recorder_set_yield(bool (*yield)(const ServiceKey& key));
