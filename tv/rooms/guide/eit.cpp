#include "rooms/guide/eit.h"

#include <algorithm>
#include <limits>

#include "core/text.h"
#include "rooms/guide/words.h"

namespace {

// Null for an event without texts.
const Eit::Text* chosen_text(const Eit::Event& event, const GuideTaste& taste) {
  const auto found = std::ranges::find_if(
      event.texts, [&](const Eit::Text& text) { return same_language(text.language, taste.language); });
  if (found != event.texts.end()) return &*found;
  return event.texts.empty() ? nullptr : &event.texts.front();
}

std::uint8_t chosen_age(const Eit::Event& event, const GuideTaste& taste) {
  const auto found = std::ranges::find_if(event.ratings, [&](const Eit::Rating& rating) {
    return same_language(rating.country, taste.country);  // compares codes without case
  });
  if (found != event.ratings.end()) return found->age;
  return event.ratings.empty() ? 0 : event.ratings.front().age;
}

std::vector<GuideBrief> overlapping(Database& database, std::int64_t channel, std::int64_t from, std::int64_t to) {
  std::vector<GuideBrief> found;
  briefs_of_channel(database, channel, from, to, [&](const GuideBrief& brief) {
    found.push_back(brief);
    return true;
  });
  return found;
}

bool erase(Database& database, const GuideBrief& brief, GuideChanges& changes) {
  if (!row_erase(database, brief.channel, brief.start)) return false;
  --changes.added;
  note_change(changes, brief.channel, brief.start, brief.stop);
  return true;
}

// Erases the events that overlap the time and are not of a higher rank, but not those that begin with one of the rows.
bool clear_time(Database& database, const std::vector<GuideRow>& rows, GuideSpan span, GuideChanges& changes) {
  for (const GuideBrief& brief : overlapping(database, rows.front().channel, span.from, span.to)) {
    const bool own = std::ranges::find(rows, brief.start, &GuideRow::start) != rows.end();
    if (!own && brief.rank <= rows.front().rank && !erase(database, brief, changes)) return false;
  }
  return true;
}

// Whether an event of a higher rank has the row's time or its identifier.
bool is_outranked(Database& database, const GuideRow& row) {
  if (const auto same = brief_by_id(database, row.channel, row.id); same && same->rank > row.rank) return true;
  const auto others = overlapping(database, row.channel, row.start, row.stop);
  return std::ranges::any_of(others, [&](const GuideBrief& brief) { return brief.rank > row.rank; });
}

// Gives the row's identifier to the row: an imported event that has it gets another one, and a broadcast event that has
// it has moved.
bool claim_identifier(Database& database, const GuideRow& row, GuideChanges& changes) {
  const auto same = brief_by_id(database, row.channel, row.id);
  if (!same || same->start == row.start) return true;
  if (same->rank != GuideRank::kImported) return erase(database, *same, changes);
  const auto id = free_identifier(database, row.channel, same->start);
  return id ? row_renumber(database, row.channel, same->start, *id) : erase(database, *same, changes);
}

}  // namespace

std::vector<GuideRow> eit_rows(const Eit& eit, std::int64_t shift, const GuideTaste& taste, std::int64_t now) {
  std::vector<GuideRow> rows;
  if (eit.table < 0x4E || eit.table > 0x6F) return rows;
  const GuideRank rank = eit.table <= 0x4F ? GuideRank::kPresentFollowing : GuideRank::kSchedule;
  constexpr std::int64_t kFarthest = std::numeric_limits<std::uint32_t>::max();  // the TV API's times
  for (const Eit::Event& event : eit.events) {
    if (event.start <= 0 || event.start > kFarthest || shift < -kFarthest || shift > kFarthest) continue;
    const std::int64_t start = event.start + shift;
    const std::int64_t stop = start + event.duration;
    const bool fits = start > 0 && stop <= kFarthest && stop > now - kKeptAfterEnd && start < now + kFarthestStart;
    if (!fits || event.duration == 0 || event.duration > kLongestEventTime) continue;
    std::erase_if(rows, [&](const GuideRow& row) { return row.start == start || row.id == event.id; });
    GuideRow& row = rows.emplace_back();
    row = {.channel = packed(eit.key),
           .start = start,
           .stop = stop,
           .id = event.id,
           .rank = rank,
           .captions = event.captions,
           .scrambled = event.scrambled,
           .age = chosen_age(event, taste),
           .categories = pack_categories(event.categories)};
    if (const Eit::Text* const text = chosen_text(event, taste)) {
      row.title = clean_text(text->title, kLongestEventTitle, Lines::kMany);
      row.summary = clean_text(text->summary, kLongestText, Lines::kMany);
      row.details = clean_text(text->details, kLongestText, Lines::kMany);
    }
  }
  return rows;
}

bool eit_write(Database& database, const std::vector<GuideRow>& rows, std::int64_t room, GuideChanges& ret_changes) {
  if (rows.empty()) return true;
  GuideChanges changes;
  GuideSpan span{rows.front().start, rows.front().stop};
  for (const GuideRow& row : rows) span = {std::min(span.from, row.start), std::max(span.to, row.stop)};
  // A section of a schedule covers its time without gaps, if that is a time as sections have it: a few hours.
  if (rows.front().rank == GuideRank::kSchedule && span.to - span.from <= kLongestEventTime &&
      !clear_time(database, rows, span, changes)) {
    return false;
  }
  for (const GuideRow& row : rows) {
    if (is_outranked(database, row)) continue;
    if (!clear_time(database, rows, {row.start, row.stop}, changes) || !claim_identifier(database, row, changes))
      return false;
    const auto before = row_starting(database, row.channel, row.start);
    if (before && *before == row) continue;
    if (!before && changes.added >= room) continue;
    if (!row_put(database, row)) return false;
    if (!before) ++changes.added;
    note_change(changes, row.channel, row.start, before ? std::max(row.stop, before->stop) : row.stop);
  }
  ret_changes.added += changes.added;
  for (const auto& [channel, changed] : changes.spans) note_change(ret_changes, channel, changed.from, changed.to);
  return true;
}
