// SPDX-License-Identifier: MIT
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "platform/dispatch.h"
#include "platform/foundation.h"
#include "platform/sample_buffer.h"

// Capture devices, sessions and outputs. Main thread unless a declaration says otherwise.
//
// The life of a recording
//
// A session takes sound from one input and gives it to one output. It is put together while it does
// not run, and may run more than once:
//
//             startRunning()             first samples
//     idle ----------------> starting ----------------> running
//       ^                       |  |                     |  |
//       |  stopRunning()        |  |                     |  |
//       +-----------------------+--|---------------------+  |
//       |  a failure, or no sound  |                        |
//       +--------------------------+------------------------+
//
// On the way from "starting" to "running" the session posts its did-start notification; on the way
// back to "idle" after a failure, its runtime error. isRunning() is true in "starting" and
// "running". No call waits: what takes time is told by a notification or to a delegate.
//
// A file is recorded like this (what is refused is left out):
//
//     auto session = capture.createSession();
//     auto input = capture.createDeviceInput(device, &error);  // null: the device is gone
//     auto output = capture.createAudioFileOutput();
//     session->setSessionPreset(kCaptureSessionPresetHigh);    // before the start
//     session->addInput(input);
//     session->addOutput(output);
//     session->startRunning();
//
//     // kCaptureSessionDidStartRunningNotification: the first samples are there, and wait.
//     output->startRecordingToOutputFileURL(url, kFileTypeMPEG4, delegate);
//
//     // The user stops. What was captured up to now is still written, in the background.
//     output->stopRecording();
//     session->stopRunning();
//
//     // delegate->captureOutputDidFinishRecording(): the file is complete.
//
// With createAudioDataOutput() the samples go to a delegate instead, on a queue of the caller's. It
// gets all of them, from the first one on, and captureOutputDidEndDelivery() behind the last one.

