// Writes the description that tools read: every URI, item type, field kind and result code, from the plugin's tables.
#include "tv_ctrl_api/describe.h"

#include <stdlib.h>
#include <string.h>

#include <algorithm>
#include <iterator>

#include "tv_ctrl_api/request.h"
#include "tv_ctrl_main/dispatch.h"
#include "tv_ctrl_main/registry.h"
#include "tv_ctrl_util/number.h"

// The rows hold their texts as arrays: an address of each would be one more relocation.
struct KindRow {
  FieldKind kind;
  char name[16];
  char json[8];  // what a value is in JSON
  char help[56];
  char minimum[25] = "";  // of a number; a text, since not every one of 64 bits is exact as a double
  char maximum[25] = "";
};

static constexpr KindRow kKinds[] = {
    {FieldKind::kInt32, "int32", "number", "a whole number of 32 bits, with a sign", "-2147483648", "2147483647"},
    {FieldKind::kInt16, "int16", "number", "a whole number of 16 bits, with a sign", "-32768", "32767"},
    {FieldKind::kUint8, "uint8", "number", "a whole number of 8 bits", "0", "255"},
    {FieldKind::kUint16, "uint16", "number", "a whole number of 16 bits", "0", "65535"},
    {FieldKind::kUint32, "uint32", "number", "a whole number of 32 bits", "0", "4294967295"},
    {FieldKind::kInt64, "int64", "number", "a whole number of 64 bits, with a sign", "-9223372036854775808",
     "9223372036854775807"},
    {FieldKind::kUint64, "uint64", "number", "a whole number of 64 bits", "0", "18446744073709551615"},
    {FieldKind::kDouble, "double", "number", "any number", "-1.7976931348623157e+308", "1.7976931348623157e+308"},
    {FieldKind::kText, "text", "string", "a text; limit: its longest, in bytes"},
    {FieldKind::kUint8Array, "uint8_array", "array", "numbers of 8 bits; count: how many"},
    {FieldKind::kUint16Array, "uint16_array", "array", "numbers of 16 bits; count: how many"},
    {FieldKind::kInt32Array, "int32_array", "array", "numbers of 32 bits, with a sign; count: how many"},
    {FieldKind::kUint32Array, "uint32_array", "array", "numbers of 32 bits; count: how many"},
    {FieldKind::kObject, "object", "object", "an object; fields: its members"},
    {FieldKind::kConstant, "constant", "string", "always the same text; value: which"},
};

// Returns the row that describes a kind. Addresses are described as the widest number; 16-bit texts, names and
// allocated texts as texts.
static constexpr const KindRow* find_kind(FieldKind kind) {
  if (kind == FieldKind::kWord) kind = FieldKind::kUint64;
  if (kind == FieldKind::kMembers) kind = FieldKind::kObject;  // never described itself
  if (kind == FieldKind::kText16 || kind == FieldKind::kName || kind == FieldKind::kOwnedText) kind = FieldKind::kText;
  return std::ranges::find(kKinds, kind, &KindRow::kind);
}
static_assert(
    [] {
      for (UINT8 kind = 0; kind <= static_cast<UINT8>(FieldKind::kConstant); ++kind)
        if (find_kind(static_cast<FieldKind>(kind)) == std::end(kKinds)) return false;
      return true;
    }(),
    "every kind of field is described");

struct ResultRow {
  INT8 result;
  char name[28];
  char help[64];
};

static constexpr ResultRow kResults[] = {
#define TVC_STATUS(name, number, meaning) {number, #name, meaning},
#include "vex_tv_ctrl/status.def"
#undef TVC_STATUS
};

static void write_text_member(JsonText& json, const char* key, const char* text) {
  tvc_write_key(json, key);
  tvc_write_text(json, text);
}
static void write_number_member(JsonText& json, const char* key, INT64 number) {
  tvc_write_key(json, key);
  tvc_write_integer(json, number);
}
static void write_flag_member(JsonText& json, const char* key, bool flag) {
  tvc_write_key(json, key);
  tvc_write_boolean(json, flag);
}

