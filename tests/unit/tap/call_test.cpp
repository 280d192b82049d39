// Calls forwarded, recorded, faulted and replayed.
#include <dlfcn.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <cstring>
#include <limits>
#include <thread>

#include "support.h"

namespace {

using Lines = std::vector<std::string>;

std::string replay_error(const char* lines) {
  char* error = nullptr;
  EXPECT_EQ(dtv_tap_replay(lines, &error), -1);
  std::string text = error == nullptr ? "" : error;
  std::free(error);
  return text;
}

INT32 ignore_change(INT32, void*, void*, void*) { return 0; }

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

TEST_F(TapTest, faults_fail_delay_and_drop) {
  use_platform();
  const dtv_tap_fault_t fails{.delay_ms = 0, .fails = 1, .result = -4, .drop_callback = 0, .repeat_callback = 0};
  EXPECT_EQ(dtv_tap_fault("demo_count", &fails), 0);
  INT32 number = 5;
  EXPECT_EQ(demo_count(&number), -4);
  EXPECT_EQ(number, 0);
  const dtv_tap_fault_t slow{.delay_ms = 30, .fails = 0, .result = 0, .drop_callback = 0, .repeat_callback = 0};
  EXPECT_EQ(dtv_tap_fault("demo_count", &slow), 0);
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(demo_count(&number), 0);
  EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(30));
  EXPECT_EQ(number, 1);

  static int calls;
  calls = 0;
  demo_register([](INT32, void*, void*, void*) -> INT32 { return ++calls; }, nullptr);
  const int before = calls;
  const dtv_tap_fault_t drops{.delay_ms = 0, .fails = 0, .result = 0, .drop_callback = 1, .repeat_callback = 0};
  EXPECT_EQ(dtv_tap_fault("demo_register", &drops), 0);
  EXPECT_EQ(raise("demo_register", "[1]"), 0);
  EXPECT_EQ(calls, before);
  EXPECT_EQ(dtv_tap_fault("demo_register", nullptr), 0);
  EXPECT_EQ(raise("demo_register", "[1]"), before + 1);

  const dtv_tap_fault_t repeats{.delay_ms = 0, .fails = 0, .result = 0, .drop_callback = 0, .repeat_callback = 3};
  EXPECT_EQ(dtv_tap_fault("demo_register", &repeats), 0);
  watch();
  EXPECT_EQ(raise("demo_register", "[1]"), before + 4) << "the last of three results";
  std::size_t lines = 0;
  for (const std::string& line : plain_lines()) lines += line.find("\"event\"") != std::string::npos ? 1 : 0;
  EXPECT_EQ(lines, 3U);

  EXPECT_EQ(dtv_tap_fault("demo_nowhere", &fails), -1);
  char* list = dtv_tap_list();
  EXPECT_NE(std::strstr(list, R"("name":"demo_count","params":["number"])"), nullptr);
  EXPECT_NE(std::strstr(list, R"("fault":{"delay_ms":30,"fails":0,"result":0,"drop_callback":0,"repeat_callback":0})"),
            nullptr);
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
            "entry 2: recorded was demo_set{\"value\":2,\"flag\":0}, came demo_set{\"value\":3,\"flag\":0}\n");
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

TEST_F(TapTest, a_stamp_has_its_place_between_calls_and_counts_callbacks_under_way) {
  use_platform();
  watch();
  dtv_tap_stamp_t before{};
  dtv_tap_stamp_t after{};
  dtv_tap_stamp(&before);
  demo_set(1, 0);
  dtv_tap_stamp(&after);
  EXPECT_EQ(after.seq, before.seq + 2) << "the call's number is between them";
  EXPECT_EQ(after.thread, before.thread);
  EXPECT_GE(after.t, before.t);
  EXPECT_EQ(after.callbacks, 0);
  static dtv_tap_stamp_t inside;
  demo_register(
      [](INT32, void*, void*, void*) -> INT32 {
        dtv_tap_stamp(&inside);
        return 0;
      },
      nullptr);
  EXPECT_EQ(raise("demo_register", "[1]"), 0);
  EXPECT_EQ(inside.callbacks, 1);
  EXPECT_NE(inside.thread, after.thread);
  dtv_tap_stamp(&after);
  EXPECT_EQ(after.callbacks, 0);
}

