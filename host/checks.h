// Compares a request with what the plugin describes of its URI: says what the set refuses, ignores or bends. Only a
// hint: the request is passed to the plugin unchanged, which decides.
#pragma once

#include <boost/json/fwd.hpp>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "json_text.h"

// One of the values that a member accepts.
struct CheckValue {
  std::string value;  // JSON text
  std::string help;   // may be empty
};

// A member of a request. A member that the description does not limit has neither limits nor values.
struct CheckField {
  std::string key;
  JsonKind json = JsonKind::kNumber;
  bool whole = false;  // a number without fraction
  std::string minimum = {};
  std::string maximum = {};
  std::size_t limit = 0;  // of a text, in bytes; 0: none
  std::size_t count = 0;  // of an array; 0: none
  std::vector<CheckValue> values = {};
  std::string uri = {};  // the only URI whose requests read it; empty: all
  std::string help = {};
  std::string unit = {};
  std::vector<CheckField> fields = {};  // of an object
};

// What requests of an item type look like.
struct CheckType {
  std::string name;
  std::optional<std::vector<CheckField>> query;  // none: a get takes no parameter
  std::string word;                              // of a set; empty: it has none
  std::vector<CheckField> fields;                // of a set
};

// Members that a request needs: of each inner list, one.
using CheckNeeds = std::vector<std::vector<std::string>>;

// What requests to a URI do, as "dtv_js_plugin.h" describes it.
struct CheckUri {
  bool get = false;
  bool set = false;
  bool notifies = false;
  bool get_accepted = false;  // succeeds without effect
  bool set_accepted = false;
  std::string help = {};
  std::shared_ptr<const CheckType> type = {};  // null: the plugin describes none
  std::vector<CheckField> fields = {};         // of a set: the type's, with what the URI says of its value
  CheckNeeds get_needs = {};
  CheckNeeds set_needs = {};
};

using CheckUris = std::map<std::string, CheckUri, std::less<>>;

// Reads the plugin's description; what it does not describe is not checked. Throws an exception of Boost.JSON when a
// part of it has another form.
CheckUris checks_read(const boost::json::value& description);

struct Finding {
  std::string text;  // what is wrong, and what would be right
  bool refused;      // the set refuses it; else it succeeds and does less or something else
};

// The most findings that a reply has for one request.
inline constexpr std::size_t kMostFindings = 8;

// Each compares one request. parameter: JSON text of the object, empty for none.
std::vector<Finding> check_get(const CheckUri& row, std::string_view uri, std::string_view parameter);
std::vector<Finding> check_set(const CheckUri& row, std::string_view uri, std::string_view parameter);

// An example of a get's or a set's parameter, such as {"REQUEST":"MODIFY","VALUE":0}; empty if the URI takes none.
std::string check_example(const CheckUri& row, std::string_view uri, bool get);
