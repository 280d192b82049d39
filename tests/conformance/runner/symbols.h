// The names that a case can use in place of numbers: rows of the registry ("VOL_MUTE" is its identifier) and item types
// ("TYPE_VALUE"). They are read from the plugin's own table, uris.def.
#pragma once

#include <span>
#include <string>
#include <string_view>

namespace runner {

// The one of some names, at least one, that is most like a given name.
std::string_view nearest_name(std::string_view name, std::span<const std::string_view> names);

// Appends a step as written, with numbers in place of names. A call of an exported function can have names: in "in"
// and "after" as arguments of 8 and 16 bits and as the "id" of a record, and in "ret". False with ret_error.
bool append_without_symbols(std::string_view step, std::string& json, std::string& ret_error);

}  // namespace runner
