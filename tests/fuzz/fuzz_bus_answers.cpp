// SPDX-License-Identifier: MIT
// Other programs' answers and signals, of any type and in any order: nothing breaks the program,
// GLib logs no critical warning, and nothing is done without the right message.
//
// Input: the service (one byte), then up to twelve steps of that service. Each step: its kind (one
// byte), the length of its type and the type as text, the size of its value (16-bit, little-endian)
// and the value in GVariant's layout.

#include <gio/gio.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <sstream>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "hosts/linux/authorization/polkit_authorization.h"
#include "hosts/linux/base/bundle.h"
#include "hosts/linux/bus/client_commands.h"
#include "hosts/linux/host/desktop_appearance.h"
#include "hosts/linux/indicator/status_notifier_item.h"
#include "hosts/linux/notifications/notification_center.h"
#include "hosts/linux/permission/desktop_permission.h"
#include "hosts/linux/power/login_session.h"
#include "hosts/linux/power/session_client.h"
#include "hosts/linux/power/xsmp_module.h"
#include "hosts/linux/shortcuts/global_shortcut.h"
#include "hosts/linux/workspace/folder_chooser.h"
#include "tests/base/temporary_folder.h"
#include "tests/fuzz/fuzz_expect.h"
#include "tests/fuzz/strange_bus.h"
#include "tests/fuzz/strange_session_manager.h"

// The module's only function, linked in.
extern "C" linux_host::XsmpConnection* record_audio_open_xsmp_connection(
    linux_host::XsmpEvents events);

namespace {

using fuzz::expect;
using fuzz::kOtherPath;
using fuzz::Script;
using fuzz::Service;
using fuzz::Step;
using fuzz::StrangeBus;
using linux_host::VariantPtr;

constexpr int kMostSteps = 12;
const suite::ToolData kRecording{1, "", "", "00:01"};
const suite::ToolData kAtRest{0, "", "", ""};

// The program's environment, which is shared by all inputs.
class World {
 public:
  static World& instance() {
    static auto* const kWorld = new World;
    return *kWorld;
  }
  [[nodiscard]] GDBusConnection* session() const { return sessionBus_->connection(); }

  StrangeBus bus;
  linux_host::SystemBus systemBus;

  [[nodiscard]] linux_host::SessionBus& sessionBus() const { return *sessionBus_; }
  // GLib's shared connection.
  [[nodiscard]] GDBusConnection* system() const { return system_; }

 private:
  World() : systemBus(bus.address()) {
    g_log_set_always_fatal(
        static_cast<GLogLevelFlags>(G_LOG_FATAL_MASK | static_cast<int>(G_LOG_LEVEL_CRITICAL)));
    std::signal(SIGPIPE, SIG_IGN);
    setenv("DBUS_SESSION_BUS_ADDRESS", bus.address().c_str(), 1);
    setenv("DBUS_SYSTEM_BUS_ADDRESS", bus.address().c_str(), 1);
    setenv("GSETTINGS_BACKEND", "memory", 1);
    setenv("XDG_DATA_DIRS", "/nonexistent", 1);
    unsetenv("GTK_THEME");
    sessionBus_ = std::make_unique<linux_host::SessionBus>();
    system_ = g_bus_get_sync(G_BUS_TYPE_SYSTEM, nullptr, nullptr);
    expect(session() != nullptr && system_ != nullptr, "connections to the bus");
    g_dbus_connection_set_exit_on_close(system_, FALSE);
  }

