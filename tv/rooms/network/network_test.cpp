// Network events and facts. Each test runs in a network namespace of its own, so that the machine's network is not
// changed.
#include <fcntl.h>
#include <net/if.h>
#include <sched.h>
#include <spawn.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstring>
#include <fstream>
#include <mutex>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

#include "tests/unit/tv/support.h"

namespace {

constexpr INT32 kPlugged = 1, kUnplugged = 2, kAddresses = 3, kWlanGone = 15;

struct Heard {
  INT32 id;
  int index;
  bool operator==(const Heard&) const = default;
};

[[maybe_unused]] void PrintTo(const Heard& each, std::ostream* out) {  // called by GoogleTest
  *out << "event " << each.id << " of " << each.index;
}

using Events = std::vector<Heard>;

std::mutex lock;
std::condition_variable arrived;
Events heard;
std::thread::id teller;

void listen(void*, INT32 id, void* param) {
  const std::lock_guard guard(lock);
  heard.push_back({id, static_cast<int>(reinterpret_cast<intptr_t>(param))});
  teller = std::this_thread::get_id();
  arrived.notify_all();
}

// Runs the command. Returns false if it fails.
bool run(std::vector<std::string> words) {
  std::vector<char*> arguments;
  for (std::string& word : words) arguments.push_back(word.data());
  arguments.push_back(nullptr);
  pid_t child = 0;
  int status = -1;
  return posix_spawnp(&child, arguments[0], nullptr, nullptr, arguments.data(), environ) == 0 &&
         waitpid(child, &status, 0) == child && status == 0;
}

void ip(const std::string& line) {
  std::vector<std::string> words{"ip"};
  for (std::size_t from = 0, to = 0; from < line.size(); from = to + 1) {
    to = std::min(line.find(' ', from), line.size());
    words.push_back(line.substr(from, to - from));
  }
  EXPECT_TRUE(run(words)) << "ip " << line;
}

int index_of(const char* name) {
  const unsigned index = if_nametoindex(name);
  EXPECT_NE(index, 0u) << name;
  return static_cast<int>(index);
}

// Waits until both ends of a wire have a carrier, or have none. The kernel detects it later, on its own thread.
void wait_for_carrier(const char* near, const char* far, bool wanted) {
  const int any = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  for (const char* const name : {near, far}) {
    ifreq request{};
    std::strncpy(request.ifr_name, name, sizeof request.ifr_name - 1);
    bool running = !wanted;
    for (int i = 0; i < 5000 && running != wanted; ++i) {
      if (i > 0) std::this_thread::sleep_for(std::chrono::milliseconds(1));
      ASSERT_EQ(ioctl(any, SIOCGIFFLAGS, &request), 0);
      running = (request.ifr_flags & IFF_RUNNING) != 0;
    }
    EXPECT_EQ(running, wanted) << name;
  }
  close(any);
}

struct TvNetwork : testing::Test {
  TvFolder folder;
  int outside = -1;
  int marks = 0;
  std::vector<int> far_ends;

  void SetUp() override {
    outside = open("/proc/thread-self/ns/net", O_RDONLY | O_CLOEXEC);
    ASSERT_GE(outside, 0);
    if (unshare(CLONE_NEWNET) != 0)
      GTEST_SKIP() << "no network namespace here: " << std::generic_category().message(errno);
    ASSERT_TRUE(run({"ip", "link", "set", "lo", "up"})) << "iproute2's ip does not work here";
    for (const char* which : {"all", "default"}) {  // automatic addresses would raise events
      std::ofstream("/proc/sys/net/ipv6/conf/" + std::string(which) + "/disable_ipv6") << "1";
    }
    // The second name of a wire has the lower index. Events of the last wire come last.
    for (const char* const wire :
         {"far0 type veth peer name eth0", "far1 type veth peer name wlan0", "mark1 type veth peer name mark0"}) {
      ip(std::string("link add ") + wire);
    }
    far_ends = {index_of("far0"), index_of("far1"), index_of("mark1")};
    start();
    UINT32 number = 0;
    EXPECT_EQ(a_vextvapi_nw_register(listen, nullptr, &number), 0);
  }
  void TearDown() override {
    dtv_tv_stop();
    if (outside < 0) return;
    EXPECT_EQ(setns(outside, CLONE_NEWNET), 0);
    close(outside);
  }
  void start() {
    heard.clear();
    EXPECT_EQ(tv_start(folder.path), "");
  }
  // The events since the last call, except those of the wires' far ends. An address of the interface mark0 marks the
  // end.
  Events events() {
    const Heard mark{kAddresses, index_of("mark0")};
    ip("address add 192.0.2." + std::to_string(++marks) + "/24 dev mark0");
    std::unique_lock guard(lock);
    const bool came = arrived.wait_for(guard, std::chrono::seconds(10),
                                       [&] { return std::count(heard.begin(), heard.end(), mark) > 0; });
    EXPECT_TRUE(came) << "the event that marks the end has not arrived";
    Events found;
    for (const Heard& each : heard)
      if (each != mark && std::ranges::find(far_ends, each.index) == far_ends.end()) found.push_back(each);
    heard.clear();
    return found;
  }
  // Waits for an event without causing one.
  static Events next() {
    std::unique_lock guard(lock);
    EXPECT_TRUE(arrived.wait_for(guard, std::chrono::seconds(10), [] { return !heard.empty(); }));
    return std::exchange(heard, {});
  }
  static std::string network(const std::string& word = "") {
    return tv_control(word.empty() ? R"(["network"])" : R"(["network",")" + word + "\"]");
  }
};

