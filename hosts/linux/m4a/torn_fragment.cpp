// SPDX-License-Identifier: MIT
#include "hosts/linux/m4a/torn_fragment.h"

#include <algorithm>
#include <bit>

namespace linux_host {
namespace {

constexpr std::size_t kBoxHeader_bytes = 8;
// The fields of a trun: those that occur once, and those for each packet.
constexpr std::uint32_t kOnceFlags = 0x5;
constexpr std::uint32_t kPacketFlags = 0xF00;
constexpr std::size_t kField_bytes = 4;

std::size_t offsetIn(Bytes head, const Box& box) {
  return static_cast<std::size_t>(box.all.data() - head.data());
}

void put(std::vector<std::byte>* bytes, std::size_t offset, std::size_t value) {
  BoxBuilder number;
  number.u32(static_cast<std::uint32_t>(value));
  std::ranges::copy(number.take(), bytes->begin() + static_cast<std::ptrdiff_t>(offset));
}

}  // namespace

std::optional<std::vector<std::byte>> headOfFirstPackets(Bytes head, std::size_t packets,
                                                         std::size_t media_bytes) {
  const auto run = findBox(head, {boxType("moof"), boxType("traf"), boxType("trun")});
  if (!run || head.size() < kBoxHeader_bytes) return std::nullopt;
  BoxReader reader(run->payload);
  const std::uint32_t flags = reader.u32();
  const std::uint32_t count = reader.u32();
  const auto fields = [](std::uint32_t of) {
    return kField_bytes * static_cast<std::size_t>(std::popcount(of));
  };
  const std::size_t fixed_bytes = kBoxHeader_bytes + 2 * kField_bytes + fields(flags & kOnceFlags);
  const std::size_t packet_bytes = fields(flags & kPacketFlags);
  if (!reader.ok() || packets > count || run->all.size() != fixed_bytes + count * packet_bytes) {
    return std::nullopt;
  }
  const std::size_t removed_bytes = (count - packets) * packet_bytes;
  // An empty box fills the room, if a box fits.
  if (removed_bytes > 0 && removed_bytes < kBoxHeader_bytes) return std::nullopt;

  std::vector<std::byte> shorter(head.begin(), head.end());
  const std::size_t begin = offsetIn(head, *run);
  const std::size_t end = begin + run->all.size();
  put(&shorter, begin, run->all.size() - removed_bytes);
  put(&shorter, begin + kBoxHeader_bytes + kField_bytes, packets);
  if (removed_bytes > 0) {
    put(&shorter, end - removed_bytes, removed_bytes);
    put(&shorter, end - removed_bytes + kField_bytes, boxType("free"));
  }
  put(&shorter, head.size() - kBoxHeader_bytes, kBoxHeader_bytes + media_bytes);
  return shorter;
}

}  // namespace linux_host
