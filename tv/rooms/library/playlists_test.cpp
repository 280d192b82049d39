// Playlists: both forms, and entries that lead elsewhere.
#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include "rooms/library/library_test.h"

namespace {

using Files = std::vector<std::string>;

Playlist read(const std::string& text, const std::string& folder = "Music") {
  const int file = memfd_create("playlist", MFD_CLOEXEC);
  EXPECT_EQ(write(file, text.data(), text.size()), static_cast<ssize_t>(text.size()));
  Playlist playlist = playlist_read(file, folder, "/state/usb/sda1");
  close(file);
  return playlist;
}

TEST(Playlists, ReadsM3u) {
  const Playlist playlist = read(
      "\xEF\xBB\xBF#EXTM3U\r\n#PLAYLIST: Best of \r\n#EXTINF:123,Somebody\r\na.mp3\r\n\r\n  sub/b.mp3\n../c.mp3\n");
  EXPECT_EQ(playlist.title, "Best of");
  EXPECT_EQ(playlist.files, (Files{"Music/a.mp3", "Music/sub/b.mp3", "c.mp3"}));
}

TEST(Playlists, ReadsPls) {
  const Playlist playlist = read(
      "[Playlist]\nNumberOfEntries=2\nFile1=a.mp3\nTitle1=x\nLength1=5\nfile22=b.mp3\nFileX=c.mp3\nX-GNOME-Title="
      "Mix\n");
  EXPECT_EQ(playlist.title, "Mix");
  EXPECT_EQ(playlist.files, (Files{"Music/a.mp3", "Music/b.mp3"}));
}

TEST(Playlists, EntriesStayInsideTheStick) {
  EXPECT_EQ(read("../../etc/passwd\n").files, Files{});
  EXPECT_EQ(read("a/../../../b.mp3\n").files, Files{});
  EXPECT_EQ(read("/etc/passwd\n").files, Files{"etc/passwd"}) << "the stick's root is meant";
  EXPECT_EQ(read("/state/usb/sda1/x/a.mp3\n").files, Files{"x/a.mp3"});
  EXPECT_EQ(read("C:\\Music\\a.mp3\n").files, Files{"Music/a.mp3"});
  EXPECT_EQ(read("http://example.com/a.mp3\nfile:///etc/passwd\n").files, Files{});
  EXPECT_EQ(read("a.mp3", "").files, Files{"a.mp3"});
  EXPECT_EQ(read("..\n.\n/\n", "").files, Files{});
}

TEST(Playlists, ReadsIso88591AndStopsAtTheLimits) {
  EXPECT_EQ(read("caf\xE9.mp3\n").files, Files{"Music/caf\xC3\xA9.mp3"});
  EXPECT_EQ(read(std::string(300, 'x') + "\n").files, Files{}) << "no path is so long";
  std::string many;
  for (int i = 0; i < 5000; ++i) many += std::to_string(i) + ".mp3\n";
  EXPECT_EQ(read(many).files.size(), 1000u);
  EXPECT_EQ(read(std::string(3 << 20, 'x')).files, Files{});
  EXPECT_EQ(read(std::string(100, '\0')).files.size(), 1u) << "a name that no file has";
  EXPECT_EQ(read("").files, Files{});
}

}  // namespace
