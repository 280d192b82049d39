// Compares the list of URIs with what requests do: makes each get and set that the list has, and raises each event, on
// a platform that records its calls.
#include <algorithm>
#include <cstring>
#include <iterator>
#include <set>
#include <string>
#include <vector>

#include "description.h"
#include "recording_platform.h"
#include "support.h"

namespace {

// The result of one request.
struct Observed {
  INT32 ret = 0;
  bool effect = false;  // a platform function was called, a file opened, or a field filled
};

// Which of the described values the members of a request have, and which member the request leaves out.
struct Choice {
  std::size_t value = 0;     // a member with fewer values has its last one
  std::string without = "";  // key of the member; empty: the request has all
};

// A value that the description names, else a made-up one; of an array, one element.
cJSON* value_of(const cJSON* field, const cJSON* values, const Choice& choice) {
  if (!values) values = member(field, "values");
  if (const auto named = elements_of(values); !named.empty())
    return cJSON_Duplicate(member(named[std::min(choice.value, named.size() - 1)], "value"), 1);
  if (text_of(field, "kind") == "text") return cJSON_CreateString("x");
  const int one = 1;
  return member(field, "count") ? cJSON_CreateIntArray(&one, 1) : cJSON_CreateNumber(one);
}

// The members of a URI's request, each once.
cJSON* object_of(const std::string& uri, const cJSON* fields, const cJSON* values, const Choice& choice) {
  cJSON* const object = cJSON_CreateObject();
  for (const cJSON* const field : elements_of(fields)) {
    const std::string key = text_of(field, "key");
    if (key == choice.without || member(object, key.c_str())) continue;
    if (member(field, "uri") && text_of(field, "uri") != uri) continue;
    cJSON* const value = text_of(field, "kind") == "object"
                             ? object_of(uri, member(field, "fields"), nullptr, choice)
                             : value_of(field, key == "VALUE" ? values : nullptr, choice);
    cJSON_AddItemToObject(object, key.c_str(), value);
  }
  return object;
}

// The texts of requests that fill the fields: one for each value that a member can have, and one without each member
// that has such values, since it may exclude others. `values` are those of "VALUE", null: none are known.
std::vector<std::string> request_texts(const std::string& uri, const std::string& word, const cJSON* fields,
                                       const cJSON* values) {
  std::vector<Choice> choices = {{}};
  const auto add_values = [&choices](const cJSON* named) {
    while (choices.size() < elements_of(named).size()) choices.push_back({.value = choices.size()});
  };
  add_values(values);
  for (const cJSON* const field : elements_of(fields)) add_values(member(field, "values"));
  for (const cJSON* const field : elements_of(fields))
    if (member(field, "values")) choices.push_back({.without = text_of(field, "key")});
  std::vector<std::string> texts;
  for (const Choice& choice : choices) {
    const Json root(cJSON_CreateObject(), cJSON_Delete);
    cJSON* const parameter = object_of(uri, fields, values, choice);
    cJSON_AddStringToObject(parameter, "REQUEST", word.c_str());
    cJSON_AddItemToObject(root.get(), "PARAMETER", parameter);
    texts.push_back(print_json(root.get()));
  }
  return texts;
}

class List : public DescribedTest {
 protected:
  void SetUp() override {
    DescribedTest::SetUp();
    INT32 size = 0;
    std::free(tv_ctrl_malloc_content_max(&size));
    const auto observed = [this, size](INT32 (*route)(UINT16, void*), UINT16 id, void* record) {
      const auto* const bytes = static_cast<const char*>(record);
      const std::string before = record ? std::string(bytes, static_cast<std::size_t>(size)) : "";
      const INT32 ret = route(id, record);
      filled_ = record && std::memcmp(before.data(), bytes, before.size()) != 0;
      return ret;
    };
    get_handler = [observed](UINT16 id, void* record) { return observed(routed_get, id, record); };
    set_handler = [observed](UINT16 id, void* record) { return observed(routed_set, id, record); };
  }

