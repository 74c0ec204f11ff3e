// SPDX-License-Identifier: MIT
#include <gmock/gmock.h>

#include <stdexcept>

#include "tests/desktop/desktop_fixture.h"
#include "tests/desktop/fake_shortcuts_portal.h"
#include "tests/e2e/tool_fixture.h"

// The built program with a key from the desktop.

namespace desktop_test {
namespace {

using ::testing::IsEmpty;

class ShortcutToolTest : public e2e::ToolFixture {
 protected:
  ShortcutToolTest() {
    auto client = linux_host::connectTo(server.busAddress(), true, linux_host::kBusTimeout_ms);
    if (!client) throw std::runtime_error(client.error());
    client_ = *std::move(client);
    portal_ = std::make_unique<FakeShortcutsPortal>(client_.get());
    plugInMicrophone();
  }
  ~ShortcutToolTest() override { portal_.reset(); }

  void wantKey() const {
    base_test::write(settingsFolder() + "/desktop.json", R"({"GlobalShortcut":true})");
  }
  // Waits for the tool's state while answering its calls to the portal.
  bool comesToState(const std::string& state) {
    return runUntil([&] {
      const e2e::Json now = status();
      return now.is_object() && now["state"] == state;
    });
  }
  bool hasKey() {
    return runUntil([&] {
      return !portal_->calls.empty() && portal_->calls.back().starts_with("BindShortcuts");
    });
  }

  linux_host::ConnectionPtr client_;
  std::unique_ptr<FakeShortcutsPortal> portal_;
};

TEST_F(ShortcutToolTest, TheKeyStopsTheRecordingAndStartsTheNext) {
  wantKey();
  auto tool = start();
  ASSERT_TRUE(hasKey());
  ASSERT_TRUE(comesToState("recording"));
  portal_->press();
  ASSERT_TRUE(comesToState("idle"));
  EXPECT_NE(onlyFileIn(musicFolder()), "");
  // Sooner it would count as the same press.
  e2e::waitSeconds(1);
  portal_->press();
  ASSERT_TRUE(comesToState("recording"));
  EXPECT_TRUE(endsAtOnce(*tool));
  EXPECT_EQ(filesIn(musicFolder()).size(), 2U);
  EXPECT_THAT(portal_->description, ::testing::Not(IsEmpty()));
}

TEST_F(ShortcutToolTest, NobodyIsAskedForAKeyTheyDoNotWant) {
  auto tool = start();
  ASSERT_TRUE(comesToState("recording"));
  EXPECT_TRUE(endsAtOnce(*tool));
  EXPECT_THAT(portal_->calls, IsEmpty());
}

TEST_F(ShortcutToolTest, APortalThatNeverAnswersDelaysNothing) {
  wantKey();
  portal_->behaviour.isSlow = true;
  auto tool = start();
  ASSERT_TRUE(comesToState("recording"));
  EXPECT_TRUE(endsAtOnce(*tool));
  EXPECT_EQ(filesIn(musicFolder()).size(), 1U);
}

}  // namespace
}  // namespace desktop_test
