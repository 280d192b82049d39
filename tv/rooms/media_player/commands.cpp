// The command "player".
#include <algorithm>
#include <boost/json.hpp>
#include <charconv>
#include <string>
#include <system_error>

#include "base/text.h"
#include "core/reply.h"
#include "rooms/media_player/parts.h"

namespace {

boost::json::object reply(const std::string& why) { return why.empty() ? media_player_describe() : reply_error(why); }

std::optional<double> number(std::string_view word) {
  double value = 0;
  const auto [end, failed] = std::from_chars(word.data(), word.data() + word.size(), value);
  if (failed != std::errc() || end != word.data() + word.size()) return std::nullopt;
  return value;
}

boost::json::object seek(std::string_view word) {
  constexpr const char* kWhat = "seconds from the beginning, as +30 or -10 from here, or as 50%";
  const bool percent = word.ends_with('%');
  const bool from_here = word.starts_with('+') || word.starts_with('-');
  const std::string_view digits = word.substr(word.starts_with('+') ? 1 : 0);
  const auto place = number(percent ? digits.substr(0, digits.size() - 1) : digits);
  if (!place || word.starts_with("+-") || (percent && from_here)) return reply_takes("player seek", kWhat, word);
  return reply(percent ? viewer_seek_percent(*place) : media_player_seek(*place, from_here));
}

boost::json::object choose(TrackKind kind, std::string_view word) {
  const bool off = kind == TrackKind::kSubtitle && word == "off";
  const auto place = off ? std::optional<std::size_t>(0) : parse_number<std::size_t>(word);
  if (!place || (!off && *place == 0))
    return kind == TrackKind::kAudio ? reply_takes("player audio", "the number of a sound track", word)
                                     : reply_takes("player subtitle", "the number of a subtitle track, or off", word);
  return reply(viewer_choose(kind, *place));
}

boost::json::object repeat(std::string_view word) {
  if (word == "off") return reply(viewer_repeat(Repeat::kOff));
  if (word == "one") return reply(viewer_repeat(Repeat::kOne));
  if (word == "folder") return reply(viewer_repeat(Repeat::kFolder));
  return reply_takes("player repeat", "off, one or folder", word);
}

boost::json::object play(Arguments words) {
  const auto from = words.size() > 1 ? number(words[1]) : std::nullopt;
  if (words.size() > 1 && !from) return reply_takes("player play PATH", "seconds from the beginning", words[1]);
  return reply(media_player_play(std::string(words[0]), from));
}

boost::json::object with_number(std::string_view command, std::string_view what, std::string_view given,
                                std::string (*action)(double)) {
  const auto value = number(given);
  return value ? reply(action(*value)) : reply_takes("player " + std::string(command), what, given);
}

boost::json::object with_value(std::string_view word, std::string_view value, Arguments arguments) {
  if (word == "seek") return seek(value);
  if (word == "speed") return with_number(word, "a number from 0.1 to 8, or -1 to -8", value, media_player_set_speed);
  if (word == "step" && value == "back") return reply(viewer_step_picture(true));
  if (word == "audio") return choose(TrackKind::kAudio, value);
  if (word == "subtitle") return choose(TrackKind::kSubtitle, value);
  if (word == "chapter")
    return with_number(word, "the number of a chapter", value,
                       [](double place) { return viewer_step_chapter(static_cast<int>(std::clamp(place, 0.0, 1e6))); });
  if (word == "repeat") return repeat(value);
  if (word == "zoom")
    return with_number(word, "a number of percent, 100 to 800", value,
                       [](double percent) { return viewer_zoom(static_cast<int>(std::clamp(percent, 0.0, 1e6))); });
  if (word == "unlock") return reply(viewer_unlock(value));
  return reply_takes("player", "one of its words; \"help player\" lists them", joined(arguments));
}

boost::json::object player_command(Arguments arguments) {
  if (arguments.empty()) return media_player_describe();
  const std::string_view word = arguments[0];
  if (word == "play" && arguments.size() > 1) return play(arguments.subspan(1));
  if (arguments.size() == 2) return with_value(word, arguments[1], arguments);
  if (arguments.size() == 1) {
    if (word == "pause" || word == "resume") return reply(media_player_pause(word == "pause"));
    if (word == "stop") return reply(media_player_stop());
    if (word == "step") return reply(viewer_step_picture(false));
    if (word == "next" || word == "previous") return reply(viewer_next(word == "next" ? 1 : -1));
  }
  return reply_takes("player", "one of its words; \"help player\" lists them", joined(arguments));
}

constexpr Command kCommands[] = {
    {"player",
     "[play PATH [FROM] | pause|resume|stop | seek PLACE | speed FACTOR | step [back] | audio NUMBER | subtitle NUMBER "
     "| "
     "subtitle off | chapter NUMBER | repeat off|one|folder | next|previous | zoom PERCENT | unlock PIN]",
     3,
     "Shows and controls the player of files; PATH: a file or playlist of a stick, or an http address in the home "
     "network; PLACE: seconds, +30 or -10 from here, or 50%; FACTOR: 0.1 to 8, or -1 to -8 backwards; unlock: plays a "
     "file above the locked age",
     player_command},
};

}  // namespace

constinit const std::span<const Command> kPlayerCommands = kCommands;
