// SPDX-License-Identifier: MIT
#pragma once

#include <memory>
#include <optional>
#include <string>

#include "platform/property_list.h"

namespace platform {

inline constexpr const char* kUserNotificationDefaultSoundName =
    "NSUserNotificationDefaultSoundName";

enum class UserNotificationActivationType : int {
  kNone = 0,
  kContentsClicked = 1,
  kActionButtonClicked = 2,
};

// A message to the user. A plain record; identity is that of the object.
struct UserNotification {
  std::optional<std::string> title;  // none: the application's name
  std::string informativeText;
  std::string details;  // more, shown below that text
  // A click on the notification itself does something. A second line of the text, if there is one,
  // asks for that click; a host leaves the line out where no click would arrive.
  bool hasContentsAction = false;
  bool hasActionButton = false;
  std::string actionButtonTitle;
  std::optional<std::string> soundName;  // none: silent
  Dictionary userInfo;
  // Set by the notification centre before it calls the delegate.
  UserNotificationActivationType activationType = UserNotificationActivationType::kNone;
};
using UserNotificationPtr = std::shared_ptr<UserNotification>;

class UserNotificationCenter;

// Called on the main thread.
class UserNotificationCenterDelegate {
 public:
  virtual ~UserNotificationCenterDelegate() = default;
  // Whether to show a notification while the application is the active one.
  virtual bool userNotificationCenterShouldPresentNotification(
      UserNotificationCenter& center, const UserNotificationPtr& notification) = 0;
  virtual void userNotificationCenterDidActivateNotification(
      UserNotificationCenter& center, const UserNotificationPtr& notification) = 0;
};

// Main thread. No call fails visibly: a missing notification service shows nothing. Free for the
// host: how a notification looks and sounds, how long it stays, and whether its button closes it.
class UserNotificationCenter {
 public:
  virtual ~UserNotificationCenter() = default;
  virtual void setDelegate(std::weak_ptr<UserNotificationCenterDelegate> delegate) = 0;
  virtual void deliverNotification(const UserNotificationPtr& notification) = 0;
  // Takes it from the screen and from the list; nothing when it is gone already.
  virtual void removeDeliveredNotification(const UserNotificationPtr& notification) = 0;
};

}  // namespace platform
