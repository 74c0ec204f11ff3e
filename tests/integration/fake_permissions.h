// SPDX-License-Identifier: MIT
#pragma once

#include <gio/gio.h>

#include <atomic>
#include <future>
#include <optional>
#include <string>
#include <thread>

namespace integration_test {

// The desktop's permission store and the portal that asks the user, on the session bus that the
// environment names. They have a thread of their own, because the host waits for the store.
class FakePermissions {
 public:
  // What the portal does when it is asked.
  enum class Portal { kGrants, kRefuses, kLeaves, kFails };

  // `permissions`: the store's entries in text form; empty: the store has no entry and answers with
  // an error.
  explicit FakePermissions(std::string permissions, std::optional<Portal> portal = std::nullopt);
  ~FakePermissions();
  FakePermissions(const FakePermissions&) = delete;
  FakePermissions& operator=(const FakePermissions&) = delete;

  void stopAnswering() { isMute_ = true; }
  [[nodiscard]] int questions() const { return questions_; }

 private:
  void serve();
  void own(const char* name);
  void release(const char* name);
  static void onCall(GDBusConnection*, const gchar* sender, const gchar*, const gchar*,
                     const gchar* method, GVariant* arguments, GDBusMethodInvocation* invocation,
                     gpointer self);
  void lookUp(GDBusMethodInvocation* invocation);
  void accessDevice(const std::string& sender, GVariant* arguments,
                    GDBusMethodInvocation* invocation);

  const std::string permissions_;
  const std::optional<Portal> portal_;
  std::promise<void> ready_;
  GMainContext* const context_;
  GMainLoop* const loop_;
  GDBusConnection* bus_ = nullptr;
  std::atomic<bool> isMute_{false};
  std::atomic<int> questions_{0};
  std::thread thread_;
};

}  // namespace integration_test
