// Importing guides, and the command "guide".
#include <sys/stat.h>

#include "rooms/guide/guide_test.h"

namespace {

constexpr UINT32 kOne = guide_channel(1), kTwo = guide_channel(2), kThree = guide_channel(3);

struct GuideImport : GuideSet {
  GuideImport() { import_channels({"One", "Two HD", "Three"}); }
};

TEST_F(GuideImport, MatchesChannelsByNameNumberAndTheViewersWord) {
  expect_words(tv_control(R"(["guide","map","other.tv","3"])"), {R"("other.tv":3)"});
  const std::string answer =
      import_guide(xmltv_channel("a", "oNe") + xmltv_channel("b", "2") + xmltv_channel("other.tv", "Something") +
                   xmltv_channel("c", "Unknown") + titled("a", 0, 10, "A") + titled("b", 0, 10, "B") +
                   titled("other.tv", 0, 10, "C") + titled("c", 0, 10, "D") + titled("undeclared", 0, 10, "E"));
  expect_words(answer, {R"("events":3,)", R"("matched":3,"unmatched":2,)",
                        R"x("unmatched_channels":["c (Unknown)","undeclared"])x", R"("state":"done")"});
  EXPECT_EQ(range(kOne, 0, 60), "A 0-10");
  EXPECT_EQ(range(kTwo, 0, 60), "B 0-10");
  EXPECT_EQ(range(kThree, 0, 60), "C 0-10");
  EXPECT_EQ(tv_control(R"(["guide","map","other.tv","none"])"), R"({"map":{}})");
  expect_words(tv_control(R"(["guide","map","x","99"])"), {"error", "99"});
}

TEST_F(GuideImport, ImportedAgainEventsKeepTheirIdentifiersAndOldOnesGo) {
  import_guide(xmltv_channel("a", "One") + xmltv_channel("b", "Two HD") + titled("a", 0, 30, "News") +
               titled("a", 30, 60, "Gone") + titled("a", 60, 90, "Film") + titled("a", 600, 630, "Later") +
               titled("b", 0, 30, "Kept"));
  UINT16 before[10] = {}, after[10] = {}, count = 10, again = 10;
  const auto all = [](UINT16& number, UINT16* ids) {
    EXPECT_EQ(a_vextvapi_event_query_event_id_by_range(kOne, kGuideNow, 36000, &number, ids), 0);
  };
  all(count, before);
  ASSERT_EQ(count, 3);
  import_guide(xmltv_channel("a", "One") + titled("a", 0, 30, "News, new") + titled("a", 30, 45, "Half") +
               titled("a", 60, 90, "Film"));
  all(again, after);
  ASSERT_EQ(again, 3);
  EXPECT_EQ(before[0], after[0]);
  EXPECT_EQ(before[2], after[2]);
  EXPECT_EQ(range(kOne, 0, 601), "News, new 0-30, Half 30-45, Film 60-90, Later 600-630")
      << "events outside of the time that the file covers stay";
  EXPECT_EQ(range(kTwo, 0, 60), "Kept 0-30") << "and so do those of other channels";
  import_guide(xmltv_channel("a", "One") + titled("a", 20, 95, "Instead"));
  EXPECT_EQ(range(kOne, 0, 600), "Instead 20-95");
}

TEST_F(GuideImport, MissingStopIsTheNextEventsStart) {
  import_guide(xmltv_channel("a", "One") + titled("a", 0, 0, "News") + titled("a", 25, 25, "Film") +
               titled("a", 100, 110, "Late") + titled("a", 200, 200, "Last"));
  EXPECT_EQ(range(kOne, 0, 600), "News 0-25, Film 25-100, Late 100-110, Last 200-230");
}

TEST_F(GuideImport, FailedImportChangesNothing) {
  import_guide(xmltv_channel("a", "One") + titled("a", 0, 30, "News"));
  const std::string answer = import_guide(xmltv_channel("a", "One") + titled("a", 0, 30, "Other") +
                                          titled("a", 30, 60, "More") + "<programme>");
  expect_words(answer, {R"("events":1,)", R"("state":"failed")", "line 6"});
  EXPECT_EQ(range(kOne, 0, 600), "News 0-30");
  const std::string path = write_file("bomb.xml", "<!DOCTYPE tv [<!ENTITY a \"b\">]><tv>&a;</tv>");
  tv_control(R"(["guide","import",")" + path + "\"]");
  expect_words(after_import(), {R"("state":"failed")", "line 1", "entity"});
  EXPECT_EQ(range(kOne, 0, 600), "News 0-30");
}

