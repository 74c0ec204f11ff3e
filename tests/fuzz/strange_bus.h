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

// One thing that a service does.
struct Step {
  enum class Kind {
    kAnswer,  // a good answer to the next call
    kError,   // an error
    kSignal,  // a signal, or a call on an object of the program's
    kLeaves,  // it is gone from the bus
    kComes,   // it is back
  };
  Kind kind = Kind::kAnswer;
  linux_host::VariantPtr value;  // a tuple
  int descriptors = 0;           // how many files come with an answer
  const char* name = nullptr;    // of the error, the signal or the call
  unsigned number = 0;           // the same for who knows messages by numbers
  bool isElsewhere = false;      // a signal from another object: kOtherPath
  const char* path = nullptr;    // of a signal, instead of the service's
  const char* interface = nullptr;
};

inline constexpr const char* kOtherPath = "/a";

// What a service does, from the first call to the last.
struct Script {
  std::vector<Step> steps;

  // How many signals of that name and type there are.
  [[nodiscard]] long count(std::string_view signal, const char* type) const;
  // What the first call is answered with; null when it is an error or is not `type`.
  [[nodiscard]] GVariant* firstAnswer(const char* type) const;
};

// Whose names and objects the script is about.
struct Service {
  const char* name;
  const char* path;        // empty: the object of the portal's last request
  const char* interface;   // of its signals
  bool callsOurs = false;  // its signals are calls on `path` and `interface` of the program's
};

// A message bus in this process, which itself is as it should be. Every service is on it, and does
// what the script says. Lives as long as the process.
class StrangeBus {
 public:
  StrangeBus();
  StrangeBus(const StrangeBus&) = delete;
  StrangeBus& operator=(const StrangeBus&) = delete;

  [[nodiscard]] const std::string& address() const { return address_; }

  // For the calls to come. Before it answers one, the service sends the signals that come first.
  void play(const Service& service, std::shared_ptr<const Script> script);
  // Sends the signals that are left.
  void playRest();
  // How often a service has been called since play().
  [[nodiscard]] int calls() const { return calls_; }
  // Runs the main loop until all that was on its way to or from `client` has arrived, and the
  // answers to what that set off, and so on, `rounds` times.
  static void settle(GDBusConnection* client, int rounds);

 private:
  [[noreturn]] void serve(std::promise<void>& isListening);
  static gboolean onConnection(GDBusServer* server, GDBusConnection* connection, gpointer self);
  static GDBusMessage* onMessage(GDBusConnection* connection, GDBusMessage* message,
                                 gboolean isIncoming, gpointer self);
  void receive(GDBusConnection* connection, GDBusMessage* message);
  // With the mutex.
  void answer(GDBusConnection* connection, GDBusMessage* call);
  void send(const Step& step);
  void announce(bool isThere);
  void broadcast(GDBusMessage* message);

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
