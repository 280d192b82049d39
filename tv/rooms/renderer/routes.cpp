// Answers requests by their paths: descriptions, actions in SOAP, subscriptions.
#include <algorithm>

#include "base/text.h"
#include "rooms/renderer/http.h"
#include "rooms/renderer/services.h"
#include "rooms/renderer/xml.h"

namespace {

constexpr std::string_view kXmlType = "text/xml; charset=\"utf-8\"";
constexpr std::size_t kMostArguments = 32;  // of a request; further ones are ignored

using Arguments = std::map<std::string, std::string, std::less<>>;

// Reads an envelope with one action. False: the body is none. What is missing after the action is ignored, since some
// controllers state too small a Content-Length.
bool read_envelope(const std::string& body, std::string_view action, Arguments& ret_arguments) {
  bool envelope = false, inside = false, whole = false, found = false;
  Arguments arguments;
  const XmlUser user{.begin =
                         [&](int depth, std::string_view name, const XmlAttributes&) {
                           if (depth == 1) envelope = name == "Envelope";
                           if (depth == 2) inside = envelope && name == "Body";
                           if (depth == 3) found = inside && !whole && name == action;
                         },
                     .end =
                         [&](int depth, std::string_view name, const std::string& text) {
                           if (depth == 4 && found && arguments.size() < kMostArguments) arguments.emplace(name, text);
                           if (depth == 3 && found) whole = true;
                         }};
  xml_read(body, user);
  if (whole) ret_arguments = std::move(arguments);
  return whole;
}

std::string envelope(const std::string& content) {
  return "<?xml version=\"1.0\" encoding=\"utf-8\"?>"
         "<s:Envelope xmlns:s=\"http://schemas.xmlsoap.org/soap/envelope/\" "
         "s:encodingStyle=\"http://schemas.xmlsoap.org/soap/encoding/\"><s:Body>" +
         content + "</s:Body></s:Envelope>";
}

HttpResponse document(http::status status, std::string body) {
  HttpResponse response = answer(status, std::move(body));
  response.set(http::field::content_type, std::string(kXmlType));
  response.set("EXT", "");
  return response;
}

HttpResponse fault(const ActionOutcome& outcome) {
  return document(http::status::internal_server_error,
                  envelope("<s:Fault><faultcode>s:Client</faultcode><faultstring>UPnPError</faultstring><detail>"
                           "<UPnPError xmlns=\"urn:schemas-upnp-org:control-1-0\">" +
                           xml_element("errorCode", std::to_string(outcome.error)) +
                           xml_element("errorDescription", outcome.why) + "</UPnPError></detail></s:Fault>"));
}

HttpResponse act(const HttpRequest& request, const RendererService& service, const std::string& peer) {
  if (!std::string_view(request[http::field::content_type]).starts_with("text/xml"))
    return answer(http::status::unsupported_media_type, "the content type of an action is text/xml\n");
  // "urn:schemas-upnp-org:service:AVTransport:1#Play", with the quotation marks.
  std::string_view wanted = request["SOAPACTION"];
  if (wanted.size() > 1 && wanted.front() == '"' && wanted.back() == '"') wanted = wanted.substr(1, wanted.size() - 2);
  const std::size_t mark = wanted.find('#');
  if (mark == std::string_view::npos) return answer(http::status::bad_request, "SOAPACTION names no action\n");
  const std::string_view action = wanted.substr(mark + 1);
  if (wanted.substr(0, mark) != service_type(service))
    return fault({kInvalidAction, "the action is not one of " + service_type(service)});
  Arguments arguments;
  if (!read_envelope(request.body(), action, arguments))
    return answer(http::status::bad_request, "the body is no envelope with the action of SOAPACTION\n");
  {
    const std::lock_guard guard(model_lock);
    model.controller = peer;
  }
  const Reply reply = service_call(service, action, arguments);
  if (reply.outcome.error != kDone) return fault(reply.outcome);
  const std::string name = "u:" + std::string(action) + "Response";
  std::string content = "<" + name + " xmlns:u=\"" + service_type(service) + "\">";
  for (const auto& [argument, value] : reply.out) content += xml_element(argument, value);
  return document(http::status::ok, envelope(content + "</" + name + ">"));
}

HttpResponse route_service(const HttpRequest& request, std::string_view path, const std::string& peer) {
  const std::span<const RendererService> all = services();
  for (std::size_t i = 0; i < all.size(); ++i) {
    if (!path.starts_with(all[i].name)) continue;
    const std::string_view rest = path.substr(all[i].name.size());
    const http::verb method = request.method();
    if (rest == ".xml") {
      if (method != http::verb::get) return answer(http::status::method_not_allowed);
      return document(http::status::ok, write_service(all[i]));
    }
    if (rest == "/control")
      return method == http::verb::post ? act(request, all[i], peer) : answer(http::status::method_not_allowed);
    if (rest == "/events") return subscribers_answer(request, i);
  }
  return answer(http::status::not_found);
}

}  // namespace

HttpResponse answer(http::status status, std::string body) {
  HttpResponse response(status, 11);
  response.set(http::field::server, kServerName);
  response.body() = std::move(body);
  return response;
}

HttpResponse route(const HttpRequest& request, const std::string& peer, const std::string& own) {
  // A page in a browser must not act on the set, neither directly nor through a host name that resolves to it.
  if (request.find(http::field::origin) != request.end()) return answer(http::status::forbidden);
  if (request[http::field::host] != own) return answer(http::status::bad_request, "Host is not " + own + "\n");
  const std::string_view path = request.target();
  if (path == kDescriptionPath) {
    if (request.method() != http::verb::get) return answer(http::status::method_not_allowed);
    const std::lock_guard guard(model_lock);
    return document(http::status::ok, write_description(model));
  }
  return path.starts_with('/') ? route_service(request, path.substr(1), peer) : answer(http::status::not_found);
}
