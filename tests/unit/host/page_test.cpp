// The page's files: which files are served, how they are cached and compressed, and FIFOs, devices and links among
// them.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <atomic>
#include <filesystem>
#include <fstream>
#include <thread>

#include "page_files.h"

namespace {

namespace fs = std::filesystem;

// A built page with a compressed script, and a secret beside its folder.
struct Site {
  fs::path folder = fs::temp_directory_path() / ("host_page_test-" + std::to_string(getpid()));
  std::string web = (folder / "web").string();
  Site() {
    fs::create_directories(folder / "web/assets");
    write("web/index.html", "page");
    write("web/assets/app-AbC_12-z.js", "script");
    write("web/assets/app-AbC_12-z.js.gz", "compressed");
    write("secret.txt", "secret");
    fs::create_symlink(folder / "secret.txt", folder / "web/link.txt");
    fs::create_symlink(folder / "web/index.html", folder / "web/inside.html");
  }
  ~Site() { fs::remove_all(folder); }
  void write(const std::string& name, const std::string& text) const {
    std::ofstream(folder / name, std::ios::binary) << text;
  }
};

constexpr const char* script = "/assets/app-AbC_12-z.js";

// The content of the answer's file, which is closed.
std::string content_of(HttpAnswer& answer) {
  if (answer.file.descriptor < 0) return {};
  std::string text(answer.file.bytes + 1, '\0');
  const ssize_t got = read(answer.file.descriptor, text.data(), text.size());
  text.resize(got > 0 ? static_cast<std::size_t>(got) : 0);
  EXPECT_EQ(text.size(), answer.file.bytes);
  close(answer.file.descriptor);
  answer.file = {};
  return text;
}

// The value of one of the further headers; empty when it is missing.
std::string header_of(const HttpAnswer& answer, const std::string& name) {
  const std::string lines = "\r\n" + answer.more;
  const std::size_t at = lines.find("\r\n" + name + ": ");
  if (at == std::string::npos) return {};
  const std::size_t begin = at + 2 + name.size() + 2;
  return lines.substr(begin, lines.find("\r\n", begin) - begin);
}

HttpAnswer ask(const Site& site, HttpRequest request) {
  request.host = "localhost:8080";
  if (request.method.empty()) request.method = "GET";
  return page_answer(request, site.web);
}

std::string served(const Site& site, HttpRequest request) {
  HttpAnswer answer = ask(site, std::move(request));
  EXPECT_EQ(answer.status, 200u);
  EXPECT_EQ(answer.body, "");
  return content_of(answer);
}

std::size_t open_descriptors() {
  return static_cast<std::size_t>(std::distance(fs::directory_iterator("/proc/self/fd"), fs::directory_iterator()));
}

TEST(PageFiles, AreHandedOverOpen) {
  const Site site;
  for (const char* method : {"GET", "HEAD"}) {
    HttpAnswer answer = ask(site, {.method = method, .path = "/"});
    EXPECT_EQ(answer.status, 200u);
    EXPECT_EQ(answer.type, "text/html; charset=utf-8");
    EXPECT_TRUE(answer.policy.starts_with("default-src 'self'; connect-src 'self' ws://localhost:8080;"));
    EXPECT_EQ(answer.file.bytes, 4u);
    EXPECT_NE(fcntl(answer.file.descriptor, F_GETFD) & FD_CLOEXEC, 0);
    EXPECT_EQ(content_of(answer), "page") << method;
  }
  EXPECT_EQ(served(site, {.path = "/index.html"}), "page");
  EXPECT_EQ(served(site, {.path = "/inside.html"}), "page");
  EXPECT_EQ(ask(site, {.path = "/assets/"}).status, 404u);
}

TEST(PageFiles, OfTheFolderOnly) {
  const Site site;
  for (const char* path : {"/../secret.txt", "/link.txt", "/assets/../../secret.txt", "//etc/passwd", "/assets",
                           "/nothing", "/..", "/assets/", "/index.html/", ""}) {
    const HttpAnswer answer = ask(site, {.path = path});
    EXPECT_EQ(answer.status, 404u) << path;
    EXPECT_LT(answer.file.descriptor, 0) << path;
    EXPECT_EQ(answer.body.find("secret"), std::string::npos) << path;
  }
  EXPECT_EQ(ask(site, {.path = std::string("/index.html\0.png", 16)}).status, 404u);
}

TEST(PageFiles, SayHowTheyAreBuilt) {
  const HttpAnswer answer = page_answer({.method = "GET", .path = "/"}, "/nonexistent/folder");
  EXPECT_EQ(answer.status, 404u);
  EXPECT_NE(answer.body.find("npm run build"), std::string::npos);
}

TEST(PageFiles, WhatIsNoFileIsNotOpened) {
  const Site site;
  mkfifo((site.folder / "web/fifo.html").c_str(), 0600);
  mkfifo((site.folder / "web/index.html.gz").c_str(), 0600);
  fs::create_symlink("/dev/zero", site.folder / "web/zero.html");
  fs::create_symlink("loop.html", site.folder / "web/loop.html");
  fs::create_directory(site.folder / "web/folder.html");
  sockaddr_un name{.sun_family = AF_UNIX, .sun_path = {}};
  const std::string path = (site.folder / "web/socket.html").string();
  ASSERT_LT(path.size(), sizeof name.sun_path);
  path.copy(name.sun_path, path.size());
  const int listening = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  ASSERT_EQ(bind(listening, reinterpret_cast<const sockaddr*>(&name), sizeof name), 0);

  alarm(60);  // ends the program if it waits for a FIFO
  const std::size_t before = open_descriptors();
  for (const char* wanted : {"/fifo.html", "/zero.html", "/loop.html", "/folder.html", "/socket.html"})
    EXPECT_EQ(ask(site, {.path = wanted}).status, 404u) << wanted;
  EXPECT_EQ(served(site, {.path = "/", .accept_encoding = "gzip"}), "page") << "its .gz is a FIFO";
  alarm(0);
  EXPECT_EQ(open_descriptors(), before);
  close(listening);
}

// Between the check of a file and its opening, something else may replace it.
TEST(PageFiles, WhatTakesAFilesPlaceIsNotServed) {
  const Site site;
  const std::string wanted = (site.folder / "web/file.txt").string();
  const std::string next = (site.folder / "web/next").string();
  site.write("web/file.txt", "mine");
  std::atomic<bool> done{false};
  std::thread changes([&] {
    for (unsigned i = 0; !done.load(); ++i) {
      switch (i % 4) {
        case 0:
          fs::create_symlink(site.folder / "secret.txt", next);
          break;
        case 2:
          mkfifo(next.c_str(), 0600);
          break;
        default:
          std::ofstream(next) << "mine";
      }
      rename(next.c_str(), wanted.c_str());
    }
  });
  alarm(60);  // as above
  const std::size_t before = open_descriptors();
  unsigned found = 0;
  for (unsigned i = 0; i < 20'000; ++i) {
    HttpAnswer answer = ask(site, {.path = "/file.txt"});
    if (answer.status == 200) {
      ++found;
      const std::string text = content_of(answer);
      EXPECT_TRUE(text == "mine" || text.empty()) << text;
    } else {
      EXPECT_EQ(answer.status, 404u);
    }
  }
  alarm(0);
  done = true;
  changes.join();
  EXPECT_GT(found, 0u);
  EXPECT_LT(found, 20'000u);
  EXPECT_LE(open_descriptors(), before);
}

TEST(PageFiles, ThatCannotBeOpenedAreAFailure) {
  const Site site;
  rlimit limit{};
  ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &limit), 0);
  const rlimit none{.rlim_cur = 0, .rlim_max = limit.rlim_max};
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &none), 0);
  const HttpAnswer answer = ask(site, {.path = "/"});
  const HttpAnswer compressed = ask(site, {.path = script, .accept_encoding = "gzip"});
  const HttpAnswer nothing = ask(site, {.path = "/nothing"});
  setrlimit(RLIMIT_NOFILE, &limit);
  EXPECT_EQ(answer.status, 500u);
  EXPECT_EQ(answer.body, R"({"error":"the page's file cannot be opened: Too many open files"})");
  EXPECT_EQ(compressed.status, 500u);
  EXPECT_EQ(nothing.status, 404u);
}

