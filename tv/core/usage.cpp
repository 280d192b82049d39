#include "core/usage.h"

#include <algorithm>
#include <cctype>
#include <cstddef>
#include <optional>
#include <string_view>

namespace {

struct Form {
  std::string text;                                   // without a bracket whose other half is in another form
  std::vector<std::vector<std::string_view>> places;  // the choices for each word
  std::vector<std::size_t> ends;                      // after so many words it may end
  bool repeats = false;                               // its last place
};

std::vector<std::string_view> split(std::string_view text, std::string_view separator) {
  std::vector<std::string_view> parts;
  for (std::size_t end = 0; end != std::string_view::npos; text.remove_prefix(std::min(text.size(), end))) {
    end = text.find(separator);
    parts.push_back(text.substr(0, end));
    if (end != std::string_view::npos) end += separator.size();
  }
  return parts;
}

// Removes the brackets around a word. Returns how many of them open a part and how many close one.
std::pair<int, int> strip_brackets(std::string_view& word) {
  const auto begin = std::min(word.find_first_not_of('['), word.size());
  word.remove_prefix(begin);
  const auto end = std::min(word.find(']'), word.size());
  const auto closed = word.size() - end;
  word = word.substr(0, end);
  return {static_cast<int>(begin), static_cast<int>(closed)};
}

std::vector<Form> forms_of(const Command& command) {
  std::vector<Form> forms;
  bool optional = false;  // a bracket encloses this form and others
  for (const std::string_view text : split(command.arguments, " | ")) {
    Form& form = forms.emplace_back();
    if (optional) form.ends.push_back(0);
    int depth = 0;
    for (std::string_view word : split(text, " ")) {
      const auto [opened, closed] = strip_brackets(word);
      depth += opened - closed;
      if (opened > 0) form.ends.push_back(form.places.size());
      if (word.empty()) continue;  // the command has no arguments
      form.repeats = word.ends_with("...");
      form.places.push_back(split(word, "|"));
    }
    form.ends.push_back(form.places.size());
    if (depth != 0) optional = depth > 0;
    form.text = depth > 0 ? text.substr(1) : depth < 0 ? text.substr(0, text.size() - 1) : text;
  }
  return forms;
}

bool is_value(std::string_view choice) {
  return !choice.empty() && std::isupper(static_cast<unsigned char>(choice[0])) != 0;
}

// How many of the words the form has literally; nothing: they do not fit it.
std::optional<std::size_t> literal_words(const Form& form, Arguments given) {
  std::size_t literal = 0;
  for (std::size_t i = 0; i < given.size(); ++i) {
    if (i >= form.places.size() && !form.repeats) return std::nullopt;
    const auto& choices = form.places[std::min(i, form.places.size() - 1)];
    const bool named = std::ranges::find(choices, given[i]) != choices.end();
    if (!named && std::ranges::none_of(choices, is_value)) return std::nullopt;
    literal += named ? 1 : 0;
  }
  return literal;
}

bool may_end(const Form& form, std::size_t words) {
  return std::ranges::find(form.ends, words) != form.ends.end() || (form.repeats && words > form.places.size());
}

}  // namespace

std::vector<std::string> usage_next(const Command& command, Arguments given) {
  std::vector<std::string> next;
  for (const Form& form : forms_of(command)) {
    if (given.size() >= form.places.size() || !literal_words(form, given)) continue;
    for (const std::string_view choice : form.places[given.size()])
      if (std::ranges::find(next, choice) == next.end()) next.emplace_back(choice);
  }
  return next;
}

std::string usage_unfinished(const Command& command, Arguments given) {
  std::string unfinished;
  std::size_t most = 0;
  bool ends = false;
  for (const Form& form : forms_of(command)) {
    const auto literal = literal_words(form, given);
    if (!literal || *literal < most) continue;
    if (*literal > most) {
      unfinished.clear();
      ends = false;
      most = *literal;
    }
    ends = ends || may_end(form, given.size());
    unfinished += (unfinished.empty() ? "" : " | ") + form.text;
  }
  return ends ? "" : unfinished;
}
