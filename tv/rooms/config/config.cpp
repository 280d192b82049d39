// The configuration store. Its values are listed in catalogue.def; each applies to all inputs of the set. The argument
// update_flag of a write has no effect, since each room reads the values that it needs when it needs them.
//
// A text that is read as a number is the number that it begins with, 0 if it begins with none. Item 0x07240005 looks a
// key up: the buffer contains the key, followed by a NUL or by bytes of 1, and receives the value as text.
#include "rooms/config/config.h"

#include <algorithm>
#include <array>
#include <boost/json.hpp>
#include <charconv>
#include <climits>
#include <cstdio>
#include <cstring>
#include <mutex>
#include <vector>

#include "base/text.h"
#include "core/events.h"
#include "core/reply.h"
#include "core/room.h"
#include "core/store.h"
#include "rooms/clock/clock.h"
#include "rooms/config/entries.h"
#include "rooms/tuner/tuner.h"

namespace {

struct Value {
  INT32 number = 0;
  std::string text;
  bool operator==(const Value&) const = default;
};

struct Change {
  const ConfigEntry* entry;
  Value value;
};

struct State {
  std::mutex changing;  // serializes changes, including their writes to the disk; taken before the lock
  std::mutex lock;      // guards all members below; never held during a write to the disk, so that reads do not wait
  std::array<Value, kConfigCount> values;      // changed under both locks
  std::array<UINT32, kConfigCount> changes{};  // how often each has changed
  std::array<bool, kConfigCount> watched{};
  a_vextvapi_config_nfy_fct callback = nullptr;
  void* callback_tag = nullptr;
};

Value factory_of(const ConfigEntry& entry) {
  return {.number = entry.factory, .text = entry.kind == ConfigKind::kText ? entry.text : ""};
}

// Never destroyed: other threads may still use it when the process exits.
State& state = *[] {
  auto* const made = new State;
  std::ranges::transform(kConfigEntries, made->values.begin(), factory_of);
  return made;
}();

std::size_t index_of(const ConfigEntry& entry) { return static_cast<std::size_t>(&entry - kConfigEntries); }

Value value_of(const ConfigEntry& entry) {
  const std::lock_guard guard(state.lock);
  return state.values[index_of(entry)];
}

INT32 number_of(const ConfigEntry& entry) {
  const std::lock_guard guard(state.lock);
  const Value& value = state.values[index_of(entry)];
  if (entry.kind != ConfigKind::kText) return value.number;
  INT32 number = 0;
  std::from_chars(value.text.data(), value.text.data() + value.text.size(), number);
  return number;
}

// The value as text: a code as its three letters, any other number in decimal.
std::string text_of(const ConfigEntry& entry, const Value& value) {
  if (entry.kind == ConfigKind::kText) return value.text;
  if (entry.kind != ConfigKind::kCode) return std::to_string(value.number);
  const auto bits = static_cast<UINT32>(value.number);
  return {static_cast<char>(bits >> 24), static_cast<char>(bits >> 16 & 0xFF), static_cast<char>(bits >> 8 & 0xFF)};
}

// ---- Accepted values ----

std::string item_name(UINT32 item) {
  char text[sizeof "0x00000000"];
  std::snprintf(text, sizeof text, "0x%08X", item);
  return text;
}

std::string what_it_takes(const ConfigEntry& entry) {
  switch (entry.kind) {
    case ConfigKind::kBool:
      return "0 or 1";
    case ConfigKind::kCode:
      return "three letters";
    case ConfigKind::kText:
      return "a text of at most " + std::to_string(entry.longest) + " bytes in UTF-8";
    default:
      return "a number from " + std::to_string(entry.minimum) + " to " + std::to_string(entry.maximum);
  }
}

bool is_letter(char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); }

bool takes(const ConfigEntry& entry, const Value& value) {
  if (entry.kind == ConfigKind::kText) return value.text.size() <= entry.longest && store_is_text(value.text);
  if (entry.kind == ConfigKind::kCode && !std::ranges::all_of(text_of(entry, value), is_letter)) return false;
  return value.number >= entry.minimum && value.number <= entry.maximum;
}

