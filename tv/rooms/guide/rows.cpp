#include "rooms/guide/rows.h"

#include <algorithm>
#include <tuple>

#include "base/text.h"

namespace {

constexpr std::int32_t kApplication = 0x47554400;

// Most queries are about one channel, so events are stored by channel and time. by_kind has all that a filter over all
// channels looks at, by kind_of and time. Long texts would make the pages of events few and large, so they have a table
// of their own.
constexpr const char* kSteps[] = {
    "CREATE TABLE event (channel INTEGER NOT NULL, start INTEGER NOT NULL, stop INTEGER NOT NULL, id INTEGER NOT NULL,"
    " rank INTEGER NOT NULL, import INTEGER NOT NULL, flags INTEGER NOT NULL, age INTEGER NOT NULL,"
    " categories INTEGER NOT NULL, series INTEGER NOT NULL, title TEXT NOT NULL,"
    " PRIMARY KEY (channel, start)) WITHOUT ROWID;"
    "CREATE TABLE text (channel INTEGER NOT NULL, start INTEGER NOT NULL, summary TEXT NOT NULL,"
    " details TEXT NOT NULL, series TEXT NOT NULL, PRIMARY KEY (channel, start)) WITHOUT ROWID;"
    "CREATE INDEX by_id ON event (channel, id);"
    "CREATE INDEX by_time ON event (start, stop, channel, id, flags, age, categories, rank);"
    "CREATE INDEX by_series ON event (series, start);"
    "CREATE TABLE map (xmltv TEXT PRIMARY KEY, channel INTEGER NOT NULL) WITHOUT ROWID",
    // Events that were there before: those with one category or none get their kind, the others are found as kOther.
    "ALTER TABLE event ADD COLUMN kind INTEGER NOT NULL DEFAULT 16;"
    "UPDATE event SET kind = categories >> 4 WHERE categories BETWEEN 0 AND 255 AND stop - start <= 14400;"
    "DROP INDEX by_time;"
    "CREATE INDEX by_kind ON event (kind, start, stop, channel, id, flags, age, categories, rank)"};

// The kind of an event tells a filter over all channels where to look: the level 1 of its categories, 0 without any;
// kOther if they have several, or if the event is so long that it may have begun long before the filter's time.
constexpr unsigned kOther = 16, kKinds = 17;
constexpr std::int64_t kUsualEvent = 4 * 3600;  // seconds; longer events are kOther

unsigned kind_of(const GuideRow& row) {
  if (row.stop - row.start > kUsualEvent) return kOther;
  const unsigned kind = row.categories >> 4 & 0xF;
  for (std::uint64_t rest = row.categories >> 8; rest != 0; rest >>= 8)
    if ((rest >> 4 & 0xF) != kind) return kOther;
  return kind;
}

constexpr std::int64_t kCaptions = 1, kScrambled = 2;  // bits of flags

#define GUIDE_BRIEF "SELECT channel, start, stop, id, flags, age, categories, rank"
#define GUIDE_WHOLE                                                                                              \
  "SELECT e.channel, e.start, e.stop, e.id, e.flags, e.age, e.categories, e.rank, e.import, e.title, t.summary," \
  " t.details, t.series FROM event e LEFT JOIN text t ON t.channel = e.channel AND t.start = e.start"

// FNV-1a. rows_of_series compares the texts as well, since two series can have the same hash.
std::int64_t series_number(std::string_view series) {
  std::uint64_t hash = 0xCBF29CE484222325;
  for (const char c : series) hash = (hash ^ static_cast<unsigned char>(c)) * 0x100000001B3;
  return static_cast<std::int64_t>(hash);
}

const std::string& series_of(const GuideRow& row) { return row.series.empty() ? row.title : row.series; }

void bind_all(sqlite3_stmt* statement, std::initializer_list<std::int64_t> values) {
  int place = 0;
  for (const std::int64_t value : values) sqlite3_bind_int64(statement, ++place, value);
}

void bind_text(sqlite3_stmt* statement, int place, std::string_view text) {
  sqlite3_bind_text(statement, place, text.data(), static_cast<int>(text.size()), SQLITE_STATIC);
}

GuideBrief read_brief(sqlite3_stmt* statement) {
  const auto number = [&](int column) { return sqlite3_column_int64(statement, column); };
  return {.channel = number(0),
          .start = number(1),
          .stop = number(2),
          .id = static_cast<std::uint16_t>(number(3)),
          .captions = (number(4) & kCaptions) != 0,
          .age = static_cast<std::uint8_t>(number(5)),
          .categories = static_cast<std::uint64_t>(number(6)),
          .rank = static_cast<GuideRank>(number(7))};
}

GuideRow read_whole(sqlite3_stmt* statement) {
  const GuideBrief brief = read_brief(statement);
  return {.channel = brief.channel,
          .start = brief.start,
          .stop = brief.stop,
          .id = brief.id,
          .rank = brief.rank,
          .import = sqlite3_column_int64(statement, 8),
          .captions = brief.captions,
          .scrambled = (sqlite3_column_int64(statement, 4) & kScrambled) != 0,
          .age = brief.age,
          .categories = brief.categories,
          .title = column_text(statement, 9),
          .summary = column_text(statement, 10),
          .details = column_text(statement, 11),
          .series = column_text(statement, 12)};
}

// Returns the statement with these numbers bound; null as database_statement.
sqlite3_stmt* prepare(Database& database, std::string_view sql, std::initializer_list<std::int64_t> values) {
  sqlite3_stmt* const statement = database_statement(database, sql);
  if (statement != nullptr) bind_all(statement, values);
  return statement;
}

template <typename Record>
std::optional<Record> one(sqlite3_stmt* statement, Record (*read)(sqlite3_stmt*)) {
  std::optional<Record> found;
  if (statement != nullptr && sqlite3_step(statement) == SQLITE_ROW) found = read(statement);
  if (statement != nullptr) sqlite3_reset(statement);  // ends the read transaction
  return found;
}

void visit_briefs(sqlite3_stmt* statement, const VisitBrief& visit) {
  if (statement == nullptr) return;
  while (sqlite3_step(statement) == SQLITE_ROW && visit(read_brief(statement))) {
  }
  sqlite3_reset(statement);
}

// The only number of the only row; 0 for null.
std::int64_t number_of(sqlite3_stmt* statement) {
  if (statement == nullptr) return 0;
  const std::int64_t number = sqlite3_step(statement) == SQLITE_ROW ? sqlite3_column_int64(statement, 0) : 0;
  sqlite3_reset(statement);
  return number;
}

bool run(sqlite3_stmt* statement) { return statement != nullptr && database_run(statement); }

}  // namespace

