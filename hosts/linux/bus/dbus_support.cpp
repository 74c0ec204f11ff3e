// SPDX-License-Identifier: MIT
#include "hosts/linux/bus/dbus_support.h"

#include <memory>
#include <system_error>
#include <thread>

#include "hosts/linux/base/log.h"
#include "platform/mutex.h"

namespace linux_host {
namespace {

// Cancels a blocking GLib call when its time is up, since these calls have no time limit. Throws
// std::system_error when the thread that watches the time cannot be started.
class Deadline {
 public:
  explicit Deadline(int timeout_ms) : thread_([this, timeout_ms] { watch(timeout_ms); }) {}
  ~Deadline() {
    {
      const platform::MutexLock lock(mutex_);
      done_ = true;
      changed_.notify_one();
    }
    thread_.join();
  }
  Deadline(const Deadline&) = delete;
  Deadline& operator=(const Deadline&) = delete;

  [[nodiscard]] GCancellable* cancellable() const { return cancellable_.get(); }

 private:
  void watch(int timeout_ms) {
    platform::MutexLock lock(mutex_);
    const auto limit = std::chrono::milliseconds(timeout_ms);
    if (!changed_.wait_for(lock, limit, [this]() RA_REQUIRES(mutex_) { return done_; }))
      g_cancellable_cancel(cancellable_.get());
  }

  platform::Mutex mutex_;
  platform::Condition changed_;
  bool done_ RA_GUARDED_BY(mutex_) = false;
  const std::unique_ptr<GCancellable, void (*)(gpointer)> cancellable_{g_cancellable_new(),
                                                                       &g_object_unref};
  std::thread thread_;
};

}  // namespace

Expected<ConnectionPtr> connectTo(const std::string& address, bool isMessageBus,
                                  int timeout_ms) try {
  const Deadline deadline(timeout_ms);
  auto flags = G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT;
  if (isMessageBus) {
    flags =
        static_cast<GDBusConnectionFlags>(flags | G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION);
  }
  GError* failure = nullptr;
  ConnectionPtr connection(g_dbus_connection_new_for_address_sync(
      address.c_str(), flags, nullptr, deadline.cancellable(), &failure));
  const ErrorPtr error(failure);
  if (error == nullptr) return connection;
  const bool isTooLate = g_error_matches(failure, G_IO_ERROR, G_IO_ERROR_CANCELLED) != FALSE;
  return Unexpected(isTooLate ? "it does not answer" : error->message);
} catch (const std::system_error& noThread) {
  return Unexpected(noThread.code().message());
}

bool areOfType(GVariant* parameters, const char* type, const char* signal) {
  if (g_variant_is_of_type(parameters, G_VARIANT_TYPE(type))) return true;
  const std::string sent = g_variant_get_type_string(parameters);
  logOnce(LogLevel::kWarning, std::string("signal ") + signal,
          std::string("The signal ") + signal + " came with " + sent + " instead of " + type +
              " and is ignored: the program that sent it has a bug.");
  return false;
}

void flush(GDBusConnection* connection, int timeout_ms) try {
  if (g_dbus_connection_is_closed(connection)) return;
  const Deadline deadline(timeout_ms);
  // A failure means that the other side is gone, and nobody is left to tell.
  g_dbus_connection_flush_sync(connection, deadline.cancellable(), nullptr);
} catch (const std::system_error&) {
  // Queued messages are still sent, without waiting.
}

}  // namespace linux_host
