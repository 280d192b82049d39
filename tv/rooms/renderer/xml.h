// XML as controllers send it: short, hostile, and read once. The caller bounds the text's length.
#pragma once

#include <functional>
#include <string>
#include <string_view>

inline constexpr int kDeepestXml = 32;  // elements within each other; more are an error

// An attribute's value by its name, without a namespace; empty if the element does not have it.
using XmlAttributes = std::function<std::string(std::string_view name)>;

// Called in the order of the text; the root's depth is 1. Names are without a namespace's prefix. text: what the
// element contains outside of the elements in it.
struct XmlUser {
  std::function<void(int depth, std::string_view name, const XmlAttributes& attributes)> begin;
  std::function<void(int depth, std::string_view name, const std::string& text)> end;
};

// Reads the text up to its first error, and returns whether there was none. A document type is an error, since entities
// can expand a short text to any length.
bool xml_read(std::string_view text, const XmlUser& user);

// The text with the characters that XML gives a meaning as references.
std::string xml_escaped(std::string_view text);

// <name>text</name>, the text escaped.
std::string xml_element(std::string_view name, std::string_view text);
