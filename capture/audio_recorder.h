#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>

#include "suite/environment.h"

struct lame_global_struct;

namespace record_audio {

// Records one capture device into a file: AAC by the capture framework's file output, or MP3 by
// LAME from the framework's samples. The file grows under a temporary name and is moved into the
// output folder, under its final name, at the stop.
//
// Main thread, except captureOutput() and the encoder's work items (see below). Owned by shared
// pointer because the queues' work items keep the recorder alive.
class AudioRecorder : public platform::CaptureFileOutputRecordingDelegate,
                      public platform::CaptureAudioDataOutputSampleBufferDelegate,
                      public std::enable_shared_from_this<AudioRecorder> {
 public:
  // How one quality code encodes.
  struct QualityEntry {
    int bitrate;  // kbit/s
    int quality;  // LAME's algorithm quality, 0 best to 9 fastest
  };

  // `desktopPath`: the folder for finished recordings, without a trailing slash.
  static std::shared_ptr<AudioRecorder> initWithDesktopPath(suite::Environment environment,
                                                            std::string desktopPath);
  ~AudioRecorder() override;
  AudioRecorder(const AudioRecorder&) = delete;
  AudioRecorder& operator=(const AudioRecorder&) = delete;

  static std::string sessionPresetForQuality(std::uint64_t quality);

  // False: not started (the device is unknown to the audio hardware, or muted and reported through
  // onMuted). True: start requested; onRecordSuccessStarted or onRecordError follows, or neither
  // when the session could not be prepared.
  bool startRecord(const platform::CaptureDevicePtr& device, std::uint64_t quality,
                   std::uint64_t soundFormat);
  // Moves the file to its final name; does nothing unless recording.
  void stopRecord();
  [[nodiscard]] bool isRecording() const;
  // The temporary file while recording, the final one after stopRecord(); empty before the first.
  [[nodiscard]] const std::string& outputFilePath() const { return m_filePath; }
  [[nodiscard]] const std::string& desktopPath() const { return _desktopPath; }

  // Called on the thread on which the capture session posts, which is the main thread.
  void setOnRecordSuccessStarted(std::function<void()> callback);
  void setOnRecordError(std::function<void()> callback);
  // Called from startRecord().
  void setOnMuted(std::function<void()> callback);

  // Names a new temporary file and returns its file URL.
  std::string outputURL();
  // The final path for the current recording; numbered (1) to (99) while names are taken.
  [[nodiscard]] std::string generatePath() const;

  // Input channels of a device; 0 on any error.
  [[nodiscard]] std::int32_t countCannels(platform::AudioDeviceID device) const;
  // The device with input channels and that UID; 0 when there is none or the hardware fails.
  [[nodiscard]] platform::AudioDeviceID getAudioId(const std::string& uniqueID) const;
  [[nodiscard]] bool isInputVolumeOk(platform::AudioDeviceID device) const;
  [[nodiscard]] bool isMuted(platform::AudioDeviceID device) const;

  void captureOutputDidStartRecording(platform::CaptureOutput& output,
                                      const std::string& fileURL) override;
  void captureOutputDidFinishRecording(platform::CaptureOutput& output, const std::string& fileURL,
                                       const std::string& error) override;
  // On the queue "com.vantrel.korvel.RecordAudio.DataOutput": converts and hands on, never waits
  // for the encoder.
  void captureOutput(platform::CaptureOutput& output,
                     const std::shared_ptr<platform::SampleBuffer>& didOutputSampleBuffer,
                     platform::CaptureConnection& fromConnection) override;

 private:
  AudioRecorder(suite::Environment environment, std::string desktopPath);

  void captureSessionStartedNotification(const platform::Notification& notification);
  void onRecordError(const platform::Notification& notification);
  void internalOnError();

  // The encoder, ready for the file at m_filePath; false when the device cannot be read.
  bool initLame();
  void deinitLame();

  suite::Environment environment_;
  std::shared_ptr<platform::CaptureOutput> m_audioOutput;
  platform::CaptureSessionPtr m_captureSession;
  std::string m_filePath;
  // Written on the main thread, read on the queues; each alone decides whether a block is taken,
  // so relaxed order is enough: the queues themselves order everything else.
  std::atomic<bool> m_bRecording{false};
  platform::Date m_startTime{};
  std::uint64_t quality = 0;
  std::uint64_t soundFormat = 0;
  lame_global_struct* lame = nullptr;
  std::shared_ptr<platform::FileHandle> handle;
  std::atomic<bool> stopped{false};
  std::map<std::uint64_t, QualityEntry> qualityDict;
  std::shared_ptr<platform::DispatchQueue> encodeQueue;
  std::function<void()> _onRecordSuccessStarted;
  std::function<void()> _onRecordError;
  std::function<void()> _onMuted;
  std::string _desktopPath;
};

}  // namespace record_audio
