// SPDX-License-Identifier: MIT
#include <utility>

#include "hosts/linux/audio/capture_outputs.h"
#include "hosts/linux/audio/sample_block.h"

namespace linux_host {
namespace {

// If the delegate lags behind by more than this, the rest stays in the ring, which is bounded and
// counts its losses.
constexpr std::uint64_t kLargestBacklog_s = 2;

class Connection : public platform::CaptureConnection {};

// Turns the samples of one run into sample buffers and queues them for the delegate.
class Delivery : public CaptureConsumer, public std::enable_shared_from_this<Delivery> {
 public:
  Delivery(std::weak_ptr<DataOutput> output,
           std::weak_ptr<platform::CaptureAudioDataOutputSampleBufferDelegate> delegate,
           std::shared_ptr<platform::DispatchQueue> queue, const CaptureSource& source)
      : output_(std::move(output)),
        delegate_(std::move(delegate)),
        queue_(std::move(queue)),
        channels_(static_cast<std::uint32_t>(source.positions.size())),
        rate_Hz_(source.rate_Hz) {}

  [[nodiscard]] bool isReady() override {
    return backlog_frames_.load(std::memory_order_relaxed) < kLargestBacklog_s * rate_Hz_;
  }

  Status take(const float* const* planes, std::uint32_t frames) override {
    backlog_frames_.fetch_add(frames, std::memory_order_relaxed);
    queue_->async([self = shared_from_this(), frames,
                   buffer = makeSampleBuffer(planes, channels_, frames, rate_Hz_)] {
      self->backlog_frames_.fetch_sub(frames, std::memory_order_relaxed);
      const auto output = self->output_.lock();
      const auto delegate = self->delegate_.lock();
      if (output && delegate) delegate->captureOutput(*output, buffer, self->connection_);
    });
    return {};
  }

  void finish() override {
    queue_->async([self = shared_from_this()] {
      const auto output = self->output_.lock();
      const auto delegate = self->delegate_.lock();
      if (output && delegate) delegate->captureOutputDidEndDelivery(*output);
    });
  }
  // Its delegate gets all of them but encodes only the first.
  [[nodiscard]] std::uint32_t recordedChannels(std::uint32_t) const override { return 1; }

 private:
  const std::weak_ptr<DataOutput> output_;
  const std::weak_ptr<platform::CaptureAudioDataOutputSampleBufferDelegate> delegate_;
  const std::shared_ptr<platform::DispatchQueue> queue_;
  const std::uint32_t channels_;
  const std::uint32_t rate_Hz_;
  Connection connection_;
  std::atomic<std::uint64_t> backlog_frames_{0};
};

}  // namespace

void DataOutput::setSampleBufferDelegate(
    std::weak_ptr<platform::CaptureAudioDataOutputSampleBufferDelegate> delegate,
    std::shared_ptr<platform::DispatchQueue> queue) {
  delegate_ = std::move(delegate);
  queue_ = std::move(queue);
}

void DataOutput::attach(const std::shared_ptr<CaptureRun>& run, const std::string&) {
  mainThread_.assertHeld();
  if (queue_ == nullptr) return;
  // A new run accepts every consumer.
  std::ignore = run->addConsumer(
      std::make_shared<Delivery>(weak_from_this(), delegate_, queue_, run->source()));
}

}  // namespace linux_host
