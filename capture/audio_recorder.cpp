// SPDX-License-Identifier: MIT
#include "capture/audio_recorder.h"

#include <cstring>
#include <thread>
#include <utility>

#include "capture/recording_path.h"
#include "platform/file_url.h"
#include "shared/sound_format.h"

namespace record_audio {
namespace {

constexpr const char* kPreparingFailed =
    "An error occurred while preparing to record audio. Error: %@";
constexpr const char* kNoThread =
    "the system has no thread to spare for the encoder. Close other programs and start again.";
constexpr const char* kRecordingFailed = "An error occurred while recording audio. Error: %@";

constexpr const char* kEncodeQueueLabel = "com.vantrel.korvel.RecordAudio.EncodeQueue";

platform::AudioObjectPropertyAddress inputProperty(std::uint32_t selector) {
  return {selector, platform::kAudioDevicePropertyScopeInput,
          platform::kAudioObjectPropertyElementMaster};
}

// The log shows an absent text as "(null)".
std::string orNull(const std::string& text) {
  return text.empty() ? "(null)" : text;
}

// A callback may replace itself while it runs.
void call(const std::function<void()>& callback) {
  const auto held = callback;
  if (held) held();
}

// Deletes a recorder on the main thread, whichever thread releases it last.
class DeleteOnMainThread {
 public:
  explicit DeleteOnMainThread(std::shared_ptr<platform::DispatchQueue> mainQueue)
      : mainQueue_(std::move(mainQueue)) {}
  void operator()(AudioRecorder* recorder) const {
    std::shared_ptr<AudioRecorder> owner(recorder);
    if (std::this_thread::get_id() == mainThread_) return;
    mainQueue_->async([owner = std::move(owner)] {});
  }

