// Replaces dtv-media-reader in tests: a process that a hostile file controls. The file's first word selects what the
// process does.
#include <fcntl.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string>

#include "media_reader/confine.h"
#include "media_reader/wire.h"

namespace {

bool receive(WireRequest& ret_request, int& ret_file) {
  iovec data{.iov_base = &ret_request, .iov_len = sizeof ret_request};
  alignas(cmsghdr) char control[CMSG_SPACE(sizeof(int))];
  msghdr message{};
  message.msg_iov = &data;
  message.msg_iovlen = 1;
  message.msg_control = control;
  message.msg_controllen = sizeof control;
  if (recvmsg(kWireSocket, &message, 0) <= 0 || CMSG_FIRSTHDR(&message) == nullptr) return false;
  std::memcpy(&ret_file, CMSG_DATA(CMSG_FIRSTHDR(&message)), sizeof ret_file);
  return true;
}

void say(const void* bytes, std::size_t size) { send(kWireSocket, bytes, size, MSG_NOSIGNAL); }

// What a process that has confined itself can still do. Each letter is something that worked.
std::string escapes(int file) {
  std::string worked;
  if (confine() != nullptr) return "it cannot be confined";
  if (open("/etc/passwd", O_RDONLY | O_CLOEXEC) >= 0) worked += 'o';
  if (socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0) >= 0) worked += 's';
  if (fork() >= 0) worked += 'f';
  char* const arguments[] = {const_cast<char*>("true"), nullptr};
  if (execv("/bin/true", arguments) == 0 || errno != EPERM) worked += 'e';
  if (mmap(nullptr, 4096, PROT_READ | PROT_WRITE | PROT_EXEC, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0) != MAP_FAILED)
    worked += 'x';
  if (mmap(nullptr, kMostMemory + (std::size_t{1} << 20), PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0) !=
      MAP_FAILED)
    worked += 'm';
  if (kill(getppid(), 0) == 0) worked += 'k';
  if (ftruncate(kWireMemory, 0) == 0) worked += 't';
  char byte = 0;
  if (pread(file, &byte, 1, 0) != 1) worked = "it cannot read its file";
  return worked.empty() ? "nothing" : worked;
}

}  // namespace

int main() {
  WireReply hello;
  say(&hello, sizeof hello);
  WireRequest request;
  int file = -1;
  while (receive(request, file)) {
    char text[64] = {};
    const ssize_t got = pread(file, text, sizeof text - 1, 0);
    const std::string word(text, got > 0 ? static_cast<std::size_t>(got) : 0);
    WireReply reply{.serial = request.serial};
    if (word == "crash") {
      signal(SIGSEGV, SIG_DFL);  // a sanitizer would handle it
      raise(SIGSEGV);
    }
    if (word == "exit") _exit(7);
    if (word == "stop") raise(SIGSTOP);
    if (word == "silent") continue;
    if (word == "close") shutdown(kWireSocket, SHUT_RDWR);
    if (word == "short") say("abc", 3);
    if (word == "empty") say("", 0);
    if (word == "long") {
      const std::string bytes(sizeof reply + 1, '\0');
      say(bytes.data(), bytes.size());
    }
    if (word == "magic") reply.magic = 1;
    if (word == "serial") ++reply.serial;
    if (word == "kind") reply.kind = 4;
    if (word == "twice") say(&reply, sizeof reply);
    if (word == "escape") std::strcpy(reply.texts[0], escapes(file).c_str());
    if (word == "escape") reply.kind = 2;
    if (word == "huge") reply.size = static_cast<std::uint32_t>(kWireMemorySize) + 1;
    if (word == "no jpeg") reply.size = 1000;
    if (word == "too wide") {
      reply.width = 1U << 31;
      reply.height = 2;
      reply.size = 8;  // 4 * width * height, were it counted in 32 bits
    }
    if (word == "files") {  // as many descriptors as a message may have
      iovec data{.iov_base = &reply, .iov_len = sizeof reply};
      int files[100];
      for (int& each : files) each = kWireMemory;
      alignas(cmsghdr) char control[CMSG_SPACE(sizeof files)] = {};
      msghdr message{};
      message.msg_iov = &data;
      message.msg_iovlen = 1;
      message.msg_control = control;
      message.msg_controllen = sizeof control;
      cmsghdr* const header = CMSG_FIRSTHDR(&message);
      header->cmsg_level = SOL_SOCKET;
      header->cmsg_type = SCM_RIGHTS;
      header->cmsg_len = CMSG_LEN(sizeof files);
      std::memcpy(CMSG_DATA(header), files, sizeof files);
      sendmsg(kWireSocket, &message, MSG_NOSIGNAL);
      continue;
    }
    say(&reply, sizeof reply);
    close(file);
  }
  return 0;
}