TEST_F(TapTest, a_held_callback_begins_when_it_is_released_and_not_much_later) {
  use_platform();
  watch();
  static std::atomic<int> begun;
  demo_register(
      [](INT32, void*, void*, void*) -> INT32 {
        ++begun;
        return 0;
      },
      nullptr);
  begun = 0;
  using Clock = std::chrono::steady_clock;

  dtv_tap_hold_callbacks(1);
  dtv_tap_hold_callbacks(1);
  const auto held = Clock::now();
  std::thread other([] { EXPECT_EQ(raise("demo_register", "[1]"), 0); });
  std::this_thread::sleep_for(std::chrono::milliseconds(20));
  dtv_tap_hold_callbacks(0);  // it is held twice
  const int before = begun;
  dtv_tap_stamp_t stamp{};
  dtv_tap_stamp(&stamp);
  // A machine that is too busy has let the time of the hold pass.
  if (Clock::now() - held < std::chrono::milliseconds(100)) {
    EXPECT_EQ(before, 0);
    EXPECT_EQ(stamp.callbacks, 0) << "a held callback is not under way";
  }
  dtv_tap_hold_callbacks(0);
  other.join();
  EXPECT_EQ(begun, 1);

  // A callback that the platform cannot go on without is not held for ever.
  dtv_tap_hold_callbacks(1);
  const auto again = Clock::now();
  EXPECT_EQ(raise("demo_register", "[1]"), 0);
  EXPECT_GE(Clock::now() - again, std::chrono::milliseconds(100));
  EXPECT_EQ(begun, 2);
  dtv_tap_hold_callbacks(0);
}

// Callbacks of the holder's own thread do not wait, since they would wait for themselves.
TEST_F(TapTest, a_callback_on_the_thread_that_holds_it_does_not_wait) {
  use_platform();
  watch();
  dtv_tap_hold_callbacks(1);
  auto shortest = std::chrono::steady_clock::duration::max();  // on a busy machine any one may take long
  for (int i = 0; i < 10; ++i) {
    const auto begun = std::chrono::steady_clock::now();
    demo_register(ignore_change, nullptr);  // the platform calls back before it returns
    shortest = std::min(shortest, std::chrono::steady_clock::now() - begun);
  }
  dtv_tap_hold_callbacks(0);
  EXPECT_EQ(std::ranges::count_if(seen.lines,
                                  [](const std::string& line) { return line.find("\"event\"") != std::string::npos; }),
            10);
  EXPECT_LT(shortest, std::chrono::milliseconds(100));
}

TEST_F(TapTest, order_thread_and_duration_stand_in_a_line) {
  use_platform();
  watch();
  const dtv_tap_fault_t slow{.delay_ms = 5, .fails = 0, .result = 0, .drop_callback = 0, .repeat_callback = 0};
  dtv_tap_fault("demo_set", &slow);
  demo_set(1, 0);
  // Only a call that takes time has a duration. On a busy machine any call may be interrupted, so that it has one.
  std::string error;
  tap::Json second;
  for (int attempts = 0; attempts < 100 && (!second || cJSON_HasObjectItem(second.get(), "duration")); ++attempts) {
    std::thread([] { demo_colour(DEMO_RED); }).join();
    second = tap::json_parse(seen.lines.back(), error);
  }
  const tap::Json first = tap::json_parse(seen.lines[0], error);
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
  const dtv_tap_fault_t fault{.delay_ms = 0, .fails = 1, .result = -1, .drop_callback = 1, .repeat_callback = 0};
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