  template <typename Request>
  Observed observe(const Request& request) {
    platform_reset();
    for (const char* const creates : {"a_vextvapi_cb_usb_detect_init", "a_vextvapi_cb_pb_init",
                                      "a_vextvapi_dmp_file_create", "a_vextvapi_dmr_file_create"})
      platform_answer(creates, 1);                                    // a handle
    platform_answer("a_vextvapi_inputsource_get_sourcetotalnum", 2);  // of one name, so that the last one is current
    const int files = opened_files();
    filled_ = false;
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    Observed observed{.ret = request()};
    testing::internal::GetCapturedStderr();
    testing::internal::GetCapturedStdout();
    observed.effect = filled_ || !platform_calls().empty() || opened_files() != files;
    return observed;
  }

  // A get without parameters, and those that ask for everything.
  std::vector<Observed> gets(const cJSON* row) {
    const std::string uri = text_of(row, "uri");
    char response[DTV_JSP_RESPONSE_MAX + 1] = {};
    std::vector<Observed> all = {observe([&] { return a_dtv_jsp_get(uri.c_str(), nullptr, response); })};
    const cJSON* const query = member(type_of(row), "query");
    if (!cJSON_IsArray(query)) return all;
    for (const std::string& text : request_texts(uri, "QUERY", query, member(row, "values")))
      all.push_back(observe([&] { return a_dtv_jsp_get(uri.c_str(), text.c_str(), response); }));
    return all;
  }

  // The sets that the type describes, else some with each word.
  std::vector<Observed> sets(const cJSON* row) {
    const std::string uri = text_of(row, "uri");
    const cJSON* const set = member(type_of(row), "set");
    std::vector<std::string> words = {"ACTION", "MODIFY", "SET", "ASSOCIATE"};
    if (cJSON_IsObject(set)) words = {text_of(set, "request")};
    std::vector<Observed> all;
    for (const std::string& word : words)
      for (const std::string& text : request_texts(uri, word, member(set, "fields"), member(row, "values")))
        all.push_back(observe([&] { return a_dtv_jsp_set(uri.c_str(), text.c_str()); }));
    return all;
  }

  void expect_as_listed(const cJSON* row, const char* use, const std::vector<Observed>& requests) {
    const std::string what = std::string(use) + " " + text_of(row, "uri");
    const bool accepted = std::ranges::any_of(elements_of(member(row, "without_effect")), [use](const cJSON* listed) {
      return std::strcmp(cJSON_GetStringValue(listed), use) == 0;
    });
    EXPECT_FALSE(accepted && is_true(row, use)) << what;
    if (std::ranges::any_of(requests, &Observed::effect)) had_effect_.insert(what);
    if (is_true(row, use)) {
      listed_.insert(what);
      return;
    }
    for (const Observed& request : requests) EXPECT_FALSE(request.effect) << what << " is not listed";
    if (accepted)
      EXPECT_EQ(requests.front().ret, 0) << what;
    else if (cJSON_IsObject(member(type_of(row), use)) || std::strcmp(use, "get") == 0)
      EXPECT_LT(requests.front().ret, 0) << what;
  }

  const cJSON* type_of(const cJSON* row) const {
    return member(member(root_.get(), "types"), text_of(row, "type").c_str());
  }

  std::set<std::string> listed_;      // "get /tv/..." that the description lists
  std::set<std::string> had_effect_;  // those that had an effect in some state of the set

