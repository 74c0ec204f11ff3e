// SPDX-License-Identifier: MIT
#include "hosts/linux/windows_gtk/shortcut_row.h"

#include "hosts/linux/windows_gtk/message_dialog.h"

namespace linux_host {

namespace {

// A window on the screen keeps its height. Without a height it takes what its rows need, but not
// before it has got its first size from the desktop.
gboolean fitWindow(GtkWidget* row, GdkFrameClock*, gpointer) {
  GtkRoot* window = gtk_widget_get_root(row);
  if (window == nullptr) return G_SOURCE_REMOVE;
  if (gtk_widget_get_height(GTK_WIDGET(window)) == 0) return G_SOURCE_CONTINUE;
  gtk_window_set_default_size(GTK_WINDOW(window), gtk_widget_get_width(GTK_WIDGET(window)), -1);
  return G_SOURCE_REMOVE;
}

}  // namespace

ShortcutRow::ShortcutRow(const Parts& parts, WindowsServices& services)
    : services_(services), group_(parts.group), key_(parts.key), button_(parts.button) {
  handlers_.connect(parts.button, "clicked", [this] { choose(); });
  show({});
  services_.followShortcut([this](const Shortcut& shortcut) { show(shortcut); });
}

ShortcutRow::~ShortcutRow() {
  services_.followShortcut({});
}

GtkWindow* ShortcutRow::window() const {
  GtkRoot* root = group_.get() != nullptr ? gtk_widget_get_root(group_.get()) : nullptr;
  return root != nullptr ? GTK_WINDOW(root) : nullptr;
}

void ShortcutRow::show(const Shortcut& shortcut) {
  if (group_.get() == nullptr || key_.get() == nullptr || button_.get() == nullptr) return;
  setOffered(shortcut.offered);
  std::string key = services_.localizedString("None");
  if (shortcut.set) {
    key = shortcut.trigger.empty() ? services_.localizedString("See keyboard settings")
                                   : singleLine(shortcut.trigger);
  }
  if (shortcut.asking) key = services_.localizedString("One moment…");
  gtk_label_set_text(key_.get(), key.c_str());
  gtk_widget_set_tooltip_text(GTK_WIDGET(key_.get()), key.c_str());
  const std::string label = services_.localizedString(shortcut.set ? "Change…" : "Set Shortcut…");
  gtk_button_set_label(button_.get(), label.c_str());
  gtk_accessible_update_property(GTK_ACCESSIBLE(button_.get()), GTK_ACCESSIBLE_PROPERTY_DESCRIPTION,
                                 key.c_str(), -1);
  gtk_widget_set_sensitive(GTK_WIDGET(button_.get()), shortcut.asking ? FALSE : TRUE);
}

void ShortcutRow::setOffered(bool offered) {
  if ((gtk_widget_get_visible(group_.get()) != FALSE) == offered) return;
  gtk_widget_set_visible(group_.get(), offered ? TRUE : FALSE);
  gtk_widget_add_tick_callback(group_.get(), fitWindow, nullptr, nullptr);
}

void ShortcutRow::choose() {
  const std::weak_ptr<ShortcutRow*> row = self_;
  auto parent = std::make_unique<PortalParent>(window(), [row](const std::string& name) {
    if (const auto alive = row.lock()) (*alive)->askDesktop(name);
  });
  if (!row.expired()) parent_ = std::move(parent);
}

void ShortcutRow::askDesktop(const std::string& parentName) {
  services_.chooseShortcut(
      parentName, [row = std::weak_ptr<ShortcutRow*>(self_)](const ShortcutChoice& choice) {
        const auto alive = row.lock();
        if (alive == nullptr || choice.outcome != ShortcutChoice::Outcome::kFailed) return;
        (*alive)->tellFailure(choice.reason);
      });
}

void ShortcutRow::tellFailure(const std::string& reason) const {
  GtkWindow* message = newMessage(window(),
                                  {platform::AlertStyle::kWarning,
                                   services_.localizedString("The desktop has set no shortcut."),
                                   singleLine(reason),
                                   {},
                                   {}},
                                  services_, [](int) {});
  gtk_window_present(message);
}

}  // namespace linux_host
