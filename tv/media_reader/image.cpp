#include "image.h"

#include <turbojpeg.h>

extern "C" {
#include <libavutil/pixdesc.h>
#include <libswscale/swscale.h>
}

#include <algorithm>
#include <array>
#include <cstring>
#include <memory>
#include <type_traits>

namespace {

constexpr int kQuality = 82;

struct TurboEnd {
  void operator()(void* turbo) const { tjDestroy(turbo); }
};
using Turbo = std::unique_ptr<std::remove_pointer_t<tjhandle>, TurboEnd>;

struct ScalerEnd {
  void operator()(SwsContext* scaler) const { sws_freeContext(scaler); }
};

struct BytesEnd {
  void operator()(unsigned char* bytes) const { tjFree(bytes); }
};

Image image_make(ImageSize size) {
  return {.width = size.width,
          .height = size.height,
          .pixels = std::vector<std::uint8_t>(std::size_t{4} * size.width * size.height)};
}

struct Planes {
  std::array<const std::uint8_t*, 4> data = {};
  std::array<int, 4> lines = {};
};

Image scale(const Planes& from, ImageSize size, AVPixelFormat format, bool full_range, ImageSize to) {
  Image image = image_make(to);
  // The bicubic filter reads every pixel when it makes a picture smaller.
  const std::unique_ptr<SwsContext, ScalerEnd> scaler(
      sws_getContext(static_cast<int>(size.width), static_cast<int>(size.height), format, static_cast<int>(to.width),
                     static_cast<int>(to.height), AV_PIX_FMT_BGRA, SWS_BICUBIC, nullptr, nullptr, nullptr));
  if (scaler == nullptr) throw Refusal("its colours cannot be converted");
  if (full_range) {
    const int* const matrix = sws_getCoefficients(SWS_CS_DEFAULT);
    sws_setColorspaceDetails(scaler.get(), matrix, 1, matrix, 1, 0, 1 << 16, 1 << 16);
  }
  std::uint8_t* const planes[] = {image.pixels.data(), nullptr, nullptr, nullptr};
  const int lines[] = {static_cast<int>(4 * to.width), 0, 0, 0};
  if (sws_scale(scaler.get(), from.data.data(), from.lines.data(), 0, static_cast<int>(size.height), planes, lines) <=
      0)
    throw Refusal("it cannot be scaled");
  return image;
}

// Blends transparent pixels with black.
void blend(Image& image) {
  for (std::size_t i = 0; i < image.pixels.size(); i += 4)
    for (std::size_t colour = 0; colour < 3; ++colour)
      image.pixels[i + colour] = static_cast<std::uint8_t>(image.pixels[i + colour] * image.pixels[i + 3] / 255);
}

// Width and height for display, since the pixels of some videos are not square.
ImageSize seen_size(const AVFrame& frame) {
  const auto width = static_cast<std::uint32_t>(frame.width), height = static_cast<std::uint32_t>(frame.height);
  const AVRational shape = frame.sample_aspect_ratio;
  constexpr int kMostShape = 8;  // of a pixel's width to its height, or the reverse; more is an error in the file
  if (shape.num <= 0 || shape.den <= 0 || shape.num / shape.den >= kMostShape || shape.den / shape.num >= kMostShape)
    return {width, height};
  const auto wide = static_cast<std::uint32_t>(av_rescale(frame.width, shape.num, shape.den));
  return {std::max<std::uint32_t>(wide, 1), height};
}

}  // namespace

ImageSize image_fit(ImageSize size, ImageSize bounds) {
  if (size.width <= bounds.width && size.height <= bounds.height) return size;
  const std::uint64_t by_width = std::uint64_t{size.height} * bounds.width / std::max(size.width, 1U);
  if (by_width <= bounds.height)
    return {bounds.width, std::max<std::uint32_t>(static_cast<std::uint32_t>(by_width), 1)};
  const std::uint64_t by_height = std::uint64_t{size.width} * bounds.height / std::max(size.height, 1U);
  return {std::max<std::uint32_t>(static_cast<std::uint32_t>(by_height), 1), bounds.height};
}

ImageSize image_unturned(ImageSize bounds, std::uint32_t orientation) {
  return orientation >= 5 ? ImageSize{bounds.height, bounds.width} : bounds;
}

Image image_of_frame(const AVFrame& frame, ImageSize bounds) {
  const auto format = static_cast<AVPixelFormat>(frame.format);
  const AVPixFmtDescriptor* const described = av_pix_fmt_desc_get(format);
  if (frame.width <= 0 || frame.height <= 0 || described == nullptr) throw Refusal("no picture is found in it");
  Planes planes;
  std::copy_n(std::begin(frame.data), planes.data.size(), planes.data.begin());
  std::copy_n(std::begin(frame.linesize), planes.lines.size(), planes.lines.begin());
  Image image = scale(planes, {static_cast<std::uint32_t>(frame.width), static_cast<std::uint32_t>(frame.height)},
                      format, frame.color_range == AVCOL_RANGE_JPEG, image_fit(seen_size(frame), bounds));
  if ((described->flags & (AV_PIX_FMT_FLAG_ALPHA | AV_PIX_FMT_FLAG_PAL)) != 0) blend(image);
  return image;
}

