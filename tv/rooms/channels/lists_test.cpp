// The lists as plain records: taking a scan, steps, logos, reading a file.
#include "rooms/channels/lists.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "rooms/channels/import.h"
#include "rooms/channels/logos.h"
#include "tests/unit/tv/store_support.h"

namespace {

Service found(std::uint16_t service, const std::string& name, std::optional<std::uint16_t> number = {},
              Medium medium = Medium::kAir) {
  return {.found = {.key = {1, 2, service}, .name = name, .type = 1, .number = number, .medium = medium}};
}

ScanOutcome take(Lists& lists, const std::vector<Service>& services, bool update) {
  ScanOutcome outcome;
  EXPECT_EQ(take_services(lists, services, {}, update, outcome), "");
  index_lists(lists);
  return outcome;
}

// "1 One, 800 Two": the one channel list
std::string text(const Lists& lists) {
  std::string all;
  for (const Entry* const each : lists.views[0].order)
    all += (all.empty() ? "" : ", ") + std::to_string(each->channel.number) + " " + each->channel.name;
  return all;
}

void expect_outcome(const ScanOutcome& outcome, std::size_t added, std::size_t changed, std::size_t removed) {
  EXPECT_EQ(outcome.added, added);
  EXPECT_EQ(outcome.changed, changed);
  EXPECT_EQ(outcome.removed, removed);
}

TEST(ChannelLists, AServiceWithoutAFreeNumberGetsOneFrom800) {
  Lists lists;
  expect_outcome(take(lists,
                      {found(1, "No number"), found(2, "One", 1), found(3, "One too", 1), found(4, "Zero", 0),
                       found(5, "High", 16384), found(6, "Cable one", 1, Medium::kCable), found(7, "801", 801)},
                      false),
                 7, 0, 0);
  EXPECT_EQ(text(lists), "1 One, 1 Cable one, 800 No number, 801 801, 802 One too, 803 Zero, 804 High");
  EXPECT_EQ(find_number(lists, 1)->channel.list, kListAir);
  EXPECT_EQ(find_number(lists, 2), nullptr);
}

TEST(ChannelLists, AServiceIsTakenOnce) {
  Lists lists;
  expect_outcome(take(lists, {found(1, "One", 1), found(1, "Again", 2)}, false), 1, 0, 0);
  EXPECT_EQ(text(lists), "1 One");
}

TEST(ChannelLists, AnUpdateKeepsWhatTheViewerChanged) {
  Lists lists;
  take(lists, {found(1, "One", 1), found(2, "Two", 2), found(3, "Three", 3)}, false);
  Entry one = *find_number(lists, 1);
  set_id(one, id_of(50, 0, kListAir) | SVL_CHANNEL_ID_VIEWERS_NUMBER);
  one.channel.name = "Mine";
  one.options = SVL_OPT_MASK_NAME_EDITED | SVL_OPT_MASK_NUMBER_EDITED;
  set_mask(one, SVL_NW_MASK_ACTIVE | SVL_NW_MASK_BLOCKED);
  const std::uint32_t reference = reference_of(one);
  lists.favourites[0] = {reference};
  replace_entry(lists, one);
  index_lists(lists);

  Service moved = found(1, "One", 1);
  moved.found.frequency = 506000000;
  expect_outcome(take(lists, {moved, found(2, "New name", 9), found(4, "Four", 50)}, true), 1, 2, 0);
  EXPECT_EQ(text(lists), "2 New name, 3 Three, 50 Mine, 800 Four");
  const Entry* const kept = find_reference(lists, reference);
  ASSERT_NE(kept, nullptr);
  EXPECT_TRUE(kept->channel.blocked);
  EXPECT_TRUE(kept->channel.skipped);
  EXPECT_EQ(kept->channel.frequency, 506000000u);
  EXPECT_EQ(lists.favourites[0], std::vector<std::uint32_t>{reference});

  expect_outcome(take(lists, {moved, found(2, "New name", 9), found(4, "Four", 50)}, true), 0, 0, 0);
}

TEST(ChannelLists, WithoutUpdateTheListsBecomeWhatWasFound) {
  Lists lists;
  take(lists, {found(1, "One", 1), found(2, "Two", 2), found(3, "Cable", 3, Medium::kCable)}, false);
  const std::uint32_t two = reference_of(*find_number(lists, 2));
  const std::uint32_t cable = reference_of(*find_number(lists, 3));
  lists.favourites[0] = {two, cable};
  Entry blocked = *find_number(lists, 2);
  set_mask(blocked, blocked.mask | SVL_NW_MASK_BLOCKED);
  replace_entry(lists, blocked);
  index_lists(lists);
  expect_outcome(take(lists, {found(9, "Nine", 9), found(2, "Two", 7)}, false), 1, 1, 1);
  EXPECT_EQ(text(lists), "3 Cable, 7 Two, 9 Nine");
  EXPECT_FALSE(find_number(lists, 7)->channel.blocked);
  EXPECT_EQ(reference_of(*find_number(lists, 7)), two);
  EXPECT_EQ(lists.favourites[0], std::vector<std::uint32_t>{cable});
  EXPECT_NE(find_number(lists, 9)->channel.record, 1) << "the record of a removed channel leads nowhere";
}

TEST(ChannelLists, AMediumThatWasSearchedInVainHasAnEmptyListUnlessItIsAnUpdate) {
  Lists lists;
  take(lists, {found(1, "One", 1), found(3, "Cable", 3, Medium::kCable), found(5, "Bird", 5, Medium::kSatellite)},
       false);
  lists.favourites[0] = {reference_of(*find_number(lists, 1)), reference_of(*find_number(lists, 3))};
  index_lists(lists);
  const Medium searched[] = {Medium::kAir, Medium::kCable};
  ScanOutcome outcome;
  EXPECT_EQ(take_services(lists, {}, searched, true, outcome), "");
  index_lists(lists);
  expect_outcome(outcome, 0, 0, 0);
  EXPECT_EQ(text(lists), "1 One, 3 Cable, 5 Bird");
  const Service still_there[] = {found(1, "One", 1)};
  EXPECT_EQ(take_services(lists, still_there, searched, false, outcome), "");
  index_lists(lists);
  expect_outcome(outcome, 0, 0, 1);
  EXPECT_EQ(text(lists), "1 One, 5 Bird");
  EXPECT_EQ(take_services(lists, {}, searched, false, outcome), "");
  index_lists(lists);
  expect_outcome(outcome, 0, 0, 1);
  EXPECT_EQ(text(lists), "5 Bird");
  EXPECT_TRUE(lists.favourites[0].empty());
}

TEST(ChannelLists, AWordNamesAChannelOfTheOneListOrOfAServiceList) {
  Lists lists;
  Service minor = found(8, "Minor", 7);
  minor.minor = 1;
  take(lists,
       {minor, found(9, "Other minor", 9), found(1, "Cable seven", 7, Medium::kCable),
        found(2, "Bird seven", 7, Medium::kSatellite)},
       false);
  const auto named = [&](std::string_view word) {
    const Entry* const entry = find_named(lists, word);
    return entry == nullptr ? "none" : entry->channel.name;
  };
  for (const auto& [word, name] : {std::pair("7", "Cable seven"),
                                   {"7.1", "Minor"},
                                   {"air:7", "Minor"},
                                   {"air:7.1", "Minor"},
                                   {"cable:7", "Cable seven"},
                                   {"cable:7.0", "Cable seven"},
                                   {"satellite:7", "Bird seven"},
                                   {"9", "Other minor"}})
    EXPECT_EQ(named(word), name) << word;
  for (const char* const word : {"", "x", "7.", ".1", "7.2", "air:", ":7", "air:9.1", "none:7", "mars:7", "AIR:7",
                                 "air:cable:7", "7 ", "-7", "4294967303", "cable:9"})
    EXPECT_EQ(named(word), "none") << word;
  expect_words(no_channel_named("mars:7"), {"\"mars:7\"", "7, 7.1, air:7, cable:7 or satellite:7"});
}

TEST(ChannelLists, AServiceInTwoListsHasTheChannelOfTheListThatIsAskedFor) {
  Lists lists;
  take(lists, {found(1, "Air", 1), found(1, "Cable", 2, Medium::kCable), found(2, "Alone", 3, Medium::kCable)}, false);
  const auto of = [&](std::uint16_t service, std::uint16_t list) {
    const Entry* const entry = find_key(lists, {1, 2, service}, list);
    return entry == nullptr ? "none" : entry->channel.name;
  };
  EXPECT_EQ(of(1, kListAir), "Air");
  EXPECT_EQ(of(1, kListCable), "Cable");
  EXPECT_EQ(of(2, kListAir), "Alone");
  EXPECT_NE(of(1, kListSatellite), "none");
  EXPECT_EQ(of(3, kListAir), "none");
}

TEST(ChannelLists, HostileServicesAreCleaned) {
  Lists lists;
  Service service = found(7,
                          "A\x01"
                          "B\xFF" +
                              std::string(100, 'x'),
                          1, Medium::kSatellite);
  service.found.short_name = std::string(15, 'y') + "\xC3\xA4";
  service.found.orbit = 9999;
  take(lists, {service, found(8, "", 2)}, false);
  const Entry* const entry = find_number(lists, 1);
  EXPECT_EQ(entry->channel.name, "AB?" + std::string(61, 'x'));
  EXPECT_EQ(entry->channel.short_name, std::string(15, 'y')) << "cut between characters";
  EXPECT_EQ(entry->orbit, 0);
  EXPECT_TRUE(lists.satellites.empty());
  EXPECT_EQ(find_number(lists, 2)->channel.name, "Service 8");
}

TEST(ChannelLists, ScansWithoutMediumOrBeyondTheBoundAreRefused) {
  Lists lists;
  ScanOutcome outcome;
  const Service none[] = {found(1, "One", 1, Medium::kNone)};
  EXPECT_NE(take_services(lists, none, {}, true, outcome), "");
  std::vector<Service> many;
  for (std::size_t i = 0; i < kMostChannels; ++i) many.push_back(found(static_cast<std::uint16_t>(i), "Many"));
  expect_outcome(take(lists, many, true), kMostChannels, 0, 0);
  const Service more[] = {found(60000, "One more")};
  EXPECT_NE(take_services(lists, more, {}, true, outcome), "");
  EXPECT_EQ(lists.entries.size(), kMostChannels);
  EXPECT_EQ(lists.views[0].order.back()->channel.number, kFirstFreeNumber + kMostChannels - 1);
}

TEST(ChannelLists, SatellitesAndMultiplexesHaveBounds) {
  Lists lists;
  for (std::size_t i = 0; i < kMostSatellites; ++i)
    EXPECT_EQ(take_satellite(lists, static_cast<std::int16_t>(i + 1), ""), "");
  EXPECT_NE(take_satellite(lists, -5, ""), "");
  EXPECT_EQ(take_satellite(lists, 192, "Bird"), "");
  EXPECT_EQ(lists.satellites[191].name, "Bird");
  std::vector<KnownMultiplex> many(kMostMultiplexes + 1);
  for (std::size_t i = 0; i < many.size(); ++i) many[i].frequency = static_cast<std::uint32_t>(i);
  EXPECT_EQ(take_multiplexes(lists, std::span(many).first(kMostMultiplexes)), "");
  EXPECT_EQ(take_multiplexes(lists, std::span(many).first(kMostMultiplexes)), "") << "all are known";
  EXPECT_NE(take_multiplexes(lists, many), "");
}

TEST(ChannelLists, StepsGoOverTheEndsAndLeaveOutWhatIsNotShown) {
  Lists lists;
  take(lists, {found(1, "One", 1), found(2, "Two", 2), found(3, "Three", 3), found(4, "Four", 4)}, false);
  const auto hide = [&](std::uint32_t number, std::uint32_t bit) {
    Entry entry = *find_number(lists, number);
    set_mask(entry, entry.mask & ~bit);
    replace_entry(lists, entry);
    index_lists(lists);
  };
  hide(2, SVL_NW_MASK_VISIBLE);
  hide(3, SVL_NW_MASK_ACTIVE);
  const auto from = [&](std::uint32_t number, int by) {
    const Entry* const entry = step(lists.views[0], kShown, find_number(lists, number), by);
    return entry == nullptr ? 0 : entry->channel.number;
  };
  EXPECT_EQ(from(1, 1), 4u);
  EXPECT_EQ(from(4, 1), 1u);
  EXPECT_EQ(from(1, -1), 4u);
  EXPECT_EQ(from(3, 1), 4u) << "from a channel that is not shown";
  EXPECT_EQ(from(2, -1), 1u);
  EXPECT_EQ(from(99, 1), 1u) << "an unknown channel is before the first";
  EXPECT_EQ(from(99, -1), 4u);
  hide(4, SVL_NW_MASK_ACTIVE);
  EXPECT_EQ(from(1, 1), 1u) << "the only one";
  hide(1, SVL_NW_MASK_VISIBLE);
  EXPECT_EQ(from(1, 1), 0u);
}

TEST(ChannelLists, DifferencesAreWhatDiffers) {
  Lists before;
  take(before, {found(1, "One", 1), found(2, "Two", 2)}, false);
  Lists after = before;
  EXPECT_TRUE(differences(before, after).empty());
  after.entries.erase(after.entries.begin());
  take(after, {found(3, "Three", 3)}, true);
  const std::vector<Difference> changed = differences(before, after);
  ASSERT_EQ(changed.size(), 2u);
  EXPECT_EQ(changed[0].before->channel.name, "One");
  EXPECT_EQ(changed[0].after, nullptr);
  EXPECT_EQ(changed[1].before, nullptr);
  EXPECT_EQ(changed[1].after->channel.name, "Three");
}

// ---- Logos ----

TEST(ChannelLogos, AFileHasTheChannelsNumberOrName) {
  const TvFolder folder;
  std::filesystem::create_directories(folder.path + "/PreDef");
  std::filesystem::create_directories(folder.path + "/UserDef/folder.png");
  write_file(folder.path + "/PreDef/7.png", "x");
  write_file(folder.path + "/UserDef/Seven.png", "x");
  write_file(folder.path + "/outside.png", "x");
  Entry entry;
  entry.channel.record = 3;
  set_id(entry, id_of(7, 0, kListAir));
  entry.channel.name = "Seven";
  EXPECT_EQ(find_logo(folder.path, entry), 7);
  set_id(entry, id_of(8, 0, kListAir));
  EXPECT_EQ(find_logo(folder.path, entry), 0x8003);
  for (const char* const name : {"../outside", "folder", "", ".", "Eight", "PreDef/7"}) {
    entry.channel.name = name;
    EXPECT_EQ(find_logo(folder.path, entry), 0) << name;
  }
}

const std::string kPng = "\x89PNG\r\n\x1A\n the rest";

std::vector<std::string> names_in(const std::string& folder) {
  std::vector<std::string> names;
  for (const auto& each : std::filesystem::directory_iterator(folder)) names.push_back(each.path().filename().string());
  std::ranges::sort(names);
  return names;
}

TEST(ChannelLogos, OnlyPngFilesNamedLikeAChannelAreTaken) {
  const TvFolder set, world;
  const std::string logos = set.path + "/ChLogo", from = world.path + "/logos", taken = logos + "/PreDef";
  make_logo_folder(logos);
  EXPECT_EQ(take_logos(from, logos), 0u) << "there is no such folder";
  std::filesystem::create_directory(from);
  write_file(from + "/7.png", kPng);
  write_file(from + "/Wald & Kino.png", kPng);
  write_file(from + "/text.png", "a text");
  write_file(from + "/.png", kPng);
  write_file(from + "/.hidden.png", kPng);
  write_file(from + "/line\n.png", kPng);
  write_file(from + "/\xFF.png", kPng);
  write_file(from + "/" + std::string(kLongestName + 1, 'x') + ".png", kPng);
  write_file(from + "/picture.jpg", kPng);
  write_file(from + "/large.png", kPng + std::string(kLongestLogo, 'x'));
  std::filesystem::create_directory(from + "/folder.png");
  std::filesystem::create_symlink(from + "/7.png", from + "/link.png");
  ASSERT_EQ(mkfifo((from + "/fifo.png").c_str(), 0600), 0);
  EXPECT_EQ(take_logos(from, logos), 2u);
  EXPECT_EQ(names_in(taken), (std::vector<std::string>{"7.png", "Wald & Kino.png"}));
  write_file(from + "/7.png", kPng + " is new");
  EXPECT_EQ(take_logos(from, logos), 2u);
  EXPECT_EQ(content_of(taken + "/7.png"), kPng + " is new");
  std::filesystem::create_directory_symlink(from, world.path + "/elsewhere");
  EXPECT_EQ(take_logos(world.path + "/elsewhere", logos), 0u) << "a link";
  remove_logos(logos);
  EXPECT_TRUE(names_in(taken).empty());
}

TEST(ChannelLogos, AFolderHasAtMost2000) {
  const TvFolder set, world;
  const std::string logos = set.path + "/ChLogo";
  make_logo_folder(logos);
  for (std::size_t i = 1; i < kMostLogos; ++i) write_file(logos + "/PreDef/" + std::to_string(i) + ".png", kPng);
  for (const char* const name : {"1", "A", "B", "C"}) write_file(world.path + "/" + name + ".png", kPng);
  EXPECT_EQ(take_logos(world.path, logos), 2u) << "one is replaced, and one is new";
  EXPECT_EQ(names_in(logos + "/PreDef").size(), kMostLogos);
}

TEST(ChannelLogos, EveryChannelGetsTheLogoThatItHasNow) {
  const TvFolder folder;
  make_logo_folder(folder.path);
  write_file(folder.path + "/PreDef/2.png", kPng);
  write_file(folder.path + "/UserDef/One.png", kPng);
  Lists lists;
  take(lists, {found(1, "One", 1), found(2, "Two", 2), found(3, "../One", 3)}, false);
  give_logos(lists, folder.path);
  index_lists(lists);
  EXPECT_EQ(find_number(lists, 1)->logo, 0x8000 | find_number(lists, 1)->channel.record);
  EXPECT_EQ(find_number(lists, 2)->logo, 2);
  EXPECT_EQ(find_number(lists, 3)->logo, 0);
  std::filesystem::remove(folder.path + "/PreDef/2.png");
  give_logos(lists, folder.path);
  index_lists(lists);
  EXPECT_EQ(find_number(lists, 2)->logo, 0);
}

// ---- Files ----

TEST(ChannelImport, ATableOfFrequenciesGivesMultiplexes) {
  const Imported table = import_text(
      "# a comment\n[CHANNEL]\n\tDELIVERY_SYSTEM = DVBS2\n\tFREQUENCY = 11836000\n\tPOLARIZATION = HORIZONTAL\n"
      "\tSYMBOL_RATE = 27500000\n\tINNER_FEC = 3/4\n\n[CHANNEL]\r\n\tDELIVERY_SYSTEM = DVBS\r\n\tFREQUENCY = "
      "10700000\r\n"
      "\tPOLARIZATION = VERTICAL\r\n",
      "Eutelsat5_5.0W");
  EXPECT_EQ(table.bad_lines, 0u);
  EXPECT_TRUE(table.services.empty());
  const KnownMultiplex first{.table = "Eutelsat5_5.0W",
                             .medium = Medium::kSatellite,
                             .frequency = 11836,
                             .symbol_rate = 27500000,
                             .orbit = -50,
                             .horizontal = true};
  ASSERT_EQ(table.multiplexes.size(), 2u);
  EXPECT_EQ(table.multiplexes[0], first);
  EXPECT_FALSE(table.multiplexes[1].horizontal);
  EXPECT_EQ(table.satellite, "Eutelsat5 5.0W");
}

TEST(ChannelImport, TheNameOfAFileGivesTheOrbit) {
  const auto orbit = [](std::string_view name) { return import_text("", name).orbit; };
  EXPECT_EQ(orbit("Astra-19.2E"), 192);
  EXPECT_EQ(orbit("X-180.0W"), -1800);
  EXPECT_EQ(orbit("X-7E"), 70);
  for (const char* const name : {"", "E", "W", "7E", "19.2E", "X-19.2", "X-181.0E", "X-180.1E", "X-1.23E", "X-.E", "XE",
                                 "X-1..2E", "X-99999999999E"})
    EXPECT_EQ(orbit(name), std::nullopt) << name;
}

TEST(ChannelImport, BadLinesAreReportedWithTheirNumbers) {
  const Imported list = import_text(
      "FREQUENCY = 1\n[One]\nnonsense\n\tSERVICE_ID = 65536\n\tFREQUENCY = 1\n[Two]\n\tFREQUENCY = 1\n"
      "\tDELIVERY_SYSTEM = SPACE\n[Three]\n\tSERVICE_ID = 3\n\tDELIVERY_SYSTEM = DVBT\n\tFREQUENCY = 5\n"
      "[Four]\n\tDELIVERY_SYSTEM = DVBC\n[Five]\n\tFREQUENCY = 4294967296\n\tDELIVERY_SYSTEM = DVBT\n"
      "[Six]\n\tVCHANNEL = 0\n[Seven]\n\tDELIVERY_SYSTEM = DVBT\n\tFREQUENCY = -5\n",
      "list");
  std::vector<std::size_t> lines;
  for (const BadLine& each : list.bad) lines.push_back(each.line);
  EXPECT_EQ(lines, (std::vector<std::size_t>{1, 3, 4, 8, 9, 13, 15, 19, 22}));
  EXPECT_EQ(list.bad_lines, 9u);
  expect_words(list.bad[2].why, {"SERVICE_ID", "\"65536\"", "0 to 65535"});
  expect_words(list.bad[4].why, {"[Three]", "NETWORK_ID"});
  EXPECT_TRUE(list.services.empty());
  EXPECT_TRUE(list.multiplexes.empty());
}

TEST(ChannelImport, OnlyTheFirstBadLinesAreQuoted) {
  std::string many;
  for (int i = 0; i < 1000; ++i) many += "nonsense\n";
  const Imported list = import_text(many, "list");
  EXPECT_EQ(list.bad.size(), kMostBadLines);
  EXPECT_EQ(list.bad_lines, 1000u);
}

TEST(ChannelImport, NamesAreInUtf8OrInOneByteACharacter) {
  const std::string rest =
      "\n\tSERVICE_ID=1\n\tNETWORK_ID=1\n\tTRANSPORT_ID=1\n\tFREQUENCY=1\n\tDELIVERY_SYSTEM=DVBT\n";
  for (const std::string name : {"[S\xC3\xBC"
                                 "d]",
                                 "[S\xFC"
                                 "d]",
                                 "[S\xC3\xBC"
                                 "d\x01]"}) {
    const Imported list = import_text(name + rest, "list");
    ASSERT_EQ(list.services.size(), 1u);
    EXPECT_EQ(list.services[0].found.name,
              "S\xC3\xBC"
              "d");
  }
}

TEST(ChannelImport, OtherSystemsHaveTheirTypeAndTwoNumbers) {
  const auto one = [](const std::string& more) {
    return import_text("[X]\nSERVICE_ID=1\nNETWORK_ID=1\nTRANSPORT_ID=1\nFREQUENCY=5\n" + more, "list");
  };
  const Imported atsc = one("DELIVERY_SYSTEM=ATSC\nVCHANNEL=7.1\n"),
                 isdb = one("DELIVERY_SYSTEM=ISDBT\nVCHANNEL=7-2\n");
  ASSERT_EQ(atsc.services.size(), 1u);
  EXPECT_EQ(atsc.services[0].broadcast, SVL_BRDCST_TYPE_ATSC);
  EXPECT_EQ(atsc.services[0].minor, 1);
  ASSERT_EQ(isdb.services.size(), 1u);
  EXPECT_EQ(isdb.services[0].broadcast, SVL_BRDCST_TYPE_ISDB);
  EXPECT_EQ(one("DELIVERY_SYSTEM=ATSC\n").bad_lines, 1u) << "without a number";
  EXPECT_EQ(one("DELIVERY_SYSTEM=ISDBT\nVCHANNEL=256.1\n").bad_lines, 1u);
  Lists lists;
  take(lists, {atsc.services[0]}, true);
  EXPECT_EQ(lists.views[0].order[0]->channel.id, 7u << 18 | 1u << 8 | 1u);
}

// The tables of the package dtv-scan-tables. What is counted independently: the heads of sections in the files' bytes.
TEST(ChannelImport, EveryTableOfThePackageIsReadOrRefusedWithAReason) {
  const std::filesystem::path tables = "/usr/share/dvb";
  ASSERT_TRUE(std::filesystem::is_directory(tables)) << "the package dtv-scan-tables is not installed";
  std::size_t files = 0, multiplexes = 0, services = 0;
  for (const char* const folder : {"dvb-s", "dvb-t", "dvb-c", "atsc", "isdb-t"}) {
    for (const auto& each : std::filesystem::recursive_directory_iterator(tables / folder)) {
      if (!each.is_regular_file()) continue;
      const std::string content = content_of(each.path().string());
      std::size_t heads = 0;
      for (std::size_t at = 0; at != std::string::npos && at < content.size();) {
        heads += content[at] == '[' ? 1 : 0;
        at = content.find('\n', at);
        if (at != std::string::npos) ++at;
      }
      const Imported table = import_text(content, each.path().filename().string());
      EXPECT_EQ(table.multiplexes.size() + table.services.size() + table.bad_lines, heads) << each.path();
      EXPECT_TRUE(table.bad_lines == 0 || !table.bad.empty()) << each.path();
      for (const BadLine& bad : table.bad) EXPECT_NE(bad.why, "") << each.path();
      EXPECT_EQ(table.orbit.has_value(), std::string_view(folder) == "dvb-s") << each.path();
      ++files;
      multiplexes += table.multiplexes.size();
      services += table.services.size();
    }
  }
  EXPECT_GT(files, 3000u);
  EXPECT_GT(multiplexes, 10'000u);
  RecordProperty("files", static_cast<int>(files));
  RecordProperty("multiplexes", static_cast<int>(multiplexes));
  RecordProperty("services", static_cast<int>(services));
}

TEST(ChannelImport, OnlyARegularFileOfLimitedSizeIsRead) {
  const TvFolder folder;
  std::string content = "unchanged";
  EXPECT_NE(import_read(folder.path, content), "");
  EXPECT_NE(import_read(folder.path + "/none", content), "");
  ASSERT_EQ(mkfifo((folder.path + "/fifo").c_str(), 0600), 0);
  EXPECT_NE(import_read(folder.path + "/fifo", content), "");
  write_file(folder.path + "/list", "text");
  std::filesystem::create_symlink(folder.path + "/list", folder.path + "/link");
  EXPECT_NE(import_read(folder.path + "/link", content), "");
  write_file(folder.path + "/large", "");
  std::filesystem::resize_file(folder.path + "/large", kLongestImport + 1);
  expect_words(import_read(folder.path + "/large", content), {"16384 KiB"});
  EXPECT_EQ(content, "unchanged");
  EXPECT_EQ(import_read(folder.path + "/list", content), "");
  EXPECT_EQ(content, "text");
  std::filesystem::resize_file(folder.path + "/large", kLongestImport);
  EXPECT_EQ(import_read(folder.path + "/large", content), "");
  EXPECT_EQ(content.size(), kLongestImport);
}

TEST(ChannelImport, AnyBytesAreReadWithoutHarm) {
  std::uint32_t random = 1;
  const std::string_view alphabet = "[]=\n\t #0123456789.-EWDVBTSERVICE_IDFREQUENCY\xC3\xA4\xFF";
  for (int round = 0; round < 300; ++round) {
    std::string text;
    for (int i = 0; i < 400; ++i) {
      random = random * 1664525 + 1013904223;
      text += alphabet[(random >> 16) % alphabet.size()];
    }
    const Imported list = import_text(text, text.substr(0, random % 40));
    EXPECT_LE(list.bad.size(), kMostBadLines);
    EXPECT_GE(list.bad_lines, list.bad.size());
  }
}

}  // namespace
