#include "broadcast/tables.h"

#include <bitstream/dvb/si.h>
#include <bitstream/mpeg/psi.h>

#include <algorithm>
#include <array>
#include <limits>
#include <string_view>

#include "broadcast/text.h"

static constexpr std::size_t kMostPsiLength = PSI_MAX_SIZE;          // section_length of PAT, PMT, SDT and NIT
static constexpr std::size_t kMostEitLength = PSI_PRIVATE_MAX_SIZE;  // of EIT
// Of an event; what comes beyond is left out. A section of 4,096 bytes has room for more of each.
static constexpr std::size_t kMostTexts = 16;
static constexpr std::size_t kMostCategories = 32;
static constexpr std::size_t kMostRatings = 32;
static constexpr std::size_t kMostExtended = 64;    // extended event descriptors
static constexpr std::size_t kMostDetails = 16384;  // bytes
// The private data specifiers under which 0x83 has logical channel numbers: of EACEM, NorDig and the United Kingdom.
// All three have the same fields, except that NorDig's number has 14 bits and the others' has 10.
static constexpr std::uint32_t kEacem = 0x00000028;
static constexpr std::uint32_t kNordig = 0x00000029;
static constexpr std::uint32_t kUnitedKingdom = 0x0000233A;
static constexpr std::uint16_t kLeastProgramPid = 0x0010;
static constexpr std::uint16_t kNoPid = 0x1FFF;
static constexpr int kMjdOf1970 = 40587;

// biTStream's getters take sections that they could change; the section is a copy.
using Section = std::vector<std::uint8_t>;

// Calls f(tag, descriptor) for each descriptor of a validated loop; `descriptors` points to the loop's length.
template <typename F>
static void each_descriptor(std::uint8_t* descriptors, F f) {
  std::uint8_t* next = descriptors + DESCS_HEADER_SIZE;
  std::uint8_t* const end = next + descs_get_length(descriptors);
  for (; next < end; next += DESC_HEADER_SIZE + desc_get_length(next)) f(desc_get_tag(next), next);
}

// Calls f(entry) for the entries of a validated loop, each with `header` bytes of which the last two are the length of
// its descriptors. The library's own getters by index count in eight bits, and an EIT can have more events.
template <typename F>
static void each_entry(std::uint8_t* first, const std::uint8_t* end, std::size_t header, F f) {
  for (std::uint8_t* entry = first; entry < end; entry += header + descs_get_length(entry + header - 2)) f(entry);
}

static std::uint8_t* end_of(Section& section) { return section.data() + section.size() - PSI_CRC_SIZE; }

static bool is_letter(char c) { return c >= 'a' && c <= 'z'; }

static std::string code_lower(const std::uint8_t* code) {
  std::string text(3, ' ');
  std::transform(code, code + 3, text.begin(),
                 [](std::uint8_t c) { return static_cast<char>(c >= 'A' && c <= 'Z' ? c | 0x20 : c); });
  return std::all_of(text.begin(), text.end(), is_letter) ? text : "";
}

static std::string code_upper(const std::uint8_t* code) {
  std::string text = code_lower(code);
  for (char& c : text) c = static_cast<char>(c - 0x20);
  return text;
}

// The number in binary-coded decimal digits; nothing if a digit is above 9.
static std::optional<std::uint64_t> decimal(const std::uint8_t* bytes, std::size_t digits) {
  std::uint64_t number = 0;
  for (std::size_t i = 0; i < digits; ++i) {
    const unsigned digit = i % 2 == 0 ? bytes[i / 2] >> 4U : bytes[i / 2] & 0x0FU;
    if (digit > 9) return std::nullopt;
    number = number * 10 + digit;
  }
  return number;
}

static std::uint32_t fitting(std::uint64_t number) {
  return number > std::numeric_limits<std::uint32_t>::max() ? 0 : static_cast<std::uint32_t>(number);
}