void expect_has(const std::string& text, const std::string& part) {
  EXPECT_NE(text.find(part), std::string::npos) << part << " in: " << text;
}

// ---- Changes of the machine's network ----

TEST_F(TvNetwork, ReportsAddedAndRemovedAddresses) {
  const int eth0 = index_of("eth0");
  ip("address add 198.51.100.7/24 dev eth0");
  EXPECT_EQ(events(), (Events{{kAddresses, eth0}}));
  {
    const std::lock_guard guard(lock);
    EXPECT_NE(teller, std::this_thread::get_id());
  }
  ip("address add 198.51.100.8/25 dev eth0 label eth0:1");
  EXPECT_EQ(events(), (Events{{kAddresses, eth0}}));
  expect_has(network(),
             R"("eth0":{"index":)" + std::to_string(eth0) +
                 R"(,"kind":"ethernet","state":"unplugged","addresses":["198.51.100.7/24","198.51.100.8/25"]})");
  ip("address del 198.51.100.7/24 dev eth0");
  EXPECT_EQ(events(), (Events{{kAddresses, eth0}}));
  ip("address flush dev eth0");
  EXPECT_EQ(events(), (Events{{kAddresses, eth0}}));
  EXPECT_EQ(events(), Events{});
}

TEST_F(TvNetwork, RenewedLifetimeIsNotReported) {
  ip("address add 198.51.100.7/24 dev eth0 valid_lft 1000 preferred_lft 1000");
  EXPECT_EQ(events(), (Events{{kAddresses, index_of("eth0")}}));
  ip("address change 198.51.100.7/24 dev eth0 valid_lft 2000 preferred_lft 2000");
  EXPECT_EQ(events(), Events{});
}

TEST_F(TvNetwork, ReportsAddressesOfBothFamilies) {
  if (!std::ofstream("/proc/sys/net/ipv6/conf/eth0/disable_ipv6").put('0').flush()) GTEST_SKIP() << "no IPv6 here";
  ip("address add 2001:db8::7/64 dev eth0 nodad");
  EXPECT_EQ(next(), (Events{{kAddresses, index_of("eth0")}}));
  expect_has(network(), R"("addresses":["2001:db8::7/64"])");
}

TEST_F(TvNetwork, ReportsAPulledAndPluggedCable) {
  const int eth0 = index_of("eth0");
  ip("link set eth0 up");
  EXPECT_EQ(events(), Events{});  // the far end is not up yet
  ip("link set far0 up");
  wait_for_carrier("eth0", "far0", true);
  EXPECT_EQ(events(), (Events{{kPlugged, eth0}}));
  expect_has(network(), R"("kind":"ethernet","state":"plugged")");
  ip("link set far0 down");
  wait_for_carrier("eth0", "far0", false);
  EXPECT_EQ(events(), (Events{{kUnplugged, eth0}}));
  ip("link set far0 up");
  wait_for_carrier("eth0", "far0", true);
  EXPECT_EQ(events(), (Events{{kPlugged, eth0}}));
  ip("link set eth0 down");
  EXPECT_EQ(next().front(), (Heard{kUnplugged, eth0}));
}

