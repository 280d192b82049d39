// Switching the set off while its rooms are at work.
#include <atomic>
#include <thread>

#include "rooms/recorder/recorder_test.h"

namespace {

constexpr std::chrono::seconds kLongestStop{30};  // a stop takes about 0.2 s
constexpr int kProgrammes = 200'000;              // reading them takes more than a second

using TvStop = ReceivingSet;

[[maybe_unused]] std::size_t threads() {  // used where there is a picture
  const std::filesystem::directory_iterator tasks("/proc/self/task");
  return static_cast<std::size_t>(std::distance(begin(tasks), end(tasks)));
}

// A programme of each minute from now on.
void write_guide(const std::string& path) {
  std::ofstream file(path);
  file << "<tv>\n<channel id=\"One\"><display-name>One</display-name></channel>\n";
  const std::int64_t from = now();
  for (int i = 0; i < kProgrammes; ++i)
    file << "<programme channel=\"One\" start=\"" << xmltv_time(from + 60 * i)
         << "\"><title>Show</title></programme>\n";
  file << "</tv>\n";
}

TEST_F(TvStop, EndsAScanAnImportARecordingAPlayerAndAChangeOfChannel) {
  write_guide(home.path + "/guide.xml");
  expect_done(run({"tune", "1"}));
  dtv_tv_advance(900);
  EXPECT_TRUE(comes_true([] {
    dtv_tv_advance(0);
    return run({"tuner"}).find(R"("result":"picture")") != std::string::npos;
  })) << run({"tuner"});
  ASSERT_EQ(error_of(reply_to({"record", "now", "30"})), "");
  grows_to(100'000);
#ifdef DTV_PICTURE
  const std::size_t before = threads();
  EXPECT_TRUE(comes_true([before] {
    dtv_tv_screen(0, nullptr, nullptr);  // a viewer looks
    return threads() >= before + 2;
  })) << "the player has threads of its own";
#endif
  expect_words(run({"guide", "import", home.path + "/guide.xml"}), {R"("state":"running")"});
  expect_words(run({"scan", "air"}), {R"("state":"running")"});
  std::atomic<bool> done = false;
  std::atomic<int> changes = 0;
  std::thread viewer([&] {
    for (; !done; ++changes) {
      run({"tune", changes % 2 == 0 ? "3" : "1"});
      dtv_tv_advance(50);
    }
  });
  EXPECT_TRUE(comes_true([&] { return changes > 0; }));
  const auto begin = std::chrono::steady_clock::now();
  dtv_tv_stop();
  const auto took = std::chrono::steady_clock::now() - begin;
  done = true;
  viewer.join();
  EXPECT_LT(took, kLongestStop);
  RecordProperty("stop_ms", static_cast<int>(std::chrono::duration_cast<std::chrono::milliseconds>(took).count()));

  ASSERT_EQ(tv_start(folder.path), "");
  const boost::json::value listed = reply_to({"recordings"});
  const boost::json::array& recordings = listed.at("recordings").as_array();
  ASSERT_FALSE(recordings.empty());
  EXPECT_EQ(text_in(recordings.back(), "status"), "partial");
  EXPECT_EQ(text_in(recordings.back(), "reason"), "the set was switched off");
}

}  // namespace
