// HDMI-CEC: the bus at the set's HDMI inputs, and the set's CEC manager. A timer delivers each frame after the
// time that it takes on a real wire, so that a listener receives events at a real bus's pace.
//
// Two switches turn the set's CEC off: the viewer's, which is a configuration value, and the manager's. While either is
// off the set neither receives nor sends frames; the devices go on as before. The devices' states are not stored: each
// time the set is switched on they are those of a new set.
#include "rooms/cec/cec.h"

#include <algorithm>
#include <array>
#include <boost/json.hpp>
#include <chrono>
#include <cstring>
#include <deque>
#include <mutex>
#include <optional>
#include <utility>

#include "base/text.h"
#include "bus.h"
#include "core/events.h"
#include "core/reply.h"
#include "core/room.h"
#include "core/timers.h"
#include "rooms/config/config.h"
#include "rooms/remote/remote.h"
#include "rooms/sources/sources.h"

namespace {

constexpr UINT8 kPorts = kHdmiInputs;
constexpr const char* kSwitch = "g_misc__cec_enable";
constexpr const char* kAutoOn = "g_misc__cec_auto_on";
constexpr const char* kAutoOff = "g_misc__cec_auto_off";
constexpr const char* kSpeakers = "g_misc__cec_speakers";
constexpr const char* kMenuLanguage = "g_gui_lang__gui_language";
constexpr UINT8 kFirstDevice = CECM_LOG_ADDR_REC_DEV_1;
constexpr UINT8 kLastDevice = CECM_LOG_ADDR_FREE_USE;
constexpr UINT8 kAudioSystem = 5;  // the logical address
constexpr std::size_t kLogged = 128;

using std::chrono::microseconds;

struct Discovery {
  UINT8 start;
  UINT8 stop;
  UINT8 next;
  microseconds pause;
  bool batch;
  std::vector<UINT8> answered = {};  // in a batch: the devices to query after all have been polled
  bool source_asked = false;
};

struct LoggedFrame {
  std::string text;
  bool heard;
};

struct Known {  // what the set knows about the device at a logical address
  bool found = false;
  UINT16 address = CECM_PHY_ADDR_UNKNOWN;
  UINT8 type = 0;
  UINT8 asked = 0;  // opcode of the query that has not been answered yet
};

struct Bus {
  // Guards all members below. Taken before the configuration's locks, the remote control's and the event queue's; the
  // remote control calls this room with no lock held.
  std::mutex lock;

  std::optional<CecFrame> on_wire;  // being transmitted
  std::deque<CecFrame> waiting;     // to be transmitted
  std::deque<LoggedFrame> log;      // the latest frames, the oldest first
  std::array<CecDeviceState, kCecDevices> devices;
  UINT16 active_source = CECM_PHY_ADDR_UNKNOWN;

