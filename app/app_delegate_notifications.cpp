// SPDX-License-Identifier: MIT
#include <any>

#include "app/app_delegate.h"
#include "app/placeholder.h"
#include "platform/file_url.h"
#include "platform/host.h"
#include "shared/auxiliary.h"

// What the tool tells the user. Each notification keeps the process alive until its own timer
// removes it.

namespace record_audio {
namespace {

using platform::UserNotificationPtr;

constexpr double kNotificationLife_s = 10.0;
constexpr const char* kCancelKey = "Cancel";
constexpr const char* kOpenPathKey = "OpenPath";
constexpr const char* kFolderIsGone = "The folder %@ is not there.";
constexpr const char* kNotWritten = "Nothing could be written into the folder %@.";

UserNotificationPtr notificationOf(const platform::TimerPtr& timer) {
  return std::any_cast<UserNotificationPtr>(timer->userInfo());
}

// The saved file that the notification is about; null for other notifications.
const std::string* openPath(const platform::UserNotification& notification) {
  const auto entry = notification.userInfo.find(kOpenPathKey);
  return entry == notification.userInfo.end() ? nullptr : entry->second.as<std::string>();
}

UserNotificationPtr notificationWithSound() {
  auto notification = std::make_shared<platform::UserNotification>();
  notification->soundName = platform::kUserNotificationDefaultSoundName;
  return notification;
}

}  // namespace

void AppDelegate::showNotification(const UserNotificationPtr& notification) {
  mainThread_.assertHeld();
  if (!_running) return;
  host().userNotificationCenter.setDelegate(shared_from_this());
  host().userNotificationCenter.deliverNotification(notification);
  m_notificationTimers.push_back(
      host().runLoop.scheduledTimer(kNotificationLife_s, notification, false,
                                    [target = shared_from_this()](const platform::TimerPtr& timer) {
                                      target->timerNotificationQuitMethod(timer);
                                    }));
}

void AppDelegate::timerNotificationQuitMethod(const platform::TimerPtr& timer) {
  mainThread_.assertHeld();
  host().userNotificationCenter.removeDeliveredNotification(notificationOf(timer));
  std::erase(m_notificationTimers, timer);
  timer->invalidate();
  tryToQuit();
}

void AppDelegate::removeAllPreviousNotifications() {
  mainThread_.assertHeld();
  for (const platform::TimerPtr& timer : m_notificationTimers) {
    host().userNotificationCenter.removeDeliveredNotification(notificationOf(timer));
    timer->invalidate();
  }
  m_notificationTimers.clear();
}

void AppDelegate::withdrawStartNotifications() {
  for (const platform::TimerPtr& timer : m_notificationTimers) {
    const UserNotificationPtr notification = notificationOf(timer);
    if (!notification->userInfo.contains(kCancelKey)) continue;
    host().userNotificationCenter.removeDeliveredNotification(notification);
  }
}

void AppDelegate::showNotificationRecordStarted() {
  const auto notification = std::make_shared<platform::UserNotification>();
  notification->informativeText = localized("Starting a new audio recording.");
  notification->hasActionButton = true;
  notification->actionButtonTitle = localized("Cancel");
  notification->userInfo = {{kCancelKey, "Cancel"}};
  showNotification(notification);
}

void AppDelegate::showNotificationRecordCompleated(const std::string& filePath) {
  removeAllPreviousNotifications();
  const auto notification = notificationWithSound();
  if (host().fileManager.fileExists(filePath)) {
    notification->informativeText =
        localized("Audio recording is saved.\nClick here to show in Finder.");
    notification->hasContentsAction = true;
    notification->hasActionButton = true;
    notification->actionButtonTitle = localized("Open");
    notification->userInfo = {{kOpenPathKey, filePath}};
  } else {
    notification->informativeText = localized("Unable to save the record.");
    if (!unfinishedFile_.empty() && host().fileManager.fileExists(unfinishedFile_)) {
      const std::string& folder = m_recorder->desktopPath();
      const bool isThere = host().fileManager.fileExists(folder);
      const auto detail = [this](const char* key, const std::string& path) {
        return withFirstPlaceholder(localized(key), path);
      };
      notification->details =
          detail(isThere ? kNotWritten : kFolderIsGone, folder) + "\n" +
          detail("What was recorded is kept as %@. The next start of Record Audio saves it.",
                 unfinishedFile_);
    }
  }
  showNotification(notification);
}

void AppDelegate::showNotificationError() {
  mainThread_.assertHeld();
  hasFailedStart_ = session_ != SessionState::kRecording;
  const auto notification = notificationWithSound();
  const bool granted = Auxiliary::getStatusOfMediaType(host(), platform::MediaType::kAudio);
  notification->informativeText =
      localized(granted ? "An error has occurred. Audio file was not created."
                        : "Allow access to the microphone in the macOS Privacy settings.");
  showNotification(notification);
}

void AppDelegate::showNotificationNotHeard() {
  const auto notification = std::make_shared<platform::UserNotification>();
  notification->informativeText = localized("The sound is recorded, but you will not hear it.");
  showNotification(notification);
}

void AppDelegate::showNotificationRecordingRecovered(const std::string& filePath) {
  // No sound: it might be recorded.
  const auto notification = std::make_shared<platform::UserNotification>();
  notification->informativeText = localized("An interrupted recording was recovered.");
  notification->hasContentsAction = true;
  notification->hasActionButton = true;
  notification->actionButtonTitle = localized("Open");
  notification->userInfo = {{kOpenPathKey, filePath}};
  showNotification(notification);
}

bool AppDelegate::userNotificationCenterShouldPresentNotification(platform::UserNotificationCenter&,
                                                                  const UserNotificationPtr&) {
  return true;
}

void AppDelegate::userNotificationCenterDidActivateNotification(
    platform::UserNotificationCenter&, const UserNotificationPtr& notification) {
  mainThread_.assertHeld();
  using platform::UserNotificationActivationType;
  const std::string* path = openPath(*notification);
  switch (notification->activationType) {
    case UserNotificationActivationType::kActionButtonClicked:
      if (path != nullptr) {
        host().workspace.openFile(*path);
      } else if (notification->userInfo.contains(kCancelKey)) {
        cancelRecord();
      }
      break;
    case UserNotificationActivationType::kContentsClicked:
      if (path != nullptr) {
        host().workspace.activateFileViewerSelectingURLs({platform::fileURLWithPath(*path)});
      }
      break;
    case UserNotificationActivationType::kNone:
      break;
  }
}

}  // namespace record_audio