 private:
  std::shared_ptr<platform::DispatchQueue> mainQueue_;
  std::thread::id mainThread_ = std::this_thread::get_id();
};

}  // namespace

std::shared_ptr<AudioRecorder> AudioRecorder::initWithDesktopPath(suite::Environment environment,
                                                                  std::string desktopPath) {
  return {new AudioRecorder(environment, std::move(desktopPath)),
          DeleteOnMainThread(environment.host.dispatch.mainQueue())};
}

AudioRecorder::AudioRecorder(suite::Environment environment, std::string desktopPath)
    : environment_(environment),
      qualityDict{{0, {320, 2}}, {1, {192, 4}}, {2, {96, 7}}},
      encodeQueue(environment.host.dispatch.createSerialQueue(kEncodeQueueLabel)),
      _desktopPath(std::move(desktopPath)) {}

AudioRecorder::~AudioRecorder() {
  environment_.host.notificationCenter.removeObserver(this);
  // If nobody stopped the recording, its last frames are written now.
  if (recordingNumber_ > 0) finishEncoder();
}

void AudioRecorder::setOnRecordSuccessStarted(std::function<void()> callback) {
  _onRecordSuccessStarted = std::move(callback);
}

void AudioRecorder::setOnRecordError(std::function<void()> callback) {
  _onRecordError = std::move(callback);
}

void AudioRecorder::setOnMuted(std::function<void()> callback) {
  _onMuted = std::move(callback);
}

std::string AudioRecorder::sessionPresetForQuality(std::uint64_t quality) {
  switch (quality) {
    case 1:
      return platform::kCaptureSessionPresetMedium;
    case 2:
      return platform::kCaptureSessionPresetLow;
    default:
      return platform::kCaptureSessionPresetHigh;
  }
}

bool AudioRecorder::startRecord(const platform::CaptureDevicePtr& device, std::uint64_t newQuality,
                                std::uint64_t newSoundFormat) {
  mainThread_.assertHeld();
  if (!device) return false;
  const platform::AudioDeviceID audioId = getAudioId(device->uniqueID());
  if (audioId == platform::kAudioObjectUnknown) return false;
  if ((!isInputVolumeOk(audioId) || isMuted(audioId)) && _onMuted) {
    call(_onMuted);
    return false;
  }
  soundFormat = newSoundFormat;
  quality = newQuality;
  if (m_captureSession) {
    if (!m_bRecording.load(std::memory_order_relaxed)) m_captureSession->startRunning();
    return true;
  }
  if (!makeQueues()) {
    log(kPreparingFailed, {std::string(kNoThread)});
    return false;
  }
  registerForNotifications();
  m_captureSession = environment_.host.capture.createSession();
  m_captureSession->setSessionPreset(sessionPresetForQuality(quality));
  prepareSession(device);
  return true;
}

bool AudioRecorder::makeEncodeQueue() {
  if (!encodeQueue) {
    encodeQueue = environment_.host.dispatch.createSerialQueue(kEncodeQueueLabel);
  }
  return encodeQueue != nullptr;
}

bool AudioRecorder::makeQueues() {
  if (soundFormat == kM4aFormat) return true;
  dataQueue_ =
      environment_.host.dispatch.createSerialQueue("com.vantrel.korvel.RecordAudio.DataOutput");
  return makeEncodeQueue() && dataQueue_;
}

void AudioRecorder::registerForNotifications() {
  auto& center = environment_.host.notificationCenter;
  center.addObserver(this, platform::kCaptureSessionDidStartRunningNotification,
                     [this](const platform::Notification& notification) {
                       captureSessionStartedNotification(notification);
                     });
  center.addObserver(
      this, platform::kCaptureSessionRuntimeErrorNotification,
      [this](const platform::Notification& notification) { onRecordError(notification); });
}

void AudioRecorder::prepareSession(const platform::CaptureDevicePtr& device) {
  std::string error;
  const auto input = environment_.host.capture.createDeviceInput(device, &error);
  m_audioOutput = createOutput();
  if (!input || !m_captureSession->canAddInput(input) ||
      !m_captureSession->canAddOutput(m_audioOutput)) {
    log(kPreparingFailed, {orNull(error)});
    return;
  }
  m_captureSession->addInput(input);
  m_captureSession->addOutput(m_audioOutput);
  m_captureSession->startRunning();
}

platform::CaptureOutputPtr AudioRecorder::createOutput() {
  auto& host = environment_.host;
  if (soundFormat == kM4aFormat) return host.capture.createAudioFileOutput();
  auto output = host.capture.createAudioDataOutput();
  output->setSampleBufferDelegate(weak_from_this(), std::exchange(dataQueue_, nullptr));
  return output;
}

void AudioRecorder::captureSessionStartedNotification(const platform::Notification& notification) {
  mainThread_.assertHeld();
  const auto self = shared_from_this();  // a callback may release the recorder
  // After two starts in quick succession the session reports twice. The recording continues.
  if (m_bRecording.load(std::memory_order_relaxed)) return;

  const auto session = platform::captureSessionOf(notification);
  const auto outputs = session ? session->outputs() : std::vector<platform::CaptureOutputPtr>();
  const auto output = outputs.empty() ? nullptr : outputs.front();
  const std::string fileURL = outputURL();
  if (soundFormat == kM4aFormat && !startFileOutput(output, fileURL)) {
    internalOnError();
    return;
  }
  if (soundFormat == kMp3Format && !initLame()) {
    log("En error occured while initializing lame");
    internalOnError();
    return;
  }
  m_bRecording.store(true, std::memory_order_relaxed);
  call(_onRecordSuccessStarted);
}

bool AudioRecorder::startFileOutput(const platform::CaptureOutputPtr& output,
                                    const std::string& fileURL) {
  // The session keeps the output of its first start, which may be of the other kind.
  const auto fileOutput = std::dynamic_pointer_cast<platform::CaptureAudioFileOutput>(output);
  if (!fileOutput) {
    log(kRecordingFailed, {std::string("the capture session has no file output")});
    return false;
  }
  fileOutput->setMetadata({recordingTitle(environment_.host, m_startTime), m_startTime});
  try {
    fileOutput->startRecordingToOutputFileURL(fileURL, platform::kFileTypeMPEG4, weak_from_this());
  } catch (const platform::CaptureException& exception) {
    log(kRecordingFailed, {std::string(exception.what())});
    return false;
  }
  return true;
}

void AudioRecorder::onRecordError(const platform::Notification& notification) {
  mainThread_.assertHeld();
  const auto self = shared_from_this();
  std::string error;
  const auto found = notification.userInfo.find(platform::kCaptureSessionErrorKey);
  if (found != notification.userInfo.end()) platform::stringValue(found->second, &error);
  log(kRecordingFailed, {orNull(error)});
  internalOnError();
}

void AudioRecorder::internalOnError() {
  m_bRecording.store(false, std::memory_order_relaxed);
  stopRecord();  // no effect: the flag is clear, so the file stays where it is
  // What was captured before the error belongs in the file.
  finishEncoder();
  call(_onRecordError);
}

void AudioRecorder::stopRecord() {
  mainThread_.assertHeld();
  if (!m_captureSession || !m_bRecording.load(std::memory_order_relaxed)) return;
  const auto fileOutput =
      std::dynamic_pointer_cast<platform::CaptureAudioFileOutput>(m_audioOutput);
  // The stored format may have changed since the start. A data output always feeds the encoder.
  if (soundFormat != kM4aFormat || !fileOutput) {
    deinitLame();
  } else {
    fileOutput->stopRecording();
  }
  m_captureSession->stopRunning();
  const std::string finalPath = generatePath();
  whyNotSaved_ = environment_.host.fileManager.moveItem(m_filePath, finalPath);
  if (whyNotSaved_.empty()) {
    recordedFile_ = finalPath;
  } else {
    log("Can't move file from %@ to %@. Error: %@", {m_filePath, finalPath, whyNotSaved_});
  }
  m_filePath = finalPath;
  m_bRecording.store(false, std::memory_order_relaxed);
}

bool AudioRecorder::isRecording() const {
  return m_bRecording.load(std::memory_order_relaxed) && m_captureSession &&
         !encoder_->stopped.load(std::memory_order_relaxed);
}

std::string AudioRecorder::outputURL() {
  mainThread_.assertHeld();
  ++recordingNumber_;
  m_startTime = environment_.host.wallClock.now();
  m_filePath = environment_.host.fileManager.temporaryDirectory() + "/" + kTemporaryNamePrefix +
               environment_.host.processInfo.globallyUniqueString();
  recordedFile_ = m_filePath;
  whyNotSaved_.clear();
  return platform::fileURLWithPath(m_filePath);
}

std::string AudioRecorder::generatePath() const {
  return recordingPath(environment_.host, _desktopPath, m_startTime,
                       soundFormat != kM4aFormat ? "mp3" : "m4a");
}

platform::AudioDeviceID AudioRecorder::getAudioId(const std::string& uniqueID) const {
  auto& hardware = environment_.host.audioHardware;
  const platform::AudioObjectPropertyAddress devices{platform::kAudioHardwarePropertyDevices,
                                                     platform::kAudioObjectPropertyScopeGlobal,
                                                     platform::kAudioObjectPropertyElementMaster};
  std::uint32_t size_bytes = 0;
  if (hardware.AudioObjectGetPropertyDataSize(platform::kAudioObjectSystemObject, devices, 0,
                                              nullptr, &size_bytes) != platform::noErr) {
    return platform::kAudioObjectUnknown;
  }
  std::vector<platform::AudioDeviceID> ids(size_bytes / sizeof(platform::AudioDeviceID));
  if (hardware.AudioObjectGetPropertyData(platform::kAudioObjectSystemObject, devices, 0, nullptr,
                                          &size_bytes, ids.data()) != platform::noErr) {
    return platform::kAudioObjectUnknown;
  }
  ids.resize(size_bytes / sizeof(platform::AudioDeviceID));  // a device may have gone meanwhile

  for (const platform::AudioDeviceID id : ids) {
    if (countCannels(id) == 0) continue;
    platform::StringRef uid = nullptr;
    std::uint32_t uidSize_bytes = sizeof uid;
    if (hardware.AudioDeviceGetProperty(id, 0, false, platform::kAudioDevicePropertyDeviceUID,
                                        &uidSize_bytes, &uid) != platform::noErr) {
      return platform::kAudioObjectUnknown;
    }
    const platform::OwnedString owned(uid);
    if (owned && owned->text() == uniqueID) return id;
  }
  return platform::kAudioObjectUnknown;
}

std::int32_t AudioRecorder::countCannels(platform::AudioDeviceID device) const {
  auto& hardware = environment_.host.audioHardware;
  const auto configuration = inputProperty(platform::kAudioDevicePropertyStreamConfiguration);
  std::uint32_t size_bytes = 0;
  if (hardware.AudioObjectGetPropertyDataSize(device, configuration, 0, nullptr, &size_bytes) !=
      platform::noErr) {
    return 0;
  }
  std::vector<std::byte> list(size_bytes);
  if (hardware.AudioObjectGetPropertyData(device, configuration, 0, nullptr, &size_bytes,
                                          list.data()) != platform::noErr) {
    return 0;
  }
  std::uint32_t channels = 0;
  platform::AudioBuffer buffer;
  for (std::size_t at = platform::audioBufferListSize_bytes(0); at + sizeof buffer <= size_bytes;
       at += sizeof buffer) {
    std::memcpy(&buffer, list.data() + at, sizeof buffer);
    channels += buffer.mNumberChannels;
  }
  return static_cast<std::int32_t>(channels);
}

bool AudioRecorder::isInputVolumeOk(platform::AudioDeviceID device) const {
  auto& hardware = environment_.host.audioHardware;
  const auto property = inputProperty(platform::kAudioDevicePropertyVolumeScalar);
  if (!hardware.AudioObjectHasProperty(device, property)) return true;
  float volume = 0;
  std::uint32_t size_bytes = sizeof volume;
  hardware.AudioObjectGetPropertyData(device, property, 0, nullptr, &size_bytes, &volume);
  return volume > 0;
}

bool AudioRecorder::isMuted(platform::AudioDeviceID device) const {
  auto& hardware = environment_.host.audioHardware;
  const auto property = inputProperty(platform::kAudioDevicePropertyMute);
  if (!hardware.AudioObjectHasProperty(device, property)) return false;
  std::uint32_t muted = 0;
  std::uint32_t size_bytes = sizeof muted;
  hardware.AudioObjectGetPropertyData(device, property, 0, nullptr, &size_bytes, &muted);
  return muted != 0;
}

void AudioRecorder::captureOutputDidStartRecording(platform::CaptureOutput&, const std::string&) {}

void AudioRecorder::captureOutputDidFinishRecording(platform::CaptureOutput&, const std::string&,
                                                    const std::string&) {}

void AudioRecorder::log(const std::string& format,
                        const std::vector<suite::LogArgument>& arguments) const {
  environment_.suite.logging.VKLogVariadic(format, arguments);
}

}  // namespace record_audio
