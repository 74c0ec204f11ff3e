// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <string_view>

namespace record_audio {

// Makes `text` (UTF-8) part of a file name that every common file system takes. Characters that FAT
// or NTFS refuse, with the slash and control characters, become `substitute`. Spaces that only look
// like plain ones (no-break and others that locales use) become plain. Any thread.
std::string fitForFileName(std::string_view text, char substitute);

}  // namespace record_audio
