#include "host_texts.h"

#include <stdlib.h>

#include <boost/json.hpp>

#include "bounds.h"
#include "json_values.h"
#include "rpc.h"

namespace json = boost::json;

static json::value refusal(const Catalogue& catalogue, const std::string& method) {
  RpcMessage message;
  rpc_read(R"({"jsonrpc":"2.0","id":1,"method":")" + method + R"(","params":{"?":1}})", catalogue, message);
  return json::parse(message.requests.at(0).error).at("error");
}

// Of a message such as 'get knows no member "?"; uri, parameter are its members'.
static std::vector<std::string> members_in(std::string_view message) {
  std::vector<std::string> members;
  const std::size_t begin = message.find("; ");
  const std::size_t end = message.find(" are its members");
  if (begin == std::string_view::npos || end == std::string_view::npos) return members;
  std::string_view list = message.substr(begin + 2, end - begin - 2);
  while (!list.empty()) {
    const std::size_t comma = std::min(list.find(", "), list.size());
    members.emplace_back(list.substr(0, comma));
    list.remove_prefix(std::min(comma + 2, list.size()));
  }
  return members;
}

std::vector<Method> host_methods(const Catalogue& catalogue) {
  std::vector<Method> methods;
  const json::value unknown = refusal(catalogue, "?");
  for (const json::value& name : unknown.at("data").at("methods").as_array()) {
    const std::string method(name.as_string());
    const json::value refused = refusal(catalogue, method);
    methods.push_back({.name = method, .members = members_in(refused.at("message").as_string())});
  }
  if (methods.empty()) abort();  // the host's refusal has another form
  return methods;
}

std::string take_host_uri(Bytes& bytes, const Catalogue& catalogue) {
  std::string uri = catalogue.uris[take_below(bytes, catalogue.uris.size())];
  switch (take_below(bytes, 8)) {
    case 0:
      return take_text(bytes);
    case 1:
      uri.resize(take_below(bytes, uri.size()));
      return uri;
    default:
      return uri;
  }
}

std::string take_many_values(Bytes& bytes) {
  // The object, its array, and the numbers.
  std::string text = "{\"VALUES\":[0";
  for (std::size_t values = kLimitParameterValues - 3 + take_below(bytes, 3); values > 0; --values) text += ",0";
  return text + "]}";
}

static void add_value(Bytes& bytes, const Catalogue& catalogue, std::string& text) {
  switch (take_below(bytes, 6)) {
    case 0:
      return add_any_value(bytes, text);
    case 1:
      text += take_chance(bytes, 2) ? "true" : "false";
      return;
    case 2: {  // words
      text += '[';
      for (std::size_t words = take_below(bytes, 5), i = 0; i < words; ++i) {
        static constexpr const char* kControl[] = {"fault",           "faults", "--clear", "--delay", "--fail",
                                                   "--drop-callback", "f",      "help",    "-1",      "7"};
        if (i > 0) text += ',';
        if (take_chance(bytes, 4))
          add_any_value(bytes, text);
        else
          add_string(text, kControl[take_below(bytes, std::size(kControl))]);
      }
      text += ']';
      return;
    }
    case 3:
      if (take_chance(bytes, 8)) {
        text += take_many_values(bytes);
        return;
      }
      text += "{\"REQUEST\":\"SET\",\"VALUE\":";
      add_any_value(bytes, text);
      text += '}';
      return;
    default:
      return add_string(text, take_host_uri(bytes, catalogue));
  }
}

static void add_key(Bytes& bytes, std::string_view key, std::string& text) {
  if (text.back() != '{') text += ", ";
  if (take_chance(bytes, 32))  // the same in other letters
    text.append("\"\\u00")
        .append({"0123456789abcdef"[(key[0] >> 4) & 15], "0123456789abcdef"[key[0] & 15]})
        .append(key.substr(1)) += '"';
  else if (take_chance(bytes, 32))
    add_text_value(bytes, 8, text);
  else
    add_string(text, key);
  text += take_chance(bytes, 4) ? " :\t" : ":";
}

static void add_params(Bytes& bytes, const Catalogue& catalogue, const Method& method, std::string& text) {
  text += '{';
  for (const std::string& member : method.members) {
    const std::size_t times = take_below(bytes, 8);
    for (std::size_t i = 0; i < (times == 0 ? 0u : times == 1 ? 2u : 1u); ++i) {
      add_key(bytes, member, text);
      add_value(bytes, catalogue, text);
    }
  }
  text += '}';
}

static void add_request(Bytes& bytes, const Catalogue& catalogue, const std::vector<Method>& methods,
                        std::string& text) {
  const Method& method = methods[take_below(bytes, methods.size())];
  if (take_chance(bytes, 16)) return add_any_value(bytes, text);
  text += '{';
  for (const std::string_view member : {"jsonrpc", "id", "method", "params"}) {
    if (take_chance(bytes, 16)) continue;
    add_key(bytes, member, text);
    if (take_chance(bytes, 16))
      add_any_value(bytes, text);
    else if (member == "jsonrpc")
      text += "\"2.0\"";
    else if (member == "id")
      take_chance(bytes, 2) ? add_text_value(bytes, 8, text) : add_number_value(bytes, text);
    else if (member == "method")
      add_string(text, method.name);
    else
      add_params(bytes, catalogue, method, text);
  }
  text += '}';
}

std::string take_message(Bytes& bytes, const Catalogue& catalogue, const std::vector<Method>& methods) {
  std::string text;
  switch (take_below(bytes, 8)) {
    case 0:
      return take_text(bytes);
    case 1: {
      text += " [";
      for (std::size_t requests = take_below(bytes, 6), i = 0; i < requests; ++i) {
        if (i > 0) text += ',';
        add_request(bytes, catalogue, methods, text);
      }
      text += ']';
      break;
    }
    case 2: {  // about as many as a batch may hold
      text += '[';
      for (std::size_t requests = kRpcBatchMax - 1 + take_below(bytes, 3), i = 0; i < requests; ++i)
        text += i > 0 ? ",1" : "1";
      text += ']';
      return take_chance(bytes, 8) ? text : take_text(bytes);
    }
    default:
      add_request(bytes, catalogue, methods, text);
      break;
  }
  damage(bytes, text);
  return text;
}
