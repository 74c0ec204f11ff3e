// SPDX-License-Identifier: MIT
#include "hosts/linux/audio/capture_run.h"

#include <pthread.h>

#include <algorithm>
#include <array>
#include <cassert>
#include <cstdio>
#include <exception>
#include <utility>

#include "hosts/linux/audio/stream_connection.h"

namespace linux_host {
namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

constexpr milliseconds kStartPoll{1};
constexpr milliseconds kPoll{10};
constexpr milliseconds kLongestPoll{200};
// A check that comes later than this is late because the process did not run; that time is not the
// device's fault.
constexpr milliseconds kLongestLook{500};
constexpr std::chrono::seconds kLossReportInterval{1};
constexpr std::uint32_t kBlock_frames = 4096;
constexpr std::array<float, kBlock_frames> kSilence{};

std::string lossMessage(std::uint64_t lost_frames, std::uint64_t until_frames,
                        std::uint32_t rate_Hz, const char* reason) {
  std::array<char, 240> text{};
  std::snprintf(text.data(), text.size(),
                "Lost %llu frames (%.3f s) of sound by second %.1f; silence takes their place. "
                "%s",
                static_cast<unsigned long long>(lost_frames),
                static_cast<double>(lost_frames) / rate_Hz,
                static_cast<double>(until_frames) / rate_Hz, reason);
  return text.data();
}

}  // namespace

CaptureRun::CaptureRun(CaptureSource source, Events events, std::shared_ptr<SourceRest> rest,
                       PendingWork& work, std::uint32_t ring_s)
    : source_(std::move(source)),
      events_(std::move(events)),
      rest_(std::move(rest)),
      work_(work),
      ring_(static_cast<std::uint32_t>(source_.positions.size()), ring_s * source_.rate_Hz),
      sound_(source_.rate_Hz),
      thread_([this] { run(); }) {}

CaptureRun::~CaptureRun() {
  end();
  thread_.join();
}

void CaptureRun::enter(Phase next) {
  [[maybe_unused]] const auto mayEnter = [this](Phase phase) RA_REQUIRES(mutex_) {
    switch (phase_) {
      case Phase::kHolding:
        return phase != Phase::kHolding && phase != Phase::kFinished;
      case Phase::kDelivering:
        return phase == Phase::kFailed || phase == Phase::kEnding;
      case Phase::kFailed:
        return phase == Phase::kEnding;
      case Phase::kEnding:
        return phase == Phase::kFinished;
      case Phase::kFinished:
        return false;
    }
    return false;
  };
  assert(mayEnter(next));
  phase_ = next;
  if (next == Phase::kEnding) token_.emplace(work_);
  wake();
}

void CaptureRun::wake() {
  isAsked_ = true;
  asked_.notify_all();
}

bool CaptureRun::addConsumer(std::shared_ptr<CaptureConsumer> consumer) {
  mainThread_.assertHeld();
  const platform::MutexLock lock(mutex_);
  if (phase_ == Phase::kFinished) return false;
  const bool getsFirst = phase_ == Phase::kHolding || phase_ == Phase::kFailed;
  shares_.push_back({std::move(consumer), getsFirst ? 0 : ring_.written_frames(), kNever});
  return true;
}

void CaptureRun::endConsumer(const std::shared_ptr<CaptureConsumer>& consumer) {
  mainThread_.assertHeld();
  const platform::MutexLock lock(mutex_);
  for (Share& share : shares_) {
    if (share.consumer == consumer) {
      share.end_frames = std::min({share.end_frames, ring_.written_frames(), end_frames_});
    }
  }
  wake();
}

void CaptureRun::deliver() {
  mainThread_.assertHeld();
  const platform::MutexLock lock(mutex_);
  if (phase_ == Phase::kHolding) enter(Phase::kDelivering);
  if (phase_ == Phase::kFailed) enter(Phase::kEnding);
}

