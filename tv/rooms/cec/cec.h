// HDMI-CEC, for the remote control and the input sources.
#pragma once

#include <string_view>

// Sends <Standby> to all devices if the configuration says so. Call it when the set has gone to standby.
void cec_standby();

// What is plugged into an HDMI input, by its number from 1. The caller holds no lock.
struct CecInput {
  std::string_view device = {};  // its name, a literal; empty: nothing is plugged in
  bool on = false;               // it sends a picture
};
CecInput cec_input(int input);
