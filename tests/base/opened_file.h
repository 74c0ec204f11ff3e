// SPDX-License-Identifier: MIT
#pragma once

#include <memory>
#include <stdexcept>
#include <string>

#include "hosts/linux/files/open_file.h"

namespace base_test {

// Throws where it cannot be opened: the test is about something else.
inline std::shared_ptr<linux_host::OpenFile> openedFile(linux_host::OpenFiles& files,
                                                        const std::string& path,
                                                        linux_host::OpenFiles::Mode mode) {
  auto file = files.open(path, mode);
  if (!file) throw std::runtime_error(file.error());
  return *file;
}

}  // namespace base_test
