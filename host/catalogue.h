// The URIs that the plugin has registered, as it describes them itself.
#pragma once

#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

struct Catalogue {
  std::string description;                                 // the plugin's own text, for the method "list"
  std::vector<std::string> uris;                           // in the plugin's order
  std::vector<std::string> notifying;                      // those that notifications come from
  std::unordered_map<std::string_view, const char*> find;  // URI to its NUL-terminated text; views into uris
};

// Reads the plugin's description. Returns false, with a message, where it is not what "dtv_js_plugin.h" says.
// ret_catalogue is not to be copied or moved afterwards.
bool catalogue_read(std::string description, Catalogue& ret_catalogue, std::string& ret_error);

// The registered text of a URI, which lives as long as the catalogue; null for an unknown one.
const char* catalogue_find(const Catalogue& catalogue, std::string_view uri);
