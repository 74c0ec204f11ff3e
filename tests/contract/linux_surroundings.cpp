// SPDX-License-Identifier: MIT
#include "tests/contract/linux_surroundings.h"

#include <sys/stat.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>

#include "platform/file_url.h"
#include "tests/support/notification_interface.h"

namespace contract {
namespace {

constexpr const char* kPolicyKit = R"x(<node><interface name="org.freedesktop.PolicyKit1.Authority">
  <method name="CheckAuthorization">
    <arg type="(sa{sv})" direction="in"/><arg type="s" direction="in"/>
    <arg type="a{ss}" direction="in"/><arg type="u" direction="in"/><arg type="s" direction="in"/>
    <arg type="(bba{ss})" direction="out"/>
  </method></interface></node>)x";
constexpr const char* kLogin1 = R"(<node><interface name="org.freedesktop.login1.Manager">
  <method name="Reboot"><arg type="b" direction="in"/></method></interface></node>)";

constexpr const char* kProgram = "com.vantrel.korvel.RecordAudio";
constexpr const char* kProgramPath = "/com/vantrel/korvel/RecordAudio";

linux_host::ConnectionPtr connected(const std::string& address) {
  auto connection = linux_host::connectTo(address, true, linux_host::kBusTimeout_ms);
  if (!connection) throw std::runtime_error(connection.error());
  return *std::move(connection);
}

std::string firstLineOf(const std::string& text) {
  return text.substr(0, text.find('\n'));
}

std::string refusesNothing(const std::string&) {
  return {};
}

}  // namespace

NotificationServer::NotificationServer(const std::string& busAddress)
    : service_(busAddress, test_support::kNotificationsName, test_support::kNotificationsPath,
               test_support::kNotificationsXml,
               [this](GDBusMethodInvocation* invocation, GVariant* arguments) {
                 onCall(invocation, arguments);
               }) {}

void NotificationServer::onCall(GDBusMethodInvocation* invocation, GVariant* arguments) {
  const std::string method = g_dbus_method_invocation_get_method_name(invocation);
  GVariant* answer = nullptr;
  if (method == "GetCapabilities") {
    const gchar* names[] = {"actions", "body", "persistence", nullptr};
    answer = g_variant_new("(^as)", names);
  } else if (method == "Notify") {
    const gchar* title = nullptr;
    const gchar* body = nullptr;
    g_variant_get_child(arguments, 3, "&s", &title);
    g_variant_get_child(arguments, 4, "&s", &body);
    shown_[++lastID_] = {firstLineOf(body), std::string(title) + "\n" + body};
    answer = g_variant_new("(u)", lastID_);
  } else {
    guint32 id = 0;
    g_variant_get(arguments, "(u)", &id);
    shown_.erase(id);
  }
  g_dbus_method_invocation_return_value(invocation, answer);
}

std::vector<std::string> NotificationServer::firstLines() const {
  std::vector<std::string> lines;
  for (const auto& [id, shown] : shown_) lines.push_back(shown.firstLine);
  return lines;
}

std::string NotificationServer::textOf(const std::string& firstLine) const {
  for (const auto& [id, shown] : shown_) {
    if (shown.firstLine == firstLine) return shown.text;
  }
  return {};
}

void NotificationServer::act(const std::string& firstLine, Surroundings::Act act) {
  const auto found = std::ranges::find_if(
      shown_, [&](const auto& notification) { return notification.second.firstLine == firstLine; });
  if (found == shown_.end()) throw std::logic_error("no notification says " + firstLine);
  const guint32 id = found->first;
  if (act == Surroundings::Act::kClose) {
    constexpr guint32 kByTheUser = 2;
    shown_.erase(found);
    service_.emit("NotificationClosed", g_variant_new("(uu)", id, kByTheUser));
  } else {
    service_.emit(
        "ActionInvoked",
        g_variant_new("(us)", id, act == Surroundings::Act::kClick ? "default" : "button"));
  }
}

LinuxSurroundings::LinuxSurroundings(linux_host::LinuxHost& host, const std::string& busAddress,
                                     std::string folder, std::string programs)
    : host_(host),
      busAddress_(busAddress),
      folder_(std::move(folder)),
      programs_(std::move(programs)),
      otherProgram_(connected(busAddress)),
      notifications_(busAddress),
      polkit_(busAddress, "org.freedesktop.PolicyKit1", "/org/freedesktop/PolicyKit1/Authority",
              kPolicyKit,
              [this](GDBusMethodInvocation* invocation, GVariant*) {
                g_dbus_method_invocation_return_value(
                    invocation, g_variant_new_parsed("((%b, false, @a{ss} {}),)", grantsRights_));
              }),
      login_(busAddress, "org.freedesktop.login1", "/org/freedesktop/login1", kLogin1,
             [this](GDBusMethodInvocation* invocation, GVariant*) {
               ++restartsAskedFor_;
               if (restarts_) return g_dbus_method_invocation_return_value(invocation, nullptr);
               g_dbus_method_invocation_return_dbus_error(
                   invocation, "org.freedesktop.DBus.Error.AccessDenied", "no");
             }),
      systemBus_(busAddress),
      authorization_(systemBus_, refusesNothing, makePkexec()),
      launchServices_({folder_}, refusesNothing, ""),
      ports_(withServices(host.environment().host, authorization_, launchServices_)) {}

