// Describes the registry and the item types, from their tables.
#include <string.h>

#include <algorithm>
#include <iterator>

#include "tv_ctrl_api/item_types.h"
#include "tv_ctrl_api/request.h"
#include "tv_ctrl_main/dispatch.h"
#include "tv_ctrl_main/registry.h"
#include "tv_ctrl_util/number.h"

// A row holds its texts as arrays, not as addresses, which the loader would have to patch.
struct KindRow {
  FieldKind kind;
  char name[16];
  char json[8];  // what a value is in JSON
  char help[56];
  char minimum[24] = "";  // of a number; a text, since not every one of 64 bits is exact as a double
  char maximum[24] = "";
};

static constexpr KindRow kinds[] = {
    {FieldKind::kInt32, "int32", "number", "a whole number of 32 bits, with a sign", "-2147483648", "2147483647"},
    {FieldKind::kUint8, "uint8", "number", "a whole number of 8 bits", "0", "255"},
    {FieldKind::kUint16, "uint16", "number", "a whole number of 16 bits", "0", "65535"},
    {FieldKind::kUint32, "uint32", "number", "a whole number of 32 bits", "0", "4294967295"},
    {FieldKind::kInt64, "int64", "number", "a whole number of 64 bits, with a sign", "-9223372036854775808",
     "9223372036854775807"},
    {FieldKind::kUint64, "uint64", "number", "a whole number of 64 bits", "0", "18446744073709551615"},
    {FieldKind::kText, "text", "string", "a text; limit: its longest, in bytes"},
    {FieldKind::kUint8Array, "uint8_array", "array", "numbers of 8 bits; count: how many"},
    {FieldKind::kUint32Array, "uint32_array", "array", "numbers of 32 bits; count: how many"},
    {FieldKind::kObject, "object", "object", "an object; fields: its members"},
    {FieldKind::kConstant, "constant", "string", "always the same text; value: which"},
};

// An address is described as the widest number, and a text of 16-bit units as a text.
static constexpr const KindRow* find_kind(FieldKind kind) {
  if (kind == FieldKind::kWord) kind = FieldKind::kUint64;
  if (kind == FieldKind::kText16) kind = FieldKind::kText;
  return std::ranges::find(kinds, kind, &KindRow::kind);
}
static_assert(
    [] {
      for (UINT8 kind = 0; kind <= static_cast<UINT8>(FieldKind::kConstant); ++kind)
        if (find_kind(static_cast<FieldKind>(kind)) == std::end(kinds)) return false;
      return true;
    }(),
    "every kind of field is described");

struct ResultRow {
  INT8 result;
  char name[28];
  char help[64];
};

static constexpr ResultRow results[] = {
#define TVC_STATUS(name, number, meaning) {number, #name, meaning},
#include "vex_tv_ctrl/status.def"
#undef TVC_STATUS
};

// The object when everything was added to it; else null, and it is deleted.
static cJSON* whole(cJSON* object, bool added_all) {
  if (object && added_all) return object;
  cJSON_Delete(object);
  return nullptr;
}

static bool append(cJSON* array, cJSON* value) {
  if (cJSON_AddItemToArray(array, value)) return true;
  cJSON_Delete(value);
  return false;
}

// Every describe_ function returns null without memory.

static cJSON* describe_text(const char* text) { return cJSON_CreateStringReference(text); }

// A value that is written as "value", or as "number=meaning".
static cJSON* describe_value(const char* text) {
  const char* const equals = strchr(text, '=');
  cJSON* const object = cJSON_CreateObject();
  if (!equals) return whole(object, tvc_json_add(object, "value", describe_text(text)));
  return whole(object, tvc_json_add(object, "value", tvc_json_number(tvc_text_to_int32(text))) &&
                           tvc_json_add(object, "help", describe_text(equals + 1)));
}

// Values stand one after the other, each with its end; an empty one ends them.
static cJSON* describe_values(const char* values) {
  cJSON* const array = cJSON_CreateArray();
  bool added = true;
  for (; *values; values += strlen(values) + 1) added = added && append(array, describe_value(values));
  return whole(array, added);
}

