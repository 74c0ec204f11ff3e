// SPDX-License-Identifier: MIT
#include "hosts/linux/windows_gtk/gtk_objects.h"

#include <algorithm>

namespace linux_host {
namespace {

using Act = std::function<void()>;

void run(Act* act) {
  // The handler may end with what it does.
  const Act copy = *act;
  copy();
}

gboolean runAndStop(Act* act) {
  run(act);
  return TRUE;
}

void runWithResponse(std::function<void(int)>* act, int response) {
  const auto copy = *act;
  copy(response);
}

// They are not printed, but decide how the letters beside them are: Persian and Hindi need them.
bool isJoiner(gunichar character) {
  constexpr gunichar kZeroWidthNonJoiner = 0x200C;
  constexpr gunichar kZeroWidthJoiner = 0x200D;
  return character == kZeroWidthNonJoiner || character == kZeroWidthJoiner;
}

}  // namespace

SignalHandlers::~SignalHandlers() {
  for (const auto& handler : handlers_) {
    if (handler->object.get() != nullptr) {
      g_signal_handler_disconnect(handler->object.get(), handler->id);
    }
  }
}

template <typename Function>
void SignalHandlers::add(gpointer object, const char* signal, GCallback callback, Function act) {
  const gulong id = g_signal_connect_data(
      object, signal, callback, new Function(std::move(act)),
      [](gpointer owned, GClosure*) { delete static_cast<Function*>(owned); }, G_CONNECT_SWAPPED);
  handlers_.push_back(std::make_unique<Handler>(G_OBJECT(object), id));
}

void SignalHandlers::connect(gpointer object, const char* signal, std::function<void()> act) {
  add(object, signal, G_CALLBACK(run), std::move(act));
}

void SignalHandlers::intercept(gpointer object, const char* signal, std::function<void()> act) {
  add(object, signal, G_CALLBACK(runAndStop), std::move(act));
}

void SignalHandlers::connectResponse(gpointer object, const char* signal,
                                     std::function<void(int)> act) {
  add(object, signal, G_CALLBACK(runWithResponse), std::move(act));
}

std::string singleLine(const std::string& text) {
  std::string withoutNul = text;
  std::replace(withoutNul.begin(), withoutNul.end(), '\0', ' ');
  const TextPtr valid(
      g_utf8_make_valid(withoutNul.c_str(), static_cast<gssize>(withoutNul.size())));
  std::string line;
  bool isBlank = false;
  const gchar* next = nullptr;
  for (const gchar* at = valid.get(); *at != '\0'; at = next) {
    next = g_utf8_next_char(at);
    const gunichar character = g_utf8_get_char(at);
    const bool isPrinted = g_unichar_isprint(character) != FALSE || isJoiner(character);
    if (g_unichar_isspace(character) != FALSE || !isPrinted) {
      isBlank = true;
      continue;
    }
    if (isBlank && !line.empty()) line += ' ';
    isBlank = false;
    line.append(at, next);
  }
  return line;
}

}  // namespace linux_host
