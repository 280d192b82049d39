// What the handlers of libxml2's SAX2 interface share.
#pragma once

#include <libxml/parser.h>

#include <cstddef>
#include <string>
#include <string_view>

// Frees a parser with the document that it may have made.
struct XmlParserEnd {
  void operator()(xmlParserCtxt* context) const {
    if (context->myDoc != nullptr) xmlFreeDoc(context->myDoc);
    xmlFreeParserCtxt(context);
  }
};

inline std::string_view xml_view(const xmlChar* text) { return reinterpret_cast<const char*>(text); }

// The value of an attribute, of those that startElementNs has; empty: it is not given.
inline std::string xml_attribute(std::string_view name, int count, const xmlChar** attributes) {
  constexpr std::ptrdiff_t kColumns = 5;  // local name, prefix, namespace, begin and end of the value
  for (int i = 0; i < count; ++i) {
    const xmlChar** const each = attributes + i * kColumns;
    if (xml_view(each[0]) != name) continue;
    std::string value(reinterpret_cast<const char*>(each[3]), reinterpret_cast<const char*>(each[4]));
    // libxml2 leaves an ampersand in an attribute in this form.
    for (std::size_t at = 0; (at = value.find("&#38;", at)) != std::string::npos; ++at) value.replace(at, 5, "&");
    return value;
  }
  return {};
}
