// Runs conformance cases against the plugin, each in a process of its own.
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <optional>
#include <set>
#include <vector>

#include "runner/case.h"
#include "runner/child.h"
#include "runner/output.h"

namespace {

using namespace runner;
using Clock = std::chrono::steady_clock;

constexpr const char* kUsage =
    "usage: conformance PATH... [options]\n"
    "Runs the cases of files, and of all *.json files in folders, against the plugin.\n"
    "  --filter TEXT         only cases with TEXT in their name\n"
    "  -v, --verbose         shows every step\n"
    "  --expand              prints the cases without tables, repetitions and names for numbers; runs none\n"
    "  --library PATH        another plugin than lib/libdtv_js_plugin.so beside this program's folder\n"
    "  --tap PATH            another tap than lib/libdtv_tap.so there\n"
    "  --jobs N              cases at a time (2)\n"
    "  --timeout SECONDS     for one case, beside its own delays (30)\n"
    "  --list-unexercised    names the platform functions and uses of URIs that no case exercises\n"
    "  --require-coverage    the same, and fails if there is one\n"
    "  --coverage FILE       writes {\"functions\": {name: count}, \"uris\": {\"get URI\": count}}\n"
    "  -h, --help            this text\n";

struct Options {
  std::vector<std::string> paths;
  std::string filter;
  std::string plugin;
  std::string tap;
  std::string coverage;
  bool help = false;
  bool verbose = false;
  bool expand = false;
  bool list_unexercised = false;
  bool require_coverage = false;
  int jobs = 2;
  int timeout = 30;
};

struct Coverage {
  std::map<std::string, int> functions;
  std::map<std::string, int> uris;  // by use and URI, as in a session
};

struct Job {
  const Case* test = nullptr;
  pid_t pid = -1;
  ChildFiles files;
  Clock::time_point deadline;
  bool hung = false;
  bool ended = false;
  bool passed = false;
  std::string text;  // what is printed about it
};

bool parse_number(const char* text, int& ret_number) {
  char* end = nullptr;
  const long number = std::strtol(text, &end, 10);
  if (*text == '\0' || *end != '\0' || number < 1 || number > 100000) return false;
  ret_number = static_cast<int>(number);
  return true;
}

// Reads the command line. False, after a message, when it is wrong.
bool parse_options(int argc, char** argv, Options& ret_options) {
  for (int i = 1; i < argc; ++i) {
    const std::string_view word = argv[i];
    const char* value = i + 1 < argc ? argv[i + 1] : nullptr;
    std::string* text = word == "--filter"     ? &ret_options.filter
                        : word == "--library"  ? &ret_options.plugin
                        : word == "--tap"      ? &ret_options.tap
                        : word == "--coverage" ? &ret_options.coverage
                                               : nullptr;
    int* number = word == "--jobs" ? &ret_options.jobs : word == "--timeout" ? &ret_options.timeout : nullptr;
    if (text != nullptr || number != nullptr) {
      ++i;
      if (value == nullptr || (number != nullptr && !parse_number(value, *number))) {
        std::fprintf(stderr, "conformance: %s needs a %s\n", argv[i - 1],
                     number != nullptr ? "number from 1 on" : "value");
        return false;
      }
      if (text != nullptr) *text = value;
    } else if (word == "-h" || word == "--help") {
      ret_options.help = true;
      return true;
    } else if (word == "-v" || word == "--verbose") {
      ret_options.verbose = true;
    } else if (word == "--expand") {
      ret_options.expand = true;
    } else if (word == "--list-unexercised") {
      ret_options.list_unexercised = true;
    } else if (word == "--require-coverage") {
      ret_options.require_coverage = true;
    } else if (word.starts_with("-")) {
      std::fprintf(stderr, "conformance: unknown option %s\n%s", argv[i], kUsage);
      return false;
    } else {
      ret_options.paths.emplace_back(word);
    }
  }
  if (ret_options.paths.empty()) std::fputs(kUsage, stderr);
  return !ret_options.paths.empty();
}

std::vector<std::string> find_files(const std::vector<std::string>& paths) {
  std::vector<std::string> files;
  for (const std::string& path : paths) {
    std::error_code error;
    if (!std::filesystem::is_directory(path, error)) {
      files.push_back(path);
      continue;
    }
    std::vector<std::string> found;
    for (std::filesystem::recursive_directory_iterator at(path, error), end; !error && at != end; at.increment(error)) {
      if (at->is_regular_file() && at->path().extension() == ".json") found.push_back(at->path().string());
    }
    std::sort(found.begin(), found.end());
    files.insert(files.end(), found.begin(), found.end());
  }
  return files;
}

std::string read_file(const std::string& path) {
  std::ifstream stream(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(stream), {}};
}

std::string read_memory(int file) {
  Capture capture{.file = file};
  return capture_take(capture);
}

Libraries find_libraries(const Options& options) {
  std::error_code error;
  const std::filesystem::path bin = std::filesystem::read_symlink("/proc/self/exe", error).parent_path();
  const auto path = [&](const std::string& given, const char* name) {
    return std::filesystem::absolute(given.empty() ? bin.parent_path() / "lib" / name : std::filesystem::path(given))
        .string();
  };
  return {.plugin = path(options.plugin, "libdtv_js_plugin.so"),
          .tap = path(options.tap, "libdtv_tap.so"),
          .language_template = read_file((bin.parent_path() / "lib" / "libconformance_language.so").string()),
          .other_library = read_file((bin.parent_path() / "lib" / "libconformance_other.so").string())};
}

// Whether a case is about sets with another word size.
bool is_for_other_word_size(const Case& test) {
  const cJSON* bits = cJSON_GetObjectItemCaseSensitive(test.json.get(), "word_bits");
  return is_word_bits(bits) && bits->valueint != static_cast<int>(sizeof(void*) * 8);
}

// The sum of the delays that a case asks for.
std::chrono::milliseconds own_delays(const cJSON* json) {
  double sum = 0;
  const cJSON* answer = nullptr;
  cJSON_ArrayForEach(answer, cJSON_GetObjectItemCaseSensitive(json, "platform")) {
    const cJSON* delay = cJSON_GetObjectItemCaseSensitive(answer, "delay_ms");
    const cJSON* times = cJSON_GetObjectItemCaseSensitive(answer, "times");
    const int steps = cJSON_GetArraySize(cJSON_GetObjectItemCaseSensitive(json, "steps")) + 1;
    if (cJSON_IsNumber(delay) && delay->valuedouble > 0) {
      sum +=
          std::min(delay->valuedouble, 600000.0) * (cJSON_IsNumber(times) ? std::max(1.0, times->valuedouble) : steps);
    }
  }
  return std::chrono::milliseconds(static_cast<std::int64_t>(std::min(sum, 3600000.0)));
}

int memory_file(const char* name) {
  const int file = memfd_create(name, 0);
  if (file < 0) {
    std::perror("conformance: memory file");
    std::exit(2);
  }
  return file;
}

void start(Job& job, const Inventory& inventory, const Libraries& libraries, int timeout) {
  job.files = {.report = memory_file("report"), .out = memory_file("out"), .err = memory_file("err")};
  job.deadline = Clock::now() + std::chrono::seconds(timeout);
  if (job.test != nullptr) job.deadline += own_delays(job.test->json.get());
  std::fflush(nullptr);
  job.pid = fork();
  if (job.pid < 0) {
    std::perror("conformance: fork");
    std::exit(2);
  }
  if (job.pid > 0) return;
  sigset_t none;
  sigemptyset(&none);
  sigprocmask(SIG_SETMASK, &none, nullptr);
  if (job.test == nullptr) child_inventory(libraries, job.files);
  child_run(*job.test, inventory, libraries, job.files);
}

std::string tail_of(const char* name, const std::string& text) {
  constexpr std::size_t kShown = 6000;
  if (text.empty()) return {};
  std::string shown = "    its " + std::string(name) + ":\n";
  for (const std::string& line : split_lines(text.size() > kShown ? text.substr(text.size() - kShown) : text)) {
    shown += "      " + line + "\n";
  }
  return shown;
}

void add_counts(const cJSON* object, std::map<std::string, int>& counts) {
  const cJSON* count = nullptr;
  cJSON_ArrayForEach(count, object) counts[count->string] += count->valueint;
}

// Reads the report of a child that has ended, and makes the job's text of it.
void finish(Job& job, int status, bool verbose, Coverage& coverage) {
  int step = -1;
  bool done = false;
  bool failed = false;
  for (const std::string& text : split_lines(read_memory(job.files.report))) {
    std::string error;
    const tap::Json line = tap::json_parse(text, error);
    if (const cJSON* at = cJSON_GetObjectItemCaseSensitive(line.get(), "step"); at != nullptr) step = at->valueint;
    if (const cJSON* fail = cJSON_GetObjectItemCaseSensitive(line.get(), "fail"); fail != nullptr) {
      failed = true;
      job.text += "  " + std::string(fail->valuestring) + "\n";
    }
    const cJSON* note = cJSON_GetObjectItemCaseSensitive(line.get(), "note");
    if (verbose && note != nullptr) job.text += "  " + std::string(note->valuestring) + "\n";
    add_counts(cJSON_GetObjectItemCaseSensitive(line.get(), "functions"), coverage.functions);
    add_counts(cJSON_GetObjectItemCaseSensitive(line.get(), "uris"), coverage.uris);
    done = done || cJSON_HasObjectItem(line.get(), "done");
  }
  const bool ended_badly = !done || !WIFEXITED(status) || WEXITSTATUS(status) != (failed ? 1 : 0);
  if (ended_badly) {
    const std::string place = step < 0    ? "before its first step"
                              : step == 0 ? "during start-up"
                              : done      ? "after its last step"
                                          : "in step " + std::to_string(step);
    const std::string how = job.hung              ? "hung and was ended"
                            : WIFSIGNALED(status) ? "was ended by signal " + std::to_string(WTERMSIG(status)) + " (" +
                                                        strsignal(WTERMSIG(status)) + ")"
                                                  : "ended with status " + std::to_string(WEXITSTATUS(status));
    job.text += "  the process " + how + " " + place + "\n" + tail_of("standard output", read_memory(job.files.out)) +
                tail_of("standard error", read_memory(job.files.err));
  }
  job.passed = done && !failed && !ended_badly;
  job.ended = true;
  for (const int file : {job.files.report, job.files.out, job.files.err}) close(file);
}

// Waits until a child has ended. Kills children that take too long.
void wait_for_one(std::vector<Job*>& running, bool verbose, Coverage& coverage) {
  sigset_t child_ended;
  sigemptyset(&child_ended);
  sigaddset(&child_ended, SIGCHLD);
  for (;;) {
    bool any = false;
    for (Job* job : running) {
      int status = 0;
      if (waitpid(job->pid, &status, WNOHANG) == job->pid) {
        finish(*job, status, verbose, coverage);
        any = true;
      } else if (Clock::now() > job->deadline && !job->hung) {
        job->hung = true;
        kill(job->pid, SIGKILL);
      }
    }
    if (any) break;
    const timespec patience{.tv_sec = 0, .tv_nsec = 200'000'000};
    sigtimedwait(&child_ended, nullptr, &patience);
  }
  std::erase_if(running, [](const Job* job) { return job->ended; });
}

// What cannot be read is missing in the inventory; the cases then say why.
Inventory take_inventory(const Libraries& libraries, int timeout) {
  Job job;
  start(job, {}, libraries, timeout);
  // A copy of the descriptor: wait_for_one closes the job's own.
  const int report = dup(job.files.report);
  Coverage none;
  for (std::vector<Job*> running = {&job}; !running.empty();) wait_for_one(running, false, none);
  Inventory inventory = inventory_read(read_memory(report));
  close(report);
  return inventory;
}

void print_job(const Job& job, bool verbose) {
  if (job.passed && !verbose) return;
  std::printf("%s %s: %s\n%s", job.passed ? "PASS" : "FAIL", job.test->file.c_str(), job.test->name.c_str(),
              job.text.c_str());
  std::fflush(stdout);
}

bool is_true(const cJSON* row, const char* key) { return cJSON_IsTrue(cJSON_GetObjectItemCaseSensitive(row, key)); }

std::string text_of(const cJSON* row, const char* key) {
  const cJSON* text = cJSON_GetObjectItemCaseSensitive(row, key);
  return cJSON_IsString(text) ? text->valuestring : "";
}

constexpr const char* kUses[] = {"get", "set", "notify"};

// Whether a row takes this use, even without effect: a case must then show that nothing happens.
bool takes(const cJSON* row, const char* use) {
  if (is_true(row, use)) return true;
  const cJSON* accepted = nullptr;
  cJSON_ArrayForEach(accepted, cJSON_GetObjectItemCaseSensitive(row, "without_effect")) {
    if (cJSON_IsString(accepted) && std::strcmp(accepted->valuestring, use) == 0) return true;
  }
  return false;
}

// What no case has used; nullopt, after a message, when the libraries do not describe themselves.
std::optional<std::vector<std::string>> unexercised(const Inventory& inventory, const Coverage& coverage) {
  std::string error;
  const tap::Json contract = tap::json_parse(inventory.functions, error);
  const tap::Json registry = tap::json_parse(inventory.registry, error);
  const cJSON* rows = cJSON_GetObjectItemCaseSensitive(registry.get(), "uris");
  if (!cJSON_IsArray(contract.get()) || !cJSON_IsArray(rows)) {
    std::printf("coverage: the libraries do not list their functions and URIs\n");
    return std::nullopt;
  }
  std::vector<std::string> missing;
  const cJSON* entry = nullptr;
  cJSON_ArrayForEach(entry, contract.get()) {
    const std::string name = cJSON_GetObjectItemCaseSensitive(entry, "name")->valuestring;
    if (!coverage.functions.contains(name)) missing.push_back("platform function " + name);
  }
  std::set<std::string> served;  // groups
  cJSON_ArrayForEach(entry, rows) {
    for (const char* use : kUses) {
      if (takes(entry, use)) served.insert(text_of(entry, "group"));
    }
  }
  cJSON_ArrayForEach(entry, rows) {
    const std::string uri = text_of(entry, "uri");
    const auto is_used = [&](const char* use) { return coverage.uris.contains(use + (" " + uri)); };
    bool has_use = false;
    for (const char* use : kUses) {
      if (!takes(entry, use)) continue;
      has_use = true;
      if (!is_used(use)) missing.push_back(use + (" " + uri));
    }
    // A row that no request reaches must be called by its identifier.
    const std::string group = text_of(entry, "group");
    if (!has_use && !group.empty() && served.contains(group) &&
        std::none_of(std::begin(kUses), std::end(kUses), is_used))
      missing.push_back("row " + uri);
  }
  return missing;
}

struct Outcome {
  int passed = 0;
  int failed = 0;
  int left_out = 0;
  bool found = false;  // a case to run
  Coverage coverage;
};

void run_file(const std::string& path, const Options& options, const Inventory& inventory, const Libraries& libraries,
              Outcome& outcome) {
  const CaseFile file = read_case_file(path);
  if (!file.refusal.empty()) {
    ++outcome.failed;
    std::printf("FAIL %s: %s\n", file.path.c_str(), file.refusal.c_str());
  }
  std::vector<Job> jobs;
  for (const Case& test : file.cases) {
    if (test.name.find(options.filter) == std::string::npos) continue;
    if (is_for_other_word_size(test)) {
      ++outcome.left_out;
      continue;
    }
    jobs.emplace_back().test = &test;
  }
  outcome.found = outcome.found || !jobs.empty();

  std::vector<Job*> running;
  std::size_t next = 0;
  std::size_t printed = 0;
  while (printed < jobs.size()) {
    while (next < jobs.size() && running.size() < static_cast<std::size_t>(options.jobs)) {
      start(jobs[next], inventory, libraries, options.timeout);
      running.push_back(&jobs[next++]);
    }
    wait_for_one(running, options.verbose, outcome.coverage);
    for (; printed < jobs.size() && jobs[printed].ended; ++printed) {
      print_job(jobs[printed], options.verbose);
      ++(jobs[printed].passed ? outcome.passed : outcome.failed);
    }
  }
}

// Prints the cases as one file; false, after a message, when one cannot be expanded.
bool print_expanded(const Options& options) {
  bool good = true;
  const char* separator = "\n ";
  std::printf("{\"cases\":[");
  for (const std::string& path : find_files(options.paths)) {
    const CaseFile file = read_case_file(path);
    if (!file.refusal.empty()) std::fprintf(stderr, "%s: %s\n", file.path.c_str(), file.refusal.c_str());
    good = good && file.refusal.empty();
    for (const Case& test : file.cases) {
      if (test.name.find(options.filter) == std::string::npos) continue;
      if (!test.refusal.empty()) {
        std::fprintf(stderr, "%s: %s: %s\n", test.file.c_str(), test.name.c_str(), test.refusal.c_str());
        good = false;
        continue;
      }
      std::printf("%s%s", separator, test.text.c_str());
      separator = ",\n ";
    }
  }
  std::printf("]}\n");
  return good;
}

bool write_coverage(const std::string& path, const Coverage& coverage) {
  const tap::Json json(cJSON_CreateObject());
  const auto add = [&](const char* key, const std::map<std::string, int>& counts) {
    cJSON* object = cJSON_AddObjectToObject(json.get(), key);
    for (const auto& [name, count] : counts) cJSON_AddNumberToObject(object, name.c_str(), count);
  };
  add("functions", coverage.functions);
  add("uris", coverage.uris);
  std::ofstream stream(path);
  stream << tap::json_print(json.get()) << "\n";
  if (!stream.flush()) std::fprintf(stderr, "conformance: cannot write %s\n", path.c_str());
  return static_cast<bool>(stream);
}

}  // namespace

