// SPDX-License-Identifier: MIT
#pragma once

#include <string_view>

namespace linux_host {

// Takes out of this process' memory what it has read of the files of the libraries whose file names
// begin with `name`: their code and constants. Whoever needs a page of them again gets it back from
// the file, so the libraries go on working, also for others that use them in this moment. What they
// have changed stays. Any thread that may wait.
void releaseLibraryPages(std::string_view name);

}  // namespace linux_host
