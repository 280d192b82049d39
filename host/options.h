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
  std::string replay;  // a record's file, which answers in place of the platform; empty: there is a platform
  bool quiet = false;
};

Options options_defaults();

std::string options_help();

// Reads the words of the command line into the options, which hold the defaults. Returns the exit code if the
// program ends here: after --help, --version or an invalid argument, which is reported. nullopt: it goes on.
std::optional<int> options_read(int argc, char** argv, Options& options);