// Seconds of a time of day or a duration in six digits.
static std::optional<std::uint32_t> seconds_of(const std::uint8_t* bytes) {
  const auto hours = decimal(bytes, 2);
  const auto minutes = decimal(bytes + 1, 2);
  const auto seconds = decimal(bytes + 2, 2);
  if (!hours || !minutes || !seconds || *minutes > 59 || *seconds > 59) return std::nullopt;
  return static_cast<std::uint32_t>(*hours * 3600 + *minutes * 60 + *seconds);
}

// Five bytes: the modified Julian day and the time of day. Nothing for "not defined" and for a time before 1970.
static std::optional<std::int64_t> utc_of(const std::uint8_t* bytes) {
  static constexpr std::uint32_t kDay = 86400;
  const int day = bytes[0] << 8 | bytes[1];
  const auto time = seconds_of(bytes + 2);
  if (!time || *time >= kDay || day < kMjdOf1970) return std::nullopt;
  return std::int64_t{day - kMjdOf1970} * kDay + *time;
}

static bool has_good_numbers(const Section& section, std::size_t most_length) {
  return section.size() - PSI_HEADER_SIZE <= most_length && psi_get_current(section.data()) &&
         psi_get_section(section.data()) <= psi_get_lastsection(section.data());
}

// --- PAT ---

static std::optional<Table> read_pat(Section& section) {
  std::uint8_t* const pat = section.data();
  if (!pat_validate(pat)) return std::nullopt;
  Pat table{.stream = pat_get_tsid(pat),
            .version = psi_get_version(pat),
            .section = psi_get_section(pat),
            .last_section = psi_get_lastsection(pat),
            .programs = {}};
  for (const std::uint8_t* entry = pat + PAT_HEADER_SIZE; entry < end_of(section); entry += PAT_PROGRAM_SIZE) {
    const Pat::Program program{.service = patn_get_program(entry), .pid = patn_get_pid(entry)};
    if (program.service != 0 && program.pid >= kLeastProgramPid && program.pid < kNoPid)
      table.programs.push_back(program);
  }
  return table;
}

// --- PMT ---

namespace {

struct Codec {
  StreamKind kind;
  const char* name;
};

struct CodecRow {
  std::uint8_t code;  // stream_type, or the descriptor's tag
  Codec codec;
};

}  // namespace

static constexpr CodecRow kStreamTypes[] = {
    {0x01, {StreamKind::kVideo, "mpeg1video"}}, {0x02, {StreamKind::kVideo, "mpeg2video"}},
    {0x03, {StreamKind::kAudio, "mp2"}},        {0x04, {StreamKind::kAudio, "mp2"}},
    {0x0F, {StreamKind::kAudio, "aac"}},        {0x10, {StreamKind::kVideo, "mpeg4"}},
    {0x11, {StreamKind::kAudio, "aac"}},        {0x1B, {StreamKind::kVideo, "h264"}},
    {0x24, {StreamKind::kVideo, "hevc"}},       {0x81, {StreamKind::kAudio, "ac3"}},
    {0x87, {StreamKind::kAudio, "eac3"}},
};

// Of streams of stream type 6, which is private data.
static constexpr CodecRow kPrivateTags[] = {
    {0x56, {StreamKind::kTeletext, "teletext"}}, {0x59, {StreamKind::kSubtitle, "dvb_subtitle"}},
    {0x6A, {StreamKind::kAudio, "ac3"}},         {0x7A, {StreamKind::kAudio, "eac3"}},
    {0x7C, {StreamKind::kAudio, "aac"}},
};

template <std::size_t N>
static void set_codec(const CodecRow (&rows)[N], std::uint8_t code, Pmt::Stream& stream) {
  for (const CodecRow& row : rows) {
    if (row.code != code) continue;
    stream.kind = row.codec.kind;
    stream.codec = row.codec.name;
  }
}

static bool is_impaired_ac3(std::uint8_t component_type) {
  const int service = component_type >> 3 & 7;  // 2: for the visually impaired, 3: for the hard of hearing
  return service == 2 || service == 3;
}

