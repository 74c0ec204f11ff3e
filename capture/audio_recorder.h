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
#include "suite/environment.h"

namespace record_audio {

// Records one capture device into a file: AAC by the capture framework's file output, or MP3 by
// LAME from the framework's samples. The file grows under a temporary name and is moved into the
// output folder, under its final name, at the stop.
//
// Its life, as its members tell it. What is starting, stopped or failed looks the same to the
// recorder: a session exists and nothing is recorded.
//
//   state      members                          goes to
//   new        no m_captureSession              starting: startRecord()
//   starting   session, m_bRecording clear      recording or failed: the session reports
//   recording  session, m_bRecording set        stopped: stopRecord(); failed: internalOnError()
//   stopped    as starting; the file is moved   starting: startRecord()
//   failed     as starting; the file stays      starting: startRecord()
//
// Main thread, except what says otherwise. Owned by shared pointer; when the data-output queue
// happens to hold the last reference, the recorder is destroyed on the main queue. Work items of
// the encode queue keep the encoder alive, but not the recorder.
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
  // Of the last stopRecord(): why the file did not get its final name; empty when it did.
  [[nodiscard]] const std::string& whyNotSaved() const { return whyNotSaved_; }
  // The file that holds the recording, which outputFilePath() does not name after a move that
  // failed: somebody else's may lie there.
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
  // On the queue "com.vantrel.korvel.RecordAudio.DataOutput": converts and hands on, never waits
  // for the encoder.
  void captureOutput(platform::CaptureOutput& output,
                     const std::shared_ptr<platform::SampleBuffer>& didOutputSampleBuffer,
                     platform::CaptureConnection& fromConnection) override;
  // On that queue: logs how much of an MP3 the stop has dropped.
  void captureOutputDidEndDelivery(platform::CaptureOutput& output) override;
  // Seconds of sound that wait for the MP3 encoder, when they are more than a few; else 0. Any
  // thread.
  [[nodiscard]] std::int64_t encoderBehind_s() const { return encoder_->backlog.behind_s(); }

 private:
  AudioRecorder(suite::Environment environment, std::string desktopPath);

  // What the encoder must know of the recording device.
  struct InputFormat {
    int channels;
    int sampleRate_hz;
  };

  void registerForNotifications();
  // Adds input and output and starts the session; logs when it cannot be.
  void prepareSession(const platform::CaptureDevicePtr& device);
  platform::CaptureOutputPtr createOutput();
  // The encoder's queue, which may not have been to be had when the recorder was made; false when
  // the system has no thread for it.
  bool makeEncodeQueue();
  // The same for all queues that the sound format needs.
  bool makeQueues();

  void captureSessionStartedNotification(const platform::Notification& notification);
  // False when the output cannot record to a file; logged.
  bool startFileOutput(const platform::CaptureOutputPtr& output, const std::string& fileURL);
  void onRecordError(const platform::Notification& notification);
  void internalOnError();

  // The encoder, ready for the file at m_filePath; false when the file cannot be opened (logged) or
  // the device cannot be read.
  bool initLame();
  // Null when the file at m_filePath cannot be opened.
  std::shared_ptr<platform::FileHandle> createOutputFile();
  [[nodiscard]] std::optional<InputFormat> recordingDeviceFormat() const;
  // How the encoder reports a failed write of this recording.
  Mp3Encoder::WriteError writeErrorHandler();
  // Ends the recording through the session's runtime error, unless it has ended already.
  void onWriteError(std::uint64_t recording, const std::string& error);
  void deinitLame();
  // Queues the encoder's last work item.
  void finishEncoder();

  // Null when the buffer cannot be converted; logged.
  std::shared_ptr<std::uint32_t[]> convertedSamples(const platform::SampleBuffer& buffer,
                                                    std::size_t count) const;
  std::shared_ptr<platform::BlockBuffer> retainedBlockBuffer(
      const platform::SampleBuffer& buffer) const;

  void log(const std::string& format, const std::vector<suite::LogArgument>& arguments = {}) const;

  // Members that begin with m_ or _, and quality, soundFormat, qualityDict and encodeQueue, have
  // the suite's names. Those that end in an underscore are this tool's own.
  suite::Environment environment_;
  std::shared_ptr<platform::CaptureOutput> m_audioOutput;
  platform::CaptureSessionPtr m_captureSession;
  std::string m_filePath;
  std::string recordedFile_;
  std::string whyNotSaved_;
  // Written on the main thread, read on the data-output queue; it alone decides whether a block is
  // taken, so relaxed order is enough: the queues order everything else.
  std::atomic<bool> m_bRecording{false};
  platform::Date m_startTime{};
  std::uint64_t quality = 0;
  std::uint64_t soundFormat = 0;
  std::map<std::uint64_t, QualityEntry> qualityDict;
  std::shared_ptr<platform::DispatchQueue> encodeQueue;  // null: there was no thread for it
  std::shared_ptr<platform::DispatchQueue> dataQueue_;   // until the output has it
  // `lame`, `handle` and `stopped` of the MP3 recordings.
  std::shared_ptr<Mp3Encoder> encoder_ = std::make_shared<Mp3Encoder>();
  std::uint64_t recordingNumber_ = 0;  // of the temporary file last named
  std::function<void()> _onRecordSuccessStarted;
  std::function<void()> _onRecordError;
  std::function<void()> _onMuted;
  std::string _desktopPath;
};

}  // namespace record_audio
