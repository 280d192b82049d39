// The thread of a player: it opens the file, sets what is wanted, and reports events and facts.
#pragma once

#include <vector>

#include "rooms/media_player/parts.h"

void session_run(const SessionHandle& session);  // the thread's function

// Wakes the thread of the session with this serial number, if it still exists. Any thread, with no lock held.
void session_wake(std::uintptr_t serial);

std::vector<SessionHandle> sessions_all();
void sessions_end_all();  // and joins their threads
