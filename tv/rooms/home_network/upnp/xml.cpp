#include "rooms/home_network/upnp/xml.h"

#include <libxml/parser.h>

#include <climits>

namespace {

bool is_named(const xmlNode* node, std::string_view name) {
  return node->type == XML_ELEMENT_NODE && reinterpret_cast<const char*>(node->name) == name;
}

const xmlNode* first_of(const xmlNode* node, std::string_view name) {
  while (node != nullptr && !is_named(node, name)) node = node->next;
  return node;
}

}  // namespace

XmlDocument xml_read(std::string_view text) {
  if (text.size() > INT_MAX) return nullptr;
  XmlDocument document(xmlReadMemory(text.data(), static_cast<int>(text.size()), nullptr, nullptr,
                                     XML_PARSE_NONET | XML_PARSE_NOERROR | XML_PARSE_NOWARNING));
  if (document != nullptr && document->intSubset != nullptr) return nullptr;
  return document;
}

const xmlNode* xml_child(const xmlNode* element, std::string_view name) {
  return element == nullptr ? nullptr : first_of(element->children, name);
}

const xmlNode* xml_below(const xmlNode* element, std::string_view name) {
  if (element == nullptr) return nullptr;
  for (const xmlNode* each = element->children; each != nullptr; each = each->next) {
    if (is_named(each, name)) return each;
    // The recursion is no deeper than the parser allows.
    if (const xmlNode* const found = each->type == XML_ELEMENT_NODE ? xml_below(each, name) : nullptr) return found;
  }
  return nullptr;
}

const xmlNode* xml_next(const xmlNode* element, std::string_view name) { return first_of(element->next, name); }

std::string xml_text(const xmlNode* element) {
  if (element == nullptr) return {};
  xmlChar* const content = xmlNodeGetContent(element);
  if (content == nullptr) return {};
  const std::string_view text = reinterpret_cast<const char*>(content);
  constexpr const char* kSpace = " \t\r\n";
  const std::size_t first = text.find_first_not_of(kSpace);
  std::string trimmed(first == std::string_view::npos ? ""
                                                      : text.substr(first, text.find_last_not_of(kSpace) - first + 1));
  xmlFree(content);
  return trimmed;
}
