// Damaged databases: a flipped bit never yields a wrong value without a message.
#include <random>

#include "store_support.h"
#include "tv/rooms/config/config_test.h"

namespace {

// All stored values of the set, as texts by key.
std::map<std::string, std::string> all_values() {
  std::map<std::string, std::string> values;
  for (const Row& row : rows())
    values[row.key] = row.kind == Row::kText ? text(row.key) : std::to_string(number(row.key));
  values["volume"] = std::to_string(a_vextvapi_volctrl_getVolume());
  values["mute"] = std::to_string(a_vextvapi_volctrl_getMute());
  const std::string state = tv_control(R"(["state"])");
  for (const char* const key : {"source", "network", "sticks"}) {
    const std::size_t at = state.find("\"" + std::string(key) + "\":");
    values[key] = at == std::string::npos ? "" : state.substr(at, state.find_first_of(",}", at) - at);
  }
  return values;
}

using Values = std::map<std::string, std::string>;

// The values of a set of which many have been changed, and its database.
std::string database_with_changes(Values& ret_factory, Values& ret_values) {
  TvFolder folder;
  EXPECT_EQ(tv_start(folder.path), "");
  ret_factory = all_values();
  int count = 0;
  for (const Row& row : rows()) {
    if (++count % 2 == 0) continue;
    INT32 result = 0;
    if (row.kind == Row::kBool) result = write(row.key, 1 - row.number);
    if (row.kind == Row::kNumber) result = write(row.key, row.number == row.minimum ? row.maximum : row.minimum);
    if (row.kind == Row::kText) result = a_vextvapi_config_set_str_value(row.key, "17");
    EXPECT_EQ(result, 0) << row.key;
  }
  for (const char* command :
       {R"(["volume","64"])", R"(["mute","on"])", R"(["key","SOURCE"])", R"(["network","lose"])"}) {
    EXPECT_EQ(tv_control(command).find("error"), std::string::npos) << command;
  }
  ret_values = all_values();
  dtv_tv_stop();
  for (const std::string& name : files_of(folder.path))
    EXPECT_FALSE(name.starts_with("tv.sqlite-")) << name << ": the database's file alone would not be all of it";
  return content_of(folder.database());
}

struct Outcome {
  int right = 0;
  int reported = 0;
  int aside = 0;
};

// Starts a set with this database, and checks that each value is right or has been reported.
void check_database(const std::string& database, const Values& factory, const Values& expected, Outcome& outcome) {
  TvFolder folder;
  write_file(folder.database(), database);
  testing::internal::CaptureStderr();
  const std::string error = tv_start(folder.path);
  const std::string log = testing::internal::GetCapturedStderr();
  if (!error.empty()) {
    ++outcome.aside;
    const std::vector<std::string> aside = damaged_files(folder.path);
    ASSERT_EQ(aside.size(), 1u) << error;
    EXPECT_NE(error.find(aside[0]), std::string::npos) << error;
    EXPECT_TRUE(content_of(folder.path + "/" + aside[0]) == database);
    ASSERT_EQ(tv_start(folder.path), "");
    EXPECT_EQ(all_values(), factory);
    return;
  }
  const Values found = all_values();
  if (found == expected) {
    ++outcome.right;
    return;
  }
  ++outcome.reported;
  std::size_t wrong = 0;
  for (const auto& [key, value] : found) {
    if (value == expected.at(key)) continue;
    ++wrong;
    EXPECT_EQ(value, factory.at(key)) << key;
  }
  std::size_t reports = 0;
  for (std::size_t at = log.find(" is damaged"); at != std::string::npos; at = log.find(" is damaged", at + 1)) {
    ++reports;
  }
  EXPECT_GE(reports, wrong) << log;
}

// DTV_FLIPS: how many bits, evenly spread; 0: every bit.
TEST(TvStoreDamage, FlippedBitNeverYieldsAnUnreportedWrongValue) {
  Values factory, expected;
  const std::string good = database_with_changes(factory, expected);
  const std::size_t bits = good.size() * 8;
  const auto flips = static_cast<std::size_t>(times("DTV_FLIPS", 400));
  const std::size_t stride = flips == 0 ? 1 : bits / flips | 1;
  Outcome outcome;
  for (std::size_t bit = 0; bit < bits; bit += stride) {
    SCOPED_TRACE("bit " + std::to_string(bit % 8) + " of byte " + std::to_string(bit / 8));
    std::string damaged = good;
    damaged[bit / 8] = static_cast<char>(damaged[bit / 8] ^ 1 << bit % 8);
    check_database(damaged, factory, expected, outcome);
    if (HasFailure()) break;
  }
  std::printf("right %d, reported %d, moved aside %d\n", outcome.right, outcome.reported, outcome.aside);
  EXPECT_GT(outcome.reported, 0);
  EXPECT_GT(outcome.aside, 0);
}

// Every bit of the header and the schema.
TEST(TvStoreDamage, FlippedBitOfTheHeaderNeverYieldsAnUnreportedWrongValue) {
  Values factory, expected;
  const std::string good = database_with_changes(factory, expected);
  Outcome outcome;
  for (std::size_t bit = 0; bit < 108 * 8; bit += times("DTV_FLIPS", 1) == 0 ? 1 : 3) {
    SCOPED_TRACE("bit " + std::to_string(bit % 8) + " of byte " + std::to_string(bit / 8));
    std::string damaged = good;
    damaged[bit / 8] = static_cast<char>(damaged[bit / 8] ^ 1 << bit % 8);
    check_database(damaged, factory, expected, outcome);
    if (HasFailure()) break;
  }
  EXPECT_GT(outcome.aside, 0);
}

TEST(TvStoreDamage, TwentyFlippedBits) {
  Values factory, expected;
  const std::string good = database_with_changes(factory, expected);
  std::mt19937 random{4711};
  Outcome outcome;
  for (int round = 0; round < 100; ++round) {
    SCOPED_TRACE("round " + std::to_string(round));
    std::string damaged = good;
    for (int flip = 0; flip < 20; ++flip) {
      const std::size_t bit = random() % (good.size() * 8);
      damaged[bit / 8] = static_cast<char>(damaged[bit / 8] ^ 1 << bit % 8);
    }
    check_database(damaged, factory, expected, outcome);
    if (HasFailure()) break;
  }
  EXPECT_GT(outcome.reported + outcome.aside, 0);
}

TEST(TvStoreDamage, TruncatedDatabase) {
  Values factory, expected;
  const std::string good = database_with_changes(factory, expected);
  Outcome outcome;
  for (const std::size_t length : {std::size_t{1}, std::size_t{50}, std::size_t{100}, std::size_t{512},
                                   std::size_t{4095}, std::size_t{4096}, good.size() - 4096, good.size() - 1}) {
    SCOPED_TRACE(length);
    check_database(good.substr(0, length), factory, expected, outcome);
  }
  EXPECT_EQ(outcome.right, 0);
}

}  // namespace
