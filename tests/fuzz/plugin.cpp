#include "plugin.h"

#include <cjson/cJSON.h>
#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <memory>
#include <set>

#include "platform.h"
#include "tv_ctrl_api/request.h"

using Json = std::unique_ptr<cJSON, void (*)(cJSON*)>;

static Json parse(std::string_view text) {
  const std::string terminated(text);
  return {cJSON_ParseWithOpts(terminated.c_str(), nullptr, true), cJSON_Delete};
}

static const cJSON* member(const cJSON* object, const char* key) {
  return cJSON_GetObjectItemCaseSensitive(object, key);
}

static std::string member_text(const cJSON* object, const char* key) {
  const char* const text = cJSON_GetStringValue(member(object, key));
  return text ? text : "";
}

static std::size_t member_size(const cJSON* object, const char* key) {
  const cJSON* const number = member(object, key);
  return number ? static_cast<std::size_t>(number->valueint) : 0;
}

// --- Start and tables ---

// The JSON text of a value; empty for null, which is a missing member.
static std::string print(const cJSON* value) {
  if (!value || cJSON_IsNull(value)) return {};
  const std::unique_ptr<char, void (*)(void*)> text(cJSON_PrintUnformatted(value), cJSON_free);
  return text.get();
}

static std::vector<std::string> read_values(const cJSON* array) {
  std::vector<std::string> values;
  const cJSON* row;
  cJSON_ArrayForEach(row, array) values.push_back(print(member(row, "value")));
  return values;
}

static std::vector<FieldInfo> read_fields(const cJSON* array) {
  std::vector<FieldInfo> fields;
  const cJSON* field;
  cJSON_ArrayForEach(field, array) {
    fields.push_back({.key = member_text(field, "key"),
                      .kind = member_text(field, "kind"),
                      .uri = member_text(field, "uri"),
                      .limit = member_size(field, "limit"),
                      .count = member_size(field, "count"),
                      .values = read_values(member(field, "values")),
                      .selector = member_text(member(field, "when"), "key"),
                      .selected = print(member(member(field, "when"), "value")),
                      .fields = read_fields(member(field, "fields"))});
  }
  return fields;
}

// The description has the one set that a tool makes; a type may take several, which its table has.
static std::vector<SetInfo> read_sets(const cJSON* set, const ItemType& item) {
  std::vector<SetInfo> sets;
  if (const std::string word = member_text(set, "request"); !word.empty())
    sets.push_back({.word = word, .fields = read_fields(member(set, "fields"))});
  struct WordUse {
    const char* word;
    FieldUse use;
  };
  static constexpr WordUse kUses[] = {{kWordModify, kModify}, {kWordSet, kSet}, {kWordAssociate, kAssociate}};
  for (const WordUse& row : kUses) {
    const bool known = std::ranges::find(sets, row.word, &SetInfo::word) != sets.end();
    if (known || !tvc_item_has(item, row.use)) continue;
    std::vector<FieldInfo> fields;
    for (const Field& field : item.fields) {
      const std::size_t element_size = tvc_element_size(field.kind);
      if (field.use & row.use)
        fields.push_back({.key = std::string(field.key),
                          .kind = field.kind == FieldKind::kText ? "text" : "",
                          .uri = {},
                          .limit = field.size,
                          .count = element_size > 0 ? field.size / element_size : 0,
                          .values = {},
                          .selector = {},
                          .selected = {},
                          .fields = {}});
    }
    sets.push_back({.word = row.word, .fields = std::move(fields)});
  }
  return sets;
}

// The keys that an object of this use can have, in order. The description has each once; in an object, a key is at the
// place of the row whose condition holds.
static Keys read_keys(std::span<const Field> fields, FieldUse use) {
  Keys keys;
  for (const Field& field : fields) {
    if (use != kEverywhere && !(field.use & use)) continue;
    if (field.kind == FieldKind::kMembers)
      std::ranges::copy(read_keys(field.fields, use), std::back_inserter(keys));
    else
      keys.emplace_back(field.key);
  }
  return keys;
}

static std::vector<Keys> read_forms(const ItemType& item) {
  std::vector<Keys> forms;
  for (const ItemForm& form : item.forms) forms.push_back(read_keys(form.fields, kEverywhere));
  if (forms.empty() && tvc_item_has(item, kResponse)) forms.push_back(read_keys(item.fields, kResponse));
  return forms;
}

