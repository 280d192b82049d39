// USB sticks: the command, detections and their callbacks, descriptions, restarts.
#include "usb_test.h"

#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstring>
#include <fstream>
#include <future>
#include <mutex>
#include <regex>
#include <thread>
#include <vector>

namespace {

namespace fs = std::filesystem;

struct Heard {
  INT32 type;
  void* tag;
  std::string device, path, label;
  UINT32 port;
  std::thread::id thread;
};

std::mutex lock;
std::vector<Heard> heard;

INT32 listen(INT32 type, void* tag, const char* device, const char* path, const char* label, UINT32 port) {
  const std::lock_guard guard(lock);
  heard.push_back({type, tag, device, path, label, port, std::this_thread::get_id()});
  return 0;
}

void* const kTag = reinterpret_cast<void*>(0x1D0D7);

struct TvUsb : testing::Test {
  TvFolder folder;
  TvFolder world;  // the root, where the sticks' folders are
  UINT32 detection = 0;
  TvUsb() {
    dtv_tv_stick_root(world.path.c_str());
    start();
  }
  void start(const std::string& state = "") {
    heard.clear();
    EXPECT_EQ(tv_start(state.empty() ? folder.path : state), "");
    detection = a_vextvapi_cb_usb_detect_init();
    EXPECT_NE(detection, 0u);
    EXPECT_EQ(a_vextvapi_cb_usb_detect_register_callback(detection, listen, kTag), 0);
  }
  // Creates a folder that can be inserted.
  std::string make(const std::string& name) const {
    fs::create_directories(world.path + "/" + name);
    return world.path + "/" + name;
  }
  std::string mount_point(const std::string& name) const { return folder.path + "/usb/" + name; }
  INT32 count() const {
    INT32 mounted = -5;
    EXPECT_EQ(a_vextvapi_cb_usb_detect_getUsbMountedCount(detection, &mounted), 0);
    return mounted;
  }
  std::vector<VEXTVAPI_USB_MOUNT_INFO_T> list(INT32 first = 0, INT32 room = 32) const {
    std::vector<VEXTVAPI_USB_MOUNT_INFO_T> entries(64);
    std::memset(entries.data(), 0x7F, entries.size() * sizeof entries[0]);
    EXPECT_EQ(a_vextvapi_cb_usb_detect_getUsbMountedInfo(detection, entries.data(), first, &room), 0);
    entries.resize(static_cast<std::size_t>(room));
    return entries;
  }
  std::vector<std::string> devices() const {
    std::vector<std::string> names;
    for (const VEXTVAPI_USB_MOUNT_INFO_T& each : list()) names.emplace_back(each.dev);
    return names;
  }
  std::string describe(const std::string& path, INT32 size = 255) const {
    char text[256] = "untouched";
    return a_vextvapi_cb_usb_detect_devDesc(detection, path.c_str(), text, size) == 0 ? text
                                                                                      : "failed " + std::string(text);
  }
};

using Names = std::vector<std::string>;

// ---- Inserting ----

TEST_F(TvUsb, NewSetHasNoStick) {
  EXPECT_EQ(count(), 0);
  EXPECT_TRUE(list().empty());
  EXPECT_EQ(stick({}), R"({"sticks":[]})");
  EXPECT_EQ(stick({"list"}), R"({"sticks":[]})");
  EXPECT_EQ(tv_control(R"(["state"])").find("sticks"), std::string::npos);
}

// The reply without what a client needs to follow the stick's scan.
std::string without_watch(const std::string& answer) {
  static const std::regex kWatch(R"(,"watch":\{[^}]*\})");
  return std::regex_replace(answer, kWatch, "");
}

TEST_F(TvUsb, InsertedFolderIsSeenAtTheMountPoint) {
  const std::string holiday = make("Holiday");
  std::ofstream(holiday + "/beach.txt") << "sand";
  const std::string shown = R"({"device":"/dev/sda1","port":1,"label":"Holiday","path":")" + mount_point("sda1") +
                            R"(","folder":")" + holiday + "\"}";
  EXPECT_EQ(without_watch(stick({"insert", holiday})), shown);
  const std::string listed = stick({"list"});
  EXPECT_EQ(listed.rfind(R"({"sticks":[)" + shown.substr(0, shown.size() - 1) + R"(,"scan":{"state":)", 0), 0u)
      << listed;
  const std::string state = tv_control(R"(["state"])");
  EXPECT_NE(state.find(R"("sticks":{"/dev/sda1":")" + holiday + "\"}"), std::string::npos) << state;
  EXPECT_EQ(count(), 1);
  const auto entries = list();
  ASSERT_EQ(entries.size(), 1u);
  EXPECT_STREQ(entries[0].dev, "/dev/sda1");
  EXPECT_STREQ(entries[0].path, mount_point("sda1").c_str());
  EXPECT_STREQ(entries[0].label, "Holiday");
  EXPECT_EQ(entries[0].port, 1u);
  std::string text;
  std::ifstream(std::string(entries[0].path) + "/beach.txt") >> text;
  EXPECT_EQ(text, "sand");
}

