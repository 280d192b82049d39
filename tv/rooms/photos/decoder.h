// The thread that decodes photos, dtv_tv-photos, by the reader of media files.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "rooms/library/reader.h"

// Nobody waits longer for a picture. The decoding is then cancelled.
inline constexpr std::chrono::seconds kDecodeTime{5};

struct DecodedPhoto {
  std::shared_ptr<const MediaPicture> picture = {};  // null: it cannot be decoded
  std::uint32_t width = 0;                           // of the file
  std::uint32_t height = 0;
  std::uint32_t orientation = 1;
  std::string why = {};
};

// An open file, closed with its last user.
using PhotoFile = std::shared_ptr<const int>;
PhotoFile photo_file(int file);
using PhotoOpen = std::function<PhotoFile(std::string& ret_why)>;  // null with ret_why

void decoder_start();
void decoder_stop();

// Decodes it and waits, at most kDecodeTime. Not with a lock.
DecodedPhoto decoder_decode(const PhotoFile& file, const std::string& name);

// Has it opened and decoded; `take` gets the result, both on the decoder's thread without a lock, unless a later call
// of this function, or decoder_forget, comes first.
void decoder_queue(PhotoOpen open, const std::string& name, std::function<void(DecodedPhoto photo)> take);
void decoder_forget();
