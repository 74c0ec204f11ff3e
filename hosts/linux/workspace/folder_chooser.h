// SPDX-License-Identifier: MIT
#pragma once

#include <gio/gio.h>

#include <functional>
#include <memory>
#include <string>

#include "hosts/linux/bus/portal_request.h"
#include "platform/thread_role.h"

namespace linux_host {

// The desktop's own folder dialog, through its portal. Main thread.
class FolderChooser {
 public:
  // `bus` may be null; it outlives the chooser.
  explicit FolderChooser(GDBusConnection* bus) : bus_(bus) {}
  // Closes an open dialog.
  ~FolderChooser();
  FolderChooser(const FolderChooser&) = delete;
  FolderChooser& operator=(const FolderChooser&) = delete;

  enum class Outcome {
    kChosen,
    kCancelled,
    kUnavailable,  // the desktop has no such dialog, or it failed
  };
  using Done = std::function<void(Outcome outcome, const std::string& path)>;

  // Opens the dialog at `folder`, one at a time. `parentWindow` is the window's name for portals
  // ("x11:" and its number); empty for none. `done` is called once: from the main loop, or at once
  // where there is no bus.
  void choose(const std::string& parentWindow, const std::string& title, const std::string& folder,
              Done done);

 private:
  struct Question;

  static void onVersion(GObject* bus, GAsyncResult* result, gpointer question);
  void ask(const Question& question);

  platform::ThreadRole mainThread_{platform::ThreadRole::Holder::kMaker};
  GDBusConnection* const bus_;
  // Tells pending calls whether the chooser still exists.
  const std::shared_ptr<FolderChooser*> self_ = std::make_shared<FolderChooser*>(this);
  std::weak_ptr<PortalRequest> request_;
};

}  // namespace linux_host
