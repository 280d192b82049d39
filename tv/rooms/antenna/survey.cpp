#include "rooms/antenna/survey.h"

#include <algorithm>
#include <array>
#include <bitset>
#include <iterator>
#include <span>
#include <utility>
#include <variant>

#include "broadcast/playout.h"
#include "broadcast/sections.h"

namespace {

using std::chrono::steady_clock;

// Which sections of a table have arrived.
struct Parts {
  int version = -1;
  int last = -1;
  std::bitset<256> arrived;
};

// Notes a section of a PAT, an SDT or a NIT. Returns true if it belongs to another version than those before it: what
// they said is out of date.
template <typename PartOfTable>
bool take_part(Parts& parts, const PartOfTable& part) {
  const bool restarts = part.version != parts.version || part.last_section != parts.last;
  if (restarts) parts = {.version = part.version, .last = part.last_section, .arrived = {}};
  parts.arrived.set(part.section);
  return restarts;
}

bool is_complete(const Parts& parts) {
  return parts.last >= 0 && parts.arrived.count() == static_cast<std::size_t>(parts.last) + 1;
}

// Counts packets that are damaged or missing.
struct Meter {
  std::array<std::int8_t, 8192> counters;  // the latest continuity counter by PID; -1: none
  std::uint64_t arrived = 0;
  std::uint64_t damaged = 0;
  std::uint64_t missing = 0;
  Meter() { counters.fill(-1); }
};

void measure(Meter& meter, std::span<const std::uint8_t> packets) {
  constexpr std::size_t kNullPid = 0x1FFF;
  for (; packets.size() >= kPacketSize; packets = packets.subspan(kPacketSize)) {
    ++meter.arrived;
    if ((packets[1] & 0x80) != 0) ++meter.damaged;
    const std::size_t pid = (packets[1] & 0x1Fu) << 8 | packets[2];
    const bool has_payload = (packets[3] & 0x10) != 0;
    const bool has_field = (packets[3] & 0x20) != 0 && packets[4] > 0;
    if (pid == kNullPid || !has_payload) continue;
    const int counter = packets[3] & 0x0F;
    const int before = std::exchange(meter.counters[pid], static_cast<std::int8_t>(counter));
    const bool announced = has_field && (packets[5] & 0x80) != 0;  // discontinuity_indicator
    if (before < 0 || announced || counter == before) continue;    // a packet may be sent twice
    meter.missing += static_cast<std::uint64_t>((counter - before - 1) & 0x0F);
  }
}

int percent(std::uint64_t part, std::uint64_t whole) {
  return whole == 0 ? 0 : static_cast<int>(part * 100 / whole);  // rounded down: 100 only if nothing is wrong
}

Signal signal_of(const Meter& meter) {
  const std::uint64_t whole = meter.arrived + meter.missing;
  return {.strength = percent(meter.arrived, whole), .quality = percent(meter.arrived - meter.damaged, whole)};
}

// A survey under way.
struct Work {
  Survey found;
  SurveyAim aim = SurveyAim::kIndex;
  Sections sections;
  Meter meter;
  Parts pat;
  Parts sdt;
  Parts nit;
  std::optional<std::uint16_t> network_id;  // of the NIT that is collected: the first that arrived
  std::vector<Nit::Multiplex> entries;      // of the NIT
};

// Wants the PMTs that have not arrived, as many at once as there is room for.
void want_contents(Work& work) {
  if (work.aim != SurveyAim::kServices) return;
  for (const auto& [service, pid] : work.found.programs)
    if (!work.found.contents.contains(service) && !sections_want(work.sections, pid)) return;
}

// A table is accepted on its own PID only.

void take(Work& work, Pat& pat, std::uint16_t pid) {
  if (pid != kPidPat) return;
  if (take_part(work.pat, pat)) {
    for (const auto& [service, of_pmt] : std::exchange(work.found.programs, {})) sections_ignore(work.sections, of_pmt);
    work.found.contents.clear();
  }
  work.found.stream = pat.stream;
  for (const Pat::Program& program : pat.programs)
    if (work.found.programs.size() < kMostPrograms && program.pid > kPidTdt)
      work.found.programs.try_emplace(program.service, program.pid);
  want_contents(work);
}

void take(Work& work, Pmt& pmt, std::uint16_t pid) {
  const auto program = work.found.programs.find(pmt.service);
  if (program == work.found.programs.end() || program->second != pid) return;
  work.found.contents.insert_or_assign(pmt.service, std::move(pmt));
  const bool is_wanted = std::ranges::any_of(work.found.programs, [&](const auto& each) {
    return each.second == pid && !work.found.contents.contains(each.first);
  });
  if (is_wanted) return;
  sections_ignore(work.sections, pid);
  want_contents(work);
}

void take(Work& work, Sdt& sdt, std::uint16_t pid) {
  if (pid != kPidSdt || !sdt.actual) return;
  if (take_part(work.sdt, sdt)) work.found.services.clear();
  work.found.network = sdt.network;
  for (Sdt::Service& service : sdt.services)
    if (work.found.services.size() < kMostPrograms)
      work.found.services.insert_or_assign(service.service, std::move(service));
}

void take(Work& work, Nit& nit, std::uint16_t pid) {
  if (pid != kPidNit || !nit.actual || work.network_id.value_or(nit.network_id) != nit.network_id) return;
  work.network_id = nit.network_id;
  if (take_part(work.nit, nit)) work.entries.clear();
  for (Nit::Multiplex& each : nit.multiplexes)
    if (work.entries.size() < kMostNetworkEntries) work.entries.push_back(std::move(each));
}

void take(Work& work, const Tdt& tdt, std::uint16_t pid) {
  if (pid == kPidTdt && !work.found.utc) work.found.utc = tdt.utc;
}

void take(Work&, const Eit&, std::uint16_t) {}

bool has_everything(const Work& work) {
  if (!is_complete(work.pat) || !is_complete(work.sdt) || !is_complete(work.nit)) return false;
  if (work.aim == SurveyAim::kIndex) return work.found.utc.has_value();
  return work.found.contents.size() == work.found.programs.size();
}

// Finds the multiplex in the NIT. Networks may use the same stream identifier, so the SDT's network decides.
void take_delivery(Work& work) {
  Survey& found = work.found;
  const bool knows_network = work.sdt.last >= 0;
  for (Nit::Multiplex& each : work.entries) {
    if (each.stream != found.stream || (knows_network && each.network != found.network)) continue;
    found.network = each.network;
    found.delivery = std::move(each);
    return;
  }
}

// The kind of a service without an SDT: the service_type of television or radio, or 0.
std::uint8_t type_of(const Pmt& pmt) {
  const auto has = [&pmt](StreamKind kind) { return std::ranges::count(pmt.streams, kind, &Pmt::Stream::kind) > 0; };
  return has(StreamKind::kVideo) ? 1 : has(StreamKind::kAudio) ? 2 : 0;
}

bool is_for_viewers(std::uint8_t type) {
  // Television and radio, by codec and definition.
  constexpr std::uint8_t kTypes[] = {0x01, 0x02, 0x07, 0x0A, 0x11, 0x16, 0x19, 0x1C, 0x1F, 0x20};
  return std::ranges::find(kTypes, type) != std::end(kTypes);
}

}  // namespace

