// SPDX-License-Identifier: MIT
#include "hosts/linux/base/library_pages.h"

#include <link.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstdint>

namespace linux_host {
namespace {

// Only complete pages: a page that two segments share may have been changed.
void releaseWithin(std::uintptr_t begin, std::uintptr_t end) {
  const auto page_bytes = static_cast<std::uintptr_t>(sysconf(_SC_PAGESIZE));
  const std::uintptr_t first = (begin + page_bytes - 1) / page_bytes * page_bytes;
  const std::uintptr_t last = end / page_bytes * page_bytes;
  if (first >= last) return;
  // A failure only costs memory.
  static_cast<void>(madvise(reinterpret_cast<void*>(first), last - first, MADV_DONTNEED));
}

int releaseIfNamed(dl_phdr_info* library, std::size_t, void* name) {
  const std::string_view path = library->dlpi_name;
  // An npos + 1 is 0.
  const std::string_view file = path.substr(path.rfind('/') + 1);
  if (!file.starts_with(*static_cast<const std::string_view*>(name))) return 0;
  for (int i = 0; i < library->dlpi_phnum; ++i) {
    const ElfW(Phdr)& segment = library->dlpi_phdr[i];
    if (segment.p_type != PT_LOAD || (segment.p_flags & PF_W) != 0) continue;
    const std::uintptr_t begin = library->dlpi_addr + segment.p_vaddr;
    releaseWithin(begin, begin + segment.p_filesz);
  }
  return 0;
}

}  // namespace

void releaseLibraryPages(std::string_view name) {
  dl_iterate_phdr(releaseIfNamed, &name);
}

}  // namespace linux_host
