#include "rooms/guide/guide.h"

#include "core/room.h"

void guide_take(const Eit&, std::int64_t) {}
std::optional<GuideEvent> guide_event_at(const ServiceKey&, std::int64_t) { return std::nullopt; }
std::optional<GuideEvent> guide_event_after(const ServiceKey&, std::int64_t) { return std::nullopt; }
std::optional<GuideEvent> guide_event(const ServiceKey&, std::uint16_t) { return std::nullopt; }
std::vector<GuideEvent> guide_events(const ServiceKey&, std::int64_t, std::int64_t, std::size_t) { return {}; }
std::vector<GuideEvent> guide_series(const std::string&, std::int64_t) { return {}; }
bool guide_blocks(const GuideEvent&) { return false; }

const Room room_guide = {};
