// SPDX-License-Identifier: MIT
#include "hosts/linux/application/quit_signals.h"

#include <glib-unix.h>

#include <csignal>
#include <utility>

namespace linux_host {

QuitSignals::QuitSignals(LinuxApplication& application)
    : application_(application),
      sources_{g_unix_signal_add(SIGTERM, &QuitSignals::onSignal, this),
               g_unix_signal_add(SIGINT, &QuitSignals::onSignal, this),
               g_unix_signal_add(SIGHUP, &QuitSignals::onSignal, this)} {}

QuitSignals::~QuitSignals() {
  for (const guint source : sources_) g_source_remove(source);
  // The process is already ending, within a time limit of its own; further signals must not cut
  // that short.
  for (const int signal : {SIGTERM, SIGINT, SIGHUP}) std::signal(signal, SIG_IGN);
}

gboolean QuitSignals::onSignal(gpointer self) {
  auto& signals = *static_cast<QuitSignals*>(self);
  if (std::exchange(signals.asked_, true)) {
    signals.application_.terminateRegardless();
  } else {
    signals.application_.terminate();
  }
  return G_SOURCE_CONTINUE;
}

}  // namespace linux_host
