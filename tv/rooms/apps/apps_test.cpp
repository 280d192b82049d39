// HbbTV, the portal, the set's own applications, the factory reset, shop demonstrations on a stick.
#include <cstring>
#include <fstream>
#include <thread>

#include "tests/unit/tv/support.h"

namespace {

struct TvApps : testing::Test {
  TvFolder folder;
  TvApps() { EXPECT_EQ(tv_start(folder.path), ""); }
};

constexpr UINT32 kWords = 100;

VEXTVAPI_HBBTV_DATA_T message(UINT32 type, UINT32 value, const char* uri = "") {
  VEXTVAPI_HBBTV_DATA_T block{};
  block.ui4_length =
      type == VEXTVAPI_HBBTV_FUNC_APPLICATION ? VEXTVAPI_HBBTV_LENGTH_APPLICATION : VEXTVAPI_HBBTV_LENGTH;
  block.ui4_func_type = type;
  block.ui4_value = value;
  std::strncpy(block.s_uri, uri, sizeof block.s_uri - 1);
  return block;
}

INT32 exchange(VEXTVAPI_HBBTV_DATA_T block) { return a_vextvapi_hbbtv_exchange_data(&block, kWords); }

// HbbTV's answer to a query: whether it is on, and the application's address.
std::string hbbtv() {
  VEXTVAPI_HBBTV_DATA_T block = message(0, 77, "stale");
  EXPECT_EQ(a_vextvapi_hbbtv_exchange_data(&block, kWords), 0);
  return (block.ui4_value == 1 ? "on " : block.ui4_value == 0 ? "off " : "? ") + std::string(block.s_uri);
}

bool app(const std::string& part) { return tv_control(R"(["app"])").find(part) != std::string::npos; }

bool shown(const std::string& part) { return tv_control(R"(["state"])").find(part) != std::string::npos; }

TEST_F(TvApps, SwitchingHbbtvChangesTheConfiguration) {
  EXPECT_EQ(hbbtv(), "on ");
  VEXTVAPI_HBBTV_DATA_T off = message(1, 0);
  EXPECT_EQ(a_vextvapi_hbbtv_exchange_data(&off, kWords), 0);
  EXPECT_EQ(off.ui4_value, 0u);
  EXPECT_EQ(hbbtv(), "off ");
  INT32 kept = -1;
  EXPECT_EQ(a_vextvapi_config_get_value(-1, "g_hbbtv__enable", &kept), 0);
  EXPECT_EQ(kept, 0);
  EXPECT_TRUE(app(R"("hbbtv":{"enabled":false,"type":0,"uri":""})"));
  dtv_tv_stop();
  EXPECT_EQ(tv_start(folder.path), "");
  EXPECT_EQ(hbbtv(), "off ");
  EXPECT_EQ(exchange(message(1, 1)), 0);
  EXPECT_EQ(hbbtv(), "on ");
}

TEST_F(TvApps, HbbtvRunsAnApplicationUntilItIsSwitchedOff) {
  const std::string longest = "http://h/" + std::string(246, 'a');
  VEXTVAPI_HBBTV_DATA_T start = message(4, 3, longest.c_str());
  EXPECT_EQ(a_vextvapi_hbbtv_exchange_data(&start, kWords), 0);
  EXPECT_EQ(start.ui4_value, 3u);
  EXPECT_EQ(start.s_uri, longest);
  EXPECT_EQ(hbbtv(), "on " + longest);
  EXPECT_EQ(exchange(message(4, 1, "http://h/other")), 0);
  EXPECT_TRUE(app(R"("hbbtv":{"enabled":true,"type":1,"uri":"http://h/other"})"));
  EXPECT_TRUE(shown(R"("hbbtv":"http://h/other")"));
  EXPECT_EQ(a_vextvapi_config_set_value(-1, "g_hbbtv__enable", 0, 0), 0);  // as the menu does
  EXPECT_EQ(hbbtv(), "off ");
  expect_words(refusal([] { return exchange(message(4, 1, "http://h/other")); }), {"HbbTV is off"});
  EXPECT_EQ(exchange(message(1, 1)), 0);
  EXPECT_EQ(hbbtv(), "on ");
  EXPECT_FALSE(shown("hbbtv"));
}

TEST_F(TvApps, ApplicationEndsEvenIfHbbtvIsOnAgainAtTheNextQuery) {
  const auto menu = [](INT32 on) { EXPECT_EQ(a_vextvapi_config_set_value(-1, "g_hbbtv__enable", on, 0), 0); };
  EXPECT_EQ(exchange(message(4, 3, "http://h/")), 0);
  menu(1);  // it is on already
  EXPECT_EQ(hbbtv(), "on http://h/");
  menu(0);
  menu(1);
  EXPECT_EQ(hbbtv(), "on ");
  EXPECT_EQ(exchange(message(4, 3, "http://h/")), 0);
  EXPECT_EQ(hbbtv(), "on http://h/");
}

TEST_F(TvApps, HbbtvRefusesInvalidMessages) {
  expect_words(refusal([] { return exchange(message(1, 2)); }), {"2"});
  expect_words(refusal([] { return exchange(message(2, 0)); }), {"no function 2"});
  expect_words(refusal([] { return exchange(message(0xFFFFFFFF, 0)); }), {"4294967295"});
  VEXTVAPI_HBBTV_DATA_T wrong = message(1, 0);
  wrong.ui4_length = 260;
  expect_words(refusal([&] { return exchange(wrong); }), {"392", "260"});
  wrong = message(4, 0, "http://h/");
  wrong.ui4_length = 392;
  expect_words(refusal([&] { return exchange(wrong); }), {"260", "392"});
  expect_words(refusal([] { return exchange(message(4, 0)); }), {"address"});
  expect_words(refusal([] { return exchange(message(4, 0, "\xFF")); }), {"UTF-8"});
  wrong = message(4, 0);
  std::memset(wrong.s_uri, 'a', sizeof wrong.s_uri);  // without a NUL
  expect_words(refusal([&] { return exchange(wrong); }), {"255"});
  wrong = message(1, 0);
  expect_words(refusal([&] { return a_vextvapi_hbbtv_exchange_data(&wrong, 99); }), {"100 words"});
  expect_words(refusal([] { return a_vextvapi_hbbtv_exchange_data(nullptr, kWords); }), {"100 words"});
  EXPECT_EQ(hbbtv(), "on ");
}

TEST_F(TvApps, PortalRunsInItsModes) {
  EXPECT_EQ(a_net_get_app_mode(), 0);
  for (const UINT8 mode :
       {UINT8{1}, UINT8{2}, UINT8{3}, UINT8{4}, UINT8{5}, UINT8{6}, UINT8{11}, UINT8{12}, UINT8{15}}) {
    EXPECT_EQ(a_portal_start_ex(mode), 0);
    EXPECT_EQ(a_net_get_app_mode(), mode);
  }
  EXPECT_TRUE(shown(R"("portal":"OPEN_INTERNET")"));
  EXPECT_EQ(a_portal_pause_ex(2), 0);
  EXPECT_EQ(a_net_get_app_mode(), 0);
  EXPECT_FALSE(shown("portal"));
  EXPECT_TRUE(app(R"("portal":{"mode":"","last_exit":"CHANGE_SOURCE","edfu_url":""})"));
  expect_words(refusal([] { return a_portal_pause_ex(1); }), {"is not running"});
}

TEST_F(TvApps, PortalOpensAnAddress) {
  expect_words(refusal([] { return a_portal_start_ex(7); }), {"no address"});
  EXPECT_EQ(a_set_edfu_url("http://h/e"), 0);
  EXPECT_EQ(a_portal_start_ex(7), 0);
  EXPECT_TRUE(app(R"("portal":{"mode":"EDFU","last_exit":"","edfu_url":"http://h/e"})"));
  EXPECT_EQ(a_set_edfu_url(std::string(255, 'a').c_str()), 0);
  expect_words(refusal([] { return a_set_edfu_url(std::string(256, 'a').c_str()); }), {"255"});
  expect_words(refusal([] { return a_set_edfu_url("\xC3"); }), {"UTF-8"});
  refusal([] { return a_set_edfu_url(nullptr); });
}

TEST_F(TvApps, PortalRefusesUnknownModesAndReasons) {
  EXPECT_EQ(a_portal_start_ex(2), 0);
  for (const UINT8 mode : {UINT8{0}, UINT8{8}, UINT8{9}, UINT8{10}, UINT8{13}, UINT8{16}, UINT8{255}}) {
    expect_words(refusal([&] { return a_portal_start_ex(mode); }), {std::to_string(mode)});
  }
  for (const UINT8 reason : {UINT8{5}, UINT8{255}}) {
    expect_words(refusal([&] { return a_portal_pause_ex(reason); }), {std::to_string(reason)});
  }
  EXPECT_EQ(a_net_get_app_mode(), 2);
}

TEST_F(TvApps, NativeApplications) {
  for (INT32 number = 1; number <= 17; ++number) EXPECT_EQ(a_vextvapi_util_start_native_app(number), 0) << number;
  EXPECT_TRUE(app(R"("native_app":"USER_MANUAL")"));
  EXPECT_TRUE(shown(R"("native_app":"USER_MANUAL")"));
  for (const INT32 number : {0, -1, 18, INT32_MAX, INT32_MIN}) {
    expect_words(refusal([&] { return a_vextvapi_util_start_native_app(number); }), {std::to_string(number)});
  }
  EXPECT_EQ(a_vextvapi_util_start_native_app(1), 0);
  EXPECT_TRUE(app(R"("native_app":"GUIDE")"));
  tv_control(R"(["key","EXIT"])");
  EXPECT_TRUE(app(R"("native_app":"")"));
}

TEST_F(TvApps, NothingRunsInStandbyOrAfterARestart) {
  const auto start_all = [] {
    EXPECT_EQ(exchange(message(4, 1, "http://h/")), 0);
    EXPECT_EQ(a_portal_start_ex(1), 0);
    EXPECT_EQ(a_vextvapi_util_start_native_app(5), 0);
  };
  start_all();
  tv_control(R"(["power","standby"])");
  EXPECT_EQ(hbbtv(), "on ");
  EXPECT_EQ(a_net_get_app_mode(), 0);
  EXPECT_TRUE(app(R"("native_app":"")"));
  expect_words(refusal([] { return exchange(message(4, 1, "http://h/")); }), {"standby"});
  expect_words(refusal([] { return a_portal_start_ex(1); }), {"standby"});
  expect_words(refusal([] { return a_vextvapi_util_start_native_app(5); }), {"standby"});
  tv_control(R"(["power","on"])");
  start_all();
  dtv_tv_stop();
  EXPECT_EQ(tv_start(folder.path), "");
  EXPECT_EQ(hbbtv(), "on ");
  EXPECT_EQ(a_net_get_app_mode(), 0);
  EXPECT_TRUE(app(R"("native_app":"")"));
}

TEST_F(TvApps, CleanAllResetsTheSet) {
  EXPECT_EQ(a_vextvapi_volctrl_setVolume(77), 0);
  EXPECT_EQ(a_vextvapi_config_set_value(-1, "g_audio__balance", 7, 0), 0);
  EXPECT_EQ(a_vextvapi_time_set_utc_time(0), 0);
  EXPECT_EQ(a_vextvapi_time_set_sleep_timer(500), 0);
  EXPECT_EQ(a_portal_start_ex(1), 0);
  tv_control(R"(["key","CH+"])");
  tv_control(R"(["key","SOURCE"])");
  const INT32 wrong[][4] = {{0, 2, 1, 1}, {0, 2, 0, 0}, {0, 1, 1, 0}, {1, 2, 1, 0}, {0, 0, 0, 0}};
  for (const auto& job : wrong) {
    refusal([&] { return a_vextvapi_util_set(job[0], job[1], job[2], job[3]); });
  }
  EXPECT_EQ(a_vextvapi_volctrl_getVolume(), 77);
  EXPECT_EQ(a_vextvapi_util_set(0, 2, 1, 0), 0);
  EXPECT_EQ(tv_control(R"(["state"])"), "{" TV_FACTORY_STATE "}");
  EXPECT_GT(a_vextvapi_time_get_utc_time(), 1700000000);
  EXPECT_EQ(a_net_get_app_mode(), 0);
  dtv_tv_stop();
  expect_words(refusal([] { return a_vextvapi_util_set(0, 2, 1, 0); }), {"off"});
}

TEST_F(TvApps, FindsDemonstrationsOnAStick) {
  const std::filesystem::path stick = folder.path + "/stick";
  std::filesystem::create_directories(stick / "sub");
  const auto look = [&](auto function) {
    UINT8 flag = 77;
    EXPECT_EQ(function(stick.c_str(), &flag), 0);
    return flag;
  };
  const auto make = [&](const char* name) { std::ofstream(stick / name) << "x"; };
  make("super_shop_demos.mp4");
  make("my_ebanner.png");
  make("sub/ebanner.png");
  std::filesystem::create_directory(stick / "ebanner");
  EXPECT_EQ(look(a_vextvapi_util_is_jump_super_shop_demo), 0);
  EXPECT_EQ(look(a_vextvapi_util_is_jump_ebanner), 0);
  make("Super_Shop_Demo.MP4");
  EXPECT_EQ(look(a_vextvapi_util_is_jump_super_shop_demo), 1);
  EXPECT_EQ(look(a_vextvapi_util_is_jump_ebanner), 0);
  make("ebanner.jpg");
  EXPECT_EQ(look(a_vextvapi_util_is_jump_ebanner), 1);

  UINT8 untouched = 77;
  const std::string nowhere = folder.path + "/nowhere";
  for (const char* path : {nowhere.c_str(), ""}) {
    refusal([&] { return a_vextvapi_util_is_jump_super_shop_demo(path, &untouched); });
    refusal([&] { return a_vextvapi_util_is_jump_ebanner(path, &untouched); });
  }
  EXPECT_LT(a_vextvapi_util_is_jump_ebanner(nullptr, &untouched), 0);
  EXPECT_LT(a_vextvapi_util_is_jump_ebanner(stick.c_str(), nullptr), 0);
  EXPECT_EQ(untouched, 77);
}

TEST_F(TvApps, ManyThreads) {
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([t] {
      for (int i = 0; i < 50; ++i) {
        a_portal_start_ex(static_cast<UINT8>(1 + i % 3));
        if (t == 0) a_portal_pause_ex(0);
        if (t == 1) exchange(message(1, i % 2 == 0 ? 0 : 1));
        if (t == 2) tv_control(R"(["power","toggle"])");
        exchange(message(4, 1, "http://h/"));
        a_vextvapi_util_start_native_app(1 + i % 17);
        tv_control(R"(["state"])");
      }
    });
  }
  testing::internal::CaptureStderr();
  for (std::thread& thread : threads) thread.join();
  testing::internal::GetCapturedStderr();
  tv_control(R"(["power","standby"])");
  EXPECT_EQ(a_net_get_app_mode(), 0);
}

}  // namespace
