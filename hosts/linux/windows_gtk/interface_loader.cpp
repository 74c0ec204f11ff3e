// SPDX-License-Identifier: MIT
#include "hosts/linux/windows_gtk/interface_loader.h"

#include <adwaita.h>

#include "hosts/linux/windows_gtk/gtk_objects.h"
#include "hosts/linux/windows_gtk/interface_file.h"
#include "hosts/linux/windows_gtk/interface_window.h"
#include "hosts/linux/windows_gtk/output_location_view.h"
#include "hosts/linux/windows_gtk/pop_up_view.h"
#include "hosts/linux/windows_gtk/shortcut_row.h"
#include "hosts/linux/windows_gtk/views.h"

namespace linux_host {
namespace {

// The control that has the keyboard when the window opens.
constexpr const char* kFirstControl = "audioSource";

struct UnrefBytes {
  void operator()(GBytes* bytes) const { g_bytes_unref(bytes); }
};

// Null when there is no such file.
std::unique_ptr<GBytes, UnrefBytes> resource(const std::string& fileName) {
  const std::string path = "/com/vantrel/korvel/RecordAudio/" + fileName + ".ui";
  return std::unique_ptr<GBytes, UnrefBytes>(
      g_resources_lookup_data(path.c_str(), G_RESOURCE_LOOKUP_FLAGS_NONE, nullptr));
}

std::string_view textOf(GBytes* bytes) {
  gsize size = 0;
  const auto* data = static_cast<const char*>(g_bytes_get_data(bytes, &size));
  return {data, size};
}

std::shared_ptr<platform::View> viewOf(GObject* object, const std::string& name,
                                       WindowsServices& services, UserAct act) {
  if (ADW_IS_COMBO_ROW(object)) {
    return std::make_shared<PopUpView>(
        ADW_COMBO_ROW(object), services.localizedString("Unnamed microphone"), std::move(act));
  }
  if (GTK_IS_LEVEL_BAR(object)) return std::make_shared<LevelView>(GTK_LEVEL_BAR(object));
  if (GTK_IS_BUTTON(object) && name == "outputLocation") {
    return std::make_shared<OutputLocationView>(GTK_BUTTON(object), services, std::move(act));
  }
  if (GTK_IS_BUTTON(object))
    return std::make_shared<ButtonView>(GTK_BUTTON(object), std::move(act));
  if (GTK_IS_LABEL(object)) return std::make_shared<LabelView>(GTK_LABEL(object));
  return nullptr;
}

// A combo row puts what is added to it behind its arrow; the level belongs before the choice.
void placeBeforeChoice(GtkWidget* level) {
  GtkWidget* box = gtk_widget_get_parent(level);
  if (box != nullptr && GTK_IS_BOX(box)) gtk_box_reorder_child_after(GTK_BOX(box), level, nullptr);
}

std::string idOf(gpointer object) {
  const char* id =
      GTK_IS_BUILDABLE(object) ? gtk_buildable_get_buildable_id(GTK_BUILDABLE(object)) : nullptr;
  return id != nullptr ? id : "";
}

// What the objects of an interface file become.
class Connector {
 public:
  Connector(GtkBuilder* builder, const InterfaceFile& file, platform::InterfaceOwner& owner,
            WindowsServices& services)
      : builder_(builder), file_(file), owner_(owner), services_(services) {}

  // Null when the file has no window of that name.
  std::shared_ptr<platform::Window> connect(const std::string& windowName) {
    GObject* found = gtk_builder_get_object(builder_, windowName.c_str());
    if (found == nullptr || !GTK_IS_WINDOW(found)) return nullptr;
    auto done = actionOf(windowName);
    const InterfaceWindow::Parts parts{object<AdwHeaderBar>("header-bar", ADW_TYPE_HEADER_BAR),
                                       object<GtkWidget>(kFirstControl, GTK_TYPE_WIDGET)};
    auto window = std::make_shared<InterfaceWindow>(GTK_WINDOW(found), parts, services_, [done] {
      if (done) done(nullptr);
    });
    connectOutlets(*window, windowName);
    connectShortcutRow(*window);
    return window;
  }

 private:
  [[nodiscard]] UserAct actionOf(const std::string& id) const {
    const auto found = file_.actions.find(id);
    if (found == file_.actions.end()) return nullptr;
    return [&owner = owner_, action = found->second](platform::View* sender) {
      owner.performAction(action, sender);
    };
  }

  template <typename Type>
  Type* object(const char* id, GType type) const {
    GObject* found = gtk_builder_get_object(builder_, id);
    const bool isOfType = found != nullptr && g_type_is_a(G_OBJECT_TYPE(found), type) != FALSE;
    return isOfType ? reinterpret_cast<Type*>(found) : nullptr;
  }

  void connectOutlets(InterfaceWindow& window, const std::string& windowName) {
    GSList* objects = gtk_builder_get_objects(builder_);
    for (GSList* each = objects; each != nullptr; each = each->next) {
      const std::string id = idOf(each->data);
      const bool isOutlet = !id.empty() && id != windowName && id.find('-') == std::string::npos &&
                            !id.starts_with("_");
      if (!isOutlet) continue;
      const auto view = viewOf(G_OBJECT(each->data), id, services_, actionOf(id));
      if (view == nullptr) continue;
      if (GTK_IS_LEVEL_BAR(each->data)) placeBeforeChoice(GTK_WIDGET(each->data));
      window.keep(view);
      owner_.connectOutlet(id, view);
    }
    g_slist_free(objects);
  }

  void connectShortcutRow(InterfaceWindow& window) {
    const ShortcutRow::Parts parts{object<GtkWidget>("shortcut-group", GTK_TYPE_WIDGET),
                                   object<GtkLabel>("shortcut-key", GTK_TYPE_LABEL),
                                   object<GtkButton>("shortcut-button", GTK_TYPE_BUTTON)};
    if (parts.group == nullptr || parts.key == nullptr || parts.button == nullptr) return;
    window.keep(std::make_shared<ShortcutRow>(parts, services_));
  }

  GtkBuilder* const builder_;
  const InterfaceFile& file_;
  platform::InterfaceOwner& owner_;
  WindowsServices& services_;
};

}  // namespace

std::shared_ptr<platform::Window> loadInterface(const std::string& interfaceFileName,
                                                platform::InterfaceOwner& owner,
                                                WindowsServices& services) {
  const auto bytes = resource(interfaceFileName);
  if (bytes == nullptr) return nullptr;
  const auto file = readInterface(textOf(bytes.get()), services);
  if (!file) return nullptr;
  const ObjectPtr<GtkBuilder> builder(gtk_builder_new());
  GError* error = nullptr;
  if (gtk_builder_add_from_string(builder.get(), file->xml.c_str(),
                                  static_cast<gssize>(file->xml.size()), &error) == FALSE) {
    g_critical("%s: %s", interfaceFileName.c_str(), error->message);
    g_error_free(error);
    return nullptr;
  }
  return Connector(builder.get(), *file, owner, services).connect(interfaceFileName);
}

}  // namespace linux_host
