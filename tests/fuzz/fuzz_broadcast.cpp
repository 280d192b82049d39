// Broadcasts: sections to table_read, packets to sections_take, texts in their character sets, and whole multiplexes
// through service_stream_take. Most sections get the CRC that they should have, so that what is behind it is reached.
#include <set>
#include <vector>

#include "broadcast/sections.h"
#include "broadcast/service_stream.h"
#include "broadcast/stream_bytes.h"
#include "broadcast/tables.h"
#include "broadcast/text.h"
#include "tests/fuzz/bytes.h"
#include "tests/fuzz/require.h"
#include "tests/fuzz/seeds.h"

using Raw = std::vector<std::uint8_t>;

static constexpr std::size_t kMostEntries = 4096;  // a section has fewer of everything

static void require_text(const std::string& text, std::size_t longest) {
  require(text.size() <= longest, "a text is no longer than it may be", text);
  for (std::size_t i = 0; i < text.size();) {
    const auto lead = static_cast<std::uint8_t>(text[i]);
    const std::size_t size = lead < 0x80 ? 1 : lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : 4;
    require((lead >= 0x20 || lead == '\n') && lead != 0x7F && !(lead >= 0x80 && lead < 0xC2) && lead < 0xF5,
            "a text has characters only", text);
    require(i + size <= text.size(), "a text ends with a whole character", text);
    for (std::size_t k = 1; k < size; ++k)
      require((static_cast<std::uint8_t>(text[i + k]) & 0xC0) == 0x80, "a text is UTF-8", text);
    require(lead != 0xC2 || static_cast<std::uint8_t>(text[i + 1]) >= 0xA0, "a text has no control codes", text);
    i += size;
  }
}

static void require_code(const std::string& code, char first, char last) {
  require(code.empty() || code.size() == 3, "a code has three letters", code);
  for (const char c : code) require(c >= first && c <= last, "a code's letters have their case", code);
}

static void require_table(const Table& table) {
  static constexpr std::size_t kLongestName = 4096;
  if (const Pmt* const pmt = std::get_if<Pmt>(&table)) {
    require(pmt->streams.size() < kMostEntries, "streams have a bound");
    for (const Pmt::Stream& stream : pmt->streams) {
      require_code(stream.language, 'a', 'z');
      require((stream.kind == StreamKind::kOther) == stream.codec.empty(), "what is known has a codec", stream.codec);
    }
  } else if (const Sdt* const sdt = std::get_if<Sdt>(&table)) {
    for (const Sdt::Service& service : sdt->services) {
      require_text(service.name, kLongestName);
      require_text(service.short_name, kLongestName);
      require_text(service.provider, kLongestName);
      require(service.short_name.size() <= service.name.size(), "a short name is part of the name", service.name);
    }
  } else if (const Nit* const nit = std::get_if<Nit>(&table)) {
    require_text(nit->name, kLongestName);
    for (const Nit::Multiplex& multiplex : nit->multiplexes)
      for (const Nit::Number& number : multiplex.numbers) require(number.number > 0, "a number is one");
  } else if (const Eit* const eit = std::get_if<Eit>(&table)) {
    require(eit->events.size() < kMostEntries, "events have a bound");
    for (const Eit::Event& event : eit->events) {
      require(event.start >= 0 && event.duration < 100 * 3600, "times are in their range");
      std::set<std::string> languages;
      for (const Eit::Text& text : event.texts) {
        require(languages.insert(text.language).second, "a language comes once", text.language);
        require_code(text.language, 'a', 'z');
        require_text(text.title, kLongestName);
        require_text(text.summary, kLongestName);
        require_text(text.details, 1U << 16U);
      }
      for (const Eit::Rating& rating : event.ratings) {
        require_code(rating.country, 'A', 'Z');
        require(rating.age >= 4 && rating.age <= 18, "an age is in its range");
      }
    }
  } else if (const Tdt* const tdt = std::get_if<Tdt>(&table)) {
    require(tdt->utc >= 0, "a time is one");
  }
}

static Raw take_rest(Bytes& bytes, std::size_t most) {
  const std::size_t count = std::min(most, bytes.left);
  Raw raw(bytes.next, bytes.next + count);
  bytes.next += count;
  bytes.left -= count;
  return raw;
}

// Makes a section of the bytes: its length is right, and so is its CRC.
static Raw repaired(Raw raw) {
  raw.resize(std::clamp<std::size_t>(raw.size(), 8, 4092));
  const std::size_t length = raw.size() - 3 + 4;
  raw[1] = static_cast<std::uint8_t>((raw[1] & 0xF0) | length >> 8);
  raw[2] = static_cast<std::uint8_t>(length & 0xFF);
  return stream_bytes::with_crc(raw);
}

static constexpr const char* kTables[] = {"PAT", "PMT", "SDT", "NIT", "EIT", "TDT"};  // as in Table

static void section(Bytes& bytes) {
  const bool repair = !take_chance(bytes, 4);
  Raw raw = take_rest(bytes, 4096);
  if (repair) raw = repaired(raw);
  const auto table = table_read(raw);
  if (!table) return;
  seed_reached(kTables[table->index()]);
  require_table(*table);
  raw.pop_back();
  require(!table_read(raw), "a section that is cut off is refused");
}

