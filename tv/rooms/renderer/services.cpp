#include "rooms/renderer/services.h"

#include <algorithm>

#include "base/text.h"
#include "rooms/renderer/rows.h"
#include "rooms/renderer/xml.h"

namespace {

constexpr std::string_view kXml = "<?xml version=\"1.0\" encoding=\"utf-8\"?>";

bool is_number(const Variable& variable) { return variable.type != "string" && variable.type != "boolean"; }

// The value in the form that the actions read: a boolean may also come as a word.
std::string plain(const Variable& variable, const std::string& value) {
  if (variable.type != "boolean") return value;
  if (equal_ignoring_case(value, "true") || equal_ignoring_case(value, "yes")) return "1";
  if (equal_ignoring_case(value, "false") || equal_ignoring_case(value, "no")) return "0";
  return value;
}

ActionOutcome check(const Action& action, const Argument& argument, const Variable& variable,
                    const std::string& value) {
  const std::string what = std::string(action.name) + ": " + std::string(argument.name) + " ";
  if (variable.type == "boolean" && value != "0" && value != "1")
    return {kInvalidArguments, what + "is neither 0 nor 1"};
  if (is_number(variable)) {
    const auto number = parse_number<std::int64_t>(value);
    if (!number) return {kInvalidArguments, what + "is not a number"};
    const bool ranged = variable.maximum > variable.minimum;
    const bool fixed = variable.name == kInstanceVariable;
    if ((ranged || fixed) && (*number < variable.minimum || *number > variable.maximum)) {
      return {variable.invalid,
              what + "is not within " + std::to_string(variable.minimum) + " to " + std::to_string(variable.maximum)};
    }
  }
  if (!variable.allowed.empty() && std::ranges::find(variable.allowed, value) == variable.allowed.end())
    return {variable.invalid, what + "has a value that the renderer does not know"};
  return {};
}

std::string read_variable(const Variable& variable) {
  const std::lock_guard guard(model_lock);
  return variable.read == nullptr ? "" : variable.read(model);
}

std::string write_variable(const Variable& variable) {
  std::string text = "<stateVariable sendEvents=\"" + std::string(variable.told == Told::kEvent ? "yes" : "no") + "\">";
  text += xml_element("name", variable.name) + xml_element("dataType", variable.type);
  if (!variable.allowed.empty()) {
    text += "<allowedValueList>";
    for (const std::string_view value : variable.allowed) text += xml_element("allowedValue", value);
    text += "</allowedValueList>";
  }
  if (variable.maximum > variable.minimum) {
    text += "<allowedValueRange>" + xml_element("minimum", std::to_string(variable.minimum)) +
            xml_element("maximum", std::to_string(variable.maximum)) + xml_element("step", "1") +
            "</allowedValueRange>";
  }
  return text + "</stateVariable>";
}

std::string write_action(const Action& action) {
  std::string text = "<action>" + xml_element("name", action.name);
  if (!action.arguments.empty()) text += "<argumentList>";
  for (const Argument& argument : action.arguments) {
    text += "<argument>" + xml_element("name", argument.name) + xml_element("direction", argument.out ? "out" : "in") +
            xml_element("relatedStateVariable", argument.variable) + "</argument>";
  }
  if (!action.arguments.empty()) text += "</argumentList>";
  return text + "</action>";
}

std::string property(std::string_view name, std::string_view value) {
  return "<e:property>" + xml_element(name, value) + "</e:property>";
}

}  // namespace

std::span<const RendererService> services() {
  static const RendererService kRows[] = {
      {"AVTransport", "urn:schemas-upnp-org:metadata-1-0/AVT/", transport_variables(), transport_actions()},
      {"RenderingControl", "urn:schemas-upnp-org:metadata-1-0/RCS/", rendering_variables(), rendering_actions()},
      {"ConnectionManager", "", connection_variables(), connection_actions()},
  };
  return kRows;
}

std::string service_type(const RendererService& service) {
  return "urn:schemas-upnp-org:service:" + std::string(service.name) + ":1";
}

const Variable* variable_row(const RendererService& service, std::string_view name) {
  const auto found = std::ranges::find(service.variables, name, &Variable::name);
  return found == service.variables.end() ? nullptr : &*found;
}

