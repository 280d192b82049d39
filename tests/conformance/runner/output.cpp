#include "runner/output.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cstring>

namespace runner {

std::string capture_take(Capture& capture) {
  struct stat info {};
  if (fstat(capture.file, &info) != 0 || static_cast<std::size_t>(info.st_size) <= capture.taken) return {};
  std::string text(static_cast<std::size_t>(info.st_size) - capture.taken, '\0');
  const ssize_t got = pread(capture.file, text.data(), text.size(), static_cast<off_t>(capture.taken));
  text.resize(got < 0 ? 0 : static_cast<std::size_t>(got));
  capture.taken += text.size();
  return text;
}

std::vector<std::string> split_lines(std::string_view text) {
  std::vector<std::string> lines;
  while (!text.empty()) {
    const std::size_t end = std::min(text.find('\n'), text.size());
    lines.emplace_back(text.substr(0, end));
    text.remove_prefix(std::min(end + 1, text.size()));
  }
  return lines;
}

bool line_matches(std::string_view expected, std::string_view line) {
  while (!expected.empty()) {
    if (expected.front() != '#') {
      if (line.empty() || line.front() != expected.front()) return false;
      expected.remove_prefix(1);
      line.remove_prefix(1);
      continue;
    }
    // A '#' may also be just that character, where a text of the request is printed.
    if (!line.empty() && line.front() == '#' && line_matches(expected.substr(1), line.substr(1))) return true;
    std::size_t digits = 0;
    while (digits < line.size() && line[digits] >= '0' && line[digits] <= '9') ++digits;
    for (; digits > 0; --digits) {
      if (line_matches(expected.substr(1), line.substr(digits))) return true;
    }
    return false;
  }
  return line.empty();
}

std::string compare_lines(const cJSON* expected, const std::vector<std::string>& lines, bool exactly) {
  std::size_t at = 0;
  bool good = true;
  const cJSON* line = nullptr;
  cJSON_ArrayForEach(line, expected) {
    while (!exactly && at < lines.size() && !line_matches(line->valuestring, lines[at])) ++at;
    if (at >= lines.size() || !line_matches(line->valuestring, lines[at])) {
      good = false;
      break;
    }
    ++at;
  }
  if (exactly && at < lines.size()) good = false;
  if (good) return {};
  std::string text = exactly ? "expected exactly" : "expected among others, in this order";
  cJSON_ArrayForEach(line, expected) text += "\n        " + quoted(line->valuestring);
  if (cJSON_GetArraySize(expected) == 0) text += " no lines";
  text += "\n      came";
  for (const std::string& came : lines) text += "\n        " + quoted(came);
  return text + (lines.empty() ? " no lines" : "");
}

std::string compare_json(const cJSON* expected, const cJSON* came, const std::string& path) {
  if (cJSON_IsString(expected) && std::strcmp(expected->valuestring, "*") == 0) return {};
  const std::string place = path.empty() ? "" : " at " + path;
  const auto difference = [&] {
    return "expected " + quoted(tap::json_print(expected)) + place + ", came " + quoted(tap::json_print(came));
  };
  if ((expected->type & 0xFF) != (came->type & 0xFF)) return difference();
  if (cJSON_IsNumber(expected)) {
    return !(expected->valuedouble < came->valuedouble || expected->valuedouble > came->valuedouble) ? ""
                                                                                                     : difference();
  }
  if (cJSON_IsString(expected)) return std::strcmp(expected->valuestring, came->valuestring) == 0 ? "" : difference();
  const cJSON* left = expected->child;
  const cJSON* right = came->child;
  for (std::size_t i = 0; left != nullptr && right != nullptr; ++i, left = left->next, right = right->next) {
    const bool is_member = cJSON_IsObject(expected);
    if (is_member && std::strcmp(left->string, right->string) != 0) {
      return "expected the member \"" + std::string(left->string) + "\"" + place + ", came \"" + right->string + "\"";
    }
    const std::string inner = path + "/" + (is_member ? left->string : std::to_string(i));
    if (std::string found = compare_json(left, right, inner); !found.empty()) return found;
  }
  if (left != nullptr || right != nullptr) {
    return "expected " + std::to_string(cJSON_GetArraySize(expected)) + " members or elements" + place + ", came " +
           std::to_string(cJSON_GetArraySize(came));
  }
  return {};
}

std::string quoted(std::string_view text) {
  constexpr std::size_t kShown = 2000;
  std::string result = "\"";
  for (const char c : text.substr(0, kShown)) {
    const auto byte = static_cast<unsigned char>(c);
    if (c == '\n') {
      result += "\\n";
    } else if (c == '\r') {
      result += "\\r";
    } else if (byte < 0x20 || byte == 0x7F) {
      static constexpr char kDigits[] = "0123456789abcdef";
      result += std::string("\\x") + kDigits[byte >> 4] + kDigits[byte & 15];
    } else {
      result.push_back(c);
    }
  }
  result.push_back('"');
  if (text.size() > kShown) result += "... (" + std::to_string(text.size()) + " bytes)";
  return result;
}

}  // namespace runner
