#include "wire_received.h"

#include <zlib.h>

#include <algorithm>
#include <boost/json.hpp>
#include <charconv>

#include "json_text.h"
#include "require.h"
#include "seeds.h"
#include "wire_stack.h"

namespace json = boost::json;

namespace {

// Of docs/errors.md, and those of the protocol.
constexpr unsigned kStatuses[] = {100, 101, 200, 204, 304, 400, 401, 403, 404, 405, 408,
                                  413, 415, 417, 422, 426, 431, 500, 501, 502, 503, 505};

json::value parse(std::string_view text, const char* what) {
  json::error_code failure;
  json::parse_options options;
  options.max_depth = kJsonMaxDepth + 8;  // a reply stands around the plugin's text
  json::value value = json::parse(json::string_view(text.data(), text.size()), failure, {}, options);
  require(!failure, what, text);
  return value;
}

// --- HTTP ---

// What a body compressed by gzip was made from.
std::string expand(std::string body) {
  constexpr int kGzipWindow = 15 + 16;
  constexpr std::size_t kMostBytes = 1 << 22;
  z_stream stream{};
  require(inflateInit2(&stream, kGzipWindow) == Z_OK, "zlib starts");
  std::string text(kMostBytes, '\0');
  stream.next_in = reinterpret_cast<Bytef*>(body.data());
  stream.avail_in = static_cast<uInt>(body.size());
  stream.next_out = reinterpret_cast<Bytef*>(text.data());
  stream.avail_out = static_cast<uInt>(text.size());
  const bool whole = inflate(&stream, Z_FINISH) == Z_STREAM_END && stream.avail_in == 0;
  text.resize(stream.total_out);
  inflateEnd(&stream);
  require(whole, "a compressed body is whole");
  return text;
}

struct Head {
  unsigned status = 0;
  std::map<std::string, std::string, std::less<>> headers;  // names in small letters
};

Head read_head(std::string_view text) {
  Head head;
  const std::size_t line_end = text.find("\r\n");
  const std::string_view line = text.substr(0, line_end);
  require(line.starts_with("HTTP/1.1 ") && line.size() >= 13 && line[12] == ' ', "an answer begins with its status",
          line);
  const auto end = std::from_chars(line.data() + 9, line.data() + 12, head.status);
  require(end.ec == std::errc() && end.ptr == line.data() + 12, "a status is three digits", line);
  require(std::ranges::find(kStatuses, head.status) != std::end(kStatuses), "the status is one of those documented",
          line);
  text.remove_prefix(line_end + 2);
  while (!text.empty()) {
    const std::string_view header = text.substr(0, text.find("\r\n"));
    text.remove_prefix(header.size() + 2);
    const std::size_t colon = header.find(": ");
    require(colon != std::string_view::npos && colon > 0, "a header has a name and a value", header);
    require(std::ranges::none_of(header, [](unsigned char c) { return c < 0x20 || c == 0x7F; }),
            "headers have no control characters", header);
    std::string name(header.substr(0, colon));
    std::ranges::transform(name, name.begin(), [](unsigned char c) { return static_cast<char>(tolower(c)); });
    require(head.headers.emplace(name, header.substr(colon + 2)).second, "a header stands once", header);
  }
  return head;
}

// The length that the answer announces.
std::size_t body_length(const Head& head) {
  const bool none = head.status < 200 || head.status == 204 || head.status == 304;
  const auto length = head.headers.find("content-length");
  require(none == (length == head.headers.end()), "an answer that has a body has its length");
  require(!head.headers.contains("transfer-encoding"), "answers are not chunked");
  if (none) return 0;
  std::size_t bytes = 0;
  const std::string& text = length->second;
  const auto end = std::from_chars(text.data(), text.data() + text.size(), bytes);
  require(end.ec == std::errc() && end.ptr == text.data() + text.size(), "a length is a number", text);
  return bytes;
}

// Whether a whole answer was there.
bool read_answer(Received& received, const Script& script) {
  const std::size_t end = received.rest.find("\r\n\r\n");
  if (end == std::string::npos) return false;
  const Head head = read_head(std::string_view(received.rest).substr(0, end + 2));
  std::size_t length = body_length(head);
  const std::size_t number = received.answers.size();
  // When the headers do not end in time, the answer has a body, since the method is unknown.
  const bool to_head =
      !script.doubtful && number < script.answers.size() && script.answers[number].to_head && head.status != 408;
  const std::string_view behind = std::string_view(received.rest).substr(end + 4);
  // In a damaged script the request is unknown: where a HEAD may have been sent, an answer without a body counts as
  // its.
  const bool may_be_to_head = script.doubtful && script.bytes.find("HEAD ") != std::string::npos &&
                              (behind.empty() || behind.starts_with("HTTP/1.1 "));
  if (to_head || may_be_to_head) length = 0;
  if (behind.size() < length) return false;
  std::string body(behind.substr(0, length));
  received.rest.erase(0, end + 4 + length);

  if (head.status == 100) {
    seed_reached("continue");
    ++received.continues;
    return true;
  }
  if (const auto coding = head.headers.find("content-encoding"); coding != head.headers.end() && length > 0) {
    require(coding->second == "gzip", "gzip is the only compression", coding->second);
    body = expand(std::move(body));
    seed_reached("gzip");
  }
  if (const auto type = head.headers.find("content-type"); type != head.headers.end() && length > 0) {
    if (type->second == "application/json") parse(body, "the body of an answer is whole JSON");
  } else {
    require(body.empty(), "a body has a type", body);
  }
  seed_reached("HTTP " + std::to_string(head.status));
  received.answers.push_back({.status = head.status, .body = std::move(body)});
  if (head.status == 101) {
    const auto accept = head.headers.find("sec-websocket-accept");
    require(accept != head.headers.end() && (script.doubtful || accept->second == kWireAcceptKey),
            "an upgrade is accepted with the right key");
    received.websocket = true;
    return true;
  }
  const auto connection = head.headers.find("connection");
  require(connection != head.headers.end() && (connection->second == "close" || connection->second == "keep-alive"),
          "an answer says whether the connection stays");
  received.last = connection->second == "close";
  return true;
}

// --- WebSocket ---

void read_reply(Received& received, const Script& script, const json::value& reply, std::size_t& ret_others) {
  require(reply.is_object(), "a reply is an object");
  const json::object& members = reply.get_object();
  const bool failed = members.contains("error");
  require(members.size() == 3 && members.contains("jsonrpc") && members.contains("id") &&
              failed != members.contains("result"),
          "a reply has jsonrpc, the request's id, and result or error");
  const json::string* const id = members.at("id").if_string();
  const std::string name = id ? std::string(*id) : "";
  if (!script.replies.contains(name)) {
    ++ret_others;
    return;
  }
  const bool first = received.replies.emplace(name, Reply{.failed = failed, .text = json::serialize(reply)}).second;
  require(first || script.doubtful, "a request has one reply", name);
}

// What follows the id in a reply to "list".
const std::string& list_rest() {
  static const std::string text = R"(","result":)" + wire_description() + "}";
  return text;
}

