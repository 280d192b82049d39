// Media players: their operators, the tag of their events, and addresses in events.
#include <algorithm>
#include <cctype>
#include <cstring>
#include <iterator>
#include <set>
#include <string>
#include <vector>

#include "description.h"
#include "recording_platform.h"
#include "support.h"
#include "tv_ctrl_api/request.h"

namespace {

// --- The operators' table ---

struct Operator {
  std::string symbol;
  INT32 number;
  std::string word;  // empty: no request can name it
};
const std::vector<Operator> kOperators = {
#define TVC_OPERATOR(symbol, number, word, call) {#symbol, number, word},
#define TVC_OPERATOR_WITHOUT_WORD(symbol, number, call) {#symbol, number, ""},
#include "vex_tv_ctrl/playback.def"
};

std::string in_capitals(std::string text) {
  std::ranges::transform(text, text.begin(), [](char letter) { return static_cast<char>(std::toupper(letter)); });
  return text;
}

// The operator's number in the record of a request that has this JSON value as its "operator".
INT32 operator_of(const std::string& value, FieldUse use = kQuery) {
  const Json parameter = parse_json("{\"handle\":1,\"operator\":" + value + "}");
  EXPECT_TRUE(parameter) << value;
  T_CBROWSER_PB record = {};
  EXPECT_EQ(tvc_decode_parameter("", tvc_item_type(TYPE_CBROWSER_PB), use, parameter.get(), &record), Decoded::kDone);
  return record.pb_operator;
}

std::string quoted(const std::string& text) {
  const Json json(cJSON_CreateString(text.c_str()), cJSON_Delete);
  return print_json(json.get());
}

TEST(Operators, HaveANumberAndAWordOfTheirOwn) {
  std::set<INT32> numbers;
  std::set<std::string> symbols, words;
  for (const Operator& row : kOperators) {
    EXPECT_GT(row.number, 0) << row.symbol << ": 0 is no operator";
    EXPECT_TRUE(numbers.insert(row.number).second) << row.number;
    EXPECT_TRUE(symbols.insert(row.symbol).second) << row.symbol;
    if (row.word.empty()) continue;
    EXPECT_TRUE(words.insert(in_capitals(row.word)).second) << row.word;
    EXPECT_LE(row.word.size(), 31u) << row.word << ": a request's text is cut to 31 characters";
  }
  EXPECT_EQ(numbers.size() - words.size(), 1u) << "one cannot be named";
}

TEST(Operators, AreFoundByTheirWordInAnyCase) {
  for (const Operator& row : kOperators) {
    if (row.word.empty()) continue;
    std::string mixed = in_capitals(row.word), small = row.word;
    for (std::size_t i = 0; i < mixed.size(); ++i) {
      small[i] = static_cast<char>(std::tolower(small[i]));
      if (i % 2 == 1) mixed[i] = small[i];
    }
    for (const std::string& text : {row.word, in_capitals(row.word), small, mixed})
      for (const FieldUse use : {kQuery, kSet}) EXPECT_EQ(operator_of(quoted(text), use), row.number) << text;
  }
}

// Any other text gives 0. So no text reaches the operator that has no word.
TEST(Operators, AreReachedByNothingButTheirWord) {
  std::set<std::string> words;
  for (const Operator& row : kOperators) words.insert(in_capitals(row.word));
  std::vector<std::string> texts = {
      "", " ", "=", "\\0", "no such name", "null", std::string(31, 'x'), std::string(5000, 'x')};
  for (const Operator& row : kOperators) {
    const std::string number = std::to_string(row.number);
    for (const std::string& text :
         {row.symbol, "CBROWSER_PB_OPERATOR_" + row.symbol, number, number + "=", number + "=" + row.word,
          "=" + row.word, " " + row.word, row.word + " ", row.word + "x", row.word + row.word, "\t" + row.word,
          row.word.substr(0, row.word.size() / 2), row.word + "=" + number})
      texts.push_back(text);
  }
  // Every text of one or two bytes; most are not UTF-8.
  for (int first = 1; first < 256; ++first)
    for (int second = 0; second < 128; ++second) texts.push_back({static_cast<char>(first), static_cast<char>(second)});
  int tried = 0;
  for (const std::string& text : texts) {
    if (const std::string shown = text.c_str(); !shown.empty() && words.contains(in_capitals(shown))) continue;
    ++tried;
    EXPECT_EQ(operator_of(quoted(text)), 0) << text;
  }
  EXPECT_GT(tried, 30'000);
  for (const char* const value : {"109", "1", "1.5", "true", "null", "[\"Play\"]", "{\"Play\":1}", "[]", "{}"})
    printed_by([value] { EXPECT_EQ(operator_of(value), 0) << value; });
}

// A text is cut to 31 characters before it is compared; none of the words is as long.
TEST(Operators, ATextThatBeginsWithAWordIsNone) {
  for (const Operator& row : kOperators)
    for (std::size_t size = row.word.size() + 1; size < 40; ++size)
      EXPECT_EQ(operator_of(quoted(row.word + std::string(size - row.word.size(), 'y'))), 0) << row.word << size;
}

// --- The tag of a player's events ---

class Player : public PluginTest {
 protected:
  static constexpr char kEvents[] = "/tv/ws/notify/cbrowser_playback";

  void* content_record = nullptr;  // of the last request

  // The response to a request for a player with these members.
  Json created(const std::string& members) {
    platform_reset();
    get_handler = [this](UINT16 id, void* record) { return routed_get(id, content_record = record); };
    platform_answer("a_vextvapi_cb_pb_init", 77);
    char response[DTV_JSP_RESPONSE_MAX + 1] = {};
    const std::string request = R"({"PARAMETER":{"REQUEST":"QUERY",)" + members + R"("mediaPath":"/mnt/a.ts"}})";
    EXPECT_EQ(a_dtv_jsp_get("/tv/cbrowser/playback_init", request.c_str(), response), 0) << members;
    return parse_json(response);
  }

  // The callback and the tag that the plugin registered for player 77.
  static std::pair<a_vextvapi_cb_pb_nfy_fct, void*> registered() {
    for (const PlatformCall& call : platform_calls()) {
      if (call.name != "a_vextvapi_cb_pb_register_callback") continue;
      EXPECT_EQ(call.arguments.at(0), 77);
      return {address_in<a_vextvapi_cb_pb_nfy_fct>(call.arguments.at(1)), address_in<void*>(call.arguments.at(2))};
    }
    return {};
  }

  // Checks that the response, the registration and an event have the same tag. Returns it.
  static double expect_tag_registered(const Json& response, const std::string& where) {
    const cJSON* const item = member(response.get(), "ITEMS") ? member(response.get(), "ITEMS")->child : nullptr;
    EXPECT_EQ(keys_of(item), (std::vector<std::string>{"NAME", "handle", "pvTag"})) << where;
    EXPECT_EQ(number_of(item, "handle"), 77) << where;
    const double tag = cJSON_GetNumberValue(member(item, "pvTag"));
    const auto [callback, registered_tag] = registered();
    if (!callback) {
      ADD_FAILURE() << where << ": no callback";
      return 0;
    }
    EXPECT_EQ(static_cast<INT32>(reinterpret_cast<std::intptr_t>(registered_tag)), tag) << where;
    a_dtv_jsp_add_listener_buffer(kEvents);
    callback(3, registered_tag, nullptr, 0, 0, 0);
    const Json event = parse_json(fetch(kEvents).value_or(""));
    const cJSON* const items = member(event.get(), "ITEMS");
    EXPECT_EQ(cJSON_GetNumberValue(member(items ? items->child : nullptr, "TAG")),
              static_cast<UINT32>(static_cast<INT32>(tag)))
        << where;
    return tag;
  }
};

TEST_F(Player, TheApplicationsTagComesWithItsEvents) {
  for (const int tag : {1, 5, -3, INT32_MAX, INT32_MIN}) {
    const std::string text = std::to_string(tag);
    EXPECT_EQ(expect_tag_registered(created("\"pvTag\":" + text + ","), text), tag);
  }
}

// The response and the events have the low 32 bits of the address; if these are 0, another tag than 0.
TEST_F(Player, WithoutATagTheContentRecordsAddressIsTheTag) {
  for (const char* const members : {"", R"("pvTag":0,)", R"("pvTag":null,)", R"("bMode":7,"oMode":8,)"}) {
    const double tag = expect_tag_registered(created(members), members);
    ASSERT_NE(content_record, nullptr);
    const auto low = static_cast<INT32>(reinterpret_cast<std::intptr_t>(content_record));
    EXPECT_NE(tag, 0) << members;
    if (low == 0) continue;
    EXPECT_EQ(registered().second, content_record) << members;
    EXPECT_EQ(tag, low) << members;
  }
}

// --- Addresses in events ---

class Address : public PluginTest {
 protected:
  template <typename Record>
  static std::string told(const std::string& uri, Record record) {
    a_dtv_jsp_add_listener_buffer(uri.c_str());
    tv_ctrl_api_notify_func(uri.c_str(), &record);
    const Json event = parse_json(fetch(uri).value_or(""));
    const cJSON* const items = member(event.get(), "ITEMS");
    return print_json(items ? items->child : nullptr);
  }

  static std::string thumbnail(INT32 type, std::intptr_t arg1) {
    T_CBROWSER_PB_NOTIFY record = {};
    record.type = type;
    record.arg1 = arg1;
    return told("/tv/ws/notify/cbrowser_playback", record);
  }

  static std::string command(INT32 play_cmd, std::intptr_t value) {
    return told("/tv/ws/notify/cbrowser_pus", T_PUS_NOTIFY{.instance = 2, .play_cmd = play_cmd, .value = value});
  }
};

constexpr INT32 kThumbnail = 19;  // the player's event whose argument is a path
constexpr INT32 kStart = 1;       // the command whose argument is a path

TEST_F(Address, IsThatOfATextInOneKindOfEventOnly) {
  char path[] = "/tmp/\"a\".jpg";
  const auto address = reinterpret_cast<std::intptr_t>(path);
  EXPECT_EQ(thumbnail(kThumbnail, address),
            R"({"TYPE":19,"TAG":0,"ARG1":"/tmp/\"a\".jpg","ARG2":0,"ARG3":0,"ARG4":0})");
  EXPECT_EQ(command(kStart, address), R"({"instance":2,"playCmd":1,"value":"/tmp/\"a\".jpg"})");
  EXPECT_EQ(thumbnail(kThumbnail, 0), R"({"TYPE":19,"TAG":0,"ARG1":0,"ARG2":0,"ARG3":0,"ARG4":0})");
  EXPECT_EQ(command(kStart, 0), R"({"instance":2,"playCmd":1,"value":0})");
}

