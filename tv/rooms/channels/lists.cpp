#include "rooms/channels/lists.h"

#include <algorithm>
#include <cstdlib>

#include "core/text.h"

namespace {

// The order of the one channel list: by number, then by list. The record decides between channels with one number.
std::uint64_t order_of(const Entry& entry) {
  return std::uint64_t{place_of(entry.channel.id)} << 32 | reference_of(entry);
}

bool fits_further(const Entry& entry, const Fit& fit) {
  return (!fit.of_satellite || entry.channel.list == kListSatellite) && (!fit.orbit || entry.orbit == *fit.orbit) &&
         (fit.categories == 0 || (entry.categories & fit.categories) != 0) &&
         contains_ignoring_case(entry.channel.name, fit.name);
}

// Calls visit(position) for each fitting channel until it returns true. Returns whether it has.
template <typename Visit>
bool walk(const View& view, const Fit& fit, Visit visit) {
  const std::uint32_t value = fit.value & fit.mask;
  const bool further = fit.of_satellite || fit.orbit || fit.categories != 0 || !fit.name.empty();
  for (std::size_t i = 0; i < view.masks.size(); ++i) {
    if ((view.masks[i] & fit.mask) != value || (further && !fits_further(*view.order[i], fit))) continue;
    if (visit(i)) return true;
  }
  return false;
}

template <typename Key>
const Entry* find_in(const std::vector<std::pair<Key, const Entry*>>& sorted, const Key& key) {
  const auto found = std::ranges::lower_bound(sorted, key, {}, &std::pair<Key, const Entry*>::first);
  return found == sorted.end() || found->first != key ? nullptr : found->second;
}

void add_to(View& view, const Entry& entry) {
  view.order.push_back(&entry);
  view.masks.push_back(entry.mask);
}

bool shares_id(const Lists& lists, const Entry& entry) {
  return std::ranges::any_of(lists.entries, [&](const auto& other) {
    return other->channel.id == entry.channel.id && reference_of(*other) != reference_of(entry);
  });
}

}  // namespace

void set_id(Entry& entry, std::uint32_t id) {
  entry.channel.id = id;
  entry.channel.number = major_of(id);
}

void set_mask(Entry& entry, std::uint32_t mask) {
  entry.mask = mask;
  entry.channel.blocked = (mask & SVL_NW_MASK_BLOCKED) != 0;
  entry.channel.skipped = (mask & SVL_NW_MASK_VISIBLE) == 0;
  entry.channel.hidden = (mask & SVL_NW_MASK_ACTIVE) == 0;
}

int service_type(std::uint8_t type) {
  constexpr std::uint8_t kTelevision[] = {0x01, 0x11, 0x16, 0x19, 0x1C, 0x1F, 0x20};
  constexpr std::uint8_t kRadio[] = {0x02, 0x07, 0x0A};
  if (std::ranges::find(kTelevision, type) != std::end(kTelevision)) return SVL_SERV_TYPE_TV;
  return std::ranges::find(kRadio, type) != std::end(kRadio) ? SVL_SERV_TYPE_RADIO : SVL_SERV_TYPE_DATA;
}

std::string orbit_text(std::int16_t orbit) {
  const int tenths = std::abs(int{orbit});
  return std::to_string(tenths / 10) + "." + std::to_string(tenths % 10) + (orbit < 0 ? "W" : "E");
}

// ---- Finding ----

const Entry* find_id(const Lists& lists, std::uint32_t id) { return find_in(lists.by_id, id); }

const Entry* find_reference(const Lists& lists, std::uint32_t reference) {
  return find_in(lists.by_reference, reference);
}

const Entry* find_key(const Lists& lists, const ServiceKey& key, std::uint16_t list) {
  const Entry* first = nullptr;
  auto each = std::ranges::lower_bound(lists.by_key, key, {}, &decltype(lists.by_key)::value_type::first);
  for (; each != lists.by_key.end() && each->first == key; ++each) {
    if (each->second->channel.list == list) return each->second;
    if (first == nullptr) first = each->second;
  }
  return first;
}

const Entry* find_named(const Lists& lists, std::string_view word) {
  std::size_t list = 0;
  if (const std::size_t colon = word.find(':'); colon != std::string_view::npos) {
    const auto* const medium = std::ranges::find(kMedia, word.substr(0, colon), medium_name);
    if (medium == std::end(kMedia)) return nullptr;
    list = static_cast<std::size_t>(*medium);
    word.remove_prefix(colon + 1);
  }
  const std::size_t point = word.find('.');
  const auto number = parse_number<std::uint32_t>(word.substr(0, point));
  const auto minor = point == std::string_view::npos ? std::optional<std::uint32_t>()
                                                     : parse_number<std::uint32_t>(word.substr(point + 1));
  if (!number || (point != std::string_view::npos && !minor)) return nullptr;
  const auto& order = lists.views[list].order;
  const auto found = std::ranges::find_if(order, [&](const Entry* each) {
    return each->channel.number == *number && (!minor || minor_of(each->channel.id) == *minor);
  });
  return found == order.end() ? nullptr : *found;
}

std::string no_channel_named(std::string_view word) {
  return "there is no channel \"" + clean_text(word, kLongestName) +
         "\"; a channel is a number, as 7, 7.1, air:7, cable:7 or satellite:7, and \"channels\" lists them";
}