const ConfigEntry* entry_of(std::string_view key) {
  const ConfigEntry* const found =
      std::lower_bound(std::begin(kConfigEntries), std::end(kConfigEntries), key,
                       [](const ConfigEntry& entry, std::string_view k) { return entry.key < k; });
  return found != std::end(kConfigEntries) && found->key == key ? found : nullptr;
}

const ConfigEntry* entry_of(UINT32 item) {
  const ConfigEntry* const found = std::ranges::find(kConfigEntries, item, &ConfigEntry::item);
  return item != 0 && found != std::end(kConfigEntries) ? found : nullptr;
}

// These return the entry that a call names. If there is none, they report that on stderr and return null.
const ConfigEntry* find_or_refuse(const char* function, const char* key) {
  const ConfigEntry* const found = key == nullptr ? nullptr : entry_of(key);
  if (found == nullptr) refuse_call(function, "there is no key " + quoted(key == nullptr ? "" : key));
  return found;
}

const ConfigEntry* find_or_refuse(const char* function, INT32 input_group, const char* key) {
  if (input_group == VEXTVAPI_CONFIG_EVERY_INPUT) return find_or_refuse(function, key);
  refuse_call(function, "input " + std::to_string(input_group) + " has no values of its own; -1 is the set");
  return nullptr;
}

const ConfigEntry* find_or_refuse(const char* function, UINT32 item) {
  const ConfigEntry* const found = entry_of(item);
  if (found == nullptr) refuse_call(function, "there is no item " + item_name(item));
  return found;
}

const ConfigEntry* find_or_refuse(const char* function, UINT32 item, ConfigKind kind) {
  const ConfigEntry* const found = find_or_refuse(function, item);
  if (found == nullptr || found->kind == kind) return found;
  const auto name = [](ConfigKind each) { return std::string(kConfigKindNames[static_cast<int>(each)]); };
  refuse_call(function, std::string(found->key) + " is of kind " + name(found->kind) + ", not " + name(kind));
  return nullptr;
}

// ---- Changes ----

void post_change(const ConfigEntry& entry, a_vextvapi_config_nfy_fct callback, void* tag) {
  events_post([&entry, callback, tag] {
    VEXTVAPI_CFG_VAL_CHG_NFY_DATA_T change{};
    std::memcpy(change.s_cfg, entry.key, std::min(std::strlen(entry.key), sizeof change.s_cfg - 1));
    callback(VEXTVAPI_CONFIG_NFY_VALUE_CHANGED, tag, nullptr, &change, nullptr, nullptr);
  });
}

// Whether local time depends on the value.
bool is_of_the_zone(const ConfigEntry& entry) {
  const std::string_view key(entry.key);
  return key == "g_time__tz_name" || key == "g_time__dst";
}

// Whether the value decides what a viewer may see.
bool is_of_the_locks(const ConfigEntry& entry) {
  const std::string_view key(entry.key);
  return key == "g_misc__parental_age" || key.starts_with("g_rating__");
}

// Stores the values that differ from the current ones, all or none, then posts the callbacks for them. The caller holds
// state.changing.
INT32 change(std::vector<Change> wanted) {
  std::erase_if(wanted, [](const Change& each) { return each.value == state.values[index_of(*each.entry)]; });
  if (wanted.empty()) return 0;
  std::vector<SettingValue> kept;
  for (const Change& each : wanted) {
    kept.push_back({.key = each.entry->key, .value = static_cast<std::int64_t>(each.value.number)});
    if (each.entry->kind == ConfigKind::kText) kept.back().value = std::string_view(each.value.text);
  }
  if (!store_write(kept)) return -1;
  const std::lock_guard guard(state.lock);
  for (Change& each : wanted) {
    const std::size_t index = index_of(*each.entry);
    state.values[index] = std::move(each.value);
    ++state.changes[index];
    if (state.callback != nullptr && state.watched[index]) post_change(*each.entry, state.callback, state.callback_tag);
  }
  const auto concerns = [&](bool (*is_of)(const ConfigEntry&)) {
    return std::ranges::any_of(wanted, [is_of](const Change& each) { return is_of(*each.entry); });
  };
  if (concerns(is_of_the_zone)) clock_zone_changed();
  if (concerns(is_of_the_locks)) tuner_look();
  return 0;
}

