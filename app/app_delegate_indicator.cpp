// SPDX-License-Identifier: MIT
#include <cinttypes>
#include <cstdio>

#include "app/app_delegate.h"
#include "app/tool_status.h"
#include "platform/host.h"
#include "shared/auxiliary.h"

// Shows that a recording runs: in the Dock icon, the suite's status menu and the application's icon
// in the file browser.

namespace record_audio {
namespace {

constexpr const char* kActiveIcon = "ActiveIcon.icns";
constexpr std::int64_t kSecondsPerMinute = 60;
constexpr std::int64_t kSecondsPerHour = 3600;

std::string runningTimeText(std::int64_t seconds) {
  char text[48];
  const std::int64_t rest = seconds % kSecondsPerMinute;
  if (seconds >= kSecondsPerHour) {
    std::snprintf(text, sizeof text, "%02" PRId64 ":%02" PRId64 ":%02" PRId64,
                  seconds / kSecondsPerHour, seconds % kSecondsPerHour / kSecondsPerMinute, rest);
  } else {
    std::snprintf(text, sizeof text, "%02" PRId64 ":%02" PRId64, seconds / kSecondsPerMinute, rest);
  }
  return text;
}

}  // namespace

void AppDelegate::changeDockIcon(bool on) {
  if (!_running) return;
  m_bBlinker = on;
  platform::Application& application = host().application;
  application.setApplicationIconImage(
      application.imageNamed(on ? kActiveIcon : platform::kImageNameApplicationIcon));
  _provider->setToolIcon(on ? application.imageNamed("KorvelIconOn") : nullptr);
}

void AppDelegate::timerBlinkerMethod(const platform::TimerPtr&) {
  mainThread_.assertHeld();
  if (!_running) return;
  changeDockIcon(!m_bBlinker);
  _provider->setMenuText(runningTimeText(elapsed_s()));
}

void AppDelegate::updateFinderIcon(bool on) {
  if (!_running) return;
  Auxiliary::setIcon(host(), on ? host().application.imageNamed(kActiveIcon) : nullptr,
                     host().mainBundle.bundlePath());
  _provider->setToolStatus(on ? kToolActive : kToolInactive);
}

}  // namespace record_audio
