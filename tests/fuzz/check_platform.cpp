// Checks the fuzz targets' platform: some input makes it do each thing that a platform may do, and no input makes it do
// anything else. It gets memory exactly as large as announced, so that the address sanitizer sees every write beyond.
#include <stdio.h>
#include <string.h>

#include <atomic>
#include <cmath>
#include <initializer_list>
#include <map>
#include <memory>
#include <mutex>
#include <random>
#include <string>
#include <thread>

#include "platform.h"
#include "tests/unit/tap/contract.h"

// What the platform has done: what some input must cause, and what no input may cause.
static std::map<std::string, bool> wanted;
static std::map<std::string, bool> forbidden;

static std::mutex seen_mutex;  // callbacks come on several threads

static void want(const std::string& what, bool seen) {
  const std::lock_guard guard(seen_mutex);
  wanted[what] |= seen;
}

static void forbid(const std::string& what, bool seen) {
  const std::lock_guard guard(seen_mutex);
  forbidden[what] |= seen;
}

static void want_integer(const std::string& name, std::int64_t value, std::int64_t least, std::int64_t most) {
  want(name + ": 0", value == 0);
  want(name + ": the least", value == least);
  want(name + ": the most", value == most);
}

// Texts end at their terminator or where the array does.
static void want_array(const std::string& name, const char* text, std::size_t size) {
  want(name + ": no terminator", strnlen(text, size) == size);
  want(name + ": as long as it can be", strnlen(text, size) == size - 1);
  want(name + ": empty", text[0] == '\0');
}

static void want_text(const std::string& name, const char* text) {
  want(name + ": null", !text);
  want(name + ": empty", text && !*text);
  want(name + ": long", text && strlen(text) > 255);
}

static void want_box(const std::string& name, const DEMO_BOX& box) {
  want_array(name + ".name", box.name, sizeof box.name);
  want_integer(name + ".corner.x", box.corner.x, INT16_MIN, INT16_MAX);
  want_integer(name + ".marks[1].y", box.marks[1].y, INT16_MIN, INT16_MAX);
  want_integer(name + ".wide_name[3]", box.wide_name[3], 0, UINT16_MAX);
  want_integer(name + ".bytes[2]", box.bytes[2], 0, UINT8_MAX);
  want_integer(name + ".size", box.size, INT64_MIN, INT64_MAX);
  want(name + ".colour: none of its values", box.colour != DEMO_RED && box.colour != DEMO_GREEN);
  want_text(name + ".comment", box.comment);
  want(name + ".link: null", !box.link);
  want(name + ".link: a word", box.link != nullptr);
}

// --- Callbacks ---

static std::thread::id caller;
static std::atomic<bool> in_call;

static void want_thread() {
  want("callback: within a call, on its thread", in_call && std::this_thread::get_id() == caller);
  want("callback: within a call, on another thread", in_call && std::this_thread::get_id() != caller);
}

static std::atomic<int> demo_calls;

static INT32 on_changed(INT32 callback_type, void* tag, void* pv_arg1, void*) {
  ++demo_calls;
  want_thread();
  want_integer("callback_type", callback_type, INT32_MIN, INT32_MAX);
  want("pv_arg1: null", !pv_arg1);
  forbid("changed: another tag than the registered one", tag != reinterpret_cast<void*>(0x1234));
  demo_nothing();  // a callback may call back
  return 0;
}

static INT32 on_item(UINT32 tag, const char* name, const DEMO_BOX* box, const INT16* values, INT32 count) {
  ++demo_calls;
  forbid("item: another tag than the registered one", tag != 77 && tag != 78);
  want("item: the first subscriber", tag == 77);
  want("item: the second subscriber", tag == 78);
  want_text("item: name", name);
  want("item: no box", !box);
  if (box) want_box("item", *box);
  want("item: count below 0", count < 0);
  want("item: no value", count == 0);
  want("item: many values", count > 256);
  want("item: values null", !values);
  forbid("item: values that are not there", !values && count > 0);
  for (INT32 i = 0; values && i < count; ++i) want("item: the most in values", values[i] == INT16_MAX);
  return 0;
}

static void on_done(INT64 number, UINT32 tag) {
  ++demo_calls;
  want_integer("done: number", number, INT64_MIN, INT64_MAX);
  forbid("done: another tag than the registered one", tag != UINT32_MAX);
}

static INT32 on_told(INT32 type, void* word, void* point, INT16 later_type, double weight) {
  ++demo_calls;
  want("told: a weight that is no number", std::isnan(weight));
  want("told: a word that is a number", type != DEMO_TOLD_WORD && reinterpret_cast<intptr_t>(word) == INTPTR_MAX);
  want("told: a point that is a number", later_type != DEMO_TOLD_POINT && reinterpret_cast<intptr_t>(point) == -1);
  if (type == DEMO_TOLD_WORD) want_text("told: word", static_cast<const char*>(word));
  if (later_type == DEMO_TOLD_POINT) {
    want("told: no point", !point);
    want("told: the most in a point", point && static_cast<const DEMO_POINT*>(point)->y == INT16_MAX);
  }
  return 0;
}

// --- Calls ---

