// Describes the registry and the item types, from their tables.
#include <string.h>

#include "tv_ctrl_api/item_types.h"
#include "tv_ctrl_api/request.h"
#include "tv_ctrl_main/dispatch.h"
#include "tv_ctrl_main/registry.h"

static const char* kind_name(FieldKind kind) {
  switch (kind) {
    case FieldKind::kInt32:
      return "int32";
    case FieldKind::kUint8:
      return "uint8";
    case FieldKind::kUint16:
      return "uint16";
    case FieldKind::kUint32:
      return "uint32";
    case FieldKind::kInt64:
      return "int64";
    case FieldKind::kUint64:
    case FieldKind::kWord:
      return "uint64";
    case FieldKind::kText:
    case FieldKind::kText16:
      return "text";
    case FieldKind::kUint8Array:
      return "uint8_array";
    case FieldKind::kUint32Array:
      return "uint32_array";
    case FieldKind::kObject:
      return "object";
    case FieldKind::kConstant:
      return "constant";
  }
  return "";
}

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

static cJSON* describe_fields(std::span<const Field> fields, FieldUse use);

static cJSON* describe_field(const Field& field) {
  cJSON* const object = cJSON_CreateObject();
  bool added = tvc_json_add(object, "key", describe_text(field.key.data())) &&
               tvc_json_add(object, "kind", describe_text(kind_name(field.kind)));
  if (field.kind == FieldKind::kText) added = added && tvc_json_add(object, "limit", tvc_json_number(field.size - 1));
  if (field.kind == FieldKind::kUint8Array) added = added && tvc_json_add(object, "count", tvc_json_number(field.size));
  if (field.kind == FieldKind::kUint32Array)
    added = added && tvc_json_add(object, "count", tvc_json_number(field.size / sizeof(UINT32)));
  if (field.unit) added = added && tvc_json_add(object, "unit", describe_text(field.unit));
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

// Names one after the other, each with its end; an empty one ends them. Not an array of addresses, which the loader
// would have to patch.
static constexpr char kKeyNames[] =
#define TVC_KEY(name, code) name "\0"
#include "vex_tv_ctrl/keys.def"
    ;

static constexpr char kNativeAppNames[] =
#define TVC_NATIVE_APP(name, number) #name "\0"
#include "vex_tv_ctrl/apps.def"
    ;

// The URIs whose value is one of a table's names.
static constexpr struct {
  UINT16 id;
  const char* names;
} kNamedValues[] = {{tvc_id(TV_CTRL_GRPID_KEY, TV_CTRL_RECID_IRRC), kKeyNames},
                    {tvc_id(TV_CTRL_GRPID_MISC, TV_CTRL_RECID_START_NATIVE_APP), kNativeAppNames}};

static cJSON* describe_names(const char* names) {
  cJSON* const array = cJSON_CreateArray();
  bool added = true;
  for (; *names; names += strlen(names) + 1) added = added && append(array, describe_text(names));
  return whole(array, added);
}

static cJSON* describe_uri(const TV_CTRL_URI_ID_MAP_T& row) {
  const ItemType* const item = tvc_item_type(row.ui1_type);
  const GroupRoute* const route = tvc_route(tvc_group(row.ui2_id));
  const bool action = row.ui1_type == TYPE_ACTION;
  const bool get = route->get && !route->get_refuses && !action;  // an action has nothing to read
  // An action carries no record, so that it cannot get past a route that needs one.
  const bool set = route->set && item && set_use(*item).word && !(action && route->set_needs_record);
  const bool notify = route->group == TV_CTRL_GRPID_WS_NFY && item && item->notify.form != NotifyForm::kNone;
  cJSON* const object = cJSON_CreateObject();
  bool added = tvc_json_add(object, "uri", describe_text(row.s_uri)) &&
               tvc_json_add(object, "id", tvc_json_number(row.ui2_id)) &&
               tvc_json_add(object, "group", describe_text(tvc_group_name(route->group))) &&
               tvc_json_add(object, "record", tvc_json_number(tvc_record(row.ui2_id))) &&
               tvc_json_add(object, "type", describe_text(tvc_item_type_name(row.ui1_type))) &&
               tvc_json_add(object, "get", cJSON_CreateBool(get)) &&
               tvc_json_add(object, "set", cJSON_CreateBool(set)) &&
               tvc_json_add(object, "notify", cJSON_CreateBool(notify));
  for (const auto& [id, names] : kNamedValues)
    if (id == row.ui2_id) added = added && tvc_json_add(object, "values", describe_names(names));
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

char* a_dtv_jsp_describe(void) {
  cJSON* const object = cJSON_CreateObject();
  cJSON* const root =
      whole(object, tvc_json_add(object, "uris", describe_uris()) && tvc_json_add(object, "types", describe_types()));
  char* const text = root ? cJSON_PrintUnformatted(root) : nullptr;
  cJSON_Delete(root);
  return text;
}