static cJSON* describe_fields(std::span<const Field> fields, FieldUse use);

static cJSON* describe_field(const Field& field) {
  cJSON* const object = cJSON_CreateObject();
  bool added = tvc_json_add(object, "key", describe_text(field.key)) &&
               tvc_json_add(object, "kind", describe_text(find_kind(field.kind)->name));
  if (field.kind == FieldKind::kText) added = added && tvc_json_add(object, "limit", tvc_json_number(field.size - 1));
  if (field.kind == FieldKind::kUint8Array) added = added && tvc_json_add(object, "count", tvc_json_number(field.size));
  if (field.kind == FieldKind::kUint32Array)
    added = added && tvc_json_add(object, "count", tvc_json_number(field.size / sizeof(UINT32)));
  if (field.unit) added = added && tvc_json_add(object, "unit", describe_text(field.unit));
  if (field.values) added = added && tvc_json_add(object, "values", describe_values(field.values));
  if (field.help) added = added && tvc_json_add(object, "help", describe_text(field.help));
  if (field.kind == FieldKind::kConstant) added = added && tvc_json_add(object, "value", describe_text(field.text));
  if (field.kind == FieldKind::kObject)
    added = added && tvc_json_add(object, "fields", describe_fields(field.fields, kEverywhere));
  return whole(object, added);
}

static cJSON* describe_fields(std::span<const Field> fields, FieldUse use) {
  cJSON* const array = cJSON_CreateArray();
  bool added = true;
  for (const Field& field : fields)
    if (added && (use == kEverywhere || (field.use & use))) added = append(array, describe_field(field));
  return whole(array, added);
}

static cJSON* describe_fields_or_null(const ItemType& item, FieldUse use) {
  return tvc_item_has(item, use) ? describe_fields(item.fields, use) : cJSON_CreateNull();
}

// The request word that a set of this type takes, and the fields that it decodes.
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

static cJSON* describe_set(const ItemType& item) {
  const SetUse set = set_use(item);
  if (!set.word) return cJSON_CreateNull();
  cJSON* const object = cJSON_CreateObject();
  return whole(object, tvc_json_add(object, "request", describe_text(set.word)) &&
                           tvc_json_add(object, "fields",
                                        set.use ? describe_fields(item.fields, set.use) : cJSON_CreateArray()));
}

static cJSON* describe_notify(const ItemType& item) {
  const NotifyForm form = item.notify.form;
  if (form == NotifyForm::kNone) return cJSON_CreateNull();
  const bool queued = form == NotifyForm::kQueued;
  const bool in_parameter = form == NotifyForm::kSingleParameter;
  cJSON* const object = cJSON_CreateObject();
  return whole(object,
               tvc_json_add(object, "form", describe_text(queued ? "queued" : "single")) &&
                   tvc_json_add(object, "member", describe_text(in_parameter ? "PARAMETER" : "ITEMS")) &&
                   tvc_json_add(object, "bound", queued ? tvc_json_number(item.notify.bound) : cJSON_CreateNull()) &&
                   tvc_json_add(object, "fields", describe_fields(item.fields, kNotify)));
}

static cJSON* describe_type(const ItemType& item) {
  cJSON* const object = cJSON_CreateObject();
  return whole(object, tvc_json_add(object, "query", describe_fields_or_null(item, kQuery)) &&
                           tvc_json_add(object, "set", describe_set(item)) &&
                           tvc_json_add(object, "response", describe_fields_or_null(item, kResponse)) &&
                           tvc_json_add(object, "notify", describe_notify(item)));
}

// The uses of a URI that are accepted without effect.
static cJSON* describe_without_effect(bool get, bool set) {
  cJSON* const array = cJSON_CreateArray();
  return whole(array, (!get || append(array, describe_text("get"))) && (!set || append(array, describe_text("set"))));
}

