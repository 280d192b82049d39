// Calls forwarded, recorded, faulted and replayed; callbacks on their way to the plugin.
#include <dlfcn.h>

#include <atomic>
#include <chrono>
#include <cmath>
#include <cstring>
#include <limits>
#include <thread>
#include <utility>

#include "tap_support.h"

namespace {

using Lines = std::vector<std::string>;

// The platform behind the tap, and its way to call back.
void* platform() {
  static void* library = dlopen(TAP_PLATFORM, RTLD_NOW | RTLD_LOCAL);
  return library;
}

void use_platform() {
  char* error = nullptr;
  ASSERT_NE(platform(), nullptr) << dlerror();
  ASSERT_EQ(dtv_tap_platform(platform(), &error), 0) << error;
}

INT32 fire(INT32 type, void* arg) {
  return reinterpret_cast<INT32 (*)(INT32, void*)>(dlsym(platform(), "demo_platform_fire"))(type, arg);
}

std::string replay_error(const char* lines) {
  char* error = nullptr;
  EXPECT_EQ(dtv_tap_replay(lines, &error), -1);
  std::string text = error == nullptr ? "" : error;
  std::free(error);
  return text;
}

std::string replay_report() {
  char* report = dtv_tap_replay_report();
  std::string text = report == nullptr ? "" : report;
  std::free(report);
  return text;
}

std::int64_t raise(const char* function, const char* args) {
  std::int64_t result = -999;
  char* error = nullptr;
  EXPECT_EQ(dtv_tap_raise(function, args, &result, &error), 0) << (error == nullptr ? "" : error);
  std::free(error);
  return result;
}

std::string raise_error(const char* function, const char* args) {
  char* error = nullptr;
  EXPECT_EQ(dtv_tap_raise(function, args, nullptr, &error), -1);
  std::string text = error == nullptr ? "" : error;
  std::free(error);
  return text;
}

INT32 ignore_change(INT32, void*, void*, void*) { return 0; }

// What the latest event told: its word and its point, each followed where the contract says that it is an address.
std::mutex told_lock;
std::string told_text;

INT32 note_told(INT32 type, void* word, void* point, INT16 later_type, double weight) {
  const auto number = [](void* argument) {
    return std::to_string(static_cast<INT32>(reinterpret_cast<intptr_t>(argument)));
  };
  std::string text = number(word);
  if (type == DEMO_TOLD_WORD) text = word == nullptr ? "no word" : static_cast<const char*>(word);
  text += ", ";
  if (later_type != DEMO_TOLD_POINT) {
    text += number(point);
  } else if (point == nullptr) {
    text += "no point";
  } else {
    const DEMO_POINT& at = *static_cast<const DEMO_POINT*>(point);
    text += std::to_string(at.x) + "/" + std::to_string(at.y);
  }
  const std::lock_guard guard(told_lock);
  told_text = text;
  return static_cast<INT32>(weight * 4);
}

std::string take_told() {
  const std::lock_guard guard(told_lock);
  return std::exchange(told_text, "");
}

}  // namespace

TEST_F(TapTest, calls_are_forwarded_and_recorded_with_the_contracts_names) {
  use_platform();
  watch();
  EXPECT_EQ(demo_set(-3, 2), -1);
  EXPECT_EQ(demo_wide(UINT64_MAX), -2);
  EXPECT_EQ(demo_open("a\"b"), 3U);
  demo_nothing();
  EXPECT_STREQ(demo_title(4), "title");
  char text[8] = "???";
  UINT32 length = 8;
  EXPECT_EQ(demo_get_text("key", text, &length), 0);
  demo_get_short_text(text);
  const INT32 values[] = {4, 5};
  EXPECT_EQ(demo_sum(values, 2), 9);
  INT32 number = 41;
  demo_count(&number);
  EXPECT_EQ(number, 42);
  DEMO_POINT points[4];
  INT32 count = 4;
  demo_list(points, &count);
  EXPECT_EQ(plain_lines(),
            (Lines{R"({"call":"demo_set","in":{"value":-3,"flag":2},"ret":-1})",
                   R"({"call":"demo_wide","in":{"value":"18446744073709551615"},"ret":-2})",
                   R"({"call":"demo_open","in":{"path":"a\"b"},"ret":3})", R"({"call":"demo_nothing","in":{}})",
                   R"({"call":"demo_title","in":{"handle":4},"ret":"title"})",
                   R"({"call":"demo_get_text","in":{"key":"key","length":8},"ret":0,"out":{"text":"key","length":3}})",
                   R"({"call":"demo_get_short_text","in":{},"ret":0,"out":{"text":{"bytes":"4142434445464748"}}})",
                   R"({"call":"demo_sum","in":{"values":[4,5],"count":2},"ret":9})",
                   R"({"call":"demo_count","in":{"number":41},"ret":0,"out":{"number":42}})",
                   R"({"call":"demo_list","in":{"count":4},"ret":0,"out":{"points":[{"x":3,"y":4}],"count":1}})"}));
}

