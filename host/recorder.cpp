#include "recorder.h"

#include <fcntl.h>
#include <stdlib.h>
#include <unistd.h>

#include <boost/json.hpp>
#include <cerrno>
#include <system_error>
#include <thread>

#include "base/text.h"

namespace json = boost::json;
using std::chrono::steady_clock;

namespace {

constexpr std::size_t kWriteBytes = 64 * kKib;  // lines are written to the file in pieces of this size

// A file that has no name, so that nothing is left behind whatever happens.
int make_file(const std::string& folder, std::string& ret_error) {
  int file = open(folder.c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC, 0600);
  if (file < 0) {  // this file system has none
    std::string name = folder + "/record-XXXXXX";
    file = mkostemp(name.data(), O_CLOEXEC);
    if (file >= 0) unlink(name.c_str());
  }
  if (file < 0) ret_error = "cannot make a file in " + folder + ": " + std::generic_category().message(errno);
  return file;
}

// The following functions are called under the recorder's mutex.

void end_record(Recorder& recorder, std::string reason) {
  recorder.on.store(false);
  recorder.stopped = steady_clock::now();
  recorder.reason = std::move(reason);
  if (!recorder.reason.empty() && recorder.ended != nullptr) recorder.ended(recorder.context);
}

void flush(Recorder& recorder) {
  std::string_view rest = recorder.unwritten;
  while (!rest.empty()) {
    const ssize_t written = write(recorder.file, rest.data(), rest.size());
    if (written < 0 && errno == EINTR) continue;
    if (written <= 0) {
      const std::string why = "the record cannot be written: " + std::generic_category().message(errno);
      // The last line may be torn. What was waiting began with a line.
      const std::string_view done(recorder.unwritten.data(), recorder.unwritten.size() - rest.size());
      recorder.bytes -= rest.size() + (done.size() - (done.rfind('\n') + 1));
      if (recorder.on.load())
        end_record(recorder, why);
      else
        recorder.reason = why;
      break;
    }
    rest.remove_prefix(static_cast<std::size_t>(written));
  }
  recorder.unwritten.clear();
}

void add_line(Recorder& recorder, std::string_view line) {
  if (!recorder.on.load()) return;
  if (recorder.bytes + line.size() + 1 > recorder.limit)
    return end_record(recorder,
                      "the record has reached its limit of " + std::to_string(recorder.limit / kMib) + " MiB");
  recorder.unwritten.append(line).push_back('\n');
  recorder.bytes += line.size() + 1;
  record_count(line, recorder.counts);
  if (recorder.unwritten.size() >= kWriteBytes) flush(recorder);
}

json::object new_line(const dtv_tap_stamp_t& stamp) {
  return {{"seq", stamp.seq}, {"t", stamp.t}, {"thread", stamp.thread}};
}

// A text that is not UTF-8 cannot be in JSON.
void add_text(json::object& line, const char* member, std::string_view text) {
  if (text.empty()) return;
  if (is_utf8(text))
    line[member] = text;
  else
    line["bytes"] = text.size();
}

void add_subscription(Recorder& recorder, const dtv_tap_stamp_t& stamp, bool adds, std::string_view uri,
                      std::int32_t ret) {
  json::object line = new_line(stamp);
  line[adds ? "subscribe" : "unsubscribe"] = uri;
  line["ret"] = ret;
  add_line(recorder, json::serialize(line));
}

// The whole record as text; false if there is none or it is longer than most.
bool read_record(Recorder& recorder, std::size_t most, std::string& ret_text, std::string& ret_error) {
  const std::lock_guard lock(recorder.mutex);
  if (recorder.file < 0) {
    ret_error = "nothing has been recorded";
    return false;
  }
  flush(recorder);
  if (recorder.bytes > most) {
    ret_error = "the record has " + std::to_string(recorder.bytes) + " bytes, more than the " +
                std::to_string(most / kMib) +
                " MiB of which the host makes a case; \"dtvctl case\" makes one of the downloaded record";
    return false;
  }
  ret_text.resize(recorder.bytes);
  if (pread(recorder.file, ret_text.data(), ret_text.size(), 0) == static_cast<ssize_t>(ret_text.size())) return true;
  ret_error = "the record cannot be read";
  return false;
}

std::string error_object(std::string_view text) { return json::serialize(json::object{{"error", text}}); }

}  // namespace

WithoutCallbacks::WithoutCallbacks(Recorder* recorder) {
  if (recorder == nullptr || !recorder->on.load()) return;
  stack = recorder->stack;
  stack->hold_callbacks(1);
  const auto end = steady_clock::now() + kLimitCallbackWait;
  dtv_tap_stamp_t stamp{};
  while (stack->stamp(&stamp), stamp.callbacks > 0) {
    if (steady_clock::now() >= end) recorder->callback_stuck.store(true);
    if (recorder->callback_stuck.load()) return;
    std::this_thread::sleep_for(std::chrono::microseconds(50));
  }
  recorder->callback_stuck.store(false);
}

WithoutCallbacks::~WithoutCallbacks() {
  if (stack != nullptr) stack->hold_callbacks(0);
}

Begun recorder_begin(const Recorder* recorder) {
  Begun begun{.recorded = recorder != nullptr && recorder->on.load(std::memory_order_relaxed)};
  if (begun.recorded) recorder->stack->stamp(&begun.stamp);
  return begun;
}

