#include "wire_script.h"

#include "json_values.h"
#include "rpc.h"
#include "wire_stack.h"

std::string new_set_mark(Maker& maker, bool allowed) {
  std::string mark = wire_new_mark();
  if (!maker.script.doubtful && (maker.script.ended || !allowed)) maker.script.forbidden.push_back(mark);
  return mark;
}

static Act take_act(Bytes& bytes) {
  static constexpr Act kActs[] = {Act::kPlain,   Act::kPlain, Act::kPlain,  Act::kPlain,  Act::kPlain,
                                  Act::kLongest, Act::kSlow,  Act::kBroken, Act::kFailed, Act::kUnkept};
  return kActs[take_below(bytes, std::size(kActs))];
}

// One JSON-RPC request. Its reply is entered in ret_replies; a notification's is not.
static std::string take_request(Maker& maker, std::map<std::string, Marked>& ret_replies) {
  Bytes& bytes = maker.bytes;
  std::string method = "get";
  std::string params;
  Marked marked;
  const auto uri = [](const char* name) { return std::string(R"("uri":")") + name + "\""; };
  switch (take_below(bytes, 10)) {
    case 0:
    case 1:
    case 2:
      method = "set";
      marked = {.mark = new_set_mark(maker), .sets = true};
      params = uri(kWireUri) + R"(,"parameter":)" + wire_parameter(marked.mark, take_act(bytes));
      break;
    case 3:
      method = "list";
      break;
    case 4:
    case 5:
      method = take_chance(bytes, 3) ? "unsubscribe" : "subscribe";
      params = uri(take_chance(bytes, 3) ? "/tv/made/other" : kWireNotifyUri);
      maker.script.follows = true;
      break;
    case 6:
      method = "trace";
      params = take_chance(bytes, 2) ? R"("on":false)" : R"("on":true)";
      maker.script.follows = true;
      break;
    case 7:
      method = "authorize";
      params = R"("token":")" + (take_chance(bytes, 4) ? "0" : maker.target.token) + "\"";
      break;
    case 8:
      method = "tv";
      params = take_chance(bytes, 4) ? R"("words":["-1"])" : R"("words":["slow"])";
      break;
    default:
      marked.mark = wire_new_mark();
      params = uri(kWireUri) + R"(,"parameter":)" + wire_parameter(marked.mark, take_act(bytes));
      break;
  }
  if ((method == "get" || method == "set") && take_chance(bytes, 8)) params += R"(,"trace":true)";
  std::string text = R"({"jsonrpc":"2.0",)";
  if (!take_chance(bytes, 8)) {
    const std::string id = wire_new_mark();
    text += R"("id":")" + id + "\",";
    ret_replies[id] = marked;
  }
  return text + R"("method":")" + method + R"(","params":{)" + params + "}}";
}

std::string take_wire_message(Maker& maker, bool& ret_replies) {
  Bytes& bytes = maker.bytes;
  std::map<std::string, Marked> replies;
  std::string text;
  switch (take_below(bytes, 8)) {
    case 0: {  // any message, of which the host itself tells whether there is a reply
      text = take_message(bytes, *maker.target.catalogue, maker.target.methods);
      RpcMessage message;
      rpc_read(text, *maker.target.catalogue, message);
      ret_replies =
          std::ranges::any_of(message.requests, [](const RpcRequest& request) { return !request.id.empty(); });
      if (ret_replies) ++maker.script.other_replies;
      maker.script.follows = true;
      return text;
    }
    case 1: {  // a batch
      constexpr std::size_t kLongestRequest = 400;
      const std::size_t requests = 1 + take_below(bytes, 24);
      for (std::size_t i = 0; i < requests && text.size() + kLongestRequest < maker.target.message_bytes; ++i)
        text += (i > 0 ? "," : "[") + take_request(maker, replies);
      text += "]";
      break;
    }
    default:
      text = take_request(maker, replies);
  }
  ret_replies = !replies.empty();
  maker.script.replies.merge(replies);
  return text;
}

// Spoils the bytes in a few places: what they are worth is not known any more.
static void spoil(Bytes& bytes, std::string& text) {
  for (std::size_t times = take_below(bytes, 4); times > 0 && !text.empty(); --times) {
    const std::size_t at = take_below(bytes, text.size());
    const std::size_t length = std::min<std::size_t>(take_byte(bytes), text.size() - at);
    switch (take_below(bytes, 5)) {
      case 0:
        text[at] = static_cast<char>(take_byte(bytes));
        break;
      case 1:
        text.erase(at, length);
        break;
      case 2:
        text.insert(at, take_text(bytes));
        break;
      case 3:
        text[at] = static_cast<char>(text[at] ^ 1 << take_below(bytes, 8));
        break;
      default:
        text.resize(at);
        break;
    }
  }
}

Script take_wire_script(Bytes& bytes, const WireTarget& target) {
  Script script;
  script.doubtful = take_chance(bytes, 4);
  script.slow = take_chance(bytes, 16);
  if (script.doubtful && take_chance(bytes, 4)) {
    while (bytes.left > 0 && take_chance(bytes, 2)) script.bytes += take_text(bytes);
    return script;
  }
  Maker maker{.bytes = bytes, .target = target, .script = script};
  for (std::size_t steps = 1 + take_below(bytes, 8); steps > 0 && !script.cut; --steps)
    script.websocket ? add_frames(maker) : add_http_request(maker);
  if (script.doubtful) spoil(bytes, script.bytes);
  // A WebSocket connection between two messages may stay as long as it likes.
  script.waits = take_chance(bytes, 32) && !script.doubtful && (!script.websocket || script.ended);
  return script;
}
