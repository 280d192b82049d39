// Error replies to a viewer's command, and error lines on stderr for failed calls of the TV API.
#pragma once

#include <boost/json/object.hpp>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "core/contract.h"

// The text in quotation marks, on one line: control characters become "?".
std::string quoted(std::string_view text);

// The words with a space between them: the end of a command's line as one text.
std::string joined(std::span<const std::string_view> words);

// Replies have times as this text, in UTC: "2026-03-29T10:30:00Z". Their other units are s ("seconds", or a name that
// ends with it), bytes, and MHz ("mhz").
std::string reply_time(std::int64_t utc);  // seconds since 1970

// {"error": text}
boost::json::object reply_error(std::string text);

// For a word that a command does not accept: network takes lose or restore, not "lost".
boost::json::object reply_takes(std::string_view command, std::string_view what, std::string_view word);

// For a failure whose reason is on stderr already.
boost::json::object reply_see_log(std::string_view what);

// For a change that was not saved; the reason is on stderr.
inline constexpr const char* kNotSaved = "the change could not be saved; see the set's log";
boost::json::object reply_not_kept();

// How a program follows an action that goes on after the reply to its command. The reply to the words, or that reply's
// member, has "state" ("running" until the action is over), "percent" and "seconds".
struct Watch {
  std::vector<std::string_view> words;   // the command that shows the action
  std::string_view member = {};          // empty: the reply itself
  std::vector<std::string_view> cancel;  // the command that ends the action early
  std::vector<std::string_view> shows;   // further members that tell people how far it is
};

// Adds it to the reply as the member "watch".
void reply_watch(boost::json::object& reply, const Watch& watch);

// Reports on stderr why a function of the TV API fails. Returns -1, for the function to return.
INT32 refuse_call(const char* function, const std::string& why);