static TypeInfo read_type(const cJSON* type) {
  const auto items = tvc_item_types();
  const auto found = std::ranges::find_if(
      items, [type](const ItemType* row) { return strcmp(tvc_item_type_name(row->type), type->string) == 0; });
  require(found != items.end(), "a described type has a row", type->string);
  const ItemType& item = **found;
  const cJSON* const notify = member(type, "notify");
  return {.query = read_fields(member(type, "query")),
          .sets = read_sets(member(type, "set"), item),
          .root = read_keys(item.fields, kRoot),
          .forms = read_forms(item),
          .may_be_silent = item.has_response != nullptr,
          .notify = read_keys(item.fields, kNotify),
          .notify_member = member_text(notify, "member"),
          .queued = member_text(notify, "form") == "queued"};
}

// Whether a URI takes a get or a set, also one without effect.
static bool takes(const cJSON* row, const char* use) {
  if (cJSON_IsTrue(member(row, use))) return true;
  const cJSON* accepted;
  cJSON_ArrayForEach(accepted, member(row, "without_effect")) {
    if (strcmp(accepted->valuestring, use) == 0) return true;
  }
  return false;
}

static Tables read_tables() {
  char* const text = a_dtv_jsp_describe();
  require(text != nullptr, "the plugin describes itself");
  const Json root = parse(text);
  require(root != nullptr, "the description is JSON", text);
  free(text);

  Tables tables;
  const cJSON* row;
  cJSON_ArrayForEach(row, member(root.get(), "types")) tables.types[row->string] = read_type(row);
  cJSON_ArrayForEach(row, member(root.get(), "uris")) {
    const auto id = static_cast<UINT16>(member(row, "id")->valueint);
    const bool gets = takes(row, "get");
    const bool sets = takes(row, "set");
    // Even where no handler raises it: another part of the set may.
    const bool notifies =
        member_text(row, "group") == "WS_NFY" && !tables.types[member_text(row, "type")].notify_member.empty();
    if (gets || sets || notifies) tables.active.push_back(tables.uris.size());
    // A type that is not built yet has no description: it gets an empty one.
    tables.uris.push_back({.uri = member_text(row, "uri"),
                           .id = id,
                           .type = tv_ctrl_get_type_by_id(id),
                           .type_name = member_text(row, "type"),
                           .info = &tables.types[member_text(row, "type")],
                           .gets = gets,
                           .sets = sets,
                           .notifies = notifies});
  }
  require(!tables.active.empty(), "some URIs are served");
  std::map<int, std::vector<std::size_t>> by_group;
  std::map<std::string, std::vector<std::size_t>> by_type_name;
  for (const std::size_t i : tables.active) {
    by_group[tables.uris[i].id >> 8].push_back(i);
    by_type_name[tables.uris[i].type_name].push_back(i);
  }
  for (auto& [group, indices] : by_group) tables.related.push_back(std::move(indices));
  for (auto& [name, indices] : by_type_name) tables.related.push_back(std::move(indices));
  std::set<std::string> words = {kWordQuery};
  for (const auto& [name, type] : tables.types)
    for (const SetInfo& set : type.sets) words.insert(set.word);
  tables.words.assign(words.begin(), words.end());
  std::map<const TypeInfo*, std::vector<std::size_t>> by_type;
  for (std::size_t i = 0; i < tables.uris.size(); ++i) {
    const TypeInfo* const info = tables.uris[i].info;
    const bool built =
        !info->forms.empty() || !info->query.empty() || !info->sets.empty() || !info->notify_member.empty();
    by_type[built ? info : nullptr].push_back(i);
  }
  for (auto& [info, indices] : by_type) {
    if (info && !info->notify_member.empty()) tables.notifying.push_back(indices);
    tables.by_type.push_back(std::move(indices));
  }
  // The order must not depend on addresses: an input has to mean the same in every process.
  std::ranges::sort(tables.by_type);
  std::ranges::sort(tables.notifying);
  return tables;
}

static int wanted_log_level;

// Opens a made-up level file; every other file is opened as usual. Linked with --wrap=fopen.
extern "C" FILE* __real_fopen(const char* path, const char* mode);
extern "C" FILE* __wrap_fopen(const char* path, const char* mode);
FILE* __wrap_fopen(const char* path, const char* mode) {
  if (strcmp(path, "/3rd_rw/tvc_debug") != 0) return __real_fopen(path, mode);
  if (wanted_log_level == 0) return nullptr;  // no file, level 0
  static std::array<char, 32> line;
  const int length = snprintf(line.data(), line.size(), "log=%d\n", wanted_log_level);
  return fmemopen(line.data(), static_cast<std::size_t>(length), "r");
}

