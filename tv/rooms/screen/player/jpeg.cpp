#include "rooms/screen/player/jpeg.h"

#include <turbojpeg.h>

#include <memory>
#include <type_traits>

namespace {

constexpr int kQuality = 80;

struct CompressorEnd {
  void operator()(void* compressor) const { tjDestroy(compressor); }
};
struct BytesEnd {
  void operator()(unsigned char* bytes) const { tjFree(bytes); }
};

}  // namespace

bool jpeg_write(const Canvas& canvas, std::vector<std::uint8_t>& ret_jpeg, std::string& ret_error) {
  const std::unique_ptr<std::remove_pointer_t<tjhandle>, CompressorEnd> compressor(tjInitCompress());
  unsigned char* bytes = nullptr;
  unsigned long size = 0;
  const bool written = compressor != nullptr && tjCompress2(compressor.get(), canvas.pixels.data(), kScreenWidth,
                                                            static_cast<int>(kScreenStride), kScreenHeight, TJPF_BGRX,
                                                            &bytes, &size, TJSAMP_420, kQuality, TJFLAG_FASTDCT) == 0;
  const std::unique_ptr<unsigned char, BytesEnd> owned(bytes);
  if (!written) {
    ret_error = std::string("the picture cannot be compressed: ") + tjGetErrorStr2(compressor.get());
    return false;
  }
  ret_jpeg.assign(bytes, bytes + size);
  return true;
}