TEST_F(TvUsb, ReportsInsertsAndRemovals) {
  stick({"insert", make("Holiday"), "Küche"});
  stick({"insert", make("Work")});
  stick({"remove", "Küche"});
  dtv_tv_stop();
  ASSERT_EQ(heard.size(), 3u);
  const Heard expected[] = {{VEXTVAPI_USB_DETECT_MOUNTED, kTag, "/dev/sda1", mount_point("sda1"), "Küche", 1, {}},
                            {VEXTVAPI_USB_DETECT_MOUNTED, kTag, "/dev/sdb1", mount_point("sdb1"), "Work", 2, {}},
                            {VEXTVAPI_USB_DETECT_UNMOUNTED, kTag, "/dev/sda1", mount_point("sda1"), "Küche", 1, {}}};
  for (std::size_t i = 0; i < 3; ++i) {
    EXPECT_EQ(heard[i].type, expected[i].type);
    EXPECT_EQ(heard[i].tag, kTag);
    EXPECT_EQ(heard[i].device, expected[i].device);
    EXPECT_EQ(heard[i].path, expected[i].path);
    EXPECT_EQ(heard[i].label, expected[i].label);
    EXPECT_EQ(heard[i].port, expected[i].port);
    EXPECT_NE(heard[i].thread, std::this_thread::get_id());
  }
}

TEST_F(TvUsb, TheLowestFreePortIsUsed) {
  for (const char* name : {"a", "b", "c"}) stick({"insert", make(name)});
  stick({"remove", "/dev/sdb1"});
  EXPECT_EQ(devices(), (Names{"/dev/sda1", "/dev/sdc1"}));
  stick({"insert", make("d")});
  EXPECT_EQ(devices(), (Names{"/dev/sda1", "/dev/sdb1", "/dev/sdc1"}));
  EXPECT_STREQ(list()[1].label, "d");
  EXPECT_EQ(list()[1].port, 2u);
}

TEST_F(TvUsb, ThirtyTwoPorts) {
  for (int i = 1; i <= 32; ++i) stick({"insert", make("stick" + std::to_string(i))});
  EXPECT_EQ(count(), 32);
  const auto entries = list(0, 40);
  ASSERT_EQ(entries.size(), 32u);
  EXPECT_STREQ(entries[25].dev, "/dev/sdz1");
  EXPECT_STREQ(entries[26].dev, "/dev/sdaa1");
  EXPECT_STREQ(entries[31].dev, "/dev/sdaf1");
  EXPECT_EQ(entries[31].port, 32u);
  expect_error(stick({"insert", make("one too many")}), {"32 ports"});
  EXPECT_EQ(count(), 32);
  dtv_tv_stop();
  EXPECT_EQ(heard.size(), 32u);
}

