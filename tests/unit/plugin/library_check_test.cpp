// The check before dlopen, on a built language library: intact, truncated at every kind of place, with falsified
// headers; and on files that are not libraries. Where a wrong result would kill or block the process, a child process
// runs the check.
#include "tvctl_common/library_check.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <link.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <limits>
#include <set>
#include <string>
#include <vector>

namespace {

namespace fs = std::filesystem;

constexpr const char* kLibrary = LANGUAGES "/DEU.so";

std::string bytes_of(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

class LibraryCheck : public testing::Test {
 protected:
  void SetUp() override {
    std::string name = (fs::temp_directory_path() / "library-check-XXXXXX").string();
    ASSERT_NE(mkdtemp(name.data()), nullptr);
    folder = name;
    ASSERT_GT(library.size(), sizeof(ElfW(Ehdr)));
  }
  void TearDown() override { fs::remove_all(folder); }

  std::string write(const std::string& name, const std::string& bytes) const {
    std::ofstream(folder / name, std::ios::binary) << bytes;
    return folder / name;
  }

  ElfW(Ehdr) header() const {
    ElfW(Ehdr) header;
    std::memcpy(&header, library.data(), sizeof header);
    return header;
  }
  std::vector<ElfW(Phdr)> segments() const {
    std::vector<ElfW(Phdr)> segments(header().e_phnum);
    std::memcpy(segments.data(), library.data() + header().e_phoff, segments.size() * sizeof segments[0]);
    return segments;
  }

  fs::path folder;
  const std::string library = bytes_of(kLibrary);
};

// The exit code of a child: 0 when the library opens and knows its text, 2 when dlopen refuses it.
[[noreturn]] void look_up(const std::string& path) {
  void* const library = dlopen(path.c_str(), RTLD_LAZY);
  if (library == nullptr) _exit(2);
  const auto get = reinterpret_cast<const char* (*)(const char*)>(dlsym(library, "vexuiGetLangStr"));
  _exit(get != nullptr && std::strcmp(get("IDS_VOLUME"), "Lautstärke") == 0 ? 0 : 1);
}

// The exit code of a child: 0 when the check refuses the path. A child that blocks is ended.
[[noreturn]] void refuse(const std::string& path) {
  alarm(20);
  _exit(tvc_library_is_whole(path.c_str()) ? 1 : 0);
}

TEST_F(LibraryCheck, BuiltLibrariesAreWhole) {
  for (const char* code : {"ENG", "DEU", "FRA", "SPA", "TUR"})
    EXPECT_TRUE(tvc_library_is_whole((LANGUAGES "/" + std::string(code) + ".so").c_str())) << code;
  fs::create_symlink(kLibrary, folder / "link");
  EXPECT_TRUE(tvc_library_is_whole((folder / "link").c_str()));
}

TEST_F(LibraryCheck, CutLibraryIsRefusedOrWorks) {
  // Before, at and after the beginning and the end of each part of the file, and some places in between.
  std::size_t loaded = 0;  // up to here the loader maps the file; what follows are notes for tools
  std::set<std::size_t> places = {0, EI_NIDENT, sizeof(ElfW(Ehdr)), header().e_phoff, header().e_shoff, library.size()};
  for (std::size_t i = 0; i < segments().size(); ++i) {
    places.insert(header().e_phoff + (i + 1) * sizeof(ElfW(Phdr)));
    const ElfW(Phdr) segment = segments()[i];
    if (segment.p_type == PT_LOAD) loaded = std::max<std::size_t>(loaded, segment.p_offset + segment.p_filesz);
    for (const std::size_t end : {segment.p_offset, segment.p_offset + segment.p_filesz}) places.insert(end);
  }
  for (std::size_t page = 4096; page < library.size(); page += 4096) places.insert(page);
  for (std::size_t place = 0; place < library.size(); place += 1021) places.insert(place);
  std::set<std::size_t> lengths;
  for (const std::size_t place : places)
    for (const std::size_t length : {place - 1, place, place + 1})
      if (length <= library.size()) lengths.insert(length);

  ASSERT_GT(loaded, 4096U);
  ASSERT_LT(loaded, library.size());
  std::size_t refused = 0, opened = 0;
  for (const std::size_t length : lengths) {
    const std::string path = write("cut", library.substr(0, length));
    const bool whole = tvc_library_is_whole(path.c_str());
    EXPECT_EQ(whole, length >= loaded) << length;
    ++(whole ? opened : refused);
    if (whole) EXPECT_EXIT(look_up(path), testing::ExitedWithCode(0), "") << length;
  }
  EXPECT_GT(refused, 30U);
  EXPECT_GT(opened, 5U);
}

TEST_F(LibraryCheck, FalsifiedHeaderIsRefused) {
  using Header = ElfW(Ehdr);
  using Segment = ElfW(Phdr);
  const std::vector<Segment> all = segments();
  const auto last_loaded =
      std::find_if(all.rbegin(), all.rend(), [](const Segment& segment) { return segment.p_type == PT_LOAD; });
  ASSERT_NE(last_loaded, all.rend());
  const std::size_t place = header().e_phoff + static_cast<std::size_t>(all.rend() - last_loaded - 1) * sizeof(Segment);
  const auto falsified = [&](const std::function<void(Header&, Segment&)>& change) {
    Header changed_header = header();
    Segment changed_segment = *last_loaded;
    change(changed_header, changed_segment);
    std::string bytes = library;
    std::memcpy(bytes.data() + place, &changed_segment, sizeof changed_segment);
    std::memcpy(bytes.data(), &changed_header, sizeof changed_header);
    return tvc_library_is_whole(write("falsified", bytes).c_str());
  };
  EXPECT_TRUE(falsified([](Header&, Segment&) {}));

  const unsigned char other_class = sizeof(void*) == 8 ? ELFCLASS32 : ELFCLASS64;
  const auto most = [](auto member) { return std::numeric_limits<decltype(member)>::max(); };
  EXPECT_FALSE(falsified([](Header& h, Segment&) { h.e_ident[EI_MAG3] = 'G'; }));
  EXPECT_FALSE(falsified([&](Header& h, Segment&) { h.e_ident[EI_CLASS] = other_class; }));
  EXPECT_FALSE(falsified([](Header& h, Segment&) { h.e_ident[EI_DATA] = ELFDATA2MSB; }));
  EXPECT_FALSE(falsified([](Header& h, Segment&) { h.e_machine = EM_68K; }));
  EXPECT_FALSE(falsified([](Header& h, Segment&) { h.e_type = ET_EXEC; }));
  EXPECT_FALSE(falsified([](Header& h, Segment&) { h.e_type = ET_REL; }));
  EXPECT_FALSE(falsified([](Header& h, Segment&) { h.e_phentsize = 0; }));
  EXPECT_FALSE(falsified([](Header& h, Segment&) { h.e_phentsize += 8; }));
  EXPECT_FALSE(falsified([&](Header& h, Segment&) { h.e_phnum = most(h.e_phnum); }));
  EXPECT_FALSE(falsified([&](Header& h, Segment&) { h.e_phoff = library.size() - sizeof(Segment); }));
  EXPECT_FALSE(falsified([&](Header& h, Segment&) { h.e_phoff = most(h.e_phoff); }));
  EXPECT_FALSE(falsified([&](Header&, Segment& s) { s.p_offset = library.size() - s.p_filesz + 1; }));
  EXPECT_FALSE(falsified([&](Header&, Segment& s) { s.p_offset = most(s.p_offset); }));
  EXPECT_FALSE(falsified([&](Header&, Segment& s) { s.p_filesz = library.size() - s.p_offset + 1; }));
  EXPECT_FALSE(falsified([&](Header&, Segment& s) { s.p_filesz = most(s.p_filesz); }));
  EXPECT_TRUE(falsified([&](Header&, Segment& s) { s.p_filesz = library.size() - s.p_offset; }));
}

TEST_F(LibraryCheck, WhatIsNoLibraryIsRefused) {
  ASSERT_EQ(mkfifo((folder / "pipe").c_str(), 0600), 0);
  fs::create_symlink("loop", folder / "loop");
  fs::create_directory(folder / "folder");
  const std::string paths[] = {write("empty", ""),
                               write("text", "no library"),
                               write("long text", std::string(100'000, 'x')),
                               write("zeros", std::string(100'000, '\0')),
                               write("magic", library.substr(0, SELFMAG) + std::string(100'000, '\0')),
                               folder / "folder",
                               folder / "pipe",
                               folder / "loop",
                               folder / "nowhere",
                               folder / "empty" / "below a file",
                               "/dev/null",
                               "/dev/zero",
                               ""};
  for (const std::string& path : paths) EXPECT_EXIT(refuse(path), testing::ExitedWithCode(0), "") << path;
}

// A pipe is not a library, even one with a writer, whatever it delivers.
TEST_F(LibraryCheck, PipeIsNotRead) {
  const fs::path pipe = folder / "pipe";
  ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
  const int end = open(pipe.c_str(), O_RDWR | O_CLOEXEC);
  ASSERT_GE(end, 0);
  ASSERT_EQ(::write(end, library.data(), 4096), 4096);
  EXPECT_EXIT(refuse(pipe), testing::ExitedWithCode(0), "");
  std::string rest(8192, '\0');
  EXPECT_EQ(read(end, rest.data(), rest.size()), 4096);
  close(end);
}

}  // namespace
