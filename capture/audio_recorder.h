// SPDX-License-Identifier: MIT
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "capture/mp3_encoder.h"
#include "platform/thread_role.h"
#include "suite/environment.h"

namespace record_audio {

// Records one capture device into a file. AAC is written by the capture framework's file output;
// MP3 is made by LAME from the framework's samples. The file grows under a temporary name. A stop
// moves it into the output folder, under its final name.
//
// Its life, as its members show it. Starting, stopped and failed look the same to the recorder: a
// session exists and nothing is recorded.
//
//   state      members                          goes to
//   new        no m_captureSession              starting: startRecord()
//   starting   session, m_bRecording clear      recording or failed: the session reports
//   recording  session, m_bRecording set        stopped: stopRecord(); failed: internalOnError()
//   stopped    as starting; the file is moved   starting: startRecord()
//   failed     as starting; the file stays      starting: startRecord()
//
// Main thread, asserted in debug builds, unless a function says otherwise. Owned by shared pointer.
// If the data-output queue releases the last reference, the recorder is destroyed on the main
// queue. Work items of the encode queue keep the encoder alive, but not the recorder.
class AudioRecorder : public platform::CaptureFileOutputRecordingDelegate,
                      public platform::CaptureAudioDataOutputSampleBufferDelegate,
                      public std::enable_shared_from_this<AudioRecorder> {
 public:
  // How an MP3 of one quality code is encoded.
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

  // False: not started. The audio hardware does not know the device, or the device is muted and
  // onMuted was called, or there was no thread for the encoder. True: the start is requested, and
  // onRecordSuccessStarted or onRecordError follows, or neither if the session could not be
  // prepared.
  bool startRecord(const platform::CaptureDevicePtr& device, std::uint64_t quality,
                   std::uint64_t soundFormat);
  // Moves the file to its final name; does nothing unless recording.
  void stopRecord();
  [[nodiscard]] bool isRecording() const;
  // The temporary file while recording, the final one after stopRecord(); empty before the first.
  [[nodiscard]] const std::string& outputFilePath() const { return m_filePath; }
  // Why the last stopRecord() could not give the file its final name; empty if it could.
  [[nodiscard]] const std::string& whyNotSaved() const { return whyNotSaved_; }
  // The file that holds the recording. After a failed move outputFilePath() is another path, where
  // somebody else's file may be.
  [[nodiscard]] const std::string& recordedFile() const { return recordedFile_; }
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
  // On the queue "com.vantrel.korvel.RecordAudio.DataOutput". Converts the samples and queues them
  // for the encoder; never waits for it.
  void captureOutput(platform::CaptureOutput& output,
                     const std::shared_ptr<platform::SampleBuffer>& didOutputSampleBuffer,
                     platform::CaptureConnection& fromConnection) override;
  // On that queue. Logs how much of an MP3 the stop dropped.
  void captureOutputDidEndDelivery(platform::CaptureOutput& output) override;
  // Any thread. Seconds of sound that wait for the MP3 encoder while it is behind, which begins at
  // EncoderBacklog::kBehind_s; else 0.
  [[nodiscard]] std::int64_t encoderBehind_s() const { return encoder_->backlog.behind_s(); }

 private:
  AudioRecorder(suite::Environment environment, std::string desktopPath);

  // What the encoder must know about the recording device.
  struct InputFormat {
    int channels;
    int sampleRate_hz;
  };

  void registerForNotifications();
  // Adds input and output and starts the session. Logs if that fails.
  void prepareSession(const platform::CaptureDevicePtr& device);
  platform::CaptureOutputPtr createOutput();
  // Makes the encoder's queue if the recorder's construction could not. False when the system has
  // no thread for it.
  bool makeEncodeQueue();
  // Makes all queues that the sound format needs. False when the system has no thread for one.
  bool makeQueues();

  void captureSessionStartedNotification(const platform::Notification& notification);
  // False, and logged, when the output cannot record to a file.
  bool startFileOutput(const platform::CaptureOutputPtr& output, const std::string& fileURL);
  void onRecordError(const platform::Notification& notification);
  void internalOnError();

  // Sets up the encoder for the file at m_filePath. False when the file cannot be opened, which is
  // logged, or when the device's format cannot be read.
  bool initLame() RA_REQUIRES(mainThread_);
  // Null when the file at m_filePath cannot be opened.
  std::shared_ptr<platform::FileHandle> createOutputFile();
  [[nodiscard]] std::optional<InputFormat> recordingDeviceFormat() const;
  // What the encoder calls when it cannot write this recording's file.
  Mp3Encoder::WriteError writeErrorHandler() RA_REQUIRES(mainThread_);
  // Posts a runtime error of the session, which ends the recording, unless it has ended already.
  void onWriteError(std::uint64_t recording, const std::string& error);
  void deinitLame();
  // Queues the encoder's last work item.
  void finishEncoder();

  // Null, and logged, when the buffer cannot be converted.
  std::shared_ptr<std::uint32_t[]> convertedSamples(const platform::SampleBuffer& buffer,
                                                    std::size_t count) const;
  std::shared_ptr<platform::BlockBuffer> retainedBlockBuffer(
      const platform::SampleBuffer& buffer) const;

  void log(const std::string& format, const std::vector<suite::LogArgument>& arguments = {}) const;

  // Members that begin with m_ or _, and quality, soundFormat, qualityDict and encodeQueue, have
  // the suite's names. Those that end in an underscore are this tool's own.
  platform::ThreadRole mainThread_{platform::ThreadRole::Holder::kMaker};
  suite::Environment environment_;
  std::shared_ptr<platform::CaptureOutput> m_audioOutput;
  platform::CaptureSessionPtr m_captureSession;
  std::string m_filePath;
  std::string recordedFile_;
  std::string whyNotSaved_;
  // Written on the main thread, read on the data-output queue. It alone decides whether a block is
  // taken. The queues order everything else, so relaxed order is enough.
  std::atomic<bool> m_bRecording{false};
  platform::Date m_startTime{};
  std::uint64_t quality = 0;
  std::uint64_t soundFormat = 0;
  std::map<std::uint64_t, QualityEntry> qualityDict;
  std::shared_ptr<platform::DispatchQueue> encodeQueue;  // null if there was no thread for it
  std::shared_ptr<platform::DispatchQueue> dataQueue_;   // null once the output has it
  // Holds `lame`, `handle` and `stopped`.
  std::shared_ptr<Mp3Encoder> encoder_ = std::make_shared<Mp3Encoder>();
  std::uint64_t recordingNumber_ RA_GUARDED_BY(mainThread_) =
      0;  // how many temporary files were named
  std::function<void()> _onRecordSuccessStarted;
  std::function<void()> _onRecordError;
  std::function<void()> _onMuted;
  std::string _desktopPath;
};

}  // namespace record_audio
