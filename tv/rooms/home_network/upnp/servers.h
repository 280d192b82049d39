// The media servers of the home network: finding them, and listing and downloading what they have. All functions are
// for the home network's thread. They call the functions passed to them on that thread too; those must not wait.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

// ---- Finding servers ----

inline constexpr std::size_t kMostServers = 64;             // known at a time
inline constexpr std::size_t kMostServersPerAddress = 8;    // so that one machine cannot take all places
inline constexpr std::size_t kMostAnnouncements = 512;      // remembered, of one interface
inline constexpr std::size_t kMostDescriptions = 4;         // fetched at a time
inline constexpr std::size_t kLongestDescription = 262144;  // bytes
inline constexpr std::size_t kLongestUdn = 128;
inline constexpr std::size_t kLongestServerName = 127;

struct UpnpServer {
  std::string udn = {};
  std::string name = {};
  std::string address = {};    // of the host, a number
  std::string interface = {};  // of this machine, on which it was found
  std::string control = {};    // address for the actions of its content directory
  std::string service = {};    // the type of the content directory's service
};

struct UpnpSearch {
  std::function<void(const UpnpServer& server)> found;  // a server was found, or has changed
  std::function<void(const std::string& udn)> lost;
  // One more server was not taken: a limit above is reached, or its announcement or description cannot be used.
  std::function<void()> refused;
};

// Searches for servers until upnp_search_stop or the thread's end. Another start replaces the functions, searches again
// and reports all servers again. After the stop none of the functions is called.
void upnp_search_start(UpnpSearch search);
void upnp_search_stop();

// ---- Listing ----

inline constexpr std::size_t kLongestAnswer = 1048576;  // bytes of a list
inline constexpr std::size_t kLongestObject = 1024;     // bytes of an identifier; objects with longer ones are left out
inline constexpr std::size_t kLongestObjectText = 255;  // bytes
inline constexpr std::size_t kMostPage = 200;           // objects of one listing

struct UpnpObject {
  std::string id = {};
  std::string parent = {};
  std::int32_t kind = 0;  // DLNA_MEDIA_... of tvapi/dlna.h; 0: none of them
  std::string name = {};
  std::string artist = {};
  std::string album = {};
  std::string date = {};       // "2024-05-31" or "2024-05-31T18:00:00", perhaps with a zone
  std::string url = {};        // of its file; empty: the object has no file that the set may fetch
  std::string type = {};       // the file's content type
  std::string thumbnail = {};  // address of a small JPEG or PNG picture; empty: none
  std::uint64_t size = 0;      // bytes; 0: not stated
  std::uint32_t seconds = 0;   // 0: not stated
  std::uint32_t width = 0;
  std::uint32_t height = 0;
  std::int64_t children = -1;  // of a folder; -1: not stated
};

struct UpnpPage {
  std::vector<UpnpObject> objects = {};
  std::uint64_t total = 0;  // objects that the server says it has; at least first + the number of objects here
};

struct UpnpListing {
  std::string control = {};
  std::string service = {};
  std::string object = {};
  bool itself = false;      // ask for the object, not for its children
  std::string search = {};  // not empty: ask for objects below this one with this text in their titles
  std::uint32_t first = 0;
  std::uint32_t count = 0;  // at most kMostPage
  std::uint32_t millis = 0;
  std::string sort = {};  // "+dc:title", "-dc:date"; empty: the server's own order
};

// Asks the server for the listing. Asks again while the server has sent fewer objects than requested and has more, but
// takes at most `millis`. done: called once; why is empty if the server answered.
void upnp_list(std::uint64_t call, const UpnpListing& listing,
               std::function<void(UpnpPage page, const std::string& why)> done);

// ---- Files ----

struct UpnpDownload {
  std::string url = {};
  std::uint64_t most = 0;                                              // bytes
  std::uint32_t millis = 0;                                            // time limit; 0: none
  bool picture = false;                                                // accept only a JPEG or a PNG
  std::function<void(std::int64_t size)> size = {};                    // called before the first bytes; -1: not stated
  std::function<bool(const char* bytes, std::size_t size)> take = {};  // called for each part; false ends the download
  std::function<void(const std::string& why)> done = {};
};
void upnp_download(std::uint64_t call, UpnpDownload download);

// Ends a listing or a download, whose `done` is then called. The caller of these functions chooses the number `call`,
// and uses each number once.
void upnp_cancel(std::uint64_t call);
