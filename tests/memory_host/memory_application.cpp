// SPDX-License-Identifier: MIT
#include "tests/memory_host/memory_application.h"

#include <algorithm>
#include <cstring>

#include "platform/file_url.h"

namespace memory_host {

using platform::noErr;
using platform::OSStatus;

namespace {

// The reference stands for no authorization; the right was not granted.
constexpr OSStatus kNoAuthorization = -60002;
constexpr OSStatus kDenied = -60005;

// Of Apple events.
constexpr OSStatus kWrongParameter = -50;
constexpr OSStatus kNoSuchProcess = -600;
constexpr OSStatus kWrongDataType = -1703;
constexpr OSStatus kNoEvent = -1704;
constexpr OSStatus kEventNotHandled = -1708;
constexpr std::uint32_t kEventType = platform::fourCharCode("aevt");

int lastButton(const platform::Alert& alert) {
  const int buttons = static_cast<int>(alert.buttons.size());
  return platform::kAlertFirstButtonReturn + std::max(buttons - 1, 0);
}

}  // namespace

void MemoryApplication::note(const std::string& entry) {
  journal.push_back(entry);
  timeline_.add(entry);
}

void MemoryApplication::setActivationPolicy(platform::ActivationPolicy newPolicy) {
  policy = newPolicy;
  onPolicy(newPolicy);
  note("setActivationPolicy " + std::to_string(static_cast<int>(newPolicy)));
}

void MemoryApplication::setApplicationIconImage(const platform::ImagePtr& image) {
  iconName = image ? image->name : "";
  note("setApplicationIconImage " + iconName);
}

void MemoryApplication::activateIgnoringOtherApps(bool ignoringOtherApps) {
  note(std::string("activateIgnoringOtherApps ") + (ignoringOtherApps ? "YES" : "NO"));
}

void MemoryApplication::terminate() {
  ++terminateCount;
  note("terminate");
  if (ended || asking_ || delegate == nullptr) return;
  asking_ = true;
  const platform::TerminateReply reply = delegate->applicationShouldTerminate();
  asking_ = false;
  if (reply == platform::TerminateReply::kNow) {
    ended = true;
    delegate->applicationWillTerminate();
  } else if (alerts_.isWaiting()) {
    alerts_.dismiss();
    runLoop_.performAfterDelay(0, [this] { terminate(); });
  }
}

void MemoryApplication::launch(const std::vector<std::string>& pathsToOpen) {
  delegate->applicationWillFinishLaunching();
  for (const std::string& path : pathsToOpen) {
    if (!ended) delegate->application(path);
  }
  if (!ended) delegate->applicationDidFinishLaunching();
}

platform::ImagePtr MemoryApplication::imageNamed(const std::string& name) {
  if (missingImages.contains(name)) return nullptr;
  return std::make_shared<platform::Image>(platform::Image{name});
}

int MemoryAlerts::runModal(const platform::Alert& alert) {
  if (!hasScreen) return lastButton(alert);
  shown.push_back(alert);
  timeline_.add("alert " + alert.messageText);
  waiting_ = true;
  dismissed_ = false;
  runLoop_.hold();
  if (onShow) onShow(alert);
  runLoop_.release();
  waiting_ = false;
  timeline_.add("dismissed");
  if (dismissed_) return lastButton(alert);
  if (answers.empty()) return platform::kAlertFirstButtonReturn;
  const int answer = answers.front();
  answers.erase(answers.begin());
  return answer;
}

bool MemoryWorkspace::openFile(const std::string& path) {
  if (!hasApplications || !files_.fileExists(path)) return false;
  opened.push_back(path);
  timeline_.add("openFile " + path);
  return true;
}

bool MemoryWorkspace::openURL(const std::string& url) {
  if (const auto path = platform::pathWithFileURL(url)) return openFile(*path);
  if (url.find(':') == std::string::npos) return false;
  openedURLs.push_back(url);
  return true;
}

void MemoryWorkspace::activateFileViewerSelectingURLs(const std::vector<std::string>& fileURLs) {
  revealed.push_back(fileURLs);
}

bool MemoryWorkspace::setIcon(const platform::ImagePtr& image, const std::string& forFile,
                              unsigned options) {
  icons.push_back({image ? image->name : "", forFile, options});
  timeline_.add("setIcon " + icons.back().image + " " + forFile);
  return setIconResult;
}

void MemoryUserNotificationCenter::deliverNotification(
    const platform::UserNotificationPtr& notification) {
  const auto target = delegate.lock();
  if (target && !target->userNotificationCenterShouldPresentNotification(*this, notification)) {
    return;
  }
  timeline_.add("deliver " + notification->informativeText);
  delivered.push_back(notification);
  showing.push_back(notification);
}

void MemoryUserNotificationCenter::removeDeliveredNotification(
    const platform::UserNotificationPtr& notification) {
  timeline_.add("removeDelivered " + notification->informativeText);
  std::erase(showing, notification);
}

void MemoryUserNotificationCenter::activate(const platform::UserNotificationPtr& notification,
                                            platform::UserNotificationActivationType type) {
  notification->activationType = type;
  if (const auto target = delegate.lock()) {
    target->userNotificationCenterDidActivateNotification(*this, notification);
  }
}

void MemoryWindow::changeVisibility(bool nowVisible) {
  if (visible == nowVisible) return;
  visible = nowVisible;
  if (const auto target = delegate.lock()) target->windowDidChangeOcclusionState();
}

void MemoryWindow::setCovered(bool isCovered) {
  const bool before = isOccluded();
  covered = isCovered;
  if (isOccluded() == before) return;
  if (const auto target = delegate.lock()) target->windowDidChangeOcclusionState();
}

void MemoryWindow::makeKeyAndOrderFront() {
  journal.push_back("makeKeyAndOrderFront");
  changeVisibility(true);
  becomeKey();
}

void MemoryWindow::orderFront() {
  journal.push_back("orderFront");
  changeVisibility(true);
}

void MemoryWindow::orderFrontRegardless() {
  journal.push_back("orderFrontRegardless");
  changeVisibility(true);
}

void MemoryWindow::orderOut() {
  journal.push_back("orderOut");
  changeVisibility(false);
}

void MemoryWindow::becomeKey() {
  if (const auto target = delegate.lock()) target->windowDidBecomeKey();
}

std::shared_ptr<platform::Window> MemoryInterfaceLoader::loadWindow(
    const std::string& interfaceFileName, platform::InterfaceOwner& owner) {
  loaded.push_back(interfaceFileName);
  if (recipe) return recipe(interfaceFileName, owner);
  windows.push_back(std::make_shared<MemoryWindow>());
  return windows.back();
}

void MemoryAuthorization::note(const std::string& entry) {
  journal.push_back(entry);
  if (timeline_ != nullptr) timeline_->add(entry);
}

OSStatus MemoryAuthorization::AuthorizationCreate(platform::AuthorizationFlags flags,
                                                  platform::AuthorizationRef* outAuthorization) {
  note("create " + std::to_string(flags));
  *outAuthorization = nullptr;
  if (createStatus != noErr) return createStatus;
  ++living;
  *outAuthorization = reinterpret_cast<platform::AuthorizationRef>(this);
  return noErr;
}

OSStatus MemoryAuthorization::AuthorizationCopyRights(platform::AuthorizationRef authorization,
                                                      const std::string& right,
                                                      platform::AuthorizationFlags flags) {
  note("copyRights " + right + " " + std::to_string(flags));
  if (authorization == nullptr) return kNoAuthorization;
  const bool isKnown = right == platform::kAuthorizationRightAdmin;
  const OSStatus status = isKnown ? copyRightsStatus : kDenied;
  hasRight_ = status == noErr;
  return status;
}

OSStatus MemoryAuthorization::AuthorizationExecuteWithPrivileges(
    platform::AuthorizationRef authorization, const std::string& pathToTool,
    platform::AuthorizationFlags flags, const std::vector<std::string>& arguments) {
  note("execute " + pathToTool + " " + std::to_string(flags) + " " +
       std::to_string(arguments.size()));
  if (authorization == nullptr) return kNoAuthorization;
  if (!hasRight_) return kDenied;
  if (executeStatus != noErr) return executeStatus;
  started.push_back({pathToTool});
  started.back().insert(started.back().end(), arguments.begin(), arguments.end());
  return noErr;
}

OSStatus MemoryAuthorization::AuthorizationFree(platform::AuthorizationRef authorization) {
  note("free");
  if (authorization == nullptr) return kNoAuthorization;
  --living;
  hasRight_ = false;
  return noErr;
}

platform::AEDesc MemoryAppleEvents::make(std::uint32_t type, const void* data,
                                         std::size_t size_bytes) {
  ++living;
  const auto* bytes = static_cast<const std::byte*>(data);
  return {type, new Data(bytes, bytes + size_bytes)};
}

template <typename Record>
bool MemoryAppleEvents::read(const platform::AEDesc* descriptor, std::uint32_t type,
                             Record* record) {
  if (descriptor == nullptr || descriptor->descriptorType != type) return false;
  const auto* data = static_cast<const Data*>(descriptor->dataHandle);
  if (data == nullptr || data->size() != sizeof(Record)) return false;
  std::memcpy(record, data->data(), sizeof(Record));
  return true;
}

OSStatus MemoryAppleEvents::AECreateDesc(std::uint32_t typeCode, const void* data,
                                         std::size_t size_bytes, platform::AEDesc* result) {
  journal.push_back("createDesc " + std::to_string(typeCode));
  *result = {};
  if (createDescStatus != noErr) return createDescStatus;
  if (data == nullptr && size_bytes > 0) return kWrongParameter;
  if (size_bytes == sizeof lastTarget) std::memcpy(&lastTarget, data, size_bytes);
  *result = make(typeCode, data, size_bytes);
  return noErr;
}

OSStatus MemoryAppleEvents::AECreateAppleEvent(std::uint32_t eventClass, std::uint32_t eventID,
                                               const platform::AEDesc* target,
                                               std::int16_t returnID, std::int32_t transactionID,
                                               platform::AEDesc* result) {
  journal.push_back("createEvent " + std::to_string(eventClass) + " " + std::to_string(eventID) +
                    " " + std::to_string(returnID) + " " + std::to_string(transactionID));
  *result = {};
  if (target != nullptr) eventTarget = *target;
  if (createEventStatus != noErr) return createEventStatus;
  Event event{eventClass, eventID, {}};
  if (!read(target, platform::typeProcessSerialNumber, &event.target)) return kWrongDataType;
  *result = make(kEventType, &event, sizeof event);
  return noErr;
}

OSStatus MemoryAppleEvents::AESend(const platform::AEDesc* event, platform::AEDesc* reply,
                                   std::int32_t sendMode, std::int16_t sendPriority,
                                   std::int64_t timeout_ticks) {
  journal.push_back("send " + std::to_string(sendMode) + " " + std::to_string(sendPriority) + " " +
                    std::to_string(timeout_ticks));
  *reply = {};
  if (event != nullptr) sentEvent = *event;
  Event sent{};
  return read(event, kEventType, &sent) ? handle(sent) : kNoEvent;
}

OSStatus MemoryAppleEvents::handle(const Event& event) {
  if (event.target.highLongOfPSN != 0 || event.target.lowLongOfPSN != platform::kSystemProcess) {
    return kNoSuchProcess;
  }
  if (event.eventClass != platform::kCoreEventClass || event.eventID != platform::kAERestart) {
    return kEventNotHandled;
  }
  ++restarts;
  return sendStatus;
}

OSStatus MemoryAppleEvents::AEDisposeDesc(platform::AEDesc* descriptor) {
  journal.push_back("dispose " + std::to_string(descriptor->descriptorType));
  if (descriptor->dataHandle != nullptr) --living;
  delete static_cast<Data*>(descriptor->dataHandle);
  *descriptor = {};
  return noErr;
}

}  // namespace memory_host
