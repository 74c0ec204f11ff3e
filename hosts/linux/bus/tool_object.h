// SPDX-License-Identifier: MIT
#pragma once

#include <gio/gio.h>

#include <memory>
#include <string>
#include <vector>

#include "hosts/linux/base/expected.h"
#include "hosts/linux/bus/dbus_support.h"
#include "hosts/linux/bus/requests.h"
#include "platform/thread_role.h"
#include "suite/embedded_suite.h"

namespace linux_host {

inline constexpr const char* kBusName = "com.vantrel.korvel.RecordAudio";
inline constexpr const char* kObjectPath = "/com/vantrel/korvel/RecordAudio";
inline constexpr const char* kApplicationInterface = "org.freedesktop.Application";
inline constexpr const char* kToolDataInterface = "com.vantrel.korvel.ToolData1";
inline constexpr const char* kRecordAudioInterface = "com.vantrel.korvel.RecordAudio1";
// The error of "stop" and "cancel" when nothing is being recorded.
inline constexpr const char* kNothingRecordedError =
    "com.vantrel.korvel.RecordAudio.Error.NothingRecorded";

// The program's only object, on the bus or on connections of its control socket. A dock, the
// suite's menu and scripts call it. Main thread.
class ToolObject : public suite::ToolDataObserver {
 public:
  // `requests` outlives the object.
  explicit ToolObject(Requests& requests);
  ~ToolObject() override;
  ToolObject(const ToolObject&) = delete;
  ToolObject& operator=(const ToolObject&) = delete;

  // Offers the object on the connection until that closes. Fails when the connection already
  // has such an object.
  Status exportOn(GDBusConnection* connection);

  // Publishes the values and tells every connection which of them have changed.
  void toolDataDidChange(const suite::ToolData& data) override;

  // Sends the queued messages of every connection. Waits at most `timeout_ms` for each.
  void flushAll(int timeout_ms);

 private:
  struct Export {
    ConnectionPtr connection;
    std::vector<guint> registrations;
    gulong closedHandler = 0;
  };

  static void onMethodCall(GDBusConnection* connection, const gchar* sender, const gchar* path,
                           const gchar* interfaceName, const gchar* method, GVariant* parameters,
                           GDBusMethodInvocation* invocation, gpointer self);
  static GVariant* onGetProperty(GDBusConnection* connection, const gchar* sender,
                                 const gchar* path, const gchar* interfaceName,
                                 const gchar* property, GError** error, gpointer self);
  static void onClosed(GDBusConnection* connection, gboolean remotePeerVanished, GError* error,
                       gpointer self);
  void call(const std::string& method, GVariant* parameters, GDBusMethodInvocation* invocation);
  void open(GVariant* parameters, GDBusMethodInvocation* invocation);
  void activateAction(GVariant* parameters, GDBusMethodInvocation* invocation);
  [[nodiscard]] GVariant* property(const std::string& name) const;
  void withdraw(Export& entry);

  platform::ThreadRole mainThread_{platform::ThreadRole::Holder::kMaker};
  Requests& requests_;
  const NodeInfoPtr node_;
  suite::ToolData data_;
  std::vector<std::unique_ptr<Export>> exports_;
};

}  // namespace linux_host
