// Reads XML from the network by libxml2. Elements are found by their names, without the namespace's prefix.
#pragma once

#include <libxml/tree.h>

#include <memory>
#include <string>
#include <string_view>

struct XmlEnd {
  void operator()(xmlDoc* document) const { xmlFreeDoc(document); }
};
using XmlDocument = std::unique_ptr<xmlDoc, XmlEnd>;

// Null: the text is not XML, is nested deeper than libxml2's limit of 256, or declares a document type. Only a document
// type could define entities.
XmlDocument xml_read(std::string_view text);

// xml_child: the first child element of that name. xml_below: the first one at any depth below the element. Null: there
// is none. The element may be null.
const xmlNode* xml_child(const xmlNode* element, std::string_view name);
const xmlNode* xml_below(const xmlNode* element, std::string_view name);

// The first element of that name after this element in the same parent; null: there is none. The element may not be
// null.
const xmlNode* xml_next(const xmlNode* element, std::string_view name);

// The element's text, without white space around it; empty for a null element.
std::string xml_text(const xmlNode* element);