  // The manager.
  bool enabled = false;
  bool ready = false;
  a_vextvapi_cec_nfy_fct callback = nullptr;
  void* callback_tag = nullptr;
  std::array<Known, kCecBroadcast> known;
  std::deque<Discovery> discoveries;  // the first one is running
  UINT32 listed = 0;                  // the devices in the latest list of an event, one bit per logical address
};

// Never destroyed: other threads may still use it when the process exits.
Bus& bus = *new Bus;

Timer frame_timer;  // when the frame on the wire has arrived

// The caller of the functions below holds the lock.

// Whether both switches are on.
bool listens() { return bus.enabled && config_number(kSwitch) != 0; }

std::size_t index_of(const CecDevice& device) { return static_cast<std::size_t>(&device - kCecDeviceTable); }

CecDeviceState& state_of(const CecDevice& device) { return bus.devices[index_of(device)]; }

const CecDevice* plugged_at(UINT8 la) {
  for (const CecDevice& device : kCecDeviceTable)
    if (device.la == la && state_of(device).plugged) return &device;
  return nullptr;
}

void queue(std::vector<CecFrame> frames) {
  bus.waiting.insert(bus.waiting.end(), std::make_move_iterator(frames.begin()), std::make_move_iterator(frames.end()));
}

// Answers are transmitted before the waiting frames: on a real bus the device that has just sent waits longer.
void reply(std::vector<CecFrame> frames) {
  bus.waiting.insert(bus.waiting.begin(), std::make_move_iterator(frames.begin()),
                     std::make_move_iterator(frames.end()));
}

// ---- Events ----

void notify(CECM_NFY_T event, const T_CECM_NFY_DATA& data) {
  if (!bus.ready || bus.callback == nullptr || !listens()) return;
  static_assert(sizeof event.u_data == sizeof data);
  std::memcpy(event.u_data, &data, sizeof data);
  events_post([event, callback = bus.callback, tag = bus.callback_tag] { callback(0, &event, tag, 0); });
}

CECM_NFY_T manager_event(INT32 code) {
  CECM_NFY_T event{};
  event.e_sent_la = CECM_LOG_ADDR_TV;
  event.e_nfy_type = CECM_NFY_TYPE_MSGCODE;
  event.u_code.e_msgcode = code;
  return event;
}

void notify_input_power(const CecDevice& device) {
  T_CECM_NFY_DATA data{};
  data.t_5v_pwr = {.ui1_5v_pwr = state_of(device).plugged, .ui2_comp_id = device.port};
  notify(manager_event(CECM_MSGCODE_5V_PWR), data);
}

void notify_devices(const Discovery& ended) {
  UINT32 found = 0;
  for (UINT8 la = kFirstDevice; la <= kLastDevice; ++la)
    if (bus.known[la].found) found |= UINT32{1} << la;
  T_CECM_NFY_DATA data{};
  data.t_dev_nfy_lst = {.e_sts = found == bus.listed ? CECM_DEV_LST_UNCHANGED : CECM_DEV_LST_CHANGED,
                        .e_start_la = ended.start,
                        .e_stop_la = ended.stop};
  bus.listed = found;
  CECM_NFY_T event = manager_event(CECM_MSGCODE_DEV_LST);
  event.ui4_attr = found;
  notify(event, data);
}

void notify_message(const CecMessage& message, const CecFrame& frame) {
  Known& sender = bus.known[frame.from];
  const auto operands = std::span(frame.bytes).subspan(1);
  CECM_NFY_T event{};
  event.e_sent_la = frame.from;
  event.e_nfy_type = CECM_NFY_TYPE_OPCODE;
  event.e_brdcst_type = frame.to == kCecBroadcast ? CECM_BRDCST_TYPE_BROADCAST : CECM_BRDCST_TYPE_DIRECT;
  event.ui4_attr = static_cast<UINT32>(operands.size());
  event.u_code.e_opcode = message.opcode;
  const UINT8 answered = message.opcode == kFeatureAbort ? operands[0] : message.answers;
  if (answered != 0 && (message.opcode == kFeatureAbort || answered == sender.asked)) {
    event.e_sent_opcode = answered;
    sender.asked = 0;
  }
  T_CECM_NFY_DATA data{};
  message.show({.operands = operands, .from = frame.from, .address = sender.address, .type = sender.type}, data);
  notify(event, data);
}

// ---- The set ----

// The menu's language in three letters. HDMI-CEC uses the bibliographic codes, which differ for these languages.
CecFrame menu_language() {
  constexpr std::pair<std::string_view, std::string_view> kOtherLetters[] = {
      {"ces", "cze"}, {"cym", "wel"}, {"deu", "ger"}, {"ell", "gre"}, {"eus", "baq"}, {"fra", "fre"},
      {"isl", "ice"}, {"mkd", "mac"}, {"nld", "dut"}, {"ron", "rum"}, {"slk", "slo"}, {"sqi", "alb"}};
  const auto code = static_cast<UINT32>(config_number(kMenuLanguage));
  std::string letters{static_cast<char>(code >> 24), static_cast<char>(code >> 16 & 0xFF),
                      static_cast<char>(code >> 8 & 0xFF)};
  for (const auto& [menu, cec] : kOtherLetters)
    if (letters == menu) letters = cec;
  std::vector<UINT8> bytes{kSetMenuLanguage};
  bytes.insert(bytes.end(), letters.begin(), letters.end());
  return cec_broadcast(kCecSet, std::move(bytes));
}

// Reacts to the messages of a source that starts playing: wakes the set, shows the source.
void follow_source(const CecFrame& frame) {
  switch (frame.bytes[0]) {
    case kImageViewOn:
    case kTextViewOn:
      if (config_number(kAutoOn) != 0) remote_wake();
      break;
    case kActiveSource:
      remote_show_hdmi(frame.bytes[1] >> 4);
      break;
    default:
      break;
  }
}

void set_receives(const CecFrame& frame) {
  const bool direct = frame.to == CECM_LOG_ADDR_TV;
  const UINT8 opcode = frame.bytes[0];
  if (direct) {
    if (auto identity = cec_identify(kCecSet, remote_is_on(), frame)) return reply({*std::move(identity)});
    if (opcode == kGetMenuLanguage) return reply({menu_language()});
  }
  const CecMessage* const message = cec_message(opcode);
  if (message == nullptr) {
    if (direct) reply({cec_direct(kCecSet, frame.from, {kFeatureAbort, opcode, kUnrecognisedOpcode})});
    return;
  }
  if (frame.bytes.size() - 1 < message->least) return;
  if (opcode == kReportPhysicalAddress) {
    bus.known[frame.from].address = static_cast<UINT16>(frame.bytes[1] << 8 | frame.bytes[2]);
    bus.known[frame.from].type = frame.bytes[3];
  }
  follow_source(frame);
  notify_message(*message, frame);
}

void ask(UINT8 la) {
  std::vector<CecFrame> frames;
  for (const UINT8 opcode :
       {kGivePhysicalAddress, kGiveOsdName, kGiveDeviceVendorId, kGetCecVersion, kGiveDevicePowerStatus})
    frames.push_back(cec_direct(kCecSet, la, {opcode}));
  if (la == kAudioSystem) {
    const bool speakers = config_number(kSpeakers) != 0;
    frames.push_back(speakers ? cec_direct(kCecSet, la, {kSystemAudioModeRequest, 0, 0})
                              : cec_direct(kCecSet, la, {kGiveSystemAudioModeStatus}));
  }
  queue(std::move(frames));
}

void set_polled(UINT8 la, bool answered) {
  if (!answered) bus.known[la] = {};
  bus.known[la].found = answered;
  if (!answered || bus.discoveries.empty()) return;
  if (bus.discoveries.front().batch) {
    bus.discoveries.front().answered.push_back(la);
  } else {
    ask(la);
  }
}

// The next step of the running discovery: a poll, the queries to one device, the query for the active source, or the
// end with its event. Returns false if no discovery is running.
bool discover() {
  if (bus.discoveries.empty()) return false;
  Discovery& now = bus.discoveries.front();
  if (!listens()) {
    bus.discoveries.clear();
  } else if (now.next <= now.stop) {
    queue({cec_direct(kCecSet, now.next++, {})});
  } else if (!now.answered.empty()) {
    ask(now.answered.front());
    now.answered.erase(now.answered.begin());
  } else if (!std::exchange(now.source_asked, true)) {
    queue({cec_broadcast(kCecSet, {kRequestActiveSource})});
  } else {
    notify_devices(now);
    bus.discoveries.pop_front();
  }
  return true;
}

// ---- The wire ----

// A start bit, ten bits for each byte including the address byte, and the silence between two frames.
microseconds time_of(const CecFrame& frame) {
  constexpr microseconds kStart(4500), kBit(2400);
  const auto bits = static_cast<int>(10 * (1 + frame.bytes.size()) + 7);
  microseconds time = kStart + bits * kBit;
  if (frame.bytes.empty() && !bus.discoveries.empty()) time += bus.discoveries.front().pause;
  return time;
}

bool is_heard(const CecFrame& frame) {
  if (frame.to == kCecBroadcast) return true;
  if (frame.to == frame.from) return false;
  return frame.to == CECM_LOG_ADDR_TV ? listens() : plugged_at(frame.to) != nullptr;
}

bool is_there(UINT8 la) { return la == CECM_LOG_ADDR_TV ? listens() : plugged_at(la) != nullptr; }

// Records the active source that a frame announces.
void note_source(const CecFrame& frame) {
  const UINT8 opcode = frame.bytes[0];
  if (frame.bytes.size() < 3 || (opcode != kActiveSource && opcode != kInactiveSource)) return;
  const auto address = static_cast<UINT16>(frame.bytes[1] << 8 | frame.bytes[2]);
  const bool active = opcode == kActiveSource;
  if (active) {
    bus.active_source = address;
  } else if (address == bus.active_source) {
    bus.active_source = CECM_PHY_ADDR_UNKNOWN;
  }
  if (const CecDevice* const sender = plugged_at(frame.from); sender != nullptr && sender->address() == address)
    state_of(*sender).plays = active;
}

void deliver(const CecFrame& frame) {
  if (!is_there(frame.from)) return;  // the sender was unplugged or switched off during the transmission
  const bool heard = is_heard(frame);
  bus.log.push_back({.text = cec_text(frame), .heard = heard});
  if (bus.log.size() > kLogged) bus.log.pop_front();
  if (frame.bytes.empty()) {
    if (frame.from == CECM_LOG_ADDR_TV) set_polled(frame.to, heard);
    return;
  }
  if (!heard) return;
  note_source(frame);
  if (frame.from == CECM_LOG_ADDR_TV) {
    for (UINT8 la = kFirstDevice; la <= kLastDevice; ++la)
      if (frame.to == la || frame.to == kCecBroadcast) bus.known[la].asked = frame.bytes[0];
  } else if (listens()) {
    set_receives(frame);
  }
  for (const CecDevice& device : kCecDeviceTable) {
    if (device.la == frame.from || !state_of(device).plugged) continue;
    if (frame.to == kCecBroadcast || frame.to == device.la) reply(cec_device_answers(device, state_of(device), frame));
  }
}

void frame_arrives();

// Starts transmitting the next frame if the wire is free. While the set is off no frame is delivered; load clears the
// bus.
void start_next_frame() {
  if (bus.on_wire) return;
  while (bus.waiting.empty())
    if (!discover()) return;
  bus.on_wire = std::move(bus.waiting.front());
  bus.waiting.pop_front();
  timer_set(frame_timer, timer_now() + time_of(*bus.on_wire), frame_arrives);
}

void frame_arrives() {
  const std::lock_guard guard(bus.lock);
  deliver(*bus.on_wire);
  bus.on_wire.reset();
  start_next_frame();
}

void transmit(std::vector<CecFrame> frames) {
  queue(std::move(frames));
  start_next_frame();
}

// ---- What a viewer does ----

// Queues a discovery of the device, unless one is waiting already: it will find the device's state at that time.
void queue_discovery(const CecDevice& device) {
  const auto same = [&](const Discovery& each) { return each.start == device.la && each.stop == device.la; };
  if (bus.discoveries.size() > 1 && std::any_of(bus.discoveries.begin() + 1, bus.discoveries.end(), same)) return;
  bus.discoveries.push_back({.start = device.la, .stop = device.la, .next = device.la, .pause = {}, .batch = false});
}

void plug(const CecDevice& device) {
  state_of(device) = {};
  notify_input_power(device);
  transmit(cec_joins(device));
  queue_discovery(device);
}

void unplug(const CecDevice& device) {
  state_of(device) = {.plugged = false};
  std::erase_if(bus.waiting, [&](const CecFrame& frame) { return frame.from == device.la; });
  if (bus.active_source == device.address()) bus.active_source = CECM_PHY_ADDR_UNKNOWN;
  notify_input_power(device);
  queue_discovery(device);
  start_next_frame();
}

boost::json::object describe(const CecDevice& device) {
  const CecDeviceState& state = state_of(device);
  return {{"device", device.name},
          {"name", device.osd_name},
          {"logical", device.la},
          {"address", cec_address_text(device.address())},
          {"plugged", state.plugged},
          {"power", !state.plugged ? "none"
                    : state.on     ? "on"
                                   : "standby"},
          {"active", state.plugged && bus.active_source == device.address()}};
}

boost::json::object describe_all() {
  boost::json::array all;
  for (const CecDevice& device : kCecDeviceTable) all.push_back(describe(device));
  return {{"devices", std::move(all)}};
}

bool is_as_new(const CecDevice& device) {
  return state_of(device) == CecDeviceState{} && bus.active_source != device.address();
}

std::string device_names() {
  std::string names;
  for (const CecDevice& device : kCecDeviceTable) names += (names.empty() ? "" : ", ") + std::string(device.name);
  return names;
}

// Sends the message to the set or as a broadcast, as HDMI-CEC defines it for the opcode.
boost::json::object send(const CecDevice& device, Arguments words) {
  std::vector<UINT8> bytes;
  for (const std::string_view word : words) {
    const auto byte = parse_number<UINT8>(word, 16);
    if (!byte) return reply_error(quoted(word) + " is not a byte in hexadecimal, 00 to ff");
    bytes.push_back(*byte);
  }
  if (bytes.empty()) return reply_error("cec send DEVICE takes an opcode in hexadecimal and the bytes that follow it");
  CecFrame frame = cec_is_broadcast(bytes[0]) ? cec_broadcast(device, std::move(bytes))
                                              : cec_direct(device, CECM_LOG_ADDR_TV, std::move(bytes));
  boost::json::object answer{{"frame", cec_text(frame)}};
  transmit({std::move(frame)});
  return answer;
}

boost::json::object frames() {
  boost::json::array all;
  for (const LoggedFrame& each : bus.log) all.push_back({{"frame", each.text}, {"heard", each.heard}});
  return {{"frames", std::move(all)}};
}

struct Action {
  std::string_view name;
  bool plugged;  // whether the device has to be plugged in
  void (*act)(const CecDevice& device);
};

constexpr Action kActions[] = {
    {"play", true, [](const CecDevice& device) { transmit(cec_plays(device, state_of(device))); }},
    {"standby", true, [](const CecDevice& device) { transmit(cec_sleeps(device, state_of(device))); }},
    {"unplug", true, unplug},
    {"plug", false, plug},
    {"send", true, nullptr},  // takes more words
};

}  // namespace

