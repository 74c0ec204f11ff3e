// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/capture.h"
#include "platform/foundation.h"
#include "tests/memory_host/memory_foundation.h"
#include "tests/memory_host/memory_run_loop.h"

// Capture devices, sessions and outputs in memory. Single-threaded. A session starts, fails and
// delivers when the test says so, or by itself, as a real one does, after MemoryCapture::goLive().

namespace memory_host {

class MemoryCapture;
class MemoryCaptureSession;

// What sessions that act by themselves act with.
struct LiveMachine {
  MemoryRunLoop& runLoop;
  MemoryDispatch& dispatch;
  MemoryCapture& capture;
};

class MemoryCaptureDevice : public platform::CaptureDevice {
 public:
  MemoryCaptureDevice(std::string uniqueID, std::string displayName,
                      std::string manufacturer = "Maker")
      : id(std::move(uniqueID)), name(std::move(displayName)), maker(std::move(manufacturer)) {}
  [[nodiscard]] std::string uniqueID() const override { return id; }
  [[nodiscard]] std::string localizedName() const override { return name; }
  [[nodiscard]] std::string manufacturer() const override { return maker; }
  [[nodiscard]] std::optional<std::string> activeInputSource() const override { return source; }

  std::string id;
  std::string name;
  std::string maker;
  std::optional<std::string> source;
};

class MemoryBlockBuffer : public platform::BlockBuffer {
 public:
  explicit MemoryBlockBuffer(std::vector<std::byte> data) : bytes(std::move(data)) {}
  [[nodiscard]] std::size_t getDataLength() const override { return bytes.size(); }
  [[nodiscard]] const std::byte* getDataPointer(std::size_t offset_bytes) const override {
    return noData ? nullptr : bytes.data() + offset_bytes;
  }
  std::vector<std::byte> bytes;
  bool noData = false;
};

class MemorySampleBuffer : public platform::SampleBuffer {
 public:
  MemorySampleBuffer(platform::AudioStreamBasicDescription format, std::int64_t sampleCount,
                     std::vector<std::byte> data)
      : numSamples(sampleCount), block(std::make_shared<MemoryBlockBuffer>(std::move(data))) {
    description.formatList.push_back(format);
  }
  [[nodiscard]] std::int64_t getNumSamples() const override { return numSamples; }
  [[nodiscard]] const platform::AudioFormatDescription& getFormatDescription() const override {
    return description;
  }
  platform::OSStatus getAudioBufferListWithRetainedBlockBuffer(
      std::size_t* sizeNeeded_bytes, platform::AudioBufferList* outList, std::size_t listSize_bytes,
      std::shared_ptr<platform::BlockBuffer>* outBlockBuffer) const override;

  platform::AudioFormatDescription description;
  std::int64_t numSamples;
  std::shared_ptr<MemoryBlockBuffer> block;  // null: the buffer has none
  platform::OSStatus sizeStatus = platform::noErr;
  platform::OSStatus listStatus = platform::noErr;
  mutable int listRequests = 0;
};

// Float, non-interleaved: the `planes` one after the other.
std::shared_ptr<MemorySampleBuffer> floatSampleBuffer(const std::vector<std::vector<float>>& planes,
                                                      double sampleRate_hz = 48000);

class MemoryCaptureDeviceInput : public platform::CaptureDeviceInput {
 public:
  explicit MemoryCaptureDeviceInput(platform::CaptureDevicePtr device)
      : device_(std::move(device)) {}
  [[nodiscard]] platform::CaptureDevicePtr device() const override { return device_; }

 private:
  platform::CaptureDevicePtr device_;
};

class MemoryAudioFileOutput : public platform::CaptureAudioFileOutput,
                              public std::enable_shared_from_this<MemoryAudioFileOutput> {
 public:
  explicit MemoryAudioFileOutput(MemoryFileManager& fileManager, const LiveMachine* live = nullptr)
      : fileManager_(fileManager), live_(live) {}
  void startRecordingToOutputFileURL(
      const std::string& fileURL, const std::string& outputFileType,
      std::weak_ptr<platform::CaptureFileOutputRecordingDelegate> recordingDelegate) override;
  void setMetadata(platform::CaptureMetadata newMetadata) override {
    metadata = std::move(newMetadata);
  }
  void stopRecording() override {
    ++stopCount;
    finish("");
  }

  // For a live session: it runs; these samples were captured (an error text, empty on success); it
  // has stopped.
  void attach(bool isCapturing) { isCapturing_ = isCapturing; }
  std::string write(const platform::BlockBuffer& samples);
  void finish(const std::string& error);

  std::string throwOnStart;  // text of the exception; empty means none
  std::vector<std::string> startedURLs;
  std::vector<std::string> fileTypes;
  platform::CaptureMetadata metadata;
  int stopCount = 0;

 private:
  // Of the file that a live output writes.
  struct Recording {
    std::string fileURL;
    std::unique_ptr<platform::FileHandle> file;
    std::weak_ptr<platform::CaptureFileOutputRecordingDelegate> delegate;
  };
  void startLive(const std::string& fileURL,
                 std::weak_ptr<platform::CaptureFileOutputRecordingDelegate> delegate);

  MemoryFileManager& fileManager_;
  const LiveMachine* live_;
  bool isCapturing_ = false;
  std::unique_ptr<Recording> recording_;
};

class MemoryAudioDataOutput : public platform::CaptureAudioDataOutput {
 public:
  void setSampleBufferDelegate(
      std::weak_ptr<platform::CaptureAudioDataOutputSampleBufferDelegate> delegate,
      std::shared_ptr<platform::DispatchQueue> queue) override;
  // Passes the block to the delegate on its queue.
  void deliver(std::shared_ptr<platform::SampleBuffer> buffer);
  // Tells the delegate there that all blocks were delivered, as a session does when it stops.
  void endDelivery();

