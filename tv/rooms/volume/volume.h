// Volume and mute, for the remote control.
#pragma once

// What the keys do. They return false when the change could not be kept.
bool volume_press(int by);
bool mute_press();
