// SPDX-License-Identifier: MIT
#pragma once

#include <string_view>

namespace linux_host {

// Drops from this process's memory the unchanged pages of the libraries whose file names begin with
// `name`: their code and constants. A page that is needed again is read from the file, so the
// libraries keep working, even for code that uses them at this moment. Changed pages stay. Any
// thread that may wait.
void releaseLibraryPages(std::string_view name);

}  // namespace linux_host