TEST_F(TapTest, a_text_that_is_read_and_written_is_recorded_both_ways) {
  use_platform();
  watch();
  char text[8] = "abc";
  UINT32 length = sizeof text;
  EXPECT_EQ(demo_look_up(&length, text), 0);
  EXPECT_STREQ(text, "bcd");
  EXPECT_EQ(
      plain_lines(),
      (Lines{R"({"call":"demo_look_up","in":{"length":8,"text":"abc"},"ret":0,"out":{"length":3,"text":"bcd"}})"}));
}

TEST_F(TapTest, doubles_are_forwarded_and_recorded) {
  use_platform();
  watch();
  double total = 0;
  EXPECT_EQ(demo_weigh(1.5, &total), 1);
  EXPECT_EQ(total, 3);
  DEMO_PARCEL parcel = {.number = 9, .weight = -1e-7};
  EXPECT_EQ(demo_send_parcel(&parcel), 9);
  EXPECT_EQ(demo_get_parcel(&parcel), 0);
  EXPECT_EQ(parcel.weight, -0.125);
  EXPECT_EQ(plain_lines(),
            (Lines{R"({"call":"demo_weigh","in":{"weight":1.5},"ret":1,"out":{"total":3}})",
                   R"({"call":"demo_send_parcel","in":{"parcel":{"number":9,"weight":-1e-07}},"ret":9})",
                   R"({"call":"demo_get_parcel","in":{},"ret":0,"out":{"parcel":{"number":3,"weight":-0.125}}})"}));
}

// What is recorded may differ in the last bit, as the library prints it.
TEST_F(TapTest, doubles_of_any_size_are_recorded_and_read_again) {
  for (const double weight : {1e15, -1e15, 1234567890123456.0, 1000000000000000.5, 9007199254740992.0,
                              9007199254740994.0, 18446744073709551616.0, -1e300, 5e-324, 0.1, 0.1 + 0.2}) {
    reset();
    use_platform();
    seen.lines.clear();
    watch();
    double total = 0;
    const DEMO_PARCEL parcel = {.number = 1, .weight = weight};
    demo_weigh(weight, &total);
    demo_send_parcel(&parcel);
    dtv_tap_watch(nullptr, nullptr);
    ASSERT_EQ(seen.lines.size(), 2U);
    std::string error;
    for (const std::string& line : seen.lines) {
      const tap::Json json = tap::json_parse(line, error);
      const cJSON* const in = cJSON_GetObjectItemCaseSensitive(json.get(), "in");
      const cJSON* const sent = cJSON_GetObjectItemCaseSensitive(in, "parcel");
      EXPECT_DOUBLE_EQ(cJSON_GetNumberValue(cJSON_GetObjectItemCaseSensitive(sent ? sent : in, "weight")), weight)
          << line;
    }
    // The same calls again are the recorded ones.
    ASSERT_EQ(dtv_tap_replay((seen.lines[0] + "\n" + seen.lines[1]).c_str(), nullptr), 0);
    EXPECT_EQ(demo_weigh(weight, &total), weight > 1.25 ? 1 : 0);
    EXPECT_DOUBLE_EQ(total, 2 * weight);
    demo_send_parcel(&parcel);
    EXPECT_EQ(replay_report(), "") << weight;
  }
}

