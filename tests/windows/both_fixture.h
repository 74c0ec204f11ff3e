// SPDX-License-Identifier: MIT
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>

#include "platform/controls.h"
#include "tests/windows/window_user.h"

namespace linux_host {

// The preferences window, not shown yet, and the receiver of its actions.
class BothTest : public testing::Test {
 protected:
  BothTest() { services().reset(); }
  ~BothTest() override { window_.reset(); }

  void load() {
    window_.reset();
    window_ = windowsModule().loadWindow("AudioPreferencesWindow", owner_);
    ASSERT_NE(window_, nullptr);
  }
  void show() {
    if (window_ == nullptr) load();
    window_->makeKeyAndOrderFront();
    ASSERT_TRUE(WindowUser::until([] { return user().seesWindow(); }));
  }
  static std::string text(const char* key) { return services().localizedString(key); }

  FakeOwner owner_;
  std::shared_ptr<platform::Window> window_;
};

}  // namespace linux_host
