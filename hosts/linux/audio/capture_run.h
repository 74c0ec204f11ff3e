// SPDX-License-Identifier: MIT
#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
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

namespace linux_host {

// One run of a capture session, from its start to its stop: a stream, a ring, and the drain thread
// that carries the samples from the ring to the consumers.
//
// The samples wait in the ring until deliver(); then the consumers get them all, from the very
// first, until the run is told to end or fails by itself. Whatever was captured before that moment
// still reaches the consumers, which are then finished, on the drain thread.
//
// Sound that was passed over or had no room is counted, and silence of the same length stands in
// its place, so that a recording stays as long as the time it took.
//
// Calls on the main thread unless they say otherwise; none of them waits.
class CaptureRun {
 public:
  // How much sound the ring holds: disk and encoder may stall that long.
  static constexpr std::uint32_t kRing_s = 10;
  // A device that sends nothing for so long has failed. At the start it is connected anew once.
  static constexpr std::chrono::seconds kSilenceLimit{5};
  // The most silence that stands for one piece of lost sound.
  static constexpr std::uint64_t kLongestFilling_s = 60;

  // Called on threads of the run; they must not call the run.
  struct Events {
    // The first samples are in the ring; again after announce(), once more samples are.
    std::function<void()> onSamples;
    // The run has ended by itself; at most once.
    std::function<void(const std::string& message)> onFailed;
    // Something the user of the log should know.
    std::function<void(const std::string& message)> onWarning;
  };

  // Starts at once, in the background. `work` counts the run from its end until its consumers are
  // finished. `ring_s`: how many seconds of sound the ring holds. Throws std::bad_alloc or
  // std::system_error when there is no memory for the ring or no thread to be had.
  CaptureRun(CaptureSource source, Events events, std::shared_ptr<SourceRest> rest,
             PendingWork& work, std::uint32_t ring_s = kRing_s);
  // Ends the run and waits until its consumers are finished.
  ~CaptureRun();
  CaptureRun(const CaptureRun&) = delete;
  CaptureRun& operator=(const CaptureRun&) = delete;

  [[nodiscard]] const CaptureSource& source() const { return source_; }

  // Gives samples to `consumer`: the first ones if deliver() has not been called yet, else those
  // captured from now on. False when the run is over; the consumer is then not called at all.
  [[nodiscard]] bool addConsumer(std::shared_ptr<CaptureConsumer> consumer);
  // The consumer gets what has been captured up to now and is then finished, in the background.
  void endConsumer(const std::shared_ptr<CaptureConsumer>& consumer);
  void deliver();
  // Calls onSamples again when the next samples have arrived.
  void announce();
  // Ends the run with what has been captured up to now.
  void end();
  // It was told to end, or has failed and delivers no more. Any thread.
  [[nodiscard]] bool hasEnded();
  // It has failed, and was not told to end yet. Any thread.
  [[nodiscard]] bool hasFailed();
  // The consumers are finished and the thread has nothing left to do. Any thread.
  [[nodiscard]] bool hasFinished();

  // What is recorded has been digital silence for long. Any thread.
  [[nodiscard]] bool isSilent() const { return sound_.isSilent(); }
  // Sound lost since the start, whether silence stands in its place or not. Any thread.
  [[nodiscard]] std::uint64_t lost_frames() const { return ring_.lost_frames(); }

 private:
  static constexpr std::uint64_t kNever = UINT64_MAX;

  // Who may go where:
  //   kHolding     the samples wait               -> kDelivering, kFailed, kEnding
  //   kDelivering  the consumers get them         -> kFailed, kEnding
  //   kFailed      no more come; those that did
  //                are delivered once the run is
  //                told to deliver or to end      -> kEnding
  //   kEnding      the consumers get the rest     -> kFinished
  //   kFinished    nothing is left to do
  enum class Phase { kHolding, kDelivering, kFailed, kEnding, kFinished };

  // A consumer and the frames it is to get, counted from the start of the run.
  struct Share {
    std::shared_ptr<CaptureConsumer> consumer;
    std::uint64_t begin_frames = 0;
    std::uint64_t end_frames = kNever;
  };

  // With mutex_ held; the only function that changes the phase.
  void enter(Phase next);

  void run();
  // Waits, within limits, until the source can be recorded from; false when the run ended.
  bool waitForSource();
  // False, and the run has failed, when there is no thread for it.
  bool openStream();
  void closeStream();
  // Connects anew when none come in time. False when the run ended before there were any.
  bool waitForFirstSamples();
  bool waitForSamplesOfThisStream();
  void waitForDelivery();
  void drainUntilEnd();
  void finishAll();

  // False when the run has ended before, which hears of no failure any more.
  bool fail(const std::string& message);
  // With mutex_ held: nothing that arrives from now on belongs to the run.
  void markEnd();
  void wake();  // with mutex_ held
  // Hands on what lies in one piece; false when there was nothing, or somebody is not ready.
  bool handOn();
  // How many frames the next piece has: silence where sound was lost, else what is in the ring.
  std::uint64_t nextPiece_frames(std::uint64_t position);
  // Gives the frames at the ring's front, or silence there, to whose share they are.
  void give(const std::vector<Share>& shares, std::uint32_t frames, bool isSilence);
  void finishThoseAt(std::uint64_t position_frames);
  void dropFailed(const std::shared_ptr<CaptureConsumer>& consumer, const std::string& error);
  void listen(const std::vector<Share>& shares, const float* const* planes, std::uint32_t frames);
  // Sees what the stream has done since the last time, and whether it still does anything.
  void watchArrival();
  void announceSamples(std::uint64_t written_frames);
  void reportLosses(bool isLast);
  // How long nobody needs the thread to look.
  std::chrono::milliseconds untilNextLook();
  // Sleeps for `limit` or until something is asked for; false when the run is to end.
  bool pause(std::chrono::milliseconds limit);

  const CaptureSource source_;
  const Events events_;
  const std::shared_ptr<SourceRest> rest_;
  PendingWork& work_;
  CaptureRing ring_;
  std::unique_ptr<CaptureStream> stream_;  // drain thread only

  std::mutex mutex_;
  std::condition_variable asked_;
  bool isAsked_ = false;                                   // guarded by mutex_
  Phase phase_ = Phase::kHolding;                          // guarded by mutex_
  std::vector<Share> shares_;                              // guarded by mutex_
  std::optional<std::uint64_t> announceAfter_frames_ = 0;  // guarded by mutex_; none: not asked
  std::uint64_t end_frames_ = kNever;                      // guarded by mutex_
  std::optional<PendingWork::Token> token_;                // guarded by mutex_

  SoundWatch sound_;

  // Drain thread only.
  bool hasStreamed_ = false;
  std::uint64_t seen_frames_ = 0;
  std::chrono::nanoseconds idle_{0};
  std::chrono::steady_clock::time_point lastLook_{};
  std::uint64_t fillingLeft_frames_ = 0;
  bool hasSoundElsewhere_ = false;
  std::uint64_t reportedDropped_frames_ = 0;
  std::uint64_t reportedMissed_frames_ = 0;
  std::chrono::steady_clock::time_point lastReport_{};

  std::thread thread_;
};

}  // namespace linux_host