void plugin_log_level(int level) {
  if (level == vex_tvc_debug_level()) return;
  wanted_log_level = level;
  // The plugin reports the level on stderr, which is the fuzzer's own.
  const int null = open("/dev/null", O_WRONLY | O_CLOEXEC);
  const int kept = dup(STDERR_FILENO);
  dup2(null, STDERR_FILENO);
  vex_tvc_read_log_lvl();
  dup2(kept, STDERR_FILENO);
  close(kept);
  close(null);
  require(vex_tvc_debug_level() == level, "the log level is the one in the file");
}

static INT32 ask(const char* uri, const char* parameter) {
  const std::unique_ptr<char[]> buffer(new char[DTV_JSP_RESPONSE_MAX]);
  return a_dtv_jsp_get(uri, parameter, buffer.get());
}

// Requests that register callbacks: no input has to make them before a callback comes.
static void register_callbacks() {
  struct {
    const char* uri;
    const char* parameter;
    INT32 (*request)(const char* uri, const char* parameter);
  } static constexpr kRequests[] = {
      {"/tv/cbrowser/start_scan", R"({"PARAMETER":{"REQUEST":"MODIFY","VALUE":"/mnt"}})", a_dtv_jsp_set},
      {"/tv/cbrowser/dlna/dms_init", R"({"PARAMETER":{"REQUEST":"ACTION"}})", a_dtv_jsp_set},
      {"/tv/cbrowser/playback_init", R"({"PARAMETER":{"REQUEST":"QUERY","mediaPath":"/a","pvTag":1}})", ask},
      {"/tv/cbrowser/dlna/dmp_get_real_dev_id", R"({"PARAMETER":{"REQUEST":"QUERY","devId":1}})", ask},
      {"/tv/cbrowser/dlna/dmr_init", R"({"PARAMETER":{"REQUEST":"QUERY"}})", ask},
  };
  for (const auto& row : kRequests)
    require(row.request(row.uri, row.parameter) >= 0, "a request that registers a callback succeeds", row.uri);
}

const Tables& plugin_start() {
  static const Tables tables = [] {
    require(freopen("/dev/null", "w", stdout) != nullptr, "the log is silenced");
    platform_begin(std::string(1, '\0'));    // everything succeeds
    platform_mid_call(MidCall::kRaiseHere);  // and calls back as soon as a callback is registered
    a_dtv_jsp_init_res();
    a_dtv_jsp_init();
    // The host starts these as well.
    tv_ctrl_broadcast_init();
    tvc_ctrl_cec_detect_init();
    platform_answers(std::string(1, '\1'));  // as before, with handles that are not null
    register_callbacks();
    platform_keep();
    return read_tables();
  }();
  return tables;
}

const UriInfo* plugin_find(const Tables& tables, const char* uri) {
  static const auto index = [&tables] {
    std::map<std::string_view, const UriInfo*> rows;
    for (const UriInfo& row : tables.uris) rows.emplace(row.uri, &row);  // the first of equal ones stays
    return rows;
  }();
  const auto found = uri ? index.find(uri) : index.end();
  return found == index.end() ? nullptr : found->second;
}

// --- Checks ---

void require(bool holds, const char* what, std::string_view text) {
  if (holds) return;
  fprintf(stderr, "does not hold: %s\n  text: %.*s\n", what, static_cast<int>(text.size()), text.data());
  abort();
}

// Whether an object has exactly these members in this order.
static bool has_members(const cJSON* object, const Keys& keys) {
  if (!cJSON_IsObject(object)) return false;
  const cJSON* item = object->child;
  for (const std::string& key : keys) {
    if (!item || key != item->string) return false;
    item = item->next;
  }
  return item == nullptr;
}

// Whether an object has no other members than these, in this order; some may be left out.
static bool has_some_of(const cJSON* object, const Keys& keys) {
  if (!cJSON_IsObject(object)) return false;
  auto key = keys.begin();
  const cJSON* item;
  cJSON_ArrayForEach(item, object) {
    key = std::find(key, keys.end(), item->string);
    if (key == keys.end()) return false;
    ++key;
  }
  return true;
}

static bool all_have_some_of(const cJSON* items, const Keys& keys) {
  const cJSON* item;
  cJSON_ArrayForEach(item, items) {
    if (!has_some_of(item, keys)) return false;
  }
  return true;
}