std::vector<Change> defaults_of(std::string_view prefix) {
  std::vector<Change> changes;
  for (const ConfigEntry& entry : kConfigEntries)
    if (std::string_view(entry.key).starts_with(prefix)) changes.push_back({&entry, factory_of(entry)});
  return changes;
}

INT32 trigger(const ConfigEntry& action) {
  const std::lock_guard guard(state.changing);
  std::vector<Change> changes;
  if (*action.text != '\0') changes = defaults_of(action.text);
  std::erase_if(changes, [&](const Change& each) { return each.entry == &action; });
  const INT32 times = state.values[index_of(action)].number;
  changes.push_back({&action, {.number = times < action.maximum ? times + 1 : 1, .text = ""}});
  return change(std::move(changes));
}

INT32 write(const char* function, const ConfigEntry& entry, Value value) {
  if (entry.kind == ConfigKind::kAction) return trigger(entry);
  if (!takes(entry, value)) {
    const bool text = entry.kind == ConfigKind::kText;
    return refuse_call(function,
                       std::string(entry.key) + " takes " + what_it_takes(entry) + ", not " +
                           (text ? "these " + std::to_string(value.text.size()) : std::to_string(value.number)));
  }
  const std::lock_guard guard(state.changing);
  return change({{&entry, std::move(value)}});
}

INT32 write_number(const char* function, const ConfigEntry& entry, INT32 number) {
  if (entry.kind == ConfigKind::kText)
    return refuse_call(function, std::string(entry.key) + " is a text, not a number");
  return write(function, entry, {.number = number, .text = ""});
}

// Fails without an entry, or without an address for the result.
template <typename Number>
INT32 read_number(const ConfigEntry* entry, Number* ret_value) {
  if (entry == nullptr || ret_value == nullptr) return -1;
  *ret_value = static_cast<Number>(number_of(*entry));
  return 0;
}

// length: in, the buffer's size including the terminator; out, the text's length.
INT32 give_text(const char* function, const ConfigEntry& entry, const std::string& text, UINT32* length,
                char* ret_value) {
  if (length == nullptr || ret_value == nullptr) return -1;
  if (text.size() >= *length) {
    return refuse_call(function, std::string(entry.key) + " has " + std::to_string(text.size()) +
                                     " bytes and a terminator; there is room for " + std::to_string(*length));
  }
  std::memcpy(ret_value, text.c_str(), text.size() + 1);
  *length = static_cast<UINT32>(text.size());
  return 0;
}

INT32 look_up(const char* function, UINT32* length, char* value) {
  if (length == nullptr || value == nullptr) return -1;
  const std::string_view given(value, strnlen(value, *length));
  const std::string key(given.substr(0, given.find('\1')));
  const ConfigEntry* const entry = find_or_refuse(function, key.c_str());
  return entry == nullptr ? -1 : give_text(function, *entry, text_of(*entry, value_of(*entry)), length, value);
}

// ---- The control command ----

boost::json::value shown(const ConfigEntry& entry, const Value& value) {
  if (entry.kind == ConfigKind::kBool) return value.number != 0;
  if (entry.kind == ConfigKind::kCode || entry.kind == ConfigKind::kText)
    return boost::json::value(text_of(entry, value));
  return value.number;
}

boost::json::object list(std::string_view word) {
  boost::json::object answer;
  const std::lock_guard guard(state.lock);
  for (const ConfigEntry& entry : kConfigEntries)
    if (contains_ignoring_case(entry.key, word) || contains_ignoring_case(entry.help, word) ||
        contains_ignoring_case(entry.names, word))
      answer[entry.key] = shown(entry, state.values[index_of(entry)]);
  return answer;
}

