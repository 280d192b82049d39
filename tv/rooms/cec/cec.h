// HDMI-CEC, for the remote control and the input sources.
#pragma once

// Sends <Standby> to all devices if the configuration says so. Call it when the set has gone to standby.
void cec_standby();

// Whether a device is plugged into the HDMI input, by its number from 1. The caller holds no lock.
bool cec_is_plugged(int input);
