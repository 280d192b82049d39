// Reading XMLTV: what is taken, times, and files that are wrong or hostile.
#include "rooms/guide/xmltv.h"

#include <fcntl.h>
#include <unistd.h>

#include <fstream>

#include "tests/unit/tv/support.h"

namespace {

struct Read {
  XmltvEnd end = XmltvEnd::kFailed;
  std::string error;
  std::vector<XmltvChannel> channels;
  std::vector<XmltvProgramme> programmes;
  std::uint64_t bytes = 0;
};

Read read(const std::string& content, std::size_t most = 100) {
  const TvFolder folder;
  const std::string path = folder.path + "/guide.xml";
  std::ofstream(path, std::ios::binary) << content;
  const int file = open(path.c_str(), O_RDONLY | O_CLOEXEC);
  Read result;
  const XmltvUser user = {.channel = [&](const XmltvChannel& channel) { result.channels.push_back(channel); },
                          .programme =
                              [&](const XmltvProgramme& programme) {
                                result.programmes.push_back(programme);
                                return result.programmes.size() < most;
                              },
                          .read =
                              [&](std::uint64_t bytes) {
                                result.bytes = bytes;
                                return true;
                              }};
  result.end = xmltv_read(file, "deu", user, result.error);
  close(file);
  return result;
}

TEST(GuideXmltv, ReadsChannelsAndProgrammes) {
  const Read result = read(R"(<?xml version="1.0" encoding="UTF-8"?>
<!DOCTYPE tv SYSTEM "xmltv.dtd">
<tv generator-info-name="test">
  <channel id="a&amp;b"><display-name>One</display-name><display-name lang="en"> 1 </display-name><icon src="x"/></channel>
  <programme start="20270115080000 +0100" stop="20270115090000 +0100" channel="a&amp;b">
    <title lang="en">News &amp; weather</title><title lang="de">Nachrichten</title>
    <sub-title>Sub</sub-title><desc><![CDATA[A <b> text]]></desc>
    <credits><actor>Somebody</actor></credits>
    <category>News</category><category>unheard of</category><category>Weather</category>
    <episode-num system="xmltv_ns">1.2.</episode-num><episode-num system="dd_progid">EP0100.0002</episode-num>
    <subtitles type="teletext"/><rating system="FSK"><value>12</value></rating>
    <star-rating><value>3/5</value></star-rating>
  </programme>
</tv>)");
  EXPECT_EQ(result.end, XmltvEnd::kWhole) << result.error;
  ASSERT_EQ(result.channels.size(), 1u);
  EXPECT_EQ(result.channels[0].id, "a&b");
  EXPECT_EQ(result.channels[0].names, (std::vector<std::string>{"One", "1"}));
  ASSERT_EQ(result.programmes.size(), 1u);
  const XmltvProgramme& programme = result.programmes[0];
  EXPECT_EQ(programme.line, 5);
  EXPECT_EQ(programme.channel, "a&b");
  EXPECT_EQ(programme.start, "20270115080000 +0100");
  EXPECT_EQ(programme.stop, "20270115090000 +0100");
  EXPECT_EQ(programme.title, "Nachrichten");
  EXPECT_EQ(programme.summary, "Sub");
  EXPECT_EQ(programme.details, "A <b> text");
  EXPECT_EQ(programme.series, "EP0100");
  EXPECT_EQ(programme.categories, (std::vector<std::uint8_t>{0x20, 0, 0x21}));
  EXPECT_EQ(programme.age, 12);
  EXPECT_TRUE(programme.captions);
}

TEST(GuideXmltv, TimesWithAndWithoutOffset) {
  constexpr std::int64_t kEight = 1'800'000'000;  // 2027-01-15 08:00 UTC
  EXPECT_EQ(xmltv_time("20270115080000 +0000"), kEight);
  EXPECT_EQ(xmltv_time("20270115080000"), kEight);
  EXPECT_EQ(xmltv_time("202701150800"), kEight);
  EXPECT_EQ(xmltv_time("20270115080000 UTC"), kEight);
  EXPECT_EQ(xmltv_time("20270115080000Z"), kEight);
  EXPECT_EQ(xmltv_time("20270115090000 +0100"), kEight);
  EXPECT_EQ(xmltv_time("20270115023000 -0530"), kEight);
  EXPECT_EQ(xmltv_time("20280229000000"), kEight + (410 * 24 - 8) * 3600);
  for (const char* const wrong : {"", "2027", "20270229000000", "20271301000000", "20270115240000", "20270115006000",
                                  "20270115080000 CET", "20270115080000 +01", "20270115080000 +2500", "tomorrow",
                                  "20270115080000 +0100 ", "-20270115080000", "99999999999999999999"}) {
    if (std::string(wrong).ends_with(' ')) {
      EXPECT_TRUE(xmltv_time(wrong)) << "blanks around are accepted";
    } else {
      EXPECT_FALSE(xmltv_time(wrong)) << wrong;
    }
  }
}

TEST(GuideXmltv, ErrorsNameTheLine) {
  const Read cut = read("<tv>\n<channel id='a'>\n</tv>");
  EXPECT_EQ(cut.end, XmltvEnd::kFailed);
  expect_words(cut.error, {"line 3", "channel"});
  const Read other = read("<html></html>");
  EXPECT_EQ(other.end, XmltvEnd::kFailed);
  expect_words(other.error, {"XMLTV"});
  EXPECT_EQ(read("").end, XmltvEnd::kFailed);
  EXPECT_EQ(read("no markup").end, XmltvEnd::kFailed);
  EXPECT_EQ(read(std::string("<tv>\0</tv>", 10)).end, XmltvEnd::kFailed);
  EXPECT_EQ(read("<tv><programme><title>\xFF\xFE</title></programme></tv>").end, XmltvEnd::kFailed);
}

TEST(GuideXmltv, EntitiesAreRefused) {
  std::string bomb = "<!DOCTYPE tv [\n<!ENTITY a0 \"boom\">\n";
  for (int i = 1; i < 12; ++i) {
    bomb += "<!ENTITY a" + std::to_string(i) + " \"";
    for (int j = 0; j < 10; ++j) bomb += "&a" + std::to_string(i - 1) + ";";
    bomb += "\">\n";
  }
  const Read result = read(bomb + "]><tv><programme><title>&a11;</title></programme></tv>");
  EXPECT_EQ(result.end, XmltvEnd::kFailed);
  expect_words(result.error, {"line 2", "entity"});
  EXPECT_TRUE(result.programmes.empty());
  const Read outside = read(
      "<!DOCTYPE tv [<!ENTITY f SYSTEM \"file:///etc/passwd\">]><tv><programme><title>&f;</title>"
      "</programme></tv>");
  EXPECT_EQ(outside.end, XmltvEnd::kFailed);
  expect_words(outside.error, {"entity"});
}

TEST(GuideXmltv, LongTextsManyNamesAndDeepElementsAreBounded) {
  std::string names, deep;
  for (int i = 0; i < 100; ++i) names += "<display-name>n</display-name>";
  const Read result =
      read("<tv><channel id='" + std::string(100000, 'i') + "'>" + names + "</channel><programme><title>" +
           std::string(5'000'000, 't') + "</title><desc>" + std::string(5'000'000, 'd') + "</desc></programme></tv>");
  EXPECT_EQ(result.end, XmltvEnd::kWhole) << result.error;
  ASSERT_EQ(result.channels.size(), 1u);
  EXPECT_EQ(result.channels[0].id.size(), kLongestXmltvName);
  EXPECT_EQ(result.channels[0].names.size(), kMostXmltvNames);
  ASSERT_EQ(result.programmes.size(), 1u);
  EXPECT_EQ(result.programmes[0].title.size(), 255u);
  EXPECT_EQ(result.programmes[0].details.size(), 4095u);
  for (int i = 0; i < 100000; ++i) deep += "<a>";
  EXPECT_EQ(read("<tv>" + deep).end, XmltvEnd::kFailed);
}

TEST(GuideXmltv, UserCanEndTheReading) {
  const Read result = read("<tv><programme/><programme/><programme/></tv>", 2);
  EXPECT_EQ(result.end, XmltvEnd::kStopped);
  EXPECT_EQ(result.programmes.size(), 2u);
}

TEST(GuideXmltv, OtherCharacterSetsBecomeUtf8) {
  const Read result =
      read("<?xml version='1.0' encoding='ISO-8859-1'?><tv><programme><title>M\xE4rz</title></programme></tv>");
  EXPECT_EQ(result.end, XmltvEnd::kWhole) << result.error;
  ASSERT_EQ(result.programmes.size(), 1u);
  EXPECT_EQ(result.programmes[0].title, "M\xC3\xA4rz");
}

}  // namespace