  std::unique_ptr<linux_host::SessionBus> sessionBus_;
  GDBusConnection* system_ = nullptr;
};

using ScriptPtr = std::shared_ptr<const Script>;

// Pending work of a scenario ends with it; portals are first told who calls.
void settle(GDBusConnection* client) {
  StrangeBus::settle(client, 4);
}

void playRest(GDBusConnection* client) {
  World::instance().bus.playRest();
  settle(client);
}

class Activations : public platform::UserNotificationCenterDelegate {
 public:
  bool userNotificationCenterShouldPresentNotification(
      platform::UserNotificationCenter&, const platform::UserNotificationPtr&) override {
    return true;
  }
  void userNotificationCenterDidActivateNotification(
      platform::UserNotificationCenter&, const platform::UserNotificationPtr&) override {
    ++count;
  }
  long count = 0;
};

void notifications(const ScriptPtr& script) {
  static const linux_host::LinuxBundle kBundle("/nonexistent/RecordAudio.app", nullptr);
  GDBusConnection* bus = World::instance().session();
  linux_host::DesktopNotificationCenter center(bus, kBundle);
  const auto delegate = std::make_shared<Activations>();
  center.setDelegate(delegate);
  const auto notification = [] {
    auto made = std::make_shared<platform::UserNotification>();
    made->informativeText = "Saved <here>";
    made->hasActionButton = true;
    made->actionButtonTitle = "Open";
    return made;
  };
  const auto first = notification();
  center.deliverNotification(first);
  settle(bus);
  center.deliverNotification(notification());
  center.deliverNotification(notification());
  settle(bus);
  playRest(bus);
  center.removeDeliveredNotification(first);
  settle(bus);
  expect(delegate->count <= script->count("ActionInvoked", "(us)"), "clicks that the user made");
}

// Whether the user may have agreed to what a portal asked.
bool mayHaveAgreed(const Script& script) {
  return script.count("Response", "(ua{sv})") > 0;
}

void folderChooser(const ScriptPtr& script) {
  using Outcome = linux_host::FolderChooser::Outcome;
  GDBusConnection* bus = World::instance().session();
  int answers = 0;
  {
    linux_host::FolderChooser chooser(bus);
    chooser.choose("", "Output folder", "/home/x", [&](Outcome outcome, const std::string& path) {
      ++answers;
      expect(outcome != Outcome::kChosen || (path.starts_with('/') && mayHaveAgreed(*script)),
             "a folder that the user chose");
      expect(path.find('\0') == std::string::npos, "a path");
    });
    settle(bus);
    playRest(bus);
  }
  settle(bus);
  expect(answers <= 1, "one answer at most");
}

void microphone(const ScriptPtr& script) {
  GDBusConnection* bus = World::instance().session();
  int answers = 0;
  {
    linux_host::DesktopMicrophonePermission permission([bus] { return bus; });
    permission.status();
    permission.isKnown();
    permission.request([&](bool isGranted) {
      ++answers;
      expect(!isGranted || mayHaveAgreed(*script), "a microphone that the user granted");
    });
    settle(bus);
    playRest(bus);
  }
  settle(bus);
  expect(answers <= 1, "one answer at most");
}

void shortcut(const ScriptPtr& script) {
  static const base_test::TemporaryFolder kFolder;
  GDBusConnection* bus = World::instance().session();
  linux_host::ShortcutWish wish(kFolder / "desktop.json");
  wish.want(false);
  int answers = 0;
  long presses = 0;
  gint64 now_us = 0;
  {
    linux_host::GlobalShortcut key(
        bus, "Start or stop recording", wish, [&](const std::string&) { ++presses; },
        [&] { return now_us += linux_host::GlobalShortcut::kRepeat_us; });
    key.follow([&](const linux_host::Shortcut& shown) {
      expect(!shown.set || mayHaveAgreed(*script), "a key that the desktop gave");
    });
    key.choose("", [&](const linux_host::ShortcutChoice&) { ++answers; });
    // A session, and a key in it.
    for (int i = 0; i < 3; ++i) settle(bus);
    playRest(bus);
    key.choose("", [](const linux_host::ShortcutChoice&) {});
    settle(bus);
  }
  settle(bus);
  expect(answers <= 1, "one answer at most");
  expect(presses <= script->count("Activated", "(osta{sv})"), "presses of the user's");
  expect(!wish.isWanted() || mayHaveAgreed(*script), "a wish that the user confirmed");
}

void appearance(const ScriptPtr& script) {
  const linux_host::Appearance wanted = linux_host::desktopAppearance(World::instance().session());
  expect(!wanted.dark || script->firstAnswer("(v)") != nullptr, "dark by the user's wish");
}

void sessionManager(const ScriptPtr& script) {
  GDBusConnection* bus = World::instance().session();
  long saves = 0;
  long quits = 0;
  int nobodies = 0;
  linux_host::SessionClient client(bus, "startup-5",
                                   {[&](const std::function<void()>& saved) {
                                      ++saves;
                                      saved();
                                    },
                                    [&] { ++quits; }},
                                   [&] { ++nobodies; });
  client.toolDataDidChange(kRecording);
  settle(bus);
  playRest(bus);
  client.toolDataDidChange(kAtRest);
  client.toolDataDidChange(kRecording);
  settle(bus);
  expect(saves <= script->count("EndSession", "(u)"), "an end of the session that was told");
  expect(quits <= script->count("Stop", "()"), "a stop that was told");
  expect(nobodies <= 2, "said once for each recording");
}

void login(const ScriptPtr& script) {
  World& world = World::instance();
  long shutdowns = 0;
  long logouts = 0;
  linux_host::LoginSession session(
      "Audio recording", [&] { ++shutdowns; }, [&] { ++logouts; });
  session.toolDataDidChange(kRecording);
  constexpr int kCalls = 3;  // two locks and the session's name
  while (world.bus.calls() < kCalls) g_main_context_iteration(nullptr, TRUE);
  settle(world.system());
  playRest(world.system());
  session.toolDataDidChange(kAtRest);
  session.releaseShutdown();
  expect(shutdowns <= script->count("PrepareForShutdown", "(b)"), "a shutdown that was told");
  expect(logouts <= script->count("SessionRemoved", "(so)"), "a log-out that was told");
}

void polkit(const ScriptPtr& script) {
  constexpr const char* kAnswer = "((bba{ss}))";
  linux_host::PolkitAuthorization authorization(
      World::instance().systemBus, [](const std::string&) { return "nothing is run here"; },
      "/bin/true");
  platform::AuthorizationRef reference = nullptr;
  expect(authorization.AuthorizationCreate(platform::kAuthorizationFlagDefaults, &reference) == 0,
         "a way to ask");
  const auto status =
      authorization.AuthorizationCopyRights(reference, platform::kAuthorizationRightAdmin,
                                            platform::kAuthorizationFlagInteractionAllowed);
  authorization.AuthorizationFree(reference);
  gboolean isGranted = FALSE;
  if (GVariant* answer = script->firstAnswer(kAnswer)) {
    g_variant_get(answer, "((bba{ss}))", &isGranted, nullptr, nullptr);
  }
  expect((status == 0) == (isGranted != FALSE), "a right that polkit granted");
}

void runningInstance(const ScriptPtr& script) {
  linux_host::Instance instance(World::instance().sessionBus(),
                                [] { return std::string("/nonexistent"); });
  std::ostringstream out;
  std::ostringstream err;
  const int status = linux_host::statusCommand(instance, out, err);
  expect((status == linux_host::kExitDone) == (script->firstAnswer("(s)") != nullptr),
         "a state that was told");
  linux_host::stopCommand(instance, out, err);
  linux_host::cancelCommand(instance, err);
}

void tray(const ScriptPtr& script) {
  GDBusConnection* bus = World::instance().session();
  long clicks = 0;
  linux_host::StatusNotifierItem item(
      bus, "record-audio", "Record Audio", "/nonexistent",
      {[&] { ++clicks; }, [](int) { expect(false, "no choice from an empty menu"); }, nullptr,
       nullptr});
  item.setVisible(true);
  settle(bus);
  playRest(bus);
  item.setVisible(false);
  settle(bus);
  expect(clicks <= script->count("Activate", "(ii)"), "clicks that the user made");
}

using Message = fuzz::StrangeSessionManager::Message;

// None for an empty tuple, which is one byte in GVariant's layout.
std::string_view bytesOf(GVariant* value) {
  if (g_variant_n_children(value) == 0) return {};
  return {static_cast<const char*>(g_variant_get_data(value)), g_variant_get_size(value)};
}

constexpr std::uint8_t kSaveYourself = 3;
constexpr std::uint8_t kDie = 9;

// The script's signals, for a manager that identifies messages by number; an answer marks the point
// at which it accepts the client. Messages with texts are left out: the protocol's library reads
// past their end when their lengths are wrong.
std::vector<Message> messagesOf(const Script& script) {
  constexpr std::uint8_t kInteract = 6;
  constexpr std::uint8_t kShutdownCancelled = 10;
  constexpr std::uint8_t kSaveYourselfPhase2 = 17;
  constexpr std::uint8_t kSaveComplete = 18;
  constexpr std::array kOpcodes = {kSaveYourself,       kDie,         kInteract, kShutdownCancelled,
                                   kSaveYourselfPhase2, kSaveComplete};
  std::vector<Message> messages;
  bool isEarly = true;
  for (const Step& step : script.steps) {
    isEarly = isEarly && step.kind != Step::Kind::kAnswer;
    if (step.kind != Step::Kind::kSignal) continue;
    messages.push_back(
        {kOpcodes[step.number % kOpcodes.size()], bytesOf(step.value.get()), isEarly});
  }
  return messages;
}

void sessionManagerWithoutBus(const ScriptPtr& script) {
  const std::vector<Message> messages = messagesOf(*script);
  const auto count = [&](std::uint8_t opcode) {
    return std::count_if(messages.begin(), messages.end(), [&](const Message& message) {
      return !message.isEarly && message.opcode == opcode;
    });
  };
  long saves = 0;
  long ends = 0;
  const fuzz::StrangeSessionManager manager(messages);
  std::unique_ptr<linux_host::XsmpConnection> client;
  client.reset(record_audio_open_xsmp_connection({[&] {
                                                    ++saves;
                                                    client->saved();
                                                  },
                                                  [&] { ++ends; }}));
  while (client != nullptr && client->process()) {
  }
  expect(saves <= count(kSaveYourself), "an end of the session that was told");
  expect(ends <= count(kDie), "an end of the program that was told");
}

struct Scenario {
  Service service;
  void (*run)(const ScriptPtr& script);
};

constexpr const char* kPortal = "org.freedesktop.portal.Desktop";
constexpr const char* kRequest = "org.freedesktop.portal.Request";

constexpr std::array kScenarios = {
    Scenario{{"org.freedesktop.Notifications", "/org/freedesktop/Notifications",
              "org.freedesktop.Notifications"},
             notifications},
    Scenario{{kPortal, "", kRequest}, folderChooser},
    Scenario{{kPortal, "", kRequest}, microphone},
    Scenario{{kPortal, "", kRequest}, appearance},
    Scenario{{"org.gnome.SessionManager", "/org/gnome/SessionManager",
              "org.gnome.SessionManager.ClientPrivate"},
             sessionManager},
    Scenario{
        {"org.freedesktop.login1", "/org/freedesktop/login1", "org.freedesktop.login1.Manager"},
        login},
    Scenario{{"org.freedesktop.PolicyKit1", "/org/freedesktop/PolicyKit1/Authority",
              "org.freedesktop.PolicyKit1.Authority"},
             polkit},
    Scenario{{linux_host::kBusName, linux_host::kObjectPath, linux_host::kRecordAudioInterface},
             runningInstance},
    Scenario{{"org.kde.StatusNotifierWatcher", "/StatusNotifierItem", "org.kde.StatusNotifierItem",
              true},
             tray},
    Scenario{{"", kOtherPath, ""}, sessionManagerWithoutBus},
    Scenario{{kPortal, "", kRequest}, shortcut},
};

constexpr std::array kSignals = {
    "ActionInvoked",   "NotificationClosed", "Response", "PrepareForShutdown",
    "QueryEndSession", "EndSession",         "Stop",     "Activate"};

// A signal of the portal.
struct PortalSignal {
  const char* name;
  const char* path;
  const char* interface;
};
constexpr const char* kShortcuts = "org.freedesktop.portal.GlobalShortcuts";
constexpr std::array kPortalSignals = {
    PortalSignal{"Activated", linux_host::kPortalPath, kShortcuts},
    PortalSignal{"ShortcutsChanged", linux_host::kPortalPath, kShortcuts},
    PortalSignal{"Closed", "/session", "org.freedesktop.portal.Session"}};
constexpr std::array kErrors = {
    "org.freedesktop.DBus.Error.Failed", "org.freedesktop.DBus.Error.ServiceUnknown",
    "org.freedesktop.portal.Error.NotFound", linux_host::kNothingRecordedError};

// The rest of the input.
class Rest {
 public:
  Rest(const std::uint8_t* input, std::size_t size_bytes)
      : bytes_(reinterpret_cast<const char*>(input), size_bytes) {}
  [[nodiscard]] bool isEmpty() const { return bytes_.empty(); }
  std::size_t number() {
    const std::string_view one = text(1);
    return one.empty() ? 0 : static_cast<std::uint8_t>(one.front());
  }
  std::string_view text(std::size_t size_bytes) {
    const std::string_view taken = bytes_.substr(0, size_bytes);
    bytes_.remove_prefix(taken.size());
    return taken;
  }

