// Reading a server's file: servers that are slow, hang, lie or are gone. Every server is on the loopback.
#ifdef DTV_PICTURE
#include "rooms/screen/player/http.h"

#include <gtest/gtest.h>

#include <vector>

#include "rooms/screen/http_test.h"

namespace {

using namespace http_test;
using std::chrono::steady_clock;

const std::string& content() {
  static const std::string kContent = [] {
    std::string text;
    for (int i = 0; text.size() < 1'000'000; ++i) text += std::to_string(i) + ' ';
    return text;
  }();
  return kContent;
}

void send_part(int socket, const std::string& request) {
  const std::size_t from = wanted_from(request), size = content().size();
  say(socket, "HTTP/1.1 206 Partial Content\r\nContent-Range: bytes " + std::to_string(from) + "-" +
                  std::to_string(size - 1) + "/" + std::to_string(size) +
                  "\r\nContent-Length: " + std::to_string(size - from) + "\r\n\r\n" + content().substr(from));
}

bool any(const std::string&) { return true; }

struct Reading {
  std::shared_ptr<HttpSource> source = std::make_shared<HttpSource>();
  HttpReaderHandle reader;
  explicit Reading(const std::string& address, bool (*is_near)(const std::string&) = any) {
    source->address = address;
    source->is_near = is_near;
    reader = http_create(source);
  }
  std::string read(std::size_t most) const {
    std::string all(most, '\0');
    std::size_t size = 0;
    while (size < most) {
      const std::size_t count = http_read(*reader, {all.data() + size, most - size});
      if (count == 0) break;
      size += count;
    }
    all.resize(size);
    return all;
  }
  std::string trouble() const { return http_trouble(*source); }
};

TEST(HttpReading, ReadsSeeksAndEnds) {
  const Server server(send_part);
  const Reading reading(server.address());
  ASSERT_TRUE(http_begin(*reading.reader)) << reading.trouble();
  EXPECT_EQ(http_size(*reading.reader), static_cast<std::int64_t>(content().size()));
  EXPECT_TRUE(http_is_seekable(*reading.reader));
  EXPECT_EQ(reading.read(100), content().substr(0, 100));
  EXPECT_TRUE(http_seek(*reading.reader, 500'000));
  EXPECT_EQ(reading.read(1000), content().substr(500'000, 1000));
  EXPECT_EQ(server.connections, 2);
  EXPECT_TRUE(http_seek(*reading.reader, 510'000));
  EXPECT_EQ(reading.read(1000), content().substr(510'000, 1000));
  EXPECT_EQ(server.connections, 2) << "a short way ahead is read";
  EXPECT_TRUE(http_seek(*reading.reader, 10));
  EXPECT_EQ(reading.read(content().size()), content().substr(10));
  EXPECT_EQ(reading.read(10), "");
  EXPECT_EQ(reading.trouble(), "");
}

TEST(HttpReading, AServerWithoutRangesIsReadFromTheBeginningOnly) {
  const Server server([](int socket, const std::string&) { say(socket, "HTTP/1.0 200 OK\r\n\r\n" + content()); });
  const Reading reading(server.address());
  ASSERT_TRUE(http_begin(*reading.reader)) << reading.trouble();
  EXPECT_EQ(http_size(*reading.reader), -1);
  EXPECT_FALSE(http_is_seekable(*reading.reader));
  EXPECT_FALSE(http_seek(*reading.reader, 5));
  EXPECT_EQ(reading.read(content().size() + 1), content());
}

TEST(HttpReading, ChunkedContentIsRead) {
  const Server server([](int socket, const std::string&) {
    say(socket, "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n3\r\nabc\r\n4\r\ndefg\r\n0\r\n\r\n");
  });
  const Reading reading(server.address());
  ASSERT_TRUE(http_begin(*reading.reader)) << reading.trouble();
  EXPECT_EQ(reading.read(100), "abcdefg");
  EXPECT_EQ(reading.trouble(), "");
}

TEST(HttpReading, OnlyRedirectsToTheSameHostAreFollowed) {
  const Server other(send_part);
  const std::string elsewhere = other.address();
  const Server server([&](int socket, const std::string& request) {
    if (request.starts_with("GET /here ")) return send_part(socket, request);
    const std::string place = request.starts_with("GET /away ")   ? elsewhere
                              : request.starts_with("GET /back ") ? "/back"
                              : request.starts_with("GET /odd ")  ? "//127.0.0.1/here"
                                                                  : "/here";
    say(socket, "HTTP/1.1 302 Found\r\nLocation: " + place + "\r\nContent-Length: 0\r\n\r\n");
  });
  const Reading followed(server.address("/film"));
  EXPECT_TRUE(http_begin(*followed.reader)) << followed.trouble();
  EXPECT_EQ(followed.read(100), content().substr(0, 100));
  for (const char* const path : {"/away", "/odd"}) {
    const Reading refused(server.address(path));
    EXPECT_FALSE(http_begin(*refused.reader));
    EXPECT_EQ(refused.trouble(), "the server redirects to another host") << path;
  }
  EXPECT_EQ(other.connections, 0);
  const Reading endless(server.address("/back"));
  EXPECT_FALSE(http_begin(*endless.reader));
  EXPECT_EQ(endless.trouble(), "the server redirects too often");
}

TEST(HttpReading, OnlyNearHostsByNumberAreConnectedTo) {
  const Server server(send_part);
  const Reading far(server.address(), [](const std::string&) { return false; });
  EXPECT_FALSE(http_begin(*far.reader));
  EXPECT_EQ(far.trouble(), "the server is not in the home network: 127.0.0.1");
  EXPECT_EQ(server.connections, 0);
  for (const char* const wrong :
       {"http://localhost/film", "http://127.0.0.1:0/", "http://127.0.0.1:99999/", "https://127.0.0.1/",
        "http://a@127.0.0.1/", "http://127.0.0.1/a b", "http://[::1/", "http://", "", "http://127.0.0.1:/"}) {
    const Reading reading(wrong);
    EXPECT_FALSE(http_begin(*reading.reader)) << wrong;
    EXPECT_NE(reading.trouble(), "") << wrong;
  }
}

TEST(HttpReading, WhatServersDoWrongIsReported) {
  struct Case {
    std::string answer;
    const char* trouble;
  };
  const Case cases[] = {
      {"garbage\r\n\r\n", "the server's answer cannot be read: "},
      {"", "the server's answer cannot be read: it closed the connection before the end"},
      {"HTTP/1.1 404 Not Found\r\nContent-Length: 0\r\n\r\n", "the server does not send the file: HTTP status 404"},
      {"HTTP/1.1 200 OK\r\nX: " + std::string(40'000, 'x') + "\r\n\r\n",
       "the server's answer cannot be read: its answer's head is longer than 16 KiB"},
      {"HTTP/1.1 206 Partial Content\r\nContent-Range: bytes 5-9/10\r\nContent-Length: 5\r\n\r\nabcde",
       "the server sends another part of the file than was requested"},
      {"HTTP/1.1 206 Partial Content\r\nContent-Range: bytes 0-9/5\r\nContent-Length: 10\r\n\r\n0123456789",
       "the server sends another part of the file than was requested"},
      {"HTTP/1.1 206 Partial Content\r\nContent-Length: 5\r\n\r\nabcde",
       "the server sends another part of the file than was requested"},
  };
  for (const Case& each : cases) {
    const Server server([&](int socket, const std::string&) { say(socket, each.answer); });
    const Reading reading(server.address());
    EXPECT_FALSE(http_begin(*reading.reader)) << each.answer.substr(0, 40);
    EXPECT_EQ(reading.trouble().rfind(each.trouble, 0), 0u) << reading.trouble();
  }
}

TEST(HttpReading, AFileThatEndsTooEarlyReportsWhy) {
  const Server server([](int socket, const std::string&) {
    say(socket, "HTTP/1.1 200 OK\r\nContent-Length: 1000\r\n\r\n" + std::string(300, 'x'));
  });
  const Reading reading(server.address());
  ASSERT_TRUE(http_begin(*reading.reader)) << reading.trouble();
  EXPECT_EQ(reading.read(1000).size(), 300u);
  EXPECT_EQ(reading.trouble(), "the server stopped sending the file: it closed the connection before the end");
}

// The reader requests the rest from a server that sends a part at a time, but not from one that sends nothing more.
TEST(HttpReading, TheRestIsRequestedUntilNothingMoreComes) {
  const Server server([](int socket, const std::string& request) {
    const std::size_t from = wanted_from(request);
    const std::size_t count = from < 300 ? 100 : 0;
    say(socket, "HTTP/1.1 206 Partial Content\r\nContent-Range: bytes " + std::to_string(from) + "-" +
                    std::to_string(from + 99) + "/1000\r\nContent-Length: " + std::to_string(count) + "\r\n\r\n" +
                    content().substr(from, count));
  });
  const Reading reading(server.address());
  ASSERT_TRUE(http_begin(*reading.reader)) << reading.trouble();
  EXPECT_EQ(reading.read(1000), content().substr(0, 300));
  EXPECT_EQ(server.connections, 4);
}

TEST(HttpReading, AServerThatHangsIsGivenUp) {
  const Server server([](int socket, const std::string& request) {
    if (request.starts_with("GET /body ")) say(socket, "HTTP/1.1 200 OK\r\nContent-Length: 1000\r\n\r\nabc");
    hang(socket);
  });
  const auto begin = steady_clock::now();
  const Reading head(server.address("/head"));
  EXPECT_FALSE(http_begin(*head.reader));
  EXPECT_EQ(head.trouble(), "the server's answer cannot be read: it does not answer");
  EXPECT_GE(steady_clock::now() - begin, kHttpHeadTime - std::chrono::milliseconds(100));
  EXPECT_LT(steady_clock::now() - begin, 10 * kHttpHeadTime);
}

TEST(HttpReading, ACancelledReadingReturnsAtOnce) {
  const Server server([](int socket, const std::string&) {
    say(socket, "HTTP/1.1 200 OK\r\nContent-Length: 1000\r\n\r\nabc");
    hang(socket);
  });
  const Reading reading(server.address());
  ASSERT_TRUE(http_begin(*reading.reader)) << reading.trouble();
  EXPECT_EQ(reading.read(3), "abc");
  std::thread canceller([&] {
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    http_cancel(*reading.reader);
  });
  const auto begin = steady_clock::now();
  EXPECT_EQ(reading.read(10), "");
  EXPECT_LT(steady_clock::now() - begin, kHttpReadTime);
  canceller.join();
  EXPECT_EQ(reading.read(10), "");
  EXPECT_EQ(reading.trouble(), "") << "a viewer's choice is no trouble";
}

}  // namespace
#endif