TEST_F(TvNetwork, ReportsARemovedInterface) {
  const int eth0 = index_of("eth0");
  ip("link set eth0 up");
  ip("link set far0 up");
  wait_for_carrier("eth0", "far0", true);
  ip("address add 198.51.100.7/24 dev eth0");
  events();
  ip("link del eth0");
  EXPECT_EQ(events(), (Events{{kUnplugged, eth0}, {kAddresses, eth0}}));
  EXPECT_EQ(network().find("\"eth0\""), std::string::npos);
}

TEST_F(TvNetwork, ReportsARemovedWlanInterface) {
  const int wlan0 = index_of("wlan0");
  ip("link set wlan0 up");
  ip("link set far1 up");
  wait_for_carrier("wlan0", "far1", true);
  EXPECT_EQ(events(), Events{});  // a WLAN interface has no cable
  expect_has(network(), R"("kind":"wlan","state":"plugged")");
  ip("address add 198.51.100.9/24 dev wlan0");
  EXPECT_EQ(events(), (Events{{kAddresses, wlan0}}));
  ip("link del wlan0");
  EXPECT_EQ(events(), (Events{{kWlanGone, wlan0}, {kAddresses, wlan0}}));
}

TEST_F(TvNetwork, LoopbackIsIgnored) {
  ip("address add 127.0.0.9/8 dev lo");
  ip("link set lo down");
  EXPECT_EQ(events(), Events{});
  EXPECT_EQ(network().find("\"lo\""), std::string::npos);
}

// ---- Listeners ----

TEST_F(TvNetwork, EachListenerGetsANumber) {
  static std::vector<int> tags;  // used by the event thread, read after it has ended
  tags.clear();
  const auto other = [](void* tag, INT32, void*) { tags.push_back(*static_cast<int*>(tag)); };
  int first_tag = 11, second_tag = 22;
  UINT32 first = 0, second = 0;
  EXPECT_EQ(a_vextvapi_nw_register(other, &first_tag, &first), 0);
  EXPECT_EQ(a_vextvapi_nw_register(other, &second_tag, &second), 0);
  EXPECT_NE(first, 0u);
  EXPECT_NE(second, 0u);
  EXPECT_NE(first, second);
  network("lose");
  dtv_tv_stop();
  EXPECT_EQ(tags, (std::vector<int>{11, 22}));
  EXPECT_EQ(heard.size(), 1u);
}

TEST_F(TvNetwork, RefusesInvalidAndTooManyListeners) {
  UINT32 number = 77;
  EXPECT_NE(a_vextvapi_nw_register(nullptr, nullptr, &number), 0);
  EXPECT_NE(a_vextvapi_nw_register(listen, nullptr, nullptr), 0);
  for (int i = 2; i <= 32; ++i) EXPECT_EQ(a_vextvapi_nw_register(listen, nullptr, &number), 0);
  number = 77;
  testing::internal::CaptureStderr();
  EXPECT_NE(a_vextvapi_nw_register(listen, nullptr, &number), 0);
  expect_has(testing::internal::GetCapturedStderr(), "32 listeners are registered");
  EXPECT_EQ(number, 77u);
}

TEST_F(TvNetwork, SwitchingOnRemovesAllListeners) {
  dtv_tv_stop();
  ip("address add 198.51.100.7/24 dev eth0");  // while the set was off
  start();
  network("lose");
  dtv_tv_stop();
  EXPECT_EQ(heard, Events{});
}

TEST_F(TvNetwork, SwitchingOffLeavesNoThreadAndNoDescriptor) {
  const auto entries = [](const char* path) {
    return std::distance(std::filesystem::directory_iterator(path), std::filesystem::directory_iterator());
  };
  dtv_tv_stop();
  const auto threads = entries("/proc/self/task");
  const auto descriptors = entries("/proc/self/fd");
  for (int i = 0; i < 20; ++i) {
    start();
    EXPECT_GT(entries("/proc/self/task"), threads + 1);  // one for events, one for the network
    dtv_tv_stop();
  }
  EXPECT_EQ(entries("/proc/self/task"), threads);
  EXPECT_EQ(entries("/proc/self/fd"), descriptors);
  dtv_tv_stop();  // a second stop does nothing
}

// ---- The simulated cable ----

