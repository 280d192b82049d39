// The commands of the playback. "recording ID play", which starts one, is the recorder's.
#include <boost/json.hpp>
#include <charconv>
#include <system_error>

#include "base/text.h"
#include "core/reply.h"
#include "rooms/playback/parts.h"
#include "rooms/playback/playback.h"

namespace {

constexpr std::int64_t kFarthest = 24 * 60 * 60;  // s

boost::json::object shown() {
  boost::json::object answer = playback_describe();
  if (!answer.empty()) return answer;
  answer["recording"] = nullptr;
  if (const std::string why = playback_last_end(); !why.empty()) answer["ended"] = why;
  return answer;
}

boost::json::object reply(const std::string& why) { return why.empty() ? shown() : reply_error(why); }

boost::json::object seek(std::string_view word) {
  const bool from_here = word.starts_with('+') || word.starts_with('-');
  const auto seconds =
      parse_number_within<std::int64_t>(word.substr(word.starts_with('+') ? 1 : 0), -kFarthest, kFarthest);
  if (!seconds || (word.starts_with("+-"))) {
    return reply_takes("playback seek", "seconds from the beginning, or as +30 or -10 from here", word);
  }
  return reply(playback_seek(static_cast<double>(*seconds), from_here));
}

boost::json::object speed(std::string_view word) {
  double factor = 0;
  const auto [end, failure] = std::from_chars(word.data(), word.data() + word.size(), factor);
  const bool right =
      failure == std::errc() && end == word.data() + word.size() && factor >= kSlowest && factor <= kFastest;
  return right ? reply(playback_set_speed(factor)) : reply_takes("playback speed", "a number from 0.25 to 8", word);
}

boost::json::object audio(std::string_view word) {
  const auto number = parse_number<std::size_t>(word);
  return number ? reply(playback_choose_audio(*number))
                : reply_takes("playback audio", "the number of a sound track", word);
}

boost::json::object playback_command(Arguments arguments) {
  if (arguments.empty()) return shown();
  const std::string_view word = arguments[0];
  if (arguments.size() == 1) {
    if (word == "pause" || word == "resume") return reply(playback_pause(word == "pause"));
    if (word == "stop") return reply(playback_stop());
  } else {
    if (word == "seek") return seek(arguments[1]);
    if (word == "speed") return speed(arguments[1]);
    if (word == "audio") return audio(arguments[1]);
  }
  return reply_takes("playback", "pause, resume, stop, seek SECONDS, speed FACTOR or audio NUMBER", joined(arguments));
}

constexpr Command kCommands[] = {
    {"playback", "[pause|resume|stop | seek SECONDS | speed FACTOR | audio NUMBER]", 2,
     "Shows and controls the recording that is played; seek: to a time, or as +30 or -10 from here; audio: a sound "
     "track by its place in the list. \"recording ID play\" begins",
     playback_command},
};

}  // namespace

constinit const std::span<const Command> kPlaybackCommands = kCommands;
