#include "rooms/tuner/tracks.h"

#include <algorithm>
#include <string_view>

#include "rooms/config/config.h"

namespace {

// How well a track fits the configuration: its language counts first, then whether it is for the impaired.
int fit(const TunerTrack& track, std::string_view first, std::string_view second, bool impaired) {
  const int language = track.language == first ? 2 : track.language == second ? 1 : 0;
  return language * 2 + (track.impaired == impaired ? 1 : 0);
}

// Marks the track with the PID, or without one the track that fits best, the first of several.
void choose(std::vector<TunerTrack>& tracks, StreamKind kind, std::optional<std::uint16_t> pid, auto fit_of) {
  TunerTrack* best = nullptr;
  int best_fit = -1;
  for (TunerTrack& track : tracks) {
    if (track.kind != kind) continue;
    const int fits = pid && track.pid == *pid ? INT32_MAX : fit_of(track);
    if (fits <= best_fit) continue;
    best = &track;
    best_fit = fits;
  }
  if (best != nullptr) best->chosen = true;
}

}  // namespace

std::vector<TunerTrack> tracks_of(const Pmt& pmt, const TrackChoice& choice) {
  std::vector<TunerTrack> tracks;
  for (const Pmt::Stream& each : pmt.streams) {
    if (each.kind != StreamKind::kAudio && each.kind != StreamKind::kSubtitle) continue;
    tracks.push_back({.kind = each.kind,
                      .pid = each.pid,
                      .codec = each.codec,
                      .language = each.language,
                      .impaired = each.impaired,
                      .chosen = false});
  }
  const std::string sound = config_text("g_aud_lang__aud_language");
  const std::string second_sound = config_text("g_aud_lang__aud_2nd_language");
  const bool described = config_number("g_audio__type") != 0;
  choose(tracks, StreamKind::kAudio, choice.audio,
         [&](const TunerTrack& track) { return fit(track, sound, second_sound, described); });

  const bool wanted =
      choice.subtitle ? *choice.subtitle != TrackChoice::kOff : config_number("g_misc__dvb_subtitle_enabled") != 0;
  if (!wanted) return tracks;
  const std::string words = config_text("g_subtitle__subtitle_lang");
  const std::string second_words = config_text("g_subtitle__subtitle_lang_2nd");
  const bool hard_of_hearing = config_number("g_subtitle__hearing_impaired") != 0;
  choose(tracks, StreamKind::kSubtitle, choice.subtitle,
         [&](const TunerTrack& track) { return fit(track, words, second_words, hard_of_hearing); });
  return tracks;
}
