// SPDX-License-Identifier: MIT
#include "hosts/linux/windows_gtk/pop_up_view.h"

#include <algorithm>
#include <utility>

#include "hosts/linux/windows/menu_changes.h"

namespace linux_host {
namespace {

constexpr const char* kAfterSeparator = "after-separator";
// Beyond it a name is shortened, and shown in full by its tool tip.
constexpr int kWidestInRow_characters = 38;
constexpr int kWidestInMenu_characters = 50;

const char* titleOf(gpointer object) {
  return gtk_string_object_get_string(GTK_STRING_OBJECT(object));
}

gboolean showWholeTitle(GtkWidget* label, int, int, gboolean, GtkTooltip* tooltip, gpointer) {
  if (pango_layout_is_ellipsized(gtk_label_get_layout(GTK_LABEL(label))) == FALSE) return FALSE;
  gtk_tooltip_set_text(tooltip, gtk_label_get_text(GTK_LABEL(label)));
  return TRUE;
}

GtkWidget* newTitle(int widest_characters) {
  GtkWidget* label = gtk_label_new(nullptr);
  gtk_label_set_xalign(GTK_LABEL(label), 0);
  gtk_label_set_ellipsize(GTK_LABEL(label), PANGO_ELLIPSIZE_MIDDLE);
  gtk_label_set_max_width_chars(GTK_LABEL(label), widest_characters);
  gtk_widget_set_has_tooltip(label, TRUE);
  g_signal_connect(label, "query-tooltip", G_CALLBACK(showWholeTitle), nullptr);
  return label;
}

// Screen readers hear the row, not the label in it.
void nameRow(GtkListItem* item, const char* title) {
  GtkWidget* cell = gtk_widget_get_parent(gtk_list_item_get_child(item));
  if (cell == nullptr) return;
  gtk_accessible_update_property(GTK_ACCESSIBLE(cell), GTK_ACCESSIBLE_PROPERTY_LABEL, title, -1);
}

// The row itself, which shows what is chosen.

void setUpChosen(GtkSignalListItemFactory*, GtkListItem* item, gpointer) {
  gtk_list_item_set_child(item, newTitle(kWidestInRow_characters));
}

void bindChosen(GtkSignalListItemFactory*, GtkListItem* item, gpointer) {
  const char* title = titleOf(gtk_list_item_get_item(item));
  gtk_label_set_text(GTK_LABEL(gtk_list_item_get_child(item)), title);
  nameRow(item, title);
}

// The menu: titles, and a mark at the one that is chosen.

void updateMark(AdwComboRow* row, GParamSpec*, GtkListItem* item) {
  GtkWidget* box = gtk_list_item_get_child(item);
  if (box == nullptr) return;
  const bool isChosen = gtk_list_item_get_position(item) == adw_combo_row_get_selected(row);
  gtk_widget_set_opacity(gtk_widget_get_last_child(box), isChosen ? 1 : 0);
}

void setUpRow(GtkSignalListItemFactory*, GtkListItem* item, gpointer row) {
  GtkWidget* box = gtk_box_new(GTK_ORIENTATION_HORIZONTAL, 6);
  GtkWidget* title = newTitle(kWidestInMenu_characters);
  gtk_widget_set_hexpand(title, TRUE);
  gtk_box_append(GTK_BOX(box), title);
  GtkWidget* mark = gtk_image_new_from_icon_name("object-select-symbolic");
  gtk_accessible_update_state(GTK_ACCESSIBLE(mark), GTK_ACCESSIBLE_STATE_HIDDEN, TRUE, -1);
  gtk_box_append(GTK_BOX(box), mark);
  gtk_list_item_set_child(item, box);
  g_signal_connect_object(row, "notify::selected", G_CALLBACK(updateMark), item, GConnectFlags());
}

void bindRow(GtkSignalListItemFactory*, GtkListItem* item, gpointer row) {
  GtkWidget* box = gtk_list_item_get_child(item);
  gpointer shown = gtk_list_item_get_item(item);
  gtk_label_set_text(GTK_LABEL(gtk_widget_get_first_child(box)), titleOf(shown));
  nameRow(item, titleOf(shown));
  if (g_object_get_data(G_OBJECT(shown), kAfterSeparator) != nullptr) {
    gtk_widget_add_css_class(box, kAfterSeparator);
  } else {
    gtk_widget_remove_css_class(box, kAfterSeparator);
  }
  updateMark(ADW_COMBO_ROW(row), nullptr, item);
}

ObjectPtr<GtkListItemFactory> factory(GCallback setUp, GCallback bind, AdwComboRow* row) {
  ObjectPtr<GtkListItemFactory> made(gtk_signal_list_item_factory_new());
  g_signal_connect(made.get(), "setup", setUp, row);
  g_signal_connect(made.get(), "bind", bind, row);
  return made;
}

template <typename Found>
Found* firstBelow(GtkWidget* widget, GType type) {
  for (GtkWidget* child = gtk_widget_get_first_child(widget); child != nullptr;
       child = gtk_widget_get_next_sibling(child)) {
    if (g_type_is_a(G_OBJECT_TYPE(child), type) != FALSE) return reinterpret_cast<Found*>(child);
    if (auto* found = firstBelow<Found>(child, type)) return found;
  }
  return nullptr;
}

// The selection behind a list of a combo row; null where this libadwaita builds it otherwise.
GtkSingleSelection* selectionOf(GtkListView* list) {
  gpointer model = gtk_list_view_get_model(list);
  if (GTK_IS_NO_SELECTION(model)) model = gtk_no_selection_get_model(GTK_NO_SELECTION(model));
  if (GTK_IS_SELECTION_FILTER_MODEL(model)) {
    model = gtk_selection_filter_model_get_model(GTK_SELECTION_FILTER_MODEL(model));
  }
  return GTK_IS_SINGLE_SELECTION(model) ? GTK_SINGLE_SELECTION(model) : nullptr;
}

// Newer versions of GTK otherwise ignore that nothing is to be selected. The row has two lists: of
// what is chosen, and its menu.
void letNothingBeSelected(GtkWidget* row) {
  auto* popover = firstBelow<GtkWidget>(row, GTK_TYPE_POPOVER);
  for (GtkWidget* where : {row, popover}) {
    auto* list = where != nullptr ? firstBelow<GtkListView>(where, GTK_TYPE_LIST_VIEW) : nullptr;
    GtkSingleSelection* selection = list != nullptr ? selectionOf(list) : nullptr;
    if (selection == nullptr) continue;
    gtk_single_selection_set_autoselect(selection, FALSE);
    gtk_single_selection_set_can_unselect(selection, TRUE);
  }
}

gboolean showChosenTitle(GtkWidget* row, int, int, gboolean, GtkTooltip* tooltip, gpointer) {
  gpointer chosen = adw_combo_row_get_selected_item(ADW_COMBO_ROW(row));
  if (chosen == nullptr) return FALSE;
  const char* title = titleOf(chosen);
  if (g_utf8_strlen(title, -1) <= kWidestInRow_characters) return FALSE;
  gtk_tooltip_set_text(tooltip, title);
  return TRUE;
}

}  // namespace

PopUpView::PopUpView(AdwComboRow* row, std::string unnamedItem, UserAct onPick)
    : WidgetView(GTK_WIDGET(row)),
      unnamedItem_(std::move(unnamedItem)),
      onPick_(std::move(onPick)),
      rows_(g_list_store_new(GTK_TYPE_STRING_OBJECT)) {
  takeInitialItems();
  installFactories();
  adw_combo_row_set_model(row, G_LIST_MODEL(rows_.get()));
  letNothingBeSelected(GTK_WIDGET(row));
  syncNow();
  followPicks();
  gtk_widget_set_has_tooltip(GTK_WIDGET(row), TRUE);
  g_signal_connect(row, "query-tooltip", G_CALLBACK(showChosenTitle), nullptr);
}

PopUpView::~PopUpView() {
  if (sync_ != 0) g_source_remove(sync_);
}

// The row's own property tells of changes only, and not when the user picks what is chosen already.
// So the list in its menu is asked, wherever this libadwaita has it.
void PopUpView::followPicks() {
  auto* popover = firstBelow<GtkWidget>(widget(), GTK_TYPE_POPOVER);
  auto* list = popover != nullptr ? firstBelow<GtkWidget>(popover, GTK_TYPE_LIST_VIEW) : nullptr;
  const auto pickSelected = [this] {
    if (!isSyncing_) pick(adw_combo_row_get_selected(row()));
  };
  if (list == nullptr) {
    handlers_.connect(row(), "notify::selected", pickSelected);
    return;
  }
  handlers_.connect(list, "activate", pickSelected);
  handlers_.connect(popover, "notify::visible",
                    [this, popover] { tellOpen(gtk_widget_get_visible(popover) != FALSE); });
  tellOpen(false);
}

// For screen readers: the row is a combo box, which is open or closed.
void PopUpView::tellOpen(bool open) {
  if (widget() == nullptr) return;
  gtk_accessible_update_state(GTK_ACCESSIBLE(widget()), GTK_ACCESSIBLE_STATE_EXPANDED,
                              open ? TRUE : FALSE, -1);
}

// Items in the interface file are the menu's initial content.
void PopUpView::takeInitialItems() {
  GListModel* model = adw_combo_row_get_model(row());
  const guint count = model != nullptr ? g_list_model_get_n_items(model) : 0;
  for (guint at = 0; at < count; ++at) {
    const ObjectPtr<GObject> item(static_cast<GObject*>(g_list_model_get_item(model, at)));
    items_.push_back({titleOf(item.get()), false});
  }
  selected_ = items_.empty() ? -1 : 0;
}

void PopUpView::installFactories() {
  adw_combo_row_set_factory(row(),
                            factory(G_CALLBACK(setUpChosen), G_CALLBACK(bindChosen), row()).get());
  adw_combo_row_set_list_factory(row(),
                                 factory(G_CALLBACK(setUpRow), G_CALLBACK(bindRow), row()).get());
}

std::vector<PopUpView::Row> PopUpView::rowsOf(const std::vector<Item>& items) {
  std::vector<Row> rows;
  bool isAfterSeparator = false;
  for (const Item& item : items) {
    if (!item.separator) rows.push_back({item.title, isAfterSeparator && !rows.empty()});
    isAfterSeparator = item.separator;
  }
  return rows;
}

int PopUpView::rowOfItem(const std::vector<Item>& items, int item) {
  if (item < 0 || items[static_cast<std::size_t>(item)].separator) return -1;
  const auto end = items.begin() + item;
  return item - static_cast<int>(std::count_if(items.begin(), end,
                                               [](const Item& each) { return each.separator; }));
}

int PopUpView::itemOfRow(const std::vector<Item>& items, int row) {
  for (int item = 0; item < static_cast<int>(items.size()); ++item) {
    if (!items[static_cast<std::size_t>(item)].separator && row-- == 0) return item;
  }
  return -1;
}

// The user can pick a row before the sync: the choice means the row on the screen.
void PopUpView::pick(guint row) {
  const int shown =
      row == GTK_INVALID_LIST_POSITION ? -1 : itemOfRow(shown_, static_cast<int>(row));
  const int item = itemOfShownRow(items_, shown_, shown);
  if (item < 0) {
    syncNow();
    return;
  }
  selected_ = item;
  if (onPick_) onPick_(this);
}

void PopUpView::removeAllItems() {
  items_.clear();
  selected_ = -1;
  scheduleSync();
}

void PopUpView::addItem(const std::string& title) {
  std::string line = singleLine(title);
  items_.push_back({line.empty() ? unnamedItem_ : std::move(line), false});
  scheduleSync();
}

void PopUpView::addSeparator() {
  items_.push_back({{}, true});
  scheduleSync();
}

void PopUpView::selectItem(std::int64_t index) {
  selected_ = index >= 0 && index < numberOfItems() ? static_cast<int>(index) : -1;
  scheduleSync();
}

void PopUpView::scheduleSync() {
  if (sync_ != 0) return;
  sync_ = g_idle_add_full(
      G_PRIORITY_DEFAULT,
      [](gpointer view) -> gboolean {
        auto& self = *static_cast<PopUpView*>(view);
        self.sync_ = 0;
        self.syncNow();
        return G_SOURCE_REMOVE;
      },
      this, nullptr);
}

void PopUpView::syncNow() {
  if (widget() == nullptr) return;
  isSyncing_ = true;
  updateRows();
  const int chosen = rowOfItem(items_, selected_);
  const guint position = chosen < 0 ? GTK_INVALID_LIST_POSITION : static_cast<guint>(chosen);
  if (adw_combo_row_get_selected(row()) != position) adw_combo_row_set_selected(row(), position);
  isSyncing_ = false;
}

void PopUpView::updateRows() {
  const std::vector<Row> wanted = rowsOf(items_);
  const MenuChange change = menuChange(rowsOf(shown_), wanted);
  shown_ = items_;
  if (change.removed == 0 && change.inserted == 0) return;
  std::vector<ObjectPtr<GtkStringObject>> owned;
  std::vector<gpointer> added;
  for (std::size_t at = change.at; at < change.at + change.inserted; ++at) {
    GtkStringObject* made = gtk_string_object_new(wanted[at].title.c_str());
    owned.emplace_back(made);
    added.push_back(made);
    if (wanted[at].isAfterSeparator) g_object_set_data(G_OBJECT(made), kAfterSeparator, made);
  }
  g_list_store_splice(rows_.get(), static_cast<guint>(change.at),
                      static_cast<guint>(change.removed), added.data(),
                      static_cast<guint>(added.size()));
}

}  // namespace linux_host
