// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>

namespace linux_host {

// Has the kernel back writable memory with pages in one call, so that no audio thread waits for
// them. The content stays as it is. False when the memory is not writable or the kernel is too old;
// that only costs time later. Any thread that may wait.
[[nodiscard]] bool populatePages(void* memory, std::size_t size_bytes);

}  // namespace linux_host
