// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <memory>
#include <string>

namespace test_support {

// A microphone of one channel at 48 kHz, a device of its own that starts the graph's cycles. It
// sends the signal frameNumber() of its clock, and may leave cycles out as a device does that
// nobody served in time.
class DrivenMicrophone {
 public:
  explicit DrivenMicrophone(std::string nodeName);
  ~DrivenMicrophone();
  DrivenMicrophone(const DrivenMicrophone&) = delete;
  DrivenMicrophone& operator=(const DrivenMicrophone&) = delete;

  // Leaves the next `cycles` out: their sound is lost.
  void skip(int cycles);
  // Frames left out so far.
  [[nodiscard]] std::uint64_t skippedFrames() const;

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace test_support