TEST(PageFiles, AreCompressedForWhoTakesIt) {
  const Site site;
  for (const char* accepted : {"gzip", "GZIP", "deflate, gzip;q=1.0, *;q=0.5", "br,gzip;q=0.001", "*", "x-gzip",
                               "gzip ; q=0.5", "gzip;Q=1", "identity;q=0, gzip", "gzip;level=9", "*;q=0, gzip"}) {
    HttpAnswer answer = ask(site, {.path = script, .accept_encoding = accepted});
    EXPECT_EQ(header_of(answer, "content-encoding"), "gzip") << accepted;
    EXPECT_EQ(header_of(answer, "vary"), "accept-encoding, origin");
    EXPECT_EQ(answer.type, "text/javascript; charset=utf-8");
    EXPECT_EQ(content_of(answer), "compressed") << accepted;
  }
  for (const char* accepted :
       {"", "identity", "br", "deflate, br", "gzip;q=0", "gzip; q=0.000", "gzip;Q=0.", "*;q=0", "gzip;q=0, *",
        "*, gzip;q=0", "gzipx", "agzip", "gzip;q=", "gzip;q=x", "gzip;q=-1", ";,", "\"gzip\"", "br;gzip", "q=1"}) {
    HttpAnswer answer = ask(site, {.path = script, .accept_encoding = accepted});
    EXPECT_EQ(header_of(answer, "content-encoding"), "") << accepted;
    EXPECT_EQ(header_of(answer, "vary"), "accept-encoding, origin");
    EXPECT_EQ(content_of(answer), "script") << accepted;
  }
  EXPECT_EQ(served(site, {.path = "/", .accept_encoding = "gzip"}), "page") << "there is no compressed one";
  EXPECT_EQ(ask(site, {.path = std::string(script) + ".gz"}).status, 404u);
  EXPECT_EQ(ask(site, {.path = std::string(script) + ".gz", .accept_encoding = "gzip"}).status, 404u);
  // The compressed form is not served without the file itself.
  fs::remove(site.folder / "web/assets/app-AbC_12-z.js");
  EXPECT_EQ(ask(site, {.path = script, .accept_encoding = "gzip"}).status, 404u);
}

