// SPDX-License-Identifier: MIT
#include "hosts/linux/windows_gtk/output_location_view.h"

#include <utility>

#include "hosts/linux/windows_gtk/message_dialog.h"

namespace linux_host {
namespace {

// A path reads from left to right in every language.
constexpr const char* kLeftToRight = "\u2066";
constexpr const char* kEndOfLeftToRight = "\u2069";

std::string shortPath(const std::string& path) {
  const std::string home = g_get_home_dir();
  const bool isBelowHome = path.starts_with(home + "/");
  return singleLine(isBelowHome ? "~" + path.substr(home.size()) : path);
}

}  // namespace

struct OutputLocationView::Choice {
  Completion completion;
  std::string before;
  std::unique_ptr<PortalParent> parent;
  ObjectPtr<GtkFileChooserNative> dialog;
  SignalHandlers handlers;
};

OutputLocationView::OutputLocationView(GtkButton* button, WindowsServices& services,
                                       UserAct onClick)
    : WidgetView(GTK_WIDGET(button)), services_(services) {
  handlers_.connect(button, "clicked", [this, act = std::move(onClick)] {
    if (act) act(this);
  });
}

OutputLocationView::~OutputLocationView() {
  if (choice_ != nullptr) finish(true, {}, {});
}

GtkWindow* OutputLocationView::window() const {
  GtkRoot* root = widget() != nullptr ? gtk_widget_get_root(widget()) : nullptr;
  return root != nullptr ? GTK_WINDOW(root) : nullptr;
}

void OutputLocationView::updateState() {
  if (widget() == nullptr) return;
  GtkWidget* row = gtk_widget_get_ancestor(widget(), ADW_TYPE_ACTION_ROW);
  if (row == nullptr) return;
  const auto folder = services_.outputLocation();
  const std::string shown = folder ? kLeftToRight + shortPath(*folder) + kEndOfLeftToRight
                                   : services_.localizedString("Choose a folder");
  const std::string whole = folder ? singleLine(*folder) : "";
  adw_action_row_set_subtitle(ADW_ACTION_ROW(row), shown.c_str());
  gtk_widget_set_tooltip_text(row, folder ? whole.c_str() : nullptr);
  gtk_accessible_update_property(GTK_ACCESSIBLE(widget()), GTK_ACCESSIBLE_PROPERTY_DESCRIPTION,
                                 whole.c_str(), -1);
}

void OutputLocationView::handleOutputLocationChanged(Completion completion) {
  if (choice_ != nullptr) {
    // The dialog is open already.
    completion(true, 0, std::nullopt, {});
    return;
  }
  choice_ = std::make_shared<Choice>();
  choice_->completion = std::move(completion);
  choice_->before = services_.outputLocation().value_or("");
  if (widget() != nullptr) gtk_widget_set_sensitive(widget(), FALSE);
  const std::weak_ptr<Choice> waiting = choice_;
  auto parent = std::make_unique<PortalParent>(window(), [this, waiting](const std::string& name) {
    if (!waiting.expired()) askDesktop(name);
  });
  if (const auto choice = waiting.lock()) choice->parent = std::move(parent);
}

void OutputLocationView::askDesktop(const std::string& parentName) {
  const std::weak_ptr<Choice> waiting = choice_;
  services_.chooseFolder(parentName, services_.localizedString("Output folder"), choice_->before,
                         [this, waiting](const FolderChoice& made) {
                           if (waiting.expired()) return;
                           if (made.offered) {
                             take(made.path.value_or(""));
                           } else {
                             askToolkit();
                           }
                         });
}

void OutputLocationView::askToolkit() {
  GtkFileChooserNative* dialog =
      gtk_file_chooser_native_new(services_.localizedString("Output folder").c_str(), window(),
                                  GTK_FILE_CHOOSER_ACTION_SELECT_FOLDER, nullptr, nullptr);
  choice_->dialog.reset(dialog);
  gtk_native_dialog_set_modal(GTK_NATIVE_DIALOG(dialog), TRUE);
  const ObjectPtr<GFile> before(g_file_new_for_path(choice_->before.c_str()));
  gtk_file_chooser_set_current_folder(GTK_FILE_CHOOSER(dialog), before.get(), nullptr);
  choice_->handlers.connectResponse(dialog, "response", [this, dialog](int response) {
    const ObjectPtr<GFile> file(response == GTK_RESPONSE_ACCEPT
                                    ? gtk_file_chooser_get_file(GTK_FILE_CHOOSER(dialog))
                                    : nullptr);
    const TextPtr path(file != nullptr ? g_file_get_path(file.get()) : nullptr);
    take(path != nullptr ? path.get() : "");
  });
  gtk_native_dialog_show(GTK_NATIVE_DIALOG(dialog));
}

void OutputLocationView::take(const std::string& path) {
  if (path.empty() || path == choice_->before) {
    finish(true, {}, {});
    return;
  }
  const std::string error = services_.setOutputLocation(path);
  updateState();
  if (error.empty()) {
    finish(true, {}, {{"Changed", true}});
    return;
  }
  GtkWindow* message = newMessage(window(),
                                  {platform::AlertStyle::kWarning,
                                   services_.localizedString("The folder cannot be used."),
                                   error,
                                   {},
                                   {}},
                                  services_, [](int) {});
  gtk_window_present(message);
  finish(false, error, {{"Changed", false}});
}

void OutputLocationView::finish(bool success, const std::string& error,
                                const platform::Dictionary& details) {
  const auto finished = std::exchange(choice_, nullptr);
  if (finished->dialog != nullptr) {
    gtk_native_dialog_hide(GTK_NATIVE_DIALOG(finished->dialog.get()));
    // GTK may be within the dialog's own answer, and still needs it there.
    g_idle_add_once(g_object_unref, finished->dialog.release());
  }
  if (widget() != nullptr) gtk_widget_set_sensitive(widget(), TRUE);
  finished->completion(success, success ? 0 : 1,
                       success ? std::nullopt : std::optional<std::string>(error), details);
}

}  // namespace linux_host
