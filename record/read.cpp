// Reads a record and sorts its lines into steps.
#include <algorithm>
#include <map>
#include <span>

#include "record/record.h"

namespace json = boost::json;

namespace {

constexpr struct {
  std::string_view key;
  StepKind kind;
} kStepKeys[] = {{"start", StepKind::kStart},
                 {"get", StepKind::kGet},
                 {"set", StepKind::kSet},
                 {"subscribe", StepKind::kSubscribe},
                 {"unsubscribe", StepKind::kUnsubscribe},
                 {"fetch", StepKind::kFetch},
                 {"event", StepKind::kRaise}};

// A line that counts, with what is needed to find the step that it belongs to.
struct Item {
  const json::object* line = nullptr;
  std::size_t index = 0;  // place in the file, by which a line that ended earlier stands before
  std::uint64_t seq = 0;
  std::int64_t thread = 0;
  bool is_call = false;
  StepKind kind = StepKind::kStart;
  std::string name = {};
};

// A request, a start-up function or a callback that has begun; its step is an index into the steps.
struct Span {
  std::size_t index;
  std::size_t step;
};

std::int64_t number_of(const json::object& line, std::string_view key) {
  const json::value* const value = line.if_contains(key);
  if (value == nullptr) return 0;
  if (value->is_int64()) return value->get_int64();
  return value->is_uint64() ? static_cast<std::int64_t>(value->get_uint64()) : 0;
}

bool has_text(const json::object& line, std::string_view key) {
  const json::value* const value = line.if_contains(key);
  return value != nullptr && value->is_string();
}

// Whether the line is one of a record; ret_item.line stays null for lines without a step, such as the tap's errors.
bool read_item(const json::object& line, Item& ret_item, std::string& ret_error) {
  if (line.contains("record") || line.contains("error")) return true;
  for (const auto& [key, kind] : kStepKeys) {
    if (!line.contains(key)) continue;
    if (ret_item.line != nullptr) {
      ret_error = "it has both \"" + ret_item.name + "\" and \"" + std::string(key) + "\"";
      return false;
    }
    if (!has_text(line, key)) {
      ret_error = "\"" + std::string(key) + "\" is not a text";
      return false;
    }
    ret_item.name = line.at(key).as_string();
    ret_item.kind = kind;
    if (kind == StepKind::kRaise && line.contains("dropped")) return true;
    ret_item.line = &line;
  }
  if (ret_item.line == nullptr && has_text(line, "call")) {
    ret_item.is_call = true;
    ret_item.line = &line;
  }
  const json::value* const in = line.if_contains("in");
  if (ret_item.line == nullptr)
    ret_error = "it is none of a record";
  else if ((ret_item.is_call || ret_item.kind == StepKind::kRaise) && (in == nullptr || !in->is_object()))
    ret_error = "it has no arguments \"in\"";
  else if (line.contains("param") && !has_text(line, "param"))
    ret_error = "\"param\" is not a text";
  ret_item.seq = static_cast<std::uint64_t>(number_of(line, "seq"));
  ret_item.thread = number_of(line, "thread");
  return ret_error.empty();
}

bool read_lines(std::string_view text, Record& record, std::vector<Item>& ret_items, std::string& ret_error) {
  std::size_t number = 0;
  std::vector<std::size_t> numbers;
  while (!text.empty()) {
    const std::size_t end = std::min(text.find('\n'), text.size());
    const std::string_view line = text.substr(0, end);
    text.remove_prefix(std::min(end + 1, text.size()));
    ++number;
    if (line.find_first_not_of(" \t\r") == std::string_view::npos) continue;
    json::error_code failure;
    json::value value = json::parse(line, failure);
    if (failure || !value.is_object()) {
      ret_error = "line " + std::to_string(number) + " is not a JSON object";
      return false;
    }
    record.lines.push_back(std::move(value.get_object()));
    numbers.push_back(number);
  }
  if (record.lines.empty() || !record.lines.front().contains("record")) {
    ret_error = "it is not a record: its first line has no member \"record\"";
    return false;
  }
  for (std::size_t i = 0; i < record.lines.size(); ++i) {
    Item item{.index = i};
    if (!read_item(record.lines[i], item, ret_error)) {
      ret_error = "line " + std::to_string(numbers[i]) + ": " + ret_error;
      return false;
    }
    if (item.line != nullptr) ret_items.push_back(std::move(item));
  }
  std::ranges::stable_sort(ret_items, {}, &Item::seq);
  return true;
}

bool holds_events(StepKind kind) {
  return kind == StepKind::kStart || kind == StepKind::kGet || kind == StepKind::kSet;
}

struct Sorting {
  std::vector<RecordStep>& steps;
  std::map<std::int64_t, std::vector<Span>> open;  // by thread, the innermost last
  std::optional<Span> request;                     // the latest that may have events
  std::uint64_t last_fetch = 0;                    // the "seq" of the last fetch or subscription during it; 0: none
};

// The innermost span of a thread that had not ended when the line was written.
std::optional<Span> span_around(Sorting& sorting, const Item& item) {
  std::vector<Span>& open = sorting.open[item.thread];
  while (!open.empty() && open.back().index < item.index) open.pop_back();
  return open.empty() ? std::nullopt : std::optional(open.back());
}

// Adds a step before the request that runs, or as the last one. Returns its place.
std::size_t add_step(Sorting& sorting, const Item& item, bool before_request) {
  std::size_t place = sorting.steps.size();
  if (before_request) {
    place = sorting.request->step;
    for (auto& [thread, spans] : sorting.open)
      for (Span& span : spans) span.step += span.step >= place ? 1 : 0;
    ++sorting.request->step;
  }
  sorting.steps.insert(sorting.steps.begin() + static_cast<std::ptrdiff_t>(place),
                       {.kind = item.kind, .name = item.name, .line = item.line, .calls = {}});
  sorting.open[item.thread].push_back({item.index, place});
  return place;
}

// A replay does one thing at a time. An event during a request is raised during its replay, after the call that came
// before it, since the request may wait for it. If no call came before it, it is raised before the request, as is an
// event that a fetch or a subscription followed during the request: else the fetch would find the later events, too.
void add_event(Sorting& sorting, const Item& item) {
  std::optional<Span> around = span_around(sorting, item);
  const bool nested = around.has_value();
  const bool during_request = !nested && sorting.request && sorting.request->index > item.index;
  if (during_request && item.seq > sorting.last_fetch) around = sorting.request;
  if (around && !sorting.steps[around->step].calls.empty()) {
    sorting.steps[around->step].calls.back().events.push_back(item.line);
    sorting.open[item.thread].push_back({item.index, around->step});
    return;
  }
  add_step(sorting, item, during_request);
}

// The "seq" of the last fetch or subscription during the request at this place among the items; 0: there was none.
std::uint64_t last_fetch_during(std::span<const Item> items, std::size_t place) {
  std::uint64_t last = 0;
  const std::size_t index = items[place].index;
  // The plugin serves one request at a time, so the next one begins after the end of this one.
  for (std::size_t i = place + 1; i < items.size(); ++i) {
    if (!items[i].is_call && holds_events(items[i].kind)) break;
    if (!items[i].is_call && items[i].kind != StepKind::kRaise && items[i].index < index) last = items[i].seq;
  }
  return last;
}

}  // namespace

