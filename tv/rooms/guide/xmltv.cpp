#include "rooms/guide/xmltv.h"

#include <libxml/SAX2.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <memory>
#include <system_error>

#include "base/text.h"
#include "core/sax.h"
#include "core/text.h"
#include "rooms/guide/rows.h"
#include "rooms/guide/words.h"

namespace {

enum class Inside : std::uint8_t { kNothing, kRoot, kChannel, kProgramme };

// Elements whose text is read.
enum class Field : std::uint8_t { kNone, kName, kTitle, kSummary, kDetails, kCategory, kRating, kSeries };

struct Element {
  std::string_view name;
  Inside parent;
  int depth;  // of the element; the root has 1
  Field field;
};

constexpr Element kElements[] = {
    {"display-name", Inside::kChannel, 3, Field::kName},    {"title", Inside::kProgramme, 3, Field::kTitle},
    {"sub-title", Inside::kProgramme, 3, Field::kSummary},  {"desc", Inside::kProgramme, 3, Field::kDetails},
    {"category", Inside::kProgramme, 3, Field::kCategory},  {"value", Inside::kProgramme, 4, Field::kRating},
    {"episode-num", Inside::kProgramme, 3, Field::kSeries},
};

constexpr std::size_t kLongestRaw = 4 * kLongestText;  // bytes of an element's text, before it is trimmed and cut

struct Reader {
  int file = -1;
  const std::string* language = nullptr;
  const XmltvUser* user = nullptr;
  xmlParserCtxt* context = nullptr;
  std::uint64_t bytes = 0;
  std::string error;     // of our own; the parser has others
  bool stopped = false;  // by the user
  int depth = 0;
  Inside inside = Inside::kNothing;
  bool in_rating = false;
  XmltvChannel channel;
  XmltvProgramme programme;
  Field field = Field::kNone;  // whose text is being read
  int field_depth = 0;
  std::string text;
  std::string text_language;
  bool preferred[8] = {};  // by Field: the text that was taken is in the preferred language
};

Reader& reader_of(void* context) { return *static_cast<Reader*>(context); }

void fail(Reader& reader, std::string why) {
  if (reader.error.empty()) reader.error = std::move(why);
  xmlStopParser(reader.context);
}

// The attribute's value; empty if it is not given.
std::string attribute(std::string_view name, int count, const xmlChar** attributes) {
  return clean_text(xml_attribute(name, count, attributes), kLongestXmltvName, Lines::kMany);
}

std::string_view trimmed(std::string_view text) {
  constexpr std::string_view kBlank = " \t\r\n";
  text.remove_prefix(std::min(text.find_first_not_of(kBlank), text.size()));
  return text.substr(0, text.find_last_not_of(kBlank) + 1);
}

// Takes the text if there is none yet, or if it is the first in the preferred language.
void take(Reader& reader, std::string& place, std::size_t longest) {
  bool& preferred = reader.preferred[static_cast<int>(reader.field)];
  const bool prefers = same_language(reader.text_language, *reader.language);
  if (!place.empty() && (preferred || !prefers)) return;
  place = clean_text(trimmed(reader.text), longest, Lines::kMany);
  preferred = prefers;
}

void end_field(Reader& reader) {
  XmltvProgramme& programme = reader.programme;
  const std::string_view text = trimmed(reader.text);
  switch (reader.field) {
    case Field::kName:
      if (reader.channel.names.size() < kMostXmltvNames)
        reader.channel.names.push_back(clean_text(text, kLongestXmltvName, Lines::kMany));
      break;
    case Field::kTitle:
      take(reader, programme.title, kLongestEventTitle);
      break;
    case Field::kSummary:
      take(reader, programme.summary, kLongestText);
      break;
    case Field::kDetails:
      take(reader, programme.details, kLongestText);
      break;
    case Field::kCategory:
      if (const std::uint8_t category = category_of(text); programme.categories.size() < kMostEventCategories)
        programme.categories.push_back(category);
      break;
    case Field::kRating:
      if (programme.age == 0) programme.age = age_of(text);
      break;
    case Field::kSeries:
      programme.series = clean_text(text.substr(0, text.find('.')), kLongestXmltvName, Lines::kMany);
      break;
    case Field::kNone:
      break;
  }
  reader.field = Field::kNone;
}

void begin_programme(Reader& reader, int count, const xmlChar** attributes) {
  reader.inside = Inside::kProgramme;
  std::ranges::fill(reader.preferred, false);
  reader.programme = {.line = xmlSAX2GetLineNumber(reader.context),
                      .channel = attribute("channel", count, attributes),
                      .start = attribute("start", count, attributes),
                      .stop = attribute("stop", count, attributes)};
}

void on_start(void* context, const xmlChar* name, const xmlChar*, const xmlChar*, int, const xmlChar**, int count, int,
              const xmlChar** attributes) {
  Reader& reader = reader_of(context);
  const std::string_view element = xml_view(name);
  ++reader.depth;
  if (reader.depth == 1) {
    if (element != "tv") return fail(reader, "the file's root element is not tv, so it is not XMLTV");
    reader.inside = Inside::kRoot;
  } else if (reader.depth == 2 && element == "channel") {
    reader.inside = Inside::kChannel;
    reader.channel = {.id = attribute("id", count, attributes)};
  } else if (reader.depth == 2 && element == "programme") {
    begin_programme(reader, count, attributes);
  }
  if (reader.depth < 3) return;
  if (reader.depth == 3) {
    reader.in_rating = element == "rating";
    if (element == "subtitles") reader.programme.captions = true;
  }
  const auto* const found = std::ranges::find_if(kElements, [&](const Element& each) {
    return each.parent == reader.inside && each.depth == reader.depth && each.name == element;
  });
  if (found == std::end(kElements) || reader.field != Field::kNone) return;
  if (found->field == Field::kRating && !reader.in_rating) return;
  if (found->field == Field::kSeries && attribute("system", count, attributes) != "dd_progid") return;
  reader.field = found->field;
  reader.field_depth = reader.depth;
  reader.text.clear();
  reader.text_language = attribute("lang", count, attributes);
}

void on_end(void* context, const xmlChar*, const xmlChar*, const xmlChar*) {
  Reader& reader = reader_of(context);
  if (reader.field != Field::kNone && reader.depth == reader.field_depth) end_field(reader);
  if (reader.depth == 2) {
    const Inside ended = reader.inside;
    reader.inside = Inside::kRoot;
    if (ended == Inside::kChannel) reader.user->channel(reader.channel);
    if (ended == Inside::kProgramme && !reader.user->programme(reader.programme)) {
      reader.stopped = true;
      xmlStopParser(reader.context);
    }
  }
  --reader.depth;
}

void on_text(void* context, const xmlChar* text, int length) {
  Reader& reader = reader_of(context);
  if (reader.field == Field::kNone || reader.text.size() >= kLongestRaw) return;
  const std::size_t room = kLongestRaw - reader.text.size();
  reader.text.append(reinterpret_cast<const char*>(text),
                     std::min<std::size_t>(static_cast<std::size_t>(length), room));
}

// Nested entities can expand a short file to a text of any length.
void on_entity(void* context, const xmlChar*, int, const xmlChar*, const xmlChar*, xmlChar*) {
  Reader& reader = reader_of(context);
  fail(reader, "line " + std::to_string(xmlSAX2GetLineNumber(reader.context)) +
                   ": the file declares an entity; that is not accepted, since entities can make a text of any length");
}

// The first error tells most: those after it follow from it.
void on_error(void* context, xmlError* error) {
  Reader& reader = reader_of(context);
  if (error->level != XML_ERR_FATAL || !reader.error.empty()) return;
  const std::string_view message = error->message == nullptr ? "" : error->message;
  reader.error =
      "line " + std::to_string(error->line) + ": " + clean_text(trimmed(message), kLongestEventTitle, Lines::kMany);
}

int read_file(void* context, char* buffer, int size) {
  Reader& reader = reader_of(context);
  if (reader.stopped) return -1;
  ssize_t got = 0;
  do got = ::read(reader.file, buffer, static_cast<std::size_t>(size));
  while (got < 0 && errno == EINTR);
  if (got < 0) {
    fail(reader, "the file cannot be read: " + std::generic_category().message(errno));
    return -1;
  }
  reader.bytes += static_cast<std::uint64_t>(got);
  if (!reader.user->read(reader.bytes)) {
    reader.stopped = true;
    return -1;
  }
  return static_cast<int>(got);
}

int close_nothing(void*) { return 0; }  // the file is the caller's

}  // namespace