const Entry* find_number(const Lists& lists, std::uint32_t number) {
  const auto& order = lists.views[0].order;
  const auto found =
      std::ranges::lower_bound(order, number, {}, [](const Entry* each) { return each->channel.number; });
  return found == order.end() || (*found)->channel.number != number ? nullptr : *found;
}

const Entry* at_index(const View& view, const Fit& fit, std::int64_t index) {
  const Entry* found = nullptr;
  walk(view, fit, [&](std::size_t i) {
    if (index-- == 0) found = view.order[i];
    return found != nullptr;
  });
  return found;
}

std::int32_t count_fitting(const View& view, const Fit& fit) {
  std::int32_t count = 0;
  walk(view, fit, [&](std::size_t) {
    ++count;
    return false;
  });
  return count;
}

std::int32_t index_of(const View& view, const Fit& fit, const Entry& entry) {
  std::int32_t index = -1;
  const bool found = walk(view, fit, [&](std::size_t i) {
    ++index;
    return view.order[i] == &entry;
  });
  return found ? index : -1;
}

std::int32_t nearest_index(const View& view, const Fit& fit, std::uint32_t number) {
  std::int32_t index = 0, nearest = -1;
  std::int64_t least = 0;
  walk(view, fit, [&](std::size_t i) {
    const std::int64_t apart = std::abs(std::int64_t{view.order[i]->channel.number} - number);
    if (nearest < 0 || apart < least) {
      nearest = index;
      least = apart;
    }
    ++index;
    return false;
  });
  return nearest;
}

std::vector<std::uint32_t> fitting_references(const View& view, const Fit& fit) {
  std::vector<std::uint32_t> found;
  walk(view, fit, [&](std::size_t i) {
    found.push_back(reference_of(*view.order[i]));
    return false;
  });
  return found;
}

const Entry* neighbour(const View& view, const Fit& fit, const Entry* from, int by) {
  const auto at = static_cast<std::size_t>(std::ranges::find(view.order, from) - view.order.begin());
  const bool known = at < view.order.size();
  const Entry* found = nullptr;
  walk(view, fit, [&](std::size_t i) {
    if (by > 0) {
      if (!known || i > at) found = view.order[i];
      return found != nullptr;
    }
    if (known && i >= at) return true;
    found = view.order[i];
    return false;
  });
  return found;
}

const Entry* step(const View& view, const Fit& fit, const Entry* from, int by) {
  const Entry* const next = neighbour(view, fit, from, by);
  return next != nullptr ? next : neighbour(view, fit, nullptr, by);
}

// ---- Editing ----

void index_lists(Lists& lists) {
  std::ranges::sort(lists.entries, {}, [](const auto& each) { return order_of(*each); });
  lists.views = {};
  lists.by_id.clear();
  lists.by_reference.clear();
  lists.by_key.clear();
  for (const auto& entry : lists.entries) {
    const Channel& channel = entry->channel;
    add_to(lists.views[0], *entry);
    add_to(lists.views[channel.list], *entry);
    lists.by_id.emplace_back(channel.id, entry.get());
    lists.by_reference.emplace_back(reference_of(*entry), entry.get());
    lists.by_key.emplace_back(channel.key, entry.get());
  }
  // Stable: of equal keys, the first in the list comes first.
  std::ranges::stable_sort(lists.by_id, {}, &decltype(lists.by_id)::value_type::first);
  std::ranges::sort(lists.by_reference, {}, &decltype(lists.by_reference)::value_type::first);
  std::ranges::stable_sort(lists.by_key, {}, &decltype(lists.by_key)::value_type::first);
  for (std::size_t i = 0; i < kFavourites; ++i) {
    View& view = lists.favourite_views[i] = {};
    std::erase_if(lists.favourites[i], [&](std::uint32_t reference) {
      const Entry* const entry = find_reference(lists, reference);
      if (entry != nullptr) add_to(view, *entry);
      return entry == nullptr;
    });
  }
}

void replace_entry(Lists& lists, Entry entry) {
  const auto place =
      std::ranges::find(lists.entries, reference_of(entry), [](const auto& each) { return reference_of(*each); });
  if (place != lists.entries.end()) *place = std::make_shared<const Entry>(std::move(entry));
}

void undo_half_swap(Lists& lists) {
  for (auto& place : lists.entries) {
    if (place->former == 0) continue;
    Entry entry = *place;
    if (shares_id(lists, entry)) set_id(entry, entry.former);
    entry.former = 0;
    place = std::make_shared<const Entry>(std::move(entry));
  }
}

std::vector<Difference> differences(const Lists& before, const Lists& after) {
  std::vector<Difference> found;
  auto old = before.by_reference.begin();
  auto now = after.by_reference.begin();
  while (old != before.by_reference.end() || now != after.by_reference.end()) {
    const bool has_old = old != before.by_reference.end(), has_now = now != after.by_reference.end();
    if (has_old && (!has_now || old->first < now->first)) {
      found.push_back({(old++)->second, nullptr});
    } else if (!has_old || now->first < old->first) {
      found.push_back({nullptr, (now++)->second});
    } else {
      if (old->second != now->second && *old->second != *now->second) found.push_back({old->second, now->second});
      ++old;
      ++now;
    }
  }
  return found;
}
