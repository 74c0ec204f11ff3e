#pragma once

#include <string>
#include <string_view>

namespace record_audio {

// `name` (UTF-8) as one path component that every common file system takes: what FAT and NTFS
// refuse, the slash included, becomes "-", and the blanks that look like plain ones (U+00A0,
// U+202F) become plain. Any thread.
std::string fitForFileName(std::string_view name);

}  // namespace record_audio