INT32 a_vextvapi_cec_mw_reg_callback(a_vextvapi_cec_nfy_fct callback, void* tag) {
  const std::lock_guard guard(bus.lock);
  bus.callback = callback;
  bus.callback_tag = tag;
  return 0;
}

INT32 a_vextvapi_cec_get_cec_func(UINT8* func) {
  if (func == nullptr) return -1;
  *func = static_cast<UINT8>(config_number(kSwitch));
  return 0;
}

INT32 a_vextvapi_cec_set_cec_func(UINT8 func) { return config_set(kSwitch, func); }

INT32 a_vextvapi_cec_get_hdmi_port_num(UINT8* port_num) {
  if (port_num == nullptr) return -1;
  *port_num = kPorts;
  return 0;
}

INT32 a_vextvapi_cec_set_cec_fct(CECM_SET_CEC_FCT_PARAMS_T params) {
  if (params.b_enable > 1) return refuse_call(__func__, std::to_string(params.b_enable) + " is neither 0 nor 1");
  if (params.ui1_hdmi_port_num > kPorts) {
    return refuse_call(__func__, "the set has " + std::to_string(kPorts) + " HDMI inputs, not " +
                                     std::to_string(params.ui1_hdmi_port_num));
  }
  const std::lock_guard guard(bus.lock);
  bus.enabled = params.b_enable != 0;
  return 0;
}

