#include "catalogue.h"

#include <boost/json.hpp>
#include <unordered_set>
#include <utility>

#include "json_text.h"

namespace json = boost::json;

bool catalogue_read(std::string description, Catalogue& ret_catalogue, std::string& ret_error) {
  if (std::string wrong; !json_is_whole(description, &wrong)) {
    ret_error = "the plugin's description of its URIs is not JSON, " + wrong;
    return false;
  }
  std::vector<std::string> uris;
  CheckUris checks;
  try {
    const json::value parsed = json::parse(description);
    checks = checks_read(parsed);
    std::unordered_set<std::string_view> seen;
    for (const json::value& row : parsed.at("uris").as_array())
      if (const json::string& uri = row.at("uri").as_string(); seen.insert(uri).second) uris.emplace_back(uri);
  } catch (const std::exception& failure) {
    ret_error = std::string("the plugin's description of its URIs cannot be read: ") + failure.what();
    return false;
  }
  ret_catalogue.description = std::move(description);
  ret_catalogue.uris = std::move(uris);
  ret_catalogue.checks = std::move(checks);
  ret_catalogue.rows.clear();
  for (const std::string& uri : ret_catalogue.uris)
    ret_catalogue.rows.emplace(uri, CatalogueRow{.uri = uri.c_str(), .check = &ret_catalogue.checks.find(uri)->second});
  return true;
}

const CatalogueRow* catalogue_find(const Catalogue& catalogue, std::string_view uri) {
  const auto found = catalogue.rows.find(uri);
  return found != catalogue.rows.end() ? &found->second : nullptr;
}