const DatabaseLayouts kGuideLayouts = {.application = kApplication, .steps = kSteps};

void note_change(GuideChanges& changes, std::int64_t channel, std::int64_t from, std::int64_t to) {
  const auto [place, is_new] = changes.spans.try_emplace(channel, GuideSpan{from, to});
  if (is_new) return;
  place->second.from = std::min(place->second.from, from);
  place->second.to = std::max(place->second.to, to);
}

// An event that overlaps a time begins at most kLongestEventTime before it: that bounds what the statements below
// visit.

std::optional<GuideRow> row_by_id(Database& database, std::int64_t channel, std::uint16_t id) {
  return one(prepare(database, GUIDE_WHOLE " WHERE e.channel = ? AND e.id = ? LIMIT 1", {channel, id}), read_whole);
}

std::optional<GuideRow> row_at(Database& database, std::int64_t channel, std::int64_t time) {
  return one(prepare(database,
                     GUIDE_WHOLE " WHERE e.channel = ?1 AND e.start <= ?2 AND e.start > ?3 AND e.stop > ?2"
                                 " ORDER BY e.start DESC LIMIT 1",
                     {channel, time, time - kLongestEventTime}),
             read_whole);
}

std::optional<GuideRow> row_after(Database& database, std::int64_t channel, std::int64_t time) {
  return one(
      prepare(database, GUIDE_WHOLE " WHERE e.channel = ? AND e.start > ? ORDER BY e.start LIMIT 1", {channel, time}),
      read_whole);
}

