// The control interface: one table of commands.
#include <algorithm>
#include <boost/json.hpp>
#include <cstring>
#include <exception>
#include <vector>

#include "core/tv.h"

namespace {

boost::json::object state_command(Words) {
  boost::json::object answer;
  for (const Room& room : rooms()) room.report(answer);
  return answer;
}

boost::json::object reset_command(Words) { return tv_reset() ? state_command({}) : control_not_kept(); }

boost::json::object help_command(Words);

struct Command {
  std::string_view name;
  std::string_view arguments;
  std::size_t most_arguments;
  std::string_view help;
  boost::json::object (*run)(Words arguments);
};

constexpr Command kCommands[] = {
    {"volume", "[N|up|down]", 1, "Turns the volume (0 to 100) as the remote control does: raising it also unmutes",
     volume_command},
    {"mute", "[on|off|toggle]", 1, "Presses the mute key", mute_command},
    {"config", "[WORD|KEY [VALUE]]", 2,
     "Lists the configuration, or what has WORD in its key or help; shows one value; changes it as the menu does",
     config_command},
    {"key", "[NAME]", 1, "Presses a key of the remote control, or lists the keys", key_command},
    {"power", "[on|standby|toggle]", 1, "Wakes the set or puts it in standby", power_command},
    {"clock", "[set TIME|zone NAME|sleep SECONDS]", 2,
     "Shows the clock; sets it (machine: back to the machine's); chooses the zone; starts the sleep timer, or stops it",
     clock_command},
    {"app", "", 0, "Shows what runs besides television: HbbTV, the portal, the set's own applications", app_command},
    {"cec", "[play|standby|unplug|plug DEVICE|send DEVICE OPCODE [BYTE...]|frames]", 17,
     "Lists the devices at HDMI; has one played, put into standby, pulled out or plugged in, or send a message; lists "
     "the bus's latest frames",
     cec_command},
    {"stick", "insert DIR [LABEL]|remove DEV|LABEL|DIR|all|list", 3,
     "Inserts a folder as a USB stick, pulls sticks out, lists them; they stay inserted when the set is switched off",
     stick_command},
    {"network", "[lose|restore]", 1,
     "Shows the network's interfaces; lose pretends that the cable is pulled, until restore", network_command},
    {"state", "", 0, "Reports what the set knows; of the configuration, what differs from a new set", state_command},
    {"reset", "", 0, "Puts the set back into the factory's state", reset_command},
    {"help", "", 0, "Lists these commands", help_command},
};

boost::json::object help_command(Words) {
  boost::json::array commands;
  for (const Command& command : kCommands) {
    commands.push_back({{"name", command.name}, {"arguments", command.arguments}, {"help", command.help}});
  }
  return {{"commands", std::move(commands)}};
}

std::string usage(const Command& command) {
  return std::string(command.name) + (command.arguments.empty() ? "" : " ") + std::string(command.arguments);
}

boost::json::object run(std::string_view text) {
  boost::json::error_code failed;
  const boost::json::value parsed = boost::json::parse(text, failed);
  const boost::json::array* array = failed ? nullptr : parsed.if_array();
  if (array == nullptr || array->empty()) {
    return control_error("a command is a JSON array of words, for example [\"volume\",\"up\"]");
  }
  std::vector<std::string_view> words;
  for (const boost::json::value& word : *array) {
    if (!word.is_string()) return control_error("each word of a command is a JSON string, as in [\"volume\",\"23\"]");
    words.emplace_back(word.get_string());
  }
  const auto* const command = std::ranges::find(kCommands, words[0], &Command::name);
  if (command == std::end(kCommands)) {
    std::string known;
    for (const Command& each : kCommands) known += (known.empty() ? "" : ", ") + std::string(each.name);
    return control_error("there is no command \"" + std::string(words[0]) + "\"; there are: " + known);
  }
  const Words arguments = Words(words).subspan(1);
  if (arguments.size() > command->most_arguments) {
    return control_error("\"" + std::string(arguments[command->most_arguments]) +
                         "\" is too much; usage: " + usage(*command));
  }
  if (!store_is_open()) return control_error("the set is off");
  return command->run(arguments);
}

}  // namespace

boost::json::object control_error(std::string text) { return {{"error", std::move(text)}}; }

boost::json::object control_not_kept() { return control_error("the change could not be kept; the set's log says why"); }

char* dtv_tv_control(const char* command) {
  try {
    return strdup(boost::json::serialize(run(command == nullptr ? "" : command)).c_str());
  } catch (const std::exception&) {  // without memory
    return strdup(R"({"error":"the set is out of memory"})");
  }
}
