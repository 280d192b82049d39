#include "rooms/channels/channels.h"

#include "core/room.h"

bool channels_take_scan(std::span<const FoundService>, bool, ScanOutcome&, std::string&) { return false; }
std::optional<Channel> channels_by_id(std::uint32_t) { return std::nullopt; }
std::optional<Channel> channels_by_key(const ServiceKey&) { return std::nullopt; }
std::optional<Channel> channels_by_number(std::uint32_t) { return std::nullopt; }
std::optional<Channel> channels_step(std::uint32_t, int) { return std::nullopt; }
std::optional<Channel> channels_step_favourite(std::uint32_t, int) { return std::nullopt; }
std::optional<bool> channels_toggle_favourite(std::uint32_t) { return std::nullopt; }
std::vector<Channel> channels_all() { return {}; }
std::size_t channels_count() { return 0; }
std::uint64_t channels_changes() { return 0; }

const Room room_channels = {};