std::optional<GuideRow> row_starting(Database& database, std::int64_t channel, std::int64_t start) {
  return one(prepare(database, GUIDE_WHOLE " WHERE e.channel = ? AND e.start = ?", {channel, start}), read_whole);
}

std::optional<GuideBrief> brief_by_id(Database& database, std::int64_t channel, std::uint16_t id) {
  return one(prepare(database, GUIDE_BRIEF " FROM event WHERE channel = ? AND id = ? LIMIT 1", {channel, id}),
             read_brief);
}

std::optional<GuideBrief> brief_at(Database& database, std::int64_t channel, std::int64_t time) {
  return one(prepare(database,
                     GUIDE_BRIEF " FROM event WHERE channel = ?1 AND start <= ?2 AND start > ?3 AND stop > ?2"
                                 " ORDER BY start DESC LIMIT 1",
                     {channel, time, time - kLongestEventTime}),
             read_brief);
}

std::optional<GuideBrief> brief_after(Database& database, std::int64_t channel, std::int64_t time) {
  return one(prepare(database, GUIDE_BRIEF " FROM event WHERE channel = ? AND start > ? ORDER BY start LIMIT 1",
                     {channel, time}),
             read_brief);
}

std::optional<GuideBrief> brief_starting(Database& database, std::int64_t channel, std::int64_t start) {
  return one(prepare(database, GUIDE_BRIEF " FROM event WHERE channel = ? AND start = ?", {channel, start}),
             read_brief);
}

std::vector<GuideRow> rows_between(Database& database, std::int64_t channel, std::int64_t from, std::int64_t to,
                                   std::size_t most) {
  std::vector<GuideRow> rows;
  sqlite3_stmt* const statement = prepare(
      database,
      GUIDE_WHOLE " WHERE e.channel = ?1 AND e.start < ?3 AND e.start > ?4 AND e.stop > ?2 ORDER BY e.start LIMIT ?5",
      {channel, from, to, from - kLongestEventTime, static_cast<std::int64_t>(most)});
  if (statement == nullptr) return rows;
  while (sqlite3_step(statement) == SQLITE_ROW) rows.push_back(read_whole(statement));
  sqlite3_reset(statement);
  return rows;
}

void briefs_of_channel(Database& database, std::int64_t channel, std::int64_t from, std::int64_t to,
                       const VisitBrief& visit) {
  visit_briefs(prepare(database,
                       GUIDE_BRIEF " FROM event WHERE channel = ?1 AND start < ?3 AND start > ?4 AND stop > ?2"
                                   " ORDER BY start",
                       {channel, from, to, from - kLongestEventTime}),
               visit);
}

// Steps a statement for each kind, and takes the rows in the order of all of them.
void briefs_of_all(Database& database, GuideKinds kinds, std::int64_t from, std::int64_t to, const VisitBrief& visit) {
  struct Stream {
    sqlite3_stmt* statement;
    GuideBrief next;
  };
  std::vector<Stream> streams;
  for (unsigned kind = 0; kind < kKinds; ++kind) {
    if (!kinds.test(kind)) continue;
    const std::string sql = GUIDE_BRIEF " FROM event INDEXED BY by_kind WHERE kind = " + std::to_string(kind) +
                            " AND start < ?2 AND start > ?3 AND stop > ?1 ORDER BY start, stop, channel, id";
    sqlite3_stmt* const statement =
        prepare(database, sql, {from, to, from - (kind == kOther ? kLongestEventTime : kUsualEvent)});
    if (statement == nullptr) continue;
    if (sqlite3_step(statement) == SQLITE_ROW)
      streams.push_back({statement, read_brief(statement)});
    else
      sqlite3_reset(statement);
  }
  while (!streams.empty()) {
    const auto first = std::ranges::min_element(streams, {}, [](const Stream& each) {
      return std::tie(each.next.start, each.next.stop, each.next.channel, each.next.id);
    });
    if (!visit(first->next)) break;
    if (sqlite3_step(first->statement) == SQLITE_ROW) {
      first->next = read_brief(first->statement);
    } else {
      sqlite3_reset(first->statement);
      streams.erase(first);
    }
  }
  for (const Stream& each : streams) sqlite3_reset(each.statement);
}

