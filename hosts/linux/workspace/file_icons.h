#pragma once

#include <gio/gio.h>

#include <deque>
#include <string>

namespace linux_host {

// Sets the custom icons of files, one after the other, on a thread of GIO's: the service that keeps
// them may be slow or absent, and what it answers is ignored. Main thread.
class FileIcons {
 public:
  FileIcons() = default;
  ~FileIcons();
  FileIcons(const FileIcons&) = delete;
  FileIcons& operator=(const FileIcons&) = delete;

  // `iconFile` empty: removes the icon.
  void set(const std::string& file, const std::string& iconFile);
  // Runs the main loop's sources until all are set, for at most `timeout_ms`.
  void finish(int timeout_ms);

 private:
  struct Change {
    std::string file;
    std::string iconFile;
  };

  static void apply(GTask* task, gpointer source, gpointer change, GCancellable* cancellable);
  static void onApplied(GObject* source, GAsyncResult* result, gpointer self);
  void startNext();

  std::deque<Change> changes_;
  GCancellable* running_ = nullptr;
};

}  // namespace linux_host