TEST(PageFiles, WithAHashInTheirNameAreKept) {
  const Site site;
  constexpr const char* kept = "public, max-age=31536000, immutable";
  fs::create_symlink(site.folder / "web/assets/app-AbC_12-z.js", site.folder / "web/newest.js");
  fs::create_directory(site.folder / "web/assets/more");
  fs::create_directory(site.folder / "web/other");
  const std::pair<const char*, const char*> rows[] = {{"assets/app-AbC_12-z.js", kept},
                                                      {"assets/a-b-UrOsK7sQ.css", kept},
                                                      {"assets/font--_-_-_-_.woff2", kept},
                                                      {"assets/app-1.js", "no-cache"},
                                                      {"assets/app.AbC_1234.js", "no-cache"},
                                                      {"assets/app-AbC_12.js", "no-cache"},
                                                      {"assets/-AbC_12-z.js", "no-cache"},
                                                      {"assets/app-AbC_12-z", "no-cache"},
                                                      {"assets/app-AbC+12-z.js", "no-cache"},
                                                      {"assets/app-AbC_12-z.js.map", "no-cache"},
                                                      {"assets/more/x-AbC_12-z.js", "no-cache"},
                                                      {"other/app-AbC_12-z.js", "no-cache"},
                                                      {"app-AbC_12-z.js", "no-cache"},
                                                      {"newest.js", "no-cache"},
                                                      {"index.html", "no-cache"}};
  for (const auto& [name, control] : rows) {
    if (!fs::exists(site.folder / "web" / name)) site.write(std::string("web/") + name, "x");
    HttpAnswer answer = ask(site, {.path = std::string("/") + name});
    EXPECT_EQ(answer.status, 200u) << name;
    EXPECT_EQ(header_of(answer, "cache-control"), control) << name;
    content_of(answer);
  }
}

