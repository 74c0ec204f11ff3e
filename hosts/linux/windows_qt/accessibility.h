// SPDX-License-Identifier: MIT
#pragma once

namespace linux_host {

// While one exists, screen readers get the right roles and values of this module's own widgets.
// Main thread.
class WidgetAccessibility {
 public:
  WidgetAccessibility();
  ~WidgetAccessibility();
  WidgetAccessibility(const WidgetAccessibility&) = delete;
  WidgetAccessibility& operator=(const WidgetAccessibility&) = delete;
};

}  // namespace linux_host
