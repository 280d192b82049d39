// The guide's room: what the other rooms ask, the update of the guide, and the room's row.
#include "rooms/guide/guide.h"

#include <algorithm>
#include <boost/json.hpp>
#include <chrono>
#include <cstdio>

#include "core/contract.h"
#include "core/reply.h"
#include "core/room.h"
#include "core/set.h"
#include "core/timers.h"
#include "rooms/antenna/antenna.h"
#include "rooms/clock/clock.h"
#include "rooms/config/config.h"
#include "rooms/guide/parts.h"
#include "rooms/guide/words.h"

namespace {

constexpr std::size_t kMostOfSeries = 100;

GuideEvent event_of(GuideRow row) {
  return {.key = unpacked(row.channel),
          .id = row.id,
          .start = row.start,
          .duration = static_cast<std::uint32_t>(row.stop - row.start),
          .title = row.title,
          .summary = std::move(row.summary),
          .details = std::move(row.details),
          .categories = unpack_categories(row.categories),
          .age = row.age,
          .series = row.series.empty() ? std::move(row.title) : std::move(row.series)};
}

template <typename Read, typename... Arguments>
std::optional<GuideEvent> read_one(Read read, Arguments... arguments) {
  const GuideReading reading;
  if (reading.database == nullptr) return std::nullopt;
  auto row = read(*reading.database, arguments...);
  return row ? std::optional(event_of(std::move(*row))) : std::nullopt;
}

std::vector<GuideEvent> events_of(std::vector<GuideRow> rows) {
  std::vector<GuideEvent> events;
  events.reserve(rows.size());
  for (GuideRow& row : rows) events.push_back(event_of(std::move(row)));
  return events;
}

// ---- The update of the guide ----

// It visits all multiplexes, and then waits for schedules: it runs until every channel has an event that begins later,
// until somebody stops it, or for kLongestUpdate.
constexpr std::chrono::minutes kLongestUpdate{10};
enum UpdateState : UINT16 { kUpdateIdle = 0, kUpdateRuns = 1 };

struct Update {
  std::mutex lock;
  TimerTime end = kTimerNever;  // kTimerNever: it does not run
};
Update& update = *new Update;

UINT16 channels_left() {
  {
    const std::lock_guard guard(update.lock);
    if (update.end == kTimerNever || timer_now() >= update.end) return 0;
  }
  const std::int64_t now = clock_utc();
  std::size_t left = 0;
  for (const Channel& channel : channels_all()) {
    const GuideReading reading;
    if (reading.database != nullptr && !brief_after(*reading.database, packed(channel.key), now)) ++left;
  }
  return static_cast<UINT16>(std::min<std::size_t>(left, UINT16_MAX));
}

std::int32_t update_read(void* record) {
  auto& request = *static_cast<PpgUpdateGuide_T*>(record);
  if (request.e_op == PpgOp_UpdateGetState) {
    request.u_retval.ui2_update_state = channels_left() != 0 ? kUpdateRuns : kUpdateIdle;
  } else if (request.e_op == PpgOp_UpdateGetChNum) {
    request.u_retval.ui2_ch_num = channels_left();
  } else {
    return refuse_call("getConfigValueStruct",
                       "operation " + std::to_string(request.e_op) + " of a guide update asks for nothing; 3 and 4 do");
  }
  return 0;
}

std::int32_t update_write(const void* record) {
  const std::int32_t operation = static_cast<const PpgUpdateGuide_T*>(record)->e_op;
  if (operation != PpgOp_UpdateStart && operation != PpgOp_UpdateStop) {
    return refuse_call("setConfigValueStruct", "operation " + std::to_string(operation) +
                                                   " of a guide update changes nothing; 1 starts it, 2 stops it");
  }
  {
    const std::lock_guard guard(update.lock);
    update.end = operation == PpgOp_UpdateStart ? timer_now() + kLongestUpdate : kTimerNever;
  }
  if (operation == PpgOp_UpdateStart) {
    visits_start();  // where it is refused, a round runs already, or there is nothing to visit
  } else {
    visits_cancel();
  }
  return 0;
}

// ---- The room ----

void load() {
  std::string error;
  if (!keeper_open(set_folder(), error)) std::fprintf(stderr, "dtv_tv: the guide stays empty: %s\n", error.c_str());
  window_load();
  queries_load();
  import_forget();
  const std::lock_guard guard(update.lock);
  update.end = kTimerNever;
}

bool reset() {
  if (GuideReading().database == nullptr) return true;  // it could not be opened, so it is empty
  keeper_cancel_import();
  std::string error;
  if (!keeper_erase_all(true, error)) {
    std::fprintf(stderr, "dtv_tv: the guide was not reset: %s\n", error.c_str());
    return false;
  }
  window_forget();
  queries_load();
  import_forget();
  return true;
}

void report(boost::json::object& answer) {
  if (const KeeperState state = keeper_state(); state.events != 0) answer["guide"] = state.events;
}

void start() {
  keeper_start();
  window_start();
}

constexpr Command kCommands[] = {
    {"guide",
     "[CHANNEL [DAY] | now [PAGE] | range FROM TO BEGIN END | event CHANNEL ID | search TEXT... | import FILE... | "
     "import cancel | update [cancel] | map [XMLTVID CHANNEL|none] | clear]",
     kMostGuideWords,
     "Shows how much the guide has; shows a channel's present and next event, or those of a day (0: today); now: of "
     "all channels; range: of channels FROM to TO, in the hours BEGIN to END counted from the present hour; event: one "
     "with its texts; search: by title; import: reads an XMLTV file; update: collects the events of all "
     "multiplexes that an idle tuner can receive; map: says which channel an XMLTV channel is; clear: empties the "
     "guide",
     guide_command},
};

constexpr StructItem kItems[] = {{.id = VEXTVAPI_CONFIG_ITEM_GUIDE_UPDATE,
                                  .length = sizeof(PpgUpdateGuide_T),
                                  .read = update_read,
                                  .write = update_write}};

}  // namespace

