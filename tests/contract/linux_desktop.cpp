// SPDX-License-Identifier: MIT
#include "tests/contract/linux_desktop.h"

#include <gio/gunixfdlist.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <utility>

#include "platform/file_url.h"

namespace contract {
namespace {

constexpr const char* kOpenURI = R"(<node><interface name="org.freedesktop.portal.OpenURI">
  <method name="OpenFile"><arg type="s" direction="in"/><arg type="h" direction="in"/>
    <arg type="a{sv}" direction="in"/><arg type="o" direction="out"/></method>
  <method name="OpenURI"><arg type="s" direction="in"/><arg type="s" direction="in"/>
    <arg type="a{sv}" direction="in"/><arg type="o" direction="out"/></method>
</interface></node>)";
constexpr const char* kFileManager = R"(<node><interface name="org.freedesktop.FileManager1">
  <method name="ShowItems"><arg type="as" direction="in"/><arg type="s" direction="in"/></method>
  <method name="ShowFolders"><arg type="as" direction="in"/><arg type="s" direction="in"/></method>
</interface></node>)";

// The URL of the only file that came with a call.
std::string sentFile(GDBusMethodInvocation* invocation) {
  GUnixFDList* const files =
      g_dbus_message_get_unix_fd_list(g_dbus_method_invocation_get_message(invocation));
  const int file = files == nullptr ? -1 : g_unix_fd_list_get(files, 0, nullptr);
  if (file < 0) throw std::runtime_error("no file came with the call");
  const auto path = std::filesystem::read_symlink("/proc/self/fd/" + std::to_string(file));
  close(file);
  return platform::fileURLWithPath(path.string());
}

}  // namespace

LinuxDesktop::LinuxDesktop(const std::string& busAddress, std::string programs)
    : programs_(std::move(programs)),
      portal_(busAddress, "org.freedesktop.portal.Desktop", "/org/freedesktop/portal/desktop",
              kOpenURI,
              [this](auto* invocation, auto* arguments) { onOpen(invocation, arguments); }),
      fileManager_(busAddress, "org.freedesktop.FileManager1", "/org/freedesktop/FileManager1",
                   kFileManager,
                   [this](auto* invocation, auto* arguments) { onShow(invocation, arguments); }) {}

LinuxDesktop::~LinuxDesktop() {
  setHasPrivacySettings(false);
  std::error_code ignored;
  std::filesystem::remove(settingsJournal(), ignored);
}

void LinuxDesktop::onOpen(GDBusMethodInvocation* invocation, GVariant* arguments) {
  const std::string method = g_dbus_method_invocation_get_method_name(invocation);
  if (method == "OpenFile") {
    opened_.push_back(sentFile(invocation));
  } else {
    const gchar* url = nullptr;
    g_variant_get_child(arguments, 1, "&s", &url);
    opened_.emplace_back(url);
  }
  g_dbus_method_invocation_return_value(
      invocation, g_variant_new("(o)", "/org/freedesktop/portal/desktop/request"));
}

void LinuxDesktop::onShow(GDBusMethodInvocation* invocation, GVariant* arguments) {
  GVariantIter* urls = nullptr;
  g_variant_get_child(arguments, 0, "as", &urls);
  std::vector<std::string> shown;
  const gchar* url = nullptr;
  while (g_variant_iter_next(urls, "&s", &url) != FALSE) shown.emplace_back(url);
  g_variant_iter_free(urls);
  if (g_dbus_method_invocation_get_method_name(invocation) == std::string("ShowItems")) {
    shown_.push_back(std::move(shown));
  } else {
    opened_.insert(opened_.end(), shown.begin(), shown.end());
  }
  g_dbus_method_invocation_return_value(invocation, nullptr);
}

// Writes a letter each time it is started.
void LinuxDesktop::setHasPrivacySettings(bool has) {
  if (!has) {
    std::filesystem::remove(settingsProgram());
    return;
  }
  std::ofstream(settingsProgram()) << "#!/bin/sh\nprintf x >> '" << settingsJournal() << "'\n";
  if (chmod(settingsProgram().c_str(), 0755) != 0) {
    throw std::runtime_error("cannot make " + settingsProgram());
  }
}

int LinuxDesktop::privacySettingsOpened() {
  std::ifstream journal(settingsJournal());
  return static_cast<int>(
      std::distance(std::istreambuf_iterator<char>(journal), std::istreambuf_iterator<char>()));
}

}  // namespace contract
