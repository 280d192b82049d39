// Reads media files in a process of its own, dtv-media-reader, with limits of memory and time: a hostile file costs
// that file and nothing else. The process gets an open file descriptor for each file, so it opens no path itself, and
// has no network. It is started when it is needed, ends when its handle does, and is started again after it has died.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "tvapi/cbrowser.h"
#include "tvapi/date.h"

// What a file contains, by its contents and not by its name. Texts are clean UTF-8 (core/text.h), at most 127 bytes.
struct MediaFacts {
  E_MEDIA_TYPE kind = MEDIA_TYPE_NULL;  // photo, music or video; null: it is none of them
  std::string title = {};
  std::string artist = {};
  std::string album = {};
  std::string genre = {};
  std::string track = {};
  std::string year = {};
  std::uint64_t duration_ms = 0;  // 0: unknown
  std::uint32_t width = 0;        // pixels, as stored in the file
  std::uint32_t height = 0;
  std::uint32_t orientation = 1;  // EXIF's 1 to 8: how the stored picture is turned to be seen
  T_DATE_TIME date = {};          // when it was taken or recorded; all 0: unknown
  bool date_is_utc = false;       // else it is local time
  bool has_cover = false;         // an attached picture
};

// Pixels of four bytes (blue, green, red, unused), row after row, turned as EXIF wants it.
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
  kRefused,    // the file is broken, too large, or of another kind than requested: ret_why says it
  kFailed,     // it may be otherwise next time: the stick cannot be read, or reading the file crashed the process, took
               // too long or too much memory: ret_why says it
  kCancelled,  // by media_reader_cancel
  kNoReader,   // the process cannot be started
};

// file: an open regular file, which stays the caller's. name: only its extension is used, as a hint.
ReadResult media_reader_facts(MediaReader& reader, int file, const std::string& name, MediaFacts& ret_facts,
                              std::string& ret_why);

// A picture of the file, at most so many pixels wide and high, as a JPEG: of a photo, a video's frame, music's cover.
ReadResult media_reader_thumbnail(MediaReader& reader, int file, const std::string& name, std::uint32_t width,
                                  std::uint32_t height, std::vector<std::uint8_t>& ret_jpeg, std::string& ret_why);

// A photo, scaled down to at most so many pixels if it is larger.
ReadResult media_reader_picture(MediaReader& reader, int file, const std::string& name, std::uint32_t width,
                                std::uint32_t height, MediaPicture& ret_picture, std::string& ret_why);

// Ends the call that is running, from another thread, and every later one.
void media_reader_cancel(MediaReader& reader);

// The program to start in place of dtv-media-reader, for tests. Empty: dtv-media-reader, which is beside this library.
void media_reader_set_program(const std::string& path);
