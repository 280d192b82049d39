// Makes the n-th allocation fail, for each n until none does: nothing crashes, nothing leaks, pending texts stay.
#include <algorithm>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "recording_platform.h"
#include "support.h"
#include "tv_ctrl_api/item_types.h"
#include "tv_ctrl_api/response.h"
#include "tv_ctrl_main/registry.h"

namespace {

class Memory : public PluginTest, public testing::WithParamInterface<bool> {
 protected:
  // True: every allocation from the n-th on fails; false: only the n-th.
  static bool persistent() { return GetParam(); }
};
INSTANTIATE_TEST_SUITE_P(Failing, Memory, testing::Bool(),
                         [](const auto& info) { return info.param ? "FromTheNth" : "TheNth"; });

constexpr int kTooMany = 2000;

// Runs `prepare`, then `action` with the n-th allocation failing, then `check(n, printed, went well)`, for each n.
void for_each_failure(bool persistent, const std::function<void()>& prepare, const std::function<void()>& action,
                      const std::function<void(int, const std::string&, bool)>& check) {
  for (int n = 1; n < kTooMany; ++n) {
    prepare();
    bool well = false;
    std::string printed = printed_by([&] {
      const MemoryWatch memory(n, persistent);
      action();
      well = memory.allocations() < n;
    });
    check(n, printed, well);
    if (well) return;
  }
  FAIL() << "allocates without end";
}

constexpr char kVolumeUri[] = "/tv/cast/volume/volume";
constexpr char kVolumeText[] =
    R"({"URI":"/tv/cast/volume/volume","STATUS":0,"ITEMS":[{"NAME":"Volume","TYPE":"TYPE_VALUE","GROUP":4,"STATE":1,)"
    R"("MINIMUM":0,"MAXIMUM":0,"INCREMENT":1,"VALUE":31}]})";

TEST_P(Memory, GetAnswersWholeOrNotAtAll) {
  std::string response;
  INT32 ret = 99;
  platform_answer("a_vextvapi_volctrl_getVolume", 31);
  for_each_failure(
      persistent(), [] {},
      [&] {
        char buffer[DTV_JSP_RESPONSE_MAX + 1] = {};
        ret = a_dtv_jsp_get(kVolumeUri, nullptr, buffer);
        response = buffer;
      },
      [&](int n, const std::string& printed, bool well) {
        EXPECT_EQ(ret, 0) << n << ": the handler's result stays";
        EXPECT_EQ(response, well ? kVolumeText : "") << n;
        EXPECT_EQ(_ps_send_buff == nullptr, !well) << n;
        EXPECT_EQ(printed, well ? "" : "<_json_print_value_type> Create root object failed!!!\n") << n;
      });
}

TEST_P(Memory, GetThatCannotParseFails) {
  INT32 ret = 99;
  for_each_failure(
      persistent(), [] {},
      [&] {
        char buffer[DTV_JSP_RESPONSE_MAX + 1] = {};
        ret = a_dtv_jsp_get(made_up_uri(TYPE_TEXT).c_str(),
                            R"({"PARAMETER":{"REQUEST":"QUERY","VALUE":"abc","A":[1,{"B":null}]}})", buffer);
      },
      [&](int n, const std::string& printed, bool well) {
        if (n == 1) EXPECT_EQ(ret, -1);
        if (ret == -1 && !well) EXPECT_NE(printed, "") << n;
      });
}

TEST_P(Memory, SetLeaksNothing) {
  INT32 ret = 99;
  for_each_failure(
      persistent(), [] { platform_reset(); },
      [&] { ret = a_dtv_jsp_set(kVolumeUri, R"({"PARAMETER":{"REQUEST":"MODIFY","VALUE":12}})"); },
      [&](int n, const std::string& printed, bool well) {
        EXPECT_EQ(ret, well ? 0 : -1) << n;
        EXPECT_EQ(platform_calls().size(), well ? 1u : 0u) << n;
        EXPECT_EQ(printed.empty(), well) << n << printed;
      });
}

TEST_P(Memory, RequestsLeakNothing) {
  for (int n = 0; n < 60; ++n) {
    testing::internal::CaptureStdout();
    {
      const MemoryWatch memory(n, persistent());
      char buffer[DTV_JSP_RESPONSE_MAX + 1] = {};
      a_dtv_jsp_get(kVolumeUri, R"({"PARAMETER":{"REQUEST":"x","A":[1,{"B":null}]}})", buffer);
      a_dtv_jsp_set(kVolumeUri, R"({"PARAMETER":{"REQUEST":"MODIFY","VALUE":[1,{"B":null}]}})");
      // The text of the last response is kept until the next one.
      std::free(std::exchange(_ps_send_buff, nullptr));
      _z_send_buff_len = 0;
      EXPECT_EQ(memory.live_blocks(), 0u) << n;
    }
    testing::internal::GetCapturedStdout();
  }
}

// --- A text that a handler allocates ---

constexpr std::size_t kThumbnailSize = 131072;

// A request that names the player's "getthumbnaildata".
struct ThumbnailRequest {
  const char* uri;
  bool is_set;
  INT32 platform_result;
  INT32 ret;
  bool allocates;  // the thumbnail's block
};
constexpr ThumbnailRequest kThumbnailRequests[] = {
    {"/tv/cbrowser/playback_get_info", false, 0, 0, true},
    {"/tv/cbrowser/playback_get_info", false, -9, -9, true},
    {"/tv/cbrowser/playback_operator", true, 0, 0, true},
    {"/tv/cbrowser/playback_operator", true, -9, -9, true},
    {"/tv/cbrowser/playback_deinit", true, 0, 0, false},
    {"/tv/cbrowser/playback_init", false, 0, -2, false},     // with an operator, the path does not count
    {"/tv/cbrowser/playback_deinit", false, 0, 0, false},    // which has no get
    {"/tv/cbrowser/playback_get_info", true, 0, 0, false}};  // which has no set

INT32 send(const ThumbnailRequest& request) {
  const std::string text = std::string(R"({"PARAMETER":{"REQUEST":")") + (request.is_set ? "SET" : "QUERY") +
                           R"(","handle":5,"operator":"getthumbnaildata","mediaPath":"/a"}})";
  if (request.is_set) return a_dtv_jsp_set(request.uri, text.c_str());
  std::vector<char> response(DTV_JSP_RESPONSE_MAX + 1);
  return a_dtv_jsp_get(request.uri, text.c_str(), response.data());
}

