#include "tvctl_common/library_check.h"

#include <fcntl.h>
#include <link.h>
#include <stdint.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

// The plugin's own ELF header in memory; the linker defines the symbol.
extern "C" [[gnu::visibility("hidden")]] const ElfW(Ehdr) __ehdr_start;

// Reads a record at an offset of the file. Returns false when the file ends before the record does.
template <typename Record>
static bool read_at(int file, uint64_t offset, Record& ret_record) {
  Record record;
  if (pread(file, &record, sizeof record, static_cast<off_t>(offset)) != sizeof record) return false;
  ret_record = record;
  return true;
}

static bool is_whole(int file) {
  struct stat status;
  ElfW(Ehdr) header;
  if (fstat(file, &status) != 0 || !S_ISREG(status.st_mode) || !read_at(file, 0, header)) return false;
  const auto holds = [size = static_cast<uint64_t>(status.st_size)](uint64_t offset, uint64_t length) {
    return offset <= size && length <= size - offset;
  };
  // The file must have the plugin's word size, byte order and machine.
  if (memcmp(header.e_ident, __ehdr_start.e_ident, EI_OSABI) != 0 || header.e_machine != __ehdr_start.e_machine ||
      header.e_type != ET_DYN || header.e_phentsize != sizeof(ElfW(Phdr)) ||
      !holds(header.e_phoff, header.e_phnum * sizeof(ElfW(Phdr))))
    return false;
  for (unsigned i = 0; i < header.e_phnum; ++i) {
    ElfW(Phdr) segment;
    if (!read_at(file, header.e_phoff + i * sizeof segment, segment)) return false;
    if (segment.p_type == PT_LOAD && !holds(segment.p_offset, segment.p_filesz)) return false;
  }
  return true;
}

bool tvc_library_is_whole(const char* path) {
  const int file = open(path, O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
  if (file < 0) return false;
  const bool whole = is_whole(file);
  close(file);
  return whole;
}