TEST_F(TvUsb, MountedInfoReturnsTheRequestedRange) {
  for (const char* name : {"a", "b", "c"}) stick({"insert", make(name)});
  EXPECT_EQ(list(0, 0).size(), 0u);
  ASSERT_EQ(list(0, 2).size(), 2u);
  ASSERT_EQ(list(1, 1).size(), 1u);
  EXPECT_STREQ(list(1, 1)[0].label, "b");
  ASSERT_EQ(list(2, 32).size(), 1u);
  EXPECT_STREQ(list(2, 32)[0].label, "c");
  EXPECT_EQ(list(3, 32).size(), 0u);
  VEXTVAPI_USB_MOUNT_INFO_T entry;
  INT32 room = 1, negative = -1;
  EXPECT_LT(a_vextvapi_cb_usb_detect_getUsbMountedInfo(detection, &entry, -1, &room), 0);
  EXPECT_LT(a_vextvapi_cb_usb_detect_getUsbMountedInfo(detection, &entry, 0, &negative), 0);
  EXPECT_LT(a_vextvapi_cb_usb_detect_getUsbMountedInfo(detection, nullptr, 0, &room), 0);
  EXPECT_LT(a_vextvapi_cb_usb_detect_getUsbMountedInfo(detection, &entry, 0, nullptr), 0);
  EXPECT_LT(a_vextvapi_cb_usb_detect_getUsbMountedCount(detection, nullptr), 0);
  EXPECT_EQ(room, 1);
}

TEST_F(TvUsb, AFoldersLabelIsCutAtACharacter) {
  const std::string name = std::string(61, 'x') + "äöü";  // byte 63 is within a character: 61 + 2 * 3 bytes
  stick({"insert", make(std::string(62, 'y') + "ä")});
  stick({"insert", make(name)});
  stick({"insert", make(std::string(64, 'z'))});
  const auto entries = list();
  ASSERT_EQ(entries.size(), 3u);
  EXPECT_STREQ(entries[0].label, std::string(62, 'y').c_str());
  EXPECT_STREQ(entries[1].label, (std::string(61, 'x') + "ä").c_str());
  EXPECT_STREQ(entries[2].label, std::string(63, 'z').c_str());
}

TEST_F(TvUsb, AGivenLabelIsNotCut) {
  const std::string holiday = make("Holiday");
  expect_error(stick({"insert", holiday, std::string(64, 'x')}), {"1 to 63 bytes"});
  expect_error(stick({"insert", holiday, ""}), {"1 to 63 bytes"});
  expect_error(stick({"insert", holiday, R"(a\u0000b)"}), {"1 to 63 bytes"});
  EXPECT_EQ(count(), 0);
  stick({"insert", holiday, std::string(63, 'x')});
  ASSERT_EQ(count(), 1);
  EXPECT_STREQ(list()[0].label, std::string(63, 'x').c_str());
}

TEST_F(TvUsb, PathsThatAreNotFoldersAreRefused) {
  std::ofstream(world.path + "/file") << "x";
  const std::string once = make("once");
  fs::create_directory_symlink(once, world.path + "/other name");
  stick({"insert", once});
  const std::string nowhere = stick({"insert", world.path + "/nowhere"});
  expect_error(nowhere, {"/nowhere", "cannot be found"});
  EXPECT_EQ(nowhere.find("made in /"), std::string::npos) << nowhere;
  expect_error(stick({"insert", world.path + "/file"}), {"/file", "is not a folder"});
  expect_error(stick({"insert", "once"}), {"once", "absolute path"});
  expect_error(stick({"insert", ""}), {"absolute path"});
  expect_error(stick({"insert", once}), {"already", "/dev/sda1"});
  expect_error(stick({"insert", once + "/../once/"}), {"already", "/dev/sda1"});
  expect_error(stick({"insert", world.path + "/other name"}), {"already", "/dev/sda1"});
  fs::create_directory(world.path + "/\xFF");
  fs::create_directory_symlink(world.path + "/\xFF", world.path + "/readable");
  expect_error(stick({"insert", world.path + "/readable"}), {"UTF-8"});
  EXPECT_EQ(count(), 1);
  dtv_tv_stop();
  EXPECT_EQ(heard.size(), 1u);
}

TEST_F(TvUsb, AFolderAtTheMountPointIsNotReplaced) {
  fs::create_directories(mount_point("sda1") + "/precious");
  expect_error(stick({"insert", make("Holiday")}), {mount_point("sda1")});
  EXPECT_EQ(count(), 0);
  dtv_tv_stop();
  start();
  EXPECT_TRUE(fs::exists(mount_point("sda1") + "/precious"));
}

