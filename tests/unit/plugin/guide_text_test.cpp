// The texts of an event belong to the record from their allocation on, and are freed when the request ends, whatever
// its result.
#include <cstdlib>
#include <cstring>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "recording_platform.h"
#include "support.h"
#include "tv_ctrl_api/response.h"

namespace {

constexpr char kEventUri[] = "/tv/eventinfo/event_information";
constexpr char kExtendedUri[] = "/tv/eventinfo/event_extend_information";
constexpr char kPresentUri[] = "/tv/eventinfo/event_current_information";
constexpr char kUpdateUri[] = "/tv/eventinfo/update_epg";
constexpr char kQuery[] = R"({"PARAMETER":{"REQUEST":"QUERY","CH_ID":5,"EVENT_ID":6}})";
constexpr char kQueryWithoutEvent[] = R"({"PARAMETER":{"REQUEST":"QUERY","CH_ID":5}})";

constexpr char kDetails[] = "a_vextvapi_event_get_details_info";
constexpr char kExtended[] = "a_vextvapi_event_get_details_extend_info";
constexpr char kGuidance[] = "a_vextvapi_event_get_guidance_info";

constexpr UINT32 kLength = 40;  // of each text, in bytes

template <typename T>
T* address(std::int64_t argument) {
  return reinterpret_cast<T*>(static_cast<std::intptr_t>(argument));
}

class GuideTexts : public PluginTest {
 protected:
  void SetUp() override {
    PluginTest::SetUp();
    platform_do("a_vextvapi_event_get_general_info", [](const std::vector<std::int64_t>& arguments) {
      auto& info = *address<VEXTVAPI_EVENT_GENERAL_INFO_T>(arguments[2]);
      info.event_detail_len = info.event_detail_extend_len = info.guidance_len = kLength;
    });
    for (const auto& [name, letter] : {std::pair{kDetails, 'd'}, {kExtended, 'e'}, {kGuidance, 'g'}})
      platform_do(name, [letter = letter](const std::vector<std::int64_t>& arguments) {
        std::memset(address<char>(arguments[2]), letter, static_cast<std::size_t>(arguments[3]));  // unterminated
      });
  }

  // A get with the n-th allocation failing, 0: none; all after it, too, where it is persistent.
  struct Got {
    INT32 ret;
    std::string response;
    std::size_t kept;  // blocks that are not freed afterwards
    int allocations;
  };
  static Got get(const char* uri, const char* query, int fail_at = 0, bool persistent = false) {
    Got got = {};
    printed_by([&] {
      const MemoryWatch memory(fail_at, persistent);
      char buffer[DTV_JSP_RESPONSE_MAX + 1] = {};
      got.ret = a_dtv_jsp_get(uri, query, buffer);
      got.response = buffer;
      forget_response();
      got.kept = memory.live_blocks();
      got.allocations = memory.allocations();
    });
    return got;
  }

  // The text of the last response is kept until the next one.
  static void forget_response() {
    std::free(std::exchange(_ps_send_buff, nullptr));
    _z_send_buff_len = 0;
  }

