#include "rooms/antenna/index.h"

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <iterator>
#include <set>
#include <system_error>
#include <tuple>
#include <utility>

#include "base/text.h"
#include "rooms/antenna/survey.h"

namespace fs = std::filesystem;

namespace {

// The channels of the UHF band for streams without a frequency. Above the band they go on in the same steps.
constexpr std::uint32_t kFirstChannel = 474'000'000;
constexpr std::uint32_t kChannelStep = 8'000'000;

constexpr std::string_view kExtensions[] = {".ts", ".m2ts", ".mts", ".trp", ".mpg"};

std::string message_of(int error) { return std::generic_category().message(error); }

FileStamp stamp_of(const struct stat& info) {
  constexpr std::int64_t kNanos = 1'000'000'000;
  return {.device = info.st_dev,
          .inode = info.st_ino,
          .size = info.st_size,
          .changed = info.st_mtim.tv_sec * kNanos + info.st_mtim.tv_nsec};
}

// All zero if the folder cannot be found.
FileStamp folder_stamp(const std::string& folder) {
  struct stat info {};
  return stat(folder.c_str(), &info) == 0 ? stamp_of(info) : FileStamp{};
}

// Nothing if the path does not exist. Does not follow a link.
std::optional<struct stat> status_of(const std::string& path) {
  struct stat info {};
  if (lstat(path.c_str(), &info) != 0) return std::nullopt;
  return info;
}

bool has_extension(const std::string& name) {
  const std::string extension = fs::path(name).extension().string();
  return std::ranges::any_of(kExtensions, [&](std::string_view each) { return equal_ignoring_case(each, extension); });
}

// A name for a message: bytes that are not UTF-8, and control characters, become "?".
std::string shown(std::string_view name) {
  std::string text;
  while (!name.empty()) {
    const std::size_t length = utf8_length(name);
    const bool plain = length > 1 || (length == 1 && static_cast<unsigned char>(name[0]) >= 0x20 && name[0] != 0x7F);
    text += plain ? name.substr(0, length) : "?";
    name.remove_prefix(std::max<std::size_t>(length, 1));
  }
  return text;
}

// The names with a multiplex's extension, sorted. What it leaves out it adds to the index's refusals.
std::vector<std::string> list_names(const std::string& folder, Index& index) {
  std::error_code failed;
  std::vector<std::string> names;
  std::size_t entries = 0;
  fs::directory_iterator entry(folder, failed);
  for (; !failed && entry != fs::directory_iterator() && entries < kMostEntries; entry.increment(failed), ++entries) {
    std::string name = entry->path().filename().string();
    if (has_extension(name)) names.push_back(std::move(name));
  }
  if (failed) {
    index.problem = "the folder cannot be read: " + failed.message();
    return {};
  }
  if (entry != fs::directory_iterator())
    index.refused.push_back(
        {"...", "the folder has more than " + std::to_string(kMostEntries) + " entries; the others are not looked at"});
  std::ranges::sort(names);
  if (names.size() > kMostFiles) {
    index.refused.push_back({"...", std::to_string(names.size() - kMostFiles) + " more files: an antenna has at most " +
                                        std::to_string(kMostFiles)});
    names.resize(kMostFiles);
  }
  return names;
}

// Why a file cannot be a multiplex, before it is opened; empty: it may be one.
std::string refusal_of(const std::string& name, const std::optional<struct stat>& info, int error) {
  if (!is_utf8(name)) return "its name is not in UTF-8";
  if (!info) return message_of(error);
  if (S_ISDIR(info->st_mode)) return "it is a folder; only the files of the antenna's own folder are read";
  if (S_ISLNK(info->st_mode)) return "it is a symbolic link, which the antenna does not follow";
  if (!S_ISREG(info->st_mode)) return "it is not a regular file";
  if (info->st_size == 0) return "it is empty";
  return {};
}

IndexEntry entry_of(const std::string& path, const Survey& survey, const FileStamp& stamp, std::int64_t now) {
  IndexEntry entry{.multiplex = {.path = path,
                                 .network = survey.network,
                                 .stream = survey.stream,
                                 .strength = survey.signal.strength,
                                 .quality = survey.signal.quality},
                   .services = {},
                   .shift = survey.utc ? index_shift(*survey.utc, now) : 0,
                   .stamp = stamp};
  for (const auto& [service, pid] : survey.programs) entry.services.push_back(service);
  if (survey.delivery && survey.delivery->medium != Medium::kNone) {
    entry.multiplex.medium = survey.delivery->medium;
    entry.multiplex.frequency = survey.delivery->frequency;
    entry.has_frequency = entry.multiplex.frequency != 0;
  }
  return entry;
}

// Gives each multiplex without a frequency of its own a free one of its medium, in the order of the files' names.
// A satellite's frequencies are in MHz.
void assign_frequencies(std::vector<IndexEntry>& entries) {
  std::set<std::pair<Medium, std::uint32_t>> taken;
  for (const IndexEntry& entry : entries)
    if (entry.has_frequency) taken.emplace(entry.multiplex.medium, entry.multiplex.frequency);
  for (IndexEntry& entry : entries) {
    if (entry.has_frequency) continue;
    const std::uint32_t unit = entry.multiplex.medium == Medium::kSatellite ? 1'000'000 : 1;
    std::uint32_t frequency = kFirstChannel / unit;
    while (!taken.emplace(entry.multiplex.medium, frequency).second) frequency += kChannelStep / unit;
    entry.multiplex.frequency = frequency;
  }
}

}  // namespace