// Every digit of a whole number is recorded up to 2^53.
TEST_F(TapTest, whole_doubles_are_recorded_without_an_exponent) {
  use_platform();
  watch();
  DEMO_PARCEL parcel = {.number = 0, .weight = 1e15};
  demo_send_parcel(&parcel);
  parcel.weight = -9007199254740992.0;
  demo_send_parcel(&parcel);
  EXPECT_EQ(plain_lines(),
            (Lines{R"({"call":"demo_send_parcel","in":{"parcel":{"number":0,"weight":1000000000000000}},"ret":0})",
                   R"({"call":"demo_send_parcel","in":{"parcel":{"number":0,"weight":-9007199254740992}},"ret":0})"}));
}

TEST_F(TapTest, doubles_that_are_no_numbers_do_no_harm) {
  constexpr double kInfinity = std::numeric_limits<double>::infinity();
  for (const double weight : {std::numeric_limits<double>::quiet_NaN(), kInfinity, -kInfinity}) {
    reset();
    use_platform();
    seen.lines.clear();
    watch();
    double total = 0;
    const DEMO_PARCEL parcel = {.number = 1, .weight = weight};
    demo_weigh(weight, &total);
    EXPECT_EQ(std::isnan(total), std::isnan(weight));
    EXPECT_EQ(demo_send_parcel(&parcel), 1);
    EXPECT_EQ(plain_lines(),
              (Lines{R"({"call":"demo_weigh","in":{"weight":null},"ret":)" + std::string(weight > 0 ? "1" : "0") +
                         R"(,"out":{"total":null}})",
                     R"({"call":"demo_send_parcel","in":{"parcel":{"number":1,"weight":null}},"ret":1})"}));
    script(R"([{"call":"demo_weigh","in":[1.5],"ret":7},{"call":"demo_weigh","in":[null],"ret":8,"out":{"total":0.5}},
               {"call":"demo_send_parcel","in":[{"weight":3}],"ret":9}])");
    EXPECT_EQ(demo_weigh(weight, &total), 8);
    EXPECT_EQ(total, 0.5);
    EXPECT_EQ(demo_send_parcel(&parcel), 0);
    ASSERT_EQ(dtv_tap_replay((seen.lines[0] + "\n" + seen.lines[1]).c_str(), nullptr), 0);
    demo_weigh(weight, &total);
    demo_send_parcel(&parcel);
    EXPECT_EQ(replay_report(), "");
  }
}

TEST_F(TapTest, an_items_record_is_the_one_that_its_id_names) {
  use_platform();
  watch();
  DEMO_POINT point = {.x = 1, .y = 2};
  demo_ask_item(0x5EED01, &point);
  EXPECT_EQ(point.y, 9);
  demo_put_item(0x5EED01, &point);
  demo_put_item(0x5EED01, nullptr);
  demo_put_item(7, &point);  // an item without a record: the tap does not know its members
  EXPECT_EQ(plain_lines(), (Lines{R"({"call":"demo_ask_item","in":{"item_id":6221057,"value":{"x":1,"y":2}},)"
                                  R"("ret":0,"out":{"value":{"x":1,"y":9}}})",
                                  R"({"call":"demo_put_item","in":{"item_id":6221057,"value":{"x":1,"y":9}},"ret":0})",
                                  R"({"call":"demo_put_item","in":{"item_id":6221057,"value":null},"ret":0})",
                                  R"({"call":"demo_put_item","in":{"item_id":7,"value":{}},"ret":0})"}));
}

TEST_F(TapTest, records_are_written_field_by_field) {
  use_platform();
  watch();
  DEMO_BOX box;
  demo_get_box(3, &box);
  box.marks[1].y = 6;
  box.comment = "\xff";
  EXPECT_EQ(demo_put_box(&box), 6);
  demo_open("\xc3\x28");
  const std::string record =
      R"({"corner":{"x":1,"y":-2},"name":"box","wide_name":[0,0,0,0],"bytes":[0,0,0],"size":"3458764513820540928","colour":0,)";
  EXPECT_EQ(plain_lines(),
            (Lines{R"({"call":"demo_get_box","in":{"id":3},"ret":0,"out":{"box":)" + record +
                       R"("marks":[{"x":0,"y":0},{"x":0,"y":0}],"comment":null,"link":0}}})",
                   R"({"call":"demo_put_box","in":{"box":)" + record +
                       R"("marks":[{"x":0,"y":0},{"x":0,"y":6}],"comment":{"bytes":"ff"},"link":0}},"ret":6})",
                   R"({"call":"demo_open","in":{"path":{"bytes":"c328"}},"ret":2})"}));
}

