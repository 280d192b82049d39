// A build without a picture (DTV_PICTURE is off).
#include "rooms/screen/player/player.h"

struct Player {
  PlayerFacts facts;
};

namespace {

constexpr const char* kWhy = "this television was built without a picture";

}  // namespace

void PlayerEnd::operator()(Player* player) const { delete player; }

std::string player_trouble() { return kWhy; }

// NOLINTNEXTLINE(performance-unnecessary-value-param): the player with a picture keeps it
PlayerHandle player_start(std::shared_ptr<PacketRing>, const PlayerWake&, std::string& ret_error) {
  ret_error = kWhy;
  return nullptr;
}

PlayerHandle player_start_file(const PlayerFile&, const PlayerWake&, std::string& ret_error) {
  ret_error = kWhy;
  return nullptr;
}

bool player_step(Player&, Canvas&) { return false; }

const PlayerFacts& player_facts(const Player& player) { return player.facts; }
void player_rest() {}
void player_step_unseen(Player&) {}
void player_seek_fast(Player&, double) {}
void player_seek_percent(Player&, double) {}
void player_step_picture(Player&, bool) {}
void player_repeat(Player&, bool) {}
void player_set_look(Player&, const PlayerLook&) {}
void player_pause(Player&, bool) {}
void player_seek(Player&, double) {}
void player_set_speed(Player&, double) {}
void player_choose(Player&, TrackKind, int) {}
void player_choose_chapter(Player&, int) {}
void player_choose_streams(Player&, int, int) {}
bool player_draw(Player&, Canvas&) { return false; }
void player_set_growing(Player&, bool) {}

bool jpeg_write(const Canvas&, std::vector<std::uint8_t>&, std::string& ret_error) {
  ret_error = kWhy;
  return false;
}
