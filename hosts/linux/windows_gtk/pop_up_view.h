// SPDX-License-Identifier: MIT
#pragma once

#include <adwaita.h>

#include <cstdint>
#include <string>
#include <vector>

#include "hosts/linux/windows_gtk/gtk_objects.h"
#include "hosts/linux/windows_gtk/views.h"

namespace linux_host {

// A combo row that can be rebuilt without flicker. The items are kept here. After the current event
// the widget is updated once, and only the rows that really changed, so that an open menu stays
// open and where it is. A separator is a line above the row that follows it, not a row. Only a row
// that the user activates counts as picked: neither the wheel nor arrow keys do. Main thread.
class PopUpView : public WidgetView<platform::PopUpButton> {
 public:
  PopUpView(AdwComboRow* row, std::string unnamedItem, UserAct onPick);
  ~PopUpView() override;
  PopUpView(const PopUpView&) = delete;
  PopUpView& operator=(const PopUpView&) = delete;

  void removeAllItems() override;
  void addItem(const std::string& title) override;
  void addSeparator() override;
  [[nodiscard]] int numberOfItems() const override { return static_cast<int>(items_.size()); }
  void selectItem(std::int64_t index) override;
  [[nodiscard]] int indexOfSelectedItem() const override { return selected_; }

 private:
  struct Item {
    std::string title;
    bool separator = false;
    friend bool operator==(const Item&, const Item&) = default;
  };
  // What a row of the menu shows.
  struct Row {
    std::string title;
    bool isAfterSeparator = false;
    friend bool operator==(const Row&, const Row&) = default;
  };

  static std::vector<Row> rowsOf(const std::vector<Item>& items);
  static int rowOfItem(const std::vector<Item>& items, int item);
  static int itemOfRow(const std::vector<Item>& items, int row);

  [[nodiscard]] AdwComboRow* row() const { return ADW_COMBO_ROW(widget()); }
  void takeInitialItems();
  void installFactories();
  void followPicks();
  void tellOpen(bool open);
  void pick(guint row);
  void scheduleSync();
  void syncNow();
  void updateRows();

  const std::string unnamedItem_;
  const UserAct onPick_;
  const ObjectPtr<GListStore> rows_;
  std::vector<Item> items_;
  std::vector<Item> shown_;
  int selected_ = -1;
  guint sync_ = 0;  // the source; 0: none
  bool isSyncing_ = false;
  SignalHandlers handlers_;
};

}  // namespace linux_host
