// Broadcast events into the guide's database. No thread, no lock.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "broadcast/tables.h"
#include "rooms/guide/rows.h"

// The viewer's choice among texts and ratings for several languages and countries.
struct GuideTaste {
  std::string language;  // three letters
  std::string country;
};

// The rows of a section: those with a beginning, a duration of 1 s to kLongestEventTime, and a time between
// now - kKeptAfterEnd and now + kFarthestStart. Empty for a table that is not an EIT. Of two events that begin at the
// same time only the later in the section is returned.
std::vector<GuideRow> eit_rows(const Eit& eit, std::int64_t shift, const GuideTaste& taste, std::int64_t now);

// Writes the rows of one section, in the caller's transaction. Events that a higher rank has something for are left
// out. Removes events of the same or a lower rank that the rows replace: those with the same identifier at another
// time, those that overlap one of the rows, and those that a schedule's section passes over between its first and last
// event. At most `room` events more than before. False: the database refused.
bool eit_write(Database& database, const std::vector<GuideRow>& rows, std::int64_t room, GuideChanges& ret_changes);