bool survey_read(const std::string& path, SurveyAim aim, const std::atomic<bool>& cancelled, Survey& ret_survey,
                 std::string& ret_error) {
  ret_error.clear();
  // The playout's messages begin with the path, which the caller knows.
  const auto fail = [&] {
    if (ret_error.starts_with(path + ": ")) ret_error.erase(0, path.size() + 2);
    return false;
  };
  const PlayoutHandle playout = playout_open(path, ret_error);
  if (!playout) return fail();
  Work work;
  work.aim = aim;
  for (const std::uint16_t pid : {kPidPat, kPidNit, kPidSdt}) sections_want(work.sections, pid);
  if (aim == SurveyAim::kIndex) sections_want(work.sections, kPidTdt);
  const steady_clock::time_point end = steady_clock::now() + kSurveyTime;
  std::size_t bytes = 0;
  while (bytes < kSurveyBytes && steady_clock::now() < end && (bytes < kSurveySample || !has_everything(work))) {
    if (cancelled) return false;
    const std::optional<PlayoutChunk> chunk = playout_next(*playout, false, ret_error);
    if (!chunk && !ret_error.empty()) return fail();
    if (!chunk) break;
    bytes += chunk->packets.size();
    measure(work.meter, chunk->packets);
    sections_take(work.sections, chunk->packets, [&work](std::uint16_t pid, std::span<const std::uint8_t> section) {
      std::optional<Table> table = table_read(section);
      if (table) std::visit([&](auto& each) { take(work, each, pid); }, *table);
    });
  }
  if (work.found.programs.empty()) {
    ret_error = work.pat.last < 0 ? "the stream has no program association table" : "the stream lists no service";
    return false;
  }
  take_delivery(work);
  work.found.signal = signal_of(work.meter);
  ret_survey = std::move(work.found);
  return true;
}

std::vector<FoundService> survey_services(const Survey& survey, Medium medium, std::uint32_t frequency) {
  std::vector<FoundService> services;
  for (const auto& [id, pid] : survey.programs) {
    const auto named = survey.services.find(id);
    const auto content = survey.contents.find(id);
    const bool has_name = named != survey.services.end();
    const bool has_content = content != survey.contents.end();
    FoundService found{.key = {.network = survey.network, .stream = survey.stream, .service = id},
                       .type = has_name      ? named->second.type
                               : has_content ? type_of(content->second)
                                             : std::uint8_t{0},
                       .scrambled = has_content && content->second.scrambled,
                       .medium = medium,
                       .frequency = frequency};
    if (!is_for_viewers(found.type)) continue;
    if (has_name) {
      found.name = named->second.name;
      found.short_name = named->second.short_name;
      found.provider = named->second.provider;
      found.scrambled = found.scrambled || named->second.scrambled;
    }
    if (found.name.empty()) found.name = "Service " + std::to_string(id);
    if (survey.delivery) {
      found.symbol_rate = survey.delivery->symbol_rate;
      found.orbit = survey.delivery->orbit;
      found.horizontal = survey.delivery->horizontal;
      const auto number = std::ranges::find(survey.delivery->numbers, id, &Nit::Number::service);
      if (number != survey.delivery->numbers.end()) {
        found.hidden = !number->visible;
        if (number->number != 0) found.number = number->number;
      }
    }
    services.push_back(std::move(found));
  }
  return services;
}
