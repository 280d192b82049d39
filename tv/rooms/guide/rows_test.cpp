// Broadcast events in the guide's database: which event replaces which, identifiers, texts, and the bounds.
#include "rooms/guide/rows.h"

#include <filesystem>

#include "rooms/guide/eit.h"
#include "rooms/guide/words.h"
#include "tests/unit/tv/support.h"

namespace {

constexpr std::int64_t kNow = 1'800'000'000;
constexpr ServiceKey kKey{1, 2, 3};
constexpr std::int64_t kChannel = packed(kKey);
constexpr std::uint8_t kPresent = 0x4E, kSchedule = 0x50;

struct GuideRows : testing::Test {
  TvFolder folder;
  Database database;
  GuideChanges changes;
  GuideRows() {
    std::string error;
    EXPECT_TRUE(database_open(folder.path + "/guide.sqlite", kGuideLayouts, database, error)) << error;
  }
  ~GuideRows() override { database_close(database); }
  GuideRows(const GuideRows&) = delete;
  GuideRows& operator=(const GuideRows&) = delete;

  // minutes: the events' beginnings and ends, from kNow.
  void take(std::uint8_t table, const std::vector<Eit::Event>& events) {
    changes = {};
    const Eit eit{.table = table, .key = kKey, .events = events};
    EXPECT_TRUE(eit_write(database, eit_rows(eit, 0, {.language = "eng", .country = "gbr"}, kNow), 1000, changes));
  }

