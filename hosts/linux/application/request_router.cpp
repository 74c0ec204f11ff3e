// SPDX-License-Identifier: MIT
#include "hosts/linux/application/request_router.h"

#include <algorithm>
#include <array>
#include <cassert>
#include <string_view>
#include <utility>

#include "hosts/linux/base/json_values.h"

namespace linux_host {
namespace {

constexpr double kEndPoll_s = 0.02;
// A start that is never confirmed is given up earlier; this only keeps a caller from waiting
// forever.
constexpr int kMostEndPolls = 1500;
constexpr std::array<std::string_view, 4> kActions = {"preferences", "stop", "cancel", "quit"};

}  // namespace

// A caller that waits until a recording is over and its file is closed.
struct RequestRouter::Ending {
  std::function<void(RequestResult)> done;
  platform::TimerPtr timer;
  int polls = 0;
};

RequestRouter::RequestRouter(LinuxApplication& application, MainLoop& loop,
                             DispatchThreads& dispatch)
    : application_(application), loop_(loop), dispatch_(dispatch) {}

RequestRouter::~RequestRouter() {
  finish();
}

void RequestRouter::attach(std::shared_ptr<platform::ApplicationDelegate> delegate,
                           std::shared_ptr<platform::RemoteControl> remote,
                           std::string preferencesPath) {
  delegate_ = std::move(delegate);
  remote_ = std::move(remote);
  preferencesPath_ = std::move(preferencesPath);
}

void RequestRouter::setWindows(std::function<bool()> areVisible,
                               std::function<bool()> isAlertShowing, std::function<void()> raise) {
  areWindowsVisible_ = std::move(areVisible);
  isAlertShowing_ = std::move(isAlertShowing);
  raiseWindows_ = std::move(raise);
}

void RequestRouter::enter(Phase next) {
  assert(next > phase_);
  assert(next != Phase::kRunning || phase_ == Phase::kLaunching);
  phase_ = next;
}

void RequestRouter::launch(const std::vector<std::string>& pathsToOpen) {
  mainThread_.assertHeld();
  if (firstRequestTimer_ != nullptr) firstRequestTimer_->invalidate();
  enter(Phase::kLaunching);
  application_.launch(pathsToOpen);
  if (application_.hasTerminated()) return;
  enter(Phase::kRunning);
  const auto waiting = std::exchange(waiting_, {});
  for (const auto& request : waiting) request();
}

void RequestRouter::launchOnFirstRequest() {
  mainThread_.assertHeld();
  enter(Phase::kAwaitingFirst);
  firstRequestTimer_ = loop_.scheduledTimer(kFirstRequestWait_s, {}, false,
                                            [this](const platform::TimerPtr&) { endUnlaunched(); });
}

void RequestRouter::endUnlaunched() {
  mainThread_.assertHeld();
  if (phase_ == Phase::kAwaitingFirst) application_.terminate();
}

void RequestRouter::finish() {
  mainThread_.assertHeld();
  if (phase_ == Phase::kOver) return;
  enter(Phase::kOver);
  if (firstRequestTimer_ != nullptr) firstRequestTimer_->invalidate();
  const auto endings = endings_;
  for (const auto& ending : endings) complete(ending);
  waiting_.clear();
  delegate_.reset();
  remote_.reset();
}

void RequestRouter::whenRunning(std::function<void()> request) {
  mainThread_.assertHeld();
  // An alert during the launch may wait for a long time; other requests are still answered.
  const bool launchWaits = phase_ == Phase::kLaunching && isAlertShowing_();
  if (phase_ == Phase::kRunning || launchWaits) {
    if (!application_.hasTerminated()) request();
  } else if (phase_ != Phase::kOver) {
    waiting_.push_back(std::move(request));
  }
}

void RequestRouter::activate() {
  mainThread_.assertHeld();
  isClick_ = false;
  if (phase_ == Phase::kAwaitingFirst) {
    launch({});
    return;
  }
  whenRunning([this] {
    if (isAlertShowing_()) {
      raiseWindows_();
    } else {
      delegate_->applicationShouldHandleReopen(areWindowsVisible_());
    }
  });
}

void RequestRouter::open(const std::vector<std::string>& paths) {
  mainThread_.assertHeld();
  isClick_ = false;
  if (phase_ == Phase::kAwaitingFirst) {
    launch(paths);
    return;
  }
  // Before the launch begins, nothing can open a path.
  if (phase_ == Phase::kBefore) {
    waiting_.emplace_back([this, paths] { open(paths); });
    return;
  }
  if (phase_ == Phase::kOver || application_.hasTerminated()) return;
  for (const std::string& path : paths) delegate_->application(path);
  // The windows that it opened must not hide the alert.
  if (isAlertShowing_()) raiseWindows_();
}

void RequestRouter::showPreferences() {
  open({preferencesPath_});
}

void RequestRouter::action(const std::string& name, std::function<void(RequestResult)> done) {
  mainThread_.assertHeld();
  if (std::find(kActions.begin(), kActions.end(), name) == kActions.end()) {
    done(RequestResult::kUnknown);
    return;
  }
  const bool isClick = std::exchange(isClick_, false);
  if (phase_ == Phase::kAwaitingFirst && name == "quit") {
    done(RequestResult::kDone);
    endUnlaunched();
    return;
  }
  if (phase_ == Phase::kAwaitingFirst && name != "preferences") {
    done(RequestResult::kNothingToDo);
    // The process, and the notification with it, stays as long as it would have waited anyway.
    onNothingRecorded_();
    return;
  }
  if (name == "preferences") {
    showPreferences();
    done(RequestResult::kDone);
  } else if (name == "quit") {
    whenRunning([this, done = std::move(done)] {
      done(RequestResult::kDone);
      application_.terminate();
    });
  } else {
    whenRunning([this, saving = name == "stop", isClick, done = std::move(done)] {
      end(saving, [this, isClick, done](RequestResult result) {
        done(result);
        if (isClick && result == RequestResult::kNothingToDo) onNothingRecorded_();
      });
    });
  }
}

void RequestRouter::end(bool saving, const std::function<void(RequestResult)>& done) {
  // Registered before the call, because cancelling may terminate the application.
  const auto ending = std::make_shared<Ending>();
  ending->done = done;
  endings_.push_back(ending);
  if (saving ? remote_->stop() : remote_->cancel()) {
    awaitEnd(ending);
    return;
  }
  std::erase(endings_, ending);
  done(RequestResult::kNothingToDo);
}

bool RequestRouter::isBusy() const {
  const platform::Dictionary status = remote_->status();
  const auto state = status.find("state");
  const auto* name = state == status.end() ? nullptr : state->second.as<std::string>();
  return name != nullptr && (*name == "waiting" || *name == "starting" || *name == "recording");
}

// A pending start ends a little later, and its writers after it.
void RequestRouter::awaitEnd(const std::shared_ptr<Ending>& ending) {
  mainThread_.assertHeld();
  if (phase_ != Phase::kRunning) return;
  if (isBusy() && ++ending->polls < kMostEndPolls) {
    ending->timer = loop_.scheduledTimer(
        kEndPoll_s, {}, false, [this, ending](const platform::TimerPtr&) { awaitEnd(ending); });
    return;
  }
  dispatch_.whenIdleOnMain([this, ending] { complete(ending); });
}

void RequestRouter::complete(const std::shared_ptr<Ending>& ending) {
  mainThread_.assertHeld();
  if (std::erase(endings_, ending) == 0) return;
  if (ending->timer != nullptr) ending->timer->invalidate();
  ending->done(RequestResult::kDone);
}

void RequestRouter::status(std::function<void(const std::string& line)> done) {
  mainThread_.assertHeld();
  if (phase_ == Phase::kAwaitingFirst) {
    done(R"({"state":"idle","elapsedSeconds":0})");
    return;
  }
  whenRunning([this, done = std::move(done)] {
    done(jsonLine(jsonOf(platform::Value(remote_->status()))));
  });
}

}  // namespace linux_host
