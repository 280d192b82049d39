// The private view of the machine's files, and the command device in it.
#include "sandbox/sandbox.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <fstream>
#include <initializer_list>
#include <iterator>
#include <sstream>
#include <string>
#include <string_view>

#include "sandbox/device.h"

namespace fs = std::filesystem;

namespace {

// Prints a statement that is false, and counts it for the exit code of the child.
int wrong = 0;
void expect(bool holds, const char* what) {
  if (holds) return;
  ++wrong;
  fprintf(stderr, "false: %s\n", what);
}

std::string typed;
void type(char character) { typed += character; }

bool makes_file(const fs::path& path) {
  std::ofstream stream(path);
  return stream.is_open();
}

std::string text_of(const fs::path& path) {
  std::ifstream stream(path);
  return {std::istreambuf_iterator<char>(stream), {}};
}

// Whether the mount at this path, as /proc/self/mountinfo lists it, has each of the options.
bool is_mounted_with(std::string_view path, std::initializer_list<std::string_view> options) {
  std::ifstream mounts("/proc/self/mountinfo");
  std::string line, id, parent, device, root, at, has;
  bool found = false;
  while (std::getline(mounts, line)) {
    if (!(std::istringstream(line) >> id >> parent >> device >> root >> at >> has) || at != path) continue;
    found = std::ranges::all_of(options, [&](std::string_view option) {
      return ("," + has + ",").find("," + std::string(option) + ",") != std::string::npos;
    });
  }
  return found;
}

// The error number with which the file cannot be opened for writing; 0 when it can.
int error_of_writing(const fs::path& path) {
  const int file = open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0644);
  if (file < 0) return errno;
  close(file);
  return 0;
}

// A folder of the machine with a file in it.
class Sandbox : public testing::Test {
 protected:
  void SetUp() override {
    std::string name = (fs::temp_directory_path() / "sandbox-test-XXXXXX").string();
    ASSERT_NE(mkdtemp(name.data()), nullptr);
    folder = fs::canonical(name);
    std::ofstream(folder / "text") << "the machine's";
  }
  void TearDown() override { fs::remove_all(folder); }

  // Returns the exit code for EXPECT_EXIT: 0 when all statements are true. Users other than root may be refused.
  int look_from_inside(NewFolders folders) const {
    const uid_t user = getuid();
    std::string error;
    const WantedPaths wanted = {{"/3rd/made/bound", {.what = WantedPath::kBound, .content = folder}},
                                {"/3rd/made/file", {.what = WantedPath::kFile, .content = "a file's"}},
                                {kDevicePath, {.what = WantedPath::kDevice, .content = {}}}};
    fs::current_path(folder);
    if (!sandbox_enter(wanted, folders, error)) {
      fprintf(stderr, "refused: %s\n", error.c_str());
      return user != 0 && !error.empty() ? 0 : 1;
    }
    expect(text_of("/3rd/made/bound/text") == "the machine's", "a bound folder has the machine's files");
    expect(text_of("/3rd/made/file") == "a file's", "a file has its content");
    expect(text_of("text") == "the machine's" && fs::current_path() == folder, "the working folder stays");
    expect(makes_file("new") && fs::exists(folder / "new"), "the machine's folders can be written to");
    expect(makes_file("/3rd/made/new") == (folders == NewFolders::kWritable),
           "files can be created in new folders only if they are writable");
    expect(error_of_writing("/3rd/made/bound/text") == EROFS, "the files of a bound folder are read-only");
    expect(error_of_writing("/3rd/made/bound/new") == EROFS, "no file can be made in a bound folder");
    expect(is_mounted_with("/3rd/made/bound", {"ro"}), "a bound folder is mounted read-only");
    expect(is_mounted_with("/", {"nosuid", "nodev"}), "the new root honours neither set-user-ID files nor devices");
    expect(is_mounted_with("/", {folders == NewFolders::kWritable ? "rw" : "ro"}),
           "the new root is mounted as requested");
    expect(!fs::exists("/.machine"), "the machine's root is out of reach");
    expect(getuid() == user, "the process keeps its user");

    device_listen(type);
    const int device = open(kDevicePath, O_RDWR | O_CLOEXEC);
    char character = 'x';
    expect(ioctl(device, 0, &character) == 0 && typed == "x", "the listener receives the device's characters");
    device_listen(nullptr);
    expect(ioctl(device, 0, &character) == -1 && errno == ENOTTY && typed == "x",
           "without a listener the kernel refuses the call");
    return wrong;
  }

