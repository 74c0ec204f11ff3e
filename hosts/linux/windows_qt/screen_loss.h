// SPDX-License-Identifier: MIT
#pragma once

#include <glib.h>

#include <QtGlobal>
#include <atomic>

#include "hosts/linux/windows/windows_module.h"

class QString;

namespace linux_host {

// The sources that join the default main context between construction and end(). Main thread.
class SourceSpan {
 public:
  SourceSpan() : first_(nextId()) {}
  void end() { last_ = nextId(); }
  // Takes those that are still there out of the context, for good.
  void destroy() const;

 private:
  // The number that the context gives to the next source.
  static guint nextId();

  const guint first_;
  guint last_ = 0;
};

// When the connection to the screen breaks, Qt writes a message and ends the process, with exit()
// or _exit() and whatever is being recorded. This reads Qt's messages, and at that one the program
// goes on without Qt: WindowsServices::goOnWithoutScreen(). One object at a time, made and
// destroyed on the main thread.
class ScreenLoss {
 public:
  // `services` outlives this object. `toolkit`: the sources by which Qt is part of the main loop.
  ScreenLoss(WindowsServices& services, const SourceSpan& toolkit);
  ~ScreenLoss();
  ScreenLoss(const ScreenLoss&) = delete;
  ScreenLoss& operator=(const ScreenLoss&) = delete;

 private:
  // Any thread.
  static void onMessage(QtMsgType type, const QMessageLogContext& context, const QString& text);
  // Main thread. Returns only when it has been left already.
  static void leaveToolkit();

  static inline std::atomic<ScreenLoss*> watching_ = nullptr;
  static inline std::atomic<QtMessageHandler> previous_ = nullptr;

  WindowsServices& services_;
  const SourceSpan toolkit_;
};

}  // namespace linux_host
