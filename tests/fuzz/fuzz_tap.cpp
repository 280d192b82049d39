// Fuzzes the tap: scripts, recordings, raised callbacks and faults as texts, over a contract with every kind of
// parameter, whose functions are then called.
#include <stdlib.h>
#include <string.h>
#include <time.h>

#include <cstdio>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "dtv_tap.h"
#include "json_values.h"
#include "seeds.h"
#include "tap/engine.h"
#include "tests/unit/tap/contract.h"

static void require(bool holds, const char* what, const char* text = "") {
  if (holds) return;
  fprintf(stderr, "does not hold: %s\n  text: %s\n", what, text);
  abort();
}

// Delays pass at once. Linked with --wrap=nanosleep.
extern "C" int __wrap_nanosleep(const timespec* duration, timespec* remaining);
int __wrap_nanosleep(const timespec*, timespec*) { return 0; }

// --- The plugin's callbacks, one of each type ---

static std::map<std::string, void*>& sinks() {
  static auto& known = *new std::map<std::string, void*>;
  return known;
}

#define TVAPI_FN(...)
#define TVAPI_CALLBACK(ret, type, ...)                             \
  static ret sink_##type(TVAPI_EACH(TVAPI_DECLARE, __VA_ARGS__)) { \
    __VA_OPT__((void)(TVAPI_EACH(TVAPI_NAME, __VA_ARGS__)));       \
    return ret();                                                  \
  }                                                                \
  [[maybe_unused]] static const bool known_##type = sinks().emplace(#type, reinterpret_cast<void*>(sink_##type)).second;

#pragma clang diagnostic push
#pragma clang diagnostic ignored "-Wunused-value"
#include "tests/unit/tap/contract.h"
#pragma clang diagnostic pop

// --- Texts ---

static void add_type_value(Bytes& bytes, const tap::Type& type, std::string& text) {
  if (take_chance(bytes, 12)) return add_any_value(bytes, text);
  switch (type.shape) {
    case tap::Shape::kNone:
      text += "null";
      return;
    case tap::Shape::kInteger:
    case tap::Shape::kWord:
    case tap::Shape::kReal:
      if (take_chance(bytes, 4)) return add_number_value(bytes, text);
      text += std::to_string(take_number<std::int8_t>(bytes));
      return;
    case tap::Shape::kString:
    case tap::Shape::kText:
      if (take_chance(bytes, 4)) {
        text += take_chance(bytes, 2) ? R"({"bytes":"414243FF4142434445"})" : R"({"hex":"4)";
        return;
      }
      return add_text_value(bytes, type.count, text);
    case tap::Shape::kArray: {
      text += '[';
      for (std::size_t count = take_below(bytes, type.count + 2), i = 0; i < count; ++i) {
        if (i > 0) text += ',';
        add_type_value(bytes, *type.element, text);
      }
      text += ']';
      return;
    }
    case tap::Shape::kRecord:
      text += '{';
      for (const tap::Field& field : type.fields) {
        if (take_chance(bytes, 4)) continue;
        if (text.back() != '{') text += ',';
        add_string(text, field.name);
        text += ':';
        add_type_value(bytes, *field.type, text);
      }
      text += '}';
  }
}

static void add_param_value(Bytes& bytes, const tap::Param& param, std::string& text) {
  static constexpr tap::Type kCharacters = {.shape = tap::Shape::kText, .size = 8, .count = 8};
  if (take_chance(bytes, 6)) {
    text += "null";
  } else if (param.form == tap::Form::string || param.form == tap::Form::text) {
    add_type_value(bytes, kCharacters, text);
  } else if (param.form == tap::Form::array) {
    const tap::Type array = {.shape = tap::Shape::kArray, .size = 0, .count = 6, .element = param.type};
    add_type_value(bytes, array, text);
  } else if (param.form == tap::Form::address && take_chance(bytes, 2)) {
    add_type_value(bytes, param.pointed->shape == tap::Shape::kRecord ? *param.pointed : kCharacters, text);
  } else {
    add_type_value(bytes, *param.type, text);
  }
}

