// The channel lists, for the other rooms: services that a scan found, with what the viewer made of them. Reads never
// wait for the disk. The room's lock comes after the tuner's, the antenna's and the guide's; callers may hold theirs.
#pragma once

#include <boost/json/fwd.hpp>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "broadcast/tables.h"
#include "core/contract.h"

// Service lists, by svl_id. A channel's identifier has the list's number in its lowest four bits, so that identifiers
// of different lists differ.
inline constexpr std::uint16_t kListAir = 1, kListCable = 2, kListSatellite = 3;

struct Channel {
  std::uint32_t id = 0;      // ui4_channel_id, see tvapi/channel.h; the viewer can change it, and so the number
  std::uint16_t list = 0;    // svl_id
  std::uint16_t record = 0;  // svl_rec_id: stays when the identifier changes
  ServiceKey key;
  std::uint32_t number = 0;  // the major number of id
  std::string name;
  std::string short_name;
  std::string provider;
  std::uint8_t type = 0;  // service_type of the SDT
  bool scrambled = false;
  bool blocked = false;  // by the viewer
  bool skipped = false;  // by CH+ and CH-
  bool hidden = false;   // not in the list (SVL_NW_MASK_ACTIVE is clear), but can be tuned
  Medium medium = Medium::kAir;
  std::uint32_t frequency = 0;  // of its multiplex, as in TSL_REC_T

  bool operator==(const Channel&) const = default;
};

// What a scan found of a service.
struct FoundService {
  ServiceKey key;
  std::string name = {};
  std::string short_name = {};
  std::string provider = {};
  std::uint8_t type = 0;
  bool scrambled = false;
  bool hidden = false;
  std::optional<std::uint16_t> number = {};  // logical channel number
  Medium medium = Medium::kAir;
  std::uint32_t frequency = 0;
  std::uint32_t symbol_rate = 0;
  std::int16_t orbit = 0;  // of a satellite; see Nit::Multiplex
  bool horizontal = false;
};

struct ScanOutcome {
  std::size_t added = 0;
  std::size_t changed = 0;
  std::size_t removed = 0;
};

// The folder with the channels' logos beside multiplexes, or beside a list that is imported; see logos.h.
inline constexpr const char* kLogosBeside = "/logos";

struct ScanResult {
  std::span<const FoundService> found;
  std::span<const Medium> searched;  // to the end
  bool update = false;
  std::string logos = {};  // a folder with the channels' logos, which need not exist
};

// Takes a scan's result into the service lists of its services' media and of those that were searched, in one
// transaction, and posts the channel list callback. update false: these lists become exactly what was found, so that
// the list of a medium that was searched in vain is empty. update true: services known already keep their numbers and
// what the viewer changed, and those that were not found stay. A service without a number, or whose number is taken,
// gets the next free one from 800 up. False with ret_error if the change was not saved.
bool channels_take_scan(const ScanResult& scan, ScanOutcome& ret_outcome, std::string& ret_error);

std::optional<Channel> channels_by_id(std::uint32_t channel_id);
std::optional<Channel> channels_by_number(std::uint32_t number);  // in the one channel list, visible or not

// The service's channel. A service can be in several lists: its channel in this one counts before the others.
std::optional<Channel> channels_by_key(const ServiceKey& key, std::uint16_t list = 0);

// The service list of the channel with this identifier.
constexpr std::uint16_t list_of_id(std::uint32_t channel_id) {
  return static_cast<std::uint16_t>(channel_id & SVL_CHANNEL_ID_KEPT);
}

// The channel that a word of a command names: 7 or 7.1 in the one channel list, air:7, cable:7 or satellite:7 in a
// service list. Nothing, with ret_error for the reply: there is none.
std::optional<Channel> channels_named(std::string_view word, std::string& ret_error);

// A frequency in a reply, in MHz. frequency: as in TSL_REC_T.
boost::json::value megahertz(Medium medium, std::uint32_t frequency);

// All channels of a service, which may be in several lists, in the order of the one channel list.
std::vector<Channel> channels_all_by_key(const ServiceKey& key);

// The number of the channel's logo (aui1_custom_data of tvapi/channel.h); 0: it has none.
std::uint16_t channels_logo(std::uint32_t channel_id);

// The channel that CH+ (by 1) or CH- (by -1) reaches from this one in the one channel list, over its ends; nothing when
// the list has no channel to show. An unknown identifier counts as before the first.
std::optional<Channel> channels_step(std::uint32_t channel_id, int by);

// The same over the favourites.
std::optional<Channel> channels_step_favourite(std::uint32_t channel_id, int by);

// Adds the channel to the favourites, or removes it. Returns whether it is one now; nothing if it was not saved.
std::optional<bool> channels_toggle_favourite(std::uint32_t channel_id);

bool channels_is_favourite(std::uint32_t channel_id);

// The identifiers of the channels that a viewer sees, in their order: of the one channel list, or of the favourites.
enum class ShownList { kAll, kFavourites };
std::vector<std::uint32_t> channels_shown(ShownList list);

// The channel's records as the TV API has them. False: there is no such channel.
bool channels_records(std::uint32_t channel_id, SVL_REC_T& ret_service, TSL_REC_T& ret_stream);

// All channels in the order of the one channel list, hidden ones included.
std::vector<Channel> channels_all();

std::size_t channels_count();

// A multiplex that an imported table names, without its services.
struct KnownMultiplex {
  std::string table;  // the file's name
  Medium medium = Medium::kAir;
  std::uint32_t frequency = 0;  // as in TSL_REC_T
  std::uint32_t symbol_rate = 0;
  std::int16_t orbit = 0;  // of a satellite; 0: not known
  bool horizontal = false;

  bool operator==(const KnownMultiplex&) const = default;
};

// In the order in which they were imported.
std::vector<KnownMultiplex> channels_known_multiplexes();

// Incremented with each change of the lists, so that a room can detect one.
std::uint64_t channels_changes();
