// SPDX-License-Identifier: MIT
#pragma once

#include <gio/gio.h>

#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace desktop_test {

// The desktop's portal for global shortcuts, with a user controlled by the test. Answers from the
// default main context.
class FakeShortcutsPortal {
 public:
  struct Behaviour {
    guint32 version = 1;
    // It identifies callers through org.freedesktop.host.portal.Registry.
    bool hasRegistry = false;
    // The shortcuts come with CreateSession, as in Plasma 5.27; binding later returns the same.
    bool bindsAtOnce = false;
    // It agrees without saying to which shortcuts, as in Plasma 6.
    bool agreesInFewWords = false;
    // The results of CreateSession and BindShortcuts: 0 agreed, 1 declined by the user, 2 failed.
    guint32 opening = 0;
    guint32 binding = 0;
    // The requests are not answered until answerNow().
    bool isSlow = false;
    // The calls fail.
    bool refuses = false;
    // Replaces its results, for tests of unexpected answers.
    std::function<GVariant*(const std::string& method)> strangeResults = nullptr;
    // The key that the user chooses; empty: the shortcut exists without a key. Null: no shortcut.
    std::optional<std::string> trigger = "Ctrl+Meta+R";
    // Known from an earlier session.
    bool isKnown = false;
  };

  explicit FakeShortcutsPortal(GDBusConnection* bus);
  FakeShortcutsPortal(GDBusConnection* bus, Behaviour behaviour);
  ~FakeShortcutsPortal();
  FakeShortcutsPortal(const FakeShortcutsPortal&) = delete;
  FakeShortcutsPortal& operator=(const FakeShortcutsPortal&) = delete;

  // Answers the waiting request.
  void answerNow();
  // The user presses the key; `session` instead of the newest one, if not empty.
  void press(const std::string& id = "record", const std::string& session = {},
             const std::string& activationToken = {});
  // The user changes the key, or removes it.
  void change(const std::optional<std::string>& trigger);
  // The desktop ends the session.
  void closeSession();
  // Any signal of the portal's object.
  void say(const char* signal, GVariant* parameters);

  [[nodiscard]] bool hasSession() const { return !session_.empty(); }
  [[nodiscard]] const std::string& session() const { return session_; }

  Behaviour behaviour;
  std::vector<std::string> calls;  // with the relevant arguments
  std::string description;         // of the shortcut that was asked for

 private:
  struct Waiting {
    std::string request;
    std::string method;
  };

  static void onCall(GDBusConnection* bus, const gchar* sender, const gchar* path,
                     const gchar* interface, const gchar* method, GVariant* arguments,
                     GDBusMethodInvocation* invocation, gpointer self);
  static GVariant* onProperty(GDBusConnection* bus, const gchar* sender, const gchar* path,
                              const gchar* interface, const gchar* property, GError** error,
                              gpointer self);
  void request(const std::string& sender, const std::string& method, GVariant* arguments,
               GDBusMethodInvocation* invocation);
  void answer(const Waiting& waiting);
  void openSession(const std::string& name);
  void forgetSession();
  [[nodiscard]] GVariant* shortcuts() const;
  [[nodiscard]] GVariant* resultsOf(const std::string& method);

  GDBusConnection* const bus_;
  GDBusNodeInfo* const node_;
  std::vector<guint> objects_;
  guint name_ = 0;
  guint sessionObject_ = 0;
  std::string session_;
  bool isBound_ = false;
  std::optional<Waiting> waiting_;
};

}  // namespace desktop_test
