// Reads and writes XML. What controllers send may be hostile; the caller limits its length.
#pragma once

#include <functional>
#include <string>
#include <string_view>

inline constexpr int kDeepestXml = 32;  // levels of elements; more are an error

// An attribute's value by its name, without a namespace; empty if the element does not have it.
using XmlAttributes = std::function<std::string(std::string_view name)>;

// Functions that xml_read calls at the beginning and the end of each element, in the order of the text. depth: 1 for
// the root. name: without the namespace's prefix. text: the element's own text, without that of the elements in it.
struct XmlUser {
  std::function<void(int depth, std::string_view name, const XmlAttributes& attributes)> begin;
  std::function<void(int depth, std::string_view name, const std::string& text)> end;
};

// Reads the text up to its first error, and returns whether there was none. A document type is an error, since entities
// can expand a short text to any length.
bool xml_read(std::string_view text, const XmlUser& user);

// The text, with characters that have a meaning in XML replaced by references.
std::string xml_escaped(std::string_view text);

// "<name>text</name>", with the text escaped.
std::string xml_element(std::string_view name, std::string_view text);