void CaptureRun::announce() {
  mainThread_.assertHeld();
  const platform::MutexLock lock(mutex_);
  // A pending announcement also serves this request. Postponing it until further samples would lose
  // it: before the delivery nothing looks for them.
  if (announceAfter_frames_) return;
  announceAfter_frames_ = ring_.written_frames();
  wake();
}

void CaptureRun::end() {
  mainThread_.assertHeld();
  const platform::MutexLock lock(mutex_);
  if (phase_ == Phase::kHolding || phase_ == Phase::kDelivering) markEnd();
  if (phase_ < Phase::kEnding) enter(Phase::kEnding);
}

bool CaptureRun::fail(const std::string& message) {
  {
    const platform::MutexLock lock(mutex_);
    if (phase_ >= Phase::kFailed) return false;
    const bool isDelivering = phase_ == Phase::kDelivering;
    markEnd();
    enter(Phase::kFailed);
    if (isDelivering) enter(Phase::kEnding);
  }
  events_.onFailed(message);
  return true;
}

void CaptureRun::markEnd() {
  end_frames_ = ring_.written_frames();
  rest_->ending(source_.nodeName);
}

bool CaptureRun::pause(milliseconds limit) {
  platform::MutexLock lock(mutex_);
  asked_.wait_for(lock, limit, [this]() RA_REQUIRES(mutex_) { return isAsked_; });
  isAsked_ = false;
  return phase_ < Phase::kFailed;
}

milliseconds CaptureRun::untilNextLook() {
  const platform::MutexLock lock(mutex_);
  if (announceAfter_frames_ || shares_.empty()) return kPoll;
  milliseconds shortest = kLongestPoll;
  for (const Share& share : shares_) shortest = std::min(shortest, share.consumer->patience());
  return shortest;
}

bool CaptureRun::hasEnded() {
  const platform::MutexLock lock(mutex_);
  return phase_ >= Phase::kEnding;
}

bool CaptureRun::hasFailed() {
  const platform::MutexLock lock(mutex_);
  return phase_ == Phase::kFailed;
}

bool CaptureRun::hasFinished() {
  const platform::MutexLock lock(mutex_);
  return phase_ == Phase::kFinished;
}

void CaptureRun::run() {
  drain_.assertHeld();
  pthread_setname_np(pthread_self(), "capture-drain");
  if (waitForSource()) {
    ring_.prefault();
    if (openStream() && waitForFirstSamples()) waitForDelivery();
    drainUntilEnd();
  } else {
    closeStream();
  }
  finishAll();
}

bool CaptureRun::waitForSource() {
  const steady_clock::time_point limit = steady_clock::now() + SourceRest::kLongest;
  for (;;) {
    const milliseconds wait = rest_->left(source_.nodeName);
    if (wait == milliseconds(0) || steady_clock::now() >= limit) return pause(milliseconds(0));
    if (!pause(std::min(wait, kPoll))) return false;
  }
}

bool CaptureRun::openStream() {
  try {
    stream_ = std::make_unique<CaptureStream>(source_, ring_,
                                              [this](const std::string& text) { fail(text); });
    hasStreamed_ = true;
    return true;
  } catch (const std::exception& error) {
    fail("The sound source \"" + source_.displayName +
         "\" cannot be recorded from: " + error.what() + ". Close other programs and start again.");
    return false;
  }
}

void CaptureRun::closeStream() {
  stream_.reset();
  rest_->ended(source_.nodeName, hasStreamed_);
}

bool CaptureRun::waitForFirstSamples() {
  if (waitForSamplesOfThisStream()) return true;
  if (!pause(milliseconds(0))) return false;
  events_.onWarning("The sound source \"" + source_.displayName + "\" has sent nothing for " +
                    std::to_string(kSilenceLimit.count()) + " seconds; connecting to it again.");
  stream_.reset();
  ring_.changeWriter();
  if (!openStream()) return false;
  if (waitForSamplesOfThisStream()) return true;
  fail("The sound source \"" + source_.displayName + "\" has sent nothing for " +
       std::to_string(2 * kSilenceLimit.count()) +
       " seconds, although it was connected twice. Check whether it works in other programs.");
  return false;
}

