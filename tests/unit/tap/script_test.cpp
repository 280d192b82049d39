// Calls answered from a script: which answer is taken, and how its values get into memory.
#include <atomic>
#include <chrono>
#include <cstring>
#include <thread>

#include "support.h"

using Lines = std::vector<std::string>;

TEST_F(TapTest, an_unanswered_call_returns_zero_and_clears_its_outputs) {
  script("[]");
  EXPECT_EQ(demo_set(3, 4), 0);
  EXPECT_EQ(demo_open("/x"), 0U);
  EXPECT_EQ(demo_title(1), nullptr);
  INT32 number = 9;
  EXPECT_EQ(demo_get_number(&number), 0);
  EXPECT_EQ(number, 0);
  char text[4] = {'a', 'b', 'c', 'd'};
  UINT32 length = 3;
  EXPECT_EQ(demo_get_text("key", text, &length), 0);
  EXPECT_EQ(std::memcmp(text, "\0\0\0d", 4), 0);  // as long as the length says, and no longer
  EXPECT_EQ(length, 0U);
  DEMO_POINT points[2] = {{1, 2}, {3, 4}};
  INT32 count = 1;
  EXPECT_EQ(demo_list(points, &count), 0);
  EXPECT_EQ(points[0].x, 0);
  EXPECT_EQ(points[1].x, 3);
}

TEST_F(TapTest, the_first_answer_that_fits_and_has_uses_left_is_taken) {
  script(R"([{"call":"demo_set","in":[1,null],"ret":10,"times":2},{"call":"demo_set","in":[1],"ret":20,"times":1},
             {"call":"demo_set","in":{"flag":7},"ret":30},{"call":"demo_set","in":[null,8],"ret":"-40"}])");
  EXPECT_EQ(demo_set(1, 0), 10);
  EXPECT_EQ(demo_set(1, 7), 10);
  EXPECT_EQ(demo_set(1, 7), 20);
  EXPECT_EQ(demo_set(1, 7), 30);
  EXPECT_EQ(demo_set(2, 7), 30);
  EXPECT_EQ(demo_set(2, 8), -40);
  EXPECT_EQ(demo_set(1, 0), 0);
}

TEST_F(TapTest, arguments_of_every_kind_are_compared) {
  script(R"([{"call":"demo_wide","in":["18446744073709551615"],"ret":"9007199254740993"},
             {"call":"demo_colour","in":[7],"ret":1},
             {"call":"demo_open","in":["/a"],"ret":4294967295},
             {"call":"demo_sum","in":[[1,-2,3],3],"ret":2},
             {"call":"demo_count","in":[5],"ret":3},
             {"call":"demo_put_box","in":[{"name":"n","corner":{"y":-1},"comment":"c"}],"ret":4},
             {"call":"demo_put_box","in":[{"name":{"bytes":"414243"},"wide_name":[65],"bytes":[1,2]}],"ret":5}])");
  EXPECT_EQ(demo_wide(UINT64_MAX), 9007199254740993);
  EXPECT_EQ(demo_wide(UINT64_MAX - 1), 0);
  EXPECT_EQ(demo_colour(DEMO_GREEN), 1);
  EXPECT_EQ(demo_colour(DEMO_RED), 0);
  EXPECT_EQ(demo_open("/a"), 4294967295U);
  EXPECT_EQ(demo_open("/ab"), 0U);
  EXPECT_EQ(demo_open(nullptr), 0U);
  const INT32 values[] = {1, -2, 3, 4};
  EXPECT_EQ(demo_sum(values, 3), 2);
  EXPECT_EQ(demo_sum(values, 4), 0);
  EXPECT_EQ(demo_sum(values, 2), 0);
  INT32 number = 5;
  EXPECT_EQ(demo_count(&number), 3);
  number = 6;
  EXPECT_EQ(demo_count(&number), 0);
  DEMO_BOX box{};
  box.corner.y = -1;
  std::strcpy(box.name, "n");
  EXPECT_EQ(demo_put_box(&box), 0);
  box.comment = "c";
  EXPECT_EQ(demo_put_box(&box), 4);
  std::strcpy(box.name, "ABC");
  box.wide_name[0] = 65;
  box.bytes[0] = 1;
  box.bytes[1] = 2;
  EXPECT_EQ(demo_put_box(&box), 5);
  box.bytes[2] = 1;
  EXPECT_EQ(demo_put_box(&box), 0);
}