// Describes one allowed value, written as "value" or "number=meaning". by_name: requests use the meaning as the value.
static void describe_value(JsonText& json, const char* text, bool by_name) {
  const char* const equals = strchr(text, '=');
  tvc_open_object(json);
  if (equals && by_name) {
    write_text_member(json, "value", equals + 1);
  } else if (equals) {
    write_number_member(json, "value", tvc_text_to_int32(text));
    write_text_member(json, "help", equals + 1);
  } else {
    write_text_member(json, "value", text);
  }
  tvc_close_object(json);
}

// Describes allowed values: texts one after the other, each with its terminator, up to an empty one; or a range.
static void describe_values(JsonText& json, const char* values, bool by_name = false) {
  if (const char* const dots = strstr(values, "..")) {
    tvc_write_key(json, "minimum");
    tvc_write_text(json, values, static_cast<std::size_t>(dots - values));
    write_text_member(json, "maximum", dots + 2);
    return;
  }
  tvc_write_key(json, "values");
  tvc_open_array(json);
  for (; *values; values += strlen(values) + 1) describe_value(json, values, by_name);
  tvc_close_array(json);
}

static void describe_fields(JsonText& json, std::span<const Field> fields, FieldUse use);

// Names the only URI in whose requests a field takes part.
static void describe_uri_of_field(JsonText& json, UINT16 id) {
  char uri[256];
  if (tv_ctrl_get_uri_by_id(id, uri) == VEXTVCTRLR_OK) write_text_member(json, "uri", uri);
}

// Writes the name that stands for a number in a list such as "1=Play\0" "2=Pause\0"; null for 0, which stands for a
// member that is not there; the number where it has no name.
static void write_named_number(JsonText& json, const char* values, INT32 number) {
  if (number == 0) return tvc_write_null(json);
  for (const char* value = values; *value; value += strlen(value) + 1)
    if (tvc_text_to_int32(value) == number) return tvc_write_text(json, strchr(value, '=') + 1);
  tvc_write_integer(json, number);
}

// The member without whose value a field is not there.
struct Condition {
  const char* key = nullptr;     // null: there is no condition
  const char* values = nullptr;  // its named values
  INT32 number = 0;              // number of the value; 0: the member itself is not there
};

static void describe_condition(JsonText& json, const Condition& condition) {
  tvc_write_key(json, "when");
  tvc_open_object(json);
  write_text_member(json, "key", condition.key);
  tvc_write_key(json, "value");
  write_named_number(json, condition.values, condition.number);
  tvc_close_object(json);
}

static void describe_field(JsonText& json, const Field& field, const Condition& condition = {}) {
  tvc_open_object(json);
  write_text_member(json, "key", field.key.data());
  write_text_member(json, "kind", find_kind(field.kind)->name);
  if (field.uri) describe_uri_of_field(json, field.uri);
  if (condition.key) describe_condition(json, condition);
  if (field.kind == FieldKind::kText) write_number_member(json, "limit", field.size - 1);
  if (const std::size_t size = tvc_element_size(field.kind))
    write_number_member(json, "count", static_cast<INT64>(field.size / size));
  if (field.unit) write_text_member(json, "unit", field.unit);
  if (field.values) describe_values(json, field.values, field.kind == FieldKind::kName);
  if (field.help) write_text_member(json, "help", field.help);
  if (field.kind == FieldKind::kConstant) write_text_member(json, "value", field.text);
  if (field.kind == FieldKind::kObject) {
    tvc_write_key(json, "fields");
    describe_fields(json, field.fields, kEverywhere);
  }
  tvc_close_object(json);
}

static bool takes_part(const Field& field, FieldUse use) { return use == kEverywhere || (field.use & use); }

// Returns whether one of these rows describes the same member. Several rows of one key are one member: their conditions
// decide which of them a record shows. They are two where they differ in kind, or belong to different URIs.
static bool is_described(std::span<const Field> rows, FieldUse use, const Field& field) {
  return std::ranges::any_of(rows, [&](const Field& row) {
    return takes_part(row, use) && row.key == field.key && row.uri == field.uri &&
           find_kind(row.kind) == find_kind(field.kind);
  });
}

static void describe_rows(JsonText& json, std::span<const Field> fields, FieldUse use, const Condition& condition);

