// Descriptions of items: facts, hostile texts, times.
#include "rooms/renderer/item.h"

#include "rooms/renderer/renderer_test.h"

namespace {

std::string with_title(const std::string& title) {
  return "<DIDL-Lite xmlns:dc=\"d\"><item><dc:title>" + title + "</dc:title></item></DIDL-Lite>";
}

TEST(RendererItem, TakesTheResourceThatHasTheAddress) {
  const Item item = item_read(kFilm, kFilmDescription);
  EXPECT_EQ(item.protocol_info, kFilmProtocol);
  EXPECT_EQ(item.bytes, 3'000'000'000);
  EXPECT_DOUBLE_EQ(item.duration, 3723.5);
  EXPECT_EQ(item.resolution, "1920x1080");
  EXPECT_EQ(item.kind, DLNA_MEDIA_VIDEO);
  EXPECT_EQ(item_read("http://127.0.0.1/other", kFilmDescription).protocol_info, "http-get:*:image/jpeg:*");
}

TEST(RendererItem, HasTheFilesNameWithoutADescription) {
  const Item item = item_read("http://127.0.0.1:9/a/One%20night.final.MKV?x=1#t", "");
  EXPECT_EQ(item.title, "One night.final.MKV");
  EXPECT_EQ(item.extension, "MKV");
  EXPECT_EQ(item.kind, 0);
  EXPECT_EQ(item.metadata, "");
  EXPECT_EQ(item_read("http://127.0.0.1:9/%00%0A%zz", "").title, "%zz");
}

TEST(RendererItem, TakesTheExtensionFromTheMediaType) {
  const std::string description =
      "<DIDL-Lite><item><res protocolInfo=\"http-get:*:Audio/MPEG;rate=1:*\">x</res></item></DIDL-Lite>";
  EXPECT_EQ(item_read("http://127.0.0.1/play", description).extension, "mp3");
  EXPECT_EQ(item_read("http://127.0.0.1/play", description).kind, DLNA_MEDIA_MUSIC);
}

TEST(RendererItem, KeepsADescriptionOnlyIfItIsWellFormed) {
  EXPECT_EQ(item_read(kFilm, with_title("a")).metadata, with_title("a"));
  for (const std::string& broken :
       {std::string("no XML"), with_title("a") + "<", with_title("<b>"), with_title("\xFF\xFE"),
        with_title(std::string(1, '\0')), with_title("&undefined;")})
    EXPECT_EQ(item_read(kFilm, broken).metadata, "") << broken;
}

TEST(RendererItem, RefusesADocumentType) {
  const std::string bomb =
      "<!DOCTYPE d [<!ENTITY a \"aaaaaaaaaa\"><!ENTITY b \"&a;&a;&a;&a;&a;&a;&a;&a;\">]>" + with_title("&b;");
  const Item item = item_read(kFilm, bomb);
  EXPECT_EQ(item.title, "One night.mp4");
  EXPECT_EQ(item.metadata, "");
  EXPECT_FALSE(xml_read("<!DOCTYPE d SYSTEM \"file:///etc/passwd\"><d/>",
                        {.begin = [](int, std::string_view, const XmlAttributes&) { FAIL(); },
                         .end = [](int, std::string_view, const std::string&) { FAIL(); }}));
}

TEST(RendererItem, RefusesElementsThatAreTooDeep) {
  const auto nested = [](int depth) {
    std::string text;
    for (int i = 0; i < depth; ++i) text += "<a>";
    for (int i = 0; i < depth; ++i) text += "</a>";
    return text;
  };
  EXPECT_EQ(item_read(kFilm, nested(kDeepestXml)).metadata, nested(kDeepestXml));
  EXPECT_EQ(item_read(kFilm, nested(kDeepestXml + 1)).metadata, "");
  EXPECT_EQ(item_read(kFilm, nested(2000)).metadata, "");
}

TEST(RendererItem, CutsLongFactsAndIgnoresLongDescriptions) {
  EXPECT_EQ(item_read(kFilm, with_title(std::string(1000, 'x'))).title, std::string(kLongestItemText, 'x'));
  const std::string huge = with_title(std::string(8'000'000, 'x'));
  EXPECT_EQ(item_read(kFilm, huge).title, "One night.mp4");
}

TEST(RendererItem, TakesFactsThatAreNumbersOnlyIfTheyAre) {
  const auto with = [](const std::string& attributes) {
    return item_read(kFilm, "<DIDL-Lite><item><res " + attributes + ">x</res></item></DIDL-Lite>");
  };
  EXPECT_EQ(with("size=\"-5\"").bytes, 0);
  EXPECT_EQ(with("size=\"99999999999999999999\"").bytes, 0);
  EXPECT_EQ(with("size=\"12x\"").bytes, 0);
  EXPECT_EQ(with("duration=\"1:99:00\"").duration, 0);
}

TEST(RendererItem, ReadsAndWritesTimes) {
  EXPECT_DOUBLE_EQ(read_clock("0:00:00").value(), 0);
  EXPECT_DOUBLE_EQ(read_clock("00:01:02.250").value(), 62.25);
  EXPECT_DOUBLE_EQ(read_clock("999:59:59").value(), 999 * 3600 + 59 * 60 + 59);
  for (const char* const text : {"", ":", "::", "1:2", "1000:00:00", "0:60:00", "0:00:60", "-1:00:00", "0:-1:00",
                                 "0:00:1e1", "0:00:00.", "0:00:00.1234567", "a:bb:cc", "0:00:00:00", "NOT_IMPLEMENTED"})
    EXPECT_FALSE(read_clock(text).has_value()) << text;
  EXPECT_EQ(write_clock(0), "0:00:00");
  EXPECT_EQ(write_clock(3723.9), "1:02:03");
  EXPECT_EQ(write_clock(-5), "0:00:00");
  EXPECT_EQ(write_clock(1e300), "999:00:00");
}

TEST(RendererItem, ReadsTheMediaTypeOfAProtocolInformation) {
  EXPECT_EQ(item_media_type("http-get:*:video/MP4;codecs=x:DLNA.ORG_OP=01"), "video/mp4");
  EXPECT_EQ(item_media_type("http-get:*:*:*"), "");
  for (const char* const text : {"", "video/mp4", "a:b:c", ":::"}) EXPECT_EQ(item_media_type(text), "") << text;
}

}  // namespace
