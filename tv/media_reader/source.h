// A media file that FFmpeg reads through an open file descriptor. FFmpeg is never given a name to open.
#pragma once

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
}

#include <chrono>
#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

// Why a file is refused, for people; a continuation of "the file cannot be read: ".
struct Refusal : std::runtime_error {
  using std::runtime_error::runtime_error;
};

struct FormatEnd {
  void operator()(AVFormatContext* format) const { avformat_close_input(&format); }
};
struct CodecEnd {
  void operator()(AVCodecContext* codec) const { avcodec_free_context(&codec); }
};
struct FrameEnd {
  void operator()(AVFrame* frame) const { av_frame_free(&frame); }
};
struct PacketEnd {
  void operator()(AVPacket* packet) const { av_packet_free(&packet); }
};
struct StreamIoEnd {
  void operator()(AVIOContext* io) const;
};
using Format = std::unique_ptr<AVFormatContext, FormatEnd>;
using Codec = std::unique_ptr<AVCodecContext, CodecEnd>;
using Frame = std::unique_ptr<AVFrame, FrameEnd>;
using Packet = std::unique_ptr<AVPacket, PacketEnd>;
using StreamIo = std::unique_ptr<AVIOContext, StreamIoEnd>;

using Deadline = std::chrono::steady_clock::time_point;

// Most pixels of a picture that FFmpeg decodes. A JPEG is scaled while it is decoded, so it may have more (image.h).
inline constexpr std::int64_t kMostPixels = std::int64_t{64} << 20;

// A file that is read. It must not be moved, since FFmpeg has its address.
struct Source {
  int file = -1;
  std::int64_t size = 0;      // bytes
  std::int64_t position = 0;  // of the next read
  Deadline deadline = {};
  StreamIo io = {};
  const AVInputFormat* kind = nullptr;  // null: none that a television plays
  Format format = {};                   // destroyed before the io
};

void check_time(Deadline deadline);  // throws a Refusal once the deadline has passed

// At most `count` bytes of the file from the position `from` on; fewer at its end. Throws a Refusal if the stick cannot
// be read.
std::vector<std::uint8_t> source_bytes(const Source& source, std::int64_t from, std::size_t count);

// Finds out the file's format, by its contents and its extension, and sets Source::kind. Throws a Refusal.
void source_probe(Source& source, int file, const std::string& extension, Deadline deadline);

// Opens the file, whose Source::kind must be set, and finds its streams. Throws a Refusal.
void source_open(Source& source, const std::string& extension);

// Opens the stream's decoder. Throws a Refusal.
Codec source_decoder(const AVCodecParameters& parameters);

// FFmpeg's text for its error number, such as "Invalid data found when processing input".
std::string source_error(int error);
