// Describes the registry and the item types, from their tables.
#include <stdlib.h>
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

static void describe_fields(JsonText& json, std::span<const Field> fields, FieldUse use);

static void describe_field(JsonText& json, const Field& field) {
  tvc_open_object(json);
  write_text_member(json, "key", field.key.data());
  write_text_member(json, "kind", kind_name(field.kind));
  if (field.kind == FieldKind::kText) write_number_member(json, "limit", field.size - 1);
  if (field.kind == FieldKind::kUint8Array) write_number_member(json, "count", field.size);
  if (field.kind == FieldKind::kUint32Array)
    write_number_member(json, "count", field.size / static_cast<UINT32>(sizeof(UINT32)));
  if (field.unit) write_text_member(json, "unit", field.unit);
  if (field.help) write_text_member(json, "help", field.help);
  if (field.kind == FieldKind::kConstant) write_text_member(json, "value", field.text);
  if (field.kind == FieldKind::kObject) {
    tvc_write_key(json, "fields");
    describe_fields(json, field.fields, kEverywhere);
  }
  tvc_close_object(json);
}

static void describe_fields(JsonText& json, std::span<const Field> fields, FieldUse use) {
  tvc_open_array(json);
  for (const Field& field : fields)
    if (use == kEverywhere || (field.use & use)) describe_field(json, field);
  tvc_close_array(json);
}

static void describe_fields_or_null(JsonText& json, const ItemType& item, FieldUse use) {
  if (tvc_item_has(item, use))
    describe_fields(json, item.fields, use);
  else
    tvc_write_null(json);
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

static void describe_type(JsonText& json, const ItemType& item) {
  tvc_open_object(json);
  tvc_write_key(json, "query");
  describe_fields_or_null(json, item, kQuery);
  tvc_write_key(json, "set");
  describe_set(json, item);
  tvc_write_key(json, "response");
  describe_fields_or_null(json, item, kResponse);
  tvc_write_key(json, "notify");
  describe_notify(json, item);
  tvc_close_object(json);
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

static void describe_names(JsonText& json, const char* names) {
  tvc_open_array(json);
  for (; *names; names += strlen(names) + 1) tvc_write_text(json, names);
  tvc_close_array(json);
}

static void describe_uri(JsonText& json, const TV_CTRL_URI_ID_MAP_T& row) {
  const ItemType* const item = tvc_item_type(row.ui1_type);
  const GroupRoute* const route = tvc_route(tvc_group(row.ui2_id));
  const bool action = row.ui1_type == TYPE_ACTION;
  const bool get = route->get && !route->get_refuses && !action;  // an action has nothing to read
  // An action carries no record, so that it cannot get past a route that needs one.
  const bool set = route->set && item && set_use(*item).word && !(action && route->set_needs_record);
  const bool notify = route->group == TV_CTRL_GRPID_WS_NFY && item && item->notify.form != NotifyForm::kNone;
  tvc_open_object(json);
  write_text_member(json, "uri", row.s_uri);
  write_number_member(json, "id", row.ui2_id);
  write_text_member(json, "group", tvc_group_name(route->group));
  write_number_member(json, "record", tvc_record(row.ui2_id));
  write_text_member(json, "type", tvc_item_type_name(row.ui1_type));
  write_flag_member(json, "get", get);
  write_flag_member(json, "set", set);
  write_flag_member(json, "notify", notify);
  for (const auto& [id, names] : kNamedValues) {
    if (id != row.ui2_id) continue;
    tvc_write_key(json, "values");
    describe_names(json, names);
  }
  tvc_close_object(json);
}

static void describe_uris(JsonText& json) {
  tvc_open_array(json);
  for (const TV_CTRL_URI_ID_MAP_T& row : tvc_registry()) describe_uri(json, row);
  tvc_close_array(json);
}

static void describe_types(JsonText& json) {
  tvc_open_object(json);
  for (const ItemType& item : tvc_item_types()) {
    tvc_write_key(json, tvc_item_type_name(item.type));
    describe_type(json, item);
  }
  tvc_close_object(json);
}

char* a_dtv_jsp_describe(void) {
  JsonText json;
  tvc_open_object(json);
  tvc_write_key(json, "uris");
  describe_uris(json);
  tvc_write_key(json, "types");
  describe_types(json);
  tvc_close_object(json);
  if (tvc_finish_text(json)) return json.text;
  free(json.text);
  return nullptr;
}
