#include "records.h"

#include <stdlib.h>
#include <string.h>

#include <vector>

static void take_field(Bytes& bytes, const Field& field, char* record, const std::string& text);

// A number that the field names, or that follows one: some have no name. Sometimes any.
static INT32 take_named_number(Bytes& bytes, const Field& field) {
  std::vector<INT32> numbers;
  for (const char* value = field.values; *value; value += strlen(value) + 1)
    numbers.push_back(static_cast<INT32>(strtol(value, nullptr, 10)));
  if (take_chance(bytes, 4)) return take_integer<INT32>(bytes);
  return numbers[take_below(bytes, numbers.size())] + (take_chance(bytes, 8) ? 1 : 0);
}

static void take_fields(Bytes& bytes, std::span<const Field> fields, FieldUse use, char* record,
                        const std::string& text) {
  for (const Field& field : fields) {
    if (use != kEverywhere && !(field.use & use)) continue;
    if (field.kind == FieldKind::kMembers) {
      take_fields(bytes, tvc_chosen_rows(field, record), use, record, text);
      continue;
    }
    // Always set: any other word would be read as an address.
    const bool address = field.kind == FieldKind::kOwnedText || (field.kind == FieldKind::kWord && field.render);
    if (address || take_chance(bytes, 2)) take_field(bytes, field, record, text);
  }
}

static void take_field(Bytes& bytes, const Field& field, char* record, const std::string& text) {
  char* const place = record + field.offset;
  const auto store = [place]<typename T>(T number) { memcpy(place, &number, sizeof number); };
  switch (field.kind) {
    case FieldKind::kInt32:
      return store(take_integer<INT32>(bytes));
    case FieldKind::kInt16:
      return store(take_integer<INT16>(bytes));
    case FieldKind::kName:
      return store(take_named_number(bytes, field));
    case FieldKind::kUint8:
      return store(take_integer<UINT8>(bytes));
    case FieldKind::kUint16:
      return store(take_integer<UINT16>(bytes));
    case FieldKind::kUint32:
      return store(take_integer<UINT32>(bytes));
    case FieldKind::kInt64:
      return store(take_integer<INT64>(bytes));
    case FieldKind::kUint64:
      return store(take_integer<UINT64>(bytes));
    case FieldKind::kWord:
      if (!field.render) return store(take_integer<std::uintptr_t>(bytes));
      return store(take_chance(bytes, 4) ? 0 : reinterpret_cast<std::uintptr_t>(text.c_str()));
    case FieldKind::kText:
    case FieldKind::kText16:
    case FieldKind::kUint8Array:
    case FieldKind::kUint16Array:
    case FieldKind::kInt32Array:
    case FieldKind::kUint32Array:
    case FieldKind::kDouble:
      return take_characters(bytes, place, field.size);
    case FieldKind::kObject:
      return take_fields(bytes, field.fields, kEverywhere, place, text);
    case FieldKind::kOwnedText:  // null, since it is freed
      return store(std::uintptr_t{0});
    case FieldKind::kMembers:
    case FieldKind::kConstant:
      return;
  }
}

std::unique_ptr<char[]> take_record(Bytes& bytes, UINT8 type, FieldUse use, const std::string& text) {
  const ItemType* const item = tvc_item_type(type);
  const std::size_t size = item && item->record_size > 0 ? item->record_size : 1;
  std::unique_ptr<char[]> record(new char[size]);
  memset(record.get(), take_byte(bytes), size);
  for (std::size_t patches = take_below(bytes, 4); patches > 0; --patches) {
    const std::size_t offset = take_below(bytes, size);
    const std::string patch = take_text(bytes);
    memcpy(record.get() + offset, patch.data(), std::min(patch.size(), size - offset));
  }
  if (!item) return record;
  take_fields(bytes, item->fields, use, record.get(), text);
  // Of a list, the first entry.
  for (const ItemForm& form : item->forms)
    take_fields(bytes, form.fields, kEverywhere, record.get() + form.list.entries_offset, text);
  return record;
}
