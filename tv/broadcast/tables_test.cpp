// PAT, PMT, SDT, NIT and the time tables. The bytes are laid out by ISO/IEC 13818-1 and EN 300 468.
#include "broadcast/tables.h"

#include <gtest/gtest.h>

#include "broadcast/stream_bytes.h"

namespace bytes = stream_bytes;
using bytes::Bytes;
using bytes::descriptor;
using bytes::join;
using bytes::text;
using bytes::two;

template <typename T>
static T read_as(const Bytes& section) {
  const auto table = table_read(section);
  if (table && std::holds_alternative<T>(*table)) return std::get<T>(*table);
  ADD_FAILURE() << "the section was refused, or taken for another table";
  return {};
}

// --- PAT ---

TEST(BroadcastPat, ListsProgramsWithoutTheNetworks) {
  const Bytes section = bytes::section({.table = 0x00, .extension = 0x1234, .version = 31, .number = 1, .last = 2},
                                       {0x00, 0x00, 0xE0, 0x10,    // network_PID
                                        0x00, 0x65, 0xF0, 0x00,    // program 101 on PID 0x1000
                                        0xFF, 0xFF, 0xFF, 0xFE});  // program 65535 on PID 0x1FFE
  const Pat pat = read_as<Pat>(section);
  EXPECT_EQ(pat.stream, 0x1234);
  EXPECT_EQ(pat.version, 31);
  EXPECT_EQ(pat.section, 1);
  EXPECT_EQ(pat.last_section, 2);
  ASSERT_EQ(pat.programs.size(), 2u);
  EXPECT_EQ(pat.programs[0].service, 101);
  EXPECT_EQ(pat.programs[0].pid, 0x1000);
  EXPECT_EQ(pat.programs[1].service, 65535);
  EXPECT_EQ(pat.programs[1].pid, 0x1FFE);
}

TEST(BroadcastPat, LeavesOutProgramsOnReservedPids) {
  EXPECT_TRUE(read_as<Pat>(bytes::pat(1, {{5, 0x0000}, {6, 0x000F}, {7, 0x1FFF}})).programs.empty());
}

TEST(BroadcastPat, MayBeAsLongAsASection) {
  const std::vector<std::pair<std::uint16_t, std::uint16_t>> programs(253, {1, 0x100});
  EXPECT_EQ(read_as<Pat>(bytes::pat(1, programs)).programs.size(), 253u);  // section_length 1021
  EXPECT_FALSE(table_read(bytes::pat(1, std::vector<std::pair<std::uint16_t, std::uint16_t>>(254, {1, 0x100}))));
}

// --- PMT ---

static Pmt::Stream read_stream(std::uint8_t type, const Bytes& descriptors) {
  const Pmt pmt = read_as<Pmt>(bytes::pmt(1, 0x100, {{type, 0x100, descriptors}}));
  EXPECT_EQ(pmt.streams.size(), 1u);
  return pmt.streams.empty() ? Pmt::Stream{} : pmt.streams[0];
}

TEST(BroadcastPmt, HasStreamsAndThePcr) {
  const Pmt pmt = read_as<Pmt>(bytes::pmt(0x4567, 0x0101, {{0x02, 0x0101}, {0x04, 0x0102}, {0x0D, 0x0103}}, {}, 7));
  EXPECT_EQ(pmt.service, 0x4567);
  EXPECT_EQ(pmt.version, 7);
  EXPECT_EQ(pmt.pcr_pid, 0x0101);
  EXPECT_FALSE(pmt.scrambled);
  ASSERT_EQ(pmt.streams.size(), 3u);
  EXPECT_EQ(pmt.streams[1].pid, 0x0102);
  EXPECT_EQ(pmt.streams[1].type, 0x04);
  EXPECT_EQ(pmt.streams[2].kind, StreamKind::kOther);
  EXPECT_EQ(pmt.streams[2].codec, "");
}

