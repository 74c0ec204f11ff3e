// SPDX-License-Identifier: MIT
#pragma once

#include <chrono>
#include <map>
#include <mutex>
#include <string>

namespace linux_host {

// Keeps a stream from beginning while an earlier one on the same source is still going away: the
// sound server can then leave the source connected but silent for as long as it is recorded. What
// sets that off is the change of the cycle's length when the one stream goes and the other comes.
//
// A source that nobody has recorded from just before is not waited for, nor is one that somebody
// else goes on recording from. Any thread; calls return at once.
class SourceRest {
 public:
  // What the sound server needs to let go of a source, several times over.
  static constexpr std::chrono::milliseconds kRest{200};
  // A stream that does not come to an end must not keep the next one from beginning.
  static constexpr std::chrono::milliseconds kLongest{500};

  // A stream on the source has been told to end.
  void ending(const std::string& node);
  // It is gone. `hasStreamed`: it was connected.
  void ended(const std::string& node, bool hasStreamed);
  // How long the source still needs; 0: a stream may begin.
  [[nodiscard]] std::chrono::milliseconds left(const std::string& node);

 private:
  using Clock = std::chrono::steady_clock;
  struct Source {
    int endingStreams = 0;
    Clock::time_point rested{};  // a stream may begin from then on
  };

  std::mutex mutex_;
  std::map<std::string, Source> sources_;  // guarded by mutex_
};

}  // namespace linux_host
