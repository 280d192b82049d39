// The stick root: paths that resolve to a folder in it are accepted, all others are refused with the same text.
#include <cstdlib>
#include <fstream>

#include "usb_test.h"

namespace {

namespace fs = std::filesystem;

struct TvUsbRoot : testing::Test {
  TvFolder folder;
  TvFolder world;  // the root
  TvUsbRoot() { start(world.path.c_str()); }
  void start(const char* root) const {
    dtv_tv_stop();
    dtv_tv_stick_root(root);
    EXPECT_EQ(tv_start(folder.path), "");
  }
  std::string make(const std::string& name) const {
    fs::create_directories(world.path + "/" + name);
    return world.path + "/" + name;
  }
  std::string link(const std::string& target, const std::string& name) const {
    fs::create_symlink(target, world.path + "/" + name);
    return world.path + "/" + name;
  }
  // The inserted sticks, as "/dev/sda1 /dev/sdc1".
  static std::string devices() {
    const std::string listed = stick({"list"});
    std::string found;
    for (std::size_t at = listed.find("/dev/sd"); at != std::string::npos; at = listed.find("/dev/sd", at + 1))
      found += (found.empty() ? "" : " ") + listed.substr(at, listed.find('"', at) - at);
    return found;
  }
};

// A path outside the root is refused with the same text, whether or not it exists.
TEST_F(TvUsbRoot, OutsideTheRootTheRefusalRevealsNothing) {
  const TvFolder elsewhere;
  const std::string inside = make("inside");
  const std::string beside = world.path + " beside";  // its name begins with the root's
  fs::create_directories(elsewhere.path + "/folder");
  fs::create_directory(beside);
  std::ofstream(elsewhere.path + "/file") << "x";
  fs::create_directory_symlink(inside, elsewhere.path + "/back");
  const std::string to_folder = link(elsewhere.path + "/folder", "to folder");
  const std::string name = fs::path(world.path).filename();
  const std::vector<std::string> paths = {
      // paths of existing folders
      elsewhere.path, elsewhere.path + "/folder", elsewhere.path + "/folder/", "/", "//", "/.", "/..", "/usr", beside,
      fs::path(world.path).parent_path(), world.path + "/..", world.path + "/../", world.path + "/../..",
      inside + "/../..", world.path + "/../" + fs::path(elsewhere.path).filename().string() + "/folder",
      // by links in the root, and by links outside that lead into it
      to_folder, to_folder + "/..", link("to folder", "to a link"), link("..", "up"), link("inside/../..", "up again"),
      link("/", "to all"), world.path + "/up/" + fs::path(elsewhere.path).filename().string(), elsewhere.path + "/back",
      link(elsewhere.path + "/back", "to back"),
      // paths of other files
      elsewhere.path + "/file", elsewhere.path + "/file/x", link(elsewhere.path + "/file", "to file"), "/dev/null",
      // paths that do not exist
      elsewhere.path + "/nowhere", "/nowhere", "/nowhere/" + name, world.path + "/../nowhere",
      link(elsewhere.path + "/nowhere", "to nowhere"), link(elsewhere.path + "/nowhere/x", "to far nowhere"),
      world.path + "/nowhere/../..", world.path + "/nowhere/../../nowhere", to_folder + "/nowhere"};
  const std::string refused = R"({"error":"only a folder in )" + world.path + R"( can become a USB stick"})";
  for (const std::string& path : paths) EXPECT_EQ(stick({"insert", path}), refused) << path;
  EXPECT_EQ(devices(), "");
  fs::remove(beside);
}

TEST_F(TvUsbRoot, AcceptsAllPathsIntoTheRoot) {
  const std::string a = make("a/b/..") + "/../a";
  const std::string name = fs::path(world.path).filename();
  fs::create_symlink(world.path + "/a", world.path + "/whole");
  fs::create_symlink("a/b", world.path + "/deep");
  fs::create_symlink("whole", world.path + "/twice");
  fs::create_symlink("../" + name + "/a", world.path + "/out and in");
  for (const std::string& way :
       {a, world.path + "/a", world.path + "//a///", world.path + "/./a/.", world.path + "/a/b/..",
        world.path + "/whole", world.path + "/twice", world.path + "/deep/..", world.path + "/out and in",
        world.path + "/../" + name + "/a", "/../" + world.path + "/a"}) {
    const std::string answer = stick({"insert", way});
    EXPECT_NE(answer.find(R"("folder":")" + world.path + "/a\""), std::string::npos) << way << ": " << answer;
    EXPECT_EQ(stick({"remove", way}).rfind(R"({"removed":[{"device":"/dev/sda1")", 0), 0u) << way;
  }
  const std::string answer = stick({"insert", world.path});  // the root is inside itself
  EXPECT_NE(answer.find(R"("folder":")" + world.path + "\""), std::string::npos) << answer;
}

