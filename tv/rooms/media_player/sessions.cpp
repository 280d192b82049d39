// The table of players. session_thread.cpp has the thread of each.
#include <algorithm>
#include <cstdio>
#include <utility>

#include "rooms/media_player/parts.h"
#include "rooms/media_player/session_thread.h"
#include "rooms/screen/show.h"

namespace {

constexpr std::size_t kMostEnding = 4;  // threads that may be ending; one more end waits for the oldest of them

struct Table {
  std::mutex lock;  // guards all members; a session's lock may be taken under it
  std::vector<SessionHandle> applications;
  SessionHandle viewer;
  std::uint32_t last_handle = 0x4D500000;
  std::uintptr_t last_serial = 0;
  std::vector<SessionHandle> ending;
};

// Never destroyed: other threads may still use it when the process exits.
Table& table = *new Table;

std::atomic<std::uint64_t> last_opened = 0;

bool is_over_now(Session& session) {
  const std::lock_guard guard(session.lock);
  return is_over(session.stage) || session.leaving;
}

// The caller holds the table's lock. The session's thread ends soon.
void take_out(const SessionHandle& session) {
  {
    const std::lock_guard guard(session->lock);
    session->ending = true;
    session->callback = nullptr;
    session->wake.notify_one();
    if (!session->thread.joinable()) session->ended = true;
  }
  std::erase(table.applications, session);
  if (table.viewer == session) table.viewer = nullptr;
  table.ending.push_back(session);
}

// Leaves so many players of applications, those that were created last; first those end that play nothing. The caller
// holds the table's lock.
void leave_applications(std::size_t most) {
  while (table.applications.size() > most) {
    const auto idle = std::ranges::find_if(table.applications, [](const auto& each) { return is_over_now(*each); });
    take_out(SessionHandle(idle != table.applications.end() ? *idle : table.applications.front()));
  }
}

void join(Session& session) {
  if (session.thread.joinable()) session.thread.join();
  if (session.thumbnailer.joinable()) session.thumbnailer.join();
}

// Joins the threads that have ended, and the oldest ones beyond `most`.
void reap(std::size_t most) {
  while (true) {
    SessionHandle oldest;
    {
      const std::lock_guard guard(table.lock);
      const auto over =
          std::ranges::find_if(table.ending, [](const SessionHandle& each) { return each->ended.load(); });
      const bool is_full = table.ending.size() > most;
      if (over == table.ending.end() && !is_full) return;
      const auto next = over != table.ending.end() ? over : table.ending.begin();
      oldest = *next;
      table.ending.erase(next);
    }
    join(*oldest);
  }
}

}  // namespace

SessionHandle session_find(std::uint32_t handle) {
  const std::lock_guard guard(table.lock);
  const auto found = std::ranges::find_if(table.applications, [&](const auto& each) { return each->handle == handle; });
  return found == table.applications.end() ? nullptr : *found;
}

SessionHandle session_seen() {
  const std::lock_guard guard(table.lock);
  SessionHandle seen;
  std::uint64_t newest = 0;
  const auto look = [&](const SessionHandle& each) {
    const std::lock_guard session_guard(each->lock);
    if (is_over(each->stage) || each->leaving || each->opened <= newest) return;
    newest = each->opened;
    seen = each;
  };
  for (const SessionHandle& each : table.applications) look(each);
  if (table.viewer != nullptr) look(table.viewer);
  return seen;
}

SessionHandle session_of_viewer() {
  const std::lock_guard guard(table.lock);
  return table.viewer;
}

std::vector<SessionHandle> sessions_all() {
  const std::lock_guard guard(table.lock);
  std::vector<SessionHandle> all = table.applications;
  if (table.viewer != nullptr) all.push_back(table.viewer);
  return all;
}

SessionHandle session_create(const std::string& path) {
  auto session = std::make_shared<Session>();
  session->path = path;
  {
    const std::lock_guard guard(table.lock);
    const bool viewer_plays = table.viewer != nullptr && !is_over_now(*table.viewer);
    leave_applications(kMostMediaPlayers - 1 - (viewer_plays ? 1 : 0));
    session->serial = ++table.last_serial;
    session->handle = ++table.last_handle;
    table.applications.push_back(session);
  }
  show_wake();
  reap(kMostEnding);
  return session;
}

SessionHandle session_create_viewer() {
  auto session = std::make_shared<Session>();
  session->uses_bookmark = true;
  const std::lock_guard guard(table.lock);
  session->serial = ++table.last_serial;
  table.viewer = session;
  return session;
}

void sessions_make_room_for_viewer() {
  {
    const std::lock_guard guard(table.lock);
    leave_applications(kMostMediaPlayers - 1);
  }
  reap(kMostEnding);
}

void session_end(const SessionHandle& session) {
  {
    const std::lock_guard guard(table.lock);
    take_out(session);
  }
  show_wake();
  reap(kMostEnding);
}

void session_wake(std::uintptr_t serial) {
  for (const SessionHandle& each : sessions_all())
    if (each->serial == serial) session_change(*each, [](Session&) {});
}

void sessions_end_all() {
  for (const SessionHandle& each : sessions_all()) session_end(each);
  reap(0);
}

bool session_open(const SessionHandle& session, const std::string& path, std::optional<double> from, bool paused,
                  std::string& ret_why, INT32& ret_code, std::uint64_t after) {
  auto source = media_source(path, ret_why, ret_code);
  if (!source) return false;
  const std::lock_guard guard(session->lock);
  if (after != 0 && (session->opened != after || session->leaving || session->ending)) return false;
  if (!session->thread.joinable()) {
    try {
      session->thread = std::thread(session_run, session);
    } catch (const std::system_error& failure) {
      ret_why = std::string("the set has no thread for the player: ") + failure.what();
      ret_code = IVEX_PB_ERROR_CODE_FAILED;
      return false;
    }
  }
  session->path = path;
  session->source = std::move(*source);
  session->wanted.from = from.value_or(kWhereLeft);
  session->wanted.paused = paused;
  session->wanted.speed = PLAYER_SPEED_USUAL;
  session->wanted.audio = session->wanted.subtitle = 0;
  session_restart(*session);
  return true;
}

// The caller holds the session's lock.
void session_restart(Session& session) {
  session.opened = ++last_opened;
  session.stage = Stage::kOpening;
  session.reason.clear();
  session.error = 0;
  session.leaving = session.blocked = session.unblocked = session.played = false;
  session.facts = {};
  session.facts.paused = session.wanted.paused;
  session.facts.position = std::max(session.wanted.from, 0.0);
  session.picture = 0;
  session.shown.reset();
  session.woken = true;
  session.wake.notify_one();
}

bool is_over(Stage stage) { return stage != Stage::kOpening && stage != Stage::kReady; }

double session_position(const Session& session) {
  return session.stage == Stage::kEnded && session.facts.duration > 0 ? session.facts.duration : session.facts.position;
}
