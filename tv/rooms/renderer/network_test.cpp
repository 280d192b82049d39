// The renderer's server: events, what it refuses, and what it limits.
#include "rooms/renderer/renderer_test.h"
#include "rooms/renderer/server.h"
#include "rooms/renderer/subscribers.h"

namespace {

const std::pair<std::string, std::string> kInstance = {"InstanceID", "0"};

// A controller's own server, to which events are sent.
struct Listener {
  Socket socket{::socket(AF_INET, SOCK_STREAM, 0)};
  std::string place;
  explicit Listener(const std::string& host = "127.0.0.1") {
    const sockaddr_in any = address_of(host, 0);
    EXPECT_EQ(bind(socket.number, reinterpret_cast<const sockaddr*>(&any), sizeof any), 0);
    EXPECT_EQ(listen(socket.number, 64), 0);
    sockaddr_in own{};
    socklen_t size = sizeof own;
    EXPECT_EQ(getsockname(socket.number, reinterpret_cast<sockaddr*>(&own), &size), 0);
    place = host + ":" + std::to_string(ntohs(own.sin_port));
  }
  bool has_one(int wait_millis) const {
    pollfd wait{socket.number, POLLIN, 0};
    return poll(&wait, 1, wait_millis) == 1;
  }
  // The next event, answered.
  HttpAnswer take(const std::string& status = "200 OK") const {
    if (!has_one(kLongWaitMillis)) return {};
    const Socket peer(accept(socket.number, nullptr, nullptr));
    HttpAnswer event{.text = receive_text(peer)};
    send_text(peer, "HTTP/1.1 " + status + "\r\nContent-Length: 0\r\nConnection: close\r\n\r\n");
    return event;
  }
};

struct TvRendererNetwork : TvRenderer {
  TvRendererNetwork() { begin(); }
  HttpAnswer subscribe(const std::string& service, const std::string& callbacks, const std::string& timeout = "") {
    Words headers = {{"CALLBACK", callbacks}, {"NT", "upnp:event"}};
    if (!timeout.empty()) headers.emplace_back("TIMEOUT", timeout);
    return exchange(place, "SUBSCRIBE", "/" + service + "/events", headers);
  }
  HttpAnswer subscribe_to(const std::string& service, const Listener& listener) {
    return subscribe(service, "<http://" + listener.place + "/events?a=1>");
  }
};

// The value of a variable in an event's LastChange; "(none)" if it is not there.
std::string changed(const HttpAnswer& event, const std::string& variable) {
  std::string value = "(none)";
  xml_read(event.element("LastChange"), {.begin =
                                             [&](int, std::string_view name, const XmlAttributes& attributes) {
                                               if (name == variable) value = attributes("val");
                                             },
                                         .end = [](int, std::string_view, const std::string&) {}});
  return value;
}

// ---- Events ----

TEST_F(TvRendererNetwork, SendsTheWholeStateFirstAndThenChanges) {
  const Listener listener;
  const HttpAnswer subscribed = subscribe_to("AVTransport", listener);
  ASSERT_EQ(subscribed.status, 200);
  EXPECT_EQ(subscribed.header("TIMEOUT"), "Second-1800");
  const HttpAnswer first = listener.take();
  EXPECT_TRUE(first.text.starts_with("NOTIFY /events?a=1 HTTP/1.1\r\n")) << first.text;
  EXPECT_EQ(first.header("NT"), "upnp:event");
  EXPECT_EQ(first.header("NTS"), "upnp:propchange");
  EXPECT_EQ(first.header("SID"), subscribed.header("SID"));
  EXPECT_EQ(first.header("SEQ"), "0");
  EXPECT_EQ(changed(first, "TransportState"), "NO_MEDIA_PRESENT");
  EXPECT_EQ(changed(first, "CurrentPlayMode"), "NORMAL");

  ASSERT_EQ(transport("SetAVTransportURI", load_film()).error(), 0);
  dtv_tv_advance(kEventMillis);
  const HttpAnswer second = listener.take();
  EXPECT_EQ(second.header("SEQ"), "1");
  EXPECT_EQ(changed(second, "TransportState"), "STOPPED");
  EXPECT_EQ(changed(second, "AVTransportURI"), kFilm);
  EXPECT_EQ(changed(second, "AVTransportURIMetaData"), kFilmDescription);
  EXPECT_EQ(changed(second, "CurrentPlayMode"), "(none)");  // it has not changed
}

TEST_F(TvRendererNetwork, ReportsTheVolumeKeys) {
  const Listener listener;
  ASSERT_EQ(subscribe_to("RenderingControl", listener).status, 200);
  EXPECT_EQ(changed(listener.take(), "Volume"), "20");
  dtv_tv_advance(kEventMillis);
  tv_control(R"(["key","VOL+"])");
  dtv_tv_advance(kEventMillis);
  const HttpAnswer event = listener.take();
  EXPECT_EQ(changed(event, "Volume"), "21");
  EXPECT_EQ(changed(event, "Mute"), "(none)");
}

TEST_F(TvRendererNetwork, SendsTheVariablesOfTheConnectionManager) {
  const Listener listener;
  ASSERT_EQ(subscribe_to("ConnectionManager", listener).status, 200);
  const HttpAnswer event = listener.take();
  EXPECT_EQ(event.element("CurrentConnectionIDs"), "0");
  EXPECT_NE(event.element("SinkProtocolInfo").find("http-get:*:video/mp4:*"), std::string::npos);
}

TEST_F(TvRendererNetwork, JoinsChangesWithinTheLeastTimeBetweenEvents) {
  const Listener listener;
  ASSERT_EQ(subscribe_to("RenderingControl", listener).status, 200);
  listener.take();
  dtv_tv_advance(kEventMillis);
  // The first change may be sent at once; all that follow within the pause are one event.
  const auto comes_to = [&](const std::string& wanted) {
    for (int events = 1; events <= 2; ++events) {
      dtv_tv_advance(kEventMillis);
      if (changed(listener.take(), "Volume") == wanted) return true;
    }
    return false;
  };
  for (INT16 level = 30; level < 60; ++level) a_vextvapi_volctrl_setVolume(level);
  EXPECT_TRUE(comes_to("59"));
  a_vextvapi_volctrl_setVolume(70);
  a_vextvapi_volctrl_setVolume(71);
  EXPECT_TRUE(comes_to("71"));
  dtv_tv_advance(kEventMillis);
  EXPECT_FALSE(listener.has_one(100)) << "nothing has changed since";
}

TEST_F(TvRendererNetwork, RenewsAndEndsSubscriptions) {
  const Listener listener;
  const std::string id = subscribe_to("AVTransport", listener).header("SID");
  listener.take();
  EXPECT_EQ(renderer_reply().at("subscriptions"), 1);
  const HttpAnswer renewed =
      exchange(place, "SUBSCRIBE", "/AVTransport/events", {{"SID", id}, {"TIMEOUT", "Second-300"}});
  EXPECT_EQ(renewed.status, 200);
  EXPECT_EQ(renewed.header("SID"), id);
  EXPECT_EQ(renewed.header("TIMEOUT"), "Second-300");
  EXPECT_EQ(exchange(place, "SUBSCRIBE", "/RenderingControl/events", {{"SID", id}}).status, 412);
  EXPECT_EQ(exchange(place, "UNSUBSCRIBE", "/AVTransport/events", {{"SID", id}}).status, 200);
  EXPECT_EQ(exchange(place, "UNSUBSCRIBE", "/AVTransport/events", {{"SID", id}}).status, 412);
  EXPECT_EQ(exchange(place, "SUBSCRIBE", "/AVTransport/events", {{"SID", id}}).status, 412);
  EXPECT_EQ(renderer_reply().at("subscriptions"), 0);
}

TEST_F(TvRendererNetwork, ForgetsASubscriptionThatIsNotRenewed) {
  const Listener listener;
  const std::string id = subscribe("AVTransport", "<http://" + listener.place + "/>", "Second-100").header("SID");
  listener.take();
  dtv_tv_advance(99'000);
  EXPECT_EQ(exchange(place, "SUBSCRIBE", "/AVTransport/events", {{"SID", id}, {"TIMEOUT", "Second-100"}}).status, 200);
  dtv_tv_advance(101'000);
  EXPECT_EQ(exchange(place, "SUBSCRIBE", "/AVTransport/events", {{"SID", id}}).status, 412);
}

TEST_F(TvRendererNetwork, LimitsTheTimeOfASubscription) {
  const Listener listener;
  const auto granted = [&](const std::string& wanted) {
    return subscribe("AVTransport", "<http://" + listener.place + "/>", wanted).header("TIMEOUT");
  };
  EXPECT_EQ(granted("Second-1"), "Second-60");
  EXPECT_EQ(granted("Second-999999999999"), "Second-1800");
  EXPECT_EQ(granted("Second--5"), "Second-60");
  EXPECT_EQ(granted("infinite"), "Second-1800");
  EXPECT_EQ(granted("Second-x"), "Second-1800");
}

TEST_F(TvRendererNetwork, RefusesInvalidSubscriptions) {
  for (const char* const callbacks :
       {"", "http://127.0.0.1:9/", "<>", "<http://203.0.113.7:9/>", "<https://127.0.0.1:9/>", "<http://localhost:9/>",
        "<http://127.0.0.1:0/>", "<http://127.0.0.1:70000/>", "<http://127.0.0.1:9/ HTTP/1.1>"})
    EXPECT_EQ(subscribe("AVTransport", callbacks).status, 412) << callbacks;
  EXPECT_EQ(subscribe("AVTransport", "<http://127.0.0.1:9/" + std::string(300, 'a') + ">").status, 412);
  EXPECT_EQ(exchange(place, "SUBSCRIBE", "/AVTransport/events", {{"CALLBACK", "<http://127.0.0.1:9/>"}}).status, 412);
  EXPECT_EQ(exchange(place, "SUBSCRIBE", "/AVTransport/events", {{"SID", "uuid:x"}, {"NT", "upnp:event"}}).status, 400);
  EXPECT_EQ(exchange(place, "SUBSCRIBE", "/AVTransport/events").status, 412);
  EXPECT_EQ(renderer_reply().at("subscriptions"), 0);
}

TEST_F(TvRendererNetwork, EndsASubscriptionWhoseOwnerDoesNotKnowIt) {
  const Listener listener;
  ASSERT_EQ(subscribe_to("AVTransport", listener).status, 200);
  listener.take("412 Precondition Failed");
  EXPECT_TRUE(eventually([] { return renderer_reply().at("subscriptions") == 0; }));
}

TEST_F(TvRendererNetwork, EndsASubscriptionWhoseOwnerHasGone) {
  auto listener = std::make_unique<Listener>();
  ASSERT_EQ(subscribe_to("RenderingControl", *listener).status, 200);
  listener->take();
  listener.reset();
  for (INT16 i = 0; i < kMostFailures; ++i) {
    EXPECT_EQ(renderer_reply().at("subscriptions"), 1);
    a_vextvapi_volctrl_setVolume(static_cast<INT16>(50 + i));
    dtv_tv_advance(kEventMillis);
    std::this_thread::sleep_for(std::chrono::milliseconds(50));  // the delivery fails meanwhile; else it is joined
  }
  EXPECT_TRUE(eventually([] { return renderer_reply().at("subscriptions") == 0; }));
}

// ---- Limits ----

TEST_F(TvRendererNetwork, LimitsSubscriptionsPerHostAndServesOtherHosts) {
  const Listener listener;
  int taken = 0, refused = 0;
  for (int i = 0; i < 500; ++i) {
    const int status = subscribe("AVTransport", "<http://127.0.0.1:9/" + std::to_string(i) + ">").status;
    taken += status == 200 ? 1 : 0;
    refused += status == 503 ? 1 : 0;
  }
  // A subscription ends when its events fail three times, so a few more than the bound may have been taken in turn.
  EXPECT_GE(taken, static_cast<int>(kMostSubscribersOfHost));
  EXPECT_EQ(taken + refused, 500);
  EXPECT_LE(renderer_reply().at("subscriptions").to_number<std::size_t>(), kMostSubscribersOfHost);
  const Listener other("127.0.0.2");
  EXPECT_EQ(subscribe_to("RenderingControl", other).status, 200);
  EXPECT_EQ(changed(other.take(), "Volume"), "20");
}

TEST_F(TvRendererNetwork, LimitsSubscriptionsOfAllHostsTogether) {
  for (std::size_t i = 0; i < kMostSubscribers / kMostSubscribersOfHost; ++i) {
    const Listener listener("127.0.1." + std::to_string(i + 1));  // it answers nobody
    for (std::size_t k = 0; k < kMostSubscribersOfHost; ++k)
      EXPECT_EQ(subscribe_to("AVTransport", listener).status, 200);
  }
  const Listener last("127.0.2.1");
  EXPECT_EQ(subscribe_to("AVTransport", last).status, 503);
}

TEST_F(TvRendererNetwork, ASubscriberThatDoesNotReadDelaysNobody) {
  std::vector<std::unique_ptr<Listener>> silent;
  for (std::size_t i = 0; i < kMostSubscribersOfHost; ++i) {
    silent.push_back(std::make_unique<Listener>());
    ASSERT_EQ(subscribe_to("RenderingControl", *silent.back()).status, 200);
  }
  const Listener other("127.0.0.2");
  ASSERT_EQ(subscribe_to("RenderingControl", other).status, 200);
  other.take();
  const auto begin = std::chrono::steady_clock::now();
  for (INT16 level = 30; level < 35; ++level) {
    a_vextvapi_volctrl_setVolume(level);
    dtv_tv_advance(kEventMillis);
    EXPECT_EQ(changed(other.take(), "Volume"), std::to_string(level));
  }
  EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(kDeliverySeconds));
}

TEST_F(TvRendererNetwork, LimitsConnectionsFromOneAddressAndServesOthers) {
  std::vector<Socket> idle;
  for (std::size_t i = 0; i < kMostConnectionsOfPeer; ++i) idle.push_back(connect_to(place));
  // The server accepts them in order, so that this one is beyond the bound.
  EXPECT_EQ(exchange(place, "GET", "/description.xml").status, 0);
  EXPECT_EQ(exchange(place, "GET", "/description.xml", {}, "", "127.0.0.2").status, 200);
  idle.clear();
  EXPECT_TRUE(eventually([&] { return exchange(place, "GET", "/description.xml").status == 200; }));
}

TEST_F(TvRendererNetwork, LimitsAllConnections) {
  std::vector<Socket> idle;
  for (std::size_t i = 0; i < kMostConnections; ++i)
    idle.push_back(connect_to(place, "127.0.3." + std::to_string(i / kMostConnectionsOfPeer + 1)));
  EXPECT_EQ(exchange(place, "GET", "/description.xml").status, 0);
  EXPECT_EQ(renderer_reply().at("application"), true);  // the set itself goes on
}

TEST_F(TvRendererNetwork, RefusesLongHeadersAndBodies) {
  EXPECT_EQ(exchange(place, "GET", "/description.xml", {{"X", std::string(kLongestHeader, 'x')}}).status, 431);
  const Words headers = {{"Content-Type", "text/xml"}, {"SOAPACTION", "\"a#b\""}};
  const Socket socket = connect_to(place);
  send_text(socket, "POST /AVTransport/control HTTP/1.1\r\nHost: " + place + "\r\nContent-Length: 10000000\r\n\r\n");
  EXPECT_EQ(read_answer(socket).status, 413);
  const HttpAnswer hostile = transport(
      "SetAVTransportURI", {kInstance, {"CurrentURI", kFilm}, {"CurrentURIMetaData", std::string(kLongestBody, 'x')}});
  EXPECT_TRUE(hostile.status == 413 || hostile.status == 0) << hostile.text;  // closed while it was still sending
  EXPECT_EQ(state(), "NO_MEDIA_PRESENT");
}

TEST_F(TvRendererNetwork, RefusesRequestsThatNoControllerSends) {
  const std::string control = "/AVTransport/control";
  const std::string type = "urn:schemas-upnp-org:service:AVTransport:1";
  const std::string good = "<s:Envelope xmlns:s=\"s\"><s:Body><u:Stop xmlns:u=\"" + type +
                           "\"><InstanceID>0</InstanceID></u:Stop></s:Body></s:Envelope>";
  const auto post = [&](const std::string& action, const std::string& body, const std::string& media = "text/xml") {
    return exchange(place, "POST", control, {{"Content-Type", media}, {"SOAPACTION", action}}, body);
  };
  EXPECT_EQ(post("\"" + type + "#Stop\"", good).error(), 701);
  EXPECT_EQ(post(type + "#Stop", good).error(), 701);
  EXPECT_EQ(post("\"" + type + "#Stop\"", good, "text/plain").status, 415);
  EXPECT_EQ(post("Stop", good).status, 400);
  EXPECT_EQ(post("\"urn:schemas-upnp-org:service:RenderingControl:1#Stop\"", good).error(), 401);
  for (const std::string& body : {std::string(), std::string("x"), good.substr(0, 60), "<a>" + good + "</a>",
                                  "<!DOCTYPE s [<!ENTITY a \"b\">]>" + good, good.substr(0, good.find("</u:Stop>"))})
    EXPECT_EQ(post("\"" + type + "#Stop\"", body).status, 400) << body;
  // Some controllers count the bytes of their request too low.
  EXPECT_EQ(post("\"" + type + "#Stop\"", good.substr(0, good.size() - 5)).error(), 701);
  EXPECT_EQ(exchange(place, "GET", control).status, 405);
  EXPECT_EQ(exchange(place, "POST", "/description.xml").status, 405);
  EXPECT_EQ(exchange(place, "GET", "/../../etc/passwd").status, 404);
  EXPECT_EQ(exchange(place, "GET", "/AVTransport").status, 404);
  EXPECT_EQ(exchange(place, "GET", "/description.xml", {{"Host", "example.org"}}).status, 400);
  EXPECT_EQ(exchange(place, "GET", "/description.xml", {{"Origin", "http://example.org"}}).status, 403);
  const Socket socket = connect_to(place);
  send_text(socket, std::string("\x16\x03\x01\x00\x00\r\n\r\n", 9));
  EXPECT_EQ(read_answer(socket).status, 400);
}

TEST_F(TvRendererNetwork, AFloodOfActionsDelaysNeitherTheSetNorTheEventsOfOthers) {
  const Listener other("127.0.0.2");
  ASSERT_EQ(subscribe_to("RenderingControl", other).status, 200);
  other.take();
  std::atomic<bool> ends = false;
  std::atomic<int> answered = 0;
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([&] {
      while (!ends) answered += transport("SetAVTransportURI", load_film()).status != 0 ? 1 : 0;
    });
  }
  EXPECT_TRUE(eventually([&] { return answered > 20; }));
  a_vextvapi_volctrl_setVolume(44);
  dtv_tv_advance(kEventMillis);
  EXPECT_EQ(changed(other.take(), "Volume"), "44");
  ends = true;
  for (std::thread& thread : threads) thread.join();
}

}  // namespace
