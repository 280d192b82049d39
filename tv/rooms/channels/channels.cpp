// What other rooms call, and the room's row.
#include "rooms/channels/channels.h"

#include <algorithm>
#include <boost/json/object.hpp>
#include <boost/json/value.hpp>

#include "core/room.h"
#include "rooms/channels/commands.h"
#include "rooms/channels/favourites.h"
#include "rooms/channels/logos.h"
#include "rooms/channels/state.h"

namespace {

std::optional<Channel> channel_or_none(const Entry* entry) {
  return entry != nullptr ? std::optional(entry->channel) : std::nullopt;
}

// Adds the number of channels, if there are any.
void report(boost::json::object& answer) {
  if (const std::size_t count = channels_count(); count != 0) answer["channels"] = count;
}

}  // namespace

bool channels_take_scan(const ScanResult& scan, ScanOutcome& ret_outcome, std::string& ret_error) {
  std::vector<Service> services;
  services.reserve(scan.found.size());
  for (const FoundService& each : scan.found) services.push_back({.found = each});
  const std::string logos = logo_folder();
  take_logos(scan.logos, logos);
  ScanOutcome outcome;
  std::string why = change_lists(
      [&](Lists& lists) {
        std::string refused = take_services(lists, services, scan.searched, scan.update, outcome);
        give_logos(lists, logos);
        return refused;
      },
      scan.update ? ChangeKind::kEdit : ChangeKind::kReset);
  if (!why.empty()) {
    ret_error = std::move(why);
    return false;
  }
  ret_outcome = outcome;
  return true;
}

std::optional<Channel> channels_by_id(std::uint32_t channel_id) {
  const auto lists = lists_now();
  return channel_or_none(find_id(*lists, channel_id));
}

std::optional<Channel> channels_by_key(const ServiceKey& key, std::uint16_t list) {
  const auto lists = lists_now();
  return channel_or_none(find_key(*lists, key, list));
}

std::optional<Channel> channels_by_number(std::uint32_t number) {
  const auto lists = lists_now();
  return channel_or_none(find_number(*lists, number));
}

bool channels_is_favourite(std::uint32_t channel_id) {
  const auto lists = lists_now();
  const Entry* const entry = find_id(*lists, channel_id);
  const auto& favourites = lists->favourites[0];
  return entry != nullptr &&
         std::ranges::find(favourites, reference_of(entry->channel.list, entry->channel.record)) != favourites.end();
}

std::vector<std::uint32_t> channels_shown(ShownList list) {
  const auto lists = lists_now();
  const View& view = list == ShownList::kAll ? lists->views[0] : lists->favourite_views[0];
  std::vector<std::uint32_t> ids;
  ids.reserve(view.order.size());
  for (std::size_t i = 0; i < view.order.size(); ++i)
    if ((view.masks[i] & kShown.mask) == kShown.value) ids.push_back(view.order[i]->channel.id);
  return ids;
}

bool channels_records(std::uint32_t channel_id, SVL_REC_T& ret_service, TSL_REC_T& ret_stream) {
  const auto lists = lists_now();
  const Entry* const entry = find_id(*lists, channel_id);
  if (entry == nullptr) return false;
  ret_service = service_record(*entry);
  ret_stream = stream_record(*entry);
  return true;
}

std::vector<Channel> channels_all_by_key(const ServiceKey& key) {
  const auto lists = lists_now();
  std::vector<Channel> found;
  using KeyAndEntry = decltype(lists->by_key)::value_type;
  auto each = std::ranges::lower_bound(lists->by_key, key, {}, &KeyAndEntry::first);
  for (; each != lists->by_key.end() && each->first == key; ++each) found.push_back(each->second->channel);
  return found;
}

std::uint16_t channels_logo(std::uint32_t channel_id) {
  const auto lists = lists_now();
  const Entry* const entry = find_id(*lists, channel_id);
  return entry == nullptr ? std::uint16_t{0} : entry->logo;
}

std::optional<Channel> channels_named(std::string_view word, std::string& ret_error) {
  const auto lists = lists_now();
  const Entry* const entry = find_named(*lists, word);
  if (entry == nullptr) ret_error = no_channel_named(word);
  return channel_or_none(entry);
}

boost::json::value megahertz(Medium medium, std::uint32_t frequency) {
  constexpr std::uint32_t kUnit = 1'000'000;
  if (medium == Medium::kSatellite) return frequency;
  if (frequency % kUnit == 0) return frequency / kUnit;
  return static_cast<double>(frequency) / kUnit;
}

std::optional<Channel> channels_step(std::uint32_t channel_id, int by) {
  const auto lists = lists_now();
  return channel_or_none(step(lists->views[0], kShown, find_id(*lists, channel_id), by));
}

std::optional<Channel> channels_step_favourite(std::uint32_t channel_id, int by) {
  const auto lists = lists_now();
  return channel_or_none(step(lists->favourite_views[0], kShown, find_id(*lists, channel_id), by));
}

std::optional<bool> channels_toggle_favourite(std::uint32_t channel_id) {
  bool is_one = false;
  const std::string why = change_lists([&](Lists& lists) {
    const Entry* const entry = find_id(lists, channel_id);
    if (entry == nullptr) return std::string("no such channel");
    is_one = std::ranges::find(lists.favourites[0], reference_of(*entry)) == lists.favourites[0].end();
    return is_one ? add_favourite(lists, 0, reference_of(*entry)) : remove_favourite(lists, 0, reference_of(*entry));
  });
  return why.empty() ? std::optional(is_one) : std::nullopt;
}

std::vector<Channel> channels_all() {
  const auto lists = lists_now();
  std::vector<Channel> all;
  all.reserve(lists->entries.size());
  for (const auto& entry : lists->entries) all.push_back(entry->channel);
  return all;
}

std::size_t channels_count() { return lists_now()->entries.size(); }

std::vector<KnownMultiplex> channels_known_multiplexes() { return lists_now()->multiplexes; }

std::uint64_t channels_changes() { return lists_now()->changes; }

const Room room_channels = {
    .commands = kChannelCommands, .load = state_load, .reset = state_reset, .report = report, .stop = state_stop};
