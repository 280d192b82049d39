// JSON-RPC and plain HTTP, without sockets and without a plugin.
#include "rpc.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <utility>

#include "bounds.h"
#include "http.h"

namespace {

constexpr const char* volume = "/tv/cast/volume/volume";
constexpr const char* events = "/tv/ws/notify/volume_ctrl";

const Catalogue& catalogue() {
  static Catalogue known;
  static const bool read = [] {
    std::string error;
    return catalogue_read(R"({"uris":[{"uri":"/tv/cast/volume/volume","group":"VOLUME","notify":false},)"
                          R"({"uri":"/tv/ws/notify/volume_ctrl","group":"WS_NFY","notify":true},)"
                          R"({"uri":"/tv/cast/volume/volume","group":"VOLUME","notify":false}],"types":{}})",
                          known, error);
  }();
  EXPECT_TRUE(read);
  return known;
}

RpcRequest read_one(std::string_view text) {
  RpcMessage message;
  rpc_read(text, catalogue(), message);
  EXPECT_FALSE(message.batch);
  EXPECT_EQ(message.requests.size(), 1u);
  return message.requests.front();
}

int code_of(const RpcRequest& request) {
  const std::size_t at = request.error.find("\"code\":");
  return at == std::string::npos ? 0 : std::stoi(request.error.substr(at + 7));
}

TEST(Catalogue, KeepsTheFirstOfTwoRows) {
  EXPECT_EQ(catalogue().uris.size(), 2u);
  EXPECT_STREQ(catalogue_find(catalogue(), volume)->uri, volume);
  EXPECT_EQ(catalogue_find(catalogue(), "/tv"), nullptr);
  EXPECT_TRUE(catalogue_find(catalogue(), events)->check->notifies);
  EXPECT_FALSE(catalogue_find(catalogue(), volume)->check->notifies);
}

TEST(Catalogue, RefusesWhatIsNoDescription) {
  for (const char* text : {"", "{", "[]", "{}", R"({"uris":1})", R"({"uris":[{}]})", R"({"uris":[{"uri":1}]})"}) {
    Catalogue known;
    std::string error;
    EXPECT_FALSE(catalogue_read(text, known, error)) << text;
    EXPECT_FALSE(error.empty());
  }
}

TEST(RpcRead, AGetWithoutParameterHasNoText) {
  const RpcRequest request =
      read_one(R"({"jsonrpc":"2.0","id":7,"method":"get","params":{"uri":"/tv/cast/volume/volume"}})");
  EXPECT_EQ(request.error, "");
  EXPECT_EQ(request.id, "7");
  EXPECT_EQ(request.method, RpcMethod::kGet);
  EXPECT_STREQ(request.call.uri, volume);
  EXPECT_EQ(request.call.text, "");
  EXPECT_FALSE(request.call.traced);
}

TEST(RpcRead, TheParameterIsPassedOnAsItIs) {
  const RpcRequest request = read_one(
      " {\"params\" : {\"parameter\": { \"REQUEST\" :\"MODIFY\",\"VALUE\":1.0 , \"VALUE\":[ ] } , \"trace\":true,"
      "\"uri\":\"/tv/cast/volume/volume\"},\"method\":\"set\",\"id\":\"a\\\"b\",\"jsonrpc\":\"2.0\"}\n");
  EXPECT_EQ(request.error, "");
  EXPECT_EQ(request.id, "\"a\\\"b\"");
  EXPECT_EQ(request.call.kind, CallKind::kSet);
  EXPECT_EQ(request.call.text, "{\"PARAMETER\":{ \"REQUEST\" :\"MODIFY\",\"VALUE\":1.0 , \"VALUE\":[ ] }}");
  EXPECT_TRUE(request.call.traced);
}

TEST(RpcRead, EveryMethodTakesAllItsParametersInAnyOrder) {
  struct Row {
    RpcMethod method;
    CallKind kind;
    const char* text;
  };
  constexpr Row rows[] = {
      {RpcMethod::kGet, CallKind::kGet,
       R"("get","params":{"trace":true,"parameter":{},"uri":"/tv/cast/volume/volume"})"},
      {RpcMethod::kSet, CallKind::kSet,
       R"("set","params":{"trace":true,"parameter":{},"uri":"/tv/cast/volume/volume"})"},
      {RpcMethod::kSubscribe, CallKind::kGet, R"("subscribe","params":{"uri":"/tv/ws/notify/volume_ctrl"})"},
      {RpcMethod::kUnsubscribe, CallKind::kGet, R"("unsubscribe","params":{"uri":"/tv/ws/notify/volume_ctrl"})"},
      {RpcMethod::kList, CallKind::kGet, R"("list","params":{})"},
      {RpcMethod::kTrace, CallKind::kGet, R"("trace","params":{"on":true})"},
      {RpcMethod::kTv, CallKind::kControl, R"("tv","params":{"words":["state"]})"},
      {RpcMethod::kAuthorize, CallKind::kGet, R"("authorize","params":{"token":"a"})"},
  };
  for (const Row& row : rows) {
    const RpcRequest request = read_one(std::string(R"({"jsonrpc":"2.0","id":1,"method":)") + row.text + "}");
    EXPECT_EQ(request.error, "") << row.text;
    EXPECT_EQ(request.method, row.method) << row.text;
    EXPECT_EQ(request.call.kind, row.kind) << row.text;
    const bool calls_plugin = row.method == RpcMethod::kGet || row.method == RpcMethod::kSet;
    EXPECT_EQ(request.call.traced, calls_plugin) << row.text;
    EXPECT_EQ(request.on, row.method == RpcMethod::kTrace) << row.text;
    EXPECT_EQ(request.token, row.method == RpcMethod::kAuthorize ? "a" : "") << row.text;
  }
}

TEST(RpcRead, EveryErrorHasItsCode) {
  struct Row {
    int code;
    const char* text;
  };
  constexpr Row rows[] = {
      {-32700, ""},
      {-32700, "{\"jsonrpc\":\"2.0\""},
      {-32600, "5"},
      {-32600, "[]"},
      {-32600, R"({"jsonrpc":"2.0","id":[],"method":"list"})"},
      {-32600, R"({"jsonrpc":2.0,"id":1,"method":"list"})"},
      {-32600, R"({"jsonrpc":"2.0","id":1,"method":null})"},
      {-32601, R"({"jsonrpc":"2.0","id":1,"method":"nothing"})"},
      {-32602, R"({"jsonrpc":"2.0","id":1,"method":"get"})"},
      {-32602, R"({"jsonrpc":"2.0","id":1,"method":"get","params":["/tv"]})"},
      {-32602, R"({"jsonrpc":"2.0","id":1,"method":"get","params":{"uri":"/tv/cast/volume/volume","odd":1}})"},
      {-32602, R"({"jsonrpc":"2.0","id":1,"method":"set","params":{"uri":"/tv/cast/volume/volume"}})"},
      {-32602, R"({"jsonrpc":"2.0","id":1,"method":"subscribe","params":{"uri":"/tv/cast/volume/volume"}})"},
      {-32602, R"({"jsonrpc":"2.0","id":1,"method":"list","params":{"uri":"/tv/cast/volume/volume"}})"},
      {-32602, R"({"jsonrpc":"2.0","id":1,"method":"tv","params":{"words":["a",[]]}})"},
      {-32001, R"({"jsonrpc":"2.0","id":1,"method":"get","params":{"uri":"/tv/cast/volume/volum"}})"},
  };
  for (const Row& row : rows) EXPECT_EQ(code_of(read_one(row.text)), row.code) << row.text;
}

TEST(RpcRead, RequestsWithoutAnIdAreNotifications) {
  EXPECT_EQ(read_one(R"({"jsonrpc":"2.0","method":"list"})").id, "");
  EXPECT_EQ(read_one(R"({"jsonrpc":"2.0","id":null,"method":"list"})").id, "null");
  EXPECT_EQ(read_one(R"({"method":"list"})").id, "null") << "not a valid request: the error has the id null";
}

TEST(RpcRead, BatchesKeepTheirOrder) {
  RpcMessage message;
  rpc_read(R"( [ {"jsonrpc":"2.0","id":1,"method":"list"}, 5 ,{"jsonrpc":"2.0","method":"list"}])", catalogue(),
           message);
  EXPECT_TRUE(message.batch);
  ASSERT_EQ(message.requests.size(), 3u);
  EXPECT_EQ(message.requests[0].id, "1");
  EXPECT_EQ(code_of(message.requests[1]), -32600);
  EXPECT_EQ(message.requests[2].id, "");

  std::string many = "[1";
  for (std::size_t i = 1; i <= kRpcBatchMax; ++i) many += ",1";
  rpc_read(many + "]", catalogue(), message);
  EXPECT_FALSE(message.batch);
  ASSERT_EQ(message.requests.size(), 1u);
  EXPECT_EQ(code_of(message.requests[0]), -32003);
}

// A request whose parameter has this many values, including its object and its array.
std::string set_with_values(std::size_t values) {
  std::string text =
      R"({"jsonrpc":"2.0","id":1,"method":"set","params":{"uri":"/tv/cast/volume/volume","parameter":{"A":[1)";
  for (std::size_t i = 3; i < values; ++i) text += ",1";
  return text + "]}}}";
}

TEST(RpcRead, WhatTheSetCannotBeHandedIsRefused) {
  RpcMessage message;
  rpc_read(set_with_values(kLimitParameterValues), catalogue(), message);
  EXPECT_EQ(message.requests[0].error, "");
  rpc_read(set_with_values(kLimitParameterValues + 1), catalogue(), message);
  EXPECT_EQ(code_of(message.requests[0]), -32003);
  // The limit holds for each parameter of a batch separately.
  const std::string half = set_with_values(kLimitParameterValues / 2 + 100);
  rpc_read("[" + half + "," + half + "]", catalogue(), message);
  EXPECT_EQ(message.requests[0].error + message.requests[1].error, "");

  for (const char* params : {R"({"uri":"/tv/cast/volume/volume","parameter":{"A":"x\u0000y"}})",
                             R"({"uri":"/tv/cast/volume/volume","parameter":{"A\u0000":1}})"}) {
    rpc_read(std::string(R"({"jsonrpc":"2.0","id":1,"method":"set","params":)") + params + "}", catalogue(), message);
    EXPECT_EQ(code_of(message.requests[0]), -32602) << params;
  }
  rpc_read(R"({"jsonrpc":"2.0","id":1,"method":"tv","params":{"words":["key","VOL\u0000"]}})", catalogue(), message);
  EXPECT_EQ(code_of(message.requests[0]), -32602);
  rpc_read(
      R"({"jsonrpc":"2.0","id":"\u0000","method":"set","params":{"uri":"/tv/cast/volume/volume","parameter":{"A":"\\u0000"}}})",
      catalogue(), message);
  EXPECT_EQ(message.requests[0].error, "") << "an escaped backslash";
}

std::string rpc_outcome(std::string_view id, const Call& call, const Outcome& outcome) {
  std::string reply;
  rpc_append_outcome(reply, id, call, outcome);
  return reply;
}

TEST(RpcReply, CarriesThePluginsText) {
  const Call get{.kind = CallKind::kGet, .uri = volume};
  Outcome outcome{.ret = 0, .text = "{ \"a\":1.0}"};
  EXPECT_EQ(rpc_outcome("5", get, outcome), R"({"jsonrpc":"2.0","id":5,"result":{"ret":0,"response":{ "a":1.0}}})");
  outcome.text.clear();
  EXPECT_EQ(rpc_outcome("5", get, outcome), R"({"jsonrpc":"2.0","id":5,"result":{"ret":0,"response":null}})");
  const Call set{.kind = CallKind::kSet, .uri = volume, .text = "{}", .traced = true};
  outcome.lines = R"({"call":"a"},{"call":"b"})";
  outcome.log = "one\r\ntwo\n";
  EXPECT_EQ(rpc_outcome("\"x\"", set, outcome),
            R"({"jsonrpc":"2.0","id":"x","result":{"ret":0,"calls":[{"call":"a"},{"call":"b"}],"log":["one","two"]}})");
}

TEST(RpcReply, SaysWhyAndWhatWasBent) {
  const Call set{.kind = CallKind::kSet, .uri = volume};
  EXPECT_EQ(rpc_outcome("1", set, {.ret = -1, .reason = "the \"why\"", .warnings = {"a", "b"}}),
            R"({"jsonrpc":"2.0","id":1,"result":{"ret":-1,"reason":"the \"why\"","warnings":["a","b"]}})");
  EXPECT_EQ(rpc_outcome("1", set, {.warnings = {"a", "b"}, .departs = true}),
            R"({"jsonrpc":"2.0","id":1,"error":{"code":-32602,"message":"a","data":{"warnings":["a","b"]}}})");
}

