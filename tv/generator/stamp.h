// Makes a multiplex of today out of its pictures.
#pragma once

#include <string>

#include "generator/services.h"
#include "generator/si.h"

// Packet identifiers that the pictures have: of each service's PMT, and of its streams in order.
inline constexpr std::uint16_t kFirstPmtPid = 0x101;
std::uint16_t pmt_pid_of(const ServiceRow& service);
std::uint16_t first_stream_pid_of(const ServiceRow& service);

// Reads the pictures, puts the service information of the stamp's time in the place of null packets, and scrambles what
// is to be scrambled. False with ret_error if a file cannot be read or written, or if there were too few null packets.
bool stamp_multiplex(const MultiplexRow& multiplex, const Stamp& stamp, const std::string& pictures,
                     const std::string& path, std::string& ret_error);
