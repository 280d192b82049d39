// What the fuzz targets of the plugin share: the started plugin, its tables according to its description, and the
// checks of its texts.
#pragma once

#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "bytes.h"
#include "tv_ctrl_main.h"

struct FieldInfo {
  std::string key;
  std::string kind;                 // "int32", "text", "object" ...
  std::string uri;                  // the only URI whose requests read it; empty: all of its type's
  std::size_t limit = 0;            // longest text, in bytes
  std::size_t count = 0;            // elements of an array of numbers; 0: no such array
  std::vector<std::string> values;  // that are known, as JSON; empty: any
  std::string selector;             // the key of a field before it, with one value of which alone this one counts
  std::string selected;             // that value, as JSON; empty with an empty selector
  std::vector<FieldInfo> fields;
};

// A request word of a set, and the fields that it decodes.
struct SetInfo {
  std::string word;
  std::vector<FieldInfo> fields;
};

using Keys = std::vector<std::string>;

struct TypeInfo {
  std::vector<FieldInfo> query;
  std::vector<SetInfo> sets;   // empty: no set
  Keys root;                   // of a response, between "STATUS" and "ITEMS"
  std::vector<Keys> forms;     // of a response's items, one entry for each form; empty: the type has no renderer
  bool may_be_silent = false;  // a get may succeed without a response
  Keys notify;                 // of a notification's items
  std::string notify_member;   // "ITEMS" or "PARAMETER"; empty: no notification
  bool queued = false;
};

struct UriInfo {
  std::string uri;
  UINT16 id = 0;
  UINT8 type = TYPE_INVALID;
  std::string type_name;
  const TypeInfo* info = nullptr;  // never null
  bool gets = false, sets = false, notifies = false;
};

struct Tables {
  std::vector<UriInfo> uris;
  std::vector<std::size_t> active;                  // indices of the active URIs
  std::vector<std::vector<std::size_t>> related;    // indices of active URIs: of each group, then of each type
  std::vector<std::vector<std::size_t>> by_type;    // indices by type; all that are not built yet are one type
  std::vector<std::vector<std::size_t>> notifying;  // indices by type, of the types that notify
  std::map<std::string, TypeInfo> types;
  std::vector<std::string> words;  // every request word, each once
};

// Starts the plugin on the fuzz platform, once, with its log silenced.
const Tables& plugin_start();

// Sets the log level, through the level file that the plugin reads. No other thread uses the plugin meanwhile.
void plugin_log_level(int level);

// The row of a URI, or null. `uri` may be null.
const UriInfo* plugin_find(const Tables& tables, const char* uri);

// Ends the process with a message that says what does not hold, and for which text.
void require(bool holds, const char* what, std::string_view text = {});

// Checks what a get of this URI copied: whole JSON with "URI", "STATUS", the type's own members and "ITEMS" in this
// order, the status that the get returned, items with keys of one of the type's forms. Returns which form: of those
// that fit, the one with the fewest keys; for no items, how many forms there are. A text as long as the limit may be
// cut and is not looked at.
std::size_t check_response(const UriInfo& row, INT32 ret, std::string_view text);

// Checks a fetched notification text; returns the number of its items.
std::size_t check_notification(const UriInfo& row, std::string_view text);

// A copy whose bytes end where the text ends, so that the address sanitizer sees a read beyond it. Null for no text.
using Owned = std::unique_ptr<char, void (*)(void*)>;
Owned own_text(const std::string* text);

// A URI: often the one that ret_uri holds from before, mostly one of the registry, else a damaged one, any text, an
// overlong one or null (false). `active`: the URIs of which most come.
bool take_uri(Bytes& bytes, const Tables& tables, const std::vector<std::size_t>& active, std::string& ret_uri);

// The subscriptions made by one input, to know what the plugin must answer and to take them back at its end.
struct Subscriptions {
  std::map<std::string, std::vector<int>> counts;  // by the URI as kept; several entries only for overlong URIs
  std::string shared;  // another thread subscribes this URI as well, so that its state is unknown
};
void subscribe(Subscriptions& subscriptions, const char* uri);
void unsubscribe(Subscriptions& subscriptions, const char* uri);
bool is_subscribed(const Subscriptions& subscriptions, const char* uri);
void subscribe_all(Subscriptions& subscriptions, const Tables& tables);  // to every URI that notifies
void unsubscribe_all(Subscriptions& subscriptions);

// Fetches with a length from the input and checks the result.
struct Fetched {
  bool subscribed = false;  // the fetch succeeded
  bool came = false;        // some text came
  std::size_t items = 0;    // of a text that came whole
};
Fetched fetch(Bytes& bytes, const Tables& tables, const Subscriptions& subscriptions, const char* uri);

// Fetches the whole texts that are pending for the subscribed URIs that notify, and checks them.
void fetch_all(const Tables& tables, const Subscriptions& subscriptions);

// For other threads: fetches a URI a few times and checks each whole text; takes subscriptions back and renews them.
void fetch_meanwhile(const UriInfo& row);
void resubscribe_meanwhile(const UriInfo& row);
