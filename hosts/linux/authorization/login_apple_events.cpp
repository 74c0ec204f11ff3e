// SPDX-License-Identifier: MIT
#include "hosts/linux/authorization/login_apple_events.h"

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include "hosts/linux/base/log.h"

namespace linux_host {
namespace {

using platform::AEDesc;
using platform::OSStatus;
using platform::ProcessSerialNumber;

constexpr std::uint32_t kAppleEventType = platform::fourCharCode("aevt");
constexpr int kDefaultTimeout_ms = 60'000;
constexpr std::int64_t kTicksPerSecond = 60;
constexpr SystemBus::Method kReboot = {"org.freedesktop.login1", "/org/freedesktop/login1",
                                       "org.freedesktop.login1.Manager", "Reboot"};

using Data = std::vector<std::byte>;

struct Event {
  std::uint32_t eventClass;
  std::uint32_t eventID;
  ProcessSerialNumber target;
};

AEDesc describe(std::uint32_t type, const void* data, std::size_t size_bytes) {
  const auto* bytes = static_cast<const std::byte*>(data);
  return {type, new Data(bytes, bytes + size_bytes)};
}

template <typename Record>
bool read(const AEDesc& descriptor, Record* record) {
  const auto* data = static_cast<const Data*>(descriptor.dataHandle);
  if (data == nullptr || data->size() != sizeof(Record)) return false;
  std::memcpy(record, data->data(), sizeof(Record));
  return true;
}

int milliseconds(std::int64_t timeout_ticks) {
  if (timeout_ticks < 0) return kDefaultTimeout_ms;
  return static_cast<int>(std::min<std::int64_t>(timeout_ticks, G_MAXINT / 1000) * 1000 /
                          kTicksPerSecond);
}

OSStatus statusOf(const GError* error) {
  if (error == nullptr) return platform::noErr;
  for (const GDBusError absent : {G_DBUS_ERROR_SERVICE_UNKNOWN, G_DBUS_ERROR_NAME_HAS_NO_OWNER,
                                  G_DBUS_ERROR_SPAWN_SERVICE_NOT_FOUND}) {
    if (g_error_matches(error, G_DBUS_ERROR, absent)) return procNotFound;
  }
  if (g_error_matches(error, G_IO_ERROR, G_IO_ERROR_NOT_CONNECTED)) return procNotFound;
  if (g_error_matches(error, G_IO_ERROR, G_IO_ERROR_TIMED_OUT)) return errAETimeout;
  for (const GDBusError late : {G_DBUS_ERROR_NO_REPLY, G_DBUS_ERROR_TIMEOUT}) {
    if (g_error_matches(error, G_DBUS_ERROR, late)) return errAETimeout;
  }
  if (g_error_matches(error, G_DBUS_ERROR, G_DBUS_ERROR_ACCESS_DENIED)) return userCanceledErr;
  const TextPtr name(g_dbus_error_get_remote_error(error));
  const bool noAgent =
      g_strcmp0(name.get(), "org.freedesktop.DBus.Error.InteractiveAuthorizationRequired") == 0;
  return noAgent ? userCanceledErr : errAEEventNotHandled;
}

}  // namespace

OSStatus LoginAppleEvents::AECreateDesc(std::uint32_t typeCode, const void* data,
                                        std::size_t size_bytes, AEDesc* result) {
  *result = {};
  if (data == nullptr && size_bytes > 0) return paramErr;
  *result = describe(typeCode, data, size_bytes);
  return platform::noErr;
}

OSStatus LoginAppleEvents::AECreateAppleEvent(std::uint32_t eventClass, std::uint32_t eventID,
                                              const AEDesc* target, std::int16_t, std::int32_t,
                                              AEDesc* result) {
  *result = {};
  Event event{eventClass, eventID, {}};
  if (target == nullptr || target->descriptorType != platform::typeProcessSerialNumber ||
      !read(*target, &event.target)) {
    return errAEWrongDataType;
  }
  *result = describe(kAppleEventType, &event, sizeof(event));
  return platform::noErr;
}

OSStatus LoginAppleEvents::AESend(const AEDesc* event, AEDesc* reply, std::int32_t, std::int16_t,
                                  std::int64_t timeout_ticks) {
  if (reply != nullptr) *reply = {};
  Event sent{};
  if (event == nullptr || event->descriptorType != kAppleEventType || !read(*event, &sent)) {
    return errAENotAEDesc;
  }
  if (sent.target.highLongOfPSN != 0 || sent.target.lowLongOfPSN != platform::kSystemProcess) {
    return procNotFound;
  }
  if (sent.eventClass != platform::kCoreEventClass || sent.eventID != platform::kAERestart) {
    return errAEEventNotHandled;
  }
  return restart(timeout_ticks);
}

OSStatus LoginAppleEvents::restart(std::int64_t timeout_ticks) {
  constexpr gboolean kInteractive = TRUE;
  const SystemBus::Reply reply =
      bus_.call(kReboot, g_variant_new("(b)", kInteractive), "()", milliseconds(timeout_ticks));
  if (reply.error != nullptr) {
    logMessage(LogLevel::kError,
               std::string("the computer cannot be restarted: ") + reply.error->message);
  }
  return statusOf(reply.error.get());
}

OSStatus LoginAppleEvents::AEDisposeDesc(AEDesc* descriptor) {
  if (descriptor == nullptr) return paramErr;
  delete static_cast<Data*>(descriptor->dataHandle);
  *descriptor = {};
  return platform::noErr;
}

}  // namespace linux_host
