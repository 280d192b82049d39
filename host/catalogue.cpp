#include "catalogue.h"

#include <boost/json.hpp>

#include "json_text.h"

namespace json = boost::json;

bool catalogue_read(std::string description, Catalogue& ret_catalogue, std::string& ret_error) {
  std::vector<std::string> uris;
  std::vector<std::string> notifying;
  if (std::string wrong; !json_is_whole(description, &wrong)) {
    ret_error = "the plugin's description of its URIs is not JSON, " + wrong;
    return false;
  }
  try {
    const json::value parsed = json::parse(description);
    for (const json::value& row : parsed.at("uris").as_array()) {
      uris.emplace_back(row.at("uri").as_string());
      const json::value* notify = row.as_object().if_contains("notify");
      if (notify != nullptr && notify->is_bool() && notify->get_bool()) notifying.push_back(uris.back());
    }
  } catch (const std::exception& failure) {
    ret_error = std::string("the plugin's description of its URIs cannot be read: ") + failure.what();
    return false;
  }
  ret_catalogue.description = std::move(description);
  ret_catalogue.uris = std::move(uris);
  ret_catalogue.notifying = std::move(notifying);
  ret_catalogue.find.clear();
  for (const std::string& uri : ret_catalogue.uris) ret_catalogue.find.emplace(uri, uri.c_str());
  return true;
}

const char* catalogue_find(const Catalogue& catalogue, std::string_view uri) {
  const auto found = catalogue.find.find(uri);
  return found != catalogue.find.end() ? found->second : nullptr;
}