GuideKinds kinds_of(const std::vector<std::uint8_t>& categories) {
  GuideKinds kinds;
  if (categories.empty()) return kinds.set();
  for (const std::uint8_t category : categories) kinds.set(category >> 4);
  return kinds.set(kOther);
}

std::vector<GuideRow> rows_of_series(Database& database, const std::string& series, std::int64_t from,
                                     std::size_t most) {
  std::vector<GuideRow> rows;
  sqlite3_stmt* const statement = prepare(database, GUIDE_WHOLE " WHERE e.series = ? AND e.start >= ? ORDER BY e.start",
                                          {series_number(series), from});
  if (statement == nullptr) return rows;
  while (rows.size() < most && sqlite3_step(statement) == SQLITE_ROW) {
    GuideRow row = read_whole(statement);
    if (series_of(row) == series) rows.push_back(std::move(row));
  }
  sqlite3_reset(statement);
  return rows;
}

std::vector<GuideRow> rows_with_title(Database& database, std::int64_t channel, std::string_view text,
                                      std::int64_t from, std::size_t most) {
  std::vector<std::int64_t> starts;
  sqlite3_stmt* const statement =
      prepare(database, "SELECT start, title FROM event WHERE channel = ? AND start > ? AND stop > ? ORDER BY start",
              {channel, from - kLongestEventTime, from});
  if (statement == nullptr) return {};
  while (starts.size() < most && sqlite3_step(statement) == SQLITE_ROW)
    if (contains_ignoring_case(column_text(statement, 1), text)) starts.push_back(sqlite3_column_int64(statement, 0));
  sqlite3_reset(statement);
  std::vector<GuideRow> rows;
  for (const std::int64_t start : starts)
    if (auto row = row_starting(database, channel, start)) rows.push_back(std::move(*row));
  return rows;
}

std::int64_t rows_count(Database& database) {
  return number_of(database_statement(database, "SELECT count(*) FROM event"));
}

bool row_put(Database& database, const GuideRow& row) {
  const std::int64_t flags = (row.captions ? kCaptions : 0) | (row.scrambled ? kScrambled : 0);
  sqlite3_stmt* const event = prepare(
      database,
      "INSERT OR REPLACE INTO event (channel, start, stop, id, rank, import, flags, age, categories, kind, series,"
      " title) VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?)",
      {row.channel, row.start, row.stop, row.id, static_cast<std::int64_t>(row.rank), row.import, flags, row.age,
       static_cast<std::int64_t>(row.categories), kind_of(row), series_number(series_of(row))});
  if (event == nullptr) return false;
  bind_text(event, 12, row.title);
  if (!database_run(event)) return false;
  if (row.summary.empty() && row.details.empty() && row.series.empty())
    return run(prepare(database, "DELETE FROM text WHERE channel = ? AND start = ?", {row.channel, row.start}));
  sqlite3_stmt* const text =
      prepare(database, "INSERT OR REPLACE INTO text (channel, start, summary, details, series) VALUES (?, ?, ?, ?, ?)",
              {row.channel, row.start});
  if (text == nullptr) return false;
  bind_text(text, 3, row.summary);
  bind_text(text, 4, row.details);
  bind_text(text, 5, row.series);
  return database_run(text);
}

bool row_erase(Database& database, std::int64_t channel, std::int64_t start) {
  return run(prepare(database, "DELETE FROM event WHERE channel = ? AND start = ?", {channel, start})) &&
         run(prepare(database, "DELETE FROM text WHERE channel = ? AND start = ?", {channel, start}));
}

bool row_renumber(Database& database, std::int64_t channel, std::int64_t start, std::uint16_t id) {
  return run(prepare(database, "UPDATE event SET id = ?3 WHERE channel = ?1 AND start = ?2", {channel, start, id}));
}

