#include "rooms/renderer/xml.h"

#include <memory>
#include <vector>

#include "base/text.h"
#include "core/sax.h"

namespace {

struct Reader {
  const XmlUser* user;
  xmlParserCtxt* context = nullptr;
  bool failed = false;
  std::vector<std::string> texts = {};  // of the open elements
};

Reader& reader_of(void* context) { return *static_cast<Reader*>(context); }

void fail(Reader& reader) {
  reader.failed = true;
  xmlStopParser(reader.context);
}

void on_start(void* context, const xmlChar* name, const xmlChar*, const xmlChar*, int, const xmlChar**, int count, int,
              const xmlChar** attributes) {
  Reader& reader = reader_of(context);
  if (reader.failed) return;
  reader.texts.emplace_back();
  if (reader.texts.size() > kDeepestXml) return fail(reader);
  reader.user->begin(static_cast<int>(reader.texts.size()), xml_view(name),
                     [&](std::string_view wanted) { return xml_attribute(wanted, count, attributes); });
}

void on_end(void* context, const xmlChar* name, const xmlChar*, const xmlChar*) {
  Reader& reader = reader_of(context);
  if (reader.failed || reader.texts.empty()) return;
  const std::string text = std::move(reader.texts.back());
  reader.user->end(static_cast<int>(reader.texts.size()), xml_view(name), text);
  reader.texts.pop_back();
}

void on_text(void* context, const xmlChar* text, int length) {
  Reader& reader = reader_of(context);
  if (!reader.failed && !reader.texts.empty())
    reader.texts.back().append(reinterpret_cast<const char*>(text), static_cast<std::size_t>(length));
}

void on_document_type(void* context, const xmlChar*, const xmlChar*, const xmlChar*) { fail(reader_of(context)); }

void on_error(void* context, xmlError* error) {
  if (error->level == XML_ERR_FATAL) reader_of(context).failed = true;
}

}  // namespace

bool xml_read(std::string_view text, const XmlUser& user) {
  if (!is_utf8(text) || text.find('\0') != std::string_view::npos) return false;
  Reader reader{.user = &user};
  xmlSAXHandler handler{};
  handler.initialized = XML_SAX2_MAGIC;
  handler.startElementNs = on_start;
  handler.endElementNs = on_end;
  handler.characters = on_text;
  handler.cdataBlock = on_text;
  handler.internalSubset = on_document_type;
  handler.serror = on_error;
  xmlInitParser();
  const std::unique_ptr<xmlParserCtxt, XmlParserEnd> context(
      xmlCreatePushParserCtxt(&handler, &reader, nullptr, 0, nullptr));
  if (context == nullptr) return false;
  reader.context = context.get();
  // The text is read as UTF-8, whatever it declares.
  xmlCtxtUseOptions(context.get(), XML_PARSE_NONET | XML_PARSE_NOERROR | XML_PARSE_NOWARNING | XML_PARSE_IGNORE_ENC);
  const int result = xmlParseChunk(context.get(), text.data(), static_cast<int>(text.size()), 1);
  return result == 0 && !reader.failed && context->wellFormed != 0;
}

std::string xml_escaped(std::string_view text) {
  std::string escaped;
  escaped.reserve(text.size());
  for (const char c : text) {
    switch (c) {
      case '&':
        escaped += "&amp;";
        break;
      case '<':
        escaped += "&lt;";
        break;
      case '>':
        escaped += "&gt;";
        break;
      case '"':
        escaped += "&quot;";
        break;
      default:
        escaped += c;
    }
  }
  return escaped;
}

std::string xml_element(std::string_view name, std::string_view text) {
  const std::string word(name);
  return "<" + word + ">" + xml_escaped(text) + "</" + word + ">";
}