std::size_t check_response(const UriInfo& row, INT32 ret, std::string_view text) {
  require(text.size() <= DTV_JSP_RESPONSE_MAX, "a response keeps to its limit", text);
  if (text.size() == DTV_JSP_RESPONSE_MAX) return 0;
  const Json root = parse(text);
  require(root != nullptr, "a response is JSON", text);
  Keys members = {"URI", "STATUS", "ITEMS"};
  members.insert(members.end() - 1, row.info->root.begin(), row.info->root.end());
  require(has_members(root.get(), members), "a response is URI, STATUS, the type's own members, ITEMS", text);
  require(member_text(root.get(), "URI") == row.uri, "a response names its URI", text);
  const cJSON* const status = member(root.get(), "STATUS");
  const cJSON* const items = member(root.get(), "ITEMS");
  require(cJSON_IsNumber(status) && cJSON_IsArray(items), "STATUS is a number, ITEMS an array", text);
  const std::vector<Keys>& forms = row.info->forms;
  if (forms.empty()) {
    require(status->valueint == 0 && cJSON_GetArraySize(items) == 1 && has_members(items->child, {}),
            "a type without a renderer has status 0 and an empty item", text);
    return 0;
  }
  require(status->valueint == ret, "STATUS is what the get returned", text);
  if (cJSON_GetArraySize(items) == 0) return forms.size();
  std::size_t found = forms.size();
  for (std::size_t form = 0; form < forms.size(); ++form) {
    const bool fewer = found == forms.size() || forms[form].size() < forms[found].size();
    if (fewer && all_have_some_of(items, forms[form])) found = form;
  }
  require(found < forms.size(), "items have known members", text);
  return found;
}

std::size_t check_notification(const UriInfo& row, std::string_view text) {
  const std::string& key = row.info->notify_member;
  require(!key.empty(), "only types that notify leave a text", text);
  const Json root = parse(text);
  require(root != nullptr, "a notification is JSON", text);
  require(has_members(root.get(), {"URI", "REQUEST", key}), "a notification is URI, REQUEST and its content", text);
  require(member_text(root.get(), "URI") == row.uri, "a notification names its URI", text);
  require(member_text(root.get(), "REQUEST") == "NOTIFY", "the request word is NOTIFY", text);
  const cJSON* const content = member(root.get(), key.c_str());
  if (key == "PARAMETER") {
    require(has_some_of(content, row.info->notify), "PARAMETER has known members", text);
    return 1;
  }
  const int count = cJSON_GetArraySize(content);
  require(cJSON_IsArray(content) && (row.info->queued ? count >= 1 : count == 1), "ITEMS has as many items as its form",
          text);
  require(all_have_some_of(content, row.info->notify), "items have known members", text);
  return static_cast<std::size_t>(count);
}

// --- URIs and listeners ---

Owned own_text(const std::string* text) { return {text ? strdup(text->c_str()) : nullptr, free}; }

static std::string damage_uri(Bytes& bytes, std::string text) {
  switch (take_below(bytes, 4)) {
    case 0:
      return text.substr(0, take_below(bytes, text.size()));
    case 1:
      return text + take_text(bytes);
    case 2:
      for (char& letter : text)
        if (letter >= 'a' && letter <= 'z' && take_chance(bytes, 4)) letter = static_cast<char>(letter - 'a' + 'A');
      return text;
    default:
      text[take_below(bytes, text.size())] = static_cast<char>(take_byte(bytes));
      return text;
  }
}

bool take_uri(Bytes& bytes, const Tables& tables, const std::vector<std::size_t>& active, std::string& ret_uri) {
  const std::uint8_t choice = take_byte(bytes);
  if (choice == 0xFF) return false;
  if (choice < 0x60 && !ret_uri.empty()) return true;
  const auto take_one_of = [&](const std::vector<std::size_t>& indices) {
    return tables.uris[indices[take_below(bytes, indices.size())]].uri;
  };
  if (choice < 0xA0)
    ret_uri = take_one_of(active);
  else if (choice < 0xE0)  // a few types have most of the URIs
    ret_uri = take_one_of(tables.by_type[take_below(bytes, tables.by_type.size())]);
  else if (choice < 0xF4)
    ret_uri = damage_uri(bytes, tables.uris[take_below(bytes, tables.uris.size())].uri);
  else if (choice < 0xFA)
    ret_uri = take_text(bytes);
  else  // around the length that is kept, which is 255
    ret_uri = std::string(250 + take_below(bytes, 16), static_cast<char>('a' + take_below(bytes, 2)));
  ret_uri = ret_uri.c_str();  // a text ends at its first NUL
  return true;
}

static constexpr std::size_t kKeptUri = 255;  // characters of a subscribed URI that are kept

void subscribe(Subscriptions& subscriptions, const char* uri) {
  require(a_dtv_jsp_add_listener_buffer(uri) == (uri ? 0 : -1), "a subscription fails only for null");
  if (!uri || !*uri) return;
  const std::string text = uri;
  std::vector<int>& counts = subscriptions.counts[text.substr(0, kKeptUri)];
  if (text.size() > kKeptUri || counts.empty())
    counts.push_back(1);
  else
    ++counts.back();
}

