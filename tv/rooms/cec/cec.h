// HDMI-CEC, for the remote control.
#pragma once

// Tells the bus that the set has gone to standby, as the configuration wants it.
void cec_standby();
