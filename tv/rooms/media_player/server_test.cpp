// Players of files that a server sends, from servers that work and others.
#ifdef DTV_PICTURE
#include <iterator>

#include "rooms/media_player/media_player.h"
#include "rooms/media_player/media_player_test.h"
#include "rooms/screen/http_test.h"

namespace {

using namespace media_test;
using http_test::Server;

std::string read(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

std::string film() { return read(files().folder + "/film.mkv"); }

TEST_F(MediaSet, PlaysAndSeeksInAServersFile) {
  const std::string bytes = film();
  const Server server([&](int socket, const std::string& request) {
    const std::size_t from = std::min(http_test::wanted_from(request), bytes.size() - 1);
    http_test::say(socket, "HTTP/1.1 206 Partial Content\r\nContent-Range: bytes " + std::to_string(from) + "-" +
                               std::to_string(bytes.size() - 1) + "/" + std::to_string(bytes.size()) +
                               "\r\nContent-Length: " + std::to_string(bytes.size() - from) + "\r\n\r\n" +
                               bytes.substr(from));
  });
  const UINT32 player = create(server.address("/film.mkv"));
  EXPECT_EQ(a_vextvapi_cb_pb_open(player), 0);
  ASSERT_TRUE(hears(PLAYER_EVENT_OPENED));
  EXPECT_EQ(heard(PLAYER_EVENT_OPENED).at(0).arg2, 12u);
  EXPECT_EQ(a_vextvapi_cb_pb_timeSeek(player, 9), 0);
  EXPECT_TRUE(hears(PLAYER_EVENT_SOUGHT));
  EXPECT_EQ(a_vextvapi_cb_pb_play(player), 0);
  EXPECT_TRUE(hears(PLAYER_EVENT_END));
  EXPECT_EQ(a_vextvapi_cb_pb_saveStopInfo(player), IVEX_PB_ERROR_CODE_NOT_SUPPORTED);
  EXPECT_EQ(a_vextvapi_cb_pb_thumbnailAsync(player, 100, 100), IVEX_PB_ERROR_CODE_NOT_SUPPORTED);
}

TEST_F(MediaSet, AServerThatHangsFailsItsPlayerOnly) {
  const Server server([](int socket, const std::string&) { http_test::hang(socket); });
  const UINT32 waiting = create(server.address("/film.mkv"));
  EXPECT_EQ(a_vextvapi_cb_pb_open(waiting), 0);
  forget_events();
  const UINT32 other = open("film.mp4");  // plays meanwhile
  EXPECT_EQ(a_vextvapi_cb_pb_play(other), 0);
  EXPECT_TRUE(hears(PLAYER_EVENT_PLAYING));
  EXPECT_EQ(a_vextvapi_cb_pb_timeSeek(waiting, 1), IVEX_PB_ERROR_CODE_NOT_READY);
  EXPECT_TRUE(hears(PLAYER_EVENT_ERROR));
  EXPECT_EQ(heard(PLAYER_EVENT_ERROR).at(0).data, IVEX_PB_ERROR_CODE_NETWORK);
}

TEST_F(MediaSet, APlayerOfAServerThatHangsEndsAtOnce) {
  const Server server([](int socket, const std::string&) { http_test::hang(socket); });
  const UINT32 player = create(server.address("/film.mkv"));
  EXPECT_EQ(a_vextvapi_cb_pb_open(player), 0);
  EXPECT_TRUE(until([&] { return server.open >= 0; }));
  const auto begin = steady_clock::now();
  EXPECT_EQ(a_vextvapi_cb_pb_deinit(player), 0);
  dtv_tv_stop();
  EXPECT_LT(steady_clock::now() - begin, std::chrono::seconds(5)) << "the server may hang for longer";
}

TEST_F(MediaSet, AServerThatStopsInTheMiddleFailsItsPlayer) {
  const std::string bytes = film();
  const Server server([&](int socket, const std::string&) {
    http_test::say(socket, "HTTP/1.1 200 OK\r\nContent-Length: " + std::to_string(bytes.size()) + "\r\n\r\n" +
                               bytes.substr(0, bytes.size() / 2));
  });
  const UINT32 player = create(server.address("/film.mkv"));
  EXPECT_EQ(a_vextvapi_cb_pb_open(player), 0);
  a_vextvapi_cb_pb_play(player);
  EXPECT_TRUE(hears(PLAYER_EVENT_ERROR));
  EXPECT_EQ(heard(PLAYER_EVENT_ERROR).at(0).data, IVEX_PB_ERROR_CODE_NETWORK);
}

TEST_F(MediaSet, AServersPhotoIsShownUntilItIsStopped) {
  Files::make("-f lavfi -i color=lime:s=320x180 -frames:v 1 " + folder.path + "/photo.jpg");
  const std::string bytes = read(folder.path + "/photo.jpg");
  const Server server([&](int socket, const std::string& request) {
    const std::size_t from = std::min(http_test::wanted_from(request), bytes.size() - 1);
    http_test::say(socket, "HTTP/1.1 206 Partial Content\r\nContent-Range: bytes " + std::to_string(from) + "-" +
                               std::to_string(bytes.size() - 1) + "/" + std::to_string(bytes.size()) +
                               "\r\nContent-Length: " + std::to_string(bytes.size() - from) + "\r\n\r\n" +
                               bytes.substr(from));
  });
  EXPECT_EQ(text(command({"player", "play", server.address("/photo.jpg")}), "error"), "");
  const auto shown = [] { return command({"player"}); };
  ASSERT_TRUE(until([&] { return text(shown(), "state") == "playing"; }));
  const auto green = [] {
    const Drawer* const drawer = media_player_drawer();
    const auto canvas = std::make_unique<Canvas>();
    if (drawer == nullptr || drawer->newest(canvas->width, canvas->height) == 0 || !drawer->draw(*canvas)) return false;
    const std::uint8_t* const pixel = &canvas->pixels[kScreenStride * 360 / 2 + 4 * 320];
    return pixel[1] > 180 && pixel[0] < 90 && pixel[2] < 90;
  };
  EXPECT_TRUE(until(green));
  std::this_thread::sleep_for(std::chrono::seconds(3));
  EXPECT_EQ(text(shown(), "state"), "playing");
  EXPECT_EQ(number(shown(), "duration"), 0) << "it has none";
  EXPECT_TRUE(green());
  EXPECT_NE(text(command({"player", "speed", "-2"}), "error"), "");
  EXPECT_EQ(text(command({"player", "stop"}), "error"), "");
  EXPECT_TRUE(until([&] { return text(shown(), "state") == "none"; }));
}

TEST_F(MediaSet, AServerThatPausesIsWaitedFor) {
  const std::string bytes = film();
  std::atomic<bool> goes_on = false;
  const Server server([&](int socket, const std::string& request) {
    const std::size_t from = std::min(http_test::wanted_from(request), bytes.size() - 1);
    http_test::say(socket, "HTTP/1.1 206 Partial Content\r\nContent-Range: bytes " + std::to_string(from) + "-" +
                               std::to_string(bytes.size() - 1) + "/" + std::to_string(bytes.size()) +
                               "\r\nContent-Length: " + std::to_string(bytes.size() - from) + "\r\n\r\n");
    const std::size_t half = std::max(from, bytes.size() / 2);
    http_test::say(socket, bytes.substr(from, half - from));
    until([&] { return goes_on.load(); }, std::chrono::seconds(4));
    http_test::say(socket, bytes.substr(half));
  });
  const UINT32 player = create(server.address("/film.mkv"));
  EXPECT_EQ(a_vextvapi_cb_pb_open(player), 0);
  ASSERT_TRUE(hears(PLAYER_EVENT_OPENED));
  EXPECT_EQ(a_vextvapi_cb_pb_setSpeed(player, 800), 0);
  EXPECT_TRUE(hears(PLAYER_EVENT_BUFFERING));
  EXPECT_EQ(heard(PLAYER_EVENT_BUFFERING).at(0).data, 1);
  EXPECT_TRUE(heard(PLAYER_EVENT_END).empty());
  goes_on = true;
  EXPECT_TRUE(until([] { return heard(PLAYER_EVENT_BUFFERING).size() >= 2; }));
  EXPECT_EQ(heard(PLAYER_EVENT_BUFFERING).at(1).data, 0);
  EXPECT_TRUE(hears(PLAYER_EVENT_END));
  EXPECT_TRUE(heard(PLAYER_EVENT_ERROR).empty());
}

// ---- Files that were fetched from a server ----

TEST_F(MediaSet, PlaysADownloadByItsWholePath) {
  fs::create_directory(folder.path + "/downloads");
  fs::copy(files().folder + "/film.mp4", folder.path + "/downloads/A film.mp4");
  fs::create_symlink("/etc/passwd", folder.path + "/downloads/link.mp4");
  UINT32 player = create(folder.path + "/downloads/A film.mp4");
  EXPECT_EQ(a_vextvapi_cb_pb_open(player), 0);
  ASSERT_TRUE(hears(PLAYER_EVENT_OPENED));
  EXPECT_EQ(a_vextvapi_cb_pb_timeSeek(player, 7), 0);
  EXPECT_TRUE(hears(PLAYER_EVENT_SOUGHT));
  EXPECT_EQ(a_vextvapi_cb_pb_saveStopInfo(player), 0);
  EXPECT_EQ(a_vextvapi_cb_pb_deinit(player), 0);
  forget_events();
  player = create("downloads/A film.mp4");
  EXPECT_EQ(a_vextvapi_cb_pb_open(player), 0);
  ASSERT_TRUE(hears(PLAYER_EVENT_OPENED));
  UINT8 has = 0;
  EXPECT_EQ(a_vextvapi_cb_pb_getStopInfo(player, &has), 0);
  EXPECT_EQ(has, 1) << "it is the same file";
  EXPECT_EQ(a_vextvapi_cb_pb_deinit(player), 0);
  for (const char* const wrong : {"/downloads/../tv.sqlite", "/downloads/link.mp4", "/downloads/", "/tv.sqlite",
                                  "/downloads/missing.mp4", "/downloads/.hidden"}) {
    player = create(folder.path + wrong);
    EXPECT_EQ(a_vextvapi_cb_pb_open(player), IVEX_PB_ERROR_CODE_FILE) << wrong;
    EXPECT_EQ(a_vextvapi_cb_pb_deinit(player), 0);
  }
}

}  // namespace
#endif
