// SPDX-License-Identifier: MIT
#include "hosts/linux/authorization/system_bus.h"

#include <utility>

#include "hosts/linux/base/log.h"

namespace linux_host {
namespace {

struct Call {
  bool finished = false;
  SystemBus::Reply reply;
};

void onReply(GObject* connection, GAsyncResult* result, gpointer data) {
  auto* call = static_cast<Call*>(data);
  GError* error = nullptr;
  call->reply.value.reset(
      g_dbus_connection_call_finish(G_DBUS_CONNECTION(connection), result, &error));
  call->reply.error.reset(error);
  call->finished = true;
}

}  // namespace

bool SystemBus::connect() {
  mainThread_.assertHeld();
  if (connection_ != nullptr && !g_dbus_connection_is_closed(connection_.get())) return true;
  std::string address = address_;
  if (address.empty()) {
    const TextPtr found(g_dbus_address_get_for_bus_sync(G_BUS_TYPE_SYSTEM, nullptr, nullptr));
    if (found != nullptr) address = found.get();
  }
  auto connection = address.empty() ? Unexpected("the system has none")
                                    : connectTo(address, true, kBusTimeout_ms);
  if (!connection) {
    logMessage(LogLevel::kError, "cannot connect to the system bus: " + connection.error());
    return false;
  }
  connection_ = *std::move(connection);
  return true;
}

SystemBus::Reply SystemBus::call(const Method& method, GVariant* arguments, const char* resultType,
                                 int timeout_ms) {
  mainThread_.assertHeld();
  const VariantPtr owned(g_variant_ref_sink(arguments));
  Call call;
  if (!connect()) {
    call.reply.error.reset(
        g_error_new_literal(G_IO_ERROR, G_IO_ERROR_NOT_CONNECTED, "there is no system bus"));
    return std::move(call.reply);
  }
  g_dbus_connection_call(connection_.get(), method.service, method.object, method.interface,
                         method.name, owned.get(), G_VARIANT_TYPE(resultType),
                         G_DBUS_CALL_FLAGS_ALLOW_INTERACTIVE_AUTHORIZATION, timeout_ms, nullptr,
                         onReply, &call);
  while (!call.finished) g_main_context_iteration(nullptr, TRUE);
  return std::move(call.reply);
}

}  // namespace linux_host