TEST(PageFiles, AreNotSentAgain) {
  const Site site;
  HttpAnswer first = ask(site, {.path = "/"});
  const std::string tag = header_of(first, "etag");
  content_of(first);
  ASSERT_GT(tag.size(), 2u);
  EXPECT_TRUE(tag.starts_with('"') && tag.ends_with('"'));

  const std::size_t before = open_descriptors();
  const std::string known[] = {tag,
                               "W/" + tag,
                               "*",
                               " * ",
                               "\"other\", " + tag,
                               "\"other\",W/\"a,b\" , W/" + tag,
                               "," + tag + ",",
                               tag + ", broken"};
  for (const std::string& tags : known) {
    for (const char* method : {"GET", "HEAD"}) {
      const HttpAnswer answer = ask(site, {.method = method, .path = "/", .if_none_match = tags});
      EXPECT_EQ(answer.status, 304u) << tags;
      EXPECT_EQ(answer.body, "");
      EXPECT_LT(answer.file.descriptor, 0);
      EXPECT_EQ(header_of(answer, "etag"), tag);
      EXPECT_EQ(header_of(answer, "cache-control"), "no-cache");
      EXPECT_EQ(header_of(answer, "vary"), "accept-encoding, origin");
    }
  }
  EXPECT_EQ(open_descriptors(), before);
  const std::string bare = tag.substr(1, tag.size() - 2);
  const std::string unknown[] = {
      "\"other\"", bare, "\"" + bare, "\"x" + bare + "\"", "w/" + tag, "\"a, " + bare + "\"", "broken, " + tag,
      "*, \"a\"",  "\"", ",, ,"};
  for (const std::string& tags : unknown) EXPECT_EQ(served(site, {.path = "/", .if_none_match = tags}), "page") << tags;

  EXPECT_EQ(ask(site, {.path = "/nothing", .if_none_match = "*"}).status, 404u);
}

TEST(PageFiles, HaveATagOfTheirVersionAndEncoding) {
  const Site site;
  const auto tag_of = [&](const HttpRequest& request) {
    HttpAnswer answer = ask(site, request);
    content_of(answer);
    return header_of(answer, "etag");
  };
  const std::string plain = tag_of({.path = script});
  const std::string compressed = tag_of({.path = script, .accept_encoding = "gzip"});
  EXPECT_NE(plain, compressed);
  EXPECT_EQ(plain, tag_of({.path = script}));
  EXPECT_EQ(ask(site, {.path = script, .accept_encoding = "gzip", .if_none_match = compressed}).status, 304u);
  EXPECT_EQ(served(site, {.path = script, .accept_encoding = "gzip", .if_none_match = plain}), "compressed");
  EXPECT_EQ(served(site, {.path = script, .if_none_match = compressed}), "script");

  // The same length but another modification time, compared to the nanosecond.
  const fs::path file = site.folder / "web/index.html";
  const timespec times[2] = {{.tv_sec = 1'700'000'000, .tv_nsec = 5}, {.tv_sec = 1'700'000'000, .tv_nsec = 5}};
  ASSERT_EQ(utimensat(AT_FDCWD, file.c_str(), times, 0), 0);
  const std::string early = tag_of({.path = "/"});
  const timespec later[2] = {times[0], {.tv_sec = 1'700'000'000, .tv_nsec = 6}};
  ASSERT_EQ(utimensat(AT_FDCWD, file.c_str(), later, 0), 0);
  EXPECT_NE(tag_of({.path = "/"}), early);
  site.write("web/index.html", "longer page");
  ASSERT_EQ(utimensat(AT_FDCWD, file.c_str(), times, 0), 0);
  EXPECT_NE(tag_of({.path = "/"}), early);
}

}  // namespace
