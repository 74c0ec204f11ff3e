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
#include "hosts/linux/base/pending_work.h"

namespace linux_host {

// One run of a capture session, from its start to its stop: a stream, a ring, and the drain thread
// that carries the samples from the ring to the consumers.
//
// The samples wait in the ring until deliver(); then the consumers get them all, from the very
// first, until the run is told to end or fails by itself. Whatever was captured before that moment
// still reaches the consumers, which are then finished, on the drain thread.
//
// Calls on the main thread unless they say otherwise; none of them waits.
class CaptureRun {
 public:
  // How much sound the ring holds: disk and encoder may stall that long.
  static constexpr std::uint32_t kRing_s = 10;
  // A device that sends nothing for so long, at the start or later, has failed.
  static constexpr std::chrono::seconds kSilenceLimit{5};
  // Sound that is digital silence for so long from the start says that something is not right.
  static constexpr std::uint64_t kSilentStart_s = 3;

  // Called on threads of the run; they must not call the run.
  struct Events {
    // The first samples are in the ring; again after announce(), once more samples are.
    std::function<void()> onSamples;
    // The run has ended by itself; at most once.
    std::function<void(const std::string& message)> onFailed;
    // Something the user of the log should know.
    std::function<void(const std::string& message)> onWarning;
  };

  // The runs on monitors: one that follows too quickly on another would record silence.
  struct MonitorPause {
    std::mutex mutex;
    int streams = 0;                                  // guarded by mutex
    std::chrono::steady_clock::time_point lastEnd{};  // guarded by mutex
  };

  // Starts at once, in the background. `work` counts the run from its end until its consumers are
  // finished. `ring_s`: how many seconds of sound the ring holds.
  CaptureRun(CaptureSource source, Events events, std::shared_ptr<MonitorPause> pause,
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
  // It was told to end, or has failed. Any thread.
  [[nodiscard]] bool hasEnded();
  // The consumers are finished and the thread has nothing left to do. Any thread.
  [[nodiscard]] bool hasFinished() const { return hasFinished_.load(std::memory_order_acquire); }

  // All samples of the first kSilentStart_s seconds were zero, and so were all since. Any thread.
  [[nodiscard]] bool isSilentSinceStart() const {
    return isSilent_.load(std::memory_order_relaxed);
  }

 private:
  static constexpr std::uint64_t kNever = UINT64_MAX;

  // A consumer and the frames it is to get, counted from the start of the run.
  struct Share {
    std::shared_ptr<CaptureConsumer> consumer;
    std::uint64_t begin_frames = 0;
    std::uint64_t end_frames = kNever;
  };

  void run();
  void openStream();
  void closeStream();
  // Waits, within limits, until the monitor can be recorded from; false when the run ended.
  bool waitForMonitor();
  // False when the run ended before there were any.
  bool waitForFirstSamples();
  void waitForDelivery();
  void drainUntilEnd();
  void finishAll();

  // False when the run has ended before, which hears of no failure any more.
  bool fail(const std::string& message);
  // With mutex_ held.
  void markEnd();
  // Hands on what lies in one piece; false when there was nothing, or somebody is not ready.
  bool handOn();
  // Gives frames of the ring's front to whose share they are.
  void give(const std::vector<Share>& shares, std::uint32_t frames);
  void finishThoseAt(std::uint64_t position_frames);
  void dropFailed(const std::shared_ptr<CaptureConsumer>& consumer, const std::string& error);
  void lookForSound(std::uint32_t frames);
  // Sees what the stream has done since the last time, and whether it still does anything.
  void watchArrival();
  void reportLosses(bool isLast);
  // How long nobody needs the thread to look.
  std::chrono::milliseconds untilNextLook();
  // Sleeps for `limit` or until something is asked for; false when the run is to end.
  bool pause(std::chrono::milliseconds limit);

  const CaptureSource source_;
  const Events events_;
  const std::shared_ptr<MonitorPause> monitorPause_;
  PendingWork& work_;
  CaptureRing ring_;
  std::unique_ptr<CaptureStream> stream_;  // drain thread only

  std::mutex mutex_;
  std::condition_variable asked_;
  bool isAsked_ = false;                     // guarded by mutex_
  std::vector<Share> shares_;                // guarded by mutex_
  bool isDelivering_ = false;                // guarded by mutex_
  bool isAnnouncing_ = true;                 // guarded by mutex_
  std::uint64_t announceAfter_frames_ = 0;   // guarded by mutex_
  std::uint64_t end_frames_ = kNever;        // guarded by mutex_
  std::uint64_t lostAtEnd_frames_ = 0;       // guarded by mutex_
  std::optional<PendingWork::Token> token_;  // guarded by mutex_

  std::atomic<bool> isSilent_{false};
  std::atomic<bool> hasFinished_{false};

  // Drain thread only.
  std::uint64_t seen_frames_ = 0;
  std::chrono::nanoseconds idle_{0};
  std::chrono::steady_clock::time_point lastLook_{};
  std::uint64_t silent_frames_ = 0;
  bool hasHeardSound_ = false;
  std::uint64_t reportedLost_frames_ = 0;
  std::chrono::steady_clock::time_point lastReport_{};

  std::thread thread_;
};

}  // namespace linux_host
