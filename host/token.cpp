#include "token.h"

#include <fcntl.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <string_view>
#include <system_error>

#include "base/token.h"

namespace {

// The token in the file; empty when the file has none or is not private.
std::string read_file(const std::string& path) {
  const int file = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK);
  if (file < 0) return {};
  struct stat facts {};
  std::array<char, kTokenDigits + 2> text{};
  ssize_t bytes = -1;
  if (fstat(file, &facts) == 0 && S_ISREG(facts.st_mode) && facts.st_uid == geteuid() && (facts.st_mode & 077) == 0)
    bytes = read(file, text.data(), text.size());
  close(file);
  if (bytes != static_cast<ssize_t>(kTokenDigits) + 1 || text[kTokenDigits] != '\n') return {};
  const std::string_view token(text.data(), kTokenDigits);
  return is_token(token) ? std::string(token) : std::string();
}

bool make_token(std::string& ret_token) {
  std::array<unsigned char, kTokenDigits / 2> bytes{};
  if (getrandom(bytes.data(), bytes.size(), 0) != static_cast<ssize_t>(bytes.size())) return false;
  ret_token.clear();
  for (const unsigned char byte : bytes) ret_token.append({kTokenAlphabet[byte >> 4], kTokenAlphabet[byte & 15]});
  return true;
}

// Writes a new file and renames it, so that no reader sees a part of the token.
bool write_file(const std::string& path, const std::string& token) {
  const std::string fresh = path + ".new";
  unlink(fresh.c_str());
  const int file = open(fresh.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
  if (file < 0) return false;
  const std::string text = token + "\n";
  const bool written = write(file, text.data(), text.size()) == static_cast<ssize_t>(text.size());
  return close(file) == 0 && written && rename(fresh.c_str(), path.c_str()) == 0;
}

}  // namespace

bool token_read(const std::string& state_folder, std::string& ret_token, std::string& ret_error) {
  const std::string path = state_folder + "/token";
  std::string token = read_file(path);
  if (token.empty() && (!make_token(token) || !write_file(path, token))) {
    ret_error = "cannot make the token's file " + path + ": " + std::generic_category().message(errno);
    return false;
  }
  ret_token = std::move(token);
  return true;
}
