// SPDX-License-Identifier: MIT
#include "hosts/linux/workspace/workspace.h"

#include <fcntl.h>
#include <gio/gunixfdlist.h>

#include <cstdlib>
#include <filesystem>
#include <memory>
#include <set>
#include <utility>

#include "driver/unique_fd.h"
#include "hosts/linux/base/log.h"
#include "hosts/linux/base/toolkit_environment.h"
#include "hosts/linux/bus/dbus_support.h"
#include "platform/file_url.h"

namespace linux_host {
namespace {

constexpr const char* kPortal = "org.freedesktop.portal.Desktop";
constexpr const char* kPortalPath = "/org/freedesktop/portal/desktop";
constexpr const char* kPortalOpen = "org.freedesktop.portal.OpenURI";
constexpr const char* kFileManager = "org.freedesktop.FileManager1";
constexpr const char* kFileManagerPath = "/org/freedesktop/FileManager1";

struct Settings {
  const char* desktop;  // part of XDG_CURRENT_DESKTOP; null: any
  std::vector<std::string> command;
};

// The microphone permission pages first, then sound settings where there is no such page.
const std::vector<Settings>& knownSettings() {
  static const std::vector<Settings> settings = {
      {"GNOME", {"gnome-control-center", "microphone"}},
      {"Unity", {"gnome-control-center", "microphone"}},
      {"KDE", {"systemsettings", "kcm_pulseaudio"}},
      {"KDE", {"systemsettings5", "kcm_pulseaudio"}},
      {"Cinnamon", {"cinnamon-settings", "sound"}},
      {"MATE", {"mate-volume-control"}},
      {"LXQt", {"pavucontrol-qt"}},
      {"Pantheon", {"io.elementary.settings", "settings://privacy"}},
      {nullptr, {"pavucontrol"}},
      {nullptr, {"pavucontrol-qt"}},
      {nullptr, {"gnome-control-center", "sound"}},
      {nullptr, {"systemsettings", "kcm_pulseaudio"}},
  };
  return settings;
}

bool contains(const std::string& list, const std::string& item) {
  return (":" + list + ":").find(":" + item + ":") != std::string::npos;
}

bool isInPath(const std::string& program) {
  return TextPtr(g_find_program_in_path(program.c_str())) != nullptr;
}

void sayFailed(const std::string& uri, const char* why) {
  logMessage(LogLevel::kWarning,
             "Cannot open " + uri + ": " + why + ". Set a default application for it.");
}

void onLaunched(GObject*, GAsyncResult* result, gpointer raw) {
  const std::unique_ptr<std::string> uri(static_cast<std::string*>(raw));
  GError* failure = nullptr;
  g_app_info_launch_default_for_uri_finish(result, &failure);
  if (const ErrorPtr error(failure); error != nullptr) sayFailed(*uri, error->message);
}

void launchDefault(const std::string& uri, const std::string& token) {
  const ObjectPtr<GAppLaunchContext> context(g_app_launch_context_new());
  g_app_launch_context_unsetenv(context.get(), kToolkitVariable);
  if (!token.empty()) {
    g_app_launch_context_setenv(context.get(), "XDG_ACTIVATION_TOKEN", token.c_str());
    g_app_launch_context_setenv(context.get(), "DESKTOP_STARTUP_ID", token.c_str());
  }
  g_app_info_launch_default_for_uri_async(uri.c_str(), context.get(), nullptr, &onLaunched,
                                          new std::string(uri));
}

// Passed along with a call, for the case that it fails.
struct Opening {
  std::vector<std::string> uris;
  std::string token;
};

// Without a portal the call fails at once, or after GLib's own time limit.
void onPortalAnswered(GObject* source, GAsyncResult* result, gpointer raw) {
  const std::unique_ptr<Opening> opening(static_cast<Opening*>(raw));
  const VariantPtr answer(g_dbus_connection_call_with_unix_fd_list_finish(
      G_DBUS_CONNECTION(source), nullptr, result, nullptr));
  if (answer == nullptr) launchDefault(opening->uris.front(), opening->token);
}

GVariant* optionsWith(const std::string& token) {
  GVariantBuilder builder;
  g_variant_builder_init(&builder, G_VARIANT_TYPE("a{sv}"));
  if (!token.empty()) {
    g_variant_builder_add(&builder, "{sv}", "activation_token",
                          g_variant_new_string(token.c_str()));
  }
  return g_variant_builder_end(&builder);
}

void askPortal(GDBusConnection* bus, const char* method, GVariant* parameters, GUnixFDList* files,
               Opening opening) {
  g_dbus_connection_call_with_unix_fd_list(bus, kPortal, kPortalPath, kPortalOpen, method,
                                           parameters, G_VARIANT_TYPE("(o)"),
                                           G_DBUS_CALL_FLAGS_NONE, kBusTimeout_ms, files, nullptr,
                                           &onPortalAnswered, new Opening(std::move(opening)));
}

bool hasDefaultApplicationForScheme(const char* scheme) {
  return ObjectPtr<GAppInfo>(g_app_info_get_default_for_uri_scheme(scheme)) != nullptr;
}

bool isFolder(const std::string& path) {
  std::error_code ignored;
  return std::filesystem::is_directory(path, ignored);
}

bool hasDefaultApplication(const std::string& path) {
  const TextPtr type(isFolder(path) ? g_strdup("inode/directory")
                                    : g_content_type_guess(path.c_str(), nullptr, 0, nullptr));
  return ObjectPtr<GAppInfo>(g_app_info_get_default_for_type(type.get(), FALSE)) != nullptr;
}

// Opens the folders in which the files are.
void openFolders(const Opening& opening) {
  std::set<std::string> folders;
  for (const std::string& url : opening.uris) {
    if (const auto path = platform::pathWithFileURL(url)) {
      folders.insert(std::filesystem::path(*path).parent_path().string());
    }
  }
  for (const std::string& folder : folders) {
    launchDefault(platform::fileURLWithPath(folder), opening.token);
  }
}

void onItemsShown(GObject* source, GAsyncResult* result, gpointer raw) {
  const std::unique_ptr<Opening> opening(static_cast<Opening*>(raw));
  const VariantPtr answer(
      g_dbus_connection_call_finish(G_DBUS_CONNECTION(source), result, nullptr));
  if (answer == nullptr) openFolders(*opening);
}

void onFolderShown(GObject* source, GAsyncResult* result, gpointer raw) {
  const std::unique_ptr<Opening> opening(static_cast<Opening*>(raw));
  const VariantPtr answer(
      g_dbus_connection_call_finish(G_DBUS_CONNECTION(source), result, nullptr));
  if (answer == nullptr) launchDefault(opening->uris.front(), opening->token);
}

}  // namespace

DesktopWorkspace::DesktopWorkspace(GDBusConnection* bus,
                                   std::function<std::string(const platform::ImagePtr&)> iconFile,
                                   std::function<std::string()> takeToken)
    : bus_(bus), iconFile_(std::move(iconFile)), takeToken_(std::move(takeToken)) {}

bool DesktopWorkspace::openFile(const std::string& path) {
  mainThread_.assertHeld();
  const std::string uri = platform::fileURLWithPath(path);
  if (bus_ == nullptr) {
    if (!hasDefaultApplication(path)) return false;
    launchDefault(uri, takeToken_());
    return true;
  }
  if (isFolder(path)) {
    openFolder(uri);
    return true;
  }
  const loopback::UniqueFd fd(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
  if (!fd.valid()) return false;
  const ObjectPtr<GUnixFDList> files(g_unix_fd_list_new());
  // The list gets a duplicate.
  const gint handle = g_unix_fd_list_append(files.get(), fd.get(), nullptr);
  const std::string token = takeToken_();
  if (handle >= 0) {
    askPortal(bus_, "OpenFile", g_variant_new("(sh@a{sv})", "", handle, optionsWith(token)),
              files.get(), {{uri}, token});
  } else {
    launchDefault(uri, token);
  }
  return true;
}

void DesktopWorkspace::openFolder(const std::string& url) {
  Opening opening{{url}, takeToken_()};
  GVariantBuilder urls;
  g_variant_builder_init(&urls, G_VARIANT_TYPE("as"));
  g_variant_builder_add(&urls, "s", url.c_str());
  GVariant* parameters = g_variant_new("(ass)", &urls, opening.token.c_str());
  g_dbus_connection_call(bus_, kFileManager, kFileManagerPath, kFileManager, "ShowFolders",
                         parameters, nullptr, G_DBUS_CALL_FLAGS_NONE, kBusTimeout_ms, nullptr,
                         &onFolderShown, new Opening(std::move(opening)));
}

bool DesktopWorkspace::openURL(const std::string& url) {
  mainThread_.assertHeld();
  if (const auto path = platform::pathWithFileURL(url)) return openFile(*path);
  const TextPtr scheme(g_uri_parse_scheme(url.c_str()));
  if (scheme == nullptr) return false;
  if (bus_ != nullptr) {
    const std::string token = takeToken_();
    askPortal(bus_, "OpenURI", g_variant_new("(ss@a{sv})", "", url.c_str(), optionsWith(token)),
              nullptr, {{url}, token});
    return true;
  }
  if (!hasDefaultApplicationForScheme(scheme.get())) return false;
  launchDefault(url, takeToken_());
  return true;
}

void DesktopWorkspace::activateFileViewerSelectingURLs(const std::vector<std::string>& fileURLs) {
  mainThread_.assertHeld();
  Opening opening{fileURLs, takeToken_()};
  if (bus_ == nullptr) {
    openFolders(opening);
    return;
  }
  GVariantBuilder urls;
  g_variant_builder_init(&urls, G_VARIANT_TYPE("as"));
  for (const std::string& url : fileURLs) g_variant_builder_add(&urls, "s", url.c_str());
  GVariant* parameters = g_variant_new("(ass)", &urls, opening.token.c_str());
  g_dbus_connection_call(bus_, kFileManager, kFileManagerPath, kFileManager, "ShowItems",
                         parameters, nullptr, G_DBUS_CALL_FLAGS_NONE, kBusTimeout_ms, nullptr,
                         &onItemsShown, new Opening(std::move(opening)));
}

bool DesktopWorkspace::setIcon(const platform::ImagePtr& image, const std::string& forFile,
                               unsigned) {
  mainThread_.assertHeld();
  const std::string file = image == nullptr ? std::string() : iconFile_(image);
  if (image != nullptr && file.empty()) return false;
  icons_.set(forFile, file);
  return true;
}

bool DesktopWorkspace::openPrivacySettings() {
  mainThread_.assertHeld();
  const char* desktop = std::getenv("XDG_CURRENT_DESKTOP");
  const auto command = privacySettingsCommand(desktop == nullptr ? "" : desktop, isInPath);
  if (command.empty()) return false;
  std::vector<gchar*> arguments;
  arguments.reserve(command.size() + 1);
  for (const std::string& argument : command) {
    arguments.push_back(const_cast<gchar*>(argument.c_str()));
  }
  arguments.push_back(nullptr);
  gchar** environment = g_environ_unsetenv(g_get_environ(), kToolkitVariable);
  const bool isStarted = g_spawn_async(nullptr, arguments.data(), environment, G_SPAWN_SEARCH_PATH,
                                       nullptr, nullptr, nullptr, nullptr) != FALSE;
  g_strfreev(environment);
  return isStarted;
}

std::vector<std::string> privacySettingsCommand(
    const std::string& desktop, const std::function<bool(const std::string&)>& isInstalled) {
  for (const Settings& settings : knownSettings()) {
    const bool fits = settings.desktop == nullptr || contains(desktop, settings.desktop);
    if (fits && isInstalled(settings.command.front())) return settings.command;
  }
  return {};
}

}  // namespace linux_host