  std::weak_ptr<platform::CaptureAudioDataOutputSampleBufferDelegate> delegate;
  std::shared_ptr<platform::DispatchQueue> queue;
};

class MemoryCaptureSession : public platform::CaptureSession,
                             public std::enable_shared_from_this<MemoryCaptureSession> {
 public:
  enum class Notices { kPosted, kNone };

  // `live`: null for a session that does what the test says.
  explicit MemoryCaptureSession(MemoryNotificationCenter& center, const LiveMachine* live = nullptr,
                                Notices notices = Notices::kPosted)
      : center_(center), live_(live), notices_(notices) {}
  void setSessionPreset(const std::string& newPreset) override { preset = newPreset; }
  [[nodiscard]] bool canAddInput(const platform::CaptureDeviceInputPtr& input) const override;
  [[nodiscard]] bool canAddOutput(const platform::CaptureOutputPtr& output) const override;
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
  [[nodiscard]] bool isRunning() const override { return running; }

  // The first samples have arrived: posts the did-start notification.
  void reportStarted();
  // Posts the runtime error and stops.
  void reportError(const std::string& error);
  // Its device has gone, if that is the one: a live session fails.
  void loseDevice(const std::string& uniqueID);

  std::string preset;
  bool refuseInput = false;
  bool refuseOutput = false;
  bool running = false;
  // Called when stopRunning() begins.
  std::function<void()> onStop = [] {};
  mutable std::vector<std::string> journal;

 private:
  [[nodiscard]] bool takes(const platform::CaptureDeviceInputPtr& input) const;
  [[nodiscard]] bool takes(const platform::CaptureOutputPtr& output) const;

  void startLive();
  void stopLive();
  void failLive(const std::string& error);
  void deliverLive();
  // Runs `work` from the main loop, if this run of the session is still the newest then.
  void later(void (MemoryCaptureSession::*work)(const std::string&), const std::string& text);
  void announceLive(const std::string&);
  void refuseLive(const std::string& error);
  [[nodiscard]] std::string whyNotLive() const;

  MemoryNotificationCenter& center_;
  const LiveMachine* live_;
  const Notices notices_;
  int run_ = 0;
  platform::TimerPtr delivery_;
  std::vector<platform::CaptureDeviceInputPtr> inputs_;
  std::vector<platform::CaptureOutputPtr> outputs_;
};

class MemoryCapture : public platform::Capture {
 public:
  MemoryCapture(MemoryNotificationCenter& center, MemoryFileManager& fileManager)
      : center_(center), fileManager_(fileManager) {}

  [[nodiscard]] std::vector<platform::CaptureDevicePtr> devicesWithMediaType(
      platform::MediaType type) override;
  [[nodiscard]] platform::CaptureDevicePtr defaultDeviceWithMediaType(
      platform::MediaType type) override;
  [[nodiscard]] platform::CaptureDevicePtr deviceWithUniqueID(const std::string& uniqueID) override;
  [[nodiscard]] bool respondsToAuthorizationStatus() const override { return hasPermissions; }
  [[nodiscard]] platform::AuthorizationStatus authorizationStatusForMediaType(
      platform::MediaType) override {
    return authorization;
  }
  void requestAccessForMediaType(platform::MediaType type,
                                 std::function<void(bool)> handler) override;
  platform::CaptureSessionPtr createSession() override;
  platform::CaptureSessionPtr createMonitoringSession() override;
  platform::CaptureDeviceInputPtr createDeviceInput(const platform::CaptureDevicePtr& device,
                                                    std::string* error) override;
  std::shared_ptr<platform::CaptureAudioFileOutput> createAudioFileOutput() override;
  std::shared_ptr<platform::CaptureAudioDataOutput> createAudioDataOutput() override;

  // From now on what is made here acts by itself, from the main loop: sessions start, hand out
  // samples every 10 ms and fail when their device goes; files are written and completed.
  void goLive(MemoryRunLoop& runLoop, MemoryDispatch& dispatch) {
    live_ = std::make_unique<LiveMachine>(LiveMachine{runLoop, dispatch, *this});
  }

  // Plugs a microphone in and posts that. The first one becomes the default.
  std::shared_ptr<MemoryCaptureDevice> connect(const std::string& uniqueID, const std::string& name,
                                               const std::string& manufacturer = "Maker");
  void disconnect(const std::string& uniqueID);

  std::vector<std::shared_ptr<MemoryCaptureDevice>> audioDevices;
  std::vector<std::shared_ptr<MemoryCaptureDevice>> videoDevices;
  std::string defaultAudioID;
  int videoRequests = 0;

  bool hasPermissions = true;
  platform::AuthorizationStatus authorization = platform::AuthorizationStatus::kAuthorized;
  std::vector<std::function<void(bool)>> pendingRequests;  // the user has not answered yet
  std::optional<bool> userAgrees;  // after goLive(): the user's answer, from the main loop

  std::string inputError;        // why device inputs cannot be made; empty: they can
  bool refuseInput = false;      // for new sessions
  bool refuseOutput = false;     // likewise
  std::string throwOnFileStart;  // for new file outputs
  std::vector<std::shared_ptr<MemoryCaptureSession>> sessions;
  bool canMonitor = true;
  std::vector<std::shared_ptr<MemoryCaptureSession>> monitoringSessions;
  std::vector<std::shared_ptr<MemoryAudioFileOutput>> fileOutputs;
  std::vector<std::shared_ptr<MemoryAudioDataOutput>> dataOutputs;

 private:
  MemoryNotificationCenter& center_;
  MemoryFileManager& fileManager_;
  std::unique_ptr<LiveMachine> live_;
};

}  // namespace memory_host
