// SPDX-License-Identifier: MIT
#include "tests/fuzz/strange_bus.h"

#include <fcntl.h>
#include <gio/gunixfdlist.h>
#include <unistd.h>

#include <algorithm>
#include <thread>
#include <utility>

#include "tests/fuzz/fuzz_expect.h"

namespace fuzz {
namespace {

using linux_host::ObjectUnref;
using linux_host::VariantPtr;
using MessagePtr = std::unique_ptr<GDBusMessage, ObjectUnref>;

constexpr const char* kDaemon = "org.freedesktop.DBus";
constexpr const char* kDaemonPath = "/org/freedesktop/DBus";
constexpr const char* kOurs = ":1.9";
constexpr const char* kTheirs = ":1.1";
constexpr const char* kRegistry = "org.freedesktop.host.portal.Registry";
constexpr const char* kRequests = "/org/freedesktop/portal/desktop/request/1_9/";

// A bus does not pass on messages that GLib cannot read; such a message breaks the connection.
bool canBeSent(GDBusMessage* message) {
  constexpr guint32 kAnySerial = 1;
  g_dbus_message_set_serial(message, kAnySerial);
  gsize size_bytes = 0;
  guchar* blob = g_dbus_message_to_blob(message, &size_bytes,
                                        G_DBUS_CAPABILITY_FLAGS_UNIX_FD_PASSING, nullptr);
  if (blob == nullptr) return false;
  const MessagePtr read(g_dbus_message_new_from_blob(
      blob, size_bytes, G_DBUS_CAPABILITY_FLAGS_UNIX_FD_PASSING, nullptr));
  g_free(blob);
  return read != nullptr;
}

// The bus's own answer; `isThere`: whether the service is on the bus.
MessagePtr daemonReplyTo(GDBusMessage* call, bool isThere) {
  constexpr guint32 kDone = 1;
  constexpr guint32 kRunsAlready = 2;
  const std::string_view method = g_dbus_message_get_member(call);
  if (method == "GetNameOwner" && !isThere) {
    return MessagePtr(g_dbus_message_new_method_error_literal(
        call, "org.freedesktop.DBus.Error.NameHasNoOwner", "It is gone"));
  }
  GVariant* body = nullptr;
  if (method == "Hello") {
    body = g_variant_new("(s)", kOurs);
  } else if (method == "GetNameOwner") {
    body = g_variant_new("(s)", kTheirs);
  } else if (method == "NameHasOwner") {
    body = g_variant_new("(b)", isThere ? TRUE : FALSE);
  } else if (method == "StartServiceByName") {
    body = g_variant_new("(u)", kRunsAlready);
  } else if (method == "RequestName" || method == "ReleaseName") {
    body = g_variant_new("(u)", kDone);
  } else if (method.starts_with("List")) {
    body = g_variant_new_parsed("(['org.freedesktop.portal.Desktop'],)");
  }
  MessagePtr reply(g_dbus_message_new_method_reply(call));
  g_dbus_message_set_body(reply.get(), body != nullptr ? body : g_variant_new("()"));
  return reply;
}

void attachFiles(GDBusMessage* message, int count) {
  if (count == 0) return;
  const std::unique_ptr<GUnixFDList, ObjectUnref> list(g_unix_fd_list_new());
  const int file = open("/dev/null", O_RDONLY | O_CLOEXEC);
  for (int i = 0; i < count; ++i) g_unix_fd_list_append(list.get(), file, nullptr);
  close(file);
  g_dbus_message_set_unix_fd_list(message, list.get());
}

// The object path at which the caller of a portal waits for the user's answer; empty for other
// calls.
std::string requestOf(GDBusMessage* call) {
  GVariant* body = g_dbus_message_get_body(call);
  const gsize arguments = body == nullptr ? 0 : g_variant_n_children(body);
  if (arguments == 0) return {};
  const VariantPtr options(g_variant_get_child_value(body, arguments - 1));
  const gchar* token = nullptr;
  if (!g_variant_is_of_type(options.get(), G_VARIANT_TYPE_VARDICT) ||
      !g_variant_lookup(options.get(), "handle_token", "&s", &token)) {
    return {};
  }
  return std::string(kRequests) + token;
}

MessagePtr replyTo(GDBusMessage* call, const Step& step) {
  MessagePtr reply(g_dbus_message_new_method_reply(call));
  g_dbus_message_set_sender(reply.get(), kTheirs);
  g_dbus_message_set_body(reply.get(), step.value.get());
  if (step.kind == Step::Kind::kError) {
    g_dbus_message_set_message_type(reply.get(), G_DBUS_MESSAGE_TYPE_ERROR);
    g_dbus_message_set_error_name(reply.get(), step.name);
  } else {
    attachFiles(reply.get(), step.descriptors);
  }
  if (canBeSent(reply.get())) return reply;
  return MessagePtr(g_dbus_message_new_method_error_literal(
      call, "org.freedesktop.DBus.Error.Failed", "It is no message"));
}

}  // namespace

long Script::count(std::string_view signal, const char* type) const {
  return std::count_if(steps.begin(), steps.end(), [&](const Step& step) {
    return step.kind == Step::Kind::kSignal && step.name == signal &&
           g_variant_is_of_type(step.value.get(), G_VARIANT_TYPE(type));
  });
}

GVariant* Script::firstAnswer(const char* type) const {
  for (const Step& step : steps) {
    if (step.kind == Step::Kind::kError) return nullptr;
    if (step.kind != Step::Kind::kAnswer) continue;
    return g_variant_is_of_type(step.value.get(), G_VARIANT_TYPE(type)) ? step.value.get()
                                                                        : nullptr;
  }
  return nullptr;
}

StrangeBus::StrangeBus() : address_("unix:abstract=record-audio-fuzz-" + std::to_string(getpid())) {
  std::promise<void> isListening;
  // Connects and answers while the main thread waits.
  std::thread([this, &isListening] { serve(isListening); }).detach();
  isListening.get_future().wait();
}

void StrangeBus::serve(std::promise<void>& isListening) {
  GMainContext* context = g_main_context_new();
  g_main_context_push_thread_default(context);
  gchar* guid = g_dbus_generate_guid();
  GDBusServer* server = g_dbus_server_new_sync(
      address_.c_str(),
      static_cast<GDBusServerFlags>(G_DBUS_SERVER_FLAGS_RUN_IN_THREAD |
                                    G_DBUS_SERVER_FLAGS_AUTHENTICATION_REQUIRE_SAME_USER),
      guid, nullptr, nullptr, nullptr);
  g_free(guid);
  expect(server != nullptr, "a socket to listen on");
  g_signal_connect(server, "new-connection", G_CALLBACK(&StrangeBus::onConnection), this);
  g_dbus_server_start(server);
  isListening.set_value();
  while (true) g_main_context_iteration(context, TRUE);
}

gboolean StrangeBus::onConnection(GDBusServer*, GDBusConnection* connection, gpointer raw) {
  auto& self = *static_cast<StrangeBus*>(raw);
  const platform::MutexLock lock(self.mutex_);
  self.clients_.emplace_back(G_DBUS_CONNECTION(g_object_ref(connection)));
  g_dbus_connection_add_filter(connection, &StrangeBus::onMessage, raw, nullptr);
  return TRUE;
}

GDBusMessage* StrangeBus::onMessage(GDBusConnection* connection, GDBusMessage* message,
                                    gboolean isIncoming, gpointer raw) {
  if (isIncoming == FALSE) return message;
  const MessagePtr owned(message);
  static_cast<StrangeBus*>(raw)->receive(connection, message);
  return nullptr;
}

void StrangeBus::receive(GDBusConnection* connection, GDBusMessage* message) {
  if (g_dbus_message_get_message_type(message) != G_DBUS_MESSAGE_TYPE_METHOD_CALL) return;
  const bool isAsked =
      (g_dbus_message_get_flags(message) & G_DBUS_MESSAGE_FLAGS_NO_REPLY_EXPECTED) == 0;
  const gchar* to = g_dbus_message_get_destination(message);
  const platform::MutexLock lock(mutex_);
  if (to != nullptr && std::string_view(to) == kDaemon) {
    if (!isAsked) return;
    const MessagePtr reply = daemonReplyTo(message, isThere_);
    g_dbus_message_set_sender(reply.get(), kDaemon);
    g_dbus_connection_send_message(connection, reply.get(), G_DBUS_SEND_MESSAGE_FLAGS_NONE, nullptr,
                                   nullptr);
    return;
  }
  // Nothing depends on the portal's answer to this.
  const gchar* interface = g_dbus_message_get_interface(message);
  if (interface != nullptr && std::string_view(interface) == kRegistry) {
    const MessagePtr reply(g_dbus_message_new_method_error_literal(
        message, "org.freedesktop.DBus.Error.UnknownMethod", "There is none"));
    g_dbus_connection_send_message(connection, reply.get(), G_DBUS_SEND_MESSAGE_FLAGS_NONE, nullptr,
                                   nullptr);
    return;
  }
  if (std::string request = requestOf(message); !request.empty()) request_ = std::move(request);
  ++calls_;
  if (isAsked) answer(connection, message);
}

void StrangeBus::answer(GDBusConnection* connection, GDBusMessage* call) {
  static const Step kNothingLeft{Step::Kind::kError, nullptr, 0,
                                 "org.freedesktop.DBus.Error.Failed", false};
  const Step* step = &kNothingLeft;
  while (script_ != nullptr && next_ < script_->steps.size()) {
    const Step& next = script_->steps[next_++];
    if (next.kind == Step::Kind::kAnswer || next.kind == Step::Kind::kError) {
      step = &next;
      break;
    }
    send(next);
  }
  const MessagePtr reply = replyTo(call, *step);
  g_dbus_connection_send_message(connection, reply.get(), G_DBUS_SEND_MESSAGE_FLAGS_NONE, nullptr,
                                 nullptr);
}

void StrangeBus::send(const Step& step) {
  if (step.kind != Step::Kind::kSignal) {
    announce(step.kind == Step::Kind::kComes);
    return;
  }
  std::string own = *service_.path != '\0' ? service_.path : request_;
  if (step.path != nullptr) own = step.path;
  const char* interface = step.interface != nullptr ? step.interface : service_.interface;
  const std::string path = step.isElsewhere || own.empty() ? kOtherPath : own;
  const MessagePtr message(
      service_.callsOurs ? g_dbus_message_new_method_call(kOurs, path.c_str(), interface, step.name)
                         : g_dbus_message_new_signal(path.c_str(), interface, step.name));
  g_dbus_message_set_sender(message.get(), kTheirs);
  g_dbus_message_set_body(message.get(), step.value.get());
  if (canBeSent(message.get())) broadcast(message.get());
}

void StrangeBus::announce(bool isThere) {
  if (std::exchange(isThere_, isThere) == isThere) return;
  const MessagePtr message(g_dbus_message_new_signal(kDaemonPath, kDaemon, "NameOwnerChanged"));
  g_dbus_message_set_sender(message.get(), kDaemon);
  g_dbus_message_set_body(
      message.get(),
      g_variant_new("(sss)", service_.name, isThere ? "" : kTheirs, isThere ? kTheirs : ""));
  broadcast(message.get());
}

void StrangeBus::broadcast(GDBusMessage* message) {
  for (const auto& client : clients_) {
    // Each connection has its own serial numbers.
    const MessagePtr copy(g_dbus_message_copy(message, nullptr));
    g_dbus_connection_send_message(client.get(), copy.get(), G_DBUS_SEND_MESSAGE_FLAGS_NONE,
                                   nullptr, nullptr);
  }
}

void StrangeBus::play(const Service& service, std::shared_ptr<const Script> script) {
  const platform::MutexLock lock(mutex_);
  service_ = service;
  script_ = std::move(script);
  next_ = 0;
  isThere_ = true;
  request_.clear();
  calls_ = 0;
}

void StrangeBus::playRest() {
  const platform::MutexLock lock(mutex_);
  while (script_ != nullptr && next_ < script_->steps.size()) {
    const Step& step = script_->steps[next_++];
    if (step.kind != Step::Kind::kAnswer && step.kind != Step::Kind::kError) send(step);
  }
}

void StrangeBus::settle(GDBusConnection* client, int rounds) {
  for (int i = 0; i < rounds; ++i) {
    bool isThere = false;
    g_dbus_connection_call(
        client, kDaemon, kDaemonPath, kDaemon, "GetId", nullptr, nullptr, G_DBUS_CALL_FLAGS_NONE,
        G_MAXINT, nullptr,
        [](GObject* bus, GAsyncResult* result, gpointer flag) {
          const VariantPtr answer(
              g_dbus_connection_call_finish(G_DBUS_CONNECTION(bus), result, nullptr));
          expect(answer != nullptr, "a connection that still stands");
          *static_cast<bool*>(flag) = true;
        },
        &isThere);
    while (!isThere) g_main_context_iteration(nullptr, TRUE);
  }
}

}  // namespace fuzz
