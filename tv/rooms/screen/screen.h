// The set's screen, for the other rooms. The room's lock is taken after every other room's.
#pragma once

// What the INFO key does: shows the channel's banner for a while.
void screen_show_banner();
