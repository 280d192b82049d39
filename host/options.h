// The command line of dtv-host.
#pragma once

#include <optional>
#include <string>

#include "server.h"

struct Options {
  ServerOptions server;
  StackOptions stack;
  bool private_paths = true;
  bool cec = true;
  bool broadcast = true;
  bool quiet = false;
};

// The options that hold without any words on the command line.
Options options_defaults();

std::string options_help();

// Reads the words of the command line into the options, which hold the defaults. Returns the exit code when the program
// ends here: after --help, --version or a wrong word, about which it has printed.
std::optional<int> options_read(int argc, char** argv, Options& options);
