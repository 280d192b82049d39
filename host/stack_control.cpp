// The control commands: which of them is whose, and the help of all.
#include <stdlib.h>

#include <algorithm>
#include <boost/json.hpp>

#include "faults.h"

namespace json = boost::json;

namespace {

// The commands that the virtual television does not have. All of them need the tap.
struct HostCommand {
  std::string_view name;
  std::string_view arguments;
  std::string_view help;
  std::vector<std::string_view> next;  // the words that may follow at once
  std::string (*run)(const Stack& stack, std::span<const std::string> words);
};

std::string capture_without_host(const Stack&, std::span<const std::string>) {
  return stack_error("a record is made by a host; this process is none, or runs without the tap");
}

const std::vector<HostCommand>& host_commands() {
  static const std::vector<HostCommand> kCommands{
      {"fault",
       "FUNCTION [--delay MS] [--fail [RESULT]] [--drop-callback] [--repeat-callback TIMES] | [FUNCTION] --clear",
       "Makes a function of the TV API misbehave, in place of its earlier fault: it takes longer, fails with RESULT "
       "(-1), "
       "or its callbacks are dropped or repeated. --clear lets the function, or without one all, behave again",
       {"FUNCTION", "--clear"},
       fault_command},
      {"faults",
       "[functions [TEXT...]]",
       "Lists the faults that are set; with functions, the functions that can have one, with the callbacks that they "
       "register",
       {"functions"},
       faults_command},
      {"capture",
       "start|stop|status|case",
       "Records requests, platform calls and notifications; \"dtvctl record\" saves them. status also says what a "
       "replay "
       "found different, case gives the latest record as a conformance case",
       {"start", "stop", "status", "case"},
       capture_without_host},
  };
  return kCommands;
}

json::object row_of(const HostCommand& command) {
  return {{"name", command.name}, {"arguments", command.arguments}, {"help", command.help}};
}

const HostCommand* find_command(std::string_view name) {
  const auto row = std::ranges::find(host_commands(), name, &HostCommand::name);
  return row == host_commands().end() ? nullptr : &*row;
}

std::string ask_television(const Stack& stack, const std::string& command) {
  if (stack.tv_control == nullptr) return stack_error("this platform is not the virtual television");
  char* const text = stack.tv_control(command.c_str());
  std::string reply = text != nullptr ? text : "";
  free(text);
  return reply;
}

// The rows of all commands, the television's first.
json::array all_commands(const Stack& stack) {
  json::array rows;
  json::error_code failure;
  const json::value reply = json::parse(ask_television(stack, R"(["help"])"), failure);
  const json::value* const listed =
      failure || !reply.is_object() ? nullptr : reply.get_object().if_contains("commands");
  if (listed != nullptr && listed->is_array()) rows = listed->get_array();
  if (stack.fault != nullptr)
    for (const HostCommand& command : host_commands()) rows.push_back(row_of(command));
  return rows;
}

std::string help(const Stack& stack, const std::string& command, std::span<const std::string> words) {
  if (words.empty()) return json::serialize(json::object{{"commands", all_commands(stack)}});
  const HostCommand* const row = find_command(words[0]);
  if (row == nullptr) return ask_television(stack, command);
  json::object answer = row_of(*row);
  answer["next"] = words.size() > 1 ? json::array() : json::array(row->next.begin(), row->next.end());
  return json::serialize(answer);
}

// In place of the television's answer to a command that nobody knows, since the television does not know all of them.
std::string explain_unknown(const Stack& stack, const std::string& name, std::string reply) {
  json::error_code failure;
  const json::value parsed = json::parse(reply, failure);
  if (failure || !parsed.is_object() || !parsed.get_object().contains("error")) return reply;
  std::string list;
  for (const json::value& row : all_commands(stack)) {
    const json::value* const listed = row.is_object() ? row.get_object().if_contains("name") : nullptr;
    if (listed == nullptr || !listed->is_string() || *listed == json::value(name)) return reply;
    list += (list.empty() ? " " : ", ") + std::string(listed->get_string());
  }
  if (list.empty()) return reply;
  const std::string why = stack.tv_control == nullptr
                              ? "this platform is not the virtual television; it has no command \""
                              : "there is no command \"";
  return stack_error(why + name + "\"; the commands are:" + list);
}

}  // namespace

std::string stack_control(const Stack& stack, const std::string& command) {
  std::vector<std::string> words;
  if (!stack_words(command, words))
    return stack_error("a command is a JSON array of words, such as [\"volume\",\"up\"]");
  if (words.empty()) return ask_television(stack, command);
  const std::span<const std::string> others = std::span(words).subspan(1);
  const bool asks_help = words[0] == "help";
  if (const HostCommand* const row = find_command(words[0]); row != nullptr) try {
      return row->run(stack, others);
    } catch (const std::exception& failure) {
      return stack_error(std::string("the tap's list of functions cannot be read: ") + failure.what());
    }
  if (asks_help && others.empty()) return help(stack, command, others);
  return explain_unknown(stack, asks_help ? others[0] : words[0],
                         asks_help ? help(stack, command, others) : ask_television(stack, command));
}

bool stack_words(const std::string& command, std::vector<std::string>& ret_words) {
  json::error_code failure;
  const json::value parsed = json::parse(command, failure);
  if (failure || !parsed.is_array()) return false;
  for (const json::value& word : parsed.get_array()) {
    if (!word.is_string()) return false;
    ret_words.emplace_back(word.get_string());
  }
  return true;
}

std::string stack_error(std::string_view text) { return json::serialize(json::object{{"error", text}}); }