TEST(BroadcastPmt, KnowsStreamTypes) {
  struct Row {
    std::uint8_t type;
    StreamKind kind;
    const char* codec;
  };
  static constexpr Row kRows[] = {{0x01, StreamKind::kVideo, "mpeg1video"},
                                  {0x02, StreamKind::kVideo, "mpeg2video"},
                                  {0x1B, StreamKind::kVideo, "h264"},
                                  {0x24, StreamKind::kVideo, "hevc"},
                                  {0x03, StreamKind::kAudio, "mp2"},
                                  {0x04, StreamKind::kAudio, "mp2"},
                                  {0x0F, StreamKind::kAudio, "aac"},
                                  {0x11, StreamKind::kAudio, "aac"},
                                  {0x81, StreamKind::kAudio, "ac3"},
                                  {0x05, StreamKind::kOther, ""},
                                  {0x06, StreamKind::kOther, ""}};
  for (const Row& row : kRows) {
    EXPECT_EQ(read_stream(row.type, {}).kind, row.kind) << int{row.type};
    EXPECT_EQ(read_stream(row.type, {}).codec, row.codec) << int{row.type};
  }
}

TEST(BroadcastPmt, KnowsPrivateDataByItsDescriptors) {
  const Pmt::Stream teletext = read_stream(0x06, descriptor(0x56, join({text("deu"), {0x09, 0x00}})));
  EXPECT_EQ(teletext.kind, StreamKind::kTeletext);
  EXPECT_EQ(teletext.codec, "teletext");
  EXPECT_EQ(teletext.language, "deu");
  EXPECT_FALSE(teletext.impaired);
  // Teletext type 5: subtitles for the hard of hearing.
  EXPECT_TRUE(
      read_stream(0x06, descriptor(0x56, join({text("deu"), {0x09, 0x00}, text("deu"), {0x29, 0x50}}))).impaired);

  const Pmt::Stream subtitle = read_stream(0x06, descriptor(0x59, join({text("FIN"), {0x10, 0, 1, 0, 1}})));
  EXPECT_EQ(subtitle.kind, StreamKind::kSubtitle);
  EXPECT_EQ(subtitle.codec, "dvb_subtitle");
  EXPECT_EQ(subtitle.language, "fin");
  EXPECT_FALSE(subtitle.impaired);
  EXPECT_TRUE(read_stream(0x06, descriptor(0x59, join({text("fin"), {0x20, 0, 1, 0, 1}}))).impaired);

  EXPECT_EQ(read_stream(0x06, descriptor(0x6A, {0x00})).codec, "ac3");
  EXPECT_EQ(read_stream(0x06, descriptor(0x7A, {0x00})).codec, "eac3");
  EXPECT_EQ(read_stream(0x06, descriptor(0x7C, {0x58})).codec, "aac");
  EXPECT_EQ(read_stream(0x06, descriptor(0x7C, {0x58})).kind, StreamKind::kAudio);
  // A stream type that says what it is wins.
  EXPECT_EQ(read_stream(0x0F, descriptor(0x6A, {0x00})).codec, "aac");
}

TEST(BroadcastPmt, KnowsAudioForTheImpaired) {
  EXPECT_EQ(read_stream(0x03, descriptor(0x0A, join({text("ENG"), {0x00}}))).language, "eng");
  EXPECT_FALSE(read_stream(0x03, descriptor(0x0A, join({text("eng"), {0x01}}))).impaired);  // clean effects
  EXPECT_TRUE(read_stream(0x03, descriptor(0x0A, join({text("eng"), {0x02}}))).impaired);   // hearing
  EXPECT_TRUE(read_stream(0x03, descriptor(0x0A, join({text("eng"), {0x03}}))).impaired);   // visual
  // AC-3 with component_type: service type in bits 5 to 3.
  EXPECT_FALSE(read_stream(0x06, descriptor(0x6A, {0x80, 0x42})).impaired);
  EXPECT_TRUE(read_stream(0x06, descriptor(0x6A, {0x80, 0x12})).impaired);
  EXPECT_TRUE(read_stream(0x06, descriptor(0x7A, {0x80, 0x1A})).impaired);
  // AAC type 0x40: HE-AAC audio for the visually impaired.
  EXPECT_TRUE(read_stream(0x06, descriptor(0x7C, {0x58, 0x80, 0x40})).impaired);
  EXPECT_FALSE(read_stream(0x06, descriptor(0x7C, {0x58, 0x80, 0x03})).impaired);
  // The supplementary audio descriptor: editorial classification 1, with a language.
  const Pmt::Stream described = read_stream(0x0F, descriptor(0x7F, join({{0x06, 0x85}, text("nor")})));
  EXPECT_TRUE(described.impaired);
  EXPECT_EQ(described.language, "nor");
}

