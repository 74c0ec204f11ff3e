// SPDX-License-Identifier: MIT
#pragma once

#include <QtGlobal>
#include <atomic>

#include "hosts/linux/windows/source_span.h"
#include "hosts/linux/windows/windows_module.h"

class QString;

namespace linux_host {

// When the connection to the screen breaks, Qt writes a message and ends the process with exit() or
// _exit(), even during a recording. This class reads Qt's messages. At that one it lets the program
// go on without Qt: WindowsServices::goOnWithoutScreen(). One object at a time, created and
// destroyed on the main thread.
class ScreenLoss {
 public:
  // `services` outlives this object. `toolkit`: Qt's sources in the main loop.
  ScreenLoss(WindowsServices& services, const SourceSpan& toolkit);
  ~ScreenLoss();
  ScreenLoss(const ScreenLoss&) = delete;
  ScreenLoss& operator=(const ScreenLoss&) = delete;

 private:
  // Any thread.
  static void onMessage(QtMsgType type, const QMessageLogContext& context, const QString& text);
  // Main thread. Returns only if the toolkit has already been abandoned.
  static void leaveToolkit();

  static inline std::atomic<ScreenLoss*> watching_ = nullptr;
  // Set before watching_ is cleared. From then on, no other thread of Qt that notices the loss may
  // end the process either.
  static inline std::atomic<bool> isBeingLeft_ = false;
  static inline std::atomic<QtMessageHandler> previous_ = nullptr;

  WindowsServices& services_;
  const SourceSpan toolkit_;
};

}  // namespace linux_host