bool image_of_jpeg(std::span<const std::uint8_t> jpeg, ImageSize bounds, Image& ret_image) {
  const Turbo turbo(tjInitDecompress());
  if (turbo == nullptr) throw std::bad_alloc();
  int width = 0, height = 0, subsampling = 0, colours = 0;
  if (tjDecompressHeader3(turbo.get(), jpeg.data(), jpeg.size(), &width, &height, &subsampling, &colours) != 0 ||
      width <= 0 || height <= 0)
    return false;
  if (colours == TJCS_CMYK || colours == TJCS_YCCK) return false;
  if (std::int64_t{width} * height > kMostJpegPixels) throw Refusal("it has too many pixels");
  const ImageSize full{static_cast<std::uint32_t>(width), static_cast<std::uint32_t>(height)};
  const ImageSize wanted = image_fit(full, bounds);
  // The smallest size that the decoder can scale to and that is not below the wanted one.
  int count = 0;
  const tjscalingfactor* const factors = tjGetScalingFactors(&count);
  ImageSize best = full;
  for (int i = 0; i < count; ++i) {
    const ImageSize size{static_cast<std::uint32_t>(TJSCALED(width, factors[i])),
                         static_cast<std::uint32_t>(TJSCALED(height, factors[i]))};
    if (size.width >= wanted.width && size.height >= wanted.height && size.width < best.width) best = size;
  }
  Image image = image_make(best);
  const int decoded =
      tjDecompress2(turbo.get(), jpeg.data(), jpeg.size(), image.pixels.data(), static_cast<int>(best.width), 0,
                    static_cast<int>(best.height), TJPF_BGRX, TJFLAG_LIMITSCANS);
  // After a warning, the file is truncated or damaged, but part of the picture is decoded.
  if (decoded != 0 && tjGetErrorCode(turbo.get()) != TJERR_WARNING) throw Refusal(tjGetErrorStr2(turbo.get()));
  if (best.width != wanted.width || best.height != wanted.height) {
    const Planes planes{.data = {image.pixels.data()}, .lines = {static_cast<int>(4 * best.width)}};
    image = scale(planes, best, AV_PIX_FMT_BGR0, false, wanted);
  }
  ret_image = std::move(image);
  return true;
}

Image image_turn(Image image, std::uint32_t orientation) {
  if (orientation <= 1 || orientation > 8) return image;
  const std::size_t width = image.width, height = image.height;
  const bool lies = orientation >= 5;
  Image turned = image_make(lies ? ImageSize{image.height, image.width} : ImageSize{image.width, image.height});
  // Where the turned picture's first pixel comes from, and the steps in the picture's memory to the next pixel of the
  // row and to the next row.
  const bool from_right = orientation == 2 || orientation == 3 || orientation == 7 || orientation == 8;
  const bool from_bottom = orientation == 3 || orientation == 4 || orientation == 6 || orientation == 7;
  const auto start =
      static_cast<std::ptrdiff_t>((from_bottom ? (height - 1) * width : 0) + (from_right ? width - 1 : 0));
  const std::ptrdiff_t aside = from_right ? -1 : 1;
  const std::ptrdiff_t down = from_bottom ? -static_cast<std::ptrdiff_t>(width) : static_cast<std::ptrdiff_t>(width);
  std::uint8_t* to = turned.pixels.data();
  for (std::ptrdiff_t y = 0; y < static_cast<std::ptrdiff_t>(turned.height); ++y)
    for (std::ptrdiff_t x = 0; x < static_cast<std::ptrdiff_t>(turned.width); ++x, to += 4) {
      const std::ptrdiff_t from = start + (lies ? y * aside + x * down : x * aside + y * down);
      std::memcpy(to, image.pixels.data() + 4 * from, 4);
    }
  return turned;
}

std::uint32_t image_brightness(const Image& image) {
  std::uint64_t sum = 0;
  for (std::size_t i = 0; i < image.pixels.size(); i += 4)
    sum += (image.pixels[i] + 2U * image.pixels[i + 1] + image.pixels[i + 2]) / 4;
  return static_cast<std::uint32_t>(sum / std::max<std::size_t>(image.pixels.size() / 4, 1));
}

std::vector<std::uint8_t> image_jpeg(const Image& image) {
  const Turbo turbo(tjInitCompress());
  unsigned char* bytes = nullptr;
  unsigned long size = 0;
  const bool written = turbo != nullptr && tjCompress2(turbo.get(), image.pixels.data(), static_cast<int>(image.width),
                                                       0, static_cast<int>(image.height), TJPF_BGRX, &bytes, &size,
                                                       TJSAMP_420, kQuality, TJFLAG_FASTDCT) == 0;
  const std::unique_ptr<unsigned char, BytesEnd> owned(bytes);
  if (!written) throw Refusal("its thumbnail cannot be compressed");
  return {bytes, bytes + size};
}
