// Which recordings can run at the same time.
//
// The rule. A tuner receives one multiplex, and all services of it. A recording needs the tuner of its multiplex from
// its beginning to its end, padding included. While the set is on and shows a channel, that channel needs a tuner, too:
// the viewer's picture is never taken away for a recording. In standby it needs none. A sub picture has no claim: it
// gives up its tuner when a recording needs it. So there is a conflict where, at any moment of the recording, its
// multiplex and the others that are needed then are more than there are tuners. It is with each of those others. What
// nobody can know is what the viewer will watch: the picture counts only in a recording that begins now.
#pragma once

#include <algorithm>
#include <cstdint>
#include <set>
#include <span>
#include <vector>

#include "broadcast/tables.h"

// The time during which something needs a multiplex.
struct Window {
  int id = 0;  // of the plan; 0: the viewer's picture
  std::int64_t from = 0;
  std::int64_t to = 0;  // not included
  ServiceKey key = {};  // a service of the multiplex
};

// Those of the others that the wanted one conflicts with, in their order.
inline std::vector<Window> find_conflicts(std::span<const Window> others, const Window& wanted, int tuners) {
  const auto needs = [&](const Window& other, std::int64_t moment) {
    return other.from <= moment && moment < other.to && !same_multiplex(other.key, wanted.key);
  };
  std::vector<std::int64_t> moments = {wanted.from};  // the need grows only where something begins
  for (const Window& other : others)
    if (other.from > wanted.from && other.from < wanted.to) moments.push_back(other.from);
  std::vector<bool> hit(others.size());
  for (const std::int64_t moment : moments) {
    std::set<std::int64_t> multiplexes;
    for (const Window& other : others)
      if (needs(other, moment)) multiplexes.insert(packed(other.key) >> 16);
    if (static_cast<int>(multiplexes.size()) + 1 <= tuners) continue;
    for (std::size_t i = 0; i < others.size(); ++i) hit[i] = hit[i] || needs(others[i], moment);
  }
  std::vector<Window> found;
  for (std::size_t i = 0; i < others.size(); ++i)
    if (hit[i]) found.push_back(others[i]);
  return found;
}
