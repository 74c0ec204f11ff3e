// SPDX-License-Identifier: MIT
#include <chrono>
#include <utility>

#include "hosts/linux/audio/capture_outputs.h"
#include "hosts/linux/audio/channel_layout.h"
#include "hosts/linux/base/log.h"
#include "hosts/linux/m4a/m4a_open_file.h"
#include "platform/file_url.h"

namespace linux_host {
namespace {

// Encoding several packets at once is cheaper than one at a time from a cold cache. A killed
// program loses this much in addition to the quarter of a second of a fragment.
constexpr std::chrono::milliseconds kGathering{100};

M4aLabels labelsOf(const platform::CaptureMetadata& metadata) {
  const auto start_s =
      std::chrono::floor<std::chrono::seconds>(metadata.creationDate.time_since_epoch());
  return {metadata.title, static_cast<std::uint64_t>(std::max<std::int64_t>(0, start_s.count()))};
}

// One file, from its first sample to its end. Drain thread, except for construction.
class Recording : public CaptureConsumer {
 public:
  // `onFinished` hears whether the file is complete.
  Recording(std::shared_ptr<OpenFile> file, M4aWriterFactory& writers, M4aFormat format,
            M4aLabels labels, std::function<void(const Status&)> onFinished)
      : file_(std::move(file)),
        writers_(writers),
        format_(std::move(format)),
        labels_(std::move(labels)),
        onFinished_(std::move(onFinished)) {}

  [[nodiscard]] bool isReady() override { return true; }
  [[nodiscard]] std::chrono::milliseconds patience() const override { return kGathering; }

  Status take(const float* const* planes, std::uint32_t frames) override {
    if (writer_ == nullptr) status_ = openWriter();
    if (status_) status_ = writer_->write(planes, frames);
    return status_;
  }

  void finish() override {
    const bool isKnown = !status_;
    // A recording without any samples still becomes a file.
    if (writer_ == nullptr && status_) status_ = openWriter();
    if (writer_ != nullptr) keepFirst(writer_->finish());
    writer_.reset();
    keepFirst(file_->close());
    // The user has already been told of a failure of take().
    if (!isKnown && !status_) {
      logMessage(LogLevel::kError, "The end of a recording was lost. Error: " + status_.error());
    }
    onFinished_(status_);
  }

 private:
  // Waits until the module is loaded. The writer stays null if there is none.
  Status openWriter() {
    auto writer = writers_.createWriter();
    if (!writer) return Unexpected(writer.error());
    writer_ = *std::move(writer);
    writer_->setLabels(labels_);
    return writer_->open(m4aSinkFor(file_), format_);
  }
  // The first failure is what the user is told of.
  void keepFirst(const Status& status) {
    if (status_) status_ = status;
  }

  const std::shared_ptr<OpenFile> file_;
  M4aWriterFactory& writers_;
  const M4aFormat format_;
  const M4aLabels labels_;
  const std::function<void(const Status&)> onFinished_;
  std::unique_ptr<M4aWriter> writer_;
  Status status_;
};

}  // namespace

std::uint32_t aacBitrate_bps(const std::string& preset, std::uint32_t channels) {
  std::uint32_t perChannel_bps = 128'000;
  if (preset == platform::kCaptureSessionPresetMedium) perChannel_bps = 80'000;
  if (preset == platform::kCaptureSessionPresetLow) perChannel_bps = 40'000;
  return perChannel_bps * aacSoundingChannels(channels);
}

FileOutput::FileOutput(OpenFiles& files, M4aWriterFactory& writers, PostToMain postToMain)
    : files_(files), writers_(writers), postToMain_(std::move(postToMain)) {}

void FileOutput::attach(const std::shared_ptr<CaptureRun>& run, const std::string& preset) {
  mainThread_.assertHeld();
  run_ = run;
  preset_ = preset;
  recording_.reset();  // an earlier, failed run has finished it
}

std::uint32_t FileOutput::wantedRate_Hz(std::uint32_t deviceRate_Hz) const {
  return nearestAacRate_hz(deviceRate_Hz);
}

void FileOutput::startRecordingToOutputFileURL(
    const std::string& fileURL, const std::string& outputFileType,
    std::weak_ptr<platform::CaptureFileOutputRecordingDelegate> recordingDelegate) {
  mainThread_.assertHeld();
  using platform::CaptureException;
  const std::shared_ptr<CaptureRun> run = run_.lock();
  if (run == nullptr || run->hasEnded()) {
    throw CaptureException("Nothing is being captured.");
  }
  if (outputFileType != platform::kFileTypeMPEG4) {
    throw CaptureException("The file type \"" + outputFileType + "\" cannot be written.");
  }
  if (recording_ != nullptr) throw CaptureException("A file is already being recorded.");
  const std::optional<std::string> path = platform::pathWithFileURL(fileURL);
  if (!path) throw CaptureException("\"" + fileURL + "\" does not name a file.");
  const auto opened = files_.open(*path, OpenFiles::Mode::kCreate);
  if (!opened) throw CaptureException(opened.error());
  const std::shared_ptr<OpenFile>& file = *opened;
  if (file->size_bytes() > 0) {
    if (const Status emptied = file->truncate(0); !emptied) throw CaptureException(emptied.error());
  }

  // Not before the first samples are there: the loader handles one library at a time, and the
  // stream's own would have to wait.
  writers_.loadInBackground();
  const CaptureSource& source = run->source();
  const auto channels = static_cast<std::uint32_t>(source.positions.size());
  const M4aFormat format{source.rate_Hz, speakersAt(source.positions),
                         aacBitrate_bps(preset_, channels)};
  const std::string remark = aacChannelsFor(format.speakers).remark;
  if (!remark.empty()) logMessage(LogLevel::kInfo, source.displayName + ": " + remark);
  recording_ = std::make_shared<Recording>(
      file, writers_, format, labelsOf(metadata_),
      [output = weak_from_this(), recordingDelegate, fileURL,
       post = postToMain_](const Status& finished) {
        const std::string error = finished ? std::string() : finished.error();
        post([output, recordingDelegate, fileURL, error] {
          const auto self = output.lock();
          const auto delegate = recordingDelegate.lock();
          if (self && delegate) {
            delegate->captureOutputDidFinishRecording(*self, fileURL, error);
          }
        });
      });
  if (!run->addConsumer(recording_)) {
    recording_.reset();
    throw CaptureException("The capture ended before the recording could begin.");
  }
  postToMain_([output = weak_from_this(), recordingDelegate, fileURL] {
    const auto self = output.lock();
    const auto delegate = recordingDelegate.lock();
    if (self && delegate) delegate->captureOutputDidStartRecording(*self, fileURL);
  });
}

void FileOutput::stopRecording() {
  mainThread_.assertHeld();
  if (recording_ == nullptr) return;
  if (const std::shared_ptr<CaptureRun> run = run_.lock()) run->endConsumer(recording_);
  recording_.reset();
}

}  // namespace linux_host