std::int64_t index_shift(std::int64_t stream_utc, std::int64_t set_utc) {
  const std::int64_t behind = set_utc - stream_utc;
  if (behind > -kStampedToday && behind < kStampedToday) return 0;
  const std::int64_t minutes = (behind + (behind < 0 ? -30 : 30)) / 60;  // the nearest
  return minutes * 60;
}

bool index_read(const std::string& folder, const Index& before, const IndexReader& reader, Index& ret_index) {
  Index index;
  index.folder = folder_stamp(folder);
  const std::vector<std::string> names = list_names(folder, index);
  for (std::size_t i = 0; i < names.size(); ++i) {
    if (reader.cancelled) return false;
    const std::string& name = names[i];
    const std::string path = folder + "/" + name;
    reader.begins(i + 1, names.size(), shown(name));
    const auto status = status_of(path);
    std::string why = refusal_of(name, status, errno);
    const FileStamp stamp = status ? stamp_of(*status) : FileStamp{};
    index.files.push_back({path, stamp});
    const auto known = std::ranges::find_if(
        before.entries, [&](const IndexEntry& each) { return each.multiplex.path == path && each.stamp == stamp; });
    IndexEntry entry;
    if (why.empty() && known != before.entries.end()) {
      entry = *known;
    } else if (Survey survey; why.empty() && survey_read(path, SurveyAim::kIndex, reader.cancelled, survey, why)) {
      entry = entry_of(path, survey, stamp, reader.now());
    } else {
      if (reader.cancelled) return false;
      index.refused.push_back({shown(name), why});
      continue;
    }
    const Multiplex& multiplex = entry.multiplex;
    const auto same = std::ranges::find_if(index.entries, [&](const IndexEntry& each) {
      return each.multiplex.network == multiplex.network && each.multiplex.stream == multiplex.stream;
    });
    if (same != index.entries.end()) {
      index.refused.push_back({shown(name), "it has the network and stream identifiers (" +
                                                std::to_string(multiplex.network) + ", " +
                                                std::to_string(multiplex.stream) + ") of " +
                                                fs::path(same->multiplex.path).filename().string() +
                                                "; a set tells multiplexes apart by them"});
      continue;
    }
    index.entries.push_back(std::move(entry));
  }
  assign_frequencies(index.entries);
  std::ranges::sort(index.entries, {}, [](const IndexEntry& each) {
    return std::tie(each.multiplex.medium, each.multiplex.frequency, each.multiplex.path);
  });
  ret_index = std::move(index);
  return true;
}

bool index_is_outdated(const std::string& folder, const Index& index) {
  if (folder_stamp(folder) != index.folder) return true;
  return std::ranges::any_of(index.files, [](const IndexedFile& each) {
    const auto status = status_of(each.path);
    return (status ? stamp_of(*status) : FileStamp{}) != each.stamp;
  });
}