TEST_F(TapTest, callbacks_are_recorded_and_get_their_tag_and_the_hook_runs_after_them) {
  use_platform();
  fire(0, nullptr);  // forgets what other tests registered
  watch();
  static std::vector<std::string> order;
  order.clear();
  dtv_tap_on_event([](void* context) { static_cast<std::vector<std::string>*>(context)->push_back("hook"); }, &order);
  demo_register(
      [](INT32 type, void* tag, void*, void*) -> INT32 {
        order.push_back("callback " + std::to_string(type) + " " + std::to_string(reinterpret_cast<intptr_t>(tag)));
        return 4;
      },
      reinterpret_cast<void*>(1219752));
  demo_register([](INT32, void*, void*, void*) -> INT32 { return 5; }, nullptr);
  // Both callbacks stay registered, each with its own trampoline.
  EXPECT_EQ(fire(1, reinterpret_cast<void*>(-5)), 45);
  EXPECT_EQ(order, (Lines{"callback 100 1219752", "hook", "hook", "callback 1 1219752", "hook", "hook"}));
  const Lines lines = plain_lines();
  ASSERT_EQ(lines.size(), 6U);
  EXPECT_EQ(lines[0],
            R"({"event":"demo_register","in":{"callback_type":100,"pv_tag":1219752,"pv_arg1":0,"pv_arg2":0},"ret":4})");
  EXPECT_EQ(lines[1], R"({"call":"demo_register","in":{"callback":1,"tag":1219752},"ret":0})");
  EXPECT_EQ(lines[4],
            R"({"event":"demo_register","in":{"callback_type":1,"pv_tag":1219752,"pv_arg1":-5,"pv_arg2":0},"ret":4})");
  // The latest one is what a raise calls.
  EXPECT_EQ(raise("demo_register", "[1,null,0,0]"), 5);
  EXPECT_EQ(demo_register(nullptr, nullptr), 0);
  EXPECT_NE(raise_error("demo_register", "[1]").find("no callback is registered"), std::string::npos);
}

TEST_F(TapTest, raised_arguments_of_every_kind_arrive) {
  script("[]");
  static std::string got;
  demo_register_item(
      1,
      [](UINT32 tag, const char* name, const DEMO_BOX* box, const INT16* values, INT32 count) -> INT32 {
        got = std::to_string(tag) + " " + (name == nullptr ? "null" : name) + " " +
              (box == nullptr ? "null" : box->name) + " " + (values == nullptr ? "null" : std::to_string(values[1])) +
              " " + std::to_string(count);
        return -7;
      },
      4000000000U);
  EXPECT_EQ(raise("demo_register_item", R"([null,"n",{"name":"b"},[5,-6],2])"), -7);
  EXPECT_EQ(got, "4000000000 n b -6 2");
  EXPECT_EQ(raise("demo_register_item", R"([3,null,null,null,0])"), -7);
  EXPECT_EQ(got, "3 null null null 0");
  EXPECT_EQ(raise("demo_register_item", R"({"count":9})"), -7);
  EXPECT_EQ(got, "4000000000 null null null 9");

  static std::int64_t done;
  demo_register_done([](INT64 number, UINT32 tag) { done = number + tag; }, 1);
  EXPECT_EQ(raise("demo_register_done", R"(["9007199254740993"])"), 0);
  EXPECT_EQ(done, 9007199254740994);

  EXPECT_NE(raise_error("demo_nowhere", "[]").find("demo_nowhere"), std::string::npos);
  EXPECT_NE(raise_error("demo_set", "[]").find("registers no callback"), std::string::npos);
  EXPECT_NE(raise_error("demo_register", R"([[]])").find("argument 0 (callback_type)"), std::string::npos);
  EXPECT_NE(raise_error("demo_register", "[1,2,3,4,5]").find("too many"), std::string::npos);
}