void read_text(Received& received, const Script& script, std::string_view text) {
  // The longest reply need not be parsed each time.
  constexpr std::string_view kOpening = R"({"jsonrpc":"2.0","id":")";
  const std::string id(text.starts_with(kOpening) ? text.substr(kOpening.size()).substr(0, 17) : "");
  if (script.replies.contains(id) && text.size() == kOpening.size() + id.size() + list_rest().size() &&
      text.ends_with(list_rest())) {
    require(received.replies.emplace(id, Reply{}).second || script.doubtful, "a request has one reply", id);
    return;
  }
  const json::value message = parse(text, "a text frame is whole JSON");
  std::size_t others = 0;
  if (message.is_array()) {
    require(!message.get_array().empty(), "a batch of replies is not empty");
    for (const json::value& reply : message.get_array()) read_reply(received, script, reply, others);
    seed_reached("batch");
  } else if (message.is_object() && message.get_object().contains("method")) {
    ++received.notifications;
    require(script.doubtful || script.follows, "who has not asked gets no notification", text);
    seed_reached(std::string(message.at("method").as_string()));
  } else {
    read_reply(received, script, message, others);
  }
  if (others > 0) ++received.other_replies;
}

bool read_frame(Received& received, const Script& script) {
  const std::string_view bytes = received.rest;
  const auto byte = [&](std::size_t at) { return static_cast<unsigned char>(bytes[at]); };
  if (bytes.size() < 2) return false;
  const unsigned opcode = byte(0) & 0x0F;
  require((byte(0) & 0xF0) == 0x80, "a server's frame is whole and has no reserved bits");
  require((byte(1) & 0x80) == 0, "a server's frame is not masked");
  std::uint64_t length = byte(1);
  const std::size_t more = length == 126 ? 2 : length == 127 ? 8 : 0;
  if (bytes.size() < 2 + more) return false;
  if (more > 0) length = 0;
  for (std::size_t i = 0; i < more; ++i) length = length << 8 | byte(2 + i);
  require(more == 0 || length > (more == 2 ? 125u : 65535u), "a length takes as few bytes as it can");
  require(opcode == 1 || ((opcode == 8 || opcode == 10) && length < 126),
          "a server's frame is a text, a pong or a close");
  if (bytes.size() - 2 - more < length) return false;
  const std::string payload(bytes.substr(2 + more, static_cast<std::size_t>(length)));
  received.rest.erase(0, 2 + more + static_cast<std::size_t>(length));
  if (opcode == 1) {
    read_text(received, script, payload);
  } else if (opcode == 10) {
    seed_reached("pong");
    received.pongs.push_back(payload);
  } else {
    require(payload.size() != 1, "a close frame has a code or nothing");
    const unsigned code = payload.empty() ? 0
                                          : static_cast<unsigned>(static_cast<unsigned char>(payload[0]) << 8 |
                                                                  static_cast<unsigned char>(payload[1]));
    received.closes.push_back(code);
    received.last = true;
    seed_reached("close " + std::to_string(code));
  }
  return true;
}

}  // namespace

void receive(Received& received, const Script& script, std::string_view bytes) {
  received.bytes += bytes.size();
  received.rest += bytes;
  while (!received.rest.empty() && !received.last)
    if (!(received.websocket ? read_frame(received, script) : read_answer(received, script))) break;
  require(!received.last || received.rest.empty(), "nothing follows the last answer, or a close frame", received.rest);
}

void receive_end(const Received& received, bool cut_short) {
  require(received.rest.empty() || cut_short, "what comes back is whole", received.rest);
}
