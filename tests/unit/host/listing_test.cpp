// GET /list.json: its route, its tags, and the form that a client gets.
#include "listing.h"

#include <gtest/gtest.h>

namespace {

constexpr std::string_view kText = R"({"uris":[{"uri":"/tv/cast/volume/volume"}]})";

HttpAnswer ask(const Listing& listing, const std::string& accepted, const std::string& if_none_match = "") {
  return listing_answer({.method = "GET",
                         .path = std::string(kHttpListPath),
                         .accept_encoding = accepted,
                         .if_none_match = if_none_match},
                        listing);
}

bool is_gzip(const HttpAnswer& answer) { return answer.more.find("content-encoding: gzip\r\n") != std::string::npos; }

TEST(HostListing, IsReadByGetAndHeadOnly) {
  const Catalogue none;
  for (const char* method : {"GET", "HEAD", "PUT", "POST"}) {
    HttpAnswer answer;
    Call call;
    const bool reads = std::string_view(method) == "GET" || std::string_view(method) == "HEAD";
    EXPECT_EQ(http_route({.method = method, .path = std::string(kHttpListPath)}, none, "", answer, call),
              reads ? HttpRoute::kList : HttpRoute::kAnswer)
        << method;
    EXPECT_EQ(answer.status, reads ? 0U : 405U) << method;
  }
  EXPECT_FALSE(http_is_page(kHttpListPath, none));
}

TEST(HostListing, IsCompressedForWhoTakesThat) {
  const Listing listing = listing_make(kText);
  EXPECT_TRUE(is_gzip(ask(listing, "gzip")));
  EXPECT_TRUE(ask(listing, "gzip").body.starts_with("\x1f\x8b"));
  EXPECT_FALSE(is_gzip(ask(listing, "br")));
  EXPECT_EQ(ask(listing, "br").body, kText);
}

TEST(HostListing, GoesUncompressedToAllIfItCouldNotBeCompressed) {
  Listing listing = listing_make(kText);
  listing.compressed.clear();
  EXPECT_FALSE(is_gzip(ask(listing, "gzip")));
  EXPECT_EQ(ask(listing, "gzip").body, kText);
}

TEST(HostListing, TheTagFollowsFromTheText) {
  const Listing listing = listing_make(kText);
  EXPECT_EQ(listing.tag, listing_make(kText).tag);
  EXPECT_NE(listing.tag, listing_make(R"({"uris":[{"uri":"/tv/cast/volume/volumf"}]})").tag);
  EXPECT_EQ(ask(listing, "", "\"" + listing.tag + "\"").status, 304U);
  EXPECT_EQ(ask(listing, "gzip", "\"" + listing.tag + "\"").status, 200U);
  EXPECT_EQ(ask(listing, "gzip", "\"" + listing.tag + "-gz\"").status, 304U);
  EXPECT_EQ(ask(listing, "gzip", "*").body, "");
}

}  // namespace
