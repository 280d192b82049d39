// What a survey reads out of the beginning of a stream, and the services that a scan makes of it.
#include "rooms/antenna/survey.h"

#include "antenna_test.h"

namespace {

constexpr std::uint16_t kNetwork = 0x20FA, kStream = 0x0405;

struct AntennaSurvey : testing::Test {
  TvFolder folder;
  std::atomic<bool> cancelled = false;
  Survey survey;
  std::string error;
  bool read(const TestStream& stream, SurveyAim aim = SurveyAim::kServices) {
    return survey_read(write_bytes(folder.path + "/a.ts", stream.bytes), aim, cancelled, survey, error);
  }
};

// Everything that a viewer can choose, and some services that cannot be chosen.
TestStream full_multiplex() {
  TestStream made;
  add_section(
      made, 0x00,
      pat(kStream,
          {{1, 0x41}, {2, 0x42}, {3, 0x43}, {4, 0x44}, {5, 0x45}, {6, 0x45}, {7, 0x47}, {8, 0x48}, {10, 0x4A}}));
  add_section(made, 0x41, pmt(1, {0x02, 0x03}));
  add_section(made, 0x42, pmt(2, {0x1B, 0x0F}, true));
  add_section(made, 0x43, pmt(3, {0x03}));
  add_section(made, 0x44, pmt(4, {0x05}));
  add_section(made, 0x45, pmt(5, {0x02, 0x03}));
  add_section(made, 0x45, pmt(6, {0x04}));
  add_section(made, 0x47, pmt(7, {0x05}));
  add_section(made, 0x4A, pmt(10, {0x24, 0x0F}));
  add_section(made, 0x11,
              sdt(kNetwork, kStream,
                  {{1, 0x01, "First", "One"}, {2, 0x19, "Second HD", "Two"}, {3, 0x02, "Radio", "Three", true}},
                  {.version = 3, .number = 0, .last = 1}));
  add_section(made, 0x11,
              sdt(kNetwork, kStream, {{4, 0x0C, "Data", ""}, {9, 0x01, "Not in the PAT", ""}, {10, 0x1F, "", "Ten"}},
                  {.version = 3, .number = 1, .last = 1}));
  add_section(made, 0x11, sdt(kNetwork, 0x0999, {{1, 0x01, "Another multiplex", ""}}, {}, false));
  Bytes own = by_cable(346'000'000, 6'900'000);
  append(own, numbers({{1, 12}, {2, 101, false}, {3, 0}, {4, 44}, {9, 9}}));
  add_section(made, 0x10,
              nit(5, {{0x1111, kStream, by_air(474'000'000)}, {kNetwork, 0x0999, by_air(482'000'000)}},
                  {.version = 1, .number = 0, .last = 1}));
  add_section(made, 0x10, nit(5, {{kNetwork, kStream, own}}, {.version = 1, .number = 1, .last = 1}));
  add_section(made, 0x14, tdt(1'700'000'000));
  return made;
}

std::string line(const FoundService& each) {
  return std::to_string(each.key.network) + "/" + std::to_string(each.key.stream) + "/" +
         std::to_string(each.key.service) + " " + each.name + ", " + each.provider + ", type " +
         std::to_string(each.type) + (each.scrambled ? ", scrambled" : "") + (each.hidden ? ", hidden" : "") +
         ", number " + (each.number ? std::to_string(*each.number) : "none") + ", " +
         std::to_string(static_cast<int>(each.medium)) + " " + std::to_string(each.frequency) + " " +
         std::to_string(each.symbol_rate);
}

TEST_F(AntennaSurvey, ServicesOfAMultiplex) {
  ASSERT_TRUE(read(full_multiplex())) << error;
  std::vector<std::string> lines;
  for (const FoundService& each : survey_services(survey, Medium::kCable, 346'000'000)) lines.push_back(line(each));
  const std::vector<std::string> expected = {
      "8442/1029/1 First, One, type 1, number 12, 2 346000000 6900000",
      "8442/1029/2 Second HD, Two, type 25, scrambled, hidden, number 101, 2 346000000 6900000",
      "8442/1029/3 Radio, Three, type 2, scrambled, number none, 2 346000000 6900000",
      "8442/1029/5 Service 5, , type 1, number none, 2 346000000 6900000",
      "8442/1029/6 Service 6, , type 2, number none, 2 346000000 6900000",
      "8442/1029/10 Service 10, Ten, type 31, number none, 2 346000000 6900000"};
  EXPECT_EQ(lines, expected);
}

TEST_F(AntennaSurvey, TheIndexLearnsDeliveryAndTime) {
  ASSERT_TRUE(read(full_multiplex(), SurveyAim::kIndex)) << error;
  EXPECT_EQ(survey.network, kNetwork);
  EXPECT_EQ(survey.stream, kStream);
  EXPECT_EQ(survey.programs.size(), 9u);
  ASSERT_TRUE(survey.delivery);
  EXPECT_EQ(survey.delivery->medium, Medium::kCable);
  EXPECT_EQ(survey.delivery->frequency, 346'000'000u);
  EXPECT_EQ(survey.utc, 1'700'000'000);
  EXPECT_EQ(survey.signal.strength, 100);
  EXPECT_EQ(survey.signal.quality, 100);
}

TEST_F(AntennaSurvey, ServicesOfASatelliteHaveItsPlace) {
  TestStream made = small_multiplex(kNetwork, kStream, 0);
  add_section(made, 0x10, nit(5, {{kNetwork, kStream, by_satellite(11'727, 192, false, 22'000'000)}}));
  ASSERT_TRUE(read(made)) << error;
  const std::vector<FoundService> found = survey_services(survey, Medium::kSatellite, 11'727);
  ASSERT_EQ(found.size(), 1u);
  EXPECT_EQ(survey.delivery->frequency, 11'727u);
  EXPECT_EQ(found[0].symbol_rate, 22'000'000u);
  EXPECT_EQ(found[0].orbit, 192);
  EXPECT_FALSE(found[0].horizontal);
}

TEST_F(AntennaSurvey, ANewVersionReplacesATable) {
  TestStream made = small_multiplex(kNetwork, kStream, 474'000'000);
  add_section(made, 0x00, pat(kStream, {{2, 0x42}}, {.version = 1}));
  add_section(made, 0x42, pmt(2, {0x02}));
  add_section(made, 0x11, sdt(kNetwork, kStream, {{2, 0x01, "New", ""}}, {.version = 1}));
  ASSERT_TRUE(read(made)) << error;
  const std::vector<FoundService> found = survey_services(survey, Medium::kAir, 474'000'000);
  ASSERT_EQ(found.size(), 1u);
  EXPECT_EQ(found[0].name, "New");
}

TEST_F(AntennaSurvey, AServiceWithoutTablesOfItsOwnIsLeftOut) {
  TestStream made;
  add_section(made, 0x00, pat(kStream, {{1, 0x41}}));
  ASSERT_TRUE(read(made)) << error;
  EXPECT_EQ(survey.network, 0);
  EXPECT_TRUE(survey_services(survey, Medium::kAir, 474'000'000).empty());
}

TEST_F(AntennaSurvey, MoreServicesThanPidsThatCanBeWantedAtOnce) {
  TestStream made;
  std::vector<TestProgram> programs;
  for (std::uint16_t i = 0; i < 220; ++i) programs.push_back({std::uint16_t(1 + i), std::uint16_t(0x100 + i)});
  add_section(made, 0x00, pat(kStream, programs));
  for (int round = 0; round < 2; ++round)
    for (const TestProgram& each : programs) add_section(made, each.pid, pmt(each.service, {0x02}));
  ASSERT_TRUE(read(made)) << error;
  EXPECT_EQ(survey.contents.size(), 220u);
  EXPECT_EQ(survey_services(survey, Medium::kAir, 474'000'000).size(), 220u);
}

TEST_F(AntennaSurvey, ListsHaveBounds) {
  TestStream made;
  for (std::uint16_t part = 0; part < 8; ++part) {
    std::vector<TestProgram> programs;
    for (std::uint16_t i = 0; i < 250; ++i) programs.push_back({std::uint16_t(1 + part * 250 + i), 0x100});
    const auto number = static_cast<std::uint8_t>(part);
    add_section(made, 0x00, pat(kStream, programs, {.version = 0, .number = number, .last = 7}));
  }
  ASSERT_TRUE(read(made)) << error;
  EXPECT_EQ(survey.programs.size(), kMostPrograms);
}

TEST_F(AntennaSurvey, DamageLowersStrengthAndQuality) {
  TestStream made = small_multiplex(kNetwork, kStream, 474'000'000);
  const std::size_t begin = made.bytes.size();
  for (int i = 0; i < 600; ++i) add_packet(made, 0x200, false, {});
  const std::size_t whole = made.bytes.size() / 188;
  for (std::size_t i = 0; i < 100; ++i) made.bytes[begin + 188 * (i * 5) + 1] |= 0x80;
  ASSERT_TRUE(read(made)) << error;
  EXPECT_EQ(survey.signal.strength, 100);
  EXPECT_EQ(survey.signal.quality, static_cast<int>((whole - 100) * 100 / whole));

  made = small_multiplex(kNetwork, kStream, 474'000'000);
  for (int i = 0; i < 600; ++i) add_packet(made, 0x200, false, {});
  made.bytes.erase(made.bytes.end() - 188 * 60, made.bytes.end() - 188 * 59);
  ASSERT_TRUE(read(made)) << error;
  EXPECT_EQ(survey.signal.strength, 99);
  EXPECT_EQ(survey.signal.quality, 99);
}

TEST_F(AntennaSurvey, RefusalsSayWhatIsMissing) {
  TestStream made;
  add_section(made, 0x11, sdt(kNetwork, kStream, {{1, 0x01, "First", "One"}}));
  EXPECT_FALSE(read(made));
  EXPECT_EQ(error, "the stream has no program association table");
  made = {};
  add_section(made, 0x00, pat(kStream, {}));
  EXPECT_FALSE(read(made));
  EXPECT_EQ(error, "the stream lists no service");
  EXPECT_FALSE(survey_read(folder.path + "/missing.ts", SurveyAim::kIndex, cancelled, survey, error));
  EXPECT_EQ(error, "No such file or directory");
  cancelled = true;
  EXPECT_FALSE(read(full_multiplex()));
  EXPECT_EQ(error, "");
}

}  // namespace
