// SPDX-License-Identifier: MIT
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <QAbstractItemView>
#include <QApplication>
#include <QComboBox>
#include <QDialog>
#include <QPushButton>
#include <QTest>
#include <QTimer>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "hosts/linux/windows/windows_module.h"
#include "tests/windows/fake_services.h"

// The windows module, loaded as in the program, on a virtual screen.

namespace linux_host {

// The direction that the module gave its windows when it was loaded.
Qt::LayoutDirection directionAtStart();

// The process's only module, with its only application.
WindowsModule& windowsModule();
FakeServices& services();

// Runs `act` from the event loop until it returns true: for modal dialogs, which block the code
// that opens them.
class InModalDialog {
 public:
  explicit InModalDialog(std::function<bool()> act);
  [[nodiscard]] bool done() const { return done_; }

 private:
  QTimer timer_;
  bool done_ = false;
};

// The preferences window, not shown yet, and the receiver of its actions.
class WindowsTest : public testing::Test {
 protected:
  WindowsTest();
  ~WindowsTest() override;

  void load();
  // Loads the window unless it is there, shows it and makes it active.
  void show();

  [[nodiscard]] QDialog& dialog() const;
  template <typename Widget = QWidget>
  [[nodiscard]] Widget& widget(const char* name) const {
    auto* found = dialog().findChild<Widget*>(QLatin1String(name));
    if (found == nullptr) throw std::runtime_error(std::string("no widget ") + name);
    return *found;
  }
  // Every widget named in the interface file, including its window.
  [[nodiscard]] std::vector<QWidget*> namedWidgets() const;
  // The text as the user sees it in the current language.
  [[nodiscard]] static QString text(const char* key) {
    return QString::fromStdString(services().localizedString(key));
  }

  FakeOwner owner_;
  std::shared_ptr<platform::Window> window_;
};

}  // namespace linux_host
