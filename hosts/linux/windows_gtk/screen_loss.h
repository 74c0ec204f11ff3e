// SPDX-License-Identifier: MIT
#pragma once

#include <gdk/gdk.h>

#include "hosts/linux/windows/source_span.h"
#include "hosts/linux/windows/windows_module.h"

namespace linux_host {

// When the connection to the screen breaks, GTK writes a message and ends the process, even during
// a recording. This class looks for the end of the connection before GTK does, and reads GTK's
// messages for an end that comes in the middle of an event. It then lets the program go on without
// GTK: WindowsServices::goOnWithoutScreen(). One object at a time, created and destroyed on the
// main thread.
class ScreenLoss {
 public:
  // `services` outlives this object. `toolkit`: GTK's first sources in the main loop.
  ScreenLoss(WindowsServices& services, const SourceSpan& toolkit, GdkDisplay* display);
  ~ScreenLoss();
  ScreenLoss(const ScreenLoss&) = delete;
  ScreenLoss& operator=(const ScreenLoss&) = delete;

 private:
  struct Watch;

  static GLogWriterOutput onMessage(GLogLevelFlags level, const GLogField* fields, gsize count,
                                    gpointer data);
  static gboolean prepare(GSource* source, gint* timeout_ms);
  static gboolean check(GSource* source);
  static gboolean dispatch(GSource* source, GSourceFunc callback, gpointer data);
  static bool isBroken(const Watch& watch);
  // Takes GTK out of the main loop.
  void abandonToolkit() const;

  static inline ScreenLoss* watching_ = nullptr;

  WindowsServices& services_;
  const SourceSpan toolkit_;
  GSource* watch_ = nullptr;  // null where the connection is not known
};

}  // namespace linux_host
