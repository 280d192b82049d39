// Runs a case's steps and compares their results with what the case expects.
#include <dlfcn.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "runner/device.h"
#include "runner/exports.h"
#include "runner/session.h"

namespace runner {
namespace {

constexpr std::size_t kBufferSize = 65536;
constexpr std::size_t kLargestFetch = 1 << 20;

// What a buffer holds before a call. No UTF-8 text has these bytes, so that they cannot be taken for its end;
// neighbours differ, so that a function that fills a part with one byte is noticed.
char mark_at(std::size_t i) { return static_cast<char>(0xF8 + i * 5 % 8); }

std::vector<char> marked_buffer(std::size_t size) {
  std::vector<char> buffer(size);
  for (std::size_t i = 0; i < size; ++i) buffer[i] = mark_at(i);
  return buffer;
}

std::size_t bytes_written(const std::vector<char>& buffer) {
  std::size_t end = buffer.size();
  while (end > 0 && buffer[end - 1] == mark_at(end - 1)) --end;
  return end;
}

const cJSON* member(const cJSON* object, const char* key) { return cJSON_GetObjectItemCaseSensitive(object, key); }

const char* text_or_null(const cJSON* json) { return cJSON_IsString(json) ? json->valuestring : nullptr; }

// The outcome of a step's call into the plugin.
struct Outcome {
  std::int64_t ret = 0;
  std::vector<char> buffer;        // of a get or a fetch; empty without one
  std::vector<std::string> wrong;  // what differs from the case
};

void expect(Outcome& outcome, const std::string& check, const std::string& difference) {
  if (!difference.empty()) outcome.wrong.push_back(check + ": " + difference);
}

std::int64_t number_of(const cJSON* json) {
  tap::Integer number;
  tap::json_to_integer(json, number);
  return static_cast<std::int64_t>(number.bits);
}

// The parameter: null where the case has none, the content of a text, any other value as written in the file.
const char* parameter(const Session& session, const cJSON* step, int number) {
  const cJSON* param = member(step, "param");
  if (param == nullptr) return nullptr;
  return cJSON_IsString(param) ? param->valuestring
                               : session.test->step_params[static_cast<std::size_t>(number - 1)].c_str();
}

void use_uri(Session& session, const char* use, const char* uri) {
  if (uri != nullptr) ++session.uris[std::string(use) + " " + uri];
}

bool has_word(const char* param, const std::string& word) {
  return param != nullptr && std::string_view(param).find("\"" + word + "\"") != std::string_view::npos;
}

// A request with a word that its type does not know never reaches the handler, and does not count as a use of the URI.
void use_request(Session& session, const char* use, const char* uri, const char* param) {
  const auto words = session.inventory->words_of_uri.find(uri == nullptr ? "" : uri);
  if (words != session.inventory->words_of_uri.end()) {
    const bool get = std::string_view(use) == "get";
    if (get && !words->second.query && has_word(param, "QUERY")) return;
    if (!get && !words->second.set.empty() && !has_word(param, words->second.set)) return;
  }
  use_uri(session, use, uri);
}

void do_get(Session& session, const cJSON* step, int number, Outcome& outcome) {
  const char* uri = text_or_null(member(step, "get"));
  const char* param = parameter(session, step, number);
  use_request(session, "get", uri, param);
  if (member(step, "buffer") == nullptr) outcome.buffer = marked_buffer(kBufferSize);
  outcome.ret = session.get(uri, param, outcome.buffer.empty() ? nullptr : outcome.buffer.data());
}

void do_set(Session& session, const cJSON* step, int number, Outcome& outcome) {
  const char* uri = text_or_null(member(step, "set"));
  const char* param = parameter(session, step, number);
  use_request(session, "set", uri, param);
  outcome.ret = session.set(uri, param);
}

void do_fetch(Session& session, const cJSON* step, Outcome& outcome) {
  const char* uri = text_or_null(member(step, "fetch"));
  const cJSON* stated = member(step, "length");
  const auto length =
      stated == nullptr ? static_cast<std::int32_t>(kBufferSize) : static_cast<std::int32_t>(number_of(stated));
  // A case may claim a longer buffer than any pending text needs.
  const std::size_t size =
      std::max(kBufferSize, length > 0 ? std::min(static_cast<std::size_t>(length), kLargestFetch) : 0);
  if (member(step, "buffer") == nullptr) outcome.buffer = marked_buffer(size);
  outcome.ret = session.fetch(uri, outcome.buffer.empty() ? nullptr : outcome.buffer.data(), length);
  if (bytes_written(outcome.buffer) > 0) use_uri(session, "notify", uri);
}

void do_raise(Session& session, const cJSON* step, Outcome& outcome) {
  const cJSON* args = member(step, "args");
  const std::string text = args == nullptr ? "[]" : tap::json_print(args);
  char* error = nullptr;
  if (session.raise(member(step, "raise")->valuestring, text.c_str(), &outcome.ret, &error) != 0) {
    outcome.wrong.push_back(std::string("raise: ") + (error == nullptr ? "failed" : error));
    std::free(error);
  }
}

void do_call(Session& session, const cJSON* step, Outcome& outcome) {
  const char* name = member(step, "call")->valuestring;
  const Export& exported = *find_export(name);
  std::vector<Argument> arguments;
  std::string error;
  const cJSON* in = member(step, "in");
  const cJSON* after = member(step, "after");
  void* fct = dlsym(session.plugin, name);
  if (fct == nullptr) error = "the library does not export it";
  if (fct == nullptr || !make_arguments(exported, in, session.plugin, arguments, error)) {
    outcome.wrong.push_back("refused: " + std::string(name) + ": " + error);
    return;
  }
  if (after != nullptr) {
    if (const std::string problem = compare_after(exported, arguments, after, true); !problem.empty()) {
      outcome.wrong.push_back("refused: \"after\": " + problem);
      return;
    }
  }
  const std::string_view function = name;
  const cJSON* first = in == nullptr ? nullptr : in->child;
  if (function == "tv_ctrl_get" || function == "tv_ctrl_set") {
    if (const auto uri = session.inventory->uri_of_id.find(number_of(first)); uri != session.inventory->uri_of_id.end())
      use_uri(session, function == "tv_ctrl_get" ? "get" : "set", uri->second.c_str());
  }
  outcome.ret = exported.run(fct, arguments.data());
  if (after != nullptr) expect(outcome, "after", compare_after(exported, arguments, after, false));
}

void check_buffer(const cJSON* step, Outcome& outcome) {
  const std::size_t written = bytes_written(outcome.buffer);
  const std::string_view came(outcome.buffer.data(), written);
  if (const cJSON* text = member(step, "text"); text != nullptr && came != text->valuestring) {
    expect(outcome, "text", "expected " + quoted(text->valuestring) + "\n      came     " + quoted(came));
  }
  if (const cJSON* json = member(step, "json"); json != nullptr) {
    std::string error;
    const tap::Json parsed = tap::json_parse(came, error);
    expect(outcome, "json", parsed ? compare_json(json, parsed.get(), "") : error);
    if (parsed && !outcome.wrong.empty()) outcome.wrong.back() += "\n      in " + quoted(came);
  }
  if (const cJSON* absent = member(step, "absent"); absent != nullptr && cJSON_IsTrue(absent) != (written == 0)) {
    expect(outcome, "absent",
           cJSON_IsTrue(absent) ? "expected an untouched buffer, came " + quoted(came)
                                : "expected bytes, came an untouched buffer");
  }
  if (const cJSON* bytes = member(step, "bytes");
      bytes != nullptr && number_of(bytes) != static_cast<std::int64_t>(written)) {
    expect(outcome, "bytes", "expected " + std::to_string(number_of(bytes)) + ", came " + std::to_string(written));
  }
}

// A platform call of this step, or an error of the tap's.
struct PlatformCall {
  double seq = 0;
  tap::Json line;
};

std::vector<PlatformCall> take_calls(Session& session, Outcome& outcome) {
  std::vector<std::string> lines;
  {
    const std::lock_guard guard(session.lines_lock);
    lines.swap(session.lines);
  }
  std::vector<PlatformCall> calls;
  for (const std::string& text : lines) {
    std::string error;
    PlatformCall call{.seq = 0, .line = tap::json_parse(text, error)};
    if (!call.line) {
      outcome.wrong.push_back("the tap's line " + text + " is " + error);
    } else if (const cJSON* problem = member(call.line.get(), "error"); problem != nullptr) {
      outcome.wrong.push_back("platform: " + std::string(problem->valuestring));
    } else if (const cJSON* name = member(call.line.get(), "call"); name != nullptr) {
      ++session.functions[name->valuestring];
      call.seq = member(call.line.get(), "seq")->valuedouble;
      calls.push_back(std::move(call));
    }
  }
  std::sort(calls.begin(), calls.end(), [](const PlatformCall& a, const PlatformCall& b) { return a.seq < b.seq; });
  return calls;
}

// An argument's value before the call, or, of an output, after it.
const cJSON* call_argument(const cJSON* line, const std::string& param) {
  const cJSON* in = member(member(line, "in"), param.c_str());
  return in != nullptr ? in : member(member(line, "out"), param.c_str());
}

bool is_word(const ContractFunction& function, std::size_t i) {
  return (function.kinds[i] == "in" || function.kinds[i] == "tag") && function.types[i].find('*') != std::string::npos;
}

bool same_word(const cJSON* expected, const cJSON* came) {
  tap::Integer left;
  tap::Integer right;
  return tap::json_to_integer(expected, left) && tap::json_to_integer(came, right) &&
         static_cast<std::uintptr_t>(left.bits) == static_cast<std::uintptr_t>(right.bits);
}

bool same_call(const Session& session, const cJSON* expected, const cJSON* line) {
  const char* name = expected->child->valuestring;
  if (std::strcmp(name, member(line, "call")->valuestring) != 0) return false;
  const ContractFunction& function = session.inventory->contract.find(std::string_view(name))->second;
  std::size_t i = 0;
  for (const cJSON* argument = expected->child->next; argument != nullptr; argument = argument->next, ++i) {
    const cJSON* came = call_argument(line, function.params[i]);
    if (!tap::json_matches(argument, came) && !(is_word(function, i) && same_word(argument, came))) return false;
  }
  return true;
}

std::string show_call(const Session& session, const cJSON* line) {
  const char* name = member(line, "call")->valuestring;
  const tap::Json array(cJSON_CreateArray());
  cJSON_AddItemToArray(array.get(), cJSON_CreateString(name));
  if (const auto function = session.inventory->contract.find(std::string_view(name));
      function != session.inventory->contract.end()) {
    for (const std::string& param : function->second.params) {
      const cJSON* value = call_argument(line, param);
      cJSON_AddItemToArray(array.get(), value == nullptr ? cJSON_CreateNull() : cJSON_Duplicate(value, 1));
    }
  }
  return tap::json_print(array.get());
}

std::string compare_calls(const Session& session, const cJSON* expected, const std::vector<PlatformCall>& calls) {
  bool good = static_cast<std::size_t>(cJSON_GetArraySize(expected)) == calls.size();
  std::size_t i = 0;
  const cJSON* call = nullptr;
  cJSON_ArrayForEach(call, expected) {
    good = good && same_call(session, call, calls[i].line.get());
    ++i;
  }
  if (good) return {};
  std::string text = "expected";
  cJSON_ArrayForEach(call, expected) text += "\n        " + tap::json_print(call);
  if (cJSON_GetArraySize(expected) == 0) text += " no calls";
  text += "\n      came";
  for (const PlatformCall& came : calls) text += "\n        " + show_call(session, came.line.get());
  return text + (calls.empty() ? " no calls" : "");
}

void check_streams(Session& session, const cJSON* step, Outcome& outcome, std::string& ret_shown) {
  std::fflush(stdout);
  std::fflush(stderr);
  const std::string out = capture_take(session.out);
  const std::string err = capture_take(session.err);
  const std::vector<std::string> out_lines = split_lines(out);
  const std::vector<std::string> err_lines = split_lines(err);
  if (const cJSON* log = member(step, "log"); log != nullptr)
    expect(outcome, "log", compare_lines(log, out_lines, true));
  if (const cJSON* log = member(step, "log_has"); log != nullptr) {
    expect(outcome, "log_has", compare_lines(log, out_lines, false));
  }
  if (const cJSON* log = member(step, "err"); log != nullptr)
    expect(outcome, "err", compare_lines(log, err_lines, true));
  if (const cJSON* log = member(step, "err_has"); log != nullptr) {
    expect(outcome, "err_has", compare_lines(log, err_lines, false));
  }
  for (const std::string& line : out_lines) ret_shown += "\n      out: " + quoted(line);
  for (const std::string& line : err_lines) ret_shown += "\n      err: " + quoted(line);
}

std::string shortened(std::string text) {
  if (text.size() > 400) text = text.substr(0, 400) + "... (" + std::to_string(text.size()) + " bytes)";
  return text;
}

}  // namespace

void finish_startup(Session& session) {
  Outcome outcome;
  const std::vector<PlatformCall> calls = take_calls(session, outcome);
  if (const cJSON* expected = member(session.test->json.get(), "calls"); expected != nullptr) {
    expect(outcome, "calls", compare_calls(session, expected, calls));
  }
  std::string shown;
  const tap::Json nothing(cJSON_CreateObject());
  check_streams(session, nothing.get(), outcome, shown);
  device_take();
  for (const PlatformCall& call : calls) shown += "\n      call: " + show_call(session, call.line.get());
  report_note(session, "start-up" + shown);
  for (const std::string& wrong : outcome.wrong) report_fail(session, "start-up\n    " + wrong);
}

void run_step(Session& session, const cJSON* step, int number) {
  Outcome outcome;
  const cJSON* action = step_action(step);
  const std::string_view kind = action->string;
  if (kind == "get") {
    do_get(session, step, number, outcome);
  } else if (kind == "fetch") {
    do_fetch(session, step, outcome);
  } else if (kind == "set") {
    do_set(session, step, number, outcome);
  } else if (kind == "raise") {
    do_raise(session, step, outcome);
  } else if (kind == "call") {
    do_call(session, step, outcome);
  } else {
    const char* uri = text_or_null(action);
    if (kind == "subscribe") outcome.ret = session.subscribe(uri);
    if (kind == "unsubscribe") outcome.ret = session.unsubscribe(uri);
  }

  if (const cJSON* ret = member(step, "ret"); ret != nullptr && number_of(ret) != outcome.ret) {
    expect(outcome, "ret", "expected " + std::to_string(number_of(ret)) + ", came " + std::to_string(outcome.ret));
  }
  if (kind == "get" || kind == "fetch") check_buffer(step, outcome);
  const std::vector<PlatformCall> calls = take_calls(session, outcome);
  if (const cJSON* expected = member(step, "calls"); expected != nullptr) {
    expect(outcome, "calls", compare_calls(session, expected, calls));
  }
  std::string shown;
  check_streams(session, step, outcome, shown);
  const std::string device = device_take();
  if (const cJSON* expected = member(step, "device"); expected != nullptr && device != expected->valuestring) {
    expect(outcome, "device", "expected " + quoted(expected->valuestring) + ", came " + quoted(device));
  }

  const std::vector<std::string>& rows = session.test->step_rows;
  const std::string& row = rows[static_cast<std::size_t>(number - 1)];
  std::string text = "step " + std::to_string(number) + " of " + std::to_string(rows.size()) +
                     (row.empty() ? "" : " (" + row + ")") + ": " + shortened(tap::json_print(step));
  std::string note = text + "\n      ret: " + std::to_string(outcome.ret);
  if (!outcome.buffer.empty())
    note += "\n      bytes: " + quoted({outcome.buffer.data(), bytes_written(outcome.buffer)});
  for (const PlatformCall& call : calls) note += "\n      call: " + show_call(session, call.line.get());
  report_note(session, note + shown);
  if (outcome.wrong.empty()) return;
  for (const std::string& wrong : outcome.wrong) text += "\n    " + wrong;
  report_fail(session, text);
}

}  // namespace runner
