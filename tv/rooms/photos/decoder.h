// The thread dtv_tv-photos, which decodes photos with the reader of media files (rooms/library/reader.h).
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "rooms/library/reader.h"

// How long a caller waits for a picture. The decoding is then cancelled.
inline constexpr std::chrono::seconds kDecodeTime{5};

struct DecodedPhoto {
  std::shared_ptr<const MediaPicture> picture = {};  // turned as EXIF says; null: the photo could not be decoded
  std::uint32_t width = 0;                           // pixels, as stored in the file
  std::uint32_t height = 0;
  std::uint32_t orientation = 1;  // EXIF's number, 1 to 8
  std::string why = {};           // there is no picture
};

// The descriptor of an open file, which is closed with the last share of it.
using PhotoFile = std::shared_ptr<const int>;
PhotoFile photo_file(int file);
using PhotoOpen = std::function<PhotoFile(std::string& ret_why)>;  // null with ret_why

void decoder_start();
void decoder_stop();

// Decodes the photo, and waits for that, for at most kDecodeTime. The caller holds no lock.
DecodedPhoto decoder_decode(const PhotoFile& file, const std::string& name);

// Queues the photo, in place of the one that this function queued before. `open` and `take`, which gets the result, are
// called on the decoder's thread, with no lock held. `take` is not called if another call of this function or
// decoder_forget comes first.
void decoder_queue(PhotoOpen open, const std::string& name, std::function<void(DecodedPhoto photo)> take);
void decoder_forget();  // drops the photo that decoder_queue has queued
