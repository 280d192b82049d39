// The "call" step: exported functions by name, with their arguments from JSON.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "tap/value.h"

namespace runner {

// What an argument is, by the parameter's C type.
struct ArgumentKind {
  enum Form {
    kNumber,    // passed by value
    kText,      // const char*
    kBytes,     // char*: a buffer
    kUntyped,   // void*: a record by name, a buffer, or null
    kVariable,  // T*: one number
    kRecord,    // T*: one record
    kFunction,  // the name of an exported function, or null
  } form = kNumber;
  const tap::Type* type = nullptr;  // of the number, the variable, the record
};

struct Argument {
  std::uint64_t bits = 0;              // the value to pass
  std::vector<std::uint64_t> backing;  // what it points at, where that has room for any record
  std::vector<char> buffer;            // what it points at, where the case gave the size
  std::string text;
  const tap::Type* type = nullptr;  // of what it points at, where that is a record or a variable
};

struct Export {
  const char* name;
  std::vector<ArgumentKind> arguments;
  bool has_result;
  std::int64_t (*run)(void* fct, const Argument* arguments);
};

// Null for a name that is not an exported function.
const Export* find_export(std::string_view name);

// Makes the arguments of a call; library resolves the names of functions. False with ret_error when a value does not
// fit its argument.
bool make_arguments(const Export& exported, const cJSON* in, void* library, std::vector<Argument>& ret_arguments,
                    std::string& ret_error);

// Compares the arguments after the call with "after". Returns the differences; empty when there are none. With
// check_only nothing is compared, but "after" must fit the function and "in".
std::string compare_after(const Export& exported, const std::vector<Argument>& arguments, const cJSON* after,
                          bool check_only);

}  // namespace runner
