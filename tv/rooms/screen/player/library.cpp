#include "rooms/screen/player/library.h"

#include <dlfcn.h>
#include <link.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <clocale>
#include <cstring>
#include <span>
#include <vector>

namespace {

constexpr const char* kName = "libmpv.so.2";

// The library refuses to work with another decimal sign than the point, and looks at the process's locale, not at the
// thread's.
std::string locale_trouble() {
  const char* const numbers = std::setlocale(LC_NUMERIC, nullptr);  // NOLINT(concurrency-mt-unsafe): it only reads
  if (numbers == nullptr || std::strcmp(numbers, "C") == 0 || std::strcmp(numbers, "C.UTF-8") == 0) return {};
  return "the picture needs a process whose LC_NUMERIC is \"C\"; here it is \"" + std::string(numbers) + "\"";
}

// Where objects of the process are loaded.
using Objects = std::vector<ElfW(Addr)>;

Objects& objects_before = *new Objects;  // the library was loaded; never destroyed

int list_object(dl_phdr_info* info, std::size_t, void* objects) {
  static_cast<Objects*>(objects)->push_back(info->dlpi_addr);
  return 0;
}

// Code that was changed while it was loaded cannot be read again from its file.
bool has_changed_code(const dl_phdr_info& info, const ElfW(Phdr) & dynamic) {
  const auto* entry = reinterpret_cast<const ElfW(Dyn)*>(info.dlpi_addr + dynamic.p_vaddr);
  for (; entry->d_tag != DT_NULL; ++entry)
    if (entry->d_tag == DT_TEXTREL || (entry->d_tag == DT_FLAGS && (entry->d_un.d_val & DF_TEXTREL) != 0)) return true;
  return false;
}

int rest_object(dl_phdr_info* info, std::size_t, void*) {
  if (std::ranges::find(objects_before, info->dlpi_addr) != objects_before.end()) return 0;
  const std::span<const ElfW(Phdr)> headers(info->dlpi_phdr, info->dlpi_phnum);
  for (const auto& each : headers)
    if (each.p_type == PT_DYNAMIC && has_changed_code(*info, each)) return 0;
  const auto page = static_cast<ElfW(Addr)>(sysconf(_SC_PAGESIZE));
  for (const auto& each : headers) {
    if (each.p_type != PT_LOAD || (each.p_flags & PF_W) != 0) continue;
    // Whole pages only: the last one may also hold the beginning of what can be written.
    const ElfW(Addr) begin = (info->dlpi_addr + each.p_vaddr) / page * page;
    const ElfW(Addr) end = (info->dlpi_addr + each.p_vaddr + each.p_filesz) / page * page;
    if (end > begin) madvise(reinterpret_cast<void*>(begin), end - begin, MADV_DONTNEED);
  }
  return 0;
}

MpvLibrary load() {
  MpvLibrary library;
  library.trouble = locale_trouble();
  if (!library.trouble.empty()) return library;
  dl_iterate_phdr(list_object, &objects_before);
  void* const handle = dlopen(kName, RTLD_NOW | RTLD_LOCAL);
  if (handle == nullptr) {
    library.trouble = std::string("the picture needs the package libmpv2: ") + dlerror();
    return library;
  }
#define ROW(name)                                                           \
  library.name = reinterpret_cast<decltype(&::name)>(dlsym(handle, #name)); \
  if (library.name == nullptr) library.trouble = std::string(kName) + " has no " #name;
  MPV_FUNCTIONS(ROW)
#undef ROW
  return library;
}

}  // namespace

const MpvLibrary& mpv_library() {
  static const MpvLibrary& library = *new MpvLibrary(load());  // never destroyed: the player's threads may outlive main
  return library;
}

void library_rest() {
  if (mpv_library().trouble.empty()) dl_iterate_phdr(rest_object, nullptr);
}
