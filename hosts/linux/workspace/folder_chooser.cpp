// SPDX-License-Identifier: MIT
#include "hosts/linux/workspace/folder_chooser.h"

#include <utility>

#include "hosts/linux/base/log.h"
#include "hosts/linux/bus/dbus_support.h"
#include "platform/file_url.h"

namespace linux_host {
namespace {

constexpr const char* kInterface = "org.freedesktop.portal.FileChooser";
// Before it, only files could be chosen.
constexpr guint32 kFirstVersionWithFolders = 3;

guint32 versionOf(GVariant* answer) {
  if (answer == nullptr) return 0;
  const VariantPtr boxed(g_variant_get_child_value(answer, 0));
  const VariantPtr version(g_variant_get_variant(boxed.get()));
  const bool isNumber = g_variant_is_of_type(version.get(), G_VARIANT_TYPE_UINT32) != FALSE;
  return isNumber ? g_variant_get_uint32(version.get()) : 0;
}

// The folder in the portal's answer; empty when it has no local path.
std::string folderIn(GVariant* results) {
  const VariantPtr uris(g_variant_lookup_value(results, "uris", G_VARIANT_TYPE_STRING_ARRAY));
  if (uris == nullptr || g_variant_n_children(uris.get()) == 0) return {};
  const VariantPtr first(g_variant_get_child_value(uris.get(), 0));
  return platform::pathWithFileURL(g_variant_get_string(first.get(), nullptr)).value_or("");
}

}  // namespace

struct FolderChooser::Question {
  std::weak_ptr<FolderChooser*> chooser;
  std::string parentWindow;
  std::string title;
  std::string folder;
  Done done;
};

FolderChooser::~FolderChooser() {
  if (const auto request = request_.lock()) request->cancel();
}

void FolderChooser::choose(const std::string& parentWindow, const std::string& title,
                           const std::string& folder, Done done) {
  mainThread_.assertHeld();
  if (bus_ == nullptr) {
    done(Outcome::kUnavailable, {});
    return;
  }
  g_dbus_connection_call(bus_, kPortalName, kPortalPath, "org.freedesktop.DBus.Properties", "Get",
                         g_variant_new("(ss)", kInterface, "version"), G_VARIANT_TYPE("(v)"),
                         G_DBUS_CALL_FLAGS_NONE, kBusTimeout_ms, nullptr, onVersion,
                         new Question{self_, parentWindow, title, folder, std::move(done)});
}

void FolderChooser::onVersion(GObject* bus, GAsyncResult* result, gpointer raw) {
  const std::unique_ptr<Question> question(static_cast<Question*>(raw));
  const VariantPtr answer(g_dbus_connection_call_finish(G_DBUS_CONNECTION(bus), result, nullptr));
  const auto chooser = question->chooser.lock();
  if (chooser == nullptr) return;
  if (versionOf(answer.get()) < kFirstVersionWithFolders) {
    question->done(Outcome::kUnavailable, {});
  } else {
    (*chooser)->ask(*question);
  }
}

void FolderChooser::ask(const Question& question) {
  mainThread_.assertHeld();
  const auto arguments = [&question](GVariantBuilder* options) {
    g_variant_builder_add(options, "{sv}", "directory", g_variant_new_boolean(TRUE));
    g_variant_builder_add(options, "{sv}", "modal", g_variant_new_boolean(TRUE));
    g_variant_builder_add(options, "{sv}", "current_folder",
                          g_variant_new_bytestring(question.folder.c_str()));
    return g_variant_new("(ssa{sv})", question.parentWindow.c_str(), question.title.c_str(),
                         options);
  };
  request_ = PortalRequest::ask(
      bus_, kInterface, "OpenFile", arguments,
      [done = question.done](PortalRequest::Outcome outcome, GVariant* results,
                             const std::string& error) {
        if (outcome == PortalRequest::Outcome::kDeclined) {
          done(Outcome::kCancelled, {});
          return;
        }
        const std::string folder = results != nullptr ? folderIn(results) : std::string();
        if (folder.empty()) {
          logMessage(LogLevel::kWarning, "The desktop's folder chooser gave no folder" +
                                             (error.empty() ? std::string() : " (" + error + ")") +
                                             "; using the toolkit's.");
        }
        done(folder.empty() ? Outcome::kUnavailable : Outcome::kChosen, folder);
      });
}

}  // namespace linux_host
