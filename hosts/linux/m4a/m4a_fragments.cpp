// SPDX-License-Identifier: MIT
#include "hosts/linux/m4a/m4a_fragments.h"

#include <utility>

#include "hosts/linux/m4a/m4a_index.h"

namespace linux_host {
namespace {

constexpr std::size_t kMediaHead_bytes = 8;
// Flags of a tfhd: offsets count from the moof; the tfhd has the duration and flags of all packets.
constexpr std::uint32_t kTrackFragmentFlags = 0x020028;
constexpr std::uint32_t kNeedsNoOtherPacket = 0x02000000;
// Flags of a trun: it has the offset of the first packet and the size of each.
constexpr std::uint32_t kRunFlags = 0x000201;

// `media_bytes`: the offset of the first packet from the beginning of the box.
std::vector<std::byte> headOf(std::uint32_t number, std::uint64_t begin_frames,
                              const std::vector<std::uint32_t>& packetSizes_bytes,
                              std::size_t media_bytes) {
  BoxBuilder out;
  out.box(boxType("moof"), [&] {
    out.fullBox(boxType("mfhd"), 0, 0, [&] { out.u32(number); });
    out.box(boxType("traf"), [&] {
      out.fullBox(boxType("tfhd"), 0, kTrackFragmentFlags, [&] {
        out.u32(kM4aTrackId);
        out.u32(kAacPacket_frames);
        out.u32(kNeedsNoOtherPacket);
      });
      out.fullBox(boxType("tfdt"), 1, 0, [&] { out.u64(begin_frames); });
      out.fullBox(boxType("trun"), 0, kRunFlags, [&] {
        out.u32(static_cast<std::uint32_t>(packetSizes_bytes.size()));
        out.u32(static_cast<std::uint32_t>(media_bytes));
        for (const std::uint32_t size_bytes : packetSizes_bytes) out.u32(size_bytes);
      });
    });
  });
  return out.take();
}

}  // namespace

void M4aFragments::add(Bytes packet) {
  media_.insert(media_.end(), packet.begin(), packet.end());
  packetSizes_.push_back(static_cast<std::uint32_t>(packet.size()));
}

M4aFragment M4aFragments::end() {
  M4aFragment fragment;
  fragment.packetSizes_bytes = std::exchange(packetSizes_, {});
  const std::uint64_t begin_frames = endedPackets_ * kAacPacket_frames;
  ++fragments_;
  endedPackets_ += fragment.packetSizes_bytes.size();
  // The head's length does not depend on the offset in it.
  const auto head = [&](std::size_t media_bytes) {
    return headOf(fragments_, begin_frames, fragment.packetSizes_bytes, media_bytes);
  };
  fragment.mediaOffset_bytes = head(0).size() + kMediaHead_bytes;

  BoxBuilder out;
  out.reserve(fragment.mediaOffset_bytes + media_.size());
  out.raw(head(fragment.mediaOffset_bytes));
  out.box(boxType("mdat"), [&] { out.raw(media_); });
  media_.clear();
  fragment.bytes = out.take();
  return fragment;
}

}  // namespace linux_host
