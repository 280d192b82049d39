// Hostile files, and a reader that a hostile file has taken over.
#include <signal.h>
#include <sys/ptrace.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstring>
#include <random>
#include <sstream>
#include <thread>

#include "rooms/library/reader_checks.h"
#include "rooms/library/reader_process.h"
#include "rooms/library/reader_support.h"

namespace {

using std::chrono::seconds;
using std::chrono::steady_clock;

// ---- What a reply may contain ----

WireReply photo_reply() { return {.serial = 1, .kind = MEDIA_TYPE_PHOTO, .width = 40, .height = 30}; }

TEST(ReaderChecks, keep_what_is_plausible) {
  WireReply reply = photo_reply();
  reply.orientation = 6;
  const std::uint32_t date[] = {2026, 3, 29, 10, 30, 0};
  std::ranges::copy(date, reply.date);
  std::strcpy(reply.texts[0], "Title");
  MediaFacts facts;
  ASSERT_TRUE(check_facts(reply, facts));
  EXPECT_EQ(facts.kind, MEDIA_TYPE_PHOTO);
  EXPECT_EQ(facts.width, 40U);
  EXPECT_EQ(facts.orientation, 6U);
  EXPECT_EQ(facts.date.iyear, 2026);
  EXPECT_EQ(facts.date.iminute, 30);
  EXPECT_EQ(facts.title, "Title");
}

TEST(ReaderChecks, drop_what_is_implausible) {
  WireReply reply = photo_reply();
  reply.width = 1U << 31;
  reply.duration_ms = ~std::uint64_t{0};
  reply.orientation = 9;
  std::ranges::fill(reply.date, 99999U);
  std::memset(reply.texts, 'x', sizeof reply.texts);  // no zero anywhere
  std::strcpy(reply.texts[1], "line\n\x1B[2Jnext \xFF\xC3");
  MediaFacts facts;
  ASSERT_TRUE(check_facts(reply, facts));
  EXPECT_EQ(facts.width, 0U);
  EXPECT_EQ(facts.height, 30U);
  EXPECT_EQ(facts.duration_ms, 0U);
  EXPECT_EQ(facts.orientation, 1U);
  EXPECT_EQ(facts.date.iyear, 0);
  EXPECT_EQ(facts.title, std::string(kLongestFact, 'x'));
  EXPECT_EQ(facts.artist, "line[2Jnext ??");
  EXPECT_EQ(facts.year.size(), kLongestFact);
}

TEST(ReaderChecks, refuse_what_is_no_reply_about_facts) {
  MediaFacts facts{.title = "before"};
  WireReply folder = photo_reply();
  folder.kind = MEDIA_TYPE_FOLDER;
  WireReply sized = photo_reply();
  sized.size = 1;
  WireReply wild = photo_reply();
  wild.kind = ~0U;
  for (const WireReply& reply : {folder, sized, wild}) EXPECT_FALSE(check_facts(reply, facts));
  EXPECT_EQ(facts.title, "before");
  WireReply why;
  EXPECT_FALSE(check_why(why).empty());
  std::memset(why.why, 'y', sizeof why.why);
  EXPECT_EQ(check_why(why).size(), kLongestFact);
}

TEST(ReaderChecks, accept_only_jpegs_of_the_size_asked_for) {
  using namespace std::string_literals;
  const auto check = [](const std::string& bytes, std::uint32_t width, std::uint32_t height) {
    return check_jpeg({reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size()}, width, height);
  };
  const std::string head = "\xFF\xD8\xFF\xE0\0\x04zz"s;
  const std::string frame = "\xFF\xC0\0\x11\x08\0\x20\0\x10"s;  // 16 wide, 32 high
  const std::string end = "............\xFF\xD9"s;
  EXPECT_TRUE(check(head + frame + end, 16, 32));
  EXPECT_FALSE(check(head + frame + end, 15, 32));
  EXPECT_FALSE(check(head + frame + end, 16, 31));
  EXPECT_FALSE(check(head + frame + end + "x", 16, 32)) << "something behind it";
  EXPECT_FALSE(check("", 16, 32));
  EXPECT_FALSE(check("\xFF\xD8\xFF\xD9"s, 16, 32)) << "no frame";
  EXPECT_FALSE(check("\xFF\xD8\xFF\xE0\0\0zz"s + frame + end, 16, 32)) << "a segment without its length";
  EXPECT_FALSE(check("\xFF\xD8\xFF\xE0\xFF\xFFzz"s + frame + end, 16, 32)) << "a segment beyond the end";
  EXPECT_FALSE(check("\xFF\xD8<script>"s + frame + end, 16, 32));
}

#ifdef DTV_PICTURE

std::string beside(const char* name) { return std::filesystem::read_symlink("/proc/self/exe").parent_path() / name; }

// ---- A reader that has been taken over ----

struct FalseReader {
  MediaFolder folder;
  FalseReader() { media_reader_set_program(beside("dtv-false-reader")); }
  ~FalseReader() { media_reader_set_program(""); }
  FalseReader(const FalseReader&) = delete;
  FalseReader& operator=(const FalseReader&) = delete;
};

struct Attack {
  const char* word;
  const char* why;
};

class TakenOver : public testing::TestWithParam<Attack> {};

TEST_P(TakenOver, makes_only_its_own_file_fail) {
  const FalseReader reader_program;
  const MediaReaderHandle reader = media_reader_create();
  const std::string good = reader_program.folder.write("good", "good"),
                    bad = reader_program.folder.write("bad", GetParam().word);
  ASSERT_EQ(facts_of(*reader, good).result, ReadResult::kRead);
  const auto start = steady_clock::now();
  const auto [result, facts, why] = facts_of(*reader, bad);
  EXPECT_LT(steady_clock::now() - start, seconds(50));
  EXPECT_EQ(result, ReadResult::kFailed);
  EXPECT_NE(why.find(GetParam().why), std::string::npos) << why;
  EXPECT_EQ(facts_of(*reader, good).result, ReadResult::kRead) << "the file after it";
}

INSTANTIATE_TEST_SUITE_P(Attacks, TakenOver,
                         testing::Values(Attack{"crash", "signal 11"}, Attack{"exit", "code 7"},
                                         Attack{"close", "crashed the reader"}, Attack{"stop", "more than 5 s"},
                                         Attack{"silent", "more than 5 s"}, Attack{"short", "nonsense"},
                                         Attack{"long", "nonsense"}, Attack{"empty", "crashed the reader"},
                                         Attack{"magic", "nonsense"}, Attack{"serial", "nonsense"},
                                         Attack{"kind", "nonsense"}, Attack{"huge", "nonsense"}),
                         [](const auto& info) { return std::string(info.param.word); });

TEST(TakenOverReader, cannot_answer_the_next_file_beforehand) {
  const FalseReader reader_program;
  const MediaReaderHandle reader = media_reader_create();
  EXPECT_EQ(facts_of(*reader, reader_program.folder.write("a", "twice")).result, ReadResult::kRead);
  const auto [result, facts, why] = facts_of(*reader, reader_program.folder.write("b", "good"));
  EXPECT_EQ(result, ReadResult::kRead) << "also if the second answer comes after the next request: " << why;
}

// The process of this program that runs the false reader.
pid_t false_reader_process() {
  for (const auto& each : std::filesystem::directory_iterator("/proc")) {
    if (each.path().filename().string().find_first_not_of("0123456789") != std::string::npos) continue;
    std::istringstream line(bytes_of(each.path() / "stat"));
    pid_t process = 0, parent = 0;
    std::string name, state;
    line >> process >> name >> state >> parent;
    if (name.starts_with("(dtv-false-read") && parent == getpid()) return process;
  }
  return 0;
}

TEST(TakenOverReader, spoils_no_other_file) {
  const FalseReader reader_program;
  const MediaReaderHandle reader = media_reader_create();
  const std::string good = reader_program.folder.write("good", "good");
  ASSERT_EQ(facts_of(*reader, good).result, ReadResult::kRead);
  const pid_t process = false_reader_process();
  ASSERT_GT(process, 0);
  kill(process, SIGSTOP);
  const ReadFacts read = facts_of(*reader, good);
  EXPECT_EQ(read.result, ReadResult::kRead) << "by a process of its own; " << read.why;
}

TEST(TakenOverReader, cannot_leave_file_descriptors_here) {
  const FalseReader reader_program;
  const MediaReaderHandle reader = media_reader_create();
  const auto count = [] {
    const std::filesystem::directory_iterator files("/proc/self/fd");
    return std::distance(begin(files), end(files));
  };
  ASSERT_EQ(facts_of(*reader, reader_program.folder.write("a", "good")).result, ReadResult::kRead);
  const auto before = count();
  for (int i = 0; i < 20; ++i) facts_of(*reader, reader_program.folder.write("b", "files"));
  EXPECT_EQ(count(), before);
}

TEST(TakenOverReader, cannot_pass_wrong_pictures) {
  const FalseReader reader_program;
  const MediaReaderHandle reader = media_reader_create();
  MediaPicture picture;
  std::vector<std::uint8_t> jpeg;
  for (const char* const word : {"no jpeg", "huge", "too wide"}) {
    SCOPED_TRACE(word);
    const OpenFile file(reader_program.folder.write("a", word));
    std::string why;
    EXPECT_EQ(media_reader_picture(*reader, file.number, "a", 100, 100, picture, why), ReadResult::kFailed);
    EXPECT_EQ(media_reader_thumbnail(*reader, file.number, "a", 100, 100, jpeg, why), ReadResult::kFailed);
    EXPECT_NE(why.find("nonsense"), std::string::npos) << why;
  }
}

TEST(TakenOverReader, reaches_nothing_but_its_file) {
  const FalseReader reader_program;
  const MediaReaderHandle reader = media_reader_create();
  const ReadFacts read = facts_of(*reader, reader_program.folder.write("a", "escape"));
  ASSERT_EQ(read.result, ReadResult::kRead) << read.why;
  EXPECT_EQ(read.facts.title, "nothing");
}

TEST(Reader, says_that_its_program_is_missing) {
  const MediaFolder folder;
  for (const std::string& program : {folder.path + "/none", std::string("/bin/true")}) {
    media_reader_set_program(program);
    const MediaReaderHandle reader = media_reader_create();
    const ReadFacts read = facts_of(*reader, folder.write("a.jpg", "x"));
    EXPECT_EQ(read.result, ReadResult::kNoReader);
    EXPECT_NE(read.why.find(program), std::string::npos) << read.why;
  }
  media_reader_set_program("");
}

TEST(Reader, is_cancelled_at_once) {
  const FalseReader reader_program;
  const MediaReaderHandle reader = media_reader_create();
  ASSERT_EQ(facts_of(*reader, reader_program.folder.write("a", "good")).result, ReadResult::kRead);
  const std::string silent = reader_program.folder.write("b", "silent");
  const auto start = steady_clock::now();
  std::thread other([&] { media_reader_cancel(*reader); });
  EXPECT_EQ(facts_of(*reader, silent).result, ReadResult::kCancelled);
  other.join();
  EXPECT_LT(steady_clock::now() - start, seconds(4)) << "less than the time for a file";
  EXPECT_EQ(facts_of(*reader, silent).result, ReadResult::kCancelled);
}

// ---- The process as it is ----

TEST(ReaderProcess, has_its_limits) {
  ReaderProcess process;
  std::string why;
  ASSERT_TRUE(process_start(beside("dtv-media-reader"), process, why)) << why;
  const std::string folder = "/proc/" + std::to_string(process.id);
  const std::string limits = bytes_of(folder + "/limits"), status = bytes_of(folder + "/status");
  const auto soft = [&limits](const std::string& name) {
    const std::size_t at = limits.find(name);
    return at == std::string::npos ? std::string("none") : limits.substr(at + 26, limits.find(' ', at + 26) - at - 26);
  };
  EXPECT_EQ(soft("Max file size"), "0");
  EXPECT_EQ(soft("Max core file size"), "0");
  EXPECT_EQ(soft("Max open files"), "8");
#ifndef DTV_UNCONFINED
  EXPECT_LT(std::stoull(soft("Max address space")), std::uint64_t{2} << 30);
  EXPECT_NE(status.find("Seccomp:\t2"), std::string::npos);
#endif
  EXPECT_NE(status.find("NoNewPrivs:\t1"), std::string::npos);
  EXPECT_EQ(bytes_of(folder + "/environ"), "");
  const std::filesystem::directory_iterator files(folder + "/fd");
  EXPECT_EQ(std::distance(begin(files), end(files)), 5) << "standard streams, socket, memory";
  process_end(process);
  EXPECT_FALSE(process.running());
}

TEST(ReaderProcess, that_is_killed_is_started_again) {
  const MediaFolder folder;
  const std::string path = folder.write("a.txt", "text");
  ReaderProcess process;
  std::string why;
  ASSERT_TRUE(process_start(beside("dtv-media-reader"), process, why)) << why;
  kill(process.id, SIGKILL);
  siginfo_t info{};
  waitid(P_PID, static_cast<id_t>(process.id), &info, WEXITED | WNOWAIT);
  EXPECT_TRUE(process_is_useless(process));
  process_end(process);
}

// A traced process stays when it is killed, until its tracer lets it go: like one that reads from a broken stick.
TEST(ReaderProcess, that_cannot_die_is_left_behind_thrice) {
  const std::string program = beside("dtv-media-reader");
  std::vector<pid_t> stuck;
  ReaderProcess process;
  std::string why;
  for (int i = 0; i < 3; ++i) {
    ASSERT_TRUE(process_start(program, process, why)) << why;
    if (ptrace(PTRACE_SEIZE, process.id, nullptr, PTRACE_O_TRACEEXIT) != 0) {
      process_end(process);
      GTEST_SKIP() << "no process may be traced here";
    }
    stuck.push_back(process.id);
    process_end(process);
  }
  EXPECT_FALSE(process_start(program, process, why));
  EXPECT_NE(why.find("3 readers of media files cannot end"), std::string::npos) << why;
  for (const pid_t each : stuck) {
    int status = 0;
    waitpid(each, &status, __WALL);
    ptrace(PTRACE_DETACH, each, nullptr, nullptr);
  }
  const auto exists = [](pid_t each) { return kill(each, 0) == 0; };
  const auto limit = steady_clock::now() + seconds(10);
  bool started = false;
  while ((!started || std::ranges::any_of(stuck, exists)) && steady_clock::now() < limit) {
    started = process_start(program, process, why);
    process_end(process);
  }
  EXPECT_TRUE(started) << why;
  EXPECT_TRUE(std::ranges::none_of(stuck, exists)) << "they are reaped";
}

// ---- Files ----

// A chunk of a PNG, without a right checksum, which no reader of headers needs.
std::string png(std::uint32_t width, std::uint32_t height) {
  using namespace std::string_literals;
  const auto number = [](std::uint32_t value) {
    std::string bytes;
    for (int shift = 24; shift >= 0; shift -= 8) bytes += static_cast<char>(value >> shift & 0xFF);
    return bytes;
  };
  return "\x89PNG\r\n\x1A\n"s + number(13) + "IHDR" + number(width) + number(height) + "\x08\x02\0\0\0"s + number(0);
}

struct Disguise {
  const char* name;
  std::string bytes;
};

TEST(Reader, goes_by_the_contents_and_not_by_the_name) {
  const MediaFolder folder;
  const std::string secret = folder.write("secret.ts", std::string(2000, 'G'));
  const std::vector<Disguise> disguises = {
      {"text.jpg", "This is a text.\n"},
      {"empty.mp4", ""},
      {"list.mp4", "#EXTM3U\n#EXT-X-TARGETDURATION:10\n#EXTINF:10,\nfile:///etc/passwd\n#EXT-X-ENDLIST\n"},
      {"list.m3u8", "#EXTM3U\n#EXT-X-TARGETDURATION:10\n#EXTINF:10,\n" + secret + "\n#EXT-X-ENDLIST\n"},
      {"concat.mp4", "ffconcat version 1.0\nfile " + secret + "\n"},
      {"drawing.svg", "<svg xmlns='http://www.w3.org/2000/svg'><image href='file:///etc/passwd'/></svg>"},
      {"drawing.jpg", "<svg xmlns='http://www.w3.org/2000/svg' width='9' height='9'/>"},
      {"stream.mp3", "v=0\r\nc=IN IP4 127.0.0.1\r\nm=audio 5004 RTP/AVP 0\r\n"},
  };
  const MediaReaderHandle reader = media_reader_create();
  for (const Disguise& each : disguises) {
    SCOPED_TRACE(each.name);
    const std::string path = folder.write(each.name, each.bytes);
    const auto [result, facts, why] = facts_of(*reader, path);
    EXPECT_EQ(facts.kind, MEDIA_TYPE_NULL);
    const OpenFile file(path);
    std::vector<std::uint8_t> jpeg;
    std::string refused;
    EXPECT_EQ(media_reader_thumbnail(*reader, file.number, path, 100, 100, jpeg, refused), ReadResult::kRefused);
    EXPECT_FALSE(refused.empty());
  }
}

TEST(Reader, refuses_a_picture_of_too_many_pixels) {
  const MediaFolder folder;
  const MediaReaderHandle reader = media_reader_create();
  const std::string path = folder.write("wall.png", png(14000, 14000) + std::string(1000, '\0'));
  const auto [result, facts, why] = facts_of(*reader, path);
  EXPECT_EQ(result, ReadResult::kRefused);
  EXPECT_NE(why.find("64 million pixels"), std::string::npos) << why;
}

TEST(Reader, refuses_what_is_not_a_regular_file) {
  const MediaFolder folder;
  const MediaReaderHandle reader = media_reader_create();
  MediaFacts facts;
  std::string why;
  const OpenFile itself(folder.path), device("/dev/zero");
  for (const int file : {itself.number, device.number}) {
    EXPECT_EQ(media_reader_facts(*reader, file, "a.jpg", facts, why), ReadResult::kRefused);
    EXPECT_EQ(why, "it is not a regular file");
  }
}

// Reading from address 0 of a process's memory is an input/output error, as from a broken stick.
TEST(Reader, does_not_blame_the_file_for_a_stick_that_cannot_be_read) {
  const MediaReaderHandle reader = media_reader_create();
  const OpenFile broken("/proc/self/mem");
  MediaFacts facts;
  std::vector<std::uint8_t> jpeg;
  std::string why;
  EXPECT_EQ(media_reader_facts(*reader, broken.number, "a.mp3", facts, why), ReadResult::kFailed);
  EXPECT_EQ(why, "Input/output error");
  EXPECT_EQ(media_reader_thumbnail(*reader, broken.number, "a.jpg", 100, 100, jpeg, why), ReadResult::kFailed);
}

// Ten kinds, fifty damages of each.
TEST(Reader, survives_damaged_files) {
  const MediaFolder folder;
  constexpr const char* kKinds[] = {"a.jpg", "a.png",  "a.gif", "a.webp", "a.mp3",
                                    "a.ogg", "a.flac", "a.mp4", "a.mkv",  "a.avi"};
  for (const char* const kind : kKinds)
    if (!folder.make(
            "-f lavfi -i testsrc=s=160x90:r=10:d=1 " +
                std::string(std::string_view(kind).find_first_of("jpw") == 2 ? "-frames:v 1" : "-f lavfi -i sine=d=1"),
            kind))
      GTEST_SKIP() << "ffmpeg is not installed, or cannot make " << kind;
  const MediaReaderHandle reader = media_reader_create();
  std::mt19937 random(20261123);  // the same damages each time
  int read = 0, refused = 0;
  for (const char* const kind : kKinds) {
    const std::string good = bytes_of(folder.path + "/" + kind);
    ASSERT_FALSE(good.empty());
    for (int i = 0; i < 50; ++i) {
      std::string bytes = good;
      const std::size_t changes = 1 + random() % 40;
      for (std::size_t change = 0; change < changes; ++change) {
        const std::size_t within = i % 2 == 0 ? std::min<std::size_t>(bytes.size(), 500) : bytes.size();
        bytes[random() % within] = static_cast<char>(random());
      }
      if (i % 5 == 0) bytes.resize(random() % bytes.size());
      const std::string path = folder.write(std::string("damaged") + (kind + 1), bytes);
      const auto [result, facts, why] = facts_of(*reader, path);
      const OpenFile file(path);
      std::vector<std::uint8_t> jpeg;
      std::string no_thumbnail;
      const ReadResult made = media_reader_thumbnail(*reader, file.number, path, 100, 100, jpeg, no_thumbnail);
      EXPECT_TRUE(result == ReadResult::kRead || (result == ReadResult::kRefused && !why.empty()));
      EXPECT_TRUE(made == ReadResult::kRead || (made == ReadResult::kRefused && !no_thumbnail.empty()));
      for (const std::string& text : {why, no_thumbnail}) {
        EXPECT_EQ(text.find("crashed"), std::string::npos) << path << ": " << text;
        EXPECT_EQ(text.find("more than 5 s"), std::string::npos) << path << ": " << text;
      }
      (made == ReadResult::kRead ? read : refused) += 1;
    }
  }
  EXPECT_GT(read, 50);
  EXPECT_GT(refused, 50);
}

TEST(Reader, survives_a_file_that_becomes_shorter) {
  const MediaFolder folder;
  if (!folder.make("-f lavfi -i testsrc=s=640x360:r=10:d=3 -c:v mpeg4 -q:v 2", "a.mp4"))
    GTEST_SKIP() << "ffmpeg is not installed";
  const std::string path = folder.path + "/a.mp4";
  const std::string good = bytes_of(path);
  const MediaReaderHandle reader = media_reader_create();
  std::atomic<bool> stop = false;
  std::thread other([&] {
    for (std::size_t i = 1; !stop; ++i) {
      truncate(path.c_str(), static_cast<off_t>(i * 7919 % good.size()));
      truncate(path.c_str(), static_cast<off_t>(good.size()));
    }
  });
  for (int i = 0; i < 30; ++i) {
    const auto [result, facts, why] = facts_of(*reader, path);
    EXPECT_TRUE(result == ReadResult::kRead || result == ReadResult::kRefused);
    EXPECT_EQ(why.find("crashed"), std::string::npos) << why;
  }
  stop = true;
  other.join();
}

TEST(Reader, takes_an_impossible_duration_for_an_unknown_one) {
  const MediaFolder folder;
  if (!folder.make("-f lavfi -i sine=d=1", "a.mp4")) GTEST_SKIP() << "ffmpeg is not installed";
  const std::string path = folder.path + "/a.mp4";
  std::string bytes = bytes_of(path);
  // Everywhere that the file says how long it is: the header of the film, of the track and of its media.
  for (const char* const box : {"mvhd", "mdhd"}) {
    const std::size_t at = bytes.find(box);
    ASSERT_NE(at, std::string::npos);
    bytes.replace(at + 16, 8, std::string("\0\0\0\x01\x7F\xFF\xFF\xFF", 8));  // units of a second, 68 years of them
  }
  const std::size_t track = bytes.find("tkhd");
  ASSERT_NE(track, std::string::npos);
  bytes.replace(track + 24, 4, "\x7F\xFF\xFF\xFF");
  folder.write("a.mp4", bytes);
  const MediaReaderHandle reader = media_reader_create();
  const auto [result, facts, why] = facts_of(*reader, path);
  ASSERT_EQ(result, ReadResult::kRead) << why;
  EXPECT_EQ(facts.kind, MEDIA_TYPE_MUSIC);
  EXPECT_EQ(facts.duration_ms, 0U);
}

#endif

}  // namespace
