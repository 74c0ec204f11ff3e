// SPDX-License-Identifier: MIT
#pragma once

#include <glib.h>

#include <atomic>

namespace base_test {

// Counts GLib's critical warnings during this object's lifetime: calls that should not have been
// made.
class GlibFaults {
 public:
  GlibFaults() { before_ = g_log_set_default_handler(&GlibFaults::onMessage, this); }
  ~GlibFaults() { g_log_set_default_handler(before_, nullptr); }
  GlibFaults(const GlibFaults&) = delete;
  GlibFaults& operator=(const GlibFaults&) = delete;

  [[nodiscard]] int count() const { return count_; }

 private:
  static void onMessage(const gchar* domain, GLogLevelFlags level, const gchar* text,
                        gpointer self) {
    if ((level & G_LOG_LEVEL_CRITICAL) != 0) ++static_cast<GlibFaults*>(self)->count_;
    g_log_default_handler(domain, level, text, nullptr);
  }

  GLogFunc before_ = nullptr;
  std::atomic<int> count_ = 0;
};

}  // namespace base_test
