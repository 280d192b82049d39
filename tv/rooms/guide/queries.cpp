// The TV API's questions about events. They read the guide's database and wait for no writer.
#include <algorithm>
#include <limits>
#include <map>
#include <optional>
#include <unordered_map>
#include <utility>

#include "core/contract.h"
#include "core/reply.h"
#include "core/text.h"
#include "rooms/clock/clock.h"
#include "rooms/guide/parts.h"
#include "rooms/guide/words.h"

namespace {

// What queries answer before an application has chosen otherwise: everything that overlaps the time.
constexpr VEXTVAPI_EVENT_QUERY_PARAM_T kFactoryParameter = {.e_tv_win_id = 0,
                                                            .ui4_at_least_secs = 0,
                                                            .ui4_fake_empty_event_at_least_secs = 0,
                                                            .b_auto_fillin_fake_empty_event = 0,
                                                            .b_skip_signal_check_when_retrieving_data = 0,
                                                            .b_allow_conflict_event_when_query = 1,
                                                            .b_allow_partial_overlap_event = 1};

// Gaps that queries found get identifiers that no event of their channel has, so that an application can ask about them
// as about events. When there are too many, those of earlier queries are forgotten.
constexpr std::size_t kMostGaps = 4096;
using GapKey = std::pair<std::int64_t, UINT16>;  // channel and identifier

struct Queries {
  std::mutex lock;
  VEXTVAPI_EVENT_QUERY_PARAM_T parameter = kFactoryParameter;
  std::map<GapKey, GuideSpan> gaps;
};
Queries& queries = *new Queries;

VEXTVAPI_EVENT_QUERY_PARAM_T current_parameter() {
  const std::lock_guard guard(queries.lock);
  return queries.parameter;
}

std::optional<GuideSpan> find_gap(std::int64_t channel, UINT16 id) {
  const std::lock_guard guard(queries.lock);
  const auto found = queries.gaps.find({channel, id});
  return found == queries.gaps.end() ? std::nullopt : std::optional(found->second);
}

// The identifier of the gap, which stays while the gap is known; nothing if too many in a row are in use.
std::optional<UINT16> take_gap(Database& database, std::int64_t channel, GuideSpan span) {
  const std::lock_guard guard(queries.lock);
  const auto taken = [&](UINT16 id) {
    const auto known = queries.gaps.find({channel, id});
    return known != queries.gaps.end() && (known->second.from != span.from || known->second.to != span.to);
  };
  const auto id = free_identifier(database, channel, span.from, taken);
  if (id) queries.gaps[{channel, *id}] = span;
  return id;
}

void make_room_for_gaps(std::size_t count) {
  const std::lock_guard guard(queries.lock);
  if (queries.gaps.size() + count > kMostGaps) queries.gaps.clear();
}

std::string no_channel(UINT32 channel_id) { return "there is no channel " + std::to_string(channel_id); }

std::string no_event(UINT32 channel_id, UINT16 event_id) {
  return "channel " + std::to_string(channel_id) + " has no event " + std::to_string(event_id);
}

// The event of the channel; nothing after the refusal of the call.
std::optional<GuideRow> find_or_refuse(const char* function, UINT32 channel_id, UINT16 event_id) {
  const auto channel = channels_by_id(channel_id);
  if (!channel) {
    refuse_call(function, no_channel(channel_id));
    return std::nullopt;
  }
  const GuideReading reading;
  auto row = reading.database == nullptr ? std::nullopt : row_by_id(*reading.database, packed(channel->key), event_id);
  if (!row) refuse_call(function, no_event(channel_id, event_id));
  return row;
}

INT32 give_text(const char* function, const std::string GuideRow::*text, UINT16 event_id, UINT32 channel_id,
                char* place, UINT32 size) {
  if (place == nullptr) return refuse_call(function, "there is no place for the text");
  const auto row = find_or_refuse(function, channel_id, event_id);
  if (!row) return -1;
  fill_text(place, size, (*row).*text);
  return 0;
}

// The room in an array that a query fills; nothing after the refusal of the call.
std::optional<UINT16> room_or_refuse(const char* function, const UINT16* event_num, const void* event_ids) {
  if (event_num == nullptr) {
    refuse_call(function, "there is no place for the number of events");
    return std::nullopt;
  }
  if (event_ids == nullptr && *event_num != 0) {
    refuse_call(function, "there is no place for " + std::to_string(*event_num) + " identifiers");
    return std::nullopt;
  }
  return *event_num;
}

// Whether a query with these parameters shows the event. shown_until: the end of the one before.
bool is_shown(const VEXTVAPI_EVENT_QUERY_PARAM_T& how, const GuideBrief& brief, GuideSpan span,
              std::int64_t shown_until) {
  if (brief.stop - brief.start < how.ui4_at_least_secs) return false;
  if (how.b_allow_partial_overlap_event == 0 && (brief.start < span.from || brief.stop > span.to)) return false;
  return how.b_allow_conflict_event_when_query != 0 || brief.start >= shown_until;
}

// What a query of a time found: an event, or a gap between events.
struct RangeEntry {
  UINT16 id = 0;
  std::optional<GuideSpan> gap = std::nullopt;
};

// Collects a channel's events, and gaps where the parameters ask for them.
std::vector<RangeEntry> find_range(Database& database, std::int64_t channel, GuideSpan span, std::size_t most) {
  const VEXTVAPI_EVENT_QUERY_PARAM_T how = current_parameter();
  std::vector<RangeEntry> found;
  std::int64_t shown_until = span.from;
  std::size_t gaps = how.b_auto_fillin_fake_empty_event != 0 ? kMostGaps : 0;  // that may be added
  const auto fill = [&](std::int64_t until) {
    const std::int64_t least = std::max<std::int64_t>(how.ui4_fake_empty_event_at_least_secs, 1);
    if (gaps == 0 || until - shown_until < least || found.size() >= most) return;
    --gaps;
    found.push_back({.gap = GuideSpan{shown_until, until}});
  };
  bool first = true;
  briefs_of_channel(database, channel, span.from, span.to, [&](const GuideBrief& brief) {
    if (!is_shown(how, brief, span, first ? brief.start : shown_until)) return true;
    first = false;
    fill(brief.start);
    if (found.size() >= most) return false;
    found.push_back({.id = brief.id});
    shown_until = std::max(shown_until, brief.stop);
    return true;
  });
  fill(span.to);
  return found;
}

std::vector<UINT16> query_range(Database& database, std::int64_t channel, GuideSpan span, std::size_t most) {
  std::vector<UINT16> ids;
  if (span.to <= span.from) return ids;
  const std::vector<RangeEntry> found = find_range(database, channel, span, most);
  const auto is_gap = [](const RangeEntry& entry) { return entry.gap.has_value(); };
  make_room_for_gaps(static_cast<std::size_t>(std::ranges::count_if(found, is_gap)));
  for (const RangeEntry& entry : found) {
    const auto id = entry.gap ? take_gap(database, channel, *entry.gap) : std::optional(entry.id);
    if (id) ids.push_back(*id);
  }
  return ids;
}

struct FoundEvent {
  UINT16 event = 0;
  UINT32 channel = 0;
};

// What a filter asks for, in the guide's terms.
struct Wanted {
  GuideSpan span;
  std::int64_t shortest = 0;
  bool captions = false;
  std::vector<std::uint8_t> categories;
  std::uint8_t oldest = 0;  // 0: any
  UINT16 list = 0;          // svl_id; 0: any
};

Wanted wanted_by(const VEXTVAPI_EVENT_FILTER_T& filter) {
  Wanted wanted;
  const bool is_length = filter.start_time != 0 && filter.end_time == 0 && filter.duration_time != 0;
  wanted.span.from = filter.start_time;
  wanted.span.to = is_length              ? std::int64_t{filter.start_time} + filter.duration_time
                   : filter.end_time != 0 ? std::int64_t{filter.end_time}
                                          : std::int64_t{std::numeric_limits<UINT32>::max()};
  wanted.shortest = std::max(is_length ? 0 : filter.duration_time, current_parameter().ui4_at_least_secs);
  wanted.captions = filter.b_caption != 0;
  const std::size_t count = std::min<std::size_t>(filter.eventCategoryNum, std::size(filter.eventCategory));
  wanted.categories.assign(filter.eventCategory, filter.eventCategory + count);
  wanted.oldest = filter.ui1_rating_type;
  wanted.list = filter.ui2_svl_id;
  return wanted;
}

bool fits(const Wanted& wanted, const GuideBrief& brief) {
  return brief.stop - brief.start >= wanted.shortest && (!wanted.captions || brief.captions) &&
         (wanted.oldest == 0 || brief.age <= wanted.oldest) &&
         (wanted.categories.empty() || has_category(brief.categories, wanted.categories));
}

// The identifiers and lists of all channels, as they were at that change of the channel lists.
struct ChannelNames {
  struct Name {
    UINT32 id;
    UINT16 list;
  };
  std::optional<std::uint64_t> changes;
  std::unordered_map<std::int64_t, std::vector<Name>> by_key;  // a service may be in several lists
};

// The caller holds the reading lock, which guards them.
const ChannelNames& channel_names() {
  static ChannelNames& names = *new ChannelNames;
  const std::uint64_t changes = channels_changes();  // read before the lists, so that no change is missed
  if (names.changes == changes) return names;
  names.changes = changes;
  names.by_key.clear();
  for (const Channel& channel : channels_all())
    names.by_key[packed(channel.key)].push_back({.id = channel.id, .list = channel.list});
  return names;
}

std::vector<FoundEvent> query_filter(Database& database, const std::optional<Channel>& channel, const Wanted& wanted,
                                     std::size_t most) {
  std::vector<FoundEvent> found;
  const auto in_list = [&wanted](UINT16 list) { return wanted.list == 0 || list == wanted.list; };
  if (most == 0 || (channel && !in_list(channel->list))) return found;
  if (channel) {
    briefs_of_channel(database, packed(channel->key), wanted.span.from, wanted.span.to, [&](const GuideBrief& brief) {
      if (fits(wanted, brief)) found.push_back({brief.id, channel->id});
      return found.size() < most;
    });
    return found;
  }
  const ChannelNames& names = channel_names();
  briefs_of_all(database, kinds_of(wanted.categories), wanted.span.from, wanted.span.to, [&](const GuideBrief& brief) {
    if (!fits(wanted, brief)) return true;
    const auto named = names.by_key.find(brief.channel);
    if (named == names.by_key.end()) return true;
    for (const ChannelNames::Name& each : named->second)
      if (found.size() < most && in_list(each.list)) found.push_back({brief.id, each.id});
    return found.size() < most;
  });
  return found;
}

VEXTVAPI_EVENT_GENERAL_INFO_T info_of(const Channel& channel, const GuideRow& row) {
  VEXTVAPI_EVENT_GENERAL_INFO_T info{};
  info.svl_id = channel.list;
  info.event_id = row.id;
  info.channel_id = channel.id;
  info.start_time = static_cast<UINT32>(row.start);
  info.duration_time = static_cast<UINT32>(row.stop - row.start);
  info.caption = row.captions ? 1 : 0;
  info.free_ca_mode = row.scrambled ? 1 : 0;
  for (const std::uint8_t category : unpack_categories(row.categories))
    info.event_category[info.event_category_num++] = category;
  put_text(info.event_title, row.title);
  if (row.age != 0) put_text(info.event_rating, std::to_string(row.age));
  info.event_detail_len = static_cast<UINT32>(row.summary.size());
  info.event_detail_extend_len = static_cast<UINT32>(row.details.size());
  return info;
}

}  // namespace

