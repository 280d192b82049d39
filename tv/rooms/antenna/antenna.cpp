#include "rooms/antenna/antenna.h"

#include "core/room.h"

struct Reception {};
void ReceptionEnd::operator()(Reception* reception) const { delete reception; }
std::vector<Multiplex> antenna_multiplexes() { return {}; }
ReceptionHandle reception_start(const ServiceKey&, const ReceptionUser&, ReceptionRefusal& ret_refusal) {
  ret_refusal = ReceptionRefusal::kNoSignal;
  return nullptr;
}
std::int64_t antenna_time_shift(std::uint16_t, std::uint16_t) { return 0; }

const Room room_antenna = {};