TEST_F(TapTest, numbers_that_are_no_integers_are_compared) {
  std::string error;
  const tap::Json half = tap::json_parse("4000000000.5", error);
  EXPECT_TRUE(tap::json_matches(half.get(), half.get()));
  for (const char* other :
       {"4000000000", "4000000001", "4000000000.25", "-4000000000.5", "1e300", "null", "\"4000000000.5\""}) {
    const tap::Json json = tap::json_parse(other, error);
    EXPECT_FALSE(tap::json_matches(half.get(), json.get())) << other;
    EXPECT_EQ(tap::json_matches(json.get(), half.get()), cJSON_IsNull(json.get()) != 0) << other;  // null is any
    EXPECT_TRUE(tap::json_matches(json.get(), json.get())) << other;
  }
}

TEST_F(TapTest, large_numbers_are_printed_whole_whoever_owns_their_keys) {
  const tap::Json object(cJSON_CreateObject());
  cJSON_AddItemToObjectCS(object.get(), "constant", cJSON_CreateNumber(1e15));
  cJSON_AddItemToObject(object.get(), "copied", cJSON_CreateNumber(-9007199254740992.0));
  cJSON_AddItemToObject(object.get(), "real", cJSON_CreateNumber(1e300));
  EXPECT_EQ(tap::json_print(object.get()), R"({"constant":1000000000000000,"copied":-9007199254740992,"real":1e+300})");
}

TEST_F(TapTest, doubles_are_compared_and_written) {
  script(R"([{"call":"demo_weigh","in":[1.5],"ret":1,"out":{"total":2.25}},
             {"call":"demo_weigh","in":{"weight":-2},"ret":2,"out":{"1":1e300}},
             {"call":"demo_weigh","in":[1234567890123456],"ret":3,"out":{"1":1234567890123456}},
             {"call":"demo_weigh","in":[1e20],"ret":4},
             {"call":"demo_send_parcel","in":[{"weight":0.1}],"ret":5},
             {"call":"demo_send_parcel","in":[{"number":7,"weight":1e15}],"ret":6},
             {"call":"demo_get_parcel","out":{"0":{"number":8,"weight":-0.75}},"times":1},
             {"call":"demo_get_parcel","out":{"parcel":{"weight":null}}}])");
  double total = 9;
  EXPECT_EQ(demo_weigh(1.5, &total), 1);
  EXPECT_EQ(total, 2.25);
  EXPECT_EQ(demo_weigh(-2, &total), 2);
  EXPECT_EQ(total, 1e300);
  EXPECT_EQ(demo_weigh(1234567890123456.0, &total), 3);
  EXPECT_EQ(total, 1234567890123456.0);
  EXPECT_EQ(demo_weigh(1e20, &total), 4);
  EXPECT_EQ(total, 0) << "outputs are cleared";
  for (const double other : {1.25, 1.0, 2.0, -1.5, 1234567890123457.0, 1e21}) EXPECT_EQ(demo_weigh(other, &total), 0);
  demo_weigh(1.5, nullptr);
  DEMO_PARCEL parcel = {.number = 1, .weight = 0.1};
  EXPECT_EQ(demo_send_parcel(&parcel), 5);
  parcel.weight = 0.2;
  EXPECT_EQ(demo_send_parcel(&parcel), 0);
  parcel = {.number = 7, .weight = 1e15};
  EXPECT_EQ(demo_send_parcel(&parcel), 6);
  demo_get_parcel(&parcel);
  EXPECT_EQ(parcel.number, 8);
  EXPECT_EQ(parcel.weight, -0.75);
  demo_get_parcel(&parcel);
  EXPECT_EQ(parcel.weight, 0);
}