// Describes the rows of a kMembers, each with the condition on which it takes part.
static void describe_members(JsonText& json, const Field& field, FieldUse use) {
  if (!field.choice) return describe_rows(json, field.fields, use, {.key = field.unless});
  for (const FieldCase& rows : field.choice->cases)
    describe_rows(json, field.fields.subspan(rows.first, rows.count), use,
                  {.key = field.choice->key, .values = field.choice->values, .number = rows.number});
}

// Describes each member once.
static void describe_rows(JsonText& json, std::span<const Field> fields, FieldUse use, const Condition& condition) {
  for (std::size_t i = 0; i < fields.size(); ++i) {
    if (!takes_part(fields[i], use)) continue;
    if (fields[i].kind == FieldKind::kMembers)
      describe_members(json, fields[i], use);
    else if (!is_described(fields.first(i), use, fields[i]))
      describe_field(json, fields[i], condition);
  }
}

static void describe_fields(JsonText& json, std::span<const Field> fields, FieldUse use) {
  tvc_open_array(json);
  describe_rows(json, fields, use, {});
  tvc_close_array(json);
}

static void describe_fields_or_null(JsonText& json, const ItemType& item, FieldUse use) {
  if (tvc_item_has(item, use))
    describe_fields(json, item.fields, use);
  else
    tvc_write_null(json);
}

// Describes the members that an item has in any of its forms.
static void describe_response(JsonText& json, const ItemType& item) {
  if (item.forms.empty()) return describe_fields_or_null(json, item, kResponse);
  tvc_open_array(json);
  for (std::size_t i = 0; i < item.forms.size(); ++i)
    for (const Field& field : item.forms[i].fields)
      if (std::ranges::none_of(item.forms.first(i),
                               [&](const ItemForm& before) { return is_described(before.fields, kEverywhere, field); }))
        describe_field(json, field);
  tvc_close_array(json);
}

// The request word of a type's sets, and the use of the fields that such a set decodes.
struct SetUse {
  const char* word;  // null: the type cannot be set
  FieldUse use;
};

static SetUse set_use(const ItemType& item) {
  if (item.type == TYPE_ACTION) return {kWordAction, 0};
  for (const SetUse candidate : {SetUse{kWordModify, kModify}, {kWordSet, kSet}, {kWordAssociate, kAssociate}})
    if (tvc_item_has(item, candidate.use)) return candidate;
  return {nullptr, 0};
}

static void describe_set(JsonText& json, const ItemType& item) {
  const SetUse set = set_use(item);
  if (!set.word) return tvc_write_null(json);
  tvc_open_object(json);
  write_text_member(json, "request", set.word);
  tvc_write_key(json, "fields");
  describe_fields(json, set.use ? item.fields : std::span<const Field>(), set.use);
  tvc_close_object(json);
}

static void describe_notify(JsonText& json, const ItemType& item) {
  const NotifyForm form = item.notify.form;
  if (form == NotifyForm::kNone) return tvc_write_null(json);
  const bool queued = form == NotifyForm::kQueued;
  tvc_open_object(json);
  write_text_member(json, "form", queued ? "queued" : "single");
  write_text_member(json, "member", form == NotifyForm::kSingleParameter ? "PARAMETER" : "ITEMS");
  tvc_write_key(json, "bound");
  if (queued)
    tvc_write_unsigned(json, item.notify.bound);
  else
    tvc_write_null(json);
  tvc_write_key(json, "fields");
  describe_fields(json, item.fields, kNotify);
  tvc_close_object(json);
}

void tvc_describe_type(JsonText& json, const ItemType& item) {
  tvc_open_object(json);
  tvc_write_key(json, "query");
  describe_fields_or_null(json, item, kQuery);
  tvc_write_key(json, "set");
  describe_set(json, item);
  tvc_write_key(json, "response");
  describe_response(json, item);
  if (tvc_item_has(item, kRoot)) {
    tvc_write_key(json, "root");
    describe_fields(json, item.fields, kRoot);
  }
  tvc_write_key(json, "notify");
  describe_notify(json, item);
  tvc_close_object(json);
}

