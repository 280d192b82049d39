// The walk by itself: which folders it says it knows completely.
#include "rooms/library/walk.h"

#include <fcntl.h>
#include <sys/fsuid.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <map>

#include "tests/unit/tv/support.h"

namespace fs = std::filesystem;

namespace {

struct Walked {
  std::map<std::string, WalkedFolder> folders;  // by path
  std::map<std::string, std::string> problems;  // why, by path
};

Walked walk_of(const std::string& folder, std::size_t most_names = kMostStickNames, bool inodes = true) {
  const int stick = open(folder.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC);
  Walked walked;
  const Walk how = {.stick = stick,
                    .longest_path = 200,
                    .most_names = most_names,
                    .inodes = inodes,
                    .folder = [&](WalkedFolder found) { walked.folders[found.path] = std::move(found); },
                    .problem = [&](const std::string& path, const std::string& why) { walked.problems[path] = why; },
                    .ends = [] { return false; }};
  std::string why;
  EXPECT_TRUE(walk_stick(how, why)) << why;
  close(stick);
  return walked;
}

void write(const std::string& path) {
  fs::create_directories(fs::path(path).parent_path());
  std::ofstream(path) << "x";
}

TEST(Walk, AFolderWithAnEntryThatCannotBeLookedAtIsNotWhole) {
  const TvFolder folder;
  write(folder.path + "/a/x.bmp");
  write(folder.path + "/b/y.bmp");
  // It can be listed, but not entered. The superuser walks as somebody else.
  fs::permissions(folder.path, fs::perms(0755));
  fs::permissions(folder.path + "/a", fs::perms(0444));
  const bool super = geteuid() == 0;
  if (super) setfsuid(65534);
  const Walked walked = walk_of(folder.path);
  if (super) setfsuid(0);
  fs::permissions(folder.path + "/a", fs::perms(0755));
  ASSERT_TRUE(walked.folders.contains("a"));
  EXPECT_FALSE(walked.folders.at("a").whole);
  EXPECT_EQ(walked.problems.at("a/x.bmp"), "Permission denied");
  ASSERT_TRUE(walked.folders.contains("b"));
  EXPECT_TRUE(walked.folders.at("b").whole);
}

TEST(Walk, InodesCountWhereTheFileSystemKeepsThem) {
  EXPECT_FALSE(keeps_inodes(0x4D44)) << "FAT";
  EXPECT_FALSE(keeps_inodes(0x2011BAB0)) << "exFAT";
  EXPECT_FALSE(keeps_inodes(0x65735546)) << "FUSE";
  EXPECT_TRUE(keeps_inodes(0xEF53)) << "ext4";
  EXPECT_TRUE(keeps_inodes(0x01021994)) << "tmpfs";
  const TvFolder folder;
  write(folder.path + "/x.bmp");
  EXPECT_NE(walk_of(folder.path).folders.at("").files.at(0).inode, 0u);
  EXPECT_EQ(walk_of(folder.path, 10, false).folders.at("").files.at(0).inode, 0u);
}

TEST(Walk, TimesBeyondTheNumbersAreMoved) {
  constexpr std::int64_t kYear2262 = 9'214'646'400;  // its beginning
  EXPECT_EQ(media_time({.tv_sec = 1'700'000'000, .tv_nsec = 5}), 1'700'000'000'000'000'005);
  EXPECT_EQ(media_time({.tv_sec = -1, .tv_nsec = 5}), -999'999'995);
  for (const std::time_t far : {std::time_t{10'000'000'000}, std::time_t{INT64_MAX}}) {
    EXPECT_GT(media_time({.tv_sec = far, .tv_nsec = 999'999'999}) / 1'000'000'000, kYear2262);
    EXPECT_LT(media_time({.tv_sec = -far, .tv_nsec = 0}) / 1'000'000'000, -kYear2262);
  }
}

TEST(Walk, AfterTheLastNameNoFolderIsWhole) {
  const TvFolder folder;
  for (const char* const path : {"/a/1.bmp", "/a/2.bmp", "/b/3.bmp", "/c/4.bmp"}) write(folder.path + path);
  // Three names in the root, two in "a", one in "b".
  const Walked walked = walk_of(folder.path, 6);
  EXPECT_TRUE(walked.folders.at("a").whole);
  EXPECT_TRUE(walked.folders.at("b").whole);
  EXPECT_FALSE(walked.folders.at("c").whole);
  EXPECT_TRUE(walked.folders.at("c").files.empty());
  EXPECT_TRUE(walked.problems.contains("c"));
}

}  // namespace
