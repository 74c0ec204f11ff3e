// SPDX-License-Identifier: MIT
#include "hosts/linux/m4a/libav_m4a_writer.h"

#include <algorithm>
#include <cmath>
#include <ctime>
#include <span>
#include <utility>

#include "hosts/linux/m4a/box_bytes.h"
#include "hosts/linux/m4a/m4a_description.h"
#include "hosts/linux/m4a/torn_fragment.h"

namespace linux_host {

namespace {

constexpr double kFragment_s = 0.25;
// A process killed during a write leaves whole pages of it. Players refuse a file that ends inside
// a fragment's header, but not one that ends inside media data. So no header crosses a page.
constexpr std::uint64_t kPage_bytes = 4096;
constexpr std::uint64_t kSmallestBox_bytes = 8;

std::uint64_t unixTime_s() {
  return static_cast<std::uint64_t>(std::time(nullptr));
}

// An empty box that keeps a header of `head_bytes`, which would begin at `offset_bytes`, from
// crossing a page; no bytes where it does not.
std::vector<std::byte> paddingBefore(std::uint64_t offset_bytes, std::size_t head_bytes) {
  const std::uint64_t toPageEnd_bytes = kPage_bytes - offset_bytes % kPage_bytes;
  if (head_bytes <= toPageEnd_bytes) return {};
  BoxBuilder padding;
  padding.box(boxType("free"), [&] {
    // Where a padding box does not fit before the page's end, its own header may cross it.
    padding.zeros(toPageEnd_bytes < kSmallestBox_bytes ? toPageEnd_bytes
                                                       : toPageEnd_bytes - kSmallestBox_bytes);
  });
  return padding.take();
}

Status failedButKept(const std::string& error) {
  return Unexpected(error + " What was recorded before that is kept and plays.");
}

}  // namespace

Status LibavM4aWriter::open(std::unique_ptr<M4aSink> sink, const M4aFormat& format) {
  if (Status opened = encoder_.open(format); !opened) return opened;
  const AVCodecContext& codec = encoder_.codec();
  const std::uint64_t start_s = labels_.start_unix_s > 0 ? labels_.start_unix_s : unixTime_s();
  track_.sampleRate_hz = static_cast<std::uint32_t>(codec.sample_rate);
  track_.priming_frames = static_cast<std::uint32_t>(codec.initial_padding);
  track_.creationTime_s = kMp4Epoch_s + start_s;
  track_.modificationTime_s = track_.creationTime_s;
  track_.sampleDescription = m4aSampleDescription(
      {track_.sampleRate_hz, static_cast<std::uint32_t>(codec.bit_rate),
       std::as_bytes(std::span(codec.extradata, static_cast<std::size_t>(codec.extradata_size)))});
  track_.labels = m4aLabelsBox(labels_);
  packetsPerFragment_ = static_cast<std::size_t>(
      std::max(1L, std::lround(kFragment_s * codec.sample_rate / kAacPacket_frames)));

  std::vector<std::byte> head = m4aHead(std::nullopt);
  const std::vector<std::byte> movie = m4aGrowingIndexBox(track_);
  head.insert(head.end(), movie.begin(), movie.end());
  Status appended = sink->append(head);
  if (appended) sink_ = std::move(sink);
  return appended;
}

Status LibavM4aWriter::write(const float* const* planes, std::uint32_t frames) {
  if (!sink_) return Unexpected("The m4a recording is not open.");
  if (!written_) return written_;
  const Status encoded =
      encoder_.encode(planes, frames, [this](AVPacket& packet) { return take(packet); });
  if (!encoded) written_ = failedButKept(encoded.error());
  return written_;
}

Status LibavM4aWriter::take(AVPacket& packet) {
  fragments_.add(std::as_bytes(std::span(packet.data, static_cast<std::size_t>(packet.size))));
  return fragments_.packetCount() < packetsPerFragment_ ? Status() : appendFragment();
}

Status LibavM4aWriter::appendFragment() {
  if (Status appended = appendUnwritten(); !appended) return appended;
  unwritten_ = fragments_.end();
  unwrittenOffset_bytes_ = sink_->size_bytes();
  const auto padding = paddingBefore(unwrittenOffset_bytes_, unwritten_.mediaOffset_bytes);
  unwritten_.bytes.insert(unwritten_.bytes.begin(), padding.begin(), padding.end());
  unwritten_.mediaOffset_bytes += padding.size();
  return appendUnwritten();
}

Status LibavM4aWriter::appendUnwritten() {
  if (unwritten_.packetSizes_bytes.empty()) return {};
  if (sink_->size_bytes() > unwrittenOffset_bytes_ && !sink_->truncate(unwrittenOffset_bytes_)) {
    return appended_;
  }
  appended_ = sink_->append(unwritten_.bytes);
  if (!appended_) {
    keepWholePackets();
    return appended_;
  }
  packets_.addChunk(unwrittenOffset_bytes_ + unwritten_.mediaOffset_bytes,
                    unwritten_.packetSizes_bytes);
  unwritten_ = {};
  return {};
}

void LibavM4aWriter::keepWholePackets() {
  const std::uint64_t media_bytes = unwrittenOffset_bytes_ + unwritten_.mediaOffset_bytes;
  std::vector<std::uint64_t> ends_bytes;  // of the complete packets
  std::uint64_t end_bytes = media_bytes;
  for (const std::uint32_t size_bytes : unwritten_.packetSizes_bytes) {
    end_bytes += size_bytes;
    if (end_bytes > sink_->size_bytes()) break;
    ends_bytes.push_back(end_bytes);
  }
  for (; !ends_bytes.empty(); ends_bytes.pop_back()) {
    const auto head =
        headOfFirstPackets(Bytes(unwritten_.bytes).first(unwritten_.mediaOffset_bytes),
                           ends_bytes.size(), ends_bytes.back() - media_bytes);
    if (!head) continue;
    if (!sink_->pwriteAt(unwrittenOffset_bytes_, *head)) break;
    cutAt(ends_bytes.back());
    return;
  }
  cutAt(unwrittenOffset_bytes_);
}

// Whether it can be cut off does not matter: players pass over a torn end, and the next append and
// the recovery try again.
void LibavM4aWriter::cutAt(std::uint64_t end_bytes) {
  static_cast<void>(sink_->truncate(end_bytes));
}

Status LibavM4aWriter::finish() {
  if (!sink_) return {};
  const Status completed = complete();
  sink_.reset();
  return completed ? completed : failedButKept(completed.error());
}

Status LibavM4aWriter::complete() {
  // First the rest of a failed write, because the encoder's last packets come after it.
  if (Status appended = appendUnwritten(); !appended) return appended;
  const auto onPacket = [this](AVPacket& packet) { return take(packet); };
  if (Status flushed = encoder_.flush(onPacket); !flushed) return flushed;
  if (fragments_.packetCount() > 0) {
    if (Status appended = appendFragment(); !appended) return appended;
  }
  track_.frames = encoder_.frames();
  track_.modificationTime_s = kMp4Epoch_s + unixTime_s();
  return completeM4a(*sink_, track_, packets_);
}

}  // namespace linux_host
