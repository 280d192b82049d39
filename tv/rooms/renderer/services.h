// The renderer's services as tables. The description, the services' own descriptions, the check of an action's
// arguments, its reply and the events come from these rows.
#pragma once

#include <map>
#include <span>
#include <string>
#include <string_view>

#include "rooms/renderer/parts.h"

// Errors of the UPnP architecture, and of the services.
enum : int {
  kDone = 0,
  kInvalidAction = 401,
  kInvalidArguments = 402,
  kActionFailed = 501,
  kValueInvalid = 600,
  kValueOutOfRange = 601,
  kTransitionNotAvailable = 701,
  kNoContents = 702,
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

enum class Told : std::uint8_t { kNo, kEvent, kLastChange };  // how controllers learn of a change

struct Variable {
  std::string_view name;
  std::string_view type;                           // as the description has it
  std::string (*read)(const Model&) = nullptr;     // null: it stands for an argument only
  std::span<const std::string_view> allowed = {};  // empty: any
  int minimum = 0;
  int maximum = 0;              // above the minimum: a range, with a step of 1
  int invalid = kValueInvalid;  // the error of a value that is not allowed
  Told told = Told::kNo;
  bool channel = false;  // in LastChange it has the channel "Master"
};

struct Argument {
  std::string_view name;
  bool out;
  std::string_view variable;
};

// An action's arguments in, checked, by name, and those out that are no variable's value.
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
  ActionOutcome (*run)(Call& call) = nullptr;  // null: it only tells variables
};

struct RendererService {
  std::string_view name;
  std::string_view space;  // of its LastChange; empty: it has none
  std::span<const Variable> variables;
  std::span<const Action> actions;
};

std::span<const RendererService> services();

std::string service_type(const RendererService& service);  // urn:schemas-upnp-org:service:AVTransport:1

const Variable* variable_row(const RendererService& service, std::string_view name);

// Carries an action out. in: the request's arguments; further ones are ignored. The arguments out come in the order of
// the action's row. The caller holds no lock.
struct Reply {
  ActionOutcome outcome;
  std::vector<std::pair<std::string_view, std::string>> out = {};
};
Reply service_call(const RendererService& service, std::string_view action,
                   const std::map<std::string, std::string, std::less<>>& in);

// The documents, by the path of an HTTP request. The paths of a service are /NAME.xml, /NAME/control and /NAME/events.
inline constexpr std::string_view kDescriptionPath = "/description.xml";
std::string write_description(const Model& shown);
std::string write_service(const RendererService& service);

// The values of the variables whose bit is set in `changed`, by their place in the service, as the body of an event.
using Bits = std::uint64_t;
std::string write_event(const RendererService& service, const Model& shown, Bits changed);
