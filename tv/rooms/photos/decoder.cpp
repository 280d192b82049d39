#include "rooms/photos/decoder.h"

#include <pthread.h>
#include <unistd.h>

#include <condition_variable>
#include <deque>
#include <mutex>
#include <optional>
#include <thread>
#include <utility>

namespace {

constexpr std::size_t kMostJobs = 8;                            // that wait
constexpr std::chrono::seconds kReaderIdle{10};                 // after which the reader's process is ended
constexpr std::uint32_t kMostWidth = 1920, kMostHeight = 1080;  // of a decoded picture: the panel's

enum class Progress { kWaits, kRuns, kDone };

struct Job {
  PhotoOpen open;
  std::string name;
  std::function<void(DecodedPhoto photo)> take = {};  // empty: a caller waits for `done`
  Progress progress = Progress::kWaits;
  DecodedPhoto result = {};
};
using JobPointer = std::shared_ptr<Job>;

struct State {
  std::mutex
      lock;  // guards all members except the thread, and the reader while it works; no other lock is taken under it
  std::condition_variable wake;
  std::condition_variable done;
  bool running = false;
  std::deque<JobPointer> jobs;
  JobPointer present;  // the job that the thread works on; null: none, or it was cancelled
  MediaReaderHandle reader;
  std::thread thread;
};

// Never destroyed: other threads may still use it when the process exits.
State& state = *new State;

DecodedPhoto decode(MediaReader& reader, const Job& job) {
  DecodedPhoto photo;
  MediaFacts facts;
  const PhotoFile file = job.open(photo.why);
  if (file == nullptr) return photo;
  if (media_reader_facts(reader, *file, job.name, facts, photo.why) != ReadResult::kRead) return photo;
  if (facts.kind != MEDIA_TYPE_PHOTO) {
    photo.why = "it is not a photo";
    return photo;
  }
  auto picture = std::make_shared<MediaPicture>();
  if (media_reader_picture(reader, *file, job.name, kMostWidth, kMostHeight, *picture, photo.why) != ReadResult::kRead)
    return photo;
  photo.width = facts.width;
  photo.height = facts.height;
  photo.orientation = facts.orientation;
  photo.picture = std::move(picture);
  return photo;
}

bool has_work() { return !state.running || !state.jobs.empty(); }

void run() {
  pthread_setname_np(pthread_self(), "dtv_tv-photos");
  std::unique_lock guard(state.lock);
  while (true) {
    if (!state.wake.wait_for(guard, kReaderIdle, has_work)) {
      MediaReaderHandle idle = std::move(state.reader);
      guard.unlock();
      idle.reset();
      guard.lock();
      state.wake.wait(guard, has_work);
    }
    if (!state.running) break;
    const JobPointer job = state.jobs.front();
    state.jobs.pop_front();
    state.present = job;
    job->progress = Progress::kRuns;
    if (state.reader == nullptr) state.reader = media_reader_create();
    MediaReader& reader = *state.reader;
    guard.unlock();
    DecodedPhoto result = decode(reader, *job);
    guard.lock();
    // A cancelled reader stays cancelled, so it is replaced.
    MediaReaderHandle cancelled = state.present != job ? std::move(state.reader) : nullptr;
    const bool wanted = state.present == job;
    state.present.reset();
    job->progress = Progress::kDone;
    job->result = std::move(result);
    state.done.notify_all();
    guard.unlock();
    cancelled.reset();
    if (wanted && job->take) job->take(job->result);
    guard.lock();
  }
}

// Removes the job from the queue, or cancels it. The caller holds the lock.
void give_up(const JobPointer& job) {
  std::erase(state.jobs, job);
  if (state.present != job) return;
  state.present.reset();
  media_reader_cancel(*state.reader);
}

void forget_queued() {
  const JobPointer present = state.present;
  if (present != nullptr && present->take) give_up(present);
  std::erase_if(state.jobs, [](const JobPointer& job) { return job->take; });
}

}  // namespace

PhotoFile photo_file(int file) {
  return {new int(file), [](const int* number) {
            close(*number);
            delete number;
          }};
}

void decoder_start() {
  const std::lock_guard guard(state.lock);
  state.running = true;
  state.thread = std::thread(run);
}

void decoder_stop() {
  {
    const std::lock_guard guard(state.lock);
    state.running = false;
    for (const JobPointer& job : state.jobs) {
      job->progress = Progress::kDone;
      job->result.why = "the set is being switched off";
    }
    state.jobs.clear();
    if (state.present != nullptr) give_up(state.present);
    state.wake.notify_all();
    state.done.notify_all();
  }
  if (state.thread.joinable()) state.thread.join();
  state.reader.reset();
}

DecodedPhoto decoder_decode(const PhotoFile& file, const std::string& name) {
  const auto job = std::make_shared<Job>(Job{.open = [file](std::string&) { return file; }, .name = name});
  std::unique_lock guard(state.lock);
  if (!state.running) return {.why = "the set is off"};
  if (state.jobs.size() >= kMostJobs) return {.why = "too many photos are being decoded"};
  state.jobs.push_back(job);
  state.wake.notify_one();
  if (!state.done.wait_for(guard, kDecodeTime, [&job] { return job->progress == Progress::kDone; })) {
    give_up(job);
    return {.why = "decoding it takes more than " + std::to_string(kDecodeTime.count()) + " s"};
  }
  return job->result;
}

void decoder_queue(PhotoOpen open, const std::string& name, std::function<void(DecodedPhoto photo)> take) {
  const std::lock_guard guard(state.lock);
  forget_queued();
  if (!state.running || state.jobs.size() >= kMostJobs) return;
  state.jobs.push_back(std::make_shared<Job>(Job{.open = std::move(open), .name = name, .take = std::move(take)}));
  state.wake.notify_one();
}

void decoder_forget() {
  const std::lock_guard guard(state.lock);
  forget_queued();
}
