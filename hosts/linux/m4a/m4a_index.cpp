// SPDX-License-Identifier: MIT
#include "hosts/linux/m4a/m4a_index.h"

#include <algorithm>
#include <limits>

#include "hosts/linux/m4a/box_bytes.h"

namespace linux_host {

void M4aPacketIndex::addChunk(std::uint64_t offset_bytes,
                              std::span<const std::uint32_t> packetSizes_bytes) {
  if (packetSizes_bytes.empty()) return;
  const auto count = static_cast<std::uint32_t>(packetSizes_bytes.size());
  if (runs_.empty() || runs_.back().packetsPerChunk != count) {
    runs_.push_back({static_cast<std::uint32_t>(chunkOffsets_.size()), count});
  }
  chunkOffsets_.push_back(offset_bytes);
  packetSizes_.insert(packetSizes_.end(), packetSizes_bytes.begin(), packetSizes_bytes.end());
}

namespace {

constexpr std::uint32_t kFullSpeed = 0x00010000;         // 16.16 fixed point
constexpr std::uint32_t kFullVolume = 0x0100;            // 8.8 fixed point
constexpr std::uint32_t kUndeterminedLanguage = 0x55c4;  // "und", three letters of five bits
constexpr std::uint32_t kTrackEnabledInMovieAndPreview = 7;

struct Durations {
  std::uint64_t recorded_frames;
  std::uint64_t media_frames;
  std::uint32_t lastPacket_frames;
};

Durations durationsOf(const M4aTrack& track, std::uint64_t packetCount) {
  const std::uint64_t held = packetCount * kAacPacket_frames;
  const std::uint64_t wanted = std::min(track.priming_frames + track.frames, held);
  Durations durations{wanted > track.priming_frames ? wanted - track.priming_frames : 0, held,
                      kAacPacket_frames};
  if (held - wanted < kAacPacket_frames) {
    durations.media_frames = wanted;
    durations.lastPacket_frames = static_cast<std::uint32_t>(kAacPacket_frames - (held - wanted));
  }
  return durations;
}

class IndexBoxBuilder {
 public:
  enum class Kind {
    kComplete,
    kGrowing,  // fragments follow
  };

  IndexBoxBuilder(const M4aTrack& track, const M4aPacketIndex& packets, Kind kind)
      : track_(track),
        packets_(packets),
        kind_(kind),
        packetCount_(static_cast<std::uint32_t>(packets.packetSizes_bytes().size())),
        durations_(durationsOf(track, packetCount_)) {}

  std::vector<std::byte> build() {
    out_.reserve(4096 + track_.sampleDescription.size() + track_.labels.size() +
                 4 * std::size_t{packetCount_} + 8 * packets_.chunkOffsets_bytes().size() +
                 12 * packets_.runs().size());
    out_.box(boxType("moov"), [&] {
      movieHeader();
      out_.box(boxType("trak"), [&] {
        trackHeader();
        if (durations_.recorded_frames > 0) editList();
        media();
      });
      if (kind_ == Kind::kGrowing) fragmentDefaults();
      out_.raw(track_.labels);
    });
    return out_.take();
  }

 private:
  [[nodiscard]] int versionFor(std::uint64_t duration) const {
    const std::uint64_t largest =
        std::max({duration, track_.creationTime_s, track_.modificationTime_s});
    return largest > std::numeric_limits<std::uint32_t>::max() ? 1 : 0;
  }

  void times(int version) {
    out_.versioned(version, track_.creationTime_s);
    out_.versioned(version, track_.modificationTime_s);
  }

  void identityMatrix() {
    for (const std::uint32_t entry : {0x10000U, 0U, 0U, 0U, 0x10000U, 0U, 0U, 0U, 0x40000000U}) {
      out_.u32(entry);
    }
  }

  void movieHeader() {
    const int version = versionFor(durations_.recorded_frames);
    out_.fullBox(boxType("mvhd"), version, 0, [&] {
      times(version);
      out_.u32(track_.sampleRate_hz);
      out_.versioned(version, durations_.recorded_frames);
      out_.u32(kFullSpeed);
      out_.u16(kFullVolume);
      out_.zeros(10);
      identityMatrix();
      out_.zeros(24);
      out_.u32(kM4aTrackId + 1);
    });
  }

  void trackHeader() {
    const int version = versionFor(durations_.recorded_frames);
    out_.fullBox(boxType("tkhd"), version, kTrackEnabledInMovieAndPreview, [&] {
      times(version);
      out_.u32(kM4aTrackId);
      out_.zeros(4);
      out_.versioned(version, durations_.recorded_frames);
      out_.zeros(12);  // reserved, layer, alternate group
      out_.u16(kFullVolume);
      out_.zeros(2);
      identityMatrix();
      out_.zeros(8);  // width, height
    });
  }

  // One edit, from after the encoder's delay to the last recorded frame, so that players play
  // exactly what was recorded.
  void editList() {
    const int version = versionFor(durations_.recorded_frames);
    out_.box(boxType("edts"), [&] {
      out_.fullBox(boxType("elst"), version, 0, [&] {
        out_.u32(1);
        out_.versioned(version, durations_.recorded_frames);
        out_.versioned(version, track_.priming_frames);
        out_.u32(kFullSpeed);
      });
    });
  }

