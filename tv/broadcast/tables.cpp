#include "broadcast/tables.h"

std::optional<Table> table_read(std::span<const std::uint8_t>) { return std::nullopt; }
