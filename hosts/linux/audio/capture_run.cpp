#include "hosts/linux/audio/capture_run.h"

#include <pthread.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <utility>

#include "hosts/linux/audio/stream_connection.h"

namespace linux_host {
namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

constexpr milliseconds kStartPoll{1};
constexpr milliseconds kPoll{10};
constexpr milliseconds kLongestPoll{200};
// A look that comes later than this came late because the process did not run; the device is not
// to blame for that time.
constexpr milliseconds kLongestLook{500};
// The daemon needs that long to let go of a monitor.
constexpr milliseconds kMonitorRest{25};
constexpr milliseconds kMonitorLimit{250};
constexpr std::chrono::seconds kLossReportInterval{1};
constexpr std::uint32_t kBlock_frames = 4096;

std::string lossMessage(std::uint64_t lost_frames, std::uint32_t rate_Hz) {
  std::array<char, 160> text{};
  std::snprintf(text.data(), text.size(),
                "Lost %llu frames (%.3f s) of sound: the disk or the encoder was too slow.",
                static_cast<unsigned long long>(lost_frames),
                static_cast<double>(lost_frames) / rate_Hz);
  return text.data();
}

}  // namespace

CaptureRun::CaptureRun(CaptureSource source, Events events, std::shared_ptr<MonitorPause> pause,
                       PendingWork& work, std::uint32_t ring_s)
    : source_(std::move(source)),
      events_(std::move(events)),
      monitorPause_(std::move(pause)),
      work_(work),
      ring_(static_cast<std::uint32_t>(source_.positions.size()), ring_s * source_.rate_Hz),
      thread_([this] { run(); }) {}

CaptureRun::~CaptureRun() {
  end();
  thread_.join();
}

bool CaptureRun::addConsumer(std::shared_ptr<CaptureConsumer> consumer) {
  const std::lock_guard lock(mutex_);
  if (hasFinished()) return false;
  const std::uint64_t begin_frames = isDelivering_ ? ring_.written_frames() : 0;
  shares_.push_back({std::move(consumer), begin_frames, kNever});
  return true;
}

void CaptureRun::endConsumer(const std::shared_ptr<CaptureConsumer>& consumer) {
  const std::lock_guard lock(mutex_);
  for (Share& share : shares_) {
    if (share.consumer == consumer) {
      share.end_frames = std::min({share.end_frames, ring_.written_frames(), end_frames_});
    }
  }
  isAsked_ = true;
  asked_.notify_all();
}

void CaptureRun::deliver() {
  const std::lock_guard lock(mutex_);
  isDelivering_ = true;
  isAsked_ = true;
  asked_.notify_all();
}

void CaptureRun::announce() {
  const std::lock_guard lock(mutex_);
  // An announcement that is still to come serves this request too. Putting it off until further
  // samples would lose it: before the delivery nobody looks for them.
  if (isAnnouncing_) return;
  isAnnouncing_ = true;
  announceAfter_frames_ = ring_.written_frames();
  isAsked_ = true;
  asked_.notify_all();
}

void CaptureRun::end() {
  const std::lock_guard lock(mutex_);
  markEnd();
  // Nobody can be added any more, so there is nothing to wait for.
  isDelivering_ = true;
}

bool CaptureRun::fail(const std::string& message) {
  {
    const std::lock_guard lock(mutex_);
    if (end_frames_ != kNever) return false;
    markEnd();
  }
  events_.onFailed(message);
  return true;
}

void CaptureRun::markEnd() {
  isAsked_ = true;
  asked_.notify_all();
  if (end_frames_ != kNever) return;
  end_frames_ = ring_.written_frames();
  lostAtEnd_frames_ = ring_.lost_frames();
  if (!hasFinished()) token_.emplace(work_);
}

bool CaptureRun::pause(milliseconds limit) {
  std::unique_lock lock(mutex_);
  asked_.wait_for(lock, limit, [this] { return isAsked_; });
  isAsked_ = false;
  return end_frames_ == kNever;
}

milliseconds CaptureRun::untilNextLook() {
  const std::lock_guard lock(mutex_);
  if (isAnnouncing_ || shares_.empty()) return kPoll;
  milliseconds shortest = kLongestPoll;
  for (const Share& share : shares_) shortest = std::min(shortest, share.consumer->patience());
  return shortest;
}

bool CaptureRun::hasEnded() {
  const std::lock_guard lock(mutex_);
  return end_frames_ != kNever;
}

void CaptureRun::run() {
  pthread_setname_np(pthread_self(), "capture-drain");
  if (waitForMonitor()) {
    openStream();
    if (waitForFirstSamples()) waitForDelivery();
    drainUntilEnd();
  }
  finishAll();
}

bool CaptureRun::waitForMonitor() {
  if (!source_.isMonitor) return !hasEnded();
  const steady_clock::time_point limit = steady_clock::now() + kMonitorLimit;
  for (;;) {
    const steady_clock::time_point now = steady_clock::now();
    milliseconds wait = kPoll;
    {
      const std::lock_guard lock(monitorPause_->mutex);
      if (monitorPause_->streams == 0) {
        wait = std::chrono::ceil<milliseconds>(monitorPause_->lastEnd + kMonitorRest - now);
      }
    }
    if (wait <= milliseconds(0) || now >= limit) return !hasEnded();
    if (!pause(wait)) return false;
  }
}

void CaptureRun::openStream() {
  if (source_.isMonitor) {
    const std::lock_guard lock(monitorPause_->mutex);
    ++monitorPause_->streams;
  }
  stream_ = std::make_unique<CaptureStream>(source_, ring_,
                                            [this](const std::string& message) { fail(message); });
}

