// Measures the virtual television's media library: the first and the second scan of a stick with small photos, what a
// volume get takes meanwhile, lists, and memory. The floor of a scan is reading the same files. Prints one JSON line
// per figure.
//
//   bench_library FOLDER [PHOTOS]
//     an existing, empty folder for the set's state and the photos; 10,000 of them by default
#include <dirent.h>
#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "dtv_tv.h"
#include "tvapi/all.h"

static constexpr int kPhotosInFolder = 500;
static constexpr int kRounds = 1001;

[[noreturn]] static void fail(const std::string& why) {
  fprintf(stderr, "bench_library: %s\n", why.c_str());
  exit(1);
}

static double now() {
  timespec time;
  clock_gettime(CLOCK_MONOTONIC, &time);
  return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) / 1e9;
}

static std::string control(const std::string& command) {
  char* const answer = dtv_tv_control(command.c_str());
  std::string text = answer == nullptr ? "" : answer;
  free(answer);
  if (text.find("{\"error\"") == 0) fail(command + ": " + text);
  return text;
}

// A value of a process's status, in MiB.
static double status_of(const std::string& process, const std::string& key) {
  std::ifstream file("/proc/" + process + "/status");
  std::string line;
  while (std::getline(file, line))
    if (line.compare(0, key.size() + 1, key + ":") == 0) return atof(line.c_str() + key.size() + 1) / 1024;
  return 0;
}

// The largest memory of this process's children that run now, in MiB.
static double children_memory() {
  double sum = 0;
  const std::string own = "/proc/self/task";
  DIR* const threads = opendir(own.c_str());
  if (threads == nullptr) return 0;
  while (const dirent* const thread = readdir(threads)) {
    std::ifstream children(own + "/" + thread->d_name + "/children");
    std::string child;
    while (children >> child) sum += status_of(child, "VmHWM");
  }
  closedir(threads);
  return sum;
}

static void make_photos(const std::string& stick, int photos) {
  const std::string model = stick + "/model.jpg";
  const std::string command = "ffmpeg -v error -y -f lavfi -i testsrc2=size=640x480 -frames:v 1 -q:v 8 '" + model + "'";
  // NOLINTNEXTLINE(cert-env33-c,concurrency-mt-unsafe)
  if (mkdir(stick.c_str(), 0700) != 0 || system(command.c_str()) != 0) fail("ffmpeg makes no photo");
  std::ifstream file(model, std::ios::binary);
  const std::string bytes(std::istreambuf_iterator<char>(file), {});
  unlink(model.c_str());
  for (int i = 0; i < photos; ++i) {
    const std::string folder = stick + "/d" + std::to_string(i / kPhotosInFolder);
    if (i % kPhotosInFolder == 0) mkdir(folder.c_str(), 0700);
    std::ofstream(folder + "/p" + std::to_string(i) + ".jpg", std::ios::binary) << bytes;
  }
}

// Finds the size and time of each file; also reads the files if asked.
static double look_at(const std::string& stick, int photos, bool read_them) {
  static char buffer[1 << 16];
  const double begin = now();
  for (int i = 0; i < photos; ++i) {
    const std::string path = stick + "/d" + std::to_string(i / kPhotosInFolder) + "/p" + std::to_string(i) + ".jpg";
    struct stat info;
    if (stat(path.c_str(), &info) != 0) fail("a photo is missing");
    if (!read_them) continue;
    const int file = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    while (read(file, buffer, sizeof buffer) > 0) {
    }
    close(file);
  }
  return now() - begin;
}

struct Scanned {
  double seconds;
  double children;            // MiB
  std::vector<double> waits;  // for the volume, in us
};

// Waits for the scan's end, and asks for the volume meanwhile.
static Scanned follow() {
  Scanned scanned = {.seconds = 0, .children = 0, .waits = {}};
  const double begin = now();
  int round = 0;
  while (a_vextvapi_cb_scanDone() == 0) {
    const double asked = now();
    a_vextvapi_volctrl_getVolume();
    scanned.waits.push_back((now() - asked) * 1e6);
    if (round++ % 100 == 0) scanned.children = std::max(scanned.children, children_memory());
    usleep(1000);
  }
  scanned.seconds = now() - begin;
  std::sort(scanned.waits.begin(), scanned.waits.end());
  return scanned;
}

static void print(const char* name, const char* unit, double value) {
  printf("{\"name\":\"%s\",\"unit\":\"%s\",\"value\":%.3f}\n", name, unit, value);
}

static void print(const char* name, const char* unit, double value, double floor) {
  printf("{\"name\":\"%s\",\"unit\":\"%s\",\"value\":%.3f,\"floor\":%.3f}\n", name, unit, value, floor);
}

// The median time of a list of 24 entries, in us.
static double list_time(const std::string& path, INT32 sort, INT32 index) {
  static T_MEDIA_INFO list[CBROWSER_LIST_MAX];
  std::vector<double> times;
  for (int i = 0; i < kRounds; ++i) {
    INT32 count = CBROWSER_LIST_MAX;
    const double begin = now();
    if (a_vextvapi_get_top_list_by_sort_type(list, MEDIA_TYPE_PHOTO, sort, path.c_str(), index, &count) != 0 ||
        count == 0) {
      fail("a list is empty");
    }
    times.push_back((now() - begin) * 1e6);
  }
  std::nth_element(times.begin(), times.begin() + kRounds / 2, times.end());
  return times[kRounds / 2];
}

int main(int count, char** arguments) {
  if (count != 2 && count != 3) fail("usage: bench_library FOLDER [PHOTOS]");
  const std::string folder = arguments[1], stick = folder + "/stick", mount = folder + "/state/usb/sda1";
  const int photos = count == 3 ? atoi(arguments[2]) : 10'000;
  make_photos(stick, photos);
  char* error = nullptr;
  mkdir((folder + "/state").c_str(), 0700);
  dtv_tv_stick_root(folder.c_str());
  if (dtv_tv_start((folder + "/state").c_str(), &error) != 0) fail(error == nullptr ? "the set does not start" : error);
  const double floor = look_at(stick, photos, true);

  control(R"(["stick","insert",")" + stick + "\"]");
  const Scanned first = follow();
  const int found = a_vextvapi_cb_get_db_count(MEDIA_TYPE_PHOTO, mount.c_str());
  if (found != photos) fail("the library has " + std::to_string(found) + " photos");
  print("library_scan", "s", first.seconds, floor);
  print("library_scan_files", "files/s", photos / first.seconds);
  if (first.waits.empty()) fail("the scan ended before the first request for the volume");
  print("library_volume_p99_beside_scan", "us", first.waits[first.waits.size() * 99 / 100]);
  print("library_memory", "MiB", status_of("self", "VmHWM") + first.children);

  const double stats = look_at(stick, photos, false);
  if (a_vextvapi_cb_startScan(mount.c_str()) != 0) fail("no second scan");
  print("library_second_scan", "s", follow().seconds, stats);
  print("library_list_by_name", "us", list_time(mount, VEXTVAPI_CB_SORT_NAME, 0));
  print("library_list_by_date_at_end", "us", list_time(mount, VEXTVAPI_CB_SORT_DATE, photos - 30));
  print("library_list_of_folder", "us", list_time(mount + "/d1", VEXTVAPI_CB_SORT_DATE, 0));
  dtv_tv_stop();
  return 0;
}
