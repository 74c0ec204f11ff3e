// SPDX-License-Identifier: MIT
#include <malloc.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <numbers>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "hosts/linux/audio/capture_ring.h"
#include "hosts/linux/audio/sample_block.h"
#include "hosts/linux/base/dispatch.h"
#include "hosts/linux/files/file_manager.h"
#include "hosts/linux/m4a/m4a_open_file.h"
#include "hosts/linux/m4a/m4a_writer_factory.h"
#include "tests/capture/recorder_fixture.h"
#include "tests/capture/threaded_parts.h"

// An hour of recording on a clock that runs many times faster: an audio thread fills the ring, a
// drain thread empties it into the recorder and its encoder (MP3) or into the m4a writer, and both
// write a real file.
//
//   soak_simulation mp3|m4a FOLDER [MINUTES] [SPEED]
//
// Prints memory figures, then one line with the path, a tab and the number of frames. Fails when a
// frame is lost or memory grows.

namespace {

using std::chrono::steady_clock;

constexpr std::uint32_t kRate_Hz = 48000;
constexpr std::uint32_t kBlock_frames = 1024;
constexpr std::uint32_t kRing_s = 10;
constexpr std::uint64_t kLargestBacklog_frames = 2 * kRate_Hz;
constexpr int kLooks = 12;
// An m4a writer keeps the size of each packet and the position of each fragment until the end: 12
// bytes for 21 ms of sound, in arrays whose capacity doubles.
constexpr double kIndexGrowth_kB_per_hour = 2048;
constexpr long kMostGrowth_kB = 512;

// The destination of the samples. Drain thread.
class Outlet {
 public:
  virtual ~Outlet() = default;
  [[nodiscard]] virtual bool isReady() = 0;
  virtual void take(const float* const* planes, std::uint32_t frames) = 0;
  // Returns the finished file's path.
  virtual std::string finish() = 0;
};

class Mp3Outlet : public Outlet {
 public:
  Mp3Outlet(const std::string& folder, std::uint64_t quality) {
    capture_test::addInputDevice(memory_.audioHardware, capture_test::kMicId,
                                 capture_test::kMicUID);
    const auto microphone = memory_.capture.connect(capture_test::kMicUID, "Microphone");
    recorder_ = record_audio::AudioRecorder::initWithDesktopPath(environment_, folder);
    if (!recorder_->startRecord(microphone, quality, capture_test::kMp3)) {
      throw std::runtime_error("the recorder does not start");
    }
    memory_.capture.sessions.front()->reportStarted();
  }

  [[nodiscard]] bool isReady() override { return *backlog_frames_ < kLargestBacklog_frames; }
  void take(const float* const* planes, std::uint32_t frames) override {
    const auto& output = memory_.capture.dataOutputs.front();
    *backlog_frames_ += frames;
    output->deliver(linux_host::makeSampleBuffer(planes, 1, frames, kRate_Hz));
    // Runs after it in the same queue.
    output->queue->async([backlog = backlog_frames_, frames] { *backlog -= frames; });
  }
  std::string finish() override {
    // A stop drops what waits for the encoder; here every frame counts.
    dispatch_.waitUntilIdle();
    recorder_->stopRecord();
    dispatch_.waitUntilIdle();
    return recorder_->outputFilePath();
  }

 private:
  memory_host::MemoryHost memory_;
  linux_host::LinuxFileManager files_;
  linux_host::DispatchThreads dispatch_;
  platform::Host host_ = capture_test::hostWith(memory_, dispatch_, files_);
  suite::Environment environment_{host_, memory_.suiteServices};
  std::shared_ptr<record_audio::AudioRecorder> recorder_;
  std::shared_ptr<std::atomic<std::uint64_t>> backlog_frames_ =
      std::make_shared<std::atomic<std::uint64_t>>(0);
};

class M4aOutlet : public Outlet {
 public:
  explicit M4aOutlet(const std::string& folder) : path_(folder + "/soak.m4a") {
    constexpr std::uint32_t kBitrate_bps = 128'000;
    file_ = checked(files_.openFiles().open(path_, linux_host::OpenFiles::Mode::kCreateNew));
    writer_ = checked(factory_.createWriter());
    check(writer_->open(linux_host::m4aSinkFor(file_),
                        {kRate_Hz, {linux_host::Speaker::kFrontCenter}, kBitrate_bps}));
  }

  [[nodiscard]] bool isReady() override { return true; }
  void take(const float* const* planes, std::uint32_t frames) override {
    check(writer_->write(planes, frames));
  }
  std::string finish() override {
    check(writer_->finish());
    check(file_->close());
    return path_;
  }

 private:
  static void check(const linux_host::Status& status) {
    if (!status) throw std::runtime_error(status.error());
  }
  template <typename Value>
  static Value checked(linux_host::Expected<Value> value) {
    if (!value) throw std::runtime_error(value.error());
    return *std::move(value);
  }

