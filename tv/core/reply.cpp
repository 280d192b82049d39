#include "core/reply.h"

#include <absl/time/time.h>

#include <algorithm>
#include <boost/json/array.hpp>
#include <cctype>
#include <cstdio>
#include <utility>

std::string quoted(std::string_view text) {
  std::string shown(text);
  std::ranges::replace_if(
      shown, [](unsigned char c) { return std::iscntrl(c) != 0; }, '?');
  return '"' + shown + '"';
}

std::string joined(std::span<const std::string_view> words) {
  std::string text;
  for (const std::string_view word : words) text += (text.empty() ? "" : " ") + std::string(word);
  return text;
}

std::string reply_time(std::int64_t utc) {
  return absl::FormatTime("%Y-%m-%dT%H:%M:%SZ", absl::FromUnixSeconds(utc), absl::UTCTimeZone());
}

boost::json::object reply_error(std::string text) { return {{"error", std::move(text)}}; }

boost::json::object reply_takes(std::string_view command, std::string_view what, std::string_view word) {
  return reply_error(std::string(command) + " takes " + std::string(what) + ", not " + quoted(word));
}

boost::json::object reply_see_log(std::string_view what) {
  return reply_error(std::string(what) + "; see the set's log");
}

boost::json::object reply_not_kept() { return reply_error(kNotSaved); }

void reply_watch(boost::json::object& reply, const Watch& watch) {
  const auto list = [](const std::vector<std::string_view>& words) {
    return boost::json::array(words.begin(), words.end());
  };
  boost::json::object shown{{"words", list(watch.words)}};
  if (!watch.member.empty()) shown["member"] = watch.member;
  shown["cancel"] = list(watch.cancel);
  shown["shows"] = list(watch.shows);
  reply["watch"] = std::move(shown);
}

INT32 refuse_call(const char* function, const std::string& why) {
  std::fprintf(stderr, "dtv_tv: %s: %s\n", function, why.c_str());
  return -1;
}
