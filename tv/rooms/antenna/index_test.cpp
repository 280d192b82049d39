// The index of a folder: what is a multiplex, what is refused and why, frequencies and time shifts.
#include "rooms/antenna/index.h"

#include <sys/fsuid.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

#include "antenna_test.h"

namespace {

namespace fs = std::filesystem;

constexpr std::int64_t kNow = 1'750'000'000;

struct AntennaIndex : testing::Test {
  TvFolder folder;
  std::atomic<bool> cancelled = false;
  std::vector<std::string> read_files;  // those that were read, in order
  Index index;
  std::string path(const std::string& name) const { return folder.path + "/" + name; }
  std::string write(const std::string& name, const TestStream& stream) const {
    return write_bytes(path(name), stream.bytes);
  }
  bool read() {
    read_files.clear();
    const IndexReader reader{
        .now = [] { return kNow; },
        .cancelled = cancelled,
        .begins = [this](std::size_t, std::size_t, const std::string& name) { read_files.push_back(name); }};
    return index_read(folder.path, index, reader, index);
  }
  // "a.ts 474000000" for each multiplex.
  std::vector<std::string> frequencies() const {
    std::vector<std::string> lines;
    for (const IndexEntry& each : index.entries)
      lines.push_back(fs::path(each.multiplex.path).filename().string() + " " +
                      std::to_string(each.multiplex.frequency));
    return lines;
  }
  std::string why(const std::string& name) const {
    for (const IndexRefusal& each : index.refused)
      if (each.name == name) return each.why;
    return "it is not refused";
  }
};

using Lines = std::vector<std::string>;

TEST_F(AntennaIndex, GoodFilesAreOrderedByFrequency) {
  write("a.ts", small_multiplex(1, 10, 578'000'000));
  write("b.M2TS", small_multiplex(1, 11, 474'000'000));
  write("notes.txt", small_multiplex(1, 12, 0));
  ASSERT_TRUE(read());
  EXPECT_EQ(frequencies(), (Lines{"b.M2TS 474000000", "a.ts 578000000"}));
  EXPECT_TRUE(index.refused.empty());
  EXPECT_EQ(index.entries[0].services, std::vector<std::uint16_t>{1});
  EXPECT_EQ(index.entries[0].multiplex.network, 1);
  EXPECT_EQ(index.entries[0].multiplex.stream, 11);
  EXPECT_EQ(index.entries[0].multiplex.quality, 100);
}

TEST_F(AntennaIndex, BadFilesAreListedWithTheReason) {
  const Bytes good = small_multiplex(1, 1, 474'000'000).bytes;
  write_bytes(path("good.ts"), good);
  write_bytes(path("empty.ts"), {});
  write_bytes(path("cut.ts"), Bytes(good.begin(), good.begin() + 150));
  std::ofstream(path("text.ts")) << "This is a text.\n";
  ASSERT_EQ(mkfifo(path("fifo.ts").c_str(), 0600), 0);
  fs::create_directory(path("folder.ts"));
  fs::create_symlink("good.ts", path("link.ts"));
  write_bytes(path("zeros.ts"), {});
  fs::resize_file(path("zeros.ts"), std::uintmax_t{1} << 30);
  write_bytes(path("same.ts"), good);
  write_bytes(path("bad\xFFname.ts"), good);
  ASSERT_TRUE(read());
  EXPECT_EQ(frequencies(), (Lines{"good.ts 474000000"}));
  EXPECT_EQ(index.refused.size(), 9u);
  EXPECT_EQ(why("empty.ts"), "it is empty");
  EXPECT_NE(why("cut.ts").find("not a transport stream"), std::string::npos) << why("cut.ts");
  EXPECT_NE(why("text.ts").find("not a transport stream"), std::string::npos) << why("text.ts");
  EXPECT_EQ(why("fifo.ts"), "it is not a regular file");
  EXPECT_EQ(why("folder.ts"), "it is a folder; only the files of the antenna's own folder are read");
  EXPECT_EQ(why("link.ts"), "it is a symbolic link, which the antenna does not follow");
  EXPECT_NE(why("zeros.ts").find("not a transport stream"), std::string::npos) << why("zeros.ts");
  EXPECT_EQ(why("same.ts"),
            "it has the network and stream identifiers (1, 1) of good.ts; a set tells multiplexes apart by them");
  EXPECT_EQ(why("bad?name.ts"), "its name is not in UTF-8");
}

TEST_F(AntennaIndex, AFileThatMayNotBeReadIsRefused) {
  write("closed.ts", small_multiplex(1, 1, 474'000'000));
  fs::permissions(path("closed.ts"), fs::perms::none);
  fs::permissions(folder.path, fs::perms::all);
  const int before = setfsuid(65534);  // of this thread only: root may read everything
  const bool done = read();
  setfsuid(static_cast<uid_t>(before));
  ASSERT_TRUE(done);
  EXPECT_TRUE(index.entries.empty());
  EXPECT_EQ(why("closed.ts"), "Permission denied");
}

TEST_F(AntennaIndex, StreamsWithoutAFrequencyGetFreeOnes) {
  write("a.ts", small_multiplex(1, 1, 0));
  write("b.ts", small_multiplex(1, 2, 482'000'000));
  write("c.ts", small_multiplex(1, 3, 0));
  write("d.ts", small_multiplex(1, 4, 490'000'000));
  write("e.ts", small_multiplex(1, 5, 0));
  ASSERT_TRUE(read());
  EXPECT_EQ(frequencies(),
            (Lines{"a.ts 474000000", "b.ts 482000000", "d.ts 490000000", "c.ts 498000000", "e.ts 506000000"}));
}

TEST_F(AntennaIndex, OnlyChangedFilesAreReadAgain) {
  write("a.ts", small_multiplex(1, 1, 474'000'000));
  write("b.ts", small_multiplex(1, 2, 482'000'000));
  ASSERT_TRUE(read());
  EXPECT_FALSE(index_is_outdated(folder.path, index));
  // A stream that says something else, but is as long and as old: the index does not look into it again.
  const fs::file_time_type time = fs::last_write_time(path("a.ts"));
  write("a.ts", small_multiplex(1, 7, 474'000'000));
  fs::last_write_time(path("a.ts"), time);
  EXPECT_FALSE(index_is_outdated(folder.path, index));
  write("b.ts", small_multiplex(1, 8, 490'000'000));
  fs::last_write_time(path("b.ts"), time + std::chrono::seconds(5));
  EXPECT_TRUE(index_is_outdated(folder.path, index));
  ASSERT_TRUE(read());
  ASSERT_EQ(index.entries.size(), 2u);
  EXPECT_EQ(index.entries[0].multiplex.stream, 1);
  EXPECT_EQ(index.entries[1].multiplex.stream, 8);
}

TEST_F(AntennaIndex, AddedRemovedAndGrownFilesMakeItOutdated) {
  write_bytes(path("late.ts"), {});
  ASSERT_TRUE(read());
  EXPECT_EQ(why("late.ts"), "it is empty");
  write("late.ts", small_multiplex(1, 1, 474'000'000));
  EXPECT_TRUE(index_is_outdated(folder.path, index));
  ASSERT_TRUE(read());
  EXPECT_EQ(index.entries.size(), 1u);
  fs::last_write_time(folder.path, fs::last_write_time(folder.path) - std::chrono::seconds(5));
  ASSERT_TRUE(read());
  EXPECT_FALSE(index_is_outdated(folder.path, index));
  write("more.ts", small_multiplex(1, 2, 482'000'000));
  EXPECT_TRUE(index_is_outdated(folder.path, index));
  ASSERT_TRUE(read());
  EXPECT_EQ(index.entries.size(), 2u);
  fs::remove(path("more.ts"));
  EXPECT_TRUE(index_is_outdated(folder.path, index));
}

TEST_F(AntennaIndex, AtMost256Files) {
  const Bytes good = small_multiplex(1, 1, 474'000'000).bytes;
  for (int i = 1000; i < 1260; ++i) write_bytes(path(std::to_string(i) + ".ts"), good);
  ASSERT_TRUE(read());
  EXPECT_EQ(read_files.size(), 256u);
  EXPECT_EQ(read_files.front(), "1000.ts");
  EXPECT_EQ(read_files.back(), "1255.ts");
  EXPECT_EQ(why("..."), "4 more files: an antenna has at most 256");
}

TEST_F(AntennaIndex, TimesAreShiftedByWholeMinutesUnlessTheStreamIsOfToday) {
  constexpr std::int64_t kHour = 3600;
  EXPECT_EQ(index_shift(kNow, kNow), 0);
  EXPECT_EQ(index_shift(kNow - 26 * kHour + 1, kNow), 0);
  EXPECT_EQ(index_shift(kNow + 26 * kHour - 1, kNow), 0);
  EXPECT_EQ(index_shift(kNow - 26 * kHour, kNow), 26 * kHour);
  EXPECT_EQ(index_shift(kNow - 1000 * kHour - 29, kNow), 1000 * kHour);
  EXPECT_EQ(index_shift(kNow - 1000 * kHour - 31, kNow), 1000 * kHour + 60);
  EXPECT_EQ(index_shift(kNow + 1000 * kHour + 31, kNow), -1000 * kHour - 60);
  TestStream old = small_multiplex(1, 1, 474'000'000), today = small_multiplex(1, 2, 482'000'000);
  add_section(old, 0x14, tdt(kNow - 1000 * kHour));
  add_section(today, 0x14, tdt(kNow - 20 * kHour));
  write("a.ts", old);
  write("b.ts", today);
  ASSERT_TRUE(read());
  EXPECT_EQ(index.entries[0].shift, 1000 * kHour);
  EXPECT_EQ(index.entries[1].shift, 0);
}

TEST_F(AntennaIndex, ACancelledReadingChangesNothing) {
  write("a.ts", small_multiplex(1, 1, 474'000'000));
  ASSERT_TRUE(read());
  write("b.ts", small_multiplex(1, 2, 482'000'000));
  cancelled = true;
  EXPECT_FALSE(read());
  EXPECT_EQ(index.entries.size(), 1u);
}

TEST_F(AntennaIndex, AMissingFolderIsAProblem) {
  write("a.ts", small_multiplex(1, 1, 474'000'000));
  ASSERT_TRUE(read());
  fs::remove_all(folder.path);
  EXPECT_TRUE(index_is_outdated(folder.path, index));
  ASSERT_TRUE(read());
  EXPECT_EQ(index.problem, "the folder cannot be read: No such file or directory");
  EXPECT_TRUE(index.entries.empty());
  EXPECT_FALSE(index_is_outdated(folder.path, index)) << "asking again does not read it again";
}

}  // namespace
