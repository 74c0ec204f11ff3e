// SPDX-License-Identifier: MIT
#include <wayland-client.h>
#include <xdg-activation-v1-client-protocol.h>

#include <cstring>

#include "suite/suite.h"
#include "tests/windows/windows_fixture.h"

// In a Wayland session of its own, whose compositor brings a window forward for a token.

namespace linux_host {
namespace {

// Another program, to which the compositor gives a token for whoever shows it.
class Launcher {
 public:
  Launcher() : display_(wl_display_connect(nullptr)) {
    static constexpr wl_registry_listener kListener{
        [](void* self, wl_registry* registry, uint32_t name, const char* interface, uint32_t) {
          if (std::strcmp(interface, xdg_activation_v1_interface.name) != 0) return;
          static_cast<Launcher*>(self)->activation_ = static_cast<xdg_activation_v1*>(
              wl_registry_bind(registry, name, &xdg_activation_v1_interface, 1));
        },
        [](void*, wl_registry*, uint32_t) {}};
    wl_registry* const registry = wl_display_get_registry(display_);
    wl_registry_add_listener(registry, &kListener, this);
    wl_display_roundtrip(display_);
    wl_registry_destroy(registry);
  }
  ~Launcher() {
    xdg_activation_v1_destroy(activation_);
    wl_display_disconnect(display_);
  }
  Launcher(const Launcher&) = delete;
  Launcher& operator=(const Launcher&) = delete;

  std::string token() {
    std::string given;
    static constexpr xdg_activation_token_v1_listener kListener{
        [](void* text, xdg_activation_token_v1*, const char* token) {
          *static_cast<std::string*>(text) = token;
        }};
    xdg_activation_token_v1* const request = xdg_activation_v1_get_activation_token(activation_);
    xdg_activation_token_v1_add_listener(request, &kListener, &given);
    xdg_activation_token_v1_commit(request);
    wl_display_roundtrip(display_);
    xdg_activation_token_v1_destroy(request);
    return given;
  }

 private:
  wl_display* const display_;
  xdg_activation_v1* activation_ = nullptr;
};

class WaylandTest : public WindowsTest {
 protected:
  WaylandTest() {
    EXPECT_EQ(QApplication::platformName(), QStringLiteral("wayland"));
    load();
    window_->makeKeyAndOrderFront();
    EXPECT_TRUE(QTest::qWaitForWindowExposed(&dialog()));
  }
  static bool hasFocusSoon(const QWidget& window) {
    return QTest::qWaitFor([&] { return QGuiApplication::focusWindow() == window.windowHandle(); });
  }
};

TEST_F(WaylandTest, TheFolderDialogGetsTheWindowAsItsParent) {
  services().desktopChooser = [](const std::string&, const auto& done) { done({true, {}}); };
  const auto port = owner_.outlet<suite::OutputLocationButton>("outputLocation");
  port->handleOutputLocationChanged(
      [](bool, int, const std::optional<std::string>&, const platform::Dictionary&) {});
  EXPECT_THAT(services().dialogParent, testing::MatchesRegex("wayland:.+"));
}

TEST_F(WaylandTest, ATokenBringsTheWindowForwardAndLeavesTheEnvironmentAlone) {
  QWidget other;
  other.resize(100, 100);
  other.show();
  ASSERT_TRUE(hasFocusSoon(other));
  Launcher launcher;
  services().activationToken = launcher.token();
  ASSERT_FALSE(services().activationToken.empty());
  window_->orderFront();
  EXPECT_EQ(std::getenv("XDG_ACTIVATION_TOKEN"), nullptr);
  EXPECT_TRUE(hasFocusSoon(dialog()));
}

}  // namespace
}  // namespace linux_host