  // "5 0-30, 6 30-60": identifiers and minutes from kNow
  std::string events() {
    std::string text;
    for (const GuideRow& row : rows_between(database, kChannel, kNow - 86400, kNow + 30 * 86400, 1000)) {
      text += (text.empty() ? "" : ", ") + std::to_string(row.id) + " " + std::to_string((row.start - kNow) / 60) +
              "-" + std::to_string((row.stop - kNow) / 60);
    }
    return text;
  }
};

Eit::Event event(std::uint16_t id, int from, int to, const std::string& title = "") {
  return {.id = id,
          .start = kNow + from * 60,
          .duration = static_cast<std::uint32_t>((to - from) * 60),
          .texts = {{.language = "eng", .title = title.empty() ? "Event " + std::to_string(id) : title}}};
}

GuideRow imported(std::uint16_t id, int from, int to) {
  return {.channel = kChannel,
          .start = kNow + from * 60,
          .stop = kNow + to * 60,
          .id = id,
          .import = 1,
          .title = "Imported"};
}

TEST_F(GuideRows, SectionIsStoredOnceAndReportsItsTime) {
  take(kSchedule, {event(5, 0, 30), event(6, 30, 60)});
  EXPECT_EQ(events(), "5 0-30, 6 30-60");
  EXPECT_EQ(changes.added, 2);
  ASSERT_EQ(changes.spans.size(), 1u);
  EXPECT_EQ(changes.spans[kChannel].from, kNow);
  EXPECT_EQ(changes.spans[kChannel].to, kNow + 3600);
  take(kSchedule, {event(5, 0, 30), event(6, 30, 60)});
  EXPECT_EQ(changes.added, 0);
  EXPECT_TRUE(changes.spans.empty()) << "the same section changes nothing";
}

TEST_F(GuideRows, LongerShorterAndMovedEventsReplaceTheirEarlierTimes) {
  take(kSchedule, {event(5, 0, 30), event(6, 30, 60), event(7, 60, 90)});
  take(kSchedule, {event(5, 0, 45), event(6, 45, 60)});
  EXPECT_EQ(events(), "5 0-45, 6 45-60, 7 60-90");
  take(kSchedule, {event(7, 100, 130)});
  EXPECT_EQ(events(), "5 0-45, 6 45-60, 7 100-130");
}

TEST_F(GuideRows, NewScheduleRemovesWhatItOverlapsAndWhatItPassesOver) {
  take(kSchedule, {event(5, 0, 30), event(6, 30, 60), event(7, 60, 90)});
  take(kSchedule, {event(15, 0, 20), event(16, 70, 90)});
  EXPECT_EQ(events(), "15 0-20, 16 70-90");
  EXPECT_EQ(changes.added, -1);
}

TEST_F(GuideRows, PresentAndFollowingWinOverTheSchedule) {
  take(kSchedule, {event(5, 0, 30), event(6, 30, 60)});
  take(kPresent, {event(5, 0, 40)});
  EXPECT_EQ(events(), "5 0-40") << "event 6 overlaps the longer one";
  take(kSchedule, {event(5, 0, 30), event(6, 30, 60), event(7, 60, 90)});
  EXPECT_EQ(events(), "5 0-40, 7 60-90");
  take(kPresent, {event(6, 40, 70)});
  EXPECT_EQ(events(), "5 0-40, 6 40-70");
}

TEST_F(GuideRows, ImportedEventsGiveWayToBroadcastOnes) {
  ASSERT_TRUE(row_put(database, imported(5, 0, 30)));
  ASSERT_TRUE(row_put(database, imported(6, 600, 630)));
  take(kSchedule, {event(7, 10, 40), event(6, 40, 50)});
  const auto later = brief_starting(database, kChannel, kNow + 600 * 60);
  ASSERT_TRUE(later) << "the imported event at another time stays";
  EXPECT_NE(later->id, 6) << "and has another identifier now";
  EXPECT_EQ(brief_by_id(database, kChannel, 6)->start, kNow + 40 * 60);
  EXPECT_FALSE(brief_starting(database, kChannel, kNow));
}

TEST_F(GuideRows, ShiftMovesAllTimes) {
  const Eit eit{.table = kSchedule, .key = kKey, .events = {event(5, 0, 30)}};
  const auto rows = eit_rows(eit, 7200, {}, kNow);
  ASSERT_EQ(rows.size(), 1u);
  EXPECT_EQ(rows[0].start, kNow + 7200);
  EXPECT_EQ(rows[0].stop, kNow + 7200 + 1800);
}

TEST_F(GuideRows, EventsThatCannotBeAreLeftOut) {
  Eit::Event undefined = event(1, 0, 10), endless = event(2, 0, 10), empty = event(3, 0, 10), huge = event(4, 0, 10);
  undefined.start = 0;
  endless.duration = 24 * 3600 + 1;
  empty.duration = 0;
  huge.start = INT64_MAX;
  const std::vector<Eit::Event> events = {undefined,
                                          endless,
                                          empty,
                                          huge,
                                          event(5, -24 * 60 - 30, -24 * 60),         // ended a day ago
                                          event(6, 62 * 24 * 60, 62 * 24 * 60 + 5),  // 62 days ahead
                                          event(7, -24 * 60 - 30, -24 * 60 + 1),
                                          event(8, 62 * 24 * 60 - 1, 62 * 24 * 60 + 5)};
  const auto rows = eit_rows({.table = kSchedule, .key = kKey, .events = events}, 0, {}, kNow);
  ASSERT_EQ(rows.size(), 2u);
  EXPECT_EQ(rows[0].id, 7);
  EXPECT_EQ(rows[1].id, 8);
  EXPECT_TRUE(eit_rows({.table = 0x42, .key = kKey, .events = {event(9, 0, 5)}}, 0, {}, kNow).empty());
  EXPECT_TRUE(eit_rows({.table = kSchedule, .key = kKey, .events = {event(9, 0, 5)}}, INT64_MAX, {}, kNow).empty());
}

TEST_F(GuideRows, FullDatabaseTakesNoNewEventButChangesOfKnownOnes) {
  take(kSchedule, {event(5, 0, 30)});
  changes = {};
  const Eit eit{.table = kPresent, .key = kKey, .events = {event(5, 0, 30, "New title"), event(6, 30, 60)}};
  ASSERT_TRUE(eit_write(database, eit_rows(eit, 0, {}, kNow), 0, changes));
  EXPECT_EQ(events(), "5 0-30");
  EXPECT_EQ(row_by_id(database, kChannel, 5)->title, "New title");
}

TEST_F(GuideRows, TextAndRatingFollowTheViewersLanguageAndCountry) {
  Eit::Event both = event(5, 0, 30, "News");
  both.texts.push_back({.language = "ger", .title = "Nachrichten", .summary = "Kurz", .details = "Lang"});
  both.ratings = {{.country = "FRA", .age = 10}, {.country = "DEU", .age = 12}};
  const Eit eit{.table = kSchedule, .key = kKey, .events = {both}};
  const auto rows_of = [&](const GuideTaste& taste) { return eit_rows(eit, 0, taste, kNow).at(0); };
  const GuideRow german = rows_of({.language = "deu", .country = "deu"});
  EXPECT_EQ(german.title, "Nachrichten") << "deu and ger are the same language";
  EXPECT_EQ(german.summary, "Kurz");
  EXPECT_EQ(german.details, "Lang");
  EXPECT_EQ(german.age, 12);
  const GuideRow other = rows_of({.language = "pol", .country = "gbr"});
  EXPECT_EQ(other.title, "News");
  EXPECT_EQ(other.age, 10);
}

TEST_F(GuideRows, TextsAreCutBetweenCharactersAndHaveNoControlCharacters) {
  Eit::Event cut = event(5, 0, 30, std::string(254, 'a') + "\xC3\xA4");
  cut.texts[0].summary =
      "a\x01\x7F"
      "b\nc\xFF"
      "d";
  cut.texts[0].details = std::string(9000, 'x');
  const GuideRow row = eit_rows({.table = kSchedule, .key = kKey, .events = {cut}}, 0, {}, kNow).at(0);
  EXPECT_EQ(row.title, std::string(254, 'a'));
  EXPECT_EQ(row.summary, "ab\nc?d");
  EXPECT_EQ(row.details.size(), kLongestText);
}

TEST_F(GuideRows, OldEventsAreErasedInBatchesWithTheirTexts) {
  for (int i = 0; i < 10; ++i) {
    GuideRow row = imported(static_cast<std::uint16_t>(i + 1), i * 10, i * 10 + 10);
    row.summary = "text";
    ASSERT_TRUE(row_put(database, row));
  }
  std::size_t erased = 0;
  EXPECT_TRUE(rows_erase_old(database, kNow + 61 * 60, 4, erased));
  EXPECT_EQ(erased, 4u);
  EXPECT_TRUE(rows_erase_old(database, kNow + 61 * 60, 4, erased));
  EXPECT_EQ(erased, 2u);
  EXPECT_EQ(rows_count(database), 4);
  const Statement texts = database_prepare(database.handle, "SELECT count(*) FROM text");
  ASSERT_EQ(sqlite3_step(texts.get()), SQLITE_ROW);
  EXPECT_EQ(sqlite3_column_int64(texts.get(), 0), 4);
}

TEST_F(GuideRows, SeriesAreFoundByTheirNameOrTheTitle) {
  GuideRow named = imported(1, 0, 30), titled = imported(2, 60, 90), other = imported(3, 100, 110);
  named.series = "EP0100";
  named.title = "Part one";
  titled.title = "EP0100";
  for (const GuideRow& row : {named, titled, other}) ASSERT_TRUE(row_put(database, row));
  EXPECT_EQ(rows_of_series(database, "EP0100", kNow, 10).size(), 2u);
  EXPECT_EQ(rows_of_series(database, "EP0100", kNow + 1, 10).size(), 1u);
  EXPECT_EQ(rows_of_series(database, "EP0100", kNow, 1).size(), 1u);
  EXPECT_TRUE(rows_of_series(database, "Part one", kNow, 10).empty());
}

TEST_F(GuideRows, FreeIdentifiersAreNeverZeroAndNeverInUse) {
  const std::int64_t wraps = 65535LL * 60 * 450;  // whose number wraps to the first identifier
  EXPECT_EQ(free_identifier(database, kChannel, wraps), 1);
  GuideRow row = imported(1, 0, 30);
  ASSERT_TRUE(row_put(database, row));
  EXPECT_EQ(free_identifier(database, kChannel, wraps), 2);
  EXPECT_EQ(free_identifier(database, kChannel, wraps - 60), 65535);
}

TEST(GuideWords, CategoriesByNameAndLevel) {
  EXPECT_EQ(category_of("Movie"), 0x10);
  EXPECT_EQ(category_of("SOCCER"), 0x43);
  EXPECT_EQ(category_of("unheard of"), 0);
  const std::uint64_t packed_both = pack_categories({0, 0x43, 0x43, 0x21});
  EXPECT_EQ(unpack_categories(packed_both), (std::vector<std::uint8_t>{0x43, 0x21}));
  EXPECT_TRUE(has_category(packed_both, {0x43}));
  EXPECT_TRUE(has_category(packed_both, {0x10, 0x20})) << "a wanted level 1 matches each of its level 2";
  EXPECT_FALSE(has_category(packed_both, {0x22, 0x44}));
  EXPECT_EQ(unpack_categories(pack_categories({1, 2, 3, 4, 5, 6, 7, 8, 9})).size(), kMostEventCategories);
}

TEST(GuideWords, LanguagesByAnyCode) {
  EXPECT_TRUE(same_language("de", "ger"));
  EXPECT_TRUE(same_language("en-GB", "ENG"));
  EXPECT_TRUE(same_language("xyz", "xyz"));
  EXPECT_FALSE(same_language("", ""));
  EXPECT_FALSE(same_language("de", "eng"));
}

TEST(GuideWords, AgesOfRatings) {
  EXPECT_EQ(age_of("FSK 16"), 16);
  EXPECT_EQ(age_of("PG-13"), 13);
  EXPECT_EQ(age_of("18+"), 18);
  EXPECT_EQ(age_of("R"), 0);
  EXPECT_EQ(age_of("2026"), 0);
  EXPECT_EQ(age_of(""), 0);
}

// A row for the tests of kinds, with its title as its only text.
void put(Database& database, std::int64_t channel, std::uint16_t id, int from, int to,
         const std::vector<std::uint8_t>& categories) {
  GuideRow row = imported(id, from, to);
  row.channel = channel;
  row.categories = pack_categories(categories);
  EXPECT_TRUE(row_put(database, row));
}

// The identifiers of the events between two minutes that are read for a filter by these categories.
std::vector<int> read_for(Database& database, const std::vector<std::uint8_t>& categories, int from, int to) {
  std::vector<int> ids;
  briefs_of_all(database, kinds_of(categories), kNow + from * 60, kNow + to * 60, [&](const GuideBrief& brief) {
    ids.push_back(brief.id);
    return true;
  });
  return ids;
}

TEST_F(GuideRows, AFilterReadsEventsOfItsCategoriesInTheirOrder) {
  put(database, 1, 10, 0, 30, {0x11});
  put(database, 2, 11, 10, 40, {0x43});
  put(database, 3, 12, 5, 35, {0x20, 0x11});  // of two kinds
  put(database, 4, 13, 5, 35, {});
  put(database, 5, 14, 20, 25, {0x10, 0x14});  // two categories of one kind
  put(database, 6, 15, -1400, 1, {0x43});      // began 23 hours ago
  EXPECT_EQ(read_for(database, {0x10}, 0, 60), (std::vector<int>{15, 10, 12, 14}))
      << "those of several kinds and the long ones are read as well; the filter looks at their categories";
  EXPECT_EQ(read_for(database, {0x20}, 0, 60), (std::vector<int>{15, 12}));
  EXPECT_EQ(read_for(database, {0x40, 0x10}, 0, 60), (std::vector<int>{15, 10, 12, 11, 14}));
  EXPECT_EQ(read_for(database, {}, 0, 60), (std::vector<int>{15, 10, 12, 13, 11, 14})) << "all, by their beginnings";
  EXPECT_EQ(read_for(database, {}, 36, 39), (std::vector<int>{11}));
  EXPECT_EQ(read_for(database, {}, 60, 90), (std::vector<int>{}));
  std::size_t erased = 0;
  EXPECT_TRUE(rows_erase_old(database, kNow + 36 * 60, 4, erased));
  EXPECT_EQ(erased, 4u);
  EXPECT_TRUE(rows_erase_old(database, kNow + 36 * 60, 4, erased));
  EXPECT_EQ(erased, 1u);
  EXPECT_EQ(read_for(database, {}, -2000, 60), (std::vector<int>{11})) << "of every kind";
}

TEST_F(GuideRows, EventsOfTheFirstLayoutGetTheirKinds) {
  database_close(database);
  const std::string path = folder.path + "/old.sqlite";
  std::string error;
  const DatabaseLayouts first = {.application = kGuideLayouts.application, .steps = kGuideLayouts.steps.first(1)};
  ASSERT_TRUE(database_open(path, first, database, error)) << error;
  const std::string rows =
      "INSERT INTO event VALUES (1, 1800000000, 1800003600, 5, 0, 1, 0, 0, 17, 0, 'Short'),"
      "(2, 1799950000, 1800003600, 6, 0, 1, 0, 0, 67, 0, 'Long'),"
      "(3, 1800000001, 1800003600, 7, 0, 1, 0, 0, 8211, 0, 'Two'),"
      "(4, 1800000002, 1800003600, 8, 0, 1, 0, 0, 0, 0, 'None')";
  ASSERT_EQ(database_execute(database.handle, rows.c_str()), SQLITE_OK);
  database_close(database);
  ASSERT_TRUE(database_open(path, kGuideLayouts, database, error)) << error;
  EXPECT_EQ(read_for(database, {}, 0, 60), (std::vector<int>{6, 5, 7, 8}));
  EXPECT_EQ(read_for(database, {0x10}, 0, 60), (std::vector<int>{6, 5, 7}));
  EXPECT_EQ(read_for(database, {0x90}, 0, 60), (std::vector<int>{6, 7}));
}

}  // namespace
