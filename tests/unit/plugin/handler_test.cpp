// The functions that walk a handler's rows, with made-up handlers; and the rows of the real handlers.
#include "tvctl_common/handler.h"

#include <algorithm>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "support.h"
#include "tv_ctrl_main/dispatch.h"

namespace {

// The requests that functions of made-up rows received, as "operation key name".
std::vector<std::string> received;

INT32 receive(const RecordRequest& request) {
  received.push_back(std::string(request.operation) + " " + request.key + " " + request.name);
  return request.content ? request.id : 77;
}

// Records of the miscellaneous group: a text, an action, an integer, a portal, and a text whose row has another type.
constexpr RecordRow kRows[] = {
    {.record = TV_CTRL_RECID_PASSWORD,
     .type = TYPE_TEXT,
     .get = receive,
     .set = receive,
     .get_operation = "read",
     .set_operation = "write",
     .key = "g_key",
     .name = "Name",
     .help = "Help.",
     .unit = "s",
     .values = "A\0"
               "B\0"},
    {.record = TV_CTRL_RECID_CLEAN_ALL, .type = TYPE_ACTION, .set = receive, .set_operation = "act"},
    {.record = TV_CTRL_RECID_OCL_STATUS, .type = TYPE_INTEGER, .get = receive},
    {.record = TV_CTRL_RECID_EXIT_PORTAL, .type = TYPE_PORTAL, .set_answer = VEXTVCTRLR_NOT_IMPLEMENT},
    {.record = TV_CTRL_RECID_START_NATIVE_APP, .type = TYPE_VALUE, .get = receive, .set = receive},
};
constexpr Handler kHandler = {
    .group = TV_CTRL_GRPID_MISC, .records = tvc_records<kRows>(), .get_default = -1, .set_default = -6};

constexpr UINT16 misc(int record) { return tvc_id(TV_CTRL_GRPID_MISC, record); }
constexpr UINT16 kText = misc(TV_CTRL_RECID_PASSWORD);
constexpr UINT16 kAction = misc(TV_CTRL_RECID_CLEAN_ALL);
constexpr UINT16 kInteger = misc(TV_CTRL_RECID_OCL_STATUS);
constexpr UINT16 kPortal = misc(TV_CTRL_RECID_EXIT_PORTAL);
constexpr UINT16 kOtherType = misc(TV_CTRL_RECID_START_NATIVE_APP);
constexpr UINT16 kWithoutRow = misc(TV_CTRL_RECID_JUMP_EBANNER);
constexpr UINT16 kUnknown = misc(200);
constexpr UINT16 kOtherGroup = tvc_id(TV_CTRL_GRPID_CONFIG, TV_CTRL_RECID_PASSWORD);

class HandlerRows : public testing::Test {
 protected:
  void SetUp() override { received.clear(); }
  char content_[sizeof(T_CBROWSER)] = {};
};

TEST_F(HandlerRows, ARowsFunctionReceivesItsTexts) {
  EXPECT_EQ(tvc_handle_get(kHandler, kText, content_), kText);
  EXPECT_EQ(tvc_handle_set(kHandler, kText, content_), kText);
  EXPECT_EQ(tvc_handle_get(kHandler, kInteger, content_), kInteger);
  EXPECT_EQ(received, (std::vector<std::string>{"read g_key Name", "write g_key Name", "  "}));
}

TEST_F(HandlerRows, TextsOfARowAreKept) {
  const StoredRecord* const row = tvc_find_record(kHandler, kText);
  ASSERT_NE(row, nullptr);
  const char* const texts = kHandler.records.texts;
  EXPECT_STREQ(texts + row->help, "Help.");
  EXPECT_STREQ(texts + row->unit, "s");
  EXPECT_EQ(std::string(texts + row->values, 5), std::string("A\0B\0\0", 5));
  EXPECT_STREQ(texts + tvc_find_record(kHandler, kAction)->values, "");
  EXPECT_EQ(tvc_find_record(kHandler, kWithoutRow), nullptr);
}

TEST_F(HandlerRows, WhatNoFunctionServesGetsTheDefaultAnswer) {
  for (const UINT16 id : {kAction, kPortal, kWithoutRow, kUnknown})
    EXPECT_EQ(tvc_handle_get(kHandler, id, content_), kHandler.get_default) << id;
  for (const UINT16 id : {kInteger, kWithoutRow, kUnknown})
    EXPECT_EQ(tvc_handle_set(kHandler, id, content_), kHandler.set_default) << id;
  EXPECT_EQ(tvc_handle_set(kHandler, kPortal, content_), VEXTVCTRLR_NOT_IMPLEMENT) << "the row's own answer";
  EXPECT_TRUE(received.empty());
}

TEST_F(HandlerRows, AGetOfARecordWithoutARowCanHaveAnAnswerOfItsOwn) {
  Handler strict = kHandler;
  strict.get_default = VEXTVCTRLR_OK;
  strict.get_without_row = VEXTVCTRLR_INV_ARG;
  for (const UINT16 id : {kWithoutRow, kUnknown}) {
    EXPECT_EQ(tvc_handle_get(strict, id, content_), -2) << id;
    EXPECT_EQ(tvc_get_effect(strict, id), Effect::kRefused) << id;
    EXPECT_EQ(tvc_handle_set(strict, id, content_), strict.set_default) << id << ": only gets differ";
  }
  for (const UINT16 id : {kAction, kPortal}) {  // which have a row without a get function
    EXPECT_EQ(tvc_handle_get(strict, id, content_), 0) << id;
    EXPECT_EQ(tvc_get_effect(strict, id), Effect::kAccepted) << id;
  }
  EXPECT_TRUE(received.empty());
  EXPECT_EQ(tvc_handle_get(strict, kText, content_), kText);
  EXPECT_EQ(tvc_get_effect(strict, kText), Effect::kServed);
}

TEST_F(HandlerRows, AGetOfARecordWithoutARowHasTheDefaultAnswerUnlessTheHandlerSaysOtherwise) {
  static constexpr Handler kPlain = {.group = TV_CTRL_GRPID_MISC, .records = tvc_records<kRows>(), .get_default = -6};
  EXPECT_EQ(tvc_handle_get(kPlain, kWithoutRow, content_), -6);
  EXPECT_EQ(tvc_handle_get(kPlain, kAction, content_), -6);
}

TEST_F(HandlerRows, AnotherGroupAndAnotherTypeAreRefused) {
  for (const UINT16 id : {kOtherGroup, kOtherType, UINT16{0}}) {
    EXPECT_EQ(tvc_handle_get(kHandler, id, content_), -2) << id;
    EXPECT_EQ(tvc_handle_set(kHandler, id, content_), -2) << id;
  }
  EXPECT_EQ(tvc_handle_set(kHandler, kOtherGroup, nullptr), -2);
  EXPECT_TRUE(received.empty());
}

TEST_F(HandlerRows, AGetNeedsARecord) {
  for (const UINT16 id : {kText, kAction, kWithoutRow, kUnknown, kOtherGroup})
    EXPECT_EQ(tvc_handle_get(kHandler, id, nullptr), -2) << id;
  EXPECT_TRUE(received.empty());
}

TEST_F(HandlerRows, OnlyAGetThatAFunctionCarriesOutNeedsARecordWhereTheHandlerSaysSo) {
  Handler lenient = kHandler;
  lenient.get_needs_record = false;
  lenient.get_without_row = -4;
  for (const UINT16 id : {kText, kInteger, kOtherType, kOtherGroup})
    EXPECT_EQ(tvc_handle_get(lenient, id, nullptr), -2) << id;
  for (const UINT16 id : {kAction, kPortal})
    EXPECT_EQ(tvc_handle_get(lenient, id, nullptr), kHandler.get_default) << id;
  for (const UINT16 id : {kWithoutRow, kUnknown}) EXPECT_EQ(tvc_handle_get(lenient, id, nullptr), -4) << id;
  EXPECT_TRUE(received.empty());
  EXPECT_EQ(tvc_handle_get(lenient, kText, content_), kText);
  EXPECT_EQ(tvc_get_effect(lenient, kText), Effect::kServed) << "requests always bring a record";
}

TEST_F(HandlerRows, ASetNeedsARecordAsTheHandlerSays) {
  struct Answers {
    INT32 text, action, integer, portal, without_row, unknown;
  };
  const auto expect = [](WithoutRecord rule, const Answers& answers) {
    Handler ruled = kHandler;
    ruled.set_without_record = rule;
    EXPECT_EQ(tvc_handle_set(ruled, kText, nullptr), answers.text);
    EXPECT_EQ(tvc_handle_set(ruled, kAction, nullptr), answers.action);
    EXPECT_EQ(tvc_handle_set(ruled, kInteger, nullptr), answers.integer);
    EXPECT_EQ(tvc_handle_set(ruled, kPortal, nullptr), answers.portal);
    EXPECT_EQ(tvc_handle_set(ruled, kWithoutRow, nullptr), answers.without_row);
    EXPECT_EQ(tvc_handle_set(ruled, kUnknown, nullptr), answers.unknown);
  };
  expect(WithoutRecord::kAsRow, {-2, 77, -6, -3, -6, -6});
  EXPECT_EQ(received, std::vector<std::string>{"act  "});
  expect(WithoutRecord::kRefused, {-2, -2, -2, -2, -2, -2});
  EXPECT_EQ(received.size(), 1u);
  expect(WithoutRecord::kRefusedUnlessAction, {-2, 77, -2, -2, -2, -2});
  EXPECT_EQ(received.size(), 2u);
}

TEST_F(HandlerRows, EffectsAreWhatTheFunctionsComeTo) {
  EXPECT_EQ(tvc_get_effect(kHandler, kText), Effect::kServed);
  EXPECT_EQ(tvc_get_effect(kHandler, kAction), Effect::kRefused);
  EXPECT_EQ(tvc_set_effect(kHandler, kText, true), Effect::kServed);
  EXPECT_EQ(tvc_set_effect(kHandler, kAction, false), Effect::kServed);
  EXPECT_EQ(tvc_set_effect(kHandler, kPortal, true), Effect::kRefused);
  EXPECT_EQ(tvc_set_effect(kHandler, kWithoutRow, true), Effect::kRefused);
  Handler accepting = kHandler;
  accepting.get_default = accepting.set_default = VEXTVCTRLR_OK;
  EXPECT_EQ(tvc_get_effect(accepting, kAction), Effect::kAccepted);
  EXPECT_EQ(tvc_set_effect(accepting, kPortal, true), Effect::kRefused);
  EXPECT_EQ(tvc_set_effect(accepting, kWithoutRow, true), Effect::kAccepted);
  accepting.set_without_record = WithoutRecord::kRefused;
  EXPECT_EQ(tvc_set_effect(accepting, kAction, false), Effect::kRefused);
}

TEST_F(HandlerRows, AGetIsFramedWhereTheHandlerSaysSo) {
  Handler framed = kHandler;
  framed.framed_get = "some_get";
  const auto lines_of = [&](UINT16 id, void* content) {
    testing::internal::CaptureStderr();
    tvc_handle_get(framed, id, content);
    const std::string text = testing::internal::GetCapturedStderr();
    return std::count(text.begin(), text.end(), '\n');
  };
  EXPECT_EQ(lines_of(kText, content_), 2);
  EXPECT_EQ(lines_of(kUnknown, content_), 2);
  EXPECT_EQ(lines_of(kText, nullptr), 0);
  EXPECT_EQ(lines_of(kOtherGroup, content_), 0);
}

// --- The handlers that there are ---

std::vector<const Handler*> handlers() {
  std::vector<const Handler*> all;
  for (int group = -1; group <= 256; ++group)
    if (const Handler* const each = tvc_handler(group)) all.push_back(each);
  EXPECT_FALSE(all.empty());
  return all;
}

TEST(Handlers, AHandlerServesTheGroupThatItIsNamedAfter) {
  for (int group = -1; group <= 256; ++group)
    if (const Handler* const each = tvc_handler(group)) EXPECT_EQ(each->group, group);
}

TEST(Handlers, EachStartsInATurnOfItsOwn) {
  std::set<int> turns;
  for (const Handler* const each : handlers()) {
    EXPECT_EQ(each->start != nullptr, each->start_turn != 0) << int{each->group};
    if (each->start_turn) EXPECT_TRUE(turns.insert(each->start_turn).second) << int{each->start_turn};
  }
  ASSERT_FALSE(turns.empty());
  EXPECT_EQ(*turns.begin(), 1);
  EXPECT_EQ(*turns.rbegin(), static_cast<int>(turns.size()));
}

// A row of a record that has no URI, or of another type than its URI, would never be reached.
TEST(Handlers, EveryRowIsThatOfARegisteredUri) {
  for (const Handler* const each : handlers()) {
    std::set<UINT8> records;
    for (const StoredRecord& row : each->records.rows) {
      const UINT16 id = tvc_id(each->group, row.record);
      EXPECT_TRUE(records.insert(row.record).second) << id << " has two rows";
      EXPECT_EQ(tv_ctrl_get_type_by_id(id), row.type) << id;
      EXPECT_STRNE(each->records.texts + row.help, "") << id;
    }
    EXPECT_FALSE(records.empty());
  }
}

// Each function logs a failure under its own name. Three functions serve several records: events near now are read as
// any other once the platform has named them, one function lists the library, and one drives a player.
TEST(Handlers, OperationsAreNamedOnce) {
  std::map<std::string, int> rows_of;
  for (const Handler* const each : handlers()) {
    const char* const texts = each->records.texts;
    for (const StoredRecord& row : each->records.rows)
      for (const TextOffset name : {row.get_operation, row.set_operation})
        if (name) ++rows_of[texts + name];
  }
  EXPECT_TRUE(rows_of.contains("_tvc_misc_set_password"));
  std::erase_if(rows_of, [](const auto& row) { return row.second == 1; });
  EXPECT_EQ(rows_of, (std::map<std::string, int>{{"_tv_ctrl_cbrowser_get_info_by_operator", 3},
                                                 {"_tv_ctrl_cbrowser_pb_operator", 2},
                                                 {"_tvc_event_get_event_info", 3}}));
}

// The case runner's buffers are cleared, so that only this test sees the end being written.
TEST(Handlers, TheBroadcastTextEndsInABufferThatHeldSomethingElse) {
  std::string buffer(14, 'x');
  g_get_broadcast_string(buffer.data());
  EXPECT_EQ(buffer, std::string("broad cast!\n\0x", 14));
}

}  // namespace