TEST(BroadcastPmt, LeavesOutDescriptorsAndLanguagesThatAreNone) {
  EXPECT_EQ(read_stream(0x03, descriptor(0x0A, text("eng"))).language, "");  // not a multiple of four bytes
  EXPECT_EQ(read_stream(0x03, descriptor(0x0A, join({text("e1g"), {0x00}}))).language, "");
  EXPECT_EQ(read_stream(0x06, descriptor(0x56, text("deu"))).kind, StreamKind::kOther);
  EXPECT_EQ(read_stream(0x06, descriptor(0x6A, {})).kind, StreamKind::kOther);
  EXPECT_EQ(read_stream(0x06, descriptor(0x6A, {0xF0, 0x12})).kind, StreamKind::kOther);  // four bytes announced
  EXPECT_EQ(read_stream(0x06, descriptor(0x7A, {0xFF})).kind, StreamKind::kOther);
}

TEST(BroadcastPmt, IsScrambledByAConditionalAccessSystem) {
  const Bytes access = descriptor(0x09, {0x06, 0x02, 0xE1, 0x23});
  EXPECT_TRUE(read_as<Pmt>(bytes::pmt(1, 0x100, {{0x02, 0x100}}, access)).scrambled);
  EXPECT_TRUE(read_as<Pmt>(bytes::pmt(1, 0x100, {{0x02, 0x100, access}})).scrambled);
  EXPECT_FALSE(read_as<Pmt>(bytes::pmt(1, 0x100, {{0x02, 0x100}}, descriptor(0x09, {0x06}))).scrambled);
}

// --- SDT ---

static Bytes service_descriptor(std::uint8_t type, std::string_view provider, std::string_view name) {
  return descriptor(0x48, join({{type}, bytes::counted(text(provider)), bytes::counted(text(name))}));
}

static Bytes sdt(const Bytes& services, std::uint8_t table = 0x42) {
  return bytes::section({.table = table, .extension = 0x0407, .version = 3, .number = 0, .last = 1},
                        join({two(0x2114), {0xFF}, services}));
}

TEST(BroadcastSdt, NamesServices) {
  const Sdt table = read_as<Sdt>(sdt(join({{0x70, 0x85, 0xFC},
                                           bytes::loop(service_descriptor(0x01, "ZDF", "3s\xC8\x61t"), 0x80),
                                           {0x70, 0x86, 0xFC},
                                           bytes::loop(service_descriptor(0x02, "", "\x86Kult\x87urradio"), 0x90)})));
  EXPECT_TRUE(table.actual);
  EXPECT_EQ(table.network, 0x2114);
  EXPECT_EQ(table.stream, 0x0407);
  EXPECT_EQ(table.version, 3);
  EXPECT_EQ(table.section, 0);
  EXPECT_EQ(table.last_section, 1);
  ASSERT_EQ(table.services.size(), 2u);
  EXPECT_EQ(table.services[0].service, 0x7085);
  EXPECT_EQ(table.services[0].type, 1);
  EXPECT_EQ(table.services[0].name, "3sät");
  EXPECT_EQ(table.services[0].short_name, "");
  EXPECT_EQ(table.services[0].provider, "ZDF");
  EXPECT_FALSE(table.services[0].scrambled);
  EXPECT_EQ(table.services[1].type, 2);
  EXPECT_EQ(table.services[1].name, "Kulturradio");
  EXPECT_EQ(table.services[1].short_name, "Kult");
  EXPECT_TRUE(table.services[1].scrambled);
}