// A mount point may have as many bytes as fit into an application's buffer, and no more.
TEST_F(TvUsb, TooLongMountPointIsRefused) {
  dtv_tv_stop();
  const auto state_for = [&](std::size_t mount_point_bytes) {
    std::string path = folder.path;
    const std::size_t bytes = mount_point_bytes - std::strlen("/usb/sda1");
    while (path.size() < bytes) path += '/' + std::string(std::min<std::size_t>(99, bytes - path.size() - 1), 'd');
    fs::create_directories(path);
    return path;
  };
  const std::string holiday = make("Holiday");
  start(state_for(256));
  expect_error(stick({"insert", holiday}), {"256 bytes", "255", "shorter"});
  EXPECT_EQ(count(), 0);
  dtv_tv_stop();
  start(state_for(255));
  stick({"insert", holiday});
  ASSERT_EQ(count(), 1);
  EXPECT_EQ(std::strlen(list()[0].path), 255u);
  EXPECT_EQ(describe(list()[0].path), "USB storage, 0 files, 0 bytes");
}

// ---- Removing ----

TEST_F(TvUsb, RemovesByEachName) {
  const std::string holiday = make("Holiday");
  fs::create_directory_symlink(holiday, world.path + "/link");
  for (const std::string& name : {std::string("/dev/sda1"), std::string("sda1"), std::string("Summer"), holiday,
                                  holiday + "/", world.path + "/link", mount_point("sda1"), std::string("all")}) {
    const std::string shown = without_watch(stick({"insert", holiday, "Summer"}));
    ASSERT_EQ(count(), 1) << shown;
    EXPECT_EQ(stick({"remove", name}), R"({"removed":[)" + shown + "]}") << name;
    EXPECT_EQ(count(), 0) << name;
    EXPECT_FALSE(fs::exists(fs::symlink_status(mount_point("sda1")))) << name;
    EXPECT_TRUE(fs::exists(holiday));
  }
  dtv_tv_stop();
  EXPECT_EQ(heard.size(), 16u);
}

TEST_F(TvUsb, RefusesANameOfSeveralSticks) {
  stick({"insert", make("a"), "Music"});
  stick({"insert", make("b"), "Music"});
  stick({"insert", make("c")});
  expect_error(stick({"remove", "Music"}), {"Music", "/dev/sda1, /dev/sdb1"});
  expect_error(stick({"remove", "Films"}), {"Films"});
  expect_error(stick({"remove", "/dev/sdd1"}), {"/dev/sdd1"});
  expect_error(stick({"remove", ""}), {"there is no stick"});
  EXPECT_EQ(count(), 3);
  stick({"remove", "/dev/sda1"});
  EXPECT_EQ(devices(), (Names{"/dev/sdb1", "/dev/sdc1"}));
  stick({"remove", "Music"});
  EXPECT_EQ(devices(), (Names{"/dev/sdc1"}));
}

TEST_F(TvUsb, RemovingAllWithoutAStickIsNotAnError) { EXPECT_EQ(stick({"remove", "all"}), R"({"removed":[]})"); }

TEST_F(TvUsb, AStickWhoseFolderIsDeletedCanBeRemoved) {
  const std::string holiday = make("Holiday");
  stick({"insert", holiday});
  fs::remove_all(holiday);
  EXPECT_EQ(describe(mount_point("sda1")), "failed untouched");
  stick({"remove", holiday});
  EXPECT_EQ(count(), 0);
}

TEST_F(TvUsb, ResetRemovesAllSticks) {
  stick({"insert", make("a")});
  stick({"insert", make("b")});
  EXPECT_EQ(tv_control(R"(["reset"])").find("sticks"), std::string::npos);
  EXPECT_EQ(count(), 0);
  dtv_tv_stop();
  ASSERT_EQ(heard.size(), 4u);
  EXPECT_EQ(heard[3].type, VEXTVAPI_USB_DETECT_UNMOUNTED);
}

TEST_F(TvUsb, ErrorsOfBadCommandsNameWhatIsAllowed) {
  const std::string a = make("a");
  for (const std::vector<std::string>& words : {Names{"eat"}, Names{"remove", "a", "b"}, Names{"list", "a"}, Names{""}})
    expect_error(stick(words), {"insert DIR [LABEL]", "remove DEV|LABEL|DIR|all", "list"});
  expect_error(stick({"insert"}), {"a word is missing", "insert DIR [LABEL]"});
  expect_error(stick({"remove"}), {"a word is missing", "remove DEV|LABEL|DIR|all"});
  expect_error(stick({"insert", a, "b", "c"}), {"one word too many"});
  EXPECT_EQ(count(), 0);
}

