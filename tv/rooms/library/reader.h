// Reads media files in a separate process, dtv-media-reader, whose memory and time are limited: a hostile file can only
// make its own reading fail. The process gets an open file descriptor for each file. It can open no path and has no
// network. A MediaReader starts the process at the first call and again after the process has died, and ends it when
// the MediaReader is destroyed.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "tvapi/cbrowser.h"
#include "tvapi/date.h"

// What a file contains, decided by its contents and not by its name. Texts are clean UTF-8 (core/text.h) of at most 127
// bytes; empty: the file does not have them.
struct MediaFacts {
  E_MEDIA_TYPE kind = MEDIA_TYPE_NULL;  // photo, music or video; MEDIA_TYPE_NULL: none of them
  std::string title = {};
  std::string artist = {};
  std::string album = {};
  std::string genre = {};
  std::string track = {};
  std::string year = {};
  std::uint64_t duration_ms = 0;  // 0: unknown
  std::uint32_t width = 0;        // pixels, as stored in the file
  std::uint32_t height = 0;
  std::uint32_t orientation = 1;  // 1 to 8, as EXIF numbers it: how to turn the stored picture for display
  T_DATE_TIME date = {};          // local time at which it was taken or recorded; all 0: unknown
  bool has_cover = false;         // the file has an attached picture, as music has a cover
};

// Pixels of four bytes (blue, green, red, unused), row by row, already turned as EXIF says.
struct MediaPicture {
  std::uint32_t width = 0;
  std::uint32_t height = 0;
  std::vector<std::uint8_t> pixels = {};
};

struct MediaReader;
struct MediaReaderEnd {
  void operator()(MediaReader* reader) const;
};
// Used by one thread at a time, except for media_reader_cancel.
using MediaReaderHandle = std::unique_ptr<MediaReader, MediaReaderEnd>;

MediaReaderHandle media_reader_create();

enum class ReadResult {
  kRead,
  kRefused,    // ret_why says why: the file is broken, too large, of the wrong kind, or took too long
  kCancelled,  // by media_reader_cancel
  kNoReader,   // the process cannot be started
};

// file: an open regular file; the caller keeps it and closes it. name: only its extension is used, as a hint. Takes at
// most 5 s, and up to 10 s more if the process has to be started.
ReadResult media_reader_facts(MediaReader& reader, int file, const std::string& name, MediaFacts& ret_facts,
                              std::string& ret_why);

// A thumbnail of the file as a JPEG of at most this size in pixels: of the photo, of a frame of the video, or of the
// cover of the music. Takes at most 10 s, and the start.
ReadResult media_reader_thumbnail(MediaReader& reader, int file, const std::string& name, std::uint32_t width,
                                  std::uint32_t height, std::vector<std::uint8_t>& ret_jpeg, std::string& ret_why);

// A photo, scaled down to at most this size in pixels. Takes as long as a thumbnail.
ReadResult media_reader_picture(MediaReader& reader, int file, const std::string& name, std::uint32_t width,
                                std::uint32_t height, MediaPicture& ret_picture, std::string& ret_why);

// Makes the running call and every later one return kCancelled. Any thread.
void media_reader_cancel(MediaReader& reader);

// Sets the program to start in place of dtv-media-reader, for tests. Empty: dtv-media-reader, as it is built or
// installed with this library.
void media_reader_set_program(const std::string& path);
