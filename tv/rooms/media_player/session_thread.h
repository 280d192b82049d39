// The thread of a player: it opens the file, does what is wanted, and reports what has become of it.
#pragma once

#include <vector>

#include "rooms/media_player/parts.h"

void session_run(const SessionHandle& session);

// Wakes the thread of the session with this serial number, if it is still there. Any thread, without a lock.
void session_wake(std::uintptr_t serial);

std::vector<SessionHandle> sessions_all();
void sessions_end_all();  // and waits for their threads
