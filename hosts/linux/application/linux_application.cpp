// SPDX-License-Identifier: MIT
#include "hosts/linux/application/linux_application.h"

#include <cassert>
#include <utility>

#include "hosts/linux/application/icons.h"

namespace linux_host {

LinuxApplication::LinuxApplication(MainLoop& loop) : loop_(loop) {}

void LinuxApplication::setDelegate(std::shared_ptr<platform::ApplicationDelegate> delegate) {
  delegate_ = std::move(delegate);
}

void LinuxApplication::addIndicatorObserver(IndicatorObserver& observer) {
  observers_.push_back(&observer);
  observer.activationPolicyDidChange(policy_);
  observer.applicationIconDidChange(icon_);
}

// The delegate may terminate from within each of these calls; the rest is skipped then.
void LinuxApplication::launch(const std::vector<std::string>& pathsToOpen) {
  mainThread_.assertHeld();
  if (phase_ == Phase::kNotLaunched) enter(Phase::kLaunched);
  delegate_->applicationWillFinishLaunching();
  for (const std::string& path : pathsToOpen) {
    if (!hasTerminated()) delegate_->application(path);
  }
  if (!hasTerminated()) delegate_->applicationDidFinishLaunching();
}

void LinuxApplication::run() {
  if (!hasTerminated()) loop_.run();
}

void LinuxApplication::terminate() {
  mainThread_.assertHeld();
  if (phase_ == Phase::kNotLaunched) {
    end();
    return;
  }
  if (phase_ != Phase::kLaunched) return;
  enter(Phase::kAsking);
  const platform::TerminateReply reply = delegate_->applicationShouldTerminate();
  if (phase_ == Phase::kAsking) enter(Phase::kLaunched);
  if (reply == platform::TerminateReply::kNow) {
    end();
  } else if (alerts_.isShowing()) {
    alerts_.dismiss();
    alerts_.afterwards([this] { terminate(); });
  }
}

void LinuxApplication::terminateRegardless() {
  terminate();
  mainThread_.assertHeld();
  if (!hasTerminated() && alerts_.isShowing()) {
    alerts_.afterwards([this] {
      mainThread_.assertHeld();
      end();
    });
  } else {
    end();
  }
}

void LinuxApplication::enter(Phase next) {
  assert(phase_ != Phase::kTerminated && next != Phase::kNotLaunched);
  assert(phase_ == Phase::kLaunched || next != Phase::kAsking);
  phase_ = next;
}

void LinuxApplication::end() {
  if (hasTerminated()) return;
  const bool wasLaunched = phase_ != Phase::kNotLaunched;
  enter(Phase::kTerminated);
  if (wasLaunched) delegate_->applicationWillTerminate();
  loop_.quit();
}

void LinuxApplication::setActivationPolicy(platform::ActivationPolicy policy) {
  mainThread_.assertHeld();
  if (std::exchange(policy_, policy) == policy) return;
  for (IndicatorObserver* observer : observers_) observer->activationPolicyDidChange(policy);
}

void LinuxApplication::setApplicationIconImage(const platform::ImagePtr& image) {
  mainThread_.assertHeld();
  icon_ = image;
  for (IndicatorObserver* observer : observers_) observer->applicationIconDidChange(image);
}

void LinuxApplication::activateIgnoringOtherApps(bool ignoringOtherApps) {
  if (ignoringOtherApps && onActivate_) onActivate_();
}

platform::ImagePtr LinuxApplication::imageNamed(const std::string& name) {
  return Icons::imageNamed(name);
}

}  // namespace linux_host
