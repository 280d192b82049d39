// The URIs that the plugin has registered, as it describes them itself.
#pragma once

#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

struct CatalogueRow {
  const char* uri;  // NUL-terminated, in Catalogue::uris
  bool notifies;    // whether notifications can come from it
};

struct Catalogue {
  std::string description;                                  // the plugin's own text, for the method "list"
  std::vector<std::string> uris;                            // each once, in the plugin's order
  std::unordered_map<std::string_view, CatalogueRow> rows;  // by URI; views into uris
};

// Reads the plugin's description. Returns false, with a message, where it is not what "dtv_js_plugin.h" says.
// ret_catalogue is not to be copied or moved afterwards.
bool catalogue_read(std::string description, Catalogue& ret_catalogue, std::string& ret_error);

// The registered text of a URI, which lives as long as the catalogue; null for an unknown one.
const char* catalogue_find(const Catalogue& catalogue, std::string_view uri);

// Whether it makes sense to subscribe to a registered URI.
bool catalogue_notifies(const Catalogue& catalogue, std::string_view uri);
