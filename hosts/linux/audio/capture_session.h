// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "hosts/linux/audio/pipewire_capture.h"
#include "hosts/linux/base/expected.h"
#include "platform/thread_role.h"

namespace linux_host {

// One audio input, one output. Main thread.
class PipeWireCaptureSession : public platform::CaptureSession,
                               public std::enable_shared_from_this<PipeWireCaptureSession> {
 public:
  // A quiet session posts no notifications: it listens while another one records.
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
  // Both ignore an object that cannot be added.
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

  // Whether the recorded channels have been digital silence for long, from the start of this run or
  // later.
  [[nodiscard]] bool isSilent() const { return run_ != nullptr && run_->isSilent(); }
  // Frames that this run has lost; silence takes their place.
  [[nodiscard]] std::uint64_t lost_frames() const {
    return run_ == nullptr ? 0 : run_->lost_frames();
  }
  // The rate at which that source is being recorded, Hz; 0 when it is not.
  [[nodiscard]] std::uint32_t runningRate_Hz(const std::string& nodeName) const {
    return run_ != nullptr && run_->source().nodeName == nodeName ? run_->source().rate_Hz : 0;
  }
  // Stops with a runtime error, as if the device had failed; does nothing unless it runs.
  void fail(const std::string& message);

 private:
  // Identifies a run of the session in work posted to the main thread.
  using RunNumber = std::uint64_t;

  // Fails when the device is not there.
  [[nodiscard]] Expected<CaptureSource> describeSource() const;
  CaptureRun::Events eventsOf(RunNumber number);
  void onSamples(RunNumber number);
  void onFailed(RunNumber number, const std::string& message);
  void failLater(RunNumber number, const std::string& error);
  void postRuntimeError(const std::string& message);
  void post(const char* name, platform::Dictionary userInfo);

  platform::ThreadRole mainThread_{platform::ThreadRole::Holder::kMaker};
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