void recorder_request(Recorder* recorder, const Begun& begun, bool gets, const char* uri, const char* param,
                      std::int32_t ret, std::string_view text) {
  if (!begun.recorded) return;
  json::object line = new_line(begun.stamp);
  line[gets ? "get" : "set"] = uri;
  if (param != nullptr) line["param"] = param;
  line["ret"] = ret;
  add_text(line, "response", text);
  const std::lock_guard lock(recorder->mutex);
  add_line(*recorder, json::serialize(line));
}

void recorder_subscription(Recorder* recorder, const Begun& begun, bool adds, const char* uri, std::int32_t ret) {
  if (recorder == nullptr) return;
  const std::lock_guard lock(recorder->mutex);
  if (adds)
    recorder->subscribed.emplace(uri);
  else
    recorder->subscribed.erase(uri);
  if (begun.recorded) add_subscription(*recorder, begun.stamp, adds, uri, ret);
}

void recorder_fetch(Recorder* recorder, const Begun& begun, const char* uri, std::int32_t ret, std::string_view text) {
  if (!begun.recorded) return;
  json::object line = new_line(begun.stamp);
  line["fetch"] = uri;
  line["ret"] = ret;
  add_text(line, "notification", text);
  const std::lock_guard lock(recorder->mutex);
  add_line(*recorder, json::serialize(line));
}

void recorder_line(Recorder* recorder, const char* line) {
  if (recorder == nullptr || !recorder->on.load(std::memory_order_relaxed)) return;
  const std::lock_guard lock(recorder->mutex);
  add_line(*recorder, line);
}

bool recorder_start(Recorder& recorder, std::string& ret_error) {
  if (recorder.stack->stamp == nullptr || recorder.stack->start == nullptr) {
    ret_error = "a record needs the tap, and this process runs without it";
    return false;
  }
  const std::lock_guard lock(recorder.mutex);
  if (recorder.on.load()) {
    ret_error = "a record is being made already; \"capture stop\" ends it";
    return false;
  }
  {
    const std::lock_guard start_lock(recorder.stack->start->lock);
    if (recorder.stack->start->full) {
      ret_error = "the plugin's start made more platform calls than are kept";
      return false;
    }
  }
  const int file = make_file(recorder.folder, ret_error);
  if (file < 0) return false;
  if (recorder.file >= 0) close(recorder.file);
  recorder.file = file;
  recorder.unwritten.clear();
  recorder.bytes = 0;
  recorder.counts = {};
  recorder.reason.clear();
  recorder.begun = steady_clock::now();
  recorder.on.store(true);
  add_line(recorder, json::serialize(json::object{{"record", 1}, {"device", access("/dev/cli", F_OK) == 0}}));
  {
    const std::lock_guard start_lock(recorder.stack->start->lock);
    std::string_view lines = recorder.stack->start->text;
    for (std::size_t end = 0; (end = lines.find('\n')) != std::string_view::npos; lines.remove_prefix(end + 1))
      add_line(recorder, lines.substr(0, end));
  }
  recorder.counts = {};  // of what is recorded, not of the start
  dtv_tap_stamp_t stamp{};
  for (const std::string& uri : recorder.subscribed) {
    recorder.stack->stamp(&stamp);
    add_subscription(recorder, stamp, true, uri, 0);
  }
  return true;
}

void recorder_stop(Recorder& recorder) {
  const std::lock_guard lock(recorder.mutex);
  if (!recorder.on.load()) return;
  flush(recorder);
  if (recorder.on.load()) end_record(recorder, {});
}

std::string recorder_status(Recorder& recorder) {
  const std::lock_guard lock(recorder.mutex);
  const bool on = recorder.on.load();
  json::object status{{"recording", on}, {"kept", recorder.file >= 0}};
  if (recorder.file >= 0) {
    const std::chrono::duration<double> time = (on ? steady_clock::now() : recorder.stopped) - recorder.begun;
    status["seconds"] = time.count();
    status["requests"] = recorder.counts.requests;
    status["calls"] = recorder.counts.calls;
    status["callbacks"] = recorder.counts.events;
    status["notifications"] = recorder.counts.notifications;
    status["bytes"] = recorder.bytes;
    status["limit"] = recorder.limit;
    if (!recorder.reason.empty()) status["reason"] = recorder.reason;
  }
  return json::serialize(status);
}

std::string recorder_case(Recorder& recorder) {
  std::string text;
  std::string error;
  Record record;
  if (!read_record(recorder, kLimitCaseBytes, text, error) || !record_read(text, record, error))
    return error_object(error);
  char* const contract = recorder.stack->contract();
  const std::string functions = contract != nullptr ? contract : "";
  free(contract);
  std::string made;
  std::vector<std::string> left_out;
  if (!record_case(record, functions, "as recorded", made, left_out, error)) return error_object(error);
  return made;
}

HttpAnswer recorder_answer(Recorder& recorder) {
  const std::lock_guard lock(recorder.mutex);
  if (recorder.file < 0) return http_error(404, "nothing has been recorded");
  flush(recorder);
  HttpAnswer answer{.status = 200, .type = "application/x-ndjson"};
  answer.more = "cache-control: no-store\r\nvary: authorization, origin\r\n";
  // A descriptor of its own, whose position belongs to this answer.
  const std::string path = "/proc/self/fd/" + std::to_string(recorder.file);
  answer.file = {.descriptor = open(path.c_str(), O_RDONLY | O_CLOEXEC), .bytes = recorder.bytes};
  if (answer.file.descriptor < 0) return http_error(500, "the record cannot be read");
  return answer;
}
