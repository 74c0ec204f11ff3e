// SPDX-License-Identifier: MIT
#include "hosts/linux/windows_gtk/message_dialog.h"

#include <adwaita.h>

#include <cstdlib>
#include <string>
#include <utility>
#include <vector>

#include "hosts/linux/windows_gtk/gtk_objects.h"

namespace linux_host {
namespace {

constexpr const char* kExtra = "extra";

using OnAnswer = std::function<void(int)>;

// An underscore in a text does not mark a mnemonic.
std::string withoutMnemonic(const std::string& text) {
  std::string label;
  for (const char character : text) {
    label += character;
    if (character == '_') label += '_';
  }
  return label;
}

std::string responseId(std::size_t button) {
  return std::to_string(button);
}

void answer(AdwMessageDialog*, const char* response, gpointer onAnswer) {
  const std::string id = response;
  const OnAnswer call = *static_cast<OnAnswer*>(onAnswer);
  call(id == kExtra ? platform::kAlertExtraButtonReturn : std::atoi(response));
}

}  // namespace

GtkWindow* newMessage(GtkWindow* parent, const platform::Alert& alert,
                      const WindowsServices& services, OnAnswer onAnswer) {
  std::vector<std::string> buttons = alert.buttons;
  if (buttons.empty()) buttons.push_back(services.localizedString("OK"));
  auto* dialog = ADW_MESSAGE_DIALOG(
      adw_message_dialog_new(parent, alert.messageText.c_str(), alert.informativeText.c_str()));
  // Not shown by the dialog, but by lists of windows.
  gtk_window_set_title(GTK_WINDOW(dialog), services.localizedString("Record Audio").c_str());
  if (!alert.extraButton.empty()) {
    adw_message_dialog_add_response(dialog, kExtra, withoutMnemonic(alert.extraButton).c_str());
  }
  // As on this desktop: what declines comes first, what agrees last.
  for (std::size_t i = buttons.size(); i > 0; --i) {
    adw_message_dialog_add_response(dialog, responseId(i - 1).c_str(),
                                    withoutMnemonic(buttons[i - 1]).c_str());
  }
  if (buttons.size() > 1) {
    adw_message_dialog_set_response_appearance(dialog, responseId(0).c_str(),
                                               ADW_RESPONSE_SUGGESTED);
  }
  adw_message_dialog_set_default_response(dialog, responseId(0).c_str());
  adw_message_dialog_set_close_response(dialog, responseId(buttons.size() - 1).c_str());
  g_signal_connect_data(
      dialog, "response", G_CALLBACK(answer), new OnAnswer(std::move(onAnswer)),
      [](gpointer call, GClosure*) { delete static_cast<OnAnswer*>(call); }, GConnectFlags());
  gtk_window_set_modal(GTK_WINDOW(dialog), TRUE);
  return GTK_WINDOW(dialog);
}

void declineMessage(GtkWindow* message) {
  gtk_window_close(message);
}

GtkWindow* frontWindow() {
  GListModel* windows = gtk_window_get_toplevels();
  GtkWindow* front = nullptr;
  for (guint at = 0; at < g_list_model_get_n_items(windows); ++at) {
    const ObjectPtr<GtkWindow> window(GTK_WINDOW(g_list_model_get_item(windows, at)));
    const bool isShown = gtk_widget_get_mapped(GTK_WIDGET(window.get())) != FALSE;
    // The list belongs to GTK and goes on owning it.
    if (isShown && (front == nullptr || gtk_window_get_modal(window.get()) != FALSE)) {
      front = window.get();
    }
  }
  return front;
}

}  // namespace linux_host
