// The file with the token.
#include "token.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <string>

#include "base/token.h"
#include "stack.h"

namespace fs = std::filesystem;

namespace {

struct Folder {
  std::string path = (fs::temp_directory_path() / ("token_test-" + std::to_string(getpid()))).string();
  Folder() { fs::create_directories(path); }
  ~Folder() { fs::remove_all(path); }

  std::string file() const { return path + "/token"; }
  std::string token() const {
    std::string text;
    std::string error;
    EXPECT_TRUE(token_read(path, text, error)) << error;
    EXPECT_EQ(text.size(), kTokenDigits);
    EXPECT_EQ(text.find_first_not_of("0123456789abcdef"), std::string::npos);
    return text;
  }
};

TEST(Token, IsMadeOnceAndKept) {
  const Folder folder;
  const std::string token = folder.token();
  EXPECT_EQ(folder.token(), token);
  struct stat facts {};
  ASSERT_EQ(stat(folder.file().c_str(), &facts), 0);
  EXPECT_EQ(facts.st_mode & 07777, 0600u);
  EXPECT_EQ(facts.st_size, static_cast<off_t>(kTokenDigits) + 1);
  const Folder other_start;
  fs::remove(other_start.file());
  EXPECT_NE(other_start.token(), token);
}

TEST(Token, AFolderWithoutANameIsNotMade) {
  std::string error;
  EXPECT_FALSE(stack_make_state_folder("", error));
  EXPECT_EQ(error, "no folder for the state: HOME is not set; give one with --state");
}

TEST(Token, WhatIsNoTokenIsReplaced) {
  const Folder folder;
  const std::string good = folder.token();
  for (const std::string& text :
       {std::string(), std::string("short\n"), std::string(64, 'A') + "\n", good, good + "\n\n"}) {
    std::ofstream(folder.file(), std::ios::trunc) << text;
    EXPECT_NE(folder.token(), good) << text;
  }
}

TEST(Token, WhatOthersCanReadOrWriteIsReplaced) {
  const Folder folder;
  const std::string known = folder.token();
  chmod(folder.file().c_str(), 0644);
  const std::string fresh = folder.token();
  EXPECT_NE(fresh, known);
  fs::rename(folder.file(), folder.path + "/elsewhere");
  fs::create_symlink(folder.path + "/elsewhere", folder.file());
  EXPECT_NE(folder.token(), fresh);
  fs::remove(folder.file());
  ASSERT_EQ(mkfifo(folder.file().c_str(), 0600), 0);
  folder.token();  // without waiting for a writer
}

TEST(Token, AFolderThatIsNotThereIsAnError) {
  std::string token = "unchanged";
  std::string error;
  EXPECT_FALSE(token_read("/nonexistent/folder", token, error));
  EXPECT_EQ(token, "unchanged");
  EXPECT_NE(error.find("/nonexistent/folder/token"), std::string::npos);
}

}  // namespace
