#include "broadcast/sections.h"

bool sections_want(Sections& sections, std::uint16_t pid) {
  if (!sections.pids.contains(pid) && sections.pids.size() >= kMostSectionPids) return false;
  sections.pids.try_emplace(pid);
  return true;
}

void sections_ignore(Sections& sections, std::uint16_t pid) { sections.pids.erase(pid); }

void sections_take(Sections&, std::span<const std::uint8_t>,
                   const std::function<void(std::uint16_t pid, std::span<const std::uint8_t> section)>&) {}
