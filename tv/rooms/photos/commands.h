// The command "photo".
#pragma once

#include <span>

#include "core/room.h"

extern const std::span<const Command> kPhotoCommands;
