// SPDX-License-Identifier: MIT
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <vector>

#include "hosts/linux/audio_units/stream_format.h"
#include "hosts/linux/audio_units/unit.h"
#include "platform/thread_role.h"

struct SRC_STATE_tag;

namespace linux_host {

// Remembers how much of each pull was missing, and says when to step back: after several
// consecutive short cycles, by the largest amount that was missing. A single late block is no
// reason, and neither is a source that has ended, because it comes up short only once.
//
// REAL-TIME.
class Shortfall {
 public:
  // Reports a pull of `frames`, of which the source delivered the first `delivered_frames`.
  void pulled(std::uint32_t frames, std::uint32_t delivered_frames);
  // Call at the end of a cycle. Returns the frames to step back; usually 0.
  std::uint32_t endOfCycle();

 private:
  static constexpr int kCyclesInARow = 4;
  bool isShort_ = false;
  std::uint32_t missing_frames_ = 0;
  std::uint32_t mostMissing_frames_ = 0;
  int shortCycles_ = 0;
};

// Converts from its input rate to its output rate, times the playback rate. The playback rate may
// change at any time; each cycle glides from the previous rate to the newest.
//
// Frames that the output device has skipped (an overload) count as consumed, so that the delay
// stays what it was. Only when its source keeps coming up short, because cycles have become longer,
// does it step back, once and far enough (Shortfall).
//
// Pulls its input from the render callback in pieces of an eighth of the largest cycle, so that it
// reads little more than it needs. The converter is libsamplerate's fastest sinc: its error is 97
// dB below the signal, and at 48 kHz its pass band ends at 19 kHz. The better ones take two and six
// times as long, on an audio thread that has to be on time.
class VarispeedUnit : public Unit {
 public:
  VarispeedUnit();
  ~VarispeedUnit() override;

  // Allocates all memory.
  platform::OSStatus initialize() override;
  platform::OSStatus uninitialize() override;
  platform::OSStatus setProperty(const UnitPropertyAddress& address, const void* data,
                                 std::uint32_t size_bytes) override;
  Value property(const UnitPropertyAddress& address) override;
  [[nodiscard]] bool canFeed() const override { return true; }

  // REAL-TIME: allocates nothing, takes no lock, makes no system call.
  platform::OSStatus setParameter(std::uint32_t parameter, std::uint32_t scope,
                                  std::uint32_t element, float value) override;
  // REAL-TIME, as above. Frames by which the time stamp has jumped ahead count as consumed. At most
  // kMostFrames at once.
  platform::OSStatus render(std::uint32_t* ioActionFlags, const platform::AudioTimeStamp& timeStamp,
                            std::uint32_t busNumber, std::uint32_t frameCount,
                            platform::AudioBufferList& list) override;

  static constexpr std::uint32_t kMostFrames = 8192;

 private:
  struct ConverterDelete {
    void operator()(SRC_STATE_tag* state) const;
  };

  static long pullCallback(void* self, float** data);
  long pull(float** data);
  void skip(double output_frames);
  void stepBack(std::uint32_t frames);
  void silencePiece();
  [[nodiscard]] double outputPerInput() const;
  platform::OSStatus setFormat(platform::AudioStreamBasicDescription& format, const void* data,
                               std::uint32_t size_bytes);

  platform::AudioStreamBasicDescription inputFormat_;
  platform::AudioStreamBasicDescription outputFormat_;
  platform::AURenderCallbackStruct source_{};

  std::unique_ptr<SRC_STATE_tag, ConverterDelete> converter_;
  std::vector<float> planes_;  // one piece of every channel
  PlaneList pieceList_;
  std::vector<float> pieceInterleaved_;
  std::vector<float> outputInterleaved_;

  std::atomic<float> rate_{1.0F};
  // Debug builds assert that one thread renders, from one initialize() to the next.
  platform::ThreadRole renderThread_;
  // Only for that thread.
  std::int64_t consumed_frames_ = 0;
  double skippedRemainder_frames_ = 0;
  std::uint32_t steppedBack_frames_ = 0;
  double nextOutputTime_ = 0;
  bool hasRendered_ = false;
  std::uint64_t host_ns_ = 0;
  Shortfall shortfall_;
};

}  // namespace linux_host
