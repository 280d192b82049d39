// Threads whose work nobody waits for.
#pragma once

// Names the calling thread, and lets the machine's other threads go first: a request is answered while this thread
// reads hundreds of megabytes. The thread keeps its low priority until it ends.
void background_begin(const char* name);
