// Finds and checks the token of a host.
#include "base/token.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <system_error>

#include "dtvctl.h"
#include "stack.h"

namespace {

// Reads one byte more than a token with its line feed has. Returns 0 or an error number.
int read_start(const std::string& path, std::string& ret_text) {
  const int file = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);  // opening a pipe must not block
  if (file < 0) return errno;
  char bytes[kTokenDigits + 2];
  const ssize_t count = read(file, bytes, sizeof bytes);
  const int failed = count < 0 ? errno : 0;
  close(file);
  if (failed == 0) ret_text.assign(bytes, static_cast<std::size_t>(count));
  return failed;
}

}  // namespace

Token token_find(const Options& options, bool loopback) {
  const bool named = !options.state.empty();
  if (!named && !options.token.empty()) {
    if (is_token(options.token)) return {options.token, ""};
    return {"", "DTV_TOKEN is not 64 hexadecimal digits in lower case"};
  }
  if (!named && !loopback) return {};
  const std::string folder = named ? options.state : stack_defaults().state_folder;
  if (folder.empty()) return {};
  const std::string path = folder + "/token";
  std::string text;
  if (const int failed = read_start(path, text); failed != 0) {
    const bool expected = named || failed != ENOENT;
    return {"", expected ? path + ": " + std::generic_category().message(failed) : ""};
  }
  if (text.ends_with('\n')) text.pop_back();
  return is_token(text) ? Token{text, ""} : Token{"", path + " holds no token"};
}