 private:
  std::string_view bytes_;
};

// The text if it is a valid type for messages, else one simple type for each letter.
std::string tupleOf(std::string_view text) {
  std::string type = "(" + std::string(text) + ")";
  const bool isType =
      type.find('\0') == std::string::npos && g_variant_type_string_is_valid(type.c_str());
  if (isType && type.find_first_of("m*?r") == std::string::npos) return type;
  constexpr std::string_view kSimple = "ybnqiuxtdsogvh";
  type = "(";
  for (const char letter : text) {
    type += kSimple[static_cast<std::uint8_t>(letter) % kSimple.size()];
  }
  return type + ")";
}

// Bytes that are not a valid value are made into one.
VariantPtr valueOf(const std::string& type, std::string_view bytes) {
  GBytes* owned = g_bytes_new(bytes.data(), bytes.size());
  const VariantPtr raw(
      g_variant_ref_sink(g_variant_new_from_bytes(G_VARIANT_TYPE(type.c_str()), owned, FALSE)));
  g_bytes_unref(owned);
  return VariantPtr(g_variant_get_normal_form(raw.get()));
}

Step stepFrom(Rest& rest) {
  constexpr std::size_t kLongestType = 32;
  constexpr std::size_t kMostFiles = 3;
  const std::size_t kind = rest.number();
  const std::size_t detail = kind / 4;
  const std::string type = tupleOf(rest.text(rest.number() % kLongestType));
  const std::size_t low = rest.number();
  Step step;
  step.number = static_cast<unsigned>(detail);
  step.value = valueOf(type, rest.text(low | rest.number() << 8U));
  switch (kind % 4) {
    case 0:
      step.kind = Step::Kind::kAnswer;
      step.descriptors = static_cast<int>(detail % kMostFiles);
      break;
    case 1:
      step.kind = Step::Kind::kError;
      step.name = kErrors[detail % kErrors.size()];
      break;
    case 2:
      step.kind = Step::Kind::kSignal;
      step.name = kSignals[detail % kSignals.size()];
      step.isElsewhere = detail / kSignals.size() % 2 == 1;
      if (detail / kSignals.size() / 2 % 2 == 1) {
        const PortalSignal& signal = kPortalSignals[detail % kPortalSignals.size()];
        step.name = signal.name;
        step.path = signal.path;
        step.interface = signal.interface;
      }
      break;
    default:
      step.kind = detail % 2 == 0 ? Step::Kind::kLeaves : Step::Kind::kComes;
  }
  return step;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* input, std::size_t size_bytes) {
  World& world = World::instance();
  Rest rest(input, size_bytes);
  const Scenario& scenario = kScenarios[rest.number() % kScenarios.size()];
  const auto script = std::make_shared<Script>();
  while (!rest.isEmpty() && script->steps.size() < kMostSteps) {
    script->steps.push_back(stepFrom(rest));
  }
  world.bus.play(scenario.service, script);
  scenario.run(script);
  settle(world.session());
  settle(world.system());
  world.bus.play(scenario.service, nullptr);
  return 0;
}
