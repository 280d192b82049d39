// EIT sections. The bytes are laid out by EN 300 468.
#include <gtest/gtest.h>

#include "broadcast/stream_bytes.h"
#include "broadcast/tables.h"

namespace bytes = stream_bytes;
using bytes::Bytes;
using bytes::counted;
using bytes::descriptor;
using bytes::join;
using bytes::text;
using bytes::two;

static const Bytes kNoon = {0xC0, 0x79, 0x12, 0x45, 0x00};  // 1993-10-13 12:45:00, the example of annex C
static const Bytes kHourAndAHalf = {0x01, 0x30, 0x00};

static Bytes event(std::uint16_t id, const Bytes& start, const Bytes& duration, const Bytes& descriptors,
                   std::uint8_t flags = 0x80) {
  return join({two(id), start, duration, bytes::loop(descriptors, flags)});
}

static Bytes eit(const Bytes& events, std::uint8_t table = 0x4E) {
  return bytes::section({.table = table, .extension = 0x7085, .version = 17, .number = 1, .last = 1},
                        join({two(0x0407), two(0x2114), {0x01, table}, events}));
}

static Eit read_eit(const Bytes& section) {
  const auto table = table_read(section);
  if (table && std::holds_alternative<Eit>(*table)) return std::get<Eit>(*table);
  ADD_FAILURE() << "the section was refused, or taken for another table";
  return {};
}

static Eit::Event read_event(const Bytes& descriptors) {
  const Eit table = read_eit(eit(event(1, kNoon, kHourAndAHalf, descriptors)));
  EXPECT_EQ(table.events.size(), 1u);
  return table.events.empty() ? Eit::Event{} : table.events[0];
}

static Bytes short_event(std::string_view language, std::string_view title, std::string_view summary) {
  return descriptor(0x4D, join({text(language), counted(text(title)), counted(text(summary))}));
}

namespace {

struct Item {
  std::string_view what;
  std::string_view said;
};

}  // namespace

static Bytes extended(std::uint8_t number, std::uint8_t last, std::string_view language, const std::vector<Item>& items,
                      std::string_view said) {
  Bytes all;
  for (const Item& item : items) all = join({all, counted(text(item.what)), counted(text(item.said))});
  return descriptor(
      0x4E, join({{static_cast<std::uint8_t>(number << 4 | last)}, text(language), counted(all), counted(text(said))}));
}

TEST(BroadcastEit, HasItsServiceAndEvents) {
  const Eit table = read_eit(eit(join({event(0x1001, kNoon, kHourAndAHalf, {}, 0x90),
                                       event(0x1002, {0xC0, 0x79, 0x23, 0x59, 0x59}, {0x00, 0x00, 0x01}, {}, 0x20)})));
  EXPECT_EQ(table.table, 0x4E);
  EXPECT_EQ(table.key, (ServiceKey{.network = 0x2114, .stream = 0x0407, .service = 0x7085}));
  EXPECT_EQ(table.version, 17);
  EXPECT_EQ(table.section, 1);
  EXPECT_EQ(table.last_section, 1);
  ASSERT_EQ(table.events.size(), 2u);
  EXPECT_EQ(table.events[0].id, 0x1001);
  EXPECT_EQ(table.events[0].start, 750516300);
  EXPECT_EQ(table.events[0].duration, 5400u);
  EXPECT_EQ(table.events[0].running, 4);
  EXPECT_TRUE(table.events[0].scrambled);
  EXPECT_EQ(table.events[1].start, 750516300 + 11 * 3600 + 14 * 60 + 59);
  EXPECT_EQ(table.events[1].duration, 1u);
  EXPECT_EQ(table.events[1].running, 1);
  EXPECT_FALSE(table.events[1].scrambled);
}

TEST(BroadcastEit, IsReadForPresentFollowingAndSchedule) {
  for (const int table : {0x4E, 0x4F, 0x50, 0x5F, 0x60, 0x6F})
    EXPECT_EQ(read_eit(eit({}, bytes::byte(static_cast<std::size_t>(table)))).table, table);
  EXPECT_FALSE(table_read(eit({}, 0x4D)));
}

