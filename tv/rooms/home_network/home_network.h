// The servers of the home network, for the other rooms.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "core/contract.h"

// Called by the remote control when a key is pressed while the set is on. Notifies the application that has registered
// for keys. code: the key's infrared code. leaves: the key is EXIT. The caller holds no lock.
void home_network_key(std::string_view code, bool leaves);

// Starts to download the file at an http address of the home network (home_is_near) into the set's folder of downloads.
// Only one such download runs at a time. name: for the file, without folders. type: the file's media type, or empty if
// it is not known. Returns why it cannot start; empty: it runs, and ret_path is the path that the file will have. The
// caller holds no lock.
std::string home_download(const std::string& address, const std::string& name, const std::string& type,
                          std::string& ret_path);

// ---- Browsing without waiting ----
//
// For menus: what is not known yet is requested, and a later call has it. The caller may hold the lock of any room that
// comes before the remote control's.

inline constexpr std::size_t kMostBrowsed = 100'000;  // objects of a folder; the others are not shown
inline constexpr const char* kHomeRoot = "0";         // the identifier of every server's root

struct HomeServer {
  INT32 id = 0;
  std::string name = {};
  bool online = false;
};
std::vector<HomeServer> home_servers();
std::optional<HomeServer> home_server(INT32 id);

// Starts the search for servers, as a viewer does, unless it runs. Returns why it cannot start.
std::string home_search();

struct HomeFolder {
  bool loading = false;   // the server has not answered yet
  std::string why = {};   // why it cannot be listed
  std::size_t count = 0;  // of its objects
};
HomeFolder home_folder(INT32 server, const std::string& id);
void home_refresh(INT32 server, const std::string& id);  // forgets what is known of the folder

struct HomeObject {
  std::string id = {};
  std::string name = {};
  std::string artist = {};
  std::string url = {};        // of its file; empty: none that the set may fetch
  std::string_view kind = {};  // "folder", "photo", "music", "video" or "other"
};
std::optional<HomeObject> home_object(INT32 server, const std::string& folder, std::size_t index);
