#include "rooms/channels/logos.h"

#include <sys/stat.h>

namespace {

constexpr std::uint16_t kNamed = 0x8000;
static_assert(kLastNumber < kNamed);

bool has_logo(const std::string& folder, const std::string& name) {
  for (const char* const part : {"/PreDef/", "/UserDef/"}) {
    struct stat info {};
    if (stat((folder + part + name + ".png").c_str(), &info) == 0 && S_ISREG(info.st_mode)) return true;
  }
  return false;
}

}  // namespace

// The name comes from a broadcast, so it must not lead out of the folders.
std::uint16_t find_logo(const std::string& folder, const Entry& entry) {
  const Channel& channel = entry.channel;
  if (has_logo(folder, std::to_string(channel.number))) return static_cast<std::uint16_t>(channel.number);
  const bool is_file_name = channel.name.find('/') == std::string::npos && !channel.name.starts_with('.');
  if (!is_file_name || !has_logo(folder, channel.name)) return 0;
  return static_cast<std::uint16_t>(kNamed | channel.record);
}
