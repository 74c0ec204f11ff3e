// SPDX-License-Identifier: MIT
#pragma once

#include <gio/gio.h>

#include <functional>
#include <string>
#include <vector>

#include "hosts/linux/base/main_thread.h"
#include "hosts/linux/workspace/file_icons.h"
#include "platform/application.h"

namespace linux_host {

// The user's desktop: opens and shows files with what is set up there. Nothing waits for another
// program: calls return at once, and a failure that shows later is logged. Main thread.
class DesktopWorkspace : public platform::Workspace {
 public:
  // `bus` may be null. `iconFile` finds the file of an image, empty when there is none. `takeToken`
  // gives the desktop's leave to bring a window forward, for the program that opens or shows
  // something; empty when there is none.
  DesktopWorkspace(
      GDBusConnection* bus, std::function<std::string(const platform::ImagePtr&)> iconFile,
      std::function<std::string()> takeToken = [] { return std::string(); });

  // By the portal, else by the desktop's own default application. With a bus true means that the
  // file is there and the desktop was asked.
  bool openFile(const std::string& path) override;
  bool openURL(const std::string& url) override;
  // By the file manager; where none answers, the files' folders are opened instead.
  void activateFileViewerSelectingURLs(const std::vector<std::string>& fileURLs) override;
  // In the background; false when the image has no file. `options` mean nothing here.
  bool setIcon(const platform::ImagePtr& image, const std::string& forFile,
               unsigned options) override;
  bool openPrivacySettings() override;

  // Lets icons that are being set be set, for at most `timeout_ms`.
  void finish(int timeout_ms) { icons_.finish(timeout_ms); }

 private:
  MainThreadOnly mainThread_;
  GDBusConnection* const bus_;
  const std::function<std::string(const platform::ImagePtr&)> iconFile_;
  const std::function<std::string()> takeToken_;
  FileIcons icons_;
};

// Which program, with its arguments, shows the settings of `desktop` (as XDG_CURRENT_DESKTOP has
// it) for microphones; empty when `isInstalled` knows none.
std::vector<std::string> privacySettingsCommand(
    const std::string& desktop, const std::function<bool(const std::string&)>& isInstalled);

}  // namespace linux_host
