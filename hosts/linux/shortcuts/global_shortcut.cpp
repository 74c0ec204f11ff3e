// SPDX-License-Identifier: MIT
#include "hosts/linux/shortcuts/global_shortcut.h"

#include <utility>

#include "hosts/linux/base/log.h"
#include "hosts/linux/bus/dbus_support.h"

namespace linux_host {
namespace {

using Outcome = ShortcutChoice::Outcome;

constexpr const char* kInterface = "org.freedesktop.portal.GlobalShortcuts";
constexpr const char* kSessionInterface = "org.freedesktop.portal.Session";
constexpr const char* kShortcut = "record";
// The user may choose another, and has to where this one is taken. R for recording is taken:
// Plasma's clipboard and its screen recorder use those keys.
constexpr const char* kPreferredTrigger = "LOGO+ALT+a";
// If the desktop does not know the program's name, it stores and shows the keys under this one.
constexpr const char* kSessionToken = "RecordAudio";
constexpr const char* kShortcutsType = "a(sa{sv})";
// Before it, the dialog for the first key is also used to change the key.
constexpr guint32 kFirstVersionWithSettings = 2;

// The desktop's name for our shortcut's key in `shortcuts`; null when the shortcut is not there.
std::optional<std::string> triggerAmong(GVariant* shortcuts) {
  GVariantIter each;
  g_variant_iter_init(&each, shortcuts);
  const gchar* id = nullptr;
  GVariant* rawProperties = nullptr;
  std::optional<std::string> found;
  while (g_variant_iter_next(&each, "(&s@a{sv})", &id, &rawProperties) != FALSE) {
    const VariantPtr properties(rawProperties);
    if (std::string(id) != kShortcut) continue;
    const gchar* trigger = "";
    g_variant_lookup(properties.get(), "trigger_description", "&s", &trigger);
    found = trigger;
  }
  return found;
}

VariantPtr shortcutsIn(GVariant* results) {
  return VariantPtr(g_variant_lookup_value(results, "shortcuts", G_VARIANT_TYPE(kShortcutsType)));
}

std::optional<std::string> triggerIn(GVariant* results) {
  const VariantPtr shortcuts = shortcutsIn(results);
  return shortcuts == nullptr ? std::nullopt : triggerAmong(shortcuts.get());
}

// Empty when the portal has made none.
std::string sessionIn(GVariant* results) {
  // Since the first portal this has had the wrong type, so that type is now the right one.
  const gchar* path = "";
  if (g_variant_lookup(results, "session_handle", "&s", &path) == FALSE) {
    g_variant_lookup(results, "session_handle", "&o", &path);
  }
  return g_variant_is_object_path(path) != FALSE ? path : "";
}

}  // namespace

// A pending method call.
struct GlobalShortcut::Call {
  Self self;
  Reply reply;
};

GlobalShortcut::GlobalShortcut(GDBusConnection* bus, std::string description, ShortcutWish& wish,
                               Pressed pressed, Clock now_us)
    : bus_(bus),
      description_(std::move(description)),
      wish_(wish),
      pressed_(std::move(pressed)),
      now_us_(std::move(now_us)) {}

GlobalShortcut::~GlobalShortcut() {
  leave();
}

void GlobalShortcut::leave() {
  mainThread_.assertHeld();
  onChange_ = nullptr;
  done_ = nullptr;
  isWanted_ = false;
  if (const auto request = request_.lock()) request->cancel();
  if (phase_ != ShortcutPhase::kUnknown) enter(ShortcutPhase::kUnknown);
  forgetSession(false);
  if (const guint watch = std::exchange(watch_, 0); watch != 0) g_bus_unwatch_name(watch);
  if (const guint signals = std::exchange(signals_, 0); signals != 0) {
    g_dbus_connection_signal_unsubscribe(bus_, signals);
  }
}

void GlobalShortcut::enter(ShortcutPhase phase) {
  mainThread_.assertHeld();
  if (!mayFollow(phase_, phase)) {
    // The key does not work, but a recording goes on.
    logMessage(LogLevel::kError,
               "The shortcut is in an invalid state. Set it again in the preferences.");
  }
  phase_ = phase;
  tell();
}

void GlobalShortcut::tell() const {
  if (!onChange_) return;
  Shortcut shortcut;
  shortcut.offered = phase_ != ShortcutPhase::kUnknown && phase_ != ShortcutPhase::kLooking;
  shortcut.set = phase_ == ShortcutPhase::kBound && trigger_.has_value();
  shortcut.asking = phase_ != ShortcutPhase::kBound && phase_ != ShortcutPhase::kOffered;
  shortcut.trigger = trigger_.value_or("");
  onChange_(shortcut);
}

// Requests from the program.

void GlobalShortcut::resume() {
  mainThread_.assertHeld();
  if (bus_ == nullptr || !wish_.isWanted()) return;
  isWanted_ = true;
  if (phase_ == ShortcutPhase::kUnknown) look();
  if (phase_ == ShortcutPhase::kOffered) open();
}

void GlobalShortcut::follow(std::function<void(const Shortcut&)> onChange) {
  mainThread_.assertHeld();
  onChange_ = std::move(onChange);
  if (!onChange_) done_ = nullptr;
  if (bus_ != nullptr && onChange_ && phase_ == ShortcutPhase::kUnknown) look();
  tell();
}

void GlobalShortcut::choose(const std::string& parentWindow, Done done) {
  mainThread_.assertHeld();
  if (bus_ == nullptr || done_) {
    done({bus_ == nullptr ? Outcome::kFailed : Outcome::kDeclined, {}});
    return;
  }
  done_ = std::move(done);
  parentWindow_ = parentWindow;
  isWanted_ = true;
  if (phase_ == ShortcutPhase::kUnknown) return look();
  if (phase_ == ShortcutPhase::kOffered) return open();
  // A request that is already pending will end with the user's key, too.
  if (phase_ != ShortcutPhase::kBound) return;
  if (version_ >= kFirstVersionWithSettings) return configure();
  enter(ShortcutPhase::kClosing);
  call(session_.c_str(), kSessionInterface, "Close", nullptr, &GlobalShortcut::onClosedByUs);
}

// The portal.

void GlobalShortcut::watch() {
  if (watch_ == 0) {
    watch_ = g_bus_watch_name_on_connection(bus_, kPortalName, G_BUS_NAME_WATCHER_FLAGS_NONE,
                                            onPortalCame, onPortalLeft, this, nullptr);
  }
  if (signals_ == 0) {
    signals_ = g_dbus_connection_signal_subscribe(bus_, kPortalName, kInterface, nullptr,
                                                  kPortalPath, nullptr, G_DBUS_SIGNAL_FLAGS_NONE,
                                                  onSignal, this, nullptr);
  }
}

void GlobalShortcut::onPortalCame(GDBusConnection*, const gchar*, const gchar*, gpointer raw) {
  auto& self = *static_cast<GlobalShortcut*>(raw);
  const bool isOfInterest = self.isWanted_ || self.onChange_ != nullptr;
  if (self.phase_ == ShortcutPhase::kUnknown && isOfInterest) self.look();
}

void GlobalShortcut::onPortalLeft(GDBusConnection*, const gchar*, gpointer raw) {
  auto& self = *static_cast<GlobalShortcut*>(raw);
  // While looking, the pending call fails and ends that phase.
  if (self.phase_ == ShortcutPhase::kUnknown || self.phase_ == ShortcutPhase::kLooking) return;
  if (const auto request = self.request_.lock()) request->cancel();
  self.isWanted_ = self.wish_.isWanted();
  self.forgetSession(true);
  self.enter(ShortcutPhase::kUnknown);
  self.finish({Outcome::kFailed, {}});
}

void GlobalShortcut::call(const char* path, const char* interface, const char* method,
                          GVariant* arguments, Reply reply) {
  g_dbus_connection_call(bus_, kPortalName, path, interface, method, arguments, nullptr,
                         G_DBUS_CALL_FLAGS_NONE, kBusTimeout_ms, nullptr, onReply,
                         new Call{self_, reply});
}

void GlobalShortcut::onReply(GObject* bus, GAsyncResult* result, gpointer raw) {
  const std::unique_ptr<Call> made(static_cast<Call*>(raw));
  const VariantPtr answer(g_dbus_connection_call_finish(G_DBUS_CONNECTION(bus), result, nullptr));
  if (const auto self = made->self.lock()) ((*self)->*made->reply)(answer.get());
}

void GlobalShortcut::ask(const char* method, const PortalRequest::Arguments& arguments,
                         Answer answer) {
  request_ = PortalRequest::ask(
      bus_, kInterface, method, arguments,
      [this, answer, alive = Self(self_)](PortalRequest::Outcome outcome, GVariant* results,
                                          const std::string& error) {
        if (alive.expired()) return;
        if (outcome == PortalRequest::Outcome::kAgreed) {
          (this->*answer)(results);
        } else {
          const bool isNo = outcome == PortalRequest::Outcome::kDeclined;
          giveUp(isNo ? Outcome::kDeclined : Outcome::kFailed, error);
        }
      });
}

void GlobalShortcut::look() {
  enter(ShortcutPhase::kLooking);
  call(kPortalPath, "org.freedesktop.DBus.Properties", "Get",
       g_variant_new("(ss)", kInterface, "version"), &GlobalShortcut::onVersion);
}

void GlobalShortcut::onVersion(GVariant* reply) {
  if (phase_ != ShortcutPhase::kLooking) return;
  version_ = 0;
  if (reply != nullptr && g_variant_is_of_type(reply, G_VARIANT_TYPE("(v)")) != FALSE) {
    VariantPtr version;
    GVariant* inner = nullptr;
    g_variant_get(reply, "(v)", &inner);
    version.reset(inner);
    if (g_variant_is_of_type(inner, G_VARIANT_TYPE_UINT32) != FALSE) {
      version_ = g_variant_get_uint32(inner);
    }
  }
  if (version_ == 0) {
    isWanted_ = wish_.isWanted();
    enter(ShortcutPhase::kUnknown);
    finish({Outcome::kFailed, {}});
    return;
  }
  watch();
  enter(ShortcutPhase::kOffered);
  if (isWanted_) open();
}

// Getting a key.

GVariant* GlobalShortcut::ourShortcuts() const {
  GVariantBuilder shortcuts;
  g_variant_builder_init(&shortcuts, G_VARIANT_TYPE(kShortcutsType));
  g_variant_builder_open(&shortcuts, G_VARIANT_TYPE("(sa{sv})"));
  g_variant_builder_add(&shortcuts, "s", kShortcut);
  g_variant_builder_open(&shortcuts, G_VARIANT_TYPE_VARDICT);
  g_variant_builder_add(&shortcuts, "{sv}", "description",
                        g_variant_new_string(description_.c_str()));
  g_variant_builder_add(&shortcuts, "{sv}", "preferred_trigger",
                        g_variant_new_string(kPreferredTrigger));
  g_variant_builder_close(&shortcuts);
  g_variant_builder_close(&shortcuts);
  return g_variant_builder_end(&shortcuts);
}

void GlobalShortcut::open() {
  enter(ShortcutPhase::kOpening);
  const auto arguments = [this](GVariantBuilder* options) {
    g_variant_builder_add(options, "{sv}", "session_handle_token",
                          g_variant_new_string(kSessionToken));
    // Plasma 5.27 takes them here, and only here; other portals ignore them.
    g_variant_builder_add(options, "{sv}", "shortcuts", ourShortcuts());
    return g_variant_new("(a{sv})", options);
  };
  ask("CreateSession", arguments, &GlobalShortcut::onOpened);
}

void GlobalShortcut::onClosedByUs(GVariant*) {
  if (phase_ != ShortcutPhase::kClosing) return;
  forgetSession(true);
  open();
}

void GlobalShortcut::onOpened(GVariant* results) {
  session_ = sessionIn(results);
  if (session_.empty()) return giveUp(Outcome::kFailed, {});
  sessionSignals_ = g_dbus_connection_signal_subscribe(
      bus_, kPortalName, kSessionInterface, "Closed", session_.c_str(), nullptr,
      G_DBUS_SIGNAL_FLAGS_NONE, onSignal, this, nullptr);
  // Show the desktop's dialog only if the user has asked for a key.
  if (done_ || version_ >= kFirstVersionWithSettings) return bind();
  if (const auto trigger = triggerIn(results)) return bound(trigger);
  enter(ShortcutPhase::kListing);
  const auto arguments = [this](GVariantBuilder* options) {
    return g_variant_new("(oa{sv})", session_.c_str(), options);
  };
  ask("ListShortcuts", arguments, &GlobalShortcut::onListed);
}

void GlobalShortcut::onListed(GVariant* results) {
  const auto trigger = triggerIn(results);
  if (trigger && !done_) return bound(trigger);
  bind();
}

void GlobalShortcut::bind() {
  enter(ShortcutPhase::kBinding);
  const auto arguments = [this](GVariantBuilder* options) {
    return g_variant_new("(o@a(sa{sv})sa{sv})", session_.c_str(), ourShortcuts(),
                         parentWindow_.c_str(), options);
  };
  ask("BindShortcuts", arguments, &GlobalShortcut::onBound);
}

void GlobalShortcut::onBound(GVariant* results) {
  if (const VariantPtr shortcuts = shortcutsIn(results)) {
    return bound(triggerAmong(shortcuts.get()));
  }
  enter(ShortcutPhase::kChecking);
  const auto arguments = [this](GVariantBuilder* options) {
    return g_variant_new("(oa{sv})", session_.c_str(), options);
  };
  ask("ListShortcuts", arguments, &GlobalShortcut::onChecked);
}

void GlobalShortcut::onChecked(GVariant* results) {
  bound(triggerIn(results));
}

void GlobalShortcut::bound(const std::optional<std::string>& trigger) {
  // The desktop granted no key. Asking again at every start would only annoy the user.
  if (!trigger) {
    wish_.want(false);
    return giveUp(Outcome::kFailed, {});
  }
  trigger_ = trigger;
  wish_.want(true);
  enter(ShortcutPhase::kBound);
  finish({Outcome::kDone, {}});
}

void GlobalShortcut::configure() {
  call(kPortalPath, kInterface, "ConfigureShortcuts",
       g_variant_new("(osa{sv})", session_.c_str(), parentWindow_.c_str(), nullptr),
       &GlobalShortcut::onConfiguring);
}

void GlobalShortcut::onConfiguring(GVariant* reply) {
  finish({reply != nullptr ? Outcome::kDone : Outcome::kFailed, {}});
}

void GlobalShortcut::giveUp(Outcome outcome, const std::string& reason) {
  if (outcome == Outcome::kDeclined) {
    wish_.want(false);
  } else {
    logMessage(LogLevel::kWarning,
               "The desktop has set no shortcut to start and stop recordings" +
                   (reason.empty() ? std::string() : " (" + reason + ")") +
                   ". Bind a key to the command record-audio in its keyboard settings instead.");
  }
  // If the portal comes back, it is asked again for the key agreed before.
  isWanted_ = wish_.isWanted();
  forgetSession(false);
  enter(ShortcutPhase::kOffered);
  finish({outcome, reason});
}

void GlobalShortcut::finish(const ShortcutChoice& choice) {
  parentWindow_.clear();
  if (const Done done = std::exchange(done_, nullptr)) done(choice);
}

void GlobalShortcut::forgetSession(bool isClosed) {
  trigger_.reset();
  if (const guint signals = std::exchange(sessionSignals_, 0); signals != 0) {
    g_dbus_connection_signal_unsubscribe(bus_, signals);
  }
  const std::string session = std::exchange(session_, {});
  if (session.empty() || isClosed) return;
  g_dbus_connection_call(bus_, kPortalName, session.c_str(), kSessionInterface, "Close", nullptr,
                         nullptr, G_DBUS_CALL_FLAGS_NO_AUTO_START, -1, nullptr, nullptr, nullptr);
}

// Signals from the portal.

void GlobalShortcut::onSignal(GDBusConnection*, const gchar*, const gchar* path, const gchar*,
                              const gchar* signal, GVariant* parameters, gpointer raw) {
  auto& self = *static_cast<GlobalShortcut*>(raw);
  const std::string name = signal;
  if (name == "Activated" && areOfType(parameters, "(osta{sv})", signal)) {
    self.onActivated(parameters);
  } else if (name == "ShortcutsChanged" && areOfType(parameters, "(oa(sa{sv}))", signal)) {
    self.onChanged(parameters);
  } else if (name == "Closed" && path == self.session_ &&
             areOfType(parameters, "(a{sv})", signal)) {
    self.forgetSession(true);
    if (self.phase_ == ShortcutPhase::kClosing) return;  // we closed it ourselves
    if (const auto request = self.request_.lock()) request->cancel();
    self.giveUp(Outcome::kFailed, {});
  }
}

bool GlobalShortcut::concernsUs(GVariant* parameters) const {
  const gchar* session = nullptr;
  g_variant_get_child(parameters, 0, "&o", &session);
  return !session_.empty() && session_ == session;
}

void GlobalShortcut::onActivated(GVariant* parameters) {
  mainThread_.assertHeld();
  const gchar* id = nullptr;
  g_variant_get_child(parameters, 1, "&s", &id);
  if (!concernsUs(parameters) || std::string(id) != kShortcut) return;
  const gint64 now_us = now_us_();
  const auto last_us = std::exchange(lastPress_us_, now_us);
  if (last_us && now_us - *last_us < kRepeat_us) return;
  const VariantPtr options(g_variant_get_child_value(parameters, 3));
  const gchar* token = "";
  g_variant_lookup(options.get(), "activation_token", "&s", &token);
  pressed_(token);
}

void GlobalShortcut::onChanged(GVariant* parameters) {
  mainThread_.assertHeld();
  if (!concernsUs(parameters)) return;
  const VariantPtr shortcuts(g_variant_get_child_value(parameters, 1));
  trigger_ = triggerAmong(shortcuts.get());
  tell();
}

}  // namespace linux_host
