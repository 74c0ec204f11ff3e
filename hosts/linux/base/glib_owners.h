// SPDX-License-Identifier: MIT
#pragma once

#include <glib-object.h>

#include <memory>

// Owners for what GLib hands out.

namespace linux_host {

struct ObjectUnref {
  void operator()(gpointer object) const { g_object_unref(object); }
};
struct VariantUnref {
  void operator()(GVariant* variant) const { g_variant_unref(variant); }
};
struct ErrorFree {
  void operator()(GError* error) const { g_error_free(error); }
};
struct MemoryFree {
  void operator()(gpointer memory) const { g_free(memory); }
};
// Also takes the source out of its loop.
struct SourceEnd {
  void operator()(GSource* source) const {
    g_source_destroy(source);
    g_source_unref(source);
  }
};

template <typename Object>
using ObjectPtr = std::unique_ptr<Object, ObjectUnref>;
using VariantPtr = std::unique_ptr<GVariant, VariantUnref>;
using ErrorPtr = std::unique_ptr<GError, ErrorFree>;
using TextPtr = std::unique_ptr<gchar, MemoryFree>;
using SourcePtr = std::unique_ptr<GSource, SourceEnd>;

}  // namespace linux_host
