// SPDX-License-Identifier: MIT
#include "hosts/linux/m4a/m4a_recovery.h"

#include <algorithm>
#include <array>
#include <ctime>
#include <string_view>
#include <utility>
#include <vector>

#include "hosts/linux/m4a/box_bytes.h"

namespace linux_host {

namespace {

constexpr std::uint64_t kBoxHeader_bytes = 8;
// Far more than the writer produces; keeps damaged sizes from using up memory.
constexpr std::uint64_t kLargestHeadBox_bytes = 256ULL * 1024;

struct BoxHeader {
  std::uint64_t size_bytes;
  std::uint32_t type;
};

struct Fragment {
  std::uint64_t media_bytes;                     // offset of the first packet in the file
  std::vector<std::uint32_t> packetSizes_bytes;  // only complete ones
  std::uint64_t end_bytes;                       // of the fragment, or of its last complete packet
  bool torn;  // its media data claims to extend past the end of the file
};

class PacketFinder {
 public:
  explicit PacketFinder(M4aRepairableFile& file) : file_(file), size_bytes_(file.size_bytes()) {}

  std::optional<M4aFindings> find() {
    std::uint64_t position_bytes = 0;
    if (!readHead(&position_bytes)) return std::nullopt;
    findings_.end_bytes = position_bytes;
    while (true) {
      auto fragment = readFragment(position_bytes);
      if (!fragment) {
        const auto next_bytes = nextFragment(position_bytes + 1);
        if (!next_bytes) break;
        position_bytes = *next_bytes;
        continue;
      }
      if (!fragment->packetSizes_bytes.empty()) {
        findings_.packets.addChunk(fragment->media_bytes, fragment->packetSizes_bytes);
        findings_.end_bytes = fragment->end_bytes;
        if (fragment->torn) {
          findings_.tornMedia_offset_bytes = fragment->media_bytes - kBoxHeader_bytes;
        }
      }
      if (fragment->torn) break;
      position_bytes = fragment->end_bytes;
    }
    const std::uint64_t held =
        std::uint64_t{findings_.packets.packetSizes_bytes().size()} * kAacPacket_frames;
    findings_.track.priming_frames = kAacPriming_frames;
    if (held <= kAacPriming_frames) {
      findings_.packets = {};  // nothing but the encoder's delay
    } else {
      findings_.track.frames = held - kAacPriming_frames;
    }
    return std::move(findings_);
  }

 private:
  std::vector<std::byte> read(std::uint64_t offset_bytes, std::uint64_t count_bytes) {
    std::vector<std::byte> bytes(count_bytes);
    bytes.resize(file_.readAt(offset_bytes, bytes));
    return bytes;
  }

  std::optional<BoxHeader> readHeader(std::uint64_t offset_bytes) {
    const auto bytes = read(offset_bytes, kBoxHeader_bytes);
    BoxReader reader(bytes);
    const BoxHeader header{reader.u32(), reader.u32()};
    return reader.ok() ? std::optional(header) : std::nullopt;
  }

  // The box at `offset_bytes`, if it has that `type` and is small and complete.
  std::optional<std::vector<std::byte>> readSmallBox(std::uint64_t offset_bytes,
                                                     std::uint32_t type) {
    const auto header = readHeader(offset_bytes);
    if (!header || header->type != type || header->size_bytes < kBoxHeader_bytes ||
        header->size_bytes > kLargestHeadBox_bytes) {
      return std::nullopt;
    }
    auto bytes = read(offset_bytes, header->size_bytes);
    if (bytes.size() < header->size_bytes) return std::nullopt;
    return bytes;
  }

  bool readHead(std::uint64_t* end_bytes) {
    const auto head = read(0, kM4aHeadSize_bytes);
    if (!looksLikeOurHead(head)) return false;
    const auto movie = readSmallBox(kM4aHeadSize_bytes, boxType("moov"));
    if (!movie) return false;
    const auto movieHeader = findBox(*movie, {boxType("moov"), boxType("mvhd")});
    const auto media = findBox(*movie, {boxType("moov"), boxType("trak"), boxType("mdia")});
    if (!movieHeader || !media) return false;
    const auto mediaHeader = findBox(media->payload, boxType("mdhd"));
    const auto description =
        findBox(media->payload, {boxType("minf"), boxType("stbl"), boxType("stsd")});
    if (!mediaHeader || !description) return false;

    M4aTrack& track = findings_.track;
    track.creationTime_s = creationTime_s(movieHeader->payload);
    track.sampleRate_hz = timescale_hz(mediaHeader->payload);
    track.sampleDescription.assign(description->all.begin(), description->all.end());
    if (const auto labels = findBox(*movie, {boxType("moov"), boxType("udta")})) {
      track.labels.assign(labels->all.begin(), labels->all.end());
    }
    *end_bytes = kM4aHeadSize_bytes + movie->size();
    return track.sampleRate_hz > 0;
  }