int main(int argc, char** argv) {
  Options options;
  if (!parse_options(argc, argv, options)) return 2;
  if (options.help) return std::fputs(kUsage, stdout) < 0 || std::fflush(stdout) != 0 ? 2 : 0;
  const Libraries libraries = find_libraries(options);
  sigset_t child_ended;
  sigemptyset(&child_ended);
  sigaddset(&child_ended, SIGCHLD);
  sigprocmask(SIG_BLOCK, &child_ended, nullptr);

  if (options.expand) return print_expanded(options) ? 0 : 1;
  const Inventory inventory = take_inventory(libraries, options.timeout);
  Outcome outcome;
  // One file at a time: a case's process inherits what the runner has read, and a leak sanitizer searches all of it.
  for (const std::string& path : find_files(options.paths)) run_file(path, options, inventory, libraries, outcome);

  bool good = outcome.failed == 0 && outcome.passed > 0;
  if (options.list_unexercised || options.require_coverage) {
    const auto missing = unexercised(inventory, outcome.coverage);
    for (const std::string& what : missing.value_or(std::vector<std::string>{})) {
      std::printf("no case exercises %s\n", what.c_str());
    }
    if (options.require_coverage && (!missing || !missing->empty())) good = false;
  }
  if (!options.coverage.empty() && !write_coverage(options.coverage, outcome.coverage)) good = false;
  if (!outcome.found && outcome.failed == 0) std::printf("no case was found\n");
  if (outcome.left_out > 0) std::printf("%d left out: they are for sets with another word size\n", outcome.left_out);
  std::printf("%d passed, %d failed\n", outcome.passed, outcome.failed);
  return good ? 0 : 1;
}