static bool is_impaired_aac(std::uint8_t type) {
  static constexpr std::uint8_t kTypes[] = {0x40, 0x41, 0x44, 0x45, 0x47, 0x48, 0x49, 0x4A};
  return std::find(std::begin(kTypes), std::end(kTypes), type) != std::end(kTypes);
}

// Subtitles for the hard of hearing have the numbers of the others plus 16.
static bool is_subtitle(std::uint8_t type) { return type >= 0x10 && type <= 0x16; }
static bool is_impaired_subtitle(std::uint8_t type) { return type >= 0x20 && type <= 0x26; }

static void set_language(const std::uint8_t* code, Pmt::Stream& stream) {
  if (stream.language.empty()) stream.language = code_lower(code);
}

// The extension for supplementary audio: who it is for, and its language.
static void read_supplementary_audio(const std::uint8_t* descriptor, Pmt::Stream& stream) {
  static constexpr std::uint8_t kSupplementaryAudio = 0x06;
  const std::uint8_t length = desc_get_length(descriptor);
  if (length < 2 || descriptor[2] != kSupplementaryAudio) return;
  const int editorial = descriptor[3] >> 2 & 0x1F;  // 1 audio description, 2 clean audio, 3 spoken subtitles
  if (editorial >= 1 && editorial <= 3) stream.impaired = true;
  if ((descriptor[3] & 1) != 0 && length >= 5) set_language(descriptor + 4, stream);
}

static void read_stream_descriptor(std::uint8_t tag, std::uint8_t* descriptor, Pmt& table, Pmt::Stream& stream) {
  const bool is_private = stream.type == PMT_STREAMTYPE_PRIVATE_PES;
  bool valid = true;
  switch (tag) {
    case 0x09:
      if (desc09_validate(descriptor)) table.scrambled = true;
      return;
    case 0x0A:
      if (!desc0a_validate(descriptor)) return;
      for (std::uint8_t i = 0; const std::uint8_t* language = desc0a_get_language(descriptor, i); ++i) {
        const std::uint8_t type = desc0an_get_audiotype(language);
        if (type == DESC0A_TYPE_HEARING_IMP || type == DESC0A_TYPE_VISUAL_IMP) stream.impaired = true;
        set_language(desc0an_get_code(language), stream);
      }
      return;
    case 0x56:
      valid = desc56_validate(descriptor);
      for (std::uint8_t i = 0; valid; ++i) {
        const std::uint8_t* const page = desc56_get_language(descriptor, i);
        if (!page) break;
        if (desc56n_get_teletexttype(page) == DESC56_TELETEXTTYPE_SUBTITLE_H) stream.impaired = true;
        set_language(desc56n_get_code(page), stream);
      }
      break;
    case 0x59:
      valid = desc59_validate(descriptor);
      for (std::uint8_t i = 0; valid; ++i) {
        const std::uint8_t* const page = desc59_get_language(descriptor, i);
        if (!page) break;
        if (is_impaired_subtitle(desc59n_get_subtitlingtype(page))) stream.impaired = true;
        set_language(desc59n_get_code(page), stream);
      }
      break;
    case 0x6A:
      valid = desc_get_length(descriptor) > 0 && desc6a_validate(descriptor);
      if (valid && is_impaired_ac3(desc6a_get_component_type(descriptor))) stream.impaired = true;
      break;
    case 0x7A:
      valid = desc_get_length(descriptor) > 0 && desc7a_validate(descriptor);
      if (valid && is_impaired_ac3(desc7a_get_component_type(descriptor))) stream.impaired = true;
      break;
    case 0x7C:
      valid = desc7c_validate(descriptor);
      if (valid && is_impaired_aac(desc7c_get_aac_type(descriptor))) stream.impaired = true;
      break;
    case 0x7F:
      read_supplementary_audio(descriptor, stream);
      return;
    default:
      return;
  }
  if (valid && is_private && stream.kind == StreamKind::kOther) set_codec(kPrivateTags, tag, stream);
}

