// JSON as written in a case file: the text of a request must not pass through a parser, which would round numbers,
// merge members or decode escapes. All functions take valid JSON.
#pragma once

#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace runner {

// The members of an object, with their keys as written, or the elements of an array, with empty keys.
std::vector<std::pair<std::string_view, std::string_view>> raw_children(std::string_view json);

// The value of a member; empty when there is none.
std::string_view raw_member(std::string_view object, std::string_view key);

// The JSON without white space between its tokens.
std::string raw_minified(std::string_view json);

bool raw_is_text(std::string_view json);
bool raw_is_object(std::string_view json);
bool raw_is_array(std::string_view json);

// A text without its quotes, its escapes as written.
std::string_view raw_content(std::string_view text);

// A text's content in its quotes.
std::string in_quotes(std::string_view content);

}  // namespace runner