TEST(RpcReply, BrokenTextsAreErrors) {
  const Call get{.kind = CallKind::kGet, .uri = volume};
  const std::string reply = rpc_outcome("1", get, {.ret = 0, .text = "{\"a\":", .broken = true});
  EXPECT_NE(reply.find("-32002"), std::string::npos);
  EXPECT_NE(reply.find("\"data\":{\"length\":5}"), std::string::npos);
}

TEST(RpcReply, AChangeThatIsNotOnTheDiskIsAnError) {
  const Call set{.kind = CallKind::kSet, .uri = volume};
  const std::string reply = rpc_outcome("1", set, {.ret = 0, .text = "", .not_kept = ENOSPC});
  EXPECT_NE(reply.find("-32004"), std::string::npos);
  EXPECT_NE(reply.find("No space left on device"), std::string::npos);
  EXPECT_EQ(http_outcome(set, {.ret = 0, .text = "", .not_kept = ENOSPC}).status, 500u);
}

TEST(RpcReply, ControlErrorsAreErrors) {
  const Call control{.kind = CallKind::kControl};
  EXPECT_EQ(rpc_outcome("1", control, {.ret = 0, .text = "{\"volume\":5}"}),
            R"({"jsonrpc":"2.0","id":1,"result":{"volume":5}})");
  EXPECT_EQ(rpc_outcome("1", control, {.ret = 0, .text = R"({"error":"no \"x\""})"}),
            R"({"jsonrpc":"2.0","id":1,"error":{"code":-32004,"message":"no \"x\""}})");
  EXPECT_EQ(rpc_outcome("1", control, {.ret = 0, .text = "[]"}), R"({"jsonrpc":"2.0","id":1,"result":[]})");
}

