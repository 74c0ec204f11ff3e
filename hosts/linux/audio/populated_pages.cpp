// SPDX-License-Identifier: MIT
#include "hosts/linux/audio/populated_pages.h"

#include <sys/mman.h>
#include <unistd.h>

#include <cstdint>

// Older headers lack it; older kernels refuse it, which the code allows for.
#ifndef MADV_POPULATE_WRITE
#define MADV_POPULATE_WRITE 23
#endif

namespace linux_host {

bool populatePages(void* memory, std::size_t size_bytes) {
  const std::size_t intoPage_bytes =
      reinterpret_cast<std::uintptr_t>(memory) % static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
  return madvise(static_cast<std::byte*>(memory) - intoPage_bytes, intoPage_bytes + size_bytes,
                 MADV_POPULATE_WRITE) == 0;
}

}  // namespace linux_host
