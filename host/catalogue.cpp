#include "catalogue.h"

#include <boost/json.hpp>

#include "json_text.h"

namespace json = boost::json;

bool catalogue_read(std::string description, Catalogue& ret_catalogue, std::string& ret_error) {
  if (std::string wrong; !json_is_whole(description, &wrong)) {
    ret_error = "the plugin's description of its URIs is not JSON, " + wrong;
    return false;
  }
  std::vector<std::string> uris;
  std::unordered_map<std::string, bool> notifies;
  try {
    const json::value parsed = json::parse(description);
    for (const json::value& row : parsed.at("uris").as_array()) {
      const std::string uri(row.at("uri").as_string());
      // Every URI of the notification group can notify, even if no handler of the plugin raises its event: another part
      // of the set may raise it.
      const json::value* group = row.as_object().if_contains("group");
      const json::value* notify = row.as_object().if_contains("notify");
      const bool can = (notify != nullptr && notify->is_bool() && notify->get_bool()) ||
                       (group != nullptr && group->is_string() && group->get_string() == "WS_NFY");
      if (notifies.emplace(uri, can).second) uris.push_back(uri);
    }
  } catch (const std::exception& failure) {
    ret_error = std::string("the plugin's description of its URIs cannot be read: ") + failure.what();
    return false;
  }
  ret_catalogue.description = std::move(description);
  ret_catalogue.uris = std::move(uris);
  ret_catalogue.rows.clear();
  for (const std::string& uri : ret_catalogue.uris)
    ret_catalogue.rows.emplace(uri, CatalogueRow{.uri = uri.c_str(), .notifies = notifies[uri]});
  return true;
}

const char* catalogue_find(const Catalogue& catalogue, std::string_view uri) {
  const auto found = catalogue.rows.find(uri);
  return found != catalogue.rows.end() ? found->second.uri : nullptr;
}

bool catalogue_notifies(const Catalogue& catalogue, std::string_view uri) {
  const auto found = catalogue.rows.find(uri);
  return found != catalogue.rows.end() && found->second.notifies;
}
