// SPDX-License-Identifier: MIT
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "hosts/linux/audio/capture_consumer.h"
#include "hosts/linux/audio/capture_ring.h"
#include "hosts/linux/audio/capture_stream.h"
#include "hosts/linux/audio/sound_watch.h"
#include "hosts/linux/audio/source_rest.h"
#include "hosts/linux/base/pending_work.h"
#include "platform/mutex.h"
#include "platform/thread_role.h"

namespace linux_host {

// One run of a capture session, from its start to its stop: a stream, a ring, and the drain thread
// that moves the samples from the ring to the consumers.
//
// The samples wait in the ring until deliver(). Then the consumers get all of them, from the very
// first, until the run is told to end or fails. Everything captured before that moment still
// reaches the consumers. Then they are finished, on the drain thread.
//
// Sound that was skipped or had no room is counted and replaced by silence of the same length, so
// that a recording stays as long as the time it took.
//
// Call on the main thread unless stated otherwise; no call waits.
class CaptureRun {
 public:
  // How much sound the ring can hold: disk and encoder may stall that long.
  static constexpr std::uint32_t kRing_s = 10;
  // A device that sends nothing for this long has failed. At the start, one new connection is tried
  // first.
  static constexpr std::chrono::seconds kSilenceLimit{5};
  // The longest silence that replaces one gap.
  static constexpr std::uint64_t kLongestFilling_s = 60;

  // Called on threads of the run; they must not call the run.
  struct Events {
    // The first samples are in the ring. Called again after announce(), once more samples are
    // there.
    std::function<void()> onSamples;
    // The run has failed; called at most once.
    std::function<void(const std::string& message)> onFailed;
    // A warning for the log.
    std::function<void(const std::string& message)> onWarning;
  };

  // Starts at once, in the background. `work` counts the run from its end until its consumers are
  // finished. `ring_s`: how many seconds of sound the ring can hold. Throws std::bad_alloc or
  // std::system_error if there is no memory for the ring or no thread can be started.
  CaptureRun(CaptureSource source, Events events, std::shared_ptr<SourceRest> rest,
             PendingWork& work, std::uint32_t ring_s = kRing_s);
  // Ends the run and waits until its consumers are finished.
  ~CaptureRun();
  CaptureRun(const CaptureRun&) = delete;
  CaptureRun& operator=(const CaptureRun&) = delete;

  [[nodiscard]] const CaptureSource& source() const { return source_; }

  // Gives samples to `consumer`: from the first one if deliver() has not been called yet, else
  // those captured from now on. False when the run is over; the consumer is then never called.
  [[nodiscard]] bool addConsumer(std::shared_ptr<CaptureConsumer> consumer);
  // The consumer gets everything captured up to now and is then finished, in the background.
  void endConsumer(const std::shared_ptr<CaptureConsumer>& consumer);
  void deliver();
  // Calls onSamples again when the next samples have arrived.
  void announce();
  // Ends the run; everything captured up to now is still delivered.
  void end();
  // Whether it was told to end, or has failed and delivers no more. Any thread.
  [[nodiscard]] bool hasEnded();
  // Whether it has failed and was not told to end yet. Any thread.
  [[nodiscard]] bool hasFailed();
  // Whether the consumers are finished and the thread has nothing left to do. Any thread.
  [[nodiscard]] bool hasFinished();

  // Whether the recorded channels have been digital silence for long. Any thread.
  [[nodiscard]] bool isSilent() const { return sound_.isSilent(); }
  // Sound lost since the start, whether replaced by silence or not. Any thread.
  [[nodiscard]] std::uint64_t lost_frames() const { return ring_.lost_frames(); }

 private:
  static constexpr std::uint64_t kNever = UINT64_MAX;

  // The allowed changes:
  //   kHolding     the samples wait               -> kDelivering, kFailed, kEnding
  //   kDelivering  the consumers get them         -> kFailed, kEnding
  //   kFailed      no more come; those that did
  //                are delivered once the run is
  //                told to deliver or to end      -> kEnding
  //   kEnding      the consumers get the rest     -> kFinished
  //   kFinished    nothing is left to do
  enum class Phase { kHolding, kDelivering, kFailed, kEnding, kFinished };

  // A consumer and its frames, counted from the start of the run.
  struct Share {
    std::shared_ptr<CaptureConsumer> consumer;
    std::uint64_t begin_frames = 0;
    std::uint64_t end_frames = kNever;
  };

