// The main menu, and the lists of channels, favourites and sources.
#include <algorithm>
#include <boost/json.hpp>

#include "core/text.h"
#include "rooms/channels/channels.h"
#include "rooms/clock/clock.h"
#include "rooms/guide/guide.h"
#include "rooms/menus/menus.h"
#include "rooms/menus/parts.h"
#include "rooms/recorder/recorder.h"
#include "rooms/sources/sources.h"
#include "rooms/tuner/tuner.h"

namespace {

// ---- The main menu: an item is a menu's place in the table ----

const Menu& menu_of(std::int64_t item) { return menus_table()[static_cast<std::size_t>(item)]; }

Acted open_chosen(MenuView& view) {
  show_menu(view, menu_of(view.item), false);
  return Acted::kStays;
}

constexpr MenuAction kOfMain[] = {{"ENTER", "open", open_chosen}, {"RIGHT", "", open_chosen}};

// ---- Channels: an item is a channel's identifier ----

std::vector<std::int64_t> items_of(ShownList list) {
  const std::vector<std::uint32_t> ids = channels_shown(list);
  return {ids.begin(), ids.end()};
}

std::uint32_t id_of(const MenuView& view) { return static_cast<std::uint32_t>(view.item); }

Acted toggle_favourite(MenuView& view) {
  const auto channel = channels_by_id(id_of(view));
  if (!channel) return Acted::kStays;
  const auto is_one = channels_toggle_favourite(channel->id);
  if (!is_one) return Acted::kNotSaved;
  menus_say(*is_one ? "favourite" : "no_favourite", channel->name);
  return Acted::kStays;
}

Acted open_guide(MenuView& view) {
  if (view.item == 0) return refuse("the list is empty");
  show_in_guide(view, id_of(view), clock_utc());
  return Acted::kStays;
}

constexpr MenuAction kOfChannels[] = {{"ENTER", "watch", watch_channel},
                                      {"GREEN", "favourite", toggle_favourite},
                                      {"ADD/ERASE", "", toggle_favourite},
                                      {"BLUE", "guide", open_guide}};

// ---- Sources: an item is a source's number plus 1, since 0 is none ----

int source_of(std::int64_t item) { return static_cast<int>(item) - 1; }

Acted choose(MenuView& view) {
  const int source = source_of(view.item);
  if (sources_is_blocked(source) && source != sources_current()) return refuse(sources_name(source) + " is blocked");
  return sources_choose(source) ? Acted::kCloses : Acted::kNotSaved;
}

constexpr MenuAction kOfSources[] = {{"ENTER", "choose", choose}};

}  // namespace

constinit const std::span<const MenuAction> kMainActions = kOfMain;
constinit const std::span<const MenuAction> kChannelActions = kOfChannels;
constinit const std::span<const MenuAction> kSourceActions = kOfSources;

std::vector<std::int64_t> main_items(const MenuView&) {
  std::vector<std::int64_t> items;
  for (const Menu& each : menus_table())
    if (each.in_main) items.push_back(&each - menus_table().data());
  return items;
}

boost::json::object main_row(std::int64_t item, const MenuView&) {
  return {{"name", menu_of(item).title}, {"menu", menu_of(item).name}};
}

std::vector<std::int64_t> channel_items(const MenuView&) { return items_of(ShownList::kAll); }

std::vector<std::int64_t> favourite_items(const MenuView&) { return items_of(ShownList::kFavourites); }

boost::json::object channel_row(std::int64_t item, const MenuView&) {
  const auto found = channels_by_id(static_cast<std::uint32_t>(item));
  if (!found) return gone_row();
  const Channel& channel = *found;
  boost::json::object row{{"number", channel.number}, {"name", cut_text(channel.name, kLongestShown)}};
  if (const auto event = guide_event_at(channel.key, clock_utc())) row["note"] = cut_text(event->title, kLongestShown);
  const auto current = tuner_channel();
  boost::json::array marks;
  if (current && current->id == channel.id && sources_is_tv()) marks.emplace_back("current");
  if (channels_is_favourite(channel.id)) marks.emplace_back("favourite");
  if (channel.blocked) marks.emplace_back("blocked");
  if (recorder_records(channel.key)) marks.emplace_back("recording");
  if (!marks.empty()) row["marks"] = std::move(marks);
  return row;
}

void choose_channel(MenuView& view) {
  if (const auto channel = tuner_channel()) view.item = channel->id;
}

Acted watch_channel(MenuView& view) {
  if (view.item == 0) return refuse("the list is empty");
  return tuner_choose(id_of(view)) ? Acted::kCloses : Acted::kNotSaved;
}

std::vector<std::int64_t> source_items(const MenuView&) {
  std::vector<std::int64_t> items;
  for (int source = 0; source < kSources; ++source) items.push_back(source + 1);
  return items;
}

boost::json::object source_row(std::int64_t item, const MenuView&) {
  const int source = source_of(item);
  boost::json::object row{{"name", sources_name(source)}};
  boost::json::array marks;
  if (source == sources_current()) marks.emplace_back("current");
  if (sources_is_blocked(source)) marks.emplace_back("blocked");
  if (!sources_is_connected(source)) marks.emplace_back("empty");
  if (!marks.empty()) row["marks"] = std::move(marks);
  return row;
}

void choose_source(MenuView& view) { view.item = sources_current() + 1; }