// Makes the platform write this many characters of a thumbnail, without a terminator.
void platform_makes_thumbnails(INT32 result, std::size_t size) {
  platform_reset();
  platform_answer("a_vextvapi_cb_pb_get_thumbnail", result);
  platform_do("a_vextvapi_cb_pb_get_thumbnail", [size](const std::vector<std::int64_t>& arguments) {
    std::memset(reinterpret_cast<void*>(static_cast<std::intptr_t>(arguments.at(1))), 'x', size);
  });
}

bool platform_made_a_thumbnail() {
  const std::vector<PlatformCall> calls = platform_calls();
  return std::ranges::count(calls, "a_vextvapi_cb_pb_get_thumbnail", &PlatformCall::name) > 0;
}

// One request, of which an allocation may fail.
struct Sent {
  INT32 ret = 0;
  bool well = false;       // no allocation failed
  std::string response;    // uncut; empty: there is none
  std::size_t leaked = 0;  // blocks
};

Sent send_without_memory(const ThumbnailRequest& request, int fail_at, bool persistent) {
  Sent sent;
  printed_by([&] {
    const MemoryWatch memory(fail_at, persistent);
    sent.ret = send(request);
    sent.well = memory.allocations() < fail_at;
    if (_ps_send_buff) sent.response = _ps_send_buff;
    std::free(std::exchange(_ps_send_buff, nullptr));
    _z_send_buff_len = 0;
    sent.leaked = memory.live_blocks();
  });
  return sent;
}

TEST_P(Memory, ThumbnailIsFreedOnEveryPath) {
  for (const ThumbnailRequest& request : kThumbnailRequests) {
    for (const std::size_t size : {std::size_t{3}, kThumbnailSize}) {
      int without_block = 0, without_response = 0;
      Sent sent;
      for (int n = 1; !sent.well; ++n) {
        ASSERT_LT(n, kTooMany);
        platform_makes_thumbnails(request.platform_result, size);
        testing::internal::CaptureStderr();
        sent = send_without_memory(request, n, persistent());
        testing::internal::GetCapturedStderr();
        EXPECT_EQ(sent.leaked, 0u) << request.uri << " " << request.is_set << " " << n;
        without_block += sent.ret == VEXTVCTRLR_OUT_OF_MEMORY && !platform_made_a_thumbnail();
        without_response += !request.is_set && platform_made_a_thumbnail() && sent.response.empty();
      }
      EXPECT_EQ(sent.ret, request.ret) << request.uri << " " << request.is_set;
      EXPECT_EQ(platform_made_a_thumbnail(), request.allocates) << request.uri << " " << request.is_set;
      EXPECT_EQ(without_block, request.allocates ? 1 : 0) << request.uri << " " << request.is_set;
      if (!request.allocates) continue;
      EXPECT_EQ(last_calloc_size(), kThumbnailSize + 1) << "the text of a platform that fills its room has an end";
      if (request.is_set) continue;
      EXPECT_GT(without_response, 0) << request.uri;
      if (request.platform_result != 0) continue;
      EXPECT_EQ(sent.response, R"({"URI":"/tv/cbrowser/playback_get_info","STATUS":0,"ITEMS":[)"
                               R"({"NAME":"Content Browser Playback","handle":5,"getthumbnailasyncbuffer":")" +
                                   std::string(size, 'x') + "\"}]}");
    }
  }
}

// --- Notifications ---

struct Raised {
  UINT8 type;
  const char* uri;
};