TEST_F(GuideImport, UnusableProgrammesAreNamedWithTheirLines) {
  const std::string answer = import_guide(
      xmltv_channel("a", "One") + "<programme channel=\"a\" start=\"tomorrow\"/>\n<programme channel=\"a\" start=\"" +
      guide_time(5) + "\" stop=\"" + guide_time(1) + "\"/>\n" + titled("a", 0, 24 * 60 + 1, "Endless") +
      titled("a", -3000, -2900, "Past") + titled("a", 90 * 24 * 60, 90 * 24 * 60 + 5, "Far") +
      titled("a", 0, 30, "News"));
  expect_words(answer, {R"("past":2,)", R"("unusable":3,)", "line 4: the start tomorrow", "line 5: the event", "line 6",
                        R"("state":"done")"});
  EXPECT_EQ(range(kOne, -6000, 90 * 24 * 60 + 6010), "News 0-30");
}

TEST_F(GuideImport, OnlyFilesOfTheViewersFolderAreRead) {
  const auto import = [](const std::string& path) { return tv_control(R"(["guide","import",")" + path + "\"]"); };
  expect_words(import("/etc/passwd"), {"error", folder.path});
  expect_words(import("guide.xml"), {"error", "absolute"});
  expect_words(import(folder.path + "/none.xml"), {"error", "none.xml"});
  expect_words(import(folder.path), {"error", "regular file"});
  ASSERT_EQ(mkfifo((folder.path + "/fifo").c_str(), 0600), 0);
  expect_words(import(folder.path + "/fifo"), {"error", "regular file"});
  std::filesystem::create_symlink("/etc/passwd", folder.path + "/link");
  expect_words(import(folder.path + "/link"), {"error", "only files in"});
}

TEST_F(GuideImport, CancelledImportChangesNothing) {
  import_guide(xmltv_channel("a", "One") + titled("a", 0, 30, "News"));
  std::string content = "<tv>" + xmltv_channel("a", "One");
  for (int i = 0; i < 60000; ++i) content += titled("a", i, i + 1, "Minute");
  const std::string path = write_file("long.xml", content + "</tv>");
  expect_words(tv_control(R"(["guide","import",")" + path + "\"]"),
               {R"("state":"running","percent":)", R"("seconds":)",
                R"("watch":{"words":["guide"],"member":"import","cancel":["guide","import","cancel"],)"});
  expect_words(tv_control(R"(["guide","import",")" + path + "\"]"), {"error", "running", "cancel"});
  expect_words(tv_control(R"(["guide","clear"])"), {"error", "running"});
  expect_words(tv_control(R"(["guide","import","cancel"])"), {R"("state":"cancelled")", R"("events":1,)"});
  EXPECT_EQ(range(kOne, 0, 600), "News 0-30");
  expect_words(tv_control(R"(["guide","import",")" + path + "\"]"), {R"("state":"running")"});
  dtv_tv_stop();  // ends the import as well
  ASSERT_EQ(tv_start(folder.path), "");
  EXPECT_EQ(range(kOne, 0, 600), "News 0-30");
}