bool CaptureRun::waitForSamplesOfThisStream() {
  std::chrono::nanoseconds waited{0};
  lastLook_ = steady_clock::now();
  while (ring_.written_frames() == 0) {
    if (waited >= kSilenceLimit || !pause(kStartPoll)) return ring_.written_frames() != 0;
    const steady_clock::time_point now = steady_clock::now();
    waited += std::min<std::chrono::nanoseconds>(now - lastLook_, kLongestLook);
    lastLook_ = now;
  }
  watchArrival();
  return true;
}

void CaptureRun::waitForDelivery() {
  platform::MutexLock lock(mutex_);
  asked_.wait(lock, [this]() RA_REQUIRES(mutex_) {
    return phase_ == Phase::kDelivering || phase_ == Phase::kEnding;
  });
  lastLook_ = steady_clock::now();
}

void CaptureRun::drainUntilEnd() {
  do {
    watchArrival();
    while (handOn()) {
    }
    reportLosses(false);
  } while (pause(untilNextLook()));
  // Frees the device before the last samples are encoded.
  closeStream();
  // The samples of a failed run wait until deliver() or end() is called.
  waitForDelivery();
  while (handOn()) {
  }
  reportLosses(true);
}

void CaptureRun::finishAll() {
  std::vector<Share> shares;
  {
    const platform::MutexLock lock(mutex_);
    shares.swap(shares_);
  }
  for (const Share& share : shares) share.consumer->finish();
  // The token is released last: a thread that waits for it may end the process.
  std::optional<PendingWork::Token> token;
  {
    const platform::MutexLock lock(mutex_);
    if (token_) token.emplace(std::move(*token_));
    token_.reset();
    enter(Phase::kFinished);
  }
}

std::uint64_t CaptureRun::nextPiece_frames(std::uint64_t position) {
  std::uint64_t frames = std::min(ring_.contiguous_frames(), kBlock_frames);
  if (const auto gap = ring_.nextGap(); gap && fillingLeft_frames_ == 0) {
    if (gap->at_frames > position) return std::min(frames, gap->at_frames - position);
    fillingLeft_frames_ = std::min(gap->frames, kLongestFilling_s * source_.rate_Hz);
    ring_.takeGap();
  }
  if (fillingLeft_frames_ > 0) return std::min<std::uint64_t>(fillingLeft_frames_, kBlock_frames);
  return frames;
}

bool CaptureRun::handOn() {
  const std::uint64_t position = ring_.consumed_frames();
  finishThoseAt(position);
  std::uint64_t frames = nextPiece_frames(position);
  const bool isSilence = fillingLeft_frames_ > 0;
  std::vector<Share> shares;
  bool isLast = false;
  {
    const platform::MutexLock lock(mutex_);
    shares = shares_;
    isLast = phase_ >= Phase::kFailed;
    if (position >= end_frames_) return false;
    if (!isSilence) frames = std::min(frames, end_frames_ - position);
  }
  for (const Share& share : shares) {
    // A block must not cross the limits of a share.
    for (const std::uint64_t limit : {share.begin_frames, share.end_frames}) {
      if (!isSilence && limit > position) frames = std::min(frames, limit - position);
    }
    if (!isLast && !share.consumer->isReady()) return false;
  }
  if (frames == 0) return false;
  give(shares, static_cast<std::uint32_t>(frames), isSilence);
  if (isSilence) {
    fillingLeft_frames_ -= frames;
    return true;
  }
  ring_.consume(static_cast<std::uint32_t>(frames));
  finishThoseAt(position + frames);
  return true;
}

void CaptureRun::give(const std::vector<Share>& shares, std::uint32_t frames, bool isSilence) {
  std::array<const float*, kMostStreamChannels> planes{};
  for (std::uint32_t channel = 0; channel < ring_.channels(); ++channel) {
    planes[channel] = isSilence ? kSilence.data() : ring_.plane(channel);
  }
  if (!isSilence) listen(shares, planes.data(), frames);
  const std::uint64_t position = ring_.consumed_frames();
  for (const Share& share : shares) {
    if (position < share.begin_frames || position >= share.end_frames) continue;
    // Sound lost before a share's first frame does not concern that share.
    if (isSilence && position == share.begin_frames) continue;
    const Status taken = share.consumer->take(planes.data(), frames);
    if (!taken) dropFailed(share.consumer, taken.error());
  }
}

