// The viewer's player: the command "player", the keys, and where files are left.
#ifdef DTV_PICTURE
#include "rooms/media_player/media_player.h"
#include "rooms/media_player/media_player_test.h"

namespace {

using namespace media_test;

boost::json::object shown() { return command({"player"}); }

bool is(const char* state) {
  return until([=] { return text(shown(), "state") == state; });
}

std::string error(const std::vector<std::string>& words) { return text(command(words), "error"); }

TEST_F(MediaSet, AViewerPlaysControlsAndStops) {
  EXPECT_EQ(text(shown(), "state"), "none");
  EXPECT_EQ(error({"player", "pause"}), "nothing is played; \"player play PATH\" plays a file");
  EXPECT_EQ(error({"player", "play", path("film.mp4")}), "");
  ASSERT_TRUE(is("playing"));
  const boost::json::object film = shown();
  EXPECT_EQ(text(film, "title"), "A Film");
  EXPECT_EQ(text(film, "artist"), "Some One");
  EXPECT_EQ(text(film, "path"), path("film.mp4"));
  EXPECT_NEAR(number(film, "duration"), 12, 0.2);
  EXPECT_EQ(film.at("chapters").as_array().size(), 3u);
  EXPECT_EQ(film.at("chapters").at(1).at("title"), "Green");
  EXPECT_NEAR(film.at("chapters").at(1).at("start").to_number<double>(), 4, 0.01);
  EXPECT_EQ(film.at("tracks").as_array().size(), 2u);
  EXPECT_EQ(film.at("tracks").at(1).at("language"), "deu");
  EXPECT_EQ(film.at("video").at("width").to_number<int>(), 320);
  EXPECT_FALSE(film.at("application").as_bool());
  EXPECT_EQ(error({"player", "pause"}), "");
  EXPECT_TRUE(is("paused"));
  EXPECT_EQ(error({"player", "seek", "9"}), "");
  EXPECT_TRUE(until([] { return number(shown(), "position") > 8.9 && number(shown(), "chapter") == 3; }));
  EXPECT_EQ(error({"player", "seek", "-4"}), "");
  EXPECT_TRUE(until([] { return std::abs(number(shown(), "position") - 5) < 0.3; }));
  EXPECT_EQ(error({"player", "seek", "75%"}), "");
  EXPECT_TRUE(until([] { return std::abs(number(shown(), "position") - 9) < 0.3; }));
  EXPECT_EQ(error({"player", "chapter", "1"}), "");
  EXPECT_TRUE(until([] { return number(shown(), "position") < 1; }));
  EXPECT_EQ(error({"player", "audio", "2"}), "");
  EXPECT_TRUE(until([] { return shown().at("tracks").at(1).at("chosen").as_bool(); }));
  EXPECT_EQ(error({"player", "speed", "2"}), "");
  EXPECT_EQ(number(shown(), "speed"), 2);
  EXPECT_EQ(error({"player", "stop"}), "");
  EXPECT_EQ(text(shown(), "state"), "none");
}

TEST_F(MediaSet, WrongWordsAreRefused) {
  EXPECT_EQ(error({"player", "play", path("film.mp4")}), "");
  ASSERT_TRUE(is("playing"));
  EXPECT_EQ(error({"player", "audio", "3"}), "a sound track is 1 to 2");
  EXPECT_EQ(error({"player", "subtitle", "1"}), "the file has no subtitle track");
  EXPECT_EQ(error({"player", "chapter", "4"}), "a chapter is 1 to 3");
  EXPECT_EQ(error({"player", "zoom", "99"}), "a zoom is 100 to 800 percent");
  EXPECT_EQ(error({"player", "speed", "9"}), "a speed is 0.1 to 8, or -1 to -8 backwards");
  EXPECT_EQ(error({"player", "speed", "nan"}), "a speed is 0.1 to 8, or -1 to -8 backwards");
  EXPECT_EQ(error({"player", "unlock", "0000"}), "the file is not locked");
  for (const std::vector<std::string>& words : std::vector<std::vector<std::string>>{{"player", "seek", "x"},
                                                                                     {"player", "seek", "+-3"},
                                                                                     {"player", "seek", "+5%"},
                                                                                     {"player", "repeat", "all"},
                                                                                     {"player", "audio", "0"},
                                                                                     {"player", "dance"},
                                                                                     {"player", "step", "over"},
                                                                                     {"player", "play", "x", "y"}})
    EXPECT_NE(error(words), "") << words.back();
  EXPECT_EQ(text(shown(), "state"), "playing");
}

TEST_F(MediaSet, AViewersFileIsResumedWhereItWasLeft) {
  EXPECT_EQ(error({"player", "play", path("film.mp4"), "6"}), "");
  ASSERT_TRUE(is("playing"));
  EXPECT_TRUE(until([] { return number(shown(), "position") >= 6; }));
  EXPECT_EQ(error({"player", "stop"}), "");
  EXPECT_EQ(error({"player", "play", path("film.mp4")}), "");
  ASSERT_TRUE(is("playing"));
  EXPECT_GE(number(shown(), "position"), 5.5);
  EXPECT_EQ(error({"player", "play", path("song.mp3")}), "");  // another file in its place
  EXPECT_TRUE(until([] { return text(shown(), "title") == "Song" && text(shown(), "state") == "playing"; }));
  restart();
  EXPECT_EQ(error({"player", "play", path("film.mp4")}), "");
  ASSERT_TRUE(is("playing"));
  EXPECT_GE(number(shown(), "position"), 5.5) << "also after a restart";
  EXPECT_TRUE(media_player_forget_positions(mounted()));
  EXPECT_EQ(error({"player", "play", path("song.mp3")}), "");
  EXPECT_TRUE(media_player_forget_positions(mounted() + "/"));
}

TEST_F(MediaSet, AnEndedFileIsNotSeenAnyMore) {
  EXPECT_EQ(error({"player", "play", path("film.mp4"), "11"}), "");
  EXPECT_TRUE(is("ended"));
  EXPECT_EQ(media_player_drawer(), nullptr);
  EXPECT_EQ(error({"player", "pause"}), "nothing is played; \"player play PATH\" plays a file");
  EXPECT_EQ(error({"player", "play", path("film.mp4")}), "");
  ASSERT_TRUE(is("playing"));
  EXPECT_LT(number(shown(), "position"), 3) << "it was seen to its end";
}

// The film may end between the acceptance of a seek and libmpv's turn to carry it out.
TEST_F(MediaSet, AnAcceptedSeekAtTheEndPlaysOn) {
  int accepted = 0;
  for (int i = 0; i < 40 && accepted < 6; ++i) {
    EXPECT_EQ(error({"player", "play", path("film.mp4"), "11"}), "");
    ASSERT_TRUE(is("playing"));
    EXPECT_EQ(error({"player", "pause"}), "");
    EXPECT_EQ(error({"player", "seek", "12"}), "");
    ASSERT_TRUE(until([] { return number(shown(), "position") > 11.8; }));
    std::this_thread::sleep_for(std::chrono::milliseconds(50));  // libmpv comes to its last picture
    EXPECT_EQ(error({"player", "resume"}), "");
    std::this_thread::sleep_for(std::chrono::microseconds(100) * i);
    const bool by_chapter = i % 2 == 1;
    const std::vector<std::string> seek = by_chapter ? std::vector<std::string>{"player", "chapter", "2"}
                                                     : std::vector<std::string>{"player", "seek", "25%"};
    if (!error(seek).empty()) continue;  // it has ended already
    ++accepted;
    const double target = by_chapter ? 4 : 3;
    EXPECT_TRUE(until([&] {
      const boost::json::object now = shown();
      const double position = number(now, "position");
      return text(now, "state") == "playing" && position > target && position < target + 3;
    })) << i
        << " " << shown();
    EXPECT_EQ(shown().at("chapters").as_array().size(), 3u);
  }
  EXPECT_GT(accepted, 0);
}

TEST_F(MediaSet, KeysControlThePlayer) {
  EXPECT_EQ(error({"player", "play", path("film.mp4")}), "");
  ASSERT_TRUE(is("playing"));
  const auto press = [](const char* key) { return command({"key", key}); };
  const auto message = [](const boost::json::object& reply) {
    const boost::json::value* const said = reply.if_contains("message");
    return said == nullptr ? "" : std::string(said->at("text").as_string());
  };
  press("ENTER");
  EXPECT_TRUE(is("paused"));
  press("FREEZE");
  EXPECT_TRUE(is("playing"));
  press("ENTER");
  EXPECT_TRUE(is("paused"));
  press("NEXT");
  EXPECT_TRUE(until([] { return number(shown(), "chapter") == 2; }));
  press("FR");
  EXPECT_TRUE(until([] { return number(shown(), "position") < 0.5; }));
  EXPECT_EQ(message(press("MTS/AUDIO")), "Sound: deu");
  EXPECT_TRUE(until([] { return shown().at("tracks").at(1).at("chosen").as_bool(); }));
  EXPECT_EQ(message(press("REPEAT")), "Repeat: one");
  EXPECT_EQ(text(shown(), "repeat"), "one");
  EXPECT_EQ(message(press("INFO")).rfind("Playing: A Film, 0:0", 0), 0u);
  press("EXIT");
  EXPECT_EQ(text(shown(), "state"), "none");
  EXPECT_EQ(message(press("FF")), "Not available: FF");
  EXPECT_EQ(error({"player", "play", path("film.mp4")}), "");
  press("SOURCE");
  EXPECT_EQ(text(shown(), "state"), "none");
}

TEST_F(MediaSet, TheViewerLearnsWhyAFileCannotBePlayed) {
  EXPECT_EQ(error({"player", "play", path("missing.mp4")}),
            "\"" + path("missing.mp4") + "\" cannot be opened: No such file or directory");
  EXPECT_EQ(error({"player", "play", "/etc/passwd"}), "\"/etc/passwd\" is not on an inserted stick");
  EXPECT_EQ(error({"player", "play", path("list.m3u")}),
            "\"" + path("list.m3u") + "\" names no file that the set can play");
  std::ofstream(world.path + "/Films/text.mp4") << std::string(100'000, 'x');
  EXPECT_EQ(error({"player", "play", path("text.mp4")}), "");
  EXPECT_TRUE(is("failed"));
  EXPECT_EQ(text(shown(), "reason").rfind("the file cannot be played: ", 0), 0u) << text(shown(), "reason");
  command({"power", "standby"});
  EXPECT_EQ(error({"player", "play", path("film.mp4")}), "the set is in standby");
  EXPECT_EQ(error({"player", "stop"}), "") << "it is not reported any longer";
  EXPECT_TRUE(is("none"));
  EXPECT_NE(error({"player", "stop"}), "");
}

TEST_F(MediaSet, ARatedFileIsUnlockedByThePin) {
  command({"config", "g_misc__parental_age", "12"});
  EXPECT_EQ(error({"player", "play", path("film.mkv")}), "");
  EXPECT_TRUE(until([] { return shown().contains("locked") && shown().at("locked").as_bool(); }));
  EXPECT_NE(error({"player", "resume"}), "");
  EXPECT_EQ(error({"player", "unlock", "1234"}), "the PIN is wrong");
  EXPECT_EQ(error({"player", "unlock", "0000"}), "");
  EXPECT_TRUE(is("playing"));
}

TEST_F(MediaSet, ChangesAreReportedToTheRegisteredFunction) {
  static std::atomic<int> changes;
  changes = 0;
  media_player_on_change([] { ++changes; });
  EXPECT_EQ(error({"player", "play", path("film.mp4")}), "");
  ASSERT_TRUE(is("playing"));
  const int before = changes;
  EXPECT_GT(before, 0);
  EXPECT_EQ(error({"player", "seek", "5"}), "");
  EXPECT_TRUE(until([=] { return changes > before; }));
  const int sought = changes;
  EXPECT_EQ(error({"player", "stop"}), "");
  EXPECT_TRUE(until([=] { return changes > sought; }));
  media_player_on_change(nullptr);
}

}  // namespace
#endif
