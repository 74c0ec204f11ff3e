// SPDX-License-Identifier: MIT
#include "capture/recording_path.h"

#include "shared/auxiliary.h"
#include "shared/file_name.h"

namespace record_audio {
std::string recordingTitle(const platform::Host& host, platform::Date start) {
  const std::string dateTime = Auxiliary::getFilenameWithDateTime(host, start);
  const std::string title = host.mainBundle.localizedString("Audio recording");
  // Translations and locales may hold characters that a file system refuses.
  return fitForFileName(title + " " + dateTime, '-');
}

std::string recordingPath(const platform::Host& host, const std::string& folder,
                          platform::Date start, const std::string& extension, int lastNumber) {
  const std::string base = folder + "/" + recordingTitle(host, start);
  std::string path = base + "." + extension;
  for (int number = 1; number <= lastNumber; ++number) {
    if (!host.fileManager.fileExists(path)) break;
    path = base + " (" + std::to_string(number) + ")." + extension;
  }
  return path;
}

}  // namespace record_audio