TEST_F(TapTest, texts_are_cut_to_the_array_or_the_length_argument) {
  script(R"([{"call":"demo_get_short_text","out":{"0":"123456789"},"times":1},
             {"call":"demo_get_short_text","out":{"text":{"bytes":"414243"}},"times":1},
             {"call":"demo_get_short_text","out":{"text":{"bytes":"303132333435363738"}}},
             {"call":"demo_get_text","in":["a"],"out":{"1":"hello","length":5}},
             {"call":"demo_get_text","out":{"text":{"bytes":"4142"}}}])");
  char text[9];
  std::memset(text, '!', sizeof text);
  demo_get_short_text(text);
  EXPECT_EQ(std::memcmp(text, "1234567\0!", 9), 0);
  std::memset(text, '!', sizeof text);
  demo_get_short_text(text);
  EXPECT_EQ(std::memcmp(text, "ABC\0\0\0\0\0!", 9),
            0);  // outputs are cleared, then the bytes are written without a terminator
  std::memset(text, '!', sizeof text);
  demo_get_short_text(text);
  EXPECT_EQ(std::memcmp(text, "01234567!", 9), 0);

  char answer[16];
  std::memset(answer, '!', sizeof answer);
  UINT32 length = 16;
  demo_get_text("a", answer, &length);
  EXPECT_STREQ(answer, "hello");
  EXPECT_EQ(length, 5U);
  std::memset(answer, '!', sizeof answer);
  length = 4;
  demo_get_text("a", answer, &length);
  EXPECT_EQ(std::memcmp(answer, "hel\0!", 5), 0);
  std::memset(answer, '!', sizeof answer);
  length = 3;
  demo_get_text("b", answer, &length);
  EXPECT_EQ(std::memcmp(answer, "AB\0!", 4), 0);
  EXPECT_EQ(length, 0U);  // an output that the answer does not name is cleared
}

TEST_F(TapTest, a_text_that_is_read_and_written_can_be_asked_for) {
  script(R"([{"call":"demo_look_up","in":[null,"a"],"ret":1,"out":{"text":"first","length":5}},
             {"call":"demo_look_up","in":{"text":{"bytes":"62ff"}},"ret":2,"out":{"1":"second"}}])");
  char text[8] = "a";
  UINT32 length = sizeof text;
  EXPECT_EQ(demo_look_up(&length, text), 1);
  EXPECT_STREQ(text, "first");
  EXPECT_EQ(length, 5U);
  std::memcpy(text, "b\xff", 3);
  length = 4;
  EXPECT_EQ(demo_look_up(&length, text), 2);
  EXPECT_STREQ(text, "sec");
  std::memset(text, 'c', sizeof text);
  length = sizeof text;
  EXPECT_EQ(demo_look_up(&length, text), 0);  // no answer fits; nothing is read beyond the array
  EXPECT_STREQ(text, "");
}