TEST_F(TvUsbRoot, InsideTheRootTheRefusalNamesTheReason) {
  make("a");
  std::ofstream(world.path + "/file") << "x";
  fs::create_symlink("loop", world.path + "/loop");
  fs::create_symlink("nowhere", world.path + "/dangling");
  for (const std::string name :
       {"nowhere", "nowhere/x", "dangling", "loop", "file/", "file/.", "file/../a", "a/../nowhere"})
    expect_error(stick({"insert", world.path + "/" + name}), {world.path + "/" + name, "cannot be found"});
  expect_error(stick({"insert", world.path + std::string(5000, '/') + "a"}), {"cannot be found: File name too long"});
  EXPECT_EQ(devices(), "");
}

TEST_F(TvUsbRoot, RootNamedByALink) {
  const TvFolder elsewhere;
  const std::string named = elsewhere.path + "/link";
  fs::create_directory_symlink(world.path, named);
  const std::string a = make("a");
  const std::string by_name = link(named + "/a", "by the name");
  start((named + "/").c_str());
  for (const std::string& way : {named + "/a", a, by_name}) {
    const std::string answer = stick({"insert", way});
    EXPECT_NE(answer.find(R"("folder":")" + a + "\""), std::string::npos) << way << ": " << answer;
    stick({"remove", "all"});
  }
  expect_error(stick({"insert", elsewhere.path}), {"only a folder in " + world.path + " can"});
  expect_error(stick({"insert", named + "/.."}), {"only a folder in " + world.path + " can"});
}

TEST_F(TvUsbRoot, TheFileSystemsRootIsRefused) {
  start("/");
  for (const std::string& path :
       {std::string("/"), std::string("/.."), link("/", "all"), world.path + "/../../../../.."})
    expect_error(stick({"insert", path}), {"only a folder in / can become"});
  expect_error(stick({"insert", "/nowhere at all/x"}), {"cannot be found", "created in / after its start"});
  const std::string nowhere = stick({"insert", world.path + "/nowhere"});
  expect_error(nowhere, {"cannot be found"});
  EXPECT_EQ(nowhere.find("made in /"), std::string::npos) << nowhere;
  stick({"insert", make("a")});
  EXPECT_EQ(devices(), "/dev/sda1");
}

TEST_F(TvUsbRoot, TheDefaultRootIsTheHomeFolder) {
  const char* const before = getenv("HOME");
  const std::string home = before == nullptr ? "" : before;
  const std::string a = make("a");
  dtv_tv_stop();
  setenv("HOME", world.path.c_str(), 1);
  start(nullptr);
  stick({"insert", a});
  EXPECT_EQ(devices(), "/dev/sda1");
  stick({"remove", "all"});
  for (const char* none : {static_cast<const char*>(nullptr), "", "relative"}) {
    dtv_tv_stop();
    none == nullptr ? unsetenv("HOME") : setenv("HOME", none, 1);
    testing::internal::CaptureStderr();
    start(nullptr);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    for (const std::string& path : {a, std::string("/"), std::string("/nowhere")})
      expect_error(stick({"insert", path}), {"no folder can become a USB stick"});
  }
  before == nullptr ? unsetenv("HOME") : setenv("HOME", home.c_str(), 1);
}