namespace platform {

enum class MediaType { kAudio, kVideo };

enum class AuthorizationStatus : int {
  kNotDetermined = 0,
  kRestricted = 1,
  kDenied = 2,
  kAuthorized = 3,
};

// A host that knows which devices belong to the computer itself reports this as their manufacturer;
// the core lists those first. A host that does not know reports the makers as they are, and none is
// taken for built in.
inline constexpr const char* kBuiltInManufacturer = "Apple Inc.";

inline constexpr const char* kCaptureSessionPresetHigh = "AVCaptureSessionPresetHigh";
inline constexpr const char* kCaptureSessionPresetMedium = "AVCaptureSessionPresetMedium";
inline constexpr const char* kCaptureSessionPresetLow = "AVCaptureSessionPresetLow";

inline constexpr const char* kFileTypeMPEG4 = "AVFileTypeMPEG4";

// The object of both is the session; captureSessionOf() gives it back.
// Posted by a session on the main thread when it runs and its first samples are there.
inline constexpr const char* kCaptureSessionDidStartRunningNotification =
    "AVCaptureSessionDidStartRunningNotification";
// Posted by a session on the main thread when it failed and stopped itself. The user info holds an
// error text under kCaptureSessionErrorKey.
inline constexpr const char* kCaptureSessionRuntimeErrorNotification =
    "AVCaptureSessionRuntimeErrorNotification";
inline constexpr const char* kCaptureSessionErrorKey = "AVCaptureSessionErrorKey";
// Posted on the main thread when a capture device came or went. No object, no user info.
inline constexpr const char* kCaptureDeviceWasConnectedNotification =
    "AVCaptureDeviceWasConnectedNotification";
inline constexpr const char* kCaptureDeviceWasDisconnectedNotification =
    "AVCaptureDeviceWasDisconnectedNotification";

// A device as it was when it was asked for; immutable, also when the device has gone.
class CaptureDevice {
 public:
  virtual ~CaptureDevice() = default;
  [[nodiscard]] virtual std::string uniqueID() const = 0;
  [[nodiscard]] virtual std::string localizedName() const = 0;
  [[nodiscard]] virtual std::string manufacturer() const = 0;
  // The display name of the source that the device records from (its active port), if it has one.
  [[nodiscard]] virtual std::optional<std::string> activeInputSource() const = 0;
};
using CaptureDevicePtr = std::shared_ptr<CaptureDevice>;

class CaptureDeviceInput {
 public:
  virtual ~CaptureDeviceInput() = default;
  [[nodiscard]] virtual CaptureDevicePtr device() const = 0;
};
using CaptureDeviceInputPtr = std::shared_ptr<CaptureDeviceInput>;

class CaptureOutput {
 public:
  virtual ~CaptureOutput() = default;
};
using CaptureOutputPtr = std::shared_ptr<CaptureOutput>;

// Identifies the link between a session's input and an output in delegate calls.
class CaptureConnection {
 public:
  virtual ~CaptureConnection() = default;
};

// Raised by CaptureAudioFileOutput::startRecordingToOutputFileURL.
class CaptureException : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// Both are called on the main thread. `error` is empty when the file is complete.
class CaptureFileOutputRecordingDelegate {
 public:
  virtual ~CaptureFileOutputRecordingDelegate() = default;
  virtual void captureOutputDidStartRecording(CaptureOutput& output,
                                              const std::string& fileURL) = 0;
  virtual void captureOutputDidFinishRecording(CaptureOutput& output, const std::string& fileURL,
                                               const std::string& error) = 0;
};

// What players show of a recording. Free for the host: whether its files can say so.
struct CaptureMetadata {
  std::string title;
  Date creationDate{};
};

// Encodes what the session captures into a file, with the session's preset.
class CaptureAudioFileOutput : public CaptureOutput {
 public:
  // For the recordings that start from now on.
  virtual void setMetadata(CaptureMetadata metadata) = 0;
  // Records from the first sample of the running session on. Throws CaptureException when the file
  // cannot be made, the type is unknown or the session does not run. A later failure to write
  // makes the session post its runtime error.
  virtual void startRecordingToOutputFileURL(
      const std::string& fileURL, const std::string& outputFileType,
      std::weak_ptr<CaptureFileOutputRecordingDelegate> recordingDelegate) = 0;
  // Returns at once; everything captured so far is still written and the file completed in the
  // background, and the process does not end before that.
  virtual void stopRecording() = 0;
};

class CaptureAudioDataOutputSampleBufferDelegate {
 public:
  virtual ~CaptureAudioDataOutputSampleBufferDelegate() = default;
  // On the queue given to setSampleBufferDelegate, one call at a time, in capture order.
  virtual void captureOutput(CaptureOutput& output,
                             const std::shared_ptr<SampleBuffer>& didOutputSampleBuffer,
                             CaptureConnection& fromConnection) = 0;
  // On the same queue: a run of the session is over, and its last samples were handed over.
  virtual void captureOutputDidEndDelivery(CaptureOutput& output) = 0;
};

// Hands the captured samples to a delegate: 32-bit float, non-interleaved, at the device's rate.
// Delivery begins when the handlers of the session's did-start notification have returned, with
// the very first sample captured.
class CaptureAudioDataOutput : public CaptureOutput {
 public:
  virtual void setSampleBufferDelegate(
      std::weak_ptr<CaptureAudioDataOutputSampleBufferDelegate> delegate,
      std::shared_ptr<DispatchQueue> queue) = 0;
};

class CaptureSession : public NotificationObject {
 public:
  virtual ~CaptureSession() = default;
  // For the runs that start from now on. Free for the host: the bit rates of the presets, and which
  // one stands for a name that is none of the three.
  virtual void setSessionPreset(const std::string& preset) = 0;
  // False for null, and where the session has one already.
  [[nodiscard]] virtual bool canAddInput(const CaptureDeviceInputPtr& input) const = 0;
  [[nodiscard]] virtual bool canAddOutput(const CaptureOutputPtr& output) const = 0;
  // Both do nothing with what cannot be added.
  virtual void addInput(const CaptureDeviceInputPtr& input) = 0;
  virtual void addOutput(const CaptureOutputPtr& output) = 0;
  [[nodiscard]] virtual std::vector<CaptureDeviceInputPtr> inputs() const = 0;
  [[nodiscard]] virtual std::vector<CaptureOutputPtr> outputs() const = 0;
  // Returns at once. Later posts either the did-start notification (again also when the session
  // already runs) or, within a bounded time, the runtime error, never during the call itself.
  virtual void startRunning() = 0;
  // Returns at once; what was captured up to now still reaches the output. Nothing more is posted
  // of this run. Does nothing where the session does not run.
  virtual void stopRunning() = 0;
  [[nodiscard]] virtual bool isRunning() const = 0;
};
using CaptureSessionPtr = std::shared_ptr<CaptureSession>;

// A notification with `session` as its object.
inline Notification captureSessionNotification(const char* name, CaptureSessionPtr session,
                                               Dictionary userInfo) {
  return {name, std::move(session), std::move(userInfo)};
}
// The session that such a notification is about; null when its object is none.
inline CaptureSessionPtr captureSessionOf(const Notification& notification) {
  return std::dynamic_pointer_cast<CaptureSession>(notification.object);
}

// The class-level calls of the capture framework.
class Capture {
 public:
  virtual ~Capture() = default;
  // Every device of the type that can be recorded from, in the system's order.
  [[nodiscard]] virtual std::vector<CaptureDevicePtr> devicesWithMediaType(MediaType type) = 0;
  // Both are null when there is none.
  [[nodiscard]] virtual CaptureDevicePtr defaultDeviceWithMediaType(MediaType type) = 0;
  [[nodiscard]] virtual CaptureDevicePtr deviceWithUniqueID(const std::string& uniqueID) = 0;

  // Whether the system has permissions at all; when not, everything is permitted. Free for the
  // host: which of the four answers its system knows.
  [[nodiscard]] virtual bool respondsToAuthorizationStatus() const = 0;
  [[nodiscard]] virtual AuthorizationStatus authorizationStatusForMediaType(MediaType type) = 0;
  // Asks the user; `handler` is called once, on any thread, perhaps before the call returns.
  virtual void requestAccessForMediaType(MediaType type, std::function<void(bool)> handler) = 0;

  virtual CaptureSessionPtr createSession() = 0;
  // A session that only listens, beside whatever records: it posts no notification, hands samples
  // to its outputs from the first one on, and isRunning() says from startRunning() until
  // stopRunning() or a failure. Null on a host that cannot do that.
  virtual CaptureSessionPtr createMonitoringSession() = 0;
  // Null with *error set when the device is null, is not there (any more) or cannot be used.
  virtual CaptureDeviceInputPtr createDeviceInput(const CaptureDevicePtr& device,
                                                  std::string* error) = 0;
  virtual std::shared_ptr<CaptureAudioFileOutput> createAudioFileOutput() = 0;
  virtual std::shared_ptr<CaptureAudioDataOutput> createAudioDataOutput() = 0;
};

}  // namespace platform
