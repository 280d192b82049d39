#include "rooms/channels/logos.h"

#include <sys/stat.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <system_error>

#include "core/text.h"
#include "rooms/channels/import.h"

namespace fs = std::filesystem;

namespace {

constexpr std::uint16_t kNamed = 0x8000;
static_assert(kLastNumber < kNamed);

constexpr const char* kTaken = "/PreDef";
constexpr const char* kViewers = "/UserDef";
constexpr std::string_view kSuffix = ".png";
constexpr std::string_view kSignature = "\x89PNG\r\n\x1A\n";

// A name comes from a broadcast or a stick, so it must not lead out of the folder.
bool is_file_name(const std::string& name) {
  return !name.empty() && name.find('/') == std::string::npos && !name.starts_with('.');
}

bool has_logo(const std::string& folder, const std::string& name) {
  if (!is_file_name(name)) return false;
  for (const char* const part : {kTaken, kViewers}) {
    struct stat info {};
    const std::string path = folder + part + "/" + name + std::string(kSuffix);
    if (stat(path.c_str(), &info) == 0 && S_ISREG(info.st_mode)) return true;
  }
  return false;
}

// Whether the file's name can be a channel's with the suffix.
bool is_logo_name(const std::string& file) {
  const std::string name = file.substr(0, file.size() - std::min(file.size(), kSuffix.size()));
  return file.ends_with(kSuffix) && is_file_name(name) && clean_text(name, kLongestName) == name;
}

// The file appears whole under its name, or not at all.
bool write_logo(const std::string& path, const std::string& content) {
  const std::string unfinished = fs::path(path).parent_path().string() + "/.new";
  std::ofstream file(unfinished, std::ios::binary | std::ios::trunc);
  file << content;
  file.close();
  std::error_code failed;
  if (file) fs::rename(unfinished, path, failed);
  return file && !failed;
}

}  // namespace

void make_logo_folder(const std::string& folder) {
  std::error_code ignored;  // without the folders no channel has a logo
  fs::create_directories(folder + kTaken, ignored);
  fs::create_directories(folder + kViewers, ignored);
}

std::size_t take_logos(const std::string& from, const std::string& folder) {
  std::error_code failed;
  if (!fs::is_directory(fs::symlink_status(from, failed))) return 0;
  const std::string into = folder + kTaken;
  auto present = static_cast<std::size_t>(std::distance(fs::directory_iterator(into, failed), {}));
  std::size_t looked_at = 0, taken = 0;
  for (fs::directory_iterator each(from, failed); !failed && each != fs::directory_iterator(); each.increment(failed)) {
    if (++looked_at > kMostLogoFiles) break;
    const std::string name = each->path().filename().string();
    if (!is_logo_name(name)) continue;
    const std::string path = into + "/" + name;
    std::error_code none;
    const bool is_new = !fs::exists(path, none);
    if (is_new && present >= kMostLogos) continue;
    std::string content;
    if (!import_read(each->path().string(), content, kLongestLogo).empty() || !content.starts_with(kSignature))
      continue;
    if (!write_logo(path, content)) continue;
    present += is_new ? 1 : 0;
    ++taken;
  }
  return taken;
}

void remove_logos(const std::string& folder) {
  std::error_code ignored;
  for (const auto& each : fs::directory_iterator(folder + kTaken, ignored)) fs::remove(each.path(), ignored);
}

std::uint16_t find_logo(const std::string& folder, const Entry& entry) {
  const Channel& channel = entry.channel;
  if (has_logo(folder, std::to_string(channel.number))) return static_cast<std::uint16_t>(channel.number);
  return has_logo(folder, channel.name) ? static_cast<std::uint16_t>(kNamed | channel.record) : std::uint16_t{0};
}

void give_logos(Lists& lists, const std::string& folder) {
  for (auto& entry : lists.entries) {
    const std::uint16_t logo = find_logo(folder, *entry);
    if (logo == entry->logo) continue;
    Entry changed = *entry;
    changed.logo = logo;
    entry = std::make_shared<const Entry>(std::move(changed));
  }
}
