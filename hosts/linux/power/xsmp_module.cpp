// SPDX-License-Identifier: MIT
#include "hosts/linux/power/xsmp_module.h"

#include <X11/ICE/ICElib.h>
#include <X11/SM/SMlib.h>
#include <pwd.h>
#include <unistd.h>

#include <cstdlib>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace linux_host {
namespace {

class LibSmConnection : public XsmpConnection {
 public:
  explicit LibSmConnection(XsmpEvents events) : events_(std::move(events)) {}
  ~LibSmConnection() override {
    if (connection_ != nullptr) SmcCloseConnection(connection_, 0, nullptr);
  }
  LibSmConnection(const LibSmConnection&) = delete;
  LibSmConnection& operator=(const LibSmConnection&) = delete;

  bool open() {
    SmcCallbacks callbacks{};
    callbacks.save_yourself = {&LibSmConnection::onSaveYourself, this};
    callbacks.die = {&LibSmConnection::onDie, this};
    callbacks.save_complete = {&LibSmConnection::onNothingToDo, this};
    callbacks.shutdown_cancelled = {&LibSmConnection::onNothingToDo, this};
    char* clientId = nullptr;
    connection_ = SmcOpenConnection(nullptr, nullptr, SmProtoMajor, SmProtoMinor,
                                    SmcSaveYourselfProcMask | SmcDieProcMask |
                                        SmcSaveCompleteProcMask | SmcShutdownCancelledProcMask,
                                    &callbacks, nullptr, &clientId, 0, nullptr);
    std::free(clientId);
    if (connection_ != nullptr) describe();
    return connection_ != nullptr;
  }

  [[nodiscard]] int descriptor() const override {
    return IceConnectionNumber(SmcGetIceConnection(connection_));
  }

  bool process() override {
    const auto status = IceProcessMessages(SmcGetIceConnection(connection_), nullptr, nullptr);
    // The library has freed a connection that both sides closed.
    if (status == IceProcessMessagesConnectionClosed) connection_ = nullptr;
    return status == IceProcessMessagesSuccess;
  }

  void saved() override {
    if (std::exchange(saving_, false)) SmcSaveYourselfDone(connection_, True);
  }

 private:
  struct Property {
    const char* name;
    const char* type;
    std::vector<std::string> values;
  };

  // What every client has to say about itself. The next session must not start it: only the user
  // starts a recording.
  void describe() {
    const passwd* user = getpwuid(getuid());
    const std::vector<Property> properties = {
        {SmProgram, SmARRAY8, {"record-audio"}},
        {SmUserID, SmARRAY8, {user != nullptr ? user->pw_name : ""}},
        {SmCloneCommand, SmLISTofARRAY8, {"record-audio"}},
        {SmRestartCommand, SmLISTofARRAY8, {"record-audio"}},
        {SmRestartStyleHint, SmCARD8, {std::string(1, static_cast<char>(SmRestartNever))}},
    };
    for (const Property& property : properties) set(property);
  }

  void set(const Property& property) {
    // The library's structures have non-const pointers, but it only reads through them.
    std::vector<SmPropValue> values;
    for (const std::string& value : property.values) {
      values.push_back({static_cast<int>(value.size()), const_cast<char*>(value.data())});
    }
    SmProp one{const_cast<char*>(property.name), const_cast<char*>(property.type),
               static_cast<int>(values.size()), values.data()};
    SmProp* all[] = {&one};
    SmcSetProperties(connection_, 1, all);
  }

  static void onSaveYourself(SmcConn connection, SmPointer self, int, Bool shutdown, int, Bool) {
    // A checkpoint without a shutdown has nothing of ours to save.
    if (shutdown == False) {
      SmcSaveYourselfDone(connection, True);
      return;
    }
    auto* client = static_cast<LibSmConnection*>(self);
    client->saving_ = true;
    client->events_.save();
  }
  static void onDie(SmcConn, SmPointer self) { static_cast<LibSmConnection*>(self)->events_.die(); }
  static void onNothingToDo(SmcConn, SmPointer) {}

  const XsmpEvents events_;
  SmcConn connection_ = nullptr;
  bool saving_ = false;
};

// The libraries' default handlers end the process.
void outliveErrors() {
  IceSetIOErrorHandler([](IceConn) {});
  IceSetErrorHandler([](IceConn, Bool, int, unsigned long, int, int, IcePointer) {});
  SmcSetErrorHandler([](SmcConn, Bool, int, unsigned long, int, int, SmPointer) {});
}

}  // namespace
}  // namespace linux_host

extern "C" __attribute__((visibility("default"))) linux_host::XsmpConnection*
record_audio_open_xsmp_connection(linux_host::XsmpEvents events) {
  linux_host::outliveErrors();
  auto connection = std::make_unique<linux_host::LibSmConnection>(std::move(events));
  return connection->open() ? connection.release() : nullptr;
}
