// SPDX-License-Identifier: MIT
#include "hosts/linux/shortcuts/shortcut_wish.h"

#include "hosts/linux/base/log.h"

namespace linux_host {
namespace {

constexpr const char* kKey = "GlobalShortcut";

}  // namespace

bool ShortcutWish::isWanted() const {
  const auto json = file_.peek();
  if (!json) {
    logMessage(LogLevel::kWarning,
               json.error() + " The shortcut is not set up; set it in the preferences.");
    return false;
  }
  const auto entry = json->find(kKey);
  return entry != json->end() && entry->is_boolean() && entry->get<bool>();
}

void ShortcutWish::want(bool wanted) {
  if (isWanted() == wanted) return;
  const auto changed = file_.change([wanted](Json& json) { json[kKey] = wanted; });
  if (changed) return;
  logMessage(LogLevel::kWarning, "Cannot remember that the shortcut was " +
                                     std::string(wanted ? "set. " : "declined. ") +
                                     changed.error());
}

}  // namespace linux_host
