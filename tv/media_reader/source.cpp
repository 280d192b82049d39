#include "source.h"

#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <system_error>

extern "C" {
#include <libavutil/avstring.h>
#include <libavutil/dict.h>
}

namespace {

constexpr int kBuffer = 32 << 10;  // bytes that are read from the file at once
constexpr const char* kMostStreams = "64";

// FFmpeg's names of the formats that a television plays. Formats that name other files (playlists, lists of parts) are
// not among them.
constexpr const char* kKinds =
    "bmp_pipe,jpeg_pipe,pam_pipe,pbm_pipe,pgm_pipe,png_pipe,ppm_pipe,qoi_pipe,tiff_pipe,webp_pipe,apng,gif,"
    "aac,ac3,aiff,amr,ape,asf,au,avi,caf,dsf,dts,dtshd,dv,eac3,flac,flv,h264,hevc,ivf,m4v,matroska,mjpeg,mov,mp3,mpc,"
    "mpc8,mpeg,mpegts,mpegvideo,ogg,rm,tta,w64,wav,wv";

struct Options {
  AVDictionary* entries = nullptr;
  Options() = default;
  ~Options() { av_dict_free(&entries); }
  Options(const Options&) = delete;
  Options& operator=(const Options&) = delete;
};

bool is_late(const Source& source) { return std::chrono::steady_clock::now() >= source.deadline; }

int read_some(void* opaque, std::uint8_t* ret_bytes, int count) {
  Source& source = *static_cast<Source*>(opaque);
  if (is_late(source)) return AVERROR_EXIT;
  ssize_t got = 0;
  do {
    got = pread(source.file, ret_bytes, static_cast<std::size_t>(count), source.position);
  } while (got < 0 && errno == EINTR);
  if (got < 0) {
    source.error = errno;
    return AVERROR(errno);
  }
  if (got == 0) return AVERROR_EOF;
  source.position += got;
  return static_cast<int>(got);
}

std::int64_t seek(void* opaque, std::int64_t to, int whence) {
  Source& source = *static_cast<Source*>(opaque);
  whence &= ~AVSEEK_FORCE;
  if (whence == AVSEEK_SIZE) return source.size;
  std::int64_t from = 0;
  if (whence == SEEK_CUR) from = source.position;
  if (whence == SEEK_END) from = source.size;
  std::int64_t target = 0;
  if (__builtin_add_overflow(from, to, &target) || target < 0) return AVERROR(EINVAL);
  return source.position = target;
}

int interrupt(void* opaque) { return is_late(*static_cast<Source*>(opaque)) ? 1 : 0; }

int open_nothing(AVFormatContext*, AVIOContext**, const char*, int, AVDictionary**) { return AVERROR(EACCES); }

std::string name_of(const std::string& extension) { return extension.empty() ? "file" : "file." + extension; }

[[noreturn]] void refuse(const Source& source, int error) {
  check_time(source.deadline);
  if (error == AVERROR(ENOMEM)) throw std::bad_alloc();
  throw Refusal(source_error(error));
}

}  // namespace

void StreamIoEnd::operator()(AVIOContext* io) const {
  av_freep(static_cast<void*>(&io->buffer));
  avio_context_free(&io);
}

void check_time(Deadline deadline) {
  if (std::chrono::steady_clock::now() >= deadline) throw Refusal("reading it takes too long");
}

std::string source_error(int error) {
  std::array<char, AV_ERROR_MAX_STRING_SIZE> text{};
  av_strerror(error, text.data(), text.size());
  return text.data();
}

std::vector<std::uint8_t> source_bytes(Source& source, std::int64_t from, std::size_t count) {
  const std::int64_t left = std::max<std::int64_t>(source.size - from, 0);
  std::vector<std::uint8_t> bytes(static_cast<std::size_t>(std::min(left, static_cast<std::int64_t>(count))));
  std::size_t done = 0;
  while (done < bytes.size()) {
    check_time(source.deadline);
    constexpr std::size_t kAtOnce = std::size_t{1} << 20;  // bytes between two checks of the time
    const ssize_t got = pread(source.file, bytes.data() + done, std::min(bytes.size() - done, kAtOnce),
                              from + static_cast<std::int64_t>(done));
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) {
      source.error = errno;
      throw Refusal(std::generic_category().message(source.error));
    }
    if (got == 0) break;
    done += static_cast<std::size_t>(got);
  }
  bytes.resize(done);
  return bytes;
}

