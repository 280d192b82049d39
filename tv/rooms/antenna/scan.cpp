#include "rooms/antenna/scan.h"

#include <algorithm>
#include <atomic>
#include <boost/json.hpp>
#include <chrono>
#include <condition_variable>
#include <filesystem>
#include <iterator>
#include <mutex>
#include <tuple>
#include <utility>
#include <vector>

#include "core/background.h"
#include "core/reply.h"
#include "rooms/antenna/folder.h"
#include "rooms/antenna/survey.h"
#include "rooms/antenna/worker.h"
#include "rooms/channels/channels.h"

namespace {

using std::chrono::steady_clock;

constexpr std::chrono::milliseconds kNoSignalTime{10};  // spent on a frequency without a multiplex

// The frequencies at which a scan looks for a signal, apart from those of the antenna's multiplexes.
struct Raster {
  Medium medium;
  std::uint32_t first;
  std::uint32_t last;
  std::uint32_t step;
};
constexpr Raster kRasters[] = {
    {Medium::kAir, 474'000'000, 690'000'000, 8'000'000},    // UHF channels 21 to 48
    {Medium::kCable, 306'000'000, 466'000'000, 8'000'000},  // the hyperband
};

enum class Phase { kNone, kRuns, kDone, kCancelled, kFailed };
constexpr std::string_view kPhaseNames[] = {"none", "running", "done", "cancelled", "failed"};

// A scan's request, progress and outcome.
struct Scan {
  Phase phase = Phase::kNone;
  Medium medium = Medium::kNone;  // kNone: all
  bool update = false;
  std::size_t step = 0;  // frequencies that are done
  std::size_t steps = 0;
  std::size_t multiplex = 0;  // number of the latest one, from 1
  std::size_t multiplexes = 0;
  Medium at = Medium::kNone;  // the medium and the frequency that it is at; kNone: not at one yet
  std::uint32_t frequency = 0;
  Signal signal;
  std::size_t services = 0;
  std::vector<std::string> messages;
  ScanOutcome outcome;
  steady_clock::time_point begin;
  steady_clock::time_point end;
};

struct State {
  std::mutex lock;  // guards all members but the flag
  std::condition_variable cancelling;
  bool open = false;
  Scan scan;
  Worker worker;
  std::atomic<bool> cancelled = false;
};

// Never destroyed: other threads may still use it when the process exits.
State& state = *new State;

struct Step {
  Medium medium = Medium::kNone;
  std::uint32_t frequency = 0;
  std::string path;  // of the multiplex; empty: there is no signal
};

// Whether a tuner would receive the same multiplex at both frequencies: they are less than half a channel apart.
bool is_near(const Step& one, const Step& other) {
  const std::uint32_t half = one.medium == Medium::kSatellite ? 2 : 4'000'000;  // MHz and Hz
  return one.medium == other.medium &&
         std::max(one.frequency, other.frequency) - std::min(one.frequency, other.frequency) < half;
}

// The frequencies of the scan in their order: the antenna's multiplexes, and without a signal those of the rasters and
// of imported tables.
std::vector<Step> steps_of(Medium wanted) {
  std::vector<Step> steps;
  for (Multiplex& each : antenna_multiplexes())
    if (wanted == Medium::kNone || each.medium == wanted)
      steps.push_back({.medium = each.medium, .frequency = each.frequency, .path = std::move(each.path)});
  const std::vector<Step> signals = steps;
  std::vector<Step> silent;
  const auto add = [&](Medium medium, std::uint32_t frequency) {
    const Step step{.medium = medium, .frequency = frequency, .path = {}};
    const bool searched = wanted == Medium::kNone || medium == wanted;
    if (searched && std::ranges::none_of(signals, [&](const Step& each) { return is_near(each, step); }))
      silent.push_back(step);
  };
  for (const Raster& raster : kRasters)
    for (std::uint32_t frequency = raster.first; frequency <= raster.last; frequency += raster.step)
      add(raster.medium, frequency);
  for (const KnownMultiplex& each : channels_known_multiplexes()) add(each.medium, each.frequency);
  const auto order = [](const Step& each) { return std::tie(each.medium, each.frequency, each.path); };
  std::ranges::sort(silent, {}, order);
  steps.insert(steps.end(), silent.begin(), std::unique(silent.begin(), silent.end(), is_near));
  std::ranges::sort(steps, {}, order);
  return steps;
}

// ---- The thread; the caller of these functions does not hold the lock ----

void report_message(std::string text) {
  const std::lock_guard guard(state.lock);
  if (state.scan.messages.size() < kMostMessages) state.scan.messages.push_back(std::move(text));
}

// False: there is a multiplex, but it could not be read.
bool visit(const Step& step, std::vector<FoundService>& found) {
  {
    std::unique_lock guard(state.lock);
    state.scan.at = step.medium;
    state.scan.frequency = step.frequency;
    state.scan.signal = {};
    if (step.path.empty()) {
      state.cancelling.wait_for(guard, kNoSignalTime, [] { return state.cancelled.load(); });
      return true;
    }
    ++state.scan.multiplex;
  }
  Survey survey;
  std::string why;
  if (!survey_read(step.path, SurveyAim::kServices, state.cancelled, survey, why)) {
    if (!why.empty()) report_message(std::filesystem::path(step.path).filename().string() + ": " + why);
    return false;
  }
  std::vector<FoundService> services = survey_services(survey, step.medium, step.frequency);
  if (services.size() > kMostFound - found.size()) {
    report_message("a scan takes at most " + std::to_string(kMostFound) + " services; the others are left out");
    services.resize(kMostFound - found.size());
  }
  std::ranges::move(services, std::back_inserter(found));
  const std::lock_guard guard(state.lock);
  state.scan.signal = survey.signal;
  state.scan.services = found.size();
  return true;
}

Phase scan_all(Medium medium, bool update) {
  if (!folder_settle(state.cancelled)) return Phase::kCancelled;
  if (const std::string problem = folder_problem(); !problem.empty()) {
    report_message(problem + "; the channel lists are unchanged");
    return Phase::kFailed;
  }
  for (std::string& line : folder_refusals()) report_message(std::move(line));
  const std::vector<Step> steps = steps_of(medium);
  {
    const std::lock_guard guard(state.lock);
    state.scan.steps = steps.size();
    state.scan.multiplexes = steps.size() - static_cast<std::size_t>(std::ranges::count(steps, "", &Step::path));
  }
  std::vector<FoundService> found;
  std::vector<Medium> searched(std::begin(kMedia), std::end(kMedia));
  if (medium != Medium::kNone) searched = {medium};
  for (const Step& step : steps) {
    if (!visit(step, found)) std::erase(searched, step.medium);
    if (state.cancelled) return Phase::kCancelled;
    const std::lock_guard guard(state.lock);
    ++state.scan.step;
  }
  if (found.empty()) report_message("no service was found");
  ScanOutcome outcome;
  std::string why;
  if (!channels_take_scan({.found = found, .searched = searched, .update = update, .logos = folder_logos()}, outcome,
                          why)) {
    report_message("the channel lists are unchanged: " + why);
    return Phase::kFailed;
  }
  const std::lock_guard guard(state.lock);
  state.scan.outcome = outcome;
  return Phase::kDone;
}

void run_scan() {
  background_begin("dtv_tv-scan");
  std::unique_lock guard(state.lock);
  const Medium medium = state.scan.medium;
  const bool update = state.scan.update;
  guard.unlock();
  const Phase phase = scan_all(medium, update);
  guard.lock();
  state.scan.phase = phase;
  state.scan.end = steady_clock::now();
  state.worker.runs = false;
}

// ---- Replies; the caller holds the lock ----

boost::json::object shown(const Scan& scan) {
  boost::json::object answer{{"state", kPhaseNames[static_cast<std::size_t>(scan.phase)]}};
  if (scan.phase == Phase::kNone) return answer;
  const steady_clock::time_point end = scan.phase == Phase::kRuns ? steady_clock::now() : scan.end;
  answer["medium"] = scan.medium == Medium::kNone ? "all" : medium_name(scan.medium);
  answer["update"] = scan.update;
  answer["percent"] = scan.steps == 0 ? (scan.phase == Phase::kDone ? 100 : 0) : scan.step * 100 / scan.steps;
  answer["frequencies"] = scan.steps;
  answer["multiplex"] = scan.multiplex;
  answer["multiplexes"] = scan.multiplexes;
  if (scan.phase == Phase::kRuns && scan.at != Medium::kNone) {
    answer["at"] = medium_name(scan.at);
    answer["mhz"] = megahertz(scan.at, scan.frequency);
    answer["strength"] = scan.signal.strength;
    answer["quality"] = scan.signal.quality;
  }
  answer["services"] = scan.services;
  answer["seconds"] = std::chrono::duration_cast<std::chrono::seconds>(end - scan.begin).count();
  answer["messages"] = boost::json::array(scan.messages.begin(), scan.messages.end());
  if (scan.phase == Phase::kDone) {
    answer["added"] = scan.outcome.added;
    answer["changed"] = scan.outcome.changed;
    answer["removed"] = scan.outcome.removed;
  }
  return answer;
}

boost::json::object begin_scan(Medium medium, bool update) {
  if (!folder_is_chosen()) return reply_error("the antenna is not connected; antenna DIR connects it to a folder");
  folder_look();
  const std::lock_guard guard(state.lock);
  if (!state.open) return reply_error("the set is off");
  if (state.worker.runs) return reply_error("a scan runs already; scan cancel ends it");
  state.cancelled = false;
  state.scan = {};
  state.scan.phase = Phase::kRuns;
  state.scan.medium = medium;
  state.scan.update = update;
  state.scan.begin = steady_clock::now();
  if (!worker_start(state.worker, run_scan)) {
    state.scan = {};
    return reply_error("the machine has no thread left for a scan");
  }
  boost::json::object answer = shown(state.scan);
  reply_watch(answer, {.words = {"scan"}, .cancel = {"scan", "cancel"}, .shows = {"multiplex", "services"}});
  return answer;
}

}  // namespace

