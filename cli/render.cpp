// Readable output.
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <boost/json.hpp>
#include <cerrno>
#include <charconv>
#include <cinttypes>
#include <cstdlib>

#include "dtvctl.h"

namespace json = boost::json;

std::FILE* output = stdout;

namespace {

int write_error = 0;  // the error number of the first failed write

// With --local, standard error is a stream without a descriptor (host/log_capture.h).
bool paints(std::FILE* to) {
  const char* const no_color = std::getenv("NO_COLOR");
  return (no_color == nullptr || *no_color == '\0') && isatty(to == stderr ? STDERR_FILENO : fileno(to)) != 0;
}

// Columns of the terminal; 100 when the output is not one.
std::size_t line_width() {
  winsize size{};
  return ioctl(fileno(output), TIOCGWINSZ, &size) == 0 && size.ws_col > 0 ? size.ws_col : 100;
}

// Columns of a text: one per code point, which is right except for wide scripts.
std::size_t width_of(std::string_view text) {
  return static_cast<std::size_t>(std::ranges::count_if(text, [](char c) { return (c & 0xC0) != 0x80; }));
}

std::string padded(std::string text, std::size_t width) {
  const std::size_t has = width_of(text);
  if (has < width) text.append(width - has, ' ');
  return text;
}

struct Cell {
  std::string key;
  std::string value;
};

// "1" and "474.166"; JSON's text would be "1E0" and "4.74166E2".
std::string number_text(double number) {
  std::array<char, 32> text{};  // the shortest text of a double has at most 24 characters
  return {text.data(), std::to_chars(text.begin(), text.end(), number).ptr};
}

std::string shown_value(const json::value& value) {
  const bool nothing =
      (value.is_object() && value.get_object().empty()) || (value.is_array() && value.get_array().empty());
  if (nothing) return "none";
  if (value.is_double()) return number_text(value.get_double());
  return printable(value.is_string() ? std::string(value.get_string()) : json::serialize(value));
}

// The members of an object as cells; those of an inner object under "OUTER.INNER".
void flatten(const json::object& object, const std::string& prefix, std::vector<Cell>& cells) {
  for (const auto& [key, value] : object) {
    const std::string name = prefix + printable(key);
    if (const json::object* inner = value.if_object(); inner != nullptr && !inner->empty()) {
      flatten(*inner, name + ".", cells);
    } else {
      cells.push_back({name, shown_value(value)});
    }
  }
}

// Whether a table is readable: all columns but the last fit, and some room is left for the last one.
bool fits(const Row& titles, std::span<const Row> rows) {
  constexpr std::size_t kRoomForLast = 20;
  std::size_t width = kRoomForLast;
  for (std::size_t column = 0; column + 1 < titles.size(); ++column) {
    std::size_t widest = width_of(titles[column]);
    for (const Row& row : rows) widest = std::max(widest, width_of(row[column]));
    width += widest + 2;
  }
  return width <= line_width();
}

// The members of a command in the list of commands, which is printed as usage and help.
const Row kCommandTitles = {"name", "arguments", "help"};

// Prints objects as a table if it fits, else one below the other.
void print_objects(std::span<const json::value> objects) {
  std::vector<std::vector<Cell>> items;
  Row titles;
  for (const json::value& object : objects) {
    if (!object.is_object()) continue;
    flatten(object.get_object(), "", items.emplace_back());
    for (const Cell& cell : items.back()) {
      if (std::ranges::find(titles, cell.key) == titles.end()) titles.push_back(cell.key);
    }
  }
  std::vector<Row> rows;
  for (const std::vector<Cell>& item : items) {
    Row& row = rows.emplace_back();
    for (const std::string& title : titles) {
      const auto cell = std::ranges::find(item, title, &Cell::key);
      row.push_back(cell == item.end() ? "" : cell->value);
    }
  }
  if (titles.empty()) return;
  if (titles == kCommandTitles) {
    for (const Row& row : rows) {
      print_line(paint(Paint::kTitle, row[0], output) + (row[1].empty() ? "" : " ") + row[1]);
      print_line("    " + row[2]);
    }
    return;
  }
  if (fits(titles, rows)) {
    print_table(titles, rows);
    return;
  }
  for (const std::vector<Cell>& item : items) {
    if (&item != &items.front()) print_line("");
    std::vector<Row> lines;
    for (const Cell& cell : item) lines.push_back({cell.key, cell.value});
    print_table({}, lines);
  }
}

}  // namespace

std::string printable(std::string_view text) {
  std::string shown;
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    if (byte >= 0x20 && byte != 0x7F) {
      shown += c;
    } else {
      char code[8];
      std::snprintf(code, sizeof code, "\\x%02x", byte);
      shown += code;
    }
  }
  return shown;
}

