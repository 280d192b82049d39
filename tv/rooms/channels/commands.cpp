#include "rooms/channels/commands.h"

#include <algorithm>
#include <boost/json.hpp>
#include <functional>
#include <system_error>

#include "base/text.h"
#include "core/reply.h"
#include "core/text.h"
#include "rooms/channels/favourites.h"
#include "rooms/channels/import.h"
#include "rooms/channels/logos.h"
#include "rooms/channels/state.h"
#include "rooms/usb/root.h"

namespace {

constexpr std::size_t kPage = 100;  // channels in a reply

// ---- Channels in replies ----

boost::json::array flags_of(const Entry& entry) {
  const Channel& channel = entry.channel;
  const int type = service_type(channel.type);
  const std::pair<bool, const char*> flags[] = {
      {channel.blocked, "blocked"},     {channel.skipped, "skipped"},           {channel.hidden, "hidden"},
      {channel.scrambled, "scrambled"}, {type == SVL_SERV_TYPE_RADIO, "radio"}, {type == SVL_SERV_TYPE_DATA, "data"}};
  boost::json::array names;
  for (const auto& [set, name] : flags)
    if (set) names.emplace_back(name);
  return names;
}

boost::json::object shown(const Entry& entry) {
  boost::json::object answer{{"number", entry.channel.number}};
  if (const std::uint32_t minor = minor_of(entry.channel.id); minor != 0) answer["minor"] = minor;
  answer["name"] = entry.channel.name;
  answer["list"] = medium_name(entry.channel.medium);
  answer["flags"] = flags_of(entry);
  return answer;
}

boost::json::object details(const Lists& lists, const Entry& entry) {
  const Channel& channel = entry.channel;
  boost::json::object answer = shown(entry);
  answer["id"] = channel.id;
  answer["record"] = channel.record;
  answer["network"] = channel.key.network;
  answer["stream"] = channel.key.stream;
  answer["service"] = channel.key.service;
  answer["type"] = channel.type;
  answer["short_name"] = channel.short_name;
  answer["provider"] = channel.provider;
  answer["mhz"] = megahertz(channel.medium, channel.frequency);
  if (channel.medium == Medium::kSatellite) answer["orbit"] = orbit_text(entry.orbit);
  const auto& favourites = lists.favourites[0];
  answer["favourite"] = std::ranges::find(favourites, reference_of(entry)) != favourites.end();
  boost::json::array categories;
  for (std::uint32_t number = 0; number < 32; ++number)
    if ((entry.categories >> number & 1) != 0) categories.emplace_back(number);
  answer["categories"] = std::move(categories);
  answer["logo"] = entry.logo;
  return answer;
}

// {key: a page of the channels from the first on, "count": of all, "next": the first of the next page}
boost::json::object page(const char* key, std::span<const Entry* const> channels, std::size_t first) {
  boost::json::array shown_ones;
  const std::size_t end = std::min(channels.size(), first + kPage);
  for (std::size_t i = first; i < end; ++i) shown_ones.push_back(shown(*channels[i]));
  boost::json::object answer{{key, std::move(shown_ones)}, {"count", channels.size()}};
  if (end < channels.size()) answer["next"] = end + 1;
  return answer;
}

// The position after the word "from", counted from 1; 0: it is none.
std::size_t position(std::string_view word) {
  return parse_number_within<std::size_t>(word, 1, kMostChannels).value_or(0);
}

boost::json::object bad_position(std::string_view command, std::string_view word) {
  return reply_takes(command, "from and a position from 1 to " + std::to_string(kMostChannels), word);
}

// ---- Changes of a channel ----

using Edit = std::function<std::string(Lists& lists, Entry& entry)>;

// Edits the channel, and answers with its details.
boost::json::object edit(std::string_view word, const Edit& edit) {
  std::uint32_t reference = 0;
  std::string why = change_lists([&](Lists& lists) {
    const Entry* const found = find_named(lists, word);
    if (found == nullptr) return no_channel_named(word);
    reference = reference_of(*found);
    Entry entry = *found;
    std::string refused = edit(lists, entry);
    if (refused.empty()) replace_entry(lists, std::move(entry));
    return refused;
  });
  if (!why.empty()) return reply_error(std::move(why));
  const auto lists = lists_now();
  const Entry* const entry = find_reference(*lists, reference);
  return entry != nullptr ? details(*lists, *entry) : reply_error("the channel was removed meanwhile");
}

std::uint32_t viewers_id(std::uint32_t id, std::uint32_t number) {
  return (id & SVL_CHANNEL_ID_KEPT) | SVL_CHANNEL_ID_VIEWERS_NUMBER | number << 18;
}

void give_id(Entry& entry, std::uint32_t id) {
  if (entry.channel.id == id) return;
  set_id(entry, id);
  entry.options |= SVL_OPT_MASK_NUMBER_EDITED;
}

std::string take_number(const Lists& lists, Entry& entry, std::uint32_t number) {
  const std::uint32_t id = viewers_id(entry.channel.id, number);
  for (const Entry* const other : lists.views[entry.channel.list].order) {
    if (place_of(other->channel.id) != place_of(id) || reference_of(*other) == reference_of(entry)) continue;
    const std::string place = std::to_string(entry.channel.number) + " to " + std::to_string(number);
    return "number " + std::to_string(number) + " belongs to " + quoted(other->channel.name) + "; \"channel move " +
           place + "\" moves the channel there";
  }
  if (entry.channel.number != number) give_id(entry, id);
  return "";
}

boost::json::object number_channel(std::string_view word, std::string_view wanted) {
  const auto number = parse_number_within<std::uint32_t>(wanted, 1, kLastNumber);
  if (!number) return reply_takes("channel", "a number from 1 to " + std::to_string(kLastNumber), wanted);
  return edit(word, [&](Lists& lists, Entry& entry) { return take_number(lists, entry, *number); });
}

boost::json::object name_channel(std::string_view word, const std::string& name) {
  if (name.empty() || clean_text(name, kLongestName) != name) {
    return reply_error("a channel's name is a text of 1 to " + std::to_string(kLongestName) + " bytes in UTF-8, not " +
                       quoted(name));
  }
  return edit(word, [&](Lists&, Entry& entry) {
    entry.channel.name = name;
    entry.options |= SVL_OPT_MASK_NAME_EDITED;
    return std::string();
  });
}

boost::json::object categorize(std::string_view word, Arguments numbers) {
  std::uint32_t categories = 0;
  for (const std::string_view each : numbers) {
    const auto number = parse_number_within<std::uint32_t>(each, 0, 31);
    if (!number) return reply_takes("channel", "categories from 0 to 31", each);
    categories |= 1u << *number;
  }
  return edit(word, [&](Lists&, Entry& entry) {
    entry.categories = categories;
    return std::string();
  });
}

boost::json::object delete_channel(std::string_view word) {
  std::string name;
  std::string why = change_lists([&](Lists& lists) {
    const Entry* const found = find_named(lists, word);
    if (found == nullptr) return no_channel_named(word);
    name = found->channel.name;
    std::erase_if(lists.entries, [&](const auto& each) { return each.get() == found; });
    return std::string();
  });
  return why.empty() ? boost::json::object{{"deleted", name}} : reply_error(std::move(why));
}

// Puts the channel where the other one stands; those between move by one place. The numbers stay where they are.
std::string move_between(Lists& lists, const Entry& moved, const Entry& target) {
  const std::vector<const Entry*>& order = lists.views[moved.channel.list].order;
  const auto from = std::ranges::find(order, &moved), to = std::ranges::find(order, &target);
  std::vector<const Entry*> between(std::min(from, to), std::max(from, to) + 1);
  std::vector<std::uint32_t> ids;
  for (const Entry* const each : between) ids.push_back(each->channel.id);
  if (from < to)
    std::rotate(between.begin(), between.begin() + 1, between.end());
  else
    std::rotate(between.begin(), between.end() - 1, between.end());
  for (std::size_t i = 0; i < between.size(); ++i) {
    Entry entry = *between[i];
    give_id(entry, ids[i]);
    replace_entry(lists, std::move(entry));
  }
  return "";
}

boost::json::object move_channel(std::string_view word, std::string_view target) {
  std::uint32_t reference = 0;
  std::string why = change_lists([&](Lists& lists) {
    const Entry* const moved = find_named(lists, word);
    if (moved == nullptr) return no_channel_named(word);
    reference = reference_of(*moved);
    const std::string_view list = medium_name(moved->channel.medium);
    const bool has_list = target.find(':') != std::string_view::npos;
    const std::string place = has_list ? std::string(target) : std::string(list) + ":" + std::string(target);
    const Entry* const other = find_named(lists, place);
    if (other != nullptr && other->channel.list == moved->channel.list) return move_between(lists, *moved, *other);
    const auto number = parse_number_within<std::uint32_t>(target, 1, kLastNumber);
    if (!number) return quoted(target) + " is not a number in the list of the channel, which is " + std::string(list);
    Entry entry = *moved;
    if (std::string refused = take_number(lists, entry, *number); !refused.empty()) return refused;
    replace_entry(lists, std::move(entry));
    return std::string();
  });
  if (!why.empty()) return reply_error(std::move(why));
  const auto lists = lists_now();
  const Entry* const entry = find_reference(*lists, reference);
  return entry != nullptr ? details(*lists, *entry) : reply_error("the channel was removed meanwhile");
}

struct Switch {
  std::string_view word;
  std::uint32_t bit;
  bool set;
};

constexpr Switch kSwitches[] = {
    {"block", SVL_NW_MASK_BLOCKED, true}, {"unblock", SVL_NW_MASK_BLOCKED, false},
    {"skip", SVL_NW_MASK_VISIBLE, false}, {"unskip", SVL_NW_MASK_VISIBLE, true},
    {"hide", SVL_NW_MASK_ACTIVE, false},  {"show", SVL_NW_MASK_ACTIVE, true},
};

boost::json::object channel_command(Arguments arguments) {
  const std::string_view word = arguments[0];
  if (word == "move") {
    if (arguments.size() == 4 && arguments[2] == "to") return move_channel(arguments[1], arguments[3]);
    return reply_error("channel move takes two numbers, as in \"channel move 7 to 3\"");
  }
  if (arguments.size() == 1) {
    const auto lists = lists_now();
    const Entry* const entry = find_named(*lists, word);
    return entry != nullptr ? details(*lists, *entry) : reply_error(no_channel_named(word));
  }
  const std::string_view action = arguments[1];
  if (action == "name") return name_channel(word, joined(arguments.subspan(2)));
  if (action == "categories") return categorize(word, arguments.subspan(2));
  if (action == "number" && arguments.size() == 3) return number_channel(word, arguments[2]);
  if (action == "delete" && arguments.size() == 2) return delete_channel(word);
  const auto* const found = std::ranges::find(kSwitches, action, &Switch::word);
  if (found != std::end(kSwitches) && arguments.size() == 2) {
    return edit(word, [&](Lists&, Entry& entry) {
      set_mask(entry, found->set ? entry.mask | found->bit : entry.mask & ~found->bit);
      return std::string();
    });
  }
  return reply_takes("channel",
                     "a channel and name TEXT, number N, block, unblock, skip, unskip, hide, show, delete or "
                     "categories N...",
                     joined(arguments.subspan(1)));
}

// ---- Import ----

constexpr const char* kTables = "/usr/share/dvb";
constexpr std::string_view kTableFolders[] = {"dvb-s", "dvb-t", "dvb-c", "atsc", "isdb-t"};

// ret_folder: where the file is.
std::string read_stick_file(std::string_view given, std::string& ret_content, std::string& ret_folder) {
  const UsbPlace place = usb_place(given);
  if (!place.inside) {
    return usb_root().empty() ? "no file can be imported: the set was started without a folder for sticks"
                              : "only a file in " + usb_root() + " can be imported";
  }
  ret_folder = place.folder.substr(0, place.folder.rfind('/'));
  return place.failed ? place.failed.message() : import_read(place.folder, ret_content);
}

// Reads a table of the package dtv-scan-tables: "Astra-19.2E", or with its folder "dvb-s/Astra-19.2E".
std::string read_table(std::string_view given, std::string& ret_content) {
  const std::size_t slash = given.find('/');
  const std::string_view folder = slash == std::string_view::npos ? "" : given.substr(0, slash);
  const std::string_view name = given.substr(slash == std::string_view::npos ? 0 : slash + 1);
  if (name.empty() || name.starts_with('.') || name.find('/') != std::string_view::npos ||
      name.find('\0') != std::string_view::npos) {
    return "a file is an absolute path, or the name of a table in " + std::string(kTables);
  }
  for (const std::string_view each : kTableFolders) {
    if (!folder.empty() && folder != each) continue;
    const std::string path = std::string(kTables) + "/" + std::string(each) + "/" + std::string(name);
    if (import_read(path, ret_content).empty()) return "";
  }
  return "no folder of " + std::string(kTables) + " has it; the Debian package dtv-scan-tables installs these tables";
}

boost::json::object import_file(std::string_view given) {
  std::string content, folder;
  std::string why = given.starts_with('/') ? read_stick_file(given, content, folder) : read_table(given, content);
  if (!why.empty()) return reply_error("cannot read " + quoted(given) + ": " + why);
  const std::string_view name = given.substr(given.rfind('/') + 1);
  const Imported imported = import_text(content, name);
  const bool names_satellite =
      imported.orbit &&
      (std::ranges::any_of(imported.multiplexes, [](const auto& each) { return each.orbit != 0; }) ||
       std::ranges::any_of(imported.services, [](const auto& each) { return each.found.orbit != 0; }));
  boost::json::array bad;
  for (const BadLine& each : imported.bad) bad.push_back({{"line", each.line}, {"why", each.why}});
  if (imported.services.empty() && imported.multiplexes.empty()) {
    const std::string first =
        imported.bad.empty() ? "" : "; line " + std::to_string(imported.bad[0].line) + ": " + imported.bad[0].why;
    return reply_error(quoted(given) + " has no services and no multiplexes" + first);
  }
  const std::string logos = logo_folder();
  if (!folder.empty()) take_logos(folder + kLogosBeside, logos);
  ScanOutcome outcome;
  std::size_t multiplexes = 0;
  why = change_lists([&](Lists& lists) {
    const std::size_t before = lists.multiplexes.size();
    std::string refused = take_multiplexes(lists, imported.multiplexes);
    multiplexes = lists.multiplexes.size() - before;
    if (refused.empty() && names_satellite) refused = take_satellite(lists, *imported.orbit, imported.satellite);
    if (refused.empty()) refused = take_services(lists, imported.services, {}, true, outcome);
    give_logos(lists, logos);
    return refused;
  });
  if (!why.empty()) return reply_error(std::move(why));
  boost::json::object answer{{"added", outcome.added}, {"changed", outcome.changed}, {"multiplexes", multiplexes}};
  if (names_satellite) answer["satellite"] = imported.satellite;
  if (imported.bad_lines != 0) {
    answer["bad_lines"] = imported.bad_lines;
    answer["bad"] = std::move(bad);
  }
  return answer;
}

// ---- The other forms of "channels" ----

boost::json::object categories_of(const Lists& lists) {
  boost::json::array categories;
  for (const auto& [number, name] : lists.categories) categories.push_back({{"number", number}, {"name", name}});
  return {{"categories", std::move(categories)}};
}

std::string set_category(Lists& lists, std::uint16_t number, const std::string& name) {
  const auto place = std::ranges::lower_bound(lists.categories, number, {}, &Category::number);
  const bool known = place != lists.categories.end() && place->number == number;
  if (name.empty()) {
    if (known) lists.categories.erase(place);
  } else if (known) {
    place->name = name;
  } else if (lists.categories.size() >= kMostCategories) {
    return "there are " + std::to_string(kMostCategories) + " categories already";
  } else {
    lists.categories.insert(place, {.number = number, .name = name});
  }
  return "";
}

boost::json::object categories(Arguments arguments) {
  if (!arguments.empty()) {
    const auto number = parse_number_within<std::uint16_t>(arguments[0], 0, 31);
    if (!number) return reply_takes("channels categories", "a number from 0 to 31", arguments[0]);
    const std::string name = joined(arguments.subspan(1));
    if (clean_text(name, kLongestCategoryName) != name) {
      return reply_error("a category's name is a text of at most " + std::to_string(kLongestCategoryName) +
                         " bytes in UTF-8, not " + quoted(name));
    }
    std::string why = change_lists([&](Lists& lists) { return set_category(lists, *number, name); });
    if (!why.empty()) return reply_error(std::move(why));
  }
  return categories_of(*lists_now());
}

boost::json::object clear() {
  const std::size_t count = channels_count();
  if (!state_reset()) return reply_error(kNotSaved);
  return {{"deleted", count}};
}

boost::json::object list_channels(std::string_view name, std::size_t first) {
  const auto lists = lists_now();
  std::vector<const Entry*> found;
  for (const Entry* const each : lists->views[0].order)
    if (contains_ignoring_case(each->channel.name, name)) found.push_back(each);
  return page("channels", found, first);
}

boost::json::object channels_command(Arguments arguments) {
  const std::string_view action = arguments.empty() ? "" : arguments[0];
  if (action == "import") return import_file(joined(arguments.subspan(1)));
  if (action == "categories") return categories(arguments.subspan(1));
  if (action == "clear" && arguments.size() == 1) return clear();
  std::size_t first = 1;
  if (arguments.size() >= 2 && arguments[arguments.size() - 2] == "from") {
    first = position(arguments.back());
    if (first == 0) return bad_position("channels", arguments.back());
    arguments = arguments.first(arguments.size() - 2);
  }
  return list_channels(joined(arguments), first - 1);
}

// ---- Favourites ----

boost::json::object favourite_command(Arguments arguments) {
  const std::string_view action = arguments.size() > 1 ? arguments[1] : "";
  if (arguments.size() > 1 && action != "add" && action != "remove")
    return reply_takes("favourite", "a channel and add or remove", action);
  boost::json::object answer;
  std::string why = change_lists([&](Lists& lists) {
    const Entry* const entry = find_named(lists, arguments[0]);
    if (entry == nullptr) return no_channel_named(arguments[0]);
    const std::uint32_t reference = reference_of(*entry);
    const bool is_one = std::ranges::find(lists.favourites[0], reference) != lists.favourites[0].end();
    const bool wanted = action.empty() ? !is_one : action == "add";
    answer = shown(*entry);
    answer["favourite"] = wanted;
    if (is_one == wanted) return std::string();
    return wanted ? add_favourite(lists, 0, reference) : remove_favourite(lists, 0, reference);
  });
  return why.empty() ? answer : reply_error(std::move(why));
}

boost::json::object favourites_command(Arguments arguments) {
  std::size_t first = 1;
  if (arguments.size() >= 2 && arguments[arguments.size() - 2] == "from") {
    first = position(arguments.back());
    if (first == 0) return bad_position("favourites", arguments.back());
    arguments = arguments.first(arguments.size() - 2);
  }
  const auto lists = lists_now();
  if (arguments.empty()) return page("favourites", lists->favourite_views[0].order, first - 1);
  const auto index = parse_number_within<std::uint8_t>(arguments[0], 0, kFavouriteLists - 1);
  if (!index || arguments.size() > 1) {
    return reply_takes("favourites",
                       "a favourite list of the service lists, 0 to " + std::to_string(kFavouriteLists - 1),
                       joined(arguments));
  }
  std::vector<const Entry*> found;
  for (std::uint16_t list = kFirstList; list <= kLastList; ++list) {
    const auto& order = lists->favourite_views[favourites_of(list, *index)].order;
    found.insert(found.end(), order.begin(), order.end());
  }
  return page("favourites", found, first - 1);
}

constexpr Command kCommands[] = {
    {"channels", "[TEXT...] | from N | TEXT from N | import FILE... | categories [N [NAME...]] | clear", 17,
     "Lists the channels by number, 100 at a time, or those with the text in their names; import: reads a channel list "
     "(dvbv5) or a table of dtv-scan-tables; categories: names those of a broadcaster; clear: deletes everything",
     channels_command},
    {"channel",
     "CHANNEL | CHANNEL name TEXT... | CHANNEL number N | CHANNEL block|unblock|skip|unskip|hide|show|delete | "
     "CHANNEL categories [N...] | move CHANNEL to CHANNEL",
     33,
     "Shows or changes a channel, given as 7, 7.1, air:7, cable:7 or satellite:7; move: gives it another channel's "
     "place, and shifts those "
     "between by one",
     channel_command},
    {"favourite", "CHANNEL [add|remove]", 2,
     "Makes a channel a favourite, or no longer one; without add or remove, whichever it is not", favourite_command},
    {"favourites", "[from N] | INDEX | INDEX from N", 3,
     "Lists the favourites, 100 at a time; INDEX: those of the service lists' favourite list 0 to 3",
     favourites_command},
};

}  // namespace

const std::span<const Command> kChannelCommands = kCommands;
