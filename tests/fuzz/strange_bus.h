// SPDX-License-Identifier: MIT
#pragma once

#include <gio/gio.h>

#include <atomic>
#include <cstddef>
#include <future>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "hosts/linux/bus/dbus_support.h"
#include "platform/mutex.h"

namespace fuzz {

// One action of a service.
struct Step {
  enum class Kind {
    kAnswer,  // a good answer to the next call
    kError,   // an error
    kSignal,  // a signal, or a call on an object of the program's
    kLeaves,  // it leaves the bus
    kComes,   // it returns
  };
  Kind kind = Kind::kAnswer;
  linux_host::VariantPtr value;  // a tuple
  int descriptors = 0;           // number of file descriptors sent with an answer
  const char* name = nullptr;    // of the error, the signal or the call
  unsigned number = 0;           // the same, as a number
  bool isElsewhere = false;      // a signal from another object: kOtherPath
  const char* path = nullptr;    // of a signal, instead of the service's
  const char* interface = nullptr;
};

inline constexpr const char* kOtherPath = "/a";

// The actions of a service, from the first call to the last.
struct Script {
  std::vector<Step> steps;

  // The number of signals with that name and type.
  [[nodiscard]] long count(std::string_view signal, const char* type) const;
  // The answer to the first call; null when it is an error or not of `type`.
  [[nodiscard]] GVariant* firstAnswer(const char* type) const;
};

// The names and objects of the script's service.
struct Service {
  const char* name;
  const char* path;        // empty: the object of the portal's last request
  const char* interface;   // of its signals
  bool callsOurs = false;  // its signals are calls on `path` and `interface` of the program's
};

// A message bus in this process, which itself behaves correctly. Every service is on it and follows
// the script. Lives as long as the process.
class StrangeBus {
 public:
  StrangeBus();
  StrangeBus(const StrangeBus&) = delete;
  StrangeBus& operator=(const StrangeBus&) = delete;

  [[nodiscard]] const std::string& address() const { return address_; }

  // Sets the script for the following calls. Before it answers a call, the service sends the
  // signals that come first.
  void play(const Service& service, std::shared_ptr<const Script> script);
  // Sends the remaining signals.
  void playRest();
  // The number of calls to the service since play().
  [[nodiscard]] int calls() const { return calls_; }
  // Runs the main loop until everything sent to or from `client` has arrived, then the messages
  // that this triggers, and so on, `rounds` times.
  static void settle(GDBusConnection* client, int rounds);

 private:
  [[noreturn]] void serve(std::promise<void>& isListening);
  static gboolean onConnection(GDBusServer* server, GDBusConnection* connection, gpointer self);
  static GDBusMessage* onMessage(GDBusConnection* connection, GDBusMessage* message,
                                 gboolean isIncoming, gpointer self);
  void receive(GDBusConnection* connection, GDBusMessage* message);
  void answer(GDBusConnection* connection, GDBusMessage* call) RA_REQUIRES(mutex_);
  void send(const Step& step) RA_REQUIRES(mutex_);
  void announce(bool isThere) RA_REQUIRES(mutex_);
  void broadcast(GDBusMessage* message) RA_REQUIRES(mutex_);

  const std::string address_;
  std::atomic<int> calls_ = 0;
  platform::Mutex mutex_;
  std::vector<linux_host::ConnectionPtr> clients_ RA_GUARDED_BY(mutex_);
  Service service_ RA_GUARDED_BY(mutex_){};
  std::shared_ptr<const Script> script_ RA_GUARDED_BY(mutex_);  // may be null
  std::size_t next_ RA_GUARDED_BY(mutex_) = 0;
  bool isThere_ RA_GUARDED_BY(mutex_) = true;
  std::string request_ RA_GUARDED_BY(mutex_);
};

}  // namespace fuzz
