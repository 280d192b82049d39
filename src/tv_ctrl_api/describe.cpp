// Describes the registry and the item types, from their tables.
#include <cstdlib>
#include <string>

#include "tv_ctrl_api/item_types.h"
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
    case FieldKind::kObject:
      return "object";
    case FieldKind::kConstant:
      return "constant";
  }
  return "";
}

static cJSON* describe_fields(std::span<const Field> fields, FieldUse use) {
  cJSON* const array = cJSON_CreateArray();
  for (const Field& field : fields) {
    if (use != kEverywhere && !(field.use & use)) continue;
    cJSON* const object = cJSON_CreateObject();
    cJSON_AddItemToArray(array, object);
    tvc_json_add(object, "key", cJSON_CreateStringReference(field.key));
    tvc_json_add(object, "kind", cJSON_CreateStringReference(kind_name(field.kind)));
    if (field.kind == FieldKind::kText) tvc_json_add(object, "limit", tvc_json_number(field.size - 1));
    if (*field.unit) tvc_json_add(object, "unit", cJSON_CreateStringReference(field.unit));
    if (*field.help) tvc_json_add(object, "help", cJSON_CreateStringReference(field.help));
    if (field.kind == FieldKind::kConstant) tvc_json_add(object, "value", cJSON_CreateStringReference(field.text));
    if (field.kind == FieldKind::kObject) tvc_json_add(object, "fields", describe_fields(field.fields, kEverywhere));
  }
  return array;
}

static cJSON* describe_fields_or_null(const ItemType& item, FieldUse use) {
  return tvc_item_has(item, use) ? describe_fields(item.fields, use) : cJSON_CreateNull();
}

// The request word that a set of this type takes, and the fields that it decodes; null for a type that cannot be set.
struct SetUse {
  const char* word;
  FieldUse use;
};

static bool find_set_use(const ItemType& item, SetUse& ret_use) {
  if (item.type == TYPE_ACTION) {
    ret_use = {"ACTION", 0};
    return true;
  }
  for (const SetUse candidate : {SetUse{"MODIFY", kModify}, {"SET", kSet}, {"ASSOCIATE", kAssociate}}) {
    if (!tvc_item_has(item, candidate.use)) continue;
    ret_use = candidate;
    return true;
  }
  return false;
}

static cJSON* describe_set(const ItemType& item) {
  SetUse set;
  if (!find_set_use(item, set)) return cJSON_CreateNull();
  cJSON* const object = cJSON_CreateObject();
  tvc_json_add(object, "request", cJSON_CreateStringReference(set.word));
  tvc_json_add(object, "fields", set.use ? describe_fields(item.fields, set.use) : cJSON_CreateArray());
  return object;
}

static cJSON* describe_notify(const ItemType& item) {
  const NotifyForm form = item.notify.form;
  if (form == NotifyForm::kNone) return cJSON_CreateNull();
  cJSON* const object = cJSON_CreateObject();
  const bool queued = form == NotifyForm::kQueued;
  tvc_json_add(object, "form", cJSON_CreateStringReference(queued ? "queued" : "single"));
  tvc_json_add(object, "member",
               cJSON_CreateStringReference(form == NotifyForm::kSingleParameter ? "PARAMETER" : "ITEMS"));
  tvc_json_add(object, "bound", queued ? tvc_json_number(item.notify.bound) : cJSON_CreateNull());
  tvc_json_add(object, "fields", describe_fields(item.fields, kNotify));
  return object;
}

static cJSON* describe_type(const ItemType& item) {
  cJSON* const object = cJSON_CreateObject();
  tvc_json_add(object, "query", describe_fields_or_null(item, kQuery));
  tvc_json_add(object, "set", describe_set(item));
  tvc_json_add(object, "response", describe_fields_or_null(item, kResponse));
  tvc_json_add(object, "notify", describe_notify(item));
  return object;
}

static cJSON* describe_uri(const TV_CTRL_URI_ID_MAP_T& row) {
  const ItemType* const item = tvc_item_type(row.ui1_type);
  const GroupRoute* const route = tvc_route(tvc_group(row.ui2_id));
  // The groups that only the miscellaneous handler answers are refused by it.
  const bool refused = route->get == tv_ctrl_get_misc && route->group != TV_CTRL_GRPID_MISC;
  const bool action = row.ui1_type == TYPE_ACTION;
  SetUse set;
  cJSON* const object = cJSON_CreateObject();
  tvc_json_add(object, "uri", cJSON_CreateStringReference(row.s_uri));
  tvc_json_add(object, "id", tvc_json_number(row.ui2_id));
  tvc_json_add(object, "group", cJSON_CreateStringReference(tvc_group_name(route->group)));
  tvc_json_add(object, "record", tvc_json_number(tvc_record(row.ui2_id)));
  tvc_json_add(object, "type", cJSON_CreateStringReference(tvc_item_type_name(row.ui1_type)));
  tvc_json_add(object, "get", cJSON_CreateBool(route->get && !refused && !action));
  tvc_json_add(object, "set", cJSON_CreateBool(route->set && item && find_set_use(*item, set)));
  tvc_json_add(
      object, "notify",
      cJSON_CreateBool(route->group == TV_CTRL_GRPID_WS_NFY && item && item->notify.form != NotifyForm::kNone));
  return object;
}

char* a_dtv_jsp_describe(void) {
  cJSON* const root = cJSON_CreateObject();
  cJSON* const uris = cJSON_CreateArray();
  tvc_json_add(root, "uris", uris);
  for (const TV_CTRL_URI_ID_MAP_T& row : tvc_registry()) cJSON_AddItemToArray(uris, describe_uri(row));
  cJSON* const types = cJSON_CreateObject();
  tvc_json_add(root, "types", types);
  for (const ItemType& item : tvc_item_types()) tvc_json_add(types, tvc_item_type_name(item.type), describe_type(item));
  char* const text = cJSON_PrintUnformatted(root);
  cJSON_Delete(root);
  return text;
}
