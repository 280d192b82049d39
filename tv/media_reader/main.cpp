// dtv-media-reader: reads media files that its client passes as open file descriptors, and replies what they contain
// (wire.h). The virtual television starts it; it has no use of its own. It ends when the client closes the socket.
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <new>
#include <span>
#include <string>

#include "confine.h"
#include "facts.h"
#include "media_reader/wire.h"
#include "tvapi/cbrowser.h"

extern "C" {
#include <libavutil/log.h>
}

namespace {

using std::chrono::milliseconds;

// The process gives up this long before the client stops waiting for the reply.
constexpr milliseconds kMargin{200};

// Receives a request and its file. False: the client has gone, or has sent something else.
bool receive(WireRequest& ret_request, int& ret_file) {
  WireRequest request;
  iovec data{.iov_base = &request, .iov_len = sizeof request};
  alignas(cmsghdr) char control[CMSG_SPACE(sizeof(int))];
  msghdr message{};
  message.msg_iov = &data;
  message.msg_iovlen = 1;
  message.msg_control = control;
  message.msg_controllen = sizeof control;
  ssize_t got = 0;
  do {
    got = recvmsg(kWireSocket, &message, MSG_CMSG_CLOEXEC);
  } while (got < 0 && errno == EINTR);
  const cmsghdr* const header = CMSG_FIRSTHDR(&message);
  if (got != sizeof request || request.magic != kWireMagic || header == nullptr || header->cmsg_level != SOL_SOCKET ||
      header->cmsg_type != SCM_RIGHTS)
    return false;
  std::memcpy(&ret_file, CMSG_DATA(header), sizeof ret_file);
  ret_request = request;
  return true;
}

void put_why(WireReply& ret_reply, const char* why) {
  const std::size_t size = std::min(std::strlen(why), sizeof ret_reply.why - 1);
  std::memcpy(ret_reply.why, why, size);
  ret_reply.refused = 1;
}

void answer(const WireRequest& request, int file, std::span<std::uint8_t> memory, WireReply& ret_reply) {
  const char* const end = std::find(std::begin(request.extension), std::end(request.extension), '\0');
  const std::string extension(std::begin(request.extension), end);
  const milliseconds time(request.milliseconds);
  const Deadline deadline = std::chrono::steady_clock::now() + std::max(time - kMargin, time / 2);
  if (request.what == WireWhat::kFacts) return read_facts(file, extension, deadline, ret_reply);
  const ImageSize bounds{std::clamp(request.width, 1U, kMostPictureWidth),
                         std::clamp(request.height, 1U, kMostPictureHeight)};
  const bool thumbnail = request.what == WireWhat::kThumbnail;
  const Image image = read_picture(file, extension, deadline, bounds, thumbnail);
  const std::vector<std::uint8_t> jpeg = thumbnail ? image_jpeg(image) : std::vector<std::uint8_t>();
  const std::vector<std::uint8_t>& bytes = thumbnail ? jpeg : image.pixels;
  if (bytes.size() > memory.size()) throw Refusal("its picture is too large");
  std::ranges::copy(bytes, memory.begin());
  ret_reply.kind = MEDIA_TYPE_PHOTO;
  ret_reply.width = image.width;
  ret_reply.height = image.height;
  ret_reply.size = static_cast<std::uint32_t>(bytes.size());
}

WireReply reply_to(const WireRequest& request, int file, std::span<std::uint8_t> memory) {
  WireReply reply{.serial = request.serial};
  try {
    answer(request, file, memory, reply);
    return reply;
  } catch (const std::bad_alloc&) {
    reply = {.serial = request.serial};
    put_why(reply, "it takes more memory than is allowed");
  } catch (const std::exception& failure) {
    reply = {.serial = request.serial};
    put_why(reply, failure.what());
  }
  return reply;
}

bool send_reply(const WireReply& reply) {
  return send(kWireSocket, &reply, sizeof reply, MSG_NOSIGNAL) == sizeof reply;
}

}  // namespace

int main() {
  void* const mapped = mmap(nullptr, kWireMemorySize, PROT_READ | PROT_WRITE, MAP_SHARED, kWireMemory, 0);
  if (mapped == MAP_FAILED) {
    std::fputs("dtv-media-reader: the virtual television starts this program; it is of no use by itself\n", stderr);
    return 2;
  }
  av_log_set_level(AV_LOG_QUIET);
  WireReply hello;
  if (const char* const why = confine(); why != nullptr) put_why(hello, why);
  if (!send_reply(hello) || hello.refused != 0) return 1;
  const std::span memory(static_cast<std::uint8_t*>(mapped), kWireMemorySize);
  WireRequest request;
  int file = -1;
  while (receive(request, file)) {
    // Ends this process when the client dies, since a library may be in an endless loop then.
    alarm(request.milliseconds / 1000 + 2);
    const WireReply reply = reply_to(request, file, memory);
    close(file);
    alarm(0);
    if (!send_reply(reply)) break;
  }
  return 0;
}