void queries_load() {
  const std::lock_guard guard(queries.lock);
  queries.parameter = kFactoryParameter;
  queries.gaps.clear();
}

INT32 a_vextvapi_event_get_general_info(UINT32 channel_id, UINT16 event_id, VEXTVAPI_EVENT_GENERAL_INFO_T* info) {
  if (info == nullptr) return refuse_call(__func__, "there is no place for the event");
  const auto channel = channels_by_id(channel_id);
  if (!channel) return refuse_call(__func__, no_channel(channel_id));
  std::optional<GuideRow> row;
  if (const GuideReading reading; reading.database != nullptr)
    row = row_by_id(*reading.database, packed(channel->key), event_id);
  if (const auto gap = row ? std::nullopt : find_gap(packed(channel->key), event_id))
    row = GuideRow{.start = gap->from, .stop = gap->to, .id = event_id};
  if (!row) return refuse_call(__func__, no_event(channel_id, event_id));
  *info = info_of(*channel, *row);
  return 0;
}

UINT32 a_vextvapi_event_check_block(UINT32 channel_id, UINT16 event_id) {
  const auto channel = channels_by_id(channel_id);
  const auto event = channel ? guide_event(channel->key, event_id) : std::nullopt;
  return event && guide_blocks(*event) ? VEXTVAPI_EVENT_BLOCKED_BY_AGE : VEXTVAPI_EVENT_FREE;
}