TEST(RpcReply, NotificationsCarryThePluginsText) {
  EXPECT_EQ(rpc_notify(events, "{ }"),
            R"({"jsonrpc":"2.0","method":"notify","params":{"uri":"/tv/ws/notify/volume_ctrl","notification":{ }}})");
  const std::string broken = rpc_notify(events, "{\"a");
  EXPECT_NE(broken.find("-32002"), std::string::npos);
  EXPECT_NE(broken.find("\"length\":3"), std::string::npos);
}

HttpAnswer answer_to(const std::string& method, const std::string& path) {
  HttpAnswer answer;
  Call call;
  EXPECT_EQ(http_route({.method = method, .path = path, .host = "localhost:8080"}, catalogue(), "", answer, call),
            HttpRoute::kAnswer)
      << path;
  return answer;
}

TEST(Http, RoutesUris) {
  HttpAnswer answer;
  Call call;
  EXPECT_EQ(http_route({.method = "GET", .path = volume}, catalogue(), "", answer, call), HttpRoute::kCall);
  EXPECT_EQ(call.kind, CallKind::kGet);
  EXPECT_EQ(call.text, "");
  EXPECT_EQ(http_route({.method = "GET", .path = volume, .has_parameter = true, .parameter = "{\"A\":1}"}, catalogue(),
                       "", answer, call),
            HttpRoute::kCall);
  EXPECT_EQ(call.text, "{\"PARAMETER\":{\"A\":1}}");
  EXPECT_EQ(http_route({.method = "PUT", .path = volume, .body = " {}"}, catalogue(), "", answer, call),
            HttpRoute::kCall);
  EXPECT_EQ(call.kind, CallKind::kSet);
  EXPECT_EQ(http_route({.method = "POST", .path = "/jsonrpc"}, catalogue(), "", answer, call), HttpRoute::kRpc);

  EXPECT_EQ(http_route({.method = "PUT", .path = volume, .body = R"({"A":"\u0000"})"}, catalogue(), "", answer, call),
            HttpRoute::kAnswer);
  EXPECT_EQ(answer.status, 400u);
  std::string many = "{\"A\":[1";
  for (std::size_t i = 1; i < kLimitParameterValues; ++i) many += ",1";
  EXPECT_EQ(http_route({.method = "PUT", .path = volume, .body = many + "]}"}, catalogue(), "", answer, call),
            HttpRoute::kAnswer);
  EXPECT_EQ(answer.status, 413u);
  EXPECT_EQ(http_route({.method = "HEAD", .path = volume}, catalogue(), "", answer, call), HttpRoute::kCall);
  EXPECT_EQ(call.kind, CallKind::kGet);

  EXPECT_EQ(answer_to("GET", "/jsonrpc").status, 405u);
  EXPECT_EQ(answer_to("GET", "/tv/nothing").status, 404u);
  EXPECT_EQ(answer_to("HEAD", "/tv/nothing").status, 404u);
  for (const char* body : {"", "{", "5", "[]", "\"a\""}) {
    EXPECT_EQ(http_route({.method = "PUT", .path = volume, .body = body}, catalogue(), "", answer, call),
              HttpRoute::kAnswer);
    EXPECT_EQ(answer.status, 400u) << body;
  }
}

