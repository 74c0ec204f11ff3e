// SPDX-License-Identifier: MIT
#pragma once

#include <gio/gio.h>

#include <functional>
#include <string>
#include <vector>

#include "hosts/linux/workspace/file_icons.h"
#include "platform/application.h"
#include "platform/thread_role.h"

namespace linux_host {

// The user's desktop: opens and shows files with the programs set up there. Nothing waits for
// another program: calls return at once, and later failures are logged. Main thread.
class DesktopWorkspace : public platform::Workspace {
 public:
  // `bus` may be null. `iconFile` returns the file of an image; empty when there is none.
  // `takeToken` returns the desktop's permission to bring a window forward, for the program that
  // opens or shows something; empty when there is none.
  DesktopWorkspace(
      GDBusConnection* bus, std::function<std::string(const platform::ImagePtr&)> iconFile,
      std::function<std::string()> takeToken = [] { return std::string(); });

  // Uses the file manager for a folder, the portal for other files, or else the desktop's default
  // application. With a bus, true means that the file exists and the desktop was asked.
  bool openFile(const std::string& path) override;
  bool openURL(const std::string& url) override;
  // Uses the file manager; if none answers, opens the files' folders instead.
  void activateFileViewerSelectingURLs(const std::vector<std::string>& fileURLs) override;
  // In the background; false when the image has no file. `options` are ignored.
  bool setIcon(const platform::ImagePtr& image, const std::string& forFile,
               unsigned options) override;
  bool openPrivacySettings() override;

  // Waits for pending icons, for at most `timeout_ms`.
  void finish(int timeout_ms) { icons_.finish(timeout_ms); }

 private:
  void openFolder(const std::string& url);

  platform::ThreadRole mainThread_{platform::ThreadRole::Holder::kMaker};
  GDBusConnection* const bus_;
  const std::function<std::string(const platform::ImagePtr&)> iconFile_;
  const std::function<std::string()> takeToken_;
  FileIcons icons_;
};

// The program, with its arguments, that shows the microphone settings of `desktop` (as in
// XDG_CURRENT_DESKTOP); empty when `isInstalled` finds none.
std::vector<std::string> privacySettingsCommand(
    const std::string& desktop, const std::function<bool(const std::string&)>& isInstalled);

}  // namespace linux_host