TEST_F(TapTest, a_word_is_an_address_where_another_argument_says_so) {
  script("[]");
  demo_register_told(note_told);
  watch();
  const struct {
    const char* args;
    const char* told;
    const char* recorded;
  } events[] = {
      {R"([19,"/tmp/\"1\".jpg",{"x":1,"y":-2},-1])", "/tmp/\"1\".jpg, 1/-2",
       R"("type":19,"word":"/tmp/\"1\".jpg","point":{"x":1,"y":-2},"later_type":-1)"},
      {R"({"word":"by name","type":19})", "by name, 0", R"("type":19,"word":"by name","point":0,"later_type":0)"},
      {R"([19,"123",{"y":5},-1])", "123, 0/5", R"("type":19,"word":"123","point":{"x":0,"y":5},"later_type":-1)"},
      {R"([19,{"bytes":"2fff"},{"bytes":"01000200"},-1])", "/\xff, 1/2",
       R"("type":19,"word":{"bytes":"2fff"},"point":{"x":1,"y":2},"later_type":-1)"},
      {R"([19,"",8,0])", ", 8", R"("type":19,"word":"","point":8,"later_type":0)"},
      {"[19,null,null,-1]", "no word, no point", R"("type":19,"word":null,"point":null,"later_type":-1)"},
      {"[19,94022373654528,94022373654528,-1]", "no word, no point",
       R"("type":19,"word":null,"point":null,"later_type":-1)"},
      {R"([18,-5,"123",1])", "-5, 123", R"("type":18,"word":-5,"point":123,"later_type":1)"},
      {"[-1,null,null,19]", "0, 0", R"("type":-1,"word":0,"point":0,"later_type":19)"},
      {"[]", "0, 0", R"("type":0,"word":0,"point":0,"later_type":0)"},
  };
  for (const auto& event : events) {
    SCOPED_TRACE(event.args);
    EXPECT_EQ(raise("demo_register_told", event.args), 0);
    EXPECT_EQ(take_told(), event.told);
    EXPECT_EQ(plain_lines().back(),
              std::string(R"({"event":"demo_register_told","in":{)") + event.recorded + R"(,"weight":0},"ret":0})");
  }
  raise("demo_register_told", "[0,4294967295]");
  EXPECT_EQ(take_told(), "-1, 0");
  EXPECT_NE(raise_error("demo_register_told", "[19,true]").find("argument 1 (word)"), std::string::npos);
  EXPECT_NE(raise_error("demo_register_told", R"([1,0,{"z":1},1])").find("has no field"), std::string::npos);
}

TEST_F(TapTest, a_text_and_a_record_are_passed_by_address_also_for_a_number) {
  script("[]");
  static std::string got;
  demo_register_told([](INT32, void* word, void* point, INT16, double) -> INT32 {
    got = static_cast<const char*>(word) + std::to_string(static_cast<const DEMO_POINT*>(point)->y);
    return 0;
  });
  raise("demo_register_told", R"([18,"text",{"y":4},0])");
  EXPECT_EQ(got, "text4");
}

TEST_F(TapTest, doubles_are_passed_to_callbacks) {
  script("[]");
  demo_register_told(note_told);
  watch();
  EXPECT_EQ(raise("demo_register_told", "[0,7,8,0,2]"), 8);
  EXPECT_EQ(raise("demo_register_told", R"({"weight":-1.5})"), -6);
  EXPECT_EQ(plain_lines(), (Lines{R"({"event":"demo_register_told",)"
                                  R"("in":{"type":0,"word":7,"point":8,"later_type":0,"weight":2},"ret":8})",
                                  R"({"event":"demo_register_told",)"
                                  R"("in":{"type":0,"word":0,"point":0,"later_type":0,"weight":-1.5},"ret":-6})"}));
  EXPECT_NE(raise_error("demo_register_told", "[1,2,3,4,5,6]").find("too many"), std::string::npos);
  EXPECT_NE(raise_error("demo_register_told", R"({"weight":"heavy"})").find("\"heavy\" is not a number"),
            std::string::npos);
}

