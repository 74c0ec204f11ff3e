#include <cinttypes>
#include <cstdio>

#include "app/app_delegate.h"
#include "platform/host.h"
#include "settings/auxiliary.h"

// What shows a running recording: the Dock icon, the suite's status menu and the application's own
// icon in the file browser.

namespace record_audio {
namespace {

constexpr const char* kActiveIcon = "ActiveIcon.icns";

std::string runningTimeText(std::int64_t seconds) {
  char text[48];
  if (seconds > 3599) {
    std::snprintf(text, sizeof text, "%02" PRId64 ":%02" PRId64 ":%02" PRId64, seconds / 3600,
                  seconds % 3600 / 60, seconds % 60);
  } else {
    std::snprintf(text, sizeof text, "%02" PRId64 ":%02" PRId64, seconds / 60, seconds % 60);
  }
  return text;
}

}  // namespace

void AppDelegate::changeDockIcon(bool on) {
  m_bBlinker = on;
  platform::Application& application = host().application;
  application.setApplicationIconImage(
      application.imageNamed(on ? kActiveIcon : platform::kImageNameApplicationIcon));
  _provider->setToolIcon(on ? application.imageNamed("KorvelIconOn") : nullptr);
}

void AppDelegate::timerBlinkerMethod(const platform::TimerPtr&) {
  changeDockIcon(!m_bBlinker);
  const double seconds = static_cast<double>(elapsed_ms()) / 1000.0;
  _provider->setMenuText(runningTimeText(static_cast<std::int64_t>(seconds)));
}

void AppDelegate::updateFinderIcon(bool on) {
  Auxiliary::setIcon(host(), on ? host().application.imageNamed(kActiveIcon) : nullptr,
                     host().mainBundle.bundlePath());
  _provider->setToolStatus(on ? 1 : 0);
}

}  // namespace record_audio