static std::optional<Table> read_pmt(Section& section) {
  std::uint8_t* const pmt = section.data();
  if (!pmt_validate(pmt)) return std::nullopt;
  Pmt table{.service = pmt_get_program(pmt),
            .version = psi_get_version(pmt),
            .pcr_pid = pmt_get_pcrpid(pmt),
            .scrambled = false,
            .streams = {}};
  each_descriptor(pmt_get_descs(pmt), [&](std::uint8_t tag, const std::uint8_t* descriptor) {
    if (tag == 0x09 && desc09_validate(descriptor)) table.scrambled = true;
  });
  std::uint8_t* const first = pmt + PMT_HEADER_SIZE + pmt_get_desclength(pmt);
  each_entry(first, end_of(section), PMT_ES_SIZE, [&](std::uint8_t* entry) {
    Pmt::Stream stream{.type = pmtn_get_streamtype(entry), .pid = pmtn_get_pid(entry)};
    set_codec(kStreamTypes, stream.type, stream);
    each_descriptor(pmtn_get_descs(entry), [&](std::uint8_t tag, std::uint8_t* descriptor) {
      read_stream_descriptor(tag, descriptor, table, stream);
    });
    table.streams.push_back(std::move(stream));
  });
  return table;
}

// --- SDT ---

static std::optional<Table> read_sdt(Section& section) {
  std::uint8_t* const sdt = section.data();
  if (!sdt_validate(sdt)) return std::nullopt;
  Sdt table{.actual = psi_get_tableid(sdt) == SDT_TABLE_ID_ACTUAL,
            .network = sdt_get_onid(sdt),
            .stream = sdt_get_tsid(sdt),
            .version = psi_get_version(sdt),
            .section = psi_get_section(sdt),
            .last_section = psi_get_lastsection(sdt),
            .services = {}};
  each_entry(sdt + SDT_HEADER_SIZE, end_of(section), SDT_SERVICE_SIZE, [&](std::uint8_t* entry) {
    Sdt::Service service{.service = sdtn_get_sid(entry), .scrambled = sdtn_get_ca(entry)};
    each_descriptor(sdtn_get_descs(entry), [&](std::uint8_t tag, const std::uint8_t* descriptor) {
      if (tag != 0x48 || !desc48_validate(descriptor)) return;
      std::uint8_t length = 0;
      const std::uint8_t* const provider = desc48_get_provider(descriptor, &length);
      service.provider = text_from_broadcast({provider, length});
      const std::uint8_t* const name = desc48_get_service(descriptor, &length);
      service.name = text_from_broadcast({name, length});
      service.short_name = text_emphasized({name, length});
      service.type = desc48_get_type(descriptor);
    });
    table.services.push_back(std::move(service));
  });
  return table;
}

// --- NIT ---

// The extension for DVB-T2: the frequency of the first cell.
static void read_t2(const std::uint8_t* descriptor, Nit::Multiplex& multiplex) {
  static constexpr std::uint8_t kT2 = 0x04;
  const std::uint8_t length = desc_get_length(descriptor);
  if (length < 4 || descriptor[2] != kT2) return;
  multiplex.medium = Medium::kAir;
  if (length < 6) return;
  const bool has_several = (descriptor[7] & 1) != 0;  // frequencies of a cell: tfs_flag
  const std::size_t at = DESC_HEADER_SIZE + 8U + (has_several ? 1 : 0);
  if (DESC_HEADER_SIZE + std::size_t{length} < at + 4 || (has_several && descriptor[at - 1] < 4)) return;
  const std::uint64_t tens_of_hertz = std::uint64_t{descriptor[at]} << 24 | std::uint64_t{descriptor[at + 1]} << 16 |
                                      std::uint64_t{descriptor[at + 2]} << 8 | descriptor[at + 3];
  multiplex.frequency = fitting(tens_of_hertz * 10);
}

