// Keys that step through the values of a setting.
#pragma once

// In the order of their table.
enum RemoteSetting : int { kSettingPicture, kSettingSound, kSettingAspect, kSettingZoom, kSettingSubtitles };

// Chooses the next value and tells the viewer. False: it was not saved.
bool setting_step(int setting);
