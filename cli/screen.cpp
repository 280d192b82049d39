// "tv screen FILE": saves the set's picture.
#include <absl/strings/escaping.h>

#include <boost/json.hpp>
#include <thread>

#include "dtvctl.h"

namespace json = boost::json;

namespace {

// How long the first picture may take: the set decodes it only while somebody looks.
constexpr std::chrono::seconds kPictureWait{5};
constexpr std::chrono::milliseconds kPictureStep{100};

bool has(const json::object& reply, std::string_view key, const json::value& value) {
  const json::value* const found = reply.if_contains(key);
  return found != nullptr && *found == value;
}

// Asks until the picture is there, the set has none, or the time is over.
bool ask(Session& session, const std::string& file, json::object& ret_reply, Failure& ret_failure) {
  const std::string params = json::serialize(json::object{{"words", {"screen", file}}});
  const Clock::time_point end = Clock::now() + kPictureWait;
  while (true) {
    std::string answer;
    if (!session.call("tv", params, answer, ret_failure)) return false;
    json::value value;
    if (!json_parse(answer, value) || !value.is_object()) {
      ret_failure = {kExitProtocol, "the set's answer is not a JSON object"};
      return false;
    }
    ret_reply = std::move(value.get_object());
    const bool comes = !has(ret_reply, "picture", "none") && !has(ret_reply, "shown", true);
    if (!comes || Clock::now() >= end) return true;
    std::this_thread::sleep_for(kPictureStep);
  }
}

}  // namespace

int save_screen(const Options& options, Session& session, const std::string& file, Failure& ret_failure) {
  json::object reply;
  if (!ask(session, file, reply, ret_failure)) return ret_failure.exit_code;
  const json::value* const jpeg = reply.if_contains("jpeg");
  std::string bytes;
  if (jpeg == nullptr) {
    const json::value* const problem = reply.if_contains("problem");
    const bool told = problem != nullptr && problem->is_string();
    ret_failure = {kExitRefused, told ? std::string(problem->get_string())
                                      : "the set's answer has no picture in its member \"jpeg\""};
    return ret_failure.exit_code;
  }
  if (!jpeg->is_string() || !absl::Base64Unescape({jpeg->get_string().data(), jpeg->get_string().size()}, &bytes)) {
    ret_failure = {kExitProtocol, "the set's picture is not base64"};
    return ret_failure.exit_code;
  }
  if (!write_file(file, bytes, ret_failure)) return ret_failure.exit_code;
  reply["jpeg"] = bytes.size();
  if (options.json)
    print_line(json::serialize(reply));
  else
    print_object(reply);
  return kExitOk;
}