TEST(BroadcastSdt, OfAnotherMultiplexIsNotActual) { EXPECT_FALSE(read_as<Sdt>(sdt({}, 0x46)).actual); }

TEST(BroadcastSdt, KeepsServicesWhoseDescriptorIsBroken) {
  // Lengths of the provider and of the name that reach beyond the descriptor, and a descriptor without any.
  for (const Bytes& broken : {Bytes{0x01, 0x09, 'a'}, Bytes{0x01, 0x01, 'a', 0x05, 'b'}, Bytes{0x01, 0x00}, Bytes{}}) {
    const Sdt table = read_as<Sdt>(sdt(join({{0x00, 0x01, 0xFC}, bytes::loop(descriptor(0x48, broken), 0x80)})));
    ASSERT_EQ(table.services.size(), 1u);
    EXPECT_EQ(table.services[0].name, "");
    EXPECT_EQ(table.services[0].type, 0);
  }
}

// --- NIT ---

static Bytes nit(const Bytes& network, const Bytes& multiplexes, std::uint8_t table = 0x40) {
  return bytes::section({.table = table, .extension = 0x3001, .version = 9, .number = 2, .last = 4},
                        join({bytes::loop(network), bytes::loop(multiplexes)}));
}

static Nit::Multiplex read_multiplex(const Bytes& descriptors) {
  const Nit table = read_as<Nit>(nit({}, join({two(0x0407), two(0x2114), bytes::loop(descriptors)})));
  EXPECT_EQ(table.multiplexes.size(), 1u);
  return table.multiplexes.empty() ? Nit::Multiplex{} : table.multiplexes[0];
}

TEST(BroadcastNit, HasItsNameAndMultiplexes) {
  const Nit table = read_as<Nit>(nit(descriptor(0x40, text("\x05Tele")),
                                     join({two(1), two(2), bytes::loop({}), two(3), two(4), bytes::loop({})})));
  EXPECT_TRUE(table.actual);
  EXPECT_EQ(table.network_id, 0x3001);
  EXPECT_EQ(table.version, 9);
  EXPECT_EQ(table.section, 2);
  EXPECT_EQ(table.last_section, 4);
  EXPECT_EQ(table.name, "Tele");
  ASSERT_EQ(table.multiplexes.size(), 2u);
  EXPECT_EQ(table.multiplexes[1].stream, 3);
  EXPECT_EQ(table.multiplexes[1].network, 4);
  EXPECT_EQ(table.multiplexes[1].medium, Medium::kNone);
  EXPECT_FALSE(read_as<Nit>(nit({}, {}, 0x41)).actual);
}

TEST(BroadcastNit, ReadsTerrestrialDelivery) {
  // 474 MHz in units of 10 Hz.
  const Nit::Multiplex air =
      read_multiplex(descriptor(0x5A, {0x02, 0xD3, 0x44, 0x40, 0x1F, 0x81, 0x1A, 0xFF, 0xFF, 0xFF, 0xFF}));
  EXPECT_EQ(air.medium, Medium::kAir);
  EXPECT_EQ(air.frequency, 474000000u);
  EXPECT_EQ(air.symbol_rate, 0u);
  // More than 32 bits hold.
  EXPECT_EQ(read_multiplex(descriptor(0x5A, Bytes(11, 0xFF))).frequency, 0u);
  EXPECT_EQ(read_multiplex(descriptor(0x5A, Bytes(10, 0x01))).medium, Medium::kNone);
}