bool rows_erase_old(Database& database, std::int64_t before, std::size_t most, std::size_t& ret_erased) {
  std::vector<GuideBrief> old;
  for (unsigned kind = 0; kind < kKinds && old.size() < most; ++kind) {
    sqlite3_stmt* const statement =
        prepare(database,
                "SELECT channel, start FROM event INDEXED BY by_kind WHERE kind = ?1 AND start < ?2 AND stop < ?2"
                " ORDER BY start LIMIT ?3",
                {kind, before, static_cast<std::int64_t>(most - old.size())});
    if (statement == nullptr) return false;
    while (sqlite3_step(statement) == SQLITE_ROW)
      old.push_back({.channel = sqlite3_column_int64(statement, 0), .start = sqlite3_column_int64(statement, 1)});
    sqlite3_reset(statement);
  }
  for (const GuideBrief& each : old)
    if (!row_erase(database, each.channel, each.start)) return false;
  ret_erased = old.size();
  return true;
}

bool rows_erase_all(Database& database) {
  return run(database_statement(database, "DELETE FROM event")) &&
         run(database_statement(database, "DELETE FROM text"));
}

bool rows_erase_imported(Database& database, std::int64_t channel, GuideSpan span, std::int64_t import,
                         GuideChanges& ret_changes) {
  sqlite3_stmt* const statement =
      prepare(database,
              "SELECT start, stop FROM event WHERE channel = ?1 AND start < ?3 AND start > ?4 AND stop > ?2"
              " AND rank = 0 AND import <> ?5",
              {channel, span.from, span.to, span.from - kLongestEventTime, import});
  if (statement == nullptr) return false;
  std::vector<GuideSpan> old;
  while (sqlite3_step(statement) == SQLITE_ROW)
    old.push_back({sqlite3_column_int64(statement, 0), sqlite3_column_int64(statement, 1)});
  sqlite3_reset(statement);
  for (const GuideSpan& each : old) {
    if (!row_erase(database, channel, each.from)) return false;
    note_change(ret_changes, channel, each.from, each.to);
    --ret_changes.added;
  }
  return true;
}

std::int64_t rows_latest_import(Database& database) {
  return number_of(database_statement(database, "SELECT max(import) FROM event"));
}

bool rows_have_broadcast(Database& database, std::int64_t channel) {
  return number_of(
             prepare(database, "SELECT EXISTS (SELECT 1 FROM event WHERE channel = ? AND rank > 0)", {channel})) != 0;
}

std::vector<GuideMapping> mappings_read(Database& database) {
  std::vector<GuideMapping> mappings;
  sqlite3_stmt* const statement = database_statement(database, "SELECT xmltv, channel FROM map ORDER BY xmltv");
  if (statement == nullptr) return mappings;
  while (sqlite3_step(statement) == SQLITE_ROW)
    mappings.push_back({column_text(statement, 0), sqlite3_column_int64(statement, 1)});
  sqlite3_reset(statement);
  return mappings;
}

bool mapping_put(Database& database, const GuideMapping& mapping) {
  sqlite3_stmt* const statement =
      database_statement(database, "INSERT OR REPLACE INTO map (xmltv, channel) VALUES (?, ?)");
  if (statement == nullptr) return false;
  bind_text(statement, 1, mapping.xmltv);
  sqlite3_bind_int64(statement, 2, mapping.channel);
  return database_run(statement);
}

bool mapping_erase(Database& database, const std::string& xmltv) {
  sqlite3_stmt* const statement = database_statement(database, "DELETE FROM map WHERE xmltv = ?");
  if (statement == nullptr) return false;
  bind_text(statement, 1, xmltv);
  return database_run(statement);
}

bool mappings_erase_all(Database& database) { return run(database_statement(database, "DELETE FROM map")); }

std::optional<std::uint16_t> free_identifier(Database& database, std::int64_t channel, std::int64_t start,
                                             const std::function<bool(std::uint16_t id)>& taken) {
  constexpr std::int64_t kIdentifiers = 65535;  // from 1: applications take 0 for none
  for (int i = 0; i < kMostIdentifierTries; ++i) {
    const auto id = static_cast<std::uint16_t>((start / 60 + i) % kIdentifiers + 1);
    if (!taken(id) && !brief_by_id(database, channel, id)) return id;
  }
  return std::nullopt;
}
