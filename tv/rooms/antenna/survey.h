// What the beginning of a multiplex says about it. The antenna's index and the scan are made of surveys. A survey reads
// a file as fast as it can, on the caller's thread, without a lock.
#pragma once

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "broadcast/tables.h"
#include "rooms/channels/channels.h"

// The bounds of one survey. It ends at the first that it meets, or when it has found everything. At 24 Mbit/s the
// standard's longest interval of a table, 30 s for the time, is 90 MB; 10 s is common.
inline constexpr std::size_t kSurveyBytes = std::size_t{64} << 20;
inline constexpr std::chrono::milliseconds kSurveyTime{2000};
inline constexpr std::size_t kSurveySample = std::size_t{2} << 20;  // bytes read at least, to count damaged packets
inline constexpr std::size_t kMostPrograms = 1024;                  // services of a multiplex; the others are ignored
inline constexpr std::size_t kMostNetworkEntries = 4096;            // multiplexes that a NIT may list

// Percent of what the sample should have held. Any damage at all makes them 99 or less.
struct Signal {
  int strength = 0;  // packets that arrived; continuity counters tell how many did not
  int quality = 0;   // packets that arrived undamaged (transport_error_indicator 0)
};

struct Survey {
  std::uint16_t network = 0;  // original network id: the SDT's, else the NIT's, else 0
  std::uint16_t stream = 0;
  std::map<std::uint16_t, std::uint16_t> programs;  // the PAT: PID of the PMT by service
  std::map<std::uint16_t, Sdt::Service> services;   // the SDT of this multiplex
  std::map<std::uint16_t, Pmt> contents;            // the PMTs by service
  std::optional<Nit::Multiplex> delivery;           // this multiplex in the NIT of its network
  std::optional<std::int64_t> utc;                  // the first TDT or TOT
  Signal signal;
};

enum class SurveyAim { kIndex, kServices };  // PAT, SDT, NIT and TDT; PAT, PMTs, SDT and NIT

// Returns false with ret_error if the file has no PAT or cannot be read, and with an empty ret_error if it was
// cancelled.
bool survey_read(const std::string& path, SurveyAim aim, const std::atomic<bool>& cancelled, Survey& ret_survey,
                 std::string& ret_error);

// The television and radio services of the PAT, in the order of their identifiers. Without an SDT, the PMT tells the
// kind of a service. The caller's medium and frequency are the multiplex's.
std::vector<FoundService> survey_services(const Survey& survey, Medium medium, std::uint32_t frequency);