TEST(BroadcastNit, ReadsSecondGenerationTerrestrialDelivery) {
  const Bytes short_form = {0x04, 0x01, 0x00, 0x02};
  EXPECT_EQ(read_multiplex(descriptor(0x7F, short_form)).medium, Medium::kAir);
  // Cell 0x0001 at 690 MHz without and with several frequencies of a cell.
  const Bytes one = {0x04, 0x01, 0x00, 0x02, 0x06, 0x00, 0x00, 0x01, 0x04, 0x1C, 0xDB, 0x40, 0x00};
  EXPECT_EQ(read_multiplex(descriptor(0x7F, one)).frequency, 690000000u);
  const Bytes several = {0x04, 0x01, 0x00, 0x02, 0x06, 0x01, 0x00, 0x01, 0x04, 0x04, 0x1C, 0xDB, 0x40, 0x00};
  EXPECT_EQ(read_multiplex(descriptor(0x7F, several)).frequency, 690000000u);
  for (std::size_t size = 0; size < several.size() - 1; ++size) {
    const Bytes cut(several.begin(), several.begin() + static_cast<std::ptrdiff_t>(size));
    EXPECT_EQ(read_multiplex(descriptor(0x7F, cut)).frequency, 0u) << size;
  }
}

TEST(BroadcastNit, ReadsCableDelivery) {
  // 312.0000 MHz in units of 100 Hz, 6.875 million symbols per second in units of 100.
  const Nit::Multiplex cable =
      read_multiplex(descriptor(0x44, {0x03, 0x12, 0x00, 0x00, 0xFF, 0xF2, 0x03, 0x00, 0x68, 0x75, 0x03}));
  EXPECT_EQ(cable.medium, Medium::kCable);
  EXPECT_EQ(cable.frequency, 312000000u);
  EXPECT_EQ(cable.symbol_rate, 6875000u);
}

TEST(BroadcastNit, ReadsSatelliteDelivery) {
  // 11.75700 GHz, 19.2 degrees east, vertical, 27.500 million symbols per second.
  const Nit::Multiplex east =
      read_multiplex(descriptor(0x43, {0x01, 0x17, 0x57, 0x00, 0x01, 0x92, 0xA1, 0x02, 0x75, 0x00, 0x03}));
  EXPECT_EQ(east.medium, Medium::kSatellite);
  EXPECT_EQ(east.frequency, 11757u);
  EXPECT_EQ(east.orbit, 192);
  EXPECT_FALSE(east.horizontal);
  EXPECT_EQ(east.symbol_rate, 27500000u);
  const Nit::Multiplex west =
      read_multiplex(descriptor(0x43, {0x01, 0x17, 0x57, 0x00, 0x00, 0x50, 0x01, 0x02, 0x75, 0x00, 0x03}));
  EXPECT_EQ(west.orbit, -50);
  EXPECT_TRUE(west.horizontal);
  // Digits that are none.
  const Nit::Multiplex wrong = read_multiplex(descriptor(0x43, Bytes(11, 0xAB)));
  EXPECT_EQ(wrong.frequency, 0u);
  EXPECT_EQ(wrong.orbit, 0);
  EXPECT_EQ(wrong.symbol_rate, 0u);
}

TEST(BroadcastNit, ReadsChannelNumbersBehindTheirSpecifierOnly) {
  const Bytes eacem = descriptor(0x5F, {0x00, 0x00, 0x00, 0x28});
  const Bytes other = descriptor(0x5F, {0x00, 0x00, 0x00, 0x40});
  // Service 0x7085 is 1 and visible, 0x7086 is 1023 and hidden, 0x7087 has no number.
  const Bytes numbers = descriptor(0x83, {0x70, 0x85, 0xFC, 0x01, 0x70, 0x86, 0x7F, 0xFF, 0x70, 0x87, 0xFC, 0x00});
  const Nit::Multiplex multiplex = read_multiplex(join({eacem, numbers}));
  ASSERT_EQ(multiplex.numbers.size(), 2u);
  EXPECT_EQ(multiplex.numbers[0].service, 0x7085);
  EXPECT_EQ(multiplex.numbers[0].number, 1);
  EXPECT_TRUE(multiplex.numbers[0].visible);
  EXPECT_EQ(multiplex.numbers[1].service, 0x7086);
  EXPECT_EQ(multiplex.numbers[1].number, 1023);
  EXPECT_FALSE(multiplex.numbers[1].visible);
  EXPECT_TRUE(read_multiplex(numbers).numbers.empty());
  EXPECT_TRUE(read_multiplex(join({other, numbers})).numbers.empty());
  EXPECT_TRUE(read_multiplex(join({eacem, other, numbers})).numbers.empty());
  EXPECT_TRUE(read_multiplex(join({eacem, descriptor(0x83, {0x70, 0x85, 0xFC})})).numbers.empty());
  // A specifier holds within its own loop.
  const Nit table = read_as<Nit>(nit(eacem, join({two(1), two(1), bytes::loop(numbers)})));
  ASSERT_EQ(table.multiplexes.size(), 1u);
  EXPECT_TRUE(table.multiplexes[0].numbers.empty());
}