TEST_F(TapTest, records_arrays_and_nulls_are_written) {
  script(R"([{"call":"demo_get_box","out":{"1":{"corner":{"x":-3},"name":"longer than eight","wide_name":[70,71],
               "bytes":[1,255],"size":"-9223372036854775808","colour":7,"marks":[{"x":1},{"y":2}],"comment":"why","link":5}},
               "times":1},
             {"call":"demo_get_box","out":{"box":{"comment":null,"bytes":{"bytes":"0a0b0c"}}}},
             {"call":"demo_list","out":{"points":[{"x":1,"y":2},{"y":3}],"count":2}},
             {"call":"demo_wide_text","out":{"text":[66,67,68]}},
             {"call":"demo_title","in":[1],"ret":"a title"},{"call":"demo_title","ret":null},
             {"call":"demo_event","out":{"event":{"type":1,"u_code":{"reason":258},"u_data":{"hex":"0100000002000000"}}}}])");
  DEMO_BOX box;
  std::memset(&box, 0x55, sizeof box);
  EXPECT_EQ(demo_get_box(1, &box), 0);
  EXPECT_EQ(box.corner.x, -3);
  EXPECT_EQ(box.corner.y, 0);
  EXPECT_STREQ(box.name, "longer ");
  EXPECT_EQ(box.wide_name[1], 71);
  EXPECT_EQ(box.wide_name[2], 0);
  EXPECT_EQ(box.bytes[1], 255);
  EXPECT_EQ(box.size, INT64_MIN);
  EXPECT_EQ(box.colour, DEMO_GREEN);
  EXPECT_EQ(box.marks[1].y, 2);
  EXPECT_STREQ(box.comment, "why");
  EXPECT_EQ(box.link, reinterpret_cast<void*>(5));
  demo_get_box(1, &box);
  EXPECT_EQ(box.comment, nullptr);
  EXPECT_EQ(box.corner.x, 0);
  EXPECT_EQ(box.bytes[2], 12);
  demo_get_box(1, nullptr);

  DEMO_POINT points[3] = {};
  INT32 count = 3;
  demo_list(points, &count);
  EXPECT_EQ(points[0].y, 2);
  EXPECT_EQ(points[1].y, 3);
  EXPECT_EQ(count, 2);
  count = 1;
  points[1] = {9, 9};
  demo_list(points, &count);
  EXPECT_EQ(points[1].x, 9);  // cut to the room that the call gave
  UINT16 wide[4] = {1, 1, 1, 1};
  demo_wide_text(wide, 2);
  EXPECT_EQ(wide[1], 67);
  EXPECT_EQ(wide[2], 1);
  EXPECT_STREQ(demo_title(1), "a title");
  EXPECT_EQ(demo_title(2), nullptr);
  DEMO_EVENT event;
  demo_event(&event);
  EXPECT_EQ(event.u_code.reason, 258);
  EXPECT_EQ(event.u_data[1], 2U);
}

TEST_F(TapTest, an_items_record_is_compared_and_written) {
  script(R"([{"call":"demo_put_item","in":[6221057,{"x":1}],"ret":1},
             {"call":"demo_put_item","in":[6221058,{"name":"n"}],"ret":2},
             {"call":"demo_ask_item","in":[6221057,{"x":5}],"ret":3,"out":{"value":{"y":-6}}},
             {"call":"demo_ask_item","in":[6221058],"ret":4,"out":{"1":{"name":"new","size":7}}}])");
  DEMO_POINT point = {.x = 1, .y = 0};
  EXPECT_EQ(demo_put_item(0x5EED01, &point), 1);
  point.x = 2;
  EXPECT_EQ(demo_put_item(0x5EED01, &point), 0);
  DEMO_BOX box{};
  std::strcpy(box.name, "n");
  EXPECT_EQ(demo_put_item(0x5EED02, &box), 2);
  point = {.x = 5, .y = 0};
  EXPECT_EQ(demo_ask_item(0x5EED01, &point), 3);
  EXPECT_EQ(point.x, 0);
  EXPECT_EQ(point.y, -6);
  EXPECT_EQ(demo_ask_item(0x5EED02, &box), 4);
  EXPECT_STREQ(box.name, "new");
  EXPECT_EQ(box.size, 7);
}

TEST_F(TapTest, a_delay_and_events_come_before_the_call_returns) {
  static std::atomic<int> events;
  static std::atomic<bool> other_thread;
  static std::thread::id caller;
  events = 0;
  other_thread = true;
  caller = std::this_thread::get_id();
  script(R"([{"call":"demo_set","delay_ms":30,"ret":1,
              "raise":[{"raise":"demo_register","args":[1,null,5,0]},{"raise":"demo_register","args":[2,null,6,0]}]}])");
  demo_register(
      [](INT32 type, void* tag, void* arg1, void*) -> INT32 {
        events = events * 100 + type * 10 + static_cast<int>(reinterpret_cast<intptr_t>(arg1));
        if (tag != reinterpret_cast<void*>(77) || std::this_thread::get_id() == caller) other_thread = false;
        return 0;
      },
      reinterpret_cast<void*>(77));
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(demo_set(0, 0), 1);
  EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(30));
  EXPECT_EQ(events, 1526);
  EXPECT_TRUE(other_thread);
}