XmltvEnd xmltv_read(int file, const std::string& language, const XmltvUser& user, std::string& ret_error) {
  Reader reader;
  reader.file = file;
  reader.language = &language;
  reader.user = &user;
  xmlSAXHandler handler{};
  handler.initialized = XML_SAX2_MAGIC;
  handler.startElementNs = on_start;
  handler.endElementNs = on_end;
  handler.characters = on_text;
  handler.cdataBlock = on_text;
  handler.entityDecl = on_entity;
  handler.serror = on_error;
  xmlInitParser();
  const std::unique_ptr<xmlParserCtxt, XmlParserEnd> context(
      xmlCreateIOParserCtxt(&handler, &reader, read_file, close_nothing, &reader, XML_CHAR_ENCODING_NONE));
  if (context == nullptr) {
    if (reader.stopped) return XmltvEnd::kStopped;
    ret_error = "the file cannot be read, or there is not enough memory";
    return XmltvEnd::kFailed;
  }
  reader.context = context.get();
  xmlCtxtUseOptions(context.get(), XML_PARSE_NONET | XML_PARSE_NOERROR | XML_PARSE_NOWARNING);
  const int result = xmlParseDocument(context.get());
  if (reader.stopped) return XmltvEnd::kStopped;
  if (reader.error.empty() && result == 0 && context->wellFormed != 0) return XmltvEnd::kWhole;
  if (reader.error.empty()) reader.error = "the file is not well-formed XML";
  ret_error = reader.error;
  return XmltvEnd::kFailed;
}

