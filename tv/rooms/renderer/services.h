// The renderer's services as tables. The descriptions of the device and of the services, the check of an action's
// arguments, its reply and the events are made from these rows.
#pragma once

#include <map>
#include <span>
#include <string>
#include <string_view>

#include "rooms/renderer/parts.h"

// Error codes of the UPnP device architecture and of the services. Numbers from 701 on have a meaning per service.
enum : int {
  kDone = 0,
  kInvalidAction = 401,
  kInvalidArguments = 402,
  kActionFailed = 501,
  kValueInvalid = 600,
  kValueOutOfRange = 601,
  kTransitionNotAvailable = 701,
  kSeekModeNotSupported = 710,
  kIllegalSeekTarget = 711,
  kPlayModeNotSupported = 712,
  kIllegalMediaType = 714,
  kResourceNotFound = 716,
  kSpeedNotSupported = 717,
  kInvalidInstance = 718,
  kInvalidConnection = 706,
  kInvalidPreset = 701,
  kInvalidRenderingInstance = 702,
};

enum class ValueType : std::uint8_t { kText, kNumber, kSigned, kBoolean };  // string, ui4 or ui2, i4, boolean

enum class Told : std::uint8_t {
  kNo,
  kEvent,
  kLastChange
};  // how changes are sent: never, as an event of its own, in LastChange

struct Variable {
  std::string_view name;
  std::string_view type;                           // the dataType in the service's description
  std::string (*read)(const Model&) = nullptr;     // null: the variable only gives an argument its type
  std::span<const std::string_view> allowed = {};  // empty: any
  int minimum = 0;
  int maximum = 0;              // above the minimum: a range, with a step of 1
  int invalid = kValueInvalid;  // error code for a value that is not allowed
  Told told = Told::kNo;
  bool channel = false;  // LastChange names the channel "Master" with it
};

struct Argument {
  std::string_view name;
  bool out;
  std::string_view variable;
};

// One call of an action. in: its arguments by name, checked. out: results by name; one that is not set here is the
// value of its variable.
struct Call {
  std::map<std::string, std::string, std::less<>> in;
  std::map<std::string, std::string, std::less<>> out;
};

struct ActionOutcome {
  int error = kDone;
  std::string why = {};
};

struct Action {
  std::string_view name;
  std::span<const Argument> arguments;
  ActionOutcome (*run)(Call& call) = nullptr;  // null: the results are the values of variables
};

struct RendererService {
  std::string_view name;
  std::string_view space;  // XML namespace of its LastChange; empty: it has none
  std::span<const Variable> variables;
  std::span<const Action> actions;
};

std::span<const RendererService> services();

std::string service_type(const RendererService& service);  // urn:schemas-upnp-org:service:AVTransport:1

const Variable* variable_row(const RendererService& service, std::string_view name);

// Carries out an action. in: the request's arguments; unknown ones are ignored. out: the results, in the order of the
// action's row. The caller holds no lock.
struct Reply {
  ActionOutcome outcome;
  std::vector<std::pair<std::string_view, std::string>> out = {};
};
Reply service_call(const RendererService& service, std::string_view action,
                   const std::map<std::string, std::string, std::less<>>& in);

// The documents that the server serves. A service's own paths are /NAME.xml, /NAME/control and /NAME/events.
inline constexpr std::string_view kDescriptionPath = "/description.xml";
std::string write_description(const Model& shown);
std::string write_service(const RendererService& service);

// Returns the body of an event with the changed variables. Bit i of `changed` is set if service.variables[i] changed.
using Bits = std::uint64_t;
std::string write_event(const RendererService& service, const Model& shown, Bits changed);
