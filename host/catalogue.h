// The URIs that the plugin has registered, as it describes them itself.
#pragma once

#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "checks.h"

struct CatalogueRow {
  const char* uri;        // NUL-terminated, in Catalogue::uris
  const CheckUri* check;  // what its requests look like, in Catalogue::checks
};

struct Catalogue {
  std::string description;        // the plugin's own text, for the method "list"
  std::vector<std::string> uris;  // without duplicates, in the plugin's order
  CheckUris checks;
  std::unordered_map<std::string_view, CatalogueRow> rows;  // by URI; views into uris
};

// Reads the plugin's description. Returns false with a message when it does not have the form that "dtv_js_plugin.h"
// describes. ret_catalogue must not be copied or moved afterwards.
bool catalogue_read(std::string description, Catalogue& ret_catalogue, std::string& ret_error);

// The row of a URI, which lives as long as the catalogue; null for an unknown one.
const CatalogueRow* catalogue_find(const Catalogue& catalogue, std::string_view uri);
