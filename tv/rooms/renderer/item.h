// What a controller tells about a file that the renderer plays: an address, and a description in DIDL-Lite.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

inline constexpr std::size_t kLongestItemAddress = 1024;  // bytes of an item's address
inline constexpr std::size_t kLongestMetadata = 16384;    // bytes of its description; a longer one is ignored
inline constexpr std::size_t kLongestFact = 255;          // bytes of a text in it; cut

struct Item {
  std::string address = {};        // empty: no item
  std::string metadata = {};       // the description as it came, if it is well-formed
  std::string protocol_info = {};  // of the resource that has the address, else of the first one
  std::string title = {};          // the description's, else the end of the address
  std::string artist = {};
  std::string author = {};
  std::string album = {};
  std::string date = {};        // "2026-03-29T10:30:00" or its beginning
  std::string resolution = {};  // "1920x1080"
  std::string extension = {};   // "mp4"
  std::int32_t kind = 0;        // DLNA_MEDIA_..., 0: not known
  std::int64_t bytes = 0;       // 0: not known
  double duration = 0;          // s; 0: not known
};

Item item_read(std::string_view address, std::string_view metadata);

// The media type of a protocol information, "http-get:*:video/mp4:*", in lower case and without parameters; empty for
// any type, and for a text that is no protocol information.
std::string item_media_type(std::string_view protocol_info);

// "1:02:03.5" in s; nullopt for another form, or 1,000 hours and more.
std::optional<double> read_clock(std::string_view text);

// "1:02:03": whole seconds.
std::string write_clock(double seconds);
