// Which sound tracks a recording has.
#include "rooms/tuner/tracks.h"

#include <fcntl.h>
#include <unistd.h>

#include <optional>
#include <variant>

#include "broadcast/playout.h"
#include "broadcast/sections.h"
#include "broadcast/tables.h"
#include "rooms/playback/parts.h"

namespace {

constexpr std::size_t kSearched = std::size_t{1}
                                  << 20;  // bytes of the file's beginning; both tables come several times a second

std::vector<std::uint8_t> beginning(const std::string& path) {
  std::vector<std::uint8_t> bytes;
  const int file = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK);
  if (file < 0) return bytes;
  bytes.resize(kSearched);
  const ssize_t count = pread(file, bytes.data(), bytes.size(), 0);
  close(file);
  bytes.resize(count < 0 ? 0 : static_cast<std::size_t>(count));
  return bytes;
}

}  // namespace

std::vector<TunerTrack> file_sound_tracks(const std::string& path) {
  const std::vector<std::uint8_t> bytes = beginning(path);
  Sections sections;
  sections_want(sections, kPidPat);
  std::optional<Pmt> map;
  sections_take(sections, std::span(bytes).first(bytes.size() / kPacketSize * kPacketSize),
                [&](std::uint16_t, std::span<const std::uint8_t> section) {
                  const auto table = table_read(section);
                  if (!table || map) return;
                  if (const auto* const pat = std::get_if<Pat>(&*table); pat != nullptr && !pat->programs.empty())
                    sections_want(sections, pat->programs.front().pid);
                  if (const auto* const found = std::get_if<Pmt>(&*table)) map = *found;
                });
  if (!map) return {};
  std::vector<TunerTrack> tracks = tracks_of(*map, {});
  std::erase_if(tracks, [](const TunerTrack& each) { return each.kind != StreamKind::kAudio; });
  return tracks;
}