INT32 a_vextvapi_event_get_details_info(UINT16 event_id, UINT32 channel_id, char* text, UINT32 size) {
  return give_text(__func__, &GuideRow::summary, event_id, channel_id, text, size);
}

INT32 a_vextvapi_event_get_details_extend_info(UINT16 event_id, UINT32 channel_id, char* text, UINT32 size) {
  return give_text(__func__, &GuideRow::details, event_id, channel_id, text, size);
}

// Neither the standard descriptors of DVB nor a guide's file have a guidance, so it is always empty.
INT32 a_vextvapi_event_get_guidance_info(UINT16 event_id, UINT32 channel_id, char* text, UINT32 size) {
  if (text == nullptr) return refuse_call(__func__, "there is no place for the text");
  if (!find_or_refuse(__func__, channel_id, event_id)) return -1;
  if (size != 0) *text = '\0';
  return 0;
}

INT32 a_vextvapi_event_get_pf_event_id(UINT32 channel_id, UINT16* event_id, UINT8 which) {
  if (event_id == nullptr) return refuse_call(__func__, "there is no place for the identifier");
  if (which != VEXTVAPI_EVENT_PRESENT && which != VEXTVAPI_EVENT_FOLLOWING)
    return refuse_call(__func__, std::to_string(which) + " is neither the present event (1) nor the following one (0)");
  const auto channel = channels_by_id(channel_id);
  if (!channel) return refuse_call(__func__, no_channel(channel_id));
  const std::int64_t now = clock_utc(), key = packed(channel->key);
  const GuideReading reading;
  std::optional<GuideBrief> brief;
  if (reading.database != nullptr)
    brief = which == VEXTVAPI_EVENT_PRESENT ? brief_at(*reading.database, key, now)
                                            : brief_after(*reading.database, key, now);
  if (!brief) return -1;  // not an error: the guide has nothing for that time
  *event_id = brief->id;
  return 0;
}

