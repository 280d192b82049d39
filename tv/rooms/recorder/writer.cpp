#include "rooms/recorder/writer.h"

#include <fcntl.h>
#include <pthread.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <span>
#include <thread>
#include <utility>
#include <vector>

#include "broadcast/service_stream.h"

namespace {

constexpr std::size_t kBatch = 256U << 10;              // bytes that are worth a write
constexpr std::chrono::milliseconds kLongestWait(500);  // for a batch, so that a player of the file gets the rest
constexpr std::uint64_t kSyncEvery = 16ULL << 20;       // bytes that a power cut may lose

constexpr std::size_t kLengthBlock = 1U << 20;  // bytes at each end of the file in which file_length looks
constexpr std::uint64_t kPcrClock = 90000;      // ticks of a PCR's base per second
constexpr std::uint64_t kPcrWrap = 1ULL << 33;

}  // namespace

struct Writer {
  ServiceStreamHandle stream;  // with the packets: used by the reception's thread only
  std::vector<std::uint8_t> packets;

  std::mutex lock;  // guards the next members
  std::condition_variable changed;
  std::vector<std::uint8_t> waiting;  // at most kWriterBuffer
  std::uint64_t lost = 0;
  bool scrambled = false;
  bool gone = false;     // the multiplex ended
  bool closing = false;  // the writer is being destroyed
  INT32 reason = RECLIST_REASON_NONE;

  std::atomic<std::uint64_t> written = 0;
  std::uint64_t synced = 0;  // the writer's thread uses this and the file
  std::string path;
  int file = -1;
  void (*ended)() = nullptr;
  std::thread thread;
  ReceptionHandle reception;
};

namespace {

void take_packets(void* context, const PlayoutChunk& chunk) {
  Writer& writer = *static_cast<Writer*>(context);
  writer.packets.clear();
  service_stream_take(*writer.stream, chunk, writer.packets);
  const bool scrambled = service_stream_scrambled(*writer.stream);
  const std::lock_guard guard(writer.lock);
  writer.scrambled = scrambled;
  if (writer.reason != RECLIST_REASON_NONE) return;
  if (writer.waiting.size() + writer.packets.size() > kWriterBuffer) {
    writer.lost += writer.packets.size();
    return;
  }
  writer.waiting.insert(writer.waiting.end(), writer.packets.begin(), writer.packets.end());
  if (writer.waiting.size() >= kBatch) writer.changed.notify_one();
}

void lose_multiplex(void* context, const std::string&) {
  Writer& writer = *static_cast<Writer*>(context);
  const std::lock_guard guard(writer.lock);
  writer.gone = true;
  writer.changed.notify_one();
}

std::uint64_t free_bytes(const struct statvfs& disk) {
  return static_cast<std::uint64_t>(disk.f_bavail) * disk.f_frsize;
}

// Whether the path still leads to the open file.
bool is_in_place(const Writer& writer) {
  struct stat open {};
  struct stat named {};
  return fstat(writer.file, &open) == 0 && stat(writer.path.c_str(), &named) == 0 && open.st_ino == named.st_ino &&
         open.st_dev == named.st_dev;
}

INT32 write_bytes(Writer& writer, std::span<const std::uint8_t> bytes) {
  while (!bytes.empty()) {
    const ssize_t count = write(writer.file, bytes.data(), bytes.size());
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) {
      const bool full = errno == ENOSPC || errno == EDQUOT || errno == EFBIG;
      return full ? RECLIST_REASON_DISK_FULL : RECLIST_REASON_DISK_ERROR;
    }
    bytes = bytes.subspan(static_cast<std::size_t>(count));
    writer.written += static_cast<std::uint64_t>(count);
  }
  if (writer.written - writer.synced >= kSyncEvery) {
    writer.synced = writer.written;
    if (fdatasync(writer.file) != 0) return RECLIST_REASON_DISK_ERROR;
  }
  return RECLIST_REASON_NONE;
}

INT32 write_batch(Writer& writer, std::span<const std::uint8_t> bytes) {
  if (!is_in_place(writer)) return RECLIST_REASON_FILE_GONE;
  struct statvfs disk {};
  if (fstatvfs(writer.file, &disk) != 0) return RECLIST_REASON_DISK_ERROR;
  if (free_bytes(disk) < kDiskReserve + bytes.size()) return RECLIST_REASON_DISK_FULL;
  return write_bytes(writer, bytes);
}

void write_file(Writer& writer) {
  pthread_setname_np(pthread_self(), "dtv_tv-record");
  std::vector<std::uint8_t> batch;
  std::unique_lock guard(writer.lock);
  INT32 reason = RECLIST_REASON_NONE;
  bool last = false;
  while (reason == RECLIST_REASON_NONE && !last) {
    writer.changed.wait_for(guard, kLongestWait,
                            [&writer] { return writer.closing || writer.gone || writer.waiting.size() >= kBatch; });
    batch.clear();
    batch.swap(writer.waiting);
    last = writer.closing || writer.gone;  // nothing is added after either
    guard.unlock();
    if (!batch.empty()) reason = write_batch(writer, batch);
    guard.lock();
  }
  if (reason == RECLIST_REASON_NONE && !writer.closing) reason = RECLIST_REASON_SIGNAL_LOST;
  writer.reason = reason;
  writer.waiting = {};
  const bool by_itself = !writer.closing;
  guard.unlock();
  if (by_itself) writer.ended();
}

}  // namespace