static void read_cable_or_satellite(std::uint8_t tag, const std::uint8_t* descriptor, Nit::Multiplex& multiplex) {
  static constexpr std::size_t kFrequency = 2;
  static constexpr std::size_t kOrbit = 6;
  static constexpr std::size_t kSymbolRate = 9;
  const std::uint64_t frequency = decimal(descriptor + kFrequency, 8).value_or(0);
  multiplex.symbol_rate = fitting(decimal(descriptor + kSymbolRate, 7).value_or(0) * 100);
  if (tag == 0x44) {
    multiplex.medium = Medium::kCable;
    multiplex.frequency = fitting(frequency * 100);  // in 100 Hz
    return;
  }
  multiplex.medium = Medium::kSatellite;
  multiplex.frequency = fitting(frequency / 100);  // in 10 kHz
  const auto orbit = static_cast<std::int16_t>(decimal(descriptor + kOrbit, 4).value_or(0));
  multiplex.orbit = desc43_get_east(descriptor) ? orbit : static_cast<std::int16_t>(-orbit);
  multiplex.horizontal = desc43_get_polarization(descriptor) == 0;
}

static void read_numbers(std::uint8_t* descriptor, std::uint32_t specifier, Nit::Multiplex& multiplex) {
  if (!desc83p28_validate(descriptor)) return;
  for (std::uint8_t i = 0; const std::uint8_t* service = desc83p28_get_service(descriptor, i); ++i) {
    const auto wide = static_cast<std::uint16_t>((service[2] & 0x3F) << 8 | service[3]);
    const Nit::Number number{.service = desc83p28n_get_sid(service),
                             .number = specifier == kNordig ? wide : desc83p28n_get_lcn(service),
                             .visible = specifier == kUnitedKingdom || desc83p28n_get_visible(service)};
    if (number.number != 0) multiplex.numbers.push_back(number);
  }
}

static void read_multiplex_descriptor(std::uint8_t tag, std::uint8_t* descriptor, std::uint32_t specifier,
                                      Nit::Multiplex& multiplex) {
  switch (tag) {
    case 0x5A:
      if (!desc5a_validate(descriptor)) return;
      multiplex.medium = Medium::kAir;
      multiplex.frequency = fitting(desc5a_get_frequency(descriptor));
      return;
    case 0x7F:
      read_t2(descriptor, multiplex);
      return;
    case 0x43:
    case 0x44:
      if (desc43_validate(descriptor)) read_cable_or_satellite(tag, descriptor, multiplex);
      return;
    case 0x83:
      if (specifier == kEacem || specifier == kNordig || specifier == kUnitedKingdom)
        read_numbers(descriptor, specifier, multiplex);
      return;
    default:
      return;
  }
}

static std::optional<Table> read_nit(Section& section) {
  std::uint8_t* const nit = section.data();
  if (!nit_validate(nit)) return std::nullopt;
  Nit table{.actual = psi_get_tableid(nit) == NIT_TABLE_ID_ACTUAL,
            .network_id = psi_get_tableidext(nit),
            .version = psi_get_version(nit),
            .section = psi_get_section(nit),
            .last_section = psi_get_lastsection(nit),
            .name = {},
            .multiplexes = {}};
  each_descriptor(nit_get_descs(nit), [&](std::uint8_t tag, const std::uint8_t* descriptor) {
    if (tag != 0x40) return;
    std::uint8_t length = 0;
    const std::uint8_t* const name = desc40_get_networkname(descriptor, &length);
    table.name = text_from_broadcast({name, length});
  });
  std::uint8_t* const first = nit_get_header2(nit) + NIT_HEADER2_SIZE;
  each_entry(first, end_of(section), NIT_TS_SIZE, [&](std::uint8_t* entry) {
    Nit::Multiplex multiplex{.network = nitn_get_onid(entry), .stream = nitn_get_tsid(entry)};
    std::uint32_t specifier = 0;
    each_descriptor(nitn_get_descs(entry), [&](std::uint8_t tag, std::uint8_t* descriptor) {
      if (tag == 0x5F && desc5f_validate(descriptor))
        specifier = desc5f_get_specifier(descriptor);
      else
        read_multiplex_descriptor(tag, descriptor, specifier, multiplex);
    });
    table.multiplexes.push_back(std::move(multiplex));
  });
  return table;
}

// --- EIT ---

