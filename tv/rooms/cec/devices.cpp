// The devices on the CEC bus: the set, an amplifier and a disc player. The table identifies them; the functions are
// their reactions to messages. Opcodes and operands are HDMI-CEC's.
#include <cstdio>

#include "bus.h"

// Both are in standby in a new set.
const CecDevice kCecSet{.name = "set",
                        .osd_name = "TV",
                        .la = CECM_LOG_ADDR_TV,
                        .port = 0,
                        .type = 0,
                        .version = kCecVersion20,
                        .vendor = 0x02DE00,
                        .profile = 0x02,    // remote control of television profile 1
                        .features = 0x20};  // displays OSD strings

const CecDevice kCecDeviceTable[kCecDevices] = {
    {.name = "amplifier",
     .osd_name = "AV Amplifier",
     .la = 5,
     .port = 1,
     .type = 5,
     .version = kCecVersion20,
     .vendor = 0x02DE01,
     .profile = 0x40,  // a source without menus of its own
     .features = 0x00},
    {.name = "player",
     .osd_name = "Disc Player",
     .la = 4,
     .port = 2,
     .type = 4,
     .version = kCecVersion14,
     .vendor = 0x02DE02,
     .profile = 0x00,  // not reported before version 2.0
     .features = 0x00},
};

namespace {

constexpr UINT8 kAmplifierVolume = 30;  // of 100, not muted; it never changes

UINT8 high(UINT16 address) { return static_cast<UINT8>(address >> 8); }
UINT8 low(UINT16 address) { return static_cast<UINT8>(address & 0xFF); }

bool is_audio_system(const CecDevice& device) { return device.type == 5; }

CecFrame report_address(const CecDevice& device) {
  return cec_broadcast(device, {kReportPhysicalAddress, high(device.address()), low(device.address()), device.type});
}

CecFrame report_vendor(const CecDevice& device) {
  const UINT32 id = device.vendor;
  return cec_broadcast(device, {kDeviceVendorId, static_cast<UINT8>(id >> 16), static_cast<UINT8>(id >> 8 & 0xFF),
                                static_cast<UINT8>(id & 0xFF)});
}

// The device types are one bit each, from the highest: television, recording, tuner, playback, audio system.
CecFrame report_features(const CecDevice& device) {
  const auto type_bit = static_cast<UINT8>(device.type == 0 ? 0x80 : device.type == 4 ? 0x10 : 0x08);
  return cec_broadcast(device, {kReportFeatures, device.version, type_bit, device.profile, device.features});
}

CecFrame active_source(const CecDevice& device) {
  return cec_broadcast(device, {kActiveSource, high(device.address()), low(device.address())});
}

// Devices of version 2.0 broadcast when they go on or to standby.
void turn(const CecDevice& device, CecDeviceState& state, bool on, std::vector<CecFrame>& ret_frames) {
  if (state.on == on) return;
  state.on = on;
  if (device.version < kCecVersion20) return;
  ret_frames.push_back(cec_broadcast(device, {kReportPowerStatus, on ? kPowerOn : kPowerStandby}));
}

}  // namespace

std::string cec_text(const CecFrame& frame) {
  char block[sizeof ":FF"];
  std::snprintf(block, sizeof block, "%02X", static_cast<UINT8>(frame.from << 4 | frame.to));
  std::string text = block;
  for (const UINT8 byte : frame.bytes) {
    std::snprintf(block, sizeof block, ":%02X", byte);
    text += block;
  }
  return text;
}

std::string cec_address_text(UINT16 address) {
  char text[sizeof "F.F.F.F"];
  std::snprintf(text, sizeof text, "%X.%X.%X.%X", address >> 12, address >> 8 & 15, address >> 4 & 15, address & 15);
  return text;
}

CecFrame cec_direct(const CecDevice& from, UINT8 to, std::vector<UINT8> bytes) {
  return {.from = from.la, .to = to, .bytes = std::move(bytes)};
}

