// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "platform/thread_role.h"
#include "suite/environment.h"

namespace record_audio {

// Shows the live level of the chosen audio source while its window can be seen. It listens only
// with the user's permission, and never while a recording runs. When the window is hidden or
// covered, it releases the device at once. Main thread only, asserted in debug builds; samples are
// measured on a separate queue.
class LevelMeter {
 public:
  static constexpr double kInterval_s = 1.0 / 20;
  // How often the choice, the permission and the device are checked without a call to update().
  static constexpr double kRefreshInterval_s = 1.0;
  // A level without new sound falls by two thirds in this time.
  static constexpr double kDecay_s = 0.3;

  // `chosenDevice` returns the device to listen to, or null for none. `recording` says whether a
  // recording runs or is being started; it may be empty. The indicator is hidden while there is
  // nothing to listen to.
  LevelMeter(suite::Environment environment, std::weak_ptr<platform::LevelIndicator> indicator,
             std::function<platform::CaptureDevicePtr()> chosenDevice,
             std::function<bool()> recording);
  ~LevelMeter();
  LevelMeter(const LevelMeter&) = delete;
  LevelMeter& operator=(const LevelMeter&) = delete;

  // Whether the user can see the window.
  void setVisible(bool visible);
  // Checks everything again, also a device that could not be opened before. To be called when the
  // choice, the devices or the permission may have changed.
  void update();

 private:
  class PeakTap;

  void tick();
  // Opens, changes or releases the device, as things are now.
  void refresh() RA_REQUIRES(mainThread_);
  [[nodiscard]] platform::CaptureDevicePtr deviceToListenTo() const;
  // False when the device cannot be listened to.
  bool open(const platform::CaptureDevicePtr& device) RA_REQUIRES(mainThread_);
  void close() RA_REQUIRES(mainThread_);
  void showLevel(float level) RA_REQUIRES(mainThread_);

  platform::ThreadRole mainThread_{platform::ThreadRole::Holder::kMaker};
  suite::Environment environment_;
  std::weak_ptr<platform::LevelIndicator> indicator_;
  std::function<platform::CaptureDevicePtr()> chosenDevice_;
  std::function<bool()> recording_;

  platform::TimerPtr timer_;  // runs exactly while the window can be seen
  platform::CaptureSessionPtr session_ RA_GUARDED_BY(mainThread_);
  std::shared_ptr<PeakTap> tap_ RA_GUARDED_BY(mainThread_);
  std::string deviceID_;        // the device that session_ listens to
  std::string failedDeviceID_;  // not to be tried again before update(); may be empty
  std::uint64_t lastTick_ = 0;  // host-clock ticks
  std::int64_t sinceRefresh_ms_ = 0;
  float level_ RA_GUARDED_BY(mainThread_) = 0;  // shown now, 0 to 1
};

}  // namespace record_audio
