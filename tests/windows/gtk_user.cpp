// SPDX-License-Identifier: MIT
#include <X11/Xatom.h>
#include <adwaita.h>
#include <gdk/x11/gdkx.h>

#include <cmath>
#include <filesystem>
#include <stdexcept>

#include "hosts/linux/windows_gtk/gtk_objects.h"
#include "tests/base/temporary_folder.h"
#include "tests/support/child_process.h"
#include "tests/windows/window_user.h"

// The user of the GTK module, on an X server of the test's own.

namespace linux_host {
namespace {

using test_support::ChildProcess;

std::vector<GtkWindow*> windowsOnScreen() {
  std::vector<GtkWindow*> found;
  GListModel* windows = gtk_window_get_toplevels();
  for (guint at = 0; at < g_list_model_get_n_items(windows); ++at) {
    const ObjectPtr<GtkWindow> window(GTK_WINDOW(g_list_model_get_item(windows, at)));
    if (gtk_widget_get_mapped(GTK_WIDGET(window.get())) != FALSE) found.push_back(window.get());
  }
  return found;
}

void collect(GtkWidget* widget, GType type, std::vector<GtkWidget*>& found) {
  if (g_type_is_a(G_OBJECT_TYPE(widget), type) != FALSE) found.push_back(widget);
  for (GtkWidget* child = gtk_widget_get_first_child(widget); child != nullptr;
       child = gtk_widget_get_next_sibling(child)) {
    collect(child, type, found);
  }
}

std::vector<GtkWidget*> below(GtkWidget* widget, GType type) {
  std::vector<GtkWidget*> found;
  collect(widget, type, found);
  return found;
}

std::string text(const char* chars) {
  return chars != nullptr ? chars : "";
}

class GtkUser : public WindowUser {
 public:
  GtkUser() {
    const std::string number = folder_ / "display";
    screen_ = std::make_unique<ChildProcess>(ChildProcess::Command{
        {"sh", "-c",
         "exec Xvfb -noreset -displayfd 3 -screen 0 1280x900x24 -nolisten tcp 3>" + number},
        {},
        folder_ / "xvfb.log"});
    if (!until([&] { return base_test::contentsOf(number).ends_with('\n'); })) {
      throw std::runtime_error("no screen: " + base_test::contentsOf(folder_ / "xvfb.log"));
    }
    std::string display = ":" + base_test::contentsOf(number);
    display.pop_back();
    // One thread so far.
    setenv("DISPLAY", display.c_str(), 1);
    setenv("GDK_BACKEND", "x11", 1);
    setenv("GSK_RENDERER", "cairo", 1);
    setenv("GTK_A11Y", "none", 1);
    setenv("GSETTINGS_BACKEND", "memory", 1);
    setenv("ADW_DISABLE_PORTAL", "1", 1);
    unsetenv("WAYLAND_DISPLAY");
    // GTK tells of a wrong use with these. The module has none to spare.
    g_log_set_always_fatal(GLogLevelFlags(G_LOG_FATAL_MASK | G_LOG_LEVEL_CRITICAL));
  }

  bool seesAlert() override { return alert() != nullptr; }
  std::string alertText() override { return text(adw_message_dialog_get_heading(alert())); }
  std::string alertDetails() override { return text(adw_message_dialog_get_body(alert())); }
  std::vector<std::string> alertButtons() override {
    std::vector<std::string> titles;
    for (GtkWidget* button : buttonsOfAlert()) titles.push_back(titleOf(button));
    return titles;
  }
  void pressInAlert(const std::string& title) override {
    for (GtkWidget* button : buttonsOfAlert()) {
      if (titleOf(button) != title) continue;
      g_signal_emit_by_name(button, "clicked");
      return;
    }
    throw std::runtime_error("no button " + title);
  }
  void pressReturnInAlert() override { g_signal_emit_by_name(alert(), "activate-default"); }
  void pressEscapeInAlert() override { gtk_window_close(GTK_WINDOW(alert())); }
  void closeAlert() override { gtk_window_close(GTK_WINDOW(alert())); }

