// Which requests the host accepts.
#include "policy.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

Policy loopback() { return {.address = "127.0.0.1", .port = 8080, .allowed_origins = {"http://localhost:5173"}}; }

TEST(Policy, TheHostMustBeThisServer) {
  const Policy policy = loopback();
  for (const char* host : {"127.0.0.1:8080", "localhost:8080", "LocalHost:8080", "[::1]:8080"})
    EXPECT_EQ(policy_refuses(policy, host, ""), "") << host;
  for (const char* host :
       {"", "127.0.0.1", "localhost", "127.0.0.1:80", "127.0.0.1:8081", "evil.example:8080",
        "127.0.0.1.evil.example:8080", "localhost.evil.example:8080", "127.0.0.1:8080:8080", "[::1:8080",
        "127.0.0.1:", ":8080", "127.0.0.2:8080", "127.0.0.1:8080 ", "user@localhost:8080"})
    EXPECT_NE(policy_refuses(policy, host, ""), "") << host;
}

TEST(Policy, WithoutAPortTheHostMeansPort80) {
  Policy policy = loopback();
  policy.port = 80;
  EXPECT_EQ(policy_refuses(policy, "localhost", ""), "");
  EXPECT_EQ(policy_refuses(policy, "localhost:80", ""), "");
}

TEST(Policy, AnotherAddressIsItsOwnName) {
  const Policy policy{.address = "192.168.1.5", .port = 8080, .allowed_origins = {}};
  EXPECT_EQ(policy_refuses(policy, "192.168.1.5:8080", ""), "");
  EXPECT_NE(policy_refuses(policy, "localhost:8080", ""), "");
  const Policy v6{.address = "::1", .port = 8080, .allowed_origins = {}};
  EXPECT_EQ(policy_refuses(v6, "[::1]:8080", "http://[::1]:8080"), "");
}

TEST(Policy, OnAllAddressesOnlyNamesAreRefused) {
  const Policy policy{.address = "0.0.0.0", .port = 8080, .allowed_origins = {}};
  EXPECT_EQ(policy_refuses(policy, "192.168.1.5:8080", ""), "");
  EXPECT_EQ(policy_refuses(policy, "[fe80::1]:8080", ""), "");
  EXPECT_EQ(policy_refuses(policy, "localhost:8080", ""), "");
  EXPECT_NE(policy_refuses(policy, "evil.example:8080", ""), "");
}

TEST(Policy, TheOriginMustBeTheSameOrAllowed) {
  const Policy policy = loopback();
  EXPECT_EQ(policy_refuses(policy, "127.0.0.1:8080", "http://127.0.0.1:8080"), "");
  EXPECT_EQ(policy_refuses(policy, "localhost:8080", "http://localhost:8080"), "");
  EXPECT_EQ(policy_refuses(policy, "127.0.0.1:8080", "http://localhost:5173"), "");
  for (const char* origin :
       {"null", "http://localhost:8080", "https://127.0.0.1:8080", "http://127.0.0.1:80801", "http://127.0.0.1",
        "http://evil.example", "http://localhost:5173.evil.example", "http://LOCALHOST:5173"})
    EXPECT_NE(policy_refuses(policy, "127.0.0.1:8080", origin), "") << origin;
  EXPECT_TRUE(policy_is_foreign(policy, "http://localhost:5173"));
  EXPECT_FALSE(policy_is_foreign(policy, "http://127.0.0.1:8080"));
}

TEST(Policy, ARefusalSaysWhatWouldHelp) {
  EXPECT_NE(policy_refuses(loopback(), "evil.example:8080", "").find("http://127.0.0.1:8080/"), std::string::npos);
  EXPECT_NE(policy_refuses(loopback(), "localhost:8080", "http://a.example").find("--allow-origin http://a.example"),
            std::string::npos);
}

