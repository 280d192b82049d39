#include "seeds.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <random>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);
extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv);

static std::set<std::string>* reached;
static int running;  // a file that holds the input that is being run, for whoever finds that it failed

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

// Cuts off what is not needed to reach the goals.
static void shorten(Input& input, const std::set<std::string>& goals) {
  for (std::size_t cut = input.size() / 2; cut > 0; cut /= 2) {
    while (input.size() > cut) {
      Input shorter(input.begin(), input.end() - static_cast<std::ptrdiff_t>(cut));
      if (run(shorter, goals) != goals) break;
      input = std::move(shorter);
    }
  }
}

// Writes a seed for every goal into a folder. When an input fails, it is left there as "running". False, with a
// message, when a goal was not reached in time.
static bool write_seeds(const std::filesystem::path& folder) {
  std::filesystem::create_directories(folder);
  const std::filesystem::path running_path = folder / "running";
  running = open(running_path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644);
  std::mt19937 random;  // the same seeds every time
  std::set<std::string> wanted = seed_goals();
  const std::size_t goals = wanted.size();
  std::size_t seeds = 0;
  const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(60);
  while (!wanted.empty() && std::chrono::steady_clock::now() < end) {
    Input input = random_input(random);
    const std::set<std::string> found = run(input, wanted);
    if (found.empty()) continue;
    shorten(input, found);
    for (const std::string& goal : found) wanted.erase(goal);
    std::ofstream file(folder / ("seed-" + std::to_string(++seeds)), std::ios::binary);
    file.write(reinterpret_cast<const char*>(input.data()), static_cast<std::streamsize>(input.size()));
  }
  close(running);
  std::filesystem::remove(running_path);
  std::fprintf(stderr, "%zu seeds reach %zu of %zu goals\n", seeds, goals - wanted.size(), goals);
  for (const std::string& goal : wanted) std::fprintf(stderr, "not reached: %s\n", goal.c_str());
  return wanted.empty();
}

// "--seeds FOLDER" instead of what the fuzzer's own arguments say.
int LLVMFuzzerInitialize(int* argc, char*** argv) {
  if (*argc == 3 && std::string_view((*argv)[1]) == "--seeds") std::exit(write_seeds((*argv)[2]) ? 0 : 1);
  return 0;
}