TEST(BroadcastEit, MayHaveUndefinedTimes) {
  const Eit table = read_eit(eit(join({event(1, Bytes(5, 0xFF), Bytes(3, 0xFF), {}),
                                       event(2, {0xC0, 0x79, 0x2A, 0x00, 0x00}, {0x00, 0x61, 0x00}, {})})));
  ASSERT_EQ(table.events.size(), 2u);
  for (const Eit::Event& one : table.events) {
    EXPECT_EQ(one.start, 0);
    EXPECT_EQ(one.duration, 0u);
  }
}

TEST(BroadcastEit, HasTextsByLanguage) {
  const Eit::Event one =
      read_event(join({short_event("DEU", "Tagesschau", "Nachrichten"), short_event("eng", "\x01\xBC\xD8\xE0", ""),
                       extended(0, 0, "deu", {}, "Mehr.")}));
  ASSERT_EQ(one.texts.size(), 2u);
  EXPECT_EQ(one.texts[0].language, "deu");
  EXPECT_EQ(one.texts[0].title, "Tagesschau");
  EXPECT_EQ(one.texts[0].summary, "Nachrichten");
  EXPECT_EQ(one.texts[0].details, "Mehr.");
  EXPECT_EQ(one.texts[1].language, "eng");
  EXPECT_EQ(one.texts[1].title, "Мир");
  EXPECT_EQ(one.texts[1].details, "");
}

// Each part has its own lead byte; the parts of two languages come in any order.
TEST(BroadcastEit, JoinsExtendedDescriptionsInTheirOrder) {
  const Eit::Event one = read_event(join({
      extended(1, 2, "rus", {}, "\x01\xD8"),
      extended(0, 0, "eng", {}, "peace"),
      extended(2, 2, "rus", {}, "\x01\xE0"),
      extended(0, 2, "rus", {}, "\x01\xBC"),
  }));
  ASSERT_EQ(one.texts.size(), 2u);
  for (const Eit::Text& said : one.texts) {
    EXPECT_EQ(said.title, "");
    EXPECT_EQ(said.details, said.language == "rus" ? "Мир" : "peace") << said.language;
  }
}

TEST(BroadcastEit, HasItemsAsLines) {
  const Eit::Event one = read_event(join({
      extended(0, 1, "deu", {{"Regie", "Fritz L"}}, "Ein "),
      extended(1, 1, "deu", {{"", "ang"}, {"Jahr", "1927"}}, "Film."),
  }));
  ASSERT_EQ(one.texts.size(), 1u);
  EXPECT_EQ(one.texts[0].details, "Ein Film.\nRegie: Fritz Lang\nJahr: 1927");
  const Eit::Event items_only = read_event(extended(0, 0, "deu", {{"Jahr", "1927"}}, ""));
  ASSERT_EQ(items_only.texts.size(), 1u);
  EXPECT_EQ(items_only.texts[0].details, "Jahr: 1927");
}

TEST(BroadcastEit, HasCategoriesRatingsAndCaptions) {
  const Eit::Event one = read_event(join({
      descriptor(0x54, {0x14, 0x00, 0xF5, 0xFF}),
      descriptor(0x55, join({text("deu"),
                             {0x09},
                             text("FRA"),
                             {0x01},
                             text("gbr"),
                             {0x0F},
                             text("ITA"),
                             {0x00},
                             text("ESP"),
                             {0x10},
                             text("9 2"),
                             {0x05}})),
      descriptor(0x50, join({{0xF3, 0x10, 0x01}, text("deu")})),
  }));
  EXPECT_EQ(one.categories, (std::vector<std::uint8_t>{0x14, 0xF5}));
  ASSERT_EQ(one.ratings.size(), 4u);  // 0 is undefined, 0x10 is the broadcaster's own
  EXPECT_EQ(one.ratings[0].country, "DEU");
  EXPECT_EQ(one.ratings[0].age, 12);
  EXPECT_EQ(one.ratings[1].country, "FRA");
  EXPECT_EQ(one.ratings[1].age, 4);
  EXPECT_EQ(one.ratings[2].country, "GBR");
  EXPECT_EQ(one.ratings[2].age, 18);
  EXPECT_EQ(one.ratings[3].country, "");
  EXPECT_EQ(one.ratings[3].age, 8);
  EXPECT_TRUE(one.captions);
}

