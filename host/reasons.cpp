#include "reasons.h"

#include <algorithm>
#include <array>

#include "vex_tv_ctrl/status.h"

namespace {

struct ResultText {
  std::int32_t result;
  std::string_view text;
};

// The plugin's own results. A platform's code may have the same number and another meaning.
constexpr ResultText kResults[] = {
#define TVC_STATUS(name, number, meaning) {number, meaning},
#include "vex_tv_ctrl/status.def"
#undef TVC_STATUS
};

// The lines of the platform begin with this, and those of the plugin with these.
constexpr std::string_view kPlatformLine = "dtv_tv: ";
constexpr std::string_view kPluginLine = "[TVC_API]";
constexpr std::string_view kPluginText = " --> ";

// The last line with this beginning that contains the text, without its beginning; empty if there is none.
std::string_view last_line(std::string_view log, std::string_view beginning, std::string_view text) {
  std::string_view found;
  while (!log.empty()) {
    const std::size_t end = std::min(log.find('\n'), log.size());
    std::string_view line = log.substr(0, end);
    log.remove_prefix(std::min(end + 1, log.size()));
    if (!line.starts_with(beginning) || line.find(text) == std::string_view::npos) continue;
    line.remove_prefix(beginning.size());
    while (line.ends_with('\r')) line.remove_suffix(1);
    found = line;
  }
  return found;
}

std::string platform_reason(const dtv_tap_failure_t& failure, std::string_view log) {
  const std::string function = failure.function;
  const std::string returned = function + " returned " + std::to_string(failure.result);
  if (failure.by_fault != 0)
    return "a fault is set on the platform's " + function + ", which returned " + std::to_string(failure.result);
  std::string_view sentence = last_line(log, std::string(kPlatformLine) + function + ": ", {});
  // A line of no function's, such as that of a full disk. One of another function is about another call.
  if (sentence.empty()) sentence = last_line(log, kPlatformLine, {});
  if (sentence.substr(0, sentence.find(": ")).find(' ') == std::string_view::npos) sentence = {};
  if (sentence.empty())
    return "the platform refused: " + returned + (failure.result == -1 ? "" : ", a code of the platform's own");
  return std::string(sentence) + " (" + returned + ")";
}

}  // namespace

std::string reason_of(const Evidence& evidence) {
  const auto refused = std::ranges::find(evidence.findings, true, &Finding::refused);
  if (evidence.failure != nullptr) return platform_reason(*evidence.failure, evidence.log);
  if (refused != evidence.findings.end()) return refused->text;
  std::string text;
  if (const std::string_view sentence = last_line(evidence.log, kPlatformLine, {}); !sentence.empty()) {
    text = sentence;
  } else if (const std::string_view line = last_line(evidence.log, kPluginLine, kPluginText); !line.empty()) {
    text = "the plugin reports: " + std::string(line.substr(line.find(kPluginText) + kPluginText.size()));
  } else if (const auto* const known = std::ranges::find(kResults, evidence.ret, &ResultText::result);
             known != std::end(kResults)) {
    text = known->text;
    // The tap notes results below 0. Any other code, or any without the tap, may be the platform's.
    if (!evidence.tapped || evidence.ret > 0)
      text = "the set answered " + std::to_string(evidence.ret) + "; as a code of the plugin it means: " + text;
  } else {
    text = "the set answered " + std::to_string(evidence.ret) + ", a code of the platform's own";
  }
  // What the request lacks is more help than a general sentence alone.
  if (!evidence.findings.empty())
    text += "; " + evidence.findings.front().text;
  else if (!evidence.example.empty())
    text += "; this URI takes " + std::string(evidence.example);
  return text;
}

std::string swallowed_failure(const Evidence& evidence) {
  return "the request succeeded, but " + platform_reason(*evidence.failure, evidence.log);
}