std::vector<std::string_view> names_of(const ConfigEntry& entry) {
  std::vector<std::string_view> names;
  for (std::string_view rest = entry.names; !rest.empty();) {
    const std::size_t end = std::min(rest.find(kConfigNameEnd), rest.size());
    names.push_back(rest.substr(0, end));
    rest.remove_prefix(std::min(end + kConfigNameEnd.size(), rest.size()));
  }
  return names;
}

boost::json::object describe(const ConfigEntry& entry) {
  boost::json::object answer{{"key", entry.key},
                             {"item", entry.item == 0 ? "" : item_name(entry.item)},
                             {"kind", kConfigKindNames[static_cast<int>(entry.kind)]},
                             {"value", shown(entry, value_of(entry))},
                             {"default", shown(entry, factory_of(entry))}};
  if (entry.kind == ConfigKind::kNumber) {
    answer["minimum"] = entry.minimum;
    answer["maximum"] = entry.maximum;
  } else if (entry.kind == ConfigKind::kText) {
    answer["longest"] = entry.longest;
  }
  answer["help"] = entry.help;
  boost::json::object values;
  const std::vector<std::string_view> names = names_of(entry);
  for (std::size_t value = 0; value < names.size(); ++value) values[std::to_string(value)] = names[value];
  if (!values.empty()) answer["values"] = std::move(values);
  return answer;
}

// Returns the entry that a viewer names by its key, or by its item id as 0x07...; null if there is none.
const ConfigEntry* named(std::string_view name) {
  const auto item = name.starts_with("0x") ? parse_number<UINT32>(name.substr(2), 16) : std::nullopt;
  return item ? entry_of(*item) : entry_of(name);
}

std::string viewer_words(const ConfigEntry& entry) {
  if (entry.kind == ConfigKind::kBool) return "on or off";
  if (entry.kind == ConfigKind::kAction) return "trigger";
  return what_it_takes(entry) + (*entry.names != '\0' ? std::string(" or one of: ") + entry.names : "");
}

// Parses the word that a viewer has entered for a value of the entry's kind.
bool parse(const ConfigEntry& entry, std::string_view word, Value& ret_value) {
  Value value;
  switch (entry.kind) {
    case ConfigKind::kBool:
      value.number = word == "on" || word == "true" || word == "1" ? 1 : 0;
      if (value.number == 0 && word != "off" && word != "false" && word != "0") return false;
      break;
    case ConfigKind::kCode:
      if (word.size() != 3 || !std::ranges::all_of(word, is_letter)) return false;
      for (const char letter : word) value.text += static_cast<char>(letter | 0x20);
      value = {.number = code_of(value.text), .text = ""};
      break;
    case ConfigKind::kText:
      value.text = word;
      break;
    case ConfigKind::kAction:
      if (word != "trigger") return false;
      break;
    case ConfigKind::kNumber: {
      const std::vector<std::string_view> names = names_of(entry);
      const auto name = std::ranges::find(names, word);
      const auto number = name == names.end() ? parse_number<INT32>(word) : static_cast<INT32>(name - names.begin());
      if (!number) return false;
      value.number = *number;
    }
  }
  if (!takes(entry, value)) return false;
  ret_value = std::move(value);
  return true;
}

// Finds the room's item, or refuses the call and returns null.
const StructItem* struct_item(const char* function, UINT32 id, UINT32 length) {
  for (const Room* const room : rooms()) {
    const auto item = std::ranges::find(room->items, id, &StructItem::id);
    if (item == room->items.end()) continue;
    if (item->length == length) return &*item;
    refuse_call(function, "item " + std::to_string(id) + " has " + std::to_string(item->length) + " bytes, not " +
                              std::to_string(length));
    return nullptr;
  }
  refuse_call(function, "no room has the structured item " + std::to_string(id));
  return nullptr;
}

}  // namespace

INT32 a_vextvapi_config_get_value(INT32 input_group, const char* key, INT32* value) {
  return read_number(find_or_refuse(__func__, input_group, key), value);
}

INT32 a_vextvapi_config_set_value(INT32 input_group, const char* key, INT32 value, INT32) {
  const ConfigEntry* const entry = find_or_refuse(__func__, input_group, key);
  return entry == nullptr ? -1 : write_number(__func__, *entry, value);
}