TEST_F(TvNetwork, SimulatesAPulledCable) {
  const int eth0 = index_of("eth0"), wlan0 = index_of("wlan0");
  ip("link set eth0 up");
  ip("link set far0 up");
  wait_for_carrier("eth0", "far0", true);
  ip("address add 198.51.100.7/24 dev eth0");
  ip("address add 198.51.100.9/24 dev wlan0");
  events();
  expect_has(network(), R"({"cable":"as the machine has it","interfaces":{"eth0":{)");
  expect_has(network("lose"), R"({"cable":"pulled","interfaces":{)");
  expect_has(network("lose"), R"("kind":"ethernet","state":"unplugged","addresses":[]})");
  expect_has(network(), R"("addresses":["198.51.100.9/24"])");
  expect_has(tv_control(R"(["state"])"), R"("network":"lost")");
  EXPECT_EQ(next(), (Events{{kUnplugged, eth0}}));
  // While the cable is pulled, Ethernet changes are not reported; WLAN changes are.
  ip("address add 198.51.100.8/24 dev eth0");
  ip("link set far0 down");
  wait_for_carrier("eth0", "far0", false);
  ip("link set far0 up");
  wait_for_carrier("eth0", "far0", true);
  ip("address add 198.51.100.10/24 dev wlan0");
  EXPECT_EQ(next(), (Events{{kAddresses, wlan0}}));
  expect_has(network("restore"), R"("addresses":["198.51.100.7/24","198.51.100.8/24"])");
  network("restore");
  EXPECT_EQ(events(), (Events{{kPlugged, eth0}, {kAddresses, eth0}}));
  EXPECT_EQ(tv_control(R"(["state"])").find("network\":\"lost"), std::string::npos);
}

TEST_F(TvNetwork, SimulatesAPulledCableWithoutAnInterface) {
  network("lose");
  network("restore");
  dtv_tv_stop();
  EXPECT_EQ(heard, (Events{{kUnplugged, 0}, {kPlugged, 0}, {kAddresses, 0}}));
}

TEST_F(TvNetwork, SimulatedCableStaysPulledAfterARestart) {
  network("lose");
  dtv_tv_stop();
  const TvFolder other;  // another set's state folder
  EXPECT_EQ(tv_start(other.path), "");
  expect_has(network(), R"("cable":"as the machine has it")");
  dtv_tv_stop();
  start();
  EXPECT_EQ(heard, Events{});
  expect_has(network(), R"("cable":"pulled")");
  EXPECT_EQ(tv_control(R"(["reset"])").find("network\":\"lost"), std::string::npos);
  expect_has(network(), R"("cable":"as the machine has it")");
  dtv_tv_stop();
  start();
  expect_has(network(), R"("cable":"as the machine has it")");
}

// A namespace's own interfaces are virtual: no device of the machine is in it.
TEST_F(TvNetwork, ShowsUnusedVirtualInterfacesOnlyWhereThereIsNothingElse) {
  expect_has(network(), R"("eth0":{)");
  expect_has(network(), R"("wlan0":{)");
  ip("link set eth0 up");
  expect_has(network(), R"("eth0":{)");
  EXPECT_EQ(network().find("wlan0"), std::string::npos);
  ip("address add 198.51.100.20/24 dev wlan0");
  expect_has(network(), R"("addresses":["198.51.100.20/24"])");
  expect_has(network("lose"), R"("eth0":{)");
}

TEST_F(TvNetwork, ErrorsOfBadCommandsNameWhatIsAllowed) {
  expect_has(network("cut"), R"({"error":"network takes lose or restore, not \"cut\""})");
  expect_has(tv_control(R"(["network","lose","now"])"), "one word too many");
  expect_has(network(), R"("cable":"as the machine has it")");
}

TEST_F(TvNetwork, ManyThreads) {
  std::vector<std::thread> threads;
  for (int t = 0; t < 3; ++t) {
    threads.emplace_back([t] {
      for (int i = 0; i < 20; ++i) {
        if (t == 0) network(i % 2 == 0 ? "lose" : "restore");
        if (t == 1) tv_control(R"(["state"])");
        if (t == 2) network();
      }
    });
  }
  for (int i = 0; i < 10; ++i) {
    ip("address add 198.51.100." + std::to_string(i + 1) + "/24 dev wlan0");
  }
  for (std::thread& thread : threads) thread.join();
  dtv_tv_stop();
  EXPECT_EQ(std::count(heard.begin(), heard.end(), Heard{kUnplugged, 0}), 10);
  EXPECT_EQ(std::count(heard.begin(), heard.end(), Heard{kPlugged, 0}), 10);
}

}  // namespace
