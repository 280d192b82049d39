// The plugin's description of itself, as tests read it.
#pragma once

#include <string>
#include <vector>

#include "support.h"

inline const cJSON* member(const cJSON* object, const char* key) {
  return cJSON_GetObjectItemCaseSensitive(object, key);
}

inline std::string text_of(const cJSON* object, const char* key) {
  const char* const text = cJSON_GetStringValue(member(object, key));
  return text ? text : "(no text)";
}

inline int number_of(const cJSON* object, const char* key) {
  const cJSON* const value = member(object, key);
  return cJSON_IsNumber(value) ? value->valueint : -999;
}

inline bool is_true(const cJSON* object, const char* key) { return cJSON_IsTrue(member(object, key)) != 0; }

inline std::vector<std::string> keys_of(const cJSON* object) {
  std::vector<std::string> keys;
  for (const cJSON* child = object ? object->child : nullptr; child; child = child->next)
    keys.emplace_back(child->string);
  return keys;
}

inline std::vector<const cJSON*> elements_of(const cJSON* array) {
  std::vector<const cJSON*> elements;
  for (const cJSON* child = array ? array->child : nullptr; child; child = child->next) elements.push_back(child);
  return elements;
}

class DescribedTest : public PluginTest {
 protected:
  void SetUp() override {
    PluginTest::SetUp();
    char* const text = a_dtv_jsp_describe();
    ASSERT_NE(text, nullptr);
    root_ = parse_json(text);
    std::free(text);
    ASSERT_TRUE(root_);
    uris_ = elements_of(member(root_.get(), "uris"));
    types_ = elements_of(member(root_.get(), "types"));
    ASSERT_FALSE(uris_.empty());
    ASSERT_FALSE(types_.empty());
  }

  // The row of a kind of field; null where there is none.
  const cJSON* kind_row(const std::string& kind) const {
    for (const cJSON* const row : elements_of(member(root_.get(), "kinds")))
      if (text_of(row, "kind") == kind) return row;
    return nullptr;
  }

  Json root_ = {nullptr, cJSON_Delete};
  std::vector<const cJSON*> uris_;
  std::vector<const cJSON*> types_;
};