TEST(BroadcastEit, TakesOnlySubtitlesForCaptions) {
  const auto captions = [](std::uint8_t content, std::uint8_t type) {
    return read_event(descriptor(0x50, join({{content, type, 0x01}, text("deu")}))).captions;
  };
  EXPECT_TRUE(captions(0xF3, 0x01));   // teletext subtitles
  EXPECT_TRUE(captions(0xF3, 0x24));   // for the hard of hearing
  EXPECT_FALSE(captions(0xF3, 0x02));  // associated teletext
  EXPECT_FALSE(captions(0xF3, 0x30));  // sign language
  EXPECT_FALSE(captions(0xF1, 0x01));  // video
}

TEST(BroadcastEit, LeavesOutBrokenDescriptors) {
  const Eit::Event one = read_event(join({
      descriptor(0x4D, join({text("deu"), {0x20}, text("cut")})),
      descriptor(0x4D, text("de")),
      descriptor(0x4D, {}),
      descriptor(0x4E, join({{0x00}, text("deu"), {0x05, 0x09, 'a'}})),
      descriptor(0x4E, join({{0x00}, text("deu"), {0x03, 0x01, 'a', 0x07}, counted(text("x"))})),
      descriptor(0x4E, {0x00}),
      descriptor(0x50, {0xF3, 0x10}),
      descriptor(0x54, {0x14}),
      descriptor(0x55, text("deu")),
      short_event("deu", "whole", ""),
  }));
  ASSERT_EQ(one.texts.size(), 1u);
  EXPECT_EQ(one.texts[0].title, "whole");
  EXPECT_EQ(one.texts[0].details, "");
  EXPECT_FALSE(one.captions);
  EXPECT_TRUE(one.categories.empty());
  EXPECT_TRUE(one.ratings.empty());
}

TEST(BroadcastEit, HasBoundsForItsLists) {
  Bytes many;
  for (char c = 'a'; c <= 'z'; ++c) many = join({many, short_event({"xx" + std::string(1, c)}, "t", "s")});
  for (int i = 0; i < 10; ++i) {
    Bytes contents;
    for (int k = 0; k < 10; ++k) contents = join({contents, {0x11, 0x00}});
    many = join(
        {many, descriptor(0x54, contents),
         descriptor(0x55, join({text("deu"), {0x01}, text("deu"), {0x01}, text("deu"), {0x01}, text("deu"), {0x01}}))});
  }
  const Eit::Event one = read_event(many);
  EXPECT_EQ(one.texts.size(), 16u);
  EXPECT_EQ(one.categories.size(), 32u);
  EXPECT_EQ(one.ratings.size(), 32u);
}

// More events than a counter of eight bits holds.
TEST(BroadcastEit, MayHaveAsManyEventsAsFit) {
  Bytes events;
  static constexpr std::size_t kEvents = (4096 - 18) / 12;
  for (std::size_t i = 0; i < kEvents; ++i)
    events = join({events, event(static_cast<std::uint16_t>(i), kNoon, kHourAndAHalf, {})});
  const Eit table = read_eit(eit(events));
  ASSERT_EQ(table.events.size(), kEvents);
  EXPECT_EQ(table.events.back().id, kEvents - 1);
}

TEST(BroadcastEit, IsRefusedWhenItIsCutOffOrDamaged) {
  const Bytes section = eit(
      event(1, kNoon, kHourAndAHalf, join({short_event("deu", "T", "S"), extended(0, 0, "deu", {{"a", "b"}}, "c")})));
  ASSERT_TRUE(table_read(section));
  for (std::size_t size = 0; size < section.size(); ++size) EXPECT_FALSE(table_read({section.data(), size})) << size;
  for (std::size_t bit = 0; bit < section.size() * 8; ++bit) {
    Bytes flipped = section;
    flipped[bit / 8] ^= static_cast<std::uint8_t>(1 << bit % 8);
    EXPECT_FALSE(table_read(flipped)) << bit;
  }
  for (std::size_t size = 3; size + 4 < section.size(); ++size) {
    Bytes cut(section.begin(), section.begin() + static_cast<std::ptrdiff_t>(size));
    cut[2] = bytes::byte(size + 4 - 3);
    EXPECT_EQ(table_read(bytes::with_crc(cut)).has_value(), size == 14) << size;  // 14: no event
  }
}
