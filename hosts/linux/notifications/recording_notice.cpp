// SPDX-License-Identifier: MIT
#include "hosts/linux/notifications/recording_notice.h"

#include <string_view>
#include <utility>

#include "hosts/linux/base/bundle.h"
#include "hosts/linux/bus/dbus_support.h"
#include "hosts/linux/power/login_session.h"

namespace linux_host {
namespace {

constexpr const char* kNoticeServer = "org.freedesktop.Notifications";
constexpr const char* kNoticeServerPath = "/org/freedesktop/Notifications";
constexpr guchar kLowUrgency = 0;
constexpr int kNever = 0;

std::string timeOfDay() {
  GDateTime* now = g_date_time_new_now_local();
  gchar* text = g_date_time_format(now, "%R");
  std::string time = text;
  g_free(text);
  g_date_time_unref(now);
  return time;
}

std::string withFirstPlaceholder(std::string format, const std::string& value) {
  const std::size_t at = format.find("%@");
  if (at != std::string::npos) format.replace(at, 2, value);
  return format;
}

GVariant* hints() {
  GVariantBuilder builder;
  g_variant_builder_init(&builder, G_VARIANT_TYPE_VARDICT);
  const auto add = [&](const char* name, GVariant* value) {
    g_variant_builder_add(&builder, "{sv}", name, value);
  };
  add("desktop-entry", g_variant_new_string(kApplicationId));
  add("urgency", g_variant_new_byte(kLowUrgency));
  add("resident", g_variant_new_boolean(TRUE));
  add("suppress-sound", g_variant_new_boolean(TRUE));
  return g_variant_builder_end(&builder);
}

}  // namespace

// Travels with an asynchronous call, which may outlive the notice.
struct RecordingNotice::Call {
  std::weak_ptr<RecordingNotice*> notice;
};

RecordingNotice::RecordingNotice(GDBusConnection* bus, Requests& requests,
                                 const platform::Bundle& strings)
    : bus_(bus),
      requests_(requests),
      strings_(strings),
      self_(std::make_shared<RecordingNotice*>(this)) {
  for (const char* signal : {"ActionInvoked", "NotificationClosed"}) {
    subscriptions_.push_back(g_dbus_connection_signal_subscribe(
        bus_, kNoticeServer, kNoticeServer, signal, kNoticeServerPath, nullptr,
        G_DBUS_SIGNAL_FLAGS_NONE, &RecordingNotice::onSignal, this, nullptr));
  }
  subscriptions_.push_back(g_dbus_connection_signal_subscribe(
      bus_, "org.freedesktop.DBus", "org.freedesktop.DBus", "NameOwnerChanged",
      "/org/freedesktop/DBus", kNoticeServer, G_DBUS_SIGNAL_FLAGS_NONE,
      &RecordingNotice::onServerChanged, this, nullptr));
}

RecordingNotice::~RecordingNotice() {
  if (phase_ == Phase::kShown) close();
  if (refreshSource_ != 0) g_source_remove(refreshSource_);
  for (const guint subscription : subscriptions_) {
    g_dbus_connection_signal_unsubscribe(bus_, subscription);
  }
}

void RecordingNotice::setNeeded(bool needed) {
  needed_ = needed;
  refresh();
}

// Deferred: at the end of a recording its warnings end first, and a server that gets a change and
// the end together has been seen to handle them in the wrong order.
void RecordingNotice::setRemark(const std::string& remark) {
  remark_ = remark;
  if (refreshSource_ != 0) return;
  refreshSource_ = g_idle_add(
      [](gpointer self) -> gboolean {
        static_cast<RecordingNotice*>(self)->refreshSource_ = 0;
        static_cast<RecordingNotice*>(self)->refresh();
        return G_SOURCE_REMOVE;
      },
      this);
}

void RecordingNotice::toolDataDidChange(const suite::ToolData& data) {
  const bool before = std::exchange(recording_, isRecording(data));
  if (recording_ && !before) since_ = timeOfDay();
  refresh();
}

void RecordingNotice::refresh() {
  mainThread_.assertHeld();
  if (!recording_ && phase_ == Phase::kDismissed) phase_ = Phase::kGone;
  const bool wanted = needed_ && recording_;
  if (wanted && phase_ == Phase::kGone) {
    phase_ = Phase::kComing;
    if (keepsList_) return show();
    call("GetCapabilities", nullptr, G_VARIANT_TYPE("(as)"), &RecordingNotice::onCapabilities);
  } else if (phase_ == Phase::kShown) {
    if (!wanted) return close();
    // Replaces the same notification, which changes in place and does not pop up again.
    if (body() != shownBody_) show();
  }
}

std::string RecordingNotice::body() const {
  std::string body = withFirstPlaceholder(text("Recording since %@."), since_);
  // Notification lists often show no buttons.
  if (*keepsList_) body += "\n" + text("Click here to stop.");
  if (!remark_.empty()) body += "\n" + remark_;
  return body;
}

void RecordingNotice::show() {
  shownBody_ = body();
  GVariantBuilder actions;
  g_variant_builder_init(&actions, G_VARIANT_TYPE("as"));
  const auto add = [&](const char* action, const std::string& label) {
    g_variant_builder_add(&actions, "s", action);
    g_variant_builder_add(&actions, "s", label.c_str());
  };
  if (*keepsList_) add("default", text("Stop"));
  add("stop", text("Stop"));
  add("cancel", text("Cancel"));
  call("Notify",
       g_variant_new("(susssas@a{sv}i)", text("Record Audio").c_str(), id_, kApplicationId,
                     text("Record Audio").c_str(), shownBody_.c_str(), &actions, hints(), kNever),
       G_VARIANT_TYPE("(u)"), &RecordingNotice::onNotified);
}

void RecordingNotice::close() {
  phase_ = Phase::kGone;
  g_dbus_connection_call(bus_, kNoticeServer, kNoticeServerPath, kNoticeServer, "CloseNotification",
                         g_variant_new("(u)", std::exchange(id_, 0)), nullptr,
                         G_DBUS_CALL_FLAGS_NO_AUTO_START, kBusTimeout_ms, nullptr, nullptr,
                         nullptr);
}

void RecordingNotice::call(const char* method, GVariant* parameters, const GVariantType* answer,
                           GAsyncReadyCallback done) {
  g_dbus_connection_call(bus_, kNoticeServer, kNoticeServerPath, kNoticeServer, method, parameters,
                         answer, G_DBUS_CALL_FLAGS_NONE, kBusTimeout_ms, nullptr, done,
                         new Call{self_});
}

// Null when the notice is gone; a failure leaves *value null.
RecordingNotice* RecordingNotice::answered(GObject* source, GAsyncResult* result, gpointer raw,
                                           GVariant** value) {
  const std::unique_ptr<Call> call(static_cast<Call*>(raw));
  GError* error = nullptr;
  *value = g_dbus_connection_call_finish(G_DBUS_CONNECTION(source), result, &error);
  const ErrorPtr owned(error);
  const auto notice = call->notice.lock();
  if (notice == nullptr) g_clear_pointer(value, g_variant_unref);
  return notice == nullptr ? nullptr : *notice;
}

void RecordingNotice::onCapabilities(GObject* source, GAsyncResult* result, gpointer raw) {
  GVariant* value = nullptr;
  RecordingNotice* self = answered(source, result, raw, &value);
  const VariantPtr owned(value);
  if (self == nullptr) return;
  // Without a server nothing can be shown; the next change tries again.
  if (value == nullptr || !self->needed_ || !self->recording_) {
    self->phase_ = Phase::kGone;
    return;
  }
  const VariantPtr list(g_variant_get_child_value(value, 0));
  const gchar** names = g_variant_get_strv(list.get(), nullptr);
  self->keepsList_ = g_strv_contains(names, "persistence") != FALSE;
  g_free(names);
  self->show();
}

void RecordingNotice::onNotified(GObject* source, GAsyncResult* result, gpointer raw) {
  GVariant* value = nullptr;
  RecordingNotice* self = answered(source, result, raw, &value);
  const VariantPtr owned(value);
  if (self == nullptr) return;
  if (value == nullptr) {
    self->phase_ = Phase::kGone;
    self->id_ = 0;
    return;
  }
  // It belongs to an earlier recording, or was dismissed during the change.
  const bool isLate = self->phase_ != Phase::kComing && self->phase_ != Phase::kShown;
  g_variant_get(value, "(u)", &self->id_);
  if (isLate) return self->close();
  self->phase_ = Phase::kShown;
  self->refresh();
}

void RecordingNotice::onSignal(GDBusConnection*, const gchar*, const gchar*, const gchar*,
                               const gchar* signal, GVariant* parameters, gpointer raw) {
  auto& self = *static_cast<RecordingNotice*>(raw);
  const bool isAction = std::string_view(signal) == "ActionInvoked";
  if (!areOfType(parameters, isAction ? "(us)" : "(uu)", signal)) return;
  guint32 id = 0;
  g_variant_get_child(parameters, 0, "u", &id);
  if (self.phase_ != Phase::kShown || id != self.id_) return;
  if (!isAction) {
    self.phase_ = Phase::kDismissed;
    self.id_ = 0;
    return;
  }
  const VariantPtr action(g_variant_get_child_value(parameters, 1));
  const std::string name = g_variant_get_string(action.get(), nullptr);
  const auto ask = [&self](const char* what) { self.requests_.action(what, [](RequestResult) {}); };
  if (name == "stop" || name == "default") ask("stop");
  if (name == "cancel") ask("cancel");
}

// A new server does not know what the old one showed.
void RecordingNotice::onServerChanged(GDBusConnection*, const gchar*, const gchar*, const gchar*,
                                      const gchar*, GVariant* parameters, gpointer raw) {
  auto& self = *static_cast<RecordingNotice*>(raw);
  if (!areOfType(parameters, "(sss)", "NameOwnerChanged")) return;
  if (self.phase_ != Phase::kShown) return;
  self.phase_ = Phase::kGone;
  self.id_ = 0;
  self.keepsList_.reset();
  const VariantPtr owner(g_variant_get_child_value(parameters, 2));
  if (*g_variant_get_string(owner.get(), nullptr) != '\0') self.refresh();
}

}  // namespace linux_host