  static bool shows(const Got& got, char letter) {
    return got.response.find("\"" + std::string(kLength, letter) + "\"") != std::string::npos;
  }
};

TEST_F(GuideTexts, AreShownAndFreed) {
  for (const char* const uri : {kEventUri, kPresentUri}) {
    const Got got = get(uri, kQuery);
    EXPECT_EQ(got.ret, 0) << uri;
    EXPECT_TRUE(shows(got, 'd') && shows(got, 'g')) << got.response;
    EXPECT_EQ(got.kept, 0u) << uri;
  }
  const Got got = get(kExtendedUri, kQuery);
  EXPECT_EQ(got.ret, 0);
  EXPECT_TRUE(shows(got, 'e')) << got.response;
  EXPECT_EQ(got.kept, 0u);
}

// The detail has been read when the guidance fails. Without an event's identifier there is no response either.
TEST_F(GuideTexts, AreFreedWhenReadingOneFails) {
  for (const char* const failing : {kDetails, kGuidance, kExtended}) {
    platform_answer(failing, -1);
    for (const char* const uri : {kEventUri, kPresentUri, kExtendedUri}) {
      for (const char* const query : {kQuery, kQueryWithoutEvent}) {
        const bool fails = (failing == kExtended) == (uri == kExtendedUri);
        const Got got = get(uri, query);
        EXPECT_EQ(got.ret, fails ? -1 : 0) << uri << " " << failing;
        EXPECT_EQ(got.response.empty(), fails && query == kQueryWithoutEvent) << uri << " " << got.response;
        EXPECT_EQ(fails && failing == kGuidance && query == kQuery, fails && shows(got, 'd')) << uri << " " << failing;
        EXPECT_EQ(got.kept, 0u) << uri << " " << failing;
      }
    }
    platform_answer(failing, 0);
  }
}

// The allocations are those of the parser, of the texts, and of the response.
TEST_F(GuideTexts, AreFreedWhereverMemoryFails) {
  for (const char* const uri : {kEventUri, kPresentUri, kExtendedUri}) {
    for (const char* const query : {kQuery, kQueryWithoutEvent}) {
      for (const bool persistent : {false, true}) {
        int without_response = 0, with_failure = 0;
        for (int n = 1;; ++n) {
          ASSERT_LT(n, 1000) << "allocates without end";
          const Got got = get(uri, query, n, persistent);
          EXPECT_EQ(got.kept, 0u) << uri << " at allocation " << n;
          if (got.allocations < n) {
            EXPECT_EQ(got.ret, 0);
            break;
          }
          with_failure += got.ret == -1;
          without_response += got.ret == 0 && got.response.empty();
        }
        EXPECT_GT(with_failure, 1) << uri << ": of the parser or a text";
        EXPECT_GT(without_response, 0) << uri << ": of the response, with the texts in the record";
      }
    }
  }
}

// A request that fails leaves nothing for the next one to free or to show.
TEST_F(GuideTexts, AreNotKeptForTheNextRequest) {
  EXPECT_TRUE(shows(get(kEventUri, kQuery), 'd'));
  platform_answer("a_vextvapi_event_get_general_info", -1);
  const Got got = get(kEventUri, kQuery);
  EXPECT_EQ(got.ret, -1);
  EXPECT_FALSE(shows(got, 'd')) << got.response;
  EXPECT_NE(got.response.find(R"("DETAILS":"")"), std::string::npos) << got.response;
}

// --- Sets ---

char* owned_text() {
  char* const text = static_cast<char*>(std::malloc(8));
  if (text) std::memcpy(text, "details", 8);
  return text;
}

// A set whose handler puts texts into the record of an event, as often as it is called. Returns how many blocks stay.
std::size_t blocks_after_set(const char* uri, const std::vector<INT32>& results, std::size_t& ret_calls) {
  std::size_t calls = 0;
  set_handler = [&](UINT16, void* content) {
    T_EVENT_ITEM& item = static_cast<T_CHANNEL_EVENTS*>(content)->event_info[0];
    EXPECT_EQ(item.event_detail, nullptr);
    EXPECT_EQ(item.event_detail_extend, nullptr);
    EXPECT_EQ(item.guidanceText, nullptr);
    // The first request of an update has no events.
    if (uri != kUpdateUri || calls > 0) {
      item.event_detail = owned_text();
      item.event_detail_extend = owned_text();
      item.guidanceText = owned_text();
    }
    return results[calls++];
  };
  std::size_t kept = 99;
  printed_by([&] {
    const MemoryWatch memory;
    a_dtv_jsp_set(uri, R"({"PARAMETER":{"REQUEST":"SET","operation":1,"CH_ID":5,"EVENT_ID":6}})");
    kept = memory.live_blocks();
  });
  ret_calls = calls;
  return kept;
}

TEST_F(GuideTexts, OfASetAreFreed) {
  std::size_t calls = 0;
  for (const INT32 result : {0, -1}) {
    EXPECT_EQ(blocks_after_set(kEventUri, {result}, calls), 0u) << result;
    EXPECT_EQ(calls, 1u);
  }
}

// An update of the guide is carried out a second time as a request for events, in the same record.
TEST_F(GuideTexts, OfTheSecondPassAreFreed) {
  std::size_t calls = 0;
  for (const std::vector<INT32>& results : {std::vector{0, 0}, {0, -1}, {-1, 0}, {-1, -1}}) {
    EXPECT_EQ(blocks_after_set(kUpdateUri, results, calls), 0u) << results[0] << " " << results[1];
    EXPECT_EQ(calls, 2u);
  }
}

}  // namespace
