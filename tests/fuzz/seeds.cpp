#include "seeds.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <random>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);
extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv);

static std::set<std::string>* reached;
static int running;  // a file with the input that is being run, which is left when the input fails

void seed_reached(std::string_view goal) {
  if (reached) reached->emplace(goal);
}

using Input = std::vector<std::uint8_t>;

// The goals of `wanted` that an input reaches.
static std::set<std::string> run(const Input& input, const std::set<std::string>& wanted) {
  std::set<std::string> all;
  reached = &all;
  if (ftruncate(running, 0) != 0 || pwrite(running, input.data(), input.size(), 0) < 0) perror("running");
  alarm(20);  // the fuzzer's own limit does not hold here yet
  LLVMFuzzerTestOneInput(input.data(), input.size());
  alarm(0);
  reached = nullptr;
  std::erase_if(all, [&](const std::string& goal) { return !wanted.contains(goal); });
  return all;
}

// Half of the decisions are small: most lists are short, and their first choices are the common ones.
static Input random_input(std::mt19937& random) {
  Input input(16 + random() % 240);
  for (std::uint8_t& byte : input) byte = static_cast<std::uint8_t>(random() % 2 == 0 ? random() % 16 : random());
  return input;
}

// An input that has come close: a few bytes are others, and others may follow.
static Input changed_input(std::mt19937& random, Input input) {
  const Input other = random_input(random);
  for (std::size_t changes = random() % 4; changes > 0 && !input.empty(); --changes)
    input[random() % input.size()] = other[changes];
  if (random() % 2 == 0) input.insert(input.end(), other.begin() + 4, other.end());
  return input;
}

// The input of a goal whose name is near a wanted one's in the alphabet, mostly beside it: such names begin alike, so
// that often little has to change. Neither by_goal nor wanted is empty.
static const Input& near_input(std::mt19937& random, const std::map<std::string, Input>& by_goal,
                               const std::set<std::string>& wanted) {
  const std::string& goal = *std::next(wanted.begin(), static_cast<std::ptrdiff_t>(random() % wanted.size()));
  auto near = by_goal.lower_bound(goal);
  const bool back = random() % 2 == 0;
  for (std::size_t steps = random() % (std::size_t{1} << random() % 5); steps > 0; --steps) {
    if (back && near != by_goal.begin()) --near;
    if (!back && near != by_goal.end()) ++near;
  }
  return near == by_goal.end() ? by_goal.rbegin()->second : near->second;
}

// Cuts off the end that is not needed to reach the goals.
static void shorten(Input& input, const std::set<std::string>& goals) {
  for (std::size_t cut = input.size() / 2; cut > 0; cut /= 2) {
    while (input.size() > cut) {
      Input shorter(input.begin(), input.end() - static_cast<std::ptrdiff_t>(cut));
      if (run(shorter, goals) != goals) break;
      input = std::move(shorter);
    }
  }
}

// The inputs in a folder, in the order of their names.
static std::vector<Input> read_inputs(const std::filesystem::path& folder) {
  std::set<std::filesystem::path> paths;
  for (const auto& entry : std::filesystem::directory_iterator(folder)) paths.insert(entry.path());
  std::vector<Input> inputs;
  for (const std::filesystem::path& path : paths) {
    std::ifstream file(path, std::ios::binary);
    inputs.emplace_back(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
  }
  return inputs;
}

// Writes into a folder a seed for every goal that none of the known inputs reaches. When an input fails, it is left
// there as "running". False, with a message, when a goal was not reached in time.
static bool write_seeds(const std::filesystem::path& folder, const std::vector<Input>& known) {
  std::filesystem::create_directories(folder);
  const std::filesystem::path running_path = folder / "running";
  running = open(running_path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644);
  std::mt19937 random;  // the same seeds every time
  std::set<std::string> wanted = seed_goals();
  const std::size_t goals = wanted.size();
  std::size_t seeds = 0;
  std::map<std::string, Input> by_goal;
  const auto reach = [&](const std::set<std::string>& found, const Input& input) {
    for (const std::string& goal : found) {
      wanted.erase(goal);
      by_goal[goal] = input;
    }
  };
  for (const Input& input : known) reach(run(input, wanted), input);
  static constexpr std::clock_t kMost = 60 * CLOCKS_PER_SEC;  // of processor time: other programs do not count
  while (!wanted.empty() && std::clock() < kMost) {
    Input input = by_goal.empty() || random() % 2 == 0 ? random_input(random)
                                                       : changed_input(random, near_input(random, by_goal, wanted));
    const std::set<std::string> found = run(input, wanted);
    if (found.empty()) continue;
    shorten(input, found);
    reach(found, input);
    std::ofstream file(folder / ("seed-" + std::to_string(++seeds)), std::ios::binary);
    file.write(reinterpret_cast<const char*>(input.data()), static_cast<std::streamsize>(input.size()));
  }
  close(running);
  std::filesystem::remove(running_path);
  std::fprintf(stderr, "%zu inputs and %zu seeds reach %zu of %zu goals\n", known.size(), seeds, goals - wanted.size(),
               goals);
  for (const std::string& goal : wanted) std::fprintf(stderr, "not reached: %s\n", goal.c_str());
  return wanted.empty();
}

// "--seeds FOLDER [FOLDER OF KNOWN INPUTS]" instead of what the fuzzer's own arguments say.
int LLVMFuzzerInitialize(int* argc, char*** argv) {
  if (*argc < 3 || std::string_view((*argv)[1]) != "--seeds") return 0;
  const std::vector<Input> known = *argc > 3 ? read_inputs((*argv)[3]) : std::vector<Input>();
  std::exit(write_seeds((*argv)[2], known) ? 0 : 1);
}
