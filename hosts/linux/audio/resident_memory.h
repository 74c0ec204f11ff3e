// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>

namespace linux_host {

// Backs memory that may be written to with pages, so that no audio thread waits for them; what it
// holds stays as it is. False when it may not be written to or the kernel is too old for the call;
// nothing is lost then but time. Any thread that may wait.
bool makeResident(void* memory, std::size_t size_bytes);

}  // namespace linux_host