TEST(Policy, AllowsOriginsAsBrowsersWriteThem) {
  struct Row {
    const char* text;
    const char* origin;
  };
  constexpr Row rows[] = {{"http://localhost:5173", "http://localhost:5173"},
                          {"http://localhost:5173/", "http://localhost:5173"},
                          {"HTTP://LocalHost:5173", "http://localhost:5173"},
                          {"http://a.example:80", "http://a.example"},
                          {"https://a.example:443/", "https://a.example"},
                          {"https://a.example:80", "https://a.example:80"},
                          {"http://a.example", "http://a.example"},
                          {"http://[::1]", "http://[::1]"},
                          {"http://[::1]:80", "http://[::1]"},
                          {"chrome-extension://abc", "chrome-extension://abc"}};
  for (const Row& row : rows) {
    Policy policy{};
    std::string error;
    EXPECT_TRUE(policy_allow_origin(row.text, policy, error)) << row.text << ": " << error;
    ASSERT_EQ(policy.allowed_origins.size(), 1u) << row.text;
    EXPECT_TRUE(policy_is_foreign(policy, row.origin)) << row.text << ": " << policy.allowed_origins[0];
  }
  for (const char* text : {"", "/", "foo", "null", "*", "localhost:5173", "http:", "http://", "http:///", "://a",
                           "http://a/b", "http://a//", "http://a?b", "http://u@a", "http://a:", "http://a:x",
                           "http://a:65536", "http://*.a", "http://a b"}) {
    Policy policy{};
    std::string error;
    EXPECT_FALSE(policy_allow_origin(text, policy, error)) << text;
    EXPECT_NE(error.find("http://localhost:5173"), std::string::npos) << "the message shows an example";
    EXPECT_TRUE(policy.allowed_origins.empty()) << "untouched";
  }
}

TEST(Policy, ReadsWhereToListen) {
  struct Row {
    const char* text;
    const char* address;
    int port;
  };
  constexpr Row rows[] = {
      {"127.0.0.1:9000", "127.0.0.1", 9000}, {"9000", "127.0.0.1", 9000},   {":0", "127.0.0.1", 0},
      {"localhost:1", "127.0.0.1", 1},       {"[::1]:65535", "::1", 65535}, {"0.0.0.0:80", "0.0.0.0", 80}};
  for (const Row& row : rows) {
    Policy policy{};
    std::string error;
    EXPECT_TRUE(policy_read_listen(row.text, policy, error)) << row.text << ": " << error;
    EXPECT_EQ(policy.address, row.address) << row.text;
    EXPECT_EQ(policy.port, row.port) << row.text;
  }
  for (const char* text :
       {"", "65536", "127.0.0.1", "127.0.0.1:", "127.0.0.1:x", "127.0.0.1:-1", "[::1", "name:80", "[::1]80"}) {
    Policy policy = loopback();
    std::string error;
    EXPECT_FALSE(policy_read_listen(text, policy, error)) << text;
    EXPECT_FALSE(error.empty());
    EXPECT_EQ(policy.port, 8080) << "untouched";
  }
}

TEST(Policy, PagesOfOtherSitesAreToldByWhatBrowsersSay) {
  for (const char* site : {"cross-site", "same-site"}) {
    EXPECT_TRUE(policy_is_cross_site("", site, false)) << site;
    EXPECT_FALSE(policy_is_cross_site("", site, true)) << "a link to the page";
    EXPECT_FALSE(policy_is_cross_site("http://localhost:5173", site, false)) << "the origin decides";
  }
  for (const char* site : {"", "none", "same-origin"}) EXPECT_FALSE(policy_is_cross_site("", site, false)) << site;
}

TEST(Policy, TheTokenIsShownWhole) {
  const std::string token(64, 'a');
  EXPECT_TRUE(policy_is_token(token, token));
  EXPECT_FALSE(policy_is_token("", ""));
  EXPECT_FALSE(policy_is_token("", token));
  EXPECT_FALSE(policy_is_token(token.substr(1), token));
  EXPECT_FALSE(policy_is_token(token + "a", token));
  EXPECT_FALSE(policy_is_token(std::string(63, 'a') + "b", token));
  EXPECT_TRUE(policy_shows_token("Bearer " + token, token));
  EXPECT_TRUE(policy_shows_token("bearer " + token, token));
  for (const std::string& header :
       std::vector<std::string>{token, "Basic " + token, "Bearer", "Bearer " + token + " ", "Bearer  " + token})
    EXPECT_FALSE(policy_shows_token(header, token)) << header;
}

}  // namespace