namespace {

void finish(Writer& writer) {
  writer.reception.reset();
  {
    const std::lock_guard guard(writer.lock);
    writer.closing = true;
  }
  writer.changed.notify_one();
  if (writer.thread.joinable()) writer.thread.join();
  if (writer.file < 0) return;
  fdatasync(writer.file);  // a failure leaves what a power cut would
  close(std::exchange(writer.file, -1));
}

}  // namespace

void WriterEnd::operator()(Writer* writer) const {
  finish(*writer);
  delete writer;
}

WriterStatus writer_close(WriterHandle writer) {
  finish(*writer);
  return writer_status(*writer);
}

WriterHandle writer_receive(const ServiceKey& key, ReceptionRefusal& ret_refusal) {
  WriterHandle writer(new Writer);
  writer->stream = service_stream_start(key.service);
  ReceptionUser user{.packets = take_packets, .lost = lose_multiplex, .context = writer.get()};
  writer->reception = reception_start(key, user, ret_refusal);
  return writer->reception == nullptr ? nullptr : std::move(writer);
}

bool writer_write(Writer& writer, const std::string& path, void (*ended)(), INT32& ret_reason) {
  constexpr int kFlags = O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW;
  writer.file = open(path.c_str(), kFlags, 0600);
  if (writer.file < 0) {
    ret_reason = errno == ENOSPC || errno == EDQUOT ? RECLIST_REASON_DISK_FULL : RECLIST_REASON_DISK_ERROR;
    return false;
  }
  writer.path = path;
  writer.ended = ended;
  writer.thread = std::thread(write_file, std::ref(writer));
  return true;
}

WriterStatus writer_status(Writer& writer) {
  const std::lock_guard guard(writer.lock);
  return {.reason = writer.reason, .written = writer.written, .lost = writer.lost, .scrambled = writer.scrambled};
}

INT32 disk_problem(const std::string& folder) {
  struct stat info {};
  struct statvfs disk {};
  const bool usable = lstat(folder.c_str(), &info) == 0 && S_ISDIR(info.st_mode) &&
                      statvfs(folder.c_str(), &disk) == 0 && access(folder.c_str(), W_OK | X_OK) == 0;
  if (!usable) return RECLIST_REASON_DISK_ERROR;
  return free_bytes(disk) <= kDiskReserve ? RECLIST_REASON_DISK_FULL : RECLIST_REASON_NONE;
}

// ---- The length of a file ----

namespace {

struct Pcr {
  int pid = -1;
  std::uint64_t base = 0;
};

// The PCR of this packet, if it has one.
Pcr packet_pcr(std::span<const std::uint8_t> packet) {
  constexpr std::uint8_t kHasField = 0x20, kHasPcr = 0x10;
  if (packet[0] != 0x47 || (packet[3] & kHasField) == 0 || packet[4] < 7 || (packet[5] & kHasPcr) == 0) return {};
  std::uint64_t base = 0;
  for (std::size_t i = 6; i < 10; ++i) base = base << 8 | packet[i];
  return {.pid = (packet[1] & 0x1F) << 8 | packet[2], .base = base << 1 | packet[10] >> 7};
}

// Reads whole packets of the file from the offset on.
std::vector<std::uint8_t> read_packets(int file, off_t offset) {
  std::vector<std::uint8_t> bytes(kLengthBlock / kPacketSize * kPacketSize);
  std::size_t size = 0;
  while (size < bytes.size()) {
    const ssize_t count = pread(file, bytes.data() + size, bytes.size() - size, offset + static_cast<off_t>(size));
    if (count <= 0) break;
    size += static_cast<std::size_t>(count);
  }
  bytes.resize(size / kPacketSize * kPacketSize);
  return bytes;
}

std::vector<Pcr> find_pcrs(std::span<const std::uint8_t> packets) {
  std::vector<Pcr> found;
  for (; !packets.empty(); packets = packets.subspan(kPacketSize))
    if (const Pcr pcr = packet_pcr(packets); pcr.pid >= 0) found.push_back(pcr);
  return found;
}

}  // namespace

std::uint32_t file_length(const std::string& path) {
  const int file = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK);
  if (file < 0) return 0;
  struct stat info {};
  std::uint32_t length = 0;
  if (fstat(file, &info) == 0 && S_ISREG(info.st_mode)) {
    constexpr auto kPacket = static_cast<off_t>(kPacketSize), kBlock = static_cast<off_t>(kLengthBlock);
    const off_t tail = std::max<off_t>(info.st_size - kBlock, 0) / kPacket * kPacket;
    const std::vector<Pcr> first = find_pcrs(read_packets(file, 0)), last = find_pcrs(read_packets(file, tail));
    if (!first.empty()) {
      const auto same = std::find_if(last.rbegin(), last.rend(), [&](const Pcr& p) { return p.pid == first[0].pid; });
      if (same != last.rend()) {
        length = static_cast<std::uint32_t>((same->base + kPcrWrap - first[0].base) % kPcrWrap / kPcrClock);
      }
    }
  }
  close(file);
  return length;
}
