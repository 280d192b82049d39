// The commands for the home network's servers.
#include <algorithm>
#include <boost/json.hpp>
#include <iterator>
#include <optional>
#include <utility>

#include "base/text.h"
#include "core/reply.h"
#include "core/room.h"
#include "rooms/home_network/home_network.h"
#include "rooms/home_network/parts.h"
#include "rooms/media_player/media_player.h"

namespace {

namespace json = boost::json;

constexpr std::uint32_t kUsualPage = 50;
constexpr std::size_t kLongestSearch = 256;  // bytes

json::object shown_server(const Server& server) {
  return {{"id", server.id},         {"name", server.upnp.name},
          {"udn", server.upnp.udn},  {"address", server.upnp.address},
          {"online", server.online}, {"wakable", !server.mac.empty()}};
}

json::object shown_servers() {
  json::array list;
  for (const Server& each : servers_all()) list.push_back(shown_server(each));
  json::object answer{{"searching", servers_searching()}, {"servers", std::move(list)}};
  if (const std::size_t refused = servers_refused(); refused != 0) answer["refused"] = refused;
  return answer;
}

json::object shown_object(INT32 number, const UpnpObject& object) {
  json::object entry{{"object", number}, {"kind", kind_name(object.kind)}, {"name", object.name}};
  if (object.kind == DLNA_MEDIA_CONTAINER) {
    if (object.children >= 0) entry["children"] = object.children;
    return entry;
  }
  const std::pair<const char*, const std::string&> texts[] = {
      {"artist", object.artist}, {"album", object.album}, {"date", object.date}, {"url", object.url}};
  for (const auto& [name, text] : texts)
    if (!text.empty()) entry[name] = text;
  if (object.seconds != 0) entry["duration"] = static_cast<double>(object.seconds);
  if (object.size != 0) entry["size"] = object.size;
  if (object.width != 0 && object.height != 0) {
    entry["width"] = object.width;
    entry["height"] = object.height;
  }
  return entry;
}

json::object shown_page(INT32 server, std::uint32_t first, const UpnpPage& page) {
  const std::vector<INT32> numbers = objects_add(server, page.objects);
  json::array entries;
  for (std::size_t i = 0; i < numbers.size(); ++i) entries.push_back(shown_object(numbers[i], page.objects[i]));
  return {{"total", page.total}, {"index", first}, {"entries", std::move(entries)}};
}

// The server and the object that words name; why is empty if they exist.
struct Named {
  Server server = {};
  INT32 number = DMP_ROOT_OBJECT;
  UpnpObject object = {};
  std::string why = {};
};

Named name_server(std::string_view word) {
  const auto id = parse_number_within<INT32>(word, 1, INT32_MAX);
  const auto server = id ? servers_find(*id) : std::nullopt;
  if (!server) return {.why = "there is no server " + quoted(word) + "; servers lists them"};
  return {.server = *server};
}

Named name_object(std::string_view server, std::string_view object) {
  Named named = name_server(server);
  if (!named.why.empty()) return named;
  const auto number = parse_number_within<INT32>(object, 0, INT32_MAX);
  if (!number) {
    named.why = "an object is a number that servers list gave, not " + quoted(object);
    return named;
  }
  named.number = *number;
  named.why = object_read(named.server.id, *number, named.object);
  return named;
}

bool read_counts(Arguments words, std::uint32_t& ret_first, std::uint32_t& ret_count) {
  const auto first = words.empty() ? 0 : parse_number_within<std::uint32_t>(words[0], 0, INT32_MAX);
  const auto count = words.size() < 2 ? kUsualPage : parse_number_within<std::uint32_t>(words[1], 1, kMostPage);
  if (!first || !count) return false;
  ret_first = *first;
  ret_count = *count;
  return true;
}

json::object wrong_counts() {
  return reply_error("the index is a number from 0 on, and the count one from 1 to " + std::to_string(kMostPage));
}

struct Order {
  std::string_view word;
  const char* property;
};

constexpr Order kOrders[] = {{"title", "dc:title"},
                             {"date", "dc:date"},
                             {"artist", "upnp:artist"},
                             {"album", "upnp:album"},
                             {"size", "res@size"}};

// What the server is to sort by: "date", or "date_down" for the newest first. Nothing: the word names no order.
std::optional<std::string> read_order(std::string_view word) {
  constexpr std::string_view kDown = "_down";
  const bool falls = word.ends_with(kDown);
  if (falls) word.remove_suffix(kDown.size());
  const auto* const order = std::ranges::find(kOrders, word, &Order::word);
  if (order == std::end(kOrders)) return std::nullopt;
  return (falls ? "-" : "+") + std::string(order->property);
}

json::object list(Arguments words) {
  std::uint32_t first = 0;
  std::uint32_t count = kUsualPage;
  if (words.size() > 2 && !read_counts(words.subspan(2), first, count)) return wrong_counts();
  const auto order = words.size() > 4 ? read_order(words[4]) : std::string();
  if (!order)
    return reply_takes("servers list", "title, date, artist, album or size after the count, also with _down behind it",
                       words[4]);
  const bool root = words.size() < 2 || words[1] == "0";
  Named named = root ? name_server(words[0]) : name_object(words[0], words[1]);
  if (!named.why.empty()) return reply_error(named.why);
  if (root) named.object = {.id = kHomeRoot, .kind = DLNA_MEDIA_CONTAINER};
  if (named.object.kind != DLNA_MEDIA_CONTAINER) return reply_error("object " + quoted(words[1]) + " is no folder");
  UpnpPage page;
  const std::string why =
      ask(named.server, {.object = named.object.id, .first = first, .count = count, .sort = *order}, page);
  return why.empty() ? shown_page(named.server.id, first, page) : reply_error(why);
}

json::object search_for(Arguments words) {
  std::uint32_t first = 0;
  std::uint32_t count = kUsualPage;
  if (!read_counts(words.subspan(2), first, count)) return wrong_counts();
  if (words[1].empty() || words[1].size() > kLongestSearch)
    return reply_error("the text to look for has 1 to " + std::to_string(kLongestSearch) + " bytes");
  const Named named = name_server(words[0]);
  if (!named.why.empty()) return reply_error(named.why);
  UpnpPage page;
  const std::string why =
      ask(named.server, {.object = kHomeRoot, .search = std::string(words[1]), .first = first, .count = count}, page);
  return why.empty() ? shown_page(named.server.id, first, page) : reply_error(why);
}

json::object play(Arguments words) {
  const Named named = name_object(words[0], words[1]);
  if (!named.why.empty()) return reply_error(named.why);
  if (named.object.url.empty())
    return reply_error("object " + quoted(words[1]) + " has no file that the set can fetch");
  const std::string why = media_player_play(named.object.url, std::nullopt);
  return why.empty() ? media_player_describe() : reply_error(why);
}

json::object shown_download(Arguments words, const Download& download) {
  constexpr const char* kStates[] = {"running", "done", "failed", "cancelled"};
  json::object answer{
      {"state", kStates[static_cast<std::size_t>(download.state)]}, {"bytes", download.bytes}, {"of", download.of}};
  if (download.of != 0) answer["percent"] = std::min<std::uint64_t>(download.bytes * 100 / download.of, 100);
  if (!download.path.empty()) answer["path"] = download.path;
  if (!download.why.empty()) answer["reason"] = download.why;
  reply_watch(answer, {.words = {"servers", "download", words[0], words[1], "show"},
                       .cancel = {"servers", "download", words[0], words[1], "cancel"},
                       .shows = {"bytes", "of"}});
  return answer;
}

json::object download(Arguments words) {
  const std::string_view what = words.size() > 2 ? words[2] : "";
  if (!what.empty() && what != "cancel" && what != "show")
    return reply_takes("servers download", "cancel or show after the object", what);
  const Named named = name_object(words[0], words[1]);
  if (!named.why.empty()) return reply_error(named.why);
  if (what == "cancel") download_cancel(named.server.id, named.number);
  if (what.empty()) {
    const std::string why = download_start(named.server.id, named.number, named.object);
    if (!why.empty()) return reply_error(why);
  }
  const auto shown = download_find(named.server.id, named.number);
  if (!shown) return reply_error("object " + quoted(words[1]) + " has not been downloaded");
  return shown_download(words, *shown);
}

json::object search(Arguments words) {
  if (words[0] != "on" && words[0] != "off") return reply_takes("servers search", "on or off", words[0]);
  const std::string why = servers_search(words[0] == "on");
  return why.empty() ? shown_servers() : reply_error(why);
}

json::object after(const std::string& why) { return why.empty() ? shown_servers() : reply_error(why); }

json::object wake(Arguments words) {
  const Named named = name_server(words[0]);
  return after(named.why.empty() ? servers_wake(named.server.id) : named.why);
}

json::object forget(Arguments words) {
  const Named named = name_server(words[0]);
  return after(named.why.empty() ? servers_forget(named.server.id) : named.why);
}

struct Action {
  std::string_view name;
  json::object (*run)(Arguments words);  // the words after the name
  std::size_t least;
  std::size_t most;
};

constexpr Action kActions[] = {
    {"search", search, 1, 1},     {"list", list, 1, 5}, {"search_for", search_for, 2, 4}, {"play", play, 2, 2},
    {"download", download, 2, 3}, {"wake", wake, 1, 1}, {"forget", forget, 1, 1},
};

json::object servers(Arguments words) {
  if (words.empty()) return shown_servers();
  const auto* const action = std::ranges::find(kActions, words[0], &Action::name);
  if (action == std::end(kActions))
    return reply_takes("servers", "search, list, search_for, play, download, wake or forget", words[0]);
  const Arguments rest = words.subspan(1);
  if (rest.size() < action->least || rest.size() > action->most)
    return reply_error("servers " + std::string(action->name) + " takes other words; see help");
  return action->run(rest);
}

constexpr Command kCommands[] = {
    {"servers",
     "[search on|off | list SERVER [OBJECT [INDEX [COUNT [ORDER]]]] | search_for SERVER TEXT [INDEX [COUNT]] | "
     "play SERVER OBJECT | download SERVER OBJECT [cancel|show] | wake SERVER | forget SERVER]",
     6, "Lists the media servers of the home network, and plays and downloads what they have", servers},
};

}  // namespace

std::span<const Command> servers_commands() { return kCommands; }

void servers_report(json::object& answer) {
  if (!servers_searching()) return;
  const std::vector<Server> all = servers_all();
  answer["home_network"] =
      json::object{{"searching", true}, {"servers", std::ranges::count(all, true, &Server::online)}};
}
