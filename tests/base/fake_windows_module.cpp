// SPDX-License-Identifier: MIT
#include "tests/base/fake_windows_module.h"

#include <string_view>

#include "hosts/linux/windows/windows_module.h"

// A windows module without a toolkit. It shows nothing and answers alerts with their first button.

namespace {

class FakeModule : public linux_host::WindowsModule,
                   public platform::Cursor,
                   public platform::SystemColors {
 public:
  int runModal(const platform::Alert&) override { return platform::kAlertFirstButtonReturn; }
  void raiseAlert() override {}
  void dismissAlerts() override {}
  std::shared_ptr<platform::Window> loadWindow(const std::string&,
                                               platform::InterfaceOwner&) override {
    return nullptr;
  }
  platform::Cursor& cursor() override { return *this; }
  platform::SystemColors& systemColors() override { return *this; }
  void setPointingHand() override {}
  [[nodiscard]] std::optional<platform::Color> linkColor() const override {
    return std::string_view(FAKE_TOOLKIT) == "gtk" ? base_test::kLinksOfFakeGtk
                                                   : base_test::kLinksOfFakeQt;
  }
};

}  // namespace

extern "C" __attribute__((visibility("default"))) linux_host::WindowsModule*
record_audio_create_windows_module(linux_host::WindowsServices&, std::string* error) {
  // As a toolkit that cannot reach its screen.
  const char* refused = std::getenv("FAKE_TOOLKIT_WITHOUT_SCREEN");
  if (refused != nullptr && std::string_view(refused) == FAKE_TOOLKIT) {
    *error = "no screen for it";
    return nullptr;
  }
  return new FakeModule;
}