  static bool looksLikeOurHead(Bytes head) {
    if (head.size() < kM4aHeadSize_bytes) return false;
    const auto growing = m4aHead(std::nullopt);
    const auto complete = m4aHead(kM4aHeadSize_bytes);
    constexpr std::size_t kTypeEnd_bytes = kM4aMediaHeader_bytes + kBoxHeader_bytes;
    return std::equal(growing.begin(), growing.end(), head.begin()) ||
           std::equal(complete.begin(), complete.begin() + kTypeEnd_bytes, head.begin());
  }

  static std::uint64_t creationTime_s(Bytes header) {
    BoxReader reader(header);
    const std::uint32_t version = reader.u8();
    reader.skip(3);
    return reader.versioned(version);
  }

  static std::uint32_t timescale_hz(Bytes header) {
    BoxReader reader(header);
    const std::uint32_t version = reader.u8();
    reader.skip(3);
    reader.versioned(version);
    reader.versioned(version);
    return reader.u32();
  }

  // Null when there is no fragment at `offset_bytes` or its header is torn.
  std::optional<Fragment> readFragment(std::uint64_t offset_bytes) {
    const auto moof = readSmallBox(offset_bytes, boxType("moof"));
    if (!moof) return std::nullopt;
    const auto claimed = packetSizesOf(*moof);
    if (!claimed) return std::nullopt;
    const std::uint64_t mediaBox_bytes = offset_bytes + moof->size();
    const auto media = readHeader(mediaBox_bytes);
    if (!media || media->type != boxType("mdat") || media->size_bytes < kBoxHeader_bytes) {
      return std::nullopt;
    }
    Fragment fragment{mediaBox_bytes + kBoxHeader_bytes, {}, 0, false};
    const std::uint64_t mediaEnd_bytes = mediaBox_bytes + media->size_bytes;
    const std::uint64_t available_bytes =
        std::min(mediaEnd_bytes, size_bytes_) - fragment.media_bytes;
    std::uint64_t used_bytes = 0;
    for (const std::uint32_t packet_bytes : *claimed) {
      if (packet_bytes > available_bytes - used_bytes) break;
      used_bytes += packet_bytes;
      fragment.packetSizes_bytes.push_back(packet_bytes);
    }
    fragment.torn = mediaEnd_bytes > size_bytes_;
    fragment.end_bytes = fragment.torn ? fragment.media_bytes + used_bytes : mediaEnd_bytes;
    return fragment;
  }

  // Null unless `moof` is the undamaged header of a fragment with one sound track.
  static std::optional<std::vector<std::uint32_t>> packetSizesOf(Bytes moof) {
    const auto track = findBox(moof, {boxType("moof"), boxType("traf")});
    if (!track) return std::nullopt;
    const auto header = findBox(track->payload, boxType("tfhd"));
    const auto run = findBox(track->payload, boxType("trun"));
    if (!header || !run) return std::nullopt;
    return packetSizesOfRun(run->payload, defaultPacketSize_bytes(header->payload));
  }

  static std::optional<std::uint32_t> defaultPacketSize_bytes(Bytes trackFragmentHeader) {
    BoxReader reader(trackFragmentHeader);
    reader.skip(1);
    const std::uint32_t flags = reader.u24();
    reader.skip(4);                    // track
    if (flags & 0x01) reader.skip(8);  // base data offset
    if (flags & 0x02) reader.skip(4);  // sample description
    if (flags & 0x08) reader.skip(4);  // duration
    if (!(flags & 0x10)) return std::nullopt;
    const std::uint32_t size_bytes = reader.u32();
    return reader.ok() ? std::optional(size_bytes) : std::nullopt;
  }