void CaptureRun::closeStream() {
  stream_.reset();
  if (source_.isMonitor) {
    const std::lock_guard lock(monitorPause_->mutex);
    --monitorPause_->streams;
    monitorPause_->lastEnd = steady_clock::now();
  }
}

bool CaptureRun::waitForFirstSamples() {
  lastLook_ = steady_clock::now();
  while (ring_.written_frames() == 0) {
    if (!pause(kStartPoll)) return ring_.written_frames() != 0;
    watchArrival();
  }
  watchArrival();
  return true;
}

void CaptureRun::waitForDelivery() {
  std::unique_lock lock(mutex_);
  asked_.wait(lock, [this] { return isDelivering_; });
  lastLook_ = steady_clock::now();
}

void CaptureRun::drainUntilEnd() {
  do {
    watchArrival();
    while (handOn()) {
    }
    reportLosses(false);
  } while (pause(untilNextLook()));
  // The device is free again before the last samples are through the encoder.
  closeStream();
  while (handOn()) {
  }
  reportLosses(true);
}

void CaptureRun::finishAll() {
  std::vector<Share> shares;
  {
    const std::lock_guard lock(mutex_);
    shares.swap(shares_);
  }
  for (const Share& share : shares) share.consumer->finish();
  // The token goes last: whoever waits for it may end the process.
  std::optional<PendingWork::Token> token;
  {
    const std::lock_guard lock(mutex_);
    if (token_) token.emplace(std::move(*token_));
    token_.reset();
    hasFinished_.store(true, std::memory_order_release);
  }
}

bool CaptureRun::handOn() {
  const std::uint64_t position = ring_.consumed_frames();
  finishThoseAt(position);
  std::uint64_t frames = std::min(ring_.contiguous_frames(), kBlock_frames);
  std::vector<Share> shares;
  bool isLast = false;
  {
    const std::lock_guard lock(mutex_);
    shares = shares_;
    isLast = end_frames_ != kNever;
    frames = std::min(frames, end_frames_ - position);
  }
  for (const Share& share : shares) {
    // No block crosses the limits of a share.
    for (const std::uint64_t limit : {share.begin_frames, share.end_frames}) {
      if (limit > position) frames = std::min(frames, limit - position);
    }
    if (!isLast && !share.consumer->isReady()) return false;
  }
  if (frames == 0) return false;
  give(shares, static_cast<std::uint32_t>(frames));
  ring_.consume(static_cast<std::uint32_t>(frames));
  finishThoseAt(position + frames);
  return true;
}

void CaptureRun::give(const std::vector<Share>& shares, std::uint32_t frames) {
  lookForSound(frames);
  std::array<const float*, kMostStreamChannels> planes{};
  for (std::uint32_t channel = 0; channel < ring_.channels(); ++channel) {
    planes[channel] = ring_.plane(channel);
  }
  const std::uint64_t position = ring_.consumed_frames();
  for (const Share& share : shares) {
    if (position < share.begin_frames || position >= share.end_frames) continue;
    const std::string error = share.consumer->take(planes.data(), frames);
    if (!error.empty()) dropFailed(share.consumer, error);
  }
}

void CaptureRun::dropFailed(const std::shared_ptr<CaptureConsumer>& consumer,
                            const std::string& error) {
  {
    const std::lock_guard lock(mutex_);
    std::erase_if(shares_, [&](const Share& share) { return share.consumer == consumer; });
  }
  consumer->finish();
  if (!fail(error)) events_.onWarning("The end of a recording was lost. Error: " + error);
}

void CaptureRun::finishThoseAt(std::uint64_t position_frames) {
  std::vector<std::shared_ptr<CaptureConsumer>> finished;
  {
    const std::lock_guard lock(mutex_);
    for (const Share& share : shares_) {
      if (share.end_frames <= position_frames) finished.push_back(share.consumer);
    }
    std::erase_if(shares_, [&](const Share& share) { return share.end_frames <= position_frames; });
  }
  for (const auto& consumer : finished) consumer->finish();
}

void CaptureRun::lookForSound(std::uint32_t frames) {
  if (hasHeardSound_) return;
  for (std::uint32_t channel = 0; channel < ring_.channels(); ++channel) {
    const float* samples = ring_.plane(channel);
    hasHeardSound_ |= std::any_of(samples, samples + frames, [](float s) { return s != 0.0F; });
  }
  silent_frames_ += frames;
  isSilent_.store(!hasHeardSound_ && silent_frames_ >= kSilentStart_s * source_.rate_Hz,
                  std::memory_order_relaxed);
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
  bool isToAnnounce = false;
  {
    const std::lock_guard lock(mutex_);
    isToAnnounce = isAnnouncing_ && written_frames > announceAfter_frames_ && end_frames_ == kNever;
    if (isToAnnounce) isAnnouncing_ = false;
  }
  if (isToAnnounce) events_.onSamples();
}

void CaptureRun::reportLosses(bool isLast) {
  std::uint64_t lost_frames = ring_.lost_frames();
  {
    const std::lock_guard lock(mutex_);
    if (end_frames_ != kNever) lost_frames = lostAtEnd_frames_;
  }
  const steady_clock::time_point now = steady_clock::now();
  if (lost_frames <= reportedLost_frames_) return;
  if (!isLast && now - lastReport_ < kLossReportInterval) return;
  events_.onWarning(lossMessage(lost_frames - reportedLost_frames_, source_.rate_Hz));
  reportedLost_frames_ = lost_frames;
  lastReport_ = now;
}

}  // namespace linux_host