TEST(BroadcastNit, ReadsTheChannelNumbersOfOtherCountries) {
  // Service 0x7085: hidden, 1234 in 14 bits. The lower ten are 210.
  const Bytes numbers = descriptor(0x83, {0x70, 0x85, 0x44, 0xD2});
  const auto read_behind = [&](std::uint8_t high, std::uint8_t low) {
    return read_multiplex(join({descriptor(0x5F, {0x00, 0x00, high, low}), numbers})).numbers;
  };
  const auto nordig = read_behind(0x00, 0x29);
  ASSERT_EQ(nordig.size(), 1u);
  EXPECT_EQ(nordig[0].number, 1234);
  EXPECT_FALSE(nordig[0].visible);
  const auto kingdom = read_behind(0x23, 0x3A);  // it has no bit for hidden services
  ASSERT_EQ(kingdom.size(), 1u);
  EXPECT_EQ(kingdom[0].number, 210);
  EXPECT_TRUE(kingdom[0].visible);
}

// --- TDT and TOT ---

TEST(BroadcastTime, IsReadFromTdtAndTot) {
  // EN 300 468 annex C has 1993-10-13 12:45:00 as C079124500.
  const Bytes time = {0xC0, 0x79, 0x12, 0x45, 0x00};
  EXPECT_EQ(read_as<Tdt>(join({{0x70, 0x70, 0x05}, time})).utc, 750516300);
  const Bytes offset = descriptor(0x58, join({text("DEU"), {0x02, 0x01, 0x00}, time, {0x02, 0x00}}));
  const Bytes tot =
      bytes::with_crc(join({{0x73, 0x70, bytes::byte(5 + 2 + offset.size() + 4)}, time, bytes::loop(offset)}));
  EXPECT_EQ(read_as<Tdt>(tot).utc, 750516300);
  for (std::size_t bit = 0; bit < tot.size() * 8; ++bit) {
    Bytes flipped = tot;
    flipped[bit / 8] ^= static_cast<std::uint8_t>(1 << bit % 8);
    EXPECT_FALSE(table_read(flipped)) << bit;
  }
}

TEST(BroadcastTime, OfNoDayOrHourIsRefused) {
  const auto tdt = [](const Bytes& time) { return join({{0x70, 0x70, 0x05}, time}); };
  EXPECT_FALSE(table_read(tdt({0xFF, 0xFF, 0xFF, 0xFF, 0xFF})));
  EXPECT_FALSE(table_read(tdt({0xC0, 0x79, 0x24, 0x00, 0x00})));
  EXPECT_FALSE(table_read(tdt({0xC0, 0x79, 0x12, 0x60, 0x00})));
  EXPECT_FALSE(table_read(tdt({0xC0, 0x79, 0x1A, 0x00, 0x00})));
  EXPECT_FALSE(table_read(tdt({0x9E, 0x8A, 0x00, 0x00, 0x00})));  // 1969-12-31
  EXPECT_TRUE(table_read(tdt({0x9E, 0x8B, 0x00, 0x00, 0x00})));   // 1970-01-01
  EXPECT_FALSE(table_read(join({{0x70, 0x70, 0x06}, {0xC0, 0x79, 0x12, 0x45, 0x00, 0x00}})));
}

