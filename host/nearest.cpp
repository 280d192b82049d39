#include "nearest.h"

#include <algorithm>
#include <array>
#include <numeric>

namespace {

// Longer names are not compared: that would take the serving thread too long.
constexpr std::size_t kLongestCompared = 128;

// Number of letters to insert, delete or replace to turn a into b; any number above limit when it exceeds the limit.
std::size_t edit_distance(std::string_view a, std::string_view b, std::size_t limit) {
  if (std::max(a.size(), b.size()) - std::min(a.size(), b.size()) > limit) return limit + 1;
  std::array<std::size_t, kLongestCompared + 1> row;
  std::iota(row.begin(), row.begin() + static_cast<std::ptrdiff_t>(b.size()) + 1, std::size_t{0});
  for (std::size_t i = 1; i <= a.size(); ++i) {
    std::size_t diagonal = row[0];
    std::size_t least = row[0] = i;
    for (std::size_t j = 1; j <= b.size(); ++j) {
      const std::size_t exchanged = diagonal + (a[i - 1] == b[j - 1] ? 0 : 1);
      diagonal = row[j];
      row[j] = std::min({exchanged, row[j] + 1, row[j - 1] + 1});
      least = std::min(least, row[j]);
    }
    if (least > limit) return limit + 1;
  }
  return row[b.size()];
}

}  // namespace

std::vector<std::string> nearest(std::string_view name, std::span<const std::string> names, std::size_t count) {
  struct Candidate {
    std::size_t distance;
    const std::string* name;
  };
  std::vector<Candidate> candidates;
  if (name.empty() || name.size() > kLongestCompared) return {};
  const std::size_t limit = std::max<std::size_t>(2, name.size() / 4);
  const std::size_t slash = name.rfind('/');
  const std::string_view last_part = slash == std::string_view::npos ? "" : name.substr(slash);
  for (const std::string& known : names) {
    const bool contains = name.size() >= 3 && known.find(name) != std::string::npos;
    std::size_t distance = contains                           ? 1
                           : known.size() <= kLongestCompared ? edit_distance(name, known, limit)
                                                              : limit + 1;
    if (last_part.size() > 3 && known.ends_with(last_part)) distance = std::min(distance, limit);
    if (distance <= limit) candidates.push_back({distance, &known});
  }
  std::ranges::stable_sort(candidates, {}, &Candidate::distance);
  std::vector<std::string> found;
  for (const Candidate& candidate : candidates)
    if (found.size() < count) found.push_back(*candidate.name);
  return found;
}