  bool seesWindow() override {
    for (GtkWindow* window : windowsOnScreen()) {
      if (idOf(GTK_WIDGET(window)) == "AudioPreferencesWindow") return true;
    }
    return false;
  }
  std::string windowTitle() override { return text(gtk_window_get_title(window())); }
  void pressEscape() override {
    gtk_widget_activate_action(GTK_WIDGET(window()), "window.close", nullptr);
  }
  void pressReturn() override { g_signal_emit_by_name(window(), "activate-default"); }
  void closeWindow() override { gtk_window_close(window()); }
  // As a window manager does; there is none.
  void minimize(bool minimized) override {
    GdkSurface* surface = gtk_native_get_surface(GTK_NATIVE(window()));
    Display* server = gdk_x11_display_get_xdisplay(gdk_surface_get_display(surface));
    const Atom state = XInternAtom(server, "_NET_WM_STATE", False);
    const Atom hidden = XInternAtom(server, "_NET_WM_STATE_HIDDEN", False);
    XChangeProperty(server, gdk_x11_surface_get_xid(surface), state, XA_ATOM, 32, PropModeReplace,
                    reinterpret_cast<const unsigned char*>(&hidden), minimized ? 1 : 0);
    XFlush(server);
  }
  void click(const std::string& name) override {
    GtkWidget* button = control(name);
    if (gtk_widget_is_sensitive(button) != FALSE) g_signal_emit_by_name(button, "clicked");
  }
  bool seesControl(const std::string& name) override {
    return gtk_widget_get_mapped(control(name)) != FALSE;
  }
  bool isEnabled(const std::string& name) override {
    return gtk_widget_is_sensitive(control(name)) != FALSE;
  }
  bool hasKeyboard(const std::string& name) override {
    return gtk_window_get_focus(window()) == control(name);
  }
  std::vector<std::string> menu(const std::string& name) override {
    std::vector<std::string> titles;
    GListModel* model = adw_combo_row_get_model(row(name));
    for (guint at = 0; at < g_list_model_get_n_items(model); ++at) {
      const ObjectPtr<GtkStringObject> item(GTK_STRING_OBJECT(g_list_model_get_item(model, at)));
      titles.push_back(text(gtk_string_object_get_string(item.get())));
    }
    return titles;
  }
  std::string chosen(const std::string& name) override {
    gpointer item = adw_combo_row_get_selected_item(row(name));
    return item != nullptr ? text(gtk_string_object_get_string(GTK_STRING_OBJECT(item))) : "";
  }
  bool showsWholeTexts(const std::string& name) override {
    for (GtkWidget* label : below(control(name), GTK_TYPE_LABEL)) {
      PangoLayout* layout = gtk_label_get_layout(GTK_LABEL(label));
      const bool isCut = pango_layout_is_ellipsized(layout) != FALSE;
      if (gtk_widget_get_mapped(label) != FALSE && isCut) return false;
    }
    return true;
  }
  void pick(const std::string& name, int at) override {
    adw_action_row_activate(ADW_ACTION_ROW(row(name)));
    GtkWidget* popover = below(GTK_WIDGET(row(name)), GTK_TYPE_POPOVER).at(0);
    if (!until([&] { return gtk_widget_get_mapped(popover) != FALSE; })) {
      throw std::runtime_error("the menu does not open");
    }
    // As a click does: it selects the row in the menu, and activates it.
    GtkWidget* list = below(popover, GTK_TYPE_LIST_VIEW).at(0);
    gtk_selection_model_select_item(gtk_list_view_get_model(GTK_LIST_VIEW(list)),
                                    static_cast<guint>(at), TRUE);
    g_signal_emit_by_name(list, "activate", static_cast<guint>(at));
  }
  std::string shownFolder() override {
    std::string shown = text(adw_action_row_get_subtitle(ADW_ACTION_ROW(folderRow())));
    for (const std::string mark : {"\u2066", "\u2069"}) {
      const std::size_t at = shown.find(mark);
      if (at != std::string::npos) shown.erase(at, mark.size());
    }
    return shown;
  }
  std::string folderTip() override { return text(gtk_widget_get_tooltip_text(folderRow())); }
  std::optional<double> shownLevel() override {
    GtkWidget* level = control("audioLevel");
    if (gtk_widget_get_opacity(level) == 0) return std::nullopt;
    return gtk_level_bar_get_value(GTK_LEVEL_BAR(level));
  }
  bool isRightToLeft() override {
    return gtk_widget_get_direction(GTK_WIDGET(window())) == GTK_TEXT_DIR_RTL;
  }