// Describes the members that a request needs, written as "CH_ID NUMBER|NAME", as [["CH_ID"], ["NUMBER", "NAME"]].
static void describe_needs(JsonText& json, const char* key, const char* needs) {
  if (!*needs) return;
  tvc_write_key(json, key);
  tvc_open_array(json);
  tvc_open_array(json);
  while (true) {
    const std::size_t length = strcspn(needs, " |");
    tvc_write_text(json, needs, length);
    if (!needs[length]) break;
    if (needs[length] == ' ') {
      tvc_close_array(json);
      tvc_open_array(json);
    }
    needs += length + 1;
  }
  tvc_close_array(json);
  tvc_close_array(json);
}

// Lists the requests to a URI that are accepted without effect.
static void describe_without_effect(JsonText& json, bool get, bool set) {
  tvc_write_key(json, "without_effect");
  tvc_open_array(json);
  if (get) tvc_write_text(json, "get");
  if (set) tvc_write_text(json, "set");
  tvc_close_array(json);
}

static void describe_uri(JsonText& json, const TV_CTRL_URI_ID_MAP_T& row) {
  const ItemType* const item = tvc_item_type(row.ui1_type);
  const UriUse use = tvc_uri_use(row.ui2_id);
  // A set whose request word does not fit the type is refused before it reaches the handler.
  const Effect set = item && set_use(*item).word ? use.set : Effect::kRefused;
  const bool get_accepted = use.get == Effect::kAccepted, set_accepted = set == Effect::kAccepted;
  tvc_open_object(json);
  write_text_member(json, "uri", row.s_uri);
  write_number_member(json, "id", row.ui2_id);
  write_text_member(json, "group", tvc_group_name(tvc_group(row.ui2_id)));
  write_number_member(json, "record", tvc_record(row.ui2_id));
  write_text_member(json, "type", tvc_item_type_name(row.ui1_type));
  write_flag_member(json, "get", use.get == Effect::kServed);
  write_flag_member(json, "set", set == Effect::kServed);
  write_flag_member(json, "notify", use.notifies);
  if (get_accepted || set_accepted) describe_without_effect(json, get_accepted, set_accepted);
  describe_needs(json, "get_needs", use.get_needs);
  describe_needs(json, "set_needs", use.set_needs);
  if (*use.help) write_text_member(json, "help", use.help);
  if (*use.unit) write_text_member(json, "unit", use.unit);
  if (use.limit) write_number_member(json, "limit", use.limit);
  if (*use.values) describe_values(json, use.values);
  tvc_close_object(json);
}

static void describe_result(JsonText& json, const ResultRow& row) {
  tvc_open_object(json);
  write_number_member(json, "result", row.result);
  write_text_member(json, "name", row.name);
  write_text_member(json, "help", row.help);
  tvc_close_object(json);
}

static void describe_kind(JsonText& json, const KindRow& row) {
  tvc_open_object(json);
  write_text_member(json, "kind", row.name);
  write_text_member(json, "json", row.json);
  write_text_member(json, "help", row.help);
  if (*row.minimum) {
    write_text_member(json, "minimum", row.minimum);
    write_text_member(json, "maximum", row.maximum);
  }
  tvc_close_object(json);
}

static void describe_all(JsonText& json) {
  tvc_open_object(json);
  tvc_write_key(json, "uris");
  tvc_open_array(json);
  for (const TV_CTRL_URI_ID_MAP_T& row : tvc_registry()) describe_uri(json, row);
  tvc_close_array(json);
  tvc_write_key(json, "types");
  tvc_open_object(json);
  for (const ItemType* const item : tvc_item_types()) {
    tvc_write_key(json, tvc_item_type_name(item->type));
    tvc_describe_type(json, *item);
  }
  tvc_close_object(json);
  tvc_write_key(json, "kinds");
  tvc_open_array(json);
  for (const KindRow& row : kKinds) describe_kind(json, row);
  tvc_close_array(json);
  tvc_write_key(json, "results");
  tvc_open_array(json);
  for (const ResultRow& row : kResults) describe_result(json, row);
  tvc_close_array(json);
  tvc_close_object(json);
}

char* a_dtv_jsp_describe(void) {
  JsonText json;
  describe_all(json);
  if (tvc_finish_text(json)) return json.text;
  free(json.text);
  return nullptr;
}
