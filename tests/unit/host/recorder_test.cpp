// Records: their bound, what survives it, and how lines become the steps of a replay.
#include "recorder.h"

#include <gtest/gtest.h>
#include <malloc.h>
#include <unistd.h>

#include <cstring>
#include <fstream>
#include <string>
#include <string_view>

#include "tracer.h"

namespace {

std::uint64_t last_seq = 0;
std::int32_t callbacks_under_way = 0;

std::int32_t holds = 0;

void hold_callbacks(std::int32_t hold) { holds += hold != 0 ? 1 : -1; }

void stamp(dtv_tap_stamp_t* ret_stamp) {
  *ret_stamp = {.seq = ++last_seq, .t = 0, .thread = 1, .callbacks = callbacks_under_way};
}

struct Bench {
  Stack stack{};
  Recorder recorder{};
  int ended = 0;

  Bench() {
    stack.stamp = stamp;
    stack.hold_callbacks = hold_callbacks;
    stack.start = std::make_shared<StartLines>();
    stack.start->text = R"({"seq":1,"thread":1,"start":"a_dtv_jsp_init","ret":0})"
                        "\n";
    recorder.stack = &stack;
    recorder.folder = "/tmp";
    recorder.context = this;
    recorder.ended = [](void* context) { ++static_cast<Bench*>(context)->ended; };
    callbacks_under_way = 0;
  }
  Bench(const Bench&) = delete;
  Bench& operator=(const Bench&) = delete;
  ~Bench() {
    if (recorder.file >= 0) close(recorder.file);
  }

