// The tuners: who gets which packets when, and how receptions end.
#include "rooms/antenna/receptions.h"

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <filesystem>
#include <mutex>
#include <random>

#include "antenna_test.h"

namespace {

namespace fs = std::filesystem;
using std::chrono::steady_clock;
using namespace std::chrono_literals;

// What a user hears. Its functions check that none runs after the reception's end.
struct Listener {
  std::mutex lock;
  std::condition_variable changed;
  std::size_t chunks = 0;
  std::size_t bytes = 0;
  std::vector<std::chrono::microseconds> due;
  std::vector<std::string> lost;
  std::uint64_t round = 0;
  bool blocks = false;  // the function waits until this is false
  bool is_blocked = false;
  std::atomic<bool> ended = false;
  steady_clock::time_point begin = steady_clock::now();
  bool early = false;  // packets came before they were due

  ReceptionUser user() {
    return {.packets = [](void* context, const PlayoutChunk& chunk) { static_cast<Listener*>(context)->take(chunk); },
            .lost =
                [](void* context, const std::string& why) {
                  auto& self = *static_cast<Listener*>(context);
                  const std::lock_guard guard(self.lock);
                  EXPECT_FALSE(self.ended);
                  self.lost.push_back(why);
                  self.changed.notify_all();
                },
            .context = this};
  }
  void take(const PlayoutChunk& chunk) {
    std::unique_lock guard(lock);
    EXPECT_FALSE(ended);
    EXPECT_EQ(chunk.packets.size() % 188, 0u);
    ++chunks;
    early = early || steady_clock::now() < begin + chunk.due;
    bytes += chunk.packets.size();
    due.push_back(chunk.due);
    round = chunk.round;
    is_blocked = blocks;
    changed.notify_all();
    changed.wait(guard, [this] { return !blocks; });
    is_blocked = false;
  }
  bool wait(const std::function<bool()>& condition) {
    std::unique_lock guard(lock);
    return changed.wait_for(guard, 30s, condition);
  }
  bool hears(std::size_t more) {
    std::unique_lock guard(lock);
    return changed.wait_for(guard, 30s, [this, wanted = chunks + more] { return chunks >= wanted; });
  }
  void let_go() {
    const std::lock_guard guard(lock);
    blocks = false;
    changed.notify_all();
  }
};

std::mutex events_lock;
std::vector<std::pair<std::string, std::int64_t>> events;  // title, and start with the shift

void take_events(const Eit& eit, std::int64_t shift) {
  const std::lock_guard guard(events_lock);
  for (const Eit::Event& each : eit.events) events.emplace_back(each.texts.at(0).title, each.start + shift);
}

std::atomic<std::uint64_t> event_round = 0;

std::size_t times_taken(const std::string& title) {
  const std::lock_guard guard(events_lock);
  return static_cast<std::size_t>(std::ranges::count(events, title, &std::pair<std::string, std::int64_t>::first));
}

struct AntennaReceptions : testing::Test {
  TvFolder folder;
  ReceptionRefusal refusal = ReceptionRefusal::kNone;
  AntennaReceptions() {
    events.clear();
    open();
  }
  ~AntennaReceptions() override {
    receptions_close();
    EXPECT_EQ(tuners_in_use(), 0u);
  }
  static void open() {
    receptions_open(take_events, [] { return event_round.load(); });
  }
  std::string make(std::uint16_t stream, const TestStream& made) const {
    return write_bytes(folder.path + "/" + std::to_string(stream) + ".ts", made.bytes);
  }
  std::string make(std::uint16_t stream) const { return make(stream, small_multiplex(1, stream, 474'000'000)); }
  ReceptionHandle start(const std::string& path, Listener& listener, std::int64_t shift = 0) {
    refusal = ReceptionRefusal::kNone;
    return receptions_add({.path = path, .shift = shift}, listener.user(), refusal);
  }
};

TEST_F(AntennaReceptions, PacketsComeWhenTheyAreDueAndTheFileBeginsAgain) {
  Listener listener;
  const ReceptionHandle reception = start(make(1), listener);
  ASSERT_TRUE(reception);
  ASSERT_TRUE(listener.wait([&] { return listener.round >= 3; }));
  const std::lock_guard guard(listener.lock);
  EXPECT_FALSE(listener.early);
  EXPECT_TRUE(std::is_sorted(listener.due.begin(), listener.due.end()));
  EXPECT_GE(listener.due.back(), 3 * 40ms);
  EXPECT_TRUE(listener.lost.empty());
}

TEST_F(AntennaReceptions, UsersOfAMultiplexShareATunerAndOthersNeedAnother) {
  const std::string one = make(1), two = make(2), three = make(3);
  Listener a, b, c, d;
  ReceptionHandle first = start(one, a), second = start(one, b), third = start(two, c);
  ASSERT_TRUE(first && second && third);
  EXPECT_EQ(start(three, d), nullptr);
  EXPECT_EQ(refusal, ReceptionRefusal::kNoTuner);
  EXPECT_TRUE(a.hears(2) && b.hears(2) && c.hears(2));
  EXPECT_EQ(receptions_use()[0].path, one);
  EXPECT_EQ(receptions_use()[0].users, 2u);
  EXPECT_EQ(receptions_use()[1].users, 1u);
  EXPECT_LE(tuners_in_use(), 2u);
  first.reset();
  EXPECT_EQ(start(three, d), nullptr);
  second.reset();
  const ReceptionHandle fourth = start(three, d);
  EXPECT_TRUE(fourth);
  EXPECT_TRUE(d.hears(2) && c.hears(2));
  EXPECT_EQ(d.lost.size(), 0u);
}

TEST_F(AntennaReceptions, AVisitGivesItsTunerAwayAtOnce) {
  const std::string one = make(1), two = make(2), visited = make(3);
  Listener a, b;
  ASSERT_TRUE(receptions_visit_begin(visited));
  EXPECT_TRUE(receptions_visit_goes_on());
  EXPECT_EQ(receptions_use()[0].visited, visited);
  ReceptionHandle first = start(one, a);
  ASSERT_TRUE(first);
  EXPECT_TRUE(receptions_visit_goes_on()) << "the other tuner was idle";
  const ReceptionHandle second = start(two, b);
  ASSERT_TRUE(second) << "whoever needs the tuner gets it";
  EXPECT_FALSE(receptions_visit_goes_on());
  EXPECT_TRUE(a.hears(1) && b.hears(1));
  receptions_visit_end();
  EXPECT_FALSE(receptions_visit_begin(visited)) << "both tuners receive others";
  EXPECT_TRUE(receptions_visit_begin(two)) << "a tuner receives it anyway";
  EXPECT_TRUE(receptions_visit_goes_on());
  receptions_visit_end();
  EXPECT_FALSE(receptions_visit_goes_on());
  first.reset();
  EXPECT_TRUE(receptions_visit_begin(visited));
  receptions_close();
  EXPECT_FALSE(receptions_visit_goes_on()) << "the set is off";
  receptions_visit_end();
}

TEST_F(AntennaReceptions, ATunerHasABoundedNumberOfUsers) {
  const std::string path = make(1);
  std::vector<Listener> listeners(kMostUsers + 1);
  std::vector<ReceptionHandle> receptions;
  for (std::size_t i = 0; i < kMostUsers; ++i) receptions.push_back(start(path, listeners[i]));
  EXPECT_TRUE(receptions.back());
  EXPECT_EQ(start(path, listeners.back()), nullptr);
  EXPECT_EQ(refusal, ReceptionRefusal::kNoTuner);
  EXPECT_TRUE(listeners[kMostUsers - 1].hears(1));
}

TEST_F(AntennaReceptions, WithoutUsersThereIsNoThread) {
  const std::string path = make(1);
  EXPECT_EQ(tuners_in_use(), 0u);
  for (int i = 0; i < 3; ++i) {
    Listener listener;
    const ReceptionHandle reception = start(path, listener);
    EXPECT_TRUE(listener.hears(1));
    EXPECT_TRUE(comes_true([] { return tuners_in_use() == 1; }));
  }
  EXPECT_TRUE(comes_true([] { return tuners_in_use() == 0; }));
}

TEST_F(AntennaReceptions, TheEndWaitsForAFunctionThatRuns) {
  Listener listener;
  listener.blocks = true;
  ReceptionHandle reception = start(make(1), listener);
  ASSERT_TRUE(listener.wait([&] { return listener.is_blocked; }));
  std::atomic<bool> returned = false;
  std::thread ender([&] {
    reception.reset();
    returned = true;
    listener.ended = true;
  });
  EXPECT_TRUE(comes_true([] { return receptions_use()[0].users == 0; }));
  EXPECT_FALSE(returned);
  listener.let_go();
  ender.join();
  EXPECT_EQ(listener.chunks, 1u);
}

TEST_F(AntennaReceptions, AnEndDoesNotWaitForAnotherUsersFunction) {
  const std::string path = make(1);
  Listener slow, other;
  const ReceptionHandle first = start(path, slow);
  ReceptionHandle second = start(path, other);
  ASSERT_TRUE(other.hears(1));
  {
    const std::lock_guard guard(slow.lock);
    slow.blocks = true;
  }
  ASSERT_TRUE(slow.wait([&] { return slow.is_blocked; }));
  second.reset();
  other.ended = true;
  slow.let_go();
  EXPECT_TRUE(slow.hears(1));
}

TEST_F(AntennaReceptions, ASlowUserMissesPacketsInsteadOfGettingThemLate) {
  TestStream made = small_multiplex(1, 1, 474'000'000);
  add_time(made, 4000);
  Listener listener;
  const ReceptionHandle reception = start(make(1, made), listener);
  ASSERT_TRUE(listener.hears(3));
  {
    const std::lock_guard guard(listener.lock);
    listener.blocks = true;
  }
  ASSERT_TRUE(listener.wait([&] { return listener.is_blocked; }));
  std::size_t before = 0;
  {
    std::unique_lock guard(listener.lock);
    before = listener.due.size();
    const auto begin = steady_clock::now();
    listener.changed.wait_until(guard, begin + 1500ms, [&] { return steady_clock::now() >= begin + 1500ms; });
  }
  listener.let_go();
  ASSERT_TRUE(listener.hears(2));
  const std::lock_guard guard(listener.lock);
  EXPECT_GE(listener.due[before + 1] - listener.due[before - 1], 1000ms);
}

TEST_F(AntennaReceptions, ShortDelaysLoseNothing) {
  TestStream made = small_multiplex(1, 1, 474'000'000);
  add_time(made, 4000);
  Listener listener;
  const ReceptionHandle reception = start(make(1, made), listener);
  {
    const std::lock_guard guard(listener.lock);
    listener.blocks = true;
  }
  ASSERT_TRUE(listener.wait([&] { return listener.is_blocked; }));
  listener.let_go();
  ASSERT_TRUE(listener.hears(200));
  const std::lock_guard guard(listener.lock);
  for (std::size_t i = 1; i < listener.due.size(); ++i) ASSERT_LT(listener.due[i] - listener.due[i - 1], 50ms);
}

TEST_F(AntennaReceptions, AFileThatIsCutOrRemovedIsLostOnce) {
  const std::string cut = make(1), removed = make(2);
  Listener a, b;
  const ReceptionHandle first = start(cut, a), second = start(removed, b);
  ASSERT_TRUE(a.hears(1) && b.hears(1));
  fs::resize_file(cut, 100);
  fs::remove(removed);
  EXPECT_TRUE(a.wait([&] { return !a.lost.empty(); }));
  EXPECT_TRUE(b.wait([&] { return !b.lost.empty(); }));
  EXPECT_TRUE(comes_true([] { return tuners_in_use() == 0; }));
  EXPECT_EQ(a.lost.size(), 1u);
  EXPECT_EQ(b.lost.size(), 1u);
  EXPECT_NE(a.lost[0].find("no packets any more"), std::string::npos) << a.lost[0];
  EXPECT_NE(b.lost[0].find("removed"), std::string::npos) << b.lost[0];
  // The tuners are free, and the same file can be received again.
  make(1);
  Listener c, d;
  const ReceptionHandle third = start(cut, c), fourth = start(make(3), d);
  EXPECT_TRUE(third && fourth && c.hears(1) && d.hears(1));
}

TEST_F(AntennaReceptions, AFileThatShrinksGoesOnWithWhatIsLeft) {
  TestStream made = small_multiplex(1, 1, 474'000'000);
  add_time(made, 200);
  const std::string path = make(1, made);
  Listener listener;
  const ReceptionHandle reception = start(path, listener);
  ASSERT_TRUE(listener.hears(1));
  fs::resize_file(path, 188 * 150 + 77);
  ASSERT_TRUE(listener.wait([&] { return listener.round >= 5; }));
  EXPECT_TRUE(listener.lost.empty());
}

TEST_F(AntennaReceptions, AMissingFileIsLost) {
  Listener listener;
  const ReceptionHandle reception = start(folder.path + "/missing.ts", listener);
  ASSERT_TRUE(reception);
  EXPECT_TRUE(listener.wait([&] { return !listener.lost.empty(); }));
  EXPECT_NE(listener.lost[0].find("No such file"), std::string::npos) << listener.lost[0];
  EXPECT_EQ(listener.chunks, 0u);
}

TEST_F(AntennaReceptions, EventsReachTheGuideOncePerVersionWithTheShift) {
  TestStream made;
  add_section(made, 0x12, eit({1, 1, 1}, 10, 1'700'000'000, "News"));
  add_time(made, 20);
  add_section(made, 0x12, eit({1, 1, 1}, 10, 1'700'000'000, "News"));
  add_time(made, 20);
  add_section(made, 0x12, eit({1, 1, 2}, 11, 1'700'000'600, "Film"));
  Bytes damaged = eit({1, 1, 3}, 12, 1'700'000'600, "Damaged");
  damaged.back() ^= 1;
  add_section(made, 0x12, damaged);
  add_time(made, 20);
  Listener listener;
  const ReceptionHandle reception = start(make(1, made), listener, 3600);
  ASSERT_TRUE(listener.wait([&] { return listener.round >= 3; }));
  const std::lock_guard guard(events_lock);
  using Pairs = std::vector<std::pair<std::string, std::int64_t>>;
  EXPECT_EQ(events, (Pairs{{"News", 1'700'003'600}, {"Film", 1'700'004'200}}));
}

TEST_F(AntennaReceptions, EventsComeAgainInAnotherRound) {
  TestStream made;
  add_section(made, 0x12, eit({1, 1, 1}, 10, 1'700'000'000, "News"));
  add_time(made, 20);
  Listener listener;
  const ReceptionHandle reception = start(make(1, made), listener);
  ASSERT_TRUE(listener.wait([&] { return listener.round >= 3; }));
  EXPECT_EQ(times_taken("News"), 1u);
  ++event_round;
  EXPECT_TRUE(comes_true([] { return times_taken("News") == 2; }));
  std::uint64_t before = 0;
  ASSERT_TRUE(listener.wait([&] { return (before = listener.round) > 0; }));
  ASSERT_TRUE(listener.wait([&] { return listener.round >= before + 3; }));
  EXPECT_EQ(times_taken("News"), 2u) << "once in each round";
}

TEST_F(AntennaReceptions, DroppedFilesAreLostWithTheReason) {
  const std::string one = make(1), two = make(2);
  Listener a, b;
  const ReceptionHandle first = start(one, a), second = start(two, b);
  ASSERT_TRUE(a.hears(1) && b.hears(1));
  receptions_drop([&](const std::string& path) { return path == one; }, "pulled out");
  EXPECT_TRUE(a.wait([&] { return !a.lost.empty(); }));
  EXPECT_EQ(a.lost, std::vector<std::string>{"pulled out"});
  EXPECT_TRUE(b.hears(2));
  EXPECT_TRUE(b.lost.empty());
  Listener c;
  ReceptionHandle again;
  EXPECT_TRUE(comes_true([&] { return (again = start(one, c)) != nullptr; }));
  EXPECT_TRUE(c.hears(1));
}

TEST_F(AntennaReceptions, HandlesOutliveTheTuners) {
  Listener a, b;
  ReceptionHandle first = start(make(1), a), second = start(make(2), b);
  ASSERT_TRUE(a.hears(1));
  receptions_close();
  a.ended = b.ended = true;
  first.reset();
  Listener c;
  EXPECT_EQ(start(make(1), c), nullptr);
  EXPECT_EQ(refusal, ReceptionRefusal::kNoSignal);
  open();
  const ReceptionHandle third = start(make(1), c);
  EXPECT_TRUE(c.hears(1));
  second.reset();
  EXPECT_TRUE(c.hears(1));
}

TEST_F(AntennaReceptions, UsersJoinAndLeaveUnderLoad) {
  const std::vector<std::string> paths = {make(1), make(2), make(3)};
  std::atomic<int> received = 0, refused = 0;
  std::vector<std::thread> threads;
  for (unsigned seed = 0; seed < 4; ++seed) {
    threads.emplace_back([&, seed] {
      std::mt19937 random(seed);
      for (int i = 0; i < 200; ++i) {
        Listener listener;
        ReceptionRefusal why = ReceptionRefusal::kNone;
        ReceptionHandle reception = receptions_add({.path = paths[random() % 3]}, listener.user(), why);
        if (!reception) {
          EXPECT_EQ(why, ReceptionRefusal::kNoTuner);
          ++refused;
          std::this_thread::yield();
          continue;
        }
        if (i % 8 == 0) {
          EXPECT_TRUE(listener.wait([&] { return listener.chunks > 0 || !listener.lost.empty(); }));
          ++received;
        }
        if (i % 50 == 49) receptions_drop([&](const std::string& path) { return path == paths[0]; }, "dropped");
        reception.reset();
        listener.ended = true;
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_GT(received, 0);
  EXPECT_EQ(receptions_use()[0].users + receptions_use()[1].users, 0u);
  EXPECT_TRUE(comes_true([] { return tuners_in_use() == 0; }));
}

}  // namespace