  void media() {
    out_.box(boxType("mdia"), [&] {
      const int version = versionFor(durations_.media_frames);
      out_.fullBox(boxType("mdhd"), version, 0, [&] {
        times(version);
        out_.u32(track_.sampleRate_hz);
        out_.versioned(version, durations_.media_frames);
        out_.u16(kUndeterminedLanguage);
        out_.zeros(2);
      });
      out_.fullBox(boxType("hdlr"), 0, 0, [&] {
        out_.zeros(4);
        out_.u32(boxType("soun"));
        out_.zeros(12);
        constexpr char kName[] = "SoundHandler";
        out_.raw(std::as_bytes(std::span(kName)));
      });
      out_.box(boxType("minf"), [&] {
        out_.fullBox(boxType("smhd"), 0, 0, [&] { out_.zeros(4); });
        out_.box(boxType("dinf"), [&] {
          out_.fullBox(boxType("dref"), 0, 0, [&] {
            out_.u32(1);
            constexpr std::uint32_t kMediaInThisFile = 1;
            out_.fullBox(boxType("url "), 0, kMediaInThisFile, [] {});
          });
        });
        out_.box(boxType("stbl"), [&] { sampleTable(); });
      });
    });
  }

  // The fragments themselves describe their packets completely.
  void fragmentDefaults() {
    out_.box(boxType("mvex"), [&] {
      out_.fullBox(boxType("trex"), 0, 0, [&] {
        out_.u32(kM4aTrackId);
        out_.u32(1);  // the sample description
        out_.zeros(12);
      });
    });
  }

  void sampleTable() {
    out_.raw(track_.sampleDescription);
    packetDurations();
    packetsOfChunks();
    out_.fullBox(boxType("stsz"), 0, 0, [&] {
      out_.u32(0);
      out_.u32(packetCount_);
      for (const std::uint32_t size_bytes : packets_.packetSizes_bytes()) out_.u32(size_bytes);
    });
    out_.fullBox(boxType("co64"), 0, 0, [&] {
      const auto offsets = packets_.chunkOffsets_bytes();
      out_.u32(static_cast<std::uint32_t>(offsets.size()));
      for (const std::uint64_t offset_bytes : offsets) out_.u64(offset_bytes);
    });
    if (packetCount_ > 0) decoderRoll();
  }

  void packetDurations() {
    out_.fullBox(boxType("stts"), 0, 0, [&] {
      const bool shortEnd = durations_.lastPacket_frames < kAacPacket_frames;
      const std::uint32_t whole = packetCount_ - (shortEnd && packetCount_ > 0 ? 1 : 0);
      const std::uint32_t entries = (whole > 0 ? 1U : 0U) + (whole < packetCount_ ? 1U : 0U);
      out_.u32(entries);
      if (whole > 0) {
        out_.u32(whole);
        out_.u32(kAacPacket_frames);
      }
      if (whole < packetCount_) {
        out_.u32(1);
        out_.u32(durations_.lastPacket_frames);
      }
    });
  }

  void packetsOfChunks() {
    out_.fullBox(boxType("stsc"), 0, 0, [&] {
      out_.u32(static_cast<std::uint32_t>(packets_.runs().size()));
      for (const auto& run : packets_.runs()) {
        out_.u32(run.firstChunk + 1);
        out_.u32(run.packetsPerChunk);
        out_.u32(1);
      }
    });
  }

  // A player that begins in the middle has to decode one extra packet before the wanted one.
  void decoderRoll() {
    out_.fullBox(boxType("sgpd"), 1, 0, [&] {
      out_.u32(boxType("roll"));
      out_.u32(2);  // bytes per entry
      out_.u32(1);
      out_.u16(0xffff);  // -1 packet
    });
    out_.fullBox(boxType("sbgp"), 0, 0, [&] {
      out_.u32(boxType("roll"));
      out_.u32(1);
      out_.u32(packetCount_);
      out_.u32(1);
    });
  }

  const M4aTrack& track_;
  const M4aPacketIndex& packets_;
  const Kind kind_;
  const std::uint32_t packetCount_;
  const Durations durations_;
  BoxBuilder out_;
};

}  // namespace

std::vector<std::byte> m4aHead(std::optional<std::uint64_t> indexOffset_bytes) {
  BoxBuilder out;
  out.box(boxType("ftyp"), [&] {
    out.u32(boxType("M4A "));
    out.u32(0);
    out.u32(boxType("M4A "));
    out.u32(boxType("mp42"));
    out.u32(boxType("isom"));
    // Fragments whose data offsets count from the fragment need a reader for the brand iso6.
    out.u32(indexOffset_bytes ? boxType("iso2") : boxType("iso6"));
  });
  if (indexOffset_bytes) {
    out.u32(1);  // the size follows in 64 bits
    out.u32(boxType("mdat"));
    out.u64(*indexOffset_bytes - kM4aMediaHeader_bytes);
  } else {
    out.box(boxType("free"), [&] { out.zeros(8); });
  }
  return out.take();
}

std::vector<std::byte> m4aGrowingIndexBox(const M4aTrack& track) {
  const M4aPacketIndex none;
  return IndexBoxBuilder(track, none, IndexBoxBuilder::Kind::kGrowing).build();
}

std::vector<std::byte> m4aIndexBox(const M4aTrack& track, const M4aPacketIndex& packets) {
  return IndexBoxBuilder(track, packets, IndexBoxBuilder::Kind::kComplete).build();
}

Status completeM4a(M4aSink& sink, const M4aTrack& track, const M4aPacketIndex& packets) {
  const std::uint64_t indexOffset_bytes = sink.size_bytes();
  if (Status appended = sink.append(m4aIndexBox(track, packets)); !appended) {
    // What cannot be cut off now is passed over by players and cut off by the recovery.
    static_cast<void>(sink.truncate(indexOffset_bytes));
    return appended;
  }
  return sink.pwriteAt(0, m4aHead(indexOffset_bytes));
}

}  // namespace linux_host
