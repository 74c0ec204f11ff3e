// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "hosts/linux/m4a/libav_pointers.h"
#include "hosts/linux/m4a/m4a_writer.h"

namespace linux_host {

// Makes MP4 movie fragments with libavformat, in memory. One thread at a time; allocates.
class FragmentMuxer {
 public:
  struct Fragment {
    std::vector<std::byte> bytes;   // moof and mdat
    std::size_t mediaOffset_bytes;  // of the first packet in `bytes`
    std::vector<std::uint32_t> packetSizes_bytes;
  };

  // Once per muxer. Returns an error text, empty on success; `movie` then holds the moov box,
  // which is without samples.
  [[nodiscard]] std::string open(const AVCodecContext& codec, std::uint64_t creationTime_unix_s,
                                 const M4aLabels& labels, std::vector<std::byte>* movie);
  // Puts a packet into the fragment under way. Its time stamp counts from the first recorded frame.
  [[nodiscard]] std::string add(AVPacket& packet);
  // How many packets the fragment under way holds.
  [[nodiscard]] std::size_t packetCount() const { return packetSizes_.size(); }
  // Ends the fragment under way, which holds at least one packet.
  [[nodiscard]] std::string endFragment(Fragment* fragment);

 private:
  // `Byte` is what this release of libavformat hands over: constant or not.
  template <typename Byte>
  static int collect(void* self, Byte* data, int size_bytes);

  LibavPointer<AVIOContext> io_;  // outlives format_, which writes to it
  LibavPointer<AVFormatContext> format_;
  std::vector<std::byte> written_;
  std::vector<std::uint32_t> packetSizes_;
  int priming_frames_ = 0;
};

}  // namespace linux_host
