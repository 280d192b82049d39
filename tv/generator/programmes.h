// The guide: invented programmes. They depend only on the day and the service.
#pragma once

#include <cstdint>
#include <string_view>
#include <vector>

struct Show {  // a row of programmes.def
  std::uint16_t service;
  int from, to;  // local hours; see programmes.def
  int shortest, longest;
  std::uint8_t content;
  std::uint8_t age;
  bool series;
  std::string_view title, summary, details, credit, second_title, second_summary;
};

struct Programme {
  std::uint16_t id = 0;  // event id: stays the same from day to day
  std::int64_t start = 0;
  std::uint32_t duration = 0;
  int episode = 0;  // 0: not of a series
  const Show* show = nullptr;
};

// False when this machine does not know the broadcast's time zone.
bool programmes_zone_known();

// The zone's offset from UTC at a time, and when it changes next, to what: for the TOT.
struct ZoneOffset {
  std::int32_t seconds = 0;
  std::int64_t next_change = 0;
  std::int32_t next_seconds = 0;
};
ZoneOffset programmes_zone(std::int64_t utc);

// The service's programmes that end after `from` and begin before `to`, in seconds since 1970, without gaps.
// None if the service has no guide.
std::vector<Programme> programmes_between(std::uint16_t service, std::int64_t from, std::int64_t to);