TEST(Http, SaysWhichMethodsAreServed) {
  for (const char* method : {"DELETE", "POST", "PATCH", "head", ""}) {
    for (const auto& [path, allow] : {std::pair{volume, "GET, HEAD, PUT"},
                                      {"/tv/nothing", "GET, HEAD, PUT"},
                                      {"/", "GET, HEAD"},
                                      {"/nothing", "GET, HEAD"}}) {
      const HttpAnswer answer = answer_to(method, path);
      EXPECT_EQ(answer.status, 405u) << method << ' ' << path;
      EXPECT_EQ(answer.allow, allow) << method << ' ' << path;
    }
  }
  EXPECT_EQ(answer_to("PUT", "/").status, 405u);
  EXPECT_EQ(answer_to("HEAD", "/jsonrpc").allow, "POST");
}

TEST(Http, OutcomesBecomeStatuses) {
  const Call get{.kind = CallKind::kGet, .uri = volume};
  const Call set{.kind = CallKind::kSet, .uri = volume};
  EXPECT_EQ(http_outcome(get, {.ret = 0, .text = "{}"}).body, "{}");
  const HttpAnswer failed = http_outcome(get, {.ret = -2, .text = "{}", .reason = "why"});
  EXPECT_EQ(failed.status, 422u);
  EXPECT_EQ(failed.body, R"({"ret":-2,"response":{},"reason":"why"})");
  EXPECT_EQ(http_outcome(get, {.ret = -1, .reason = "why"}).body, R"({"ret":-1,"response":null,"reason":"why"})");
  EXPECT_EQ(http_outcome(set, {.ret = 0, .text = ""}).status, 200u);
  EXPECT_EQ(http_outcome(set, {.ret = 13, .reason = "why"}).body, R"({"ret":13,"reason":"why"})");
  EXPECT_EQ(http_outcome(set, {.warnings = {"a"}}).body, R"({"ret":0,"warnings":["a"]})");
  const HttpAnswer strict = http_outcome(set, {.warnings = {"a"}, .departs = true});
  EXPECT_EQ(strict.status, 400u);
  EXPECT_EQ(strict.body, R"({"error":"a","warnings":["a"]})");
  // A get's body is the plugin's own text; a header takes only printable ASCII.
  const HttpAnswer bent = http_outcome(get, {.text = "{}", .warnings = {"a\r\nb: \xc3\xa4", "c"}});
  EXPECT_EQ(bent.body, "{}");
  EXPECT_EQ(bent.more, "dtv-warning: a??b: ??\r\ndtv-warning: c\r\n");
  EXPECT_EQ(http_outcome(get, {.ret = 0, .text = "{", .broken = true}).status, 502u);
}

}  // namespace
