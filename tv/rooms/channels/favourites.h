// Edits of favourite lists, in lists that are being changed. Each returns why not, or an empty text.
#pragma once

#include "rooms/channels/lists.h"

// which: see favourites_of. An index counts the favourites that fit.
std::string add_favourite(Lists& lists, std::size_t which, std::uint32_t reference);
std::string remove_favourite(Lists& lists, std::size_t which, std::uint32_t reference);
std::string move_favourite(Lists& lists, std::size_t which, const Fit& fit, std::int32_t from, std::int32_t to);
