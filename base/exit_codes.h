// What the programs exit with.
#pragma once

#include <string_view>

enum ExitCode : int {
  kExitOk = 0,
  kExitRefused = 1,      // dtvctl: the set refused; dtv-host: the set or the server does not start;
                         // dtv-multiplexes: ffmpeg is missing or fails
  kExitUsage = 2,        // the command line is wrong
  kExitUnreachable = 3,  // dtvctl's, like the next two
  kExitProtocol = 4,
  kExitOutput = 5,  // also dtv-multiplexes': the folder cannot be written
  kExitStuck = 70,  // dtv-host: its serving thread was stuck; EX_SOFTWARE
};

struct ExitMeaning {
  ExitCode code;
  std::string_view meaning;
};

// The codes of dtvctl as its help explains them.
inline constexpr ExitMeaning kExitMeanings[] = {
    {kExitOk, "done"},
    {kExitRefused, "the set refused (a result other than 0), or the host wants its token"},
    {kExitUsage, "wrong command line"},
    {kExitUnreachable, "no host, or it closed the connection; with --local, the set does not start"},
    {kExitProtocol, "the host or the plugin sent an answer that cannot be used"},
    {kExitOutput, "the results cannot be written"},
};
