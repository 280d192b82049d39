// Memory that fails at the n-th allocation, for each n until all goes well: nothing crashes, nothing leaks, what was
// pending stays.
#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "fake_platform.h"
#include "support.h"
#include "tv_ctrl_api/item_types.h"
#include "tv_ctrl_api/response.h"

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

// --- Notifications ---

struct Raised {
  UINT8 type;
  const char* uri;
};
constexpr Raised raised[] = {
    {TYPE_VALUE, "/tv/ws/notify/broadcast/chg_channel_res"},
    {TYPE_VOL_CTRL_NOTIFY, "/tv/ws/notify/volume_ctrl"},
    {TYPE_NW_NOTIFY, "/tv/ws/notify/network"},
    {TYPE_CBROWSER_PB_NOTIFY, "/tv/ws/notify/cbrowser_playback"},
    {TYPE_DLNA_DMS_NOTIFY, "/tv/ws/notify/dlna_dms"},
    {TYPE_USB_DETECT_NOTIFY, "/tv/ws/notify/usb_detect"},
};

void raise(const Raised& what) {
  std::vector<char> record(4096, 0);
  tv_ctrl_api_notify_func(what.uri, record.data());
}

TEST_P(Memory, NotificationWithNothingPending) {
  for (const Raised& what : raised) {
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
  for (const Raised& what : raised) {
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

// An item that fits only in part, since its buffer cannot grow: nothing of it is seen, and the next one is appended.
TEST_P(Memory, ItemThatDoesNotFitIsNotAppended) {
  const char* const uri = "/tv/ws/notify/dlna_dmr";
  a_dtv_jsp_add_listener_buffer(uri);
  T_DLNA_DMR_NOTIFY small = {}, large = {};
  std::memset(large.protocolinfo, 'x', sizeof large.protocolinfo - 1);
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
  for (const Raised& what : raised) {
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
