// The command behind "--" of watch, trace and record: one of dtvctl's own, or any program.
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <filesystem>
#include <system_error>

#include "dtvctl.h"

namespace {

constexpr std::string_view kInnerCommands[] = {"get", "set", "tv"};

// The token that a host at this address may get from a program on this machine.
Token token_for(const Options& options) {
  std::string address;
  int port = 0;
  Failure ignored;
  const bool known = split_host(options.host, address, port, ignored);
  return token_find(options, known && (address == "localhost" || address == "::1" || address.starts_with("127.")));
}

// This process's environment with the host and its token. Another thread may read the environment, so it is not
// changed.
std::vector<std::string> program_environment(const Options& options) {
  std::vector<std::string> variables{"DTV_HOST=" + options.host};
  if (const Token token = token_for(options); !token.hex.empty()) variables.push_back("DTV_TOKEN=" + token.hex);
  for (char** variable = environ; *variable != nullptr; ++variable) {
    const std::string_view text = *variable;
    if (!text.starts_with("DTV_HOST=") && !text.starts_with("DTV_TOKEN=")) variables.emplace_back(text);
  }
  return variables;
}

std::vector<char*> pointers_to(std::vector<std::string>& texts) {
  std::vector<char*> pointers;
  for (std::string& text : texts) pointers.push_back(text.data());
  pointers.push_back(nullptr);
  return pointers;
}

// The words that start the command. One of dtvctl's own is run by this program, with the options that concern it.
std::vector<std::string> program_words(const Options& options, ShellWords command) {
  if (!is_inner_command(command)) return {command.begin(), command.end()};
  std::error_code none;
  std::vector<std::string> words{std::filesystem::read_symlink("/proc/self/exe", none)};
  if (options.json) words.emplace_back("--json");
  words.insert(words.end(), {"--timeout", std::to_string(options.timeout), command[0], "--"});
  words.insert(words.end(), command.begin() + 1, command.end());
  return words;
}

}  // namespace

Split split_command(ShellWords words) {
  const auto dashes = static_cast<std::size_t>(std::ranges::find(words, "--") - words.begin());
  return {words.first(dashes), dashes < words.size() ? words.subspan(dashes + 1) : ShellWords()};
}

bool is_inner_command(ShellWords command) {
  return !command.empty() && std::ranges::find(kInnerCommands, command[0]) != std::end(kInnerCommands);
}

std::string check_split_command(ShellWords words) {
  const ShellWords command = split_command(words).command;
  if (command.empty()) return std::ranges::find(words, "--") == words.end() ? "" : "which command, after --?";
  const auto own = std::ranges::find(commands(), command[0], &Command::name);
  if (is_inner_command(command)) return own->check(command.subspan(1));
  if (own == commands().end()) return "";
  return "the command after -- must be get, set or tv, or a program; a program \"" + command[0] +
         "\" is named with its path";
}

pid_t program_start(const Options& options, ShellWords command, bool to_stderr, Failure& ret_failure) {
  std::vector<std::string> texts = program_words(options, command);
  const std::vector<char*> words = pointers_to(texts);
  std::vector<std::string> environment = program_environment(options);
  const std::vector<char*> variables = pointers_to(environment);
  posix_spawnattr_t attributes;
  posix_spawnattr_init(&attributes);
  sigset_t none;
  sigemptyset(&none);
  posix_spawnattr_setsigmask(&attributes, &none);
  sigset_t usual;  // the session ignores it
  sigemptyset(&usual);
  sigaddset(&usual, SIGPIPE);
  posix_spawnattr_setsigdefault(&attributes, &usual);
  posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
  posix_spawn_file_actions_t files;
  posix_spawn_file_actions_init(&files);
  if (to_stderr) posix_spawn_file_actions_adddup2(&files, STDERR_FILENO, STDOUT_FILENO);
  pid_t program = 0;
  const int failure = posix_spawnp(&program, words[0], &files, &attributes, words.data(), variables.data());
  posix_spawn_file_actions_destroy(&files);
  posix_spawnattr_destroy(&attributes);
  if (failure == 0) return program;
  constexpr int kNotFound = 127;  // as shells say it
  ret_failure = {kNotFound, "cannot run " + texts[0] + ": " + std::generic_category().message(failure) +
                                "; behind -- stands a program, or get, set or tv"};
  return 0;
}

std::optional<int> program_end(pid_t program, bool wait) {
  int status = 0;
  pid_t ended = 0;
  while ((ended = waitpid(program, &status, wait ? 0 : WNOHANG)) < 0 && errno == EINTR) continue;
  if (ended == 0) return std::nullopt;
  constexpr int kSignalled = 128;  // as shells say it
  return WIFEXITED(status) ? WEXITSTATUS(status) : kSignalled + WTERMSIG(status);
}
