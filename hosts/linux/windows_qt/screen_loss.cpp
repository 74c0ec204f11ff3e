// SPDX-License-Identifier: MIT
#include "hosts/linux/windows_qt/screen_loss.h"

#include <unistd.h>

#include <QCoreApplication>
#include <QString>
#include <QThread>
#include <algorithm>
#include <array>

namespace linux_host {
namespace {

// What Qt writes before it ends the process; the first also precedes an exit by Xlib.
constexpr std::array kLastMessages = {u"The X11 connection broke", u"The Wayland connection broke",
                                      u"The Wayland connection experienced a fatal error"};

bool isLastMessage(const QString& text) {
  return std::any_of(kLastMessages.begin(), kLastMessages.end(),
                     [&](const char16_t* known) { return text.startsWith(QStringView(known)); });
}

}  // namespace

ScreenLoss::ScreenLoss(WindowsServices& services, const SourceSpan& toolkit)
    : services_(services), toolkit_(toolkit) {
  watching_ = this;
  previous_ = qInstallMessageHandler(onMessage);
}

ScreenLoss::~ScreenLoss() {
  watching_ = nullptr;
  qInstallMessageHandler(previous_);
}

void ScreenLoss::onMessage(QtMsgType type, const QMessageLogContext& context, const QString& text) {
  if (QtMessageHandler write = previous_) write(type, context, text);
  if (!isLastMessage(text)) return;
  if (watching_ != nullptr) isBeingLeft_ = true;
  if (!isBeingLeft_) return;
  const bool isMainThread = QThread::currentThread() == QCoreApplication::instance()->thread();
  if (isMainThread) {
    leaveToolkit();
    return;
  }
  // This is one of Wayland's own threads; nothing may return to Qt here either. They notice the
  // loss one after the other.
  g_idle_add_full(
      G_PRIORITY_HIGH,
      [](gpointer) -> gboolean {
        leaveToolkit();
        return G_SOURCE_REMOVE;
      },
      nullptr, nullptr);
  for (;;) pause();
}

void ScreenLoss::leaveToolkit() {
  ScreenLoss* const loss = watching_.exchange(nullptr);
  if (loss == nullptr) return;
  loss->toolkit_.destroy();
  loss->services_.goOnWithoutScreen();
}

}  // namespace linux_host