// Every type that is notified, with one of its URIs.
std::vector<Raised> notified() {
  std::vector<Raised> all;
  for (const ItemType* const item : tvc_item_types()) {
    if (item->notify.form == NotifyForm::kNone) continue;
    for (const TV_CTRL_URI_ID_MAP_T& row : tvc_registry())
      if (row.ui1_type == item->type) {
        all.push_back({item->type, row.s_uri});
        break;
      }
  }
  return all;
}

void raise(const Raised& what) {
  std::vector<char> record(4096, 0);
  tv_ctrl_api_notify_func(what.uri, record.data());
}

TEST_P(Memory, NotificationWithNothingPending) {
  for (const Raised& what : notified()) {
    a_dtv_jsp_add_listener_buffer(what.uri);
    raise(what);
    const std::string whole = fetch(what.uri).value();
    ASSERT_NE(whole, "");
    for_each_failure(
        persistent(), [] {}, [&] { raise(what); },
        [&](int n, const std::string& printed, bool well) {
          EXPECT_EQ(fetch(what.uri), well ? whole : "") << what.uri << " " << n;
          const std::string log_name = tvc_item_type(what.type)->notify.log_name;
          EXPECT_EQ(printed, well ? "" : "<" + log_name + "> Create root object failed!!!\n") << n;
        });
  }
}

TEST_P(Memory, PendingTextStays) {
  for (const Raised& what : notified()) {
    const std::string uri = what.uri;
    a_dtv_jsp_add_listener_buffer(what.uri);
    const std::string pending = "{\"URI\":\"" + uri + "\",\"REQUEST\":\"NOTIFY\",\"ITEMS\":[{\"OLD\":1}]}";
    poke_pending(uri, pending);
    raise(what);
    const std::string whole = fetch(uri).value();
    for_each_failure(
        persistent(), [&] { poke_pending(uri, pending); }, [&] { raise(what); },
        [&](int n, const std::string& printed, bool well) {
          EXPECT_EQ(fetch(uri), well ? whole : pending) << uri << " " << n;
          EXPECT_EQ(printed.ends_with("Create root object failed!!!\n"), !well) << printed;
        });
  }
}

// An item does not fit, since its buffer cannot grow: no part of it is in the text, and the next item is appended.
TEST_P(Memory, ItemThatDoesNotFitIsNotAppended) {
  const char* const uri = "/tv/ws/notify/dlna_dmr";
  a_dtv_jsp_add_listener_buffer(uri);
  T_DLNA_DMR_NOTIFY small = {}, large = {};
  std::memset(large.protocolinfo, '\x01', sizeof large.protocolinfo - 1);  // six characters each in JSON
  tv_ctrl_api_notify_func(uri, &small);
  {
    const MemoryWatch memory(1, persistent());
    EXPECT_NE(printed_by([&] { tv_ctrl_api_notify_func(uri, &large); }), "");
    EXPECT_GT(memory.allocations(), 0);
  }
  tv_ctrl_api_notify_func(uri, &small);
  const std::string item = R"({"TYPE":0,"TAG":0,"URL":"","PROTOCOL_INFO":"","ARG1":0,"ARG2":0})";
  EXPECT_EQ(fetch(uri),
            "{\"URI\":\"" + std::string(uri) + "\",\"REQUEST\":\"NOTIFY\",\"ITEMS\":[" + item + "," + item + "]}");
}

TEST_P(Memory, NotificationsLeakNothing) {
  for (const Raised& what : notified()) {
    a_dtv_jsp_add_listener_buffer(what.uri);
    for (int n = 0; n < 120; ++n) {
      testing::internal::CaptureStdout();
      {
        const MemoryWatch memory(n, persistent());
        raise(what);
        raise(what);
        const std::string pending = fetch(what.uri).value();
        EXPECT_EQ(memory.live_blocks(), 0u) << what.uri << " " << n;
      }
      testing::internal::GetCapturedStdout();
    }
  }
}

TEST_P(Memory, SubscribingWithoutMemoryStaysSilent) {
  const MemoryWatch memory(1, persistent());
  EXPECT_EQ(printed_by([] { EXPECT_EQ(a_dtv_jsp_add_listener_buffer("/tv/ws/notify/network"), 0); }), "");
  EXPECT_EQ(fetch("/tv/ws/notify/network"), std::nullopt);
}

// --- Description ---

TEST_P(Memory, DescriptionIsWholeOrNull) {
  char* const whole_text = a_dtv_jsp_describe();
  ASSERT_NE(whole_text, nullptr);
  const std::string whole = whole_text;
  std::free(whole_text);
  int allocations = 0;
  {
    const MemoryWatch memory;
    std::free(a_dtv_jsp_describe());
    allocations = memory.allocations();
    EXPECT_EQ(memory.live_blocks(), 0u);
  }
  for (int n = 1; n <= allocations; ++n) {
    const MemoryWatch memory(n, persistent());
    char* const text = a_dtv_jsp_describe();
    const bool whole_or_null = !text || whole == text;
    std::free(text);
    ASSERT_TRUE(whole_or_null) << "cut description at allocation " << n << " of " << allocations;
    ASSERT_EQ(memory.live_blocks(), 0u) << "leak at allocation " << n << " of " << allocations;
  }
}

}  // namespace
