// The channel lists in memory: what they consist of, how channels are found in them, and how they are edited. These are
// functions over plain records, without a lock; state.h says who uses which copy.
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "rooms/channels/channels.h"

// ---- Bounds. A file or a broadcast can fill the lists up to them ----

inline constexpr std::size_t kMostChannels = 10'000;     // of all service lists together
inline constexpr std::size_t kMostSatellites = 200;      // orbital positions
inline constexpr std::size_t kMostMultiplexes = 10'000;  // known multiplexes
inline constexpr std::size_t kMostCategories = 20;       // what LOL_CATEGORY_LIST_T holds

inline constexpr std::uint16_t kFirstList = kListAir, kLastList = kListSatellite;
inline constexpr std::uint32_t kLastNumber = (1u << 14) - 1;  // the largest major number that an identifier can hold
inline constexpr std::uint32_t kFirstFreeNumber = 800;        // for services without a number
inline constexpr std::uint8_t kFavouriteLists = 4;            // of a service list

inline constexpr std::int16_t kFurthestOrbit = 1800;  // tenths of a degree, east or west

inline constexpr std::size_t kLongestName = sizeof SVL_REC_HDR_T{}.ac_name - 1;
inline constexpr std::size_t kLongestShortName = sizeof SVL_DVB_T{}.s_svc_name - 1;
inline constexpr std::size_t kLongestSatelliteName = sizeof SATL_REC_T{}.ac_sat_name - 1;
inline constexpr std::size_t kLongestCategoryName = sizeof LOL_CATEGORY_T{}.ac_category_name - 1;

// ---- Records ----

// A channel with what only the TV API shows of it. Immutable once it is in the lists: copies of the lists share it.
struct Entry {
  Channel channel;
  std::uint32_t mask = 0;     // ui4_nw_mask; change it by set_mask
  std::uint32_t options = 0;  // ui4_option_mask
  std::uint8_t broadcast = SVL_BRDCST_TYPE_DVB;
  std::uint32_t symbol_rate = 0;
  std::int16_t orbit = 0;  // of a satellite, tenths of a degree; 0: not known
  bool horizontal = false;
  std::uint32_t categories = 0;  // bit N: it belongs to category N
  std::uint16_t logo = 0;
  // A client swaps the identifiers of two channels by two writes. Between them both have one identifier; the channel
  // that was written first has its former identifier here. 0 otherwise.
  std::uint32_t former = 0;

  bool operator==(const Entry&) const = default;
};

struct Satellite {
  std::uint16_t record = 0;
  std::int16_t orbit = 0;
  std::string name;
  bool operator==(const Satellite&) const = default;
};

struct Category {
  std::uint16_t number = 0;  // 0 to 31
  std::string name;
  bool operator==(const Category&) const = default;
};

// Channels in an order, with their network bits beside them: a walk over 2,000 channels then reads 8 kB.
struct View {
  std::vector<const Entry*> order;
  std::vector<std::uint32_t> masks;
};

// Favourite lists: 0 that of the one channel list, then those of the service lists.
inline constexpr std::size_t kFavourites = 1 + kLastList * kFavouriteLists;
constexpr std::size_t favourites_of(std::uint16_t list, std::uint8_t index) {
  return 1 + (list - std::size_t{kFirstList}) * kFavouriteLists + index;
}

struct Lists {
  std::vector<std::shared_ptr<const Entry>> entries;               // in the order of the one channel list
  std::array<std::vector<std::uint32_t>, kFavourites> favourites;  // references, in the viewer's order
  std::vector<Satellite> satellites;                               // by their records
  std::vector<Category> categories;                                // by their numbers
  std::vector<KnownMultiplex> multiplexes;
  std::uint64_t changes = 0;
  std::uint32_t satellites_version = 1;
  std::uint32_t categories_version = 1;

  // Everything below follows from the above: see index_lists. The addresses are of `entries`.
  std::array<View, kLastList + 1> views;  // 0: the one channel list; then by service list
  std::array<View, kFavourites> favourite_views;
  std::vector<std::pair<std::uint32_t, const Entry*>> by_id, by_reference;  // sorted
  std::vector<std::pair<ServiceKey, const Entry*>> by_key;                  // sorted
};

// ---- Identifiers ----

constexpr bool is_list(std::uint32_t list) { return list >= kFirstList && list <= kLastList; }

constexpr std::uint32_t major_of(std::uint32_t id) { return id >> 18; }
constexpr std::uint32_t minor_of(std::uint32_t id) { return id >> 8 & 0x3FF; }  // 0 of DVB channels
constexpr std::uint32_t place_of(std::uint32_t id) { return id >> 8; }          // both numbers