void scan_open() {
  const std::lock_guard guard(state.lock);
  state.open = true;
  state.scan = {};
}

void scan_cancel() {
  const std::lock_guard guard(state.lock);
  state.cancelled = true;
  state.cancelling.notify_all();
}

void scan_close() {
  {
    const std::lock_guard guard(state.lock);
    state.open = false;
    state.cancelled = true;
  }
  state.cancelling.notify_all();
  worker_join(state.worker);
}

boost::json::object scan_command(Arguments arguments) {
  if (arguments.empty() || arguments[0] == "cancel") {
    if (arguments.size() > 1) return reply_error("scan cancel takes no other word");
    if (!arguments.empty()) scan_cancel();
    const std::lock_guard guard(state.lock);
    if (!arguments.empty() && !state.worker.runs) return reply_error("no scan runs");
    return shown(state.scan);
  }
  const auto* const medium = std::ranges::find(kMedia, arguments[0], medium_name);
  const bool all = medium == std::end(kMedia);
  const std::size_t used = all && arguments[0] != "all" ? 0 : 1;
  const bool update = arguments.size() == used + 1 && arguments[used] == "update";
  if (arguments.size() != used + (update ? 1 : 0)) {
    return reply_takes("scan", "cancel, all, air, cable, satellite or update, and update behind a medium",
                       arguments[used < arguments.size() ? used : 0]);
  }
  return begin_scan(all ? Medium::kNone : *medium, update);
}

void scan_report(boost::json::object& answer) {
  const std::lock_guard guard(state.lock);
  if (state.worker.runs) answer["scan"] = shown(state.scan);
}
