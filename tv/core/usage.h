// The grammar of a command's words, which is its usage text (Command::arguments).
#pragma once

#include <string>
#include <vector>

#include "core/room.h"

// What may come next, literal words and placeholders alike, from every form of the command that the words fit.
std::vector<std::string> usage_next(const Command& command, Arguments given);

// The forms that the words begin but do not finish, as the usage text has them. Empty: a form may end here, or the
// words fit none. The forms that have most of the words literally count: "channels import" is no list of the channels
// with "import" in their names, but an import without its file.
std::string usage_unfinished(const Command& command, Arguments given);