static Eit::Text* text_in(Eit::Event& event, const std::string& language) {
  for (Eit::Text& text : event.texts)
    if (text.language == language) return &text;
  if (event.texts.size() >= kMostTexts) return nullptr;
  return &event.texts.emplace_back(Eit::Text{.language = language});
}

static void append_details(std::string& details, std::string_view text) {
  if (text.size() <= kMostDetails - std::min(kMostDetails, details.size())) details += text;
}

// Joins the extended descriptions of one language, sorted by number: the texts, then the items as lines. An item
// without a description goes on with the item before it.
static std::string join_extended(const std::vector<std::uint8_t*>& parts) {
  std::string details;
  std::string items;
  for (std::uint8_t* const part : parts) {
    std::uint8_t length = 0;
    const std::uint8_t* const text = desc4e_get_text(part, &length);
    append_details(details, text_from_broadcast({text, length}));
    for (std::uint8_t i = 0; i < 128; ++i) {  // an item has two bytes at least
      const std::uint8_t* const item = desc4e_get_item(part, i);
      if (!item) break;
      const std::uint8_t* const what = desc4en_get_item_description(item, &length);
      const std::string name = text_from_broadcast({what, length});
      const std::uint8_t* const said = desc4en_get_item_text(item, &length);
      if (!name.empty()) append_details(items, (items.empty() ? "" : "\n") + name + ": ");
      append_details(items, text_from_broadcast({said, length}));
    }
  }
  if (!details.empty() && !items.empty()) details += '\n';
  append_details(details, items);
  return details;
}

static void read_extended(std::vector<std::uint8_t*>& parts, Eit::Event& event) {
  std::stable_sort(parts.begin(), parts.end(), [](std::uint8_t* a, std::uint8_t* b) {
    return desc4e_get_desc_number(a) < desc4e_get_desc_number(b);
  });
  while (!parts.empty()) {
    const std::string language = code_lower(desc4e_get_lang(parts.front()));
    const auto others = std::stable_partition(parts.begin(), parts.end(), [&](const std::uint8_t* part) {
      return code_lower(desc4e_get_lang(part)) == language;
    });
    if (Eit::Text* const text = text_in(event, language)) text->details = join_extended({parts.begin(), others});
    parts.erase(parts.begin(), others);
  }
}

static void read_short(const std::uint8_t* descriptor, Eit::Event& event) {
  Eit::Text* const text = text_in(event, code_lower(desc4d_get_lang(descriptor)));
  if (!text) return;
  std::uint8_t length = 0;
  const std::uint8_t* const title = desc4d_get_event_name(descriptor, &length);
  text->title = text_from_broadcast({title, length});
  const std::uint8_t* const summary = desc4d_get_text(descriptor, &length);
  text->summary = text_from_broadcast({summary, length});
}

static void read_ratings(std::uint8_t* descriptor, Eit::Event& event) {
  static constexpr std::uint8_t kMostRating = 0x0F;  // above: the broadcaster's own
  for (std::uint8_t i = 0; std::uint8_t* rating = desc55_get_rating(descriptor, i); ++i) {
    const std::uint8_t value = desc55n_get_rating(rating);
    if (value == 0 || value > kMostRating || event.ratings.size() >= kMostRatings) continue;
    event.ratings.push_back(
        {.country = code_upper(desc55n_get_country_code(rating)), .age = static_cast<std::uint8_t>(value + 3)});
  }
}

static bool announces_subtitles(const std::uint8_t* component) {
  static constexpr std::uint8_t kSubtitles = 0x03;       // stream_content
  static constexpr std::uint8_t kTeletextSubtitles = 1;  // component_type
  const std::uint8_t type = desc50_get_component_type(component);
  return desc50_get_stream_content(component) == kSubtitles &&
         (type == kTeletextSubtitles || is_subtitle(type) || is_impaired_subtitle(type));
}