static void texts(Bytes& bytes) {
  static constexpr const char* kSets[] = {"ISO6937", "ISO-8859-5", "ISO-8859-2", "UCS-2BE",
                                          "EUC-KR",  "GB2312",     "UTF-8"};
  const std::size_t longest = take_chance(bytes, 4) ? take_byte(bytes) : 4096;
  const std::string set = kSets[take_below(bytes, std::size(kSets))];
  const Raw raw = take_rest(bytes, 4096);
  const std::string text = text_from_broadcast(raw, longest);
  require_text(text, longest);
  const std::string emphasized = text_emphasized(raw, longest);
  require_text(emphasized, longest);
  if (!emphasized.empty()) seed_reached("emphasis");
  const std::string said = text_for_broadcast(text, set);
  const std::string again =
      text_from_broadcast({reinterpret_cast<const std::uint8_t*>(said.data()), said.size()}, longest);
  require(said.empty() || set == "ISO6937" || again == text, "a text that was written is read back unchanged", text);
  // Whatever a program gives: text_for_broadcast accepts any bytes.
  text_for_broadcast({reinterpret_cast<const char*>(raw.data()), raw.size()}, set);
}

static constexpr std::uint16_t kPids[] = {0x00, 0x10, 0x11, 0x12, 0x14, 0x20, 0x30, 0x31, 0x1FFF};
static constexpr std::uint16_t kService = 1;

// Sections on PIDs that the reader wants, and packets as they come.
static Raw take_multiplex(Bytes& bytes, std::uint8_t (&counters)[std::size(kPids)]) {
  Raw all;
  for (std::size_t i = 0; i < 32 && bytes.left > 0; ++i) {
    const std::size_t which = take_below(bytes, std::size(kPids));
    if (take_chance(bytes, 2)) {
      const Raw sent = repaired(take_rest(bytes, take_byte(bytes)));
      all = stream_bytes::join({all, stream_bytes::packets(kPids[which], counters[which], sent)});
    } else {
      Raw packet = take_rest(bytes, take_chance(bytes, 4) ? 188 : 24);
      packet.resize(188, 0xFF);
      packet[0] = 0x47;
      if (!take_chance(bytes, 8)) {
        packet[1] = static_cast<std::uint8_t>((packet[1] & 0xE0) | kPids[which] >> 8);
        packet[2] = static_cast<std::uint8_t>(kPids[which] & 0xFF);
      }
      all = stream_bytes::join({all, packet});
    }
  }
  return all;
}

static void packets(Bytes& bytes) {
  Sections sections;
  std::uint8_t counters[std::size(kPids)] = {};
  for (const std::uint16_t pid : kPids) sections_want(sections, pid);
  const auto found = [&](std::uint16_t pid, std::span<const std::uint8_t> section) {
    require(section.size() >= 3 && section.size() <= 4096, "a section keeps to its bounds");
    if (section[0] == 0x77) sections_ignore(sections, pid);
    if (section[0] == 0x78) sections_want(sections, static_cast<std::uint16_t>(section.size()));
    if (const auto table = table_read(section)) require_table(*table);
  };
  for (int i = 0; i < 4; ++i) {
    const Raw all = take_multiplex(bytes, counters);
    sections_take(sections, all, found);
    require(sections.pids.size() <= kMostSectionPids && sections.seen.size() <= kMostSeenSections, "memory is bounded");
    for (const auto& [pid, state] : sections.pids)
      require(state.section.size() < 4096, "an unfinished section is bounded");
  }
}

static void service(Bytes& bytes) {
  const ServiceStreamHandle stream = service_stream_start(kService);
  std::uint8_t counters[std::size(kPids)] = {};
  std::chrono::microseconds due{0};
  std::uint64_t round = 0;
  bool first = true;
  for (int i = 0; i < 8 && bytes.left > 0; ++i) {
    due += std::chrono::microseconds{take_number<std::uint16_t>(bytes)};
    round += take_chance(bytes, 4) ? 1 : 0;
    const Raw all = take_multiplex(bytes, counters);
    Raw out;
    service_stream_take(*stream, {.packets = all, .due = due, .round = round}, out);
    require(out.size() % 188 == 0, "packets are whole");
    require(out.size() <= 32 * (all.size() + 188), "what goes out is bounded by what comes in");
    if (out.size() > 376) seed_reached("service");
    require(out.empty() || service_stream_pmt(*stream), "nothing goes out before the PMT");
    for (std::size_t at = 0; at < out.size(); at += 188) {
      const auto pid = static_cast<std::uint16_t>((out[at + 1] & 0x1F) << 8 | out[at + 2]);
      require(out[at] == 0x47 && pid != 0x1FFF, "a packet is one");
      if (first) require(pid == 0, "the PAT comes first");
      first = false;
      if (pid != 0) continue;
      const auto pat = table_read({out.data() + at + 5, 16});
      require(pat && std::get<Pat>(*pat).programs.size() == 1 && std::get<Pat>(*pat).programs[0].service == kService,
              "the PAT has the service alone");
    }
    if (const Pmt* const pmt = service_stream_pmt(*stream)) require_table(*pmt);
    service_stream_scrambled(*stream);
  }
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);
int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Bytes bytes = {.next = data, .left = size};
  switch (take_below(bytes, 4)) {
    case 0:
      section(bytes);
      break;
    case 1:
      texts(bytes);
      break;
    case 2:
      packets(bytes);
      break;
    default:
      service(bytes);
  }
  return 0;
}

std::set<std::string> seed_goals() {
  std::set<std::string> goals = {"emphasis", "service"};
  goals.insert(std::begin(kTables), std::end(kTables));
  return goals;
}
