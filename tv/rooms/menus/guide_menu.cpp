// The guide: a row is a channel, the columns are the shown hours. An event is chosen by its channel and a time within
// it, so that UP and DOWN stay at the same time.
#include <algorithm>
#include <boost/json.hpp>
#include <optional>

#include "core/reply.h"
#include "core/text.h"
#include "rooms/channels/channels.h"
#include "rooms/clock/clock.h"
#include "rooms/guide/guide.h"
#include "rooms/menus/menus.h"
#include "rooms/menus/parts.h"
#include "rooms/recorder/recorder.h"

namespace {

constexpr std::int64_t kColumn = 30 * 60;      // s
constexpr std::int64_t kWindow = 4 * kColumn;  // that is shown
constexpr std::int64_t kDay = 24 * 60 * 60;    // s
constexpr std::int64_t kFarthest = 7 * kDay;   // s from now
constexpr std::size_t kLongestSummary = 300;   // bytes

std::int64_t column_of(std::int64_t time) { return time - time % kColumn; }

std::optional<Channel> channel_of(const MenuView& view) {
  return channels_by_id(static_cast<std::uint32_t>(view.item));
}

std::optional<GuideEvent> chosen(const MenuView& view) {
  const auto channel = channel_of(view);
  return channel ? guide_event_at(channel->key, view.time) : std::nullopt;
}

// An event, or a gap in the guide, is chosen by its first moment that is not over.
void go_to(MenuView& view, std::int64_t time) {
  const std::int64_t now = clock_utc();
  view.time = std::clamp(time, now, now + kFarthest);
  if (const auto event = chosen(view)) view.time = std::max(event->start, now);
}

Acted go_right(MenuView& view) {
  const auto channel = channel_of(view);
  if (!channel) return Acted::kStays;
  const auto event = guide_event_at(channel->key, view.time);
  if (event && event->duration > 0) {
    go_to(view, event->start + event->duration);
  } else {
    const auto next = guide_event_after(channel->key, view.time);
    const std::int64_t column = column_of(view.time) + kColumn;
    go_to(view, next ? std::min(next->start, column) : column);
  }
  return Acted::kStays;
}

Acted go_left(MenuView& view) {
  const auto event = chosen(view);
  go_to(view, (event ? event->start : column_of(view.time)) - 1);
  return Acted::kStays;
}

Acted next_day(MenuView& view) {
  const std::int64_t now = clock_utc();
  go_to(view, view.time + kDay > now + kFarthest ? now : view.time + kDay);
  return Acted::kStays;
}

Acted show_details(MenuView& view) {
  if (!chosen(view)) return refuse("there is no event at this time");
  show_menu(view, *find_menu("details"), true);
  return Acted::kStays;
}

Acted back_to_guide(MenuView& view) {
  show_menu(view, *find_menu("guide"), true);
  return Acted::kStays;
}

// Sets or deletes the chosen event's timer or reminder.
Acted plan(MenuView& view, RecorderPlan kind, const char* added, const char* deleted) {
  const auto channel = channel_of(view);
  const auto event = chosen(view);
  if (!channel || !event) return refuse("there is no event at this time");
  bool is_planned = false;
  const std::string why = recorder_toggle(channel->id, *event, kind, is_planned);
  if (!why.empty()) return refuse(why);
  menus_say(is_planned ? added : deleted, event->title);
  return Acted::kStays;
}

Acted record(MenuView& view) { return plan(view, RecorderPlan::kRecord, "will_record", "not_recorded"); }

Acted remind(MenuView& view) { return plan(view, RecorderPlan::kRemind, "reminder", "no_reminder"); }

boost::json::object shown_event(const GuideEvent& event) {
  boost::json::object shown{
      {"title", cut_text(event.title, kLongestShown)}, {"start", reply_time(event.start)}, {"seconds", event.duration}};
  const std::string_view mark = recorder_mark(event);
  if (!mark.empty()) shown["mark"] = mark;
  return shown;
}

boost::json::object shown_with_channel(const MenuView& view, const GuideEvent& event) {
  boost::json::object shown = shown_event(event);
  if (const auto channel = channel_of(view)) {
    shown["number"] = channel->number;
    shown["channel"] = cut_text(channel->name, kLongestShown);
  }
  return shown;
}

constexpr MenuAction kOfGuide[] = {{"ENTER", "watch", watch_channel}, {"LEFT", "", go_left},
                                   {"RIGHT", "", go_right},           {"RED", "record", record},
                                   {"GREEN", "remind", remind},       {"YELLOW", "day", next_day},
                                   {"BLUE", "details", show_details}, {"INFO", "", show_details}};

constexpr MenuAction kOfDetails[] = {{"ENTER", "watch", watch_channel},
                                     {"RED", "record", record},
                                     {"GREEN", "remind", remind},
                                     {"BLUE", "", back_to_guide},
                                     {"INFO", "", back_to_guide}};

}  // namespace

constinit const std::span<const MenuAction> kGuideActions = kOfGuide;
constinit const std::span<const MenuAction> kDetailsActions = kOfDetails;

void begin_guide(MenuView& view) {
  choose_channel(view);
  view.time = clock_utc();
}

void show_in_guide(MenuView& view, std::uint32_t channel_id, std::int64_t time) {
  show_menu(view, *find_menu("guide"), false);
  view.item = channel_id;
  go_to(view, time);
}

void tidy_guide(MenuView& view) {
  const std::int64_t now = clock_utc();
  view.time = std::clamp(view.time, now, now + kFarthest);
  view.from = std::max(view.from, column_of(now));
  if (view.time < view.from || view.time >= view.from + kWindow) view.from = column_of(view.time);
}

boost::json::object guide_row(std::int64_t item, const MenuView& view) {
  const auto channel = channels_by_id(static_cast<std::uint32_t>(item));
  if (!channel) return gone_row();
  boost::json::array events;
  for (const GuideEvent& each : guide_events(channel->key, view.from, view.from + kWindow, kShownEvents))
    events.push_back(shown_event(each));
  return {{"number", channel->number}, {"name", cut_text(channel->name, kLongestShown)}, {"events", std::move(events)}};
}

void add_guide(const MenuView& view, boost::json::object& reply) {
  boost::json::array columns;
  for (std::int64_t time = view.from; time < view.from + kWindow; time += kColumn)
    columns.emplace_back(reply_time(time));
  reply["columns"] = std::move(columns);
  reply["time"] = reply_time(view.time);
  const auto event = chosen(view);
  if (!event) return;
  boost::json::object shown = shown_with_channel(view, *event);
  shown["summary"] = cut_text(event->summary.empty() ? event->details : event->summary, kLongestSummary);
  reply["event"] = std::move(shown);
  const auto chosen_row = reply.at("selected").at("row").to_number<std::size_t>();
  const boost::json::value* const events = reply.at("rows").at(chosen_row).as_object().if_contains("events");
  if (events == nullptr) return;  // the channel went while its row was made
  const auto& listed = events->as_array();
  const std::string start = reply_time(event->start);
  const auto* const found = std::ranges::find_if(
      listed, [&](const boost::json::value& each) { return each.at("start").as_string() == start; });
  if (found != listed.end()) reply["selected"].as_object()["column"] = found - listed.begin();
}

void add_details(const MenuView& view, boost::json::object& reply) {
  const auto event = chosen(view);
  if (!event) return;
  reply["event"] = shown_with_channel(view, *event);
  reply["text"] = cut_text(event->details.empty() ? event->summary : event->details, kLongestDetails);
}