void record_count(std::string_view line, RecordCounts& counts) {
  // The members that decide stand outside of any text: a quotation mark within a text is escaped.
  const auto has = [line](std::string_view key) { return line.find(key) != std::string_view::npos; };
  if (has(",\"call\":"))
    ++counts.calls;
  else if (has(",\"event\":"))
    ++counts.events;
  else if (has(",\"get\":") || has(",\"set\":"))
    ++counts.requests;
  else if (has(",\"fetch\":"))
    ++counts.notifications;
  else if (has(",\"subscribe\":"))
    ++counts.subscriptions;
}

bool record_read(std::string_view text, Record& ret_record, std::string& ret_error) {
  Record record;
  std::vector<Item> items;
  if (!read_lines(text, record, items, ret_error)) return false;
  const json::value* const device = record.lines.front().if_contains("device");
  record.device = device != nullptr && device->is_bool() && device->get_bool();
  Sorting sorting{.steps = record.steps, .open = {}, .request = {}, .last_fetch = 0};
  for (const Item& item : items) {
    if (item.is_call) {
      const std::optional<Span> around = span_around(sorting, item);
      if (!around) {
        ++record.left_over;
        continue;
      }
      RecordStep& step = record.steps[around->step];
      step.calls.push_back({.line = item.line, .own = number_of(*step.line, "thread") == item.thread, .events = {}});
      record.counts.calls += step.kind == StepKind::kStart ? 0 : 1;
    } else if (item.kind == StepKind::kRaise) {
      add_event(sorting, item);
      ++record.counts.events;
    } else {
      const bool holds = holds_events(item.kind);
      const bool during_request = !holds && sorting.request && sorting.request->index > item.index;
      const std::size_t place = add_step(sorting, item, during_request);
      if (holds) {
        sorting.request = {item.index, place};
        sorting.last_fetch = last_fetch_during(items, static_cast<std::size_t>(&item - items.data()));
      }
      record.counts.requests += item.kind == StepKind::kGet || item.kind == StepKind::kSet ? 1 : 0;
      record.counts.notifications += item.kind == StepKind::kFetch ? 1 : 0;
      record.counts.subscriptions += item.kind == StepKind::kSubscribe ? 1 : 0;
    }
  }
  ret_record = std::move(record);
  return true;
}

std::optional<std::string> record_param(const RecordStep& step) {
  const json::value* const param = step.line->if_contains("param");
  return param == nullptr ? std::nullopt : std::optional(std::string(param->as_string()));
}

std::string record_step_name(const RecordStep& step) {
  for (const auto& [key, kind] : kStepKeys)
    if (kind == step.kind) return std::string(key) + " " + step.name;
  return step.name;
}

std::string record_answers(const RecordStep& step) {
  std::string text;
  std::uint64_t seq = 0;  // in the order of the replay, whatever the recorded threads were
  const auto add = [&](json::object line) {
    line["seq"] = ++seq;
    text += json::serialize(line) + "\n";
  };
  for (const RecordCall& call : step.calls) {
    add(*call.line);
    for (const json::object* event : call.events) add(*event);
  }
  return text;
}

std::string record_arguments(const json::object& event) { return json::serialize(event.at("in")); }
