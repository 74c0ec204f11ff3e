// SPDX-License-Identifier: MIT
#pragma once

#include <algorithm>
#include <cstddef>
#include <vector>

// A menu that the program rebuilds while its user looks at it. `items` is what the program wants,
// `shown` what the user still sees; both are updated to match after the current event.

namespace linux_host {

// The item that the user means by picking row `row` of what is shown; -1 when that item is gone or
// no longer the only one of its kind.
template <typename Item>
int itemOfShownRow(const std::vector<Item>& items, const std::vector<Item>& shown, int row) {
  if (row < 0 || row >= static_cast<int>(shown.size())) return -1;
  if (shown == items) return row;
  const Item& picked = shown[static_cast<std::size_t>(row)];
  if (std::count(items.begin(), items.end(), picked) != 1) return -1;
  return static_cast<int>(std::find(items.begin(), items.end(), picked) - items.begin());
}

// Which rows differ: `removed` rows of what is shown, from `at` on, are replaced by as many items
// as `inserted` says, from `at` on.
struct MenuChange {
  std::size_t at = 0;
  std::size_t removed = 0;
  std::size_t inserted = 0;
};

// The smallest such change: the rows before and after it stay, and with them position and focus.
template <typename Item>
MenuChange menuChange(const std::vector<Item>& shown, const std::vector<Item>& items) {
  const auto limit = std::min(shown.size(), items.size());
  std::size_t head = 0;
  while (head < limit && shown[head] == items[head]) ++head;
  std::size_t tail = 0;
  while (tail < limit - head && shown[shown.size() - 1 - tail] == items[items.size() - 1 - tail]) {
    ++tail;
  }
  return {head, shown.size() - tail - head, items.size() - tail - head};
}

}  // namespace linux_host
