// An event as the EIT has it.
#pragma once

#include <cstdint>
#include <vector>

#include "generator/programmes.h"
#include "generator/services.h"

// The entry of the event loop: header and descriptors.
std::vector<std::uint8_t> event_bytes(const ServiceRow& service, const Programme& programme,
                                      std::uint8_t running_status);
