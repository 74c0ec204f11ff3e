// SPDX-License-Identifier: MIT
#pragma once

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "hosts/linux/audio/pipewire_capture.h"
#include "hosts/linux/audio/pipewire_connection.h"
#include "hosts/linux/base/notification_center.h"
#include "hosts/linux/base/pending_work.h"
#include "hosts/linux/files/open_file.h"
#include "hosts/linux/m4a/m4a_writer_factory.h"
#include "tests/support/pipewire_control.h"
#include "tests/support/private_pipewire.h"
#include "tests/support/signal_feed.h"
#include "tests/support/tone_figures.h"

namespace linux_host {

using test_support::measureTone;
using test_support::ToneFigures;
using test_support::withoutLeadingSilence;

// The test thread acts as the program's main thread.
class TestMainLoop {
 public:
  void post(std::function<void()> work) {
    const std::lock_guard lock(mutex_);
    posted_.push_back(std::move(work));
    wake_.notify_all();
  }
  // The number of posted items that have not run.
  std::size_t items() {
    const std::lock_guard lock(mutex_);
    return posted_.size();
  }
  // Runs posted work until `condition` holds; false when it does not within `limit`.
  bool runUntil(const std::function<bool()>& condition,
                std::chrono::milliseconds limit = std::chrono::seconds(10)) {
    const auto end = std::chrono::steady_clock::now() + limit;
    while (!condition()) {
      std::function<void()> work;
      {
        std::unique_lock lock(mutex_);
        wake_.wait_for(lock, std::chrono::milliseconds(1), [this] { return !posted_.empty(); });
        if (!posted_.empty()) {
          work = std::move(posted_.front());
          posted_.pop_front();
        }
      }
      if (work) work();
      if (std::chrono::steady_clock::now() > end) return condition();
    }
    return true;
  }

 private:
  std::mutex mutex_;
  std::condition_variable wake_;
  std::deque<std::function<void()>> posted_;
};

class Permitted : public MicrophonePermission {
 public:
  bool isKnown() override { return false; }
  platform::AuthorizationStatus status() override {
    return platform::AuthorizationStatus::kAuthorized;
  }
  void request(std::function<void(bool)> handler) override { handler(true); }
};

// A serial queue on a thread of its own.
class TestQueue : public platform::DispatchQueue {
 public:
  TestQueue();
  ~TestQueue() override;
  void async(std::function<void()> work) override;
  [[nodiscard]] const std::string& label() const override { return label_; }

 private:
  const std::string label_ = "test";
  std::mutex mutex_;
  std::condition_variable wake_;
  std::deque<std::function<void()>> items_;
  bool isDone_ = false;
  std::thread thread_;
};

// Collects all samples of a data output.
class SampleCollector : public platform::CaptureAudioDataOutputSampleBufferDelegate {
 public:
  void captureOutput(platform::CaptureOutput& output,
                     const std::shared_ptr<platform::SampleBuffer>& buffer,
                     platform::CaptureConnection& connection) override;
  void captureOutputDidEndDelivery(platform::CaptureOutput&) override {}

  [[nodiscard]] std::size_t frames() const;
  [[nodiscard]] std::vector<float> channel(std::size_t channel) const;
  [[nodiscard]] std::size_t channels() const;
  [[nodiscard]] double rate_Hz() const;
  void clear();
  // Makes the queue's thread sleep for this long in the next delivery.
  void stallOnce(std::chrono::milliseconds time) { stall_ms_ = time.count(); }

 private:
  mutable std::mutex mutex_;
  std::vector<std::vector<float>> planes_;
  double rate_Hz_ = 0;
  std::atomic<std::int64_t> stall_ms_{0};
};

// A sound server with the capture host on it.
class CaptureFixture : public testing::Test {
 protected:
  explicit CaptureFixture(test_support::PrivatePipeWire::Options options = {});
  ~CaptureFixture() override;

  // Waits until the host has found the device; null when it does not within the usual time.
  platform::CaptureDevicePtr device(const std::string& nodeName);
  // A session from the device into `collector`.
  platform::CaptureSessionPtr dataSession(const std::string& nodeName,
                                          const std::shared_ptr<SampleCollector>& collector);
  platform::CaptureSessionPtr fileSession(
      const std::string& nodeName, const std::string& preset,
      std::shared_ptr<platform::CaptureAudioFileOutput>* output);
  bool start(const platform::CaptureSessionPtr& session);
  [[nodiscard]] int started() const { return started_; }
  [[nodiscard]] const std::vector<std::string>& errors() const { return errors_; }

  test_support::PrivatePipeWire server;
  test_support::PipeWireControl control;
  TestMainLoop mainLoop;
  LinuxNotificationCenter notifications;
  PendingWork pendingWork;
  OpenFiles files;
  M4aWriterFactory m4aWriters{nullptr, {RA_TEST_MODULE_FOLDER}};
  Permitted permission;
  PipeWireConnection connection;
  TestQueue queue;  // runs that end after the test still deliver to it
  PipeWireCapture capture;

 private:
  int started_ = 0;
  std::vector<std::string> errors_;
};

// The number of places at which a recording of test_support::frameNumber does not advance by one.
// Silence in between does not count: the feed did not play in time.
std::size_t countJumps(std::vector<float> samples);
// Expects this much of the feed, without a jump.
void expectUnbroken(const std::vector<float>& recorded, std::size_t least_frames);

// For tests that a machine under load sometimes breaks by not running the feed in time: passes when
// one of three attempts returns no problem, so that a permanent bug still fails.
void repeatOnSlowMachine(const std::function<std::string()>& attempt);

}  // namespace linux_host
