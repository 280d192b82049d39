// Takes what a scan or a file has found into the lists.
#include <algorithm>
#include <map>
#include <set>

#include "core/text.h"
#include "rooms/channels/lists.h"

namespace {

std::uint16_t list_of(const Service& service) { return static_cast<std::uint16_t>(service.found.medium); }

// Identifies a service within all lists: a service can be in two lists, since a network repeats another's.
using Place = std::pair<std::uint16_t, ServiceKey>;

struct Taking {
  std::map<Place, Entry> known;
  std::array<std::set<std::uint32_t>, kLastList + 1> taken;    // places of identifiers (place_of), by list
  std::array<std::uint32_t, kLastList + 1> last_records = {};  // by list
  std::array<std::set<std::uint16_t>, kLastList + 1> records;  // those in use, by list
  std::array<std::uint32_t, kLastList + 1> next_free;          // by list: no smaller number from 800 up is free
};

// A broadcast can name a position that does not exist; it then counts as not known.
std::int16_t orbit_of(const Service& service) {
  const std::int16_t orbit = service.found.orbit;
  return service.found.medium == Medium::kSatellite && orbit >= -kFurthestOrbit && orbit <= kFurthestOrbit
             ? orbit
             : std::int16_t{0};
}

void set_texts(Entry& entry, const Service& service) {
  const FoundService& found = service.found;
  Channel& channel = entry.channel;
  if ((entry.options & SVL_OPT_MASK_NAME_EDITED) == 0) channel.name = clean_text(found.name, kLongestName);
  if (channel.name.empty()) channel.name = "Service " + std::to_string(found.key.service);
  channel.short_name = clean_text(found.short_name, kLongestShortName);
  channel.provider = clean_text(found.provider, kLongestName);
}

// Everything but the number and what the viewer can change.
void set_facts(Entry& entry, const Service& service) {
  const FoundService& found = service.found;
  Channel& channel = entry.channel;
  set_texts(entry, service);
  channel.key = found.key;
  channel.type = found.type;
  channel.scrambled = found.scrambled;
  channel.medium = found.medium;
  channel.frequency = found.frequency;
  entry.broadcast = service.broadcast;
  entry.symbol_rate = found.symbol_rate;
  entry.orbit = orbit_of(service);
  entry.horizontal = found.horizontal;
}

// A record that no channel of the list has: after the highest, and when those are used up any other.
std::uint16_t new_record(Taking& taking, std::uint16_t list) {
  std::set<std::uint16_t>& records = taking.records[list];
  std::uint32_t record = taking.last_records[list] + 1;
  if (record > 0xFFFF)
    for (record = 1; records.contains(static_cast<std::uint16_t>(record));) ++record;
  else
    taking.last_records[list] = record;
  records.insert(static_cast<std::uint16_t>(record));
  return static_cast<std::uint16_t>(record);
}

Entry new_entry(Taking& taking, const Service& service) {
  Entry entry;
  entry.channel.list = list_of(service);
  entry.channel.record = new_record(taking, entry.channel.list);
  set_facts(entry, service);
  set_mask(entry, SVL_NW_MASK_VISIBLE | (service.found.hidden ? 0 : SVL_NW_MASK_ACTIVE));
  return entry;
}

// Gives the channel the number if it is valid and free in its list.
bool give_number(Taking& taking, Entry& entry, std::uint32_t number, std::uint32_t minor) {
  if (number == 0 || number > kLastNumber) return false;
  const std::uint32_t id = id_of(number, minor, entry.channel.list);
  if (!taking.taken[entry.channel.list].insert(place_of(id)).second) return false;
  set_id(entry, id);
  return true;
}

void give_free_number(Taking& taking, Entry& entry) {
  std::uint32_t& next = taking.next_free[entry.channel.list];
  while (next <= kLastNumber && !give_number(taking, entry, next, 0)) ++next;
}
static_assert(kLastNumber - kFirstFreeNumber > kMostChannels, "a number is free for every channel");

// Reads the lists before the change. Records of channels in lists that are replaced stay reserved, so that a reference
// never leads to another service.
Taking begin(const Lists& lists) {
  Taking taking;
  taking.next_free.fill(kFirstFreeNumber);
  for (const auto& entry : lists.entries) {
    const Channel& channel = entry->channel;
    taking.known.emplace(Place{channel.list, channel.key}, *entry);
    taking.records[channel.list].insert(channel.record);
    taking.last_records[channel.list] = std::max<std::uint32_t>(taking.last_records[channel.list], channel.record);
  }
  return taking;
}

}  // namespace

