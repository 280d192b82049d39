// Runs the tests in a network namespace of their own, with a loopback only: sets of other processes would otherwise
// receive the announcements that tests send by multicast, and answer them. A user without the right to make one shares
// the machine's network.
#include <gtest/gtest.h>
#include <net/if.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

class OwnNetwork : public testing::Environment {
 public:
  // On the main thread, before any other thread is started: threads inherit the namespace.
  void SetUp() override {
    if (unshare(CLONE_NEWNET) != 0) return;
    const int any = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    ASSERT_GE(any, 0);
    ifreq request = {.ifr_ifrn = {"lo"}, .ifr_ifru = {}};
    request.ifr_flags = IFF_UP;
    EXPECT_EQ(ioctl(any, SIOCSIFFLAGS, &request), 0);
    close(any);
  }
};

testing::Environment* const own_network = testing::AddGlobalTestEnvironment(new OwnNetwork);

}  // namespace
