// What a controller says about a file that the renderer plays: its address, and its description in DIDL-Lite.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

inline constexpr std::size_t kLongestItemAddress = 1024;  // bytes of an item's address
inline constexpr std::size_t kLongestMetadata = 16384;    // bytes of its description; a longer one is ignored
inline constexpr std::size_t kLongestItemText = 255;      // bytes of a text in it; a longer one is cut

struct Item {
  std::string address = {};        // empty: no item
  std::string metadata = {};       // the description as received; empty if it is not well-formed
  std::string protocol_info = {};  // of the description's resource with this address, else of its first resource
  std::string title = {};          // from the description, else the last part of the address
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

// Reads what a controller sends. metadata: the description; may be empty, and may be anything.
Item item_read(std::string_view address, std::string_view metadata);

// The media type in a protocol information such as "http-get:*:video/mp4:*", in lower case and without parameters.
// Empty: it says any type, or the text is no protocol information.
std::string item_media_type(std::string_view protocol_info);

// Reads a time such as "1:02:03.5", in s. Nothing: it has another form, or is 1,000 hours or more.
std::optional<double> read_clock(std::string_view text);

// Writes whole seconds as "1:02:03".
std::string write_clock(double seconds);
