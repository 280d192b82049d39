#include "rooms/channels/storage.h"

#include <cstdio>

#include "base/text.h"
#include "core/text.h"

namespace {

constexpr std::int32_t kApplication = 0x64746300;

// id: bits 18 and up are the major number, which is not 0; the lowest four are the list.
constexpr const char* kSteps[] = {
    R"(
CREATE TABLE channel (
  list INTEGER NOT NULL CHECK (list BETWEEN 1 AND 3),
  record INTEGER NOT NULL CHECK (record BETWEEN 1 AND 65535),
  id INTEGER NOT NULL CHECK (id BETWEEN 0x40000 AND 0xFFFFFFFF AND (id & 15) = list),
  former INTEGER NOT NULL CHECK (former = 0 OR former BETWEEN 0x40000 AND 0xFFFFFFFF AND (former & 15) = list),
  network INTEGER NOT NULL CHECK (network BETWEEN 0 AND 65535),
  stream INTEGER NOT NULL CHECK (stream BETWEEN 0 AND 65535),
  service INTEGER NOT NULL CHECK (service BETWEEN 0 AND 65535),
  name TEXT NOT NULL CHECK (length(name) > 0),
  short_name TEXT NOT NULL,
  provider TEXT NOT NULL,
  type INTEGER NOT NULL CHECK (type BETWEEN 0 AND 255),
  scrambled INTEGER NOT NULL CHECK (scrambled BETWEEN 0 AND 1),
  mask INTEGER NOT NULL CHECK (mask BETWEEN 0 AND 0xFFFFFFFF),
  options INTEGER NOT NULL CHECK (options BETWEEN 0 AND 0xFFFFFFFF),
  broadcast INTEGER NOT NULL CHECK (broadcast BETWEEN 0 AND 255),
  frequency INTEGER NOT NULL CHECK (frequency BETWEEN 0 AND 0xFFFFFFFF),
  symbol_rate INTEGER NOT NULL CHECK (symbol_rate BETWEEN 0 AND 0xFFFFFFFF),
  orbit INTEGER NOT NULL CHECK (orbit BETWEEN -1800 AND 1800),
  horizontal INTEGER NOT NULL CHECK (horizontal BETWEEN 0 AND 1),
  categories INTEGER NOT NULL CHECK (categories BETWEEN 0 AND 0xFFFFFFFF),
  logo INTEGER NOT NULL CHECK (logo BETWEEN 0 AND 65535),
  PRIMARY KEY (list, record)
) STRICT, WITHOUT ROWID;
CREATE TABLE favourite (
  list INTEGER NOT NULL CHECK (list BETWEEN 0 AND 12),
  position INTEGER NOT NULL,
  reference INTEGER NOT NULL CHECK (reference BETWEEN 0x10000 AND 0x3FFFF),
  PRIMARY KEY (list, position)
) STRICT, WITHOUT ROWID;
CREATE TABLE satellite (
  record INTEGER PRIMARY KEY CHECK (record BETWEEN 1 AND 65535),
  orbit INTEGER NOT NULL CHECK (orbit BETWEEN -1800 AND 1800),
  name TEXT NOT NULL
) STRICT;
CREATE TABLE category (
  number INTEGER PRIMARY KEY CHECK (number BETWEEN 0 AND 31),
  name TEXT NOT NULL
) STRICT;
CREATE TABLE multiplex (
  position INTEGER PRIMARY KEY,
  source TEXT NOT NULL,
  medium INTEGER NOT NULL CHECK (medium BETWEEN 1 AND 3),
  frequency INTEGER NOT NULL CHECK (frequency BETWEEN 0 AND 0xFFFFFFFF),
  symbol_rate INTEGER NOT NULL CHECK (symbol_rate BETWEEN 0 AND 0xFFFFFFFF),
  orbit INTEGER NOT NULL CHECK (orbit BETWEEN -1800 AND 1800),
  horizontal INTEGER NOT NULL CHECK (horizontal BETWEEN 0 AND 1)
) STRICT;
)",
};
static_assert(kFavourites == 13 && kLastList == 3, "the constraints have these limits");

constexpr DatabaseLayouts kLayouts{.application = kApplication, .steps = kSteps};

// ---- Reading ----

