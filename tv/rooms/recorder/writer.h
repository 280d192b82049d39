// Writes one service of a multiplex to a file. The reception's thread takes the service's packets out of the multiplex
// and puts them into a buffer; a thread of the writer writes them to the disk, so that a slow disk delays no reception.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "broadcast/tables.h"
#include "core/contract.h"
#include "rooms/antenna/antenna.h"

inline constexpr std::size_t kWriterBuffer = 8U << 20;      // bytes that wait for the disk; what comes then is lost
inline constexpr std::uint64_t kDiskReserve = 64ULL << 20;  // bytes that a recording leaves free

struct Writer;
struct WriterEnd {
  void operator()(Writer* writer) const;  // as writer_close
};
using WriterHandle = std::unique_ptr<Writer, WriterEnd>;

// Begins to receive the service; its packets wait in the buffer. Null with ret_refusal.
WriterHandle writer_receive(const ServiceKey& key, ReceptionRefusal& ret_refusal);

// Creates the file and begins to write. ended: called on the writer's thread, without a lock, when the writer stops by
// itself. False with ret_reason (RECLIST_REASON_*): there is no file.
bool writer_write(Writer& writer, const std::string& path, void (*ended)(), INT32& ret_reason);

struct WriterStatus {
  INT32 reason = RECLIST_REASON_NONE;  // other than that: the writer has stopped by itself
  std::uint64_t written = 0;           // bytes
  std::uint64_t lost = 0;
  bool scrambled = false;
};
WriterStatus writer_status(Writer& writer);

// Ends the reception, writes what is in the buffer, and closes the file.
WriterStatus writer_close(WriterHandle writer);

// Why nothing can be recorded to the folder: RECLIST_REASON_DISK_FULL, or RECLIST_REASON_DISK_ERROR if it is no folder
// or cannot be written; else RECLIST_REASON_NONE.
INT32 disk_problem(const std::string& folder);

// The time from the file's first to its last PCR, in seconds; 0 if it has not two.
std::uint32_t file_length(const std::string& path);