TEST_F(GuideImport, TwentyThousandEvents) {
  constexpr int kChannels = 100, kEvents = 200;
  std::vector<std::string> names;
  std::string channels, programmes;
  for (int channel = 0; channel < kChannels; ++channel) {
    names.push_back("Channel " + std::to_string(channel));
    channels += xmltv_channel(std::to_string(channel) + ".tv", names.back());
    for (int i = 0; i < kEvents; ++i)
      programmes += titled(std::to_string(channel) + ".tv", i * 30 - 60, i * 30 - 30, "Event " + std::to_string(i));
  }
  import_channels(names);
  expect_words(import_guide(channels + programmes), {R"({"events":20000,)", R"("matched":100,"unmatched":0)"});
  for (UINT32 number = 1; number <= kChannels; ++number) {
    const UINT32 channel = guide_channel(number);
    EXPECT_EQ(shown(channel, near(channel, VEXTVAPI_EVENT_PRESENT)), "Event 2 0-30");
    EXPECT_EQ(shown(channel, near(channel, VEXTVAPI_EVENT_FOLLOWING)), "Event 3 30-60");
  }
  std::vector<UINT16> ids(UINT16_MAX);
  std::vector<UINT32> channel_ids(UINT16_MAX);
  const VEXTVAPI_EVENT_FILTER_T everything{};
  UINT16 count = UINT16_MAX;
  EXPECT_EQ(a_vextvapi_event_query_event_id_by_filter(0, &everything, &count, ids.data(), channel_ids.data()), 0);
  EXPECT_EQ(count, 20000);
}

TEST_F(GuideImport, CommandsShowEvents) {
  import_guide(xmltv_channel("a", "One") + xmltv_channel("b", "Two HD") +
               programme("a", 0, 30, "<title>News</title><sub-title>Short</sub-title><category>news</category>") +
               titled("a", 30, 60, "Film") + titled("b", 15, 45, "New Match"));
  const std::string id = std::to_string(near(kOne, VEXTVAPI_EVENT_PRESENT));
  const std::string news =
      R"({"id":)" + id + R"(,"start":"2027-01-15T08:00:00Z","seconds":1800,"title":"News","category":32})";
  expect_words(tv_control(R"(["guide","1"])"),
               {R"({"number":1,"id":)" + std::to_string(kOne) + R"(,"name":"One","now":)" + news, R"("next":{"id":)"});
  expect_words(tv_control(R"(["guide","3"])"), {R"("now":null,"next":null})"});
  expect_words(tv_control(R"(["guide","now"])"), {R"("page":1,"pages":1)", R"("name":"Three")", news});
  expect_words(tv_control(R"(["guide","now","2"])"), {"error", "1 to 1"});
  // The local day in Berlin begins at 23:00 UTC, nine hours before kGuideNow.
  expect_words(tv_control(R"(["guide","1","0"])"),
               {R"("from":"2027-01-14T23:00:00Z","to":"2027-01-15T23:00:00Z")", news, "Film"});
  expect_words(tv_control(R"(["guide","1","1"])"), {R"("from":"2027-01-15T23:00:00Z")", R"("events":[])"});
  expect_words(tv_control(R"(["guide","1","63"])"), {"error", "62"});
  const std::string range = tv_control(R"(["guide","range","1","2","0","1"])");
  expect_words(range, {R"("from":"2027-01-15T08:00:00Z","to":"2027-01-15T09:00:00Z")", news, "Film", "New Match"});
  EXPECT_EQ(range.find("Three"), std::string::npos);
  expect_words(tv_control(R"(["guide","range","1","2","1","1"])"), {"error"});
  expect_words(tv_control(R"(["guide","range","1","2","0","25"])"), {"error", "24"});
  expect_words(tv_control(R"(["guide","event","1",")" + id + "\"]"),
               {R"("summary":"Short","details":"","categories":[32],"age":0,"series":"News","blocked":false)"});
  expect_words(tv_control(R"(["guide","event","1","4711"])"), {"error", "4711"});
  const std::string found = tv_control(R"(["guide","search","nEW"])");
  expect_words(found, {R"("title":"News")", R"("title":"New Match")", R"("more":false)"});
  EXPECT_EQ(tv_control(R"(["guide","search","new","match"])").find("News"), std::string::npos);
  expect_words(tv_control(R"(["guide","99"])"), {"error", "99"});
  expect_words(tv_control(R"(["guide","dance"])"), {"error", "dance"});
  expect_words(tv_control(R"(["state"])"), {R"("guide":3)"});
}

}  // namespace
