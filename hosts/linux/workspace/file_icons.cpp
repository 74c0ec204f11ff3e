#include "hosts/linux/workspace/file_icons.h"

#include <utility>

namespace linux_host {
namespace {

constexpr const char* kCustomIcon = "metadata::custom-icon";

}  // namespace

FileIcons::~FileIcons() {
  if (running_ == nullptr) return;
  // The task ends by itself some time; its answer finds the cancellation and nobody else.
  g_cancellable_cancel(running_);
  g_object_unref(running_);
}

void FileIcons::set(const std::string& file, const std::string& iconFile) {
  changes_.push_back({file, iconFile});
  if (running_ == nullptr) startNext();
}

void FileIcons::startNext() {
  if (changes_.empty()) return;
  running_ = g_cancellable_new();
  GTask* task = g_task_new(nullptr, running_, &FileIcons::onApplied, this);
  g_task_set_task_data(task, new Change(std::move(changes_.front())),
                       [](gpointer change) { delete static_cast<Change*>(change); });
  changes_.pop_front();
  g_task_run_in_thread(task, &FileIcons::apply);
  g_object_unref(task);
}

void FileIcons::apply(GTask* task, gpointer, gpointer data, GCancellable* cancellable) {
  const auto& change = *static_cast<const Change*>(data);
  GFile* file = g_file_new_for_path(change.file.c_str());
  gchar* icon = change.iconFile.empty()
                    ? nullptr
                    : g_filename_to_uri(change.iconFile.c_str(), nullptr, nullptr);
  const GFileAttributeType type =
      icon == nullptr ? G_FILE_ATTRIBUTE_TYPE_INVALID : G_FILE_ATTRIBUTE_TYPE_STRING;
  g_file_set_attribute(file, kCustomIcon, type, icon, G_FILE_QUERY_INFO_NONE, cancellable, nullptr);
  g_free(icon);
  g_object_unref(file);
  g_task_return_boolean(task, TRUE);
}

void FileIcons::onApplied(GObject*, GAsyncResult* result, gpointer raw) {
  // Cancelled by the destructor: there is no object any more.
  if (g_cancellable_is_cancelled(g_task_get_cancellable(G_TASK(result))) != FALSE) return;
  auto& self = *static_cast<FileIcons*>(raw);
  g_clear_object(&self.running_);
  self.startNext();
}

void FileIcons::finish(int timeout_ms) {
  const gint64 end_us = g_get_monotonic_time() + gint64{timeout_ms} * 1000;
  // Wakes the loop when the time is up.
  const guint wake = g_timeout_add(
      static_cast<guint>(timeout_ms), [](gpointer) -> gboolean { return G_SOURCE_CONTINUE; },
      nullptr);
  while (running_ != nullptr && g_get_monotonic_time() < end_us) {
    g_main_context_iteration(nullptr, TRUE);
  }
  g_source_remove(wake);
}

}  // namespace linux_host