  void get(const char* text) {
    recorder_request(&recorder, recorder_begin(&recorder), true, "/tv/x", nullptr, 0, text);
  }
  std::string text() {
    const HttpAnswer answer = recorder_answer(recorder);
    std::string bytes(answer.file.bytes, '\0');
    EXPECT_EQ(read(answer.file.descriptor, bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
    close(answer.file.descriptor);
    return bytes;
  }
};

Record read_whole(const std::string& text) {
  Record record;
  std::string error;
  EXPECT_TRUE(record_read(text, record, error)) << error;
  return record;
}

TEST(Recorder, EndsAtItsLimitAndKeepsWholeLines) {
  Bench bench;
  bench.recorder.limit = 4 * kMib;
  std::string error;
  ASSERT_TRUE(recorder_start(bench.recorder, error)) << error;
  const std::string response(100'000, 'r');
  for (int i = 0; i < 60; ++i) bench.get(response.c_str());
  EXPECT_FALSE(bench.recorder.on.load());
  EXPECT_EQ(bench.ended, 1);
  EXPECT_NE(recorder_status(bench.recorder).find("the record has reached its limit of 4 MiB"), std::string::npos);
  const std::string text = bench.text();
  EXPECT_LE(text.size(), 4 * kMib);
  EXPECT_GT(text.size(), 4 * kMib - 110'000);
  EXPECT_EQ(text.back(), '\n');
  EXPECT_EQ(read_whole(text).counts.requests, bench.recorder.counts.requests);
}

TEST(Recorder, MakesNoCaseOfALongRecord) {
  Bench bench;
  std::string error;
  ASSERT_TRUE(recorder_start(bench.recorder, error));
  const std::string response(kMib, 'r');
  for (std::size_t bytes = 0; bytes < kLimitCaseBytes; bytes += response.size()) bench.get(response.c_str());
  EXPECT_TRUE(bench.recorder.on.load());
  const std::string answer = recorder_case(bench.recorder);
  EXPECT_TRUE(answer.starts_with("{\"error\":\"the record has ")) << answer.substr(0, 200);
  EXPECT_NE(answer.find("more than the 8 MiB"), std::string::npos);
}

TEST(Recorder, DoesNotBeginWithAStartThatIsNotWhole) {
  Bench bench;
  bench.stack.start->full = true;
  std::string error;
  EXPECT_FALSE(recorder_start(bench.recorder, error));
  EXPECT_EQ(error, "the plugin's start made more platform calls than are kept");
  EXPECT_FALSE(bench.recorder.on.load());
}

TEST(Recorder, SaysThatItsFolderTakesNoFile) {
  Bench bench;
  bench.recorder.folder = "/proc/no/such";
  std::string error;
  EXPECT_FALSE(recorder_start(bench.recorder, error));
  EXPECT_TRUE(error.starts_with("cannot make a file in /proc/no/such: ")) << error;
}

TEST(Recorder, TakesNothingWhileItIsOff) {
  Bench bench;
  bench.get("{}");
  recorder_line(&bench.recorder, R"({"call":"f","in":{}})");
  EXPECT_EQ(recorder_answer(bench.recorder).status, 404U);
  std::string error;
  ASSERT_TRUE(recorder_start(bench.recorder, error));
  recorder_stop(bench.recorder);
  const std::size_t bytes = bench.text().size();
  bench.get("{}");
  EXPECT_EQ(bench.text().size(), bytes);
}

TEST(Recorder, BeginsWithTheStartAndThePresentSubscriptions) {
  Bench bench;
  recorder_subscription(&bench.recorder, {}, true, "/tv/ws/notify/a", 0);
  recorder_subscription(&bench.recorder, {}, true, "/tv/ws/notify/b", 0);
  recorder_subscription(&bench.recorder, {}, false, "/tv/ws/notify/a", 0);
  std::string error;
  ASSERT_TRUE(recorder_start(bench.recorder, error));
  const Record record = read_whole(bench.text());
  ASSERT_EQ(record.steps.size(), 2U);
  EXPECT_EQ(record_step_name(record.steps[0]), "start a_dtv_jsp_init");
  EXPECT_EQ(record_step_name(record.steps[1]), "subscribe /tv/ws/notify/b");
}

TEST(Recorder, WaitsForCallbacksOnlyWhileItRecordsAndNotForEver) {
  Bench bench;
  callbacks_under_way = 1;
  std::string error;
  ASSERT_TRUE(recorder_start(bench.recorder, error));
  const auto begun = std::chrono::steady_clock::now();
  {
    const WithoutCallbacks without(&bench.recorder);
    EXPECT_EQ(holds, 1);
  }
  EXPECT_EQ(holds, 0);
  EXPECT_GE(std::chrono::steady_clock::now() - begun, kLimitCallbackWait);
  EXPECT_LT(std::chrono::steady_clock::now() - begun, std::chrono::seconds(5));
  recorder_stop(bench.recorder);
  const std::uint64_t seq = last_seq;
  const WithoutCallbacks without(&bench.recorder);
  EXPECT_EQ(last_seq, seq);
  EXPECT_EQ(holds, 0);
}

TEST(Recorder, WaitsOnceForACallbackThatIsStuck) {
  Bench bench;
  std::string error;
  ASSERT_TRUE(recorder_start(bench.recorder, error));
  const auto looks = [&bench] {  // how often a wait looks whether the callbacks have ended
    const std::uint64_t before = last_seq;
    const WithoutCallbacks without(&bench.recorder);
    return last_seq - before;
  };
  callbacks_under_way = 1;
  EXPECT_GT(looks(), 1U);
  EXPECT_EQ(looks(), 1U);
  EXPECT_EQ(looks(), 1U);
  callbacks_under_way = 0;  // it has ended after all
  EXPECT_EQ(looks(), 1U);
  callbacks_under_way = 1;
  EXPECT_GT(looks(), 1U);
}

// The memory of the process in bytes: the greatest since forget_peak, or that of now.
std::size_t memory_of(std::string_view row) {
  std::ifstream status("/proc/self/status");
  for (std::string line; std::getline(status, line);)
    if (line.starts_with(row)) return std::stoul(line.substr(row.size())) * kKib;
  ADD_FAILURE() << "there is no " << row;
  return 0;
}

void forget_peak() { std::ofstream("/proc/self/clear_refs") << "5"; }

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool kSanitized = true;  // memory is several times as much
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
constexpr bool kSanitized = true;
#else
constexpr bool kSanitized = false;
#endif
#else
constexpr bool kSanitized = false;
#endif

// The text of a call with many zeros takes the most memory: each is two bytes of text and a JSON value.
TEST(Recorder, ACaseOfTheLongestRecordTakesNoMoreMemoryThanTheLimitsSay) {
  std::string zeros = "0";
  for (int i = 0; i < 50'000; ++i) zeros += ",0";
  const std::string long_call =
      R"({"seq":9,"t":0,"thread":1,"call":"a_vextvapi_x_read","in":{},"out":{"values":[)" + zeros + R"(]},"ret":0})";
  const std::string short_call = R"({"seq":9,"t":0,"thread":1,"call":"a_vextvapi_x_read","in":{},"ret":0})";
  for (const std::string& call : {long_call, short_call}) {
    Bench bench;
    bench.stack.start->text = R"({"seq":1,"thread":1,"start":"a_dtv_jsp_init_res","ret":0})"
                              "\n"
                              R"({"seq":2,"thread":1,"start":"a_dtv_jsp_init","ret":0})"
                              "\n";
    bench.stack.contract = [] {
      return strdup(R"([{"name":"a_vextvapi_x_read","params":["values"],"callback":null,"fault":null}])");
    };
    std::string error;
    ASSERT_TRUE(recorder_start(bench.recorder, error));
    last_seq = 10;
    while (bench.recorder.bytes + call.size() + 200 < kLimitCaseBytes) {
      const Begun begun = recorder_begin(&bench.recorder);
      recorder_line(&bench.recorder, call.c_str());
      recorder_request(&bench.recorder, begun, true, "/tv/x", nullptr, 0, "{}");
    }
    ASSERT_GT(bench.recorder.bytes, kLimitCaseBytes - call.size() - 400);
    malloc_trim(0);
    forget_peak();
    const std::size_t before = memory_of("VmRSS:");
    const std::string made = recorder_case(bench.recorder);
    const std::size_t peak = memory_of("VmHWM:");
    EXPECT_TRUE(made.starts_with("{\"cases\":")) << made.substr(0, 200);
    EXPECT_GT(peak, before + kLimitCaseBytes);  // else nothing has been measured
    std::printf("a case of %zu bytes: %zu MiB\n", bench.recorder.bytes, (peak - before) / kMib);
    EXPECT_TRUE(kSanitized || peak - before <= kLimitCaseMemory) << peak - before;
  }
}

TEST(Recorder, ATextThatIsNotUtf8IsItsLength) {
  Bench bench;
  std::string error;
  ASSERT_TRUE(recorder_start(bench.recorder, error));
  bench.get("a\xff");
  const Record record = read_whole(bench.text());
  EXPECT_EQ(record.steps.back().line->at("bytes").to_number<int>(), 2);
  EXPECT_TRUE(record_compare(record.steps.back(), {.ret = 0, .text = "xy", .calls = {}}).empty());
  EXPECT_EQ(record_compare(record.steps.back(), {.ret = 0, .text = "x", .calls = {}}).front(), "bytes: was 2, is 1");
}

// A record of these lines.
std::string lines_of(std::initializer_list<const char*> lines) {
  std::string text = "{\"record\":1}\n";
  for (const char* line : lines) text.append(line).push_back('\n');
  return text;
}

TEST(Record, ACallbackDuringARequestIsRaisedAfterTheCallThatCameBeforeIt) {
  const Record record = read_whole(lines_of({
      R"({"seq":2,"thread":1,"call":"f","in":{}})",
      R"({"seq":4,"thread":2,"call":"h","in":{}})",
      R"({"seq":3,"thread":2,"event":"e","in":{}})",
      R"({"seq":5,"thread":1,"call":"g","in":{}})",
      R"({"seq":1,"thread":1,"get":"/tv/x","ret":0})",
  }));
  ASSERT_EQ(record.steps.size(), 1U);
  const RecordStep& step = record.steps[0];
  ASSERT_EQ(step.calls.size(), 3U);
  EXPECT_EQ(step.calls[0].events.size(), 1U);
  EXPECT_TRUE(step.calls[0].own && !step.calls[1].own && step.calls[2].own);
  EXPECT_EQ(step.calls[1].line->at("call").as_string(), "h");
}

TEST(Record, ACallbackBeforeARequestsFirstCallIsRaisedBeforeTheRequest) {
  const Record record = read_whole(lines_of({
      R"({"seq":2,"thread":2,"event":"e","in":{}})",
      R"({"seq":3,"thread":1,"call":"f","in":{}})",
      R"({"seq":1,"thread":1,"get":"/tv/x","ret":0})",
  }));
  ASSERT_EQ(record.steps.size(), 2U);
  EXPECT_EQ(record.steps[0].kind, StepKind::kRaise);
  EXPECT_EQ(record.steps[1].calls.size(), 1U);
}

TEST(Record, WhatWasFetchedDuringARequestIsFetchedBeforeItWithTheCallbacksThatCameBefore) {
  const Record record = read_whole(lines_of({
      R"({"seq":2,"thread":1,"call":"f","in":{}})",
      R"({"seq":3,"thread":2,"event":"first","in":{}})",
      R"({"seq":4,"thread":3,"fetch":"/tv/ws/notify/a","ret":0,"notification":"1"})",
      R"({"seq":5,"thread":2,"event":"second","in":{}})",
      R"({"seq":6,"thread":1,"call":"g","in":{}})",
      R"({"seq":1,"thread":1,"get":"/tv/x","ret":0})",
      R"({"seq":7,"thread":3,"fetch":"/tv/ws/notify/a","ret":0,"notification":"2"})",
  }));
  std::vector<std::string> names;
  for (const RecordStep& step : record.steps) names.push_back(record_step_name(step));
  EXPECT_EQ(names,
            (std::vector<std::string>{"event first", "fetch /tv/ws/notify/a", "get /tv/x", "fetch /tv/ws/notify/a"}));
  ASSERT_EQ(record.steps[2].calls.size(), 2U);
  EXPECT_EQ(record.steps[2].calls[0].events.size(), 1U) << "the second one";
}

TEST(Record, ACallbackThatOutlastsItsRequestIsAStepOfItsOwnWithItsCalls) {
  const Record record = read_whole(lines_of({
      R"({"seq":2,"thread":1,"call":"f","in":{}})",
      R"({"seq":1,"thread":1,"get":"/tv/x","ret":0})",
      R"({"seq":4,"thread":2,"call":"h","in":{}})",
      R"({"seq":3,"thread":2,"event":"e","in":{}})",
      R"({"seq":9,"thread":3,"call":"of nobody","in":{}})",
      R"({"seq":5,"thread":2,"event":"lost","in":{},"dropped":true})",
  }));
  ASSERT_EQ(record.steps.size(), 2U);
  EXPECT_EQ(record.steps[1].name, "e");
  ASSERT_EQ(record.steps[1].calls.size(), 1U);
  EXPECT_TRUE(record.steps[1].calls[0].own);
  EXPECT_EQ(record.left_over, 1U);
}

}  // namespace
