#pragma once

#include <memory>
#include <string>

#include "hosts/linux/files/open_file.h"
#include "hosts/linux/m4a/m4a_recovery.h"

namespace linux_host {

// Lets an m4a writer write to `file`, which is closed with the sink.
[[nodiscard]] std::unique_ptr<M4aSink> m4aSinkFor(std::shared_ptr<OpenFile> file);

// Recovers the file at `path`, which nobody else has open. It is on the disk when this returns.
[[nodiscard]] M4aRecovery recoverInterruptedM4a(OpenFiles& files, const std::string& path);

}  // namespace linux_host