 private:
  bool filled_ = false;
};

// USB detection either runs or not: its start has an effect in the one state, its stop and its lists in the other. The
// current input source is known once the list of sources was read.
TEST_F(List, GetsAndSetsAreListedWhereTheyHaveAnEffect) {
  EXPECT_EQ(uris_.size(), 402u) << "the whole registry";
  for (const char* const detection : {"/tv/menu/misc/usb_detect_deinit", "/tv/menu/misc/usb_detect_init"}) {
    for (const cJSON* const row : uris_) {
      observe([&] { return a_dtv_jsp_set(detection, R"({"PARAMETER":{"REQUEST":"ACTION"}})"); });
      expect_as_listed(row, "get", gets(row));
      expect_as_listed(row, "set", sets(row));
    }
  }
  std::vector<std::string> different;
  std::ranges::set_symmetric_difference(listed_, had_effect_, std::back_inserter(different));
  EXPECT_EQ(different, std::vector<std::string>());
  EXPECT_TRUE(listed_.contains("get /tv/cast/volume/volume"));
}

TEST_F(List, EventsAreListedWhereSomeHandlerRaisesThem) {
  observe([] { return tvc_ctrl_cec_detect_init(); });
  observe([] { return tv_ctrl_broadcast_init(); });
  std::set<std::string> listed, raised;
  for (const cJSON* const row : uris_) {
    a_dtv_jsp_add_listener_buffer(text_of(row, "uri").c_str());
    if (is_true(row, "notify")) listed.insert(text_of(row, "uri"));
  }
  // A request may register a callback, and another may end its registration.
  for (const cJSON* const row : uris_) {
    gets(row);
    sets(row);
    observe([] { return platform_raise_all(), 0; });
  }
  for (const cJSON* const row : uris_)
    if (const std::string uri = text_of(row, "uri"); !fetch(uri).value_or("").empty()) raised.insert(uri);
  EXPECT_EQ(raised, listed);
  EXPECT_TRUE(raised.contains("/tv/ws/notify/volume_ctrl"));
}

// Each URI that an application can use has a help text.
TEST_F(List, WhatIsListedHasASentenceOfHelp) {
  for (const cJSON* const row : uris_) {
    const std::string uri = text_of(row, "uri");
    const std::string help = member(row, "help") ? text_of(row, "help") : "";
    const bool good_for_something =
        is_true(row, "get") || is_true(row, "set") || is_true(row, "notify") || member(row, "without_effect");
    EXPECT_TRUE(!good_for_something || !help.empty()) << uri;
    if (help.empty()) continue;
    EXPECT_TRUE(help.front() >= 'A' && help.front() <= 'Z') << uri << ": " << help;
    EXPECT_TRUE(help.ends_with(".")) << uri << ": " << help;
  }
}

// A few known ones, so that an empty list is noticed.
TEST_F(List, SaysWhatAUriIsGoodFor) {
  struct Use {
    bool get = false, set = false, notify = false;
    std::string without_effect = "";
    bool operator==(const Use&) const = default;
  };
  const auto use_of = [this](const std::string& uri) -> Use {
    for (const cJSON* const row : uris_) {
      if (text_of(row, "uri") != uri) continue;
      const cJSON* const accepted = member(row, "without_effect");
      return {.get = is_true(row, "get"),
              .set = is_true(row, "set"),
              .notify = is_true(row, "notify"),
              .without_effect = accepted ? print_json(accepted) : ""};
    }
    return {};
  };
  EXPECT_EQ(use_of("/tv/cast/volume/volume"), (Use{.get = true, .set = true}));
  EXPECT_EQ(use_of("/tv/cast/volume/volume_increase"), (Use{})) << "an action brings no record";
  EXPECT_EQ(use_of("/tv/ws/notify/volume_ctrl"), (Use{.notify = true}));
  EXPECT_EQ(use_of("/tv/ws/notify/tuner_scan"), (Use{})) << "nothing raises it";
  EXPECT_EQ(use_of("/tv/config/value_number"), (Use{.get = true, .set = true}));
  EXPECT_EQ(use_of("/tv/config/value_action"), (Use{.set = true, .without_effect = R"(["get"])"}));
  EXPECT_EQ(use_of("/tv/config/value_range"), (Use{.get = true, .without_effect = R"(["set"])"}));
  EXPECT_EQ(use_of("/tv/config/language_string"), (Use{.get = true})) << "no word sets its type";
  EXPECT_EQ(use_of("/tv/key/irrc"), (Use{.set = true}));
  EXPECT_EQ(use_of("/tv/key/keyboard"), (Use{}));
  EXPECT_EQ(use_of("/tv/menu/common_setting/blue_mute"), (Use{.without_effect = R"(["get","set"])"}));
  EXPECT_EQ(use_of("/tv/menu/common_setting/ip_setting"), (Use{.without_effect = R"(["get"])"}));
  EXPECT_EQ(use_of("/tv/menu/misc/clean_all"), (Use{.set = true, .without_effect = R"(["get"])"}));
  EXPECT_EQ(use_of("/tv/menu/video/3d_item"), (Use{}));
  EXPECT_EQ(use_of("/tv/menu/tuner/scan"), (Use{}));
}

}  // namespace