// Reading from address 1 ends the process.
TEST_F(Address, IsANumberInEveryOtherEvent) {
  std::vector<INT32> others = {-1, INT32_MIN, INT32_MAX, 0x113, 256 + kStart, 65536 + kThumbnail};
  for (INT32 number = 0; number < 300; ++number) others.push_back(number);
  for (const INT32 number : others) {
    const std::string text = std::to_string(number);
    if (number != kThumbnail)
      EXPECT_EQ(thumbnail(number, 1), R"({"TYPE":)" + text + R"(,"TAG":0,"ARG1":1,"ARG2":0,"ARG3":0,"ARG4":0})");
    if (number != kStart) EXPECT_EQ(command(number, 1), R"({"instance":2,"playCmd":)" + text + R"(,"value":1})");
  }
}

// The same through the platform's callbacks.
TEST_F(Address, IsPassedOnByTheCallbacks) {
  platform_answer("a_vextvapi_cb_pb_init", 77);
  char response[DTV_JSP_RESPONSE_MAX + 1] = {};
  a_dtv_jsp_get("/tv/cbrowser/playback_init", R"({"PARAMETER":{"REQUEST":"QUERY","pvTag":2,"mediaPath":"/a"}})",
                response);
  a_dtv_jsp_set("/tv/cbrowser/pus/pus_init", R"({"PARAMETER":{"REQUEST":"ACTION"}})");
  a_vextvapi_cb_pb_nfy_fct player = nullptr;
  a_vextvapi_pus_play_nfy_fct service = nullptr;
  for (const PlatformCall& call : platform_calls()) {
    if (call.name == "a_vextvapi_cb_pb_register_callback")
      player = address_in<a_vextvapi_cb_pb_nfy_fct>(call.arguments.at(1));
    if (call.name == "a_vextvapi_pus_reg_callback")
      service = address_in<a_vextvapi_pus_play_nfy_fct>(call.arguments.at(0));
  }
  ASSERT_TRUE(player && service);
  const char* const events = "/tv/ws/notify/cbrowser_playback";
  const char* const commands = "/tv/ws/notify/cbrowser_pus";
  a_dtv_jsp_add_listener_buffer(events);
  a_dtv_jsp_add_listener_buffer(commands);
  char path[] = "/a.jpg";
  void* const one = reinterpret_cast<void*>(1);
  EXPECT_EQ(player(18, reinterpret_cast<void*>(2), one, 3, 4, 5), 0);
  EXPECT_EQ(player(kThumbnail, reinterpret_cast<void*>(2), nullptr, 3, 4, 5), 0);
  EXPECT_EQ(player(kThumbnail, reinterpret_cast<void*>(2), path, 3, 4, 5), 0);
  EXPECT_EQ(service(6, 2, one, 9), 0);
  EXPECT_EQ(service(6, kStart, nullptr, 9), 0);
  EXPECT_EQ(service(6, kStart, path, 9), 0);
  std::ranges::fill(path, 'x');  // the text is the platform's again
  const Json player_events = parse_json(fetch(events).value_or(""));
  EXPECT_EQ(print_json(member(player_events.get(), "ITEMS")),
            R"([{"TYPE":18,"TAG":2,"ARG1":1,"ARG2":3,"ARG3":4,"ARG4":5},)"
            R"({"TYPE":19,"TAG":2,"ARG1":0,"ARG2":3,"ARG3":4,"ARG4":5},)"
            R"({"TYPE":19,"TAG":2,"ARG1":"/a.jpg","ARG2":3,"ARG3":4,"ARG4":5}])");
  const Json service_commands = parse_json(fetch(commands).value_or(""));
  EXPECT_EQ(print_json(member(service_commands.get(), "ITEMS")),
            R"([{"instance":6,"playCmd":2,"value":1},{"instance":6,"playCmd":1,"value":0},)"
            R"({"instance":6,"playCmd":1,"value":"/a.jpg"}])");
}

// No other type's notification reads from an address in its record. The records have 19 and 1 where the two types above
// have the kind of the event, and 1 everywhere else.
TEST_F(Address, IsNotLookedForInRecordsOfOtherTypes) {
  int types = 0;
  for (const ItemType* const item : tvc_item_types()) {
    if (item->notify.form == NotifyForm::kNone) continue;
    if (item->type == TYPE_CBROWSER_PB_NOTIFY || item->type == TYPE_PUS_NOTIFY) continue;
    ++types;
    const std::string uri = made_up_uri(item->type);
    a_dtv_jsp_add_listener_buffer(uri.c_str());
    for (const INT32 number : {kThumbnail, kStart}) {
      std::vector<INT32> record(item->record_size / sizeof number + 1, 1);
      record[0] = record[1] = number;
      tv_ctrl_api_notify_func(uri.c_str(), record.data());
      EXPECT_NE(fetch(uri).value_or(""), "") << tvc_item_type_name(item->type);
    }
  }
  EXPECT_GT(types, 10);
}

}  // namespace
