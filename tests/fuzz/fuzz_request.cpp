// Fuzzes the host's side: sequences of gets, sets, subscriptions and fetches, with platform answers and callbacks that
// arrive before, within and beside them.
#include <stdlib.h>
#include <string.h>

#include <memory>
#include <thread>

#include "platform.h"
#include "plugin.h"
#include "requests.h"

static constexpr int kMostOperations = 32;

static void get(Bytes& bytes, const Tables& tables, const char* uri) {
  const UriInfo* const row = plugin_find(tables, uri);
  const std::string text = take_parameter(bytes, row);
  const Owned parameter = own_text(take_chance(bytes, 4) ? nullptr : &text);
  // Exactly as long as what may be copied. Known URIs find it cleared, so that the text has an end.
  const std::unique_ptr<char[]> buffer(new char[DTV_JSP_RESPONSE_MAX]);
  memset(buffer.get(), row ? 0 : '\xA5', DTV_JSP_RESPONSE_MAX);
  if (take_chance(bytes, 64)) {
    require(a_dtv_jsp_get(uri, parameter.get(), nullptr) == -1, "a get without a buffer fails");
    return;
  }
  const INT32 ret = a_dtv_jsp_get(uri, parameter.get(), buffer.get());
  if (row) {
    const std::size_t length = strnlen(buffer.get(), DTV_JSP_RESPONSE_MAX);
    if (length > 0) check_response(*row, ret, {buffer.get(), length});
    require(length > 0 || ret == -1, "a get that succeeds has a response", row->uri);
    return;
  }
  require(ret == -1, "a get of an unknown URI fails");
  for (int i = 0; i < DTV_JSP_RESPONSE_MAX; ++i)
    require(buffer[static_cast<std::size_t>(i)] == '\xA5', "a get of an unknown URI writes nothing");
}

static void set(Bytes& bytes, const Tables& tables, const char* uri) {
  const UriInfo* const row = plugin_find(tables, uri);
  const std::string text = take_parameter(bytes, row);
  const Owned parameter = own_text(take_chance(bytes, 32) ? nullptr : &text);
  const INT32 ret = a_dtv_jsp_set(uri, parameter.get());
  if (!row || !parameter) require(ret == -1, "a set of an unknown URI, or without parameters, fails", uri ? uri : "");
}

static void operate(Bytes& bytes, const Tables& tables, Subscriptions& subscriptions, std::string& text) {
  const std::size_t operation = take_below(bytes, 13);
  if (operation == 0) return platform_answers(take_text(bytes));
  if (operation == 1) return platform_raise();
  if (operation == 2) return platform_mid_call(static_cast<MidCall>(take_below(bytes, 3)));

  const Owned uri = own_text(take_uri(bytes, tables, text) ? &text : nullptr);
  if (operation < 7) return get(bytes, tables, uri.get());
  if (operation < 10) return set(bytes, tables, uri.get());
  if (operation == 10) return subscribe(subscriptions, uri.get());
  if (operation == 11) return unsubscribe(subscriptions, uri.get());
  fetch(bytes, tables, subscriptions, uri.get());
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);
int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const Tables& tables = plugin_start();
  Bytes bytes = {.next = data, .left = size};
  static constexpr int levels[] = {0, 0, 0, 0, 0, -1, 2, 10};
  plugin_log_level(levels[take_below(bytes, std::size(levels))]);
  const bool concurrent = take_chance(bytes, 16);
  platform_answers(take_text(bytes));
  platform_mid_call(MidCall::kNothing);

  std::thread beside;
  if (concurrent)
    beside = std::thread([] {
      for (int i = 0; i < 8; ++i) platform_raise();
    });
  Subscriptions subscriptions;
  std::string uri;
  for (int i = 0; i < kMostOperations && bytes.left > 0; ++i) operate(bytes, tables, subscriptions, uri);
  if (beside.joinable()) beside.join();
  unsubscribe_all(subscriptions);
  return 0;
}
