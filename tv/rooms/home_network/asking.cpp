// Requests to a server whose answers a caller waits for, until DMP_WAIT_SECONDS have passed or asking_break is called.
#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <list>
#include <memory>
#include <mutex>
#include <utility>

#include "core/reply.h"
#include "rooms/home_network/loop.h"
#include "rooms/home_network/parts.h"

namespace {

constexpr std::chrono::seconds kWait(DMP_WAIT_SECONDS);

// A request, shared by its caller and its callback, which may run after the caller has returned.
struct Question {
  INT32 server = 0;
  bool over = false;
  std::string why = {};
  UpnpPage page = {};
};

struct State {
  std::mutex lock;  // guards the list and the questions in it
  std::condition_variable changed;
  std::list<std::shared_ptr<Question>> questions;
};

// Never destroyed: other threads may still use it when the process exits.
State& state = *new State;

// Ends a request with its answer or with why there is none. A later answer is dropped. The caller holds the lock.
void end(Question& question, UpnpPage page, std::string why) {
  if (question.over) return;
  question.over = true;
  question.page = std::move(page);
  question.why = std::move(why);
  state.changed.notify_all();
}

}  // namespace

std::uint64_t next_call() {
  static std::atomic<std::uint64_t> last = 0;
  return ++last;
}

std::string ask(const Server& server, UpnpListing listing, UpnpPage& ret_page) {
  if (!server.online) return "the server is off, or the set does not look for servers";
  std::string why;
  const UpnpLibrary* const library = upnp_library(why);
  if (library == nullptr) return why;
  const auto question = std::make_shared<Question>();
  question->server = server.id;
  {
    const std::lock_guard guard(state.lock);
    if (state.questions.size() >= kMostQuestions) return "too many questions to servers wait for their answers";
    state.questions.push_back(question);
  }
  listing.control = server.upnp.control;
  listing.service = server.upnp.service;
  listing.millis = static_cast<std::uint32_t>(std::chrono::milliseconds(kWait).count());
  const std::uint64_t call = next_call();
  home_loop_post([library, call, question, listing = std::move(listing)] {
    library->upnp_list(call, listing, [question](UpnpPage page, const std::string& trouble) {
      const std::lock_guard guard(state.lock);
      end(*question, std::move(page), trouble);
    });
  });
  std::unique_lock guard(state.lock);
  state.changed.wait_for(guard, kWait, [&] { return question->over; });
  const bool answered = question->over;
  end(*question, {}, "the server did not answer in time");
  state.questions.remove(question);
  ret_page = std::move(question->page);
  why = question->why;
  guard.unlock();
  if (!answered || !why.empty()) home_loop_post([library, call] { library->upnp_cancel(call); });
  return why;
}

void asking_break(INT32 server) {
  const std::lock_guard guard(state.lock);
  for (const auto& question : state.questions)
    if (question->server == server) end(*question, {}, "the question was cancelled");
}

INT32 a_vextvapi_dmp_breakDms(INT32 dev_id) {
  if (!servers_find(dev_id)) return refuse_call(__func__, "there is no server " + std::to_string(dev_id));
  asking_break(dev_id);
  return 0;
}
