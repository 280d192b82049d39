// HDMI-CEC, for the remote control.
#pragma once

// Sends <Standby> to all devices if the configuration says so. Call it when the set has gone to standby.
void cec_standby();