std::string take_services(Lists& lists, std::span<const Service> services, std::span<const Medium> searched,
                          bool update, ScanOutcome& ret_outcome) {
  Taking taking = begin(lists);
  std::array<bool, kLastList + 1> affected = {};
  for (const Medium each : searched) affected[static_cast<std::size_t>(each)] = true;
  for (const Service& each : services) {
    if (!is_list(list_of(each)))
      return "the service \"" + clean_text(each.found.name, kLongestName) + "\" has no medium";
    affected[list_of(each)] = true;
  }

  // The services, each once, with their channels: known ones as they were, or with the record alone.
  std::vector<std::pair<const Service*, Entry>> taken;
  std::set<Place> seen;
  for (const Service& each : services) {
    const Place place{list_of(each), each.found.key};
    if (!seen.insert(place).second) continue;
    const auto known = taking.known.find(place);
    Entry entry;
    if (known == taking.known.end()) {
      entry = new_entry(taking, each);
    } else if (update) {
      entry = known->second;
      set_facts(entry, each);
    } else {
      entry.channel.list = known->second.channel.list;
      entry.channel.record = known->second.channel.record;
      set_facts(entry, each);
      set_mask(entry, SVL_NW_MASK_VISIBLE | (each.found.hidden ? 0 : SVL_NW_MASK_ACTIVE));
    }
    taken.emplace_back(&each, std::move(entry));
  }

  ScanOutcome outcome;
  std::vector<std::shared_ptr<const Entry>> entries;
  for (const auto& entry : lists.entries) {
    const Channel& channel = entry->channel;
    if (seen.contains(Place{channel.list, channel.key})) {
      if (update) taking.taken[channel.list].insert(place_of(channel.id));
    } else if (!affected[channel.list] || update) {
      taking.taken[channel.list].insert(place_of(channel.id));
      entries.push_back(entry);
    } else {
      ++outcome.removed;
    }
  }
  if (entries.size() + taken.size() > kMostChannels) {
    return "there would be " + std::to_string(entries.size() + taken.size()) + " channels; the lists hold " +
           std::to_string(kMostChannels);
  }

  std::vector<Entry*> without_number;
  for (auto& [service, entry] : taken) {
    if (entry.channel.id != 0 || give_number(taking, entry, service->found.number.value_or(0), service->minor))
      continue;
    without_number.push_back(&entry);
  }
  for (Entry* const entry : without_number) give_free_number(taking, *entry);

  if (!update) {
    for (std::size_t i = 0; i < kFavourites; ++i)
      std::erase_if(lists.favourites[i], [&](std::uint32_t reference) { return affected[reference >> 16]; });
  }
  for (auto& [unused, entry] : taken) {
    const auto known = taking.known.find(Place{entry.channel.list, entry.channel.key});
    if (known == taking.known.end())
      ++outcome.added;
    else if (known->second != entry)
      ++outcome.changed;
    if (entry.orbit != 0)
      if (std::string why = take_satellite(lists, entry.orbit, ""); !why.empty()) return why;
    entries.push_back(std::make_shared<const Entry>(std::move(entry)));
  }
  lists.entries = std::move(entries);
  ret_outcome = outcome;
  return "";
}

std::string take_satellite(Lists& lists, std::int16_t orbit, std::string_view name) {
  const std::string clean = clean_text(name, kLongestSatelliteName);
  const auto known = std::ranges::find(lists.satellites, orbit, &Satellite::orbit);
  if (known != lists.satellites.end()) {
    if (!clean.empty()) known->name = clean;
    return "";
  }
  if (lists.satellites.size() >= kMostSatellites)
    return "there are " + std::to_string(kMostSatellites) + " satellites already";
  const int last = lists.satellites.empty() ? 0 : lists.satellites.back().record;
  lists.satellites.push_back({.record = static_cast<std::uint16_t>(last + 1),
                              .orbit = orbit,
                              .name = clean.empty() ? orbit_text(orbit) : clean});
  return "";
}

std::string take_multiplexes(Lists& lists, std::span<const KnownMultiplex> found) {
  const auto order = [](const KnownMultiplex& each) {
    return std::tuple(each.medium, each.frequency, each.orbit, each.horizontal);
  };
  std::set<decltype(order(KnownMultiplex{}))> known;
  for (const KnownMultiplex& each : lists.multiplexes) known.insert(order(each));
  for (const KnownMultiplex& each : found) {
    if (!known.insert(order(each)).second) continue;
    if (lists.multiplexes.size() >= kMostMultiplexes)
      return "there are " + std::to_string(kMostMultiplexes) + " known multiplexes already";
    lists.multiplexes.push_back(each);
  }
  return "";
}