INT32 a_vextvapi_event_query_event_id_by_range(UINT32 channel_id, UINT32 start_time, UINT32 duration, UINT16* event_num,
                                               UINT16* event_ids) {
  const auto room = room_or_refuse(__func__, event_num, event_ids);
  if (!room) return -1;
  const auto channel = channels_by_id(channel_id);
  if (!channel) return refuse_call(__func__, no_channel(channel_id));
  const GuideSpan span{start_time, std::int64_t{start_time} + duration};
  const GuideReading reading;
  if (reading.database == nullptr) return refuse_call(__func__, "the guide's database is not open");
  const std::vector<UINT16> ids = query_range(*reading.database, packed(channel->key), span, *room);
  std::ranges::copy(ids, event_ids);
  *event_num = static_cast<UINT16>(ids.size());
  return 0;
}

INT32 a_vextvapi_event_query_event_id_by_filter(UINT32 channel_id, const VEXTVAPI_EVENT_FILTER_T* filter,
                                                UINT16* event_num, UINT16* event_ids, UINT32* channel_ids) {
  if (filter == nullptr) return refuse_call(__func__, "there is no filter");
  const auto room = room_or_refuse(__func__, event_num, event_ids);
  if (!room) return -1;
  const UINT32 one = channel_id != 0 ? channel_id : filter->ui4_channel_id;
  const auto channel = one != 0 ? channels_by_id(one) : std::nullopt;
  if (one != 0 && !channel) return refuse_call(__func__, no_channel(one));
  const GuideReading reading;
  if (reading.database == nullptr) return refuse_call(__func__, "the guide's database is not open");
  const std::vector<FoundEvent> found = query_filter(*reading.database, channel, wanted_by(*filter), *room);
  for (std::size_t i = 0; i < found.size(); ++i) {
    event_ids[i] = found[i].event;
    if (channel_ids != nullptr) channel_ids[i] = found[i].channel;
  }
  *event_num = static_cast<UINT16>(found.size());
  return 0;
}

INT32 a_vextvapi_event_set_query_parameter(const VEXTVAPI_EVENT_QUERY_PARAM_T* wanted) {
  if (wanted == nullptr) return refuse_call(__func__, "there is no parameter");
  const std::lock_guard guard(queries.lock);
  queries.parameter = *wanted;
  return 0;
}
