// SPDX-License-Identifier: MIT
#pragma once

#include <atomic>
#include <cstdint>

#include "platform/host.h"
#include "routing/ring_buffer.h"

namespace record_audio {

// One end of the play-through.
struct PlayThroughDevice {
  std::uint32_t deviceID = 0;
  std::uint32_t safetyOffset = 0;     // frames
  std::uint32_t bufferFrameSize = 0;  // frames

  // Reads the two sizes of the device's input or output side. False when one cannot be read; the
  // device id is kept nevertheless.
  bool initDevice(platform::AudioHardware& hardware, platform::AudioDeviceID device, bool isInput);
};
static_assert(sizeof(PlayThroughDevice) == 12);

// Plays what the loopback device records on a real output device. An input unit bound to the
// loopback stores each block in a ring; a graph of a varispeed unit and an output unit bound to the
// real device fetches from it, at a rate that follows both clocks, so that the delay stays what it
// was at the start.
//
// Main thread, except the two callbacks. One record serves one recording: it is not started again.
class AudioPlayThrough {
 public:
  explicit AudioPlayThrough(platform::Host& host) : host_(host) {}
  ~AudioPlayThrough() noexcept { stop(); }
  AudioPlayThrough(const AudioPlayThrough&) = delete;
  AudioPlayThrough& operator=(const AudioPlayThrough&) = delete;

  // Finds the loopback device and fills both device records. False when something is missing.
  bool initDevices(platform::AudioDeviceID outputDeviceID);
  // 0 when it plays. Otherwise the status of the call that failed (or
  // kAudioHardwareUnspecifiedError without an output component, -620 without memory), with all
  // that was set up undone again.
  platform::OSStatus start();
  // Nothing unless running. When it returns, no callback runs and none will. Always 0.
  platform::OSStatus stop();
  // Sets inputToOutputOffset to the sum of both devices' safety offsets and buffers.
  void computeThroughOffset();

  // REAL-TIME callbacks: no allocation, no lock, no log, no system call. `refCon` is the record.
  //
  // On the loopback device's thread, the ring's only writer. Its list is not used. Returns what
  // rendering or else storing returned.
  static platform::OSStatus inputProc(void* refCon, std::uint32_t* ioActionFlags,
                                      const platform::AudioTimeStamp* timeStamp,
                                      std::uint32_t busNumber, std::uint32_t frameCount,
                                      platform::AudioBufferList* ioData);
  // On the real device's thread, the ring's only reader. Fills the list, with silence where there
  // is nothing to play; on an error it is left alone.
  static platform::OSStatus outputProc(void* refCon, std::uint32_t* ioActionFlags,
                                       const platform::AudioTimeStamp* timeStamp,
                                       std::uint32_t busNumber, std::uint32_t frameCount,
                                       platform::AudioBufferList* ioData);

  PlayThroughDevice inputDevice;   // the loopback
  PlayThroughDevice outputDevice;  // the real one
  bool running = false;
  platform::AudioUnit inputUnit = nullptr;               // owned while running
  platform::AudioBufferList* inputBufferList = nullptr;  // owned; one buffer a channel
  RingBuffer* ringBuffer = nullptr;                      // owned
  platform::AUGraph graph = nullptr;                     // owned while running
  platform::AudioUnit varispeedUnit = nullptr;           // the graph's
  // Sample time of the first input callback; -1 before it. Written once by the input thread while
  // running, polled by the output thread. Relaxed: the number stands for itself, and whatever else
  // the output thread takes from the input thread comes through the ring, which orders it.
  std::atomic<double> firstInputTime{-1.0};
  // Sample time of the first output after the first input; -1 before it. Output thread's, as is
  // the offset: frames to subtract from an output sample time to get the ring's.
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
  void freeInputBufferList();
  void freeBuffers();
  platform::OSStatus runGraph(platform::AUNode varispeedNode, platform::AUNode outputNode);
  platform::OSStatus render(std::uint32_t* ioActionFlags, const platform::AudioTimeStamp& timeStamp,
                            std::uint32_t busNumber, std::uint32_t frameCount);
  platform::OSStatus play(const platform::AudioTimeStamp& timeStamp, std::uint32_t frameCount,
                          platform::AudioBufferList& list);
  platform::OSStatus followClocks(const platform::AudioTimeStamp& inputNow,
                                  const platform::AudioTimeStamp& outputNow);
  void anchor(double outputTime_frames);
  void reanchor(double outputTime_frames);

  platform::Host& host_;
};

}  // namespace record_audio