static Eit::Event read_event(std::uint8_t* entry) {
  Eit::Event event{.id = eitn_get_event_id(entry),
                   .start = utc_of(entry + 2).value_or(0),
                   .duration = seconds_of(entry + 7).value_or(0),
                   .running = eitn_get_running(entry),
                   .scrambled = eitn_get_ca(entry)};
  std::vector<std::uint8_t*> extended;
  each_descriptor(eitn_get_descs(entry), [&](std::uint8_t tag, std::uint8_t* descriptor) {
    if (tag == 0x4D && desc4d_validate(descriptor)) read_short(descriptor, event);
    if (tag == 0x4E && desc4e_validate(descriptor) && extended.size() < kMostExtended) extended.push_back(descriptor);
    if (tag == 0x50 && desc50_validate(descriptor) && announces_subtitles(descriptor)) event.captions = true;
    if (tag == 0x55 && desc55_validate(descriptor)) read_ratings(descriptor, event);
    if (tag == 0x54 && desc54_validate(descriptor)) {
      for (std::uint8_t i = 0; const std::uint8_t* content = desc54_get_content(descriptor, i); ++i)
        if (event.categories.size() < kMostCategories) event.categories.push_back(content[0]);
    }
  });
  read_extended(extended, event);
  return event;
}

static std::optional<Table> read_eit(Section& section) {
  std::uint8_t* const eit = section.data();
  if (section.size() < EIT_HEADER_SIZE + PSI_CRC_SIZE || !eit_validate(eit)) return std::nullopt;
  Eit table{.table = psi_get_tableid(eit),
            .key = {.network = eit_get_onid(eit), .stream = eit_get_tsid(eit), .service = eit_get_sid(eit)},
            .version = psi_get_version(eit),
            .section = psi_get_section(eit),
            .last_section = psi_get_lastsection(eit),
            .events = {}};
  each_entry(eit + EIT_HEADER_SIZE, end_of(section), EIT_EVENT_SIZE,
             [&](std::uint8_t* entry) { table.events.push_back(read_event(entry)); });
  return table;
}

// --- TDT and TOT ---

static std::optional<Table> read_time(const Section& section) {
  static constexpr std::size_t kTime = PSI_HEADER_SIZE;
  const std::uint8_t* const bytes = section.data();
  if (psi_get_tableid(bytes) == TDT_TABLE_ID) {
    if (section.size() != TDT_HEADER_SIZE || !tdt_validate(bytes)) return std::nullopt;
  } else {
    if (!tot_validate(bytes)) return std::nullopt;
    if (section.size() != TOT_HEADER_SIZE + PSI_CRC_SIZE + std::size_t{tot_get_desclength(bytes)}) return std::nullopt;
  }
  const auto utc = utc_of(bytes + kTime);
  return utc ? std::optional<Table>(Tdt{.utc = *utc}) : std::nullopt;
}

std::optional<Table> table_read(std::span<const std::uint8_t> bytes) {
  if (bytes.size() < PSI_HEADER_SIZE || bytes.size() != PSI_HEADER_SIZE + std::size_t{psi_get_length(bytes.data())})
    return std::nullopt;
  Section section(bytes.begin(), bytes.end());
  const std::uint8_t table = psi_get_tableid(section.data());
  if (table == TDT_TABLE_ID || table == TOT_TABLE_ID) return read_time(section);
  const bool is_eit = table >= EIT_TABLE_ID_PF_ACTUAL && table <= EIT_TABLE_ID_SCHED_OTHER_LAST;
  if (!psi_get_syntax(section.data()) || !psi_validate(section.data()) || !psi_check_crc(section.data()) ||
      !has_good_numbers(section, is_eit ? kMostEitLength : kMostPsiLength))
    return std::nullopt;
  if (is_eit) return read_eit(section);
  switch (table) {
    case PAT_TABLE_ID:
      return read_pat(section);
    case PMT_TABLE_ID:
      return read_pmt(section);
    case SDT_TABLE_ID_ACTUAL:
    case SDT_TABLE_ID_OTHER:
      return read_sdt(section);
    case NIT_TABLE_ID_ACTUAL:
    case NIT_TABLE_ID_OTHER:
      return read_nit(section);
    default:
      return std::nullopt;
  }
}
