// SPDX-License-Identifier: MIT
#pragma once

#include <gio/gio.h>
#include <gtest/gtest.h>

#include <csignal>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "hosts/linux/bus/dbus_support.h"
#include "tests/base/private_bus.h"
#include "tests/base/temporary_folder.h"
#include "tests/support/child_process.h"

namespace desktop_test {

// The time limit for one step of another program of the desktop, on a busy machine.
inline constexpr int kStep_s = 15;

// Runs the default main context until the condition holds; false if that takes longer than kStep_s.
bool runUntil(const std::function<bool()>& done);

// A private session bus with a client's connection to it.
class DesktopTest : public ::testing::Test {
 protected:
  DesktopTest();
  ~DesktopTest() override;

  // Another connection, as another program would have.
  [[nodiscard]] linux_host::ConnectionPtr connectAgain() const;
  [[nodiscard]] const std::string& busAddress() const { return daemon_.address(); }

  // Calls while this process's main loop runs, so that it can answer its own calls. Null on
  // failure, with the error's text in *error.
  linux_host::VariantPtr call(GDBusConnection* from, const std::string& name, const char* path,
                              const char* interface, const char* method, GVariant* arguments,
                              std::string* error = nullptr);
  // A property as GVariant text; "error: " and the error's text on failure.
  std::string property(GDBusConnection* from, const std::string& name, const char* path,
                       const char* interface, const char* property);
  bool hasOwner(const std::string& name);

  base_test::TemporaryFolder folder_;
  base_test::PrivateBus daemon_;
  linux_host::ConnectionPtr bus_;     // the program's
  linux_host::ConnectionPtr client_;  // the other side's
};

// A virtual screen.
class Screen {
 public:
  // `folder` receives its files.
  explicit Screen(const std::string& folder);
  [[nodiscard]] std::string environment() const { return "DISPLAY=" + display_; }
  // Moves the pointer and presses a button there (1 left, 3 right), with the X server's own events.
  void click(int x, int y, int button) const;
  // The number of pixels in that part of the screen that differ from the first one.
  [[nodiscard]] int pixelsDrawnIn(int x, int y, int width, int height) const;
  struct Area {
    int x;
    int y;
    int width;
    int height;
  };
  // The topmost window other than the panel: an open menu.
  [[nodiscard]] std::optional<Area> popup() const;
  void savePicture(const std::string& path, const std::string& geometry) const;

 private:
  std::string output(const std::vector<std::string>& arguments) const;
  void run(const std::vector<std::string>& arguments) const;

  const std::string folder_;
  std::unique_ptr<test_support::ChildProcess> server_;
  std::string display_;
};

// An independent tray host: the LXQt panel with only its tray, at the bottom of the screen, its
// first icon in the left corner.
class Panel {
 public:
  static constexpr int kHeight_px = 32;
  // `folder` receives its files.
  Panel(const std::string& folder, const Screen& screen, const std::string& busAddress);
  void start();
  // Like a crash.
  void kill() { panel_->kill(); }

 private:
  const std::string folder_;
  const std::vector<std::string> environment_;
  std::unique_ptr<test_support::ChildProcess> panel_;
};

// An independent session manager that is not on the bus: the X Window System's own.
class XSessionManager {
 public:
  // `folder` receives its files.
  XSessionManager(const std::string& folder, const Screen& screen);
  // The environment of a program in its session, as names and values.
  [[nodiscard]] std::vector<std::pair<std::string, std::string>> environment() const;
  // Whether a program has registered as a client and set its properties.
  [[nodiscard]] bool hasClient() const;
  // Logs out without asking anybody.
  void endSession() { manager_->sendSignal(SIGTERM); }
  [[nodiscard]] bool isRunning() { return manager_->isRunning(); }
  [[nodiscard]] std::string log() const;

 private:
  const std::string folder_;
  std::unique_ptr<test_support::ChildProcess> manager_;
  std::string address_;
};

}  // namespace desktop_test