  bool seesShortcut() override { return isWithinItsWindow(control("shortcut-button")); }
  std::string shortcutKey() override {
    return text(gtk_label_get_text(GTK_LABEL(control("shortcut-key"))));
  }
  std::string shortcutButton() override { return titleOf(control("shortcut-button")); }
  void clickShortcutButton() override { click("shortcut-button"); }

  bool seesFolderDialog() override {
    for (GtkWindow* window : windowsOnScreen()) {
      if (GTK_IS_FILE_CHOOSER_DIALOG(window)) return true;
    }
    return false;
  }
  bool answerFolderDialog(const std::optional<std::string>& path) override {
    for (GtkWindow* window : windowsOnScreen()) {
      if (!GTK_IS_FILE_CHOOSER_DIALOG(window)) continue;
      if (!path) {
        gtk_dialog_response(GTK_DIALOG(window), GTK_RESPONSE_CANCEL);
        return true;
      }
      auto* chooser = GTK_FILE_CHOOSER(window);
      const ObjectPtr<GFile> wanted(g_file_new_for_path(path->c_str()));
      const ObjectPtr<GFile> now(gtk_file_chooser_get_file(chooser));
      if (now != nullptr && g_file_equal(now.get(), wanted.get()) != FALSE) {
        gtk_dialog_response(GTK_DIALOG(window), GTK_RESPONSE_ACCEPT);
        return true;
      }
      gtk_file_chooser_set_file(chooser, wanted.get(), nullptr);
      return false;
    }
    return false;
  }

 private:
  static std::string idOf(GtkWidget* widget) {
    return text(gtk_buildable_get_buildable_id(GTK_BUILDABLE(widget)));
  }
  static std::string titleOf(GtkWidget* button) {
    std::string title = text(gtk_button_get_label(GTK_BUTTON(button)));
    for (std::size_t at = title.find("__"); at != std::string::npos;
         at = title.find("__", at + 1)) {
      title.erase(at, 1);
    }
    return title;
  }
  static bool isWithinItsWindow(GtkWidget* widget) {
    GtkWidget* window = GTK_WIDGET(gtk_widget_get_root(widget));
    graphene_rect_t place;
    if (gtk_widget_get_mapped(widget) == FALSE ||
        gtk_widget_compute_bounds(widget, window, &place) == FALSE) {
      return false;
    }
    const graphene_rect_t visible =
        GRAPHENE_RECT_INIT(0, 0, static_cast<float>(gtk_widget_get_width(window)),
                           static_cast<float>(gtk_widget_get_height(window)));
    return graphene_rect_contains_rect(&visible, &place);
  }
  static AdwMessageDialog* alert() {
    AdwMessageDialog* newest = nullptr;
    for (GtkWindow* window : windowsOnScreen()) {
      if (ADW_IS_MESSAGE_DIALOG(window)) newest = ADW_MESSAGE_DIALOG(window);
    }
    return newest;
  }
  static std::vector<GtkWidget*> buttonsOfAlert() {
    std::vector<GtkWidget*> shown;
    for (GtkWidget* button : below(GTK_WIDGET(alert()), GTK_TYPE_BUTTON)) {
      if (gtk_widget_get_child_visible(button) != FALSE && gtk_widget_get_mapped(button) != FALSE) {
        shown.push_back(button);
      }
    }
    return shown;
  }
  static GtkWindow* window() {
    GListModel* windows = gtk_window_get_toplevels();
    for (guint at = 0; at < g_list_model_get_n_items(windows); ++at) {
      const ObjectPtr<GtkWidget> each(GTK_WIDGET(g_list_model_get_item(windows, at)));
      if (idOf(each.get()) == "AudioPreferencesWindow") return GTK_WINDOW(each.get());
    }
    throw std::runtime_error("there is no preferences window");
  }
  static GtkWidget* control(const std::string& name) {
    for (GtkWidget* widget : below(GTK_WIDGET(window()), GTK_TYPE_WIDGET)) {
      if (idOf(widget) == name) return widget;
    }
    throw std::runtime_error("no control " + name);
  }
  static AdwComboRow* row(const std::string& name) { return ADW_COMBO_ROW(control(name)); }
  static GtkWidget* folderRow() { return control("folder-row"); }

  const base_test::TemporaryFolder folder_;
  std::unique_ptr<ChildProcess> screen_;
};

}  // namespace

std::unique_ptr<WindowUser> makeWindowUser() {
  return std::make_unique<GtkUser>();
}

}  // namespace linux_host
