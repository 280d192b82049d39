// Power and source, for the other rooms.
#pragma once

bool remote_is_on();  // and not in standby
void remote_wake();

// Puts the set into standby. The caller holds no lock.
void remote_standby();

// Shows an HDMI input, as its source wishes. Does nothing for an input that does not exist, and nothing in standby.
void remote_show_hdmi(int input);
