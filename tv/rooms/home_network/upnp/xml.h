// XML from the network, read by libxml2. Elements are found by their names without prefix.
#pragma once

#include <libxml/tree.h>

#include <memory>
#include <string>
#include <string_view>

struct XmlEnd {
  void operator()(xmlDoc* document) const { xmlFreeDoc(document); }
};
using XmlDocument = std::unique_ptr<xmlDoc, XmlEnd>;

// Null: it is no XML, nested too deeply (libxml2's limit, 256), or declares a document type, as entities need it.
XmlDocument xml_read(std::string_view text);

// The first child element of that name, or the first below the element at any depth; null: none. The element may be
// null.
const xmlNode* xml_child(const xmlNode* element, std::string_view name);
const xmlNode* xml_below(const xmlNode* element, std::string_view name);

// Of the elements that follow the child in the same parent, the first of its name; null: none.
const xmlNode* xml_next(const xmlNode* element, std::string_view name);

// The element's text, without white space around it; null element: empty.
std::string xml_text(const xmlNode* element);