void unsubscribe(Subscriptions& subscriptions, const char* uri) {
  require(a_dtv_jsp_remove_listener_buffer(uri) == (uri ? 0 : -1), "an unsubscription fails only for null");
  const auto found = subscriptions.counts.find(uri ? uri : "");
  if (found == subscriptions.counts.end() || found->second.empty()) return;
  if (--found->second.back() == 0) found->second.pop_back();
}

bool is_subscribed(const Subscriptions& subscriptions, const char* uri) {
  const auto found = subscriptions.counts.find(uri ? uri : "");
  return found != subscriptions.counts.end() && !found->second.empty();
}

void subscribe_all(Subscriptions& subscriptions, const Tables& tables) {
  for (const UriInfo& row : tables.uris)
    if (row.notifies) subscribe(subscriptions, row.uri.c_str());
}

void unsubscribe_all(Subscriptions& subscriptions) {
  for (const auto& [uri, counts] : subscriptions.counts)
    while (is_subscribed(subscriptions, uri.c_str())) unsubscribe(subscriptions, uri.c_str());
  if (const char* const shared = subscriptions.shared.c_str(); *shared)
    for (char byte; a_dtv_jsp_get_listener_buffer(shared, &byte, 1) == 0;) a_dtv_jsp_remove_listener_buffer(shared);
}

static constexpr INT32 kWholeText = 20000;  // above every bound of a pending text
static constexpr char kUntouched = '\xA5';  // a fetched text does not have this byte

static INT32 take_length(Bytes& bytes) {
  static constexpr INT32 lengths[] = {kWholeText, kWholeText, kWholeText, 1, 10, 0, -1, INT32_MIN};
  const std::size_t choice = take_below(bytes, 10);
  return choice < std::size(lengths) ? lengths[choice] : take_byte(bytes);
}

// Fetches at most `length` bytes and checks the result.
static Fetched fetch(const Tables& tables, const Subscriptions& subscriptions, const char* uri, INT32 length,
                     bool no_buffer) {
  const std::size_t size = length > 0 ? static_cast<std::size_t>(length) : 1;
  const std::unique_ptr<char[]> buffer(new char[size]);
  memset(buffer.get(), 0, size);
  if (length < 1) buffer[0] = kUntouched;
  const INT32 ret = a_dtv_jsp_get_listener_buffer(uri, no_buffer ? nullptr : buffer.get(), length);
  bool valid = !no_buffer && length > 0 && is_subscribed(subscriptions, uri);
  if (uri && subscriptions.shared == uri) valid = ret == 0;
  require(ret == (valid ? 0 : -1), "a fetch succeeds for subscribed URIs", uri ? uri : "");
  if (!valid) {
    require(buffer[0] == (length < 1 ? kUntouched : '\0'), "a failed fetch writes nothing");
    return {};
  }
  const std::size_t end = strnlen(buffer.get(), size);
  if (end == 0 || end == size) return {.subscribed = true, .came = end > 0};
  const UriInfo* const row = plugin_find(tables, uri);
  require(row != nullptr, "only registered URIs have a text", {buffer.get(), end});
  return {.subscribed = true, .came = true, .items = check_notification(*row, {buffer.get(), end})};
}

Fetched fetch(Bytes& bytes, const Tables& tables, const Subscriptions& subscriptions, const char* uri) {
  const INT32 length = take_length(bytes);
  return fetch(tables, subscriptions, uri, length, take_chance(bytes, 32));
}

void fetch_all(const Tables& tables, const Subscriptions& subscriptions) {
  for (const UriInfo& row : tables.uris)
    if (row.notifies && is_subscribed(subscriptions, row.uri.c_str()))
      fetch(tables, subscriptions, row.uri.c_str(), kWholeText, false);
}

void fetch_meanwhile(const UriInfo& row) {
  const std::unique_ptr<char[]> buffer(new char[kWholeText]);
  for (int i = 0; i < 4; ++i) {
    memset(buffer.get(), 0, kWholeText);
    a_dtv_jsp_get_listener_buffer(row.uri.c_str(), buffer.get(), kWholeText);
    const std::size_t end = strnlen(buffer.get(), kWholeText);
    if (end > 0 && end < kWholeText) check_notification(row, {buffer.get(), end});
  }
}

void resubscribe_meanwhile(const UriInfo& row) {
  for (int i = 0; i < 8; ++i) {
    a_dtv_jsp_remove_listener_buffer(row.uri.c_str());
    a_dtv_jsp_add_listener_buffer(row.uri.c_str());
  }
}