  const std::string path_;
  linux_host::LinuxFileManager files_;
  linux_host::M4aWriterFactory factory_{nullptr, {RA_MODULE_FOLDER}};
  std::shared_ptr<linux_host::OpenFile> file_;
  std::unique_ptr<linux_host::M4aWriter> writer_;
};

struct Memory {
  long resident_kB = 0;
  long allocated_kB = 0;
};

Memory memoryNow() {
  constexpr std::string_view kField = "VmRSS:";
  Memory memory;
  std::ifstream lines("/proc/self/status");
  for (std::string line; std::getline(lines, line);) {
    if (line.starts_with(kField)) memory.resident_kB = std::atol(line.c_str() + kField.size());
  }
  memory.allocated_kB = static_cast<long>(mallinfo2().uordblks / 1024);
  return memory;
}

// One second of a tone with a whole number of periods.
std::vector<float> secondOfTone() {
  constexpr double kTone_Hz = 997;
  std::vector<float> second(kRate_Hz);
  for (std::uint32_t i = 0; i < kRate_Hz; ++i) {
    second[i] = static_cast<float>(0.5 * std::sin(2 * std::numbers::pi * kTone_Hz * i / kRate_Hz));
  }
  return second;
}

// Acts as the audio thread: writes one block after the other, each when it is due on the fast
// clock.
void feed(linux_host::CaptureRing& ring, std::uint64_t blocks, double speed) {
  std::vector<float> second = secondOfTone();
  // So that a block can begin anywhere.
  second.insert(second.end(), second.begin(), second.begin() + kBlock_frames);
  const auto begin = steady_clock::now();
  for (std::uint64_t block = 0; block < blocks; ++block) {
    const std::uint64_t frame = block * kBlock_frames;
    const std::chrono::duration<double> due(static_cast<double>(frame) / kRate_Hz / speed);
    std::this_thread::sleep_until(begin + std::chrono::duration_cast<steady_clock::duration>(due));
    const float* plane = second.data() + frame % kRate_Hz;
    ring.write(&plane, kBlock_frames);
  }
}

struct Soak {
  linux_host::CaptureRing ring{1, kRing_s* kRate_Hz};
  std::vector<Memory> looks;

  // The drain thread.
  void drain(Outlet& outlet, std::uint64_t blocks, double speed) {
    constexpr std::chrono::duration<double> kPoll{0.010};
    const std::uint64_t all_frames = blocks * kBlock_frames;
    while (ring.consumed_frames() + ring.lost_frames() < all_frames) {
      while (ring.readable_frames() > 0 && outlet.isReady()) give(outlet, all_frames);
      std::this_thread::sleep_for(kPoll / speed);
    }
  }
  void give(Outlet& outlet, std::uint64_t all_frames) {
    const std::uint32_t frames = std::min(ring.contiguous_frames(), 4 * kBlock_frames);
    const float* plane = ring.plane(0);
    outlet.take(&plane, frames);
    ring.consume(frames);
    if (ring.consumed_frames() < looks.size() * all_frames / kLooks) return;
    looks.push_back(memoryNow());
    std::printf("%5.1f min: VmRSS %6ld kB, allocated %6ld kB\n",
                static_cast<double>(ring.consumed_frames()) / kRate_Hz / 60,
                looks.back().resident_kB, looks.back().allocated_kB);
    std::fflush(stdout);
  }
};

// The least of six checks: samples that wait for the encoder come and go, leaks stay. (The very
// first check comes before everything has been loaded.)
long leastResident_kB(const std::vector<Memory>& looks, std::size_t first) {
  long least_kB = looks.at(first).resident_kB;
  for (std::size_t i = first; i < first + kLooks / 2; ++i) {
    least_kB = std::min(least_kB, looks.at(i).resident_kB);
  }
  return least_kB;
}

int run(const std::string& format, const std::string& folder, double minutes, double speed) {
  setenv("TMPDIR", folder.c_str(), 1);
  const bool m4a = format == "m4a";
  std::unique_ptr<Outlet> outlet;
  if (m4a) {
    outlet = std::make_unique<M4aOutlet>(folder);
  } else {
    outlet = std::make_unique<Mp3Outlet>(folder, 0);
  }
  const auto blocks = static_cast<std::uint64_t>(minutes * 60 * kRate_Hz / kBlock_frames);
  Soak soak;
  const auto begin = steady_clock::now();
  std::thread audio([&] { feed(soak.ring, blocks, speed); });
  std::thread drain([&] { soak.drain(*outlet, blocks, speed); });
  audio.join();
  drain.join();
  const std::string path = outlet->finish();
  const std::chrono::duration<double> took = steady_clock::now() - begin;

  const long growth_kB = leastResident_kB(soak.looks, kLooks / 2) - leastResident_kB(soak.looks, 1);
  const auto allowed_kB =
      kMostGrowth_kB + (m4a ? static_cast<long>(kIndexGrowth_kB_per_hour * minutes / 60) : 0);
  std::printf("%s: %.1f min in %.1f s (%.1f times real time), %llu frames lost, memory %+ld kB\n",
              format.c_str(), minutes, took.count(), minutes * 60 / took.count(),
              static_cast<unsigned long long>(soak.ring.lost_frames()), growth_kB);
  std::printf("%s\t%llu\n", path.c_str(), static_cast<unsigned long long>(blocks * kBlock_frames));
  return soak.ring.lost_frames() == 0 && growth_kB <= allowed_kB ? EXIT_SUCCESS : EXIT_FAILURE;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 3) {
    std::fprintf(stderr, "soak_simulation mp3|m4a FOLDER [MINUTES] [SPEED]\n");
    return 2;
  }
  try {
    return run(argv[1], argv[2], argc > 3 ? std::atof(argv[3]) : 60,
               argc > 4 ? std::atof(argv[4]) : 40);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "soak_simulation: %s\n", error.what());
    return EXIT_FAILURE;
  }
}
