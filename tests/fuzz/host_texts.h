// Messages to the host, made from the fuzzer's input. The host's own refusals name the methods and their members.
#pragma once

#include <string>
#include <vector>

#include "bytes.h"
#include "catalogue.h"

struct Method {
  std::string name;
  std::vector<std::string> members;  // of its params
};

// The methods and their members, as the host's refusals name them.
std::vector<Method> host_methods(const Catalogue& catalogue);

// A registered URI, mostly.
std::string take_host_uri(Bytes& bytes, const Catalogue& catalogue);

// A parameter of about as many values as one may have.
std::string take_many_values(Bytes& bytes);

// A JSON-RPC message, mostly whole.
std::string take_message(Bytes& bytes, const Catalogue& catalogue, const std::vector<Method>& methods);
