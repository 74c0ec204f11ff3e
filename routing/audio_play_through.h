// SPDX-License-Identifier: MIT
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>

#include "platform/host.h"
#include "platform/thread_role.h"
#include "routing/ring_buffer.h"

namespace record_audio {

// One end of the play-through.
struct PlayThroughDevice {
  std::uint32_t deviceID = 0;
  std::uint32_t safetyOffset = 0;     // frames
  std::uint32_t bufferFrameSize = 0;  // frames

  // Sets the device id and reads the two sizes of its input or output side. False when one cannot
  // be read; the id is set all the same.
  bool initDevice(platform::AudioHardware& hardware, platform::AudioDeviceID device, bool isInput);
};
static_assert(sizeof(PlayThroughDevice) == 12);

// Plays what the loopback device records on a real output device. An input unit, bound to the
// loopback, stores each block in a ring. A graph of a varispeed unit and an output unit, bound to
// the real device, fetches from the ring. The varispeed unit's rate follows both clocks, so the
// delay stays as it was at the start.
//
// Main thread, except the two callbacks. One record serves one recording; it is not started twice.
// Debug builds assert the three threads.
class AudioPlayThrough {
 public:
  explicit AudioPlayThrough(platform::Host& host) : host_(host) {}
  ~AudioPlayThrough() noexcept { stop(); }
  AudioPlayThrough(const AudioPlayThrough&) = delete;
  AudioPlayThrough& operator=(const AudioPlayThrough&) = delete;

  // Finds the loopback device and fills both device records. False when a device or one of its
  // sizes cannot be read.
  bool initDevices(platform::AudioDeviceID outputDeviceID);
  // Returns 0 when it plays. Otherwise everything that was set up is undone, and the result is the
  // status of the call that failed, kAudioHardwareUnspecifiedError when there is no output
  // component, or -620 when memory runs out.
  platform::OSStatus start();
  // Does nothing unless running. When it returns, no callback runs and none will. Always 0.
  platform::OSStatus stop();
  // Sets inputToOutputOffset to the sum of both devices' safety offsets and buffers.
  void computeThroughOffset();

  // REAL-TIME callbacks: no allocation, no lock, no log, no system call. `refCon` is the record.
  //
  // Runs on the loopback device's thread and is the ring's only writer. Does not use `ioData`.
  // Returns the status of the rendering or, if that is 0, of the storing.
  static platform::OSStatus inputProc(void* refCon, std::uint32_t* ioActionFlags,
                                      const platform::AudioTimeStamp* timeStamp,
                                      std::uint32_t busNumber, std::uint32_t frameCount,
                                      platform::AudioBufferList* ioData);
  // Runs on the real device's thread and is the ring's only reader. Fills `ioData`, with silence
  // where there is nothing to play. On an error it leaves `ioData` as it is.
  static platform::OSStatus outputProc(void* refCon, std::uint32_t* ioActionFlags,
                                       const platform::AudioTimeStamp* timeStamp,
                                       std::uint32_t busNumber, std::uint32_t frameCount,
                                       platform::AudioBufferList* ioData);

  // Frees a list and its buffers, allocated by malloc().
  struct FreeBufferList {
    void operator()(platform::AudioBufferList* list) const;
  };

  PlayThroughDevice inputDevice;   // the loopback
  PlayThroughDevice outputDevice;  // the real one
  bool running = false;
  platform::AudioUnit inputUnit = nullptr;  // owned while running
  // One buffer per channel.
  std::unique_ptr<platform::AudioBufferList, FreeBufferList> inputBufferList;
  std::unique_ptr<RingBuffer> ringBuffer;
  platform::AUGraph graph = nullptr;            // owned while running
  platform::AudioUnit varispeedUnit = nullptr;  // the graph's
  // Sample time of the first input callback; -1 before it. While running, the input thread writes
  // it once and the output thread polls it. Relaxed order is enough: the number is used by itself,
  // and everything else passes through the ring, which orders it.
  std::atomic<double> firstInputTime{-1.0};
  // Sample time of the first output after the first input; -1 before it. This and the offset belong
  // to the output thread. The offset is subtracted from an output sample time, in frames, to get
  // the sample time in the ring.
  double firstOutputTime = -1.0;
  double inputToOutputOffset = 0;

 private:
  struct Formats;

  [[nodiscard]] double throughOffset_frames() const;
  platform::OSStatus createInputUnit();
  platform::OSStatus bindInputUnit();
  void disposeInputUnit();
  platform::OSStatus startWithInputUnit();
  platform::OSStatus startWithOpenGraph();
  platform::OSStatus addNodes(platform::AUNode& varispeedNode, platform::AUNode& outputNode,
                              platform::AudioUnit& outputUnit);
  platform::OSStatus bindGraph(platform::AudioUnit outputUnit);
  platform::OSStatus readFormats(platform::AudioUnit outputUnit, Formats& formats);
  platform::OSStatus setFormats(platform::AudioUnit outputUnit, Formats& formats);
  platform::OSStatus allocateBuffers(const Formats& formats);
  void freeBuffers();
  platform::OSStatus runGraph(platform::AUNode varispeedNode, platform::AUNode outputNode);
  // REAL-TIME (all below): what the two callbacks do.
  platform::OSStatus render(std::uint32_t* ioActionFlags, const platform::AudioTimeStamp& timeStamp,
                            std::uint32_t busNumber, std::uint32_t frameCount)
      RA_REQUIRES(inputThread_);
  platform::OSStatus play(const platform::AudioTimeStamp& timeStamp, std::uint32_t frameCount,
                          platform::AudioBufferList& list) RA_REQUIRES(outputThread_);
  platform::OSStatus followClocks(const platform::AudioTimeStamp& inputNow,
                                  const platform::AudioTimeStamp& outputNow)
      RA_REQUIRES(outputThread_);
  void anchor(double outputTime_frames) RA_REQUIRES(outputThread_);
  void reanchor(double outputTime_frames) RA_REQUIRES(outputThread_);

  platform::Host& host_;
  platform::ThreadRole mainThread_{platform::ThreadRole::Holder::kMaker};
  platform::ThreadRole inputThread_;   // the loopback device's
  platform::ThreadRole outputThread_;  // the real device's
};

}  // namespace record_audio
