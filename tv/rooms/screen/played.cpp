#include "rooms/screen/played.h"

PlayerHandle played_start(const PlaybackShown& played, const PlayerWake& wake, std::string& ret_error) {
  const PlayerFile file{.path = played.path,
                        .grows = played.grows,
                        .from = played.position,
                        .paused = played.paused,
                        .speed = played.speed,
                        .audio = played.audio};
  return player_start_file(file, wake, ret_error);
}

void played_tell(Player& player, PlaybackShown& told, const PlaybackShown& wanted) {
  if (wanted.jumps != told.jumps) player_seek(player, wanted.position);
  if (wanted.paused != told.paused) player_pause(player, wanted.paused);
  if (wanted.speed != told.speed) player_set_speed(player, wanted.speed);
  if (wanted.audio != told.audio) player_choose(player, TrackKind::kAudio, wanted.audio);
  if (wanted.grows != told.grows) player_set_growing(player, wanted.grows);
  told = wanted;
}

bool played_report(const Player& player, const PlaybackShown& told) {
  const PlayerFacts& facts = player_facts(player);
  const bool over = facts.state == PlayerState::kEnded || facts.state == PlayerState::kFailed;
  if (over && told.grows) return false;
  if (over) playback_player_ended(told.instance, told.jumps, facts.reason);
  if (facts.state == PlayerState::kPlaying && !facts.seeking)
    playback_follow(told.instance, told.jumps, facts.position);
  return true;
}
