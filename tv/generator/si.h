// The service information of a multiplex, as sections.
#pragma once

#include <cstdint>
#include <vector>

#include "generator/services.h"

using Section = std::vector<std::uint8_t>;

// Sections that are sent in turn, again and again.
struct Carousel {
  std::uint16_t pid = 0;
  double period = 0;  // seconds in which each section is sent once
  std::vector<Section> sections;
};

struct Stamp {
  std::int64_t utc = 0;  // the time that the file's beginning states
  int days = 0;          // of the schedule, from midnight UTC
  int seconds = 0;       // the file's length
};

inline constexpr int kMostDays = 8;

// NIT, SDT and EIT of the multiplex and of the others.
std::vector<Carousel> si_carousels(const MultiplexRow& multiplex, const Stamp& stamp);

Section si_tdt(std::int64_t utc);
Section si_tot(std::int64_t utc);

// The PMT section with a CA descriptor in it.
Section si_scrambled_pmt(const std::uint8_t* pmt);
