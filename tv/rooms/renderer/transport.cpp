// AVTransport: what is played, and how.
#include <algorithm>

#include "base/text.h"
#include "rooms/home_network/loop.h"
#include "rooms/renderer/rows.h"
#include "rooms/renderer/types.h"

namespace {

using namespace std::literals;

constexpr std::size_t kLongestApplicationAddress = 255;  // bytes; room for an address in the TV API

constexpr std::string_view kTransportNames[] = {"NO_MEDIA_PRESENT", "STOPPED", "TRANSITIONING", "PLAYING",
                                                "PAUSED_PLAYBACK"};
constexpr std::string_view kStatusNames[] = {"OK", "ERROR_OCCURRED"};
constexpr std::string_view kModeNames[] = {"NORMAL", "REPEAT_ONE", "REPEAT_ALL"};
constexpr std::string_view kMedia[] = {"NONE", "NETWORK"};
constexpr std::string_view kSpeeds[] = {"1"};
constexpr std::string_view kSeekModes[] = {"TRACK_NR", "REL_TIME", "ABS_TIME"};
constexpr std::string_view kNotImplemented = "NOT_IMPLEMENTED";
constexpr std::string_view kNotImplementedOnly[] = {kNotImplemented};
// The value that the service defines for a counter that is not implemented.
constexpr std::string_view kNoCounter = "2147483647";

bool has_media(const Model& shown) { return shown.transport != Transport::kNoMedia; }

double duration_of(const Model& shown) { return shown.duration > 0 ? shown.duration : shown.current.duration; }

std::string or_not_implemented(const std::string& text) { return text.empty() ? std::string(kNotImplemented) : text; }

std::string transport(const Model& shown) { return std::string(kTransportNames[static_cast<int>(shown.transport)]); }
std::string status(const Model& shown) { return std::string(kStatusNames[shown.reason.empty() ? 0 : 1]); }
std::string mode(const Model& shown) { return std::string(kModeNames[static_cast<int>(shown.mode)]); }
std::string medium(const Model& shown) { return std::string(kMedia[has_media(shown) ? 1 : 0]); }
std::string tracks(const Model& shown) { return has_media(shown) ? "1" : "0"; }
std::string duration(const Model& shown) { return write_clock(duration_of(shown)); }
std::string address(const Model& shown) { return shown.current.address; }
std::string metadata(const Model& shown) { return shown.current.metadata; }
std::string next_address(const Model& shown) { return shown.next.address; }
std::string next_metadata(const Model& shown) { return shown.next.metadata; }
std::string track_metadata(const Model& shown) { return or_not_implemented(shown.current.metadata); }
std::string position(const Model& shown) { return write_clock(shown.position); }
std::string counter(const Model&) { return std::string(kNoCounter); }
std::string one(const Model&) { return "1"; }
std::string network_only(const Model&) { return "NETWORK"; }
std::string not_implemented(const Model&) { return std::string(kNotImplemented); }

std::string actions_now(const Model& shown) {
  if (!has_media(shown)) return "";
  std::string list = "Stop,Seek,Previous";
  if (!shown.next.address.empty()) list += ",Next";
  if (shown.transport == Transport::kPlaying) return "Pause," + list;
  return "Play," + list;
}

constexpr Variable kVariables[] = {
    {.name = "TransportState",
     .type = "string",
     .read = transport,
     .allowed = kTransportNames,
     .told = Told::kLastChange},
    {.name = "TransportStatus", .type = "string", .read = status, .allowed = kStatusNames, .told = Told::kLastChange},
    {.name = "PlaybackStorageMedium", .type = "string", .read = medium, .allowed = kMedia, .told = Told::kLastChange},
    {.name = "RecordStorageMedium",
     .type = "string",
     .read = not_implemented,
     .allowed = kNotImplementedOnly,
     .told = Told::kLastChange},
    {.name = "PossiblePlaybackStorageMedia", .type = "string", .read = network_only, .told = Told::kLastChange},
    {.name = "PossibleRecordStorageMedia", .type = "string", .read = not_implemented, .told = Told::kLastChange},
    {.name = "CurrentPlayMode",
     .type = "string",
     .read = mode,
     .allowed = kModeNames,
     .invalid = kPlayModeNotSupported,
     .told = Told::kLastChange},
    {.name = "TransportPlaySpeed",
     .type = "string",
     .read = one,
     .allowed = kSpeeds,
     .invalid = kSpeedNotSupported,
     .told = Told::kLastChange},
    {.name = "RecordMediumWriteStatus",
     .type = "string",
     .read = not_implemented,
     .allowed = kNotImplementedOnly,
     .told = Told::kLastChange},
    {.name = "CurrentRecordQualityMode",
     .type = "string",
     .read = not_implemented,
     .allowed = kNotImplementedOnly,
     .told = Told::kLastChange},
    {.name = "PossibleRecordQualityModes", .type = "string", .read = not_implemented, .told = Told::kLastChange},
    {.name = "NumberOfTracks", .type = "ui4", .read = tracks, .maximum = 1, .told = Told::kLastChange},
    {.name = "CurrentTrack", .type = "ui4", .read = tracks, .maximum = 1, .told = Told::kLastChange},
    {.name = "CurrentTrackDuration", .type = "string", .read = duration, .told = Told::kLastChange},
    {.name = "CurrentMediaDuration", .type = "string", .read = duration, .told = Told::kLastChange},
    {.name = "CurrentTrackMetaData", .type = "string", .read = track_metadata, .told = Told::kLastChange},
    {.name = "CurrentTrackURI", .type = "string", .read = address, .told = Told::kLastChange},
    {.name = "AVTransportURI", .type = "string", .read = address, .told = Told::kLastChange},
    {.name = "AVTransportURIMetaData", .type = "string", .read = metadata, .told = Told::kLastChange},
    {.name = "NextAVTransportURI", .type = "string", .read = next_address, .told = Told::kLastChange},
    {.name = "NextAVTransportURIMetaData", .type = "string", .read = next_metadata, .told = Told::kLastChange},
    {.name = "RelativeTimePosition", .type = "string", .read = position},
    {.name = "AbsoluteTimePosition", .type = "string", .read = position},
    {.name = "RelativeCounterPosition", .type = "i4", .read = counter},
    {.name = "AbsoluteCounterPosition", .type = "i4", .read = counter},
    {.name = "CurrentTransportActions", .type = "string", .read = actions_now, .told = Told::kLastChange},
    {.name = "LastChange", .type = "string", .told = Told::kEvent},
    {.name = "A_ARG_TYPE_SeekMode", .type = "string", .allowed = kSeekModes, .invalid = kSeekModeNotSupported},
    {.name = "A_ARG_TYPE_SeekTarget", .type = "string"},
    {.name = kInstanceVariable, .type = "ui4", .invalid = kInvalidInstance},
};

Model copy_of_model() {
  const std::lock_guard guard(model_lock);
  return model;
}

ActionOutcome failed(const std::string& why) {
  return why.empty() ? ActionOutcome{} : ActionOutcome{kActionFailed, why};
}

// Why the renderer refuses to load an item; kDone: it accepts it.
ActionOutcome check_item(const Model& shown, const Item& item) {
  const std::size_t longest = shown.instances.empty() ? kLongestItemAddress : kLongestApplicationAddress;
  if (item.address.size() > longest)
    return {kResourceNotFound, "the address is longer than " + std::to_string(longest) + " bytes"};
  if (!item.address.starts_with("http://")) return {kResourceNotFound, "the renderer plays from http addresses only"};
  const auto printable = [](char c) { return c > ' ' && c != 0x7F; };
  if (!std::ranges::all_of(item.address, [&](char c) { return printable(c) || static_cast<unsigned char>(c) >= 0x80; }))
    return {kResourceNotFound, "the address has spaces or control characters"};
  if (!home_is_near(item.address))
    return {kResourceNotFound, "the address is not a number on a network that the renderer is connected to"};
  const std::string type = item_media_type(item.protocol_info);
  const MediaType* const row = media_type_row(type);
  if (!type.empty() && (row == nullptr || (row->photo && shown.instances.empty())))
    return {kIllegalMediaType, "the renderer does not play this type; ConnectionManager lists those that it plays"};
  return {};
}

ActionOutcome set_address(Call& call) {
  const Model shown = copy_of_model();
  Item item;
  if (!call.in["CurrentURI"].empty()) {
    item = item_read(call.in["CurrentURI"], call.in["CurrentURIMetaData"]);
    if (ActionOutcome outcome = check_item(shown, item); outcome.error != kDone) return outcome;
  }
  ActionOutcome outcome = failed(player_load(std::move(item)));
  subscribers_look();
  return outcome;
}

ActionOutcome set_next_address(Call& call) {
  const Model shown = copy_of_model();
  if (!has_media(shown)) return {kTransitionNotAvailable, "there is nothing that the next item would follow"};
  Item item;
  if (!call.in["NextURI"].empty()) {
    item = item_read(call.in["NextURI"], call.in["NextURIMetaData"]);
    if (ActionOutcome outcome = check_item(shown, item); outcome.error != kDone) return outcome;
  }
  {
    const std::lock_guard guard(model_lock);
    model.next = std::move(item);
  }
  player_next_changed();
  subscribers_look();
  return {};
}

ActionOutcome with_media(std::string (*act)()) {
  player_follow();
  if (!has_media(copy_of_model())) return {kTransitionNotAvailable, "nothing is loaded"};
  ActionOutcome outcome = failed(act());
  subscribers_look();
  return outcome;
}

ActionOutcome play(Call&) { return with_media(player_play); }
ActionOutcome stop(Call&) { return with_media(player_stop); }
ActionOutcome previous(Call&) { return with_media(player_previous); }

ActionOutcome pause(Call&) {
  player_follow();
  const Transport now = copy_of_model().transport;
  if (now == Transport::kPaused) return {};
  if (now != Transport::kPlaying) return {kTransitionNotAvailable, "only what is playing can be paused"};
  return with_media(player_pause);
}

ActionOutcome next(Call&) {
  const Model shown = copy_of_model();
  if (has_media(shown) && shown.next.address.empty())
    return {kIllegalSeekTarget, "there is no next item; SetNextAVTransportURI sets one"};
  return with_media(player_next);
}

ActionOutcome seek(Call& call) {
  player_follow();
  const Model shown = copy_of_model();
  if (!has_media(shown)) return {kTransitionNotAvailable, "nothing is loaded"};
  const std::string& target = call.in["Target"];
  double seconds = 0;
  if (call.in["Unit"] == "TRACK_NR") {
    if (target != "1") return {kIllegalSeekTarget, "there is one track, number 1"};
  } else {
    const auto time = read_clock(target);
    if (!time) return {kIllegalSeekTarget, "the target is not a time like 0:01:30"};
    if (duration_of(shown) > 0 && *time > duration_of(shown))
      return {kIllegalSeekTarget, "the target is after the end, " + write_clock(duration_of(shown))};
    seconds = *time;
  }
  ActionOutcome outcome = failed(player_seek(seconds));
  subscribers_look();
  return outcome;
}

ActionOutcome set_play_mode(Call& call) {
  const auto* const found = std::ranges::find(kModeNames, call.in["NewPlayMode"]);
  {
    const std::lock_guard guard(model_lock);
    model.mode = static_cast<PlayMode>(found - std::begin(kModeNames));
  }
  subscribers_look();
  return {};
}

ActionOutcome look(Call&) {
  player_follow();
  return {};
}

constexpr Argument kInstance = {"InstanceID", false, kInstanceVariable};
constexpr Argument kInstanceOnly[] = {kInstance};
constexpr Argument kSetAddress[] = {
    kInstance, {"CurrentURI", false, "AVTransportURI"}, {"CurrentURIMetaData", false, "AVTransportURIMetaData"}};
constexpr Argument kSetNextAddress[] = {
    kInstance, {"NextURI", false, "NextAVTransportURI"}, {"NextURIMetaData", false, "NextAVTransportURIMetaData"}};
constexpr Argument kMediaInfo[] = {kInstance,
                                   {"NrTracks", true, "NumberOfTracks"},
                                   {"MediaDuration", true, "CurrentMediaDuration"},
                                   {"CurrentURI", true, "AVTransportURI"},
                                   {"CurrentURIMetaData", true, "AVTransportURIMetaData"},
                                   {"NextURI", true, "NextAVTransportURI"},
                                   {"NextURIMetaData", true, "NextAVTransportURIMetaData"},
                                   {"PlayMedium", true, "PlaybackStorageMedium"},
                                   {"RecordMedium", true, "RecordStorageMedium"},
                                   {"WriteStatus", true, "RecordMediumWriteStatus"}};
constexpr Argument kTransportInfo[] = {kInstance,
                                       {"CurrentTransportState", true, "TransportState"},
                                       {"CurrentTransportStatus", true, "TransportStatus"},
                                       {"CurrentSpeed", true, "TransportPlaySpeed"}};
constexpr Argument kPositionInfo[] = {kInstance,
                                      {"Track", true, "CurrentTrack"},
                                      {"TrackDuration", true, "CurrentTrackDuration"},
                                      {"TrackMetaData", true, "CurrentTrackMetaData"},
                                      {"TrackURI", true, "CurrentTrackURI"},
                                      {"RelTime", true, "RelativeTimePosition"},
                                      {"AbsTime", true, "AbsoluteTimePosition"},
                                      {"RelCount", true, "RelativeCounterPosition"},
                                      {"AbsCount", true, "AbsoluteCounterPosition"}};
constexpr Argument kCapabilities[] = {kInstance,
                                      {"PlayMedia", true, "PossiblePlaybackStorageMedia"},
                                      {"RecMedia", true, "PossibleRecordStorageMedia"},
                                      {"RecQualityModes", true, "PossibleRecordQualityModes"}};
constexpr Argument kSettings[] = {
    kInstance, {"PlayMode", true, "CurrentPlayMode"}, {"RecQualityMode", true, "CurrentRecordQualityMode"}};
constexpr Argument kActionsNow[] = {kInstance, {"Actions", true, "CurrentTransportActions"}};
constexpr Argument kPlay[] = {kInstance, {"Speed", false, "TransportPlaySpeed"}};
constexpr Argument kSeek[] = {
    kInstance, {"Unit", false, "A_ARG_TYPE_SeekMode"}, {"Target", false, "A_ARG_TYPE_SeekTarget"}};
constexpr Argument kPlayMode[] = {kInstance, {"NewPlayMode", false, "CurrentPlayMode"}};

constexpr Action kActions[] = {
    {"SetAVTransportURI", kSetAddress, set_address},
    {"SetNextAVTransportURI", kSetNextAddress, set_next_address},
    {"GetMediaInfo", kMediaInfo, look},
    {"GetTransportInfo", kTransportInfo, look},
    {"GetPositionInfo", kPositionInfo, look},
    {"GetDeviceCapabilities", kCapabilities},
    {"GetTransportSettings", kSettings},
    {"GetCurrentTransportActions", kActionsNow, look},
    {"Stop", kInstanceOnly, stop},
    {"Play", kPlay, play},
    {"Pause", kInstanceOnly, pause},
    {"Seek", kSeek, seek},
    {"Next", kInstanceOnly, next},
    {"Previous", kInstanceOnly, previous},
    {"SetPlayMode", kPlayMode, set_play_mode},
};

static_assert(std::size(kVariables) <= 64);  // each has a bit in Bits

}  // namespace

std::span<const Variable> transport_variables() { return kVariables; }

std::span<const Action> transport_actions() { return kActions; }