void guide_take(const Eit& eit, std::int64_t shift) { keeper_queue(eit, shift); }

std::size_t guide_waiting() { return keeper_state().waiting; }

std::uint64_t guide_round() { return std::uint64_t{config_changes(kLanguageKey)} + config_changes(kCountryKey); }

std::optional<GuideEvent> guide_event_at(const ServiceKey& key, std::int64_t time) {
  return read_one(row_at, packed(key), time);
}

std::optional<GuideEvent> guide_event_after(const ServiceKey& key, std::int64_t time) {
  return read_one(row_after, packed(key), time);
}

std::optional<GuideEvent> guide_event(const ServiceKey& key, std::uint16_t id) {
  return read_one(row_by_id, packed(key), id);
}

std::vector<GuideEvent> guide_events(const ServiceKey& key, std::int64_t from, std::int64_t to, std::size_t most) {
  const GuideReading reading;
  if (reading.database == nullptr) return {};
  return events_of(rows_between(*reading.database, packed(key), from, to, most));
}

std::vector<GuideEvent> guide_series(const std::string& series, std::int64_t from) {
  const GuideReading reading;
  if (reading.database == nullptr) return {};
  return events_of(rows_of_series(*reading.database, series, from, kMostOfSeries));
}

std::vector<GuideEvent> guide_titles_with(const ServiceKey& key, std::string_view text, std::int64_t from,
                                          std::size_t most) {
  const GuideReading reading;
  if (reading.database == nullptr) return {};
  return events_of(rows_with_title(*reading.database, packed(key), text, from, most));
}

bool guide_blocks(const GuideEvent& event) {
  if (event.age == 0) return config_number("g_rating__block_unrated") != 0;
  const INT32 limit = config_number("g_misc__parental_age");
  return limit != 0 && event.age >= limit;
}

const Room room_guide = {.commands = kCommands,
                         .items = kItems,
                         .load = load,
                         .reset = reset,
                         .report = report,
                         .start = start,
                         .stop = keeper_stop};
