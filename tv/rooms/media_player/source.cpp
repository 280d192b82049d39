// Finds what a player's path means: a file of a stick, of the recorder or of the downloads, or a file on a server.
#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstring>
#include <mutex>
#include <system_error>

#include "base/text.h"
#include "core/reply.h"
#include "core/set.h"
#include "core/text.h"
#include "rooms/home_network/loop.h"
#include "rooms/media_player/parts.h"
#include "rooms/usb/usb.h"

namespace {

constexpr std::size_t kLongestPath = 4096;
constexpr int kMostNames = 5000;  // of a folder that is searched for subtitle files
constexpr std::string_view kServer = "http://";
// Folders of the state folder.
constexpr std::string_view kDownloads = "downloads/";
constexpr std::string_view kOwnFolders[] = {"recordings/", kDownloads};
constexpr std::string_view kSubtitleEnds[] = {".srt", ".ass", ".ssa", ".vtt"};

std::string name_of(std::string_view path) { return std::string(path.substr(path.find_last_of('/') + 1)); }

// The place of one of the set's own files within the state folder: "recordings/..." or "downloads/..."; empty: the path
// is another file's.
std::string own_place(std::string_view path) {
  const std::string folder = media_state_folder() + "/";
  if (path.starts_with(folder + std::string(kDownloads))) path.remove_prefix(folder.size());
  const bool is_own = std::ranges::any_of(kOwnFolders, [&](std::string_view each) { return path.starts_with(each); });
  return std::string(is_own ? path : "");
}

// Opens a file in one of the set's own folders, by its place as above.
int open_own(const std::string& place, std::string& ret_why) {
  const std::string name = place.substr(place.find('/') + 1);
  if (name.empty() || name.starts_with('.') || name.find('/') != std::string::npos) {
    ret_why = quoted(place) + " is not a file of that folder";
    return -1;
  }
  const std::string path = media_state_folder() + "/" + place;
  const int file = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK);
  if (file < 0) ret_why = quoted(name) + " cannot be opened: " + std::generic_category().message(errno);
  return file;
}

// The file's identity; nothing: it cannot be opened.
std::optional<FileIdentity> identify(const PlayerFile& file, const std::string& path, std::string& ret_why) {
  const int opened = file.open(ret_why);
  if (opened < 0) return std::nullopt;
  struct stat info {};
  const bool is_file = fstat(opened, &info) == 0 && S_ISREG(info.st_mode);
  close(opened);
  if (!is_file) {
    ret_why = quoted(path) + " is not a regular file";
    return std::nullopt;
  }
  return FileIdentity{.path = path,
                      .size = info.st_size,
                      .changed = std::int64_t{info.st_mtim.tv_sec} * 1'000'000'000 + info.st_mtim.tv_nsec};
}

std::string lower(std::string_view text) {
  std::string result(text);
  for (char& each : result) each = static_cast<char>(std::tolower(static_cast<unsigned char>(each)));
  return result;
}

// The names in a folder, at most kMostNames. Closes the folder's descriptor.
std::vector<std::string> names_in(int folder) {
  std::vector<std::string> names;
  DIR* const listed = fdopendir(folder);
  if (listed == nullptr) {
    close(folder);
    return names;
  }
  for (int i = 0; i < kMostNames; ++i) {
    const dirent* const entry = readdir(listed);  // NOLINT(concurrency-mt-unsafe): nobody else reads this folder
    if (entry == nullptr) break;
    names.emplace_back(entry->d_name);
  }
  closedir(listed);
  return names;
}

}  // namespace

std::optional<MediaSource> media_source(const std::string& path, std::string& ret_why, INT32& ret_code) {
  ret_code = IVEX_PB_ERROR_CODE_FILE;
  MediaSource source;
  source.name = clean_text(name_of(path), 255);
  source.file.broadcast = false;
  if (path.empty() || path.size() > kLongestPath || path.find('\0') != std::string::npos) {
    ret_why = "a path has 1 to 4096 characters";
    return std::nullopt;
  }
  if (path.starts_with(kServer)) {
    if (!home_is_near(path)) {
      ret_code = IVEX_PB_ERROR_CODE_NETWORK;
      ret_why = quoted(path) + " is not on a host of the home network";
      return std::nullopt;
    }
    source.network = true;
    source.file.address = path;
    source.file.is_near = home_is_near;
    return source;
  }
  if (const auto stick = usb_stick_of(path)) source.stick_folder = stick->folder;
  source.file.open = [path](std::string& why) { return media_player_open_file(path, why); };
  const std::string own = own_place(path);  // the same file by its other path has the same position
  source.identity = identify(source.file, own.empty() ? path : own, ret_why);
  if (!source.identity) return std::nullopt;
  return source;
}

int media_player_open_file(const std::string& path, std::string& ret_why) {
  const std::string own = own_place(path);
  return own.empty() ? usb_open(path, UsbFile::kFile, ret_why) : open_own(own, ret_why);
}

bool media_player_is_own_file(std::string_view path) { return !own_place(path).empty(); }

std::vector<PlayerSubtitle> media_subtitles(const std::string& path) {
  std::vector<PlayerSubtitle> found;
  const std::size_t slash = path.find_last_of('/');
  if (!path.starts_with('/') || slash == 0) return found;
  std::string why;
  const std::string folder = path.substr(0, slash);
  const int opened = usb_open(folder, UsbFile::kFolder, why);
  if (opened < 0) return found;
  const std::string name = path.substr(slash + 1);
  const std::string stem = name.substr(0, name.find_last_of('.'));
  std::vector<std::string> names = names_in(opened);
  std::ranges::sort(names);
  for (const std::string& each : names) {
    const bool is_one = std::ranges::any_of(kSubtitleEnds, [&](auto end) { return lower(each).ends_with(end); });
    if (!is_one || !each.starts_with(stem) || each[stem.size()] != '.') continue;
    // The part between the film's name and the extension is the language: film.de.srt.
    const std::size_t end = each.find_last_of('.');
    const std::string language = end > stem.size() ? each.substr(stem.size() + 1, end - stem.size() - 1) : "";
    found.push_back(
        {.open = [file = folder + "/" + each](std::string& ret_why) { return usb_open(file, UsbFile::kFile, ret_why); },
         .title = clean_text(each, 127),
         .language = language.size() <= 3 ? clean_text(language, 3) : ""});
    if (found.size() == kMostSubtitleFiles) break;
  }
  return found;
}

bool media_source_is_there(const std::string& path, const MediaSource& source) {
  if (source.stick_folder.empty()) return true;
  const auto stick = usb_stick_of(path);
  return stick && stick->folder == source.stick_folder;
}