INT32 a_vextvapi_cec_signal_cec_ready(UINT8 ready) {
  if (ready > 1) return refuse_call(__func__, std::to_string(ready) + " is neither 0 nor 1");
  const std::lock_guard guard(bus.lock);
  bus.ready = ready != 0;
  return 0;
}

// A new discovery replaces the running and the waiting ones.
INT32 a_vextvapi_cec_start_dev_discovery_ex(const CECM_DEV_DISCOVERY_T* request) {
  if (request == nullptr) return -1;
  const auto [start, stop, interval, batch] = *request;
  if (start < kFirstDevice || start > stop || stop > kLastDevice) {
    return refuse_call(__func__, "the logical addresses " + std::to_string(start) + " to " + std::to_string(stop) +
                                     " are not within " + std::to_string(kFirstDevice) + " to " +
                                     std::to_string(kLastDevice));
  }
  const std::lock_guard guard(bus.lock);
  if (!listens()) return refuse_call(__func__, "CEC is off");
  bus.discoveries.clear();
  bus.discoveries.push_back({.start = static_cast<UINT8>(start),
                             .stop = static_cast<UINT8>(stop),
                             .next = static_cast<UINT8>(start),
                             .pause = std::chrono::milliseconds(interval),
                             .batch = batch != 0});
  start_next_frame();
  return 0;
}

