// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <memory>
#include <utility>
#include <vector>

#include "hosts/linux/m4a/aac_encoder.h"
#include "hosts/linux/m4a/m4a_fragments.h"
#include "hosts/linux/m4a/m4a_index.h"
#include "hosts/linux/m4a/m4a_writer.h"

namespace linux_host {

class LibavM4aWriter final : public M4aWriter {
 public:
  void setLabels(M4aLabels labels) override { labels_ = std::move(labels); }
  Status open(std::unique_ptr<M4aSink> sink, const M4aFormat& format) override;
  Status write(const float* const* planes, std::uint32_t frames) override;
  Status finish() override;

 private:
  Status take(AVPacket& packet);
  Status appendFragment();
  Status appendUnwritten();
  // After a failed append: makes the file end with the last complete packet that it took.
  void keepWholePackets();
  void cutAt(std::uint64_t end_bytes);
  Status complete();

  M4aLabels labels_;
  std::unique_ptr<M4aSink> sink_;  // null before open() and after finish()
  AacEncoder encoder_;
  M4aFragments fragments_;
  M4aTrack track_;
  M4aPacketIndex packets_;
  std::size_t packetsPerFragment_ = 1;
  // A fragment that the sink has not taken completely. It is written again before anything else, so
  // that the file never has a torn fragment in its middle.
  M4aFragment unwritten_;
  std::uint64_t unwrittenOffset_bytes_ = 0;
  Status appended_;  // why it was not taken
  Status written_;   // as write() has returned last
};

}  // namespace linux_host