// The columns of a row, one after the other.
struct Row {
  sqlite3_stmt* statement;
  int column = 0;
  std::int64_t whole() { return sqlite3_column_int64(statement, column++); }
  template <typename Number>
  void read(Number& ret_number) {
    ret_number = static_cast<Number>(whole());
  }
  // SQLite accepts bytes that are not UTF-8 as a text.
  void read(std::string& ret_text, std::size_t longest) {
    ret_text = clean_text(column_text(statement, column++), longest);
  }
};

template <typename Read>
bool read_rows(Database& database, std::string_view sql, Read read) {
  sqlite3_stmt* const statement = database_statement(database, sql);
  if (statement == nullptr) return false;
  int result = SQLITE_ROW;
  while ((result = sqlite3_step(statement)) == SQLITE_ROW) {
    Row row{statement};
    read(row);
  }
  sqlite3_reset(statement);
  return result == SQLITE_DONE;
}

Entry read_entry(Row& row) {
  Entry entry;
  Channel& channel = entry.channel;
  row.read(channel.list);
  row.read(channel.record);
  set_id(entry, static_cast<std::uint32_t>(row.whole()));
  row.read(entry.former);
  row.read(channel.key.network);
  row.read(channel.key.stream);
  row.read(channel.key.service);
  row.read(channel.name, kLongestName);
  row.read(channel.short_name, kLongestShortName);
  row.read(channel.provider, kLongestName);
  row.read(channel.type);
  row.read(channel.scrambled);
  set_mask(entry, static_cast<std::uint32_t>(row.whole()));
  row.read(entry.options);
  row.read(entry.broadcast);
  row.read(channel.frequency);
  row.read(entry.symbol_rate);
  row.read(entry.orbit);
  row.read(entry.horizontal);
  row.read(entry.categories);
  row.read(entry.logo);
  channel.medium = static_cast<Medium>(channel.list);
  return entry;
}

bool read_lists(Database& database, Lists& ret_lists) {
  Lists& lists = ret_lists;
  const bool read =
      read_rows(database,
                "SELECT list, record, id, former, network, stream, service, name, short_name, provider, type, "
                "scrambled, mask, options, broadcast, frequency, symbol_rate, orbit, horizontal, categories, logo "
                "FROM channel",
                [&](Row& row) { lists.entries.push_back(std::make_shared<const Entry>(read_entry(row))); }) &&
      read_rows(database, "SELECT list, reference FROM favourite ORDER BY list, position",
                [&](Row& row) {
                  const auto list = static_cast<std::size_t>(row.whole());
                  lists.favourites[list].push_back(static_cast<std::uint32_t>(row.whole()));
                }) &&
      read_rows(database, "SELECT record, orbit, name FROM satellite ORDER BY record",
                [&](Row& row) {
                  Satellite& satellite = lists.satellites.emplace_back();
                  row.read(satellite.record);
                  row.read(satellite.orbit);
                  row.read(satellite.name, kLongestSatelliteName);
                }) &&
      read_rows(database, "SELECT number, name FROM category ORDER BY number",
                [&](Row& row) {
                  Category& category = lists.categories.emplace_back();
                  row.read(category.number);
                  row.read(category.name, kLongestCategoryName);
                }) &&
      read_rows(database,
                "SELECT source, medium, frequency, symbol_rate, orbit, horizontal FROM multiplex ORDER BY position",
                [&](Row& row) {
                  KnownMultiplex& multiplex = lists.multiplexes.emplace_back();
                  row.read(multiplex.table, kLongestName);
                  multiplex.medium = static_cast<Medium>(row.whole());
                  row.read(multiplex.frequency);
                  row.read(multiplex.symbol_rate);
                  row.read(multiplex.orbit);
                  row.read(multiplex.horizontal);
                });
  return read;
}

// ---- Writing ----

void bind(sqlite3_stmt* statement, int column, std::int64_t number) { sqlite3_bind_int64(statement, column, number); }

void bind(sqlite3_stmt* statement, int column, const std::string& text) {
  sqlite3_bind_text(statement, column, text.data(), static_cast<int>(text.size()), SQLITE_STATIC);
}

// Runs a statement with these values, which live until it returns.
template <typename... Values>
bool run(Database& database, std::string_view sql, const Values&... values) {
  sqlite3_stmt* const statement = database_statement(database, sql);
  if (statement == nullptr) return false;
  int column = 0;
  (bind(statement, ++column, values), ...);
  return database_run(statement);
}

