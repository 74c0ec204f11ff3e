#pragma once

#include <string>
#include <string_view>

namespace linux_host {

// `text` (UTF-8) as part of a file name that FAT and NTFS disks take too: no-break blanks become
// plain ones; control characters and " * / : < > ? \ | go, except those in `keep`; what is not
// UTF-8 goes.
std::string fileNameText(std::string_view text, std::string_view keep = {});

// A whole file name: fileNameText() without blanks and dots at the end, no reserved device name
// (CON, LPT1 ...), at most 255 bytes without cutting a character; never empty ("_" then).
std::string sanitisedFileName(std::string_view name);

}  // namespace linux_host
