// HDMI-CEC inside the virtual television: the frames on the bus, its devices, and the messages that become events. The
// bus itself and its lock are in cec.cpp; all functions declared here are called under that lock, if they do not say
// otherwise.
#pragma once

#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "core/contract.h"
#include "vex_tv_ctrl/cec.h"

inline constexpr UINT8 kCecBroadcast = 15;  // the logical address of broadcasts
inline constexpr std::size_t kCecMostOperands = 14;

// The opcodes that the set and the devices send or check for.
enum CecOpcode : UINT8 {
  kFeatureAbort = 0x00,
  kImageViewOn = 0x04,
  kTextViewOn = 0x0D,
  kSetMenuLanguage = 0x32,
  kStandby = 0x36,
  kGiveOsdName = 0x46,
  kSetOsdName = 0x47,
  kSystemAudioModeRequest = 0x70,
  kGiveAudioStatus = 0x71,
  kSetSystemAudioMode = 0x72,
  kReportAudioStatus = 0x7A,
  kGiveSystemAudioModeStatus = 0x7D,
  kSystemAudioModeStatus = 0x7E,
  kActiveSource = 0x82,
  kGivePhysicalAddress = 0x83,
  kReportPhysicalAddress = 0x84,
  kRequestActiveSource = 0x85,
  kDeviceVendorId = 0x87,
  kGiveDeviceVendorId = 0x8C,
  kGiveDevicePowerStatus = 0x8F,
  kReportPowerStatus = 0x90,
  kGetMenuLanguage = 0x91,
  kInactiveSource = 0x9D,
  kCecVersion = 0x9E,
  kGetCecVersion = 0x9F,
  kGiveFeatures = 0xA5,
  kReportFeatures = 0xA6,
  kAbort = 0xFF,
};

enum CecAbortReason : UINT8 { kUnrecognisedOpcode = 0, kRefused = 4 };
enum CecPowerStatus : UINT8 { kPowerOn = 0, kPowerStandby = 1 };
inline constexpr UINT8 kCecVersion14 = 5;
inline constexpr UINT8 kCecVersion20 = 6;

struct CecFrame {
  UINT8 from;
  UINT8 to;
  std::vector<UINT8> bytes;  // the opcode and its operands; empty for a poll
};

// The frame as a bus monitor shows it: "40:04", the two addresses and the bytes in hexadecimal.
std::string cec_text(const CecFrame& frame);

std::string cec_address_text(UINT16 address);  // "2.0.0.0"

// ---- devices.cpp: the set and the devices on the bus ----

struct CecDevice {
  std::string_view name;      // in commands
  std::string_view osd_name;  // at most 14 characters of ASCII
  UINT8 la;
  UINT8 port;  // HDMI input that it is plugged into; 0: the set itself
  UINT8 type;  // 0 television, 4 playback device, 5 audio system
  UINT8 version;
  UINT32 vendor;  // a locally administered identifier, assigned to no maker
  UINT8 profile;  // the remote control profile in <Report Features>, as are the features
  UINT8 features;
  constexpr UINT16 address() const { return static_cast<UINT16>(port << 12); }
};

struct CecDeviceState {
  bool plugged = true;
  bool on = false;
  bool plays = false;   // it has asked the set to show its picture
  bool speaks = false;  // an audio system that plays the set's sound
  bool operator==(const CecDeviceState&) const = default;
};

inline constexpr std::size_t kCecDevices = 2;
extern const CecDevice kCecSet;
extern const CecDevice kCecDeviceTable[kCecDevices];

// Frames that a device sends, in their order.
CecFrame cec_direct(const CecDevice& from, UINT8 to, std::vector<UINT8> bytes);
CecFrame cec_broadcast(const CecDevice& from, std::vector<UINT8> bytes);
std::vector<CecFrame> cec_joins(const CecDevice& device);  // after it has chosen its logical address
std::vector<CecFrame> cec_plays(const CecDevice& device, CecDeviceState& state);
std::vector<CecFrame> cec_sleeps(const CecDevice& device, CecDeviceState& state);

// The answers that the set and all devices have in common: identity and power status. None: the message has no such
// answer.
std::optional<CecFrame> cec_identify(const CecDevice& device, bool on, const CecFrame& received);

// Updates the state of a device that has received a message, and returns its answers.
std::vector<CecFrame> cec_device_answers(const CecDevice& device, CecDeviceState& state, const CecFrame& received);

// The device with this logical address, while it is plugged in and the set's CEC is on; null: none. Takes the bus's
// lock.
const CecDevice* cec_found(int la);

// ---- messages.cpp: the messages that become events ----

// A message that the set has received, with what it knows about the sender.
struct CecReceived {
  std::span<const UINT8> operands;
  UINT8 from;
  UINT16 address;  // CECM_PHY_ADDR_UNKNOWN until the sender has reported it
  UINT8 type;
};

struct CecMessage {
  UINT8 opcode;
  UINT8 least;     // bytes of operands; a shorter message is ignored
  bool broadcast;  // sent to all devices
  UINT8 answers;   // opcode of the question; 0: none
  void (*show)(const CecReceived& received, T_CECM_NFY_DATA& ret_data);
};

// The message's row, or null.
const CecMessage* cec_message(UINT8 opcode);

// Whether the message is sent as a broadcast; also for messages that do not become events.
bool cec_is_broadcast(UINT8 opcode);

// A physical address as events show it.
T_CEC_COMP_ADDR cec_component(UINT16 address);