static cJSON* describe_uri(const TV_CTRL_URI_ID_MAP_T& row) {
  const ItemType* const item = tvc_item_type(row.ui1_type);
  const UriUse use = tvc_uri_use(row.ui2_id);
  // A set whose word the type does not take ends before the handler.
  const Effect set = item && set_use(*item).word ? use.set : Effect::kRefused;
  const bool get_accepted = use.get == Effect::kAccepted, set_accepted = set == Effect::kAccepted;
  cJSON* const object = cJSON_CreateObject();
  bool added = tvc_json_add(object, "uri", describe_text(row.s_uri)) &&
               tvc_json_add(object, "id", tvc_json_number(row.ui2_id)) &&
               tvc_json_add(object, "group", describe_text(tvc_group_name(tvc_group(row.ui2_id)))) &&
               tvc_json_add(object, "record", tvc_json_number(tvc_record(row.ui2_id))) &&
               tvc_json_add(object, "type", describe_text(tvc_item_type_name(row.ui1_type))) &&
               tvc_json_add(object, "get", cJSON_CreateBool(use.get == Effect::kServed)) &&
               tvc_json_add(object, "set", cJSON_CreateBool(set == Effect::kServed)) &&
               tvc_json_add(object, "notify", cJSON_CreateBool(use.notifies));
  if (get_accepted || set_accepted)
    added = added && tvc_json_add(object, "without_effect", describe_without_effect(get_accepted, set_accepted));
  if (*use.help) added = added && tvc_json_add(object, "help", describe_text(use.help));
  if (*use.unit) added = added && tvc_json_add(object, "unit", describe_text(use.unit));
  if (*use.values) added = added && tvc_json_add(object, "values", describe_values(use.values));
  return whole(object, added);
}

static cJSON* describe_uris() {
  cJSON* const array = cJSON_CreateArray();
  bool added = true;
  for (const TV_CTRL_URI_ID_MAP_T& row : tvc_registry()) added = added && append(array, describe_uri(row));
  return whole(array, added);
}

static cJSON* describe_types() {
  cJSON* const object = cJSON_CreateObject();
  bool added = true;
  for (const ItemType& item : tvc_item_types())
    added = added && tvc_json_add(object, tvc_item_type_name(item.type), describe_type(item));
  return whole(object, added);
}

static cJSON* describe_result(const ResultRow& row) {
  cJSON* const object = cJSON_CreateObject();
  return whole(object, tvc_json_add(object, "result", tvc_json_number(row.result)) &&
                           tvc_json_add(object, "name", describe_text(row.name)) &&
                           tvc_json_add(object, "help", describe_text(row.help)));
}

static cJSON* describe_results() {
  cJSON* const array = cJSON_CreateArray();
  bool added = true;
  for (const ResultRow& row : results) added = added && append(array, describe_result(row));
  return whole(array, added);
}

static cJSON* describe_kind(const KindRow& row) {
  cJSON* const object = cJSON_CreateObject();
  bool added = tvc_json_add(object, "kind", describe_text(row.name)) &&
               tvc_json_add(object, "json", describe_text(row.json)) &&
               tvc_json_add(object, "help", describe_text(row.help));
  if (*row.minimum)
    added = added && tvc_json_add(object, "minimum", describe_text(row.minimum)) &&
            tvc_json_add(object, "maximum", describe_text(row.maximum));
  return whole(object, added);
}

static cJSON* describe_kinds() {
  cJSON* const array = cJSON_CreateArray();
  bool added = true;
  for (const KindRow& row : kinds) added = added && append(array, describe_kind(row));
  return whole(array, added);
}

char* a_dtv_jsp_describe(void) {
  cJSON* const object = cJSON_CreateObject();
  cJSON* const root =
      whole(object, tvc_json_add(object, "uris", describe_uris()) && tvc_json_add(object, "types", describe_types()) &&
                        tvc_json_add(object, "kinds", describe_kinds()) &&
                        tvc_json_add(object, "results", describe_results()));
  char* const text = root ? cJSON_PrintUnformatted(root) : nullptr;
  cJSON_Delete(root);
  return text;
}
