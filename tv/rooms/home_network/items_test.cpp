#include <chrono>
#include <filesystem>
#include <fstream>
#include <memory>
#include <thread>

#include "rooms/home_network/loop.h"
#include "rooms/home_network/servers_test.h"

namespace {

using std::chrono::seconds;
using std::chrono::steady_clock;

// A server with a folder of 45 songs; requests to other paths are up to the test.
struct Items : ServersTest {
  FakeAnswer control;  // of a test's own
  FakeAnswer file;
  std::unique_ptr<FakeServer> server;
  INT32 id = 0;

  void SetUp() override {
    ServersTest::SetUp();
    server = std::make_unique<FakeServer>("attic", [this](const FakeRequest& request) {
      if (request.path == "/desc.xml") return http_answer(server->description());
      if (request.path == "/control") return control ? control(request) : listed(request);
      return file ? file(request) : http_answer("", "text/plain", "404 Not Found");
    });
    id = find(*server);
    ASSERT_GT(id, 0);
  }
  void TearDown() override {
    ServersTest::TearDown();
    server.reset();
  }

  std::string song(unsigned number) const {
    return item("s" + std::to_string(number), "Song " + std::to_string(number), "object.item.audioItem.musicTrack",
                "<upnp:artist>The Four</upnp:artist><upnp:album>Best of &amp; more</upnp:album>"
                "<dc:date>2024-05-31T18:20:30</dc:date>"
                "<res protocolInfo=\"http-get:*:audio/ogg:*\" size=\"5000000000\" duration=\"1:02:03.500\">" +
                    server->url("/file.dat") + "</res>");
  }

  // What a content directory with one folder answers.
  std::string listed(const FakeRequest& request) const {
    const std::string object = between(request.body, "<ObjectID>", "</ObjectID>");
    const unsigned first = static_cast<unsigned>(std::stoul(between(request.body, "<StartingIndex>", "<")));
    const unsigned count = static_cast<unsigned>(std::stoul(between(request.body, "<RequestedCount>", "<")));
    if (request.body.find("BrowseMetadata") != std::string::npos)
      return browse_answer(didl(container(object, "root", "1")), "1", "1");
    if (object == "0") return browse_answer(didl(container("1", "Music", "45")), "1", "1");
    constexpr unsigned kSongs = 45;
    std::string objects;
    unsigned returned = 0;
    for (unsigned i = first; i < std::min(first + count, kSongs); ++i, ++returned) objects += song(i);
    return browse_answer(didl(objects), std::to_string(returned), "45");
  }

  // Lists from an instance; a result below 0 is a failure of the call.
  static std::vector<INT32> list(UINT32 instance, INT32 first, INT32 count) {
    T_DMP_INST_CONTAINER children[DMP_LIST_MAX] = {};
    std::vector<INT32> numbers;
    if (a_vextvapi_dmp_file_getDirectoryListingAsync(instance, children, first, count) != 0) return {-1};
    for (const T_DMP_INST_CONTAINER& each : children)
      if (each.objectId != 0) numbers.push_back(each.objectId);
    return numbers;
  }

  // The number of the folder's first child.
  INT32 first_song() {
    const UINT32 root = a_vextvapi_dmp_file_create(id, DMP_ROOT_OBJECT);
    const std::vector<INT32> folders = list(root, 0, 1);
    const UINT32 songs = folders.empty() ? 0 : a_vextvapi_dmp_file_create(id, folders[0]);
    const std::vector<INT32> numbers = list(songs, 0, 1);
    a_vextvapi_dmp_file_destroy(root);
    a_vextvapi_dmp_file_destroy(songs);
    return numbers.empty() ? 0 : numbers[0];
  }

