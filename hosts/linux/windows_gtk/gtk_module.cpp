// SPDX-License-Identifier: MIT
#include <adwaita.h>

#include <clocale>
#include <optional>

#include "hosts/linux/windows/windows_module.h"
#include "hosts/linux/windows_gtk/alerts.h"
#include "hosts/linux/windows_gtk/gtk_objects.h"
#include "hosts/linux/windows_gtk/interface_loader.h"
#include "hosts/linux/windows_gtk/screen_loss.h"
#include "hosts/linux/windows_gtk/views.h"

namespace linux_host {
namespace {

constexpr const char* kApplicationId = "com.vantrel.korvel.RecordAudio";

bool isRightToLeft(const std::string& language) {
  int count = 0;
  const PangoScript* scripts =
      pango_language_get_scripts(pango_language_from_string(language.c_str()), &count);
  return count > 0 && (scripts[0] == PANGO_SCRIPT_ARABIC || scripts[0] == PANGO_SCRIPT_HEBREW);
}

// The toolkit's own texts are in the language of the environment. Numbers stay as they are: the
// program writes them into files.
void prepareLanguage() {
  gtk_disable_setlocale();
  std::setlocale(LC_CTYPE, "");
  std::setlocale(LC_MESSAGES, "");
}

// That of our texts, not of the environment.
void setDirection(const WindowsServices& services) {
  gtk_widget_set_default_direction(isRightToLeft(services.textLanguage()) ? GTK_TEXT_DIR_RTL
                                                                          : GTK_TEXT_DIR_LTR);
}

void loadStyle() {
  const ObjectPtr<GtkCssProvider> provider(gtk_css_provider_new());
  gtk_css_provider_load_from_resource(provider.get(), "/com/vantrel/korvel/RecordAudio/style.css");
  gtk_style_context_add_provider_for_display(gdk_display_get_default(),
                                             GTK_STYLE_PROVIDER(provider.get()),
                                             GTK_STYLE_PROVIDER_PRIORITY_APPLICATION);
}

// Acts as if the user had closed each dialog.
void closeDialogs() {
  GList* windows = gtk_window_list_toplevels();
  for (GList* each = windows; each != nullptr; each = each->next) {
    auto* window = GTK_WINDOW(each->data);
    if (gtk_window_get_modal(window) != FALSE) gtk_window_close(window);
  }
  g_list_free(windows);
}

class ThemeColors : public platform::SystemColors {
 public:
  [[nodiscard]] std::optional<platform::Color> linkColor() const override {
    return themeLinkColor();
  }
};

class GtkModule : public WindowsModule {
 public:
  GtkModule(WindowsServices& services, const SourceSpan& toolkitSources)
      : services_(services),
        screenLoss_(services, toolkitSources, gdk_display_get_default()),
        alerts_(services) {
    loadStyle();
    gtk_window_set_default_icon_name(kApplicationId);
    services_.runLoopBy({}, [this] {
      alerts_.decline();
      closeDialogs();
    });
  }
  ~GtkModule() override { services_.runLoopBy({}, {}); }
  GtkModule(const GtkModule&) = delete;
  GtkModule& operator=(const GtkModule&) = delete;

  int runModal(const platform::Alert& alert) override { return alerts_.run(alert); }
  void raiseAlert() override { alerts_.raise(); }
  void dismissAlerts() override { alerts_.decline(); }
  std::shared_ptr<platform::Window> loadWindow(const std::string& interfaceFileName,
                                               platform::InterfaceOwner& owner) override {
    return loadInterface(interfaceFileName, owner, services_);
  }
  platform::Cursor& cursor() override { return cursor_; }
  platform::SystemColors& systemColors() override { return colors_; }

 private:
  WindowsServices& services_;
  ScreenLoss screenLoss_;
  WaitingAlerts alerts_;
  LinkCursor cursor_;
  ThemeColors colors_;
};

}  // namespace
}  // namespace linux_host

extern "C" __attribute__((visibility("default"))) linux_host::WindowsModule*
record_audio_create_windows_module(linux_host::WindowsServices& services, std::string* error) {
  // The class of its windows, through which desktops find the launcher.
  g_set_prgname(linux_host::kApplicationId);
  linux_host::SourceSpan sources;
  linux_host::prepareLanguage();
  if (gtk_init_check() == FALSE) {
    *error =
        "There is no screen to show a window on: neither WAYLAND_DISPLAY nor DISPLAY leads to one.";
    return nullptr;
  }
  adw_init();
  linux_host::setDirection(services);
  g_set_application_name(services.localizedString("Record Audio").c_str());
  sources.end();
  return new linux_host::GtkModule(services, sources);
}
