// SPDX-License-Identifier: MIT
#include "tests/m4a/recording.h"

#include <algorithm>
#include <utility>

#include "tests/support/why_not.h"

namespace linux_host::test {

using test_support::whyNot;

Recording::Recording(const Format& recordedFormat, std::shared_ptr<MemoryFile> into,
                     const M4aLabels& labels)
    : format(recordedFormat),
      file(into ? std::move(into) : std::make_shared<MemoryFile>()),
      tone(format) {
  av_log_set_level(AV_LOG_ERROR);
  writer.setLabels(labels);
  openError = whyNot(writer.open(std::make_unique<MemorySink>(file), m4aFormat(format)));
}

std::string Recording::feed(std::uint64_t frames) {
  constexpr std::uint64_t kPiece_frames = 480;
  while (frames > 0) {
    const auto now = static_cast<std::uint32_t>(std::min(frames, kPiece_frames));
    if (const Status written = writer.write(tone.next(now), now); !written) return written.error();
    frames -= now;
  }
  return "";
}

std::vector<std::byte> finishedRecording(std::uint64_t frames, const Format& format) {
  Recording recording(format);
  if (!recording.openError.empty() || !recording.feed(frames).empty() ||
      !recording.writer.finish()) {
    return {};
  }
  return recording.file->bytes;
}

std::vector<std::byte> interruptedRecording(std::uint64_t frames, const Format& format) {
  Recording recording(format);
  if (!recording.openError.empty() || !recording.feed(frames).empty()) return {};
  return recording.file->bytes;
}

}  // namespace linux_host::test