std::optional<std::int64_t> xmltv_time(std::string_view text) {
  text = trimmed(text);
  const std::string_view digits = text.substr(0, text.find_first_not_of("0123456789"));
  if (digits.size() != 12 && digits.size() != 14) return std::nullopt;
  const auto number = [&](std::size_t at, std::size_t length) {
    return parse_number<int>(digits.substr(at, length)).value_or(0);
  };
  const int hour = number(8, 2), minute = number(10, 2), second = digits.size() == 14 ? number(12, 2) : 0;
  using namespace std::chrono;
  const year_month_day date{year{number(0, 4)}, month{static_cast<unsigned>(number(4, 2))},
                            day{static_cast<unsigned>(number(6, 2))}};
  if (!date.ok() || hour > 23 || minute > 59 || second > 60) return std::nullopt;  // 60: a leap second
  std::int64_t offset = 0;
  const std::string_view zone = trimmed(text.substr(digits.size()));
  if (!zone.empty() && zone != "Z" && zone != "UTC" && zone != "GMT") {
    if (zone.size() != 5 || (zone[0] != '+' && zone[0] != '-')) return std::nullopt;
    const auto hours = parse_number_within<unsigned>(zone.substr(1, 2), 0, 23);
    const auto minutes = parse_number_within<unsigned>(zone.substr(3, 2), 0, 59);
    if (!hours || !minutes) return std::nullopt;
    offset = (zone[0] == '-' ? -1 : 1) * static_cast<std::int64_t>(*hours * 3600 + *minutes * 60);
  }
  const std::int64_t days = sys_days{date}.time_since_epoch().count();
  return days * 86400 + hour * 3600 + minute * 60 + second - offset;
}
