// Callbacks on their way to the plugin: forwarded, recorded, raised and replayed.
#include <cstring>
#include <mutex>
#include <utility>

#include "support.h"

namespace {

using Lines = std::vector<std::string>;

INT32 fire(INT32 type, void* arg) {
  return reinterpret_cast<INT32 (*)(INT32, void*)>(dlsym(platform(), "demo_platform_fire"))(type, arg);
}

std::string raise_error(const char* function, const char* args) {
  char* error = nullptr;
  EXPECT_EQ(dtv_tap_raise(function, args, nullptr, &error), -1);
  std::string text = error == nullptr ? "" : error;
  std::free(error);
  return text;
}

// What the events contained: the word and the point, read where the contract says that they are addresses.
std::mutex told_lock;
Lines told;

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
  told.push_back(text);
  return static_cast<INT32>(weight * 4);
}

Lines take_told() {
  const std::lock_guard guard(told_lock);
  return std::exchange(told, {});
}

}  // namespace

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
  // A raise calls the latest.
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
    EXPECT_EQ(take_told(), Lines{event.told});
    EXPECT_EQ(plain_lines().back(),
              std::string(R"({"event":"demo_register_told","in":{)") + event.recorded + R"(,"weight":0},"ret":0})");
  }
  raise("demo_register_told", "[0,4294967295]");
  EXPECT_EQ(take_told(), Lines{"-1, 0"});
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
  for (INT16 value = 1; value <= 4; ++value) demo_set(value, 1);  // each waits for the event before it
  EXPECT_EQ(take_told(), (Lines{"/tmp/picture, 3/4", "no word, no point", "-6, 7"}));
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
  EXPECT_EQ(take_told(), Lines{"no word, no point"});
  EXPECT_EQ(replay_report(), "");
}
