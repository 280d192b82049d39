#include "rooms/home_network/servers_test.h"

#include <memory>

#include "core/store.h"
#include "rooms/home_network/loop.h"

namespace {

struct Discovery : ServersTest {};

// A server whose description the test chooses, by its path.
std::unique_ptr<FakeServer> server_with(const std::string& name, std::function<std::string(const FakeServer&)> answer,
                                        const std::string& host = "127.0.0.1") {
  auto server = std::make_unique<FakeServer>(name, nullptr, host);
  server->answer = [own = server.get(), answer = std::move(answer)](const FakeRequest&) { return answer(*own); };
  return server;
}

TEST_F(Discovery, reportsAServerThatComesChangesAndGoes) {
  std::atomic<bool> renamed = false;
  const auto server = server_with(
      "a1", [&](const FakeServer& own) { return http_answer(own.description(renamed ? "Cellar" : "Attic")); });
  const INT32 id = find(*server);
  ASSERT_GT(id, 0);
  ASSERT_TRUE(eventually([] { return events_of(DMS_FOUND).size() == 1; }));
  EXPECT_EQ(events_of(DMS_FOUND)[0].name, "Attic");
  EXPECT_EQ(events_of(DMS_FOUND)[0].id, id);
  INT32 type = 0;
  EXPECT_EQ(a_vextvapi_dmp_getDmsType(id, &type), 0);
  EXPECT_EQ(type, DMS_TYPE_ON);
  expect_words(refusal([&] { return a_vextvapi_dmp_clearOffDms(id); }), {"is on"});

  server->announce("ssdp:byebye");
  ASSERT_TRUE(eventually([] { return events_of(DMS_LOST).size() == 1; }));
  EXPECT_EQ(a_vextvapi_dmp_getDmsType(id, &type), 0);
  EXPECT_EQ(type, DMS_TYPE_OFF);

  renamed = true;
  EXPECT_EQ(find(*server), id);
  ASSERT_TRUE(eventually([] { return events_of(DMS_FOUND).size() == 2; }));
  EXPECT_EQ(events_of(DMS_FOUND)[1].name, "Cellar");

  server->announce("ssdp:byebye");
  ASSERT_TRUE(eventually([] { return events_of(DMS_LOST).size() == 2; }));
  EXPECT_EQ(a_vextvapi_dmp_clearOffDms(id), 0);
  ASSERT_TRUE(eventually([] { return events_of(DMS_FORGOTTEN).size() == 1; }));
  expect_words(refusal([&] { return a_vextvapi_dmp_getDmsType(id, &type); }), {"there is no server"});
}

TEST_F(Discovery, reportsTheServersThatAreOnToAnApplicationThatRegistersLater) {
  const auto server = server_with("a1", [](const FakeServer& own) { return http_answer(own.description()); });
  ASSERT_GT(find(*server), 0);
  ASSERT_TRUE(eventually([] { return events_of(DMS_FOUND).size() == 1; }));
  EXPECT_EQ(a_vextvapi_cb_dms_detect_register_callback(keep_server_event, nullptr), 0);
  EXPECT_TRUE(eventually([] { return events_of(DMS_FOUND).size() == 2; }));
}

// Without white space, and with another service and an embedded device before those that matter.
TEST_F(Discovery, readsADescriptionOnOneLine) {
  const auto server = server_with("a1", [](const FakeServer& own) {
    std::string text = own.description();
    const std::string other =
        "<service><serviceType>urn:schemas-upnp-org:service:ConnectionManager:1</serviceType></service>";
    text.insert(text.find("<service>"), other);
    const std::string outer =
        "<device><deviceType>urn:schemas-upnp-org:device:Basic:1</deviceType><UDN>uuid:outer</UDN><deviceList>"
        "<device><deviceType>urn:schemas-upnp-org:device:Basic:1</deviceType><UDN>uuid:first</UDN></device>";
    text.insert(text.find("<device>"), outer);
    return http_answer(text.insert(text.find("</root>"), "</deviceList></device>"));
  });
  EXPECT_GT(find(*server), 0);
}

// Such as one that announces itself before it can answer.
TEST_F(Discovery, findsAServerThatFailsAtFirst) {
  std::atomic<int> requests = 0;
  const auto server = server_with("a1", [&](const FakeServer& own) {
    return ++requests <= 4 ? http_answer("", "text/plain", "503 Busy") : http_answer(own.description());
  });
  EXPECT_GT(find(*server), 0);
  EXPECT_GE(requests, 5);  // another test's set may have sent some of them
}

TEST_F(Discovery, endsWhenNobodyWantsItAnyMore) {
  EXPECT_TRUE(servers_searching());
  EXPECT_EQ(servers_search(true), "");
  EXPECT_EQ(a_vextvapi_cb_dms_detect_register_callback(nullptr, nullptr), 0);
  EXPECT_TRUE(servers_searching());
  EXPECT_EQ(servers_search(false), "");
  EXPECT_FALSE(servers_searching());
}

TEST_F(Discovery, remembersAServerAndItsNumberWhenTheSetIsSwitchedOffAndOn) {
  const auto server =
      server_with("a1", [](const FakeServer& own) { return http_answer(own.description("Caf\u00e9")); });
  const INT32 id = find(*server);
  ASSERT_GT(id, 0);
  dtv_tv_stop();
  ASSERT_EQ(tv_start(folder.path), "");
  const auto known = servers_find(id);
  ASSERT_TRUE(known);
  EXPECT_EQ(known->upnp.name, "Caf\u00e9");
  EXPECT_EQ(known->upnp.udn, server->udn);
  EXPECT_FALSE(known->online);
}

// What a description may not be. Each server announces itself, and the one that is as it should be is found after it.
TEST_F(Discovery, refusesAServerWithABadDescription) {
  const std::function<std::string(const FakeServer&)> bad[] = {
      [](const FakeServer&) { return http_answer("not XML"); },
      [](const FakeServer&) { return http_answer(""); },
      [](const FakeServer& own) {
        return http_answer("<?xml version=\"1.0\"?><!DOCTYPE r [<!ENTITY a \"aaaa\"><!ENTITY b \"&a;&a;\">]>" +
                           own.description("&b;").substr(21));
      },
      [](const FakeServer& own) { return http_answer(own.description("Attic", "http://203.0.113.7/control")); },
      [](const FakeServer& own) { return http_answer(own.description("Attic", "file:///etc/passwd")); },
      [](const FakeServer& own) {
        std::string other = own.description();
        return http_answer(other.replace(other.find(own.udn), own.udn.size(), "uuid:of-another"));
      },
      [](const FakeServer& own) {
        std::string deep;
        for (int i = 0; i < 10000; ++i) deep += "<deviceList><device>";
        return http_answer(own.description() + deep);
      },
      [](const FakeServer&) {
        return "HTTP/1.1 200 OK\r\nContent-Length: 1073741824\r\n\r\n<root>" + std::string(5, ' ');
      },
      [](const FakeServer& own) {
        return "HTTP/1.1 302 Found\r\nLocation: " + own.url("/other.xml") + "\r\nContent-Length: 0\r\n\r\n";
      },
      [](const FakeServer&) { return "HTTP/1.1 200 OK\r\nContent-Length: -1\r\n\r\n"; },
  };
  int number = 1;
  for (const auto& answer : bad) {
    const auto server = server_with("bad" + std::to_string(number), answer);
    EXPECT_TRUE(eventually([&] {
      if (server->requests == 0) server->announce();
      return server->requests > 0;
    }));
    const auto good = server_with("good" + std::to_string(number),
                                  [](const FakeServer& own) { return http_answer(own.description()); });
    EXPECT_GT(find(*good), 0);
    EXPECT_EQ(id_of(server->udn), 0) << number;
    server->announce("ssdp:byebye");
    good->announce("ssdp:byebye");
    EXPECT_TRUE(eventually([&] { return id_of(good->udn) == 0; }));
    ++number;
  }
}

TEST_F(Discovery, readsNoMoreOfAnEndlessDescriptionThanItsLimit) {
  std::atomic<std::size_t> sent = 0;
  std::atomic<bool> over = false;
  FakeServer server("endless", [&](const FakeRequest& request) {
    FakeServer::send_all(request.socket, "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n");
    const std::string chunk = "10000\r\n" + std::string(0x10000, 'x') + "\r\n";
    constexpr std::size_t kMost = 1 << 30;
    for (std::size_t bytes = chunk.size(); bytes == chunk.size() && sent < kMost; sent += bytes)
      bytes = FakeServer::send_all(request.socket, chunk);
    over = true;
    return std::string();
  });
  ASSERT_TRUE(eventually([&] {
    if (server.requests == 0) server.announce();
    return over.load();
  }));
  // What is beyond the limit is in the sockets' buffers.
  EXPECT_LT(sent, kLongestDescription + (16 << 20));
  EXPECT_EQ(id_of(server.udn), 0);
}

TEST_F(Discovery, isNotFilledByOneMachinesFiveHundredServers) {
  const auto crowd = server_with("crowd", [](const FakeServer& own) { return http_answer(own.description()); });
  // Datagrams get lost, so all announce themselves again until enough have been heard.
  EXPECT_TRUE(eventually([&] {
    for (int i = 0; i < 500; ++i) crowd->announce("ssdp:alive", "uuid:crowd-" + std::to_string(i));
    return servers_refused() > 400;
  })) << servers_refused();
  const auto honest = server_with(
      "honest", [](const FakeServer& own) { return http_answer(own.description("Honest")); }, "127.0.0.5");
  EXPECT_GT(find(*honest), 0);
  EXPECT_LE(servers_all().size(), kMostServersPerAddress + 1);
}

// ---- Wake-up ----

TEST(WakeUp, findsTheCardInTheKernelsTable) {
  const std::string table =
      "IP address       HW type     Flags       HW address            Mask     Device\n"
      "192.168.7.20     0x1         0x2         02:00:5e:10:00:01     *        eth0\n"
      "192.168.7.2      0x1         0x0         00:00:00:00:00:00     *        eth0\n"
      "192.168.7.3      0x1         0x2         02:00:5e:10:00\n";
  EXPECT_EQ(mac_of(table, "192.168.7.20"), "02:00:5e:10:00:01");
  EXPECT_EQ(mac_of(table, "192.168.7.2"), "");
  EXPECT_EQ(mac_of(table, "192.168.7.3"), "");
  EXPECT_EQ(mac_of("", "192.168.7.20"), "");
}

TEST(WakeUp, sendsThePacketToTheInterfacesBroadcastAddress) {
  const int in = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  sockaddr_in own{};
  own.sin_family = AF_INET;
  socklen_t size = sizeof own;
  ASSERT_EQ(bind(in, reinterpret_cast<const sockaddr*>(&own), sizeof own), 0);
  ASSERT_EQ(getsockname(in, reinterpret_cast<sockaddr*>(&own), &size), 0);
  const timeval wait{.tv_sec = 30, .tv_usec = 0};
  setsockopt(in, SOL_SOCKET, SO_RCVTIMEO, &wait, sizeof wait);
  EXPECT_TRUE(wake_card("02:00:5e:10:00:01", {"lo"}, ntohs(own.sin_port)));
  char packet[256];
  const ssize_t bytes = recv(in, packet, sizeof packet, 0);
  close(in);
  std::string expected(6, '\xFF');
  for (int i = 0; i < 16; ++i) expected += std::string("\x02\x00\x5e\x10\x00\x01", 6);
  ASSERT_EQ(bytes, 102);
  EXPECT_EQ(std::string(packet, 102), expected);
  EXPECT_FALSE(wake_card("02:00:5e:10:00:01", {"none0"}, kWakePort));
  EXPECT_FALSE(wake_card("", {"lo"}, kWakePort));
}

TEST(WakeUp, isForServersWhoseCardIsRemembered) {
  TvFolder folder;
  std::string error;
  ASSERT_TRUE(store_open(folder.path, error)) << error;
  const SettingValue values[] = {
      {"home_network_servers",
       R"([{"id":3,"udn":"uuid:c","name":"Cellar","address":"127.0.0.1","mac":"02:00:5e:10:00:01"},)"
       R"({"id":4,"udn":"uuid:d","name":"Attic","address":"127.0.0.1","mac":""},{"id":-1,"udn":"x"},{"id":5},7])"}};
  ASSERT_TRUE(store_write(values));
  store_close();
  ASSERT_EQ(tv_start(folder.path), "");
  EXPECT_EQ(servers_all().size(), 2U);
  INT32 wakable = -1;
  EXPECT_EQ(a_vextvapi_dmp_isDmsWakable(3, &wakable), 0);
  EXPECT_EQ(wakable, 1);
  EXPECT_EQ(a_vextvapi_dmp_wakeDmsByMac(3), 0);
  EXPECT_EQ(a_vextvapi_dmp_isDmsWakable(4, &wakable), 0);
  EXPECT_EQ(wakable, 0);
  expect_words(refusal([] { return a_vextvapi_dmp_wakeDmsByMac(4); }), {"network card is not known"});
  INT32 real = 0;
  EXPECT_EQ(a_vextvapi_dmp_getRealDms(3, &real), 0);
  EXPECT_EQ(real, 3);
  expect_words(refusal([] { return a_vextvapi_dmp_isDmsWakable(5, nullptr); }), {"null"});
  expect_words(refusal([&] { return a_vextvapi_dmp_getRealDms(99, &real); }), {"there is no server 99"});
}

// ---- Keys ----

std::atomic<int> leaving = 0;
std::atomic<int> staying = 0;

INT32 count_key(UINT32 arg1, UINT32, UINT32, UINT32 arg4) {
  if (arg1 == DMP_KEY_PRESSED && arg4 == DMP_KEY_LEAVES) ++leaving;
  if (arg1 == DMP_KEY_PRESSED && arg4 == DMP_KEY_STAYS) ++staying;
  return 0;
}

TEST(ServerKeys, areReportedToTheApplicationThatRegistered) {
  TvFolder folder;
  ASSERT_EQ(tv_start(folder.path), "");
  leaving = staying = 0;
  tv_control(R"(["key","VOL+"])");
  ASSERT_EQ(a_vextvapi_html5_agent_register_cb_for_usb(count_key, nullptr), 0);
  tv_control(R"(["key","VOL+"])");
  tv_control(R"(["key","EXIT"])");
  dtv_tv_stop();
  EXPECT_EQ(leaving, 1);
  EXPECT_EQ(staying, 1);
}

}  // namespace
