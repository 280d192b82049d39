// The guide's database: its layout, its rows, and how they are read and written. These functions know no thread and no
// lock; parts.h has the connections and says who may use them.
#pragma once

#include <bitset>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "core/database.h"

inline constexpr std::int64_t kMostEvents = 1'000'000;          // in the database
inline constexpr std::int64_t kLongestEventTime = 24 * 3600;    // seconds; longer events are not stored
inline constexpr std::int64_t kKeptAfterEnd = 24 * 3600;        // seconds for which an event stays after its end
inline constexpr std::int64_t kFarthestStart = 62 * 24 * 3600;  // seconds from now; later events are not stored
inline constexpr std::size_t kLongestEventTitle = 255;          // bytes; room in VEXTVAPI_EVENT_GENERAL_INFO_T
inline constexpr std::size_t kLongestText = 4095;               // bytes of summary or details
inline constexpr std::size_t kMostEventCategories = 8;          // of an event
inline constexpr std::int64_t kUnknownDuration = 1800;          // seconds, of an imported event without an end

// Where an event came from. A higher rank wins: its events replace those of lower ranks at the same time, and are not
// replaced by them.
enum class GuideRank : std::uint8_t { kImported = 0, kSchedule = 1, kPresentFollowing = 2 };

struct GuideRow {
  std::int64_t channel = 0;  // packed(ServiceKey)
  std::int64_t start = 0;    // seconds since 1970, UTC
  std::int64_t stop = 0;
  std::uint16_t id = 0;  // unique among the channel's events
  GuideRank rank = GuideRank::kImported;
  std::int64_t import = 0;  // number of the import that brought it; 0: a broadcast did
  bool captions = false;
  bool scrambled = false;
  std::uint8_t age = 0;          // years; 0: no limit
  std::uint64_t categories = 0;  // the first one in the lowest byte; 0 ends them
  std::string title = {};
  std::string summary = {};
  std::string details = {};
  std::string series = {};  // empty: the title
  bool operator==(const GuideRow&) const = default;
};

// What queries need to choose events; read from an index or without the texts' table.
struct GuideBrief {
  std::int64_t channel = 0;
  std::int64_t start = 0;
  std::int64_t stop = 0;
  std::uint16_t id = 0;
  bool captions = false;
  std::uint8_t age = 0;
  std::uint64_t categories = 0;
  GuideRank rank = GuideRank::kImported;
};

struct GuideSpan {
  std::int64_t from = 0;
  std::int64_t to = 0;
};

// What a write changed.
struct GuideChanges {
  std::int64_t added = 0;                   // events now, less events before
  std::map<std::int64_t, GuideSpan> spans;  // by channel: the time in which events changed
};
void note_change(GuideChanges& changes, std::int64_t channel, std::int64_t from, std::int64_t to);

extern const DatabaseLayouts kGuideLayouts;

// ---- Reading. A damaged database reads as an empty one. ----

std::optional<GuideRow> row_by_id(Database& database, std::int64_t channel, std::uint16_t id);
std::optional<GuideRow> row_at(Database& database, std::int64_t channel, std::int64_t time);     // of two the later one
std::optional<GuideRow> row_after(Database& database, std::int64_t channel, std::int64_t time);  // the next to begin
std::optional<GuideRow> row_starting(Database& database, std::int64_t channel, std::int64_t start);

// The same without the texts.
std::optional<GuideBrief> brief_by_id(Database& database, std::int64_t channel, std::uint16_t id);
std::optional<GuideBrief> brief_at(Database& database, std::int64_t channel, std::int64_t time);
std::optional<GuideBrief> brief_after(Database& database, std::int64_t channel, std::int64_t time);
std::optional<GuideBrief> brief_starting(Database& database, std::int64_t channel, std::int64_t start);

// The events that overlap the time, in the order of their beginnings; at most `most`.
std::vector<GuideRow> rows_between(Database& database, std::int64_t channel, std::int64_t from, std::int64_t to,
                                   std::size_t most);

// Visits these events without their texts until visit returns false. visit must not use the database.
using VisitBrief = std::function<bool(const GuideBrief& brief)>;
void briefs_of_channel(Database& database, std::int64_t channel, std::int64_t from, std::int64_t to,
                       const VisitBrief& visit);

// The same for all channels and for kinds of events, in the order of their beginnings, ends, channels and identifiers.
// The kinds that a filter needs contain the events with its categories, and others; without categories they contain
// all events.
using GuideKinds = std::bitset<17>;
GuideKinds kinds_of(const std::vector<std::uint8_t>& categories);
void briefs_of_all(Database& database, GuideKinds kinds, std::int64_t from, std::int64_t to, const VisitBrief& visit);

// Events of the series that begin at that time or later, in their order; at most `most`.
std::vector<GuideRow> rows_of_series(Database& database, const std::string& series, std::int64_t from,
                                     std::size_t most);

// Events of the channel that end after the time and have the text in their titles, in any case; at most `most`.
std::vector<GuideRow> rows_with_title(Database& database, std::int64_t channel, std::string_view text,
                                      std::int64_t from, std::size_t most);

std::int64_t rows_count(Database& database);

// ---- Writing, in the caller's transaction. False: the database refused; the caller rolls back. ----

// Stores the row, in the place of one that begins at the same time.
bool row_put(Database& database, const GuideRow& row);
bool row_erase(Database& database, std::int64_t channel, std::int64_t start);
bool row_renumber(Database& database, std::int64_t channel, std::int64_t start, std::uint16_t id);

// Erases at most `most` events that ended before that time.
bool rows_erase_old(Database& database, std::int64_t before, std::size_t most, std::size_t& ret_erased);
bool rows_erase_all(Database& database);

// Erases the channel's imported events that overlap the time and that another import than this one brought.
bool rows_erase_imported(Database& database, std::int64_t channel, GuideSpan span, std::int64_t import,
                         GuideChanges& ret_changes);
std::int64_t rows_latest_import(Database& database);                 // its number; 0: none
bool rows_have_broadcast(Database& database, std::int64_t channel);  // whether the channel has such events

// ---- Which channel an XMLTV channel is, as the viewer said ----

inline constexpr std::size_t kMostMappings = 1000;

struct GuideMapping {
  std::string xmltv;
  std::int64_t channel = 0;
};
std::vector<GuideMapping> mappings_read(Database& database);
bool mapping_put(Database& database, const GuideMapping& mapping);
bool mapping_erase(Database& database, const std::string& xmltv);
bool mappings_erase_all(Database& database);

// An identifier for an imported event or for a gap: derived from its beginning, so that it stays when the event is
// imported again, not used by another event of the channel, and not taken. Nothing if kMostIdentifierTries in a row are
// in use. 0 is never one.
inline constexpr int kMostIdentifierTries = 1024;
std::optional<std::uint16_t> free_identifier(
    Database& database, std::int64_t channel, std::int64_t start,
    const std::function<bool(std::uint16_t id)>& taken = [](std::uint16_t) { return false; });