bool write_entry(Database& database, const Entry& entry) {
  const Channel& channel = entry.channel;
  return run(database, "REPLACE INTO channel VALUES (?,?,?,?,?,?,?,?,?,?,?,?,?,?,?,?,?,?,?,?,?)", channel.list,
             channel.record, channel.id, entry.former, channel.key.network, channel.key.stream, channel.key.service,
             channel.name, channel.short_name, channel.provider, channel.type, channel.scrambled, entry.mask,
             entry.options, entry.broadcast, channel.frequency, entry.symbol_rate, entry.orbit, entry.horizontal,
             entry.categories, entry.logo);
}

bool write_changed(Database& database, std::span<const Difference> changed) {
  for (const auto& [before, after] : changed) {
    const bool written = after != nullptr ? write_entry(database, *after)
                                          : run(database, "DELETE FROM channel WHERE list = ? AND record = ?",
                                                before->channel.list, before->channel.record);
    if (!written) return false;
  }
  return true;
}

bool write_favourites(Database& database, std::size_t list, const std::vector<std::uint32_t>& references) {
  if (!run(database, "DELETE FROM favourite WHERE list = ?", static_cast<std::int64_t>(list))) return false;
  std::int64_t position = 0;
  for (const std::uint32_t reference : references)
    if (!run(database, "INSERT INTO favourite VALUES (?,?,?)", static_cast<std::int64_t>(list), position++, reference))
      return false;
  return true;
}

bool write_satellites(Database& database, const std::vector<Satellite>& satellites) {
  if (!run(database, "DELETE FROM satellite")) return false;
  for (const auto& [record, orbit, name] : satellites)
    if (!run(database, "INSERT INTO satellite VALUES (?,?,?)", record, orbit, name)) return false;
  return true;
}

bool write_categories(Database& database, const std::vector<Category>& categories) {
  if (!run(database, "DELETE FROM category")) return false;
  for (const auto& [number, name] : categories)
    if (!run(database, "INSERT INTO category VALUES (?,?)", number, name)) return false;
  return true;
}

bool write_multiplexes(Database& database, const std::vector<KnownMultiplex>& multiplexes) {
  if (!run(database, "DELETE FROM multiplex")) return false;
  std::int64_t position = 0;
  for (const KnownMultiplex& each : multiplexes) {
    if (!run(database, "INSERT INTO multiplex VALUES (?,?,?,?,?,?,?)", position++, each.table,
             static_cast<std::int64_t>(each.medium), each.frequency, each.symbol_rate, each.orbit, each.horizontal))
      return false;
  }
  return true;
}

bool write_all(Database& database, const Lists& before, const Lists& after, std::span<const Difference> changed) {
  bool written = run(database, "BEGIN IMMEDIATE") && write_changed(database, changed);
  for (std::size_t i = 0; i < kFavourites; ++i)
    if (before.favourites[i] != after.favourites[i])
      written = written && write_favourites(database, i, after.favourites[i]);
  if (before.satellites != after.satellites) written = written && write_satellites(database, after.satellites);
  if (before.categories != after.categories) written = written && write_categories(database, after.categories);
  if (before.multiplexes != after.multiplexes) written = written && write_multiplexes(database, after.multiplexes);
  return written && run(database, "COMMIT");
}

}  // namespace

bool storage_open(const std::string& path, Database& ret_database, Lists& ret_lists, std::string& ret_error) {
  Database database;
  if (!database_open(path, kLayouts, database, ret_error)) return false;
  Lists lists;
  if (!read_lists(database, lists)) {
    ret_error = "cannot read " + path + ": " + sqlite3_errmsg(database.handle);
    database_close(database);
    return false;
  }
  ret_database = std::move(database);
  ret_lists = std::move(lists);
  return true;
}

bool storage_write(Database& database, const Lists& before, const Lists& after, std::span<const Difference> changed) {
  if (database.handle == nullptr) {
    std::fprintf(stderr, "dtv_tv: a change of the channel lists was not saved: their database is not open\n");
    return false;
  }
  if (write_all(database, before, after, changed)) return true;
  std::fprintf(stderr, "dtv_tv: a change of the channel lists was not saved: %s\n", sqlite3_errmsg(database.handle));
  if (sqlite3_get_autocommit(database.handle) == 0) database_execute(database.handle, "ROLLBACK");
  return false;
}