platform::Host LinuxSurroundings::withServices(const platform::Host& ports,
                                               platform::Authorization& authorization,
                                               platform::LaunchServices& launchServices) {
  return {.application = ports.application,
          .alerts = ports.alerts,
          .workspace = ports.workspace,
          .interfaceLoader = ports.interfaceLoader,
          .cursor = ports.cursor,
          .systemColors = ports.systemColors,
          .userNotificationCenter = ports.userNotificationCenter,
          .wallClock = ports.wallClock,
          .userDefaults = ports.userDefaults,
          .fileManager = ports.fileManager,
          .mainBundle = ports.mainBundle,
          .bundleLoader = ports.bundleLoader,
          .processInfo = ports.processInfo,
          .runLoop = ports.runLoop,
          .notificationCenter = ports.notificationCenter,
          .dateFormatter = ports.dateFormatter,
          .userAccount = ports.userAccount,
          .hostClock = ports.hostClock,
          .dispatch = ports.dispatch,
          .capture = ports.capture,
          .audioHardware = ports.audioHardware,
          .audioUnits = ports.audioUnits,
          .authorization = authorization,
          .launchServices = launchServices,
          .appleEvents = ports.appleEvents,
          .interruptedRecordings = ports.interruptedRecordings};
}

Desktop& LinuxSurroundings::desktop() {
  if (!desktop_) desktop_.emplace(busAddress_, programs_);
  return *desktop_;
}

void LinuxSurroundings::setMicrophonePermission(platform::AuthorizationStatus status,
                                                bool userAgrees) {
  using Portal = integration_test::FakePermissions::Portal;
  const char* entry = "yes";
  if (status == platform::AuthorizationStatus::kDenied) entry = "no";
  if (status == platform::AuthorizationStatus::kNotDetermined) entry = "ask";
  permissions_.reset();
  permissions_.emplace(std::string("{'") + kProgram + "': ['" + entry + "']}",
                       userAgrees ? Portal::kGrants : Portal::kRefuses);
}

// Writes a line for each program: its path and arguments, each with a tab behind it.
std::string LinuxSurroundings::makePkexec() const {
  const std::string path = folder_ + "/pkexec";
  std::ofstream(path)
      << "#!/bin/sh\nshift\nline=$(printf '%s\\t' \"$@\")\nprintf '%s\\n' \"$line\" >> " << folder_
      << "/started\n";
  if (chmod(path.c_str(), 0755) != 0) throw std::runtime_error("cannot make " + path);
  return path;
}

std::vector<std::vector<std::string>> LinuxSurroundings::programsStartedWithRights() {
  std::vector<std::vector<std::string>> programs;
  std::ifstream file(folder_ + "/started");
  for (std::string line; std::getline(file, line);) {
    programs.emplace_back();
    std::istringstream words(line);
    for (std::string word; std::getline(words, word, '\t');) programs.back().push_back(word);
  }
  return programs;
}

void LinuxSurroundings::run(std::shared_ptr<platform::ApplicationDelegate> delegate,
                            std::shared_ptr<platform::RemoteControl> remote,
                            const std::vector<std::string>& pathsToOpen) {
  if (host_.becomeInstance({})) throw std::runtime_error("another instance runs on this bus");
  linux_host::LinuxHost::Launch launch;
  launch.pathsToOpen = pathsToOpen;
  static_cast<void>(host_.run(std::move(delegate), std::move(remote), launch));
}

void LinuxSurroundings::startAgain(const std::vector<std::string>& pathsToOpen) {
  GVariantBuilder uris;
  g_variant_builder_init(&uris, G_VARIANT_TYPE("as"));
  for (const std::string& path : pathsToOpen) {
    g_variant_builder_add(&uris, "s", platform::fileURLWithPath(path).c_str());
  }
  GVariantBuilder noData;
  g_variant_builder_init(&noData, G_VARIANT_TYPE("a{sv}"));
  GVariant* arguments = g_variant_new("(asa{sv})", &uris, &noData);
  if (pathsToOpen.empty()) {
    g_variant_unref(g_variant_ref_sink(arguments));
    g_variant_builder_init(&noData, G_VARIANT_TYPE("a{sv}"));
    arguments = g_variant_new("(a{sv})", &noData);
  }
  g_dbus_connection_call(otherProgram_.get(), kProgram, kProgramPath, "org.freedesktop.Application",
                         pathsToOpen.empty() ? "Activate" : "Open", arguments, nullptr,
                         G_DBUS_CALL_FLAGS_NONE, linux_host::kBusTimeout_ms, nullptr, nullptr,
                         nullptr);
}

std::string LinuxSurroundings::installApplication(const std::string& bundleIdentifier) {
  const std::string name = "application" + std::to_string(++installed_);
  const std::string path = "/opt/" + name;
  std::filesystem::create_directories(folder_ + "/applications");
  std::ofstream(folder_ + "/applications/" + name + ".desktop")
      << "[Desktop Entry]\nType=Application\nName=" << name
      << "\nX-Vantrel-BundleIdentifier=" << bundleIdentifier << "\nX-Vantrel-BundlePath=" << path
      << "\n";
  return path;
}

}  // namespace contract
