// SPDX-License-Identifier: MIT
#pragma once

#include <memory>
#include <optional>
#include <string>

#include "hosts/linux/files/open_file.h"
#include "hosts/linux/m4a/m4a_recovery.h"

namespace linux_host {

// Lets an m4a writer write to `file`, which stays open: the code that closes it gets late errors.
[[nodiscard]] std::unique_ptr<M4aSink> m4aSinkFor(std::shared_ptr<OpenFile> file);

// findM4aPackets() and recoverInterruptedM4a() for a file that is not being written. The file stays
// open; a recovered one is on the disk when this returns.
[[nodiscard]] std::optional<M4aFindings> findM4aPackets(const std::shared_ptr<OpenFile>& file);
Expected<M4aRecovery> recoverInterruptedM4a(const std::shared_ptr<OpenFile>& file);

}  // namespace linux_host