TEST_F(TapTest, uses_are_counted_across_threads) {
  script(R"([{"call":"demo_set","ret":1,"times":1000},{"call":"demo_set","ret":2}])");
  std::atomic<int> ones{0};
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&] {
      for (int i = 0; i < 400; ++i) ones += demo_set(0, 0) == 1;
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(ones, 1000);
}

TEST_F(TapTest, a_wrong_script_is_refused_with_the_entry_and_what_is_allowed) {
  const auto has = [](const std::string& text, std::initializer_list<const char*> parts) {
    for (const char* part : parts) EXPECT_NE(text.find(part), std::string::npos) << part << " is not in: " << text;
  };
  has(script_error("["), {"not JSON"});
  has(script_error("{}"), {"array"});
  has(script_error(R"([{"ret":1}])"), {"answer 1", "call"});
  has(script_error(R"([{"call":"demo_set"},{"call":"demo_sit"}])"), {"answer 2", "demo_sit"});
  has(script_error(R"([{"call":"demo_set","result":1}])"), {"answer 1", "demo_set", "result", "delay_ms"});
  has(script_error(R"([{"call":"demo_set","in":[1,2,3]}])"), {"too many", "value", "flag"});
  has(script_error(R"([{"call":"demo_set","in":{"valeu":1}}])"), {"valeu", "value"});
  has(script_error(R"([{"call":"demo_set","in":[70000]}])"), {"argument 0", "16 bits"});
  has(script_error(R"([{"call":"demo_set","in":["x"]}])"), {"argument 0", "whole number"});
  has(script_error(R"([{"call":"demo_set","ret":1.5}])"), {"ret", "whole number"});
  has(script_error(R"([{"call":"demo_weigh","in":["1.5"]}])"), {"argument 0", "\"1.5\" is not a number"});
  has(script_error(R"([{"call":"demo_weigh","out":{"1":true}}])"), {"argument 1", "not a number"});
  has(script_error(R"([{"call":"demo_set","ret":4294967296}])"), {"ret", "32 bits"});
  has(script_error(R"([{"call":"demo_set","out":{"0":1}}])"), {"out", "not written"});
  has(script_error(R"([{"call":"demo_get_box","out":{"2":{}}}])"), {"no argument", "box"});
  has(script_error(R"([{"call":"demo_ask_item","out":{"value":{"z":1}}}])"), {"no item's record", "\"z\""});
  has(script_error(R"([{"call":"demo_get_box","out":{"box":{"nam":"x"}}}])"), {"nam", "corner"});
  has(script_error(R"([{"call":"demo_get_box","out":{"box":{"marks":[{},{},{}]}}}])"), {"marks", "3 elements"});
  has(script_error(R"([{"call":"demo_get_box","out":{"box":{"name":5}}}])"), {"name", "text"});
  has(script_error(R"([{"call":"demo_get_box","in":[null,{}]}])"), {"argument 1", "only written"});
  has(script_error(R"([{"call":"demo_set","times":-1}])"), {"times"});
  has(script_error(R"([{"call":"demo_set","delay_ms":"5"}])"), {"delay_ms"});
  has(script_error(R"([{"call":"demo_set","raise":{"raise":"demo_register"}}])"), {"raise", "list"});
  has(script_error(R"([{"call":"demo_set","raise":[{"raise":"demo_set"}]}])"), {"demo_set", "no callback"});
  has(script_error(R"([{"call":"demo_set","raise":[{"raise":"demo_register","args":[1,2,3,4,5]}]}])"), {"too many"});
  has(script_error(R"([{"call":"demo_nothing","ret":0}])"), {"ret", "nothing"});
  EXPECT_EQ(script_error(R"([{"call":"demo_set"},)").empty(), false);
}

TEST_F(TapTest, an_event_that_cannot_be_raised_is_told) {
  script(R"([{"call":"demo_set","raise":[{"raise":"demo_register_done","args":[1]}]}])");
  demo_register_done(nullptr, 0);
  watch();
  demo_set(0, 0);
  ASSERT_EQ(plain_lines().size(), 2U);
  EXPECT_NE(plain_lines()[0].find("no callback is registered through demo_register_done"), std::string::npos);
}
