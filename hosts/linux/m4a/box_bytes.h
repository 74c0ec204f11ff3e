// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <optional>
#include <span>
#include <utility>
#include <vector>

// The bytes of MP4 boxes: big-endian numbers, nested boxes.

namespace linux_host {

using Bytes = std::span<const std::byte>;

// 'moov' as the 32-bit number in a box header.
constexpr std::uint32_t boxType(const char (&text)[5]) {
  std::uint32_t code = 0;
  for (int i = 0; i < 4; ++i) code = code << 8 | static_cast<unsigned char>(text[i]);
  return code;
}

class BoxBuilder {
 public:
  void u8(std::uint32_t value) { number(value, 1); }
  void u16(std::uint32_t value) { number(value, 2); }
  void u24(std::uint32_t value) { number(value, 3); }
  void u32(std::uint32_t value) { number(value, 4); }
  void u64(std::uint64_t value) { number(value, 8); }
  // As 64 bits in version 1 of a box, as 32 bits in version 0.
  void versioned(int version, std::uint64_t value) { number(value, version == 1 ? 8 : 4); }
  void zeros(std::size_t count_bytes) { bytes_.resize(bytes_.size() + count_bytes); }
  void raw(Bytes data) { bytes_.insert(bytes_.end(), data.begin(), data.end()); }

  // A box with the content that `fill` writes; smaller than 4 GiB.
  template <typename Fill>
  void box(std::uint32_t type, Fill&& fill) {
    const std::size_t start = bytes_.size();
    u32(0);
    u32(type);
    std::forward<Fill>(fill)();
    const std::size_t size = bytes_.size() - start;
    for (std::size_t i = 0; i < 4; ++i) bytes_[start + i] = std::byte(size >> (24 - 8 * i) & 0xff);
  }
  template <typename Fill>
  void fullBox(std::uint32_t type, int version, std::uint32_t flags, Fill&& fill) {
    box(type, [&] {
      u8(static_cast<std::uint32_t>(version));
      u24(flags);
      fill();
    });
  }

  void reserve(std::size_t size_bytes) { bytes_.reserve(size_bytes); }
  [[nodiscard]] std::vector<std::byte> take() { return std::move(bytes_); }

 private:
  void number(std::uint64_t value, int width_bytes) {
    for (int i = width_bytes - 1; i >= 0; --i) bytes_.push_back(std::byte(value >> (8 * i) & 0xff));
  }

  std::vector<std::byte> bytes_;
};

// Reads from arbitrary bytes. Reading past the end gives zeros and makes ok() false.
class BoxReader {
 public:
  explicit BoxReader(Bytes bytes) : rest_(bytes) {}

  [[nodiscard]] bool ok() const { return ok_; }
  [[nodiscard]] std::size_t left_bytes() const { return rest_.size(); }
  std::uint32_t u8() { return static_cast<std::uint32_t>(number(1)); }
  std::uint32_t u16() { return static_cast<std::uint32_t>(number(2)); }
  std::uint32_t u24() { return static_cast<std::uint32_t>(number(3)); }
  std::uint32_t u32() { return static_cast<std::uint32_t>(number(4)); }
  std::uint64_t u64() { return number(8); }
  std::uint64_t versioned(std::uint32_t version) { return number(version == 1 ? 8 : 4); }
  void skip(std::size_t count_bytes) { take(count_bytes); }
  Bytes take(std::size_t count_bytes) {
    if (count_bytes > rest_.size()) {
      ok_ = false;
      rest_ = {};
      return {};
    }
    const Bytes taken = rest_.first(count_bytes);
    rest_ = rest_.subspan(count_bytes);
    return taken;
  }

 private:
  std::uint64_t number(std::size_t width_bytes) {
    std::uint64_t value = 0;
    for (const std::byte byte : take(width_bytes)) {
      value = value << 8 | std::to_integer<std::uint64_t>(byte);
    }
    return value;
  }

  Bytes rest_;
  bool ok_ = true;
};

struct Box {
  std::uint32_t type = 0;
  Bytes all;      // with its header
  Bytes payload;  // without its header
};

// The box at the beginning of `bytes`; null when it is incomplete. Boxes inside an index always
// have 32-bit sizes.
inline std::optional<Box> firstBox(Bytes bytes) {
  BoxReader reader(bytes);
  const std::uint32_t size_bytes = reader.u32();
  const std::uint32_t type = reader.u32();
  if (!reader.ok() || size_bytes < 8 || size_bytes > bytes.size()) return std::nullopt;
  return Box{type, bytes.first(size_bytes), bytes.subspan(8, size_bytes - 8)};
}

// The first box of `type` in `bytes`, a sequence of boxes; null when there is none before the end
// or the first damage.
inline std::optional<Box> findBox(Bytes bytes, std::uint32_t type) {
  while (const auto box = firstBox(bytes)) {
    if (box->type == type) return box;
    bytes = bytes.subspan(box->all.size());
  }
  return std::nullopt;
}

// Follows a path of types through nested boxes.
inline std::optional<Box> findBox(Bytes bytes, std::initializer_list<std::uint32_t> path) {
  std::optional<Box> box;
  for (const std::uint32_t type : path) {
    box = findBox(bytes, type);
    if (!box) return std::nullopt;
    bytes = box->payload;
  }
  return box;
}

}  // namespace linux_host
