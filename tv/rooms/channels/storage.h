// The channel lists on the disk: a SQLite database. What is not valid in the file is damage (core/database.h), since
// the tables have constraints.
#pragma once

#include "core/database.h"
#include "rooms/channels/lists.h"

// Opens or creates the database, and reads the lists without indexing them.
bool storage_open(const std::string& path, Database& ret_database, Lists& ret_lists, std::string& ret_error);

// Writes what differs between two states of the lists, in one transaction. The database has the first state. False: it
// still has; the reason is on stderr. The caller holds the lock that guards the database.
bool storage_write(Database& database, const Lists& before, const Lists& after, std::span<const Difference> changed);