constexpr std::uint32_t id_of(std::uint32_t number, std::uint32_t minor, std::uint16_t list) {
  return number << 18 | minor << 8 | list;
}
constexpr bool is_id(std::uint32_t id, std::uint16_t list) {
  return major_of(id) != 0 && (id & SVL_CHANNEL_ID_KEPT) == list;
}

// A channel's reference. It stays when the identifier changes. The largest is smaller than the smallest identifier, so
// that one is never taken for the other.
constexpr std::uint32_t reference_of(std::uint16_t list, std::uint16_t record) {
  return std::uint32_t{list} << 16 | record;
}
inline std::uint32_t reference_of(const Entry& entry) { return reference_of(entry.channel.list, entry.channel.record); }
constexpr bool is_reference(std::uint32_t number) { return number < id_of(1, 0, 0); }
static_assert(is_reference(reference_of(kLastList, 0xFFFF)));

// Set the member and those that follow from it.
void set_id(Entry& entry, std::uint32_t id);
void set_mask(Entry& entry, std::uint32_t mask);

// SVL_SERV_TYPE_* of a service_type of the SDT.
int service_type(std::uint8_t type);

// ---- Texts ----

// "19.2E"
std::string orbit_text(std::int16_t orbit);

// ---- Finding; null: there is no such channel ----

const Entry* find_id(const Lists& lists, std::uint32_t id);  // of two with one identifier, the first in the list
const Entry* find_reference(const Lists& lists, std::uint32_t reference);
const Entry* find_key(const Lists& lists, const ServiceKey& key, std::uint16_t list);  // see channels_by_key
const Entry* find_named(const Lists& lists, std::string_view word);                    // see channels_named
const Entry* find_number(const Lists& lists, std::uint32_t number);

std::string no_channel_named(std::string_view word);  // why find_named finds none

// Which channels count. The mask says which network bits count, and the value what they are to be.
struct Fit {
  std::uint32_t mask = 0;
  std::uint32_t value = 0;
  bool of_satellite = false;
  std::optional<std::int16_t> orbit = std::nullopt;
  std::uint32_t categories = 0;  // one of these; 0: any
  std::string_view name = {};    // part of the name, whatever its case; empty: any
};

const Entry* at_index(const View& view, const Fit& fit, std::int64_t index);
std::int32_t count_fitting(const View& view, const Fit& fit);
// -1: it does not fit, or is not there.
std::int32_t index_of(const View& view, const Fit& fit, const Entry& entry);
// The fitting channel whose major number is nearest, the lower of two; -1: none fits.
std::int32_t nearest_index(const View& view, const Fit& fit, std::uint32_t number);
std::vector<std::uint32_t> fitting_references(const View& view, const Fit& fit);
// The next (by 1) or the previous (by -1) fitting channel; from null: the first or the last one.
const Entry* neighbour(const View& view, const Fit& fit, const Entry* from, int by);
// The same over the ends.
const Entry* step(const View& view, const Fit& fit, const Entry* from, int by);

inline constexpr Fit kShown{.mask = SVL_NW_MASK_ACTIVE | SVL_NW_MASK_VISIBLE,
                            .value = SVL_NW_MASK_ACTIVE | SVL_NW_MASK_VISIBLE};

// ---- Editing. Views and look-ups show the lists as they were until index_lists is called ----

// Sorts the entries, removes favourites that are gone, and fills what follows from them.
void index_lists(Lists& lists);

// Replaces the channel with the entry's reference.
void replace_entry(Lists& lists, Entry entry);

// Gives the channel of an unfinished swap its former identifier again, if it still shares one with another.
void undo_half_swap(Lists& lists);

// What a scan or a file says of a service.
struct Service {
  FoundService found;
  std::uint8_t broadcast = SVL_BRDCST_TYPE_DVB;
  std::uint16_t minor = 0;  // minor number
};

// channels_take_scan on a copy of the lists; searched and update as there. Returns why not, or an empty text.
std::string take_services(Lists& lists, std::span<const Service> services, std::span<const Medium> searched,
                          bool update, ScanOutcome& ret_outcome);

// Names the satellite at this position, or adds it. Without a name a new one is named after its position.
std::string take_satellite(Lists& lists, std::int16_t orbit, std::string_view name);

// Adds those that are not known yet.
std::string take_multiplexes(Lists& lists, std::span<const KnownMultiplex> found);

// ---- Differences between two states of the lists ----

struct Difference {
  const Entry* before;  // null: added
  const Entry* after;   // null: removed
};
std::vector<Difference> differences(const Lists& before, const Lists& after);
