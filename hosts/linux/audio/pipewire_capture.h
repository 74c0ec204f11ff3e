// SPDX-License-Identifier: MIT
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "hosts/linux/audio/capture_outputs.h"
#include "hosts/linux/audio/capture_run.h"
#include "hosts/linux/audio/pipewire_connection.h"
#include "hosts/linux/base/pending_work.h"
#include "hosts/linux/permission/microphone_permission.h"
#include "platform/capture.h"
#include "platform/foundation.h"
#include "platform/thread_role.h"

namespace linux_host {

class PipeWireCaptureSession;

// The runs of all sessions. Keeps each run until its files are complete. Main thread.
class CaptureRuns {
 public:
  explicit CaptureRuns(PendingWork& work) : work_(work) {}
  // Ends every run and waits until its consumers are finished.
  ~CaptureRuns() = default;
  CaptureRuns(const CaptureRuns&) = delete;
  CaptureRuns& operator=(const CaptureRuns&) = delete;

  // Throws whatever the run's constructor throws.
  std::shared_ptr<CaptureRun> start(CaptureSource source, CaptureRun::Events events);

 private:
  PendingWork& work_;
  platform::ThreadRole mainThread_{platform::ThreadRole::Holder::kMaker};
  std::shared_ptr<SourceRest> rest_ = std::make_shared<SourceRest>();
  std::vector<std::shared_ptr<CaptureRun>> runs_;
};

// Capture devices, sessions and their outputs on PipeWire. Main thread. Outlives every session and
// output that it creates.
class PipeWireCapture : public platform::Capture {
 public:
  // All of these outlive the capture.
  struct Surroundings {
    PipeWireConnection& connection;
    platform::NotificationCenter& notificationCenter;
    // Runs work on the main thread in the order posted. Called on any thread.
    PostToMain postToMain;
    // Counts recordings that have been stopped but are not complete yet: the process waits for them
    // before it ends.
    PendingWork& pendingWork;
    OpenFiles& files;
    M4aWriterFactory& m4aWriters;
    MicrophonePermission& permission;
  };

  explicit PipeWireCapture(Surroundings surroundings);
  // Ends all runs and waits until their files are complete.
  ~PipeWireCapture() override;
  PipeWireCapture(const PipeWireCapture&) = delete;
  PipeWireCapture& operator=(const PipeWireCapture&) = delete;

  std::vector<platform::CaptureDevicePtr> devicesWithMediaType(platform::MediaType type) override;
  platform::CaptureDevicePtr defaultDeviceWithMediaType(platform::MediaType type) override;
  platform::CaptureDevicePtr deviceWithUniqueID(const std::string& uniqueID) override;

  [[nodiscard]] bool respondsToAuthorizationStatus() const override;
  platform::AuthorizationStatus authorizationStatusForMediaType(platform::MediaType type) override;
  void requestAccessForMediaType(platform::MediaType type,
                                 std::function<void(bool)> handler) override;

  platform::CaptureSessionPtr createSession() override;
  platform::CaptureSessionPtr createMonitoringSession() override;
  platform::CaptureDeviceInputPtr createDeviceInput(const platform::CaptureDevicePtr& device,
                                                    std::string* error) override;
  std::shared_ptr<platform::CaptureAudioFileOutput> createAudioFileOutput() override;
  std::shared_ptr<platform::CaptureAudioDataOutput> createAudioDataOutput() override;

  // Whether a session has been recording digital silence for long. Monitoring sessions do not
  // count.
  [[nodiscard]] bool recordsSilence() const;
  // Frames that the current recording has lost; silence takes their place.
  [[nodiscard]] std::uint64_t lost_frames() const;
  // The rate at which the device with that id is being recorded, Hz; 0 when it is not.
  [[nodiscard]] std::uint32_t runningRate_Hz(const std::string& uniqueID) const;
  // Ends the current recording with a runtime error. What has been captured so far is still
  // written.
  void failRecording(const std::string& message);

 private:
  void postDeviceNotification(const char* name);

  platform::ThreadRole mainThread_{platform::ThreadRole::Holder::kMaker};
  const Surroundings surroundings_;
  CaptureRuns runs_;
  std::vector<std::weak_ptr<PipeWireCaptureSession>> sessions_;  // those that record
  std::shared_ptr<int> alive_ = std::make_shared<int>();  // for work posted to the main thread
};

}  // namespace linux_host