static void call_all() {
  want_integer("result of 32 bits", demo_set(1, 2), INT32_MIN, INT32_MAX);
  want_integer("result of 64 bits", demo_wide(1), INT64_MIN, INT64_MAX);
  want("handle: null", demo_open("path") == 0);
  want_text("result: text", demo_title(1));
  demo_nothing();
  demo_colour(DEMO_GREEN);

  for (const UINT32 size : {0U, 1U, 8U, 300U}) {
    const std::unique_ptr<char[]> text(new char[size]);
    memset(text.get(), '#', size);
    UINT32 length = size;
    demo_get_text("key", text.get(), &length);
    want("text: length beyond its size", length > size);
    if (size != 8) continue;
    want_array("text", text.get(), size);
    want("text: untouched", memcmp(text.get(), "########", size) == 0);
  }
  const std::unique_ptr<char[]> short_text(new char[8]);
  memset(short_text.get(), '#', 8);
  demo_get_short_text(short_text.get());
  want_array("short text", short_text.get(), 8);
  demo_get_text(nullptr, nullptr, nullptr);

  const auto box = std::make_unique<DEMO_BOX>();
  demo_get_box(1, box.get());
  want_box("box", *box);
  demo_put_box(box.get());
  demo_put_box(nullptr);
  INT32 number = 0x5A5A5A5A;
  demo_get_number(&number);
  want_integer("number", number, INT32_MIN, INT32_MAX);
  want("number: untouched", number == 0x5A5A5A5A);
  INT32 counted = 3;
  demo_count(&counted);
  want_integer("counted", counted, INT32_MIN, INT32_MAX);

  for (const INT32 room : {-1, 0, 1, 40}) {
    const std::size_t size = room < 0 ? 0 : static_cast<std::size_t>(room);
    const std::unique_ptr<DEMO_POINT[]> points(new DEMO_POINT[size]());
    INT32 count = room;
    demo_list(points.get(), &count);
    want("list: count beyond its room", count > room && room > 0);
    want("list: count below 0", count < 0);
    want("list: the last place is written", room == 40 && points[39].x != 0);
  }
  const std::unique_ptr<UINT16[]> wide(new UINT16[5]());
  demo_wide_text(wide.get(), 5);
  want("wide text: no terminator", wide[0] && wide[1] && wide[2] && wide[3] && wide[4]);
  const INT32 values[] = {1, 2, 3};
  demo_sum(values, 3);
  demo_sum(nullptr, -1);
  DEMO_EVENT event{};
  demo_event(&event);
  want("event: a union's bytes", event.u_code.reason > 255);

  // Each item's record is in memory of its own size; the record of an unknown item is not touched.
  const auto point = std::make_unique<DEMO_POINT>();
  *point = {.x = 0x5A5A, .y = 0x5A5A};
  demo_ask_item(0x5EED01, point.get());
  want_integer("item's point.x", point->x, INT16_MIN, INT16_MAX);
  want("item's point: untouched", point->x == 0x5A5A && point->y == 0x5A5A);
  const auto item_box = std::make_unique<DEMO_BOX>();
  demo_ask_item(0x5EED02, item_box.get());
  want_box("item's box", *item_box);
  demo_put_item(0x5EED01, point.get());
  demo_put_item(0x5EED02, item_box.get());
  demo_ask_item(0x5EED02, nullptr);
  demo_put_item(0x5EED02, nullptr);
  char unknown = '#';
  demo_ask_item(7, &unknown);
  demo_put_item(7, &unknown);
  forbid("unknown item: written", unknown != '#');
}

int main() {
  caller = std::this_thread::get_id();
  std::mt19937 random;
  for (int round = 0; round < 10000; ++round) {
    std::string answers(random() % 255, '\0');
    for (char& byte : answers) byte = static_cast<char>(random() % 2 == 0 ? random() % 8 : random());
    platform_begin(answers);
    const bool registered = round % 4 != 0;
    demo_register(registered ? on_changed : nullptr, reinterpret_cast<void*>(0x1234));
    demo_register_item(1, registered ? on_item : nullptr, 77);
    if (registered) demo_register_item(2, on_item, 78);
    demo_register_done(registered ? on_done : nullptr, UINT32_MAX);
    demo_register_told(registered ? on_told : nullptr);
    if (round % 8 < 2) {
      // Every action is rare here, since most of them start a thread.
      platform_mid_call(round % 64 < 2 ? static_cast<MidCall>(random() % kMidCalls) : MidCall::kRaiseHere);
      in_call = true;
      demo_set(1, 2);
      in_call = false;
      platform_end();
      platform_mid_call(MidCall::kNothing);
    }
    call_all();
    demo_calls = 0;
    for (int i = 0; i < 4; ++i) platform_raise();
    forbid("a callback that was taken back", !registered && demo_calls > 0);
    forbid("no callback of those registered", registered && demo_calls != 4);
  }
  int passed = 0;
  int failed = 0;
  for (const auto& [what, seen] : wanted) {
    seen ? ++passed : ++failed;
    if (!seen) printf("never came: %s\n", what.c_str());
  }
  for (const auto& [what, seen] : forbidden) {
    seen ? ++failed : ++passed;
    if (seen) printf("came: %s\n", what.c_str());
  }
  printf("%d passed, %d failed\n", passed, failed);
  return failed == 0 ? 0 : 1;
}
