// dtv-multiplexes: fills a folder with the multiplexes that the virtual television receives as its antenna.
#include <unistd.h>

#include <cstdio>
#include <ctime>
#include <exception>
#include <filesystem>
#include <optional>
#include <system_error>

#include "base/exit_codes.h"
#include "base/text.h"
#include "generator/files.h"
#include "generator/pictures.h"
#include "generator/programmes.h"
#include "generator/stamp.h"

namespace {

namespace fs = std::filesystem;

constexpr int kDefaultSeconds = 60;
constexpr int kFewestSeconds = 4;
constexpr int kMostSeconds = 600;
constexpr std::string_view kPicturesFolder = "/.pictures";

constexpr const char* kHelp =
    "Usage: dtv-multiplexes FOLDER [OPTIONS]\n"
    "\n"
    "Fills a folder with multiplexes (.ts files) that the virtual television receives as its antenna. Pictures and\n"
    "sound are made once, by ffmpeg, and kept in FOLDER/.pictures; every later start only puts today's guide in.\n"
    "\n"
    "Options:\n"
    "  --date DATE      The day on which the broadcast begins, as YYYY-MM-DD or YYYY-MM-DDTHH:MM in UTC (default: "
    "now)\n"
    "  --days N         Days of the guide, 1 to 8 (default 8)\n"
    "  --seconds N      Length of the files, 4 to 600 (default 60)\n"
    "  --help           This help, also -h\n"
    "\n"
    "Exit codes:\n"
    "  0  done\n"
    "  1  pictures cannot be made: ffmpeg is missing or fails\n"
    "  2  wrong command line\n"
    "  5  the folder cannot be written\n";

struct Options {
  std::string folder;
  Stamp stamp = {.utc = 0, .days = kMostDays, .seconds = kDefaultSeconds};
};

// Days before 1970-01-01 and after 2038-04-22, where the dates of the tables end, are refused.
bool read_date(const std::string& text, std::int64_t now, std::int64_t& ret_utc) {
  constexpr std::int64_t kDay = 86400;
  std::tm date = {};
  const char* rest = strptime(text.c_str(), "%Y-%m-%d", &date);
  if (rest == nullptr || text.size() < 10 || text[4] != '-' || text[7] != '-') return false;
  const int day = date.tm_mday;
  if (*rest != '\0') {
    rest = strptime(rest, "T%H:%M", &date);
    if (rest == nullptr || *rest != '\0') return false;
  }
  std::int64_t utc = timegm(&date);
  if (date.tm_mday != day || utc < 0 || utc / kDay > 24'900) return false;
  if (text.size() == 10) utc += now % kDay;
  ret_utc = utc;
  return true;
}

int wrong(const std::string& why) {
  fprintf(stderr, "dtv-multiplexes: %s; --help lists the options\n", why.c_str());
  return kExitUsage;
}

// Reads the command line. An exit code when there is nothing more to do.
std::optional<int> read_options(int argc, char** argv, Options& ret_options) {
  const std::int64_t now = std::time(nullptr);
  ret_options.stamp.utc = now;
  for (int index = 1; index < argc; ++index) {
    const std::string word = argv[index];
    if (word == "--help" || word == "-h") {
      fputs(kHelp, stdout);
      return kExitOk;
    }
    if (!word.starts_with("-")) {
      if (!ret_options.folder.empty() || word.empty()) return wrong("one folder is needed");
      ret_options.folder = word;
      continue;
    }
    if (word != "--date" && word != "--days" && word != "--seconds") return wrong("there is no option " + word);
    if (++index == argc) return wrong(word + " needs a value");
    const std::string value = argv[index];
    if (word == "--date") {
      if (!read_date(value, now, ret_options.stamp.utc))
        return wrong("\"" + value + "\" is no date such as 2026-03-01 or 2026-03-01T18:30");
      continue;
    }
    const bool days = word == "--days";
    const auto number = days ? parse_number_within<int>(value, 1, kMostDays)
                             : parse_number_within<int>(value, kFewestSeconds, kMostSeconds);
    if (!number) return wrong(word + " \"" + value + "\" is not a number within its range");
    (days ? ret_options.stamp.days : ret_options.stamp.seconds) = *number;
  }
  if (ret_options.folder.empty()) return wrong("a folder is needed");
  return std::nullopt;
}

std::string multiplex_path(const std::string& folder, const MultiplexRow& multiplex) {
  return folder + "/" + std::string(multiplex.name) + ".ts";
}

// Removes what a killed program has left.
void remove_temporary(const std::string& folder, const std::string& pictures) {
  std::error_code ignored;
  for (const MultiplexRow& multiplex : kMultiplexes)
    fs::remove(file_temporary(multiplex_path(folder, multiplex)), ignored);
  for (const auto& entry : fs::directory_iterator(pictures, ignored))
    if (entry.path() == file_temporary(entry.path().parent_path() / entry.path().stem()))
      fs::remove(entry.path(), ignored);
}

// Removes pictures of other versions and lengths.
void remove_other_pictures(const std::string& folder, int seconds) {
  std::error_code ignored;
  for (const auto& entry : fs::directory_iterator(folder, ignored)) {
    bool wanted = entry.path().extension() != ".ts";
    for (const MultiplexRow& multiplex : kMultiplexes)
      wanted = wanted || entry.path() == pictures_path(folder, multiplex, seconds);
    if (!wanted) fs::remove(entry.path(), ignored);
  }
}

ExitCode fill(const Options& options, std::string& ret_error) {
  const std::string pictures = options.folder + std::string(kPicturesFolder);
  std::error_code failed;
  fs::create_directories(pictures, failed);
  if (failed) {
    ret_error = "cannot create " + pictures + ": " + failed.message();
    return kExitOutput;
  }
  if (!folder_lock(pictures, ret_error)) return kExitOutput;
  remove_temporary(options.folder, pictures);

  const int seconds = options.stamp.seconds;
  std::vector<const MultiplexRow*> missing;
  for (const MultiplexRow& multiplex : kMultiplexes)
    if (!pictures_there(multiplex, pictures, seconds)) missing.push_back(&multiplex);
  if (!missing.empty()) {
    remove_other_pictures(pictures, seconds);
    fprintf(stderr, "dtv-multiplexes: making %zu multiplexes in %s, once\n", missing.size(), options.folder.c_str());
    if (const ExitCode code = pictures_make(missing, pictures, seconds, ret_error); code != kExitOk) return code;
  }
  for (const MultiplexRow& multiplex : kMultiplexes) {
    const std::string path = multiplex_path(options.folder, multiplex);
    if (!stamp_multiplex(multiplex, options.stamp, pictures_path(pictures, multiplex, seconds), path, ret_error))
      return kExitOutput;
  }
  return kExitOk;
}

}  // namespace

int main(int argc, char** argv) {
  Options options;
  if (const std::optional<int> code = read_options(argc, argv, options)) return *code;
  if (!programmes_zone_known()) {
    fputs("dtv-multiplexes: this machine has no time zones; install the package tzdata\n", stderr);
    return kExitRefused;
  }
  watch_signals();
  std::string error;
  const ExitCode code = fill(options, error);
  if (interrupted()) end_by_signal();
  if (code != kExitOk) fprintf(stderr, "dtv-multiplexes: %s\n", error.c_str());
  return code;
}
