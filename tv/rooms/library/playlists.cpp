// Reads playlists, which are M3U and PLS files. Entries that lead out of the stick are dropped.
#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include "base/text.h"
#include "core/text.h"
#include "rooms/library/parts.h"
#include "rooms/library/walk.h"

namespace {

constexpr std::size_t kLongestPlaylist = 1 << 20;   // bytes that are read of a file
constexpr std::size_t kMostPlaylistFiles = 1000;    // of a playlist
constexpr std::size_t kLongestPlaylistTitle = 127;  // bytes

std::string read_text(int file) {
  std::string text(kLongestPlaylist, '\0');
  std::size_t length = 0;
  while (length < text.size()) {
    const ssize_t got = pread(file, text.data() + length, text.size() - length, static_cast<off_t>(length));
    if (got < 0 && errno == EINTR) continue;
    if (got <= 0) break;
    length += static_cast<std::size_t>(got);
  }
  text.resize(length);
  return text;
}

// Text that is not UTF-8 is taken for ISO 8859-1, which old players write.
std::string in_utf8(std::string_view line) {
  if (is_utf8(line)) return std::string(line);
  std::string text;
  for (const char c : line) {
    const auto byte = static_cast<unsigned char>(c);
    if (byte < 0x80) {
      text += c;
    } else {
      text += static_cast<char>(0xC0 | byte >> 6);
      text += static_cast<char>(0x80 | (byte & 0x3F));
    }
  }
  return text;
}

// The path of an entry within the stick; empty: it leads out of the stick, or is a network address.
std::string within_stick(std::string named, std::string_view folder, std::string_view mount_point) {
  if (named.find("://") != std::string::npos) return "";
  std::ranges::replace(named, '\\', '/');
  std::string_view rest = named;
  if (rest.size() >= 2 && rest[1] == ':')
    rest.remove_prefix(2);  // after a drive's letter the path begins at the stick's root
  std::vector<std::string_view> names;
  const auto add = [&](std::string_view path) {
    while (!path.empty()) {
      const std::size_t slash = std::min(path.find('/'), path.size());
      const std::string_view name = path.substr(0, slash);
      path.remove_prefix(std::min(slash + 1, path.size()));
      if (name.empty() || name == ".") continue;
      if (name != "..") {
        names.push_back(name);
      } else if (names.empty()) {
        return false;
      } else {
        names.pop_back();
      }
    }
    return true;
  };
  if (rest.starts_with(mount_point) && rest.substr(mount_point.size()).starts_with('/')) {
    rest.remove_prefix(mount_point.size());
  } else if (!rest.starts_with('/')) {
    add(folder);
  }
  if (!add(rest)) return "";
  std::string path;
  for (const std::string_view name : names) path.append(path.empty() ? "" : "/").append(name);
  return path.size() > kLongestMediaPath ? "" : path;
}

// The rest of a line that begins with the key, ignoring case; nothing: it begins with something else.
std::optional<std::string_view> after(std::string_view line, std::string_view key) {
  if (line.size() < key.size() || !equal_ignoring_case(line.substr(0, key.size()), key)) return std::nullopt;
  return line.substr(key.size());
}

// The file that a line of an M3U or PLS file names; empty: none.
std::string_view named_by(std::string_view line, bool pls) {
  if (!pls) return line.starts_with('#') ? "" : line;
  const std::size_t equals = line.find('=');
  const auto number = after(line.substr(0, equals), "File");
  const bool is_file = equals != std::string_view::npos && number && parse_number<unsigned>(*number);
  return is_file ? line.substr(equals + 1) : "";
}

std::string_view trimmed(std::string_view line) {
  constexpr std::string_view kBlank = " \t\r";
  const std::size_t begin = line.find_first_not_of(kBlank);
  if (begin == std::string_view::npos) return "";
  return line.substr(begin, line.find_last_not_of(kBlank) - begin + 1);
}

}  // namespace

Playlist playlist_read(int file, std::string_view folder, std::string_view mount_point) {
  const std::string text = read_text(file);
  std::string_view rest = text;
  if (rest.starts_with("\xEF\xBB\xBF")) rest.remove_prefix(3);
  Playlist playlist;
  bool pls = false, first = true;
  while (!rest.empty() && playlist.files.size() < kMostPlaylistFiles) {
    const std::size_t end = std::min(rest.find('\n'), rest.size());
    const std::string_view line = trimmed(rest.substr(0, end));
    rest.remove_prefix(std::min(end + 1, rest.size()));
    if (line.empty()) continue;
    pls = pls || (first && equal_ignoring_case(line, "[playlist]"));
    first = false;
    if (const auto title = after(line, pls ? "X-GNOME-Title=" : "#PLAYLIST:"))
      playlist.title = clean_text(in_utf8(trimmed(*title)), kLongestPlaylistTitle);
    const std::string_view name = named_by(line, pls);
    std::string path = name.empty() ? "" : within_stick(in_utf8(name), folder, mount_point);
    if (!path.empty()) playlist.files.push_back(std::move(path));
  }
  return playlist;
}

std::vector<MediaRow> playlist_rows(Database& database, std::int64_t stick, const Playlist& playlist) {
  std::vector<MediaRow> rows;
  for (const std::string& each : playlist.files) {
    const std::size_t slash = each.rfind('/');
    const std::string_view path = each;
    auto row =
        row_by_path(database, stick, slash == std::string::npos ? "" : path.substr(0, slash), path.substr(slash + 1));
    if (row && row->kind != MEDIA_TYPE_PLAYLIST) rows.push_back(std::move(*row));
  }
  return rows;
}
