// The messages between dtv-media-reader and its client. They are structs in memory layout, since both programs are of
// one build. Each is one packet of a SOCK_SEQPACKET socket. The bytes of pictures are in shared memory: a memfd that
// the client makes, and whose size neither side can change.
//
// The process sends a reply with serial 0 as its hello when it has confined itself. Then it answers each request with
// one reply. A request carries the file's descriptor (SCM_RIGHTS).
#pragma once

#include <cstddef>
#include <cstdint>

inline constexpr int kWireSocket = 3;  // file descriptors that the process is started with
inline constexpr int kWireMemory = 4;

inline constexpr std::uint32_t kWireMagic = 0x44764D31;  // change it when these structs change

inline constexpr std::uint32_t kMostPictureWidth = 2560;  // of a picture in the shared memory
inline constexpr std::uint32_t kMostPictureHeight = 1440;
inline constexpr std::size_t kWireMemorySize = std::size_t{4} * kMostPictureWidth * kMostPictureHeight;

inline constexpr std::size_t kWireTextSize = 256;  // bytes, with the zero at the end

enum class WireWhat : std::uint32_t { kFacts, kThumbnail, kPicture };

struct WireRequest {
  std::uint32_t magic = kWireMagic;
  std::uint32_t serial = 0;
  WireWhat what = WireWhat::kFacts;
  std::uint32_t milliseconds = 0;  // after which the client no longer waits for the reply
  std::uint32_t width = 0;         // most pixels of a thumbnail or picture
  std::uint32_t height = 0;
  char extension[8] = {};  // of the file's name: letters and digits, zero-terminated
};

enum class WireText : std::uint32_t { kTitle, kArtist, kAlbum, kGenre, kTrack, kYear, kCount };

struct WireReply {
  std::uint32_t magic = kWireMagic;
  std::uint32_t serial = 0;   // the request's; 0: hello
  std::uint32_t refused = 0;  // 1: the file is refused, `why` says why, and the rest is zero
  std::uint32_t kind = 0;     // E_MEDIA_TYPE
  std::uint64_t duration_ms = 0;
  std::uint32_t width = 0;  // pixels: of the file, the thumbnail or the picture
  std::uint32_t height = 0;
  std::uint32_t orientation = 1;
  std::uint32_t has_cover = 0;
  std::uint32_t size = 0;      // bytes of the picture in the shared memory
  std::uint32_t date[6] = {};  // year, month, day, hour, minute, second; all 0: unknown
  char why[kWireTextSize] = {};
  char texts[static_cast<std::size_t>(WireText::kCount)][kWireTextSize] = {};
};
