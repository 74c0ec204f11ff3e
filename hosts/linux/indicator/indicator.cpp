// SPDX-License-Identifier: MIT
#include "hosts/linux/indicator/indicator.h"

#include "hosts/linux/application/icons.h"
#include "hosts/linux/base/bundle.h"
#include "hosts/linux/power/login_session.h"

namespace linux_host {
namespace {

enum MenuId : int {
  kTimeItem = 1,
  kStopItem,
  kCancelItem,
  kFirstSeparator,
  kPreferencesItem,
  kQuitItem
};

constexpr const char* kLauncherInterface = "com.canonical.Unity.LauncherEntry";
constexpr const char* kLauncherPath = "/com/vantrel/korvel/RecordAudio/LauncherEntry";

}  // namespace

Indicator::Indicator(GDBusConnection* bus, Requests& requests, const platform::Bundle& strings,
                     std::string iconThemeFolder, std::function<void(bool present)> onTray)
    : bus_(bus),
      requests_(requests),
      strings_(strings),
      iconName_(kApplicationId),
      item_(bus, "record-audio", strings.localizedString("Record Audio"),
            std::move(iconThemeFolder),
            {[this] { requests_.activate(); }, [this](int id) { choose(id); }, std::move(onTray),
             [this](const std::string& token) { requests_.useActivationToken(token); }}) {
  refresh();
}

void Indicator::activationPolicyDidChange(platform::ActivationPolicy policy) {
  item_.setVisible(policy == platform::ActivationPolicy::kRegular);
}

void Indicator::applicationIconDidChange(const platform::ImagePtr& icon) {
  const std::string name = Icons::themeName(icon);
  iconName_ = name.empty() ? kApplicationId : name;
  refresh();
}

void Indicator::toolDataDidChange(const suite::ToolData& data) {
  menuText_ = data.menuText;
  recording_ = isRecording(data);
  refresh();
  refreshLauncher();
}

void Indicator::setUnderWay(bool underWay) {
  underWay_ = underWay;
  refresh();
}

void Indicator::setRemark(const std::string& remark) {
  remark_ = remark;
  refresh();
}

void Indicator::refresh() {
  mainThread_.assertHeld();
  std::string toolTip = menuText_;
  if (!remark_.empty()) toolTip += (toolTip.empty() ? "" : "\n") + remark_;
  item_.setLook({iconName_, text("Record Audio"), toolTip, menuText_, false});
  item_.setMenu(menu());
}

std::vector<MenuItem> Indicator::menu() const {
  const bool mayStop = recording_ || underWay_;
  return {
      {kTimeItem, menuText_.empty() ? text("Record Audio") : menuText_, false},
      {kStopItem, text("Stop"), mayStop},
      {kCancelItem, text("Cancel"), mayStop},
      {kFirstSeparator, "", true},
      // Opening the preferences stops and saves the recording.
      {kPreferencesItem, text(recording_ ? "Stop and Open Preferences…" : "Preferences…"), true},
      {kQuitItem, text("Quit"), true}};
}

void Indicator::choose(int id) {
  mainThread_.assertHeld();
  const auto ask = [this](const char* action) { requests_.action(action, [](RequestResult) {}); };
  switch (id) {
    case kStopItem:
      return ask("stop");
    case kCancelItem:
      return ask("cancel");
    case kPreferencesItem:
      return ask("preferences");
    case kQuitItem:
      return ask("quit");
    default:
      return;
  }
}

void Indicator::refreshLauncher() {
  if (urgent_ == recording_) return;
  urgent_ = recording_;
  const std::string application = std::string("application://") + kApplicationId + ".desktop";
  GVariantBuilder properties;
  g_variant_builder_init(&properties, G_VARIANT_TYPE_VARDICT);
  g_variant_builder_add(&properties, "{sv}", "urgent", g_variant_new_boolean(urgent_));
  g_dbus_connection_emit_signal(bus_, nullptr, kLauncherPath, kLauncherInterface, "Update",
                                g_variant_new("(sa{sv})", application.c_str(), &properties),
                                nullptr);
}

}  // namespace linux_host
