// The rows of the services' tables, defined in transport.cpp and rendering.cpp.
#pragma once

#include "rooms/renderer/services.h"

inline constexpr std::string_view kDeviceType = "urn:schemas-upnp-org:device:MediaRenderer:1";
inline constexpr std::string_view kInstanceVariable = "A_ARG_TYPE_InstanceID";  // the renderer has instance 0 only

std::span<const Variable> transport_variables();
std::span<const Action> transport_actions();
std::span<const Variable> rendering_variables();
std::span<const Action> rendering_actions();
std::span<const Variable> connection_variables();
std::span<const Action> connection_actions();
