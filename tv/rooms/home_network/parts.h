// What the files of this room share. Each file has at most one lock for its data. It is not held while another file,
// another room or the home network's thread is called, except for the event queue and the timers.
#pragma once

#include <boost/json/object.hpp>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "core/contract.h"
#include "rooms/home_network/upnp/library.h"

// ---- Servers (servers.cpp) ----

struct Server {
  INT32 id = 0;
  UpnpServer upnp = {};
  std::string mac = {};  // "02:00:5e:10:00:01"; empty: not known
  bool online = false;
};

void servers_load();
bool servers_reset();
void servers_stop();

std::optional<Server> servers_find(INT32 id);
std::vector<Server> servers_all();
bool servers_searching();
std::size_t servers_refused();  // announcements that were refused since the search began

// What a viewer does. Each returns why it failed; empty: done.
std::string servers_search(bool on);
std::string servers_wake(INT32 id);
std::string servers_forget(INT32 id);

// Posts a call of the application's callback to the event thread, with the server's name if the server is known. type:
// DMS_...; arg1 and arg2 as it says.
void servers_notify(INT32 type, INT32 id, UINT32 arg1, UINT32 arg2);

// ---- Wake-up (wake.cpp) ----

// The hardware address of a host, by a table in the form of /proc/net/arp; empty: the table does not have it.
std::string mac_of(std::string_view table, std::string_view address);
std::string mac_now(std::string_view address);  // by the kernel's table

inline constexpr int kWakePort = 9;

// Sends the packet that wakes the network card with this hardware address to the broadcast address of each interface.
// False: it could not be sent on any of them.
bool wake_card(const std::string& mac, const std::vector<std::string>& interfaces, int port);

// ---- Questions to a server (asking.cpp) ----

inline constexpr std::size_t kMostQuestions = 8;  // at a time

// Asks the server for the listing, and waits for the answer for at most DMP_WAIT_SECONDS. Fills in the listing's
// control, service and millis. Returns why there is no answer; empty: the answer is ret_page. The caller holds no lock.
std::string ask(const Server& server, UpnpListing listing, UpnpPage& ret_page);
void asking_break(INT32 server);  // calls that wait for this server fail at once
std::uint64_t next_call();        // a new number for a call of libdtv_upnp.so

// ---- Browsing without waiting (browsing.cpp; for the other rooms: home_network.h) ----

void browsing_load();

// ---- Objects (objects.cpp) ----

// Objects of all servers that have a number. Beyond that the oldest numbers become unknown, and listing their folder
// again gives new ones.
inline constexpr std::size_t kMostObjects = 5000;

void objects_load();
std::vector<INT32> objects_add(INT32 server, const std::vector<UpnpObject>& objects);  // their numbers
std::optional<UpnpObject> objects_find(INT32 server, INT32 number);
std::string_view kind_name(INT32 kind);  // of DLNA_MEDIA_...: "folder", "photo", "music", "video" or "other"

// The same. For the root (DMP_ROOT_OBJECT) it needs no listing before. Returns why it failed.
std::string object_read(INT32 server, INT32 number, UpnpObject& ret_object);

// ---- Items (items.cpp) ----

inline constexpr std::size_t kMostItems = 64;  // instances at a time

void items_load();

// The extension of the object's file, such as "jpg", by its content type or else by its address. At most 7 characters;
// empty: unknown.
std::string extension_of(const UpnpObject& object);

// ---- Files (files.cpp) ----

inline constexpr std::size_t kMostDownloads = 4;                // at a time
inline constexpr std::size_t kMostDownloadsShown = 64;          // beyond that the oldest finished ones are forgotten
inline constexpr std::size_t kMostDownloadedFiles = 1000;       // in the folder
inline constexpr std::uint64_t kLongestDownload = 16ULL << 30;  // bytes
inline constexpr std::uint64_t kFreeSpace = 256ULL << 20;       // bytes that a download leaves free on the disk
inline constexpr std::size_t kMostServerThumbnails = 200;       // files
inline constexpr std::size_t kMostThumbnailFetches = 8;         // at a time
inline constexpr std::size_t kLongestThumbnail = 512 << 10;     // bytes

struct Download {
  enum class State { kRunning, kDone, kFailed, kCancelled };
  INT32 server = 0;
  INT32 object = 0;
  State state = State::kRunning;
  std::string path = {};  // of the file, once it is complete
  std::string why = {};
  std::uint64_t bytes = 0;
  std::uint64_t of = 0;  // 0: unknown
};

void files_load();

// Returns why the download cannot start; empty: it runs. ret_path: the path that the file will have; may be null.
std::string download_start(INT32 server, INT32 object, const UpnpObject& item, std::string* ret_path = nullptr);
void download_cancel(INT32 server, INT32 object);
std::optional<Download> download_find(INT32 server, INT32 object);  // the latest one of this object

// The path of the object's thumbnail; empty: there is none, or it is being fetched (see DMS_THUMBNAIL).
std::string thumbnail_of(INT32 server, INT32 object, const UpnpObject& item);

// ---- Commands (commands.cpp) ----

struct Command;  // core/room.h
std::span<const Command> servers_commands();
void servers_report(boost::json::object& answer);
