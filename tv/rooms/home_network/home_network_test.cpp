#include <gtest/gtest.h>

#include <future>

#include "dtv_tv.h"
#include "rooms/home_network/loop.h"
#include "rooms/home_network/near.h"
#include "tests/unit/tv/support.h"

namespace {

TEST(HomeNetwork, runsPostedActionsInOrderOnItsThread) {
  std::string error;
  ASSERT_TRUE(home_loop_start(error)) << error;
  std::vector<int> order;
  std::promise<void> done;
  for (int i = 0; i < 3; ++i) home_loop_post([&order, i] { order.push_back(i); });
  home_loop_post([&] { done.set_value(); });
  done.get_future().wait();
  EXPECT_EQ(order, (std::vector<int>{0, 1, 2}));
  home_loop_stop();
}

TEST(HomeNetwork, runsWhatWasPostedBeforeItsEndAndNothingAfterwards) {
  std::string error;
  ASSERT_TRUE(home_loop_start(error)) << error;
  int runs = 0;
  home_loop_post([&] { ++runs; });
  home_loop_stop();
  EXPECT_EQ(runs, 1);
  home_loop_post([&] { ++runs; });
  EXPECT_EQ(runs, 1);
}

TEST(HomeNetwork, needsANetworkInterfaceThatExists) {
  dtv_tv_home_interfaces("none0");
  std::string error;
  EXPECT_FALSE(home_loop_start(error));
  EXPECT_NE(error.find("\"none0\" cannot be used"), std::string::npos) << error;
  dtv_tv_home_interfaces(nullptr);
  EXPECT_TRUE(home_loop_start(error)) << error;
  home_loop_stop();
}

TEST(HomeNetwork, isNearToNumbersOfItsInterfacesNetworksOnly) {
  EXPECT_TRUE(home_is_near("http://127.0.0.1:8200/MediaItems/1.jpg"));
  EXPECT_TRUE(home_is_near("http://127.3.4.5"));
  for (const char* const address :
       {"", "http://", "http://localhost/", "https://127.0.0.1/", "file:///etc/passwd", "http://203.0.113.7/",
        "http://127.0.0.1:0/", "http://127.0.0.1:65536/", "http://127.0.0.1:8x/", "http://user@127.0.0.1/",
        "http://2130706433/", "http://0x7f.1/", "http://127.1/", "http://[::ffff:127.0.0.1]/", "http://[::1/",
        "http://127.0.0.1 /", "http://127.0.0.1/a b", "http://127.0.0.1\r\nHost: x/"})
    EXPECT_FALSE(home_is_near(address)) << address;
  EXPECT_FALSE(home_is_near("http://127.0.0.1/" + std::string(kLongestAddress, 'a')));
  dtv_tv_home_interfaces("none0");
  EXPECT_FALSE(home_is_near("http://127.0.0.1/"));
  dtv_tv_home_interfaces(nullptr);
}

TEST(HomeNetwork, readsTheNamesOfInterfaces) {
  using Names = std::vector<std::string>;
  EXPECT_EQ(interfaces_of("lo,eth0"), (Names{"lo", "eth0"}));
  EXPECT_EQ(interfaces_of(",lo,,lo,"), Names{"lo"});
  EXPECT_EQ(interfaces_of("a-name-that-is-too-long,lo"), Names{"lo"});
  EXPECT_EQ(interfaces_of(""), Names{});
}

}  // namespace
