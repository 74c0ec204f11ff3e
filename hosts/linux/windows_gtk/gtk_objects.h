// SPDX-License-Identifier: MIT
#pragma once

#include <gtk/gtk.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "hosts/linux/base/glib_owners.h"

// Observers and handlers for GTK's objects. Main thread.

namespace linux_host {

// An object that belongs to somebody else; null once it is gone.
template <typename Object>
class WeakObject {
 public:
  WeakObject() = default;
  explicit WeakObject(Object* object) : object_(object) {
    if (object_ != nullptr) g_object_add_weak_pointer(G_OBJECT(object_), address());
  }
  ~WeakObject() {
    if (object_ != nullptr) g_object_remove_weak_pointer(G_OBJECT(object_), address());
  }
  WeakObject(const WeakObject&) = delete;
  WeakObject& operator=(const WeakObject&) = delete;

  [[nodiscard]] Object* get() const { return object_; }

 private:
  gpointer* address() { return reinterpret_cast<gpointer*>(&object_); }

  Object* object_ = nullptr;
};

// Calls functions for signals of objects, until this object or the other is gone.
class SignalHandlers {
 public:
  SignalHandlers() = default;
  ~SignalHandlers();
  SignalHandlers(const SignalHandlers&) = delete;
  SignalHandlers& operator=(const SignalHandlers&) = delete;

  // `signal` has no result. Its arguments are not handed on.
  void connect(gpointer object, const char* signal, std::function<void()> act);
  // `signal` has a number as its first argument: a dialog's response.
  void connectResponse(gpointer object, const char* signal, std::function<void(int)> act);
  // `signal` returns whether it has been dealt with, which it now always has.
  void intercept(gpointer object, const char* signal, std::function<void()> act);

 private:
  struct Handler {
    Handler(GObject* instance, gulong number) : object(instance), id(number) {}
    WeakObject<GObject> object;
    gulong id;
  };
  template <typename Act>
  void add(gpointer object, const char* signal, GCallback callback, Act act);

  std::vector<std::unique_ptr<Handler>> handlers_;
};

// Text that came from outside (a device's name) as one harmless line of valid UTF-8.
std::string singleLine(const std::string& text);

}  // namespace linux_host
