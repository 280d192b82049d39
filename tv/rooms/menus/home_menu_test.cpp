// The menu of the home network, operated by keys, with a server whose answers are up to the test.
#include <memory>
#include <thread>

#include "rooms/home_network/servers_test.h"
#include "rooms/menus/menu_test.h"

namespace {

constexpr unsigned kPhotos = 120;

struct TvHomeMenu : ServersTest, ShownMenu {
  std::atomic<bool> hangs = false;
  std::atomic<bool> refuses = false;
  std::atomic<int> questions = 0;
  std::unique_ptr<FakeServer> server;

  void SetUp() override {
    ServersTest::SetUp();
    server = std::make_unique<FakeServer>("attic", [this](const FakeRequest& request) {
      return request.path == "/desc.xml" ? http_answer(server->description()) : listed(request);
    });
    ASSERT_GT(find(*server), 0);
    EXPECT_EQ(word(run({"menu", "home_network"}), "menu"), "home_network");
  }
  void TearDown() override {
    ServersTest::TearDown();
    server.reset();
  }

  // A root with two folders; the second one has photos.
  std::string listed(const FakeRequest& request) {
    ++questions;
    if (hangs) return {};
    if (refuses) return http_answer("", "text/xml", "404 Not Found");
    const std::string object = between(request.body, "<ObjectID>", "</ObjectID>");
    const unsigned first = static_cast<unsigned>(std::stoul(between(request.body, "<StartingIndex>", "<")));
    const unsigned count = static_cast<unsigned>(std::stoul(between(request.body, "<RequestedCount>", "<")));
    if (object == "0")
      return browse_answer(didl(container("1", "Empty", "0") + container("2", "Photos", "120")), "2", "2");
    if (object == "1") return browse_answer(didl(""), "0", "0");
    std::string objects;
    unsigned returned = 0;
    for (unsigned i = first; i < std::min(first + count, kPhotos); ++i, ++returned)
      objects += item("p" + std::to_string(i), "P" + std::to_string(i), "object.item.imageItem.photo",
                      "<res protocolInfo=\"http-get:*:image/jpeg:*\">" + server->url("/p.jpg") + "</res>");
    return browse_answer(didl(objects), std::to_string(returned), std::to_string(kPhotos));
  }

  static bool shows(const std::string& wanted) {
    const bool shown = eventually([&] { return rows() == wanted; });
    EXPECT_TRUE(shown) << rows();
    return shown;
  }
};

TEST_F(TvHomeMenu, FoldersOpenAndCloseAgain) {
  EXPECT_EQ(rows(), "[Attic]");
  press("ENTER");
  ASSERT_TRUE(shows("[Empty:folder] Photos:folder"));
  EXPECT_EQ(word(menu(), "folder"), "Attic");
  press("DOWN");
  press("RIGHT");
  ASSERT_TRUE(shows("[P0:photo] P1:photo P2:photo P3:photo P4:photo P5:photo P6:photo"));
  EXPECT_EQ(menu().at("total").to_number<unsigned>(), kPhotos);
  EXPECT_EQ(word(menu(), "folder"), "Photos");
  press("UP");  // to the last one, which is on another page of the server's list
  ASSERT_TRUE(shows("P113:photo P114:photo P115:photo P116:photo P117:photo P118:photo [P119:photo]"));
  const int before = questions;
  press("LEFT");
  EXPECT_EQ(rows(), "Empty:folder [Photos:folder]") << "the folder that was left is chosen";
  EXPECT_EQ(questions, before) << "what is known is not requested again";
  press("LEFT");
  EXPECT_EQ(rows(), "[Attic]");
  press("LEFT");
  EXPECT_TRUE(menu().empty());
}

TEST_F(TvHomeMenu, AnEmptyFolderIsEmpty) {
  press("ENTER");
  ASSERT_TRUE(shows("[Empty:folder] Photos:folder"));
  press("ENTER");
  EXPECT_TRUE(eventually([] { return !menu().at("loading").as_bool(); }));
  EXPECT_EQ(rows(), "");
  EXPECT_FALSE(menu().contains("problem"));
  press("ENTER");
  EXPECT_EQ(word(menu(), "folder"), "Empty");
}

// A key never waits for the server, whose time is over after three seconds.
TEST_F(TvHomeMenu, AServerThatHangsDelaysNoKey) {
  hangs = true;
  const auto begin = std::chrono::steady_clock::now();
  press("ENTER");
  EXPECT_TRUE(menu().at("loading").as_bool());
  EXPECT_EQ(rows(), "");
  press("DOWN");
  press("ENTER");
  press("LEFT");
  EXPECT_EQ(rows(), "[Attic]");
  press("ENTER");
  EXPECT_TRUE(eventually([] { return menu().contains("problem"); }));
  EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::seconds(DMP_WAIT_SECONDS));
  EXPECT_EQ(word(menu(), "problem"), "the server did not answer in time");
  EXPECT_FALSE(menu().at("loading").as_bool());
}

TEST_F(TvHomeMenu, AFolderThatFailedIsRequestedAgainWhenItIsOpenedAgain) {
  refuses = true;
  press("ENTER");
  EXPECT_TRUE(eventually([] { return menu().contains("problem"); }));
  EXPECT_EQ(word(menu(), "problem"), "the server answers with status 404");
  refuses = false;
  press("LEFT");
  press("ENTER");
  EXPECT_TRUE(shows("[Empty:folder] Photos:folder"));
}

TEST_F(TvHomeMenu, AServerThatHasGoneIsNotOpened) {
  server->announce("ssdp:byebye");
  EXPECT_TRUE(shows("[Attic:empty]"));
  press("ENTER");
  EXPECT_EQ(rows(), "[Attic:empty]");
  EXPECT_EQ(word(run({"screen"}).at("message").as_object(), "about"), "the server is off");
}

TEST_F(TvHomeMenu, APhotoIsDisplayed) {
  press("ENTER");
  ASSERT_TRUE(shows("[Empty:folder] Photos:folder"));
  press("DOWN");
  press("ENTER");
  ASSERT_TRUE(shows("[P0:photo] P1:photo P2:photo P3:photo P4:photo P5:photo P6:photo"));
  press("ENTER");
  EXPECT_TRUE(menu().empty());
  EXPECT_EQ(word(run({"player"}), "path"), server->url("/p.jpg"));
}

}  // namespace
