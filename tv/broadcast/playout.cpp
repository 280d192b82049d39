#include "broadcast/playout.h"

struct Playout {};
void PlayoutEnd::operator()(Playout* playout) const { delete playout; }
PlayoutHandle playout_open(const std::string&, std::string&) { return nullptr; }
std::optional<PlayoutChunk> playout_next(Playout&, bool, std::string&) { return std::nullopt; }