  static std::optional<std::vector<std::uint32_t>> packetSizesOfRun(
      Bytes run, std::optional<std::uint32_t> default_bytes) {
    BoxReader reader(run);
    reader.skip(1);
    const std::uint32_t flags = reader.u24();
    const std::uint32_t count = reader.u32();
    if (flags & 0x001) reader.skip(4);  // data offset
    if (flags & 0x004) reader.skip(4);  // first sample's flags
    // A fragment of a quarter of a second never has more, whatever a damaged count says.
    constexpr std::uint32_t kMostPackets = 4096;
    const bool hasSizes = (flags & 0x200) != 0;
    if (!reader.ok() || count > kMostPackets || (!hasSizes && !default_bytes)) return std::nullopt;
    std::vector<std::uint32_t> sizes_bytes;
    sizes_bytes.reserve(count);
    for (std::uint32_t i = 0; i < count; ++i) {
      if (flags & 0x100) reader.skip(4);  // duration
      sizes_bytes.push_back(hasSizes ? reader.u32() : *default_bytes);
      if (sizes_bytes.back() == 0) return std::nullopt;
      if (flags & 0x400) reader.skip(4);  // flags
      if (flags & 0x800) reader.skip(4);  // composition offset
    }
    return reader.ok() ? std::optional(std::move(sizes_bytes)) : std::nullopt;
  }

  // The offset of the next fragment, at or after `from_bytes`.
  std::optional<std::uint64_t> nextFragment(std::uint64_t from_bytes) {
    constexpr std::uint64_t kWindow_bytes = 64ULL * 1024;
    constexpr std::string_view kName = "moof";
    while (from_bytes + kBoxHeader_bytes <= size_bytes_) {
      const auto window = read(from_bytes, kWindow_bytes);
      const std::string_view text(reinterpret_cast<const char*>(window.data()), window.size());
      for (auto at = text.find(kName, 4); at != std::string_view::npos;
           at = text.find(kName, at + 1)) {
        const std::uint64_t candidate_bytes = from_bytes + at - 4;
        if (readFragment(candidate_bytes)) return candidate_bytes;
      }
      if (window.size() < kWindow_bytes) break;
      from_bytes += kWindow_bytes - (kBoxHeader_bytes - 1);
    }
    return std::nullopt;
  }

  M4aRepairableFile& file_;
  const std::uint64_t size_bytes_;
  M4aFindings findings_;
};

bool isComplete(M4aRepairableFile& file) {
  std::array<std::byte, kM4aHeadSize_bytes> head{};
  if (file.readAt(0, head) < head.size()) return false;
  BoxReader reader(Bytes(head).subspan(kM4aMediaHeader_bytes));
  if (reader.u32() != 1 || reader.u32() != boxType("mdat")) return false;
  const std::uint64_t media_bytes = reader.u64();
  const std::uint64_t size_bytes = file.size_bytes();
  if (media_bytes > size_bytes || media_bytes + kM4aMediaHeader_bytes >= size_bytes) return false;
  const std::uint64_t index_bytes = kM4aMediaHeader_bytes + media_bytes;
  std::vector<std::byte> index(size_bytes - index_bytes);
  index.resize(file.readAt(index_bytes, index));
  return findBox(index, {boxType("moov"), boxType("trak"), boxType("mdia"), boxType("minf"),
                         boxType("stbl"), boxType("co64")})
      .has_value();
}

// Makes the file end with its last complete packet. After each step the file still reads the same.
Status cutTornEnd(M4aRepairableFile& file, const M4aFindings& findings) {
  if (findings.tornMedia_offset_bytes) {
    BoxBuilder size;
    size.u32(static_cast<std::uint32_t>(findings.end_bytes - *findings.tornMedia_offset_bytes));
    Status described = file.pwriteAt(*findings.tornMedia_offset_bytes, size.take());
    if (!described) return described;
  }
  if (file.size_bytes() > findings.end_bytes && !file.truncate(findings.end_bytes)) {
    return Unexpected(
        "The torn end of an interrupted recording could not be cut off. Check that the file and "
        "its folder are writable.");
  }
  return {};
}

}  // namespace

std::optional<M4aFindings> findM4aPackets(M4aRepairableFile& file) {
  return PacketFinder(file).find();
}

Expected<M4aRecovery> recoverInterruptedM4a(M4aRepairableFile& file) {
  auto findings = findM4aPackets(file);
  if (!findings) return M4aRecovery();
  M4aRecovery recovery;
  recovery.frames = findings->track.frames;
  recovery.sampleRate_hz = findings->track.sampleRate_hz;
  if (isComplete(file)) {
    recovery.outcome = M4aRecovery::Outcome::alreadyComplete;
    return recovery;
  }
  findings->track.modificationTime_s = kMp4Epoch_s + static_cast<std::uint64_t>(std::time(nullptr));
  if (const Status cut = cutTornEnd(file, *findings); !cut) return Unexpected(cut.error());
  const Status completed = completeM4a(file, findings->track, findings->packets);
  if (!completed) return Unexpected(completed.error());
  recovery.outcome = M4aRecovery::Outcome::completed;
  return recovery;
}

}  // namespace linux_host