TEST_F(TapTest, faults_fail_delay_and_drop) {
  use_platform();
  const dtv_tap_fault_t fails{.delay_ms = 0, .fails = 1, .result = -4, .drop_callback = 0};
  EXPECT_EQ(dtv_tap_fault("demo_count", &fails), 0);
  INT32 number = 5;
  EXPECT_EQ(demo_count(&number), -4);
  EXPECT_EQ(number, 0);
  const dtv_tap_fault_t slow{.delay_ms = 30, .fails = 0, .result = 0, .drop_callback = 0};
  EXPECT_EQ(dtv_tap_fault("demo_count", &slow), 0);
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(demo_count(&number), 0);
  EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(30));
  EXPECT_EQ(number, 1);

  static int calls;
  calls = 0;
  demo_register([](INT32, void*, void*, void*) -> INT32 { return ++calls; }, nullptr);
  const int before = calls;
  const dtv_tap_fault_t drops{.delay_ms = 0, .fails = 0, .result = 0, .drop_callback = 1};
  EXPECT_EQ(dtv_tap_fault("demo_register", &drops), 0);
  EXPECT_EQ(raise("demo_register", "[1]"), 0);
  EXPECT_EQ(calls, before);
  EXPECT_EQ(dtv_tap_fault("demo_register", nullptr), 0);
  EXPECT_EQ(raise("demo_register", "[1]"), before + 1);

  EXPECT_EQ(dtv_tap_fault("demo_nowhere", &fails), -1);
  char* list = dtv_tap_list();
  EXPECT_NE(std::strstr(list, R"("name":"demo_count","params":["number"])"), nullptr);
  EXPECT_NE(std::strstr(list, R"("fault":{"delay_ms":30,"fails":0,"result":0,"drop_callback":0})"), nullptr);
  std::free(list);
  dtv_tap_fault(nullptr, nullptr);
  list = dtv_tap_list();
  EXPECT_EQ(std::strstr(list, "delay_ms"), nullptr);
  std::free(list);
}

TEST_F(TapTest, a_platform_that_lacks_a_function_is_refused_by_name) {
  char* error = nullptr;
  void* c_library = dlopen("libc.so.6", RTLD_NOW);
  EXPECT_EQ(dtv_tap_platform(c_library, &error), -1);
  ASSERT_NE(error, nullptr);
  EXPECT_NE(std::strstr(error, "demo_set"), nullptr);
  std::free(error);
}

TEST_F(TapTest, a_recording_answers_as_it_was) {
  use_platform();
  watch();
  static std::atomic<int> last_type;
  const demo_changed_fct note = [](INT32 type, void*, void*, void*) -> INT32 {
    last_type = type;
    return demo_set(static_cast<INT16>(type), 1);
  };
  demo_register(note, reinterpret_cast<void*>(9));
  demo_set(5, 1);
  DEMO_BOX box;
  demo_get_box(2, &box);
  raise("demo_register", "[6]");
  char text[8];
  UINT32 length = 8;
  demo_get_text("end", text, &length);
  dtv_tap_watch(nullptr, nullptr);
  std::string recording;
  for (const std::string& line : seen.lines) recording += line + "\n";

  char* error = nullptr;
  ASSERT_EQ(dtv_tap_replay(recording.c_str(), &error), 0) << error;
  last_type = 0;
  EXPECT_EQ(demo_register(note, reinterpret_cast<void*>(9)), 0);
  EXPECT_EQ(demo_set(5, 1), 6);
  EXPECT_EQ(last_type, 100);  // the event of the registration came before this call was answered
  std::memset(&box, 0, sizeof box);
  demo_get_box(2, &box);
  EXPECT_STREQ(box.name, "box");
  length = 8;
  demo_get_text("end", text, &length);
  EXPECT_EQ(last_type, 6);
  EXPECT_STREQ(text, "end");
  EXPECT_EQ(replay_report(), "");

  // From here on nothing was recorded.
  EXPECT_EQ(demo_set(5, 1), 0);
  EXPECT_NE(replay_report().find(R"(after the end of the recording came demo_set{"value":5,"flag":1})"),
            std::string::npos);
}