  // The only function that changes the phase.
  void enter(Phase next) RA_REQUIRES(mutex_);

  // On the drain thread, and so is what follows, unless marked.
  void run();
  // Waits, for a limited time, until the source can be recorded from. False when the run has ended.
  bool waitForSource() RA_REQUIRES(drain_);
  // If no thread can be started, fails the run and returns false.
  bool openStream() RA_REQUIRES(drain_);
  void closeStream() RA_REQUIRES(drain_);
  // Connects again if no samples come in time. False when the run ended before there were any.
  bool waitForFirstSamples() RA_REQUIRES(drain_);
  bool waitForSamplesOfThisStream() RA_REQUIRES(drain_);
  void waitForDelivery() RA_REQUIRES(drain_);
  void drainUntilEnd() RA_REQUIRES(drain_);
  void finishAll() RA_REQUIRES(drain_);

  // Does nothing and returns false when the run has already ended or failed. Any thread.
  bool fail(const std::string& message);
  // Samples that arrive from now on no longer belong to the run. Any thread, as wake().
  void markEnd() RA_REQUIRES(mutex_);
  void wake() RA_REQUIRES(mutex_);
  // Hands the next contiguous piece to the consumers; false when there was nothing or a consumer is
  // not ready.
  bool handOn() RA_REQUIRES(drain_);
  // The length of the next piece: silence where sound was lost, else samples from the ring.
  std::uint64_t nextPiece_frames(std::uint64_t position) RA_REQUIRES(drain_);
  // Gives the frames at the ring's front, or silence, to the consumers whose shares contain them.
  void give(const std::vector<Share>& shares, std::uint32_t frames, bool isSilence)
      RA_REQUIRES(drain_);
  void finishThoseAt(std::uint64_t position_frames);
  void dropFailed(const std::shared_ptr<CaptureConsumer>& consumer, const std::string& error);
  void listen(const std::vector<Share>& shares, const float* const* planes, std::uint32_t frames)
      RA_REQUIRES(drain_);
  // Checks what the stream has delivered since the last call, and whether it has stalled.
  void watchArrival() RA_REQUIRES(drain_);
  void announceSamples(std::uint64_t written_frames);
  void reportLosses(bool isLast) RA_REQUIRES(drain_);
  // How long the thread can sleep.
  std::chrono::milliseconds untilNextLook();
  // Sleeps for `limit` or until there is a request; false when the run is to end.
  bool pause(std::chrono::milliseconds limit);

  platform::ThreadRole mainThread_{platform::ThreadRole::Holder::kMaker};
  platform::ThreadRole drain_;  // the drain thread

  const CaptureSource source_;
  const Events events_;
  const std::shared_ptr<SourceRest> rest_;
  PendingWork& work_;
  CaptureRing ring_;

  platform::Mutex mutex_;
  platform::Condition asked_;
  bool isAsked_ RA_GUARDED_BY(mutex_) = false;
  Phase phase_ RA_GUARDED_BY(mutex_) = Phase::kHolding;
  std::vector<Share> shares_ RA_GUARDED_BY(mutex_);
  std::optional<std::uint64_t> announceAfter_frames_ RA_GUARDED_BY(mutex_) = 0;  // none: not asked
  std::uint64_t end_frames_ RA_GUARDED_BY(mutex_) = kNever;
  std::optional<PendingWork::Token> token_ RA_GUARDED_BY(mutex_);

  SoundWatch sound_;
  std::unique_ptr<CaptureStream> stream_ RA_GUARDED_BY(drain_);
  bool hasStreamed_ RA_GUARDED_BY(drain_) = false;
  std::uint64_t seen_frames_ RA_GUARDED_BY(drain_) = 0;
  std::chrono::nanoseconds idle_ RA_GUARDED_BY(drain_){0};
  std::chrono::steady_clock::time_point lastLook_ RA_GUARDED_BY(drain_){};
  std::uint64_t fillingLeft_frames_ RA_GUARDED_BY(drain_) = 0;
  bool hasSoundElsewhere_ RA_GUARDED_BY(drain_) = false;
  std::uint64_t reportedDropped_frames_ RA_GUARDED_BY(drain_) = 0;
  std::uint64_t reportedMissed_frames_ RA_GUARDED_BY(drain_) = 0;
  std::chrono::steady_clock::time_point lastReport_ RA_GUARDED_BY(drain_){};

  std::thread thread_;
};

}  // namespace linux_host