  fs::path folder;
};

TEST_F(Sandbox, HasWhatIsWanted) {
  const bool had = fs::exists("/3rd/made");
  for (const NewFolders folders : {NewFolders::kWritable, NewFolders::kReadOnly})
    EXPECT_EXIT(_exit(look_from_inside(folders)), testing::ExitedWithCode(0), "");
  EXPECT_EQ(fs::exists("/3rd/made"), had) << "nothing is made on the machine";
}

// Tries to enter and prints why it cannot; the exit code is 0 when it cannot.
[[noreturn]] void fail_to_enter(const WantedPaths& wanted) {
  std::string error;
  const bool entered = sandbox_enter(wanted, NewFolders::kWritable, error);
  fprintf(stderr, "%s\n", error.c_str());
  _exit(entered ? 1 : 0);
}

TEST_F(Sandbox, SaysWhatItCannotDo) {
  const WantedPaths missing = {{"/3rd/made", {.what = WantedPath::kBound, .content = folder / "missing"}}};
  EXPECT_EXIT(fail_to_enter(missing), testing::ExitedWithCode(0), getuid() == 0 ? "bind /3rd/made: No such file" : ".");
}

TEST_F(Sandbox, AFolderThatCannotBeReadIsNotShownAsEmpty) {
  fs::create_symlink("loop", folder / "loop");
  const WantedPaths in_loop = {{folder / "loop/file", {.what = WantedPath::kFile, .content = "a file's"}}};
  EXPECT_EXIT(fail_to_enter(in_loop), testing::ExitedWithCode(0),
              getuid() == 0 ? "opendir .*/loop: Too many levels" : ".");
  const WantedPaths in_file = {{folder / "text/file", {.what = WantedPath::kFile, .content = "a file's"}}};
  EXPECT_EXIT(fail_to_enter(in_file), testing::ExitedWithCode(0),
              getuid() == 0 ? "opendir .*/text: Not a directory" : ".");
}

// Enters again and again, each time in a process of its own, while another process makes and removes files beside the
// wanted one. Returns how many could not enter for another reason than the user's rights.
int enter_beside_passing_files(const fs::path& folder) {
  const pid_t maker = fork();
  if (maker == 0) {
    for (int number = 0;; number = (number + 1) % 8) {
      const fs::path path = folder / std::to_string(number);
      if (number % 2 == 0)
        makes_file(path);
      else
        fs::create_symlink("text", path);
      fs::remove(path);
    }
  }
  int refused = 0;
  for (int round = 0; round < 200; ++round) {
    const pid_t child = fork();
    if (child == 0) {
      std::string error;
      const bool entered = sandbox_enter({{folder / "made", {.what = WantedPath::kFile, .content = "a file's"}}},
                                         NewFolders::kWritable, error);
      if (!entered) fprintf(stderr, "refused: %s\n", error.c_str());
      _exit(entered || (getuid() != 0 && error.starts_with("unshare")) ? 0 : 1);
    }
    int status = 0;
    waitpid(child, &status, 0);
    if (status != 0) ++refused;
  }
  kill(maker, SIGKILL);
  waitpid(maker, nullptr, 0);
  return refused;
}

TEST_F(Sandbox, AFileThatIsRemovedMeanwhileIsNotShown) { EXPECT_EQ(enter_beside_passing_files(folder), 0); }

TEST(Device, OtherCallsAreTheKernels) {
  typed.clear();
  device_listen(type);
  const int null = open("/dev/null", O_RDWR | O_CLOEXEC);
  char character = 'x';
  EXPECT_EQ(ioctl(null, 0, &character), -1);
  EXPECT_EQ(errno, ENOTTY);
  close(null);

  int ends[2];
  ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
  ASSERT_EQ(write(ends[1], "abc", 3), 3);
  int waiting = 0;
  EXPECT_EQ(ioctl(ends[0], FIONREAD, &waiting), 0);
  EXPECT_EQ(waiting, 3);
  for (const int end : ends) close(end);
  EXPECT_EQ(typed, "");
  device_listen(nullptr);
}

}  // namespace
