// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "hosts/linux/audio/pipewire_capture.h"

namespace linux_host {

// One audio input, one output. Main thread.
class PipeWireCaptureSession : public platform::CaptureSession,
                               public std::enable_shared_from_this<PipeWireCaptureSession> {
 public:
  // A quiet session posts no notifications: it listens beside one that records.
  enum class Notices { kPosted, kNone };

  PipeWireCaptureSession(PipeWireCapture::Surroundings surroundings, CaptureRuns& runs,
                         Notices notices = Notices::kPosted)
      : surroundings_(std::move(surroundings)), runs_(runs), notices_(notices) {}
  ~PipeWireCaptureSession() override;
  PipeWireCaptureSession(const PipeWireCaptureSession&) = delete;
  PipeWireCaptureSession& operator=(const PipeWireCaptureSession&) = delete;

  void setSessionPreset(const std::string& preset) override { preset_ = preset; }
  [[nodiscard]] bool canAddInput(const platform::CaptureDeviceInputPtr& input) const override;
  [[nodiscard]] bool canAddOutput(const platform::CaptureOutputPtr& output) const override;
  // Both do nothing with what cannot be added.
  void addInput(const platform::CaptureDeviceInputPtr& input) override;
  void addOutput(const platform::CaptureOutputPtr& output) override;
  [[nodiscard]] std::vector<platform::CaptureDeviceInputPtr> inputs() const override {
    return inputs_;
  }
  [[nodiscard]] std::vector<platform::CaptureOutputPtr> outputs() const override {
    return outputs_;
  }
  void startRunning() override;
  void stopRunning() override;
  [[nodiscard]] bool isRunning() const override { return run_ != nullptr; }

  // What is recorded has been digital silence for long, from the start of this run or later.
  [[nodiscard]] bool isSilent() const { return run_ != nullptr && run_->isSilent(); }
  // Frames of this run that were lost; silence stands in their place.
  [[nodiscard]] std::uint64_t lost_frames() const {
    return run_ == nullptr ? 0 : run_->lost_frames();
  }
  // The rate of what is being recorded from that source, Hz; 0 when nothing is.
  [[nodiscard]] std::uint32_t runningRate_Hz(const std::string& nodeName) const {
    return run_ != nullptr && run_->source().nodeName == nodeName ? run_->source().rate_Hz : 0;
  }
  // Stops as if the device had failed, with a runtime error; does nothing unless it runs.
  void fail(const std::string& message);

 private:
  // Tells one run of the session from another in work posted to the main thread.
  using RunNumber = std::uint64_t;

  // False with *error set when the device is not there (any more).
  bool describeSource(CaptureSource* source, std::string* error) const;
  CaptureRun::Events eventsOf(RunNumber number);
  void onSamples(RunNumber number);
  void onFailed(RunNumber number, const std::string& message);
  void failLater(RunNumber number, const std::string& error);
  void postRuntimeError(const std::string& message);
  void post(const char* name, platform::Dictionary userInfo);

  const PipeWireCapture::Surroundings surroundings_;
  CaptureRuns& runs_;
  const Notices notices_;
  std::string preset_ = platform::kCaptureSessionPresetHigh;
  std::vector<platform::CaptureDeviceInputPtr> inputs_;
  std::vector<platform::CaptureOutputPtr> outputs_;
  std::shared_ptr<CaptureRun> run_;  // null while the session does not run
  RunNumber runNumber_ = 0;
};

}  // namespace linux_host