TEST_F(TvUsbRoot, UnusableRootIsReported) {
  std::ofstream(world.path + "/file") << "x";
  for (const std::string& root : {world.path + "/nowhere", world.path + "/file"}) {
    testing::internal::CaptureStderr();
    start(root.c_str());
    expect_words(testing::internal::GetCapturedStderr(), {"no folder can become a USB stick", root});
    expect_error(stick({"insert", make("a")}), {"no folder can become a USB stick"});
    expect_error(stick({"insert", "/nowhere"}), {"no folder can become a USB stick"});
  }
}

TEST_F(TvUsbRoot, StoredSticksOutsideANewRootAreDropped) {
  const std::string old_folder = make("old"), new_folder = make("new"), moved = make("new/moved");
  stick({"insert", old_folder, "Old"});
  stick({"insert", new_folder + "/moved", "Moved"});
  stick({"insert", make("new/kept"), "Kept"});
  dtv_tv_stop();
  fs::remove(moved);
  fs::create_directory_symlink(old_folder, moved);
  testing::internal::CaptureStderr();
  start(new_folder.c_str());
  const std::string reason = "only a folder in " + new_folder + " can become a USB stick\n";
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "dtv_tv: the stick \"Old\" is no longer inserted: " + reason +
                                                        "dtv_tv: the stick \"Moved\" is no longer inserted: " + reason);
  EXPECT_EQ(devices(), "/dev/sdc1");
  for (const char* name : {"sda1", "sdb1"}) EXPECT_FALSE(fs::exists(fs::symlink_status(folder.path + "/usb/" + name)));
  testing::internal::CaptureStderr();
  start(new_folder.c_str());
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");  // reported only once
  EXPECT_EQ(devices(), "/dev/sdc1");
}

// ---- The folders to choose from ----

std::string names(const std::vector<std::string>& paths) {
  std::string text;
  for (const std::string& path : paths) text += (text.empty() ? "\"" : ",\"") + path + '"';
  return '[' + text + ']';
}

TEST_F(TvUsbRoot, ListsTheFoldersInTheRoot) {
  const TvFolder elsewhere;
  const std::string music = make("music"), films = make("films"), old = make("films/old"), hidden = make(".cache");
  std::ofstream(world.path + "/file") << "x";
  const std::string same = link("music", "the same");
  link(elsewhere.path, "outside");
  link(world.path + "/nowhere", "nowhere");
  fs::create_directory(world.path + "/\xff");
  const std::string root = R"({"root":")" + fs::canonical(world.path).string() + R"(","folders":)";
  EXPECT_EQ(stick({"folders"}), root + names({films, music, same}) + "}");
  EXPECT_EQ(stick({"folders", world.path + "/films/"}), root + names({old}) + "}");
  EXPECT_EQ(stick({"folders", music}), root + "[]}");
  EXPECT_EQ(devices(), "");
}

TEST_F(TvUsbRoot, ListsNoFolderOutsideTheRoot) {
  const TvFolder elsewhere;
  fs::create_directory(elsewhere.path + "/folder");
  const std::string refused = R"({"error":"only a folder in )" + world.path + R"( can become a USB stick"})";
  for (const std::string& path : {elsewhere.path, std::string("/"), world.path + "/..", link(elsewhere.path, "out"),
                                  elsewhere.path + "/nowhere"}) {
    EXPECT_EQ(stick({"folders", path}), refused) << path;
  }
  expect_error(stick({"folders", "music"}), {"not an absolute path"});
  expect_error(stick({"folders", world.path + "/nowhere"}), {"cannot be found"});
  std::ofstream(world.path + "/file") << "x";
  expect_error(stick({"folders", world.path + "/file"}), {"cannot be read"});
}

TEST_F(TvUsbRoot, NamesABoundedNumberOfFolders) {
  for (int i = 0; i < 201; ++i) make("folder " + std::to_string(1000 + i));
  const std::string answer = stick({"folders"});
  EXPECT_NE(answer.find("/folder 1199\""), std::string::npos);
  EXPECT_EQ(answer.find("/folder 1200\""), std::string::npos);
  EXPECT_NE(answer.find(R"("more":true)"), std::string::npos);
  fs::remove(world.path + "/folder 1200");
  EXPECT_EQ(stick({"folders"}).find("more"), std::string::npos);
}

}  // namespace
