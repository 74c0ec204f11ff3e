// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <memory>
#include <string>

namespace test_support {

// A microphone with one channel at 48 kHz, a device that starts the graph's cycles. It sends the
// signal frameNumber() of its clock, and can skip cycles like a device that was not served in time.
class DrivenMicrophone {
 public:
  explicit DrivenMicrophone(std::string nodeName);
  ~DrivenMicrophone();
  DrivenMicrophone(const DrivenMicrophone&) = delete;
  DrivenMicrophone& operator=(const DrivenMicrophone&) = delete;

  // Skips the next `cycles`: their sound is lost.
  void skip(int cycles);
  // Frames skipped so far.
  [[nodiscard]] std::uint64_t skippedFrames() const;

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace test_support