// --- All tables ---

static std::vector<Bytes> one_of_each() {
  return {bytes::pat(1, {{1, 0x100}, {2, 0x200}}),
          bytes::pmt(1, 0x101, {{0x02, 0x101}, {0x06, 0x102, descriptor(0x56, join({text("deu"), {0x09, 0x00}}))}}),
          sdt(join({{0x70, 0x85, 0xFC}, bytes::loop(service_descriptor(0x01, "ZDF", "3sat"), 0x80)})),
          nit(descriptor(0x40, text("Net")), join({two(1), two(2), bytes::loop(descriptor(0x5A, Bytes(11, 0)))}))};
}

TEST(BroadcastTables, AreRefusedWhenTheyAreCutOff) {
  std::vector<Bytes> all = one_of_each();
  all.push_back({0x70, 0x70, 0x05, 0xC0, 0x79, 0x12, 0x45, 0x00});
  for (const Bytes& section : all) {
    ASSERT_TRUE(table_read(section));
    for (std::size_t size = 0; size < section.size(); ++size)
      EXPECT_FALSE(table_read({section.data(), size})) << int{section[0]} << " of " << size;
    EXPECT_FALSE(table_read(join({section, {0xFF}})));
  }
}

// A section that is cut off, and whose length and CRC then fit: its loops are too short.
TEST(BroadcastTables, AreRefusedWhenTheirLoopsAreCutOff) {
  for (const Bytes& section : one_of_each()) {
    for (std::size_t size = 3; size + 4 < section.size(); ++size) {
      Bytes cut(section.begin(), section.begin() + static_cast<std::ptrdiff_t>(size));
      cut[2] = bytes::byte(size + 4 - 3);
      const bool is_whole_pat = section[0] == 0x00 && size >= 8 && (size - 8) % 4 == 0;
      const bool is_whole_pmt = section[0] == 0x02 && (size == 12 || size == 17);
      const bool is_whole_sdt = section[0] == 0x42 && size == 11;
      const bool is_whole = is_whole_pat || is_whole_pmt || is_whole_sdt;
      EXPECT_EQ(table_read(bytes::with_crc(cut)).has_value(), is_whole) << int{section[0]} << " of " << size;
    }
  }
}

TEST(BroadcastTables, AreRefusedForEveryFlippedBit) {
  for (const Bytes& section : one_of_each()) {
    for (std::size_t bit = 0; bit < section.size() * 8; ++bit) {
      Bytes flipped = section;
      flipped[bit / 8] ^= static_cast<std::uint8_t>(1 << bit % 8);
      EXPECT_FALSE(table_read(flipped)) << int{section[0]} << " bit " << bit;
    }
  }
}

TEST(BroadcastTables, ThatAreNotApplicableYetAreRefused) {
  EXPECT_TRUE(table_read(bytes::section({.table = 0x00, .extension = 1}, {})));
  EXPECT_FALSE(table_read(bytes::section({.table = 0x00, .extension = 1, .current = false}, {})));
}

TEST(BroadcastTables, WithWrongNumbersAreRefused) {
  EXPECT_TRUE(table_read(bytes::section({.table = 0x00, .extension = 1, .number = 3, .last = 3}, {})));
  EXPECT_FALSE(table_read(bytes::section({.table = 0x00, .extension = 1, .number = 4, .last = 3}, {})));
  // A PMT has one section.
  EXPECT_FALSE(table_read(
      bytes::section({.table = 0x02, .extension = 1, .number = 0, .last = 1}, join({{0xE1, 0x00}, bytes::loop({})}))));
}

TEST(BroadcastTables, ThatAreUnknownAreRefused) {
  for (int table = 0; table < 256; ++table) {
    const bool known = table == 0x00;  // the others need more bytes
    EXPECT_EQ(table_read(bytes::section({.table = bytes::byte(static_cast<std::size_t>(table)), .extension = 1}, {}))
                  .has_value(),
              known)
        << table;
  }
  EXPECT_FALSE(table_read({}));
}
