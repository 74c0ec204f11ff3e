// SPDX-License-Identifier: MIT
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <utility>

#include "hosts/linux/audio/capture_consumer.h"
#include "hosts/linux/audio/capture_run.h"
#include "hosts/linux/files/open_file.h"
#include "hosts/linux/m4a/m4a_writer_factory.h"
#include "platform/capture.h"
#include "platform/thread_role.h"

namespace linux_host {

using PostToMain = std::function<void(std::function<void()>)>;

// What a session needs from its output. Main thread.
class SessionOutput {
 public:
  virtual ~SessionOutput() = default;
  // A run of the session begins, with the rate and channels of its source.
  virtual void attach(const std::shared_ptr<CaptureRun>& run, const std::string& preset) = 0;
  // The rate that the output wants from a device with the given rate, Hz.
  [[nodiscard]] virtual std::uint32_t wantedRate_Hz(std::uint32_t deviceRate_Hz) const = 0;
};

class DataOutput : public platform::CaptureAudioDataOutput,
                   public SessionOutput,
                   public std::enable_shared_from_this<DataOutput> {
 public:
  // The delegate takes effect at the session's next start.
  void setSampleBufferDelegate(
      std::weak_ptr<platform::CaptureAudioDataOutputSampleBufferDelegate> delegate,
      std::shared_ptr<platform::DispatchQueue> queue) override;
  void attach(const std::shared_ptr<CaptureRun>& run, const std::string& preset) override;
  [[nodiscard]] std::uint32_t wantedRate_Hz(std::uint32_t deviceRate_Hz) const override {
    return deviceRate_Hz;
  }

 private:
  platform::ThreadRole mainThread_{platform::ThreadRole::Holder::kMaker};
  std::weak_ptr<platform::CaptureAudioDataOutputSampleBufferDelegate> delegate_;
  std::shared_ptr<platform::DispatchQueue> queue_;
};

// Writes m4a. The file is created on the main thread; encoding and writing happen on the drain
// thread of the session's run, so the module with the encoder may still be loading.
class FileOutput : public platform::CaptureAudioFileOutput,
                   public SessionOutput,
                   public std::enable_shared_from_this<FileOutput> {
 public:
  // Both outlive the output and every run to which it was attached.
  FileOutput(OpenFiles& files, M4aWriterFactory& writers, PostToMain postToMain);

  void setMetadata(platform::CaptureMetadata metadata) override { metadata_ = std::move(metadata); }
  void startRecordingToOutputFileURL(
      const std::string& fileURL, const std::string& outputFileType,
      std::weak_ptr<platform::CaptureFileOutputRecordingDelegate> recordingDelegate) override;
  void stopRecording() override;
  void attach(const std::shared_ptr<CaptureRun>& run, const std::string& preset) override;
  // The nearest rate that AAC supports.
  [[nodiscard]] std::uint32_t wantedRate_Hz(std::uint32_t deviceRate_Hz) const override;

 private:
  OpenFiles& files_;
  M4aWriterFactory& writers_;
  platform::ThreadRole mainThread_{platform::ThreadRole::Holder::kMaker};
  const PostToMain postToMain_;
  std::weak_ptr<CaptureRun> run_;
  std::string preset_;
  platform::CaptureMetadata metadata_;
  std::shared_ptr<CaptureConsumer> recording_;  // null while nothing is being recorded
};

// The preset's bit rate for AAC: bits per second for all channels that the file keeps separate.
std::uint32_t aacBitrate_bps(const std::string& preset, std::uint32_t channels);

}  // namespace linux_host