Reply service_call(const RendererService& service, std::string_view name,
                   const std::map<std::string, std::string, std::less<>>& in) {
  const auto action = std::ranges::find(service.actions, name, &Action::name);
  if (action == service.actions.end()) {
    return {{kInvalidAction, std::string(service.name) + " does not have this action"}};
  }
  Call call;
  for (const Argument& argument : action->arguments) {
    if (argument.out) continue;
    const auto given = in.find(argument.name);
    if (given == in.end()) return {{kInvalidArguments, std::string(name) + " needs " + std::string(argument.name)}};
    const Variable& variable = *variable_row(service, argument.variable);
    const std::string value = plain(variable, given->second);
    if (ActionOutcome outcome = check(*action, argument, variable, value); outcome.error != kDone) return {outcome};
    call.in.emplace(argument.name, value);
  }
  if (action->run != nullptr) {
    if (ActionOutcome outcome = action->run(call); outcome.error != kDone) return {outcome};
  }
  Reply reply;
  for (const Argument& argument : action->arguments) {
    if (!argument.out) continue;
    const auto told = call.out.find(argument.name);
    reply.out.emplace_back(argument.name, told != call.out.end()
                                              ? told->second
                                              : read_variable(*variable_row(service, argument.variable)));
  }
  return reply;
}

std::string write_description(const Model& shown) {
  std::string text = std::string(kXml) +
                     "<root xmlns=\"urn:schemas-upnp-org:device-1-0\" xmlns:dlna=\"urn:schemas-dlna-org:device-1-0\">"
                     "<specVersion><major>1</major><minor>0</minor></specVersion><device>" +
                     xml_element("deviceType", kDeviceType) + xml_element("friendlyName", shown.name) +
                     xml_element("manufacturer", "dtv_js_plugin") +
                     xml_element("modelDescription", "A television on a PC") +
                     xml_element("modelName", "Virtual television") + xml_element("modelNumber", "1") +
                     xml_element("UDN", shown.udn) + xml_element("dlna:X_DLNADOC", "DMR-1.50") + "<serviceList>";
  for (const RendererService& service : services()) {
    const std::string path = "/" + std::string(service.name);
    text += "<service>" + xml_element("serviceType", service_type(service)) +
            xml_element("serviceId", "urn:upnp-org:serviceId:" + std::string(service.name)) +
            xml_element("SCPDURL", path + ".xml") + xml_element("controlURL", path + "/control") +
            xml_element("eventSubURL", path + "/events") + "</service>";
  }
  return text + "</serviceList></device></root>";
}

std::string write_service(const RendererService& service) {
  std::string text = std::string(kXml) +
                     "<scpd xmlns=\"urn:schemas-upnp-org:service-1-0\"><specVersion><major>1</major><minor>0</minor>"
                     "</specVersion><actionList>";
  for (const Action& action : service.actions) text += write_action(action);
  text += "</actionList><serviceStateTable>";
  for (const Variable& variable : service.variables) text += write_variable(variable);
  return text + "</serviceStateTable></scpd>";
}

std::string write_event(const RendererService& service, const Model& shown, Bits changed) {
  std::string body = std::string(kXml) + "<e:propertyset xmlns:e=\"urn:schemas-upnp-org:event-1-0\">";
  std::string last_change;
  for (std::size_t i = 0; i < service.variables.size(); ++i) {
    const Variable& variable = service.variables[i];
    if ((changed >> i & 1) == 0 || variable.read == nullptr) continue;
    const std::string value = variable.read(shown);
    if (variable.told == Told::kEvent) body += property(variable.name, value);
    if (variable.told != Told::kLastChange) continue;
    last_change += "<" + std::string(variable.name) + (variable.channel ? " channel=\"Master\"" : "") + " val=\"" +
                   xml_escaped(value) + "\"/>";
  }
  if (!last_change.empty()) {
    body += property("LastChange", "<Event xmlns=\"" + std::string(service.space) + "\"><InstanceID val=\"0\">" +
                                       last_change + "</InstanceID></Event>");
  }
  return body + "</e:propertyset>";
}