  std::string ask_root(UpnpPage& ret_page, std::uint32_t count = 20) const {
    return ask(*servers_find(id), {.object = "0", .count = count}, ret_page);
  }
};

using Text = INT32 (*)(UINT32 instance, char* text, INT32 size);

std::string text_of(Text read, UINT32 instance) {
  char text[256] = {};
  EXPECT_EQ(read(instance, text, sizeof text), 0);
  return text;
}

TEST_F(Items, areListedInPagesWithTheirFacts) {
  const UINT32 root = a_vextvapi_dmp_file_create(id, DMP_ROOT_OBJECT);
  ASSERT_NE(root, 0U);
  INT32 type = 0;
  EXPECT_EQ(a_vextvapi_dmp_file_getMediaType(root, &type), 0);
  EXPECT_EQ(type, DLNA_MEDIA_CONTAINER);
  const std::vector<INT32> folders = list(root, 0, 20);
  ASSERT_EQ(folders.size(), 1U);
  const UINT32 songs = a_vextvapi_dmp_file_create(id, folders[0]);
  ASSERT_NE(songs, 0U);
  INT32 count = 0;
  EXPECT_EQ(a_vextvapi_dmp_file_getChildCount(songs, &count), 0);
  EXPECT_EQ(count, 45);
  EXPECT_EQ(text_of(a_vextvapi_dmp_file_getMediaName, songs), "Music");

  const std::vector<INT32> page = list(songs, 20, 20);
  EXPECT_EQ(page.size(), 20U);
  EXPECT_EQ(list(songs, 40, 20).size(), 5U);
  EXPECT_EQ(list(songs, 45, 20).size(), 0U);
  EXPECT_EQ(list(songs, 20, 20), page);  // an object keeps its number

  const UINT32 song = a_vextvapi_dmp_file_create(id, page[0]);
  EXPECT_EQ(a_vextvapi_dmp_file_getMediaType(song, &type), 0);
  EXPECT_EQ(type, DLNA_MEDIA_MUSIC);
  EXPECT_EQ(text_of(a_vextvapi_dmp_file_getObjectId, song), "s20");
  EXPECT_EQ(text_of(a_vextvapi_dmp_file_getMediaName, song), "Song 20");
  EXPECT_EQ(text_of(a_vextvapi_dmp_file_getMediaArtist, song), "The Four");
  EXPECT_EQ(text_of(a_vextvapi_dmp_file_getMediaAlbum, song), "Best of & more");
  EXPECT_EQ(text_of(a_vextvapi_dmp_file_getMediaExtension, song), "ogg");
  EXPECT_EQ(text_of(a_vextvapi_dmp_file_getMediaDuration, song), "01:02:03");
  EXPECT_EQ(text_of(a_vextvapi_dmp_file_getMediaResolution, song), "");
  EXPECT_EQ(text_of(a_vextvapi_dmp_file_getLocalPath, song), "");
  INT32 bytes = 0;
  EXPECT_EQ(a_vextvapi_dmp_file_getMediaSize(song, &bytes), 0);
  EXPECT_EQ(bytes, INT32_MAX);
  INT32 parent_server = 0;
  char parent[256] = {};
  EXPECT_EQ(a_vextvapi_dmp_file_getParent(song, &parent_server, parent, sizeof parent), 0);
  EXPECT_EQ(parent_server, id);
  EXPECT_STREQ(parent, "1");
  T_DATE_TIME date{};
  EXPECT_EQ(a_vextvapi_dmp_file_getMediaDate(song, &date), 0);
  EXPECT_EQ(date.iyear, 2024);
  EXPECT_EQ(date.imonth, 5);
  EXPECT_EQ(date.iday, 31);
  EXPECT_EQ(date.ihour, 18);
  EXPECT_EQ(date.iminute, 20);
  EXPECT_EQ(date.isecond, 30);
  expect_words(refusal([&] { return a_vextvapi_dmp_file_getChildCount(song, &count); }), {"no container"});
}

TEST_F(Items, areRefusedWithoutAValidHandleOrArgument) {
  T_DMP_INST_CONTAINER children[DMP_LIST_MAX] = {};
  const UINT32 root = a_vextvapi_dmp_file_create(id, DMP_ROOT_OBJECT);
  for (const auto& [first, count] : {std::pair{-1, 1}, {0, -1}, {0, 21}, {INT32_MIN, INT32_MIN}})
    expect_words(refusal([&, first = first, count = count] {
                   return a_vextvapi_dmp_file_getDirectoryListingAsync(root, children, first, count);
                 }),
                 {"up to 20 children"});
  EXPECT_LT(a_vextvapi_dmp_file_getDirectoryListingAsync(root, nullptr, 0, 1), 0);
  EXPECT_LT(a_vextvapi_dmp_file_getMediaType(root, nullptr), 0);
  EXPECT_LT(a_vextvapi_dmp_file_getMediaName(root, nullptr, 10), 0);
  char text[4] = "xyz";
  EXPECT_LT(a_vextvapi_dmp_file_getMediaName(root, text, 0), 0);
  EXPECT_LT(a_vextvapi_dmp_file_getMediaName(root, text, -1), 0);
  EXPECT_STREQ(text, "xyz");
  EXPECT_EQ(a_vextvapi_dmp_file_destroy(root), 0);
  for (const UINT32 handle : {root, 0U, 1U, 0xFFFFFFFFU}) {
    EXPECT_LT(a_vextvapi_dmp_file_destroy(handle), 0);
    EXPECT_LT(a_vextvapi_dmp_file_getMediaName(handle, text, 4), 0);
    EXPECT_LT(a_vextvapi_dmp_file_downloadFileAsync(handle), 0);
  }
  EXPECT_EQ(a_vextvapi_dmp_file_create(id, 12345), 0U);
  EXPECT_EQ(a_vextvapi_dmp_file_create(99, DMP_ROOT_OBJECT), 0U);
  EXPECT_EQ(a_vextvapi_dmp_file_create(-1, -1), 0U);
}

TEST_F(Items, areAtMostSixtyFourAtATime) {
  const INT32 song = first_song();
  ASSERT_GT(song, 0);
  std::vector<UINT32> handles;
  for (std::size_t i = 0; i < kMostItems; ++i) handles.push_back(a_vextvapi_dmp_file_create(id, song));
  EXPECT_EQ(std::ranges::count(handles, 0U), 0);
  EXPECT_EQ(a_vextvapi_dmp_file_destroy(handles[7]), 0);
  const UINT32 next = a_vextvapi_dmp_file_create(id, song);
  EXPECT_NE(next, 0U);
  EXPECT_NE(next, handles[7]);
  // One more ends the oldest one.
  EXPECT_NE(a_vextvapi_dmp_file_create(id, song), 0U);
  expect_words(refusal([&] { return a_vextvapi_dmp_file_destroy(handles[0]); }), {"there is no item"});
  EXPECT_EQ(a_vextvapi_dmp_file_destroy(handles[1]), 0);
}

TEST_F(Items, areListedCompletelyFromAServerThatSendsFewerThanRequested) {
  control = [this](const FakeRequest& request) {
    const std::string asked = "<RequestedCount>" + between(request.body, "<RequestedCount>", "<");
    FakeRequest less = request;
    if (std::stoul(asked.substr(16)) > 7) less.body.replace(less.body.find(asked), asked.size(), "<RequestedCount>7");
    return listed(less);
  };
  UpnpPage page;
  EXPECT_EQ(ask(*servers_find(id), {.object = "1", .first = 3, .count = 20}, page), "");
  EXPECT_EQ(page.total, 45U);
  ASSERT_EQ(page.objects.size(), 20U);
  for (std::size_t i = 0; i < page.objects.size(); ++i) EXPECT_EQ(page.objects[i].id, "s" + std::to_string(3 + i));
  EXPECT_EQ(ask(*servers_find(id), {.object = "1", .first = 40, .count = 20}, page), "");
  EXPECT_EQ(page.objects.size(), 5U);
}

TEST_F(Items, areListedWhileFilesOfTheirServerAreDownloaded) {
  file = [](const FakeRequest&) { return std::string(); };
  UpnpPage songs;
  ASSERT_EQ(ask(*servers_find(id), {.object = "1", .count = 4}, songs), "");
  const std::vector<INT32> numbers = objects_add(id, songs.objects);
  const int before = server->requests;
  for (std::size_t i = 0; i < kMostDownloads; ++i) EXPECT_EQ(download_start(id, numbers[i], songs.objects[i]), "");
  ASSERT_TRUE(eventually([&] { return server->requests == before + static_cast<int>(kMostDownloads); }));
  UpnpPage page;
  EXPECT_EQ(ask_root(page), "");
  EXPECT_EQ(page.objects.size(), 1U);
}

TEST_F(Items, forgetTheOldestNumbersBeyondTheirLimit) {
  std::vector<UpnpObject> objects(kMostObjects + 1);
  for (std::size_t i = 0; i < objects.size(); ++i) objects[i].id = "o" + std::to_string(i);
  const std::vector<INT32> numbers = objects_add(id, objects);
  EXPECT_FALSE(objects_find(id, numbers.front()));
  EXPECT_TRUE(objects_find(id, numbers[1]));
  EXPECT_TRUE(objects_find(id, numbers.back()));
  EXPECT_FALSE(objects_find(id + 1, numbers.back()));
}

TEST_F(Items, ofAServerThatHangsFailWithinSecondsAndDelayNobody) {
  std::atomic<int> questions = 0;
  control = [&](const FakeRequest&) { return ++questions, std::string(); };
  const auto begin = steady_clock::now();
  std::thread waiting([&] { EXPECT_EQ(a_vextvapi_dmp_file_create(id, DMP_ROOT_OBJECT), 0U); });
  ASSERT_TRUE(eventually([&] { return questions == 1; }));
  EXPECT_NE(tv_control(R"(["volume"])").find("volume"), std::string::npos);
  EXPECT_LT(steady_clock::now() - begin, seconds(DMP_WAIT_SECONDS));
  waiting.join();
  EXPECT_GE(steady_clock::now() - begin, seconds(DMP_WAIT_SECONDS));
  EXPECT_LT(steady_clock::now() - begin, seconds(10 * DMP_WAIT_SECONDS));
}

TEST_F(Items, endTheirWaitAtOnceWhenItIsCancelled) {
  std::atomic<int> questions = 0;
  control = [&](const FakeRequest&) { return ++questions, std::string(); };
  const auto begin = steady_clock::now();
  std::thread waiting([&] { EXPECT_EQ(a_vextvapi_dmp_file_create(id, DMP_ROOT_OBJECT), 0U); });
  EXPECT_TRUE(eventually([&] { return questions == 1; }));
  EXPECT_EQ(a_vextvapi_dmp_breakDms(id), 0);
  waiting.join();
  EXPECT_LT(steady_clock::now() - begin, seconds(DMP_WAIT_SECONDS));
  EXPECT_LT(a_vextvapi_dmp_breakDms(99), 0);
}

// Whatever a content directory answers, it is a list within the limits or a reason.
TEST_F(Items, areNotListedFromAMalformedAnswer) {
  std::string deep;
  for (int i = 0; i < 5000; ++i) deep += "<container>";
  const std::string bad[] = {
      http_answer("not XML"),
      http_answer(""),
      http_answer("<?xml version=\"1.0\"?><!DOCTYPE a [<!ENTITY a \"b\">]><a>&a;</a>"),
      http_answer("<a><BrowseResponse/></a>"),
      browse_answer("not XML", "1", "1"),
      browse_answer("<!DOCTYPE a [<!ENTITY a \"b\">]>" + didl(container("1", "&amp;a;", "1")), "1", "1"),
      browse_answer(didl(deep), "1", "1"),
      http_answer("", "text/xml", "404 Not Found"),
      "HTTP/1.1 307 Moved\r\nLocation: http://127.0.0.1:1/\r\nContent-Length: 0\r\n\r\n",
      "HTTP/1.1 200 OK\r\nContent-Length: 100\r\n\r\n<a/>",
      "HTTP/1.1 200 OK\r\nContent-Length: 99999999999\r\n\r\n<a/>",
      "garbage\r\n\r\n",
  };
  for (const std::string& answer : bad) {
    control = [&](const FakeRequest&) { return answer; };
    UpnpPage page;
    EXPECT_NE(ask_root(page), "") << answer.substr(0, 200);
    EXPECT_TRUE(page.objects.empty());
  }
}

TEST_F(Items, areListedWithinTheLimitsWhateverNumbersTheServerStates) {
  struct Lie {
    const char* returned;
    const char* total;
    std::uint64_t expected;
  };
  for (const Lie& lie : {Lie{"4000000000", "4000000000", INT32_MAX},
                         {"-1", "-1", 3},
                         {"0", "0", 3},
                         {"x", "2", 3},
                         {"99999999999999999999", "99999999999999999999", 3}}) {
    control = [&](const FakeRequest&) {
      std::string objects;
      for (int i = 0; i < 100; ++i)
        objects += item("i" + std::to_string(i), "Item", "object.item.videoItem",
                        "<res protocolInfo=\"http-get:*:video/mp4:*\" size=\"-5\" duration=\"-1:00:00\" "
                        "resolution=\"-7x99999999999\">" +
                            server->url("/v.mp4") + "</res>");
      return browse_answer(didl(objects), lie.returned, lie.total);
    };
    UpnpPage page;
    EXPECT_EQ(ask_root(page, 3), "");
    ASSERT_EQ(page.objects.size(), 3U);
    EXPECT_EQ(page.total, lie.expected) << lie.total;
    EXPECT_EQ(page.objects[0].size, 0U);
    EXPECT_EQ(page.objects[0].seconds, 0U);
    EXPECT_LE(page.objects[0].height, 65535U);
  }
}

TEST_F(Items, haveNoAddressOutsideTheHomeNetwork) {
  control = [&](const FakeRequest&) {
    return browse_answer(didl(item("1", "far", "object.item.videoItem",
                                   "<upnp:albumArtURI>http://203.0.113.7/cover.jpg</upnp:albumArtURI>"
                                   "<res protocolInfo=\"http-get:*:video/mp4:*\">http://203.0.113.7/v.mp4</res>"
                                   "<res protocolInfo=\"http-get:*:video/mp4:*\">file:///etc/passwd</res>"
                                   "<res protocolInfo=\"rtsp-rtp-udp:*:video/mp4:*\">" +
                                       server->url("/rtsp") + "</res>") +
                              item("2", "near", "object.item.videoItem",
                                   "<res protocolInfo=\"http-get:*:video/mp4:*\">" + server->url("/v.mp4") + "</res>") +
                              item(std::string(kLongestObject + 1, 'x'), "long", "object.item.videoItem", "")),
                         "3", "3");
  };
  UpnpPage page;
  EXPECT_EQ(ask_root(page), "");
  ASSERT_EQ(page.objects.size(), 2U);
  EXPECT_EQ(page.objects[0].url, "");
  EXPECT_EQ(page.objects[0].thumbnail, "");
  EXPECT_EQ(page.objects[1].url, server->url("/v.mp4"));
}

TEST_F(Items, thatTheServerDoesNotHaveAreRefusedWithTheReason) {
  control = [](const FakeRequest&) {
    return http_answer(
        "<s:Envelope xmlns:s=\"x\"><s:Body><s:Fault><detail><UPnPError><errorCode>701</errorCode>"
        "<errorDescription>No such object</errorDescription></UPnPError></detail></s:Fault></s:Body>"
        "</s:Envelope>",
        "text/xml", "500 Internal Server Error");
  };
  UpnpPage page;
  EXPECT_EQ(ask_root(page), "the server has no such object");
}

// ---- Files ----

std::string contents(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

std::vector<std::string> names_in(const std::string& folder) {
  std::vector<std::string> names;
  std::error_code failed;
  for (auto each = std::filesystem::directory_iterator(folder, failed);
       !failed && each != std::filesystem::directory_iterator(); each.increment(failed))
    names.push_back(each->path().filename().string());
  return names;
}

TEST_F(Items, areDownloadedWithProgress) {
  std::string bytes(1000000, '\0');
  for (std::size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<char>(i * 7);
  file = [&](const FakeRequest&) { return http_answer(bytes, "audio/ogg"); };
  const INT32 number = first_song();
  const UINT32 song = a_vextvapi_dmp_file_create(id, number);
  ASSERT_EQ(a_vextvapi_dmp_file_downloadFileAsync(song), 0);
  ASSERT_TRUE(eventually([] { return !events_of(DMS_DOWNLOAD).empty(); }));
  const ServerEvent event = events_of(DMS_DOWNLOAD)[0];
  EXPECT_EQ(event.id, id);
  EXPECT_EQ(event.arg1, static_cast<UINT32>(number));
  EXPECT_EQ(event.arg2, static_cast<UINT32>(DMS_DOWNLOAD_DONE));
  const std::string path = text_of(a_vextvapi_dmp_file_getLocalPath, song);
  EXPECT_EQ(path, std::filesystem::canonical(folder.path).string() + "/downloads/Song 0.ogg");
  EXPECT_TRUE(contents(path) == bytes);
  EXPECT_EQ(names_in(folder.path + "/downloads").size(), 1U);
  const auto progress = events_of(DMS_PROGRESS);
  ASSERT_FALSE(progress.empty());
  EXPECT_LE(progress.size(), 10U);
  EXPECT_EQ(progress.back().arg2, 100U);
  // Once more: the first file stays.
  ASSERT_EQ(a_vextvapi_dmp_file_downloadFileAsync(song), 0);
  ASSERT_TRUE(eventually([] { return events_of(DMS_DOWNLOAD).size() == 2; }));
  EXPECT_TRUE(text_of(a_vextvapi_dmp_file_getLocalPath, song).ends_with("/Song 0 (2).ogg"));
}

TEST_F(Items, leaveNoPartOfAFileWhoseDownloadFails) {
  const INT32 number = first_song();
  UpnpObject object;
  ASSERT_EQ(object_read(id, number, object), "");

  file = [](const FakeRequest&) { return "HTTP/1.1 200 OK\r\nContent-Length: 1000\r\n\r\nbeginning"; };
  EXPECT_EQ(download_start(id, number, object), "");
  ASSERT_TRUE(eventually([&] { return download_find(id, number)->state == Download::State::kFailed; }));
  EXPECT_TRUE(names_in(folder.path + "/downloads").empty());

  file = [](const FakeRequest& request) {
    FakeServer::send_all(request.socket, "HTTP/1.1 200 OK\r\nContent-Length: 1000\r\n\r\nbeginning");
    return std::string();
  };
  EXPECT_EQ(download_start(id, number, object), "");
  ASSERT_TRUE(eventually([&] { return download_find(id, number)->bytes == 9; }));
  EXPECT_EQ(names_in(folder.path + "/downloads"), std::vector<std::string>{"Song 0.ogg.part"});
  download_cancel(id, number);
  ASSERT_TRUE(eventually([] {
    const auto events = events_of(DMS_DOWNLOAD);
    return !events.empty() && events.back().arg2 == DMS_DOWNLOAD_CANCELLED;
  }));
  EXPECT_TRUE(eventually([&] { return names_in(folder.path + "/downloads").empty(); }));
}

TEST_F(Items, areDownloadedFourAtATimeUnderSafeNames) {
  file = [](const FakeRequest&) { return std::string(); };
  const char* const names[] = {"../../etc/passwd", ".hidden", "a/b\\c", "", "fifth"};
  for (INT32 i = 0; i < 5; ++i) {
    UpnpObject object;
    object.name = names[i];
    object.url = server->url("/file");
    object.type = "audio/mpeg";
    const std::string why = download_start(id, 1000 + i, object);
    EXPECT_EQ(why, i < 4 ? "" : "4 downloads run already");
  }
  std::vector<std::string> found = names_in(folder.path + "/downloads");
  std::ranges::sort(found);
  EXPECT_EQ(found, (std::vector<std::string>{"_.._etc_passwd.mp3.part", "a_b_c.mp3.part", "file.mp3.part",
                                             "hidden.mp3.part"}));
  UpnpObject nothing;
  EXPECT_EQ(download_start(id, 2000, nothing), "the object has no file that the set can fetch");
  dtv_tv_stop();  // ends them
  EXPECT_TRUE(names_in(folder.path + "/downloads").empty());
}

TEST_F(Items, haveAThumbnailAfterAWhile) {
  const std::string picture = "\xFF\xD8\xFF\xE0 not much of a picture";
  file = [&](const FakeRequest& request) {
    return request.path == "/page.jpg" ? http_answer("<html>", "text/html") : http_answer(picture, "image/jpeg");
  };
  UpnpObject object;
  object.thumbnail = server->url("/cover.jpg");
  EXPECT_EQ(thumbnail_of(id, 7, object), "");
  ASSERT_TRUE(eventually([] { return events_of(DMS_THUMBNAIL).size() == 1; }));
  EXPECT_EQ(events_of(DMS_THUMBNAIL)[0].arg1, 7U);
  EXPECT_EQ(contents(thumbnail_of(id, 7, object)), picture);
  object.thumbnail = server->url("/page.jpg");
  const int before = server->requests;
  EXPECT_EQ(thumbnail_of(id, 8, object), "");
  ASSERT_TRUE(eventually([&] { return server->requests > before; }));
  EXPECT_EQ(names_in(folder.path + "/server_thumbnails").size(), 1U);
}

// ---- Commands ----

TEST_F(Items, areShownByCommands) {
  const std::string number = std::to_string(id);
  const std::string servers = tv_control(R"(["servers"])");
  expect_words(servers, {R"("searching":true)", R"("name":"Attic")", R"("online":true)", R"("wakable":false)"});
  const std::string root = tv_control(R"(["servers","list",")" + number + R"("])");
  expect_words(root, {R"("total":1)", R"("kind":"folder","name":"Music","children":45)"});
  const std::string object = between(root, "\"object\":", ",");
  const std::string songs = tv_control(R"(["servers","list",")" + number + "\",\"" + object + R"(","44","10"])");
  expect_words(songs, {R"("total":45,"index":44)", R"("name":"Song 44","artist":"The Four")", R"("duration":3.723E3)",
                       R"("size":5000000000)", "\"url\":\"" + server->url("/file.dat")});
  std::string sort;
  control = [&](const FakeRequest& request) {
    sort = between(request.body, "<SortCriteria>", "</SortCriteria>");
    if (sort != "-upnp:artist") return listed(request);
    return http_answer(
        "<s:Envelope xmlns:s=\"http://schemas.xmlsoap.org/soap/envelope/\"><s:Body><s:Fault><detail>"
        "<UPnPError><errorCode>709</errorCode></UPnPError></detail></s:Fault></s:Body></s:Envelope>",
        "text/xml", "500 Internal Server Error");
  };
  const auto ordered = [&](const std::string& order) {
    return tv_control(R"(["servers","list",")" + number + "\",\"" + object + R"(","0","10",")" + order + "\"]");
  };
  expect_words(ordered("date"), {R"("total":45)"});
  EXPECT_EQ(sort, "+dc:date");
  expect_words(ordered("title_down"), {R"("total":45)"});
  EXPECT_EQ(sort, "-dc:title");
  expect_words(ordered("artist_down"), {"the server does not offer this order"});
  expect_words(ordered("colour"), {"title, date, artist, album or size"});
  for (const char* const wrong :
       {R"("list","99")", R"("list","x")", R"("list")", R"("play","1","99999")", R"("search","maybe")", R"("dance")",
        R"("list","1","0","-1")", R"("list","1","0","0","201")", R"("wake","99")", R"("download","1","0")"})
    expect_words(tv_control(std::string("[\"servers\",") + wrong + "]"), {"\"error\":"});
}

}  // namespace
