// SPDX-License-Identifier: MIT
#pragma once

#include <pipewire/extensions/metadata.h>
#include <pipewire/pipewire.h>

#include <cstdint>
#include <functional>
#include <string>

#include "driver/bound_proxy.h"
#include "driver/default_guard.h"

namespace loopback {

// The session manager's metadata object with the default devices, as long as there is one, for a
// guard that follows it. Loop thread.
//
// Its changes cannot be relied on. While the daemon waits for the session manager's first answer to
// a client that binds the object, it tells the other clients nothing, and if such a client dies
// before the answer, it never tells them anything again. What a bind itself reports is complete. So
// whoever decides by the keys reads them again first.
//
// The daemon also holds back everything else that a binding client asks for until the session
// manager answers. The object therefore has a connection of its own: a session manager that hangs
// must not keep the device from being hidden. And if the session manager goes without an answer,
// the daemon never listens to that connection again; it is then replaced. Last, a binding must not
// be destroyed before it has been answered: the daemon uses its memory once more.
class DefaultMetadata : public DefaultKeys {
 public:
  DefaultMetadata() = default;
  ~DefaultMetadata() override;
  DefaultMetadata(const DefaultMetadata&) = delete;
  DefaultMetadata& operator=(const DefaultMetadata&) = delete;

  // The guard outlives this.
  void follow(DefaultGuard& guard) { guard_ = &guard; }
  // Connects to the daemon whose socket `remote` is. False, with errno set, when there is none.
  // `onLost` is called when there is none any more.
  bool start(pw_context* context, std::string remote, std::function<void()> onLost);
  // Before the context goes.
  void stop();

  // Calls `action` when the guard knows the keys as they are now, or in kAnswerLimit: a session
  // manager that hangs tells the guard later, one that is away tells it nothing. One action waits
  // at a time, that of the latest call of this or of afterWrites().
  void readAgain(std::function<void()> action);
  // Calls `action` when the daemon has passed all that was set on to the session manager, or in
  // kAnswerLimit.
  void afterWrites(std::function<void()> action);
  // For changes that were lost: reads the keys again in kSecondLook.
  void readAgainLater();

  static constexpr timespec kAnswerLimit{.tv_sec = 0, .tv_nsec = 200'000'000};
  static constexpr timespec kSecondLook{.tv_sec = 1, .tv_nsec = 0};

  // Whether the session manager has not answered in time and not since.
  [[nodiscard]] bool hangs() const { return hangs_; }
  // Whether there is one that was last heard to use the loopback, or to be told to.
  [[nodiscard]] bool isLoopbackDefault() const {
    return metadata_ && (isLoopbackConfigured_ || isLoopbackUsed_);
  }

  void setConfigured(const DefaultChoice& choice) override;
  void setEffective(const DefaultChoice& choice) override;

 private:
  // The keys as a binding reports them.
  struct Keys {
    DefaultChoice configured;
    DefaultChoice effective;
  };

  bool connect();
  void disconnect();
  void globalAppeared(std::uint32_t global, const char* type, const spa_dict* properties);
  void globalRemoved(std::uint32_t global);
  // Reads all keys; once more if they are being read already.
  void bind();
  void release();
  void set(const char* key, const DefaultChoice& choice);
  void propertyChanged(const char* key, const DefaultChoice& choice);
  void reportRead();
  // Calls `action` at the daemon's answer to all that was asked of it so far, at the latest in
  // kAnswerLimit.
  void await(std::function<void()> action);
  void answered(int sequence);
  void answerIsLate();
  void runAwaited();
  void lookAgain();
  void startTimer(spa_source* timer, timespec delay);

  DefaultGuard* guard_ = nullptr;
  std::function<void()> onLost_;
  pw_context* context_ = nullptr;
  std::string remote_;
  pw_loop* loop_ = nullptr;
  pw_core* core_ = nullptr;
  pw_registry* registry_ = nullptr;
  spa_hook coreListener_{};
  spa_hook registryListener_{};

  std::uint32_t global_ = SPA_ID_INVALID;
  BoundProxy metadata_;
  bool isReading_ = false;  // bound, not answered yet
  bool mustReadAgain_ = false;
  bool hangs_ = false;
  bool isStuck_ = false;        // the daemon does not listen to this connection any more
  bool hadConfigured_ = false;  // since the session manager appeared
  int readSequence_ = 0;
  Keys read_;
  bool isLoopbackConfigured_ = false;
  bool isLoopbackUsed_ = false;

  int awaitedSequence_ = 0;
  std::function<void()> awaited_;
  spa_source* limitTimer_ = nullptr;
  spa_source* laterTimer_ = nullptr;
};

}  // namespace loopback
