// Pictures and sound of the multiplexes, made by the ffmpeg command line.
#pragma once

#include <span>
#include <string>
#include <vector>

#include "base/exit_codes.h"
#include "generator/services.h"

// Counted up when the pictures change; those of other versions are made again.
inline constexpr int kPicturesVersion = 1;

// Where the pictures of a multiplex are kept.
std::string pictures_path(const std::string& folder, const MultiplexRow& multiplex, int seconds);

// Whether they are kept there, at their whole length.
bool pictures_there(const MultiplexRow& multiplex, const std::string& folder, int seconds);

// Of its packets, null packets included, in kbit/s.
int pictures_rate(const MultiplexRow& multiplex, int seconds);

// ffmpeg's command line for a multiplex. Its stream goes to standard output. strips[n] and subtitles[n] are the paths
// of what label.h makes for the n-th service of the multiplex.
std::vector<std::string> pictures_command(const MultiplexRow& multiplex, int seconds,
                                          std::span<const std::string> strips, std::span<const std::string> subtitles);

// Makes the pictures of these multiplexes, all at once, with progress on standard error. kExitOk; with ret_error
// kExitRefused: ffmpeg is missing or fails, kExitOutput: the folder cannot be written.
ExitCode pictures_make(std::span<const MultiplexRow* const> multiplexes, const std::string& folder, int seconds,
                       std::string& ret_error);
