// RenderingControl: volume and mute, which are the set's own. ConnectionManager: what the renderer plays.
#include "base/text.h"
#include "rooms/renderer/rows.h"
#include "rooms/renderer/types.h"
#include "rooms/volume/volume.h"

namespace {

constexpr int kFactoryVolume = 20;

std::string volume(const Model&) { return std::to_string(volume_level()); }
std::string mute(const Model&) { return volume_is_muted() ? "1" : "0"; }
std::string presets(const Model&) { return "FactoryDefaults"; }

constexpr std::string_view kMaster[] = {"Master"};
constexpr std::string_view kPresets[] = {"FactoryDefaults"};

constexpr Variable kVariables[] = {
    {.name = "Volume",
     .type = "ui2",
     .read = volume,
     .maximum = 100,
     .invalid = kValueOutOfRange,
     .told = Told::kLastChange,
     .channel = true},
    {.name = "Mute", .type = "boolean", .read = mute, .told = Told::kLastChange, .channel = true},
    {.name = "PresetNameList", .type = "string", .read = presets, .told = Told::kLastChange},
    {.name = "LastChange", .type = "string", .told = Told::kEvent},
    {.name = "A_ARG_TYPE_Channel", .type = "string", .allowed = kMaster},
    {.name = "A_ARG_TYPE_PresetName", .type = "string", .allowed = kPresets, .invalid = kInvalidPreset},
    {.name = kInstanceVariable, .type = "ui4", .invalid = kInvalidRenderingInstance},
};

ActionOutcome kept(bool done) {
  return done ? ActionOutcome{} : ActionOutcome{kActionFailed, "the set could not save the change"};
}

ActionOutcome set_volume(Call& call) {
  return kept(volume_set(parse_number<int>(call.in["DesiredVolume"]).value_or(kFactoryVolume)));
}

ActionOutcome set_mute(Call& call) { return kept(mute_set(call.in["DesiredMute"] == "1")); }

ActionOutcome select_preset(Call&) { return kept(volume_set(kFactoryVolume) && mute_set(false)); }

constexpr Argument kInstance = {"InstanceID", false, kInstanceVariable};
constexpr Argument kChannel = {"Channel", false, "A_ARG_TYPE_Channel"};
constexpr Argument kListPresets[] = {kInstance, {"CurrentPresetNameList", true, "PresetNameList"}};
constexpr Argument kSelectPreset[] = {kInstance, {"PresetName", false, "A_ARG_TYPE_PresetName"}};
constexpr Argument kGetVolume[] = {kInstance, kChannel, {"CurrentVolume", true, "Volume"}};
constexpr Argument kSetVolume[] = {kInstance, kChannel, {"DesiredVolume", false, "Volume"}};
constexpr Argument kGetMute[] = {kInstance, kChannel, {"CurrentMute", true, "Mute"}};
constexpr Argument kSetMute[] = {kInstance, kChannel, {"DesiredMute", false, "Mute"}};

constexpr Action kActions[] = {
    {"ListPresets", kListPresets}, {"SelectPreset", kSelectPreset, select_preset},
    {"GetVolume", kGetVolume},     {"SetVolume", kSetVolume, set_volume},
    {"GetMute", kGetMute},         {"SetMute", kSetMute, set_mute},
};

std::string source_types(const Model&) { return ""; }
std::string sink_types(const Model& shown) { return media_types_listed(!shown.instances.empty()); }
std::string connections(const Model&) { return "0"; }

constexpr std::string_view kDirections[] = {"Input", "Output"};
constexpr std::string_view kStatuses[] = {"OK", "ContentFormatMismatch", "InsufficientBandwidth", "UnreliableChannel",
                                          "Unknown"};

constexpr Variable kConnectionVariables[] = {
    {.name = "SourceProtocolInfo", .type = "string", .read = source_types, .told = Told::kEvent},
    {.name = "SinkProtocolInfo", .type = "string", .read = sink_types, .told = Told::kEvent},
    {.name = "CurrentConnectionIDs", .type = "string", .read = connections, .told = Told::kEvent},
    {.name = "A_ARG_TYPE_ConnectionStatus", .type = "string", .allowed = kStatuses},
    {.name = "A_ARG_TYPE_ConnectionManager", .type = "string"},
    {.name = "A_ARG_TYPE_Direction", .type = "string", .allowed = kDirections},
    {.name = "A_ARG_TYPE_ProtocolInfo", .type = "string"},
    {.name = "A_ARG_TYPE_ConnectionID", .type = "i4"},
    {.name = "A_ARG_TYPE_AVTransportID", .type = "i4"},
    {.name = "A_ARG_TYPE_RcsID", .type = "i4"},
};

ActionOutcome connection_info(Call& call) {
  if (call.in["ConnectionID"] != "0") return {kInvalidConnection, "there is one connection, number 0"};
  const std::lock_guard guard(model_lock);
  call.out = {{"RcsID", "0"},
              {"AVTransportID", "0"},
              {"ProtocolInfo", model.current.protocol_info},
              {"PeerConnectionManager", ""},
              {"PeerConnectionID", "-1"},
              {"Direction", "Input"},
              {"Status", "OK"}};
  return {};
}

constexpr Argument kProtocolInfo[] = {{"Source", true, "SourceProtocolInfo"}, {"Sink", true, "SinkProtocolInfo"}};
constexpr Argument kConnectionIds[] = {{"ConnectionIDs", true, "CurrentConnectionIDs"}};
constexpr Argument kConnectionInfo[] = {{"ConnectionID", false, "A_ARG_TYPE_ConnectionID"},
                                        {"RcsID", true, "A_ARG_TYPE_RcsID"},
                                        {"AVTransportID", true, "A_ARG_TYPE_AVTransportID"},
                                        {"ProtocolInfo", true, "A_ARG_TYPE_ProtocolInfo"},
                                        {"PeerConnectionManager", true, "A_ARG_TYPE_ConnectionManager"},
                                        {"PeerConnectionID", true, "A_ARG_TYPE_ConnectionID"},
                                        {"Direction", true, "A_ARG_TYPE_Direction"},
                                        {"Status", true, "A_ARG_TYPE_ConnectionStatus"}};

constexpr Action kConnectionActions[] = {
    {"GetProtocolInfo", kProtocolInfo},
    {"GetCurrentConnectionIDs", kConnectionIds},
    {"GetCurrentConnectionInfo", kConnectionInfo, connection_info},
};

}  // namespace

std::span<const Variable> rendering_variables() { return kVariables; }
std::span<const Action> rendering_actions() { return kActions; }
std::span<const Variable> connection_variables() { return kConnectionVariables; }
std::span<const Action> connection_actions() { return kConnectionActions; }
