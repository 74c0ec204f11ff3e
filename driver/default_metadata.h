// SPDX-License-Identifier: MIT
#pragma once

#include <pipewire/extensions/metadata.h>
#include <pipewire/pipewire.h>

#include <cstdint>
#include <functional>
#include <string>

#include "driver/default_guard.h"
#include "driver/pipewire_owners.h"

namespace loopback {

// The session manager's metadata object with the default devices, as long as it exists. Reports to
// a guard. Loop thread.
//
// Change events are not reliable. While the daemon waits for the session manager's first answer to
// a client that binds the object, it sends the other clients no changes. If that client dies before
// the answer, it never sends them any again. But a new binding reports all keys. So code that makes
// a decision by the keys reads them again first.
//
// Until the session manager answers, the daemon also holds back all other requests of the binding
// client. The object therefore has its own connection: a session manager that hangs must not keep
// the device from being hidden. If the session manager goes away without an answer, the daemon
// never listens to that connection again, and it is replaced. Finally, a binding must not be
// destroyed before it has been answered, because the daemon uses its memory once more.
class DefaultMetadata : public DefaultKeys {
 public:
  DefaultMetadata() = default;
  ~DefaultMetadata() override;
  DefaultMetadata(const DefaultMetadata&) = delete;
  DefaultMetadata& operator=(const DefaultMetadata&) = delete;

  // The guard outlives this object.
  void follow(DefaultGuard& guard) { guard_ = &guard; }
  // Connects to the daemon at the socket `remote`. False, with errno set, when there is none or no
  // descriptor is left.
  // `onLost` is called when the daemon is gone.
  bool start(pw_context* context, std::string remote, std::function<void()> onLost);
  // Call before the context is destroyed.
  void stop();

  // Calls `action` when the guard knows the current keys, or after kAnswerLimit. If the session
  // manager hangs, the guard gets them later; if there is none, it gets nothing. Only one action
  // waits: that of the latest call of this or of afterWrites().
  void readAgain(std::function<void()> action);
  // Calls `action` when the daemon has passed all writes on to the session manager, or after
  // kAnswerLimit.
  void afterWrites(std::function<void()> action);
  // Reads the keys again after kSecondLook, in case a change was lost.
  void readAgainLater();

  static constexpr timespec kAnswerLimit{.tv_sec = 0, .tv_nsec = 200'000'000};
  static constexpr timespec kSecondLook{.tv_sec = 1, .tv_nsec = 0};

  // Whether the session manager did not answer in time and has not answered since.
  [[nodiscard]] bool hangs() const { return hangs_; }
  // Whether there is a session manager whose last known keys use or configure the loopback.
  [[nodiscard]] bool isLoopbackDefault() const {
    return metadata_ && (isLoopbackConfigured_ || isLoopbackUsed_);
  }

  void setConfigured(const DefaultChoice& choice) override;
  void setEffective(const DefaultChoice& choice) override;

 private:
  // Where the object stands. disconnect() leads back to kUnbound from each of them.
  //   kUnbound       there is none, or it could not be bound       -> kReading
  //   kReading       bound; not all its keys have arrived          -> kReadingTwice, kKnown,
  //                                                                   kUnbound, kStuck
  //   kReadingTwice  likewise; they are read once more afterwards  -> kKnown, kUnbound, kStuck
  //   kKnown         all its keys have arrived, changes follow     -> kUnbound (also to be bound
  //                                                                   again)
  //   kStuck         the session manager went without an answer:
  //                  the daemon no longer listens to this
  //                  connection, which is about to be replaced     -> kUnbound
  enum class Phase { kUnbound, kReading, kReadingTwice, kKnown, kStuck };

  // The only function that changes the phase.
  void enter(Phase next);
  [[nodiscard]] bool isReading() const {
    return phase_ == Phase::kReading || phase_ == Phase::kReadingTwice;
  }

  // The keys as reported by a binding.
  struct Keys {
    DefaultChoice configured;
    DefaultChoice effective;
  };

  bool connect();
  void disconnect();
  void globalAppeared(std::uint32_t global, const char* type, const spa_dict* properties);
  void globalRemoved(std::uint32_t global);
  // Reads all keys; if they are already being read, reads them once more afterwards.
  void bind();
  void release();
  void set(const char* key, const DefaultChoice& choice);
  void propertyChanged(const char* key, const DefaultChoice& choice);
  void reportRead();
  // Calls `action` when the daemon has answered all requests so far, at the latest after
  // kAnswerLimit.
  void await(std::function<void()> action);
  void answered(int sequence);
  void answerIsLate();
  void runAwaited();
  void lookAgain();

  DefaultGuard* guard_ = nullptr;
  std::function<void()> onLost_;
  pw_context* context_ = nullptr;
  std::string remote_;
  pw_loop* loop_ = nullptr;
  CorePtr core_;
  BoundProxy registry_;

  std::uint32_t global_ = SPA_ID_INVALID;
  BoundProxy metadata_;
  Phase phase_ = Phase::kUnbound;
  bool hangs_ = false;
  bool hadConfigured_ = false;  // since the session manager appeared
  int readSequence_ = 0;
  Keys read_;
  bool isLoopbackConfigured_ = false;
  bool isLoopbackUsed_ = false;

  int awaitedSequence_ = 0;
  std::function<void()> awaited_;
  LoopSource limitTimer_;
  LoopSource laterTimer_;
};

}  // namespace loopback