CecInput cec_input(int input) {
  const std::lock_guard guard(bus.lock);
  for (const CecDevice& each : kCecDeviceTable) {
    const CecDeviceState& now = state_of(each);
    if (each.port == input && now.plugged) return {.device = each.osd_name, .on = now.on};
  }
  return {};
}

const CecDevice* cec_found(int la) {
  const std::lock_guard guard(bus.lock);
  return listens() && la >= kFirstDevice && la <= kLastDevice ? plugged_at(static_cast<UINT8>(la)) : nullptr;
}

void cec_standby() {
  const std::lock_guard guard(bus.lock);
  if (listens() && config_number(kAutoOff) != 0) transmit({cec_broadcast(kCecSet, {kStandby})});
}

namespace {

void load() {
  const std::lock_guard guard(bus.lock);
  bus.on_wire.reset();
  bus.waiting.clear();
  bus.log.clear();
  bus.devices = {};
  bus.active_source = CECM_PHY_ADDR_UNKNOWN;
  bus.enabled = false;
  bus.ready = false;
  bus.callback = nullptr;
  bus.known = {};
  bus.discoveries.clear();
  bus.listed = 0;
}

bool reset() {
  const std::lock_guard guard(bus.lock);
  for (const CecDevice& device : kCecDeviceTable) {
    if (!state_of(device).plugged) {
      plug(device);
    } else {
      transmit(cec_sleeps(device, state_of(device)));
    }
  }
  bus.active_source = CECM_PHY_ADDR_UNKNOWN;
  return true;
}

// Reports only the devices that differ from a new set; "cec" lists all.
void report(boost::json::object& answer) {
  boost::json::object changed;
  const std::lock_guard guard(bus.lock);
  for (const CecDevice& device : kCecDeviceTable)
    if (!is_as_new(device)) changed[device.name] = describe(device);
  if (!changed.empty()) answer["cec"] = std::move(changed);
}

boost::json::object cec_command(Arguments arguments) {
  const std::lock_guard guard(bus.lock);
  if (arguments.empty()) return describe_all();
  const std::string word(arguments[0]);
  if (word == "frames" && arguments.size() == 1) return frames();
  const auto* const action = std::ranges::find(kActions, word, &Action::name);
  if (action == std::end(kActions)) {
    std::string known;
    for (const Action& each : kActions) known += std::string(each.name) + ", ";
    return reply_takes("cec", known + "frames or nothing", word);
  }
  if (arguments.size() < 2) return reply_error("cec " + word + " takes a device: " + device_names());
  const auto* const device = std::ranges::find(kCecDeviceTable, arguments[1], &CecDevice::name);
  if (device == std::end(kCecDeviceTable)) {
    return reply_error("there is no device " + quoted(arguments[1]) + "; the devices are: " + device_names());
  }
  if (state_of(*device).plugged != action->plugged) {
    return reply_error("the " + std::string(device->name) +
                       (action->plugged ? " is unplugged; plug it first" : " is plugged in already"));
  }
  if (action->act == nullptr) return send(*device, arguments.subspan(2));
  if (arguments.size() > 2) {
    return reply_error(quoted(arguments[2]) + " is one word too many; usage: cec " + word + " DEVICE");
  }
  action->act(*device);
  return describe_all();
}

constexpr Command kCommands[] = {
    {"cec", "[play|standby|unplug|plug DEVICE | send DEVICE BYTE... | frames]", 17,
     "Lists the HDMI devices; makes one play, go to standby or send a message; unplugs it or plugs it in; lists the "
     "latest frames on the bus",
     cec_command},
};

}  // namespace

const Room room_cec = {.commands = kCommands, .load = load, .reset = reset, .report = report};
