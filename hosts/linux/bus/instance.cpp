// SPDX-License-Identifier: MIT
#include "hosts/linux/bus/instance.h"

#include <chrono>
#include <utility>

#include "hosts/linux/base/log.h"

namespace linux_host {
namespace {

constexpr guint32 kDoNotQueue = 4;
constexpr guint32 kPrimaryOwner = 1;
constexpr guint32 kAlreadyOwner = 4;
// How long a starting instance may take until it answers.
constexpr int kSocketTimeout_ms = 10000;
constexpr int kMostTries = 5;

void sayUnreachable(const std::string& why) {
  logOnce(LogLevel::kWarning, "unreachable",
          "This recording cannot be controlled from outside: " + why +
              " Stop it with Ctrl+C or SIGTERM.");
}

}  // namespace

Instance::Instance(SessionBus& bus, std::function<std::string()> temporaryDirectory)
    : bus_(bus), temporaryDirectory_(std::move(temporaryDirectory)) {}

Instance::~Instance() {
  if (closedHandler_ != 0) g_signal_handler_disconnect(bus_.connection(), closedHandler_);
}

ControlSocket* Instance::socket() {
  if (socket_ == nullptr && socketError_.empty()) {
    if (const auto folder = ControlSocket::safeFolder(temporaryDirectory_)) {
      socket_ = std::make_unique<ControlSocket>(*folder);
    } else {
      socketError_ = folder.error();
    }
  }
  return socket_.get();
}

Instance::Claim Instance::claim(ToolObject& object) {
  mainThread_.assertHeld();
  object_ = &object;
  if (bus_.connection() == nullptr) return claimSocket(object, bus_.error());
  // An instance that was started without a bus counts, too.
  if (socket() != nullptr && socket_->isHeldByOther()) return Claim::kOthers;
  return claimOnBus(object);
}

Instance::Claim Instance::claimOnBus(ToolObject& object) {
  // Before the name: a client that finds the name must find the object.
  if (closedHandler_ == 0) {
    const Status exported = object.exportOn(bus_.connection());
    if (!exported) return claimSocket(object, exported.error());
    closedHandler_ =
        g_signal_connect(bus_.connection(), "closed", G_CALLBACK(&Instance::onBusClosed), this);
  }
  GError* error = nullptr;
  const VariantPtr result(g_dbus_connection_call_sync(
      bus_.connection(), "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus",
      "RequestName", g_variant_new("(su)", kBusName, kDoNotQueue), G_VARIANT_TYPE("(u)"),
      G_DBUS_CALL_FLAGS_NONE, kBusTimeout_ms, nullptr, &error));
  if (error != nullptr) {
    const ErrorPtr owned(error);
    return claimSocket(object, owned->message);
  }
  const VariantPtr answer(g_variant_get_child_value(result.get(), 0));
  const guint32 code = g_variant_get_uint32(answer.get());
  ownsName_ = code == kPrimaryOwner || code == kAlreadyOwner;
  return ownsName_ ? Claim::kOurs : Claim::kOthers;
}

Instance::Claim Instance::claimSocket(ToolObject& object, const std::string& why) {
  logOnce(
      LogLevel::kWarning, "session bus",
      "There is no session bus (" + why +
          "): no notifications and no tray. --stop, --cancel and --status work through a socket.");
  if (socket() == nullptr) {
    sayUnreachable(socketError_);
    return Claim::kOurs;
  }
  const Expected<bool> isLocked = socket_->lock();
  if (isLocked && !*isLocked) return Claim::kOthers;
  const Status listens = isLocked ? socket_->listen(object) : Unexpected(isLocked.error());
  if (!listens) sayUnreachable(listens.error());
  return Claim::kOurs;
}

// The recording goes on; scripts reach it through the socket from now on.
void Instance::onBusClosed(GDBusConnection*, gboolean, GError*, gpointer self) {
  auto& instance = *static_cast<Instance*>(self);
  if (!std::exchange(instance.ownsName_, false)) return;
  instance.claimSocket(*instance.object_, "it has just gone");
}

std::optional<InstanceClient> Instance::find() {
  if (bus_.connection() != nullptr) {
    InstanceClient client = InstanceClient::onBus(bus_.connection());
    if (client.isRunning()) return client;
  }
  if (socket() == nullptr || !socket_->isHeldByOther()) return std::nullopt;
  auto connection = socket_->connect(kSocketTimeout_ms);
  if (!connection) return std::nullopt;
  return InstanceClient::onSocket(*std::move(connection));
}

void Instance::release() {
  mainThread_.assertHeld();
  if (!std::exchange(ownsName_, false)) return;
  g_dbus_connection_call(bus_.connection(), "org.freedesktop.DBus", "/org/freedesktop/DBus",
                         "org.freedesktop.DBus", "ReleaseName", g_variant_new("(s)", kBusName),
                         nullptr, G_DBUS_CALL_FLAGS_NONE, kBusTimeout_ms, nullptr, nullptr,
                         nullptr);
}

HandOver claimOrHandOver(Instance& instance, ToolObject& object,
                         const std::vector<std::string>& uris) {
  // A try that finds no instance is short; it is long if one is there but does not answer.
  const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(kSocketTimeout_ms);
  for (int i = 0; i < kMostTries; ++i) {
    if (instance.claim(object) == Instance::Claim::kOurs) return HandOver::kBecameInstance;
    auto client = instance.find();
    if (!client && std::chrono::steady_clock::now() >= end) break;
    if (!client) continue;
    const InstanceClient::Reply reply = uris.empty() ? client->activate() : client->open(uris);
    if (reply.outcome == InstanceClient::Outcome::kDone) return HandOver::kDelivered;
    if (reply.outcome != InstanceClient::Outcome::kNotRunning) {
      logMessage(LogLevel::kError, "Record Audio is already running and does not answer (" +
                                       reply.text + "). If it hangs, end it and start again.");
      return HandOver::kNotDelivered;
    }
  }
  logMessage(LogLevel::kError,
             "Record Audio is already running and cannot be reached. If it hangs, end it.");
  return HandOver::kNotDelivered;
}

}  // namespace linux_host
