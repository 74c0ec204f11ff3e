// SPDX-License-Identifier: MIT
#include "tests/empty_host/empty_ports.h"

namespace empty_host {
namespace {

class DeadTimer : public platform::Timer {
 public:
  explicit DeadTimer(std::any userInfo) : userInfo_(std::move(userInfo)) {}
  void invalidate() override {}
  [[nodiscard]] bool isValid() const override { return false; }
  [[nodiscard]] const std::any& userInfo() const override { return userInfo_; }

 private:
  const std::any userInfo_;
};

class DroppingQueue : public platform::DispatchQueue {
 public:
  void async(std::function<void()>) override {}
  [[nodiscard]] const std::string& label() const override { return label_; }

 private:
  const std::string label_ = "main";
};

class DeadSession : public platform::CaptureSession {
 public:
  void setSessionPreset(const std::string&) override {}
  [[nodiscard]] bool canAddInput(const platform::CaptureDeviceInputPtr&) const override {
    return false;
  }
  [[nodiscard]] bool canAddOutput(const platform::CaptureOutputPtr&) const override {
    return false;
  }
  void addInput(const platform::CaptureDeviceInputPtr&) override {}
  void addOutput(const platform::CaptureOutputPtr&) override {}
  [[nodiscard]] std::vector<platform::CaptureDeviceInputPtr> inputs() const override { return {}; }
  [[nodiscard]] std::vector<platform::CaptureOutputPtr> outputs() const override { return {}; }
  void startRunning() override {}
  void stopRunning() override {}
  [[nodiscard]] bool isRunning() const override { return false; }
};

class DeadFileOutput : public platform::CaptureAudioFileOutput {
 public:
  void setMetadata(platform::CaptureMetadata) override {}
  void startRecordingToOutputFileURL(
      const std::string&, const std::string&,
      std::weak_ptr<platform::CaptureFileOutputRecordingDelegate>) override {
    throw platform::CaptureException("This host writes no files.");
  }
  void stopRecording() override {}
};

class DeadDataOutput : public platform::CaptureAudioDataOutput {
 public:
  void setSampleBufferDelegate(std::weak_ptr<platform::CaptureAudioDataOutputSampleBufferDelegate>,
                               std::shared_ptr<platform::DispatchQueue>) override {}
};

}  // namespace

platform::TimerPtr EmptyRunLoop::scheduledTimer(double, std::any userInfo, bool,
                                                platform::TimerAction) {
  return std::make_shared<DeadTimer>(std::move(userInfo));
}

EmptyDispatch::EmptyDispatch() : main_(std::make_shared<DroppingQueue>()) {}

platform::CaptureSessionPtr EmptyCapture::createSession() {
  return std::make_shared<DeadSession>();
}

std::shared_ptr<platform::CaptureAudioFileOutput> EmptyCapture::createAudioFileOutput() {
  return std::make_shared<DeadFileOutput>();
}

std::shared_ptr<platform::CaptureAudioDataOutput> EmptyCapture::createAudioDataOutput() {
  return std::make_shared<DeadDataOutput>();
}

}  // namespace empty_host
