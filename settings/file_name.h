// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <string_view>

namespace record_audio {

// `text` (UTF-8) as a part of a file name that every common file system takes: what FAT and NTFS
// refuse, the slash and control characters included, becomes `substitute`, and the blanks that
// look like plain ones (no-break and others that locales write) become plain. Any thread.
std::string fitForFileName(std::string_view text, char substitute);

}  // namespace record_audio