std::string paint(Paint paint, std::string_view text, std::FILE* to) {
  constexpr std::string_view kCodes[] = {"", "\033[1m", "\033[2m", "\033[31m"};
  if (paint == Paint::kPlain || !paints(to)) return std::string(text);
  return std::string(kCodes[static_cast<std::size_t>(paint)]) + std::string(text) + "\033[0m";
}

bool print_line(std::string_view line) {
  const bool written = std::fwrite(line.data(), 1, line.size(), output) == line.size() &&
                       std::fputc('\n', output) != EOF && std::fflush(output) == 0;
  if (!written && write_error == 0) write_error = errno;
  return write_error == 0;
}

int output_error() { return write_error; }

void print_table(const Row& titles, std::span<const Row> rows) {
  std::vector<std::size_t> widths;
  const auto measure = [&](const Row& row) {
    if (widths.size() < row.size()) widths.resize(row.size());
    for (std::size_t i = 0; i < row.size(); ++i) widths[i] = std::max(widths[i], width_of(row[i]));
  };
  const auto print = [&](const Row& row, Paint first, Paint others) {
    std::string line;
    for (std::size_t i = 0; i < row.size(); ++i) {
      const bool last = i + 1 == row.size();
      line += paint(i == 0 ? first : others, last ? row[i] : padded(row[i], widths[i]), output);
      if (!last) line += "  ";
    }
    print_line(line);
  };
  measure(titles);
  for (const Row& row : rows) measure(row);
  if (!titles.empty()) print(titles, Paint::kFaint, Paint::kFaint);
  for (const Row& row : rows) print(row, titles.empty() ? Paint::kFaint : Paint::kPlain, Paint::kPlain);
}

void print_response(const json::object& response) {
  const json::value* const items = response.if_contains("ITEMS");
  if (items == nullptr || !items->is_array()) return print_object(response);
  const json::array& array = items->get_array();
  const bool none =
      std::ranges::all_of(array, [](const json::value& item) { return item.is_object() && item.get_object().empty(); });
  if (none) {
    print_line("(no item)");
  } else {
    print_objects({array.data(), array.size()});
  }
}

void print_object(const json::object& object) {
  if (object.empty()) {
    print_line("ok");
    return;
  }
  const auto is_table = [](const json::value& value) {
    const json::array* const array = value.if_array();
    return array != nullptr && std::ranges::any_of(*array, [](const json::value& row) {
             return row.is_object() && !row.get_object().empty();
           });
  };
  std::vector<Row> lines;
  for (const auto& [key, value] : object) {
    if (is_table(value)) continue;
    std::vector<Cell> cells;
    flatten({{key, value}}, "", cells);
    for (const Cell& cell : cells) lines.push_back({cell.key, cell.value});
  }
  print_table({}, lines);
  // Tables come after the other members; the only member needs no heading.
  bool first = lines.empty();
  for (const auto& [key, value] : object) {
    if (!is_table(value)) continue;
    if (!first) print_line("");
    first = false;
    if (object.size() > 1) print_line(paint(Paint::kTitle, printable(key), output));
    const json::array& array = value.get_array();
    print_objects({array.data(), array.size()});
  }
}

std::string trace_line(const json::object& line) {
  const auto number = [&](const char* key) {
    const json::value* value = line.if_contains(key);
    return value != nullptr && value->is_int64() ? value->get_int64() : 0;
  };
  const auto text = [&](const char* key) {
    const json::value* value = line.if_contains(key);
    return value != nullptr && value->is_string() ? printable(value->get_string()) : std::string();
  };
  const auto members = [&](const char* key) {
    std::string list;
    const json::value* value = line.if_contains(key);
    if (value == nullptr || !value->is_object()) return list;
    for (const auto& [name, member] : value->get_object()) {
      list += (list.empty() ? "" : ", ") + printable(name) + "=" + printable(json::serialize(member));
    }
    return list;
  };
  char head[48];
  std::snprintf(head, sizeof head, "%12.6f  [%" PRId64 "]  ", static_cast<double>(number("t")) / 1e6, number("thread"));
  std::string shown = paint(Paint::kFaint, head, output);
  const bool event = line.contains("event");
  shown += event ? "<- " : "-> ";
  shown += paint(Paint::kTitle, text(event ? "event" : "call"), output) + "(" + members("in") + ")";
  if (const json::value* result = line.if_contains("ret"); result != nullptr) shown += " = " + json::serialize(*result);
  if (const std::string out = members("out"); !out.empty()) shown += "  out: " + out;
  if (line.contains("duration")) {
    char took[32];
    std::snprintf(took, sizeof took, "  %.1f ms", static_cast<double>(number("duration")) / 1e3);
    shown += took;
  }
  return shown;
}
