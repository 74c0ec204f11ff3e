// SPDX-License-Identifier: MIT
#include "tests/windows/windows_fixture.h"

#include <dlfcn.h>
#include <unistd.h>

#include <cstdlib>
#include <stdexcept>

namespace linux_host {
namespace {

std::vector<std::string> environmentOfProcess() {
  std::vector<std::string> all;
  for (char** each = environ; *each != nullptr; ++each) all.emplace_back(*each);
  return all;
}

// Set in tests that run on an X server or a compositor of their own.
constexpr const char* kScreenVariable = "RA_WINDOWS_ON_SCREEN";

class ModuleEnvironment : public testing::Environment {
 public:
  void SetUp() override {
    if (std::getenv(kScreenVariable) == nullptr) {
      setenv("QT_QPA_PLATFORM", "offscreen", 1);
      unsetenv("DISPLAY");
      unsetenv("WAYLAND_DISPLAY");
    }
    void* library = dlopen(RA_WINDOWS_MODULE, RTLD_NOW | RTLD_LOCAL | RTLD_NODELETE);
    ASSERT_NE(library, nullptr) << dlerror();
    const auto create =
        reinterpret_cast<CreateWindowsModule>(dlsym(library, kCreateWindowsModuleSymbol));
    ASSERT_NE(create, nullptr);
    const auto before = environmentOfProcess();
    std::string error;
    module.reset(create(fakeServices, &error));
    ASSERT_NE(module, nullptr) << error;
    // Other threads of the program may be reading it.
    EXPECT_EQ(environmentOfProcess(), before);
    direction = QApplication::layoutDirection();
  }
  void TearDown() override { module.reset(); }

  FakeServices fakeServices;
  std::unique_ptr<WindowsModule> module;
  Qt::LayoutDirection direction = Qt::LeftToRight;
};

// GoogleTest owns it.
auto* const environment =
    static_cast<ModuleEnvironment*>(testing::AddGlobalTestEnvironment(new ModuleEnvironment));

}  // namespace

Qt::LayoutDirection directionAtStart() {
  return environment->direction;
}

WindowsModule& windowsModule() {
  return *environment->module;
}

FakeServices& services() {
  return environment->fakeServices;
}

InModalDialog::InModalDialog(std::function<bool()> act) {
  constexpr int kInterval_ms = 5;
  QObject::connect(&timer_, &QTimer::timeout, &timer_, [this, act = std::move(act)] {
    if (done_ || !act()) return;
    done_ = true;
    timer_.stop();
  });
  timer_.start(kInterval_ms);
}

WindowsTest::WindowsTest() {
  services().reset();
}

WindowsTest::~WindowsTest() {
  window_.reset();
  QApplication::setLayoutDirection(Qt::LeftToRight);
}

void WindowsTest::load() {
  window_.reset();
  window_ = windowsModule().loadWindow("AudioPreferencesWindow", owner_);
  ASSERT_NE(window_, nullptr);
}

void WindowsTest::show() {
  if (window_ == nullptr) load();
  window_->makeKeyAndOrderFront();
  ASSERT_TRUE(QTest::qWaitForWindowActive(&dialog()));
}

QDialog& WindowsTest::dialog() const {
  for (QWidget* top : QApplication::topLevelWidgets()) {
    if (top->objectName() == QStringLiteral("AudioPreferencesWindow")) {
      return static_cast<QDialog&>(*top);
    }
  }
  throw std::runtime_error("there is no preferences window");
}

std::vector<QWidget*> WindowsTest::namedWidgets() const {
  std::vector<QWidget*> named;
  for (QWidget* widget : dialog().findChildren<QWidget*>()) {
    if (!widget->objectName().isEmpty() && !widget->objectName().startsWith(u"qt_")) {
      named.push_back(widget);
    }
  }
  EXPECT_GT(named.size(), 10U) << "the window lacks its controls";
  return named;
}

}  // namespace linux_host
