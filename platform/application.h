// SPDX-License-Identifier: MIT
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "platform/property_list.h"

// The application object, its delegate, alerts, images and the workspace. Main thread only.

namespace platform {

// An image by its resource name; what it looks like is the host's. Null pointers mean "no image".
struct Image {
  std::string name;
};
using ImagePtr = std::shared_ptr<const Image>;

// The application's own icon.
inline constexpr const char* kImageNameApplicationIcon = "NSApplicationIcon";

enum class ActivationPolicy : int { kRegular = 0, kAccessory = 1, kProhibited = 2 };
enum class TerminateReply : int { kCancel = 0, kNow = 1, kLater = 2 };

// What a host calls on the way of an application from launch to end, in this order: will finish
// launching, any open-file requests that came with the launch, did finish launching, then the
// others as they come, will terminate last. One that ends the application within one of these calls
// is told of nothing more but the end.
class ApplicationDelegate {
 public:
  virtual ~ApplicationDelegate() = default;
  virtual void applicationWillFinishLaunching() = 0;
  // Another program asks to open a path. Whether it was taken. Free for the host: what becomes of
  // the answer.
  virtual bool application(const std::string& openFile) = 0;
  virtual void applicationDidFinishLaunching() = 0;
  // The user started the program again or clicked its Dock icon. The answer may be ignored.
  virtual bool applicationShouldHandleReopen(bool hasVisibleWindows) = 0;
  // May end a recording before it answers.
  virtual TerminateReply applicationShouldTerminate() = 0;
  virtual void applicationWillTerminate() = 0;
};

// Free for the host: what a policy, an icon and activation do on its desktop. Where they mean
// nothing, these calls do nothing.
class Application {
 public:
  virtual ~Application() = default;
  virtual void disableRelaunchOnLogin() = 0;
  // Regular: icon in the Dock; prohibited: none.
  virtual void setActivationPolicy(ActivationPolicy policy) = 0;
  virtual void setApplicationIconImage(const ImagePtr& image) = 0;
  virtual void activateIgnoringOtherApps(bool ignoringOtherApps) = 0;
  // Asks the delegate (applicationShouldTerminate) and, on "now", leaves the main loop; on any
  // other answer the application goes on, and may be asked again. If it answers "cancel" while an
  // alert waits, the alert is dismissed with its last button, and the delegate is asked again when
  // the event that showed the alert is over. Does nothing while the delegate is being asked, and
  // after the end.
  virtual void terminate() = 0;
  // Null when no resource of that name exists.
  virtual ImagePtr imageNamed(const std::string& name) = 0;
};

enum class AlertStyle : int { kWarning = 0, kInformational = 1, kCritical = 2 };
inline constexpr int kAlertFirstButtonReturn = 1000;
inline constexpr int kAlertExtraButtonReturn = -1;

struct Alert {
  AlertStyle style = AlertStyle::kWarning;
  std::string messageText;
  std::string informativeText;
  std::vector<std::string> buttons;  // none: one default button
  // Beside the others: takes the user where the alert points, and ends it. Empty: there is none.
  std::string extraButton;
};

class Alerts {
 public:
  virtual ~Alerts() = default;
  // Shows the alert and returns kAlertFirstButtonReturn + the index of the button pressed, or
  // kAlertExtraButtonReturn. While it waits for that, work for the main queue goes on, and with it
  // a recording, but no timer of the run loop fires: what is due meanwhile fires afterwards. A
  // request to reopen the application raises the alert instead of reaching the delegate, and is not
  // kept. Without a screen the alert is written to the log and answers as if it had been dismissed
  // with the last button. Free for the host: how an alert looks, and where its log is.
  virtual int runModal(const Alert& alert) = 0;
};

// No call waits for the program that it starts.
class Workspace {
 public:
  virtual ~Workspace() = default;
  // Opens with the default application, a folder in the file browser. False when nothing can be
  // opened, as far as that is known at once: there is no such file, or no application.
  virtual bool openFile(const std::string& path) = 0;
  // Likewise; a file's URL is that file, and what has no scheme is no URL.
  virtual bool openURL(const std::string& url) = 0;
  // Shows the files, selected, in the file browser. Free for the host: what it shows without one.
  virtual void activateFileViewerSelectingURLs(const std::vector<std::string>& fileURLs) = 0;
  // Sets the file's custom icon, or removes it with null; false on failure, as far as that is known
  // at once. `options` is 0. Free for the host: where such an icon is kept and seen.
  virtual bool setIcon(const ImagePtr& image, const std::string& forFile, unsigned options) = 0;
  // Opens the desktop's settings of who may use the microphone or, where there are none, of sound;
  // false when there are neither.
  virtual bool openPrivacySettings() = 0;
};

}  // namespace platform
