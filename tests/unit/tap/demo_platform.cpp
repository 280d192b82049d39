// The platform behind the tap in its unit tests, as a library: implements the made-up contract with simple answers that
// a test can predict.
#include <cstring>
#include <mutex>
#include <utility>
#include <vector>

#include "contract.h"

#pragma GCC visibility push(default)

static std::mutex changed_lock;
static std::vector<std::pair<demo_changed_fct, void*>> changed;

extern "C" {

INT32 demo_set(INT16 value, UINT8 flag) { return value + flag; }
INT64 demo_wide(UINT64 value) { return static_cast<INT64>(value) - 1; }
INT32 demo_colour(DEMO_COLOUR e_colour) { return e_colour + 1; }
UINT32 demo_open(const char* path) { return path == nullptr ? 0 : static_cast<UINT32>(std::strlen(path)); }
void demo_nothing(void) {}
const char* demo_title(UINT32) { return "title"; }
INT32 demo_get_text(const char* key, char* text, UINT32* length) {
  std::strncpy(text, key, *length);
  *length = static_cast<UINT32>(std::strlen(key));
  return 0;
}
INT32 demo_get_short_text(char* text) {
  std::memcpy(text, "ABCDEFGH", 8);
  return 0;
}
INT32 demo_look_up(UINT32* length, char* text) {
  for (char* c = text; *c != '\0'; ++c) *c = static_cast<char>(*c + 1);
  *length = static_cast<UINT32>(std::strlen(text));
  return 0;
}
INT32 demo_get_box(UINT32 id, DEMO_BOX* box) {
  *box = DEMO_BOX{};
  box->corner = {1, -2};
  std::strcpy(box->name, "box");
  box->size = static_cast<INT64>(id) << 60;
  return 0;
}
INT32 demo_put_box(const DEMO_BOX* box) { return box->marks[1].y; }
INT32 demo_get_number(INT32* number) {
  *number = 5;
  return 0;
}
INT32 demo_count(INT32* number) {
  *number += 1;
  return 0;
}
INT32 demo_list(DEMO_POINT* points, INT32* count) {
  points[0] = {3, 4};
  *count = 1;
  return 0;
}
INT32 demo_wide_text(UINT16* text, INT32 size) {
  for (INT32 i = 0; i < size; ++i) text[i] = static_cast<UINT16>(i);
  return 0;
}
INT32 demo_sum(const INT32* values, INT32 count) {
  INT32 sum = 0;
  for (INT32 i = 0; i < count; ++i) sum += values[i];
  return sum;
}
INT32 demo_event(DEMO_EVENT* event) {
  event->type = 2;
  return 0;
}
INT32 demo_ask_item(UINT32 item_id, void* value) {
  if (item_id == 0x5EED01 && value != nullptr) static_cast<DEMO_POINT*>(value)->y = 9;
  return 0;
}
INT32 demo_put_item(UINT32, const void*) { return 0; }
INT32 demo_weigh(double weight, double* total) {
  *total = 2 * weight;
  return weight > 1.25 ? 1 : 0;
}
INT32 demo_send_parcel(const DEMO_PARCEL* parcel) { return parcel->number; }
INT32 demo_get_parcel(DEMO_PARCEL* parcel) {
  *parcel = {.number = 3, .weight = -0.125};
  return 0;
}
INT32 demo_register(demo_changed_fct callback, void* tag) {
  {
    const std::lock_guard guard(changed_lock);
    changed.emplace_back(callback, tag);
  }
  // A platform may call back before the registration has returned.
  if (callback != nullptr) callback(100, tag, nullptr, nullptr);
  return 0;
}
INT32 demo_register_item(INT32, demo_item_fct, UINT32) { return 0; }
INT32 demo_register_done(demo_done_fct, UINT32) { return 0; }
INT32 demo_register_told(demo_told_fct) { return 0; }

// Calls every callback that was registered since the last time, in their order; their results are the digits.
INT32 demo_platform_fire(INT32 type, void* arg) {
  std::vector<std::pair<demo_changed_fct, void*>> called;
  {
    const std::lock_guard guard(changed_lock);
    called.swap(changed);
  }
  INT32 sum = 0;
  for (const auto& [callback, tag] : called) {
    if (callback != nullptr) sum = sum * 10 + callback(type, tag, arg, nullptr);
  }
  return sum;
}
}