INT32 a_vextvapi_config_get_str_value(const char* key, char* value, UINT32* length) {
  const ConfigEntry* const entry = find_or_refuse(__func__, key);
  if (entry == nullptr) return -1;
  if (entry->kind != ConfigKind::kText)
    return refuse_call(__func__, std::string(entry->key) + " is a number, not a text");
  return give_text(__func__, *entry, value_of(*entry).text, length, value);
}

INT32 a_vextvapi_config_set_str_value(const char* key, const char* value) {
  const ConfigEntry* const entry = find_or_refuse(__func__, key);
  if (entry == nullptr || value == nullptr) return -1;
  if (entry->kind != ConfigKind::kText)
    return refuse_call(__func__, std::string(entry->key) + " is a number, not a text");
  return write(__func__, *entry, {.number = 0, .text = value});
}

INT32 a_vextvapi_config_get_minmaxvalue(INT32 input_group, const char* key, INT32* limits) {
  const ConfigEntry* const entry = find_or_refuse(__func__, input_group, key);
  if (entry == nullptr || limits == nullptr) return -1;
  const bool limited = entry->kind == ConfigKind::kBool || entry->kind == ConfigKind::kNumber;
  if (!limited || entry->minimum < INT16_MIN || entry->maximum > INT16_MAX) return 1;
  const auto half = [](INT32 number) { return static_cast<UINT32>(static_cast<UINT16>(number)); };
  *limits = static_cast<INT32>(half(entry->maximum) << 16 | half(entry->minimum));
  return 0;
}

INT32 a_vextvapi_config_add_value_changed_callback(const char* key) {
  const ConfigEntry* const entry = find_or_refuse(__func__, key);
  if (entry == nullptr) return -1;
  const std::lock_guard guard(state.lock);
  state.watched[index_of(*entry)] = true;
  return 0;
}

INT32 a_vextvapi_config_reg_callback(a_vextvapi_config_nfy_fct callback, void* tag) {
  const std::lock_guard guard(state.lock);
  state.callback = callback;
  state.callback_tag = tag;
  return 0;
}

INT32 getConfigValueBool(UINT32 item_id, UINT8* value) {
  return read_number(find_or_refuse(__func__, item_id, ConfigKind::kBool), value);
}

INT32 getConfigValueInt32(UINT32 item_id, INT32* value) {
  return read_number(find_or_refuse(__func__, item_id), value);
}

INT32 getConfigValueString(UINT32 item_id, UINT32* length, char* value) {
  if (item_id == VEXTVAPI_CONFIG_ITEM_LOOK_UP) return look_up(__func__, length, value);
  const ConfigEntry* const entry = find_or_refuse(__func__, item_id, ConfigKind::kText);
  return entry == nullptr ? -1 : give_text(__func__, *entry, value_of(*entry).text, length, value);
}

INT32 setConfigValue(UINT32 item_id) {
  const ConfigEntry* const entry = find_or_refuse(__func__, item_id, ConfigKind::kAction);
  return entry == nullptr ? -1 : trigger(*entry);
}

INT32 setConfigValueBool(UINT32 item_id, UINT8 value) {
  const ConfigEntry* const entry = find_or_refuse(__func__, item_id, ConfigKind::kBool);
  return entry == nullptr ? -1 : write_number(__func__, *entry, value);
}

INT32 setConfigValueInt32(UINT32 item_id, INT32 value) {
  const ConfigEntry* const entry = find_or_refuse(__func__, item_id);
  return entry == nullptr ? -1 : write_number(__func__, *entry, value);
}

INT32 setConfigValueString(UINT32 item_id, const char* value) {
  const ConfigEntry* const entry = find_or_refuse(__func__, item_id, ConfigKind::kText);
  return entry == nullptr || value == nullptr ? -1 : write(__func__, *entry, {.number = 0, .text = value});
}

