#include "tap/value.h"

#include <algorithm>
#include <cstring>
#include <map>
#include <mutex>
#include <set>
#include <vector>

namespace tap {
namespace {

std::vector<const Type*>& records() {
  static auto& list = *new std::vector<const Type*>;  // outlives every static destructor
  return list;
}

std::map<std::size_t, const Type*>& items() {
  static auto& map = *new std::map<std::size_t, const Type*>;
  return map;
}

// Whether a signed or an unsigned integer of the type's width can hold the number.
bool integer_fits(const Type& type, Integer number) {
  const unsigned width = static_cast<unsigned>(type.size) * 8;
  if (number.negative) return static_cast<std::int64_t>(number.bits) >= INT64_MIN >> (64 - width);
  return width == 64 || number.bits >> width == 0;
}

bool is_byte(const Type& type) { return type.shape == Shape::kInteger && type.size == 1; }

std::string shown(const cJSON* json) {
  std::string text = json_print(json);
  if (text.size() > 60) text = text.substr(0, 57) + "...";
  return text;
}

bool integer_from_json(const Type& type, const cJSON* json, void* value, std::string& ret_error) {
  Integer number;
  if (cJSON_IsString(json) && type.size == sizeof(void*) && !json_to_integer(json, number)) {
    // The integer is as wide as an address, and JSON gives a text: the argument becomes the text's address.
    const char* text = keep_text(json->valuestring);
    std::memcpy(value, &text, sizeof text);
    return true;
  }
  if (!json_to_integer(json, number)) {
    ret_error = shown(json) + " is not a whole number";
    return false;
  }
  // A number that is too wide for a word is cut, so that one conformance case serves televisions of any pointer width.
  if (type.shape != Shape::kWord && !integer_fits(type, number)) {
    ret_error = shown(json) + " does not fit " + std::to_string(type.size * 8) + " bits";
    return false;
  }
  integer_store(type, number, value);
  return true;
}

bool real_from_json(const cJSON* json, void* value, std::string& ret_error) {
  if (!cJSON_IsNumber(json)) {
    ret_error = shown(json) + " is not a number";
    return false;
  }
  std::memcpy(value, &json->valuedouble, sizeof json->valuedouble);
  return true;
}

bool record_from_json(const Type& type, const cJSON* json, void* value, std::string& ret_error) {
  if (std::string bytes; json_to_bytes(json, bytes)) {
    std::memcpy(value, bytes.data(), std::min(bytes.size(), type.size));
    return true;
  }
  if (!cJSON_IsObject(json)) {
    ret_error = shown(json) + " is not an object with the fields of " + type.name;
    return false;
  }
  const cJSON* member = nullptr;
  cJSON_ArrayForEach(member, json) {
    const auto field = std::find_if(type.fields.begin(), type.fields.end(), [&](const Field& candidate) {
      return std::strcmp(candidate.name, member->string) == 0;
    });
    if (field == type.fields.end()) {
      ret_error = std::string(type.name) + " has no field \"" + member->string + "\"; it has";
      for (const Field& known : type.fields) ret_error += std::string(" ") + known.name;
      return false;
    }
    if (!value_from_json(*field->type, member, static_cast<char*>(value) + field->offset, ret_error)) {
      ret_error = std::string(field->name) + ": " + ret_error;
      return false;
    }
  }
  return true;
}

}  // namespace

int know_record(const Type& record) {
  if (std::find(records().begin(), records().end(), &record) == records().end()) records().push_back(&record);
  return 0;
}

std::span<const Type* const> known_records() { return records(); }

int know_item(std::size_t item_id, const Type& record) {
  items()[item_id] = &record;
  return 0;
}

const Type* find_item(std::size_t item_id) {
  const auto found = items().find(item_id);
  return found == items().end() ? nullptr : found->second;
}

const Type* find_record(std::string_view name) {
  const auto found =
      std::find_if(records().begin(), records().end(), [&](const Type* type) { return name == type->name; });
  return found == records().end() ? nullptr : *found;
}

cJSON* value_to_json(const Type& type, const void* value) {
  switch (type.shape) {
    case Shape::kNone:
      return cJSON_CreateNull();
    case Shape::kInteger:
    case Shape::kWord: {
      const Integer number = integer_load(type, value);
      return number.negative ? json_integer(static_cast<std::int64_t>(number.bits)) : json_unsigned(number.bits);
    }
    case Shape::kReal: {
      double number = 0;
      std::memcpy(&number, value, sizeof number);
      return cJSON_CreateNumber(number);
    }
    case Shape::kString: {
      const char* text = nullptr;
      std::memcpy(&text, value, sizeof text);
      return text == nullptr ? cJSON_CreateNull() : json_text(text);
    }
    case Shape::kText:
      return text_to_json(static_cast<const char*>(value), type.count);
    case Shape::kArray:
      return array_to_json(*type.element, value, type.count);
    case Shape::kRecord: {
      cJSON* object = cJSON_CreateObject();
      for (const Field& field : type.fields) {
        cJSON_AddItemToObjectCS(object, field.name,
                                value_to_json(*field.type, static_cast<const char*>(value) + field.offset));
      }
      return object;
    }
  }
  return cJSON_CreateNull();
}

cJSON* text_to_json(const char* text, std::size_t size) {
  if (text == nullptr) return cJSON_CreateNull();
  const std::size_t length = strnlen(text, size);
  // As a text, it would get a terminator when it is written back.
  return length == size ? json_bytes({text, length}) : json_text({text, length});
}

cJSON* array_to_json(const Type& element, const void* values, std::size_t count) {
  if (values == nullptr) return cJSON_CreateNull();
  cJSON* array = cJSON_CreateArray();
  for (std::size_t i = 0; i < count; ++i) {
    cJSON_AddItemToArray(array, value_to_json(element, static_cast<const char*>(values) + i * element.size));
  }
  return array;
}

bool value_from_json(const Type& type, const cJSON* json, void* value, std::string& ret_error) {
  if (cJSON_IsNull(json)) return true;
  switch (type.shape) {
    case Shape::kNone:
      ret_error = "nothing is returned, so nothing can be given";
      return false;
    case Shape::kInteger:
    case Shape::kWord:
      return integer_from_json(type, json, value, ret_error);
    case Shape::kReal:
      return real_from_json(json, value, ret_error);
    case Shape::kString: {
      if (!cJSON_IsString(json)) {
        ret_error = shown(json) + " is not a text";
        return false;
      }
      const char* text = keep_text(json->valuestring);
      std::memcpy(value, &text, sizeof text);
      return true;
    }
    case Shape::kText:
      return text_from_json(json, static_cast<char*>(value), type.count, ret_error);
    case Shape::kArray: {
      if (cJSON_IsArray(json) && static_cast<std::size_t>(cJSON_GetArraySize(json)) > type.count) {
        ret_error =
            std::to_string(cJSON_GetArraySize(json)) + " elements, where the array has " + std::to_string(type.count);
        return false;
      }
      return array_from_json(*type.element, json, value, type.count, ret_error);
    }
    case Shape::kRecord:
      return record_from_json(type, json, value, ret_error);
  }
  return false;
}

bool text_from_json(const cJSON* json, char* text, std::size_t size, std::string& ret_error) {
  if (std::string bytes; json_to_bytes(json, bytes)) {
    if (text != nullptr) std::memcpy(text, bytes.data(), std::min(bytes.size(), size));
    return true;
  }
  if (cJSON_IsString(json)) {
    if (text == nullptr || size == 0) return true;
    const std::size_t length = std::min(std::strlen(json->valuestring), size - 1);
    std::memcpy(text, json->valuestring, length);
    text[length] = '\0';
    return true;
  }
  if (cJSON_IsArray(json)) return array_from_json(type_of<char>, json, text, size, ret_error);
  ret_error = shown(json) + R"( is not a text, nor {"bytes": "hexadecimal digits"})";
  return false;
}

bool array_from_json(const Type& element, const cJSON* json, void* values, std::size_t count, std::string& ret_error) {
  if (is_byte(element) && !cJSON_IsArray(json)) {
    return text_from_json(json, static_cast<char*>(values), count, ret_error);
  }
  if (std::string bytes; json_to_bytes(json, bytes)) {
    if (values != nullptr) std::memcpy(values, bytes.data(), std::min(bytes.size(), count * element.size));
    return true;
  }
  if (!cJSON_IsArray(json)) {
    ret_error = shown(json) + " is not an array";
    return false;
  }
  std::size_t i = 0;
  const cJSON* item = nullptr;
  cJSON_ArrayForEach(item, json) {
    const bool has_place = values != nullptr && i < count;
    const bool good = has_place
                          ? value_from_json(element, item, static_cast<char*>(values) + i * element.size, ret_error)
                          : value_fits(element, item, ret_error);
    if (!good) {
      ret_error = "element " + std::to_string(i) + ": " + ret_error;
      return false;
    }
    ++i;
  }
  return true;
}

bool value_fits(const Type& type, const cJSON* json, std::string& ret_error) {
  std::vector<std::uint64_t> scratch(type.size / sizeof(std::uint64_t) + 1);
  return value_from_json(type, json, scratch.data(), ret_error);
}

std::string kind_name(Form form, Direction direction) {
  const std::string word = direction == Direction::in ? "in" : direction == Direction::out ? "out" : "inout";
  switch (form) {
    case Form::value:
      return "in";
    case Form::address:
      return word + "_address";
    case Form::one:
    case Form::item:
      return direction == Direction::in ? "in_record" : word;
    case Form::string:
    case Form::text:
      return word + "_text";
    case Form::array:
      return word + "_array";
    case Form::callback:
      return "callback";
    case Form::tag:
      return "tag";
  }
  return "";
}

cJSON* pointed_to_json(Form form, const Type& type, const void* memory, std::size_t count) {
  if (memory == nullptr) return cJSON_CreateNull();
  switch (form) {
    case Form::one:
      return value_to_json(type, memory);
    case Form::string:
      return json_text(static_cast<const char*>(memory));
    case Form::text:
      return text_to_json(static_cast<const char*>(memory), count);
    case Form::array:
      return array_to_json(type, memory, count);
    case Form::item: {
      const Type* const record = find_item(count);
      return record == nullptr ? cJSON_CreateObject() : value_to_json(*record, memory);
    }
    case Form::value:
    case Form::address:
    case Form::callback:
    case Form::tag:
      break;
  }
  return nullptr;
}

// Without memory the item id is unknown as well; then JSON may fit the record of any item.
static bool item_from_json(const cJSON* json, void* memory, std::size_t item_id, std::string& ret_error) {
  if (memory == nullptr) {
    if (std::any_of(items().begin(), items().end(),
                    [&](const auto& item) { return value_fits(*item.second, json, ret_error); }))
      return true;
    ret_error = "no item's record has the members of " + json_print(json);
    return false;
  }
  const Type* const record = find_item(item_id);
  if (record != nullptr) return value_from_json(*record, json, memory, ret_error);
  ret_error = "item " + std::to_string(item_id) + " has no record";
  return false;
}

bool pointed_from_json(Form form, const Type& type, const cJSON* json, void* memory, std::size_t count,
                       std::string& ret_error) {
  switch (form) {
    case Form::one:
      return memory == nullptr ? value_fits(type, json, ret_error) : value_from_json(type, json, memory, ret_error);
    case Form::string:
    case Form::text:
      return text_from_json(json, static_cast<char*>(memory), count, ret_error);
    case Form::array:
      return array_from_json(type, json, memory, count, ret_error);
    case Form::item:
      return item_from_json(json, memory, count, ret_error);
    case Form::value:
    case Form::address:
    case Form::callback:
    case Form::tag:
      break;
  }
  return false;
}

std::size_t pointed_size(Form form, const Type& type, std::size_t count) {
  if (form != Form::item) return count * type.size;
  const Type* const record = find_item(count);
  return record == nullptr ? 0 : record->size;
}

std::size_t pointed_count(Form form, const cJSON* json) {
  if (form == Form::one) return 1;
  if (form == Form::array) return static_cast<std::size_t>(cJSON_GetArraySize(json));
  return (cJSON_IsString(json) ? std::strlen(json->valuestring) : json_print(json).size()) + 1;
}

Integer integer_load(const Type& type, const void* value) {
  std::uint64_t bits = 0;
  switch (type.size) {
    case 1:
      bits = *static_cast<const std::uint8_t*>(value);
      break;
    case 2: {
      std::uint16_t part;
      std::memcpy(&part, value, 2);
      bits = part;
      break;
    }
    case 4: {
      std::uint32_t part;
      std::memcpy(&part, value, 4);
      bits = part;
      break;
    }
    default:
      std::memcpy(&bits, value, 8);
      break;
  }
  const unsigned width = static_cast<unsigned>(type.size) * 8;
  const bool negative = type.is_signed && (bits >> (width - 1)) != 0;
  if (negative && width < 64) bits |= ~std::uint64_t{0} << width;
  return {.negative = negative, .bits = bits};
}

void integer_store(const Type& type, Integer number, void* value) {
  switch (type.size) {
    case 1:
      *static_cast<std::uint8_t*>(value) = static_cast<std::uint8_t>(number.bits);
      break;
    case 2: {
      const auto part = static_cast<std::uint16_t>(number.bits);
      std::memcpy(value, &part, 2);
      break;
    }
    case 4: {
      const auto part = static_cast<std::uint32_t>(number.bits);
      std::memcpy(value, &part, 4);
      break;
    }
    default:
      std::memcpy(value, &number.bits, 8);
      break;
  }
}

const char* keep_text(std::string_view text) {
  static auto& lock = *new std::mutex;
  static auto& kept = *new std::set<std::string, std::less<>>;
  const std::lock_guard guard(lock);
  const auto found = kept.find(text);
  return found != kept.end() ? found->c_str() : kept.emplace(text).first->c_str();
}

}  // namespace tap
