// The stream callbacks by which libmpv reads a ring, a file or a server. All functions except streams_offer,
// streams_end and stream_trouble run on libmpv's threads.
#include <algorithm>
#include <string_view>

#include "base/text.h"
#include "rooms/screen/player/parts.h"

namespace {

constexpr const char* kScheme = "dtv";
// Readers of one player. It reads one stream and a few subtitle files at a time; readers that libmpv has closed are
// dropped.
constexpr std::size_t kMostReaders = 24;

Reader& reader_of(void* cookie) { return *static_cast<Reader*>(cookie); }

std::int64_t read_stream(void* cookie, char* bytes, std::uint64_t size) {
  Reader& reader = reader_of(cookie);
  const std::span<char> room(bytes, size);
  if (reader.ring != nullptr) return static_cast<std::int64_t>(ring_read(*reader.ring, room));
  if (reader.http != nullptr) return static_cast<std::int64_t>(http_read(*reader.http, room));
  return static_cast<std::int64_t>(file_read(*reader.file, room));
}

std::int64_t seek_stream(void* cookie, std::int64_t position) {
  Reader& reader = reader_of(cookie);
  const bool sought = reader.http != nullptr ? http_seek(*reader.http, position) : file_seek(*reader.file, position);
  return sought ? position : std::int64_t{MPV_ERROR_GENERIC};
}

std::int64_t size_stream(void* cookie) {
  Reader& reader = reader_of(cookie);
  std::int64_t size = -1;
  if (reader.http != nullptr) {
    size = http_size(*reader.http);
  } else {
    size = file_size(*reader.file);
  }
  return size < 0 ? std::int64_t{MPV_ERROR_GENERIC} : size;
}

void cancel(Reader& reader) {
  if (reader.ring != nullptr) ring_cancel(*reader.ring);
  if (reader.file != nullptr) file_cancel(*reader.file);
  if (reader.http != nullptr) http_cancel(*reader.http);
}

void cancel_stream(void* cookie) { cancel(reader_of(cookie)); }

// Adds the reader to the player's readers; null: the player ends, or has too many readers.
Reader* keep(Player& player, std::shared_ptr<Reader> reader) {
  const std::lock_guard guard(player.readers_lock);
  if (player.readers_end) return nullptr;
  if (player.readers.size() >= kMostReaders) {
    const auto closed = std::ranges::find_if(player.readers, [](const auto& each) { return each->closed.load(); });
    if (closed == player.readers.end()) return nullptr;
    player.readers.erase(closed);
  }
  player.readers.push_back(std::move(reader));
  return player.readers.back().get();
}

// The file or subtitle file that the address names; null: none.
std::shared_ptr<FileSource> file_of(const Player& player, std::string_view address) {
  if (!address.starts_with(kSubtitleAddress)) return player.file;
  const auto place = parse_number<std::size_t>(address.substr(std::string_view(kSubtitleAddress).size()));
  return place && *place < player.subtitles.size() ? player.subtitles[*place] : nullptr;
}

std::shared_ptr<Reader> open_reader(Player& player, const char* address, bool& ret_is_seekable) {
  auto reader = std::make_shared<Reader>();
  ret_is_seekable = true;
  if (player.ring != nullptr) {
    reader->ring = ring_read_from_lead(player.ring);
    ret_is_seekable = false;
    return keep(player, reader) != nullptr ? reader : nullptr;
  }
  if (player.http != nullptr && !std::string_view(address).starts_with(kSubtitleAddress)) {
    reader->http = http_create(player.http);
    // The reader is added before it waits for the server, so that streams_end can end the wait.
    if (keep(player, reader) == nullptr || !http_begin(*reader->http)) return nullptr;
    ret_is_seekable = http_is_seekable(*reader->http);
    return reader;
  }
  const std::shared_ptr<FileSource> file = file_of(player, address);
  if (file == nullptr) return nullptr;
  reader->file = file_open(file);
  return reader->file != nullptr && keep(player, reader) != nullptr ? reader : nullptr;
}

int open_stream(void* context, char* address, mpv_stream_cb_info* ret_info) {
  Player& player = *static_cast<Player*>(context);
  bool is_seekable = false;
  const std::shared_ptr<Reader> reader = open_reader(player, address, is_seekable);
  if (reader == nullptr) return MPV_ERROR_LOADING_FAILED;
  ret_info->cookie = reader.get();
  ret_info->read_fn = read_stream;
  if (is_seekable) {
    ret_info->seek_fn = seek_stream;
    ret_info->size_fn = size_stream;
  }
  ret_info->cancel_fn = cancel_stream;
  ret_info->close_fn = [](void* cookie) { reader_of(cookie).closed = true; };
  return 0;
}

}  // namespace

int streams_offer(Player& player) {
  return mpv_library().mpv_stream_cb_add_ro(player.handle, kScheme, &player, open_stream);
}

void streams_end(Player& player) {
  const std::lock_guard guard(player.readers_lock);
  player.readers_end = true;
  for (const std::shared_ptr<Reader>& each : player.readers) cancel(*each);
}

std::string stream_trouble(Player& player) {
  return player.http != nullptr ? http_trouble(*player.http) : file_trouble(*player.file);
}