INT32 getConfigValueStruct(UINT32 item_id, UINT32* length, void* value) {
  if (length == nullptr || value == nullptr) return -1;
  const StructItem* const item = struct_item(__func__, item_id, *length);
  return item == nullptr ? -1 : item->read(value);
}

INT32 setConfigValueStruct(UINT32 item_id, UINT32 length, const void* value) {
  if (value == nullptr) return -1;
  const StructItem* const item = struct_item(__func__, item_id, length);
  if (item == nullptr) return -1;
  if (item->write == nullptr) return refuse_call(__func__, "item " + std::to_string(item_id) + " is only read");
  return item->write(value);
}

INT32 config_number(const char* key) {
  const ConfigEntry* const entry = find_or_refuse(__func__, key);
  return entry == nullptr ? 0 : number_of(*entry);
}

std::string config_text(const char* key) {
  const ConfigEntry* const entry = find_or_refuse(__func__, key);
  return entry == nullptr ? "" : text_of(*entry, value_of(*entry));
}

INT32 config_set(const char* key, INT32 value) {
  const ConfigEntry* const entry = find_or_refuse(__func__, key);
  return entry == nullptr ? -1 : write_number(__func__, *entry, value);
}

INT32 config_set(const char* key, std::string_view value) {
  const ConfigEntry* const entry = find_or_refuse(__func__, key);
  if (entry == nullptr) return -1;
  return write(__func__, *entry, {.number = 0, .text = std::string(value)});
}

UINT32 config_changes(const char* key) {
  const ConfigEntry* const entry = find_or_refuse(__func__, key);
  const std::lock_guard guard(state.lock);
  return entry == nullptr ? 0 : state.changes[index_of(*entry)];
}

namespace {

void load() {
  const std::scoped_lock guard(state.changing, state.lock);
  for (const ConfigEntry& entry : kConfigEntries) {
    Value& value = state.values[index_of(entry)] = {};
    if (entry.kind == ConfigKind::kText) {
      value.text = store_read(TextSetting{entry.key, entry.text, entry.longest});
    } else {
      value.number = static_cast<INT32>(store_read(Setting{entry.key, entry.factory, entry.minimum, entry.maximum}));
    }
    if (entry.kind != ConfigKind::kCode || takes(entry, value)) continue;  // store_read has checked the other kinds
    value = factory_of(entry);
    std::fprintf(stderr, "dtv_tv: the stored %s is not three letters; using %s\n", entry.key,
                 text_of(entry, value).c_str());
  }
  // Listeners register again each time the set is switched on.
  state.watched = {};
  state.callback = nullptr;
}

bool reset() {
  const std::lock_guard guard(state.changing);
  return change(defaults_of("")) == 0;
}

// Reports only the values that differ from a new set's; "config" lists all.
void report(boost::json::object& answer) {
  boost::json::object changed;
  const std::lock_guard guard(state.lock);
  for (const ConfigEntry& entry : kConfigEntries) {
    const Value& value = state.values[index_of(entry)];
    if (value != factory_of(entry)) changed[entry.key] = shown(entry, value);
  }
  if (!changed.empty()) answer["config"] = std::move(changed);
}

boost::json::object config_command(Arguments arguments) {
  const std::string_view name = arguments.empty() ? "" : arguments[0];
  const ConfigEntry* const entry = named(name);
  if (entry == nullptr) {
    boost::json::object found = arguments.size() < 2 ? list(name) : boost::json::object();
    if (!found.empty()) return found;
    return reply_error("there is no key " + quoted(name) + "; config without arguments lists them");
  }
  if (arguments.size() < 2) return describe(*entry);
  Value value;
  if (!parse(*entry, arguments[1], value)) {
    return reply_takes(entry->key, viewer_words(*entry), arguments[1]);
  }
  return write("config", *entry, std::move(value)) == 0 ? describe(*entry) : reply_not_kept();
}

constexpr Command kCommands[] = {
    {"config", "[WORD|KEY [VALUE]]", 2,
     "Lists all values, or those with WORD in their key or help; shows one value; changes it as the menu does",
     config_command},
};

}  // namespace

const Room room_config = {.commands = kCommands, .load = load, .reset = reset, .report = report};