// ---- Detections ----

TEST_F(TvUsb, CallsWithAnEndedHandleFail) {
  stick({"insert", make("a")});
  EXPECT_EQ(a_vextvapi_cb_usb_detect_deinit(detection), 0);
  for (const UINT32 handle : {detection, detection + 1, UINT32{0}}) {
    const std::string number = "no detection " + std::to_string(handle) + "\n";
    INT32 mounted = 77, room = 1;
    VEXTVAPI_USB_MOUNT_INFO_T entry{};
    char text[256] = "untouched";
    const std::string log =
        refusal([&] { return a_vextvapi_cb_usb_detect_getUsbMountedCount(handle, &mounted); }) +
        refusal([&] { return a_vextvapi_cb_usb_detect_getUsbMountedInfo(handle, &entry, 0, &room); }) +
        refusal([&] { return a_vextvapi_cb_usb_detect_devDesc(handle, mount_point("sda1").c_str(), text, 255); }) +
        refusal([&] { return a_vextvapi_cb_usb_detect_register_callback(handle, listen, kTag); }) +
        refusal([&] { return a_vextvapi_cb_usb_detect_deinit(handle); });
    std::size_t times = 0;
    for (std::size_t at = log.find(number); at != std::string::npos; at = log.find(number, at + 1)) ++times;
    EXPECT_EQ(times, 5u) << log;
    EXPECT_EQ(mounted, 77);
    EXPECT_EQ(room, 1);
    EXPECT_STREQ(entry.dev, "");
    EXPECT_STREQ(text, "untouched");
  }
  const UINT32 next = a_vextvapi_cb_usb_detect_init();
  EXPECT_NE(next, 0u);
  EXPECT_NE(next, detection);
}

TEST_F(TvUsb, NewDetectionEndsTheEarlier) {
  const UINT32 earlier = detection;
  detection = a_vextvapi_cb_usb_detect_init();
  EXPECT_NE(detection, earlier);
  INT32 mounted = 0;
  refusal([&] { return a_vextvapi_cb_usb_detect_getUsbMountedCount(earlier, &mounted); });
  stick({"insert", make("a")});  // the earlier detection's callback is not called
  EXPECT_EQ(count(), 1);
  a_vextvapi_cb_usb_detect_register_callback(detection, listen, nullptr);
  stick({"insert", make("b")});
  dtv_tv_stop();
  ASSERT_EQ(heard.size(), 1u);
  EXPECT_EQ(heard[0].label, "b");
  EXPECT_EQ(heard[0].tag, nullptr);
}

TEST_F(TvUsb, NothingIsReportedWithoutADetectionOrACallback) {
  a_vextvapi_cb_usb_detect_register_callback(detection, nullptr, nullptr);
  stick({"insert", make("a")});
  a_vextvapi_cb_usb_detect_register_callback(detection, listen, kTag);
  a_vextvapi_cb_usb_detect_deinit(detection);
  stick({"insert", make("b")});
  stick({"remove", "all"});
  dtv_tv_stop();
  EXPECT_TRUE(heard.empty());
}

TEST_F(TvUsb, DetectionsEndWhenTheSetIsSwitchedOn) {
  const UINT32 earlier = detection;
  dtv_tv_stop();
  ASSERT_EQ(tv_start(folder.path), "");
  INT32 mounted = 0;
  refusal([&] { return a_vextvapi_cb_usb_detect_getUsbMountedCount(earlier, &mounted); });
  stick({"insert", make("a")});
  dtv_tv_stop();
  EXPECT_TRUE(heard.empty());
}