void source_probe(Source& source, int file, const std::string& extension, Deadline deadline) {
  source.deadline = deadline;
  struct stat info {};
  // The C library's fstat makes a call that can also look at other files, which the process may not make.
  if (syscall(SYS_fstat, file, &info) != 0 || !S_ISREG(info.st_mode)) throw Refusal("it is not a regular file");
  source.file = file;
  source.size = info.st_size;
  auto* const buffer = static_cast<unsigned char*>(av_malloc(kBuffer));
  if (buffer == nullptr) throw std::bad_alloc();
  source.io.reset(avio_alloc_context(buffer, kBuffer, 0, &source, read_some, nullptr, seek));
  if (source.io == nullptr) {
    av_free(buffer);
    throw std::bad_alloc();
  }
  if (const std::vector<std::uint8_t> start = source_bytes(source, 0, 3);
      start == std::vector<std::uint8_t>{0xFF, 0xD8, 0xFF} && !extension.starts_with("mj")) {
    source.kind = av_find_input_format("jpeg_pipe");  // by force, since FFmpeg takes a broken one for other formats
    return;
  }
  // FFmpeg gives a picture's name more weight than its contents, because the name may be a pattern for several files.
  // Without the name it goes by the contents.
  for (const std::string& name : {name_of(extension), name_of({})}) {
    const AVInputFormat* kind = nullptr;
    const int result = av_probe_input_buffer2(source.io.get(), &kind, name.c_str(), nullptr, 0, 0);
    check_time(deadline);
    if (source.error != 0) throw Refusal(std::generic_category().message(source.error));
    if (result <= AVPROBE_SCORE_RETRY || kind == nullptr) return;  // a guess
    if (av_match_list(kind->name, kKinds, ',') > 0) source.kind = kind;
    if (std::strcmp(kind->name, "image2") != 0) return;
  }
}

void source_open(Source& source, const std::string& extension) {
  AVFormatContext* format = avformat_alloc_context();
  if (format == nullptr) throw std::bad_alloc();
  format->pb = source.io.get();
  format->flags |= AVFMT_FLAG_CUSTOM_IO;
  format->io_open = open_nothing;
  format->interrupt_callback = {.callback = interrupt, .opaque = &source};
  Options options;
  av_dict_set(&options.entries, "protocol_whitelist", "", 0);
  av_dict_set(&options.entries, "format_whitelist", kKinds, 0);
  av_dict_set(&options.entries, "max_streams", kMostStreams, 0);
  const int opened = avformat_open_input(&format, name_of(extension).c_str(), source.kind, &options.entries);
  if (opened < 0) refuse(source, opened);  // the context has been freed
  source.format.reset(format);

  std::vector<AVDictionary*> of_streams(format->nb_streams);
  for (AVDictionary*& each : of_streams) {
    av_dict_set_int(&each, "max_pixels", kMostPixels, 0);
    av_dict_set(&each, "threads", "1", 0);
  }
  const int found = avformat_find_stream_info(format, of_streams.empty() ? nullptr : of_streams.data());
  for (AVDictionary*& each : of_streams) av_dict_free(&each);
  if (found < 0) refuse(source, found);
  check_time(source.deadline);
}

Codec source_decoder(const AVCodecParameters& parameters) {
  const AVCodec* const decoder = avcodec_find_decoder(parameters.codec_id);
  if (decoder == nullptr) throw Refusal("its coding is unknown");
  Codec codec(avcodec_alloc_context3(decoder));
  if (codec == nullptr || avcodec_parameters_to_context(codec.get(), &parameters) < 0) throw std::bad_alloc();
  codec->thread_count = 1;
  codec->max_pixels = kMostPixels;
  const int opened = avcodec_open2(codec.get(), decoder, nullptr);
  if (opened == AVERROR(ENOMEM)) throw std::bad_alloc();
  if (opened < 0) throw Refusal(source_error(opened));
  return codec;
}
