// The control interface: finds a command of the set or of a room, and runs it.
#include <algorithm>
#include <boost/json.hpp>
#include <cstring>
#include <new>
#include <string>
#include <vector>

#include "core/reply.h"
#include "core/room.h"
#include "core/set.h"
#include "core/store.h"
#include "core/usage.h"
#include "dtv_tv.h"

namespace {

const Command* find_command(std::string_view name);

// What "state all" shows of a command's reply: the whole reply, or one member of it.
struct StatePart {
  std::string_view name;
  std::string_view command;
  std::string_view member;  // empty: the reply
};

constexpr StatePart kStateParts[] = {
    {"clock", "clock", ""},        {"applications", "app", ""}, {"sources", "source", "sources"},
    {"sticks", "stick", "sticks"}, {"network", "network", ""},  {"cec", "cec", "devices"},
};

boost::json::object state_command(Arguments arguments) {
  if (!arguments.empty() && arguments[0] != "all") return reply_takes("state", "all, or nothing", arguments[0]);
  boost::json::object answer;
  for (const Room* const room : rooms())
    if (room->report != nullptr) room->report(answer);
  if (arguments.empty()) return answer;
  for (const StatePart& part : kStateParts) {
    boost::json::object reply = find_command(part.command)->run({});
    if (part.member.empty())
      answer[part.name] = std::move(reply);
    else
      answer[part.name] = std::move(reply[part.member]);
  }
  return answer;
}

boost::json::object reset_command(Arguments) { return set_reset() ? state_command({}) : reply_not_kept(); }

boost::json::object help_command(Arguments arguments);

constexpr Command kSetCommands[] = {
    {"state", "[all]", 1,
     "Reports what a viewer sees at once, and what differs from a new set; with all, also clock, applications, "
     "sources, "
     "sticks, network and CEC devices",
     state_command},
    {"reset", "", 0, "Resets the set to its factory state", reset_command},
    {"help", "[COMMAND [WORD...]]", 17, "Lists the commands; for one command, also the words that may follow",
     help_command},
};

// The rooms' commands, then the set's own.
std::vector<const Command*> all_commands() {
  std::vector<const Command*> commands;
  for (const Room* const room : rooms())
    for (const Command& command : room->commands) commands.push_back(&command);
  for (const Command& command : kSetCommands) commands.push_back(&command);
  return commands;
}

const Command* find_command(std::string_view name) {
  const std::vector<const Command*> commands = all_commands();
  const auto found = std::ranges::find(commands, name, &Command::name);
  return found == commands.end() ? nullptr : *found;
}

boost::json::object no_command(std::string_view name) {
  std::string known;
  for (const Command* const each : all_commands()) known += (known.empty() ? "" : ", ") + std::string(each->name);
  return reply_error("there is no command " + quoted(name) + "; the commands are: " + known);
}

boost::json::object shown(const Command& command) {
  return {{"name", command.name}, {"arguments", command.arguments}, {"help", command.help}};
}

boost::json::object help_command(Arguments arguments) {
  if (arguments.empty()) {
    boost::json::array commands;
    for (const Command* const command : all_commands()) commands.push_back(shown(*command));
    return {{"commands", std::move(commands)}};
  }
  const Command* const command = find_command(arguments[0]);
  if (command == nullptr) return no_command(arguments[0]);
  const std::vector<std::string> next = usage_next(*command, arguments.subspan(1));
  boost::json::object answer = shown(*command);
  answer["next"] = boost::json::array(next.begin(), next.end());
  return answer;
}

std::string usage(const Command& command) {
  return std::string(command.name) + (command.arguments.empty() ? "" : " ") + std::string(command.arguments);
}

boost::json::object run(std::string_view text) {
  boost::json::error_code failed;
  const boost::json::value parsed = boost::json::parse(text, failed);
  const boost::json::array* array = failed ? nullptr : parsed.if_array();
  if (array == nullptr || array->empty()) {
    return reply_error("a command is a JSON array of words, for example [\"volume\",\"up\"]");
  }
  std::vector<std::string_view> words;
  for (const boost::json::value& word : *array) {
    if (!word.is_string()) return reply_error("each word of a command is a JSON string, as in [\"volume\",\"23\"]");
    words.emplace_back(word.get_string());
  }
  const Command* const command = find_command(words[0]);
  if (command == nullptr) return no_command(words[0]);
  const Arguments arguments = Arguments(words).subspan(1);
  if (arguments.size() > command->most_arguments) {
    return reply_error(quoted(arguments[command->most_arguments]) + " is one word too many; usage: " + usage(*command));
  }
  if (const std::string forms = usage_unfinished(*command, arguments); !forms.empty())
    return reply_error("a word is missing; usage: " + std::string(command->name) + " " + forms);
  if (!store_is_open()) return reply_error("the set is off");
  return command->run(arguments);
}

}  // namespace

char* dtv_tv_control(const char* command) {
  try {
    return strdup(boost::json::serialize(run(command == nullptr ? "" : command)).c_str());
  } catch (const std::bad_alloc&) {
    return strdup(R"({"error":"the set is out of memory"})");
  }
}