TEST_F(TvUsb, CallbackMayEndTheDetection) {
  static UINT32 ending;
  ending = detection;
  a_vextvapi_cb_usb_detect_register_callback(
      detection,
      [](INT32 type, void* tag, const char* device, const char* path, const char* label, UINT32 port) {
        INT32 mounted = 0;
        EXPECT_EQ(a_vextvapi_cb_usb_detect_getUsbMountedCount(ending, &mounted), 0);
        // Wait until the second stick's event is queued: the detection is checked again when the event runs.
        for (int i = 0; i < 5000 && mounted < 2; ++i) {
          std::this_thread::sleep_for(std::chrono::milliseconds(1));
          a_vextvapi_cb_usb_detect_getUsbMountedCount(ending, &mounted);
        }
        EXPECT_EQ(mounted, 2);
        EXPECT_EQ(a_vextvapi_cb_usb_detect_deinit(ending), 0);
        return listen(type, tag, device, path, label, port);
      },
      kTag);
  stick({"insert", make("a")});
  stick({"insert", make("b")});
  dtv_tv_stop();
  ASSERT_EQ(heard.size(), 1u);
  EXPECT_EQ(heard[0].label, "a");
}

// After ending the detection an application may free what its callback uses, since no callback is running.
TEST_F(TvUsb, EndingWaitsForTheCallback) {
  static std::promise<void>* entered;
  static std::shared_future<void> gate;
  static std::atomic<bool> running;
  std::promise<void> open, in;
  gate = open.get_future().share();
  entered = &in;
  running = false;
  a_vextvapi_cb_usb_detect_register_callback(
      detection,
      [](INT32, void*, const char*, const char*, const char*, UINT32) {
        running = true;
        entered->set_value();
        gate.wait();
        running = false;
        return INT32{0};
      },
      kTag);
  stick({"insert", make("a")});
  in.get_future().wait();
  std::future<bool> ended = std::async(std::launch::async, [this] {
    a_vextvapi_cb_usb_detect_deinit(detection);
    return !running;
  });
  EXPECT_EQ(ended.wait_for(std::chrono::milliseconds(50)), std::future_status::timeout);
  EXPECT_EQ(stick({"list"}).rfind(R"({"sticks":[{)", 0), 0u);  // other calls do not wait
  open.set_value();
  EXPECT_TRUE(ended.get());
}

