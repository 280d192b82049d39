// Pictures of files: photos, frames of videos, covers of music.
#include <algorithm>
#include <cstring>
#include <optional>

#include "exif.h"
#include "facts.h"
#include "kinds.h"

namespace {

constexpr std::size_t kMostPhotoBytes = std::size_t{64} << 20;
constexpr int kMostPackets = 3000;  // that are read for one frame
// The mean brightness below which a frame counts as dark, as in a fade or under a title.
constexpr std::uint32_t kDark = 24;
constexpr std::int64_t kFewSeconds = std::int64_t{5} * AV_TIME_BASE;

// The decoder's next frame after this packet. False: it needs more.
bool decode(AVCodecContext& codec, const AVPacket* packet, AVFrame& ret_frame) {
  avcodec_send_packet(&codec, packet);  // an error only concerns this packet
  return avcodec_receive_frame(&codec, &ret_frame) == 0;
}

Frame new_frame() {
  Frame frame(av_frame_alloc());
  if (frame == nullptr) throw std::bad_alloc();
  return frame;
}

Frame frame_of(const AVCodecParameters& parameters, const AVPacket& packet) {
  const Codec codec = source_decoder(parameters);
  Frame frame = new_frame();
  if (!decode(*codec, &packet, *frame) && !decode(*codec, nullptr, *frame))
    throw Refusal("its picture is broken, or has more than " + std::to_string(kMostPixels >> 20) + " million pixels");
  return frame;
}

// The next frame of the stream from the file's present position on; null: there is none.
Frame next_frame(const Source& source, const AVStream& stream, AVCodecContext& codec) {
  const Packet packet(av_packet_alloc());
  Frame frame = new_frame();
  if (packet == nullptr) throw std::bad_alloc();
  for (int packets = 0; packets < kMostPackets; ++packets) {
    check_time(source.deadline);
    if (av_read_frame(source.format.get(), packet.get()) < 0)
      return decode(codec, nullptr, *frame) ? std::move(frame) : nullptr;
    const bool found = packet->stream_index == stream.index && decode(codec, packet.get(), *frame);
    av_packet_unref(packet.get());
    if (found) return frame;
  }
  return nullptr;
}

// A frame from a few seconds into the video, or from further on if that one is dark.
Image video_image(const Source& source, const AVStream& stream, ImageSize bounds) {
  const Codec codec = source_decoder(*stream.codecpar);
  const std::int64_t duration = std::max<std::int64_t>(source.format->duration, 0);
  const std::int64_t begin = source.format->start_time == AV_NOPTS_VALUE ? 0 : source.format->start_time;
  std::optional<Image> dark;
  for (const std::int64_t at : {std::min(duration / 10, kFewSeconds), duration / 4, duration / 2, std::int64_t{0}}) {
    std::int64_t target = 0;
    if (__builtin_add_overflow(begin, at, &target)) continue;
    // If seeking fails, the next frame is taken.
    if (at > 0 || dark) avformat_seek_file(source.format.get(), -1, INT64_MIN, target, target, 0);
    avcodec_flush_buffers(codec.get());
    const Frame frame = next_frame(source, stream, *codec);
    if (frame == nullptr) continue;
    if (frame->sample_aspect_ratio.num == 0) frame->sample_aspect_ratio = stream.sample_aspect_ratio;
    Image image = image_of_frame(*frame, bounds);
    if (image_brightness(image) >= kDark) return image;
    if (!dark) dark = std::move(image);
  }
  if (!dark) throw Refusal("none of its pictures can be decoded");
  return *std::move(dark);
}

Image cover_image(const AVStream& stream, ImageSize bounds) {
  const AVPacket& packet = stream.attached_pic;
  Image image;
  if (stream.codecpar->codec_id == AV_CODEC_ID_MJPEG &&
      image_of_jpeg({packet.data, static_cast<std::size_t>(packet.size)}, bounds, image))
    return image;
  return image_of_frame(*frame_of(*stream.codecpar, packet), bounds);
}

// The camera's own thumbnail, if it is large enough and has the picture's shape. False: it is not.
bool camera_image(const JpegHeader& header, const Exif& exif, ImageSize bounds, Image& ret_image) {
  if (exif.thumbnail.empty()) return false;
  const ImageSize wanted = image_fit({header.width, header.height}, bounds);
  Image image;
  try {
    if (!image_of_jpeg(exif.thumbnail, bounds, image)) return false;
  } catch (const Refusal&) {
    return false;  // the thumbnail is broken; the photo may not be
  }
  const auto differs = [](std::uint32_t one, std::uint32_t other) {
    return one > other ? one - other > 1 : other - one > 1;
  };
  if (differs(image.width, wanted.width) || differs(image.height, wanted.height)) return false;
  ret_image = std::move(image);
  return true;
}

// Decodes a JPEG. False: only FFmpeg can decode it.
bool jpeg_image(Source& source, ImageSize bounds, bool thumbnail, Image& ret_image) {
  const std::optional<JpegHeader> header = jpeg_header(source);
  if (!header) return false;
  const Exif exif = exif_read(header->exif);
  bounds = image_unturned(bounds, exif.orientation);
  Image image;
  if (!thumbnail || !camera_image(*header, exif, bounds, image)) {
    if (source.size > static_cast<std::int64_t>(kMostPhotoBytes))
      throw Refusal("the photo has more than " + std::to_string(kMostPhotoBytes >> 20) + " MiB");
    if (!image_of_jpeg(source_bytes(source, 0, kMostPhotoBytes), bounds, image)) return false;
  }
  ret_image = image_turn(std::move(image), exif.orientation);
  return true;
}

}  // namespace

Image read_picture(Source& source, int file, const std::string& extension, Deadline deadline, ImageSize bounds,
                   bool any) {
  source_probe(source, file, extension, deadline);
  if (source.kind == nullptr) throw Refusal("it is neither a photo nor music nor a video");
  const bool is_jpeg = std::strcmp(source.kind->name, "jpeg_pipe") == 0;
  Image image;
  if (is_jpeg && jpeg_image(source, bounds, any, image)) return image;
  source_open(source, extension);
  const E_MEDIA_TYPE kind = kind_of(source);
  if (kind != MEDIA_TYPE_PHOTO && !any) throw Refusal("it is not a photo");
  const AVStream* const video = kind_video(source);
  const AVStream* const cover = kind_cover(source);
  if (video == nullptr && cover == nullptr) throw Refusal("it has no picture");
  if (video == nullptr || (kind == MEDIA_TYPE_VIDEO && cover != nullptr)) return cover_image(*cover, bounds);
  std::uint32_t turn = kind_turn(*video);
  if (is_jpeg) {
    // A damaged file can look like a JPEG to FFmpeg only.
    const std::optional<JpegHeader> header = jpeg_header(source);
    if (header) turn = exif_read(header->exif).orientation;
  }
  bounds = image_unturned(bounds, turn);
  if (kind == MEDIA_TYPE_VIDEO) return image_turn(video_image(source, *video, bounds), turn);
  const Codec codec = source_decoder(*video->codecpar);
  const Frame frame = next_frame(source, *video, *codec);
  check_time(deadline);
  if (frame == nullptr)
    throw Refusal("the photo is broken, or has more than " + std::to_string(kMostPixels >> 20) + " million pixels");
  return image_turn(image_of_frame(*frame, bounds), turn);
}
