#include "rooms/remote/settings.h"

#include <algorithm>
#include <cstddef>
#include <iterator>
#include <span>

#include "rooms/config/config.h"
#include "rooms/menus/menus.h"

namespace {

struct Step {
  INT32 value;
  const char* name;  // for the message; empty: its word says it
  const char* word;  // of the message
};

constexpr Step kPicture[] = {{0, "standard", "picture_mode"}, {1, "vivid", "picture_mode"},
                             {2, "film", "picture_mode"},     {3, "sport", "picture_mode"},
                             {4, "game", "picture_mode"},     {5, "custom", "picture_mode"}};
constexpr Step kSound[] = {{0, "standard", "sound_mode"}, {1, "film", "sound_mode"}, {2, "music", "sound_mode"},
                           {3, "news", "sound_mode"},     {4, "game", "sound_mode"}, {5, "custom", "sound_mode"}};
constexpr Step kAspect[] = {{0, "automatic", "aspect_ratio"}, {1, "4:3", "aspect_ratio"},
                            {2, "14:9", "aspect_ratio"},      {3, "16:9", "aspect_ratio"},
                            {4, "zoom", "aspect_ratio"},      {5, "unscaled", "aspect_ratio"}};
constexpr Step kZoom[] = {{4, "zoom", "aspect_ratio"}, {0, "automatic", "aspect_ratio"}};
constexpr Step kSubtitles[] = {{0, "", "subtitles_off"}, {1, "", "subtitles_on"}};

struct Setting {
  const char* key;
  std::span<const Step> steps;  // a value that is none of them is followed by the first
};

constexpr Setting kSettings[] = {{"g_video__picture_mode", kPicture},
                                 {"g_audio__sound_mode", kSound},
                                 {"g_video__aspect_ratio", kAspect},
                                 {"g_video__aspect_ratio", kZoom},
                                 {"g_misc__dvb_subtitle_enabled", kSubtitles}};
static_assert(std::size(kSettings) == kSettingSubtitles + 1);

}  // namespace

bool setting_step(int setting) {
  const Setting& row = kSettings[setting];
  const auto present = std::ranges::find(row.steps, config_number(row.key), &Step::value);
  const bool is_last = present == row.steps.end() || std::next(present) == row.steps.end();
  const Step& next = is_last ? row.steps.front() : *std::next(present);
  if (config_set(row.key, next.value) != 0) return false;
  menus_say(next.word, next.name);
  return true;
}
