// The media servers of the home network: which there are, and what they have. On the thread; the functions given are
// called there as well, and must not wait.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

// ---- Which there are ----

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
  std::string address = {};    // the host's, a number
  std::string interface = {};  // of this machine, through which it was found
  std::string control = {};    // the address that takes the actions of its content directory
  std::string service = {};    // that service's type
};

struct UpnpSearch {
  std::function<void(const UpnpServer& server)> found;  // or changed
  std::function<void(const std::string& udn)> lost;
  std::function<void()> refused;  // one more server was not taken, since the limits above are reached
};

// Looks for servers until upnp_search_stop or the thread's end; starting it again replaces the functions, searches
// again and reports all again. After the stop nothing is called.
void upnp_search_start(UpnpSearch search);
void upnp_search_stop();

// ---- What they have ----

inline constexpr std::size_t kLongestAnswer = 1048576;  // bytes of a list
inline constexpr std::size_t kLongestObject = 1024;     // bytes of an identifier; objects with longer ones are left out
inline constexpr std::size_t kLongestObjectText = 255;  // bytes
inline constexpr std::size_t kMostPage = 200;           // objects of one list

struct UpnpObject {
  std::string id = {};
  std::string parent = {};
  std::int32_t kind = 0;  // DLNA_MEDIA_... of tvapi/dlna.h; 0: none of them
  std::string name = {};
  std::string artist = {};
  std::string album = {};
  std::string date = {};       // "2024-05-31" or "2024-05-31T18:00:00", perhaps with a zone
  std::string url = {};        // of its file; empty: none that the set may fetch
  std::string type = {};       // the file's content type
  std::string thumbnail = {};  // address of a small JPEG or PNG picture; empty: none
  std::uint64_t size = 0;      // bytes; 0: not stated
  std::uint32_t seconds = 0;   // 0: not stated
  std::uint32_t width = 0;
  std::uint32_t height = 0;
  std::int64_t children = -1;  // -1: not stated
};

struct UpnpPage {
  std::vector<UpnpObject> objects = {};
  std::uint64_t total = 0;  // that the server has; at least what it has given
};

struct UpnpListing {
  std::string control = {};
  std::string service = {};
  std::string object = {};
  bool itself = false;      // the object and not its children
  std::string search = {};  // not empty: what is below the object and has this text in its title
  std::uint32_t first = 0;
  std::uint32_t count = 0;  // at most kMostPage
  std::uint32_t millis = 0;
  std::string sort = {};  // "+dc:title", "-dc:date"; empty: the server's own order
};

// Asks the server, again if it has sent fewer objects than requested and has more, but not longer than millis.
// done: why is empty if it answered.
void upnp_list(std::uint64_t call, const UpnpListing& listing,
               std::function<void(UpnpPage page, const std::string& why)> done);

// ---- Their files ----

struct UpnpDownload {
  std::string url = {};
  std::uint64_t most = 0;                                              // bytes
  std::uint32_t millis = 0;                                            // 0: any time
  bool picture = false;                                                // only a JPEG or a PNG
  std::function<void(std::int64_t size)> size = {};                    // before the first bytes; -1: not stated
  std::function<bool(const char* bytes, std::size_t size)> take = {};  // false ends it
  std::function<void(const std::string& why)> done = {};
};
void upnp_download(std::uint64_t call, UpnpDownload download);

// Ends a list or a download; its done is called. Numbers of calls are chosen by the caller, each once.
void upnp_cancel(std::uint64_t call);