void CaptureRun::dropFailed(const std::shared_ptr<CaptureConsumer>& consumer,
                            const std::string& error) {
  {
    const platform::MutexLock lock(mutex_);
    std::erase_if(shares_, [&](const Share& share) { return share.consumer == consumer; });
  }
  consumer->finish();
  if (!fail(error)) events_.onWarning("The end of a recording was lost. Error: " + error);
}

void CaptureRun::finishThoseAt(std::uint64_t position_frames) {
  std::vector<std::shared_ptr<CaptureConsumer>> finished;
  {
    const platform::MutexLock lock(mutex_);
    for (const Share& share : shares_) {
      if (share.end_frames <= position_frames) finished.push_back(share.consumer);
    }
    std::erase_if(shares_, [&](const Share& share) { return share.end_frames <= position_frames; });
  }
  for (const auto& consumer : finished) consumer->finish();
}

void CaptureRun::listen(const std::vector<Share>& shares, const float* const* planes,
                        std::uint32_t frames) {
  std::uint32_t recorded = shares.empty() ? ring_.channels() : 1;
  for (const Share& share : shares) {
    recorded = std::max(recorded, share.consumer->recordedChannels(ring_.channels()));
  }
  sound_.listen(planes, ring_.channels(), recorded, frames);
  if (!sound_.hasSoundElsewhere() || std::exchange(hasSoundElsewhere_, true)) return;
  events_.onWarning("Only silence comes in on the first channel of \"" + source_.displayName +
                    "\", the only one that is recorded, but there is sound on another. Use the "
                    "first input, or record as m4a, which takes all channels.");
}

void CaptureRun::watchArrival() {
  const steady_clock::time_point now = steady_clock::now();
  const std::uint64_t written_frames = ring_.written_frames();
  const std::uint64_t arrived_frames = written_frames + ring_.lost_frames();
  if (arrived_frames != seen_frames_) {
    seen_frames_ = arrived_frames;
    idle_ = {};
  } else {
    idle_ += std::min<std::chrono::nanoseconds>(now - lastLook_, kLongestLook);
  }
  lastLook_ = now;
  if (idle_ >= kSilenceLimit) {
    fail("The sound source \"" + source_.displayName + "\" has sent nothing for " +
         std::to_string(kSilenceLimit.count()) + " seconds.");
    return;
  }
  announceSamples(written_frames);
}

void CaptureRun::announceSamples(std::uint64_t written_frames) {
  {
    const platform::MutexLock lock(mutex_);
    if (phase_ >= Phase::kFailed || !announceAfter_frames_) return;
    if (written_frames <= *announceAfter_frames_) return;
    announceAfter_frames_.reset();
  }
  events_.onSamples();
}

void CaptureRun::reportLosses(bool isLast) {
  const steady_clock::time_point now = steady_clock::now();
  if (!isLast && now - lastReport_ < kLossReportInterval) return;
  const auto report = [&](std::uint64_t lost_frames, std::uint64_t* reported_frames,
                          const char* reason) RA_REQUIRES(drain_) {
    if (lost_frames <= *reported_frames) return;
    events_.onWarning(lossMessage(lost_frames - *reported_frames,
                                  ring_.consumed_frames() + ring_.lost_frames(), source_.rate_Hz,
                                  reason));
    *reported_frames = lost_frames;
    lastReport_ = now;
  };
  report(ring_.dropped_frames(), &reportedDropped_frames_, "The disk or the encoder was too slow.");
  report(ring_.missed_frames(), &reportedMissed_frames_,
         "The sound server skipped them: the computer or the device did not keep up.");
}

}  // namespace linux_host