// All arguments in order, or some by name or position.
static void add_arguments(Bytes& bytes, const tap::Signature& signature, bool outputs, std::string& text) {
  const bool named = outputs || take_chance(bytes, 2);
  text += named ? '{' : '[';
  std::size_t position = 0;
  for (const tap::Param& param : signature.params) {
    const std::size_t at = position++;
    const bool skipped = outputs ? !tap::is_output(param) && !take_chance(bytes, 32) : take_chance(bytes, 8);
    if (named && skipped) continue;
    if (text.back() != '{' && text.back() != '[') text += ',';
    if (named) {
      add_string(text, take_chance(bytes, 4) ? std::to_string(at) : param.name);
      text += ':';
    }
    if (!outputs && tap::is_output(param) && !take_chance(bytes, 16))
      text += "null";
    else
      add_param_value(bytes, param, text);
  }
  text += named ? '}' : ']';
}

static const tap::Function& take_function(Bytes& bytes) {
  return *tap::functions()[take_below(bytes, tap::functions().size())];
}

// A function that registers, and its callback; any function where it registers none.
static const tap::Signature& callback_of(const tap::Function& function) {
  for (const tap::Param& param : function.signature.params)
    if (param.callback) return *param.callback;
  return function.signature;
}

static void add_raise(Bytes& bytes, std::string& text) {
  const tap::Function& function = take_function(bytes);
  text.append(R"({"raise":")").append(function.signature.name).append(R"(","args":)");
  add_arguments(bytes, callback_of(function), false, text);
  text += '}';
}

static void add_answer(Bytes& bytes, std::string& text) {
  const tap::Signature& signature = take_function(bytes).signature;
  text.append(R"({"call":")").append(signature.name).append("\"");
  for (const std::string_view key : {"in", "out", "ret", "times", "delay_ms", "raise"}) {
    if (take_chance(bytes, 2)) continue;
    text.append(",\"").append(key).append("\":");
    if (key == "in" || key == "out") {
      add_arguments(bytes, signature, key == "out", text);
    } else if (key == "ret") {
      add_type_value(bytes, *signature.result, text);
    } else if (key == "raise") {
      text += '[';
      if (take_chance(bytes, 2)) add_raise(bytes, text);
      text += ']';
    } else {
      text += std::to_string(take_below(bytes, 4));
    }
  }
  text += '}';
}

static std::string take_script(Bytes& bytes) {
  std::string text = "[";
  for (std::size_t answers = take_below(bytes, 6), i = 0; i < answers; ++i) {
    if (i > 0) text += ',';
    add_answer(bytes, text);
  }
  text += ']';
  damage(bytes, text);
  return text;
}

static std::string take_recording(Bytes& bytes) {
  std::string text;
  for (std::size_t lines = take_below(bytes, 8), i = 0; i < lines; ++i) {
    const tap::Function& function = take_function(bytes);
    const bool event = take_chance(bytes, 3);
    text += "{\"seq\":" + std::to_string(take_below(bytes, 8)) + (event ? ",\"event\":\"" : ",\"call\":\"");
    text.append(function.signature.name).append("\",\"in\":");
    add_arguments(bytes, event ? callback_of(function) : function.signature, false, text);
    if (!event && take_chance(bytes, 2)) {
      text += ",\"ret\":";
      add_type_value(bytes, *function.signature.result, text);
    }
    if (!event && take_chance(bytes, 2)) {
      text += ",\"out\":";
      add_arguments(bytes, function.signature, true, text);
    }
    text += "}\n";
  }
  damage(bytes, text);
  return text;
}

// --- Calls ---

static void check_line(void*, const char* line) {
  std::string error;
  require(tap::json_parse(line, error) != nullptr, "a line is JSON", line);
}

