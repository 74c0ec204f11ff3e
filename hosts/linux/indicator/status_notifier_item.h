// SPDX-License-Identifier: MIT
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "hosts/linux/indicator/dbus_menu.h"
#include "platform/thread_role.h"

namespace linux_host {

// An icon in the desktop's tray, through org.kde.StatusNotifierItem. It appears in every tray, even
// one that starts later or restarts. Main thread.
class StatusNotifierItem {
 public:
  struct Look {
    std::string iconName;
    std::string toolTipTitle;
    std::string toolTipText;  // plain text, lines by \n
    std::string label;        // beside the icon, in trays that support labels
    bool attention = false;   // the tray should not hide the icon
    friend bool operator==(const Look&, const Look&) = default;
  };
  struct Callbacks {
    std::function<void()> onActivate;          // a click
    std::function<void(int id)> onMenuChoice;  // an entry of the menu
    // Whether there is a tray; called once that is known, and at every change.
    std::function<void(bool present)> onTray;
    // The desktop's permission to bring a window forward, before a click or a choice.
    std::function<void(const std::string& token)> onActivationToken;
  };

  // `connection` outlives the item. `iconThemeFolder`: the folder with the program's own icons
  // (<folder>/hicolor/...), for trays that would not find them by name.
  StatusNotifierItem(GDBusConnection* connection, std::string id, std::string title,
                     std::string iconThemeFolder, Callbacks callbacks);
  ~StatusNotifierItem();
  StatusNotifierItem(const StatusNotifierItem&) = delete;
  StatusNotifierItem& operator=(const StatusNotifierItem&) = delete;

  // Puts the item into the tray or removes it. The removal waits a moment after the last change
  // that the tray was told of, as it may still be handling that; its questions are still answered
  // for a while.
  void setVisible(bool visible);
  // Whether the item is being removed and the tray still has it.
  [[nodiscard]] bool isLeaving() const { return phase_ == Phase::kLeaving && ownedName_ != 0; }
  // The tray is told after the current event, and only of what is different then.
  void setLook(const Look& look);
  void setMenu(std::vector<MenuItem> items);

 private:
  // The allowed changes; the end of the item leads to kHidden from each of them.
  //   kHidden   the item is not on the bus                       -> kShown
  //   kShown    it is, and has a name for as long as it is shown -> kLeaving
  //   kLeaving  trays are given the time for their last
  //             questions, first with the name, then without     -> kShown, kHidden
  enum class Phase { kHidden, kShown, kLeaving };

  // The only function that changes the phase.
  void enter(Phase next);

  static void onMethodCall(GDBusConnection* connection, const gchar* sender, const gchar* path,
                           const gchar* interfaceName, const gchar* method, GVariant* parameters,
                           GDBusMethodInvocation* invocation, gpointer self);
  static void onTrayAppeared(GDBusConnection* connection, const gchar* name, const gchar* owner,
                             gpointer self);
  static void onTrayVanished(GDBusConnection* connection, const gchar* name, gpointer self);

  void act(std::string_view method, GVariant* parameters, GDBusMethodInvocation* invocation);
  void askForProperties(std::string_view method, GVariant* parameters,
                        GDBusMethodInvocation* invocation);
  // Answers those who have asked for all properties.
  void answerWaiting();
  void show();
  void leave();
  void giveUpName();
  void releaseName();
  void exportObjects();
  void withdrawObjects();
  // Once for each tray each time the item is shown: a tray may take a second registration for a new
  // item of the same name.
  void registerWithTray();
  void announce();
  [[nodiscard]] GVariant* property(const std::string& name) const;
  [[nodiscard]] GVariant* toolTip() const;
  void emit(const char* signal, GVariant* parameters = nullptr);

  platform::ThreadRole mainThread_{platform::ThreadRole::Holder::kMaker};
  GDBusConnection* const connection_;
  const std::string id_;
  const std::string title_;
  const std::string iconThemeFolder_;
  Callbacks callbacks_;
  Look look_;
  Look announced_;
  guint announcement_ = 0;
  std::vector<MenuItem> menuItems_;
  const NodeInfoPtr node_;
  guint watch_ = 0;
  bool trayPresent_ = false;
  Phase phase_ = Phase::kHidden;
  guint leaving_ = 0;           // the next step of kLeaving
  gint64 lastEmission_us_ = 0;  // on GLib's monotonic clock
  // While shown. The item has a bus name of its own: a tray forgets the item when that name goes,
  // while the program stays on the bus.
  guint ownedName_ = 0;
  bool hasName_ = false;  // the bus has given it
  std::string busName_;
  guint registration_ = 0;  // unless hidden
  std::vector<GDBusMethodInvocation*> waiting_;
  guint answering_ = 0;  // unless nobody waits
  std::unique_ptr<DBusMenu> menu_;
};

}  // namespace linux_host
