// A media file that FFmpeg reads through an open file descriptor. FFmpeg opens nothing by a name.
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

// The most pixels of a picture that is decoded; a JPEG, which is scaled while it is decoded, may have more.
inline constexpr std::int64_t kMostPixels = std::int64_t{64} << 20;

// Must stay where it is: FFmpeg has its address.
struct Source {
  int file = -1;
  std::int64_t size = 0;
  std::int64_t position = 0;
  int error = 0;  // of the stick, if the file could not be read somewhere
  Deadline deadline = {};
  StreamIo io = {};
  const AVInputFormat* kind = nullptr;  // null: it is none that a television plays
  Format format = {};                   // destroyed before the io
};

void check_time(Deadline deadline);  // throws when it is over

// Up to so many bytes of the file from there on; fewer at its end. Throws on an error of the stick.
std::vector<std::uint8_t> source_bytes(Source& source, std::int64_t from, std::size_t count);

// Finds out what the file is.
void source_probe(Source& source, int file, const std::string& extension, Deadline deadline);

// Opens the file, which is of a kind, and finds its streams. Throws a Refusal.
void source_open(Source& source, const std::string& extension);

// Opens the stream's decoder. Throws a Refusal.
Codec source_decoder(const AVCodecParameters& parameters);

// "Invalid data found when processing input", of an error of FFmpeg.
std::string source_error(int error);