TEST_F(TapTest, a_replayed_event_brings_the_text_and_the_record_that_were_recorded) {
  use_platform();
  demo_register_told(note_told);
  watch();
  demo_set(1, 1);
  raise("demo_register_told", R"([19,"/tmp/picture",{"x":3,"y":4},-1])");
  demo_set(2, 1);
  raise("demo_register_told", "[19,null,null,-1]");
  demo_set(3, 1);
  raise("demo_register_told", "[18,-6,7,0]");
  demo_set(4, 1);
  dtv_tap_watch(nullptr, nullptr);
  std::string recording;
  for (const std::string& line : seen.lines) recording += line + "\n";

  ASSERT_EQ(dtv_tap_replay(recording.c_str(), nullptr), 0);
  take_told();
  demo_set(1, 1);
  demo_set(2, 1);  // which waits for the event before it
  EXPECT_EQ(take_told(), "/tmp/picture, 3/4");
  demo_set(3, 1);
  EXPECT_EQ(take_told(), "no word, no point");
  demo_set(4, 1);
  EXPECT_EQ(take_told(), "-6, 7");
  EXPECT_EQ(replay_report(), "");
}

TEST_F(TapTest, a_replay_follows_no_address_of_the_recorded_process) {
  demo_register_told(note_told);
  const char* recording =
      R"({"seq":1,"call":"demo_set","in":{"value":1,"flag":0},"ret":11}
{"seq":2,"event":"demo_register_told","in":{"type":19,"word":94022373654528,"point":4096,"later_type":-1},"ret":0}
{"seq":3,"call":"demo_set","in":{"value":2,"flag":0},"ret":12})";
  ASSERT_EQ(dtv_tap_replay(recording, nullptr), 0);
  take_told();
  EXPECT_EQ(demo_set(1, 0), 11);
  EXPECT_EQ(demo_set(2, 0), 12);
  EXPECT_EQ(take_told(), "no word, no point");
  EXPECT_EQ(replay_report(), "");
}

TEST_F(TapTest, a_call_that_differs_from_the_recording_is_told) {
  const char* recording =
      "{\"t\":1,\"seq\":1,\"thread\":1,\"call\":\"demo_set\",\"in\":{\"value\":1,\"flag\":0},\"ret\":11}\n"
      "{\"t\":2,\"seq\":2,\"thread\":1,\"call\":\"demo_set\",\"in\":{\"value\":2,\"flag\":0},\"ret\":12}\n\n"
      "{\"t\":3,\"seq\":3,\"thread\":1,\"call\":\"demo_colour\",\"in\":{\"e_colour\":0},\"ret\":13}\n";
  ASSERT_EQ(dtv_tap_replay(recording, nullptr), 0);
  EXPECT_EQ(demo_set(1, 0), 11);
  EXPECT_EQ(replay_report(), "");
  EXPECT_EQ(demo_set(3, 0), 12);  // with other arguments
  EXPECT_EQ(replay_report(),
            "line 2: recorded was demo_set{\"value\":2,\"flag\":0}, came demo_set{\"value\":3,\"flag\":0}\n");
  EXPECT_EQ(demo_colour(DEMO_RED), 13);
  ASSERT_EQ(dtv_tap_replay(recording, nullptr), 0);
  EXPECT_EQ(demo_colour(DEMO_RED), 13);  // calls left out
  EXPECT_NE(replay_report().find("came demo_colour"), std::string::npos);
}

TEST_F(TapTest, a_recording_that_ends_has_raised_its_events) {
  static std::atomic<int> ended;
  ended = 0;
  demo_register(
      [](INT32, void*, void*, void*) -> INT32 {
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
        ++ended;
        return 0;
      },
      nullptr);
  const char* recording =
      "{\"seq\":1,\"call\":\"demo_set\",\"in\":{\"value\":1,\"flag\":0},\"ret\":11}\n"
      "{\"seq\":2,\"event\":\"demo_register\",\"in\":{\"callback_type\":1}}\n";
  for (const char* next : {recording, static_cast<const char*>(nullptr)}) {
    ASSERT_EQ(dtv_tap_replay(recording, nullptr), 0);
    EXPECT_EQ(demo_set(1, 0), 11);
    const int before = ended;
    ASSERT_EQ(dtv_tap_replay(next, nullptr), 0);
    EXPECT_EQ(ended, before + 1);
  }
}

