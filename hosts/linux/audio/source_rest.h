// SPDX-License-Identifier: MIT
#pragma once

#include <chrono>
#include <map>
#include <string>

#include "platform/mutex.h"

namespace linux_host {

// Keeps a stream from starting while an earlier one on the same source is still being removed.
// Otherwise the sound server can leave the source connected but silent for the whole recording. The
// trigger is the change of the cycle's length when one stream goes and the other comes.
//
// A source that was not recorded just before needs no wait, and neither does one that another
// stream is still recording. Any thread; calls return at once.
class SourceRest {
 public:
  // Several times what the sound server needs to release a source.
  static constexpr std::chrono::milliseconds kRest{200};
  // A stream that does not end must not keep the next one from starting.
  static constexpr std::chrono::milliseconds kLongest{500};

  // A stream on the source has been told to end.
  void ending(const std::string& node);
  // The stream is gone. `hasStreamed`: it was connected.
  void ended(const std::string& node, bool hasStreamed);
  // How long the source still needs; 0: a stream may start.
  [[nodiscard]] std::chrono::milliseconds left(const std::string& node);

 private:
  using Clock = std::chrono::steady_clock;
  struct Source {
    int endingStreams = 0;
    Clock::time_point rested{};  // a stream may start from then on
  };

  platform::Mutex mutex_;
  std::map<std::string, Source> sources_ RA_GUARDED_BY(mutex_);
};

}  // namespace linux_host
