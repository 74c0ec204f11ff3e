// SPDX-License-Identifier: MIT
#pragma once

#include <glib.h>

#include <functional>

#include "hosts/linux/base/glib_owners.h"

namespace linux_host {

// The sources that are added to the default main context between construction and end(). Main
// thread.
class SourceSpan {
 public:
  SourceSpan() : first_(nextId()) {}
  void end() { last_ = nextId(); }
  // Removes those that are still there from the context for good.
  void destroy() const {
    destroyWhere(last_, [](GSource*) { return true; });
  }
  // The same, and of the sources added since end() those that `isToolkits` recognises.
  void destroyWith(const std::function<bool(GSource*)>& isToolkits) const {
    destroy();
    destroyWhere(nextId(), isToolkits);
  }

 private:
  // The id that the context will give to the next source.
  static guint nextId() {
    const SourcePtr probe(g_idle_source_new());
    return g_source_attach(probe.get(), nullptr);
  }
  void destroyWhere(guint end, const std::function<bool(GSource*)>& isToolkits) const {
    for (guint id = first_; id < end; ++id) {
      GSource* source = g_main_context_find_source_by_id(nullptr, id);
      if (source != nullptr && isToolkits(source)) g_source_destroy(source);
    }
  }

  const guint first_;
  guint last_ = 0;
};

}  // namespace linux_host