TEST_F(TapTest, a_wrong_recording_is_refused_with_its_line) {
  EXPECT_NE(replay_error("{\"call\":\"demo_set\",\"in\":{}}\n{").find("line 2"), std::string::npos);
  EXPECT_NE(replay_error("{\"call\":\"demo_sit\"}").find("demo_sit"), std::string::npos);
  EXPECT_NE(replay_error("{\"t\":1}").find("neither"), std::string::npos);
  EXPECT_NE(replay_error("{\"call\":\"demo_get_number\",\"out\":{\"number\":[]}}").find("number"), std::string::npos);
}

TEST_F(TapTest, order_thread_and_duration_stand_in_a_line) {
  use_platform();
  watch();
  const dtv_tap_fault_t slow{.delay_ms = 5, .fails = 0, .result = 0, .drop_callback = 0};
  dtv_tap_fault("demo_set", &slow);
  demo_set(1, 0);
  std::thread([] { demo_colour(DEMO_RED); }).join();
  ASSERT_EQ(seen.lines.size(), 2U);
  std::string error;
  const tap::Json first = tap::json_parse(seen.lines[0], error);
  const tap::Json second = tap::json_parse(seen.lines[1], error);
  const auto number = [](const tap::Json& line, const char* key) {
    return cJSON_GetObjectItemCaseSensitive(line.get(), key)->valuedouble;
  };
  EXPECT_LT(number(first, "seq"), number(second, "seq"));
  EXPECT_GE(number(second, "t"), number(first, "t") + 5000);
  EXPECT_GE(number(first, "duration"), 5000);
  EXPECT_FALSE(cJSON_HasObjectItem(second.get(), "duration"));
  EXPECT_NE(number(first, "thread"), number(second, "thread"));
}

TEST_F(TapTest, a_watcher_that_was_taken_away_is_no_longer_running) {
  use_platform();
  struct Slow {
    std::atomic<int> inside{0};
    std::atomic<int> calls{0};
  } slow;
  std::atomic<bool> stop{false};
  std::vector<std::thread> threads;
  for (int t = 0; t < 3; ++t) {
    threads.emplace_back([&] {
      while (!stop) demo_set(1, 1);
    });
  }
  for (int round = 0; round < 50; ++round) {
    dtv_tap_watch(
        [](void* context, const char*) {
          Slow& state = *static_cast<Slow*>(context);
          ++state.inside;
          ++state.calls;
          std::this_thread::yield();
          --state.inside;
        },
        &slow);
    const int before = slow.calls;
    while (slow.calls < before + 3) std::this_thread::yield();
    dtv_tap_watch(nullptr, nullptr);
    EXPECT_EQ(slow.inside, 0);
    const int after = slow.calls;
    std::this_thread::yield();
    EXPECT_EQ(slow.calls, after);
  }
  stop = true;
  for (std::thread& thread : threads) thread.join();
}

TEST_F(TapTest, a_watcher_may_take_itself_away_and_may_call) {
  use_platform();
  static int calls;
  calls = 0;
  dtv_tap_watch(
      [](void*, const char*) {
        ++calls;
        dtv_tap_watch(nullptr, nullptr);
        demo_set(1, 1);
      },
      nullptr);
  demo_set(1, 1);
  demo_set(1, 1);
  EXPECT_EQ(calls, 1);
}

TEST_F(TapTest, everything_at_once_from_many_threads) {
  use_platform();
  demo_register(ignore_change, nullptr);
  std::atomic<bool> stop{false};
  std::vector<std::thread> threads;
  for (int t = 0; t < 3; ++t) {
    threads.emplace_back([&] {
      while (!stop) {
        INT32 number = 1;
        demo_count(&number);
        DEMO_BOX box;
        demo_get_box(1, &box);
        demo_register(ignore_change, nullptr);
      }
    });
  }
  const dtv_tap_fault_t fault{.delay_ms = 0, .fails = 1, .result = -1, .drop_callback = 1};
  for (int round = 0; round < 100; ++round) {
    watch();
    script(R"([{"call":"demo_count","out":{"0":3},"times":5}])");
    dtv_tap_fault("demo_get_box", &fault);
    dtv_tap_fault("demo_register", &fault);
    raise("demo_register", "[1]");
    std::free(dtv_tap_list());
    dtv_tap_on_event([](void*) {}, nullptr);
    reset();
  }
  stop = true;
  for (std::thread& thread : threads) thread.join();
  EXPECT_GT(seen.lines.size(), 0U);
}
