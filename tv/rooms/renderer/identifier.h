// Makes identifiers of devices and subscriptions.
#pragma once

#include <string>

std::string new_identifier();  // a random one, such as "uuid:6ba7b810-9dad-41d1-80b4-00c04fd430c8"
