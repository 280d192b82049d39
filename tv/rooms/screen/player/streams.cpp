// How the library reads a ring or a file. All functions but streams_offer run on the library's threads.
#include "rooms/screen/player/parts.h"

namespace {

constexpr const char* kScheme = "dtv";
constexpr std::size_t kMostReaders = 8;  // of one player; it reads one stream at a time

void close_stream(void*) {}

std::int64_t read_ring(void* cookie, char* bytes, std::uint64_t room) {
  return static_cast<std::int64_t>(ring_read(*static_cast<RingReader*>(cookie), {bytes, room}));
}

void cancel_ring(void* cookie) { ring_cancel(*static_cast<RingReader*>(cookie)); }

std::int64_t read_file(void* cookie, char* bytes, std::uint64_t room) {
  return static_cast<std::int64_t>(file_read(*static_cast<FileReader*>(cookie), {bytes, room}));
}

std::int64_t seek_file(void* cookie, std::int64_t position) {
  return file_seek(*static_cast<FileReader*>(cookie), position) ? position : std::int64_t{MPV_ERROR_GENERIC};
}

std::int64_t size_file(void* cookie) {
  const std::int64_t size = file_size(*static_cast<FileReader*>(cookie));
  return size < 0 ? std::int64_t{MPV_ERROR_GENERIC} : size;
}

void cancel_file(void* cookie) { file_cancel(*static_cast<FileReader*>(cookie)); }

void* keep(Player& player, std::shared_ptr<void> reader) {
  const std::lock_guard guard(player.readers_lock);
  player.readers.push_back(std::move(reader));
  if (player.readers.size() > kMostReaders) player.readers.pop_front();
  return player.readers.back().get();
}

int open_stream(void* context, char*, mpv_stream_cb_info* ret_info) {
  Player& player = *static_cast<Player*>(context);
  if (player.file != nullptr) {
    std::unique_ptr<FileReader> reader = file_open(player.file);
    if (reader == nullptr) return MPV_ERROR_LOADING_FAILED;
    ret_info->cookie = keep(player, std::move(reader));
    ret_info->read_fn = read_file;
    ret_info->seek_fn = seek_file;
    ret_info->size_fn = size_file;
    ret_info->cancel_fn = cancel_file;
  } else {
    ret_info->cookie = keep(player, ring_read_from_lead(player.ring));
    ret_info->read_fn = read_ring;
    ret_info->cancel_fn = cancel_ring;
  }
  ret_info->close_fn = close_stream;
  return 0;
}

}  // namespace

int streams_offer(Player& player) {
  return mpv_library().mpv_stream_cb_add_ro(player.handle, kScheme, &player, open_stream);
}