TEST_F(TvUsb, ManyThreads) {
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([this, t] {
      const std::string mine = make("stick" + std::to_string(t));
      for (int i = 0; i < 10; ++i) {
        stick({"insert", mine});
        for (const VEXTVAPI_USB_MOUNT_INFO_T& each : list()) EXPECT_EQ(std::string(each.label).rfind("stick", 0), 0u);
        describe(mount_point("sda1"));
        tv_control(R"(["state"])");
        stick({"remove", mine});
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(count(), 0);
  dtv_tv_stop();
  ASSERT_EQ(heard.size(), 80u);
  INT32 mounted[5] = {};
  for (const Heard& each : heard) {  // inserts and removals of a port alternate
    ASSERT_LE(each.port, 4u);
    EXPECT_EQ(each.type, mounted[each.port] == 0 ? VEXTVAPI_USB_DETECT_MOUNTED : VEXTVAPI_USB_DETECT_UNMOUNTED);
    mounted[each.port] ^= 1;
  }
}

// ---- Descriptions ----

TEST_F(TvUsb, DescribesTheFoldersFiles) {
  struct Case {
    std::vector<std::uintmax_t> files;
    const char* text;
  };
  const Case cases[] = {
      {{}, "USB storage, 0 files, 0 bytes"},
      {{1}, "USB storage, 1 file, 1 byte"},
      {{0, 999}, "USB storage, 2 files, 999 bytes"},
      {{1000}, "USB storage, 1 file, 1.0 kB"},
      {{999'900}, "USB storage, 1 file, 999.9 kB"},
      {{999'950}, "USB storage, 1 file, 1.0 MB"},
      {{1'200'000, 3, 4}, "USB storage, 3 files, 1.2 MB"},
      {{2'500'000'000}, "USB storage, 1 file, 2.5 GB"},
      {{3'000'000'000'000}, "USB storage, 1 file, 3.0 TB"},
  };
  for (std::size_t i = 0; i < std::size(cases); ++i) {
    const std::string path = make("stick" + std::to_string(i));
    for (std::size_t file = 0; file < cases[i].files.size(); ++file) {
      const std::string name = path + "/" + std::to_string(file);
      std::ofstream(name) << "";
      fs::resize_file(name, cases[i].files[file]);  // a sparse file
    }
    fs::create_directory(path + "/folder");
    std::ofstream(path + "/folder/inside") << "does not count";
    ASSERT_EQ(mkfifo((path + "/pipe").c_str(), 0600), 0);
    fs::create_symlink("nowhere", path + "/dangling");
    stick({"insert", path});
    EXPECT_EQ(describe(list().back().path), cases[i].text);
  }
}

TEST_F(TvUsb, DescriptionCountsAThousandEntries) {
  const std::string path = make("a");
  for (int i = 0; i < 1000; ++i) std::ofstream(path + "/" + std::to_string(i)) << "xx";
  stick({"insert", path});
  EXPECT_EQ(describe(mount_point("sda1")), "USB storage, 1000 files, 2.0 kB");
  std::ofstream(path + "/one more") << "xx";
  EXPECT_EQ(describe(mount_point("sda1")), "USB storage, at least 1000 files, at least 2.0 kB");
}

TEST_F(TvUsb, DescriptionNeedsAMountPointAndABuffer) {
  stick({"insert", make("a")});
  const std::string text = "USB storage, 0 files, 0 bytes";
  EXPECT_EQ(describe(mount_point("sda1"), static_cast<INT32>(text.size() + 1)), text);
  EXPECT_EQ(describe(mount_point("sda1"), static_cast<INT32>(text.size())), "failed untouched");
  EXPECT_EQ(describe(mount_point("sda1"), 0), "failed untouched");
  EXPECT_EQ(describe(mount_point("sda1"), -1), "failed untouched");
  EXPECT_EQ(describe(mount_point("sdb1")), "failed untouched");
  EXPECT_EQ(describe(world.path + "/a"), "failed untouched");
  EXPECT_EQ(describe(""), "failed untouched");
  char room[256];
  EXPECT_LT(a_vextvapi_cb_usb_detect_devDesc(detection, nullptr, room, 255), 0);
  EXPECT_LT(a_vextvapi_cb_usb_detect_devDesc(detection, mount_point("sda1").c_str(), nullptr, 255), 0);
}

// ---- Restarts ----

// How far the scans are differs from one moment to the next.
std::string without_scans(const std::string& answer) {
  static const std::regex kScan(R"(,"scan":\{[^}]*\})");
  return std::regex_replace(answer, kScan, "");
}

TEST_F(TvUsb, SticksStayInsertedAfterARestart) {
  const std::string b = make("b");
  for (const std::string& path : {make("a"), b, make("c")})
    stick({"insert", path, "label of " + path.substr(path.size() - 1)});
  stick({"remove", "/dev/sda1"});
  const std::string before = without_scans(stick({"list"}));
  dtv_tv_stop();
  fs::remove(mount_point("sdb1"));  // the links are created again
  fs::create_directory_symlink("/", mount_point("sdq1"));
  start();
  EXPECT_EQ(without_scans(stick({"list"})), before);
  EXPECT_EQ(devices(), (Names{"/dev/sdb1", "/dev/sdc1"}));
  EXPECT_EQ(fs::read_symlink(mount_point("sdb1")), b);
  EXPECT_FALSE(fs::exists(mount_point("sdq1")));
  EXPECT_EQ(stick({"insert", make("d")}).rfind(R"({"device":"/dev/sda1")", 0), 0u);
  dtv_tv_stop();
  EXPECT_EQ(heard.size(), 1u);  // only the last change's
}

TEST_F(TvUsb, AStickWhoseFolderIsDeletedIsDroppedAtStart) {
  const std::string holiday = make("Holiday");
  stick({"insert", holiday, "Summer"});
  stick({"insert", make("b")});
  dtv_tv_stop();
  fs::remove_all(holiday);
  testing::internal::CaptureStderr();
  start();
  const std::string log = testing::internal::GetCapturedStderr();
  EXPECT_EQ(log, "dtv_tv: the stick \"Summer\" is no longer inserted: there is no folder " + holiday + "\n");
  EXPECT_EQ(devices(), (Names{"/dev/sdb1"}));
  EXPECT_FALSE(fs::exists(fs::symlink_status(mount_point("sda1"))));
  dtv_tv_stop();
  fs::create_directory(holiday);
  start();  // it is not inserted again by itself
  EXPECT_EQ(devices(), (Names{"/dev/sdb1"}));
}

}  // namespace
