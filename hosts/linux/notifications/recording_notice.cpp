// SPDX-License-Identifier: MIT
#include "hosts/linux/notifications/recording_notice.h"

#include <cassert>
#include <memory>
#include <utility>

#include "hosts/linux/base/bundle.h"
#include "hosts/linux/power/login_session.h"

namespace linux_host {
namespace {

constexpr guchar kLowUrgency = 0;
constexpr int kNever = 0;

struct DateTimeUnref {
  void operator()(GDateTime* time) const { g_date_time_unref(time); }
};

std::string timeOfDay() {
  const std::unique_ptr<GDateTime, DateTimeUnref> now(g_date_time_new_now_local());
  const TextPtr text(g_date_time_format(now.get(), "%R"));
  return text.get();
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

RecordingNotice::RecordingNotice(GDBusConnection* bus, Requests& requests,
                                 const platform::Bundle& strings)
    : requests_(requests),
      strings_(strings),
      server_(bus,
              {.onAction = [this](guint32 id, const std::string& action) { clicked(id, action); },
               .onClosed = [this](guint32 id) { dismissed(id); },
               .onGone = [this](bool hasSuccessor) { serverIsGone(hasSuccessor); },
               .onToken = nullptr}) {}

RecordingNotice::~RecordingNotice() {
  if (phase_ == Phase::kShown) close();
  if (refreshSource_ != 0) g_source_remove(refreshSource_);
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

void RecordingNotice::enter(Phase next) {
  assert(next != Phase::kComing || phase_ == Phase::kGone);
  assert(next != Phase::kShown || phase_ == Phase::kComing || phase_ == Phase::kShown);
  assert(next != Phase::kDismissed || phase_ == Phase::kShown);
  phase_ = next;
}

void RecordingNotice::refresh() {
  mainThread_.assertHeld();
  if (!recording_ && phase_ == Phase::kDismissed) enter(Phase::kGone);
  const bool wanted = needed_ && recording_;
  if (wanted && phase_ == Phase::kGone) {
    enter(Phase::kComing);
    if (keepsList_) return show();
    server_.askCapabilities([this](const auto& names) { serverCan(names); });
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
  server_.notify(
      g_variant_new("(susssas@a{sv}i)", text("Record Audio").c_str(), id_, kApplicationId,
                    text("Record Audio").c_str(), shownBody_.c_str(), &actions, hints(), kNever),
      [this](const auto& id) { isShownAs(id); });
}

void RecordingNotice::close() {
  enter(Phase::kGone);
  server_.close(std::exchange(id_, 0));
}

void RecordingNotice::serverCan(const Expected<NotificationServer::Capabilities>& names) {
  // Without a server nothing can be shown; the next change tries again.
  if (!names || !needed_ || !recording_) {
    enter(Phase::kGone);
    return;
  }
  keepsList_ = names->contains("persistence");
  show();
}

void RecordingNotice::isShownAs(const Expected<guint32>& id) {
  if (!id) {
    enter(Phase::kGone);
    id_ = 0;
    return;
  }
  // It belongs to an earlier recording, or was dismissed during the change.
  const bool isLate = phase_ != Phase::kComing && phase_ != Phase::kShown;
  id_ = *id;
  if (isLate) return close();
  enter(Phase::kShown);
  refresh();
}

void RecordingNotice::clicked(guint32 id, const std::string& action) {
  if (phase_ != Phase::kShown || id != id_) return;
  const auto ask = [this](const char* what) { requests_.action(what, [](RequestResult) {}); };
  if (action == "stop" || action == "default") ask("stop");
  if (action == "cancel") ask("cancel");
}

void RecordingNotice::dismissed(guint32 id) {
  if (phase_ != Phase::kShown || id != id_) return;
  enter(Phase::kDismissed);
  id_ = 0;
}

// A new server does not know what the old one showed.
void RecordingNotice::serverIsGone(bool hasSuccessor) {
  if (phase_ != Phase::kShown) return;
  enter(Phase::kGone);
  id_ = 0;
  keepsList_.reset();
  if (hasSuccessor) refresh();
}

}  // namespace linux_host