CecFrame cec_broadcast(const CecDevice& from, std::vector<UINT8> bytes) {
  return {.from = from.la, .to = kCecBroadcast, .bytes = std::move(bytes)};
}

std::vector<CecFrame> cec_joins(const CecDevice& device) {
  std::vector<CecFrame> frames{cec_direct(device, device.la, {})};  // a poll: is the address free?
  if (device.version >= kCecVersion20) frames.push_back(report_features(device));
  frames.push_back(report_address(device));
  frames.push_back(report_vendor(device));
  return frames;
}

std::vector<CecFrame> cec_plays(const CecDevice& device, CecDeviceState& state) {
  std::vector<CecFrame> frames;
  turn(device, state, true, frames);
  state.plays = true;
  frames.push_back(cec_direct(device, CECM_LOG_ADDR_TV, {kImageViewOn}));
  frames.push_back(active_source(device));
  return frames;
}

std::vector<CecFrame> cec_sleeps(const CecDevice& device, CecDeviceState& state) {
  std::vector<CecFrame> frames;
  if (state.plays) {
    frames.push_back(
        cec_direct(device, CECM_LOG_ADDR_TV, {kInactiveSource, high(device.address()), low(device.address())}));
  }
  if (state.speaks) frames.push_back(cec_broadcast(device, {kSetSystemAudioMode, 0}));
  state.plays = state.speaks = false;
  turn(device, state, false, frames);
  return frames;
}

std::optional<CecFrame> cec_identify(const CecDevice& device, bool on, const CecFrame& received) {
  const auto answer = [&](std::vector<UINT8> bytes) { return cec_direct(device, received.from, std::move(bytes)); };
  switch (received.bytes[0]) {
    case kGivePhysicalAddress:
      return report_address(device);
    case kGiveOsdName: {
      std::vector<UINT8> bytes{kSetOsdName};
      bytes.insert(bytes.end(), device.osd_name.begin(), device.osd_name.end());
      return answer(std::move(bytes));
    }
    case kGiveDeviceVendorId:
      return report_vendor(device);
    case kGiveDevicePowerStatus:
      return answer({kReportPowerStatus, on ? kPowerOn : kPowerStandby});
    case kGetCecVersion:
      return answer({kCecVersion, device.version});
    case kGiveFeatures:
      if (device.version >= kCecVersion20) return report_features(device);
      return std::nullopt;
    case kAbort:
      return answer({kFeatureAbort, kAbort, kRefused});
    default:
      return std::nullopt;
  }
}

std::vector<CecFrame> cec_device_answers(const CecDevice& device, CecDeviceState& state, const CecFrame& received) {
  const UINT8 opcode = received.bytes[0];
  if (opcode == kStandby) return cec_sleeps(device, state);
  if (received.to == kCecBroadcast) {
    if (opcode == kActiveSource) state.plays = false;  // another device plays
    if (opcode == kRequestActiveSource && state.plays) return {active_source(device)};
    return {};
  }
  if (auto identity = cec_identify(device, state.on, received)) return {*std::move(identity)};
  const auto answer = [&](std::vector<UINT8> bytes) {
    return std::vector{cec_direct(device, received.from, std::move(bytes))};
  };
  if (is_audio_system(device)) {
    switch (opcode) {
      case kSystemAudioModeRequest: {  // with a source's address: on; without operands: off
        state.speaks = received.bytes.size() >= 3;
        std::vector<CecFrame> frames;
        if (state.speaks) turn(device, state, true, frames);
        frames.push_back(cec_broadcast(device, {kSetSystemAudioMode, state.speaks}));
        return frames;
      }
      case kGiveSystemAudioModeStatus:
        return answer({kSystemAudioModeStatus, state.speaks});
      case kGiveAudioStatus:
        return answer({kReportAudioStatus, kAmplifierVolume});
      default:
        break;
    }
  }
  if (cec_message(opcode) != nullptr) return {};  // an answer or an event from the set: no reply
  return answer({kFeatureAbort, opcode, kUnrecognisedOpcode});
}