// Calls a function of the contract as the plugin would, each argument in memory of its own size.
static void call(Bytes& bytes, const tap::Function& function) {
  const tap::Signature& signature = function.signature;
  static constexpr std::size_t kRooms[] = {0, 1, 8, 40};
  const std::size_t room = kRooms[take_below(bytes, std::size(kRooms))];
  std::vector<std::unique_ptr<char[]>> memory;
  const auto allocate = [&](std::size_t size) {
    memory.emplace_back(new char[size]());
    return memory.back().get();
  };
  std::vector<std::uint64_t> values(signature.params.size());
  std::vector<void*> args;
  for (std::size_t i = 0; i < signature.params.size(); ++i) {
    const tap::Param& param = signature.params[i];
    bool is_count = false;
    for (const tap::Param& other : signature.params) is_count |= strcmp(other.count, param.name) == 0;
    const std::size_t count = *param.count >= '0' && *param.count <= '9' ? strtoul(param.count, nullptr, 10) : room;
    void* address = nullptr;
    args.push_back(&values[i]);
    if (param.form == tap::Form::callback) {
      address = take_chance(bytes, 8) ? nullptr : sinks().at(param.callback->name);
    } else if (!tap::is_pointer(param.form)) {
      values[i] = is_count ? room : take_integer<std::uint64_t>(bytes);
      continue;
    } else if (param.form == tap::Form::string) {
      address = take_chance(bytes, 8) ? nullptr : allocate(4);
      if (address) memcpy(address, "t\xFF\"", 3);
    } else {
      address = allocate(count * param.type->size);
      if (param.form == tap::Form::one && param.direction == tap::Direction::inout)
        memcpy(address, &room, param.type->size);
    }
    memcpy(&values[i], &address, sizeof address);
  }
  std::uint64_t result = 0;
  signature.invoke(function.own(), &result, args.data());
}

static void operate(Bytes& bytes) {
  char* error = nullptr;
  std::int32_t ret = 0;
  switch (take_below(bytes, 10)) {
    case 0: {
      const std::string script = take_script(bytes);
      ret = dtv_tap_script(script.c_str(), &error);
      if (ret == 0)
        for (const tap::Function* function : tap::functions())
          if (script.find(function->signature.name) != std::string::npos)
            seed_reached(std::string("script ") + function->signature.name);
      break;
    }
    case 1: {
      const std::string recording = take_recording(bytes);
      ret = dtv_tap_replay(recording.c_str(), &error);
      if (ret == 0)
        for (const tap::Function* function : tap::functions())
          if (recording.find(function->signature.name) != std::string::npos)
            seed_reached(std::string("replay ") + function->signature.name);
      break;
    }
    case 2: {
      const tap::Function& function = take_function(bytes);
      std::string args;
      add_arguments(bytes, callback_of(function), false, args);
      damage(bytes, args);
      std::int64_t result = 0;
      ret = dtv_tap_raise(function.signature.name, take_chance(bytes, 8) ? nullptr : args.c_str(), &result, &error);
      if (ret == 0) seed_reached(std::string("raise ") + function.signature.name);
      break;
    }
    case 3: {
      const dtv_tap_fault_t fault = {.delay_ms = take_integer<std::int32_t>(bytes),
                                     .fails = take_integer<std::int32_t>(bytes),
                                     .result = take_integer<std::int32_t>(bytes),
                                     .drop_callback = take_integer<std::int32_t>(bytes),
                                     .repeat_callback = take_integer<std::int32_t>(bytes) % 4};
      const std::string name = take_chance(bytes, 8) ? take_text(bytes) : take_function(bytes).signature.name;
      dtv_tap_fault(name.c_str(), take_chance(bytes, 2) ? nullptr : &fault);
      return;
    }
    case 4:
      dtv_tap_watch(take_chance(bytes, 2) ? nullptr : check_line, nullptr);
      return;
    case 5:
      if (take_chance(bytes, 2)) dtv_tap_script(nullptr, nullptr);
      if (take_chance(bytes, 2)) dtv_tap_replay(nullptr, nullptr);
      free(dtv_tap_replay_report());
      return;
    default:
      return call(bytes, take_function(bytes));
  }
  require((ret == 0) == !error, "a failure has a message, a success has none", error ? error : "");
  free(error);
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);
int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Bytes bytes = {.next = data, .left = size};
  for (int i = 0; i < 16 && bytes.left > 0; ++i) operate(bytes);
  dtv_tap_watch(nullptr, nullptr);
  dtv_tap_fault(nullptr, nullptr);
  dtv_tap_script(nullptr, nullptr);
  dtv_tap_replay(nullptr, nullptr);
  char* const list = dtv_tap_list();
  std::string error;
  require(tap::json_parse(list, error) != nullptr, "the list is JSON", list);
  free(list);
  return 0;
}

// The seeds script and replay each function, and raise each callback.
std::set<std::string> seed_goals() {
  std::set<std::string> goals;
  for (const tap::Function* function : tap::functions()) {
    goals.insert(std::string("script ") + function->signature.name);
    goals.insert(std::string("replay ") + function->signature.name);
    if (&callback_of(*function) != &function->signature) goals.insert(std::string("raise ") + function->signature.name);
  }
  return goals;
}
