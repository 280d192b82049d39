// Opening files of sticks: only what is inside, and only regular files and folders.
#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstring>
#include <fstream>

#include "rooms/usb/usb.h"
#include "usb_test.h"

namespace {

namespace fs = std::filesystem;

struct UsbFiles : testing::Test {
  TvFolder state;
  TvFolder world;
  std::string stick_folder = world.path + "/Holiday";
  UsbFiles() {
    dtv_tv_stick_root(world.path.c_str());
    EXPECT_EQ(tv_start(state.path), "");
    fs::create_directories(stick_folder + "/sub");
    std::ofstream(stick_folder + "/sub/a.txt") << "inside";
    std::ofstream(world.path + "/secret.txt") << "outside";
    EXPECT_EQ(stick({"insert", stick_folder}).find("error"), std::string::npos);
  }
  std::string at(const std::string& path) const { return state.path + "/usb/sda1" + path; }
  // What the file contains, or why it is not opened.
  static std::string read(const std::string& path, UsbFile what = UsbFile::kFile) {
    std::string why = "untouched";
    const int file = usb_open(path, what, why);
    if (file < 0) return why;
    char text[64] = {};
    const ssize_t got = what == UsbFile::kFile ? ::read(file, text, sizeof text - 1) : 0;
    EXPECT_GE(got, 0);
    EXPECT_NE(fcntl(file, F_GETFD) & FD_CLOEXEC, 0);
    close(file);
    return text;
  }
};

TEST_F(UsbFiles, OpensFilesAndFolders) {
  EXPECT_EQ(read(at("/sub/a.txt")), "inside");
  EXPECT_EQ(read(at("//sub//a.txt")), "inside");
  EXPECT_EQ(read(at("/sub/../sub/a.txt")), "inside") << "it does not lead out";
  EXPECT_EQ(read(at(""), UsbFile::kFolder), "");
  EXPECT_EQ(read(at("/sub"), UsbFile::kFolder), "");
}

TEST_F(UsbFiles, RefusesAFolderAsAFileAndAFileAsAFolder) {
  expect_words(read(at("/sub")), {"not a regular file"});
  expect_words(read(at("/sub/a.txt"), UsbFile::kFolder), {"not a folder"});
  expect_words(read(at("/missing")), {"cannot be opened", "No such file"});
}

TEST_F(UsbFiles, OpensNothingOutsideTheStick) {
  expect_words(read(at("/../secret.txt")), {"leads out of the stick"});
  expect_words(read(at("/sub/../../secret.txt")), {"leads out of the stick"});
  fs::create_symlink("../secret.txt", stick_folder + "/link.txt");
  fs::create_symlink("sub/a.txt", stick_folder + "/inner.txt");
  fs::create_directory_symlink("/", stick_folder + "/root");
  fs::create_directory_symlink(".", stick_folder + "/loop");
  for (const char* const path : {"/link.txt", "/inner.txt", "/root/etc/passwd", "/loop/loop/sub/a.txt"})
    expect_words(read(at(path)), {"symbolic link"});
  expect_words(read("/etc/passwd"), {"not on an inserted stick"});
  expect_words(read(state.path + "/usb/sda1x/sub/a.txt"), {"not on an inserted stick"});
  expect_words(read(""), {"not on an inserted stick"});
  stick({"remove", "all"});
  expect_words(read(at("/sub/a.txt")), {"not on an inserted stick"});
}

TEST_F(UsbFiles, NeverWaitsForAFifoOrASocket) {
  ASSERT_EQ(mkfifo((stick_folder + "/pipe").c_str(), 0600), 0);
  const int server = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_un name{};
  name.sun_family = AF_UNIX;
  ASSERT_LT(stick_folder.size() + 5, sizeof name.sun_path);
  std::strcpy(name.sun_path, (stick_folder + "/sock").c_str());
  ASSERT_EQ(bind(server, reinterpret_cast<const sockaddr*>(&name), sizeof name), 0);
  for (const char* const path : {"/pipe", "/sock"}) expect_words(read(at(path)), {"not a regular file"});
  close(server);
}

TEST_F(UsbFiles, RefusesFilesOfAStickWhoseFolderIsGone) {
  fs::rename(stick_folder, world.path + "/Away");
  expect_words(read(at("/sub/a.txt")), {"cannot be read", "No such file"});
}

}  // namespace
